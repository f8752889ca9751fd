// Resize operators shared by every stage: the general Q15 bilinear resize, the 2x and 4x
// shortcuts, the box-reducing downsize and the area-exact bilinear used with crops.
//
// Statuses: TAV_ERROR_PARAM (0x80000001) for null arguments, missing planes or sizes of 32768 and
// more; TAV_ERROR_GENERIC (0x80000000) for an image of zero width or height; TAV_ERROR_UNSUPPORTED
// (0x80000010) for a format outside an operator's list or a format pair it does not handle.
// When the pool cannot give the row buffers the call returns 0 and the destination is left
// unchanged: the allocation's result is passed on and a null pointer reads as success. The
// bilinear resize takes one block for all planes of a frame; tav_sr2_Image_resize_fast splits a
// frame first, so there each plane keeps or loses its own rows.
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "enhance/resize_rows.h"
#include "foundation/image.h"

// Bilinear resize from the source's size to the destination's. Equal sizes copy (equal formats)
// or convert. Formats: UINT8, UINT16, INT32, FLOAT, the chroma pairs UINT88 and UINT1616, and
// the planar and semi-planar YUV formats 35 and 44..49, plane by plane; source and destination
// of the same format.
uint32_t tav_sr2_Image_resize(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                              const tav_sr2_Image* src);
// The same with a chosen set of row kernels (tests and benchmarks compare the two tables).
uint32_t tav_sr2_Image_resizeWithRows(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                      const tav_sr2_Image* src, const tav_sr2_ResizeRowOps* rows);
// As tav_sr2_Image_resizeWithRows, but missing row buffers answer TAV_SR2_ROWS_MISSING
// (enhance/image_rows.h) instead of 0, for operators built on the resize that must not go on
// with an unwritten destination. Nothing is written then, a frame's planes included.
uint32_t tav_sr2_Image_resizeStrict(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                    const tav_sr2_Image* src, const tav_sr2_ResizeRowOps* rows);

// Semi-planar 48 and 49 split into luma and chroma; an exact 4x or 2x enlargement of UINT8 or
// UINT88 runs as a row task with fixed weights (3:1 at 2x, 7:1 5:3 at 4x, rounded per
// direction); anything else is tav_sr2_Image_resize.
uint32_t tav_sr2_Image_resize_fast(tav_sr2_MemPool* pool, tav_sr2_ThreadPool* threads,
                                   tav_sr2_TaskSys* tasks, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src);

// Size reduction: exact 4x and 2x box means for UINT8, UINT16, UINT88 and UINT1616; a source at
// least 5 times the destination is first box-reduced by 4 into a pool image of width
// (source width / 4) & ~1; anything else is tav_sr2_Image_resize.
uint32_t tav_sr2_Image_resize_cell(tav_sr2_MemPool* pool, tav_sr2_ThreadPool* threads,
                                   tav_sr2_TaskSys* tasks, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src);

// Bilinear resize whose every position is computed exactly from the pixel centres, with no
// accumulated step, so that a map resized onto a crop grid lines up to the last column. Same
// mix as tav_sr2_Image_resize. Formats UINT8, UINT16, UINT88, UINT1616; no scratch memory.
uint32_t tav_sr2_Image_warpResize(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                  const tav_sr2_Image* src);
