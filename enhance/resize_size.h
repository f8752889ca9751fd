// What the bilinear resize takes from the pool, for the buffer budget.
//
// The resize allocates only what is counted here: two row buffers per worker, of the
// destination's width, in the source's widened sample type. A change there that takes more from
// the pool changes this figure with it.
#pragma once

#include <stdint.h>

// Workers a resize may split its rows over: the task system's limit.
static const int32_t TAV_SR2_RESIZE_MAX_WORKERS = 16;

// Bytes of one widened sample of a pixel of the format in a row buffer (channels included):
// 8- and 16-bit samples are held in 16 bits, INT32 and FLOAT in 32. For the planar and
// semi-planar YUV formats the widest of their planes, per luma pixel. 0 for a format the resize
// does not handle.
int32_t tav_sr2_Image_resizeSampleBytes(int32_t format);

// Bytes of pool a resize to dst_width x dst_height of the format takes with the given number of
// workers (below 1 counts as 1). 0 for a non-positive size or a format the resize does not handle.
uint32_t tav_sr2_Image_resizeRequiredSize(int32_t dst_width, int32_t dst_height, int32_t format,
                                          int32_t workers);
