#include "bic/platform/io/surface.hpp"

#include "bic/platform/ci/format.hpp"

#include <atomic>
#include <mutex>
#include <sys/mman.h>

namespace bic::io {

namespace {
std::atomic<std::uint32_t> nextID{1};
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

// Lock bookkeeping: how many read-only and read-write locks are held, and the seed.
struct Surface::State {
    std::mutex mutex;
    int readers = 0;
    bool writer = false;
    std::uint32_t seed = 1;
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
    // Anonymous pages come zero-filled and page-aligned, and a large canvas costs nothing until
    // it is touched.
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return nullptr;
    return std::shared_ptr<Surface>(
        new Surface(p, static_cast<std::uint8_t*>(memory), size, nextID.fetch_add(1)));
}

Surface::Surface(const SurfaceProperties& p, std::uint8_t* memory, std::size_t size,
                 std::uint32_t id)
    : props_(p), memory_(memory), size_(size), id_(id), state_(std::make_unique<State>()) {}

Surface::~Surface() { munmap(memory_, size_); }

std::uint32_t Surface::seed() const {
    std::lock_guard guard(state_->mutex);
    return state_->seed;
}

bool Surface::lock(LockOptions options, std::uint32_t* seed) {
    if (options == LockOptions::readOnly)
        access_.lock_shared();
    else
        access_.lock();
    std::lock_guard guard(state_->mutex);
    if (options == LockOptions::readOnly)
        ++state_->readers;
    else
        state_->writer = true;
    if (seed) *seed = state_->seed;
    return true;
}

bool Surface::unlock(LockOptions options, std::uint32_t* seed) {
    {
        std::lock_guard guard(state_->mutex);
        if (options == LockOptions::readOnly) {
            if (state_->readers == 0) return false;
            --state_->readers;
        } else {
            if (!state_->writer) return false;
            state_->writer = false;
            ++state_->seed;
        }
        if (seed) *seed = state_->seed;
    }
    if (options == LockOptions::readOnly)
        access_.unlock_shared();
    else
        access_.unlock();
    return true;
}

} // namespace bic::io

namespace bic::ci {

std::optional<Format> formatOfSurfaceCode(std::uint32_t code) {
    namespace sf = io::surface_format;
    switch (code) {
    case sf::argb8:
        return Format::ARGB8;
    case sf::bgra8:
        return Format::BGRA8;
    case sf::gray8:
        return Format::L8;
    case sf::rgba16:
        return Format::RGBA16;
    case sf::gray16:
        return Format::L16;
    case sf::rgbaf:
        return Format::RGBAf;
    case sf::grayf:
        return Format::Lf;
    default:
        return std::nullopt;
    }
}

} // namespace bic::ci
