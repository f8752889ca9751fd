// The container codecs behind readImage and writeImage, on open files.
#pragma once

#include <stdio.h>

#include <string>

#include "tools/imageio/image_io.h"

namespace tavio {

bool readPngFile(FILE* file, RgbImage* image, std::string* error);
bool writePngFile(FILE* file, const RgbImage& image, std::string* error);
bool readJpegFile(FILE* file, RgbImage* image, std::string* error);
bool writeJpegFile(FILE* file, const RgbImage& image, int32_t quality, std::string* error);
// "WHAT PATH: strerror(errno)".
std::string systemError(const std::string& what, const std::string& path);

}  // namespace tavio
