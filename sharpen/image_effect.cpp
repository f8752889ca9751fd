// Contrast and structure enhancement (see image_effect.h). Both run their pixel steps by 4-row
// bands over the workers; the blur and the guided filters bring their own tasks.
#include "sharpen/image_effect.h"

#include "enhance/blur.h"
#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/row_band.h"
#include "nr/guided_filter.h"

namespace {

constexpr int32_t kStructureWindow = 21;

bool isFrame(int32_t f) {
    return tav_sr2_isSemiPlanar8(f) || tav_sr2_isSemiPlanar10(f);
}

int32_t clampTo(int32_t v, int32_t lo, int32_t hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

int32_t bandCount(const tav_sr2_ImageCtx* ctx) {
    const int32_t n = tav_sr2_ImageCtx_workers(ctx);
    return n < 1 ? 1 : n > 16 ? 16 : n;
}

struct Planes {
    tav_sr2_Image luma, out, low, high, mask;  // mask.plane[0] null without one
    bool with_high;
    int32_t gain, limit, bands;
};

template <typename P>
uint32_t contrastBand(void* arg, int32_t band, int32_t, int32_t) {
    const auto* j = static_cast<const Planes*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(j->luma.height, band, j->bands, &y0, &y1);
    for (int32_t y = y0; y < y1; ++y) {
        P* row = tav_sr2_rowOf<P>(&j->luma, 0, y);
        const P* blurred = tav_sr2_rowOf<const P>(&j->low, 0, y);
        for (int32_t x = 0; x < j->luma.width; ++x) {
            int32_t d = (int32_t)row[x] - blurred[x];
            if (d > 0) d = (3 * d) >> 2;
            const int32_t v = row[x] + ((512 + d * j->gain) >> 10);
            row[x] = (P)clampTo(v, 0, j->limit);
        }
    }
    return TAV_OK;
}

template <typename P>
uint32_t structureBand(void* arg, int32_t band, int32_t, int32_t) {
    const auto* j = static_cast<const Planes*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(j->luma.height, band, j->bands, &y0, &y1);
    for (int32_t y = y0; y < y1; ++y) {
        const P* in = tav_sr2_rowOf<const P>(&j->luma, 0, y);
        const P* low = tav_sr2_rowOf<const P>(&j->low, 0, y);
        const P* high = j->with_high ? tav_sr2_rowOf<const P>(&j->high, 0, y) : nullptr;
        const uint8_t* mask =
            j->mask.plane[0] != nullptr ? tav_sr2_rowOf<const uint8_t>(&j->mask, 0, y) : nullptr;
        P* out = tav_sr2_rowOf<P>(&j->out, 0, y);
        for (int32_t x = 0; x < j->luma.width; ++x) {
            const int32_t s = mask != nullptr ? mask[x] >> 5 : j->gain;
            const int32_t yv = in[x];
            const int32_t v = high != nullptr
                                  ? (32 * yv + 16 + ((((int32_t)low[x] - high[x]) * s) >> 5)) >> 5
                                  : yv + ((s * 32 * (yv - low[x]) + 16384) >> 15);
            out[x] = (P)clampTo(v, 0, j->limit);
        }
    }
    return TAV_OK;
}

uint32_t guided(const tav_sr2_ImageEffect* e, const tav_sr2_Image* luma, tav_sr2_Image* out,
                double eps) {
    tav_sr2_GuidedFilter filter;
    tav_sr2_GuidedFilter_init(&filter, e->pool);
    tav_sr2_GuidedFilter_setThreads(&filter, e->tasks);
    uint32_t status =
        tav_sr2_GuidedFilter_setup(&filter, luma->width, luma->height, luma->format, nullptr);
    if (status == TAV_OK)
        status = tav_sr2_GuidedFilter_process(&filter, luma, out, kStructureWindow, (float)eps);
    tav_sr2_GuidedFilter_finish(&filter);
    return status;
}

template <typename P>
uint32_t structure(tav_sr2_ImageEffect* e, tav_sr2_Image* dst, const tav_sr2_Image* src,
                   const tav_sr2_StructureParams* params) {
    const tav_sr2_ImageCtx ctx = {e->pool, e->threads, e->tasks};
    Planes j = {};
    uint32_t status = tav_sr2_Image_viewPlane0(&j.luma, src, 0, 0, src->width, src->height);
    if (status == TAV_OK)
        status = tav_sr2_Image_viewPlane0(&j.out, dst, 0, 0, dst->width, dst->height);
    if (status != TAV_OK) return status;
    for (tav_sr2_Image* im : {&j.low, &j.high, &j.mask})
        tav_sr2_Image_init(im, e->pool);
    const int32_t w = src->width, h = src->height, format = j.luma.format;
    j.with_high = params->eps_high > 0.0;
    j.gain = params->strength;
    j.limit = sizeof(P) == 2 ? 1023 : 255;
    j.bands = bandCount(&ctx);
    status = tav_sr2_Image_alloc(&j.low, w, h, nullptr, format);
    if (status == TAV_OK && j.with_high)
        status = tav_sr2_Image_alloc(&j.high, w, h, nullptr, format);
    if (status == TAV_OK && params->mask != nullptr) {
        status = tav_sr2_Image_alloc(&j.mask, w, h, nullptr, TAV_SR2_FMT_UINT8);
        if (status == TAV_OK)
            status =
                tav_sr2_Image_resizeStrict(&ctx, &j.mask, params->mask, &tav_sr2_resizeRowsVector);
    }
    if (status == TAV_OK) status = guided(e, &j.luma, &j.low, params->eps_low);
    if (status == TAV_OK && j.with_high) status = guided(e, &j.luma, &j.high, params->eps_high);
    if (status == TAV_OK)
        status = tav_sr2_ImageCtx_runBands(&ctx, j.bands, j.bands, structureBand<P>, &j);
    for (tav_sr2_Image* im : {&j.low, &j.high, &j.mask})
        tav_sr2_Image_finish(im);
    return status;
}

uint32_t copyChroma(tav_sr2_Image* dst, const tav_sr2_Image* src) {
    tav_sr2_Image from, to;
    uint32_t status = tav_sr2_Image_viewChroma(&from, src, 0, 0, src->width, src->height);
    if (status == TAV_OK)
        status = tav_sr2_Image_viewChroma(&to, dst, 0, 0, dst->width, dst->height);
    if (status == TAV_OK) status = tav_sr2_Image_copy(&to, &from);
    return status;
}

}  // namespace

uint32_t tav_sr2_Contrast_run(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* frame, int32_t gain,
                              double sigma) {
    if (ctx == nullptr || frame == nullptr || frame->plane[0] == nullptr) return TAV_ERROR_PARAM;
    if (!isFrame(frame->format)) return TAV_ERROR_UNSUPPORTED;
    if (gain == 0) return TAV_OK;
    const bool deep = tav_sr2_isSemiPlanar10(frame->format);
    Planes j = {};
    uint32_t status = tav_sr2_Image_viewPlane0(&j.luma, frame, 0, 0, frame->width, frame->height);
    if (status != TAV_OK) return status;
    tav_sr2_Image_init(&j.low, ctx->pool);
    status = tav_sr2_Image_alloc(&j.low, frame->width, frame->height, nullptr, j.luma.format);
    if (status == TAV_OK) status = tav_sr2_Image_blurStrict(ctx, &j.low, &j.luma, sigma);
    j.gain = gain;
    j.limit = deep ? 32767 : 255;
    j.bands = bandCount(ctx);
    if (status == TAV_OK) {
        status = tav_sr2_ImageCtx_runBands(
            ctx, j.bands, j.bands, deep ? contrastBand<uint16_t> : contrastBand<uint8_t>, &j);
    }
    tav_sr2_Image_finish(&j.low);
    return status;
}

uint32_t tav_sr2_ImageEffect_defaults(int32_t mode, tav_sr2_StructureParams* params) {
    if (params == nullptr || mode < 0 || mode > 4) return TAV_ERROR_PARAM;
    if (mode != 4) return TAV_ERROR_UNSUPPORTED;
    *params = {500.0, 0.0, 0, nullptr};
    return TAV_OK;
}

uint32_t tav_sr2_ImageEffect_init(tav_sr2_ImageEffect* effect, tav_sr2_MemPool* pool) {
    if (effect == nullptr) return TAV_ERROR_PARAM;
    *effect = {pool, nullptr, nullptr};
    return TAV_OK;
}

uint32_t tav_sr2_ImageEffect_setThreads(tav_sr2_ImageEffect* effect, tav_sr2_TaskSys* tasks,
                                        tav_sr2_ThreadPool* threads) {
    if (effect == nullptr) return TAV_ERROR_PARAM;
    effect->tasks = tasks;
    effect->threads = threads;
    return TAV_OK;
}

uint32_t tav_sr2_ImageEffect_run(tav_sr2_ImageEffect* effect, tav_sr2_Image* dst,
                                 const tav_sr2_Image* src, int32_t mode,
                                 const tav_sr2_StructureParams* params) {
    if (effect == nullptr || dst == nullptr || src == nullptr || params == nullptr || mode < 0 ||
        mode > 4)
        return TAV_ERROR_PARAM;
    if (!tav_sr2_sameSize(dst, src) || dst->format != src->format) return TAV_ERROR_PARAM;
    if (!isFrame(src->format) || mode != 4) return TAV_ERROR_UNSUPPORTED;
    if (params->strength > 1024 || params->strength < 0) return TAV_ERROR_PARAM;
    const bool deep = tav_sr2_isSemiPlanar10(src->format);
    if (deep && params->mask != nullptr) return TAV_ERROR_UNSUPPORTED;
    const bool in_place = dst->plane[0] == src->plane[0];
    if (params->strength == 0) return in_place ? TAV_OK : tav_sr2_Image_copy(dst, src);
    uint32_t status = deep ? structure<uint16_t>(effect, dst, src, params)
                           : structure<uint8_t>(effect, dst, src, params);
    if (status == TAV_OK && !in_place) status = copyChroma(dst, src);
    return status;
}

uint32_t tav_sr2_ImageEffect_finish(tav_sr2_ImageEffect* effect) {
    if (effect == nullptr) return TAV_ERROR_PARAM;
    *effect = {};
    return TAV_OK;
}
