#include "bic/platform/core/memory.hpp"

#include <sys/mman.h>

namespace bic {

std::vector<std::uint8_t> zeroedBuffer(std::size_t size) {
    constexpr std::size_t hugePage = std::size_t(2) << 20;
    std::vector<std::uint8_t> buffer;
    buffer.reserve(size); // allocated, not yet touched
    if (size >= 2 * hugePage) {
        const auto begin = reinterpret_cast<std::uintptr_t>(buffer.data());
        const std::uintptr_t first = (begin + hugePage - 1) & ~(hugePage - 1);
        const std::uintptr_t last = (begin + size) & ~(hugePage - 1);
        if (last > first) ::madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
    }
    buffer.resize(size);
    return buffer;
}

} // namespace bic
