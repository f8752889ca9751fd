// tav_sr2_Pipeline: the orchestrator of one run, placed inside tav_sr2_Engine.
//
// It borrows the engine's pool, task system and thread pool, and holds the geometry of the run
// (crop, area of interest, output), the frames taken in with their scores and transforms, the
// tuning copy taken at start, and the images of the run. Log texts call it `self`.
#pragma once

#include <stdint.h>

#include "engine/sr_params.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/status.h"
#include "foundation/stopwatch.h"
#include "merge/ghost.h"
#include "merge/upscaler.h"

struct tav_sr2_TaskSys;
struct tav_sr2_ThreadPool;

static const int32_t TAV_SR2_PIPELINE_FRAMES = 12;
static const int32_t TAV_SR2_MAX_FACES = 5;

struct tav_sr2_Pipeline {
    tav_sr2_MemPool* pool;  // borrowed from the engine
    tav_sr2_TaskSys* task_sys;
    tav_sr2_ThreadPool* thread_pool;
    tav_sr2_Ghost ghost;        // the ghost map of the merge step
    tav_sr2_Upscaler upscaler;  // the pattern upscaler and resampler, set up by start
    // The row-kernel and GPU render contexts follow here, each added with the object it holds.

    int32_t clip_width;  // the work crop the frames are cut to
    int32_t clip_height;
    int32_t output_width;  // requested output, or the crop size when the tuning gives none
    int32_t output_height;
    int32_t input_width;  // frames as the host gives them
    int32_t input_height;
    int32_t center_x;  // zoom centre in crop coordinates
    int32_t center_y;
    int32_t aligned_width;  // area of interest: multiples of 8
    int32_t aligned_height;
    int32_t quarter_width;  // aligned size / 4
    int32_t quarter_height;
    tav_sr2_Rect clip_rect;          // the area of interest inside the crop
    tav_sr2_Rect zoom_rect_in_clip;  // the exact window the zoom asks for

    int32_t max_image_num;  // image slots
    int32_t merge_cap;      // most frames that may be merged
    int32_t frame_count;    // frames added, later frames selected (image_num in the log)
    int32_t accum_num;      // frames merged so far in this run
    int32_t align_fail_count;

    sr_tunning_param tuning;  // the copy taken at start

    tav_sr2_Image images[TAV_SR2_PIPELINE_FRAMES];        // views of the intake frames
    tav_sr2_Image* output;                                // borrowed: the engine's output image
    double align_transforms[TAV_SR2_PIPELINE_FRAMES][9];  // row-major 3x3
    uint32_t align_status[TAV_SR2_PIPELINE_FRAMES];       // 0: good alignment
    int32_t sharpness[TAV_SR2_PIPELINE_FRAMES];
    float brightness[TAV_SR2_PIPELINE_FRAMES];
    int32_t frame_order[TAV_SR2_PIPELINE_FRAMES];  // indices into images, base frame first
    int32_t order_ready;
    uint8_t weight_table[256];
    uint8_t weight_table_face[256];
    int32_t restart_pending;  // the next frame taken in resets the run

    // Images of a run. weight_sum and face_mask live from start to finish, the others are made
    // and released by the stages of a run.
    tav_sr2_Image accum_image;
    tav_sr2_Image merge8_image;
    tav_sr2_Image nr_map;
    tav_sr2_Image weight_sum;  // UINT16, (quarter size - 2), 128 per fully trusted frame
    tav_sr2_Image ghost_quarter;
    tav_sr2_Image coef_quarter[2];
    tav_sr2_Image face_mask;  // UINT8, the size of weight_sum; 0 is no face

    // Faces after filtering, in crop coordinates; the engine fills them.
    tav_sr2_Rect internal_face_rects[TAV_SR2_MAX_FACES];
    int32_t internal_face_num;

    // Times one tav_sr2_Pipeline_process against the run limit; its block lives only during it.
    tav_sr2_Stopwatch run_timer;
};

// Clears the record, binds the borrowed objects and binds every image record to the pool.
uint32_t tav_sr2_Pipeline_init(tav_sr2_Pipeline* self, tav_sr2_MemPool* pool,
                               tav_sr2_TaskSys* task_sys, tav_sr2_ThreadPool* thread_pool);
// Releases every image the pipeline owns and clears the record. The first failure of a release
// is returned and the rest are still released.
uint32_t tav_sr2_Pipeline_finish(tav_sr2_Pipeline* self);
void tav_sr2_Pipeline_setInputSize(tav_sr2_Pipeline* self, int32_t width, int32_t height);

// Prepares a run on a crop of clip_width x clip_height with the zoom centre (center_x, center_y)
// in crop coordinates: copies the tuning, resets the run, computes the zoom window and the area
// of interest, allocates weight_sum and face_mask, and prints the tuning. TAV_ERROR_PARAM for an
// area of interest too small for the quarter-size maps; TAV_ERROR_MALLOC when the pool is short.
uint32_t tav_sr2_Pipeline_start(tav_sr2_Pipeline* self, int32_t clip_width, int32_t clip_height,
                                int32_t max_image_num, int32_t merge_num, int32_t center_x,
                                int32_t center_y, const sr_tunning_param* tuning);

// The kernel and banks the upscale context is set up with at start: the cubic (B 0.2, C 0.4) for
// the GPU merge at fast_merge_mode 0, the Lanczos form otherwise; the bank blend and its integer
// weight out of 256; the pattern threshold.
struct tav_sr2_UpscalePreset {
    int32_t kernel_mode;  // 0 cubic, 2 Lanczos 2
    double kernel_b;
    double kernel_c;
    double bank_mix;      // upscale_bank_mix
    int32_t bank_weight;  // trunc(512 * bank_mix), out of 256
    int32_t threshold;    // max(trunc(noise_level), 8)
};
void tav_sr2_Pipeline_upscalePreset(const sr_tunning_param* tuning, tav_sr2_UpscalePreset* preset);

// The GPU context's deblur_weight for this tuning: deblur_psf * 2.78 when deblur_psf is above
// 1e-6, else 0 (the context's default, which leaves the coefficient texture out).
float tav_sr2_Pipeline_deblurWeight(const sr_tunning_param* tuning);

// Row parameter (texture slots) the GPU context is prepared with.
static const int32_t TAV_SR2_PIPELINE_GPU_ROWS = 24;

// The main loop of a run, on the frames taken in, ordered and aligned: merges them into
// accum_image at the internal size, improves that in place and scales its valid window into the
// output. TAV_ERROR_PARAM without a record or an output; TAV_ERROR_UNSUPPORTED when the first
// frame is not a semi-planar 8- or 10-bit frame; TAV_ERROR_MALLOC when the run's timer or
// images cannot be had; TAV_ERROR_TIMEOUT when the run passed its limit (the output is written
// all the same). Failures of the stages after the images are dropped. Every return sets
// restart_pending.
uint32_t tav_sr2_Pipeline_process(tav_sr2_Pipeline* self);
// The image the run writes to; borrowed. Never fails.
uint32_t tav_sr2_Pipeline_setOutput(tav_sr2_Pipeline* self, tav_sr2_Image* image);

// The size frames are merged at: internal_zoom_ratio times the area of interest, truncated, the
// lowest bit cleared.
void tav_sr2_Pipeline_internalSize(const tav_sr2_Pipeline* self, int32_t* width, int32_t* height);
