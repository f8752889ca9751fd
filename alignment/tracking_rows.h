// Correlation sums of the gradient matcher: a scalar reference and a Highway vector form with
// the same results.
//
// For a gradient template and an 8 x 8 pixel window q at origin (bx, by), the sums for offset
// o = (ox, oy) in {0, 1}^2 are
//   Gx(o) = sum over i, j < 7 of gx(i, j) q(j + ox, i + oy),   Gy(o) likewise with gy,
// indexed o = ox + 2 oy. The window's 64 pixels are all the kernels read.
#pragma once

#include <stdint.h>

#include "alignment/templates.h"

// The template's gradients laid out for 8-column rows: lanes 0..6 hold taps 0..6 and lane 7 is 0
// for shift 0; shift 1 holds the same taps one lane later, so a row of eight window pixels read
// from column 0 gives the offset ox = 1 product without reading column 8.
struct tav_sr2_CorrWeights {
    int32_t x[2][TAV_SR2_TEMPLATE_SIDE][8];  // [shift][row][lane]
    int32_t y[2][TAV_SR2_TEMPLATE_SIDE][8];
};

void tav_sr2_CorrWeights_prepare(const tav_sr2_GradientTemplate* t, tav_sr2_CorrWeights* w);

// Computes Gx(o), Gy(o) into sum_x[o], sum_y[o] for each offset o whose bit (1 << o) is set in
// `offsets`; the other entries are not touched. `window` is q(0, 0).
typedef void (*tav_sr2_CorrSumsFn)(const tav_sr2_CorrWeights* w, const uint8_t* window,
                                   int32_t pitch, uint32_t offsets, int32_t* sum_x, int32_t* sum_y);

struct tav_sr2_TrackRows {
    tav_sr2_CorrSumsFn corr_sums;
};

const tav_sr2_TrackRows* tav_sr2_trackRowsScalar(void);
const tav_sr2_TrackRows* tav_sr2_trackRowsVector(void);
