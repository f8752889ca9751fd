// The band of rows that job i of t takes in a parallel pass over h rows: from ((h * i / t) + 3)
// with the two low bits cleared up to the next such start, the last one ending at h. Band edges
// fall on multiples of 4 rows, so a band may come out empty: h = 10 over 4 jobs gives 0..3, 4..7,
// nothing, 8..9.
#pragma once

#include <stdint.h>

static inline int32_t tav_sr2_rowBandStart(int32_t h, int32_t i, int32_t t) {
    const int32_t start = (int32_t)(((int64_t)h * i / t + 3) & ~(int64_t)3);
    return start < h ? start : h;
}

// Rows y0 .. y1-1; y1 <= y0 for an empty band.
static inline void tav_sr2_rowBand(int32_t h, int32_t i, int32_t t, int32_t* y0, int32_t* y1) {
    *y0 = tav_sr2_rowBandStart(h, i, t);
    *y1 = tav_sr2_rowBandStart(h, i + 1, t);
}
