// Straightforward references of the two frame scores for the tests: both seven-tap blurs over the
// whole image with clamped borders and the same integer rounding, and the mean of the even rows
// and columns.
#pragma once

#include <stdint.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "foundation/image.h"

namespace tav_sharp_ref {

// Half taps built in double precision, wrapped into 16 bits as the measure keeps them.
inline std::vector<int32_t> referenceTaps(double sigma) {
    double g[4] = {1.0, 0.0, 0.0, 0.0};
    if (sigma > 0.0) {
        for (int k = 1; k <= 3; ++k)
            g[k] = std::exp(-(double)(k * k) / (2.0 * sigma * sigma));
    }
    const double s = g[0] + 2.0 * (g[1] + g[2] + g[3]);
    std::vector<int32_t> t(4);
    for (int k = 1; k <= 3; ++k)
        t[k] = (int32_t)std::trunc(g[k] * 32768.0 / s + 0.5);
    t[0] = (int16_t)(uint16_t)(32768 - 2 * (t[1] + t[2] + t[3]));
    return t;
}

// The whole measure written out plainly: both blurs over the full image, borders by clamping.
inline uint32_t referenceScore(const tav_sr2_Image& im, double sigma_a, double sigma_b) {
    const int32_t w = im.width;
    const int32_t h = im.height;
    auto px = [&](int32_t x, int32_t y) {
        x = std::clamp(x, 0, w - 1);
        y = std::clamp(y, 0, h - 1);
        return (int32_t)im.plane[0][(size_t)y * im.pitch[0] + x];
    };
    auto blur = [&](const std::vector<int32_t>& t) {
        std::vector<int32_t> hz((size_t)w * h);
        for (int32_t y = 0; y < h; ++y) {
            for (int32_t x = 0; x < w; ++x) {
                int32_t sum = 0;
                for (int32_t k = -3; k <= 3; ++k)
                    sum += t[std::abs(k)] * px(x + k, y);
                hz[(size_t)y * w + x] = (sum + 512) >> 10;
            }
        }
        auto r = [&](int32_t x, int32_t y) { return hz[(size_t)std::clamp(y, 0, h - 1) * w + x]; };
        std::vector<int32_t> out((size_t)w * h);
        for (int32_t y = 0; y < h; ++y) {
            for (int32_t x = 0; x < w; ++x) {
                int32_t sum = (t[0] * r(x, y) + 0x4000) >> 15;
                for (int32_t k = 1; k <= 3; ++k) {
                    sum += (t[k] * (r(x, y - k) + r(x, y + k)) + 0x4000) >> 15;
                }
                out[(size_t)y * w + x] = sum;
            }
        }
        return out;
    };
    const std::vector<int32_t> a = blur(referenceTaps(sigma_a));
    const std::vector<int32_t> b = blur(referenceTaps(sigma_b));
    uint32_t total = 0;
    for (size_t i = 0; i < a.size(); ++i)
        total += (uint32_t)std::abs(a[i] - b[i]);
    return total;
}

inline float referenceBrightness(const tav_sr2_Image& im) {
    uint64_t sum = 0;
    for (int32_t y = 0; y < im.height; y += 2) {
        for (int32_t x = 0; x < im.width; x += 2)
            sum += im.plane[0][(size_t)y * im.pitch[0] + x];
    }
    return (float)sum / (float)(((int64_t)im.width * im.height) >> 2);
}

}  // namespace tav_sharp_ref
