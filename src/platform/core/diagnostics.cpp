#include "bic/platform/core/diagnostics.hpp"

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace bic {

namespace {

std::mutex& sinkMutex() {
    static std::mutex mutex;
    return mutex;
}

// Held by shared pointer so that a line being written keeps its sink alive while another thread
// replaces it.
std::shared_ptr<const DiagnosticSink>& currentSink() {
    static std::shared_ptr<const DiagnosticSink> sink;
    return sink;
}

// One write per line, so that lines from two threads do not interleave.
void standardOutput(std::string_view line) {
    std::string text(line);
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

} // namespace

DiagnosticSink setDiagnosticSink(DiagnosticSink sink) {
    auto next = sink ? std::make_shared<const DiagnosticSink>(std::move(sink)) : nullptr;
    std::lock_guard lock(sinkMutex());
    const auto previous = std::exchange(currentSink(), std::move(next));
    return previous ? *previous : DiagnosticSink();
}

void diagnostic(std::string_view line) {
    std::shared_ptr<const DiagnosticSink> sink;
    {
        std::lock_guard lock(sinkMutex());
        sink = currentSink();
    }
    if (sink)
        (*sink)(line);
    else
        standardOutput(line);
}

} // namespace bic
