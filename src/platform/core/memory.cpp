#include "bic/platform/core/memory.hpp"

#include "bic/platform/core/fatal.hpp"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <limits>
#include <map>
#include <mutex>
#include <new>
#include <set>
#include <sys/mman.h>
#include <unistd.h>
#include <unordered_map>

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

// Same-size blocks carved from chunks of huge pages. Each request gets the lowest free block of
// the lowest chunk with room, so blocks made one after another lie in address order even after
// others were freed. A chunk whose blocks are all free goes back to the system unless it is its
// size's only chunk with room, so a tile made and freed over and over does not map and unmap a
// chunk each time.
class Slabs {
public:
    void* take(std::size_t size) {
        std::lock_guard lock(mutex_);
        std::set<Chunk*, ByAddress>& open = open_[size];
        if (open.empty()) open.insert(newChunk(size));
        Chunk& chunk = **open.begin();
        std::size_t word = 0;
        while (chunk.free[word] == 0)
            ++word;
        const auto bit = std::size_t(std::countr_zero(chunk.free[word]));
        chunk.free[word] &= chunk.free[word] - 1;
        if (--chunk.freeCount == 0) open.erase(open.begin());
        return chunk.base + (word * 64 + bit) * size;
    }
    void give(void* block, std::size_t size) {
        std::lock_guard lock(mutex_);
        const auto at = reinterpret_cast<std::uintptr_t>(block);
        auto it = std::prev(chunks_.upper_bound(at));
        Chunk* chunk = it->second.get();
        const std::size_t slot = (at - it->first) / size;
        chunk->free[slot / 64] |= std::uint64_t(1) << (slot % 64);
        std::set<Chunk*, ByAddress>& open = open_[size];
        if (++chunk->freeCount == 1) open.insert(chunk);
        if (chunk->freeCount == chunk->slots && open.size() > 1) {
            open.erase(chunk);
            ::munmap(chunk->base, chunk->bytes);
            chunks_.erase(it);
        }
    }

private:
    struct Chunk {
        std::uint8_t* base;
        std::size_t bytes, slots, freeCount;
        std::vector<std::uint64_t> free; // a set bit for each free block
    };
    struct ByAddress {
        bool operator()(const Chunk* a, const Chunk* b) const { return a->base < b->base; }
    };

    Chunk* newChunk(std::size_t size) {
        // At least 16 blocks a chunk; pages are committed as blocks are first touched.
        auto chunk = std::make_unique<Chunk>();
        chunk->bytes = roundedToHugePages(size * 16);
        chunk->base = static_cast<std::uint8_t*>(mapBlock(chunk->bytes));
        chunk->slots = chunk->freeCount = chunk->bytes / size;
        chunk->free.assign((chunk->slots + 63) / 64, ~std::uint64_t(0));
        if (chunk->slots % 64) chunk->free.back() = (std::uint64_t(1) << (chunk->slots % 64)) - 1;
        Chunk* raw = chunk.get();
        chunks_.emplace(reinterpret_cast<std::uintptr_t>(chunk->base), std::move(chunk));
        return raw;
    }

    std::mutex mutex_;
    std::map<std::uintptr_t, std::unique_ptr<Chunk>> chunks_;           // by base address
    std::unordered_map<std::size_t, std::set<Chunk*, ByAddress>> open_; // chunks with room
};

// Unused where the sanitizer has the heap serve slab blocks.
[[maybe_unused]] Slabs& slabs() {
    static Slabs* const instance = new Slabs; // never destroyed, as the recycler
    return *instance;
}

constexpr std::size_t kPage = 4096;

// A slab block's size: whole pages, at least one.
std::size_t pageRounded(std::size_t bytes) {
    return (std::max<std::size_t>(bytes, 1) + kPage - 1) / kPage * kPage;
}

} // namespace

void* allocateSlabBlock(std::size_t bytes) {
    const std::size_t size = pageRounded(bytes);
#if defined(__SANITIZE_ADDRESS__)
    // Neighbouring blocks would hide an overrun from the sanitizer; the heap's red zones do not.
    void* block = std::aligned_alloc(kPage, size);
    if (!block) throw std::bad_alloc();
    return block;
#else
    precondition(size <= kSlabBlockLimit, "Slab blocks are at most 1 MB.");
    return slabs().take(size);
#endif
}

void freeSlabBlock(void* block, std::size_t bytes) {
    if (!block) return;
#if defined(__SANITIZE_ADDRESS__)
    (void)bytes;
    std::free(block);
#else
    slabs().give(block, pageRounded(bytes));
#endif
}

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
