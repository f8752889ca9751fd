// Row kernels of the bilinear resize: one row at a time, no image records, no threads.
//
// Positions are Q15: destination column x samples the source at p = first + x * step, index
// p >> 15 and fraction f = p & 0x7fff, both neighbours clamped to the row. Every integer form
// computes (f * s[i + 1] + (32768 - f) * s[i] + 16384) >> 15 exactly; the float form weighs with
// f / 32768. The horizontal pass writes a row buffer of the widened type (16 bits for 8- and
// 16-bit samples), and the vertical pass mixes two such buffers into a destination row.
//
// Two tables carry the same arithmetic: the scalar reference and the vector forms (Highway,
// dispatched to the best target of the running CPU). Forms without a vector body in the vector
// table point at the scalar one.
#pragma once

#include <stdint.h>

struct tav_sr2_ResizeRowOps {
    // Horizontal: `src` holds sw pixels of `channels` interleaved samples; `out` gets dw pixels.
    void (*h_u8)(const uint8_t* src, int32_t sw, uint16_t* out, int32_t dw, int32_t first,
                 int32_t step);
    void (*h_u8x2)(const uint8_t* src, int32_t sw, uint16_t* out, int32_t dw, int32_t first,
                   int32_t step);
    void (*h_u16)(const uint16_t* src, int32_t sw, uint16_t* out, int32_t dw, int32_t first,
                  int32_t step);
    void (*h_u16x2)(const uint16_t* src, int32_t sw, uint16_t* out, int32_t dw, int32_t first,
                    int32_t step);
    void (*h_i32)(const int32_t* src, int32_t sw, int32_t* out, int32_t dw, int32_t first,
                  int32_t step);
    void (*h_f32)(const float* src, int32_t sw, float* out, int32_t dw, int32_t first,
                  int32_t step);
    // Vertical: n samples, f the Q15 weight of `b1`.
    void (*v_u8)(const uint16_t* b0, const uint16_t* b1, uint8_t* out, int32_t n, int32_t f);
    void (*v_u16)(const uint16_t* b0, const uint16_t* b1, uint16_t* out, int32_t n, int32_t f);
    void (*v_i32)(const int32_t* b0, const int32_t* b1, int32_t* out, int32_t n, int32_t f);
    void (*v_f32)(const float* b0, const float* b1, float* out, int32_t n, int32_t f);
};

extern const tav_sr2_ResizeRowOps tav_sr2_resizeRowsScalar;
extern const tav_sr2_ResizeRowOps tav_sr2_resizeRowsVector;
