// Row kernels of the ghost map: the box reductions of the work image, its edge-preserving
// smoother, and the per-block sums of the structure tensor, of the flow's right-hand side and of
// the residual. No image records, no threads.
//
// Block kernels take pixel rows positioned at the first column of the block rectangle, so that
// column -1 and column 4 * blocks may be read (the gradients reach one pixel out), and the six rows
// b[0] .. b[5] hold rows y0 - 1 .. y0 + 4 of the base around a block row starting at y0. The
// current frame's rows c[0] .. c[3] are rows y0 .. y0 + 3. Ix = b(x + 1) - b(x - 1) and
// Iy = b(y + 1) - b(y - 1), central differences on the base.
//
// The scalar table is the reference; the vector table (Highway, dispatched to the best target of
// the running CPU) computes the same numbers.
#pragma once

#include <stdint.h>

struct tav_sr2_GhostRowOps {
    // out[x] = (sum of the 2 x 2 cell at 2x + 2) >> 2, n outputs.
    void (*box2)(const uint8_t* r0, const uint8_t* r1, uint8_t* out, int32_t n);
    // out[x] = (sum of the 4 x 4 cell at 4x + 8) >> 4, rows[0..3], n outputs.
    void (*box4)(const uint8_t* const* rows, uint8_t* out, int32_t n);
    // The sigma window: the 3 x 3 neighbours within `threshold` of the centre (the centre always
    // among them) averaged, rounded half up. rows[0..2] are the rows above, at and below, each
    // of n pixels; columns past either end repeat the end pixel.
    void (*smooth)(const uint8_t* const* rows, uint8_t* out, int32_t n, int32_t threshold);
    // Per block: A = sum Ix^2, B = sum Ix Iy, C = sum Iy^2 into out[3j .. 3j + 2].
    void (*tensor)(const uint8_t* const* b, int32_t blocks, int32_t* out);
    // Per block, with d = c ? c - b : 0: sum d Ix, sum d Iy into out[2j], out[2j + 1].
    void (*rhs)(const uint8_t* const* b, const uint8_t* const* c, int32_t blocks, int32_t* out);
    // Per block, the ghost byte from the flow pair (flow[2j], flow[2j + 1], 128 meaning still)
    // and the radial weight weight[j]:
    //   r = 64 (c - b) - u Ix - v Iy per pixel, S = sum (r >> 1), Q = sum (|r| >> 1),
    //   value = 512 + ((Q >> 3) + (|S| >> 3) + ((min(|S|, 32767) m) >> 15) +
    //           ((clamp(Q, 0, 32767) m) >> 15)) w,  m = u^2 + v^2,
    //   out[j] = clamp(value >> 10, 0, 255).
    void (*residual)(const uint8_t* const* b, const uint8_t* const* c, const uint8_t* flow,
                     const uint8_t* weight, int32_t blocks, uint8_t* out);
};

extern const tav_sr2_GhostRowOps tav_sr2_ghostRowsScalar;
extern const tav_sr2_GhostRowOps tav_sr2_ghostRowsVector;
