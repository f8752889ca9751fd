// tav_sr2_MotionEstimator: the sparse coarse-to-fine tracker behind frame alignment.
//
// On the reference image it builds a pyramid of "UINT8" levels, detects corners on every level
// and turns them into templates. On each later image it builds the same pyramid, finds a first
// translation by block search on the top level, then follows the templates from the coarsest
// tracked level down to level 0, fitting a homography on each level. `current` carries the
// result, in level 0 coordinates, from one image to the next.
//
// Lifecycle: init (state 0) -> configure (state 1) -> setReference (state 2) -> estimate ... ->
// finish. A new configure starts over; finish is safe on a half-built record.
#pragma once

#include <stdint.h>

#include "alignment/templates.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/status.h"
#include "foundation/thread_pool.h"
#include "foundation/trans2d.h"

struct tav_sr2_MotionModel;

static const int32_t TAV_SR2_ESTIMATOR_UNCONFIGURED = 0;
static const int32_t TAV_SR2_ESTIMATOR_CONFIGURED = 1;
static const int32_t TAV_SR2_ESTIMATOR_READY = 2;  // reference set

// Statistics kept per level in `level_stats` (see tav_sr2_MotionModel_fitLevel).
static const int32_t TAV_SR2_LEVEL_STATS = 3;

struct tav_sr2_MotionEstimator {
    int32_t width;  // size given to configure
    int32_t height;
    int32_t scale_step;      // integer reduction from the input to level 0; < 1: computed
    int32_t level_count;     // pyramid levels; < 1: computed
    int32_t max_pixels;      // area bound that scale_step is computed from
    int32_t min_top_pixels;  // the computed top level's area is below this
    int32_t feature_count;   // corners kept per level
    int32_t motion_model;    // kind of tav_sr2_MotionModel
    int32_t reset_each_frame;
    int32_t fit_method;
    int32_t block_search;  // 0 none; > 0 search the top level; < 0 no search, top level tracked
    int32_t template_mode;
    int32_t block_search_chain;  // search against the previous image's top level
    int32_t roi_x0;              // region of the input; an empty one means the whole image
    int32_t roi_y0;
    int32_t roi_x1;
    int32_t roi_y1;
    int32_t block_search_range;  // Q15 fraction of the smaller top level side
    int32_t track_radius;        // gradient templates, level pixels
    int32_t track_radius_pixel;  // pixel templates, level pixels
    tav_sr2_Image* ref_pyramid;  // level_count images each
    tav_sr2_Image* cur_pyramid;
    tav_sr2_Image prev_top;       // the latest top level
    tav_sr2_MotionModel* models;  // one per level
    double field_of_view;         // degrees, rotation models only
    int32_t block_fail_level;     // block search confidence at or above this fails
    int32_t min_mean_score;
    int32_t state;                   // TAV_SR2_ESTIMATOR_*
    uint32_t status;                 // TAV_ALIGN_* bits of the latest run
    int32_t* level_stats;            // TAV_SR2_LEVEL_STATS per level
    tav_sr2_TemplateSet* templates;  // one per level
    uint32_t rng_state;
    tav_sr2_Trans2D current;  // running estimate, level 0 coordinates
    int32_t refine_enable;    // extra pass on the undivided input: not built, ignored
    int32_t refine_template_mode;
    int32_t normalize_level0;         // histogram equalisation of level 0: not built, ignored
    int32_t use_level_lut;            // grey level table of the top level: not built, ignored
    tav_sr2_ThreadPool* thread_pool;  // row jobs; null: everything on the caller
    tav_sr2_Trans2D* level_start;     // per level, the transform on entry
    tav_sr2_Trans2D* level_result;    // per level, the transform on exit
    double inlier_ratio;
    int32_t inlier_threshold;
    tav_sr2_MemPool* pool;
};

// Clears the record to its defaults and binds the pool. TAV_ERROR_PARAM for a null record.
uint32_t tav_sr2_MotionEstimator_init(tav_sr2_MotionEstimator* est, tav_sr2_MemPool* pool);
// Sizes the object for input images of width x height. Status bits of the calls inside, with
// TAV_ERROR_MALLOC added when an allocation fails (everything is released then).
uint32_t tav_sr2_MotionEstimator_configure(tav_sr2_MotionEstimator* est, int32_t width,
                                           int32_t height);
// Builds the reference pyramid, its corners and templates. The image is a "UINT8" image of the
// configured size and is only read. TAV_ERROR_STATE before configure.
uint32_t tav_sr2_MotionEstimator_setReference(tav_sr2_MotionEstimator* est,
                                              const tav_sr2_Image* image);
// Tracks the reference into `image` (null: reuse the current pyramid) and updates `current`;
// quality flags go to `status`, not to the result. TAV_ERROR_PARAM for a null record,
// TAV_ERROR_STATE without a reference.
uint32_t tav_sr2_MotionEstimator_estimate(tav_sr2_MotionEstimator* est, const tav_sr2_Image* image);
// `current` in input coordinates, normalised. TAV_ERROR_STATE before configure.
uint32_t tav_sr2_MotionEstimator_getResult(const tav_sr2_MotionEstimator* est,
                                           tav_sr2_Trans2D* out);
// Releases every level and clears the record (state 0, pool kept). Safe on a half-built record.
uint32_t tav_sr2_MotionEstimator_finish(tav_sr2_MotionEstimator* est);

// Shared by the estimator's files: brings a transform `levels` levels coarser (> 0) or finer
// (< 0): m2, m5 halve and m6, m7 double per coarser level.
void tav_sr2_MotionEstimator_changeLevel(tav_sr2_Trans2D* t, int32_t levels);
