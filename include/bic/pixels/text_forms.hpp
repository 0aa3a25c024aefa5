#pragma once
// Text forms shared by the pixel formats.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bic::text_forms {

/// Six hexadecimal digits after trimming white space and one leading "#"; 0…0xFFFFFF.
std::optional<std::uint32_t> parseHex(std::string_view text);
/// The first `count` values formatted with "%f", separated by single spaces.
std::string formatFloats(std::initializer_list<float> values, std::size_t count);
/// Pieces split at single spaces, each parsed completely as a float in the C locale.
std::optional<std::vector<float>> parseFloats(std::string_view text);

} // namespace bic::text_forms
