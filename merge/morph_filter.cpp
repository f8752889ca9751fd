// 3 x 3 mask filters. Minimum and maximum run through the rank filters, in place. The box mean
// reads a copy of the image, so that each band sees only original pixels, and divides each
// window's sum by its pixel count (9 inside, 6 at an edge, 4 at a corner), rounded to nearest.
#include "merge/morph_filter.h"

#include "enhance/image_rows.h"
#include "foundation/rank_filter.h"

namespace {

struct MeanJob {
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
};

uint32_t meanBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const MeanJob* job = static_cast<const MeanJob*>(arg);
    const int32_t w = job->src->width, h = job->src->height;
    for (int32_t y = y0; y < y1; ++y) {
        const int32_t top = y > 0 ? y - 1 : y, bottom = y + 1 < h ? y + 1 : y;
        uint8_t* out = tav_sr2_rowOf<uint8_t>(job->dst, 0, y);
        for (int32_t x = 0; x < w; ++x) {
            const int32_t left = x > 0 ? x - 1 : x, right = x + 1 < w ? x + 1 : x;
            int32_t sum = 0;
            for (int32_t r = top; r <= bottom; ++r) {
                const uint8_t* row = tav_sr2_rowOf<const uint8_t>(job->src, 0, r);
                for (int32_t c = left; c <= right; ++c)
                    sum += row[c];
            }
            const int32_t n = (bottom - top + 1) * (right - left + 1);
            out[x] = static_cast<uint8_t>((sum + n / 2) / n);
        }
    }
    return TAV_OK;
}

uint32_t boxMean(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* image) {
    tav_sr2_Image copy;
    tav_sr2_Image_init(&copy, ctx->pool);
    uint32_t status =
        tav_sr2_Image_alloc(&copy, image->width, image->height, nullptr, TAV_SR2_FMT_UINT8);
    if (status == TAV_OK) status = tav_sr2_Image_copy(&copy, image);
    if (status == TAV_OK) {
        MeanJob job = {&copy, image};
        status = tav_sr2_ImageCtx_runBands(ctx, tav_sr2_ImageCtx_workers(ctx), image->height,
                                           meanBand, &job);
    }
    const uint32_t released = tav_sr2_Image_finish(&copy);
    return status != TAV_OK ? status : released;
}

}  // namespace

uint32_t tav_sr2_Morph_filter(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* image, int32_t kind) {
    if (image == nullptr || image->format != TAV_SR2_FMT_UINT8) return TAV_ERROR_PARAM;
    if (image->width < 1 || image->height < 1) return TAV_OK;
    tav_sr2_RankFilter filter;
    tav_sr2_RankFilter_init(&filter, ctx->pool, ctx->threads);
    switch (kind) {
        case TAV_SR2_MORPH_MIN:
            return tav_sr2_Image_min3x3(&filter, image, image);
        case TAV_SR2_MORPH_MAX:
            return tav_sr2_Image_max3x3(&filter, image, image);
        case TAV_SR2_MORPH_MEAN:
            return boxMean(ctx, image);
        default:
            return TAV_ERROR_PARAM;
    }
}
