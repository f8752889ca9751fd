// Row routines of the sample-depth conversions.
//
// up: out = in << 2, so 255 becomes 1020 and never 1023.
// down: v below 1022 gives (v + 2) >> 2, anything else 255. The rounding already takes 1018..1021
// to 255; 1022 and 1023 would round to 256 and are held at 255. The vector form computes the same
// as (v >> 2) + ((v >> 1) & 1) with 255 forced where v is at least 1022; it covers the bulk of a
// row and the scalar reference the tail.

#ifndef TAVRIN_DEPTH_CONVERT_ROWS_COMMON
#define TAVRIN_DEPTH_CONVERT_ROWS_COMMON

#include <stdint.h>

#include "foundation/depth_convert_rows.h"

namespace tav_sr2_depth {

inline uint8_t downSample(uint16_t v) {
    return v < 1022 ? (uint8_t)((v + 2) >> 2) : 255;
}

inline void upScalarFrom(const uint8_t* in, uint16_t* out, int32_t i, int32_t n) {
    for (; i < n; ++i)
        out[i] = (uint16_t)(in[i] << 2);
}

inline void downScalarFrom(const uint16_t* in, uint8_t* out, int32_t i, int32_t n) {
    for (; i < n; ++i)
        out[i] = downSample(in[i]);
}

inline void upScalar(const uint8_t* in, uint16_t* out, int32_t n) {
    upScalarFrom(in, out, 0, n);
}

inline void downScalar(const uint16_t* in, uint8_t* out, int32_t n) {
    downScalarFrom(in, out, 0, n);
}

}  // namespace tav_sr2_depth

#endif  // TAVRIN_DEPTH_CONVERT_ROWS_COMMON

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "foundation/depth_convert_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_depth {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void upVector(const uint8_t* in, uint16_t* out, int32_t n) {
    const hn::ScalableTag<uint16_t> d16;
    const hn::Rebind<uint8_t, decltype(d16)> d8;
    const int32_t lanes = static_cast<int32_t>(hn::Lanes(d16));
    int32_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        const auto wide = hn::PromoteTo(d16, hn::LoadU(d8, in + i));
        hn::StoreU(hn::ShiftLeft<2>(wide), d16, out + i);
    }
    upScalarFrom(in, out, i, n);
}

void downVector(const uint16_t* in, uint8_t* out, int32_t n) {
    const hn::ScalableTag<uint16_t> d16;
    const hn::RebindToSigned<decltype(d16)> di16;
    const hn::Rebind<uint8_t, decltype(d16)> d8;
    const int32_t lanes = static_cast<int32_t>(hn::Lanes(d16));
    const auto one = hn::Set(d16, 1);
    const auto limit = hn::Set(d16, 1022);
    const auto full = hn::Set(d16, 255);
    int32_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        const auto v = hn::LoadU(d16, in + i);
        const auto rounded = hn::Add(hn::ShiftRight<2>(v), hn::And(hn::ShiftRight<1>(v), one));
        const auto held = hn::IfThenElse(hn::Gt(limit, v), rounded, full);
        // Every lane is at most 255 now, so the signed narrowing is exact.
        hn::StoreU(hn::DemoteTo(d8, hn::BitCast(di16, held)), d8, out + i);
    }
    downScalarFrom(in, out, i, n);
}

const tav_sr2_DepthRows* depthRowsForTarget() {
    static constexpr tav_sr2_DepthRows rows = {&upVector, &downVector};
    return &rows;
}

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_depth
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_depth {
HWY_EXPORT(depthRowsForTarget);
}  // namespace tav_sr2_depth

const tav_sr2_DepthRows* tav_sr2_depthRowsScalar(void) {
    static constexpr tav_sr2_DepthRows rows = {&tav_sr2_depth::upScalar,
                                               &tav_sr2_depth::downScalar};
    return &rows;
}

const tav_sr2_DepthRows* tav_sr2_depthRowsVector(void) {
    return HWY_DYNAMIC_DISPATCH(tav_sr2_depth::depthRowsForTarget)();
}
#endif  // HWY_ONCE
