// The manifest of a synthetic burst: a text file, one setting or record per line, "#" starts a
// comment. Numbers are written with 17 significant digits, so they read back exactly.
//
//   format tavrin-burst 1
//   source PATH                     the photograph
//   seed N
//   factor D                        scene pixels per frame pixel
//   zoom Z                          output size over frame size
//   origin X Y                      scene pixel of the frame region's top-left corner
//   frame_size W H
//   truth_size W H
//   truth FILE
//   base I                          the frame whose view the truth shows
//   iso N
//   exposure N                      microseconds, the same for every frame
//   noise GAIN READ                 variance = GAIN * level + READ^2, 8-bit units
//   depth 8|16
//   supersample N
//   limits SHIFT ROTATE SCALE KEYSTONE
//   frame I FILE H00 H01 H02 H10 H11 H12 H20 H21 H22   maps base-frame to frame-I coordinates
//   motion I DX DY ANGLE_DEG SCALE KX KY
//   ghost I SIZE SRC_X SRC_Y X0 Y0 VX VY
//
// File names are relative to the manifest's folder.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "tools/toolkit/burst.h"

namespace tavtool {

struct ManifestFrame {
    std::string file;
    Homography h = homographyIdentity();
    Motion motion;
};

struct Manifest {
    std::string source;
    uint64_t seed = 0;
    int32_t factor = 1;
    double zoom = 1.0;
    int32_t origin_x = 0, origin_y = 0;
    int32_t frame_width = 0, frame_height = 0;
    int32_t truth_width = 0, truth_height = 0;
    std::string truth;
    int32_t base = 0;
    int32_t iso = 100;
    int32_t exposure = 10000;
    NoiseModel noise;
    int32_t depth = 8;
    int32_t supersample = 1;
    double limits[4] = {0, 0, 0, 0};
    std::vector<ManifestFrame> frames;
    std::vector<GhostPatch> ghosts;
};

// The manifest of `burst`, whose frames are `frame_files` and truth `truth_file`.
Manifest manifestOf(const Burst& burst, const std::string& source,
                    const std::vector<std::string>& frame_files, const std::string& truth_file,
                    int32_t exposure);
bool writeManifest(const std::string& path, const Manifest& manifest, std::string* error);
// Fails, naming the line, on a malformed or missing record; unknown keys are skipped.
bool readManifest(const std::string& path, Manifest* manifest, std::string* error);
// A file named in the manifest at `manifest_path`, as a path from the working folder.
std::string manifestFile(const std::string& manifest_path, const std::string& file);

}  // namespace tavtool
