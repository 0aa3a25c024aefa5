#include "bic/platform/core/memory.hpp"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

using namespace bic;

namespace {

constexpr std::size_t MB = std::size_t(1) << 20;

// Restores the process-wide limit and empties the pool around each test.
struct RecycledMemory : ::testing::Test {
    std::size_t limit = recycledMemoryLimit();
    void SetUp() override { releaseRecycledMemory(); }
    void TearDown() override {
        setRecycledMemoryLimit(limit);
        releaseRecycledMemory();
    }
};

} // namespace

TEST_F(RecycledMemory, AFreedBlockServesTheNextRequestOfItsRoundedSize) {
    void* first = allocateLargeBlock(5 * MB);
    std::memset(first, 0x5a, 5 * MB);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(first) % (2 * MB), 0u) << "on a huge-page boundary";
    freeLargeBlock(first, 5 * MB);
    EXPECT_EQ(recycledMemory(), 6 * MB);

    // 5.5 MB rounds to the same 6 MB; 9 MB does not and gets a block of its own.
    void* other = allocateLargeBlock(9 * MB);
    EXPECT_NE(other, first);
    void* again = allocateLargeBlock(5 * MB + MB / 2);
    EXPECT_EQ(again, first);
    EXPECT_EQ(recycledMemory(), 0u);
    EXPECT_EQ(static_cast<std::uint8_t*>(again)[5 * MB - 1], 0x5a) << "reused, not remapped";
    freeLargeBlock(again, 5 * MB + MB / 2);
    freeLargeBlock(other, 9 * MB);
    EXPECT_EQ(recycledMemory(), 16 * MB);
}

TEST_F(RecycledMemory, TheLimitBoundsWhatIsKeptOldestFirst) {
    setRecycledMemoryLimit(10 * MB);
    void* a = allocateLargeBlock(4 * MB);
    void* b = allocateLargeBlock(4 * MB);
    void* c = allocateLargeBlock(4 * MB);
    freeLargeBlock(a, 4 * MB);
    freeLargeBlock(b, 4 * MB);
    freeLargeBlock(c, 4 * MB); // would pass the limit: returned to the system
    EXPECT_EQ(recycledMemory(), 8 * MB);

    setRecycledMemoryLimit(4 * MB); // a, freed first, goes
    EXPECT_EQ(recycledMemory(), 4 * MB);
    EXPECT_EQ(allocateLargeBlock(4 * MB), b);
    freeLargeBlock(b, 4 * MB);

    releaseRecycledMemory();
    EXPECT_EQ(recycledMemory(), 0u);
    EXPECT_EQ(recycledMemoryLimit(), 4 * MB) << "releasing keeps the limit";
}

// What makes a decoder's single pass possible: growing the buffer writes nothing, so bytes a
// large block held before are still there (a zeroing allocator would have cleared them).
TEST_F(RecycledMemory, ByteBuffersGrowWithoutWritingAndSmallOnesUseTheHeap) {
    const std::uint8_t* where = nullptr;
    {
        ByteBuffer bytes(8 * MB);
        std::fill(bytes.begin(), bytes.end(), std::uint8_t(7));
        where = bytes.data();
    }
    ByteBuffer again(8 * MB);
    ASSERT_EQ(again.data(), where);
    EXPECT_TRUE(std::all_of(again.begin(), again.end(), [](std::uint8_t v) { return v == 7; }));

    ByteBuffer zeroed(8 * MB, 0); // a value given is still written
    EXPECT_TRUE(std::all_of(zeroed.begin(), zeroed.end(), [](std::uint8_t v) { return v == 0; }));
    ByteBuffer copy = zeroed;
    EXPECT_EQ(copy, zeroed);

    const std::size_t before = recycledMemory();
    { ByteBuffer small(kLargeBlock - 1, 1); }
    EXPECT_EQ(recycledMemory(), before);
}

TEST_F(RecycledMemory, ThreadsTakingAndFreeingNeverShareABlock) {
    auto worker = [](std::uint8_t mark) {
        std::vector<std::uint8_t*> tiles;
        for (int i = 0; i < 200; ++i) {
            auto* block = static_cast<std::uint8_t*>(allocateLargeBlock(4 * MB));
            std::memset(block, mark, 4 * MB);
            tiles.push_back(static_cast<std::uint8_t*>(allocateSlabBlock(45000)));
            std::memset(tiles.back(), mark, 45000);
            std::this_thread::yield();
            for (std::size_t at = 0; at < 4 * MB; at += 4096)
                ASSERT_EQ(block[at], mark);
            freeLargeBlock(block, 4 * MB);
            if (i % 3 == 0) {
                freeSlabBlock(tiles.front(), 45000);
                tiles.erase(tiles.begin());
            }
        }
        for (std::uint8_t* tile : tiles) {
            ASSERT_TRUE(std::all_of(tile, tile + 45000, [&](std::uint8_t v) { return v == mark; }));
            freeSlabBlock(tile, 45000);
        }
    };
    std::thread one(worker, std::uint8_t(1)), two(worker, std::uint8_t(2));
    one.join();
    two.join();
    EXPECT_LE(recycledMemory(), 8 * MB);
}

// Tiles of one size come from shared chunks in address order, so tiles made in reading order lie
// in memory in that order.
TEST(SlabBlocks, EqualBlocksArePageAlignedInAddressOrderAndReused) {
    constexpr std::size_t tile = 100 * 448; // a 100-pixel tile of 4-byte pixels, rows of 448
    std::vector<std::uint8_t*> blocks;
    for (int i = 0; i < 100; ++i) {
        blocks.push_back(static_cast<std::uint8_t*>(allocateSlabBlock(tile)));
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(blocks.back()) % 4096, 0u);
        std::memset(blocks.back(), i, tile); // would overrun a neighbour if blocks overlapped
    }
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(blocks[std::size_t(i)][tile - 1], std::uint8_t(i));
#if !defined(__SANITIZE_ADDRESS__) // there the heap serves each block, with red zones around it
    int ascending = 0;
    for (std::size_t i = 1; i < blocks.size(); ++i)
        ascending += blocks[i] == blocks[i - 1] + 45056;
    EXPECT_GE(ascending, 95) << "only the step into a new chunk may jump";
    // The lowest free block of the lowest chunk with room: the one freed, not the next unused.
    std::uint8_t* freed = blocks[95];
    freeSlabBlock(freed, tile);
    blocks[95] = static_cast<std::uint8_t*>(allocateSlabBlock(tile - 100)); // same page count
    EXPECT_EQ(blocks[95], freed);
#endif
    void* small = allocateSlabBlock(1);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(small) % 4096, 0u);
    freeSlabBlock(small, 1);
    for (std::uint8_t* block : blocks)
        freeSlabBlock(block, tile);
}

TEST_F(RecycledMemory, KeptBlocksAndRoundingSlackArePoisonedUnderAddressSanitizer) {
#if !defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "only AddressSanitizer builds track poisoned memory";
#else
    EXPECT_DEATH(
        {
            auto* block = static_cast<volatile std::uint8_t*>(allocateLargeBlock(5 * MB));
            block[5 * MB - 1] = 1;
            block[5 * MB] = 1; // in the block's 6 MB, past what was asked for
        },
        "use-after-poison");
    EXPECT_DEATH(
        {
            auto* block = static_cast<volatile std::uint8_t*>(allocateLargeBlock(4 * MB));
            freeLargeBlock(const_cast<std::uint8_t*>(block), 4 * MB);
            block[0] = 1;
        },
        "use-after-poison");
#endif
}
