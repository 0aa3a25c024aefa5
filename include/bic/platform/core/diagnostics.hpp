#pragma once
// The library's diagnostic lines — an unknown blend-mode name, a background render that failed,
// a gradient colour that fell back — go through one sink, so a host can send them to its log.
// By default they are written to standard output, one line each, flushed.

#include <functional>
#include <string_view>

namespace bic {

/// Receives one line, without its line feed. May be called from any thread.
using DiagnosticSink = std::function<void(std::string_view line)>;

/// Replaces the sink and returns the one it replaces; an empty function restores standard output.
DiagnosticSink setDiagnosticSink(DiagnosticSink sink);

/// Hands `line` to the sink.
void diagnostic(std::string_view line);

} // namespace bic
