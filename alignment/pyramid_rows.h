// Row kernel of the pyramid reduction: a scalar reference and a Highway vector form with the
// same bytes.
//
// One output row from the four source rows 2y .. 2y+3 with the six-tap kernel
//   out[x] = (r0[2x+2] + 2 r1[2x+1] + r1[2x+3] + r2[2x] + 2 r2[2x+2] + r3[2x+1]) >> 3,
// truncated. It is deliberately not separable. Reads source columns 0 .. 2 width + 1.
#pragma once

#include <stdint.h>

typedef void (*tav_sr2_PyramidRowFn)(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2,
                                     const uint8_t* r3, uint8_t* out, int32_t width);

struct tav_sr2_PyramidRows {
    tav_sr2_PyramidRowFn reduce;
};

const tav_sr2_PyramidRows* tav_sr2_pyramidRowsScalar(void);
const tav_sr2_PyramidRows* tav_sr2_pyramidRowsVector(void);
