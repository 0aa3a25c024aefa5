#include "bic/platform/io/surface.hpp"

#include "bic/platform/core/memory.hpp"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <sys/mman.h>
#include <system_error>
#include <thread>

namespace bic::io {

namespace {

std::atomic<std::uint32_t> nextID{1};

// Snapshots keep what writers overwrite in blocks of 32 rows × 2048 bytes: small enough that a
// brush stroke copies little, large enough that a whole canvas is a few thousand blocks. 2048
// bytes hold whole elements of every format.
// Surfaces up to this size are allocated from the heap; larger ones are mapped.
constexpr std::size_t kHeapSurfaceBytes = std::size_t(4) << 20;
constexpr std::size_t kPageBytes = 4096;

constexpr std::int64_t kBlockRows = 32;
constexpr std::int64_t kBlockBytes = 2048;

} // namespace

int surface_format::bytesPerElement(std::uint32_t format) {
    switch (format) {
    case argb8:
    case bgra8:
        return 4;
    case gray8:
        return 1;
    case rgba16:
        return 8;
    case gray16:
        return 2;
    case rgbaf:
        return 16;
    case grayf:
        return 4;
    default:
        return 0;
    }
}

// Who holds which lock, per thread, and the snapshots writers must copy into.
struct Surface::State {
    std::mutex mutex;
    std::condition_variable released;
    std::thread::id writer;                               // no thread when none writes
    int writes = 0;                                       // the writer's nesting depth
    std::vector<std::pair<std::thread::id, int>> readers; // read locks per thread
    std::thread::id upgrading; // a reader waiting to write, while it reads
    std::uint32_t seed = 1;
    std::vector<std::weak_ptr<Frozen>> snapshots;

    int readsOf(std::thread::id thread) const {
        for (const auto& [t, n] : readers)
            if (t == thread) return n;
        return 0;
    }
    bool othersRead(std::thread::id thread) const {
        return std::any_of(readers.begin(), readers.end(),
                           [&](const auto& r) { return r.first != thread; });
    }
};

// The blocks one snapshot has taken over from its surface. Readers hold the mutex shared while
// they read the surface's own memory; a writer holds it exclusively while it copies a block, so
// a block is never changed under a reader that still reads it in place.
struct Surface::Frozen {
    std::shared_mutex mutex;
    std::int64_t columns = 0; // blocks per row of blocks
    std::vector<std::unique_ptr<std::uint8_t[]>> blocks;
    std::atomic<std::size_t> count{0}; // blocks taken over

    const std::uint8_t* block(std::int64_t row, std::int64_t column) const {
        return blocks[std::size_t(row * columns + column)].get();
    }
};

std::int64_t Surface::alignBytesPerRow(std::int64_t bytesPerRow) {
    return (bytesPerRow + rowAlignment - 1) / rowAlignment * rowAlignment;
}

std::shared_ptr<Surface> Surface::make(const SurfaceProperties& p) {
    if (p.width < 1 || p.width > maximumWidth || p.height < 1 || p.height > maximumHeight)
        return nullptr;
    if (p.bytesPerElement < 1 || p.bytesPerRow < p.width * p.bytesPerElement ||
        p.bytesPerRow % p.bytesPerElement != 0)
        return nullptr;
    const std::size_t size =
        static_cast<std::size_t>(p.bytesPerRow) * static_cast<std::size_t>(p.height);
    // A large canvas is mapped: anonymous pages come zero-filled and page-aligned, and cost
    // nothing until touched. A small surface (a canvas tile, an engine tile) comes from shared
    // huge-page slabs or the heap, cleared: mapping and unmapping one per tile costs page faults
    // and cross-core TLB flushes that take longer than the tile's own work.
    void* memory = nullptr;
    if (size <= kSlabBlockLimit) {
        try {
            memory = allocateSlabBlock(size);
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
        std::memset(memory, 0, size);
    } else if (size <= kHeapSurfaceBytes) {
        memory = std::aligned_alloc(kPageBytes, (size + kPageBytes - 1) / kPageBytes * kPageBytes);
        if (!memory) return nullptr;
        std::memset(memory, 0, size);
    } else {
        memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) return nullptr;
    }
    return std::shared_ptr<Surface>(
        new Surface(p, static_cast<std::uint8_t*>(memory), size, nextID.fetch_add(1)));
}

Surface::Surface(const SurfaceProperties& p, std::uint8_t* memory, std::size_t size,
                 std::uint32_t id)
    : props_(p), memory_(memory), size_(size), id_(id), state_(std::make_unique<State>()) {}

Surface::~Surface() {
    if (size_ <= kSlabBlockLimit)
        freeSlabBlock(memory_, size_);
    else if (size_ <= kHeapSurfaceBytes)
        std::free(memory_);
    else
        munmap(memory_, size_);
}

std::uint32_t Surface::seed() const {
    std::lock_guard guard(state_->mutex);
    return state_->seed;
}

bool Surface::lock(LockOptions options, std::uint32_t* seed) {
    if (options == LockOptions::readWrite) return lockWriting(nullptr, seed);
    return lockForReading(seed);
}

bool Surface::lockForReading(std::uint32_t* seed) const {
    State& s = *state_;
    const auto me = std::this_thread::get_id();
    std::unique_lock guard(s.mutex);
    if (s.writer != me) s.released.wait(guard, [&] { return s.writer == std::thread::id(); });
    auto it = std::find_if(s.readers.begin(), s.readers.end(),
                           [&](const auto& r) { return r.first == me; });
    if (it == s.readers.end())
        s.readers.emplace_back(me, 1);
    else
        ++it->second;
    if (seed) *seed = s.seed;
    return true;
}

bool Surface::lockForWriting(const SurfaceArea& written, std::uint32_t* seed) {
    return lockWriting(&written, seed);
}

bool Surface::lockWriting(const SurfaceArea* written, std::uint32_t* seed) {
    State& s = *state_;
    const auto me = std::this_thread::get_id();
    {
        std::unique_lock guard(s.mutex);
        if (s.writer == me) {
            ++s.writes;
        } else {
            const bool reading = s.readsOf(me) > 0;
            if (reading) {
                // Two readers that both wait to write would wait for each other forever.
                if (s.upgrading != std::thread::id() && s.upgrading != me) return false;
                s.upgrading = me;
            }
            s.released.wait(guard,
                            [&] { return s.writer == std::thread::id() && !s.othersRead(me); });
            if (reading) s.upgrading = std::thread::id();
            s.writer = me;
            s.writes = 1;
        }
        if (seed) *seed = s.seed;
    }
    preserve(written ? *written : SurfaceArea{0, 0, width(), height()});
    return true;
}

bool Surface::unlock(LockOptions options, std::uint32_t* seed) {
    if (options == LockOptions::readOnly) return unlockReading(seed);
    State& s = *state_;
    std::lock_guard guard(s.mutex);
    if (s.writer != std::this_thread::get_id()) return false;
    if (--s.writes == 0) {
        s.writer = std::thread::id();
        ++s.seed;
    }
    if (seed) *seed = s.seed;
    s.released.notify_all();
    return true;
}

bool Surface::unlockReading(std::uint32_t* seed) const {
    State& s = *state_;
    const auto me = std::this_thread::get_id();
    std::lock_guard guard(s.mutex);
    auto it = std::find_if(s.readers.begin(), s.readers.end(),
                           [&](const auto& r) { return r.first == me; });
    if (it == s.readers.end()) return false;
    if (--it->second == 0) s.readers.erase(it);
    if (seed) *seed = s.seed;
    s.released.notify_all();
    return true;
}

void Surface::preserve(const SurfaceArea& area) {
    std::vector<std::shared_ptr<Frozen>> live;
    {
        std::lock_guard guard(state_->mutex);
        auto& list = state_->snapshots;
        std::erase_if(list, [](const std::weak_ptr<Frozen>& f) { return f.expired(); });
        for (const auto& weak : list)
            if (auto f = weak.lock()) live.push_back(std::move(f));
    }
    const std::int64_t x0 = std::clamp<std::int64_t>(area.x, 0, width());
    const std::int64_t x1 = std::clamp<std::int64_t>(area.x + area.width, 0, width());
    const std::int64_t y0 = std::clamp<std::int64_t>(area.y, 0, height());
    const std::int64_t y1 = std::clamp<std::int64_t>(area.y + area.height, 0, height());
    if (live.empty() || x1 <= x0 || y1 <= y0) return;
    const std::int64_t element = bytesPerElement(), rowBytes = bytesPerRow();
    const std::int64_t c0 = x0 * element / kBlockBytes, c1 = (x1 * element - 1) / kBlockBytes;
    const std::int64_t r0 = y0 / kBlockRows, r1 = (y1 - 1) / kBlockRows;
    const std::int64_t blockRows = (height() + kBlockRows - 1) / kBlockRows;
    const std::int64_t columns = (rowBytes + kBlockBytes - 1) / kBlockBytes;
    for (const auto& frozen : live) {
        // Only this thread writes, so only it takes blocks over: it copies them while readers
        // go on reading the same bytes, and excludes readers just to publish the copies, one row
        // of blocks at a time.
        if (frozen->blocks.empty()) {
            std::unique_lock guard(frozen->mutex);
            frozen->columns = columns;
            frozen->blocks.resize(std::size_t(columns * blockRows));
        }
        for (std::int64_t r = r0; r <= r1; ++r) {
            std::vector<std::pair<std::int64_t, std::unique_ptr<std::uint8_t[]>>> copies;
            for (std::int64_t c = c0; c <= c1; ++c) {
                if (frozen->block(r, c)) continue;
                auto copy = std::make_unique_for_overwrite<std::uint8_t[]>(
                    std::size_t(kBlockRows * kBlockBytes));
                const std::int64_t bytes = std::min(kBlockBytes, rowBytes - c * kBlockBytes);
                const std::int64_t rows = std::min(kBlockRows, height() - r * kBlockRows);
                for (std::int64_t i = 0; i < rows; ++i)
                    std::memcpy(copy.get() + i * kBlockBytes,
                                memory_ + (r * kBlockRows + i) * rowBytes + c * kBlockBytes,
                                std::size_t(bytes));
                copies.emplace_back(r * columns + c, std::move(copy));
            }
            if (copies.empty()) continue;
            std::unique_lock guard(frozen->mutex);
            for (auto& [index, copy] : copies)
                frozen->blocks[std::size_t(index)] = std::move(copy);
            frozen->count.fetch_add(copies.size(), std::memory_order_relaxed);
        }
    }
}

std::shared_ptr<const SurfaceSnapshot> Surface::snapshot() {
    auto frozen = std::make_shared<Frozen>();
    lock(LockOptions::readOnly);
    std::uint32_t seed;
    bool ownWrite;
    {
        std::lock_guard guard(state_->mutex);
        seed = state_->seed;
        ownWrite = state_->writer == std::this_thread::get_id();
        state_->snapshots.push_back(frozen);
    }
    // This thread's own write lock promised no area, so the snapshot takes everything now.
    if (ownWrite) preserve({0, 0, width(), height()});
    unlock(LockOptions::readOnly);
    return std::shared_ptr<const SurfaceSnapshot>(
        new SurfaceSnapshot(shared_from_this(), std::move(frozen), seed));
}

SurfaceSnapshot::SurfaceSnapshot(std::shared_ptr<Surface> surface,
                                 std::shared_ptr<Surface::Frozen> frozen, std::uint32_t seed)
    : surface_(std::move(surface)), frozen_(std::move(frozen)), seed_(seed) {}

SurfaceSnapshot::~SurfaceSnapshot() = default;

SurfaceSnapshot::Reader::Reader(const SurfaceSnapshot& snapshot) : snapshot_(snapshot) {
    snapshot_.frozen_->mutex.lock_shared();
}

SurfaceSnapshot::Reader::~Reader() { snapshot_.frozen_->mutex.unlock_shared(); }

const std::uint8_t* SurfaceSnapshot::Reader::unchangedMemory() const {
    return snapshot_.frozen_->count.load(std::memory_order_relaxed) == 0
               ? snapshot_.surface_->memory_
               : nullptr;
}

const std::uint8_t* SurfaceSnapshot::Reader::row(std::int64_t row, std::int64_t x,
                                                 std::int64_t count, std::uint8_t* scratch) const {
    const Surface& s = *snapshot_.surface_;
    const Surface::Frozen& frozen = *snapshot_.frozen_;
    const std::int64_t element = s.bytesPerElement();
    const std::uint8_t* live = s.memory_ + row * s.bytesPerRow();
    if (frozen.count.load(std::memory_order_relaxed) == 0 || count <= 0) return live + x * element;
    const std::int64_t b0 = x * element, b1 = (x + count) * element;
    const std::int64_t blockRow = row / kBlockRows, inBlock = (row % kBlockRows) * kBlockBytes;
    const std::int64_t c0 = b0 / kBlockBytes, c1 = (b1 - 1) / kBlockBytes;
    bool anyFrozen = false;
    for (std::int64_t c = c0; c <= c1 && !anyFrozen; ++c)
        anyFrozen = frozen.block(blockRow, c) != nullptr;
    if (!anyFrozen) return live + x * element;
    if (c0 == c1) return frozen.block(blockRow, c0) + inBlock + (b0 - c0 * kBlockBytes);
    for (std::int64_t c = c0; c <= c1; ++c) {
        const std::int64_t from = std::max(b0, c * kBlockBytes);
        const std::int64_t to = std::min(b1, (c + 1) * kBlockBytes);
        const std::uint8_t* block = frozen.block(blockRow, c);
        const std::uint8_t* source =
            block ? block + inBlock + (from - c * kBlockBytes) : live + from;
        std::memcpy(scratch + (from - b0), source, std::size_t(to - from));
    }
    return scratch;
}

namespace {
[[noreturn]] void refused() {
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
}
} // namespace

SurfaceLock::SurfaceLock(const Surface& surface) : reading_(&surface) {
    if (!surface.lockForReading(&seed_)) refused();
}

SurfaceLock::SurfaceLock(Surface& surface, LockOptions options) {
    if (options == LockOptions::readOnly) {
        reading_ = &surface;
        if (!surface.lockForReading(&seed_)) refused();
    } else {
        writing_ = &surface;
        if (!surface.lock(options, &seed_)) refused();
    }
}

SurfaceLock::SurfaceLock(Surface& surface, const SurfaceArea& written) : writing_(&surface) {
    if (!surface.lockForWriting(written, &seed_)) refused();
}

std::uint32_t SurfaceLock::release() {
    if (reading_) reading_->unlockReading(&seed_);
    if (writing_) writing_->unlock(LockOptions::readWrite, &seed_);
    reading_ = nullptr;
    writing_ = nullptr;
    return seed_;
}

SurfaceLock::~SurfaceLock() { release(); }

} // namespace bic::io
