// The sharpening stage: the weight, then the path of unsharp_method (see enhance.h).
//
// When the weight cannot be made the paths run with a flat weight of 128: the frame is then
// sharpened evenly rather than by a half-made map.
#include "enhance/blur.h"
#include "enhance/image_ops.h"
#include "enhance/image_rows.h"
#include "foundation/rank_filter.h"
#include "nr/guided_filter.h"
#include "sharpen/enhance.h"
#include "sharpen/unsharp.h"

namespace {

constexpr int32_t kUnitGain = 1024;  // Q10 gain of the adds

struct Path {
    const tav_sr2_EnhanceInputs* in;
    tav_sr2_Image* image;
    const tav_sr2_Image* weight;  // null: 128 everywhere
    tav_sr2_Image high_pass;
    double izr;
    double gain;
};

const tav_sr2_Image* mapOf(const tav_sr2_EnhanceInputs* in) {
    return in->nr_map != nullptr && in->nr_map->plane[0] != nullptr ? in->nr_map : nullptr;
}

uint32_t method0(Path* p) {
    const tav_sr2_EnhanceInputs* in = p->in;
    return tav_sr2_Unsharp_band5(&in->ctx, p->image, p->image, p->weight,
                                 in->unsharp_sigma * p->izr, in->unsharp_sigma2 * p->izr, p->gain,
                                 1.0);
}

uint32_t method1(Path* p, bool deep) {
    const tav_sr2_EnhanceInputs* in = p->in;
    const tav_sr2_ImageCtx* ctx = &in->ctx;
    const int32_t w = p->image->width, h = p->image->height;
    uint32_t status = tav_sr2_Image_alloc(&p->high_pass, w, h, nullptr,
                                          deep ? TAV_SR2_FMT_UINT16 : TAV_SR2_FMT_UINT8);
    if (status != TAV_OK) return status;
    status = tav_sr2_Unsharp_band7(ctx, &p->high_pass, p->image, deep ? nullptr : p->weight,
                                   in->unsharp_sigma2 * p->izr, in->unsharp_sigma * p->izr, p->gain,
                                   0.5);
    for (int32_t pass = 0; pass < 2 && status == TAV_OK; ++pass)
        status = tav_sr2_Unsharp_smooth_high_pass(ctx, &p->high_pass, nullptr);
    if (status != TAV_OK) return status;
    const uint32_t boost = tav_sr2_Unsharp_detail_boost(ctx, p->image, &p->high_pass, 8.0);
    if (!deep) return TAV_OK;  // the 8-bit path does not report a failed boost
    if (boost != TAV_OK) return boost;
    return tav_sr2_Sharpen_add16(ctx, p->image, p->image, &p->high_pass, kUnitGain);
}

uint32_t method23At8(Path* p) {
    const tav_sr2_EnhanceInputs* in = p->in;
    const tav_sr2_ImageCtx* ctx = &in->ctx;
    uint32_t status = tav_sr2_Image_alloc(&p->high_pass, p->image->width, p->image->height, nullptr,
                                          TAV_SR2_FMT_UINT8);
    if (status == TAV_OK) {
        status = tav_sr2_Unsharp_band7(ctx, &p->high_pass, p->image, p->weight, in->unsharp_sigma,
                                       in->unsharp_sigma2, p->gain, 0.0);
    }
    if (status != TAV_OK) return status;
    status = tav_sr2_Unsharp_denoise_high_pass(ctx, &p->high_pass, &p->high_pass, mapOf(in),
                                               in->unsharp_noise_level, 1.0);
    if (status != TAV_OK) return status;
    return tav_sr2_Sharpen_add8(ctx, p->image, p->image, &p->high_pass, kUnitGain);
}

// The cleaning of the 10-bit high pass: the guided filter, and the closing at high zoom.
uint32_t cleanDeep(Path* p) {
    const tav_sr2_EnhanceInputs* in = p->in;
    const tav_sr2_ImageCtx* ctx = &in->ctx;
    uint32_t status = TAV_OK;
    if (in->unsharp_noise_level > 0.0) {
        tav_sr2_GuidedFilter filter;
        tav_sr2_GuidedFilter_init(&filter, ctx->pool);
        tav_sr2_GuidedFilter_setThreads(&filter, ctx->tasks);
        status = tav_sr2_GuidedFilter_setup(&filter, p->high_pass.width, p->high_pass.height,
                                            TAV_SR2_FMT_UINT16, nullptr);
        if (status == TAV_OK) {
            status = tav_sr2_GuidedFilter_process(&filter, nullptr, &p->high_pass, 3,
                                                  (float)in->unsharp_noise_level);
        }
        tav_sr2_GuidedFilter_finish(&filter);
    }
    if (status == TAV_OK && !in->super_zoom && in->zoom_ratio > 4.0) {
        tav_sr2_RankFilter rank;
        tav_sr2_RankFilter_init(&rank, ctx->pool, ctx->threads);
        status = tav_sr2_Image_blurCompact(ctx, &p->high_pass, &p->high_pass, 0.8);
        if (status == TAV_OK) status = tav_sr2_Image_min3x3(&rank, &p->high_pass, &p->high_pass);
        if (status == TAV_OK) status = tav_sr2_Image_max3x3(&rank, &p->high_pass, &p->high_pass);
    }
    return status;
}

uint32_t method23At10(Path* p, bool range) {
    const tav_sr2_EnhanceInputs* in = p->in;
    const tav_sr2_ImageCtx* ctx = &in->ctx;
    const int32_t w = p->image->width, h = p->image->height;
    tav_sr2_Image local_max, local_min, luma;
    tav_sr2_Image_init(&local_max, ctx->pool);
    tav_sr2_Image_init(&local_min, ctx->pool);
    uint32_t status = TAV_OK;
    if (range) {
        tav_sr2_RankFilter rank;
        tav_sr2_RankFilter_init(&rank, ctx->pool, ctx->threads);
        status = tav_sr2_Image_alloc(&local_max, w, h, nullptr, TAV_SR2_FMT_UINT16);
        status |= tav_sr2_Image_alloc(&local_min, w, h, nullptr, TAV_SR2_FMT_UINT16);
        if (status == TAV_OK) status = tav_sr2_Image_viewPlane0(&luma, p->image, 0, 0, w, h);
        if (status == TAV_OK) status = tav_sr2_Image_min3x3(&rank, &luma, &local_min);
        if (status == TAV_OK) status = tav_sr2_Image_max3x3(&rank, &luma, &local_max);
    }
    if (status == TAV_OK)
        status = tav_sr2_Image_alloc(&p->high_pass, w, h, nullptr, TAV_SR2_FMT_UINT16);
    if (status == TAV_OK) {
        status = tav_sr2_Unsharp_band7_16(ctx, &p->high_pass, p->image, p->weight,
                                          in->unsharp_sigma2, in->unsharp_sigma, p->gain, 0.0);
    }
    if (status == TAV_OK) status = cleanDeep(p);
    if (status == TAV_OK) {
        status = range
                     ? tav_sr2_Sharpen_addRange16(ctx, p->image, p->image, &p->high_pass,
                                                  &local_max, &local_min, kUnitGain,
                                                  in->white_edge_level, in->black_edge_level)
                     : tav_sr2_Sharpen_addSoft16(ctx, p->image, p->image, &p->high_pass, kUnitGain,
                                                 in->white_edge_level, in->black_edge_level);
    }
    tav_sr2_Image_finish(&local_max);
    tav_sr2_Image_finish(&local_min);
    return status;
}

bool isFrame(int32_t f) {
    return tav_sr2_isSemiPlanar8(f) || tav_sr2_isSemiPlanar10(f);
}

}  // namespace

uint32_t tav_sr2_Enhance_run(const tav_sr2_EnhanceInputs* in, tav_sr2_Image* image) {
    if (in == nullptr || image == nullptr || image->plane[0] == nullptr) return TAV_ERROR_PARAM;
    const int32_t method = in->unsharp_method;
    if (method < 0 || method > 3) return TAV_ERROR_UNSUPPORTED;
    const bool plain16 = image->format == TAV_SR2_FMT_UINT16;
    if (!isFrame(image->format) && !(plain16 && method == 0)) return TAV_ERROR_UNSUPPORTED;
    const tav_sr2_ImageCtx* ctx = &in->ctx;
    tav_sr2_Image weight;
    tav_sr2_Image_init(&weight, ctx->pool);
    const bool have_weight = tav_sr2_Image_alloc(&weight, image->width, image->height, nullptr,
                                                 TAV_SR2_FMT_UINT8) == TAV_OK;
    bool weighted = have_weight && !plain16 && tav_sr2_Enhance_weight(in, image, &weight) == TAV_OK;
    Path p = {in,
              image,
              weighted ? &weight : nullptr,
              {},
              in->internal_zoom_ratio,
              (double)in->do_unsharp};
    tav_sr2_Image_init(&p.high_pass, ctx->pool);
    const bool deep = plain16 || tav_sr2_isSemiPlanar10(image->format);
    uint32_t status;
    switch (method) {
        case 0:
            status = method0(&p);
            break;
        case 1:
            status = method1(&p, deep);
            break;
        default:
            status = deep ? method23At10(&p, method == 2) : method23At8(&p);
            break;
    }
    tav_sr2_Image_finish(&p.high_pass);
    tav_sr2_Image_finish(&weight);
    return status;
}
