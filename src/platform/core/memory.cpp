#include "bic/platform/core/memory.hpp"

#include <algorithm>
#include <mutex>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define BIC_POISON(at, size) ASAN_POISON_MEMORY_REGION(at, size)
#define BIC_UNPOISON(at, size) ASAN_UNPOISON_MEMORY_REGION(at, size)
#else
#define BIC_POISON(at, size) ((void)(at), (void)(size))
#define BIC_UNPOISON(at, size) ((void)(at), (void)(size))
#endif

namespace bic {

namespace {

constexpr std::size_t kHugePage = std::size_t(2) << 20;

std::size_t roundedToHugePages(std::size_t bytes) {
    if (bytes > std::numeric_limits<std::size_t>::max() - kHugePage) throw std::bad_alloc();
    return (bytes + kHugePage - 1) & ~(kHugePage - 1);
}

// A fresh mapping of `size` bytes (a multiple of 2 MB) that starts on a 2 MB boundary, so that
// every page of it can be a huge page.
void* mapBlock(std::size_t size) {
    const std::size_t padded = size + kHugePage;
    void* mapped =
        ::mmap(nullptr, padded, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    const auto begin = reinterpret_cast<std::uintptr_t>(mapped);
    const std::uintptr_t aligned = (begin + kHugePage - 1) & ~(kHugePage - 1);
    if (aligned > begin) ::munmap(mapped, aligned - begin);
    if (const std::size_t tail = begin + padded - (aligned + size))
        ::munmap(reinterpret_cast<void*>(aligned + size), tail);
    ::madvise(reinterpret_cast<void*>(aligned), size, MADV_HUGEPAGE);
    return reinterpret_cast<void*>(aligned);
}

// Freed large blocks, by rounded size, kept up to a limit. Most recently freed first: its pages
// are the likeliest to be in the cache still.
class Recycler {
public:
    void* take(std::size_t size) {
        std::lock_guard lock(mutex_);
        for (auto it = kept_.rbegin(); it != kept_.rend(); ++it)
            if (it->size == size) {
                void* block = it->block;
                held_ -= size;
                kept_.erase(std::next(it).base());
                return block;
            }
        return nullptr;
    }
    bool keep(void* block, std::size_t size) {
        std::lock_guard lock(mutex_);
        if (held_ + size > limit_) return false;
        kept_.push_back({block, size});
        held_ += size;
        return true;
    }
    void setLimit(std::size_t limit) {
        std::lock_guard lock(mutex_);
        limit_ = limit;
        trim(limit);
    }
    void release() {
        std::lock_guard lock(mutex_);
        trim(0);
    }
    std::size_t held() {
        std::lock_guard lock(mutex_);
        return held_;
    }
    std::size_t limit() {
        std::lock_guard lock(mutex_);
        return limit_;
    }

private:
    struct Kept {
        void* block;
        std::size_t size;
    };
    // The oldest go first.
    void trim(std::size_t to) {
        std::size_t drop = 0;
        while (held_ > to) {
            const Kept& k = kept_[drop++];
            BIC_UNPOISON(k.block, k.size);
            ::munmap(k.block, k.size);
            held_ -= k.size;
        }
        kept_.erase(kept_.begin(), kept_.begin() + std::ptrdiff_t(drop));
    }

    std::mutex mutex_;
    std::vector<Kept> kept_;
    std::size_t held_ = 0;
    std::size_t limit_ = [] {
        const long pages = ::sysconf(_SC_PHYS_PAGES), pageSize = ::sysconf(_SC_PAGESIZE);
        return pages > 0 && pageSize > 0 ? std::size_t(pages) * std::size_t(pageSize) / 8
                                         : std::size_t(1) << 30;
    }();
};

// Asks for huge pages over the whole 2 MB pages inside [data, data + size).
void preferHugePages(const void* data, std::size_t size) {
    if (size < 2 * kHugePage) return;
    const auto begin = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t first = (begin + kHugePage - 1) & ~(kHugePage - 1);
    const std::uintptr_t last = (begin + size) & ~(kHugePage - 1);
    if (last > first) ::madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
}

Recycler& recycler() {
    // Never destroyed: blocks may be freed by static objects' destructors after main returns.
    static Recycler* const instance = new Recycler;
    return *instance;
}

} // namespace

void* allocateLargeBlock(std::size_t bytes) {
    const std::size_t size = roundedToHugePages(bytes);
    void* block = recycler().take(size);
    if (!block) block = mapBlock(size);
    // The rounding's slack stays out of bounds, as after an exact allocation.
    BIC_UNPOISON(block, bytes);
    BIC_POISON(static_cast<std::uint8_t*>(block) + bytes, size - bytes);
    return block;
}

void freeLargeBlock(void* block, std::size_t bytes) {
    if (!block) return;
    const std::size_t size = roundedToHugePages(bytes);
    BIC_POISON(block, size); // a use after free is caught even though the block lives on
    if (!recycler().keep(block, size)) {
        BIC_UNPOISON(block, size);
        ::munmap(block, size);
    }
}

std::size_t recycledMemory() { return recycler().held(); }

std::size_t recycledMemoryLimit() { return recycler().limit(); }

void setRecycledMemoryLimit(std::size_t bytes) { recycler().setLimit(bytes); }

void releaseRecycledMemory() { recycler().release(); }

std::vector<std::uint8_t> zeroedBuffer(std::size_t size) {
    std::vector<std::uint8_t> buffer;
    buffer.reserve(size); // allocated, not yet touched
    preferHugePages(buffer.data(), size);
    buffer.resize(size);
    return buffer;
}

std::shared_ptr<std::uint8_t[]> uninitializedBuffer(std::size_t size) {
    if (size < kLargeBlock) return std::shared_ptr<std::uint8_t[]>(new std::uint8_t[size]);
    return {static_cast<std::uint8_t*>(allocateLargeBlock(size)),
            [size](std::uint8_t* block) { freeLargeBlock(block, size); }};
}

} // namespace bic
