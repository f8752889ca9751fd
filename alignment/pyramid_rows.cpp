// Pyramid reduction rows.
//
// The vector form works on signed 16-bit lanes, each holding one source byte pair (2x, 2x+1) as
// loaded from a little-endian byte row: the low byte is the even column, the high byte the odd one.
// A load two bytes further on gives columns 2x+2 and 2x+3. The six taps sum to at most 8 * 255, so
// 16 bits hold the sum exactly; the output column run ends where the loads would pass the source
// row, and the rest goes through the scalar reference.

#ifndef TAVRIN_PYRAMID_ROWS_COMMON
#define TAVRIN_PYRAMID_ROWS_COMMON

#include <stdint.h>

#include "alignment/pyramid_rows.h"

namespace tav_sr2_pyramid {

inline void reduceColumnsScalar(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2,
                                const uint8_t* r3, uint8_t* out, int32_t from, int32_t to) {
    for (int32_t x = from; x < to; ++x) {
        const int32_t e = 2 * x;
        const int32_t sum =
            r0[e + 2] + 2 * r1[e + 1] + r1[e + 3] + r2[e] + 2 * r2[e + 2] + r3[e + 1];
        out[x] = (uint8_t)(sum >> 3);
    }
}

inline void reduceRowScalar(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2,
                            const uint8_t* r3, uint8_t* out, int32_t width) {
    reduceColumnsScalar(r0, r1, r2, r3, out, 0, width);
}

}  // namespace tav_sr2_pyramid

#endif  // TAVRIN_PYRAMID_ROWS_COMMON

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "alignment/pyramid_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_pyramid {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR
// One-lane vectors cannot hold a byte pair per lane: the reference is the vector form here.
void reduceRowVector(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, const uint8_t* r3,
                     uint8_t* out, int32_t width) {
    reduceRowScalar(r0, r1, r2, r3, out, width);
}
#else
void reduceRowVector(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, const uint8_t* r3,
                     uint8_t* out, int32_t width) {
    const hn::ScalableTag<int16_t> d16;
    const hn::Repartition<uint8_t, decltype(d16)> d8;  // two bytes per 16-bit lane
    const hn::Rebind<uint8_t, decltype(d16)> d8_half;  // one byte per 16-bit lane
    const int32_t lanes = static_cast<int32_t>(hn::Lanes(d16));
    const auto low_byte = hn::Set(d16, 0xFF);
    auto pairs = [&](const uint8_t* p) { return hn::BitCast(d16, hn::LoadU(d8, p)); };
    auto even = [&](hn::Vec<decltype(d16)> v) { return hn::And(v, low_byte); };
    // A logical shift: the odd byte may have the sign bit of the 16-bit lane.
    auto odd = [&](hn::Vec<decltype(d16)> v) { return hn::And(hn::ShiftRight<8>(v), low_byte); };

    int32_t x = 0;
    // The loads of a run of `lanes` outputs read bytes 2x .. 2x + 2 lanes + 1.
    for (; x + lanes <= width; x += lanes) {
        const int32_t e = 2 * x;
        const auto r1_here = pairs(r1 + e);
        const auto r2_here = pairs(r2 + e);
        const auto r2_next = even(pairs(r2 + e + 2));
        auto sum = even(pairs(r0 + e + 2));
        sum = hn::Add(sum, hn::ShiftLeft<1>(odd(r1_here)));
        sum = hn::Add(sum, odd(pairs(r1 + e + 2)));
        sum = hn::Add(sum, even(r2_here));
        sum = hn::Add(sum, hn::ShiftLeft<1>(r2_next));
        sum = hn::Add(sum, odd(pairs(r3 + e)));
        hn::StoreU(hn::DemoteTo(d8_half, hn::ShiftRight<3>(sum)), d8_half, out + x);
    }
    reduceColumnsScalar(r0, r1, r2, r3, out, x, width);
}
#endif

const tav_sr2_PyramidRows* pyramidRowsForTarget() {
    static constexpr tav_sr2_PyramidRows table = {&reduceRowVector};
    return &table;
}

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_pyramid
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_pyramid {
HWY_EXPORT(pyramidRowsForTarget);
}  // namespace tav_sr2_pyramid

const tav_sr2_PyramidRows* tav_sr2_pyramidRowsScalar(void) {
    static constexpr tav_sr2_PyramidRows table = {&tav_sr2_pyramid::reduceRowScalar};
    return &table;
}

const tav_sr2_PyramidRows* tav_sr2_pyramidRowsVector(void) {
    return HWY_DYNAMIC_DISPATCH(tav_sr2_pyramid::pyramidRowsForTarget)();
}
#endif  // HWY_ONCE
