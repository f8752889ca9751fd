// Reads a PNG photograph into a grey plane (BT.601 luma, 8 bits), for tests on real pictures.
#pragma once

#include <string>
#include <vector>

#include "tests/alignment/scene_util.h"
#include "tests/common/png_rgb.h"

namespace tav_scene {

using tav_png::sharedData;

inline bool readPngLuma(const std::string& path, Plane* out) {
    std::vector<uint8_t> rgb;
    int32_t width = 0;
    int32_t height = 0;
    if (!tav_png::readPngRgb(path, &rgb, &width, &height)) return false;
    *out = flatPlane(width, height, 0);
    for (size_t i = 0; i < out->px.size(); ++i) {
        const uint8_t* p = &rgb[3 * i];
        out->px[i] = (uint8_t)((77 * p[0] + 150 * p[1] + 29 * p[2] + 128) >> 8);
    }
    return true;
}

}  // namespace tav_scene
