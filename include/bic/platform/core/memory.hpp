#pragma once
// Large pixel buffers and the operating system's memory.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace bic {

/// `size` zero bytes. Buffers of several megabytes are backed by huge pages where the system
/// allows it: first touching a fresh buffer then costs one fault per 2 MB instead of per 4 KB,
/// which is most of the cost of making a large buffer.
std::vector<std::uint8_t> zeroedBuffer(std::size_t size);
/// `size` bytes, not initialised, on huge pages like zeroedBuffer: for copies that fill them.
std::shared_ptr<std::uint8_t[]> uninitializedBuffer(std::size_t size);

} // namespace bic
