// What the files of the ghost map share: the work-image front (ghost_front.cpp) and the block
// grids (ghost_blocks.cpp), called by the two passes in ghost.cpp.
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "merge/ghost.h"

static inline tav_sr2_ImageCtx tav_sr2_Ghost_ctx(const tav_sr2_Ghost* ghost) {
    return {ghost->pool, ghost->threads, ghost->tasks};
}

// Work image (steps common to both passes): `small` holds the crop reduced by ghost_scale (a view
// of the crop when the scale is 1) and `filtered` the pre-filtered copy; ghost_valid_rect is set.
uint32_t tav_sr2_Ghost_workImage(tav_sr2_Ghost* ghost, const tav_sr2_Image* luma,
                                 tav_sr2_Image* small, tav_sr2_Image* filtered);
// The image reducer: UINT8 `src` down to the size of `dst`. Exact ratios 4 and 2 are box means;
// with both quotients at least 5 (or at least 3) a 4:1 (or 2:1) box pass over the leading whole
// cells into a temporary of a quarter (a half) of the size, rounded down to even, goes first;
// anything else is the bilinear resize.
uint32_t tav_sr2_Ghost_reduce(const tav_sr2_ImageCtx* ctx, const tav_sr2_GhostRowOps* rows,
                              tav_sr2_Image* dst, const tav_sr2_Image* src);
// Separable 7-tap Gaussian in Q15 of a UINT8 image through a 16-bit intermediate, over at most
// `max_bands` bands; dst may be src. Taps t_k = trunc(32768 e^(-k^2 / 2 sigma^2) / S + 0.5) for
// k = 1..3 and the centre taking the rest; rows and columns past the edges repeat the edge.
uint32_t tav_sr2_Ghost_gauss7(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                              const tav_sr2_Image* src, double sigma, int32_t max_bands);
// The sigma-window pre-smoothing of a filtered work image, in place.
uint32_t tav_sr2_Ghost_presmooth(tav_sr2_Ghost* ghost, tav_sr2_Image* filtered);
// Brings cur_filtered to the base's brightness (the gain of the pixel pairs that differ by less
// than 16 on a 4:1 reduction of the centre).
uint32_t tav_sr2_Ghost_matchBrightness(tav_sr2_Ghost* ghost);
// 16384 times the gain Sb / Sc, rounded, saturated to 0..65535; a 0 / 0 gain gives 0.
uint16_t tav_sr2_Ghost_gainQ14(uint64_t sum_base, uint64_t sum_cur);

// Block grids. nbx, nby: the blocks of ghost_block_rect.
uint32_t tav_sr2_Ghost_invTensor(tav_sr2_Ghost* ghost);
uint32_t tav_sr2_Ghost_radialWeight(tav_sr2_Ghost* ghost);
uint32_t tav_sr2_Ghost_flow(tav_sr2_Ghost* ghost);
uint32_t tav_sr2_Ghost_residual(tav_sr2_Ghost* ghost);
// ghost_map (255) and flow_map (still) at the block grid's size.
uint32_t tav_sr2_Ghost_allocMaps(tav_sr2_Ghost* ghost);
