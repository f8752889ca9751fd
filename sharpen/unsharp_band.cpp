// The band passes and the adds of the sharpening stage, as row bands over the workers.
//
// A band pass keeps, per band, a ring of 2R + 1 horizontally filtered rows for each kernel and
// combines them vertically row by row. So that the source may be the destination, the R raw rows
// above and below each band that belong to its neighbours are copied before any band starts; a
// band's own rows are read from the source before the band writes them (row y + R is filtered
// before row y is written).
#include <string.h>

#include "enhance/image_rows.h"
#include "foundation/maths.h"
#include "foundation/row_band.h"
#include "sharpen/unsharp.h"

namespace {

constexpr int32_t kMaxRadius = 3;
constexpr int32_t kMaxBands = 16;

// The luma of a frame, or a plain UINT8 or UINT16 image itself.
uint32_t lumaOf(const tav_sr2_Image* image, tav_sr2_Image* view) {
    if (image == nullptr || image->plane[0] == nullptr) return TAV_ERROR_PARAM;
    const int32_t f = image->format;
    if (f != TAV_SR2_FMT_UINT8 && f != TAV_SR2_FMT_UINT16 && !tav_sr2_isSemiPlanar8(f) &&
        !tav_sr2_isSemiPlanar10(f)) {
        return TAV_ERROR_UNSUPPORTED;
    }
    return tav_sr2_Image_viewPlane0(view, image, 0, 0, image->width, image->height);
}

bool deep(const tav_sr2_Image* luma) {
    return luma->format == TAV_SR2_FMT_UINT16;
}

int32_t bandsOf(const tav_sr2_ImageCtx* ctx) {
    const int32_t workers = tav_sr2_ImageCtx_workers(ctx);
    const int32_t bands = workers < kMaxBands ? workers : kMaxBands;
    return bands < 1 ? 1 : bands;
}

struct BandPass {
    int32_t kind;
    tav_sr2_Image src, dst, weight;  // luma views; weight.plane[0] null without one
    int32_t taps1[2 * kMaxRadius + 1], taps2[2 * kMaxRadius + 1];
    int32_t radius, gain, t;
    int32_t bands, width, height, sample;
    uint8_t* halo;   // per band: R rows above, then R below, raw
    int16_t* rings;  // per band: 2 (2R + 1) filtered rows and two vertical rows
    const tav_sr2_SharpenRowOps* rows;
};

int64_t haloBytes(const BandPass* p) {
    return (int64_t)2 * p->radius * p->width * p->sample;
}
int64_t ringSamples(const BandPass* p) {
    return (int64_t)(2 * (2 * p->radius + 1) + 2) * p->width;
}

// Row yy of the source for band [y0, y1): rows outside the band come from its saved halo.
const uint8_t* sourceRow(const BandPass* p, int32_t band, int32_t y0, int32_t y1, int32_t yy) {
    yy = yy < 0 ? 0 : yy >= p->height ? p->height - 1 : yy;
    if (yy >= y0 && yy < y1) return tav_sr2_rowOf<const uint8_t>(&p->src, 0, yy);
    const uint8_t* halo = p->halo + band * haloBytes(p);
    const int32_t slot = yy < y0 ? yy - (y0 - p->radius) : p->radius + (yy - y1);
    return halo + (int64_t)slot * p->width * p->sample;
}

void saveHalo(const BandPass* p, int32_t band, int32_t y0, int32_t y1) {
    uint8_t* halo = p->halo + band * haloBytes(p);
    const int64_t row_bytes = (int64_t)p->width * p->sample;
    for (int32_t k = 0; k < 2 * p->radius; ++k) {
        int32_t yy = k < p->radius ? y0 - p->radius + k : y1 + (k - p->radius);
        yy = yy < 0 ? 0 : yy >= p->height ? p->height - 1 : yy;
        memcpy(halo + k * row_bytes, tav_sr2_rowOf<const uint8_t>(&p->src, 0, yy),
               (size_t)row_bytes);
    }
}

void filterRow(const BandPass* p, const uint8_t* src, const int32_t* taps, int16_t* out) {
    if (p->sample == 2) {
        p->rows->horizontal16(reinterpret_cast<const uint16_t*>(src), p->width, taps, p->radius,
                              out);
    } else {
        p->rows->horizontal8(src, p->width, taps, p->radius, out);
    }
}

void outputRow(const BandPass* p, int32_t y, const int16_t* lp1, const int16_t* lp2) {
    const uint8_t* weight =
        p->weight.plane[0] != nullptr ? tav_sr2_rowOf<const uint8_t>(&p->weight, 0, y) : nullptr;
    const int32_t n = p->width;
    if (p->kind == TAV_SR2_UNSHARP_BAND7) {
        if (p->sample == 2) {
            p->rows->band7_16(lp1, lp2, weight, p->gain, p->t, n,
                              tav_sr2_rowOf<uint16_t>(&p->dst, 0, y));
        } else {
            p->rows->band7_8(lp1, lp2, weight, p->gain, p->t, n,
                             tav_sr2_rowOf<uint8_t>(&p->dst, 0, y));
        }
    } else if (p->sample == 2) {
        p->rows->band5_16(lp1, lp2, weight, p->gain, p->t,
                          tav_sr2_rowOf<const uint16_t>(&p->src, 0, y), n,
                          tav_sr2_rowOf<uint16_t>(&p->dst, 0, y));
    } else {
        p->rows->band5_8(lp1, lp2, weight, p->gain, tav_sr2_rowOf<const uint8_t>(&p->src, 0, y), n,
                         tav_sr2_rowOf<uint8_t>(&p->dst, 0, y));
    }
}

uint32_t bandPassBand(void* arg, int32_t band, int32_t, int32_t) {
    const BandPass* p = static_cast<const BandPass*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(p->height, band, p->bands, &y0, &y1);
    if (y1 <= y0) return TAV_OK;
    const int32_t r = p->radius, m = 2 * r + 1, w = p->width;
    int16_t* ring1 = p->rings + band * ringSamples(p);
    int16_t* ring2 = ring1 + (int64_t)m * w;
    int16_t* lp1 = ring2 + (int64_t)m * w;
    int16_t* lp2 = lp1 + w;
    const auto slot = [&](int32_t yy) { return (int64_t)(((yy % m) + m) % m) * w; };
    const auto load = [&](int32_t yy) {
        const uint8_t* src = sourceRow(p, band, y0, y1, yy);
        filterRow(p, src, p->taps1, ring1 + slot(yy));
        filterRow(p, src, p->taps2, ring2 + slot(yy));
    };
    for (int32_t yy = y0 - r; yy < y0 + r; ++yy)
        load(yy);
    const int16_t* rows1[2 * kMaxRadius + 1];
    const int16_t* rows2[2 * kMaxRadius + 1];
    for (int32_t y = y0; y < y1; ++y) {
        load(y + r);
        for (int32_t k = 0; k < m; ++k) {
            rows1[k] = ring1 + slot(y - r + k);
            rows2[k] = ring2 + slot(y - r + k);
        }
        p->rows->vertical(rows1, w, p->taps1, r, lp1);
        p->rows->vertical(rows2, w, p->taps2, r, lp2);
        outputRow(p, y, lp1, lp2);
    }
    return TAV_OK;
}

uint32_t checkPair(const tav_sr2_Image* dst, const tav_sr2_Image* src, tav_sr2_Image* d,
                   tav_sr2_Image* s) {
    uint32_t status = lumaOf(src, s);
    if (status == TAV_OK) status = lumaOf(dst, d);
    if (status != TAV_OK) return status;
    if (!tav_sr2_sameSize(s, d)) return TAV_ERROR_PARAM;
    return TAV_OK;
}

}  // namespace

void tav_sr2_Unsharp_taps(double sigma, int32_t radius, int32_t* taps) {
    const int32_t n = 2 * radius + 1;
    if (!(sigma > 1e-6)) {
        for (int32_t k = 0; k < n; ++k)
            taps[k] = k == radius ? 32768 : 0;
        return;
    }
    double t[2 * kMaxRadius + 1], sum = 0.0;
    for (int32_t k = -radius; k <= radius; ++k) {
        t[k + radius] = tav_sr2_exp(-(double)(k * k) / (2.0 * sigma * sigma));
        sum += t[k + radius];
    }
    int32_t total = 0;
    for (int32_t k = 0; k < n; ++k) {
        taps[k] = (int32_t)(t[k] * 32768.0 / sum + 0.5);
        total += taps[k];
    }
    taps[radius] += 32768 - total;
}

uint32_t tav_sr2_Unsharp_bandWithRows(const tav_sr2_ImageCtx* ctx, int32_t kind, tav_sr2_Image* dst,
                                      const tav_sr2_Image* src, const tav_sr2_Image* weight,
                                      double sigma1, double sigma2, double gain, double coring,
                                      const tav_sr2_SharpenRowOps* rows) {
    if (ctx == nullptr || rows == nullptr) return TAV_ERROR_PARAM;
    BandPass p = {};
    uint32_t status = checkPair(dst, src, &p.dst, &p.src);
    if (status != TAV_OK) return status;
    if (deep(&p.src) != deep(&p.dst)) return TAV_ERROR_UNSUPPORTED;
    if (weight != nullptr) {
        if (weight->format != TAV_SR2_FMT_UINT8 || !tav_sr2_sameSize(weight, &p.src))
            return TAV_ERROR_PARAM;
        p.weight = *weight;
    }
    if (p.src.width < 7 || p.src.height < 1) return TAV_ERROR_PARAM;
    p.kind = kind;
    p.radius = kind == TAV_SR2_UNSHARP_BAND5 ? 2 : 3;
    tav_sr2_Unsharp_taps(sigma1, p.radius, p.taps1);
    tav_sr2_Unsharp_taps(sigma2, p.radius, p.taps2);
    p.gain = (int32_t)gain;
    p.t = (int32_t)(coring * 32.0);
    p.width = p.src.width;
    p.height = p.src.height;
    p.sample = deep(&p.src) ? 2 : 1;
    p.bands = bandsOf(ctx);
    p.rows = rows;
    const int64_t bytes = p.bands * (haloBytes(&p) + 2 * ringSamples(&p));
    uint8_t* block = static_cast<uint8_t*>(tav_sr2_MemPool_alloc(ctx->pool, (uint32_t)bytes));
    if (block == nullptr) return TAV_ERROR_MALLOC;
    p.rings = reinterpret_cast<int16_t*>(block);
    p.halo = block + p.bands * 2 * ringSamples(&p);
    for (int32_t band = 0; band < p.bands; ++band) {
        int32_t y0, y1;
        tav_sr2_rowBand(p.height, band, p.bands, &y0, &y1);
        if (y1 > y0) saveHalo(&p, band, y0, y1);
    }
    status = tav_sr2_ImageCtx_runBands(ctx, p.bands, p.bands, bandPassBand, &p);
    tav_sr2_MemPool_free(ctx->pool, block);
    return status;
}

uint32_t tav_sr2_Unsharp_band5(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                               const tav_sr2_Image* src, const tav_sr2_Image* weight, double sigma1,
                               double sigma2, double gain, double coring) {
    return tav_sr2_Unsharp_bandWithRows(ctx, TAV_SR2_UNSHARP_BAND5, dst, src, weight, sigma1,
                                        sigma2, gain, coring, &tav_sr2_sharpenRowsVector);
}
uint32_t tav_sr2_Unsharp_band5_16(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                  const tav_sr2_Image* src, const tav_sr2_Image* weight,
                                  double sigma1, double sigma2, double gain, double coring) {
    return tav_sr2_Unsharp_band5(ctx, dst, src, weight, sigma1, sigma2, gain, coring);
}
uint32_t tav_sr2_Unsharp_band7(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                               const tav_sr2_Image* src, const tav_sr2_Image* weight, double sigma1,
                               double sigma2, double gain, double coring) {
    return tav_sr2_Unsharp_bandWithRows(ctx, TAV_SR2_UNSHARP_BAND7, dst, src, weight, sigma1,
                                        sigma2, gain, coring, &tav_sr2_sharpenRowsVector);
}
uint32_t tav_sr2_Unsharp_band7_16(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                  const tav_sr2_Image* src, const tav_sr2_Image* weight,
                                  double sigma1, double sigma2, double gain, double coring) {
    return tav_sr2_Unsharp_band7(ctx, dst, src, weight, sigma1, sigma2, gain, coring);
}

// ---- adds ---------------------------------------------------------------------------------------

namespace {

enum AddKind { kAdd8, kAdd16, kAddSoft16, kAddRange16 };

struct AddJob {
    AddKind kind;
    tav_sr2_Image src, dst, high, top, bottom;
    int32_t gain;
    float white, black;
    int32_t bands;
    const tav_sr2_SharpenRowOps* rows;
};

uint32_t addBand(void* arg, int32_t band, int32_t, int32_t) {
    const AddJob* j = static_cast<const AddJob*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(j->src.height, band, j->bands, &y0, &y1);
    const int32_t n = j->src.width;
    for (int32_t y = y0; y < y1; ++y) {
        if (j->kind == kAdd8) {
            j->rows->add8(tav_sr2_rowOf<const uint8_t>(&j->src, 0, y),
                          tav_sr2_rowOf<const uint8_t>(&j->high, 0, y), j->gain, n,
                          tav_sr2_rowOf<uint8_t>(&j->dst, 0, y));
            continue;
        }
        const uint16_t* s = tav_sr2_rowOf<const uint16_t>(&j->src, 0, y);
        const uint16_t* h = tav_sr2_rowOf<const uint16_t>(&j->high, 0, y);
        uint16_t* d = tav_sr2_rowOf<uint16_t>(&j->dst, 0, y);
        if (j->kind == kAdd16) {
            j->rows->add16(s, h, j->gain, n, d);
        } else if (j->kind == kAddSoft16) {
            j->rows->addSoft16(s, h, j->gain, j->white, j->black, n, d);
        } else {
            j->rows->addRange16(s, h, tav_sr2_rowOf<const uint16_t>(&j->top, 0, y),
                                tav_sr2_rowOf<const uint16_t>(&j->bottom, 0, y), j->gain, j->white,
                                j->black, n, d);
        }
    }
    return TAV_OK;
}

uint32_t runAdd(const tav_sr2_ImageCtx* ctx, AddJob* j, tav_sr2_Image* dst,
                const tav_sr2_Image* src, const tav_sr2_Image* high_pass,
                const tav_sr2_Image* local_max, const tav_sr2_Image* local_min) {
    if (ctx == nullptr || high_pass == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = checkPair(dst, src, &j->dst, &j->src);
    if (status != TAV_OK) return status;
    const bool sixteen = j->kind != kAdd8;
    const int32_t plain = sixteen ? TAV_SR2_FMT_UINT16 : TAV_SR2_FMT_UINT8;
    if (deep(&j->src) != sixteen || deep(&j->dst) != sixteen || high_pass->format != plain)
        return TAV_ERROR_UNSUPPORTED;
    if (!tav_sr2_sameSize(high_pass, &j->src)) return TAV_ERROR_PARAM;
    j->high = *high_pass;
    if (j->kind == kAddRange16) {
        if (local_max == nullptr || local_min == nullptr) return TAV_ERROR_PARAM;
        if (local_max->format != plain || local_min->format != plain) return TAV_ERROR_UNSUPPORTED;
        if (!tav_sr2_sameSize(local_max, &j->src) || !tav_sr2_sameSize(local_min, &j->src))
            return TAV_ERROR_PARAM;
        j->top = *local_max;
        j->bottom = *local_min;
    }
    j->bands = bandsOf(ctx);
    if (j->rows == nullptr) j->rows = &tav_sr2_sharpenRowsVector;
    return tav_sr2_ImageCtx_runBands(ctx, j->bands, j->bands, addBand, j);
}

}  // namespace

uint32_t tav_sr2_Sharpen_add8(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                              const tav_sr2_Image* src, const tav_sr2_Image* high_pass,
                              int32_t gain) {
    AddJob j = {};
    j.kind = kAdd8;
    j.gain = gain;
    return runAdd(ctx, &j, dst, src, high_pass, nullptr, nullptr);
}

uint32_t tav_sr2_Sharpen_add16(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                               const tav_sr2_Image* src, const tav_sr2_Image* high_pass,
                               int32_t gain) {
    AddJob j = {};
    j.kind = kAdd16;
    j.gain = gain;
    return runAdd(ctx, &j, dst, src, high_pass, nullptr, nullptr);
}

uint32_t tav_sr2_Sharpen_addSoft16(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src, const tav_sr2_Image* high_pass,
                                   int32_t gain, float white, float black) {
    AddJob j = {};
    j.kind = kAddSoft16;
    j.gain = gain;
    j.white = white;
    j.black = black;
    return runAdd(ctx, &j, dst, src, high_pass, nullptr, nullptr);
}

uint32_t tav_sr2_Sharpen_addRange16(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                    const tav_sr2_Image* src, const tav_sr2_Image* high_pass,
                                    const tav_sr2_Image* local_max, const tav_sr2_Image* local_min,
                                    int32_t gain, float white, float black) {
    AddJob j = {};
    j.kind = kAddRange16;
    j.gain = gain;
    j.white = white;
    j.black = black;
    return runAdd(ctx, &j, dst, src, high_pass, local_max, local_min);
}
