#include "foundation/mem_pool.h"

#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <thread>
#include <vector>

namespace {

// A pool over a region of exactly `bytes` bytes from the system allocator, so that the sanitizer
// sees any store past either end of the region.
struct Heap {
    explicit Heap(size_t bytes, size_t offset = 0, bool setUp = true)
        : buffer(static_cast<unsigned char*>(malloc(offset + bytes))),
          region(buffer + offset),
          bytes(bytes) {
        if (setUp) {
            EXPECT_EQ(tav_sr2_MemPool_init(&pool, region, bytes), TAV_OK);
        }
    }
    ~Heap() { free(buffer); }
    Heap(const Heap&) = delete;
    Heap& operator=(const Heap&) = delete;

    bool contains(const void* p, size_t n) const {
        auto at = static_cast<const unsigned char*>(p);
        return at >= region && at + n <= region + bytes;
    }

    tav_sr2_MemPool pool;
    unsigned char* buffer;
    unsigned char* region;
    size_t bytes;
};

// Block size a request should take: payload plus the 8-byte header, never under 24, in 16s.
uint32_t blockFor(uint32_t n) {
    uint32_t bytes = std::max(n + 8u, 24u);
    return (bytes + 15u) / 16u * 16u;
}

uint32_t allocCharge(tav_sr2_MemPool* pool, uint32_t n, void** out) {
    const uint32_t before = tav_sr2_MemPool_inUse(pool);
    *out = tav_sr2_MemPool_alloc(pool, n);
    return tav_sr2_MemPool_inUse(pool) - before;
}

bool aligned16(const void* p) {
    return reinterpret_cast<uintptr_t>(p) % 16 == 0;
}

// A region past 4 GiB holds one block of the largest size a tag can carry. Only the tags and the
// links are ever written, so the mapping stays almost entirely untouched.
TEST(MemPool, LargestBlockIsGivenWholeWithoutWrappingTheSplitTest) {
    const size_t bytes = (size_t{1} << 32) + 64;
    void* region = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (region == MAP_FAILED) GTEST_SKIP() << "no 4 GiB of address space";
    tav_sr2_MemPool pool;
    ASSERT_EQ(tav_sr2_MemPool_init(&pool, region, bytes), TAV_OK);
    const uint32_t largest = tav_sr2_MemPool_largestFree(&pool);
    ASSERT_EQ(largest, 0xFFFFFFF0u - 8u);
    // need + 24 does not fit a u32 here: the whole block must go out, not a split with an empty
    // remainder.
    void* p = tav_sr2_MemPool_alloc(&pool, largest);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&pool), 0xFFFFFFF0u);
    EXPECT_EQ(tav_sr2_MemPool_largestFree(&pool), 0u);
    EXPECT_EQ(tav_sr2_MemPool_free(&pool, p), TAV_OK);
    EXPECT_EQ(tav_sr2_MemPool_largestFree(&pool), largest);
    EXPECT_EQ(tav_sr2_MemPool_finish(&pool), TAV_OK);
    munmap(region, bytes);
}

// Release orders over three neighbours A B C and the tail T that fills the rest of the heap.
TEST(MemPool, NeighboursMergeOnRelease) {
    struct Order {
        const char* name;
        std::vector<int> releases;  // indices into A B C T
        uint32_t mergedMask;        // blocks that form the largest free block afterwards
    };
    const Order orders[] = {
        {"right", {1, 0}, 0b0011},     {"left", {0, 1}, 0b0011},
        {"both", {0, 2, 1}, 0b0111},   {"apart", {0, 2}, 0b0100},
        {"tail left", {2, 3}, 0b1100}, {"tail right", {3, 2}, 0b1100},
        {"all", {3, 0, 2, 1}, 0b1111},
    };
    for (const Order& order : orders) {
        Heap heap(4096);
        const uint32_t initial = tav_sr2_MemPool_largestFree(&heap.pool);
        void* blocks[4];
        uint32_t sizes[4];
        sizes[0] = allocCharge(&heap.pool, 100, &blocks[0]);
        sizes[1] = allocCharge(&heap.pool, 200, &blocks[1]);
        sizes[2] = allocCharge(&heap.pool, 300, &blocks[2]);
        sizes[3] = allocCharge(&heap.pool, tav_sr2_MemPool_largestFree(&heap.pool), &blocks[3]);
        ASSERT_EQ(tav_sr2_MemPool_largestFree(&heap.pool), 0u);
        for (int i : order.releases)
            tav_sr2_MemPool_free(&heap.pool, blocks[i]);

        uint32_t merged = 0;
        int lowest = -1;
        for (int i = 0; i < 4; ++i) {
            if ((order.mergedMask >> i & 1) == 0) continue;
            merged += sizes[i];
            if (lowest < 0) lowest = i;
        }
        EXPECT_EQ(tav_sr2_MemPool_largestFree(&heap.pool), merged - 8) << order.name;
        // The merged block starts at its lowest member and serves one request of its whole size.
        void* whole = tav_sr2_MemPool_alloc(&heap.pool, merged - 8);
        EXPECT_EQ(whole, blocks[lowest]) << order.name;
        tav_sr2_MemPool_free(&heap.pool, whole);
        for (int i = 0; i < 4; ++i) {
            const bool released =
                std::find(order.releases.begin(), order.releases.end(), i) != order.releases.end();
            if (!released) tav_sr2_MemPool_free(&heap.pool, blocks[i]);
        }
        EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), 0u);
        EXPECT_EQ(tav_sr2_MemPool_largestFree(&heap.pool), initial) << order.name;
        EXPECT_EQ(tav_sr2_MemPool_finish(&heap.pool), TAV_OK);
    }
}

TEST(MemPool, FinishReportsLeaksAndClears) {
    Heap heap(2048);
    void* kept = tav_sr2_MemPool_alloc(&heap.pool, 40);
    void* dropped = tav_sr2_MemPool_alloc(&heap.pool, 40);
    ASSERT_NE(kept, nullptr);
    tav_sr2_MemPool_free(&heap.pool, dropped);
    EXPECT_EQ(tav_sr2_MemPool_finish(&heap.pool), TAV_ERROR_STATE);
    // A finished pool is empty: nothing to give, nothing in use, a second finish is clean.
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), 0u);
    EXPECT_EQ(tav_sr2_MemPool_largestFree(&heap.pool), 0u);
    EXPECT_EQ(tav_sr2_MemPool_alloc(&heap.pool, 1), nullptr);
    EXPECT_EQ(tav_sr2_MemPool_finish(&heap.pool), TAV_OK);

    EXPECT_EQ(tav_sr2_MemPool_init(&heap.pool, heap.region, heap.bytes), TAV_OK);
    void* p = tav_sr2_MemPool_alloc(&heap.pool, 40);
    tav_sr2_MemPool_free(&heap.pool, p);
    EXPECT_EQ(tav_sr2_MemPool_finish(&heap.pool), TAV_OK);
}

// Thousands of random requests and releases against a model of the live blocks.
TEST(MemPool, RandomTrafficKeepsTheHeapSound) {
    struct Live {
        unsigned char* p;
        uint32_t n;
        uint32_t charge;
        unsigned char fill;
    };
    Heap heap(1 << 20);
    const uint32_t initial = tav_sr2_MemPool_largestFree(&heap.pool);
    std::mt19937 rng(20250811);
    std::vector<Live> live;
    std::map<uintptr_t, uintptr_t> extents;  // block start (header) -> end
    uint32_t modelInUse = 0;
    uint32_t modelPeak = 0;
    int failures = 0;

    auto randomSize = [&rng]() -> uint32_t {
        const uint32_t kind = rng() % 100;
        if (kind < 2) return 0;
        if (kind < 70) return 1 + rng() % 100;
        if (kind < 95) return 101 + rng() % 4000;
        return 4097 + rng() % 60000;
    };
    auto releaseAt = [&](size_t index) {
        Live block = live[index];
        live[index] = live.back();
        live.pop_back();
        for (uint32_t i = 0; i < block.n; ++i) {
            if (block.p[i] != block.fill) {
                ADD_FAILURE() << "block overwritten at byte " << i;
                break;
            }
        }
        extents.erase(reinterpret_cast<uintptr_t>(block.p) - 8);
        EXPECT_EQ(tav_sr2_MemPool_free(&heap.pool, block.p), TAV_OK);
        modelInUse -= block.charge;
        ASSERT_EQ(tav_sr2_MemPool_inUse(&heap.pool), modelInUse);
    };

    for (int step = 0; step < 20000; ++step) {
        const uint32_t allocPercent = live.size() < 300 ? 60 : 40;
        if (!live.empty() && rng() % 100 >= allocPercent) {
            releaseAt(rng() % live.size());
            continue;
        }
        const uint32_t n = randomSize();
        const uint32_t largest = tav_sr2_MemPool_largestFree(&heap.pool);
        void* got;
        const uint32_t charge = allocCharge(&heap.pool, n, &got);
        if (n == 0) {
            EXPECT_EQ(got, static_cast<void*>(tav_sr2_MemPool_emptyBlock));
            EXPECT_EQ(charge, 0u);
            continue;
        }
        const uint32_t need = blockFor(n);
        if (got == nullptr) {
            // First fit fails only when no free block is big enough.
            ASSERT_LT(largest + 8, need);
            ASSERT_EQ(charge, 0u);
            ++failures;
            continue;
        }
        ASSERT_LE(need, largest + 8);
        ASSERT_TRUE(aligned16(got));
        ASSERT_TRUE(heap.contains(static_cast<char*>(got) - 8, charge));
        // The block takes exactly what was asked, or 16 bytes more when the rest was too small.
        ASSERT_TRUE(charge == need || charge == need + 16) << n << " " << charge;
        const uintptr_t start = reinterpret_cast<uintptr_t>(got) - 8;
        auto next = extents.lower_bound(start);
        if (next != extents.end()) {
            ASSERT_GE(next->first, start + charge);
        }
        if (next != extents.begin()) {
            ASSERT_LE(std::prev(next)->second, start);
        }
        extents[start] = start + charge;

        Live block{static_cast<unsigned char*>(got), n, charge,
                   static_cast<unsigned char>(rng() % 255 + 1)};
        memset(block.p, block.fill, n);
        live.push_back(block);
        modelInUse += charge;
        modelPeak = std::max(modelPeak, modelInUse);
        ASSERT_EQ(tav_sr2_MemPool_inUse(&heap.pool), modelInUse);
        ASSERT_EQ(heap.pool.peak, modelPeak);
    }
    EXPECT_GT(failures, 0) << "the run never filled the pool";
    while (!live.empty())
        releaseAt(rng() % live.size());
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), 0u);
    EXPECT_EQ(tav_sr2_MemPool_largestFree(&heap.pool), initial);
    EXPECT_EQ(heap.pool.peak, modelPeak);
    EXPECT_EQ(tav_sr2_MemPool_finish(&heap.pool), TAV_OK);
}

TEST(MemPool, ConcurrentThreadsShareOnePool) {
    Heap heap(1 << 20);
    const uint32_t initial = tav_sr2_MemPool_largestFree(&heap.pool);
    std::atomic<int> corrupted{0};
    auto worker = [&](unsigned seed) {
        std::mt19937 rng(seed);
        const unsigned char fill = static_cast<unsigned char>(seed);
        std::vector<std::pair<unsigned char*, uint32_t>> mine;
        auto release = [&](size_t i) {
            auto [p, n] = mine[i];
            for (uint32_t k = 0; k < n; ++k) {
                if (p[k] != fill) {
                    corrupted.fetch_add(1);
                    break;
                }
            }
            tav_sr2_MemPool_free(&heap.pool, p);
            mine[i] = mine.back();
            mine.pop_back();
        };
        for (int step = 0; step < 4000; ++step) {
            if (mine.size() >= 32 || (!mine.empty() && rng() % 2)) {
                release(rng() % mine.size());
                continue;
            }
            const uint32_t n = 1 + rng() % 700;
            auto p = static_cast<unsigned char*>(tav_sr2_MemPool_alloc(&heap.pool, n));
            if (p == nullptr) continue;
            memset(p, fill, n);
            mine.emplace_back(p, n);
        }
        while (!mine.empty())
            release(mine.size() - 1);
    };
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t)
        threads.emplace_back(worker, 11 + t);
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(corrupted.load(), 0);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), 0u);
    EXPECT_GT(heap.pool.peak, 0u);
    EXPECT_EQ(tav_sr2_MemPool_largestFree(&heap.pool), initial);
    EXPECT_EQ(tav_sr2_MemPool_finish(&heap.pool), TAV_OK);
}

#ifdef TAVRIN_FAULT_INJECTION
TEST(MemPool, InjectedFailuresLeaveTheHeapIntact) {
    Heap heap(4096);
    tav_sr2_MemPool_injectFailure(3, false);
    void* a = tav_sr2_MemPool_alloc(&heap.pool, 10);
    EXPECT_EQ(tav_sr2_MemPool_alloc(&heap.pool, 0), static_cast<void*>(tav_sr2_MemPool_emptyBlock));
    void* b = tav_sr2_MemPool_alloc(&heap.pool, 10);
    EXPECT_EQ(tav_sr2_MemPool_allocCount(), 2u);  // the empty request is not counted
    const uint32_t inUse = tav_sr2_MemPool_inUse(&heap.pool);
    const uint32_t largest = tav_sr2_MemPool_largestFree(&heap.pool);
    EXPECT_EQ(tav_sr2_MemPool_alloc(&heap.pool, 10), nullptr);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), inUse);
    EXPECT_EQ(tav_sr2_MemPool_largestFree(&heap.pool), largest);
    void* c = tav_sr2_MemPool_alloc(&heap.pool, 10);
    EXPECT_TRUE(a && b && c);
    EXPECT_EQ(tav_sr2_MemPool_allocCount(), 4u);

    tav_sr2_MemPool_injectFailure(2, true);
    void* d = tav_sr2_MemPool_alloc(&heap.pool, 10);
    EXPECT_NE(d, nullptr);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(tav_sr2_MemPool_alloc(&heap.pool, 10), nullptr);
    EXPECT_EQ(tav_sr2_MemPool_allocCount(), 4u);

    tav_sr2_MemPool_injectFailure(0, false);
    void* e = tav_sr2_MemPool_alloc(&heap.pool, 10);
    EXPECT_NE(e, nullptr);
    EXPECT_EQ(tav_sr2_MemPool_allocCount(), 1u);
    for (void* p : {a, b, c, d, e})
        tav_sr2_MemPool_free(&heap.pool, p);
    EXPECT_EQ(tav_sr2_MemPool_finish(&heap.pool), TAV_OK);
}
#endif

class MemPoolDeathTest : public ::testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(MemPoolDeathTest, DoubleReleaseStops) {
    Heap heap(1024);
    auto a = static_cast<unsigned char*>(tav_sr2_MemPool_alloc(&heap.pool, 32));
    auto b = static_cast<unsigned char*>(tav_sr2_MemPool_alloc(&heap.pool, 32));
    tav_sr2_MemPool_alloc(&heap.pool, 32);
    tav_sr2_MemPool_free(&heap.pool, a);
    EXPECT_DEATH(tav_sr2_MemPool_free(&heap.pool, a), "");
    // b merges into a; its old header is inside a free block now and still marked free.
    tav_sr2_MemPool_free(&heap.pool, b);
    EXPECT_DEATH(tav_sr2_MemPool_free(&heap.pool, b), "");
}

TEST_F(MemPoolDeathTest, ForeignAndMisalignedPointersStop) {
    Heap heap(1024);
    Heap other(1024);
    alignas(16) unsigned char onStack[64] = {};
    auto p = static_cast<unsigned char*>(tav_sr2_MemPool_alloc(&heap.pool, 64));
    void* elsewhere = tav_sr2_MemPool_alloc(&other.pool, 64);
    EXPECT_DEATH(tav_sr2_MemPool_free(&heap.pool, onStack + 16), "");
    EXPECT_DEATH(tav_sr2_MemPool_free(&heap.pool, elsewhere), "");
    EXPECT_DEATH(tav_sr2_MemPool_free(&heap.pool, p + 1), "");
    EXPECT_DEATH(tav_sr2_MemPool_free(&heap.pool, p + 8), "");
    memset(p, 0, 64);
    EXPECT_DEATH(tav_sr2_MemPool_free(&heap.pool, p + 16), "");  // no header there
    EXPECT_EQ(tav_sr2_MemPool_free(&heap.pool, p), TAV_OK);
}

TEST_F(MemPoolDeathTest, CorruptedTagsStop) {
    Heap heap(1024);
    auto p = static_cast<unsigned char*>(tav_sr2_MemPool_alloc(&heap.pool, 24));
    auto q = static_cast<unsigned char*>(tav_sr2_MemPool_alloc(&heap.pool, 24));
    // The header's size_tag sits just before the payload.
    EXPECT_DEATH(
        {
            p[-4] ^= 0x20;
            tav_sr2_MemPool_free(&heap.pool, p);
        },
        "");
    // One byte past a 24-byte payload is the footer, the next block's prev_tag.
    EXPECT_DEATH(
        {
            p[24] ^= 0x10;
            tav_sr2_MemPool_free(&heap.pool, p);
        },
        "");
    EXPECT_DEATH(
        {
            q[-4] = 0;
            tav_sr2_MemPool_finish(&heap.pool);
        },
        "");
    EXPECT_EQ(tav_sr2_MemPool_free(&heap.pool, q), TAV_OK);
    EXPECT_EQ(tav_sr2_MemPool_free(&heap.pool, p), TAV_OK);
}

}  // namespace
