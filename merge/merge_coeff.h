// The merge coefficient of a frame at quarter size, from its ghost map and the weight sum so far.
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "foundation/image.h"

struct tav_sr2_MergeWeights {
    const uint8_t* table;            // weight of a ghost difference, 256 entries of 0..128
    const uint8_t* face_table;       // the steeper table used inside faces
    const tav_sr2_Image* face_mask;  // "UINT8", or null: no faces
    int32_t face_weight;             // 0..255: how far a masked pixel moves to face_table
};

// Per pixel, with g the ghost value and s the weight sum: w = table[g], or inside a face
// ((255 - m) table[g] + m face_table[g]) / 255 rounded with m = face_weight; then
// coef = (s << 7) / (s + w) (0 when both are 0) and weight_sum = s + w. coef and ghost are
// "UINT8", weight_sum "UINT16", all of one size. TAV_ERROR_PARAM otherwise.
uint32_t tav_sr2_MergeCoeff_make(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* coef,
                                 tav_sr2_Image* weight_sum, const tav_sr2_Image* ghost,
                                 const tav_sr2_MergeWeights* weights);

// A quarter-size coefficient brought to a picture: resized (bilinear) into `rect` of `out`,
// then the rectangle's edge values repeated outwards by plain row copies: each row of the
// rectangle to its left and right, then the rows above take its first row and those below its
// last. `out` is "UINT8"; `rect` is limited to it, and an empty rectangle means all of it.
uint32_t tav_sr2_MergeCoeff_spread(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* out,
                                   const tav_sr2_Image* quarter, const tav_sr2_Rect* rect);
