// The luma noise reducers on noisy fields and pictures: how much noise they take, that the noise
// map steers them, that the detail gain acts, and what a failing allocation leaves.
#include "nr/luma_nr.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "enhance/image_rows.h"
#include "tests/engine/run_fixtures.h"
#include "tests/enhance/image_test_util.h"

namespace {

constexpr int32_t kW = 256, kH = 192;

struct Rig {
    tav_test::Heap heap{96u << 20};
    tav_test::Workers workers{&heap.pool, 2};
    tav_sr2_NrEngine engine;
    Rig() { engine = {workers.ctx, 64, -64, 128}; }
};

// A frame (48 or 52) whose luma is `clean` (8-bit values) plus Gaussian noise of sigma (8-bit
// codes); 10-bit frames hold four times the values.
void fill(tav_sr2_Image* frame, const std::vector<double>& clean, double sigma, uint32_t seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, sigma);
    const bool deep = frame->format == TAV_SR2_FMT_YUV10B420_SEMIPLANAR;
    for (int32_t y = 0; y < frame->height; ++y)
        for (int32_t x = 0; x < frame->width; ++x) {
            const double v = (clean[size_t(y) * frame->width + x] + noise(rng)) * (deep ? 4 : 1);
            const long q = std::clamp(std::lround(v), 0l, deep ? 1023l : 255l);
            if (deep) {
                tav_sr2_rowOf<uint16_t>(frame, 0, y)[x] = uint16_t(q);
            } else {
                tav_sr2_rowOf<uint8_t>(frame, 0, y)[x] = uint8_t(q);
            }
        }
}

// Luma in 8-bit codes, over the columns x0 .. x1 - 1.
std::vector<double> luma(const tav_sr2_Image& frame, int32_t x0 = 0, int32_t x1 = kW) {
    const bool deep = frame.format == TAV_SR2_FMT_YUV10B420_SEMIPLANAR;
    std::vector<double> out;
    for (int32_t y = 0; y < frame.height; ++y)
        for (int32_t x = x0; x < x1; ++x)
            out.push_back(deep ? tav_sr2_rowOf<const uint16_t>(&frame, 0, y)[x] / 4.0
                               : tav_sr2_rowOf<const uint8_t>(&frame, 0, y)[x]);
    return out;
}

double stddev(const std::vector<double>& v) {
    double m = 0, q = 0;
    for (double x : v)
        m += x;
    m /= double(v.size());
    for (double x : v)
        q += (x - m) * (x - m);
    return std::sqrt(q / double(v.size()));
}

double psnr(const std::vector<double>& a, const std::vector<double>& b) {
    double q = 0;
    for (size_t k = 0; k < a.size(); ++k)
        q += (a[k] - b[k]) * (a[k] - b[k]);
    return 10.0 * std::log10(255.0 * 255.0 * double(a.size()) / q);
}

// A photograph (value noise where the data folder is missing), or the same softened as a merged
// frame is, by a 5 x 5 Gaussian of sigma 1.
std::vector<double> picture(bool soft) {
    tav_run::Scene s;
    std::string why;
    if (!tav_run::loadKodak("kodim05.png", kW, kH, &s, &why))
        s = tav_run::valueNoiseScene(kW, kH, 4);
    const int32_t reach = soft ? 2 : 0;
    std::vector<double> out(size_t(kW) * kH);
    for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x) {
            double sum = 0, weight = 0;
            for (int32_t dy = -reach; dy <= reach; ++dy)
                for (int32_t dx = -reach; dx <= reach; ++dx) {
                    const double k = std::exp(-(dx * dx + dy * dy) / 2.0);
                    sum += k * s.y(tav_run::mirror(x + dx, kW), tav_run::mirror(y + dy, kH));
                    weight += k;
                }
            out[size_t(y) * kW + x] = sum / weight;
        }
    return out;
}

// Noise sigma 5 on a grey field, the map 16 (fully merged) on the left half and 64 on the right.
// Measured: multiscale_ynr at levels 8 and 4 leaves 2.5 of 5.0 on the left and 0.66 on the right
// on 8 bits (whose rebuild lifts the finest band by 6/16), 1.55 and 0.26 on 10 bits; the
// dark-light pass (eps 400, window 21) leaves 0.79 (8-bit) and 0.51 (10-bit), twice 0.31 and 0.25.
TEST(LumaNrTest, FlatNoiseFallsAndTheMapSteers) {
    Rig rig;
    const std::vector<double> grey(size_t(kW) * kH, 120.0);
    tav_test::TestImage map(&rig.heap.pool, kW, kH, TAV_SR2_FMT_UINT8);
    for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x)
            map.img.plane[0][y * map.img.pitch[0] + x] = x < kW / 2 ? 16 : 64;
    for (const int32_t format : {TAV_SR2_FMT_YUV420_SEMIPLANAR, TAV_SR2_FMT_YUV10B420_SEMIPLANAR}) {
        tav_test::TestImage frame(&rig.heap.pool, kW, kH, format);
        fill(&frame.img, grey, 5.0, 1);
        const double before = stddev(luma(frame.img));
        ASSERT_EQ(tav_sr2_ynr_dispatch(&rig.engine, &frame.img, &map.img, 128, 8.0f, 4.0f), TAV_OK);
        // Halves without the 32 columns about the seam.
        const double merged = stddev(luma(frame.img, 0, kW / 2 - 16));
        const double lone = stddev(luma(frame.img, kW / 2 + 16, kW));
        fill(&frame.img, grey, 5.0, 1);
        dark_light_nr(&rig.engine, &frame.img, 21, 400.0f, false);
        const double once = stddev(luma(frame.img));
        fill(&frame.img, grey, 5.0, 1);
        dark_light_nr(&rig.engine, &frame.img, 21, 400.0f, true);
        const double twice = stddev(luma(frame.img));
        SCOPED_TRACE(testing::Message() << "format " << format << ": " << before << " -> " << merged
                                        << " / " << lone << ", " << once << ", " << twice);
        EXPECT_LT(merged, before / 1.8);
        EXPECT_LT(lone, merged / 1.8);
        EXPECT_LT(once, before / 4.0);
        EXPECT_LT(twice, once / 1.5);
    }
}

// A photograph softened as a merged frame is, with noise sigma 5, comes closer to its clean self.
// Measured on kodim05: +0.7 dB through multiscale_ynr at levels 5 and 3 on the 10-bit frame the
// merge makes (on a sharp picture the rebuild's lift of the finest band costs more than the
// filters take), +2.0 dB through the dark-light pass (eps 30, window 9) on either depth; on the
// value-noise stand-in +2.3 and +3.4 dB.
TEST(LumaNrTest, NoisyPictureGains) {
    Rig rig;
    const std::vector<double> clean = picture(true);
    tav_test::TestImage map(&rig.heap.pool, kW, kH, TAV_SR2_FMT_UINT8);
    memset(map.img.plane[0], 32, map.bytes());
    for (const int32_t format : {TAV_SR2_FMT_YUV420_SEMIPLANAR, TAV_SR2_FMT_YUV10B420_SEMIPLANAR}) {
        tav_test::TestImage frame(&rig.heap.pool, kW, kH, format);
        fill(&frame.img, clean, 5.0, 2);
        const double noisy = psnr(luma(frame.img), clean);
        if (format == TAV_SR2_FMT_YUV10B420_SEMIPLANAR) {
            ASSERT_EQ(multiscale_ynr_16(&rig.engine, &frame.img, &map.img, 128, 5.0f, 3.0f),
                      TAV_OK);
            EXPECT_GT(psnr(luma(frame.img), clean), noisy + 0.5);
            fill(&frame.img, clean, 5.0, 2);
        }
        dark_light_nr(&rig.engine, &frame.img, 9, 30.0f, false);
        EXPECT_GT(psnr(luma(frame.img), clean), noisy + 1.2) << "format " << format;
    }
}

// Without filtering the rebuild still carries the detail gain: 255 sharpens what 128 keeps, and
// on 10 bits a closed clip with a zero small-detail gain drops the detail band.
TEST(LumaNrTest, DetailGainAndClip) {
    Rig rig;
    const std::vector<double> clean = picture(false);
    auto detail = [&](int32_t format, int32_t gain, int32_t clip, int32_t thr) {
        tav_test::TestImage frame(&rig.heap.pool, kW, kH, format);
        fill(&frame.img, clean, 0.0, 3);
        rig.engine.hfe_white_level = clip;
        rig.engine.hfe_black_level = -clip;
        rig.engine.hfe_thr = thr;
        EXPECT_EQ(tav_sr2_ynr_dispatch(&rig.engine, &frame.img, nullptr, gain, 0.0f, 0.0f), TAV_OK);
        const std::vector<double> out = luma(frame.img);
        double energy = 0;  // horizontal second differences
        for (int32_t y = 0; y < kH; ++y)
            for (int32_t x = 1; x + 1 < kW; ++x) {
                const double d2 = 2 * out[y * kW + x] - out[y * kW + x - 1] - out[y * kW + x + 1];
                energy += d2 * d2;
            }
        return energy;
    };
    EXPECT_GT(detail(TAV_SR2_FMT_YUV420_SEMIPLANAR, 255, 64, 128),
              1.5 * detail(TAV_SR2_FMT_YUV420_SEMIPLANAR, 128, 64, 128));
    EXPECT_GT(detail(TAV_SR2_FMT_YUV10B420_SEMIPLANAR, 128, 128, 128),
              2.0 * detail(TAV_SR2_FMT_YUV10B420_SEMIPLANAR, 128, 0, 0));
}

// A frame below 64 pixels has one level: with its low eps 0 nothing changes. Other formats are
// left alone by both stages.
TEST(LumaNrTest, SmallFramesAndOtherFormats) {
    Rig rig;
    std::mt19937 rng(5);
    tav_test::TestImage small(&rig.heap.pool, 60, 200, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    small.randomize(rng);
    const std::vector<uint8_t> before = small.snapshot();
    EXPECT_EQ(multiscale_ynr(&rig.engine, &small.img, nullptr, 255, 0.0f, 9.0f), TAV_OK);
    EXPECT_EQ(small.snapshot(), before);
    tav_test::TestImage plain(&rig.heap.pool, 64, 64, TAV_SR2_FMT_UINT8);
    plain.randomize(rng);
    const std::vector<uint8_t> plain_before = plain.snapshot();
    EXPECT_EQ(tav_sr2_ynr_dispatch(&rig.engine, &plain.img, nullptr, 255, 9.0f, 9.0f), TAV_OK);
    dark_light_nr(&rig.engine, &plain.img, 21, 400.0f, true);
    EXPECT_EQ(plain.snapshot(), plain_before);
}

#if TAVRIN_FAULT_INJECTION
// The pyramid's allocations end the stage with the frame as it was; the filters' allocations
// leave their band unfiltered and the stage goes on. Nothing is kept either way.
TEST(LumaNrTest, EveryFailingAllocation) {
    tav_test::Heap heap{64u << 20};
    tav_sr2_NrEngine engine = {{&heap.pool, nullptr, nullptr}, 64, -64, 128};
    tav_test::TestImage map(&heap.pool, 160, 144, TAV_SR2_FMT_UINT8);
    memset(map.img.plane[0], 40, map.bytes());
    tav_test::TestImage frame(&heap.pool, 160, 144, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
    const std::vector<double> clean(size_t(160) * 144, 100.0);
    const uint32_t in_use = tav_sr2_MemPool_inUse(&heap.pool);
    for (uint32_t nth = 1;; ++nth) {
        fill(&frame.img, clean, 4.0, 6);
        const std::vector<uint8_t> before = frame.snapshot();
        tav_sr2_MemPool_injectFailure(nth, false);
        const uint32_t status = multiscale_ynr_16(&engine, &frame.img, &map.img, 160, 4.0f, 2.0f);
        EXPECT_TRUE(status == TAV_OK || frame.snapshot() == before) << "failure " << nth;
        dark_light_nr(&engine, &frame.img, 21, 100.0f, true);
        const uint32_t attempts = tav_sr2_MemPool_allocCount();
        tav_sr2_MemPool_injectFailure(0, false);
        EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), in_use) << "failure " << nth;
        if (attempts < nth) break;
    }
}
#endif

}  // namespace
