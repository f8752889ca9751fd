// Frames for tests that run whole bursts, shared by the white-box and the black-box test
// binaries: format 48 (luma, then interleaved chroma at half height) in memory the test owns.
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <vector>

#include "../../src/tavrin_keld.h"

namespace keld_test {

struct Frame {
    int32_t width, height, pitch;
    std::vector<uint8_t> pixels;

    Frame(int32_t w, int32_t h, uint8_t fill) : width(w), height(h), pitch(w) {
        pixels.assign(size_t(pitch) * h * 3 / 2, fill);
    }
    // A textured scene moved by (dx, dy): smooth gradients with a few sharp edges.
    static Frame scene(int32_t w, int32_t h, int32_t dx, int32_t dy) {
        Frame f(w, h, 128);
        for (int32_t y = 0; y < h; y++) {
            for (int32_t x = 0; x < w; x++) {
                const int32_t sx = x + dx, sy = y + dy;
                int32_t v = 40 + (sx * 3 + sy * 2) % 150;
                if (((sx / 24) + (sy / 24)) % 2 == 0) v += 50;
                f.pixels[size_t(y) * w + x] = uint8_t(std::min(v, 255));
            }
        }
        return f;
    }
    tavrin_KELD_Image image() {
        return {width,   height, pixels.data(), pixels.data() + size_t(pitch) * height,
                nullptr, pitch,  pitch,         0};
    }
};

// Mean absolute difference of the first n bytes.
inline double meanAbsDiff(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b, size_t n) {
    double sum = 0;
    for (size_t i = 0; i < n; i++)
        sum += abs(int(a[i]) - int(b[i]));
    return sum / double(n);
}

}  // namespace keld_test
