// 3 x 3 rank filters (dilation and erosion) over the luma of nearly any format, dispatched by the
// key (source format << 8) | destination format.
#pragma once

#include <stdint.h>

#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/rank_filter_rows.h"
#include "foundation/thread_pool.h"

// Callers embed one in their own context. thread_pool may be null: everything then runs on the
// calling thread.
struct tav_sr2_RankFilter {
    tav_sr2_MemPool* pool;
    tav_sr2_ThreadPool* thread_pool;
};

void tav_sr2_RankFilter_init(tav_sr2_RankFilter* filter, tav_sr2_MemPool* pool,
                             tav_sr2_ThreadPool* thread_pool);

// Each output is the maximum (minimum) of its 3 x 3 window, cut at the image edges. In place when
// source and destination share plane[0]. 0x80000001 for a null image, 0x80000010 for a size below
// 1, sizes that differ or an unknown key; nothing is written then.
uint32_t tav_sr2_Image_max3x3(tav_sr2_RankFilter* filter, const tav_sr2_Image* src,
                              tav_sr2_Image* dst);
uint32_t tav_sr2_Image_min3x3(tav_sr2_RankFilter* filter, const tav_sr2_Image* src,
                              tav_sr2_Image* dst);

// The same with a chosen set of row routines (benchmarks and tests compare the two forms).
uint32_t tav_sr2_Image_rank3x3(tav_sr2_RankFilter* filter, const tav_sr2_Image* src,
                               tav_sr2_Image* dst, tav_sr2_RankOp op, const tav_sr2_RankRows* rows);

// The layout that serves a key, or -1 when the key is unknown in that mode.
int32_t tav_sr2_RankFilter_layout(int32_t key, bool in_place);

// Bands the filter splits an image of this height into: 1 without a thread pool or below 256
// rows, else the pool's count of workers.
int32_t tav_sr2_RankFilter_threadCount(const tav_sr2_RankFilter* filter, int32_t height);
