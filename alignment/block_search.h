// Block search: the first translation of an estimate, found by laying the current top level
// over a reference top level at every offset of a spiral and comparing mean absolute
// differences over the overlap.
#pragma once

#include <stdint.h>

#include "foundation/image.h"
#include "foundation/status.h"
#include "foundation/trans2d.h"

struct tav_sr2_MotionEstimator;

struct tav_sr2_BlockMatch {
    int32_t dx;  // best offset of b against a: a(x, y) lies over b(x + dx, y + dy)
    int32_t dy;
    int64_t sum;         // absolute differences over the best overlap
    int64_t area;        // pixels of that overlap
    int32_t confidence;  // ((sum & 0x1ffff) << 15) / area; lower is better
};

// Walks the spiral of `radius` around (start_x, start_y). An offset wins when its sum s and
// overlap n beat the best so far as s * n_best < s_best * n; the search starts from the whole
// image at a mean of 256, and the first winner must beat that.
void tav_sr2_BlockSearch_run(const tav_sr2_Image* a, const tav_sr2_Image* b, int32_t start_x,
                             int32_t start_y, int32_t radius, tav_sr2_BlockMatch* match);

// The estimator's step: projects a's centre through *t; when it lands inside a, searches
// block_search_range around it and adds the offset found less the projected one to m2 and m5
// of *t, unless the confidence reaches block_fail_level, which sets TAV_ALIGN_BLOCK_FAILED (8) in
// est->status and leaves *t. TAV_ERROR_PARAM for a null argument or an image without pixels.
uint32_t tav_sr2_Align_blockSearch(tav_sr2_MotionEstimator* est, tav_sr2_Trans2D* t,
                                   const tav_sr2_Image* a, const tav_sr2_Image* b);
