// Row kernels of the sharpness measure: two seven-tap Gaussian blurs of an 8-bit row and the
// absolute difference of the two results, summed. No image records, no threads.
//
// Taps are Q15 and held as a half kernel: tap[0] the centre, tap[k] at distance k on both sides.
// Horizontal pass: out[x] = (sum of tap * pixel + 512) >> 10, the first and last pixel repeated
// outwards, so the row keeps 5 fraction bits. Vertical pass, per pixel and per kernel: the terms
// (tap[k] * (r[y-k] + r[y+k]) + 0x4000) >> 15 for k = 1..3 and (tap[0] * r[y] + 0x4000) >> 15,
// each rounded on its own, are added; the pixel scores |sum_a - sum_b|.
//
// The scalar table is the reference; the vector table (Highway, dispatched to the best target of
// the running CPU) computes the same numbers.
#pragma once

#include <stdint.h>

struct tav_sr2_SharpKernel {
    int16_t tap[4];  // Q15; the seven taps add up to 32768 modulo 2^16
};

struct tav_sr2_SharpRowOps {
    // One 8-bit row of w pixels into w samples of Q5.
    void (*horizontal)(const uint8_t* src, int32_t w, const tav_sr2_SharpKernel* k, int16_t* out);
    // rows_a and rows_b hold 7 row pointers each, [3] the centre row, n samples per row. Returns
    // the sum of the n pixel scores (modulo 2^32).
    uint32_t (*energy)(const int16_t* const* rows_a, const int16_t* const* rows_b, int32_t n,
                       const tav_sr2_SharpKernel* ka, const tav_sr2_SharpKernel* kb);
};

extern const tav_sr2_SharpRowOps tav_sr2_sharpRowsScalar;
extern const tav_sr2_SharpRowOps tav_sr2_sharpRowsVector;

// The kernel of one sigma: g(k) = exp(-k^2 / (2 sigma^2)) for k = 0..3, S = g(0) + 2 (g(1) +
// g(2) + g(3)), tap k = trunc(g(k) * 32768 / S + 0.5), then the centre replaced by what makes the
// seven taps add up to 32768 in 16-bit wrap-around arithmetic. A sigma that is not above 0 (or
// so small that 2 sigma^2 is 0) is the limit of the formula: only the centre tap, which wraps to
// -32768; both passes then still give the pixel back unchanged.
void tav_sr2_SharpKernel_make(tav_sr2_SharpKernel* k, double sigma);
