// Row kernels of the pattern upscaler and the resampler. No image records, no threads.
//
// Padded rows: the pattern kernels read rows whose column x sits at index x + 2, the first pixel
// repeated twice in front and the last twice behind, so a 5 x 5 window never leaves its rows.
// The horizontal resample reads a row buffer with TAV_SR2_RESAMPLE_PAD samples (pairs for
// chroma) repeated in front, and as many behind.
//
// The scalar table is the reference. The vector table (Highway, dispatched to the best target of
// the running CPU) gives the same numbers, except the 2x filter, whose 16-bit fixed-point form may
// differ from the scalar form by one code.
#pragma once

#include <stdint.h>

static const int32_t TAV_SR2_RESAMPLE_PAD = 8;

struct tav_sr2_UpscaleRowOps {
    // Pattern index of n pixels from padded rows[0..2] (above, at, below), threshold t.
    void (*classify)(const uint8_t* const* rows, int32_t n, int32_t t, uint16_t* index);
    // The 2 x 2 outputs of n pixels from padded rows[0..4] (y - 2 .. y + 2): pixel x writes
    // out0[2x], out0[2x + 1], out1[2x], out1[2x + 1].
    void (*filter2x)(const uint8_t* const* rows, const uint16_t* index,
                     const int16_t* const* patterns, int32_t n, uint8_t* out0, uint8_t* out1);
    // out[x] = (sum of taps[k] rows[k][x] + half) >> shift over the 8 rows, n samples.
    void (*vertical8)(const uint8_t* const* rows, const int16_t* taps, int32_t n, int32_t shift,
                      int16_t* out);
    void (*vertical16)(const uint16_t* const* rows, const int16_t* taps, int32_t n, int32_t shift,
                       int16_t* out);
    // One channel: out[i] = clamp((sum of taps[8i + k] row[base[i] + k] + half) >> shift, 0,
    // max) over k = 0..7, n outputs; `row` points at source column 0 of a padded buffer.
    void (*horizontal8)(const int16_t* row, const int32_t* base, const int16_t* taps, int32_t n,
                        int32_t shift, uint8_t* out);
    void (*horizontal16)(const int16_t* row, const int32_t* base, const int16_t* taps, int32_t n,
                         int32_t shift, int32_t max, uint16_t* out);
};

extern const tav_sr2_UpscaleRowOps tav_sr2_upscaleRowsScalar;
extern const tav_sr2_UpscaleRowOps tav_sr2_upscaleRowsVector;

// The scalar 2x filter of one pixel: the window `win` is 5 rows of 5 pixels, `out` gets the four
// outputs in filter order.
void tav_sr2_upscalePixel(const int16_t* filter, const uint8_t win[5][5], uint8_t out[4]);
