// Pyramid of the motion estimator.
//
// tav_sr2_Pyramid_reduce: the six-tap, truncating, non-separable reduction of pyramid_rows.h,
//   one output row per four source rows; with a thread pool and 31 rows or more the rows go out
//   in 16 jobs. The output size keeps every tap inside the source, so there is no border rule.
// tav_sr2_Pyramid_localContrast: out = clamp(p - mean + 128, 0, 255) with the mean of the 5 x 5
//   window cut at the border: the truncated quotient by the window's pixel count, or
//   (sum * 2621) >> 16 for a full window of 25.
// tav_sr2_Pyramid_build: level 0 is a copy of the input region for a scale step of 1 and a
//   bilinear resize of it otherwise; then the reductions, then the contrast top level when
//   block_search is nonzero. TAV_ERROR_PARAM for an input of another size than configured or
//   without a byte luma plane.
#include "alignment/pyramid.h"

#include <string.h>

#include "alignment/motion_estimator.h"
#include "enhance/image_ctx.h"
#include "enhance/resize.h"

namespace {

constexpr int32_t kJobs = 16;
constexpr int32_t kJobRows = 31;  // below this many output rows the caller does them all

struct ReduceJob {
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    tav_sr2_PyramidRowFn row;
};

uint32_t reduceBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const ReduceJob* job = static_cast<const ReduceJob*>(arg);
    const uint8_t* src = job->src->plane[0];
    const int64_t pitch = job->src->pitch[0];
    for (int32_t y = y0; y < y1; ++y) {
        const uint8_t* r0 = src + 2 * y * pitch;
        job->row(r0, r0 + pitch, r0 + 2 * pitch, r0 + 3 * pitch,
                 job->dst->plane[0] + (int64_t)y * job->dst->pitch[0], job->dst->width);
    }
    return TAV_OK;
}

uint8_t* rowOf(tav_sr2_Image* image, int32_t y) {
    return image->plane[0] + (int64_t)y * image->pitch[0];
}

bool isByteImage(const tav_sr2_Image* image) {
    return image->format == TAV_SR2_FMT_UINT8 &&
           (image->plane[0] != nullptr || image->width < 1 || image->height < 1);
}

uint32_t fillLevel0(const tav_sr2_MotionEstimator* est, const tav_sr2_Image* input,
                    tav_sr2_Image* level0) {
    if (input->width != est->width || input->height != est->height) return TAV_ERROR_PARAM;
    tav_sr2_Image region;
    tav_sr2_Image_init(&region, est->pool);
    uint32_t status =
        tav_sr2_Image_viewPlane0(&region, input, est->roi_x0, est->roi_y0,
                                 est->roi_x1 - est->roi_x0, est->roi_y1 - est->roi_y0);
    if (status != TAV_OK) return status;
    if (region.format != TAV_SR2_FMT_UINT8) return TAV_ERROR_UNSUPPORTED;
    if (est->scale_step > 1) {
        const tav_sr2_ImageCtx ctx = {est->pool, est->thread_pool, nullptr};
        return tav_sr2_Image_resize(&ctx, level0, &region);
    }
    for (int32_t y = 0; y < level0->height; ++y) {
        memcpy(rowOf(level0, y), region.plane[0] + (int64_t)y * region.pitch[0],
               (size_t)level0->width);
    }
    return TAV_OK;
}

}  // namespace

uint32_t tav_sr2_Pyramid_reduce(const tav_sr2_Image* src, tav_sr2_Image* dst,
                                tav_sr2_ThreadPool* thread_pool, const tav_sr2_PyramidRows* rows) {
    if (src == nullptr || dst == nullptr || rows == nullptr || !isByteImage(src) ||
        !isByteImage(dst)) {
        return TAV_ERROR_PARAM;
    }
    if (dst->width != tav_sr2_Pyramid_nextSide(src->width) ||
        dst->height != tav_sr2_Pyramid_nextSide(src->height)) {
        return TAV_ERROR_PARAM;
    }
    if (dst->width < 1 || dst->height < 1) return TAV_OK;
    ReduceJob job = {src, dst, rows->reduce};
    const tav_sr2_ImageCtx ctx = {dst->pool, thread_pool, nullptr};
    const int32_t jobs = thread_pool != nullptr && dst->height >= kJobRows ? kJobs : 1;
    return tav_sr2_ImageCtx_runBands(&ctx, jobs, dst->height, &reduceBand, &job);
}

uint32_t tav_sr2_Pyramid_localContrast(tav_sr2_Image* image, tav_sr2_MemPool* pool) {
    if (image == nullptr || !isByteImage(image)) return TAV_ERROR_PARAM;
    const int32_t w = image->width, h = image->height;
    if (w < 1 || h < 1) return TAV_OK;
    uint8_t* copy = static_cast<uint8_t*>(tav_sr2_MemPool_alloc(pool, (uint32_t)(w * h)));
    if (copy == nullptr) return TAV_ERROR_MALLOC;
    for (int32_t y = 0; y < h; ++y)
        memcpy(copy + y * w, rowOf(image, y), (size_t)w);
    for (int32_t y = 0; y < h; ++y) {
        const int32_t v0 = y - 2 > 0 ? y - 2 : 0;
        const int32_t v1 = y + 3 < h ? y + 3 : h;
        uint8_t* out = rowOf(image, y);
        for (int32_t x = 0; x < w; ++x) {
            const int32_t u0 = x - 2 > 0 ? x - 2 : 0;
            const int32_t u1 = x + 3 < w ? x + 3 : w;
            int32_t sum = 0;
            for (int32_t v = v0; v < v1; ++v) {
                for (int32_t u = u0; u < u1; ++u)
                    sum += copy[v * w + u];
            }
            const int32_t n = (v1 - v0) * (u1 - u0);
            const int32_t mean = n == 25 ? (sum * 2621) >> 16 : sum / n;
            const int32_t value = copy[y * w + x] - mean + 128;
            out[x] = (uint8_t)(value < 0 ? 0 : value > 255 ? 255 : value);
        }
    }
    tav_sr2_MemPool_free(pool, copy);
    return TAV_OK;
}

uint32_t tav_sr2_Pyramid_build(const tav_sr2_MotionEstimator* est, const tav_sr2_Image* input,
                               tav_sr2_Image* levels, const tav_sr2_PyramidRows* rows) {
    if (est == nullptr || input == nullptr || levels == nullptr || rows == nullptr) {
        return TAV_ERROR_PARAM;
    }
    uint32_t status = fillLevel0(est, input, &levels[0]);
    for (int32_t k = 1; k < est->level_count && status == TAV_OK; ++k) {
        status = tav_sr2_Pyramid_reduce(&levels[k - 1], &levels[k], est->thread_pool, rows);
    }
    if (status == TAV_OK && est->block_search != 0) {
        status = tav_sr2_Pyramid_localContrast(&levels[est->level_count - 1], est->pool);
    }
    return status;
}
