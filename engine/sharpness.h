// The two scores frame choice needs: the sharpness of a frame (band energy of its luma) and its
// mean brightness.
#pragma once

#include <stdint.h>

#include "engine/sharpness_rows.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"

// Most row bands the sharpness measure is cut into.
static const int32_t TAV_SR2_SHARPNESS_MAX_BANDS = 32;
// Partial sums of the brightness row job.
static const int32_t TAV_SR2_BRIGHTNESS_PARTIALS = 8;

// Sum over the pixels of a "UINT8" image of |blur_a - blur_b|, the two blurs being the seven-tap
// kernels of sigma_a and sigma_b (tav_sr2_SharpKernel_make). Larger means sharper. Rows are cut
// into at most 32 bands by the worker count of `threads` (null: one band on the caller), one job
// per band; each band needs two rings of 8 rows of 16-bit samples from `pool`.
// TAV_ERROR_PARAM for a null argument or a missing plane, TAV_ERROR_UNSUPPORTED for another
// format, TAV_ERROR_MALLOC when the pool is short, or the failure of a post or the join. An
// empty image scores 0.
uint32_t tav_sr2_Image_sharpness(tav_sr2_ThreadPool* threads, tav_sr2_MemPool* pool,
                                 uint32_t* score, const tav_sr2_Image* image, double sigma_a,
                                 double sigma_b);
// The same with a chosen table of row kernels (tests and benchmarks compare the two).
uint32_t tav_sr2_Image_sharpnessWithRows(tav_sr2_ThreadPool* threads, tav_sr2_MemPool* pool,
                                         uint32_t* score, const tav_sr2_Image* image,
                                         double sigma_a, double sigma_b,
                                         const tav_sr2_SharpRowOps* rows);

// Mean of a "UINT8" plane from every second row and column, as a row task of 8 bands on `tasks`
// (null: on the caller), each band adding into its own partial sum: the float of the sum of the
// partials over the float of (width * height) >> 2. An image too small for that divisor gives 0.
// TAV_ERROR_PARAM for a null argument or a missing plane, TAV_ERROR_UNSUPPORTED for another
// format, or the scheduler's failure.
uint32_t tav_sr2_Image_brightness(tav_sr2_TaskSys* tasks, const tav_sr2_Image* image, float* mean);
