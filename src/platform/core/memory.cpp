#include "bic/platform/core/memory.hpp"

#include <sys/mman.h>

namespace bic {

namespace {

constexpr std::size_t kHugePage = std::size_t(2) << 20;

// Asks for huge pages over the whole 2 MB pages inside [data, data + size).
void preferHugePages(const void* data, std::size_t size) {
    if (size < 2 * kHugePage) return;
    const auto begin = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t first = (begin + kHugePage - 1) & ~(kHugePage - 1);
    const std::uintptr_t last = (begin + size) & ~(kHugePage - 1);
    if (last > first) ::madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
}

} // namespace

std::vector<std::uint8_t> zeroedBuffer(std::size_t size) {
    std::vector<std::uint8_t> buffer;
    buffer.reserve(size); // allocated, not yet touched
    preferHugePages(buffer.data(), size);
    buffer.resize(size);
    return buffer;
}

std::shared_ptr<std::uint8_t[]> uninitializedBuffer(std::size_t size) {
    std::shared_ptr<std::uint8_t[]> buffer(new std::uint8_t[size]);
    preferHugePages(buffer.get(), size);
    return buffer;
}

} // namespace bic
