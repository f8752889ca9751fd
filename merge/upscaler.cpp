// tav_sr2_Upscaler: the record, its set-up (phase table, bank blend, threshold) and the top entry
// scaleLuma. The image operations are in upscale2x.cpp and resample.cpp.
#include "merge/upscaler.h"

#include <string.h>

#include "enhance/image_rows.h"
#include "foundation/maths.h"
#include "merge/pattern_banks.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr uint32_t kTableBytes = TAV_SR2_PHASES * TAV_SR2_PHASE_TAPS * sizeof(int16_t);
constexpr uint32_t kFilterBytes = TAV_SR2_PATTERN_TAPS * sizeof(int16_t);

void pointAtBank0(tav_sr2_Upscaler* u) {
    for (int32_t i = 0; i < TAV_SR2_PATTERN_COUNT; ++i)
        u->patterns[i] = tav_sr2_pattern_bank_0 + (int64_t)i * TAV_SR2_PATTERN_TAPS;
}

// Releases the blended copies, the first failing release reported, and points at bank 0.
uint32_t releaseCopies(tav_sr2_Upscaler* u) {
    uint32_t status = TAV_OK;
    if (u->owned) {
        for (int32_t i = 0; i < TAV_SR2_PATTERN_COUNT; ++i) {
            const uint32_t s = tav_sr2_MemPool_free(u->pool, const_cast<int16_t*>(u->patterns[i]));
            if (status == TAV_OK) status = s;
        }
        u->owned = 0;
    }
    pointAtBank0(u);
    return status;
}

// Mitchell-Netravali cubic at distance x.
double mitchell(double x, double b, double c) {
    x = x < 0.0 ? -x : x;
    if (x < 1.0)
        return ((12.0 - 9.0 * b - 6.0 * c) * x * x * x + (-18.0 + 12.0 * b + 6.0 * c) * x * x +
                (6.0 - 2.0 * b)) /
               6.0;
    if (x < 2.0)
        return ((-b - 6.0 * c) * x * x * x + (6.0 * b + 30.0 * c) * x * x +
                (-12.0 * b - 48.0 * c) * x + (8.0 * b + 24.0 * c)) /
               6.0;
    return 0.0;
}

// Lanczos of `lobes` lobes at distance d (1 at 0, 0 from `lobes` on).
double lanczos(double d, int32_t lobes) {
    if (d < 0.0) d = -d;
    if (d > lobes) return 0.0;
    if (d < 1e-9) return 1.0;
    const double pd = kPi * d;
    return tav_sr2_sin(pd) * tav_sr2_sin(pd / lobes) / (pd * pd);
}

int16_t toQ14(double tap) {
    return (int16_t)(int32_t)(tap * 16384.0 + 0.5);
}

}  // namespace

bool tav_sr2_Upscaler_fillPhases(const tav_sr2_UpscaleKernel* kernel, int16_t* table) {
    const int32_t mode = kernel->mode;
    if (mode != 0 && mode != 2 && mode != 3) return false;
    for (int32_t i = 0; i < TAV_SR2_PHASES; ++i) {
        const double f = i / 256.0;
        double taps[TAV_SR2_PHASE_TAPS];
        double sum = 0.0;
        for (int32_t k = 0; k < TAV_SR2_PHASE_TAPS; ++k) {
            const double d = k - 3 - f;
            if (mode == 0) {
                taps[k] = (k >= 2 && k <= 5) ? mitchell(d, kernel->b, kernel->c) : 0.0;
            } else {
                taps[k] = k < 7 ? lanczos(d, mode) : 0.0;
            }
            sum += taps[k];
        }
        for (int32_t k = 0; k < TAV_SR2_PHASE_TAPS; ++k) {
            const double tap = mode == 0 ? taps[k] : taps[k] / sum;
            table[i * TAV_SR2_PHASE_TAPS + k] = toQ14(tap);
        }
    }
    return true;
}

uint32_t tav_sr2_Upscaler_init(tav_sr2_Upscaler* u, tav_sr2_MemPool* pool) {
    if (u == nullptr) return TAV_ERROR_PARAM;
    memset(u, 0, sizeof(*u));
    u->pool = pool;
    u->resize.pool = pool;
    u->rows = &tav_sr2_upscaleRowsVector;
    pointAtBank0(u);
    return TAV_OK;
}

uint32_t tav_sr2_Upscaler_finish(tav_sr2_Upscaler* u) {
    if (u == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = releaseCopies(u);
    if (u->kernel_table != nullptr) {
        const uint32_t s = tav_sr2_MemPool_free(u->pool, u->kernel_table);
        if (status == TAV_OK) status = s;
        u->kernel_table = nullptr;
    }
    return status;
}

uint32_t tav_sr2_Upscaler_reset(tav_sr2_Upscaler* u) {
    if (u == nullptr) return TAV_ERROR_PARAM;
    const uint32_t released = tav_sr2_Upscaler_finish(u);
    u->pattern_threshold = 0;
    u->kernel_table = static_cast<int16_t*>(tav_sr2_MemPool_alloc(u->pool, kTableBytes));
    if (u->kernel_table == nullptr) return TAV_ERROR_MALLOC;
    const tav_sr2_UpscaleKernel cubic = {0, 0.0, 1.0};
    tav_sr2_Upscaler_fillPhases(&cubic, u->kernel_table);
    return released;
}

uint32_t tav_sr2_Upscaler_setKernel(tav_sr2_Upscaler* u, const tav_sr2_UpscaleKernel* kernel) {
    if (u == nullptr || kernel == nullptr || u->kernel_table == nullptr) return TAV_ERROR_PARAM;
    // An unknown mode is refused before anything is written: the table stays as it was.
    return tav_sr2_Upscaler_fillPhases(kernel, u->kernel_table) ? TAV_OK : TAV_ERROR_PARAM;
}

uint32_t tav_sr2_Upscaler_blendBanks(tav_sr2_Upscaler* u, double t) {
    if (u == nullptr || !(t >= 0.0 && t <= 0.5)) return TAV_ERROR_PARAM;
    uint32_t status = releaseCopies(u);
    const int32_t n = (int32_t)(t * 256.0 + t * 256.0);
    for (int32_t i = 0; i < TAV_SR2_PATTERN_COUNT; ++i) {
        int16_t* copy = static_cast<int16_t*>(tav_sr2_MemPool_alloc(u->pool, kFilterBytes));
        if (copy == nullptr) {
            // The copies made so far go back; the bank itself serves.
            for (int32_t j = 0; j < i; ++j)
                tav_sr2_MemPool_free(u->pool, const_cast<int16_t*>(u->patterns[j]));
            pointAtBank0(u);
            return TAV_ERROR_MALLOC;
        }
        const int16_t* a = tav_sr2_pattern_bank_0 + (int64_t)i * TAV_SR2_PATTERN_TAPS;
        const int16_t* b = tav_sr2_pattern_bank_1 + (int64_t)i * TAV_SR2_PATTERN_TAPS;
        for (int32_t e = 0; e < TAV_SR2_PATTERN_TAPS; ++e)
            copy[e] = (int16_t)(((256 - n) * a[e] + n * b[e]) >> 8);
        u->patterns[i] = copy;
    }
    u->owned = 1;
    return status;
}

uint32_t tav_sr2_Upscaler_setThreshold(tav_sr2_Upscaler* u, int32_t v) {
    if (u == nullptr || v < 0) return TAV_ERROR_PARAM;
    u->pattern_threshold = v;
    return TAV_OK;
}

uint32_t tav_sr2_Upscaler_scaleLuma(tav_sr2_Upscaler* u, tav_sr2_Image* dst,
                                    const tav_sr2_Image* src) {
    if (u == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = tav_sr2_checkImagePair(dst, src);
    if (status != TAV_OK) return status;
    const int32_t sw = src->width;
    const int32_t sh = src->height;
    if (tav_sr2_sameSize(dst, src)) {
        tav_sr2_Image d;
        tav_sr2_Image s;
        status = tav_sr2_Image_viewPlane0(&d, dst, 0, 0, dst->width, dst->height);
        if (status == TAV_OK) status = tav_sr2_Image_viewPlane0(&s, src, 0, 0, sw, sh);
        return status != TAV_OK ? status : tav_sr2_Image_copy(&d, &s);
    }
    if (dst->width == 2 * sw && dst->height == 2 * sh)
        return tav_sr2_Upscaler_upscale2x(u, dst, src);
    // Both sides at least 1.6 times: the pattern step first, then the rest by the resampler.
    if (5 * dst->width >= 8 * sw && 5 * dst->height >= 8 * sh) {
        tav_sr2_Image twice;
        tav_sr2_Image_init(&twice, u->pool);
        status = tav_sr2_Image_alloc(&twice, 2 * sw, 2 * sh, nullptr, TAV_SR2_FMT_UINT8);
        if (status == TAV_OK) status = tav_sr2_Upscaler_upscale2x(u, &twice, src);
        if (status == TAV_OK) status = tav_sr2_Upscaler_resample(u, dst, &twice);
        const uint32_t released = tav_sr2_Image_finish(&twice);
        return status != TAV_OK ? status : released;
    }
    return tav_sr2_Upscaler_resample(u, dst, src);
}
