// Row routines of the 3 x 3 rank filters.
//
// tav_sr2_rankRowsScalar and tav_sr2_rankRowsVector give one routine per (operation, layout). Each
// output sample is the minimum or maximum of the samples of its 3 x 3 window that lie inside the
// row: the caller handles the top and bottom edges by passing the centre row twice, the routine
// cuts the window at the left and right edges. The vector form runs the interior of the row
// through Highway vectors and the two ends through the scalar reference, so both forms give the
// same bytes. Strided layouts load and store whole pixels interleaved and put back the chroma they
// read, so only luma changes.

#ifndef TAVRIN_RANK_FILTER_ROWS_COMMON
#define TAVRIN_RANK_FILTER_ROWS_COMMON

#include <stddef.h>
#include <stdint.h>

#include <type_traits>
#include <utility>

#include "foundation/rank_filter_rows.h"

namespace tav_sr2_rank {

template <int L>
using Sample = std::conditional_t<
    L == TAV_SR2_RANK_U16, uint16_t,
    std::conditional_t<L == TAV_SR2_RANK_I32, int32_t,
                       std::conditional_t<L == TAV_SR2_RANK_F32, float, uint8_t>>>;

template <int Op, typename T>
inline T extreme(T a, T b) {
    if constexpr (Op == TAV_SR2_RANK_MAX) {
        return a < b ? b : a;
    } else {
        return b < a ? b : a;
    }
}

// Units u0..u1-1 of a row of n units; the scalar reference and the vector form's ends.
template <int L, int Op>
void rankUnitsScalar(const uint8_t* above, const uint8_t* centre, const uint8_t* below,
                     uint8_t* out, int32_t n, int32_t u0, int32_t u1) {
    using T = Sample<L>;
    constexpr tav_sr2_RankLayoutInfo info = tav_sr2_rank_layouts[L];
    const T* a = reinterpret_cast<const T*>(above);
    const T* c = reinterpret_cast<const T*>(centre);
    const T* b = reinterpret_cast<const T*>(below);
    T* o = reinterpret_cast<T*>(out);
    auto column = [&](int32_t u) {
        const int32_t i = u * info.src_stride + info.src_offset;
        return extreme<Op>(extreme<Op>(a[i], c[i]), b[i]);
    };
    for (int32_t u = u0; u < u1; ++u) {
        T v = column(u);
        if (u >= info.distance) v = extreme<Op>(v, column(u - info.distance));
        if (u + info.distance < n) v = extreme<Op>(v, column(u + info.distance));
        o[u * info.dst_stride + info.dst_offset] = v;
    }
}

template <int L, int Op>
void rankRowScalar(const uint8_t* above, const uint8_t* centre, const uint8_t* below, uint8_t* out,
                   int32_t width) {
    const int32_t n = width * tav_sr2_rank_layouts[L].units_per_pixel;
    rankUnitsScalar<L, Op>(above, centre, below, out, n, 0, n);
}

template <size_t... L>
constexpr tav_sr2_RankRows scalarTable(std::index_sequence<L...>) {
    return {{{&rankRowScalar<L, TAV_SR2_RANK_MIN>...}, {&rankRowScalar<L, TAV_SR2_RANK_MAX>...}}};
}

}  // namespace tav_sr2_rank

#endif  // TAVRIN_RANK_FILTER_ROWS_COMMON

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "foundation/rank_filter_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep

#include <hwy/cache_control.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_rank {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

template <int Op, class V>
HWY_INLINE V extremeV(V a, V b) {
    if constexpr (Op == TAV_SR2_RANK_MAX) {
        return hn::Max(a, b);
    } else {
        return hn::Min(a, b);
    }
}

// Channel `Ch` of `Lanes` pixels of `Stride` samples each, starting at p.
template <int Stride, int Ch, class D, typename T>
HWY_INLINE hn::Vec<D> loadChannel(D d, const T* p) {
    if constexpr (Stride == 1) {
        return hn::LoadU(d, p);
    } else if constexpr (Stride == 2) {
        hn::Vec<D> v0, v1;
        hn::LoadInterleaved2(d, p, v0, v1);
        return Ch == 0 ? v0 : v1;
    } else {
        static_assert(Stride == 3);
        hn::Vec<D> v0, v1, v2;
        hn::LoadInterleaved3(d, p, v0, v1, v2);
        return Ch == 0 ? v0 : Ch == 1 ? v1 : v2;
    }
}

// Replaces channel `Ch` of the pixels at p, keeping the other channels.
template <int Stride, int Ch, class D, typename T>
HWY_INLINE void storeChannel(D d, hn::Vec<D> v, T* p) {
    if constexpr (Stride == 1) {
        hn::StoreU(v, d, p);
    } else if constexpr (Stride == 2) {
        hn::Vec<D> v0, v1;
        hn::LoadInterleaved2(d, p, v0, v1);
        if constexpr (Ch == 0) v0 = v;
        if constexpr (Ch == 1) v1 = v;
        hn::StoreInterleaved2(v0, v1, d, p);
    } else {
        static_assert(Stride == 3);
        hn::Vec<D> v0, v1, v2;
        hn::LoadInterleaved3(d, p, v0, v1, v2);
        if constexpr (Ch == 0) v0 = v;
        if constexpr (Ch == 1) v1 = v;
        if constexpr (Ch == 2) v2 = v;
        hn::StoreInterleaved3(v0, v1, v2, d, p);
    }
}

template <int L, int Op>
void rankRowVector(const uint8_t* above, const uint8_t* centre, const uint8_t* below, uint8_t* out,
                   int32_t width) {
    using T = Sample<L>;
    constexpr tav_sr2_RankLayoutInfo info = tav_sr2_rank_layouts[L];
    constexpr int32_t S = info.src_stride;
    constexpr int32_t D = info.distance;
    const hn::ScalableTag<T> d;
    const int32_t lanes = static_cast<int32_t>(hn::Lanes(d));
    const T* a = reinterpret_cast<const T*>(above);
    const T* c = reinterpret_cast<const T*>(centre);
    const T* b = reinterpret_cast<const T*>(below);
    T* o = reinterpret_cast<T*>(out);
    const int32_t n = width * info.units_per_pixel;

    // The first unit(s) have no left neighbour; the interior runs while u + D stays in the row.
    const int32_t head = n < D ? n : D;
    rankUnitsScalar<L, Op>(above, centre, below, out, n, 0, head);
    int32_t u = head;
    for (; u + lanes + D <= n; u += lanes) {
        const int32_t ahead = (u + 4 * lanes) * S;
        if (ahead < n * S) {
            hwy::Prefetch(a + ahead);
            hwy::Prefetch(c + ahead);
            hwy::Prefetch(b + ahead);
        }
        auto column = [&](int32_t at) {
            const int32_t i = at * S;
            auto v = loadChannel<S, info.src_offset>(d, a + i);
            v = extremeV<Op>(v, loadChannel<S, info.src_offset>(d, c + i));
            return extremeV<Op>(v, loadChannel<S, info.src_offset>(d, b + i));
        };
        const auto v = extremeV<Op>(extremeV<Op>(column(u - D), column(u)), column(u + D));
        storeChannel<info.dst_stride, info.dst_offset>(d, v, o + u * info.dst_stride);
    }
    rankUnitsScalar<L, Op>(above, centre, below, out, n, u, n);
}

template <size_t... L>
constexpr tav_sr2_RankRows vectorTable(std::index_sequence<L...>) {
    return {{{&rankRowVector<L, TAV_SR2_RANK_MIN>...}, {&rankRowVector<L, TAV_SR2_RANK_MAX>...}}};
}

const tav_sr2_RankRows* rankRowsForTarget() {
    static constexpr tav_sr2_RankRows table =
        vectorTable(std::make_index_sequence<TAV_SR2_RANK_LAYOUT_COUNT>());
    return &table;
}

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_rank
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_rank {
HWY_EXPORT(rankRowsForTarget);
}  // namespace tav_sr2_rank

const tav_sr2_RankRows* tav_sr2_rankRowsScalar(void) {
    static constexpr tav_sr2_RankRows table =
        tav_sr2_rank::scalarTable(std::make_index_sequence<TAV_SR2_RANK_LAYOUT_COUNT>());
    return &table;
}

const tav_sr2_RankRows* tav_sr2_rankRowsVector(void) {
    return HWY_DYNAMIC_DISPATCH(tav_sr2_rank::rankRowsForTarget)();
}
#endif  // HWY_ONCE
