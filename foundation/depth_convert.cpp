// Sample-depth conversion between 8-bit and 10-bit semi-planar frames.
//
// tav_sr2_convert8to10 (thread pool, pool, destination, source): source 48 or 49 into destination
// 52 or 53 of the same size, every luma and chroma sample shifted left by 2 (255 gives 1020).
// tav_sr2_convert10to8: the other way, v below 1022 giving (v + 2) >> 2 and anything else 255;
// chroma first, and only when the source is 52 or 53, then luma. A "UINT16" source converts into
// the luma of a "UINT8", 48 or 49 destination. Chroma goes through tav_sr2_Image_viewChroma of
// both images, so an odd width or height leaves the last chroma column or row as it is.
// Results: 0; 0x80000001 for a null image or plane; 0x80000010 for other formats, a size below 1
// or sizes that differ; else the OR of the posts and joins.
//
// Each pass splits its rows in T bands (tav_sr2_rowBand), T being the thread pool's count of
// workers, and posts one job per band with a 40-byte argument block; then joins.

#include "foundation/depth_convert.h"

#include "foundation/row_band.h"

namespace {

bool isFormat8(int32_t code) {
    return code == TAV_SR2_FMT_YUV420_SEMIPLANAR || code == TAV_SR2_FMT_YVU420_SEMIPLANAR;
}

bool isFormat10(int32_t code) {
    return code == TAV_SR2_FMT_YUV10B420_SEMIPLANAR || code == TAV_SR2_FMT_YVU10B420_SEMIPLANAR;
}

int32_t workerCount(tav_sr2_ThreadPool* thread_pool) {
    if (thread_pool == nullptr) return 1;
    const int32_t workers = tav_sr2_ThreadPool_threadCount(thread_pool);
    return workers > 1 ? workers : 1;
}

// Samples per pixel of a plane: interleaved chroma views carry two.
int32_t samplesPerPixel(const tav_sr2_Image* image) {
    return image->format == TAV_SR2_FMT_UINT88 || image->format == TAV_SR2_FMT_UINT1616 ? 2 : 1;
}

uint32_t upBandJob(void* arg) {
    const tav_sr2_DepthBand* band = static_cast<const tav_sr2_DepthBand*>(arg);
    const int32_t k = samplesPerPixel(band->src);
    const int32_t n = (band->x1 - band->x0) * k;
    for (int32_t y = band->y0; y < band->y1; ++y) {
        const uint8_t* in = band->src->plane[0] + (int64_t)y * band->src->pitch[0];
        uint8_t* out = band->dst->plane[0] + (int64_t)y * band->dst->pitch[0];
        band->rows->up(in + band->x0 * k, reinterpret_cast<uint16_t*>(out) + band->x0 * k, n);
    }
    return TAV_OK;
}

uint32_t downBandJob(void* arg) {
    const tav_sr2_DepthBand* band = static_cast<const tav_sr2_DepthBand*>(arg);
    const int32_t k = samplesPerPixel(band->src);
    const int32_t n = (band->x1 - band->x0) * k;
    for (int32_t y = band->y0; y < band->y1; ++y) {
        const uint8_t* in = band->src->plane[0] + (int64_t)y * band->src->pitch[0];
        uint8_t* out = band->dst->plane[0] + (int64_t)y * band->dst->pitch[0];
        band->rows->down(reinterpret_cast<const uint16_t*>(in) + band->x0 * k, out + band->x0 * k,
                         n);
    }
    return TAV_OK;
}

// One job per band over the rows of dst, then the join. Jobs already posted still reference the
// images, so the join runs even after a failed post.
uint32_t convertBands(tav_sr2_ThreadPool* thread_pool, tav_sr2_JobFn fn, tav_sr2_Image* dst,
                      const tav_sr2_Image* src, const tav_sr2_DepthRows* rows) {
    const int32_t t = workerCount(thread_pool);
    uint32_t status = TAV_OK;
    for (int32_t i = 0; i < t && status == TAV_OK; ++i) {
        tav_sr2_DepthBand band = {dst, src, 0, 0, dst->width, 0, rows};
        tav_sr2_rowBand(dst->height, i, t, &band.y0, &band.y1);
        if (thread_pool == nullptr) {
            status = fn(&band);
        } else {
            status = tav_sr2_ThreadPool_post(thread_pool, fn, &band, sizeof(band));
        }
    }
    if (thread_pool != nullptr) status |= tav_sr2_ThreadPool_join(thread_pool);
    return status;
}

uint32_t convertChroma(tav_sr2_ThreadPool* thread_pool, tav_sr2_JobFn fn, tav_sr2_Image* dst,
                       const tav_sr2_Image* src, const tav_sr2_DepthRows* rows) {
    tav_sr2_Image dst_uv = {}, src_uv = {};
    uint32_t status = tav_sr2_Image_viewChroma(&dst_uv, dst, 0, 0, dst->width, dst->height);
    if (status == TAV_OK) {
        status = tav_sr2_Image_viewChroma(&src_uv, src, 0, 0, src->width, src->height);
    }
    if (status != TAV_OK) return status;
    // A one-pixel-wide or one-row frame has no whole chroma pair to convert.
    if (src_uv.width < 1 || src_uv.height < 1) return TAV_OK;
    return convertBands(thread_pool, fn, &dst_uv, &src_uv, rows);
}

uint32_t checkImages(const tav_sr2_Image* dst, const tav_sr2_Image* src) {
    if (dst == nullptr || src == nullptr || dst->plane[0] == nullptr || src->plane[0] == nullptr) {
        return TAV_ERROR_PARAM;
    }
    if (src->width < 1 || src->height < 1 || src->width != dst->width ||
        src->height != dst->height) {
        return TAV_ERROR_UNSUPPORTED;
    }
    return TAV_OK;
}

}  // namespace

uint32_t tav_sr2_convert8to10WithRows(tav_sr2_ThreadPool* thread_pool, tav_sr2_Image* dst,
                                      const tav_sr2_Image* src, const tav_sr2_DepthRows* rows) {
    uint32_t status = checkImages(dst, src);
    if (status != TAV_OK) return status;
    if (!isFormat8(src->format) || !isFormat10(dst->format)) return TAV_ERROR_UNSUPPORTED;
    status = convertBands(thread_pool, &upBandJob, dst, src, rows);
    if (status != TAV_OK) return status;
    return convertChroma(thread_pool, &upBandJob, dst, src, rows);
}

uint32_t tav_sr2_convert10to8WithRows(tav_sr2_ThreadPool* thread_pool, tav_sr2_Image* dst,
                                      const tav_sr2_Image* src, const tav_sr2_DepthRows* rows) {
    uint32_t status = checkImages(dst, src);
    if (status != TAV_OK) return status;
    const bool with_chroma = isFormat10(src->format);
    const bool luma_only = src->format == TAV_SR2_FMT_UINT16 &&
                           (dst->format == TAV_SR2_FMT_UINT8 || isFormat8(dst->format));
    if (!(with_chroma && isFormat8(dst->format)) && !luma_only) return TAV_ERROR_UNSUPPORTED;
    if (with_chroma) {
        status = convertChroma(thread_pool, &downBandJob, dst, src, rows);
        if (status != TAV_OK) return status;
    }
    return convertBands(thread_pool, &downBandJob, dst, src, rows);
}

uint32_t tav_sr2_convert8to10(tav_sr2_ThreadPool* thread_pool, tav_sr2_MemPool* pool,
                              tav_sr2_Image* dst, const tav_sr2_Image* src) {
    (void)pool;  // the conversion works on views and needs no memory of its own
    return tav_sr2_convert8to10WithRows(thread_pool, dst, src, tav_sr2_depthRowsVector());
}

uint32_t tav_sr2_convert10to8(tav_sr2_ThreadPool* thread_pool, tav_sr2_MemPool* pool,
                              tav_sr2_Image* dst, const tav_sr2_Image* src) {
    (void)pool;
    return tav_sr2_convert10to8WithRows(thread_pool, dst, src, tav_sr2_depthRowsVector());
}
