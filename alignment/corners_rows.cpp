// Corner response rows.
//
// The scalar reference sums the tensor of each grid point over its own 16 pixels. The vector
// form first makes per-column sums of gx^2, gy^2 and gx gy over the four pixel rows for a run of
// consecutive columns, a vector of columns at a time, then adds four neighbouring columns for
// each grid point. Both sum the same integers, so they give the same responses.

#ifndef TAVRIN_CORNERS_ROWS_COMMON
#define TAVRIN_CORNERS_ROWS_COMMON

#include <stdint.h>

#include "alignment/corners_rows.h"

namespace tav_sr2_corners {

// Column sums are made for runs of at most this many columns, on the stack.
constexpr int32_t kChunkColumns = 256;

inline void responseRowScalar(const uint8_t* image, int32_t pitch, int32_t y, int32_t step,
                              int32_t i0, int32_t i1, int32_t* out) {
    for (int32_t i = i0; i < i1; ++i) {
        const int32_t x = i * step;
        int32_t sxx = 0, syy = 0, sxy = 0;
        for (int32_t v = y - 1; v <= y + 2; ++v) {
            const uint8_t* row = image + (int64_t)v * pitch;
            for (int32_t u = x - 1; u <= x + 2; ++u) {
                const int32_t gx = row[u + 1] - row[u - 1];
                const int32_t gy = row[u + pitch] - row[u - pitch];
                sxx += gx * gx;
                syy += gy * gy;
                sxy += gx * gy;
            }
        }
        out[i] = tav_sr2_harrisResponse(sxx, syy, sxy);
    }
}

// Column sums of columns u0 .. u1-1 into cxx/cyy/cxy[u - u0], scalar; the vector form's tail.
inline void columnSumsScalar(const uint8_t* image, int32_t pitch, int32_t y, int32_t u0, int32_t u1,
                             int32_t from, int32_t* cxx, int32_t* cyy, int32_t* cxy) {
    for (int32_t u = from; u < u1; ++u) {
        int32_t sxx = 0, syy = 0, sxy = 0;
        for (int32_t v = y - 1; v <= y + 2; ++v) {
            const uint8_t* row = image + (int64_t)v * pitch;
            const int32_t gx = row[u + 1] - row[u - 1];
            const int32_t gy = row[u + pitch] - row[u - pitch];
            sxx += gx * gx;
            syy += gy * gy;
            sxy += gx * gy;
        }
        cxx[u - u0] = sxx;
        cyy[u - u0] = syy;
        cxy[u - u0] = sxy;
    }
}

}  // namespace tav_sr2_corners

#endif  // TAVRIN_CORNERS_ROWS_COMMON

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "alignment/corners_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_corners {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Column sums of columns u0 .. u1-1, a vector of columns at a time while the loads stay inside
// the columns that the grid points read.
void columnSumsVector(const uint8_t* image, int32_t pitch, int32_t y, int32_t u0, int32_t u1,
                      int32_t* cxx, int32_t* cyy, int32_t* cxy) {
    const hn::ScalableTag<int32_t> d;
    const hn::Rebind<uint8_t, decltype(d)> d8;
    const int32_t lanes = static_cast<int32_t>(hn::Lanes(d));
    int32_t u = u0;
    for (; u + lanes <= u1; u += lanes) {
        auto sxx = hn::Zero(d);
        auto syy = hn::Zero(d);
        auto sxy = hn::Zero(d);
        for (int32_t v = y - 1; v <= y + 2; ++v) {
            const uint8_t* row = image + (int64_t)v * pitch + u;
            const auto left = hn::PromoteTo(d, hn::LoadU(d8, row - 1));
            const auto right = hn::PromoteTo(d, hn::LoadU(d8, row + 1));
            const auto up = hn::PromoteTo(d, hn::LoadU(d8, row - pitch));
            const auto down = hn::PromoteTo(d, hn::LoadU(d8, row + pitch));
            const auto gx = hn::Sub(right, left);
            const auto gy = hn::Sub(down, up);
            sxx = hn::Add(sxx, hn::Mul(gx, gx));
            syy = hn::Add(syy, hn::Mul(gy, gy));
            sxy = hn::Add(sxy, hn::Mul(gx, gy));
        }
        hn::StoreU(sxx, d, cxx + (u - u0));
        hn::StoreU(syy, d, cyy + (u - u0));
        hn::StoreU(sxy, d, cxy + (u - u0));
    }
    columnSumsScalar(image, pitch, y, u0, u1, u, cxx, cyy, cxy);
}

void responseRowVector(const uint8_t* image, int32_t pitch, int32_t y, int32_t step, int32_t i0,
                       int32_t i1, int32_t* out) {
    // Grid points per run, so that their columns X-1 .. X+2 fit the stack buffers.
    const int32_t per_run = (kChunkColumns - 4) / step + 1;
    int32_t cxx[kChunkColumns], cyy[kChunkColumns], cxy[kChunkColumns];
    for (int32_t ia = i0; ia < i1; ia += per_run) {
        const int32_t ib = ia + per_run < i1 ? ia + per_run : i1;
        const int32_t u0 = ia * step - 1;
        const int32_t u1 = (ib - 1) * step + 3;
        columnSumsVector(image, pitch, y, u0, u1, cxx, cyy, cxy);
        for (int32_t i = ia; i < ib; ++i) {
            const int32_t c = i * step - 1 - u0;
            const int32_t sxx = cxx[c] + cxx[c + 1] + cxx[c + 2] + cxx[c + 3];
            const int32_t syy = cyy[c] + cyy[c + 1] + cyy[c + 2] + cyy[c + 3];
            const int32_t sxy = cxy[c] + cxy[c + 1] + cxy[c + 2] + cxy[c + 3];
            out[i] = tav_sr2_harrisResponse(sxx, syy, sxy);
        }
    }
}

const tav_sr2_CornerRows* cornerRowsForTarget() {
    static constexpr tav_sr2_CornerRows table = {&responseRowVector};
    return &table;
}

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_corners
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_corners {
HWY_EXPORT(cornerRowsForTarget);
}  // namespace tav_sr2_corners

const tav_sr2_CornerRows* tav_sr2_cornerRowsScalar(void) {
    static constexpr tav_sr2_CornerRows table = {&tav_sr2_corners::responseRowScalar};
    return &table;
}

const tav_sr2_CornerRows* tav_sr2_cornerRowsVector(void) {
    return HWY_DYNAMIC_DISPATCH(tav_sr2_corners::cornerRowsForTarget)();
}
#endif  // HWY_ONCE
