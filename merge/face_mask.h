// The face mask: a soft mask of skin colour around each face rectangle, painted from the base
// frame, where the merge mixes in the steeper face weight table.
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "foundation/image.h"

// `ctx` is the pipeline's image context (pool and workers): the mask lives below the
// orchestrator and does not see the pipeline record.
// Clears `mask` ("UINT8") and paints every rectangle (x0, y0, x1, y1 in mask coordinates) from
// `picture`, the base crop at the mask's size in format 48 or 49; then cleans the mask with the
// morphology filter and a Gaussian blur of sigma min(width, height) * 0.005.
// TAV_ERROR_UNSUPPORTED for another picture format, TAV_ERROR_PARAM for sizes that differ,
// TAV_ERROR_MALLOC when the 1 MB colour histogram or a filter's scratch cannot be had.
uint32_t tav_sr2_FaceMask_build(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* mask,
                                const tav_sr2_Image* picture, const tav_sr2_Rect* rects,
                                int32_t count);
