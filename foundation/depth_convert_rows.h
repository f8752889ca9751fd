// Row routines of the sample-depth conversions, in a scalar reference and a Highway vector form
// with the same results. A row is n samples, luma or interleaved chroma alike.
#pragma once

#include <stdint.h>

struct tav_sr2_DepthRows {
    void (*up)(const uint8_t* in, uint16_t* out, int32_t n);    // out = in << 2
    void (*down)(const uint16_t* in, uint8_t* out, int32_t n);  // rounded; 1022 and up give 255
};

const tav_sr2_DepthRows* tav_sr2_depthRowsScalar(void);
// The vector forms for the best target this processor supports.
const tav_sr2_DepthRows* tav_sr2_depthRowsVector(void);
