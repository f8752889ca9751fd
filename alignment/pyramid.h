// The estimator's image pyramid: level 0 from the input region, each next level from the one
// below with the six-tap reduction, and a local contrast top level for the block search.
#pragma once

#include <stdint.h>

#include "alignment/pyramid_rows.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/status.h"
#include "foundation/thread_pool.h"

struct tav_sr2_MotionEstimator;

// Side of the level above one of side `size`: (size - 2) / 2, never below 0.
static inline int32_t tav_sr2_Pyramid_nextSide(int32_t size) {
    return size < 2 ? 0 : (size - 2) >> 1;
}

// One level up: dst must be nextSide(src) in both directions, both "UINT8". With a thread pool
// and at least 31 rows the rows go out in 16 jobs, job k making rows h k / 16 .. h (k + 1) / 16.
// TAV_ERROR_PARAM for a null argument or wrong sizes.
uint32_t tav_sr2_Pyramid_reduce(const tav_sr2_Image* src, tav_sr2_Image* dst,
                                tav_sr2_ThreadPool* thread_pool, const tav_sr2_PyramidRows* rows);
// In place: clamp(p - mean + 128, 0, 255), the mean over the 5 x 5 window cut at the border.
// TAV_ERROR_MALLOC when the pool cannot hold a copy of the image.
uint32_t tav_sr2_Pyramid_localContrast(tav_sr2_Image* image, tav_sr2_MemPool* pool);
// Fills est->level_count images of the estimator's level sizes from the input: the region
// reduced by scale_step into level 0, the reductions, and the contrast top level when
// block_search is set. The input is only read.
uint32_t tav_sr2_Pyramid_build(const tav_sr2_MotionEstimator* est, const tav_sr2_Image* input,
                               tav_sr2_Image* levels, const tav_sr2_PyramidRows* rows);
