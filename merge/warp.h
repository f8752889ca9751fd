// The warp of a frame onto the crop: destination pixel (x, y) is sampled at M (x, y) of the
// source, M taking crop pixels to frame pixels.
//
// Positions are exact (tav_sr2_Trans2D_applyQ15) at the ends of each segment of 128 pixels and
// linear between them. Per pixel with (X, Y) in Q15: outside the source (a negative coordinate,
// or X >> 15 or Y >> 15 beyond the last column or row) the pixel is 0, which later stages read as
// "no data"; on the last column or row the nearest pixel; elsewhere the truncating bilinear
//   ((((32768 - a) p00 + a p01) >> 10) (32768 - b) + (((32768 - a) p10 + a p11) >> 10) b) >> 20
// with a, b the fraction bits. The chroma pairs of frames 48 and 49 are sampled at the halved
// position of their first luma pixel, on their own plane, both bytes alike.
//
// Formats 48 and 49 (source and destination alike) or UINT8; TAV_ERROR_PARAM for null arguments
// or formats that differ, TAV_ERROR_UNSUPPORTED for another format. Rows run in bands of 16.
// tav_sr2_Warp_frameWith takes the row kernel table (the vector one by default, the scalar one
// for tests and benchmarks); both give the same bytes.
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "foundation/image.h"
#include "foundation/trans2d.h"
#include "merge/warp_rows.h"

uint32_t tav_sr2_Warp_frame(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                            const tav_sr2_Image* src, const tav_sr2_Trans2D* m);
uint32_t tav_sr2_Warp_frameWith(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                const tav_sr2_Image* src, const tav_sr2_Trans2D* m,
                                const tav_sr2_WarpRowOps* rows);
