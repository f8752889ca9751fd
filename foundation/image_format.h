// Engine pixel formats: the code enum, the layout table that drives every pitch and plane size,
// and the name table through which the instance layer's codes reach the engine.
//
// A format is described by one row of tav_sr2_format_layout (sixteen bytes). Nothing else in the
// engine knows how a format lays out its planes: pitches, plane rows and sizes all come from
// tav_sr2_ImageFormat_layout over that row.
#pragma once

#include <stdint.h>

// Engine format codes. Only 48, 49 and 62 are accepted as run formats; the single-plane codes
// 1..7 serve as working images.
enum tav_sr2_ImageFormatCode : int32_t {
    TAV_SR2_FMT_NONE = 0,
    TAV_SR2_FMT_UINT8 = 1,
    TAV_SR2_FMT_INT16 = 2,
    TAV_SR2_FMT_UINT16 = 3,
    TAV_SR2_FMT_INT32 = 4,
    TAV_SR2_FMT_FLOAT = 5,
    TAV_SR2_FMT_UINT88 = 6,
    TAV_SR2_FMT_UINT1616 = 7,
    TAV_SR2_FMT_RGB565 = 8,
    TAV_SR2_FMT_RGB888 = 9,
    TAV_SR2_FMT_BGR888 = 10,
    TAV_SR2_FMT_RGBA8888 = 11,
    TAV_SR2_FMT_RBGA8888 = 12,
    TAV_SR2_FMT_GRBA8888 = 13,
    TAV_SR2_FMT_GBRA8888 = 14,
    TAV_SR2_FMT_BRGA8888 = 15,
    TAV_SR2_FMT_BGRA8888 = 16,
    TAV_SR2_FMT_ARGB8888 = 17,
    TAV_SR2_FMT_ARBG8888 = 18,
    TAV_SR2_FMT_AGRB8888 = 19,
    TAV_SR2_FMT_AGBR8888 = 20,
    TAV_SR2_FMT_ABRG8888 = 21,
    TAV_SR2_FMT_ABGR8888 = 22,
    TAV_SR2_FMT_RGB10B_PACKED_LE_XBGR = 23,
    TAV_SR2_FMT_RGB161616 = 24,
    TAV_SR2_FMT_RGBA32F = 25,
    TAV_SR2_FMT_BGRA32F = 26,
    TAV_SR2_FMT_ARGB32F = 27,
    TAV_SR2_FMT_ABGR32F = 28,
    TAV_SR2_FMT_YUV444_YUV = 29,
    TAV_SR2_FMT_YUV444_YVU = 30,
    TAV_SR2_FMT_YUV444_UYV = 31,
    TAV_SR2_FMT_YUV444_VYU = 32,
    TAV_SR2_FMT_YUV444_UVY = 33,
    TAV_SR2_FMT_YUV444_VUY = 34,
    TAV_SR2_FMT_YUV444_PLANAR = 35,
    TAV_SR2_FMT_YUV422_YUYV = 36,
    TAV_SR2_FMT_YUV422_YVYU = 37,
    TAV_SR2_FMT_YUV422_UYVY = 38,
    TAV_SR2_FMT_YUV422_VYUY = 39,
    TAV_SR2_FMT_YUV422_YYUV = 40,
    TAV_SR2_FMT_YUV422_YYVU = 41,
    TAV_SR2_FMT_YUV422_UVYY = 42,
    TAV_SR2_FMT_YUV422_VUYY = 43,
    TAV_SR2_FMT_YUV422_PLANAR = 44,
    TAV_SR2_FMT_YUV422_SEMIPLANAR = 45,
    TAV_SR2_FMT_YVU422_SEMIPLANAR = 46,
    TAV_SR2_FMT_YUV420_PLANAR = 47,
    TAV_SR2_FMT_YUV420_SEMIPLANAR = 48,
    TAV_SR2_FMT_YVU420_SEMIPLANAR = 49,
    TAV_SR2_FMT_YUV10B422_PLANAR = 50,
    TAV_SR2_FMT_YUV10B420_PLANAR = 51,
    TAV_SR2_FMT_YUV10B420_SEMIPLANAR = 52,
    TAV_SR2_FMT_YVU10B420_SEMIPLANAR = 53,
    TAV_SR2_FMT_YUV10B_PACKED_LE_422_YUYV = 54,
    TAV_SR2_FMT_YUV10B_PACKED_LE_422_YVYU = 55,
    TAV_SR2_FMT_YUV10B_PACKED_LE_422_UYVY = 56,
    TAV_SR2_FMT_YUV10B_PACKED_LE_422_VYUY = 57,
    TAV_SR2_FMT_YUV10B_PACKED_LE_422_YYUV = 58,
    TAV_SR2_FMT_YUV10B_PACKED_LE_422_YYVU = 59,
    TAV_SR2_FMT_YUV10B_PACKED_LE_422_UVYY = 60,
    TAV_SR2_FMT_YUV10B_PACKED_LE_422_VUYY = 61,
    TAV_SR2_FMT_YUV10B_PACKED_LE_420S = 62,
    TAV_SR2_FMT_YUV16B444_PLANAR = 63,
    TAV_SR2_FMT_YUV16B422_PLANAR = 64,
    TAV_SR2_FMT_YUV16B420_SEMIPLANAR = 65,
    TAV_SR2_FMT_YVU16B420_SEMIPLANAR = 66,
    TAV_SR2_FMT_YUV32F422_PLANAR = 67,
    TAV_SR2_FMT_BAYER8_RGGB = 68,
    TAV_SR2_FMT_BAYER8_GRBG = 69,
    TAV_SR2_FMT_BAYER8_GBRG = 70,
    TAV_SR2_FMT_BAYER8_BGGR = 71,
    TAV_SR2_FMT_BAYER10_UNPACKED_RGGB = 72,
    TAV_SR2_FMT_BAYER10_UNPACKED_GRBG = 73,
    TAV_SR2_FMT_BAYER10_UNPACKED_GBRG = 74,
    TAV_SR2_FMT_BAYER10_UNPACKED_BGGR = 75,
    TAV_SR2_FMT_BAYER10_M8L2PACKED_RGGB = 76,
    TAV_SR2_FMT_BAYER10_M8L2PACKED_GRBG = 77,
    TAV_SR2_FMT_BAYER10_M8L2PACKED_GBRG = 78,
    TAV_SR2_FMT_BAYER10_M8L2PACKED_BGGR = 79,
    TAV_SR2_FMT_BAYER12_UNPACKED_RGGB = 80,
    TAV_SR2_FMT_BAYER12_UNPACKED_GRBG = 81,
    TAV_SR2_FMT_BAYER12_UNPACKED_GBRG = 82,
    TAV_SR2_FMT_BAYER12_UNPACKED_BGGR = 83,
    TAV_SR2_FMT_BAYER16_RGGB = 84,
    TAV_SR2_FMT_BAYER16_GRBG = 85,
    TAV_SR2_FMT_BAYER16_GBRG = 86,
    TAV_SR2_FMT_BAYER16_BGGR = 87,
    TAV_SR2_FMT_HSV = 88,
    TAV_SR2_FMT_LAB = 89,
};

static const int32_t TAV_SR2_FORMAT_COUNT = 90;

// Columns of a tav_sr2_format_layout row. Columns 12 and 14 are reserved and always 0.
enum tav_sr2_FormatLayoutColumn : int32_t {
    TAV_SR2_LAYOUT_BYTES0 = 0,   // bytes of a pixel group in plane 0
    TAV_SR2_LAYOUT_PIXELS0 = 1,  // pixels in that group
    TAV_SR2_LAYOUT_ROWS0 = 2,    // row multiplier of plane 0
    TAV_SR2_LAYOUT_VSHIFT0 = 3,  // plane 0 has one row per 2^vshift0 picture rows
    TAV_SR2_LAYOUT_BYTES1 = 4,   // 0: the format has no plane 1
    TAV_SR2_LAYOUT_PIXELS1 = 5,
    TAV_SR2_LAYOUT_ROWS1 = 6,
    TAV_SR2_LAYOUT_VSHIFT1 = 7,
    TAV_SR2_LAYOUT_BYTES2 = 8,  // 0: the format has no plane 2
    TAV_SR2_LAYOUT_PIXELS2 = 9,
    TAV_SR2_LAYOUT_ROWS2 = 10,
    TAV_SR2_LAYOUT_VSHIFT2 = 11,
    TAV_SR2_LAYOUT_WIDTH_UNIT = 13,    // width rounds up to a multiple of this
    TAV_SR2_LAYOUT_HEIGHT_SHIFT = 15,  // height rounds up to a multiple of 2^this
};

// Plane i of a row lives in columns 4*i .. 4*i+3: bytes, pixels, rows, vshift.
inline constexpr uint8_t tav_sr2_format_layout[90][16] = {
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},   // 0 NONE
    {1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 1 UINT8
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 2 INT16
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 3 UINT16
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 4 INT32
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 5 FLOAT
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 6 UINT88
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 7 UINT1616
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 8 RGB565
    {3, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 9 RGB888
    {3, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 10 BGR888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 11 RGBA8888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 12 RBGA8888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 13 GRBA8888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 14 GBRA8888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 15 BRGA8888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 16 BGRA8888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 17 ARGB8888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 18 ARBG8888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 19 AGRB8888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 20 AGBR8888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 21 ABRG8888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 22 ABGR8888
    {4, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 23 RGB10B_PACKED_LE_XBGR
    {6, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 24 RGB161616
    {16, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},  // 25 RGBA32F
    {16, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},  // 26 BGRA32F
    {16, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},  // 27 ARGB32F
    {16, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},  // 28 ABGR32F
    {3, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 29 YUV444_YUV
    {3, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 30 YUV444_YVU
    {3, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 31 YUV444_UYV
    {3, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 32 YUV444_VYU
    {3, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 33 YUV444_UVY
    {3, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 34 YUV444_VUY
    {1, 1, 1, 0, 1, 1, 1, 0, 1, 1, 1, 0, 0, 1, 0, 0},   // 35 YUV444_PLANAR
    {4, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0},   // 36 YUV422_YUYV
    {4, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0},   // 37 YUV422_YVYU
    {4, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0},   // 38 YUV422_UYVY
    {4, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0},   // 39 YUV422_VYUY
    {4, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0},   // 40 YUV422_YYUV
    {4, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0},   // 41 YUV422_YYVU
    {4, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0},   // 42 YUV422_UVYY
    {4, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0},   // 43 YUV422_VUYY
    {1, 1, 1, 0, 1, 2, 1, 0, 1, 2, 1, 0, 0, 2, 0, 0},   // 44 YUV422_PLANAR
    {1, 1, 1, 0, 2, 2, 1, 0, 0, 0, 0, 0, 0, 2, 0, 0},   // 45 YUV422_SEMIPLANAR
    {1, 1, 1, 0, 2, 2, 1, 0, 0, 0, 0, 0, 0, 2, 0, 0},   // 46 YVU422_SEMIPLANAR
    {1, 1, 1, 0, 1, 2, 1, 1, 1, 2, 1, 1, 0, 2, 0, 1},   // 47 YUV420_PLANAR
    {1, 1, 1, 0, 2, 2, 1, 1, 0, 0, 0, 0, 0, 2, 0, 1},   // 48 YUV420_SEMIPLANAR
    {1, 1, 1, 0, 2, 2, 1, 1, 0, 0, 0, 0, 0, 2, 0, 1},   // 49 YVU420_SEMIPLANAR
    {2, 1, 1, 0, 2, 2, 1, 0, 2, 2, 1, 0, 0, 2, 0, 0},   // 50 YUV10B422_PLANAR
    {2, 1, 1, 0, 2, 2, 1, 1, 2, 2, 1, 1, 0, 2, 0, 1},   // 51 YUV10B420_PLANAR
    {2, 1, 1, 0, 4, 2, 1, 1, 0, 0, 0, 0, 0, 2, 0, 1},   // 52 YUV10B420_SEMIPLANAR
    {2, 1, 1, 0, 4, 2, 1, 1, 0, 0, 0, 0, 0, 2, 0, 1},   // 53 YVU10B420_SEMIPLANAR
    {16, 6, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0},  // 54 YUV10B_PACKED_LE_422_YUYV
    {16, 6, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0},  // 55 YUV10B_PACKED_LE_422_YVYU
    {16, 6, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0},  // 56 YUV10B_PACKED_LE_422_UYVY
    {16, 6, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0},  // 57 YUV10B_PACKED_LE_422_VYUY
    {16, 6, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0},  // 58 YUV10B_PACKED_LE_422_YYUV
    {16, 6, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0},  // 59 YUV10B_PACKED_LE_422_YYVU
    {16, 6, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0},  // 60 YUV10B_PACKED_LE_422_UVYY
    {16, 6, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0},  // 61 YUV10B_PACKED_LE_422_VUYY
    {4, 3, 1, 0, 8, 6, 1, 1, 0, 0, 0, 0, 0, 6, 0, 1},   // 62 YUV10B_PACKED_LE_420S
    {2, 1, 1, 0, 2, 1, 1, 0, 2, 1, 1, 0, 0, 1, 0, 0},   // 63 YUV16B444_PLANAR
    {2, 1, 1, 0, 2, 2, 1, 0, 2, 2, 1, 0, 0, 2, 0, 0},   // 64 YUV16B422_PLANAR
    {2, 1, 1, 0, 4, 2, 1, 1, 0, 0, 0, 0, 0, 2, 0, 1},   // 65 YUV16B420_SEMIPLANAR
    {2, 1, 1, 0, 4, 2, 1, 1, 0, 0, 0, 0, 0, 2, 0, 1},   // 66 YVU16B420_SEMIPLANAR
    {4, 1, 1, 0, 4, 2, 1, 0, 4, 2, 1, 0, 0, 2, 0, 0},   // 67 YUV32F422_PLANAR
    {1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 68 BAYER8_RGGB
    {1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 69 BAYER8_GRBG
    {1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 70 BAYER8_GBRG
    {1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 71 BAYER8_BGGR
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 72 BAYER10_UNPACKED_RGGB
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 73 BAYER10_UNPACKED_GRBG
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 74 BAYER10_UNPACKED_GBRG
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 75 BAYER10_UNPACKED_BGGR
    {5, 4, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0},   // 76 BAYER10_M8L2PACKED_RGGB
    {5, 4, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0},   // 77 BAYER10_M8L2PACKED_GRBG
    {5, 4, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0},   // 78 BAYER10_M8L2PACKED_GBRG
    {5, 4, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0},   // 79 BAYER10_M8L2PACKED_BGGR
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 80 BAYER12_UNPACKED_RGGB
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 81 BAYER12_UNPACKED_GRBG
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 82 BAYER12_UNPACKED_GBRG
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 83 BAYER12_UNPACKED_BGGR
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 84 BAYER16_RGGB
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 85 BAYER16_GRBG
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 86 BAYER16_GBRG
    {2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 87 BAYER16_BGGR
    {3, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},   // 88 HSV
    {12, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},  // 89 LAB
};

struct tav_sr2_FormatName {
    int32_t code;
    const char* name;
};

// Rows 0..89 are the codes in order, so row c names code c; three aliases follow. Lookup by name
// walks all 93 rows and the first match wins.
inline constexpr tav_sr2_FormatName tav_sr2_format_names[93] = {
    {0, "NONE"},
    {1, "UINT8"},
    {2, "INT16"},
    {3, "UINT16"},
    {4, "INT32"},
    {5, "FLOAT"},
    {6, "UINT88"},
    {7, "UINT1616"},
    {8, "RGB565"},
    {9, "RGB888"},
    {10, "BGR888"},
    {11, "RGBA8888"},
    {12, "RBGA8888"},
    {13, "GRBA8888"},
    {14, "GBRA8888"},
    {15, "BRGA8888"},
    {16, "BGRA8888"},
    {17, "ARGB8888"},
    {18, "ARBG8888"},
    {19, "AGRB8888"},
    {20, "AGBR8888"},
    {21, "ABRG8888"},
    {22, "ABGR8888"},
    {23, "RGB10B_PACKED_LE_XBGR"},
    {24, "RGB161616"},
    {25, "RGBA32F"},
    {26, "BGRA32F"},
    {27, "ARGB32F"},
    {28, "ABGR32F"},
    {29, "YUV444_YUV"},
    {30, "YUV444_YVU"},
    {31, "YUV444_UYV"},
    {32, "YUV444_VYU"},
    {33, "YUV444_UVY"},
    {34, "YUV444_VUY"},
    {35, "YUV444_PLANAR"},
    {36, "YUV422_YUYV"},
    {37, "YUV422_YVYU"},
    {38, "YUV422_UYVY"},
    {39, "YUV422_VYUY"},
    {40, "YUV422_YYUV"},
    {41, "YUV422_YYVU"},
    {42, "YUV422_UVYY"},
    {43, "YUV422_VUYY"},
    {44, "YUV422_PLANAR"},
    {45, "YUV422_SEMIPLANAR"},
    {46, "YVU422_SEMIPLANAR"},
    {47, "YUV420_PLANAR"},
    {48, "YUV420_SEMIPLANAR"},
    {49, "YVU420_SEMIPLANAR"},
    {50, "YUV10B422_PLANAR"},
    {51, "YUV10B420_PLANAR"},
    {52, "YUV10B420_SEMIPLANAR"},
    {53, "YVU10B420_SEMIPLANAR"},
    {54, "YUV10B_PACKED_LE_422_YUYV"},
    {55, "YUV10B_PACKED_LE_422_YVYU"},
    {56, "YUV10B_PACKED_LE_422_UYVY"},
    {57, "YUV10B_PACKED_LE_422_VYUY"},
    {58, "YUV10B_PACKED_LE_422_YYUV"},
    {59, "YUV10B_PACKED_LE_422_YYVU"},
    {60, "YUV10B_PACKED_LE_422_UVYY"},
    {61, "YUV10B_PACKED_LE_422_VUYY"},
    {62, "YUV10B_PACKED_LE_420S"},
    {63, "YUV16B444_PLANAR"},
    {64, "YUV16B422_PLANAR"},
    {65, "YUV16B420_SEMIPLANAR"},
    {66, "YVU16B420_SEMIPLANAR"},
    {67, "YUV32F422_PLANAR"},
    {68, "BAYER8_RGGB"},
    {69, "BAYER8_GRBG"},
    {70, "BAYER8_GBRG"},
    {71, "BAYER8_BGGR"},
    {72, "BAYER10_UNPACKED_RGGB"},
    {73, "BAYER10_UNPACKED_GRBG"},
    {74, "BAYER10_UNPACKED_GBRG"},
    {75, "BAYER10_UNPACKED_BGGR"},
    {76, "BAYER10_M8L2PACKED_RGGB"},
    {77, "BAYER10_M8L2PACKED_GRBG"},
    {78, "BAYER10_M8L2PACKED_GBRG"},
    {79, "BAYER10_M8L2PACKED_BGGR"},
    {80, "BAYER12_UNPACKED_RGGB"},
    {81, "BAYER12_UNPACKED_GRBG"},
    {82, "BAYER12_UNPACKED_GBRG"},
    {83, "BAYER12_UNPACKED_BGGR"},
    {84, "BAYER16_RGGB"},
    {85, "BAYER16_GRBG"},
    {86, "BAYER16_GBRG"},
    {87, "BAYER16_BGGR"},
    {88, "HSV"},
    {89, "LAB"},
    {36, "YUY2"},
    {45, "NV16"},
    {49, "NV21"},
};

// Pitches, rows and byte sizes of the three planes of a w x h picture; all zero for a missing
// plane. Signed 32-bit throughout, as every caller does its own size arithmetic in i32.
struct tav_sr2_ImageLayout {
    int32_t pitch[3];
    int32_t rows[3];
    int32_t size[3];
    int32_t total;
};

// Callers check w, h >= 0 and code in 0..89; the function itself does not.
void tav_sr2_ImageFormat_layout(int32_t w, int32_t h, int32_t code, tav_sr2_ImageLayout* out);
// Planes the code has (0 for code 0); the code must be in 0..89.
int32_t tav_sr2_ImageFormat_planeCount(int32_t code);

int32_t tav_sr2_ImageFormat_byName(const char* name);
const char* tav_sr2_ImageFormat_name(int32_t code);
// what: 0 total, 1/3 rows0, 2 size0, 4 pitch0, 5/11 size1, 6/12 rows1, 7/13 pitch1, 8 size2,
// 9 rows2, 10 pitch2. 0 for a negative size, a code outside 0..89 or what above 13.
uint32_t tav_sr2_ImageFormat_query(int32_t width, int32_t height, int32_t code, uint32_t what);
bool tav_sr2_ImageFormat_isRgb(int32_t code);
bool tav_sr2_ImageFormat_isRgba(int32_t code);
bool tav_sr2_ImageFormat_isYuv(int32_t code);
