// The luma noise reducers: the multiscale pyramid with its detail gain, and the dark-light pass.
//
// The pyramid's difference and rebuild run by 4-row-aligned bands, one posted job per worker;
// the guided filters of the ascent run their own tasks. The resizes are the strict bilinear ones,
// so that a pyramid level never holds pixels the pool could not compute: in the descent a missing
// row buffer ends the stage before the frame is touched, in the ascent it leaves the enlarged
// level as the descent made it.
#include "nr/luma_nr.h"

#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/log.h"
#include "foundation/row_band.h"
#include "nr/guided_filter.h"

namespace {

constexpr int32_t kMaxLevels = 3;
constexpr int32_t kLowWindow[kMaxLevels] = {41, 21, 5};
constexpr float kLowShare[kMaxLevels] = {1.0f, 0.5f, 0.25f};
// Detail eps at index t is for the band between levels t - 1 and t; index 0 is never read.
constexpr float kHighShare[kMaxLevels] = {1.0f, 1.0f, 0.5f};
constexpr int32_t kDetailWindow = 3;

struct Width8 {
    using Sample = uint8_t;
    static constexpr int32_t kBias = 128, kLimit = 255, kFormat = TAV_SR2_FMT_UINT8;
};
struct Width10 {
    using Sample = uint16_t;
    static constexpr int32_t kBias = 512, kLimit = 1023, kFormat = TAV_SR2_FMT_UINT16;
};

int32_t clampTo(int32_t v, int32_t lo, int32_t hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

struct Pyramid {
    int32_t levels;
    tav_sr2_Image y_l[kMaxLevels];  // level 0: a view of the frame's luma
    tav_sr2_Image y_h[kMaxLevels];
    tav_sr2_Image y_resize[kMaxLevels];
};

int32_t levelCount(int32_t w, int32_t h) {
    if (w < 64 || h < 64) return 1;
    if (w < 128 || h < 128) return 2;
    return 3;
}

void releasePyramid(Pyramid* p) {
    for (int32_t i = 0; i < kMaxLevels; ++i) {
        if (i > 0) tav_sr2_Image_finish(&p->y_l[i]);
        tav_sr2_Image_finish(&p->y_h[i]);
        tav_sr2_Image_finish(&p->y_resize[i]);
    }
}

template <typename Width>
uint32_t buildPyramid(const tav_sr2_NrEngine* e, tav_sr2_Image* image, Pyramid* p) {
    tav_sr2_MemPool* pool = e->ctx.pool;
    for (int32_t i = 0; i < kMaxLevels; ++i) {
        tav_sr2_Image_init(&p->y_l[i], pool);
        tav_sr2_Image_init(&p->y_h[i], pool);
        tav_sr2_Image_init(&p->y_resize[i], pool);
    }
    int32_t w = image->width, h = image->height;
    p->levels = levelCount(w, h);
    for (int32_t i = 0; i < p->levels; ++i) {
        uint32_t status = tav_sr2_Image_alloc(&p->y_h[i], w, h, nullptr, Width::kFormat);
        status |= tav_sr2_Image_alloc(&p->y_resize[i], w, h, nullptr, Width::kFormat);
        if (i > 0) status |= tav_sr2_Image_alloc(&p->y_l[i], w, h, nullptr, Width::kFormat);
        if (status != TAV_OK) return status;
        w = (w >> 1) & ~3;
        h = (h >> 1) & ~3;
        tav_sr2_log_i("multiscale_ynr [%d x %d] \n", w, h);
    }
    return tav_sr2_Image_viewPlane0(&p->y_l[0], image, 0, 0, image->width, image->height);
}

// ---- the two band jobs --------------------------------------------------------------------------

template <typename Width>
struct BandJob {
    const tav_sr2_Image* low;  // L
    const tav_sr2_Image* up;   // U
    tav_sr2_Image* detail;     // Hh
    tav_sr2_Image* out;        // the difference writes detail, the rebuild out
    const tav_sr2_NrEngine* e;
    int32_t gain;  // hfe_level
    int32_t bands;
};

template <typename Width>
uint32_t differenceBand(void* arg, int32_t band, int32_t, int32_t) {
    using S = typename Width::Sample;
    const auto* job = static_cast<const BandJob<Width>*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(job->detail->height, band, job->bands, &y0, &y1);
    for (int32_t y = y0; y < y1; ++y) {
        const S* l = tav_sr2_rowOf<const S>(job->low, 0, y);
        const S* u = tav_sr2_rowOf<const S>(job->up, 0, y);
        S* hh = tav_sr2_rowOf<S>(job->detail, 0, y);
        const int32_t width = job->detail->width;
        for (int32_t x = 0; x < width; ++x)
            hh[x] = (S)clampTo(l[x] - u[x] + Width::kBias, 0, Width::kLimit);
    }
    return TAV_OK;
}

// The rebuild's settings, held in locals of the row loop so that it vectorises.
struct Gains {
    int32_t gain, thr, black, white;
};

inline int32_t rebuilt(Width8, const Gains& g, int32_t l, int32_t u, int32_t hh) {
    return (((hh - 128) * g.gain) >> 7) + ((6 * l + 10 * u) >> 4);
}

inline int32_t rebuilt(Width10, const Gains& g, int32_t l, int32_t u, int32_t hh) {
    const int32_t d = hh - 512;
    const int32_t k = d > -4 && d < 4 ? g.thr : g.gain;
    return ((64 + clampTo(d, g.black, g.white) * k) >> 7) + ((3 * l + 13 * u + 8) >> 4);
}

template <typename Width>
uint32_t rebuildBand(void* arg, int32_t band, int32_t, int32_t) {
    using S = typename Width::Sample;
    const auto* job = static_cast<const BandJob<Width>*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(job->out->height, band, job->bands, &y0, &y1);
    const Gains g = {job->gain, job->e->hfe_thr, job->e->hfe_black_level, job->e->hfe_white_level};
    const int32_t width = job->out->width;
    for (int32_t y = y0; y < y1; ++y) {
        const S* l = tav_sr2_rowOf<const S>(job->low, 0, y);
        const S* u = tav_sr2_rowOf<const S>(job->up, 0, y);
        const S* hh = tav_sr2_rowOf<const S>(job->detail, 0, y);
        S* out = tav_sr2_rowOf<S>(job->out, 0, y);
        for (int32_t x = 0; x < width; ++x)
            out[x] = (S)clampTo(rebuilt(Width(), g, l[x], u[x], hh[x]), 0, Width::kLimit);
    }
    return TAV_OK;
}

template <typename Width>
uint32_t runBandJob(const tav_sr2_NrEngine* e, BandJob<Width>* job, tav_sr2_ImageBandFn fn) {
    job->bands = tav_sr2_ImageCtx_workers(&e->ctx);
    return tav_sr2_ImageCtx_runBands(&e->ctx, job->bands, job->bands, fn, job);
}

uint32_t resizeLevel(const tav_sr2_NrEngine* e, tav_sr2_Image* dst, const tav_sr2_Image* src) {
    return tav_sr2_Image_resizeStrict(&e->ctx, dst, src, &tav_sr2_resizeRowsVector);
}

// ---- the stage ----------------------------------------------------------------------------------

template <typename Width>
uint32_t descend(const tav_sr2_NrEngine* e, Pyramid* p) {
    for (int32_t i = 1; i < p->levels; ++i) {
        uint32_t status = resizeLevel(e, &p->y_l[i], &p->y_l[i - 1]);
        if (status == TAV_OK) status = resizeLevel(e, &p->y_resize[i - 1], &p->y_l[i]);
        if (status != TAV_OK) return status;
        BandJob<Width> job = {
            &p->y_l[i - 1], &p->y_resize[i - 1], &p->y_h[i - 1], nullptr, e, 0, 0};
        runBandJob(e, &job, differenceBand<Width>);
    }
    return TAV_OK;
}

template <typename Width>
void ascend(const tav_sr2_NrEngine* e, Pyramid* p, const tav_sr2_Image* noise_map, int32_t gain,
            float low, float high) {
    for (int32_t t = p->levels - 1;; --t) {
        if (low * kLowShare[t] > 0.0f) {
            tav_sr2_ynr_filter(e, nullptr, &p->y_l[t], noise_map, kLowWindow[t],
                               low * kLowShare[t]);
        }
        if (t == 0) return;
        const tav_sr2_Image* below = &p->y_l[t - 1];
        tav_sr2_log_i("y_l[%d] =[%d,%d], y_resize[%d]=[%d,%d] y_l[%d]=[%dx%d] y_h[%d]=[%dx%d]\n", t,
                      p->y_l[t].width, p->y_l[t].height, t - 1, p->y_resize[t - 1].width,
                      p->y_resize[t - 1].height, t - 1, below->width, below->height, t - 1,
                      p->y_h[t - 1].width, p->y_h[t - 1].height);
        if (high * kHighShare[t] > 0.0f) {
            tav_sr2_ynr_filter(e, nullptr, &p->y_h[t - 1], noise_map, kDetailWindow,
                               high * kHighShare[t]);
        }
        resizeLevel(e, &p->y_resize[t - 1], &p->y_l[t]);
        BandJob<Width> job = {
            &p->y_l[t - 1], &p->y_resize[t - 1], &p->y_h[t - 1], &p->y_l[t - 1], e, gain, 0};
        runBandJob(e, &job, rebuildBand<Width>);
    }
}

template <typename Width>
uint32_t multiscale(const tav_sr2_NrEngine* e, tav_sr2_Image* image, const tav_sr2_Image* noise_map,
                    int32_t gain, float low, float high) {
    if (e == nullptr || image == nullptr) return TAV_ERROR_PARAM;
    Pyramid p;
    uint32_t status = buildPyramid<Width>(e, image, &p);
    if (status == TAV_OK) status = descend<Width>(e, &p);
    if (status == TAV_OK) ascend<Width>(e, &p, noise_map, gain, low, high);
    releasePyramid(&p);
    return status;
}

bool isFrame8(int32_t f) {
    return f == TAV_SR2_FMT_YUV420_SEMIPLANAR || f == TAV_SR2_FMT_YVU420_SEMIPLANAR;
}
bool isFrame10(int32_t f) {
    return f == TAV_SR2_FMT_YUV10B420_SEMIPLANAR || f == TAV_SR2_FMT_YVU10B420_SEMIPLANAR;
}

}  // namespace

uint32_t multiscale_ynr(const tav_sr2_NrEngine* engine, tav_sr2_Image* image,
                        const tav_sr2_Image* noise_map, int32_t hfe_level, float ynr_low_eps,
                        float ynr_high_eps) {
    if (image == nullptr || !isFrame8(image->format)) return TAV_OK;
    return multiscale<Width8>(engine, image, noise_map, hfe_level, ynr_low_eps, ynr_high_eps);
}

uint32_t multiscale_ynr_16(const tav_sr2_NrEngine* engine, tav_sr2_Image* image,
                           const tav_sr2_Image* noise_map, int32_t hfe_level, float ynr_low_eps,
                           float ynr_high_eps) {
    if (image == nullptr || !isFrame10(image->format)) return TAV_OK;
    return multiscale<Width10>(engine, image, noise_map, hfe_level, ynr_low_eps, ynr_high_eps);
}

uint32_t tav_sr2_ynr_dispatch(const tav_sr2_NrEngine* engine, tav_sr2_Image* image,
                              const tav_sr2_Image* noise_map, int32_t hfe_level, float low,
                              float high) {
    if (image != nullptr && isFrame10(image->format)) {
        return multiscale_ynr_16(engine, image, noise_map, hfe_level, low, high);
    }
    return multiscale_ynr(engine, image, noise_map, hfe_level, low, high);
}

uint32_t tav_sr2_ynr_filter(const tav_sr2_NrEngine* engine, const tav_sr2_Image* source,
                            tav_sr2_Image* destination, const tav_sr2_Image* noise_map,
                            int32_t window, float level) {
    if (engine == nullptr || destination == nullptr) return TAV_ERROR_PARAM;
    tav_sr2_GuidedFilterConfig config;
    tav_sr2_GuidedFilter_defaults(&config);
    tav_sr2_GuidedFilter filter;
    tav_sr2_GuidedFilter_init(&filter, engine->ctx.pool);
    tav_sr2_GuidedFilter_setThreads(&filter, engine->ctx.tasks);
    const int32_t format =
        destination->format == TAV_SR2_FMT_UINT8 ? TAV_SR2_FMT_UINT8 : TAV_SR2_FMT_UINT16;
    uint32_t status = tav_sr2_GuidedFilter_setup(&filter, destination->width, destination->height,
                                                 format, &config);
    const float eps = level * level;
    if (status == TAV_OK) {
        status = noise_map != nullptr
                     ? tav_sr2_GuidedFilter_processMap(&filter, source, destination, noise_map,
                                                       window, eps)
                     : tav_sr2_GuidedFilter_process(&filter, source, destination, window, eps);
    }
    tav_sr2_GuidedFilter_finish(&filter);
    return status;
}

void dark_light_nr(const tav_sr2_NrEngine* engine, tav_sr2_Image* image, int32_t window, float eps,
                   bool twice) {
    if (engine == nullptr || image == nullptr) return;
    tav_sr2_GuidedFilterConfig config;
    tav_sr2_GuidedFilter_defaults(&config);
    tav_sr2_GuidedFilter filter;
    tav_sr2_GuidedFilter_init(&filter, engine->ctx.pool);
    tav_sr2_GuidedFilter_setThreads(&filter, engine->ctx.tasks);
    const int32_t f = image->format;
    // Another format is not set up, and the process calls then fail and do nothing.
    if (isFrame8(f) || isFrame10(f)) {
        tav_sr2_GuidedFilter_setup(&filter, image->width, image->height,
                                   isFrame8(f) ? TAV_SR2_FMT_UINT8 : TAV_SR2_FMT_UINT16, &config);
    }
    tav_sr2_GuidedFilter_process(&filter, image, image, window, eps);
    if (twice) tav_sr2_GuidedFilter_process(&filter, image, image, window, eps);
    tav_sr2_GuidedFilter_finish(&filter);
}
