#include "foundation/stopwatch.h"

#include <gtest/gtest.h>
#include <time.h>

#include <random>
#include <vector>

namespace {

// Straightforward reference: the whole difference in nanoseconds, rounded to microseconds.
uint32_t referenceDiffUs(const timespec& from, const timespec& to) {
    int64_t ns = ((int64_t)to.tv_sec * 1000000000 + to.tv_nsec) -
                 ((int64_t)from.tv_sec * 1000000000 + from.tv_nsec);
    return (uint32_t)((ns + 500) / 1000);
}

class StopwatchTest : public ::testing::Test {
protected:
    void SetUp() override {
        region.resize(4096);
        ASSERT_EQ(tav_sr2_MemPool_init(&pool, region.data(), region.size()), TAV_OK);
        baseline = tav_sr2_MemPool_inUse(&pool);
        ASSERT_EQ(tav_sr2_Stopwatch_init(&sw, &pool), TAV_OK);
    }
    void TearDown() override {
        EXPECT_EQ(tav_sr2_Stopwatch_finish(&sw), TAV_OK);
        EXPECT_EQ(tav_sr2_MemPool_inUse(&pool), baseline);
        tav_sr2_MemPool_finish(&pool);
    }

    std::vector<unsigned char> region;
    tav_sr2_MemPool pool = {};
    uint32_t baseline = 0;
    tav_sr2_Stopwatch sw = {};
};

TEST_F(StopwatchTest, RoundsTheNanosecondsToNearest) {
    struct Case {
        timespec from, to;
    } cases[] = {
        {{5, 999999600}, {6, 100}},  // 500 ns: up
        {{5, 999999601}, {6, 100}},  // 499 ns: down
        {{10, 600}, {11, 0}},        // 999999.4 us: a borrow before rounding
        {{10, 100}, {11, 0}},        // 999999.9 us
        {{0, 0}, {4295, 0}},         // past 2^32 us: wraps
    };
    for (const Case& c : cases) {
        EXPECT_EQ(tav_sr2_Stopwatch_diffUs(&c.from, &c.to), referenceDiffUs(c.from, c.to))
            << c.from.tv_sec << "." << c.from.tv_nsec << " -> " << c.to.tv_sec << "."
            << c.to.tv_nsec;
    }
    std::mt19937_64 rng(7);
    for (int i = 0; i < 10000; ++i) {
        timespec from = {(time_t)(rng() % 100000), (long)(rng() % 1000000000)};
        timespec to = {from.tv_sec + (time_t)(rng() % 5000), (long)(rng() % 1000000000)};
        if (to.tv_sec == from.tv_sec && to.tv_nsec < from.tv_nsec) to.tv_sec += 1;
        ASSERT_EQ(tav_sr2_Stopwatch_diffUs(&from, &to), referenceDiffUs(from, to));
    }
}

}  // namespace
