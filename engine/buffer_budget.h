// The buffer budget: how many bytes the caller's work buffer must have for one run.
//
// Stages run one after another, so their needs combine by maximum; what lives through the whole
// run (the GPU context, the quarter-size maps, the merge target) is added. A factor of 1.1 on the
// total is the only margin.
#pragma once

#include <stdint.h>

#include "engine/sr_params.h"

// Every term of the pipeline's budget, in bytes, under the names of its log lines.
struct tav_sr2_BufferBudget {
    int64_t init_size;
    int64_t align_size;
    int64_t merge_size;
    int64_t nr_size;
    int64_t gf_size;
    int64_t unsharp_size;
    int64_t enhance_size;
    int64_t lc_size;
    int64_t clip_size;
    int64_t local_size;
    int64_t tot_size;
    int64_t pipeline_size;  // tot_size * 1.1, truncated
};

// Fixed parts of the budget.
static const int64_t TAV_SR2_BUDGET_FIXED_BYTES = 103424;
static const int64_t TAV_SR2_BUDGET_BYTES_PER_TEXTURE = 200;
static const double TAV_SR2_BUDGET_MARGIN = 1.1;
// A pool block's tags and its 16-byte alignment, for each plane of a frame held in the pool.
static const int64_t TAV_SR2_BUDGET_BLOCK_SLACK = 64;
// The thread pool as the engine starts it: threads, queue size, argument size, jobs.
static const int32_t TAV_SR2_ENGINE_POOL_THREADS = 64;
static const int32_t TAV_SR2_ENGINE_POOL_QUEUE = 64;
static const int32_t TAV_SR2_ENGINE_POOL_ARG_BYTES = 64;
static const int32_t TAV_SR2_ENGINE_POOL_JOBS = 64;

// Super zoom: the output is larger than the frame in both dimensions.
int tav_sr2_isSuperZoom(int32_t width, int32_t height, int32_t output_width, int32_t output_height);

// The tuning of a run before any parameter is set: the defaults, the output size, the zoom, and
// the internal zoom (zoom / 2 limited to 1.0..1.5, or 1.0 in super zoom).
void tav_sr2_setRunTuning(sr_tunning_param* tuning, int32_t width, int32_t height,
                          int32_t output_width, int32_t output_height, float zoom_ratio);

// Fills every term for a crop of clip_width x clip_height. The output size, zoom, internal zoom
// and the switches that select a stage's form come from tuning.
void tav_sr2_BufferBudget_compute(int32_t clip_width, int32_t clip_height, int32_t merge_num,
                                  int32_t format, int super_zoom, const sr_tunning_param* tuning,
                                  tav_sr2_BufferBudget* budget);

// The pipeline's share of the buffer, with each term logged under its name; 0 when it does not
// fit an i32.
int32_t tav_sr2_Pipeline_bufferSize(int32_t clip_width, int32_t clip_height, int32_t merge_num,
                                    int32_t format, int super_zoom, const sr_tunning_param* tuning);

// Bytes the work buffer must have for tav_sr2_init with the same arguments; 0 for an odd or
// non-positive size, a zoom below 1, or a total beyond the i32 range.
int32_t tav_sr2_getBufferSize(int32_t width, int32_t height, int32_t output_width,
                              int32_t output_height, int32_t max_image_num, int32_t merge_num,
                              const char* format_name, float zoom_ratio);
