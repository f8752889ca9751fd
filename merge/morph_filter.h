// 3 x 3 filters on a "UINT8" image in place, for cleaning masks: minimum, maximum, box mean.
// Windows are cut at the image's edges: a border pixel takes its neighbours within the image.
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "foundation/image.h"

enum {
    TAV_SR2_MORPH_MIN = 0,
    TAV_SR2_MORPH_MAX = 1,
    TAV_SR2_MORPH_MEAN = 2,  // rounded mean of the window's pixels
};

// TAV_ERROR_PARAM for another format or an unknown kind; TAV_ERROR_MALLOC when the mean's
// scratch copy cannot be had. Minimum and maximum are the rank filters' vector rows.
uint32_t tav_sr2_Morph_filter(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* image, int32_t kind);
