// tav_sr2_Enhance_run: the sharpening stage of a run, in place on the luma of the merged frame.
//
// First a per-pixel weight (UINT8, Q7) from the ghost accumulation: where fewer frames merged the
// weight falls towards unsharp_4ghost_ratio, so that the noisier single-frame areas are sharpened
// less; and, when do_unsharp_rate_for_skin is below 1, from a skin likelihood of the frame's
// colours, so that skin is sharpened by that rate. Any failure on the way leaves a flat weight of
// 128. Then one of four paths by unsharp_method, each a band pass of the luma at gain do_unsharp:
//   0: the 5-tap sharpen straight into the luma (sigmas times the internal zoom, coring 1);
//   1: a 7-tap high pass (sigmas swapped and scaled, coring 0.5) smoothed twice and added by the
//      detail boost (10-bit frames: unweighted, then also added plainly);
//   2: a 7-tap high pass (sigmas as tuned; swapped on 10 bits), cleaned (8-bit: the Haar-split
//      denoise with the noise map; 10-bit: a 3-window guided filter when unsharp_noise_level is
//      set, and above 4x zoom outside super zoom a blur and an opening), added within the local
//      3 x 3 range of the unsharpened luma (8-bit: plainly);
//   3: as 2 with the soft overshoot add (a change above 40 codes mixed back by the edge levels).
//
// Frames 48, 49, 52 and 53; a plain UINT16 luma for method 0 only. Returns 0 or the first failing
// kernel's status as the paths report them, TAV_ERROR_UNSUPPORTED for a method above 3 or another
// format, TAV_ERROR_PARAM for a null argument.
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "foundation/image.h"

// What the stage reads of the engine.
struct tav_sr2_EnhanceInputs {
    tav_sr2_ImageCtx ctx;
    const tav_sr2_Image* weight_sum;  // UINT16, 128 per merged frame; null or empty: no ghost term
    const tav_sr2_Image* nr_map;      // UINT8 noise map; null or empty: none
    int32_t accum_num;                // frames merged
    int32_t frame_count;              // frames of the run
    int32_t do_unsharp;               // gain, 256 = 1.0 on the 10-bit paths
    int32_t unsharp_method;
    double unsharp_sigma;
    double unsharp_sigma2;
    double unsharp_noise_level;
    double unsharp_4ghost_ratio;
    double do_unsharp_rate_for_skin;
    double internal_zoom_ratio;
    double zoom_ratio;
    float white_edge_level;
    float black_edge_level;
    int32_t super_zoom;  // the output is larger than the internal frame both ways
};

uint32_t tav_sr2_Enhance_run(const tav_sr2_EnhanceInputs* in, tav_sr2_Image* image);

// The sharpening weight alone (the first half of the stage) into `weight` (UINT8, the frame's
// size): 0, or the status of the step that failed (the weight is then as that step left it).
uint32_t tav_sr2_Enhance_weight(const tav_sr2_EnhanceInputs* in, const tav_sr2_Image* image,
                                tav_sr2_Image* weight);
