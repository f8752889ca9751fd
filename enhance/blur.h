// Gaussian blur of all plain and YUV planes.
//
// Semi-planar frames (48, 49, 52, 53) blur luma at sigma and the chroma pairs at sigma * 0.5;
// planar 44 and 47 blur luma at sigma and each chroma plane at sigma * 0.5. A sigma above 1.8
// on an image of at least 33 x 33 runs as a blur of a half-size copy at
// sqrt(sigma^2 - 3.24) * 0.5, enlarged back and blurred at 1.8. The base blur is separable with
// at most 203 taps, t_k = exp(-k^2 / (2 max(sigma, 1e-16)^2)), border samples repeating.
// In place (dst == src) is fine. Statuses as the resize operators: TAV_ERROR_PARAM for null
// arguments, sizes that differ or a half-size step on a side of 32768 or more,
// TAV_ERROR_GENERIC for a zero-sized image, TAV_ERROR_UNSUPPORTED for another format or formats
// that differ. When the pool cannot give row scratch (intermediate rows, the row buffers of the
// half-size resizes) the call returns 0 and the plane is left as it was; the planes of a frame
// run one after the other, so a plane finished before the failure stays blurred.
#pragma once

#include <stdint.h>

#include "enhance/blur_rows.h"
#include "enhance/image_ctx.h"
#include "enhance/resize_rows.h"
#include "foundation/image.h"

// Plain formats UINT8, UINT16, INT32, FLOAT, UINT88, UINT1616; its kernel keeps every tap down
// to the float limit (FLT_MIN).
uint32_t tav_sr2_Image_blur(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                            const tav_sr2_Image* src, double sigma);

// The same with chosen row kernels for the blur and for the resizes of the half-size step.
uint32_t tav_sr2_Image_blurWithRows(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                    const tav_sr2_Image* src, double sigma,
                                    const tav_sr2_BlurRowOps* rows,
                                    const tav_sr2_ResizeRowOps* resize_rows);

// As tav_sr2_Image_blur, but missing row scratch answers TAV_SR2_ROWS_MISSING
// (enhance/image_rows.h) instead of 0, for callers that must not go on with an unblurred plane.
uint32_t tav_sr2_Image_blurStrict(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                  const tav_sr2_Image* src, double sigma);
// The second blur, used by the closing of the sharpening stage: the same contract, but its
// base kernel ends at ceil(3 sigma) taps, the half-size step rounds up ((size + 1) >> 1), and
// it takes only UINT8, UINT16, UINT88 and UINT1616 (and 48, 49, 52, 53 plane by plane).
uint32_t tav_sr2_Image_blurCompact(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src, double sigma);

// The base kernel of each blur for one sigma (no recursion), for tests and tools.
void tav_sr2_BlurKernel_gaussian(tav_sr2_BlurKernel* k, double sigma);
void tav_sr2_BlurKernel_compact(tav_sr2_BlurKernel* k, double sigma);
