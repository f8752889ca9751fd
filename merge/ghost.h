// tav_sr2_Ghost: where a warped frame may be trusted, one byte per 4 x 4 block of the work image.
//
// The base and each later frame are reduced to a work image (the crop shrunk by ghost_scale),
// pre-filtered and smoothed. A regularised optical flow per block (a 2 x 2 structure tensor of
// the base, smoothed over 7 x 7 blocks) removes what small true motion explains, and what the flow
// leaves unexplained becomes the block's ghost byte: 0 means the frame agrees with the base, 255
// that the block is a ghost. flow_map keeps the flow, (u + 128, v + 128) in 1/32 work pixel.
//
// tav_sr2_Ghost_init(ghost, pool): defaults, empty images, no workers (set `threads` and
//   `tasks` before the first pass to spread the rows).
// tav_sr2_Ghost_finish(ghost): releases every image; the first failing release is returned.
// tav_sr2_Ghost_setBase(ghost, crop): the base frame's work image, block grid, inverse tensor and
//   radial weight. ghost_map is cleared to 255 (nothing trusted yet).
// tav_sr2_Ghost_addFrame(ghost, warped): ghost_map and flow_map of a frame warped onto the crop;
//   a 0 in the warped frame marks a pixel that lay outside its frame.
//
// Frames are format 48 or 49 (their luma is used) or a plain UINT8 image. Statuses:
// TAV_ERROR_PARAM for a null argument, a frame whose size differs from the base's, or a work image
// without one whole block (narrower or lower than 8 work pixels); TAV_ERROR_UNSUPPORTED for another
// format; TAV_ERROR_GENERIC for addFrame before setBase; the status of a failing image call for
// the work images and the base's grids. Inside addFrame, from the brightness match on, a failing
// scratch allocation ends the pass silently: the call returns 0 and ghost_map stays 255.
//
// The pre-smoothing strength deghost_noise_level drives a 3 x 3 sigma window whose threshold is
// trunc(deghost_noise_level * factor + 0.5) grey levels, factor 4.0 for a crop at its own scale
// (input_scale below 1.5) and 2.0 for a zoomed one.
#pragma once

#include <stdint.h>

#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "merge/ghost_rows.h"

struct tav_sr2_TaskSys;
struct tav_sr2_ThreadPool;

struct tav_sr2_Ghost {
    tav_sr2_MemPool* pool;
    tav_sr2_TaskSys* tasks;
    tav_sr2_ThreadPool* threads;
    tav_sr2_Image base_filtered;  // UINT8, the base's work image after the pre-filter
    tav_sr2_Image base_small;     // UINT8, the same before it
    tav_sr2_Image inv_tensor;     // FLOAT, t0, t1, t2 per block
    tav_sr2_Image cur_filtered;
    tav_sr2_Image cur_small;
    tav_sr2_Image ghost_map;          // UINT8, one per block
    tav_sr2_Image flow_map;           // UINT88, one pair per block
    int32_t ghost_block_rect[4];      // whole blocks in the work image: x0, y0, x1, y1
    int32_t ghost_valid_rect[4];      // the crop pixels the work image covers
    double deghost_gauss_sigma0;      // pre-filter sigma
    double deghost_noise_level;       // pre-smoothing strength
    double radial_falloff;            // how much less a corner counts than the centre
    tav_sr2_Image radial_small;       // UINT8, centre weight on at most 768 cells
    tav_sr2_Image radial_weight;      // UINT8, per block
    int32_t ghost_scale;              // work image reduction: 1, 2 or 4
    double deghost_ofs;               // the tuning's ghost threshold
    float input_scale;                // input width over crop width, whole
    int32_t fast_merge_mode;          // the tuning's merge mode
    const tav_sr2_GhostRowOps* rows;  // row kernels; the vector table by default
};

uint32_t tav_sr2_Ghost_init(tav_sr2_Ghost* ghost, tav_sr2_MemPool* pool);
uint32_t tav_sr2_Ghost_finish(tav_sr2_Ghost* ghost);
uint32_t tav_sr2_Ghost_setBase(tav_sr2_Ghost* ghost, const tav_sr2_Image* crop);
uint32_t tav_sr2_Ghost_addFrame(tav_sr2_Ghost* ghost, const tav_sr2_Image* warped);
