// The two luma noise reducers of the merged frame, both built on the guided filter.
//
// multiscale_ynr(engine, image, noise_map, hfe_level, ynr_low_eps, ynr_high_eps): splits the luma
//   into up to three pyramid levels (one below 64 pixels on a side, two below 128, else three;
//   each level half the one below, cut to multiples of 4) and the biased detail band between
//   each level and the next. Going up, each level's low band is filtered with the noise map
//   (eps = level^2: ynr_low_eps, / 2, / 4 at windows 41, 21, 5, top level first and level 0
//   last), the detail band below it too (ynr_high_eps, / 2 at window 3), and the level below is
//   rebuilt from both with the detail gain hfe_level (Q7, 128 is unity):
//     8-bit:  out = (((Hh - 128) hfe_level) >> 7) + ((6 L + 10 U) >> 4), limited to 0..255;
//     10-bit: d = Hh - 512, g = hfe_thr when |d| < 4 else hfe_level,
//             out = ((64 + clamp(d, hfe_black_level, hfe_white_level) g) >> 7)
//                   + ((3 L + 13 U + 8) >> 4), limited to 0..1023;
//   with L the level's own low band, U the filtered level above enlarged, Hh the detail band.
//   Frames 48 and 49 (8-bit) or 52 and 53 (10-bit); others are left alone with 0. A failing
//   allocation of the pyramid ends the stage with its status and the frame unchanged; a filter
//   that fails leaves its band as it came and the rebuild goes on.
// tav_sr2_ynr_filter(engine, source, destination, noise_map, window, level): one guided filter
//   of the destination's class with eps = level^2, the noise variant when noise_map is set.
// dark_light_nr(engine, image, window, eps, twice): the plain guided filter of the frame's luma
//   in place (eps used as it is), a second time when `twice`. Errors are not reported: the frame
//   is as the last pass that succeeded left it.
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "foundation/image.h"

// What the luma reducers take from the engine: its pool and workers, and the clip and small-detail
// gain of the 10-bit rebuild.
struct tav_sr2_NrEngine {
    tav_sr2_ImageCtx ctx;
    int32_t hfe_white_level;  // at least 0
    int32_t hfe_black_level;  // at most 0
    int32_t hfe_thr;          // gain of details below 4 codes, Q7
};

uint32_t multiscale_ynr(const tav_sr2_NrEngine* engine, tav_sr2_Image* image,
                        const tav_sr2_Image* noise_map, int32_t hfe_level, float ynr_low_eps,
                        float ynr_high_eps);
// The same for 10-bit frames (52, 53).
uint32_t multiscale_ynr_16(const tav_sr2_NrEngine* engine, tav_sr2_Image* image,
                           const tav_sr2_Image* noise_map, int32_t hfe_level, float ynr_low_eps,
                           float ynr_high_eps);
// Picks the form by the frame's format.
uint32_t tav_sr2_ynr_dispatch(const tav_sr2_NrEngine* engine, tav_sr2_Image* image,
                              const tav_sr2_Image* noise_map, int32_t hfe_level, float low,
                              float high);
uint32_t tav_sr2_ynr_filter(const tav_sr2_NrEngine* engine, const tav_sr2_Image* source,
                            tav_sr2_Image* destination, const tav_sr2_Image* noise_map,
                            int32_t window, float level);

void dark_light_nr(const tav_sr2_NrEngine* engine, tav_sr2_Image* image, int32_t window, float eps,
                   bool twice);
