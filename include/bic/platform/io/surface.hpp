#pragma once
// Shared pixel surfaces: fixed-format pixel memory that renderers write and the CPU reads,
// bracketed by locks.
//
// Rows start on 64-byte boundaries. Every surface has a process-unique 32-bit ID and a 32-bit
// seed that changes each time a read-write lock is released, so a cache can tell whether the
// contents changed since it last looked.
//
// Locks are counted per thread. Read-only locks may be held by several threads at once; a
// read-write lock excludes every other thread. A thread may lock again what it already holds,
// a read inside its own write included, and must unlock as often as it locked.
//
// Snapshots freeze what a surface holds at one moment without copying it: a writer first copies
// the blocks it is about to change into every live snapshot. Reading a snapshot therefore never
// waits for a writer (beyond the copy of one block), never sees a write, and works from inside a
// render that writes the same surface.

#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <vector>

namespace bic::io {

/// The four-character code of a pixel format, read as a big-endian 32-bit value.
constexpr std::uint32_t fourCharCode(const char (&code)[5]) {
    return std::uint32_t(std::uint8_t(code[0])) << 24 | std::uint32_t(std::uint8_t(code[1])) << 16 |
           std::uint32_t(std::uint8_t(code[2])) << 8 | std::uint32_t(std::uint8_t(code[3]));
}

/// The surface pixel formats the library uses, with their element sizes.
namespace surface_format {
inline constexpr std::uint32_t argb8 = 32; ///< 8-bit alpha, red, green, blue: 4 bytes
inline constexpr std::uint32_t gray8 = fourCharCode("L008"); ///< 1 byte
inline constexpr std::uint32_t rgba16 =
    fourCharCode("l64r"); ///< little-endian 16-bit RGBA: 8 bytes
inline constexpr std::uint32_t gray16 = fourCharCode("L016"); ///< 2 bytes
inline constexpr std::uint32_t rgbaf = fourCharCode("RGfA");  ///< 32-bit float RGBA: 16 bytes
inline constexpr std::uint32_t grayf = fourCharCode("L00f");  ///< 4 bytes
inline constexpr std::uint32_t bgra8 =
    fourCharCode("BGRA"); ///< 8-bit blue, green, red, alpha: 4 bytes
/// Bytes per element of one of the codes above; 0 for other codes.
int bytesPerElement(std::uint32_t format);
} // namespace surface_format

struct SurfaceProperties {
    std::int64_t width = 0;
    std::int64_t height = 0;
    std::uint32_t pixelFormat = 0;
    std::int64_t bytesPerElement = 0;
    std::int64_t bytesPerRow = 0;
};

/// Elements of a surface in memory order: row 0 is the top row.
struct SurfaceArea {
    std::int64_t x = 0, y = 0, width = 0, height = 0;
};

enum class LockOptions : std::uint32_t { readWrite = 0, readOnly = 1 };

class SurfaceSnapshot;

class Surface : public std::enable_shared_from_this<Surface> {
public:
    static constexpr std::int64_t maximumWidth = 16384;
    static constexpr std::int64_t maximumHeight = 16384;
    static constexpr std::int64_t rowAlignment = 64;

    /// `bytesPerRow` rounded up to the row alignment.
    static std::int64_t alignBytesPerRow(std::int64_t bytesPerRow);

    /// A zero-filled surface; nothing when the properties are refused: a size outside
    /// 1…maximum, an element size that is not positive, rows shorter than width × element size
    /// or not a multiple of the element size, or memory that cannot be had.
    static std::shared_ptr<Surface> make(const SurfaceProperties& properties);

    ~Surface();
    Surface(const Surface&) = delete;
    Surface& operator=(const Surface&) = delete;

    std::int64_t width() const { return props_.width; }
    std::int64_t height() const { return props_.height; }
    std::int64_t bytesPerElement() const { return props_.bytesPerElement; }
    std::int64_t bytesPerRow() const { return props_.bytesPerRow; }
    std::uint32_t pixelFormat() const { return props_.pixelFormat; }
    std::size_t allocationSize() const { return size_; }
    std::uint32_t id() const { return id_; }
    std::uint32_t seed() const;

    /// Brackets CPU access; waits while another thread holds a lock that excludes this one.
    /// Returns false, changing nothing, for an unlock that matches no lock of this thread, and
    /// for a read-write lock that would wait forever (another thread holding a read lock is
    /// itself waiting to write while this thread holds one). `seed`, when given, receives the
    /// seed as it is after the call. A read-write lock may change any element.
    bool lock(LockOptions options, std::uint32_t* seed = nullptr);
    /// A read lock, all that a const surface allows; released with unlockReading().
    bool lockForReading(std::uint32_t* seed = nullptr) const;
    bool unlockReading(std::uint32_t* seed = nullptr) const;
    /// A read-write lock whose holder changes only the elements of `written`: snapshots copy
    /// just those first. Released with unlock(LockOptions::readWrite).
    bool lockForWriting(const SurfaceArea& written, std::uint32_t* seed = nullptr);
    bool unlock(LockOptions options, std::uint32_t* seed = nullptr);

    /// The first byte of the top row. Read and write it only while locked accordingly.
    std::uint8_t* baseAddress() const { return memory_; }

    /// What the surface holds now, unchanged by later writes. Waits for a writer on another
    /// thread to finish.
    std::shared_ptr<const SurfaceSnapshot> snapshot();

private:
    friend class SurfaceSnapshot;
    struct State;
    struct Frozen;

    Surface(const SurfaceProperties& p, std::uint8_t* memory, std::size_t size, std::uint32_t id);
    bool lockWriting(const SurfaceArea* written, std::uint32_t* seed);
    /// Copies the blocks of `area` that the live snapshots do not hold yet into them.
    void preserve(const SurfaceArea& area);

    SurfaceProperties props_;
    std::uint8_t* memory_;
    std::size_t size_;
    std::uint32_t id_;
    std::unique_ptr<State> state_;
};

/// A surface's pixels as they were when the snapshot was taken.
class SurfaceSnapshot {
public:
    ~SurfaceSnapshot();
    SurfaceSnapshot(const SurfaceSnapshot&) = delete;
    SurfaceSnapshot& operator=(const SurfaceSnapshot&) = delete;

    std::int64_t width() const { return surface_->width(); }
    std::int64_t height() const { return surface_->height(); }
    std::int64_t bytesPerElement() const { return surface_->bytesPerElement(); }
    std::int64_t bytesPerRow() const { return surface_->bytesPerRow(); }
    std::uint32_t pixelFormat() const { return surface_->pixelFormat(); }
    /// The surface it was taken of, and that surface's seed at the time.
    std::uint32_t surfaceID() const { return surface_->id(); }
    std::uint32_t seed() const { return seed_; }

    /// Reads rows as they were. The surface's writer waits while a reader lives (it is about to
    /// take blocks over), so hold one for a run of rows, not longer.
    class Reader {
    public:
        explicit Reader(const SurfaceSnapshot& snapshot);
        ~Reader();
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;
        /// `count` elements of memory row `row` from element `x`. `scratch` (count × element
        /// size bytes) is filled only when the elements are not in one piece; the bytes stay
        /// valid while the reader lives and `scratch` is not reused.
        const std::uint8_t* row(std::int64_t row, std::int64_t x, std::int64_t count,
                                std::uint8_t* scratch) const;
        /// The surface's memory when no block has been taken over since the snapshot: then
        /// every row is read in place (no writer can take one over while the reader lives).
        /// Null otherwise.
        const std::uint8_t* unchangedMemory() const;

    private:
        const SurfaceSnapshot& snapshot_;
    };

private:
    friend class Surface;
    SurfaceSnapshot(std::shared_ptr<Surface> surface, std::shared_ptr<Surface::Frozen> frozen,
                    std::uint32_t seed);

    std::shared_ptr<Surface> surface_;
    std::shared_ptr<Surface::Frozen> frozen_;
    std::uint32_t seed_;
};

/// Holds a surface lock for a scope.
class SurfaceLock {
public:
    /// A read lock. Throws std::system_error (resource_deadlock_would_occur), as do the others,
    /// when the lock is refused.
    explicit SurfaceLock(const Surface& surface);
    SurfaceLock(Surface& surface, LockOptions options);
    /// A write lock that changes only `written`.
    SurfaceLock(Surface& surface, const SurfaceArea& written);
    ~SurfaceLock();
    SurfaceLock(const SurfaceLock&) = delete;
    SurfaceLock& operator=(const SurfaceLock&) = delete;

    /// The surface's seed when the lock was taken; once released, the seed after the release.
    std::uint32_t seed() const { return seed_; }
    /// Releases the lock before the scope ends and returns the seed after it: releasing a
    /// write lock moves the seed on, which is what a cache of results keyed by seed records.
    /// Releasing again does nothing.
    std::uint32_t release();

private:
    const Surface* reading_ = nullptr; ///< set for a read lock
    Surface* writing_ = nullptr;       ///< set for a write lock
    std::uint32_t seed_ = 0;
};

} // namespace bic::io
