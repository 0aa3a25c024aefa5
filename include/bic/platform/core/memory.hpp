#pragma once
// Large pixel buffers and the operating system's memory.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace bic {

/// `size` zero bytes. Buffers of several megabytes are backed by huge pages where the system
/// allows it: first touching a fresh buffer then costs one fault per 2 MB instead of per 4 KB,
/// which is most of the cost of making a large buffer.
std::vector<std::uint8_t> zeroedBuffer(std::size_t size);
/// `size` bytes, not initialised, large ones from allocateLargeBlock: for copies that fill them.
std::shared_ptr<std::uint8_t[]> uninitializedBuffer(std::size_t size);

/// Blocks from this size up come from the operating system directly: mapped on 2 MB boundaries
/// with huge pages asked for, and kept when freed for the next request of the same size (in
/// 2 MB steps), up to recycledMemoryLimit(). A fresh page costs the kernel as much to clear as a
/// decoder takes to fill it, so an editor that closes one document and opens the next, or
/// renders frame after frame, writes into memory it already holds instead.
inline constexpr std::size_t kLargeBlock = std::size_t(4) << 20;
/// At least `bytes` bytes of unspecified value, from recycled blocks first; std::bad_alloc when
/// the system has none. Free with freeLargeBlock and the same `bytes`.
void* allocateLargeBlock(std::size_t bytes);
void freeLargeBlock(void* block, std::size_t bytes);
/// Bytes held in freed blocks for reuse, and the most that will be held (by default an eighth
/// of physical memory). Lowering the limit unmaps the oldest blocks beyond it.
std::size_t recycledMemory();
std::size_t recycledMemoryLimit();
void setRecycledMemoryLimit(std::size_t bytes);
/// Returns every held block to the system (for instance when the editor is told memory is low).
void releaseRecycledMemory();

/// Page-aligned blocks of up to kSlabBlockLimit bytes, carved from 2 MB-aligned chunks on huge
/// pages that blocks of the same page-rounded size share: the tiles of a canvas (hundreds of
/// equal small surfaces) then sit on a few huge pages instead of thousands of small ones, which
/// copying a tall canvas out found about 30 % faster. Contents are unspecified; std::bad_alloc
/// when the system has no memory. Free with freeSlabBlock and the same `bytes`.
inline constexpr std::size_t kSlabBlockLimit = std::size_t(1) << 20;
void* allocateSlabBlock(std::size_t bytes);
void freeSlabBlock(void* block, std::size_t bytes);

/// std::allocator that leaves the elements a container grows by default-initialised (not
/// zeroed) and takes large blocks from allocateLargeBlock. Decoders that write every byte fill such
/// a buffer in one pass: the first touch of each fresh page is the decoder's own write rather than
/// a memset that the decoder then repeats.
template <class T>
struct FillLaterAllocator : std::allocator<T> {
    using value_type = T;
    template <class U>
    struct rebind {
        using other = FillLaterAllocator<U>;
    };

    FillLaterAllocator() = default;
    template <class U>
    FillLaterAllocator(const FillLaterAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
        if (n < kLargeBlock / sizeof(T)) return std::allocator<T>::allocate(n);
        if (n > std::size_t(-1) / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(allocateLargeBlock(n * sizeof(T)));
    }
    void deallocate(T* block, std::size_t n) noexcept {
        if (n < kLargeBlock / sizeof(T)) return std::allocator<T>::deallocate(block, n);
        freeLargeBlock(block, n * sizeof(T));
    }
    template <class U>
    void construct(U* at) noexcept(std::is_nothrow_default_constructible_v<U>) {
        ::new (static_cast<void*>(at)) U;
    }
    template <class U, class... Args>
    void construct(U* at, Args&&... args) {
        ::new (static_cast<void*>(at)) U(std::forward<Args>(args)...);
    }
};

/// Bytes whose growth writes nothing: `ByteBuffer(n)` holds n bytes of unspecified value.
using ByteBuffer = std::vector<std::uint8_t, FillLaterAllocator<std::uint8_t>>;

} // namespace bic
