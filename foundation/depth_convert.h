// Sample-depth conversion between the 8-bit semi-planar frames (48, 49) and the 10-bit ones held
// in 16-bit words (52, 53).
#pragma once

#include <stdint.h>

#include "foundation/depth_convert_rows.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/thread_pool.h"

// The argument block of one band job: rows y0..y1-1, samples x0..x1-1 of each (in pixels).
struct tav_sr2_DepthBand {
    tav_sr2_Image* dst;
    const tav_sr2_Image* src;
    int32_t x0;
    int32_t y0;
    int32_t x1;
    int32_t y1;
    const tav_sr2_DepthRows* rows;
};
static_assert(sizeof(tav_sr2_DepthBand) == 40);

// Source 48 or 49 into destination 52 or 53 of the same size. thread_pool may be null.
uint32_t tav_sr2_convert8to10(tav_sr2_ThreadPool* thread_pool, tav_sr2_MemPool* pool,
                              tav_sr2_Image* dst, const tav_sr2_Image* src);
// Source 52 or 53 into destination 48 or 49, or a "UINT16" source into the luma of a "UINT8",
// 48 or 49 destination; chroma is converted only from 52 and 53.
uint32_t tav_sr2_convert10to8(tav_sr2_ThreadPool* thread_pool, tav_sr2_MemPool* pool,
                              tav_sr2_Image* dst, const tav_sr2_Image* src);

// The same with a chosen set of row routines (benchmarks and tests compare the two forms).
uint32_t tav_sr2_convert8to10WithRows(tav_sr2_ThreadPool* thread_pool, tav_sr2_Image* dst,
                                      const tav_sr2_Image* src, const tav_sr2_DepthRows* rows);
uint32_t tav_sr2_convert10to8WithRows(tav_sr2_ThreadPool* thread_pool, tav_sr2_Image* dst,
                                      const tav_sr2_Image* src, const tav_sr2_DepthRows* rows);
