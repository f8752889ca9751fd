// Per-pixel image operators shared by the stages: format conversion, arithmetic shift, table
// look-up, fill and the masked blend of the CPU merge.
//
// Statuses: TAV_ERROR_PARAM (0x80000001) for null arguments, missing planes, sizes that differ
// or a format pair an operator does not list; TAV_ERROR_GENERIC (0x80000000) for an image of
// zero width or height; TAV_ERROR_UNSUPPORTED (0x80000010) for a format outside an operator's
// list.
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "foundation/image.h"

// Format change at equal size. Equal formats copy. Single-plane numbers (UINT8, INT16, UINT16,
// INT32, FLOAT) convert by value, saturating, floats rounding half away from zero; UINT88 and
// UINT1616 likewise per sample. Among the frames 48, 49, 52, 53: 8 to 10 bits is v << 2, 10 to
// 8 bits is (v + 2) >> 2 below 1022 and 255 from there, and the chroma pair is swapped when the
// U/V order differs.
uint32_t tav_sr2_Image_convert(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                               const tav_sr2_Image* src);

// out = in >> shift (arithmetic; a negative shift shifts left) on equal sizes, by the key
// (destination format << 8) | source format: INT32 from INT32, UINT8 or UINT16; UINT8 and
// UINT16 from INT32, and UINT8 from UINT16, saturating to the destination's range. Any other
// key: TAV_ERROR_PARAM.
uint32_t tav_sr2_Image_shift_right(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src, int32_t shift);

// out = table[in] on UINT8 images of equal size, one row task per row; in place is fine.
uint32_t tav_sr2_Image_lookup(tav_sr2_TaskSys* tasks, tav_sr2_Image* dst, const tav_sr2_Image* src,
                              const uint8_t* table);

// Sets every sample of every plane of the image to `value`, converted to the sample type
// (integers truncated to their width, a float for FLOAT planes). Formats with 8-bit samples
// (1, 6, 35, 44..49), 16-bit samples (2, 3, 7, 50..53, 63..66) and 32-bit samples (4, 5, 67).
uint32_t tav_sr2_Image_fillValue(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* image, int32_t value);

// The running-mean blend of the CPU merge, per pixel with c the mask value (0..128, the share
// of a): frames 48 and 49 get ((128 - c) b + c a + 64) >> 7, each chroma row taking the mask of
// luma row 2 * row, byte column x the mask of luma column x; plain UINT8 gets the truncated
// ((128 - c) b + c a) >> 7. dst, a and b of one format and size; mask UINT8 of that size. dst may
// be a or b. Other formats: TAV_ERROR_PARAM.
uint32_t tav_sr2_Image_blendMask(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                 const tav_sr2_Image* a, const tav_sr2_Image* b,
                                 const tav_sr2_Image* mask);
