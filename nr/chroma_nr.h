// Chroma noise reduction: a colour guided filter whose guide is (Y, U, V) and whose outputs are U
// and V, solved per window with a 3 x 3 covariance at a reduced resolution.
//
// tav_sr2_ChromaNR_run(ctx, src, dst, mask, window, eps_y, eps_u, eps_v, strength, scale): on a
//   frame (48, 49, 52, 53; dst may be src, else src is copied first), the luma and chroma are
//   brought to gw x gh = trunc(size / scale + 0.5), summed into the nine moments of each 2 x 2
//   cell, boxed over window x window cells (edge cells repeating), and per cell the model
//   U' = gY Y + gU U + gV V + b (and V' alike) is solved in f32 with the diagonal regularised by
//   eps^2 N m^2 (N = 4 window^2, m the mask resized to the cells, or 32 without one). The
//   models, weighted by the confidence 1 / (N + cyy + cuu + cvv), are smoothed over 5 x 5 cells,
//   normalised, interpolated to each chroma sample and applied:
//   out = trunc(min(top, strength (t - mid) + mid + 0.5)), limited below by 0 (mid 128 or 512).
//   A cell whose matrix cannot be inverted keeps its chroma (identity model). The 10-bit form
//   takes eps times 4. Luma is read, never written. TAV_ERROR_PARAM for a null argument, a
//   window below 1 or a scale below 1; TAV_ERROR_UNSUPPORTED for another format; an
//   allocation's status (the frame then as the last finished step left it: unchanged).
//
// tav_sr2_ChromaNR_clip(ctx, frame, window, scale): the narrow-change step: the filter at eps
//   (0.1, 0.5, 0.5), strength 1, and each chroma sample then moves by at most 4 codes.
// tav_sr2_ChromaNR_highFrequency(ctx, frame, map_size_like): the filter restricted to isolated
//   one-pixel chroma detail: a mask from the luma's lone-pixel detail (blurred at sigma 4, at the
//   size of `like`), window 7, eps (0, 1, 1), scale 2.
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "foundation/image.h"

uint32_t tav_sr2_ChromaNR_run(const tav_sr2_ImageCtx* ctx, const tav_sr2_Image* src,
                              tav_sr2_Image* dst, const tav_sr2_Image* mask, int32_t window,
                              float eps_y, float eps_u, float eps_v, float strength, float scale);
uint32_t tav_sr2_ChromaNR_clip(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* frame, int32_t window,
                               float scale);
uint32_t tav_sr2_ChromaNR_highFrequency(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* frame,
                                        const tav_sr2_Image* like);
