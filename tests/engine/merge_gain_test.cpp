// What the CPU merge is for, measured on whole runs: eight noisy frames of a photograph moved by
// known whole-pixel shifts come out much closer to the clean picture than the base frame alone,
// and a patch that moves between frames is not doubled: inside it the result stays with the
// single-frame run, outside it the merge gain holds.
#include <gtest/gtest.h>

#include <random>

#include "tests/engine/run_fixtures.h"

namespace {

using tav_run::EngineRun;
using tav_run::HostFrame;
using tav_run::HostOutput;
using tav_run::Scene;

constexpr int32_t kW = 640, kH = 480;
constexpr int32_t kFrames = 8;
constexpr int32_t kShifts[kFrames][2] = {{0, 0},   {2, 1},  {-1, 3}, {3, -2},
                                         {-2, -1}, {1, -3}, {-3, 2}, {2, 2}};

// The scene seen moved by (dx, dy), a patch of it (from (px, py), side `patch`) pasted at
// (qx + k * step, qy) in frame k when `patch` is above 0, then Gaussian noise of sigma.
Scene frameOf(const Scene& s, int32_t k, double sigma, int32_t patch, uint32_t seed) {
    Scene f = s;
    const int32_t dx = kShifts[k][0], dy = kShifts[k][1];
    std::mt19937 rng(seed + k);
    std::normal_distribution<double> noise(0.0, sigma);
    for (int32_t y = 0; y < kH; ++y) {
        for (int32_t x = 0; x < kW; ++x) {
            const int32_t sx = tav_run::mirror(x + dx, kW), sy = tav_run::mirror(y + dy, kH);
            double v = s.y(sx, sy);
            const int32_t qx = 300 + 12 * k, qy = 200;
            if (patch > 0 && x >= qx && x < qx + patch && y >= qy && y < qy + patch)
                v = s.y(40 + x - qx, 40 + y - qy);
            f.luma[size_t(y) * kW + x] = tav_run::clampByte(v + (sigma > 0 ? noise(rng) : 0.0));
        }
    }
    return f;
}

// Luma PSNR of a picture against `truth` over a rectangle.
double psnrIn(const Scene& a, const Scene& truth, int32_t x0, int32_t y0, int32_t x1, int32_t y1) {
    double sum = 0.0;
    for (int32_t y = y0; y < y1; ++y)
        for (int32_t x = x0; x < x1; ++x) {
            const double d = double(a.y(x, y)) - truth.y(x, y);
            sum += d * d;
        }
    const double mse = sum / double((x1 - x0) * (y1 - y0));
    return 10.0 * std::log10(255.0 * 255.0 / std::max(mse, 1e-9));
}

struct Outcome {
    Scene picture;
    Scene truth;   // the clean base frame through the run's own window
    int32_t base;  // the frame the run chose as its base
};

// A zoom 2 run (merged at the frames' own size, then resampled) of `frames`; clean[k] is frame
// k without noise. The enhancement stages are off: this measures the merge.
Outcome run(const std::vector<Scene>& frames, const std::vector<Scene>& clean) {
    const int32_t count = (int32_t)frames.size();
    Outcome r;
    EngineRun engine(kW, kH, kW, kH, 2.0f, tav_sr2_ImageFormat_name(TAV_SR2_FMT_YUV420_SEMIPLANAR),
                     count, tav_run::noEnhancement);
    HostOutput out(kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    if (engine.engine == nullptr) return r;
    // The engine reads the host's frames when it processes them: they live until then.
    std::vector<std::unique_ptr<HostFrame>> host;
    for (int32_t k = 0; k < count; ++k) {
        host.push_back(std::make_unique<HostFrame>(frames[k], TAV_SR2_FMT_YUV420_SEMIPLANAR));
        EXPECT_EQ(tav_sr2_addImage(&engine.engine, &host.back()->record), TAV_OK);
    }
    EXPECT_EQ(tav_sr2_process(&engine.engine, &out.record), TAV_OK);
    r.picture = out.picture();
    r.base = engine.engine->pipeline.frame_order[0];
    r.truth = tav_run::referenceOutput(clean[r.base], tav_run::scaledWindow(engine.engine), kW, kH);
    return r;
}

double gainIn(const Outcome& merged, const Outcome& single, int32_t x0, int32_t y0, int32_t x1,
              int32_t y1) {
    return psnrIn(merged.picture, merged.truth, x0, y0, x1, y1) -
           psnrIn(single.picture, single.truth, x0, y0, x1, y1);
}

TEST(MergeGain, NoisyStaticBurstAndMovingPatch) {
    // A photograph where the data folder is at hand, value noise elsewhere (CI).
    Scene scene;
    std::string why;
    if (!tav_run::loadKodak("kodim05.png", kW, kH, &scene, &why))
        scene = tav_run::valueNoiseScene(kW, kH, 11);
    constexpr int32_t kBorder = 16;  // output pixels left out at the edges
    for (int32_t patch : {0, 48}) {
        SCOPED_TRACE(patch);
        std::vector<Scene> frames, clean;
        for (int32_t k = 0; k < kFrames; ++k) {
            frames.push_back(frameOf(scene, k, 5.0, patch, 7));
            clean.push_back(frameOf(scene, k, 0.0, patch, 7));
        }
        // The burst picks its sharpest frame as the base; the single run gets that frame.
        const Outcome merged = run(frames, clean);
        ASSERT_EQ(merged.picture.width, kW);
        const int32_t b = merged.base;
        const Outcome single = run({frames[b]}, {clean[b]});
        ASSERT_EQ(single.picture.width, kW);
        if (patch == 0) {
            EXPECT_GE(gainIn(merged, single, kBorder, kBorder, kW - kBorder, kH - kBorder), 4.0);
            continue;
        }
        // The zoom window is the centre half: frame (x, y) lands at (2 x - kW / 2, 2 y - kH / 2).
        // The base frame's patch keeps to the single frame.
        const int32_t px = 2 * (300 + 12 * b) - kW / 2;
        EXPECT_GE(gainIn(merged, single, px, 160, px + 96, 256), -0.5);
        // Left of everything the patch crossed, the merge gain holds.
        EXPECT_GE(gainIn(merged, single, kBorder, kBorder, 240, kH - kBorder), 4.0);
    }
}

}  // namespace
