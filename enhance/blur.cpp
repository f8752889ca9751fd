// Gaussian blur.
//
// The base blur is two passes over row bands: horizontal from the source into an intermediate
// image of the pool (16 bits with 8 fraction bits for 8-bit samples, the sample type otherwise),
// then, after the join, vertical from the intermediate into the destination. Reading the source
// only in the first pass is what makes a blur in place safe. Kernel taps are built with the
// library's own exp: t_k = exp(-k^2 / (2 s^2)), s = max(sigma, 1e-16), k up to 101; the first
// blur keeps the taps down to FLT_MIN, the compact one ceil(3 s) taps.
//
// Large sigmas: above 1.8, and for images of at least 33 x 33, the blur becomes
//   half = resize(src) at half size;  half = blur(half, sqrt(sigma^2 - 3.24) * 0.5);
//   dst = resize(half) at full size;  dst = base blur(dst, 1.8)
// whose variances add up to sigma^2. The inner blur may recurse again.

#include "enhance/blur.h"

#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/maths.h"

namespace {

const double kFloatLimit = 1.17549435082228750797e-38;  // FLT_MIN
const double kBaseSigma = 1.8;
const int32_t kMinHalvingSide = 33;

enum Variant { kFull, kCompact };

struct BlurSetup {
    Variant variant;
    const tav_sr2_BlurRowOps* rows;
    const tav_sr2_ResizeRowOps* resize_rows;
};

void buildKernel(tav_sr2_BlurKernel* k, double sigma, Variant variant) {
    const double s = sigma > 1e-16 ? sigma : 1e-16;
    const double scale = -1.0 / (2.0 * s * s);
    double taps[TAV_SR2_BLUR_MAX_RADIUS + 1];
    taps[0] = 1.0;
    int32_t reach = 0;
    if (variant == kCompact) {
        const double r = 3.0 * s;
        reach = r >= TAV_SR2_BLUR_MAX_RADIUS ? TAV_SR2_BLUR_MAX_RADIUS : (int32_t)r;
        if (reach < r && reach < TAV_SR2_BLUR_MAX_RADIUS) ++reach;
        for (int32_t t = 1; t <= reach; ++t)
            taps[t] = tav_sr2_exp(t * t * scale);
    } else {
        for (int32_t t = 1; t <= TAV_SR2_BLUR_MAX_RADIUS; ++t) {
            const double v = tav_sr2_exp(t * t * scale);
            if (v < kFloatLimit) break;
            taps[t] = v;
            reach = t;
        }
    }
    tav_sr2_BlurKernel_fromTaps(k, taps, reach);
}

// ---- base blur ----------------------------------------------------------------------------------

// Pool bytes of the intermediate image of a plain-format plane: 16-bit samples for 8- and
// 16-bit data, 32-bit ones for INT32 and FLOAT.
uint32_t intermediateBytes(const tav_sr2_Image* image) {
    const int32_t f = image->format;
    const int64_t sample = f == TAV_SR2_FMT_INT32 || f == TAV_SR2_FMT_FLOAT ? 4 : 2;
    return tav_sr2_MemPool_sizeOf((int64_t)image->width * tav_sr2_channelsOf(f) * image->height *
                                  sample);
}

template <typename T, typename B>
struct BaseJob {
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    int32_t channels;
    int32_t reach;  // taps on each side that the row kernels read
    const tav_sr2_BlurKernel* kernel;
    B* rows;  // the intermediate image, width * channels samples per row
    void (*horizontal)(const T* src, int32_t w, int32_t c, const tav_sr2_BlurKernel* k, B* out);
    void (*vertical)(const B* const* rows, int32_t n, const tav_sr2_BlurKernel* k, T* out);
};

template <typename T, typename B>
uint32_t horizontalBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const BaseJob<T, B>* job = static_cast<const BaseJob<T, B>*>(arg);
    const int32_t w = job->src->width, n = w * job->channels;
    for (int32_t y = y0; y < y1; ++y) {
        job->horizontal(tav_sr2_rowOf<const T>(job->src, 0, y), w, job->channels, job->kernel,
                        job->rows + (int64_t)y * n);
    }
    return TAV_OK;
}

template <typename T, typename B>
uint32_t verticalBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const BaseJob<T, B>* job = static_cast<const BaseJob<T, B>*>(arg);
    const int32_t h = job->dst->height, n = job->dst->width * job->channels, r = job->reach;
    const B* window[2 * TAV_SR2_BLUR_MAX_RADIUS + 1];
    for (int32_t y = y0; y < y1; ++y) {
        for (int32_t t = -r; t <= r; ++t) {
            const int32_t row = y + t < 0 ? 0 : y + t >= h ? h - 1 : y + t;
            window[t + r] = job->rows + (int64_t)row * n;
        }
        job->vertical(window, n, job->kernel, tav_sr2_rowOf<T>(job->dst, 0, y));
    }
    return TAV_OK;
}

// `rows` is the intermediate image when the caller holds one already (see blurByHalf), else null
// and taken from the pool here.
template <typename T, typename B>
uint32_t baseBlurPlane(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src,
                       const tav_sr2_BlurKernel* kernel, int32_t reach, void* rows,
                       void (*horizontal)(const T*, int32_t, int32_t, const tav_sr2_BlurKernel*,
                                          B*),
                       void (*vertical)(const B* const*, int32_t, const tav_sr2_BlurKernel*, T*)) {
    const int32_t channels = tav_sr2_channelsOf(dst->format);
    const bool own = rows == nullptr;
    if (own) rows = tav_sr2_MemPool_alloc(ctx->pool, intermediateBytes(dst));
    if (rows == nullptr) return TAV_SR2_ROWS_MISSING;
    B* buffer = static_cast<B*>(rows);
    BaseJob<T, B> job = {src, dst, channels, reach, kernel, buffer, horizontal, vertical};
    const int32_t workers = tav_sr2_ImageCtx_workers(ctx);
    uint32_t status =
        tav_sr2_ImageCtx_runBands(ctx, workers, dst->height, &horizontalBand<T, B>, &job);
    if (status == TAV_OK) {
        status = tav_sr2_ImageCtx_runBands(ctx, workers, dst->height, &verticalBand<T, B>, &job);
    }
    if (own) tav_sr2_MemPool_free(ctx->pool, rows);
    return status;
}

uint32_t baseBlur(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src,
                  double sigma, const BlurSetup& setup, void* rows) {
    tav_sr2_BlurKernel kernel;
    buildKernel(&kernel, sigma, setup.variant);
    const tav_sr2_BlurRowOps* r = setup.rows;
    switch (dst->format) {
        case TAV_SR2_FMT_UINT8:
        case TAV_SR2_FMT_UINT88:
            return baseBlurPlane<uint8_t, uint16_t>(ctx, dst, src, &kernel, kernel.radius, rows,
                                                    r->h_u8, r->v_u8);
        case TAV_SR2_FMT_UINT16:
        case TAV_SR2_FMT_UINT1616:
            return baseBlurPlane<uint16_t, uint16_t>(ctx, dst, src, &kernel, kernel.radius, rows,
                                                     r->h_u16, r->v_u16);
        case TAV_SR2_FMT_INT32:
            return baseBlurPlane<int32_t, int32_t>(ctx, dst, src, &kernel, kernel.radius, rows,
                                                   r->h_i32, r->v_i32);
        case TAV_SR2_FMT_FLOAT:
            return baseBlurPlane<float, float>(ctx, dst, src, &kernel, kernel.radius_f32, rows,
                                               r->h_f32, r->v_f32);
        default:
            return TAV_ERROR_UNSUPPORTED;
    }
}

bool plainFormat(int32_t f, Variant variant) {
    switch (f) {
        case TAV_SR2_FMT_UINT8:
        case TAV_SR2_FMT_UINT16:
        case TAV_SR2_FMT_UINT88:
        case TAV_SR2_FMT_UINT1616:
            return true;
        case TAV_SR2_FMT_INT32:
        case TAV_SR2_FMT_FLOAT:
            return variant == kFull;
        default:
            return false;
    }
}

// ---- the operator -------------------------------------------------------------------------------

uint32_t blurImage(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src,
                   double sigma, const BlurSetup& setup);

typedef uint32_t (*PlaneViewFn)(tav_sr2_Image*, const tav_sr2_Image*, int32_t, int32_t, int32_t,
                                int32_t);

// Blurs one plane of both images at sigma; a plane empty on either side is skipped.
uint32_t blurPlane(const tav_sr2_ImageCtx* ctx, PlaneViewFn view, tav_sr2_Image* dst,
                   const tav_sr2_Image* src, double sigma, const BlurSetup& setup) {
    tav_sr2_Image dst_view = {}, src_view = {};
    uint32_t status = view(&dst_view, dst, 0, 0, dst->width, dst->height);
    if (status == TAV_OK) status = view(&src_view, src, 0, 0, src->width, src->height);
    if (status != TAV_OK) return status;
    if (dst_view.width < 1 || dst_view.height < 1) return TAV_OK;
    return blurImage(ctx, &dst_view, &src_view, sigma, setup);
}

// The destination is written only once everything the last two steps need is in hand, so that
// missing row scratch anywhere leaves it as it was.
uint32_t blurByHalf(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src,
                    double sigma, const BlurSetup& setup) {
    const double inner = tav_sr2_sqrt(sigma * sigma - kBaseSigma * kBaseSigma) * 0.5;
    const bool round_up = setup.variant == kCompact;
    const int32_t hw = round_up ? (src->width + 1) >> 1 : src->width >> 1;
    const int32_t hh = round_up ? (src->height + 1) >> 1 : src->height >> 1;
    tav_sr2_Image half;
    tav_sr2_Image_init(&half, ctx->pool);
    void* last_rows = nullptr;
    uint32_t status = tav_sr2_Image_alloc(&half, hw, hh, nullptr, src->format);
    if (status == TAV_OK) status = tav_sr2_Image_resizeStrict(ctx, &half, src, setup.resize_rows);
    if (status == TAV_OK) status = blurImage(ctx, &half, &half, inner, setup);
    if (status == TAV_OK) {
        last_rows = tav_sr2_MemPool_alloc(ctx->pool, intermediateBytes(dst));
        if (last_rows == nullptr) status = TAV_SR2_ROWS_MISSING;
    }
    if (status == TAV_OK) status = tav_sr2_Image_resizeStrict(ctx, dst, &half, setup.resize_rows);
    if (status == TAV_OK) status = baseBlur(ctx, dst, dst, kBaseSigma, setup, last_rows);
    if (last_rows != nullptr) tav_sr2_MemPool_free(ctx->pool, last_rows);
    tav_sr2_Image_finish(&half);
    return status;
}

uint32_t blurImage(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src,
                   double sigma, const BlurSetup& setup) {
    if (ctx == nullptr || ctx->pool == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = tav_sr2_checkImagePair(dst, src);
    if (status != TAV_OK) return status;
    if (!tav_sr2_sameSize(dst, src)) return TAV_ERROR_PARAM;
    const int32_t f = dst->format;
    if (src->format != f) return TAV_ERROR_UNSUPPORTED;
    if (tav_sr2_isSemiPlanar8(f) || tav_sr2_isSemiPlanar10(f)) {
        status = blurPlane(ctx, tav_sr2_Image_viewPlane0, dst, src, sigma, setup);
        if (status != TAV_OK) return status;
        return blurPlane(ctx, tav_sr2_Image_viewChroma, dst, src, sigma * 0.5, setup);
    }
    if (setup.variant == kFull &&
        (f == TAV_SR2_FMT_YUV422_PLANAR || f == TAV_SR2_FMT_YUV420_PLANAR)) {
        status = blurPlane(ctx, tav_sr2_Image_viewPlane0, dst, src, sigma, setup);
        if (status == TAV_OK) {
            status = blurPlane(ctx, tav_sr2_Image_viewPlane1, dst, src, sigma * 0.5, setup);
        }
        if (status == TAV_OK) {
            status = blurPlane(ctx, tav_sr2_Image_viewPlane2, dst, src, sigma * 0.5, setup);
        }
        return status;
    }
    if (!plainFormat(f, setup.variant)) return TAV_ERROR_UNSUPPORTED;
    if (sigma > kBaseSigma && dst->width >= kMinHalvingSide && dst->height >= kMinHalvingSide) {
        return blurByHalf(ctx, dst, src, sigma, setup);
    }
    return baseBlur(ctx, dst, src, sigma, setup, nullptr);
}

// The public face of blurImage: missing row scratch answers 0 (kept behaviour).
uint32_t blurPublic(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src,
                    double sigma, const BlurSetup& setup) {
    const uint32_t status = blurImage(ctx, dst, src, sigma, setup);
    return status == TAV_SR2_ROWS_MISSING ? TAV_OK : status;
}

}  // namespace

uint32_t tav_sr2_Image_blurWithRows(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                    const tav_sr2_Image* src, double sigma,
                                    const tav_sr2_BlurRowOps* rows,
                                    const tav_sr2_ResizeRowOps* resize_rows) {
    if (rows == nullptr || resize_rows == nullptr) return TAV_ERROR_PARAM;
    return blurPublic(ctx, dst, src, sigma, BlurSetup{kFull, rows, resize_rows});
}

uint32_t tav_sr2_Image_blur(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                            const tav_sr2_Image* src, double sigma) {
    return blurPublic(ctx, dst, src, sigma,
                      BlurSetup{kFull, &tav_sr2_blurRowsVector, &tav_sr2_resizeRowsVector});
}

uint32_t tav_sr2_Image_blurStrict(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                  const tav_sr2_Image* src, double sigma) {
    return blurImage(ctx, dst, src, sigma,
                     BlurSetup{kFull, &tav_sr2_blurRowsVector, &tav_sr2_resizeRowsVector});
}

uint32_t tav_sr2_Image_blurCompact(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src, double sigma) {
    return blurPublic(ctx, dst, src, sigma,
                      BlurSetup{kCompact, &tav_sr2_blurRowsVector, &tav_sr2_resizeRowsVector});
}

void tav_sr2_BlurKernel_gaussian(tav_sr2_BlurKernel* k, double sigma) {
    buildKernel(k, sigma, kFull);
}

void tav_sr2_BlurKernel_compact(tav_sr2_BlurKernel* k, double sigma) {
    buildKernel(k, sigma, kCompact);
}
