// Row kernels of the separable Gaussian blur: one row at a time, no image records, no threads.
//
// The kernel is symmetric and kept as its half: weight k applies at distance k on both sides.
// Integer forms use Q15 weights whose 2r + 1 taps sum to exactly 32768, so a flat row stays flat;
// the float form uses normalised float weights. Border samples repeat.
//
// Horizontal pass, `channels` interleaved samples per pixel, neighbours one pixel apart:
//   8-bit  -> 16-bit row with 8 fraction bits: (sum + 64) >> 7
//   16-bit, INT32 -> same type: (sum + 16384) >> 15 (arithmetic for INT32)
// Vertical pass over 2r + 1 row pointers, rows[r] the centre row:
//   16-bit Q8 rows -> 8-bit: (sum + 2^22) >> 23; the others (sum + 16384) >> 15.
//
// The scalar table is the reference; the vector table (Highway, dispatched to the best target of
// the running CPU) has vector bodies for the 8- and 16-bit forms and computes the same numbers.
#pragma once

#include <stdint.h>

static const int32_t TAV_SR2_BLUR_MAX_RADIUS = 101;

struct tav_sr2_BlurKernel {
    int32_t radius;      // reach of the Q15 taps: trailing taps that round to 0 are cut
    int32_t radius_f32;  // reach of the float taps
    int32_t q15[TAV_SR2_BLUR_MAX_RADIUS + 1];
    float f32[TAV_SR2_BLUR_MAX_RADIUS + 1];
};

struct tav_sr2_BlurRowOps {
    void (*h_u8)(const uint8_t* src, int32_t w, int32_t channels, const tav_sr2_BlurKernel* k,
                 uint16_t* out);
    void (*h_u16)(const uint16_t* src, int32_t w, int32_t channels, const tav_sr2_BlurKernel* k,
                  uint16_t* out);
    void (*h_i32)(const int32_t* src, int32_t w, int32_t channels, const tav_sr2_BlurKernel* k,
                  int32_t* out);
    void (*h_f32)(const float* src, int32_t w, int32_t channels, const tav_sr2_BlurKernel* k,
                  float* out);
    // `rows` holds 2 * radius + 1 pointers (radius_f32 for the float form), n samples each.
    void (*v_u8)(const uint16_t* const* rows, int32_t n, const tav_sr2_BlurKernel* k, uint8_t* out);
    void (*v_u16)(const uint16_t* const* rows, int32_t n, const tav_sr2_BlurKernel* k,
                  uint16_t* out);
    void (*v_i32)(const int32_t* const* rows, int32_t n, const tav_sr2_BlurKernel* k, int32_t* out);
    void (*v_f32)(const float* const* rows, int32_t n, const tav_sr2_BlurKernel* k, float* out);
};

extern const tav_sr2_BlurRowOps tav_sr2_blurRowsScalar;
extern const tav_sr2_BlurRowOps tav_sr2_blurRowsVector;

// Fills the kernel from the raw half taps t[0..reach] (reach at most TAV_SR2_BLUR_MAX_RADIUS),
// normalised by t[0] + 2 * (t[1] + ... + t[reach]). Each Q15 side tap rounds to nearest, the
// centre takes up the difference, and trailing side taps that round to 0 are cut.
void tav_sr2_BlurKernel_fromTaps(tav_sr2_BlurKernel* k, const double* taps, int32_t reach);
