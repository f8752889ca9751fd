// Row kernel of the frame warp: the truncating bilinear of n pixels whose Q15 positions all lie
// inside the source with a row and a column to spare. No image records, no threads.
//
// out[k * channels] = ((((32768 - a) p00 + a p01) >> 10) (32768 - b)
//                      + (((32768 - a) p10 + a p11) >> 10) b) >> 20
// with (x, y) = (X[k] >> 15, Y[k] >> 15), a and b their fraction bits, p the samples of channel
// `channel` at (x, y), (x + 1, y), (x, y + 1), (x + 1, y + 1) of a plane of `channels`
// interleaved samples. The scalar table is the reference; the vector table (Highway) gives the
// same bytes.
#pragma once

#include <stdint.h>

struct tav_sr2_WarpRowOps {
    void (*bilinear)(const uint8_t* plane, int32_t pitch, int32_t channels, int32_t channel,
                     const int32_t* X, const int32_t* Y, int32_t n, uint8_t* out);
};

extern const tav_sr2_WarpRowOps tav_sr2_warpRowsScalar;
extern const tav_sr2_WarpRowOps tav_sr2_warpRowsVector;
