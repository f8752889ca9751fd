// Row kernel of the corner response: a scalar reference and a Highway vector form with the same
// results.
//
// For a grid point at pixel (X, Y) the structure tensor is summed over the 16 pixels X-1 .. X+2,
// Y-1 .. Y+2 with gx = p(x+1, y) - p(x-1, y) and gy = p(x, y+1) - p(x, y-1), so a row call reads
// pixel rows Y-2 .. Y+3 and columns X-2 .. X+3 of every grid point it computes.
#pragma once

#include <stdint.h>

// Harris measure with k = 1/16 from the three tensor sums, in 64-bit integers, clamped to
// 0 .. 0x7fffffff.
static inline int32_t tav_sr2_harrisResponse(int32_t sxx, int32_t syy, int32_t sxy) {
    const int64_t a = sxx >> 2;
    const int64_t b = syy >> 2;
    const int64_t c = sxy >> 2;
    int64_t r = a * b - c * c - (((a + b) * (a + b)) >> 4);
    if (r < 0) r = 0;
    if (r > 0x7fffffff) r = 0x7fffffff;
    return (int32_t)r;
}

// Responses of grid points i0 .. i1-1 of the grid row at pixel row y into out[i0 .. i1-1];
// `image` is the first pixel of the picture, `pitch` its row stride.
typedef void (*tav_sr2_ResponseRowFn)(const uint8_t* image, int32_t pitch, int32_t y, int32_t step,
                                      int32_t i0, int32_t i1, int32_t* out);

struct tav_sr2_CornerRows {
    tav_sr2_ResponseRowFn response;
};

const tav_sr2_CornerRows* tav_sr2_cornerRowsScalar(void);
const tav_sr2_CornerRows* tav_sr2_cornerRowsVector(void);
