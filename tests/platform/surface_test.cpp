#include "bic/platform/io/surface.hpp"

#include <array>
#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <thread>

using namespace bic::io;

namespace {
SurfaceProperties props(std::int64_t w, std::int64_t h, std::uint32_t format) {
    const int element = surface_format::bytesPerElement(format);
    return {w, h, format, element, Surface::alignBytesPerRow(w * element)};
}
} // namespace

TEST(Surface, FormatCodesAndElementSizes) {
    EXPECT_EQ(surface_format::gray8, 0x4C303038u);
    EXPECT_EQ(surface_format::rgba16, 0x6C363472u);
    EXPECT_EQ(surface_format::gray16, 0x4C303136u);
    EXPECT_EQ(surface_format::rgbaf, 0x52476641u);
    EXPECT_EQ(surface_format::grayf, 0x4C303066u);
    EXPECT_EQ(surface_format::bytesPerElement(surface_format::argb8), 4);
    EXPECT_EQ(surface_format::bytesPerElement(surface_format::rgbaf), 16);
    EXPECT_EQ(surface_format::bytesPerElement(fourCharCode("abcd")), 0);
}

TEST(Surface, RowsAreAlignedAndMemoryZeroed) {
    EXPECT_EQ(Surface::alignBytesPerRow(1), 64);
    EXPECT_EQ(Surface::alignBytesPerRow(64), 64);
    EXPECT_EQ(Surface::alignBytesPerRow(65), 128);
    const auto s = Surface::make(props(17, 3, surface_format::rgba16));
    ASSERT_TRUE(s);
    EXPECT_EQ(s->bytesPerRow(), 192);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(s->baseAddress()) % 64, 0u);
    EXPECT_GE(s->allocationSize(), 192u * 3);
    s->lock(LockOptions::readOnly);
    for (std::size_t i = 0; i < 192 * 3; ++i)
        ASSERT_EQ(s->baseAddress()[i], 0);
    s->unlock(LockOptions::readOnly);
}

TEST(Surface, RefusesBadProperties) {
    EXPECT_FALSE(Surface::make(props(0, 5, surface_format::gray8)));
    EXPECT_FALSE(Surface::make(props(Surface::maximumWidth + 1, 1, surface_format::gray8)));
    EXPECT_FALSE(Surface::make(props(1, Surface::maximumHeight + 1, surface_format::gray8)));
    EXPECT_FALSE(Surface::make({10, 1, surface_format::argb8, 4, 39}));   // row too short
    EXPECT_FALSE(Surface::make({10, 1, surface_format::rgbaf, 16, 168})); // not whole elements
    EXPECT_FALSE(Surface::make({10, 1, surface_format::argb8, 0, 64}));
    // The largest canvas is accepted without touching its memory.
    const auto big =
        Surface::make(props(Surface::maximumWidth, Surface::maximumHeight, surface_format::rgbaf));
    ASSERT_TRUE(big);
    EXPECT_EQ(big->allocationSize(), std::size_t(16384) * 16384 * 16);
}

TEST(Surface, IDsAreUniqueAndSeedsChangeAfterWrites) {
    std::set<std::uint32_t> ids;
    for (int i = 0; i < 50; ++i)
        ids.insert(Surface::make(props(1, 1, surface_format::gray8))->id());
    EXPECT_EQ(ids.size(), 50u);

    const auto s = Surface::make(props(4, 4, surface_format::argb8));
    const std::uint32_t first = s->seed();
    std::uint32_t seen = 0;
    ASSERT_TRUE(s->lock(LockOptions::readOnly, &seen));
    EXPECT_EQ(seen, first);
    ASSERT_TRUE(s->unlock(LockOptions::readOnly, &seen));
    EXPECT_EQ(seen, first) << "reading does not change the seed";
    ASSERT_TRUE(s->lock(LockOptions::readWrite));
    s->baseAddress()[0] = 7;
    ASSERT_TRUE(s->unlock(LockOptions::readWrite, &seen));
    EXPECT_NE(seen, first);
    EXPECT_EQ(s->seed(), seen);
    EXPECT_FALSE(s->unlock(LockOptions::readWrite)) << "no lock is held";
    EXPECT_FALSE(s->unlock(LockOptions::readOnly));
    EXPECT_EQ(s->seed(), seen);
}

TEST(SurfaceLock, ScopesReadThroughConstAndReleaseEarlyWithTheNewSeed) {
    const auto s = Surface::make(props(4, 4, surface_format::argb8));
    const std::uint32_t first = s->seed();
    {
        const Surface& constant = *s;
        const SurfaceLock reading(constant);
        EXPECT_EQ(reading.seed(), first);
        // Another thread may read alongside but not write.
        std::thread([&] {
            EXPECT_TRUE(s->lockForReading());
            EXPECT_TRUE(s->unlockReading());
        }).join();
    }
    std::uint32_t after = 0;
    {
        SurfaceLock writing(*s, LockOptions::readWrite);
        s->baseAddress()[0] = 1;
        after = writing.release();
        EXPECT_NE(after, first);
        EXPECT_EQ(writing.release(), after) << "a second release does nothing";
        // Released: another thread can write now, while the lock object still exists.
        std::thread([&] {
            SurfaceLock other(*s, LockOptions::readWrite);
            s->baseAddress()[0] = 2;
        }).join();
    }
    EXPECT_NE(s->seed(), after) << "the other writer moved it on; the scope end unlocked nothing";
    EXPECT_FALSE(s->unlock(LockOptions::readWrite));
    EXPECT_FALSE(s->unlockReading());
}

TEST(Surface, ReadersShareAndWritersExclude) {
    const auto s = Surface::make(props(64, 64, surface_format::gray8));
    std::atomic<int> inside{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 4; ++t)
        readers.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                s->lock(LockOptions::readOnly);
                ++inside;
                std::this_thread::yield();
                --inside;
                s->unlock(LockOptions::readOnly);
            }
        });
    std::atomic<bool> overlap{false};
    std::thread writer([&] {
        for (int i = 0; i < 200; ++i) {
            s->lock(LockOptions::readWrite);
            if (inside.load() != 0) overlap = true;
            s->baseAddress()[i % 64] = std::uint8_t(i);
            s->unlock(LockOptions::readWrite);
        }
    });
    for (auto& r : readers)
        r.join();
    writer.join();
    EXPECT_FALSE(overlap.load());
    EXPECT_EQ(s->seed(), 201u);
}

TEST(Surface, LocksNestOnOneThread) {
    const auto s = Surface::make(props(8, 8, surface_format::gray8));
    // A read inside a read, a read inside a write and a write inside a write, on the calling
    // thread and on a worker: each is counted and released in turn.
    auto nested = [&] {
        EXPECT_TRUE(s->lock(LockOptions::readOnly));
        EXPECT_TRUE(s->lock(LockOptions::readOnly));
        EXPECT_TRUE(s->unlock(LockOptions::readOnly));
        EXPECT_TRUE(s->unlock(LockOptions::readOnly));
        EXPECT_TRUE(s->lock(LockOptions::readWrite));
        EXPECT_TRUE(s->lock(LockOptions::readOnly));
        EXPECT_TRUE(s->lock(LockOptions::readWrite));
        s->baseAddress()[0] = 1;
        EXPECT_TRUE(s->unlock(LockOptions::readWrite));
        EXPECT_TRUE(s->unlock(LockOptions::readOnly));
        EXPECT_TRUE(s->unlock(LockOptions::readWrite));
        EXPECT_FALSE(s->unlock(LockOptions::readWrite));
    };
    const std::uint32_t before = s->seed();
    nested();
    EXPECT_EQ(s->seed(), before + 1) << "the seed moves when the outermost write ends";
    std::thread worker(nested);
    worker.join();

    // A thread that reads may go on to write once the other readers are gone.
    ASSERT_TRUE(s->lock(LockOptions::readOnly));
    std::thread other([&] {
        EXPECT_TRUE(s->lock(LockOptions::readOnly));
        EXPECT_TRUE(s->unlock(LockOptions::readOnly));
    });
    other.join();
    ASSERT_TRUE(s->lock(LockOptions::readWrite));
    s->baseAddress()[1] = 2;
    EXPECT_TRUE(s->unlock(LockOptions::readWrite));
    EXPECT_TRUE(s->unlock(LockOptions::readOnly));
}

TEST(Surface, TwoReadersWaitingToWriteAreRefusedNotDeadlocked) {
    const auto s = Surface::make(props(4, 4, surface_format::gray8));
    std::atomic<int> reading{0};
    std::atomic<int> refused{0};
    auto upgrade = [&] {
        s->lock(LockOptions::readOnly);
        ++reading;
        while (reading < 2)
            std::this_thread::yield();
        if (s->lock(LockOptions::readWrite)) {
            s->unlock(LockOptions::readWrite);
        } else {
            ++refused;
        }
        s->unlock(LockOptions::readOnly);
    };
    std::thread a(upgrade), b(upgrade);
    a.join();
    b.join();
    EXPECT_EQ(refused.load(), 1);
}

TEST(Surface, SnapshotsKeepWhatTheyFroze) {
    const auto s = Surface::make(props(5000, 70, surface_format::argb8));
    auto fill = [&](std::uint8_t v, const SurfaceArea& area) {
        s->lockForWriting(area);
        for (std::int64_t y = area.y; y < area.y + area.height; ++y)
            std::memset(s->baseAddress() + y * s->bytesPerRow() + area.x * 4, v,
                        std::size_t(area.width * 4));
        s->unlock(LockOptions::readWrite);
    };
    fill(1, {0, 0, 5000, 70});
    const auto first = s->snapshot();
    EXPECT_EQ(first->seed(), s->seed());
    fill(2, {600, 10, 1000, 40}); // spans several blocks of rows and columns
    const auto second = s->snapshot();
    fill(3, {0, 0, 5000, 70}); // everything, through a lock that names no area below
    s->lock(LockOptions::readWrite);
    s->baseAddress()[0] = 4;
    s->unlock(LockOptions::readWrite);

    auto read = [](const SurfaceSnapshot& snapshot, std::int64_t row, std::int64_t x,
                   std::int64_t count) {
        std::vector<std::uint8_t> scratch(std::size_t(count * 4)), out;
        const SurfaceSnapshot::Reader reader(snapshot);
        const std::uint8_t* bytes = reader.row(row, x, count, scratch.data());
        out.assign(bytes, bytes + count * 4);
        return out;
    };
    // Rows that cross blocks kept and blocks never written.
    for (const auto& [row, x, count] : std::vector<std::array<std::int64_t, 3>>{
             {0, 0, 5000}, {15, 590, 20}, {33, 400, 1400}, {69, 4990, 10}}) {
        EXPECT_EQ(read(*first, row, x, count),
                  std::vector<std::uint8_t>(std::size_t(count * 4), 1));
        const auto later = read(*second, row, x, count);
        for (std::int64_t i = 0; i < count; ++i) {
            const bool changed = row >= 10 && row < 50 && x + i >= 600 && x + i < 1600;
            ASSERT_EQ(later[std::size_t(i * 4)], changed ? 2 : 1) << row << " " << x + i;
        }
    }
    // A snapshot taken by the thread that is writing freezes at once.
    s->lock(LockOptions::readWrite);
    const auto mine = s->snapshot();
    s->baseAddress()[0] = 9;
    s->unlock(LockOptions::readWrite);
    EXPECT_EQ(read(*mine, 0, 0, 1)[0], 4);
}
