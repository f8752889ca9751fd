// Block search on the top pyramid level.
//
// tav_sr2_BlockSearch_run: for each spiral offset the two images are laid over each other with
//   their centres shifted by the offset, and the absolute differences are summed over the
//   overlap row by row; a row loop stops as soon as its partial sum can no longer win. The
//   comparison of means is made without a division, s * n_best < s_best * n.
// tav_sr2_Align_blockSearch: radius = (min side * block_search_range) >> 15 around the projected
//   centre of a; a centre outside a leaves everything as it is.
#include "alignment/block_search.h"

#include "alignment/motion_estimator.h"
#include "alignment/motion_model.h"
#include "alignment/spiral.h"

namespace {

inline int32_t maxOf(int32_t a, int32_t b) {
    return a > b ? a : b;
}
inline int32_t minOf(int32_t a, int32_t b) {
    return a < b ? a : b;
}

struct Best {
    int64_t sum;
    int64_t area;
    int32_t dx, dy;
};

// Sum over the overlap for one offset, or false when it cannot beat the best.
bool overlapSum(const tav_sr2_Image* a, const tav_sr2_Image* b, int32_t shift_x, int32_t shift_y,
                const Best& best, int64_t* sum, int64_t* area) {
    const int32_t x0 = maxOf(0, -shift_x), x1 = minOf(a->width, b->width - shift_x);
    const int32_t y0 = maxOf(0, -shift_y), y1 = minOf(a->height, b->height - shift_y);
    if (x1 <= x0 || y1 <= y0) return false;
    const int64_t n = (int64_t)(x1 - x0) * (y1 - y0);
    const int64_t bound = best.sum * n;  // the sum loses once s * n_best reaches this
    int64_t s = 0;
    for (int32_t y = y0; y < y1; ++y) {
        const uint8_t* pa = a->plane[0] + (int64_t)y * a->pitch[0];
        const uint8_t* pb = b->plane[0] + (int64_t)(y + shift_y) * b->pitch[0] + shift_x;
        int32_t row = 0;
        for (int32_t x = x0; x < x1; ++x) {
            const int32_t d = pa[x] - pb[x];
            row += d < 0 ? -d : d;
        }
        s += row;
        if (s * best.area >= bound) return false;
    }
    *sum = s;
    *area = n;
    return true;
}

}  // namespace

void tav_sr2_BlockSearch_run(const tav_sr2_Image* a, const tav_sr2_Image* b, int32_t start_x,
                             int32_t start_y, int32_t radius, tav_sr2_BlockMatch* match) {
    Best best;
    best.area = (int64_t)a->width * a->height;
    best.sum = best.area << 8;
    best.dx = start_x;
    best.dy = start_y;
    // Offset (dx, dy) puts a's centre over b's centre moved by (dx, dy).
    const int32_t centre_x = b->width / 2 - a->width / 2;
    const int32_t centre_y = b->height / 2 - a->height / 2;
    tav_sr2_spiralWalk(radius, [&](int32_t sx, int32_t sy) {
        const int32_t dx = start_x + sx, dy = start_y + sy;
        int64_t sum, area;
        if (overlapSum(a, b, dx + centre_x, dy + centre_y, best, &sum, &area)) {
            best.sum = sum;
            best.area = area;
            best.dx = dx;
            best.dy = dy;
        }
    });
    match->dx = best.dx;
    match->dy = best.dy;
    match->sum = best.sum;
    match->area = best.area;
    match->confidence =
        best.area > 0 ? (int32_t)(((best.sum & 0x1ffff) << 15) / best.area) : INT32_MAX;
}

uint32_t tav_sr2_Align_blockSearch(tav_sr2_MotionEstimator* est, tav_sr2_Trans2D* t,
                                   const tav_sr2_Image* a, const tav_sr2_Image* b) {
    if (est == nullptr || t == nullptr || a == nullptr || b == nullptr) return TAV_ERROR_PARAM;
    const int32_t half_w = a->width / 2, half_h = a->height / 2;
    int32_t cx, cy;
    tav_sr2_Trans2D_applyInt(t, &cx, &cy, half_w, half_h);
    if (cx < 0 || cy < 0 || cx >= a->width || cy >= a->height) return TAV_OK;
    if (a->plane[0] == nullptr || b->plane[0] == nullptr) return TAV_ERROR_PARAM;
    const int32_t start_x = cx - half_w, start_y = cy - half_h;
    const int32_t radius =
        (int32_t)(((int64_t)minOf(a->width, a->height) * est->block_search_range) >> 15);
    tav_sr2_BlockMatch match;
    tav_sr2_BlockSearch_run(a, b, start_x, start_y, radius, &match);
    if (match.confidence >= est->block_fail_level) {
        est->status |= TAV_ALIGN_BLOCK_FAILED;
        return TAV_OK;
    }
    t->m[2] += match.dx - start_x;
    t->m[5] += match.dy - start_y;
    return TAV_OK;
}
