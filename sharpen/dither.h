// Grain: a fine synthetic noise added last, so that areas smoothed by noise reduction do not
// look flat. Reproducible: the generators are seeded from the luma sample at the frame's centre,
// so the same frame gets the same grain and frames that differ there differ everywhere.
//
// Noise n per pixel is the sum of four signed bytes of two xorshift generators (near Gaussian,
// mean 0, |n| <= 512), run in 8 row groups with their own generators, so the result does not
// depend on the worker count. Amplitude A(L) = min(trunc(4 sqrt(3 L^2 + 1)), 512); a level of 0
// adds nothing. The luma weight w is 256 up to `thr` (10-bit luma; thr / 4 on 8 bits) and falls
// linearly to 0 at 768 (192).
//
// tav_sr2_Dither_run16(ctx, dst, src, thr, max, groups, mode, level, pepper, uv): frames 52, 53.
//   Mode 0: out = clamp(y + ((0x40000 + n A w) >> 19), 0, 1023), plus, with a pepper level, an
//   independent term of the pepper amplitude. Mode 1: that noise (biased by 512) at three
//   quarters of the size, sharpened by the 5-tap band (sigmas 1.0 and 0.5, gain 300, coring 0.5),
//   enlarged, and half of it added, limited to 0..1024. Other modes: the noise at the frame's size
//   plus one column and row, half of it added twice, at offsets (1, 0) and (0, 1): grain
//   correlated in a cross. Chroma with a uv level: (n A_uv + 256) >> 9 added to each sample.
// tav_sr2_Dither_run8(ctx, dst, src, thr, max, groups, level, uv): frames 48, 49, mode 0 only,
//   thr limited to 128; the chroma amplitude halved towards zero.
// dst may be src; otherwise src is copied first. `max` and `groups` are the pipeline's 255 and 8
// (the group count is fixed at 8 whatever is passed, for the reproducibility above). Statuses:
// TAV_ERROR_PARAM for a null argument or sizes that differ, TAV_ERROR_UNSUPPORTED for another
// format; the allocation's status for the noise image of modes 1 and 2 (the frame unchanged).
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "foundation/image.h"

uint32_t tav_sr2_Dither_run16(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                              const tav_sr2_Image* src, int32_t thr, int32_t max, int32_t groups,
                              int32_t mode, double level, double pepper, double uv);
uint32_t tav_sr2_Dither_run8(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                             const tav_sr2_Image* src, int32_t thr, int32_t max, int32_t groups,
                             double level, double uv);

// A(L) of the header.
int32_t tav_sr2_Dither_amplitude(double level);
