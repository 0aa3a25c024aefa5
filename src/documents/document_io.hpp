#pragma once
// The reader's and writer's entry points and the plane decoder they share.

#include "bic/documents/layered_document.hpp"

namespace bic::documents {

/// Decodes one stored plane (`counts`: PackBits row lengths for RLE) into host-order samples.
/// Throws DocumentError (corrupt) when the data does not decode to exactly width × height.
SamplePlane decodePlane(std::span<const std::uint8_t> data, std::vector<std::int64_t> counts,
                        ChannelCompression compression, std::int64_t width, std::int64_t height,
                        int bitDepth);

LayeredDocument readDocument(std::span<const std::uint8_t> bytes);
std::vector<std::uint8_t> writeDocument(const LayeredDocument& document,
                                        const DocumentWriteOptions& options);

} // namespace bic::documents
