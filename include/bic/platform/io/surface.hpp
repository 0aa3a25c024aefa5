#pragma once
// Shared pixel surfaces: fixed-format pixel memory that renderers write and the CPU reads,
// bracketed by locks.
//
// Rows start on 64-byte boundaries. Every surface has a process-unique 32-bit ID and a 32-bit
// seed that changes each time a read-write lock is released, so a cache can tell whether the
// contents changed since it last looked. Read-only locks may be held by several threads at once;
// a read-write lock is exclusive.

#include <cstdint>
#include <memory>
#include <shared_mutex>

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

enum class LockOptions : std::uint32_t { readWrite = 0, readOnly = 1 };

class Surface {
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

    /// Brackets CPU access. Returns false, changing nothing, for an unlock that matches no lock.
    /// `seed`, when given, receives the seed as it is after the call.
    bool lock(LockOptions options, std::uint32_t* seed = nullptr);
    bool unlock(LockOptions options, std::uint32_t* seed = nullptr);

    /// The first byte of the top row. Read and write it only while locked accordingly.
    std::uint8_t* baseAddress() const { return memory_; }

private:
    Surface(const SurfaceProperties& p, std::uint8_t* memory, std::size_t size, std::uint32_t id);

    SurfaceProperties props_;
    std::uint8_t* memory_;
    std::size_t size_;
    std::uint32_t id_;
    std::shared_mutex access_;
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace bic::io
