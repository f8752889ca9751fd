// The warp of a frame onto the crop (see the header). Positions of a segment are computed once
// into two arrays; a segment whose ends lie at least kInterior pixels inside the source (so that
// every pixel of it is in the bilinear case) goes to the row kernel, any other pixel by pixel.
#include "merge/warp.h"

#include "enhance/image_rows.h"

namespace {

constexpr int32_t kSegment = 128;
constexpr int32_t kBandRows = 16;
constexpr int32_t kInterior = 16;

struct WarpJob {
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    const tav_sr2_Trans2D* m;
    bool chroma;  // frames 48 and 49: warp the pairs too
    const tav_sr2_WarpRowOps* rows;
};

bool inside(int32_t a, int32_t b, int32_t size) {
    const int32_t lo = (a < b ? a : b), hi = (a < b ? b : a);
    return lo >= 0 && (lo >> 15) >= kInterior && (hi >> 15) <= size - 1 - kInterior;
}

// Sample of `channels`-interleaved plane `plane` at (X, Y) in Q15, channel c.
uint8_t sampleAt(const tav_sr2_Image* src, int32_t plane, int32_t w, int32_t h, int32_t channels,
                 int32_t c, int32_t X, int32_t Y) {
    if (X < 0 || Y < 0) return 0;
    const int32_t x = X >> 15, y = Y >> 15;
    if (x >= w || y >= h) return 0;
    const uint8_t* r0 = tav_sr2_rowOf<const uint8_t>(src, plane, y);
    if (x > w - 2 || y > h - 2) return r0[x * channels + c];
    const uint8_t* r1 = tav_sr2_rowOf<const uint8_t>(src, plane, y + 1);
    const int32_t a = X & 0x7fff, b = Y & 0x7fff;
    const int32_t i = x * channels + c;
    const int32_t top = ((32768 - a) * r0[i] + a * r0[i + channels]) >> 10;
    const int32_t bottom = ((32768 - a) * r1[i] + a * r1[i + channels]) >> 10;
    return (uint8_t)((top * (32768 - b) + bottom * b) >> 20);
}

// One destination row of one plane: `scale` 1 for luma, 2 for chroma pairs (sampled at the
// luma position of their first pixel, halved).
void warpRow(const WarpJob* job, int32_t plane, int32_t y, int32_t scale) {
    const int32_t channels = scale == 1 ? 1 : 2;
    const int32_t w = job->dst->width / scale;
    const int32_t sw = job->src->width / scale, sh = job->src->height / scale;
    uint8_t* out = tav_sr2_rowOf<uint8_t>(job->dst, plane, y);
    for (int32_t x0 = 0; x0 < w; x0 += kSegment) {
        const int32_t n = w - x0 < kSegment ? w - x0 : kSegment;
        int32_t ax, ay, bx, by;
        tav_sr2_Trans2D_applyQ15(job->m, &ax, &ay, (scale * x0) << 15, (scale * y) << 15);
        tav_sr2_Trans2D_applyQ15(job->m, &bx, &by, (scale * (x0 + n)) << 15, (scale * y) << 15);
        int32_t X[kSegment], Y[kSegment];
        for (int32_t k = 0; k < n; ++k) {
            X[k] = (int32_t)(ax + (int64_t)(bx - ax) * k / n);
            Y[k] = (int32_t)(ay + (int64_t)(by - ay) * k / n);
            if (scale == 2) X[k] >>= 1, Y[k] >>= 1;
        }
        uint8_t* seg = out + x0 * channels;
        if (inside(X[0], scale == 2 ? bx >> 1 : bx, sw) &&
            inside(Y[0], scale == 2 ? by >> 1 : by, sh)) {
            for (int32_t c = 0; c < channels; ++c)
                job->rows->bilinear(job->src->plane[plane], job->src->pitch[plane], channels, c, X,
                                    Y, n, seg + c);
            continue;
        }
        for (int32_t k = 0; k < n; ++k)
            for (int32_t c = 0; c < channels; ++c)
                seg[k * channels + c] = sampleAt(job->src, plane, sw, sh, channels, c, X[k], Y[k]);
    }
}

uint32_t warpBand(void* arg, int32_t, int32_t g0, int32_t g1) {
    const WarpJob* job = static_cast<const WarpJob*>(arg);
    const int32_t h = job->dst->height;
    const int32_t y1 = kBandRows * g1 < h ? kBandRows * g1 : h;
    for (int32_t y = kBandRows * g0; y < y1; ++y) {
        warpRow(job, 0, y, 1);
        if (job->chroma && (y & 1) == 0) warpRow(job, 1, y >> 1, 2);
    }
    return TAV_OK;
}

}  // namespace

uint32_t tav_sr2_Warp_frame(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                            const tav_sr2_Image* src, const tav_sr2_Trans2D* m) {
    return tav_sr2_Warp_frameWith(ctx, dst, src, m, &tav_sr2_warpRowsVector);
}

uint32_t tav_sr2_Warp_frameWith(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                const tav_sr2_Image* src, const tav_sr2_Trans2D* m,
                                const tav_sr2_WarpRowOps* rows) {
    if (ctx == nullptr || rows == nullptr || dst == nullptr || src == nullptr || m == nullptr)
        return TAV_ERROR_PARAM;
    if (dst->format != src->format) return TAV_ERROR_PARAM;
    const bool chroma = tav_sr2_isSemiPlanar8(src->format);
    if (!chroma && src->format != TAV_SR2_FMT_UINT8) return TAV_ERROR_UNSUPPORTED;
    WarpJob job = {src, dst, m, chroma, rows};
    const int32_t groups = (dst->height + kBandRows - 1) / kBandRows;
    return tav_sr2_ImageCtx_runBands(ctx, tav_sr2_ImageCtx_workers(ctx), groups, warpBand, &job);
}
