// One burst through the library's public interface, as a host drives it: init, tuning, faces,
// frames, process, uninit. Shared by tavrin-sr and the evaluator's single-frame baseline.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "tavrin_keld.h"
#include "tools/imageio/image_io.h"

namespace tsr {

struct BurstRequest {
    std::vector<tavio::RawFrame*> frames;  // one size and format; the library reads them only
    int32_t output_width = 0;
    int32_t output_height = 0;
    float zoom_ratio = 0.0f;         // 0: the library derives it from the sizes and rect
    int32_t rect[4] = {0, 0, 0, 0};  // x0, y0, x1, y1; x0 == x1: the whole frame
    int32_t iso = 100;
    std::vector<int32_t> exposures;  // one per frame, microseconds
    int32_t base = -1;               // the frame marked as base, or -1
    std::vector<tavrin_KELD_Rect> faces;
    std::string params_file;  // the tuning file, or empty for none
    std::string cache_dir;    // folder of the GPU program cache
    int32_t camera_id = 0;
};

struct BurstResult {
    uint32_t status = TAV_OK;
    std::string failed_call;      // the public function that failed, when one did
    bool output_written = false;  // the run changed the output buffer
    int32_t base_id = -1;
    int32_t merge_num = 0;
    double process_ms = 0.0;  // TavrinKELD_process alone
    double total_ms = 0.0;    // init to uninit
    std::string tuning_note;  // why the tuning file gave no row, when it did not
    tavio::RawFrame output;   // Nv12, or Nv21 for Nv21 frames; 8 bits
};

// Runs the burst. True when every call succeeded and the output buffer was written. A run the
// library could not carry out inside TavrinKELD_process still reports TAV_OK there; it shows
// here as output_written false. The output buffer is filled with a fixed pseudo-random pattern
// before the run for that purpose.
bool runBurst(const BurstRequest& request, BurstResult* result);

// "TAV_OK", "TAV_ERROR_PARAM", ...; other values as "0x%08X".
std::string statusName(uint32_t status);
// The library's format code of a frame format: 48, 49 or 62.
int32_t formatCode(tavio::RawFormat format);

// What the library will refuse in this geometry, checked by its own rules before a run, so that
// a refusal deep inside the run can be named: odd sizes, an output smaller than the frame, a
// ratio outside 1..30, an output the ratio cannot reach, a zoom window off the frame. Empty when
// the geometry is accepted.
std::string geometryProblem(int32_t width, int32_t height, int32_t output_width,
                            int32_t output_height, const int32_t rect[4], float zoom_ratio);

// Output size from an enlargement of a window of window_w x window_h: trunc(zoom * size) rounded
// down to even, then lowered by 2 while the ratio the library derives from it would not reach it
// in float arithmetic (which happens for some fractional ratios).
void outputForZoom(int32_t width, int32_t height, const int32_t rect[4], double zoom,
                   int32_t* output_width, int32_t* output_height);

// The sample tuning file data/params/tavrin_keld_params_sample.xml, looked for beside the
// executable (../share/tavrin/params, ../data/params, ../../data/params) and in the source
// tree; empty when none is readable.
std::string findDefaultParams();
// $XDG_CACHE_HOME/tavrin-keld, else $HOME/.cache/tavrin-keld, else /tmp/tavrin-keld-UID.
std::string defaultCacheDir();
// mkdir -p.
bool makeFolders(const std::string& path, std::string* error);

}  // namespace tsr
