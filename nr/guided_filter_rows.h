// Row kernels of the side-window guided filter: the 4 x 4 block sums, the line sums on the block
// grid, the per-block linear model, and the 4x bilinear enlargement and application of the fused
// model. No image records, no threads.
//
// Kernels of the 8-bit class end in 8 and take u8 pixels, u16 block sums and u8 models (a in Q7);
// kernels of the 16-bit class end in 16 and take u16 pixels (at most 1023 in practice), u16
// block sums and u16 models (a in Q9). Square sums and the line sums of the 16-bit class are
// int32.
//
// The scalar table is the reference; the vector table (Highway, dispatched to the best target of
// the running CPU) computes the same numbers, the float model included: it runs in the same
// order of f32 operations, and the file is built without contraction into fused multiply-adds.
#pragma once

#include <stdint.h>

struct tav_sr2_GuidedRowOps {
    // One block row: rows[0..3] are its four pixel rows. For each of `blocks` blocks, sum[i] and
    // sq[i] are the sum and the square sum of the 16 pixels at columns 4i .. 4i + 3; a column at
    // or past `width` reads column width - 1.
    void (*stats8)(const uint8_t* const* rows, int32_t width, int32_t blocks, uint16_t* sum,
                   int32_t* sq);
    void (*stats16)(const uint16_t* const* rows, int32_t width, int32_t blocks, uint16_t* sum,
                    int32_t* sq);
    // out[x] = sum of rows[k][x] over k < taps, for x < n. The caller points each row at the
    // element that lines up with out[0].
    void (*sumRows16)(const uint16_t* const* rows, int32_t taps, int32_t n, uint16_t* out);
    void (*sumRows16to32)(const uint16_t* const* rows, int32_t taps, int32_t n, int32_t* out);
    void (*sumRows32)(const int32_t* const* rows, int32_t taps, int32_t n, int32_t* out);
    // The model of each block from its line sums s1, s2 over `count` pixels, in f32:
    //   mean = s1 / count, var = max(s2 / count - mean^2, floor), e = eps, or with a map
    //   e = eps * map[i] / 32 and floor 1e-12 instead of 0; a = clamp(var / (var + e), 0, 1);
    //   a_out = trunc(a * one + 0.5), b_out = trunc(min(mean (1 - a) + 0.5, limit)),
    //   one 128 and limit 255 (8-bit), 512 and 65535 (16-bit). map may be null.
    void (*model8)(const uint16_t* s1, const int32_t* s2, const uint8_t* map, float eps,
                   int32_t count, int32_t n, uint8_t* a_out, uint8_t* b_out);
    void (*model16)(const int32_t* s1, const int32_t* s2, const uint8_t* map, float eps,
                    int32_t count, int32_t n, uint16_t* a_out, uint16_t* b_out);
    // The 4x horizontal enlargement of one row of `blocks` grid values v (each already weighed
    // vertically to a total of 8) into out[0 .. 4 blocks): block centres stand at 4i + 1.5, so
    // out[4i + 2 + q] = ((7 - 2q) v[i] + (1 + 2q) v[i + 1] + 32) >> 6 between two centres, and
    // the two first and two last columns take (8 v + 32) >> 6 of the end value.
    void (*upsample)(const int32_t* v, int32_t blocks, int32_t* out);
    // dst = min(b + ((64 + a src) >> 7), 255), and the 16-bit form
    // min(b + ((256 + a src) >> 9), 65535), for n pixels.
    void (*apply8)(const uint8_t* src, const int32_t* a, const int32_t* b, int32_t n, uint8_t* dst);
    void (*apply16)(const uint16_t* src, const int32_t* a, const int32_t* b, int32_t n,
                    uint16_t* dst);
};

extern const tav_sr2_GuidedRowOps tav_sr2_guidedRowsScalar;
extern const tav_sr2_GuidedRowOps tav_sr2_guidedRowsVector;
