// The shared test photographs: where they are, and a PNG file read into 8-bit RGB with libpng's
// simplified API (tavrin_tests links libpng).
#pragma once

#include <png.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>
#include <vector>

namespace tav_png {

// The folder of the shared test data, or "" when the environment does not name one.
inline std::string sharedData() {
    const char* dir = getenv("TAVRIN_SHARED_DATA");
    return dir != nullptr ? std::string(dir) : std::string();
}

// Interleaved R, G, B bytes, row after row; false when the file cannot be read as a PNG.
inline bool readPngRgb(const std::string& path, std::vector<uint8_t>* rgb, int32_t* width,
                       int32_t* height) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return false;
    image.format = PNG_FORMAT_RGB;
    rgb->assign(PNG_IMAGE_SIZE(image), 0);
    if (!png_image_finish_read(&image, nullptr, rgb->data(), 0, nullptr)) {
        png_image_free(&image);
        return false;
    }
    *width = (int32_t)image.width;
    *height = (int32_t)image.height;
    return true;
}

}  // namespace tav_png
