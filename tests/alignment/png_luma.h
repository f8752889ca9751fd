// Reads a PNG photograph into a grey plane (BT.601 luma, 8 bits), for tests on real pictures.
#pragma once

#include <png.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "tests/alignment/scene_util.h"

namespace tav_scene {

// The folder of the shared test photographs, or "" when the environment does not name one.
inline std::string sharedData() {
    const char* dir = getenv("TAVRIN_SHARED_DATA");
    return dir ? std::string(dir) : std::string();
}

inline bool readPngLuma(const std::string& path, Plane* out) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return false;
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> rgb(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr)) {
        png_image_free(&image);
        return false;
    }
    *out = flatPlane((int32_t)image.width, (int32_t)image.height, 0);
    for (size_t i = 0; i < out->px.size(); ++i) {
        const uint8_t* p = &rgb[3 * i];
        out->px[i] = (uint8_t)((77 * p[0] + 150 * p[1] + 29 * p[2] + 128) >> 8);
    }
    return true;
}

}  // namespace tav_scene
