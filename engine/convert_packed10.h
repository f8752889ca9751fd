// The packed 10-bit input frame (engine code 62, "YUV10B_PACKED_LE_420S") into the engine's
// 8-bit working frame (48 or 49). The packed form exists only at intake.
//
// Layout of code 62: luma packs three samples into each 32-bit little-endian word, sample 3j+i in
// bits 10i .. 10i+9 of word j (bits 30 and 31 unused). Chroma, one row per two picture rows,
// packs the interleaved U, V samples the same way, three samples per word, so each 8-byte group
// holds three U/V pairs: U0 V0 U1 | V1 U2 V2. Rows are padded to the width unit of 6 pixels.
#pragma once

#include <stdint.h>

#include "foundation/image.h"
#include "foundation/thread_pool.h"

// One 10-bit sample to 8 bits, as every 10-to-8-bit conversion of the engine: (v + 2) >> 2
// below 1022, else 255.
static inline uint8_t tav_sr2_tenToEight(uint32_t v) {
    return v < 1022 ? (uint8_t)((v + 2) >> 2) : (uint8_t)255;
}

// Sample i of a packed row (i counts luma samples, or chroma samples U0 V0 U1 V1 ...).
static inline uint32_t tav_sr2_packed10Sample(const uint8_t* row, int32_t i) {
    const uint8_t* w = row + (i / 3) * 4;
    const uint32_t word =
        (uint32_t)w[0] | (uint32_t)w[1] << 8 | (uint32_t)w[2] << 16 | (uint32_t)w[3] << 24;
    return (word >> (10 * (i % 3))) & 0x3FF;
}

// Row kernels: n luma samples, or n chroma pairs (written U first, or V first when swap is set).
void tav_sr2_packed10LumaRow(const uint8_t* src, int32_t n, uint8_t* dst);
void tav_sr2_packed10ChromaRow(const uint8_t* src, int32_t n, int swap, uint8_t* dst);

// Source of code 62 into a destination of 48 or 49 of the same size; the destination's chroma
// order decides where U goes. Every luma sample and, for each 2 x 2 block, its chroma pair are
// converted; a destination's padding is not written. Rows are cut into bands by the worker count
// of `threads` (null: the caller does all). TAV_ERROR_PARAM for null arguments, missing planes or
// pitches below the layout's; TAV_ERROR_UNSUPPORTED for other formats, sizes that differ or a
// width or height below 1; else the failure of a post or the join.
uint32_t tav_sr2_convertPacked10to8(tav_sr2_ThreadPool* threads, tav_sr2_Image* dst,
                                    const tav_sr2_Image* src);
