// The command line of tavrin-sr.
#pragma once

#include <stdint.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "tools/imageio/image_io.h"

namespace tsr {

struct CliOptions {
    std::vector<std::string> frames;
    std::string output;
    bool help = false;
    bool version = false;
    bool verbose = false;
    // Raw frames
    int32_t raw_width = 0;  // --size; 0 when not given
    int32_t raw_height = 0;
    tavio::RawFormat format = tavio::RawFormat::Nv12;
    // Geometry; 0 where not given
    double zoom = 0.0;
    int32_t output_width = 0;
    int32_t output_height = 0;
    bool have_rect = false;
    int32_t rect[4] = {0, 0, 0, 0};
    // Capture
    int32_t iso = 100;
    std::vector<int32_t> exposures;  // empty: 10000 for every frame
    int32_t base = -1;
    std::vector<std::array<int32_t, 4>> faces;
    std::string params;  // empty: the sample tuning file
    std::string cache_dir;
    int32_t camera_id = 0;
    int32_t threads = 0;  // 0: the library's choice
    int32_t jpeg_quality = 95;
    int32_t png_level = tavio::kPngDefaultLevel;  // zlib level of a PNG output
    std::vector<std::pair<std::string, std::string>> props;
};

// Fills `options` from argv. False with a one-line `error` for an unknown option, a missing or
// malformed value, or settings that contradict each other; checks that need the frames (sizes,
// the base index against the frame count) come later.
bool parseCommandLine(int argc, char** argv, CliOptions* options, std::string* error);

// The --help text.
const char* usageText();

}  // namespace tsr
