// tav_sr2_GuidedFilter: the edge-preserving luma filter, a self-guided filter on the 4 x 4 block
// grid along four line directions, fused over the eight half-lines that end at each block.
//
// Each block of the grid gets a linear model y = a x + b per direction from the block sums along a
// line of L = 2n + 1 blocks (the window w gives r = (w >> 2) | 1, L = (r >> 1) | 1, n = r >> 2).
// The fusion takes, at block (i, j), the models of the eight windows that end there (positions
// i +- s, j +- s along each direction, s = L >> 1), weighs each by how flat it is, and the fused a
// and b are enlarged 4x bilinearly and applied to the source: an edge is never averaged across,
// since one of the eight windows always lies on the pixel's own side of it.
//
// Call order: defaults, init, setThreads, setup, any number of process calls, finish. A filter
// lives on its caller's stack for one stage and serves one call at a time.
//
// tav_sr2_GuidedFilter_setup(filter, width, height, format, config): the grid images for the
//   format's pixel class (earlier buffers released first). TAV_ERROR_UNSUPPORTED for a format
//   outside the classes, TAV_ERROR_PARAM for a level_shift above 2 or a negative size; an
//   allocation's status, with nothing kept.
// tav_sr2_GuidedFilter_process(filter, src or null, dst, window, eps): filters the rectangle
//   W x H = (width & ~3) x (height & ~3) of src into dst (src null or equal to dst: in place).
//   A frame is reached through its luma plane. |eps| <= 1e-12 or a window below 2 copies (or
//   leaves) the image. Past W and H the columns and rows are copied when dst is another image and
//   left as they were in place. The 16-bit class scales eps by 16.
// tav_sr2_GuidedFilter_processMap: the same with eps * map / 32 per block, the map (UINT8, any
//   size) resized onto the blocks of the rectangle.
//
// Statuses: TAV_ERROR_PARAM for a null filter, destination or map, a window above 101, an image
//   of another size than set up or an empty rectangle; TAV_ERROR_STATE (0x80000002) for an image
//   of another class; the status of a failing scratch allocation (the destination is then
//   unchanged). The scratch of a call is released on every path.
#pragma once

#include <stdint.h>

#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "nr/guided_filter_rows.h"

struct tav_sr2_TaskSys;

// Largest window a process call accepts.
static const int32_t TAV_SR2_GF_MAX_WINDOW = 101;
// Directions of the line windows: horizontal, vertical, diagonal, antidiagonal.
static const int32_t TAV_SR2_GF_DIRECTIONS = 4;

// Pixel classes of the filter: the sample type that selects every buffer width.
enum tav_sr2_GuidedFilterClass : int32_t {
    TAV_SR2_GF_CLASS_NONE = 0,
    TAV_SR2_GF_CLASS_8BIT = 1,
    TAV_SR2_GF_CLASS_16BIT = 3,
    TAV_SR2_GF_CLASS_FLOAT = 5,
};

struct tav_sr2_GuidedFilterConfig {
    uint32_t mode;         // 1
    uint32_t level_shift;  // halvings from the image to the block grid; only 2 is built
};

struct tav_sr2_GuidedFilter {
    tav_sr2_MemPool* pool;
    tav_sr2_TaskSys* tasks;
    int32_t width;
    int32_t height;
    int32_t cls;  // tav_sr2_GuidedFilterClass; NONE until set up
    tav_sr2_GuidedFilterConfig config;
    tav_sr2_Rect rect;  // the filtered rectangle, 0, 0, W, H
    // Block grid gw x gh, gw = ((width >> 2) + 1) & ~1, gh likewise.
    int32_t grid_width;
    int32_t grid_height;
    tav_sr2_Image blk_sum;  // UINT16 (FLOAT for the float class)
    tav_sr2_Image blk_sq;   // INT32 (FLOAT)
    tav_sr2_Image a_img;    // fused model: UINT8 / UINT16 / FLOAT
    tav_sr2_Image b_img;
    tav_sr2_Image a_dir[TAV_SR2_GF_DIRECTIONS];  // per direction, cleared at setup
    tav_sr2_Image b_dir[TAV_SR2_GF_DIRECTIONS];
    tav_sr2_Image line_sum[TAV_SR2_GF_DIRECTIONS];  // 8-bit: UINT16, else INT32 (FLOAT)
    tav_sr2_Image line_sq[TAV_SR2_GF_DIRECTIONS];   // INT32 (FLOAT)
    tav_sr2_Image map_small;                        // UINT8, the noise variant's map on the grid
    const tav_sr2_GuidedRowOps* rows;               // row kernels; the vector table by default
};

void tav_sr2_GuidedFilter_defaults(tav_sr2_GuidedFilterConfig* config);
uint32_t tav_sr2_GuidedFilter_init(tav_sr2_GuidedFilter* filter, tav_sr2_MemPool* pool);
uint32_t tav_sr2_GuidedFilter_finish(tav_sr2_GuidedFilter* filter);
uint32_t tav_sr2_GuidedFilter_setThreads(tav_sr2_GuidedFilter* filter, tav_sr2_TaskSys* tasks);
uint32_t tav_sr2_GuidedFilter_setup(tav_sr2_GuidedFilter* filter, int32_t width, int32_t height,
                                    int32_t format, const tav_sr2_GuidedFilterConfig* config);
uint32_t tav_sr2_GuidedFilter_process(tav_sr2_GuidedFilter* filter, const tav_sr2_Image* src,
                                      tav_sr2_Image* dst, int32_t window, float eps);
uint32_t tav_sr2_GuidedFilter_processMap(tav_sr2_GuidedFilter* filter, const tav_sr2_Image* src,
                                         tav_sr2_Image* dst, const tav_sr2_Image* noise_map,
                                         int32_t window, float eps);

// The class of an engine format code: 8-bit for 1, 35, 44..49; 16-bit for 3, 50, 52, 53, 63,
// 64; float for 5 and 67; TAV_SR2_GF_CLASS_NONE otherwise.
int32_t tav_sr2_GuidedFilter_classOf(int32_t format);

// Bytes of pool a filter set up for width x height of the format takes at most, setup and the
// scratch of a process call of either variant together. 0 for a negative size or a format
// outside the classes.
uint32_t tav_sr2_GuidedFilter_requiredSize(int32_t width, int32_t height, int32_t format);
