// The steps of tav_sr2_Pipeline_process, shared between its files: the plan of a run, the
// images (step 1), the merge (step 2), the improvement stages (3 to 12) and the output (13 to
// 15). Engine-internal.
#pragma once

#include <stdint.h>

#include "engine/pipeline.h"
#include "enhance/image_ctx.h"

// Which branches and stages a run takes, decided once from the tuning and the geometry.
struct tav_sr2_StagePlan {
    int32_t gpu_merge;           // merge on the GPU (use_16bit); else on the CPU
    int32_t super_zoom;          // output larger than the frames in both dimensions
    int32_t zoomed;              // |1 - internal_zoom_ratio| above 1e-5: the merge enlarges
    int32_t dark_light_early;    // dark_light_nr_enable: stage 3, else stage 11
    int32_t dark_light_runs;     // runs of dark_light_nr; 0 while its filter is off
    int32_t dark_light_twice;    // each run filters a second time
    int32_t multiscale_ynr;      // stage 4
    int32_t chroma_nr_passes;    // stage 5
    int32_t chroma_clip;         // stage 6
    int32_t hf_chroma_nr;        // stage 7
    int32_t unsharp;             // stage 8
    int32_t contrast;            // stage 9
    int32_t structure;           // stage 10
    int32_t plain_luma_scaling;  // step 15 scales luma by the plain resize, not the upscaler
    int32_t dither_output;       // step 15 dithers the scaled output
};

void tav_sr2_Pipeline_planStages(const tav_sr2_Pipeline* self, tav_sr2_StagePlan* plan);

// The pool, workers and scheduler the pipeline borrows, as the image operators take them.
tav_sr2_ImageCtx tav_sr2_Pipeline_imageCtx(const tav_sr2_Pipeline* self);

// Releases the pixels of one of the pipeline's images and keeps the record bound to the pool.
uint32_t tav_sr2_Pipeline_releaseImage(tav_sr2_Pipeline* self, tav_sr2_Image* image);

// Luma and chroma of a semi-planar frame (48, 49, 52 or 53) resized plane by plane from src's
// size to dst's, luma first or chroma first. Both of one format.
uint32_t tav_sr2_resizeFramePlanes(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src, bool chroma_first);

// Step 1: accum_image (and merge8_image for the CPU merge of 8-bit frames) at the internal size,
// in the format the first frame decides. TAV_ERROR_UNSUPPORTED for a first frame that is not 48,
// 49, 52 or 53; the failure of an allocation.
uint32_t tav_sr2_Pipeline_prepareImages(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan);
// Step 2: the frames of frame_order merged into accum_image; accum_num counts them. The status
// is the first failure, which ends the step; what was merged by then stays.
uint32_t tav_sr2_Pipeline_mergeFrames(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan);
// Stages 3 to 12 in place on accum_image, with the time checks between them. Returns whether the
// run passed its limit; the stages after that check are then skipped.
bool tav_sr2_Pipeline_improve(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan);
// The grain of stage 12 and of the final scaling on a frame of the run (48, 49, 52, 53) with the
// run's dither settings: its status.
uint32_t tav_sr2_Pipeline_dither(tav_sr2_Pipeline* self, tav_sr2_Image* frame);
// Steps 13 to 15: the window of accum_image that the well-aligned frames cover, scaled into the
// output. The status is the first failure, which ends the step.
uint32_t tav_sr2_Pipeline_writeOutput(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan);

// table[j] = trunc(clamp(256 / (exp(slope * max(0, j - offset)) + 1), 0, 128)): full weight 128
// up to the offset, then a logistic fall.
void tav_sr2_fillWeightTable(uint8_t* table, double slope, double offset);

// The faces for the face map of the base view (view_width x view_height, at clip_rect): each
// internal face made relative to clip_rect, clamped to the view and scaled to the face map size,
// logged as "render_face_rect  [...]" and "face_trans2D_rect  [...]". Returns the count.
int32_t tav_sr2_Pipeline_faceMapRects(const tav_sr2_Pipeline* self, int32_t view_width,
                                      int32_t view_height, tav_sr2_Rect* rects);
