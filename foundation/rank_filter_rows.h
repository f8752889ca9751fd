// Row routines of the 3 x 3 rank filters: one template per sample layout, in a scalar reference
// and a Highway vector form with the same results.
//
// A row routine reads three source rows (above, centre, below; the caller passes the centre row
// again where the image has no neighbour) and writes one destination row. The window is cut at the
// left and right edges, never padded. Only the filtered samples of the destination are written:
// the chroma bytes of a packed YUV row keep what they hold.
#pragma once

#include <stdint.h>

typedef void (*tav_sr2_RankRowFn)(const uint8_t* above, const uint8_t* centre, const uint8_t* below,
                                  uint8_t* out, int32_t width);

enum tav_sr2_RankOp : int32_t {
    TAV_SR2_RANK_MIN = 0,
    TAV_SR2_RANK_MAX = 1,
};

// Sample layouts. The first group is in place or between images of one format; the second reads
// a "UINT8" source and writes the luma positions of a packed destination.
enum tav_sr2_RankLayout : int32_t {
    TAV_SR2_RANK_U8 = 0,        // bytes, one per pixel
    TAV_SR2_RANK_U16,           // 16-bit words
    TAV_SR2_RANK_I32,           // signed 32-bit
    TAV_SR2_RANK_F32,           // float
    TAV_SR2_RANK_RGB888,        // three channels, each by itself
    TAV_SR2_RANK_YUV444_Y0,     // luma is byte 0 of 3
    TAV_SR2_RANK_YUV444_Y1,     // luma is byte 1 of 3
    TAV_SR2_RANK_YUV444_Y2,     // luma is byte 2 of 3
    TAV_SR2_RANK_YUV422_Y0,     // luma is bytes 0 and 2 of 4
    TAV_SR2_RANK_YUV422_Y1,     // luma is bytes 1 and 3 of 4
    TAV_SR2_RANK_U8_TO_444_Y0,  // UINT8 source into the luma of a 3-byte pixel
    TAV_SR2_RANK_U8_TO_444_Y1,
    TAV_SR2_RANK_U8_TO_444_Y2,
    TAV_SR2_RANK_U8_TO_422_Y0,  // UINT8 source into the luma of a 4-byte pixel pair
    TAV_SR2_RANK_U8_TO_422_Y1,
    TAV_SR2_RANK_LAYOUT_COUNT,
};

// How a layout reaches its samples, in units that the row loop steps through. In the flat layouts
// (stride 1 on both sides) a unit is one sample and the horizontal neighbours lie `distance` units
// away, so RGB888 is a byte row whose neighbours are 3 bytes apart. In the strided layouts a unit
// is one pixel: its source sample is at unit * src_stride + src_offset, its destination sample at
// unit * dst_stride + dst_offset, and the neighbours are 1 unit away.
struct tav_sr2_RankLayoutInfo {
    int32_t sample_bytes;
    int32_t src_stride;
    int32_t src_offset;
    int32_t dst_stride;
    int32_t dst_offset;
    int32_t distance;
    int32_t units_per_pixel;
};

inline constexpr tav_sr2_RankLayoutInfo tav_sr2_rank_layouts[TAV_SR2_RANK_LAYOUT_COUNT] = {
    {1, 1, 0, 1, 0, 1, 1},  // U8
    {2, 1, 0, 1, 0, 1, 1},  // U16
    {4, 1, 0, 1, 0, 1, 1},  // I32
    {4, 1, 0, 1, 0, 1, 1},  // F32
    {1, 1, 0, 1, 0, 3, 3},  // RGB888
    {1, 3, 0, 3, 0, 1, 1},  // YUV444_Y0
    {1, 3, 1, 3, 1, 1, 1},  // YUV444_Y1
    {1, 3, 2, 3, 2, 1, 1},  // YUV444_Y2
    {1, 2, 0, 2, 0, 1, 1},  // YUV422_Y0
    {1, 2, 1, 2, 1, 1, 1},  // YUV422_Y1
    {1, 1, 0, 3, 0, 1, 1},  // U8_TO_444_Y0
    {1, 1, 0, 3, 1, 1, 1},  // U8_TO_444_Y1
    {1, 1, 0, 3, 2, 1, 1},  // U8_TO_444_Y2
    {1, 1, 0, 2, 0, 1, 1},  // U8_TO_422_Y0
    {1, 1, 0, 2, 1, 1, 1},  // U8_TO_422_Y1
};

struct tav_sr2_RankRows {
    tav_sr2_RankRowFn row[2][TAV_SR2_RANK_LAYOUT_COUNT];  // [tav_sr2_RankOp][layout]
};

// The scalar references.
const tav_sr2_RankRows* tav_sr2_rankRowsScalar(void);
// The vector forms for the best target this processor supports.
const tav_sr2_RankRows* tav_sr2_rankRowsVector(void);
