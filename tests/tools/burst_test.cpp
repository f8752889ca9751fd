// Synthetic bursts: determinism, the noise model's variance, the geometry recorded in the
// manifest (checked against the pixels), the truth, moving patches and the manifest file.
#include <stdlib.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <string>

#include "tools/toolkit/burst.h"
#include "tools/toolkit/manifest.h"

namespace {

using tavio::RgbImage;
using tavtool::Burst;
using tavtool::BurstConfig;

// A smooth, non-periodic colour pattern, so that interpolation between pixels is accurate.
RgbImage smoothPhoto(int32_t w, int32_t h) {
    RgbImage im;
    im.width = w;
    im.height = h;
    im.rgb.resize(size_t(w) * h * 3);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                im.rgb[(size_t(y) * w + x) * 3 + c] = uint16_t(
                    128 + 60 * std::sin(0.061 * x + 0.8 * c) * std::cos(0.047 * y - 0.3 * c) +
                    30 * std::sin(0.013 * (x + 2 * y)));
    return im;
}

double channel(const RgbImage& im, double x, double y, int c) {
    // Bilinear read of an 8-bit image, for resampling one frame onto another.
    const int32_t x0 = int32_t(std::floor(x)), y0 = int32_t(std::floor(y));
    const double fx = x - x0, fy = y - y0;
    auto at = [&](int32_t xx, int32_t yy) {
        return double(im.rgb[(size_t(yy) * im.width + xx) * 3 + c]);
    };
    return (at(x0, y0) * (1 - fx) + at(x0 + 1, y0) * fx) * (1 - fy) +
           (at(x0, y0 + 1) * (1 - fx) + at(x0 + 1, y0 + 1) * fx) * fy;
}

BurstConfig quietConfig() {
    BurstConfig c;
    c.noise_from_iso = false;
    c.noise = {0.0, 0.0};
    return c;
}

TEST(Burst, KnownShiftsReadBackFromTheManifestMapTheBaseFrameOntoEachFrame) {
    const RgbImage photo = smoothPhoto(400, 300);
    BurstConfig c = quietConfig();
    c.frames = 4;
    const double shifts[4][2] = {{0, 0}, {1.25, -0.5}, {-2.75, 1.5}, {0.4, 2.2}};
    c.motions.resize(4);
    for (int k = 0; k < 4; ++k) {
        c.motions[k].dx = shifts[k][0];
        c.motions[k].dy = shifts[k][1];
    }
    Burst b;
    std::string error;
    ASSERT_TRUE(tavtool::makeBurst(photo, c, &b, &error)) << error;
    char dir_pattern[] = "/tmp/tavrin_burst_XXXXXX";
    const std::string dir = mkdtemp(dir_pattern);
    const std::string path = dir + "/manifest.txt";
    ASSERT_TRUE(tavtool::writeManifest(
        path, tavtool::manifestOf(b, "photo.png", {"a", "b", "c", "d"}, "t.png", 10000), &error));
    tavtool::Manifest m;
    ASSERT_TRUE(tavtool::readManifest(path, &m, &error)) << error;
    unlink(path.c_str());
    rmdir(dir.c_str());

    const RgbImage& base = b.frames[0];
    for (int k = 1; k < 4; ++k) {
        const double* h = m.frames[k].h.m;
        EXPECT_NEAR(h[2], shifts[k][0], 1e-12);
        EXPECT_NEAR(h[5], shifts[k][1], 1e-12);
        EXPECT_DOUBLE_EQ(h[0], 1.0);
        EXPECT_DOUBLE_EQ(h[6], 0.0);
        // frame_k(v) shows the base frame at v - shift; the wrong sign must fit far worse.
        double err_right = 0, err_wrong = 0;
        int n = 0;
        const RgbImage& f = b.frames[k];
        for (int32_t y = 8; y < f.height - 8; ++y) {
            for (int32_t x = 8; x < f.width - 8; ++x) {
                const double v = f.rgb[(size_t(y) * f.width + x) * 3 + 1];
                err_right += std::fabs(v - channel(base, x - h[2], y - h[5], 1));
                err_wrong += std::fabs(v - channel(base, x + h[2], y + h[5], 1));
                ++n;
            }
        }
        EXPECT_LT(err_right / n, 0.8) << "frame " << k;
        EXPECT_GT(err_wrong / n, 4 * (err_right / n + 0.25)) << "frame " << k;
    }
}

TEST(Burst, MovingPatchesChangeOnlyTheirSquareAndSitInTheTruthAtTheBasePosition) {
    const RgbImage photo = smoothPhoto(300, 220);
    BurstConfig c = quietConfig();
    c.frames = 3;
    c.base = 1;
    c.max_shift = 0;
    c.max_rotate_deg = 0;
    c.max_scale = 0;
    c.max_keystone = 0;
    Burst plain, ghosted;
    std::string error;
    ASSERT_TRUE(tavtool::makeBurst(photo, c, &plain, &error)) << error;
    c.ghosts = 1;
    c.ghost_size = 20;
    c.ghost_step = 7;
    ASSERT_TRUE(tavtool::makeBurst(photo, c, &ghosted, &error)) << error;
    const tavtool::GhostPatch& g = ghosted.ghosts[0];
    const double side = g.size / 2.0;  // in frame pixels
    for (int k = 0; k < 3; ++k) {
        // Frame pixels whose footprint (with the bilinear reach) touches the patch may change.
        const double gx = (g.x0 + g.vx * (k - 1) - ghosted.origin_x) / 2.0;
        const double gy = (g.y0 + g.vy * (k - 1) - ghosted.origin_y) / 2.0;
        int changed = 0;
        const RgbImage& a = plain.frames[k];
        const RgbImage& b = ghosted.frames[k];
        for (int32_t y = 0; y < a.height; ++y) {
            for (int32_t x = 0; x < a.width; ++x) {
                const size_t i = (size_t(y) * a.width + x) * 3;
                if (a.rgb[i] == b.rgb[i] && a.rgb[i + 1] == b.rgb[i + 1]) continue;
                ++changed;
                EXPECT_TRUE(x >= gx - 1.5 && x <= gx + side + 1.5 && y >= gy - 1.5 &&
                            y <= gy + side + 1.5)
                    << "frame " << k << " pixel " << x << "," << y;
            }
        }
        EXPECT_GT(changed, 50) << "frame " << k;
    }
    // The truth shows the patch where the base frame (1) has it: its square is a copy of the
    // source square.
    const int32_t tx = int32_t(std::ceil(g.x0)) - ghosted.origin_x + 2;
    const int32_t ty = int32_t(std::ceil(g.y0)) - ghosted.origin_y + 2;
    const double sx = tx + ghosted.origin_x - g.x0 + g.src_x;
    const double sy = ty + ghosted.origin_y - g.y0 + g.src_y;
    EXPECT_NEAR(ghosted.truth.rgb[(size_t(ty) * ghosted.truth.width + tx) * 3],
                channel(photo, sx, sy, 0), 1.0);
}

}  // namespace
