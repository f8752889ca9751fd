// Row kernel of the frame warp: the scalar reference and its Highway twin. The four samples of
// each pixel are gathered by plain loads (bytes at scattered places have no vector load); the
// two weighted sums, their shifts and the narrowing run on 32-bit lanes.
#include "merge/warp_rows.h"

#ifndef TAVRIN_WARP_ROWS_SCALAR
#define TAVRIN_WARP_ROWS_SCALAR

namespace tav_sr2_warp_scalar {

inline uint8_t pixel(const uint8_t* plane, int32_t pitch, int32_t channels, int32_t channel,
                     int32_t X, int32_t Y) {
    const int32_t a = X & 0x7fff, b = Y & 0x7fff;
    const uint8_t* r0 = plane + (int64_t)(Y >> 15) * pitch + (X >> 15) * channels + channel;
    const uint8_t* r1 = r0 + pitch;
    const int32_t top = ((32768 - a) * r0[0] + a * r0[channels]) >> 10;
    const int32_t bottom = ((32768 - a) * r1[0] + a * r1[channels]) >> 10;
    return (uint8_t)((top * (32768 - b) + bottom * b) >> 20);
}

void bilinearFrom(const uint8_t* plane, int32_t pitch, int32_t channels, int32_t channel,
                  const int32_t* X, const int32_t* Y, int32_t from, int32_t n, uint8_t* out) {
    for (int32_t k = from; k < n; ++k)
        out[k * channels] = pixel(plane, pitch, channels, channel, X[k], Y[k]);
}

void bilinear(const uint8_t* plane, int32_t pitch, int32_t channels, int32_t channel,
              const int32_t* X, const int32_t* Y, int32_t n, uint8_t* out) {
    bilinearFrom(plane, pitch, channels, channel, X, Y, 0, n, out);
}

}  // namespace tav_sr2_warp_scalar

const tav_sr2_WarpRowOps tav_sr2_warpRowsScalar = {tav_sr2_warp_scalar::bilinear};

#endif  // TAVRIN_WARP_ROWS_SCALAR

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "merge/warp_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_warp_rows {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void Bilinear(const uint8_t* plane, int32_t pitch, int32_t channels, int32_t channel,
              const int32_t* X, const int32_t* Y, int32_t n, uint8_t* out) {
    const hn::ScalableTag<int32_t> d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    HWY_ALIGN int32_t p[4][HWY_MAX_BYTES / sizeof(int32_t)];
    HWY_ALIGN int32_t result[HWY_MAX_BYTES / sizeof(int32_t)];
    const auto one = hn::Set(d, 32768);
    const auto fraction = hn::Set(d, 0x7fff);
    int32_t k = 0;
    for (; k + lanes <= n; k += lanes) {
        for (int32_t j = 0; j < lanes; ++j) {
            const uint8_t* r0 =
                plane + (int64_t)(Y[k + j] >> 15) * pitch + (X[k + j] >> 15) * channels + channel;
            p[0][j] = r0[0];
            p[1][j] = r0[channels];
            p[2][j] = r0[pitch];
            p[3][j] = r0[pitch + channels];
        }
        const auto a = hn::And(hn::LoadU(d, X + k), fraction);
        const auto b = hn::And(hn::LoadU(d, Y + k), fraction);
        const auto ia = hn::Sub(one, a);
        const auto top = hn::ShiftRight<10>(
            hn::Add(hn::Mul(ia, hn::Load(d, p[0])), hn::Mul(a, hn::Load(d, p[1]))));
        const auto bottom = hn::ShiftRight<10>(
            hn::Add(hn::Mul(ia, hn::Load(d, p[2])), hn::Mul(a, hn::Load(d, p[3]))));
        const auto v =
            hn::ShiftRight<20>(hn::Add(hn::Mul(top, hn::Sub(one, b)), hn::Mul(bottom, b)));
        hn::Store(v, d, result);
        for (int32_t j = 0; j < lanes; ++j)
            out[(k + j) * channels] = (uint8_t)result[j];
    }
    tav_sr2_warp_scalar::bilinearFrom(plane, pitch, channels, channel, X, Y, k, n, out);
}

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_warp_rows
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_warp_rows {
HWY_EXPORT(Bilinear);

static void bilinear(const uint8_t* plane, int32_t pitch, int32_t channels, int32_t channel,
                     const int32_t* X, const int32_t* Y, int32_t n, uint8_t* out) {
    HWY_DYNAMIC_DISPATCH(Bilinear)(plane, pitch, channels, channel, X, Y, n, out);
}
}  // namespace tav_sr2_warp_rows

const tav_sr2_WarpRowOps tav_sr2_warpRowsVector = {tav_sr2_warp_rows::bilinear};
#endif  // HWY_ONCE
