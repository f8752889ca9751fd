// Helpers of the estimator tests: owned "UINT8" images filled from functions, a smooth
// procedural texture that can be sampled at any sub-pixel shift, and random fills.
#pragma once

#include <gtest/gtest.h>
#include <math.h>
#include <stdint.h>

#include <random>
#include <vector>

#include "foundation/image.h"
#include "tests/foundation/pool_fixtures.h"

namespace tav_align_test {

// Sum of plane waves of several orientations and wavelengths: corners everywhere, no period
// short enough to fool a 7 x 7 search, and exact values at any real position.
struct Texture {
    struct Wave {
        double kx, ky, phase, amplitude;
    };
    std::vector<Wave> waves;
    explicit Texture(uint32_t seed) { add(seed, 10, 6.0, 30.0, 110.0); }
    // `count` waves of wavelengths shortest .. shortest + spread sharing `amplitude`. Short
    // waves make steep slopes: strong corners that become gradient templates.
    Texture& add(uint32_t seed, int32_t count, double shortest, double spread, double amplitude) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        for (int32_t i = 0; i < count; ++i) {
            const double angle = unit(rng) * 3.14159265358979;
            const double wavelength = shortest + unit(rng) * spread;
            const double k = 2.0 * 3.14159265358979 / wavelength;
            waves.push_back({k * cos(angle), k * sin(angle), unit(rng) * 6.2831853,
                             amplitude / count * (0.5 + unit(rng))});
        }
        return *this;
    }
    // Wavelengths spread evenly on a log scale from 6 to 200 pixels with amplitudes growing as
    // their square root, like the falling spectrum of a photograph: coarse pyramid levels keep
    // real structure for the block search, fine ones get corners.
    static Texture natural(uint32_t seed) {
        Texture t(seed);
        t.waves.clear();
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        const int32_t count = 24;
        double total = 0.0;
        for (int32_t i = 0; i < count; ++i) {
            const double wavelength = 6.0 * pow(200.0 / 6.0, (double)i / (count - 1));
            const double angle = unit(rng) * 3.14159265358979;
            const double k = 2.0 * 3.14159265358979 / wavelength;
            t.waves.push_back(
                {k * cos(angle), k * sin(angle), unit(rng) * 6.2831853, sqrt(wavelength)});
            total += sqrt(wavelength);
        }
        for (Wave& w : t.waves)
            w.amplitude *= 115.0 / total;
        return t;
    }
    double at(double x, double y) const {
        double v = 128.0;
        for (const Wave& w : waves)
            v += w.amplitude * sin(w.kx * x + w.ky * y + w.phase);
        return v;
    }
};

inline uint8_t toByte(double v) {
    const double r = floor(v + 0.5);
    return (uint8_t)(r < 0 ? 0 : r > 255 ? 255 : r);
}

inline uint8_t* rowOf(tav_sr2_Image* img, int32_t y) {
    return img->plane[0] + (int64_t)y * img->pitch[0];
}
inline uint8_t pixelOf(const tav_sr2_Image* img, int32_t x, int32_t y) {
    return img->plane[0][(int64_t)y * img->pitch[0] + x];
}

template <typename F>
void fill(tav_sr2_Image* img, F&& f) {
    for (int32_t y = 0; y < img->height; ++y) {
        for (int32_t x = 0; x < img->width; ++x)
            rowOf(img, y)[x] = f(x, y);
    }
}

// The texture moved by (dx, dy): the point at p of the unshifted picture lies at p + (dx, dy).
inline void fillShifted(tav_sr2_Image* img, const Texture& t, double dx, double dy) {
    fill(img, [&](int32_t x, int32_t y) { return toByte(t.at(x - dx, y - dy)); });
}

inline void fillRandom(tav_sr2_Image* img, uint32_t seed) {
    std::mt19937 rng(seed);
    fill(img, [&](int32_t, int32_t) { return (uint8_t)(rng() & 0xFF); });
}

inline std::vector<uint8_t> pixels(const tav_sr2_Image* img) {
    std::vector<uint8_t> out;
    for (int32_t y = 0; y < img->height; ++y) {
        const uint8_t* row = img->plane[0] + (int64_t)y * img->pitch[0];
        out.insert(out.end(), row, row + img->width);
    }
    return out;
}

}  // namespace tav_align_test
