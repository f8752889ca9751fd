// The band passes against their formulas computed directly, on awkward sizes, in place and not,
// on one and two workers; and the sharpening stage's weight, paths and allocations.
#include "sharpen/unsharp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "enhance/image_rows.h"
#include "sharpen/enhance.h"
#include "tests/enhance/image_test_util.h"

namespace {

using Plane = std::vector<int32_t>;

int32_t clampTo(int32_t v, int32_t lo, int32_t hi) {
    return std::min(std::max(v, lo), hi);
}

// The band pass of `kind` straight from its definition: both passes over the whole plane, then
// the output formula per pixel.
Plane reference(int32_t kind, bool deep, const Plane& in, const Plane& weight, int32_t w, int32_t h,
                double s1, double s2, int32_t gain, int32_t t) {
    const int32_t r = kind == TAV_SR2_UNSHARP_BAND5 ? 2 : 3;
    int32_t k1[7], k2[7];
    tav_sr2_Unsharp_taps(s1, r, k1);
    tav_sr2_Unsharp_taps(s2, r, k2);
    auto lowPass = [&](const int32_t* k) {
        Plane hor(in.size()), out(in.size());
        for (int32_t y = 0; y < h; ++y)
            for (int32_t x = 0; x < w; ++x) {
                int32_t s = deep ? 2048 : 512;
                for (int32_t j = -r; j <= r; ++j)
                    s += k[j + r] * in[y * w + clampTo(x + j, 0, w - 1)];
                hor[y * w + x] = s >> (deep ? 12 : 10);
            }
        for (int32_t y = 0; y < h; ++y)
            for (int32_t x = 0; x < w; ++x) {
                int32_t s = 16384;
                for (int32_t j = -r; j <= r; ++j)
                    s += k[j + r] * hor[clampTo(y + j, 0, h - 1) * w + x];
                out[y * w + x] = s >> 15;
            }
        return out;
    };
    const Plane lp1 = lowPass(k1), lp2 = lowPass(k2);
    Plane out(in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        const int32_t m = weight.empty() ? 128 : weight[i];
        const int32_t y = in[i];
        if (kind == TAV_SR2_UNSHARP_BAND7 && !deep) {
            const int32_t d = lp2[i] - lp1[i], c = d - clampTo(d, -t, t);
            const int32_t e = clampTo((c * ((gain * m) >> 5) + 512) >> 10, -32768, 32767);
            out[i] = clampTo(128 + ((e + 4) >> 3), 0, 255);
        } else if (kind == TAV_SR2_UNSHARP_BAND7) {
            const int32_t e = (128 + (lp1[i] - lp2[i]) * ((gain * m) >> 7)) >> 8;
            out[i] = clampTo((e - clampTo(e, -t, t) + 4100) >> 3, 0, 1023);
        } else if (!deep) {
            const int32_t v =
                ((y << 5) | 16) + ((128 + (lp2[i] - lp1[i]) * ((gain * m) >> 7)) >> 8);
            out[i] = clampTo(v >> 5, 0, 255);
        } else {
            const int32_t e = (32 + (lp2[i] - lp1[i]) * ((gain * m) >> 7)) >> 6;
            out[i] = clampTo((((y << 3) | 4) + e - clampTo(e, -4 * t, 4 * t)) >> 3, 0, 1023);
        }
    }
    return out;
}

void put(tav_sr2_Image* img, const Plane& p) {
    for (int32_t y = 0; y < img->height; ++y)
        for (int32_t x = 0; x < img->width; ++x) {
            if (img->format == TAV_SR2_FMT_UINT16) {
                tav_sr2_rowOf<uint16_t>(img, 0, y)[x] = uint16_t(p[y * img->width + x]);
            } else {
                tav_sr2_rowOf<uint8_t>(img, 0, y)[x] = uint8_t(p[y * img->width + x]);
            }
        }
}

Plane get(const tav_sr2_Image& img) {
    Plane p(size_t(img.width) * img.height);
    for (int32_t y = 0; y < img.height; ++y)
        for (int32_t x = 0; x < img.width; ++x)
            p[y * img.width + x] = int32_t(tav_test::sample(img, x, y));
    return p;
}

Plane randomPlane(std::mt19937& rng, size_t n, int32_t top) {
    Plane p(n);
    for (int32_t& v : p)
        v = int32_t(rng() % uint32_t(top + 1));
    return p;
}

TEST(UnsharpTest, TapsSumToOneAndSigmaZeroIsTheUnitKernel) {
    for (const double sigma : {0.0, 0.3, 0.9, 2.5}) {
        int32_t taps[7];
        tav_sr2_Unsharp_taps(sigma, 3, taps);
        int32_t sum = 0;
        for (int32_t k = 0; k < 7; ++k)
            sum += taps[k];
        EXPECT_EQ(sum, 32768) << sigma;
        EXPECT_EQ(taps[0], taps[6]) << sigma;
        EXPECT_TRUE(sigma > 0.0 || taps[3] == 32768);
    }
}

TEST(UnsharpTest, BandPassesFollowTheirFormulas) {
    tav_test::Heap heap{32u << 20};
    tav_test::Workers two(&heap.pool, 2);
    const tav_test::Workers one(&heap.pool, 1);
    std::mt19937 rng(11);
    const int32_t sizes[][2] = {{7, 1}, {9, 3}, {33, 5}, {100, 13}, {257, 40}};
    for (const int32_t kind : {TAV_SR2_UNSHARP_BAND5, TAV_SR2_UNSHARP_BAND7})
        for (const bool deep : {false, true})
            for (const auto& size : sizes)
                for (const bool weighted : {false, true}) {
                    const int32_t w = size[0], h = size[1];
                    SCOPED_TRACE(testing::Message()
                                 << "kind " << kind << (deep ? " 10-bit " : " 8-bit ") << w << "x"
                                 << h << (weighted ? " weighted" : ""));
                    const int32_t format = deep ? TAV_SR2_FMT_UINT16 : TAV_SR2_FMT_UINT8;
                    const Plane in = randomPlane(rng, size_t(w) * h, deep ? 1023 : 255);
                    const Plane weight = weighted ? randomPlane(rng, in.size(), 255) : Plane();
                    tav_test::TestImage src(&heap.pool, w, h, format),
                        dst(&heap.pool, w, h, format);
                    tav_test::TestImage wt(&heap.pool, w, h, TAV_SR2_FMT_UINT8);
                    put(&wt.img, weight.empty() ? Plane(in.size(), 0) : weight);
                    const Plane want = reference(kind, deep, in, weight, w, h, 1.2, 0.5, 700, 16);
                    for (const tav_test::Workers* workers :
                         {&one, static_cast<const tav_test::Workers*>(&two)})
                        for (const tav_sr2_SharpenRowOps* rows :
                             {&tav_sr2_sharpenRowsScalar, &tav_sr2_sharpenRowsVector}) {
                            put(&src.img, in);
                            // The 5-tap sharpen works in place, the 7-tap one into a high pass.
                            tav_sr2_Image* out =
                                kind == TAV_SR2_UNSHARP_BAND5 ? &src.img : &dst.img;
                            ASSERT_EQ(tav_sr2_Unsharp_bandWithRows(
                                          &workers->ctx, kind, out, &src.img,
                                          weighted ? &wt.img : nullptr, 1.2, 0.5, 700.0, 0.5, rows),
                                      TAV_OK);
                            EXPECT_EQ(get(*out), want);
                        }
                }
}

TEST(UnsharpTest, BandPassStatusesAndIdentities) {
    tav_test::Heap heap;
    const tav_test::Workers one(&heap.pool, 1);
    std::mt19937 rng(3);
    tav_test::TestImage narrow(&heap.pool, 6, 8, TAV_SR2_FMT_UINT8);
    tav_test::TestImage y8(&heap.pool, 40, 8, TAV_SR2_FMT_UINT8),
        hp(&heap.pool, 40, 8, TAV_SR2_FMT_UINT8);
    tav_test::TestImage y16(&heap.pool, 40, 8, TAV_SR2_FMT_UINT16),
        rgb(&heap.pool, 40, 8, TAV_SR2_FMT_UINT88);
    EXPECT_EQ(tav_sr2_Unsharp_band7(&one.ctx, &narrow.img, &narrow.img, nullptr, 1, 0.5, 700, 0),
              TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Unsharp_band7(&one.ctx, &hp.img, &y16.img, nullptr, 1, 0.5, 700, 0),
              TAV_ERROR_UNSUPPORTED);
    EXPECT_EQ(tav_sr2_Unsharp_band7(&one.ctx, &rgb.img, &rgb.img, nullptr, 1, 0.5, 700, 0),
              TAV_ERROR_UNSUPPORTED);
    EXPECT_EQ(tav_sr2_Sharpen_add16(&one.ctx, &y8.img, &y8.img, &hp.img, 1024),
              TAV_ERROR_UNSUPPORTED);
    y8.randomize(rng);
    const std::vector<uint8_t> before = y8.snapshot();
    // Gain 0 or equal sigmas give the bias; a bias high pass adds nothing.
    ASSERT_EQ(tav_sr2_Unsharp_band7(&one.ctx, &hp.img, &y8.img, nullptr, 1.0, 0.5, 0.0, 0.0),
              TAV_OK);
    EXPECT_EQ(hp.snapshot(), std::vector<uint8_t>(hp.bytes(), 128));
    ASSERT_EQ(tav_sr2_Unsharp_band7(&one.ctx, &hp.img, &y8.img, nullptr, 0.7, 0.7, 900.0, 0.0),
              TAV_OK);
    EXPECT_EQ(hp.snapshot(), std::vector<uint8_t>(hp.bytes(), 128));
    ASSERT_EQ(tav_sr2_Sharpen_add8(&one.ctx, &y8.img, &y8.img, &hp.img, 1024), TAV_OK);
    EXPECT_EQ(y8.snapshot(), before);
}

// ---- the stage ---------------------------------------------------------------------------------

constexpr int32_t kW = 128, kH = 96;

struct Stage {
    tav_test::Heap heap{64u << 20};
    tav_test::Workers workers{&heap.pool, 2};
    tav_test::TestImage sums{&heap.pool, kW / 4 - 2, kH / 4 - 2, TAV_SR2_FMT_UINT16};
    tav_sr2_EnhanceInputs in = {};
    Stage() {
        in.ctx = workers.ctx;
        in.weight_sum = &sums.img;
        in.accum_num = 8;
        in.frame_count = 8;
        in.do_unsharp = 700;
        in.unsharp_sigma = 1.2;
        in.unsharp_sigma2 = 0.5;
        in.unsharp_4ghost_ratio = 0.5;
        in.do_unsharp_rate_for_skin = 1.0;
        in.internal_zoom_ratio = 1.0;
        in.zoom_ratio = 2.0;
        in.white_edge_level = 1.0f;
        in.black_edge_level = 1.0f;
        fillSums(8 * 128);
    }
    void fillSums(int32_t v) {
        for (int32_t y = 0; y < sums.img.height; ++y)
            for (int32_t x = 0; x < sums.img.width; ++x)
                tav_sr2_rowOf<uint16_t>(&sums.img, 0, y)[x] = uint16_t(v);
    }
};

// A frame whose luma is `luma(x, y)` (8-bit values), chroma (u, v).
template <typename F>
void paint(tav_sr2_Image* frame, F luma, int32_t u, int32_t v) {
    const bool deep = tav_sr2_isSemiPlanar10(frame->format);
    for (int32_t y = 0; y < frame->height; ++y)
        for (int32_t x = 0; x < frame->width; ++x) {
            if (deep) {
                tav_sr2_rowOf<uint16_t>(frame, 0, y)[x] = uint16_t(4 * luma(x, y));
            } else {
                tav_sr2_rowOf<uint8_t>(frame, 0, y)[x] = uint8_t(luma(x, y));
            }
        }
    for (int32_t y = 0; y < frame->height / 2; ++y)
        for (int32_t x = 0; x < frame->width / 2; ++x) {
            if (deep) {
                tav_sr2_rowOf<uint16_t>(frame, 1, y)[2 * x] = uint16_t(4 * u);
                tav_sr2_rowOf<uint16_t>(frame, 1, y)[2 * x + 1] = uint16_t(4 * v);
            } else {
                tav_sr2_rowOf<uint8_t>(frame, 1, y)[2 * x] = uint8_t(u);
                tav_sr2_rowOf<uint8_t>(frame, 1, y)[2 * x + 1] = uint8_t(v);
            }
        }
}

// Luma in 8-bit units.
std::vector<double> lumaOf(const tav_sr2_Image& frame) {
    const bool deep = tav_sr2_isSemiPlanar10(frame.format);
    std::vector<double> out;
    for (int32_t y = 0; y < frame.height; ++y)
        for (int32_t x = 0; x < frame.width; ++x)
            out.push_back(deep ? tav_sr2_rowOf<const uint16_t>(&frame, 0, y)[x] / 4.0
                               : tav_sr2_rowOf<const uint8_t>(&frame, 0, y)[x]);
    return out;
}

// Every path on both depths changes a soft edge's steepest step and leaves a flat field exactly
// flat.
TEST(EnhanceTest, EveryPathSharpensAnEdgeAndKeepsAFlatField) {
    Stage s;
    auto ramp = [](int32_t x, int32_t) { return x < 60 ? 60 : x > 67 ? 180 : 60 + 15 * (x - 60); };
    for (const int32_t format : {TAV_SR2_FMT_YUV420_SEMIPLANAR, TAV_SR2_FMT_YUV10B420_SEMIPLANAR})
        for (int32_t method = 0; method < 4; ++method) {
            SCOPED_TRACE(testing::Message() << "format " << format << " method " << method);
            s.in.unsharp_method = method;
            tav_test::TestImage frame(&s.heap.pool, kW, kH, format);
            paint(&frame.img, ramp, 128, 128);
            const std::vector<double> before = lumaOf(frame.img);
            ASSERT_EQ(tav_sr2_Enhance_run(&s.in, &frame.img), TAV_OK);
            const std::vector<double> after = lumaOf(frame.img);
            // The edge's energy: squared steps along the middle row.
            double before_energy = 0, after_energy = 0;
            for (int32_t x = 1; x < kW; ++x) {
                const size_t i = size_t(kH / 2) * kW + x;
                before_energy += (before[i] - before[i - 1]) * (before[i] - before[i - 1]);
                after_energy += (after[i] - after[i - 1]) * (after[i] - after[i - 1]);
            }
            // Method 1 hands the 8-bit kernel its sigmas swapped, and that kernel subtracts the
            // first low pass from the second: with sigma above sigma2 its band is coarse minus
            // fine, and the path softens the edge instead.
            if (method == 1 && format == TAV_SR2_FMT_YUV420_SEMIPLANAR) {
                EXPECT_LT(after_energy, 0.95 * before_energy);
            } else {
                EXPECT_GT(after_energy, 1.1 * before_energy);
            }
            paint(
                &frame.img, [](int32_t, int32_t) { return 90; }, 128, 128);
            ASSERT_EQ(tav_sr2_Enhance_run(&s.in, &frame.img), TAV_OK);
            EXPECT_EQ(lumaOf(frame.img), std::vector<double>(size_t(kW) * kH, 90.0));
        }
}

// The weight: where one frame of eight merged it is the single-frame ratio (0 here: no
// sharpening), where all did 128; skin colours get the skin rate.
TEST(EnhanceTest, WeightFollowsTheGhostAndTheSkin) {
    Stage s;
    s.in.unsharp_4ghost_ratio = 0.0;
    for (int32_t y = 0; y < s.sums.img.height; ++y)
        for (int32_t x = 0; x < s.sums.img.width / 2; ++x)
            tav_sr2_rowOf<uint16_t>(&s.sums.img, 0, y)[x] = 128;
    tav_test::TestImage frame(&s.heap.pool, kW, kH, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
    tav_test::TestImage weight(&s.heap.pool, kW, kH, TAV_SR2_FMT_UINT8);
    paint(
        &frame.img, [](int32_t x, int32_t y) { return 40 + ((x / 6 + y / 6) % 2) * 150; }, 128,
        128);
    ASSERT_EQ(tav_sr2_Enhance_weight(&s.in, &frame.img, &weight.img), TAV_OK);
    EXPECT_EQ(tav_sr2_rowOf<uint8_t>(&weight.img, 0, kH / 2)[8], 0);
    // A full merge reads (128 - r) 112 / (112 + 1e-9) above r: just below 128, truncated to 127.
    EXPECT_EQ(tav_sr2_rowOf<uint8_t>(&weight.img, 0, kH / 2)[kW - 8], 127);
    // The whole stage leaves the single-frame half as it was.
    const std::vector<double> before = lumaOf(frame.img);
    s.in.unsharp_method = 3;
    ASSERT_EQ(tav_sr2_Enhance_run(&s.in, &frame.img), TAV_OK);
    const std::vector<double> after = lumaOf(frame.img);
    int32_t changed_left = 0, changed_right = 0;
    for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x) {
            const bool moved = after[y * kW + x] != before[y * kW + x];
            (x < kW / 2 - 12 ? changed_left : changed_right) +=
                x < kW / 2 - 12 || x > kW / 2 + 12 ? moved : 0;
        }
    EXPECT_EQ(changed_left, 0);
    EXPECT_GT(changed_right, 100);
    // Skin (Y 161, U 154, V 107: the centre of the likelihood) at rate 0.25 gets 32; grey keeps the
    // ghost term's 127.
    s.fillSums(8 * 128);
    s.in.do_unsharp_rate_for_skin = 0.25;
    paint(
        &frame.img, [](int32_t, int32_t) { return 161; }, 154, 107);
    ASSERT_EQ(tav_sr2_Enhance_weight(&s.in, &frame.img, &weight.img), TAV_OK);
    EXPECT_NEAR(tav_sr2_rowOf<uint8_t>(&weight.img, 0, kH / 2)[kW / 2], 32, 2);
    paint(
        &frame.img, [](int32_t, int32_t) { return 161; }, 128, 128);
    ASSERT_EQ(tav_sr2_Enhance_weight(&s.in, &frame.img, &weight.img), TAV_OK);
    EXPECT_EQ(tav_sr2_rowOf<uint8_t>(&weight.img, 0, kH / 2)[kW / 2], 127);
}

TEST(EnhanceTest, RefusesWhatItCannotSharpen) {
    Stage s;
    tav_test::TestImage frame(&s.heap.pool, kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    tav_test::TestImage plain(&s.heap.pool, kW, kH, TAV_SR2_FMT_UINT16);
    s.in.unsharp_method = 4;
    EXPECT_EQ(tav_sr2_Enhance_run(&s.in, &frame.img), TAV_ERROR_UNSUPPORTED);
    s.in.unsharp_method = 3;
    EXPECT_EQ(tav_sr2_Enhance_run(&s.in, &plain.img), TAV_ERROR_UNSUPPORTED);
    s.in.unsharp_method = 0;
    EXPECT_EQ(tav_sr2_Enhance_run(&s.in, &plain.img), TAV_OK);
    EXPECT_EQ(tav_sr2_Enhance_run(nullptr, &frame.img), TAV_ERROR_PARAM);
}

#if TAVRIN_FAULT_INJECTION
// Every allocation of every path may fail: the stage keeps nothing (and, under the sanitizers,
// touches nothing it should not).
TEST(EnhanceTest, EveryFailingAllocation) {
    Stage s;
    s.in.do_unsharp_rate_for_skin = 0.5;
    s.in.unsharp_noise_level = 2.0;
    s.in.zoom_ratio = 5.0;
    auto edge = [](int32_t x, int32_t y) { return (x + y) % 23 < 11 ? 70 : 160; };
    for (const int32_t format : {TAV_SR2_FMT_YUV420_SEMIPLANAR, TAV_SR2_FMT_YUV10B420_SEMIPLANAR})
        for (int32_t method = 0; method < 4; ++method) {
            s.in.unsharp_method = method;
            tav_test::TestImage frame(&s.heap.pool, kW, kH, format);
            const uint32_t in_use = tav_sr2_MemPool_inUse(&s.heap.pool);
            for (uint32_t nth = 1;; ++nth) {
                paint(&frame.img, edge, 120, 140);
                tav_sr2_MemPool_injectFailure(nth, false);
                tav_sr2_Enhance_run(&s.in, &frame.img);
                const uint32_t attempts = tav_sr2_MemPool_allocCount();
                tav_sr2_MemPool_injectFailure(0, false);
                EXPECT_EQ(tav_sr2_MemPool_inUse(&s.heap.pool), in_use) << method << " " << nth;
                if (attempts < nth) break;
            }
        }
}
#endif

}  // namespace
