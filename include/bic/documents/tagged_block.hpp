#pragma once
// Additional information of a layer or of the document, as the format tags it: a signature
// ("8BIM" or "8B64"), a four-character key and the block's bytes.

#include <cstdint>
#include <string>
#include <vector>

namespace bic {

struct TaggedBlock {
    std::string signature = "8BIM";
    std::string key;
    /// The data after the length field, as stored (any padding the writer included).
    std::vector<std::uint8_t> bytes;

    friend bool operator==(const TaggedBlock&, const TaggedBlock&) = default;
};

/// Keys whose length field is 8 bytes in large documents (PSB).
bool hasLongLengthInLargeDocuments(const std::string& key);

} // namespace bic
