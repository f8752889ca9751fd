// Row kernels of the sharpening stage: the two passes of the band-pass filters, their four output
// forms, and the four adds of a high-pass image to luma. No image records, no threads.
//
// Fixed point: the horizontal pass keeps 5 fractional bits of an 8-bit row (3 of a 10-bit row) in
// i16; the vertical pass keeps that scale. Kernels have 2R + 1 taps (R = 2 or 3) that sum to
// 32768. Weights are Q7 (128 = 1.0); a null weight row means 128 everywhere.
//
// The scalar table is the reference; the vector table (Highway, dispatched to the best target of
// the running CPU) computes the same numbers.
#pragma once

#include <stdint.h>

struct tav_sr2_SharpenRowOps {
    // out[x] = (sum_k taps[k] p(x + k - R) + 512) >> 10 for 8-bit rows, (... + 2048) >> 12 for
    // 10-bit rows, columns past either end repeating the end sample; n >= 2R + 1.
    void (*horizontal8)(const uint8_t* src, int32_t n, const int32_t* taps, int32_t radius,
                        int16_t* out);
    void (*horizontal16)(const uint16_t* src, int32_t n, const int32_t* taps, int32_t radius,
                         int16_t* out);
    // out[x] = (sum_k taps[k] rows[k][x] + 16384) >> 15 over the 2R + 1 rows.
    void (*vertical)(const int16_t* const* rows, int32_t n, const int32_t* taps, int32_t radius,
                     int16_t* out);
    // 7-tap 8-bit band pass: d = lp2 - lp1, c = d - clamp(d, -t, t), the gain in Q10
    // k = (g m) >> 5, e = sat16((c k + 512) >> 10), out = clamp(128 + ((e + 4) >> 3), 0, 255).
    void (*band7_8)(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                    int32_t t, int32_t n, uint8_t* out);
    // 7-tap 10-bit band pass: d = lp1 - lp2, e = (128 + d ((g m) >> 7)) >> 8,
    // out = clamp((e - clamp(e, -t, t) + 4100) >> 3, 0, 1023).
    void (*band7_16)(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                     int32_t t, int32_t n, uint16_t* out);
    // 5-tap 8-bit sharpen of luma y: d = lp2 - lp1, k = (g m) >> 7,
    // out = clamp((((y << 5) | 16) + ((128 + d k) >> 8)) >> 5, 0, 255).
    void (*band5_8)(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                    const uint8_t* y, int32_t n, uint8_t* out);
    // 5-tap 10-bit sharpen: d = lp2 - lp1, e = (32 + d k) >> 6,
    // v = ((y << 3) | 4) + e - clamp(e, -4t, 4t), out = clamp(v >> 3, 0, 1023).
    void (*band5_16)(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                     int32_t t, const uint16_t* y, int32_t n, uint16_t* out);
    // The adds, v = y + ((512 + (h - bias) g) >> 10): add8 out = clamp(v, 0, 255); add16
    // out = clamp(v, 0, 32767).
    void (*add8)(const uint8_t* y, const uint8_t* h, int32_t gain, int32_t n, uint8_t* out);
    void (*add16)(const uint16_t* y, const uint16_t* h, int32_t gain, int32_t n, uint16_t* out);
    // v clamped to 0..32767; above y + 40: trunc((1 - w) y + w v); then below y - 40:
    // trunc((1 - b) y + b v).
    void (*addSoft16)(const uint16_t* y, const uint16_t* h, int32_t gain, float white, float black,
                      int32_t n, uint16_t* out);
    // v clamped to 0..32767; at or above the local maximum M: trunc(w (v - M) + M); at or below
    // the local minimum m: trunc(m - b (m - v)).
    void (*addRange16)(const uint16_t* y, const uint16_t* h, const uint16_t* local_max,
                       const uint16_t* local_min, int32_t gain, float white, float black, int32_t n,
                       uint16_t* out);
};

extern const tav_sr2_SharpenRowOps tav_sr2_sharpenRowsScalar;
extern const tav_sr2_SharpenRowOps tav_sr2_sharpenRowsVector;
