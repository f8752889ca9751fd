// The sharpening kernels: two-Gaussian band passes of 5 and 7 taps, the smoothing, detail boost
// and denoise of a high-pass image, and the four ways of adding a high-pass image back to luma.
//
// Images: frames 48, 49 (8-bit) and 52, 53 (10-bit) are reached through their luma; plain UINT8
// and UINT16 images are taken as they are. A high-pass image is UINT8 biased by 128 or UINT16
// biased by 512. Weights are UINT8 in Q7 (128 = 1.0), the size of the source; null means 128.
//
// Band passes (gain truncated to an integer, t = trunc(coring * 32)); K1 is the kernel of sigma1,
// K2 of sigma2, each 2R + 1 taps t_k = exp(-k^2 / (2 sigma^2)) scaled to sum to 32768 with the
// rounding remainder on the centre (a sigma of 0 gives the unit kernel); LP(K) is the source
// filtered by K at 5 fractional bits (8-bit) or 3 (10-bit):
//   tav_sr2_Unsharp_band7:    high pass of LP(K2) - LP(K1) into an 8-bit high-pass image.
//   tav_sr2_Unsharp_band7_16: high pass of LP(K1) - LP(K2) into a 10-bit high-pass image.
//   tav_sr2_Unsharp_band5:    the source sharpened by LP(K2) - LP(K1) into dst (luma), 8-bit.
//   tav_sr2_Unsharp_band5_16: the same on 10-bit luma, cored by 4t.
// (sharpen_rows.h has the output formulas.) dst may be src. TAV_ERROR_PARAM for a null image,
// sizes that differ, a row below 7 samples; TAV_ERROR_UNSUPPORTED for another format;
// TAV_ERROR_MALLOC without the row rings, nothing written then.
//
// Adds, v = y + ((512 + (h - bias) g) >> 10) with y the luma of src, into the luma of dst (which
// may be src): tav_sr2_Sharpen_add8 (8-bit, limited to 0..255), add16 (10-bit, limited to
// 0..32767: later stages limit), addSoft16 (a difference beyond 40 mixed back towards y by
// white_edge_level above and black_edge_level below), addRange16 (what passes the local maximum
// or minimum of the unsharpened luma scaled by white or black). Same statuses.
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "foundation/image.h"
#include "sharpen/sharpen_rows.h"

// The band kernels by kind, for tests and benchmarks that pick the row table.
enum tav_sr2_UnsharpBand : int32_t {
    TAV_SR2_UNSHARP_BAND5 = 5,
    TAV_SR2_UNSHARP_BAND7 = 7,
};

uint32_t tav_sr2_Unsharp_band5(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                               const tav_sr2_Image* src, const tav_sr2_Image* weight, double sigma1,
                               double sigma2, double gain, double coring);
uint32_t tav_sr2_Unsharp_band5_16(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                  const tav_sr2_Image* src, const tav_sr2_Image* weight,
                                  double sigma1, double sigma2, double gain, double coring);
uint32_t tav_sr2_Unsharp_band7(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                               const tav_sr2_Image* src, const tav_sr2_Image* weight, double sigma1,
                               double sigma2, double gain, double coring);
uint32_t tav_sr2_Unsharp_band7_16(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                  const tav_sr2_Image* src, const tav_sr2_Image* weight,
                                  double sigma1, double sigma2, double gain, double coring);
// Any of the four, the depth taken from the source, with a chosen row table.
uint32_t tav_sr2_Unsharp_bandWithRows(const tav_sr2_ImageCtx* ctx, int32_t kind, tav_sr2_Image* dst,
                                      const tav_sr2_Image* src, const tav_sr2_Image* weight,
                                      double sigma1, double sigma2, double gain, double coring,
                                      const tav_sr2_SharpenRowOps* rows);
// The 2R + 1 taps of one kernel.
void tav_sr2_Unsharp_taps(double sigma, int32_t radius, int32_t* taps);

uint32_t tav_sr2_Sharpen_add8(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                              const tav_sr2_Image* src, const tav_sr2_Image* high_pass,
                              int32_t gain);
uint32_t tav_sr2_Sharpen_add16(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                               const tav_sr2_Image* src, const tav_sr2_Image* high_pass,
                               int32_t gain);
uint32_t tav_sr2_Sharpen_addSoft16(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src, const tav_sr2_Image* high_pass,
                                   int32_t gain, float white, float black);
uint32_t tav_sr2_Sharpen_addRange16(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                    const tav_sr2_Image* src, const tav_sr2_Image* high_pass,
                                    const tav_sr2_Image* local_max, const tav_sr2_Image* local_min,
                                    int32_t gain, float white, float black);

// One pass of the high-pass smoothing: p' = (8 p + D(y - 1) + D(y + 1) - 2 D(y) + 4) >> 3 with D
// the second difference along the row (ends: p(0) - p(1), p(w - 1) - p(w - 2)), rows past the
// ends repeating, limited to the sample's range. With a mask (UINT8, same size) the change is
// weighted by clamp(2 mask - 32, 0, 128) / 128. In place. TAV_ERROR_MALLOC without its rows.
uint32_t tav_sr2_Unsharp_smooth_high_pass(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* image,
                                          const tav_sr2_Image* mask);
// The 5 x 5 box guided filter of the high pass (eps 625 level, 8-bit units), then the filtered
// high pass added to the frame's luma, weighted by the frame's local activity.
uint32_t tav_sr2_Unsharp_detail_boost(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* frame,
                                      tav_sr2_Image* high_pass, double level);
// A Haar split of the high pass into four half-size planes, each filtered with the noise map,
// joined again, and the whole filtered once more at half the level.
uint32_t tav_sr2_Unsharp_denoise_high_pass(const tav_sr2_ImageCtx* ctx, const tav_sr2_Image* src,
                                           tav_sr2_Image* dst, const tav_sr2_Image* noise_map,
                                           double level, double scale);
// One plane filtered against noise in proportion to level and the map: the guided filter with
// the map, eps (level scale)^2 (16-bit planes: level 4 * 0.125 of it), at `window`.
uint32_t tav_sr2_Unsharp_planeFilter(const tav_sr2_ImageCtx* ctx, const tav_sr2_Image* src,
                                     tav_sr2_Image* dst, int32_t window,
                                     const tav_sr2_Image* noise_map, double level, double scale);

// Masks: 3 x 3 maximum (dilate) and minimum (erode) of a UINT8 image in place, and the per-pixel
// minimum of two UINT8 or UINT16 images into dst (which may be either).
uint32_t tav_sr2_Image_dilate(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* image);
uint32_t tav_sr2_Image_erode(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* image);
uint32_t tav_sr2_Image_min(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* a,
                           const tav_sr2_Image* b);
