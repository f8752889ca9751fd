// The sharpening row kernels: the vector table gives the scalar bytes on awkward widths, and the
// adds hold their limits.
#include "sharpen/sharpen_rows.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

template <typename T>
std::vector<T> randomRow(std::mt19937& rng, int32_t n, int32_t lo, int32_t hi) {
    std::vector<T> v(size_t(n) + 16);
    for (T& x : v)
        x = T(lo + int32_t(rng() % uint32_t(hi - lo + 1)));
    return v;
}

TEST(SharpenRowsTest, VectorFormsGiveTheScalarResults) {
    const tav_sr2_SharpenRowOps& s = tav_sr2_sharpenRowsScalar;
    const tav_sr2_SharpenRowOps& v = tav_sr2_sharpenRowsVector;
    std::mt19937 rng(7);
    const int32_t taps[2][7] = {{2304, 7616, 12928, 7616, 2304, 0, 0},
                                {617, 3312, 8284, 8342, 8284, 3312, 617}};
    for (const int32_t n : {7, 8, 9, 15, 16, 17, 31, 33, 100, 257}) {
        SCOPED_TRACE(n);
        const auto y8 = randomRow<uint8_t>(rng, n, 0, 255);
        const auto h8 = randomRow<uint8_t>(rng, n, 0, 255);
        const auto y16 = randomRow<uint16_t>(rng, n, 0, 1023);
        const auto h16 = randomRow<uint16_t>(rng, n, 0, 1023);
        const auto top = randomRow<uint16_t>(rng, n, 500, 1023);
        const auto bottom = randomRow<uint16_t>(rng, n, 0, 500);
        const auto weight = randomRow<uint8_t>(rng, n, 0, 255);
        const auto lp1 = randomRow<int16_t>(rng, n, 0, 8184);
        const auto lp2 = randomRow<int16_t>(rng, n, 0, 8184);
        for (int32_t r = 2; r <= 3; ++r) {
            std::vector<int16_t> a(n), b(n);
            s.horizontal8(y8.data(), n, taps[r - 2], r, a.data());
            v.horizontal8(y8.data(), n, taps[r - 2], r, b.data());
            EXPECT_EQ(a, b);
            s.horizontal16(y16.data(), n, taps[r - 2], r, a.data());
            v.horizontal16(y16.data(), n, taps[r - 2], r, b.data());
            EXPECT_EQ(a, b);
            const int16_t* rows[7];
            for (int32_t k = 0; k < 2 * r + 1; ++k)
                rows[k] = k % 2 ? lp1.data() + k : lp2.data() + k;
            s.vertical(rows, n, taps[r - 2], r, a.data());
            v.vertical(rows, n, taps[r - 2], r, b.data());
            EXPECT_EQ(a, b);
        }
        for (const uint8_t* w : {weight.data(), static_cast<const uint8_t*>(nullptr)}) {
            for (const int32_t gain : {0, 700, 8192}) {
                std::vector<uint8_t> a8(n), b8(n);
                std::vector<uint16_t> a16(n), b16(n);
                s.band7_8(lp1.data(), lp2.data(), w, gain, 16, n, a8.data());
                v.band7_8(lp1.data(), lp2.data(), w, gain, 16, n, b8.data());
                EXPECT_EQ(a8, b8);
                s.band7_16(lp1.data(), lp2.data(), w, gain, 16, n, a16.data());
                v.band7_16(lp1.data(), lp2.data(), w, gain, 16, n, b16.data());
                EXPECT_EQ(a16, b16);
                s.band5_8(lp1.data(), lp2.data(), w, gain, y8.data(), n, a8.data());
                v.band5_8(lp1.data(), lp2.data(), w, gain, y8.data(), n, b8.data());
                EXPECT_EQ(a8, b8);
                s.band5_16(lp1.data(), lp2.data(), w, gain, 32, y16.data(), n, a16.data());
                v.band5_16(lp1.data(), lp2.data(), w, gain, 32, y16.data(), n, b16.data());
                EXPECT_EQ(a16, b16);
            }
        }
        for (const int32_t gain : {512, 1024, 4096}) {
            std::vector<uint8_t> a8(n), b8(n);
            std::vector<uint16_t> a16(n), b16(n);
            s.add8(y8.data(), h8.data(), gain, n, a8.data());
            v.add8(y8.data(), h8.data(), gain, n, b8.data());
            EXPECT_EQ(a8, b8);
            s.add16(y16.data(), h16.data(), gain, n, a16.data());
            v.add16(y16.data(), h16.data(), gain, n, b16.data());
            EXPECT_EQ(a16, b16);
            s.addSoft16(y16.data(), h16.data(), gain, 0.3f, 0.7f, n, a16.data());
            v.addSoft16(y16.data(), h16.data(), gain, 0.3f, 0.7f, n, b16.data());
            EXPECT_EQ(a16, b16);
            s.addRange16(y16.data(), h16.data(), top.data(), bottom.data(), gain, 0.3f, 0.7f, n,
                         a16.data());
            v.addRange16(y16.data(), h16.data(), top.data(), bottom.data(), gain, 0.3f, 0.7f, n,
                         b16.data());
            EXPECT_EQ(a16, b16);
        }
    }
}

// y, h, gain -> the add's result, for each table.
TEST(SharpenRowsTest, AddsHoldTheirLimits) {
    for (const tav_sr2_SharpenRowOps* ops :
         {&tav_sr2_sharpenRowsScalar, &tav_sr2_sharpenRowsVector}) {
        const int32_t n = 19;  // a vector and a tail
        auto add8 = [&](uint8_t y, uint8_t h) {
            std::vector<uint8_t> ys(n, y), hs(n, h), out(n);
            ops->add8(ys.data(), hs.data(), 1024, n, out.data());
            return out[n - 1] == out[0] ? int32_t(out[0]) : -1;
        };
        EXPECT_EQ(add8(250, 140), 255);  // saturates high
        EXPECT_EQ(add8(5, 100), 0);      // and low
        EXPECT_EQ(add8(77, 128), 77);    // the bias adds nothing
        auto soft = [&](uint16_t y, uint16_t h, float w, float b) {
            std::vector<uint16_t> ys(n, y), hs(n, h), out(n);
            ops->addSoft16(ys.data(), hs.data(), 1024, w, b, n, out.data());
            return out[n - 1] == out[0] ? int32_t(out[0]) : -1;
        };
        EXPECT_EQ(soft(500, 552, 0.5f, 0.5f), 540);   // +40 is kept whole
        EXPECT_EQ(soft(500, 553, 0.5f, 0.5f), 520);   // +41 is mixed back: the step at 40
        EXPECT_EQ(soft(500, 400, 0.5f, 0.25f), 472);  // -112 at a quarter
        EXPECT_EQ(soft(500, 600, 1.0f, 1.0f), 588);   // levels of 1: the plain add
        EXPECT_EQ(soft(32700, 1023, 1.0f, 1.0f), 32767);
        auto range = [&](uint16_t y, uint16_t h, uint16_t top, uint16_t bottom) {
            std::vector<uint16_t> ys(n, y), hs(n, h), ts(n, top), bs(n, bottom), out(n);
            ops->addRange16(ys.data(), hs.data(), ts.data(), bs.data(), 1024, 0.25f, 0.5f, n,
                            out.data());
            return out[n - 1] == out[0] ? int32_t(out[0]) : -1;
        };
        EXPECT_EQ(range(500, 612, 520, 480), 540);  // 80 over the maximum by a quarter
        EXPECT_EQ(range(500, 412, 520, 480), 440);  // 80 under the minimum by half
        EXPECT_EQ(range(500, 522, 520, 480), 510);  // inside the range: plain
        EXPECT_EQ(range(500, 520, 500, 500), 502);  // flat: any rise scaled by white
    }
}

}  // namespace
