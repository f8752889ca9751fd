// The sharpening weight: the ghost term from the merged-frame count and the skin term.
//
// Ghost term: weight_sum >> s (s the least shift from 2 that brings accum_num 128 within 128)
// through the table min(255, trunc(r + (128 - r) max(i - lo, 0) / (top + 1e-9))), r the single-
// frame ratio times 128, lo = 128 >> s, top = (accum_num 128 - 128) >> s.
//
// Skin term, at half the size of weight_sum: from the luma and chroma of the frame brought to that
// size, p = g_y(Y) g_s(U + V) g_d(U - V) 765 rounded half to even, p - 256 limited to 0..255, and
// the rate table trunc((1 - (1 - q) exp(-(255 - i)^2 / 8192)) 128 + 0.5) of it; isolated skin is
// dropped by eroding twice and dilating five times a padded copy and keeping the minimum, and the
// result is blurred at sigma 1.7 and multiplied into the ghost term.
#include <string.h>

#include "enhance/blur.h"
#include "enhance/image_ops.h"
#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/depth_convert.h"
#include "foundation/log.h"
#include "foundation/maths.h"
#include "sharpen/enhance.h"
#include "sharpen/unsharp.h"

namespace {

int32_t ghostShift(int32_t accum_num) {
    int32_t s = 2;
    while ((((int64_t)accum_num * 128) >> s) > 128)
        ++s;
    return s;
}

void ghostTable(const tav_sr2_EnhanceInputs* in, int32_t s, uint8_t* table) {
    const double r = in->unsharp_4ghost_ratio * 128.0;
    const double lo = (double)(128 >> s);
    const double top = (double)(((int64_t)in->accum_num * 128 - 128) >> s);
    for (int32_t i = 0; i < 256; ++i) {
        const double over = i - lo > 0.0 ? i - lo : 0.0;
        const double v = r + (128.0 - r) * over / (top + 1e-9);
        table[i] = (uint8_t)(v < 255.0 ? (int32_t)v : 255);
    }
}

// The three Gaussians of the skin likelihood, in one block of 1278 doubles: luma at 0, U + V at
// 256, U - V (from -255) at 767.
void skinTables(double* g) {
    for (int32_t i = 0; i < 256; ++i) {
        const double d = i - 161.011;
        g[i] = tav_sr2_exp(d * d / -7780.73235968);
    }
    for (int32_t k = 0; k < 511; ++k) {
        const double s = k - 261.183;
        g[256 + k] = tav_sr2_exp(s * s / -55.68712578);
        const double d = (k - 255) - 47.222;
        g[767 + k] = tav_sr2_exp(d * d / -1693.2940956799996);
    }
}

void rateTable(double q, uint8_t* table) {
    for (int32_t i = 0; i < 256; ++i) {
        const double f = (255 - i) * (255 - i) * -0.0001220703125;
        table[i] = (uint8_t)(int32_t)((1.0 - (1.0 - q) * tav_sr2_exp(f)) * 128.0 + 0.5);
    }
}

// Round half to even through the double's own rounding at 2^52.
double roundEven(double p) {
    const double big = p < 0.0 ? -4503599627370496.0 : 4503599627370496.0;
    return (p + big) - big;
}

void skinOf(const tav_sr2_Image* frame_small, const double* g, const uint8_t* rate,
            tav_sr2_Image* skin) {
    for (int32_t y = 0; y < skin->height; ++y) {
        const uint8_t* luma = tav_sr2_rowOf<const uint8_t>(frame_small, 0, 2 * y);
        const uint8_t* chroma = tav_sr2_rowOf<const uint8_t>(frame_small, 1, y);
        uint8_t* out = tav_sr2_rowOf<uint8_t>(skin, 0, y);
        for (int32_t x = 0; x < skin->width; ++x) {
            const int32_t u = chroma[2 * x], v = chroma[2 * x + 1];
            const double p = g[luma[2 * x]] * (g[256 + u + v] * g[767 + 255 + u - v]) * 765.0;
            int32_t i = (int32_t)roundEven(p) - 256;
            i = i < 0 ? 0 : i > 255 ? 255 : i;
            out[x] = rate[i];
        }
    }
}

// skin = min(skin, its padded copy eroded twice and dilated five times).
uint32_t dropIsolated(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* skin) {
    tav_sr2_Image padded, interior;
    tav_sr2_Image_init(&padded, ctx->pool);
    uint32_t status = tav_sr2_Image_alloc(&padded, skin->width + 10, skin->height + 10, nullptr,
                                          TAV_SR2_FMT_UINT8);
    if (status == TAV_OK) status = tav_sr2_Image_fillValue(ctx, &padded, 128);
    if (status == TAV_OK)
        status = tav_sr2_Image_crop(&interior, &padded, 5, 5, skin->width, skin->height);
    if (status == TAV_OK) status = tav_sr2_Image_copy(&interior, skin);
    for (int32_t k = 0; k < 7 && status == TAV_OK; ++k)
        status = k < 2 ? tav_sr2_Image_erode(ctx, &padded) : tav_sr2_Image_dilate(ctx, &padded);
    if (status == TAV_OK) status = tav_sr2_Image_min(ctx, skin, skin, &interior);
    tav_sr2_Image_finish(&padded);
    return status;
}

uint32_t multiplyInto(tav_sr2_Image* ghost, const tav_sr2_Image* skin) {
    for (int32_t y = 0; y < ghost->height; ++y) {
        uint8_t* g = tav_sr2_rowOf<uint8_t>(ghost, 0, y);
        const uint8_t* s = tav_sr2_rowOf<const uint8_t>(skin, 0, y);
        for (int32_t x = 0; x < ghost->width; ++x)
            g[x] = (uint8_t)((s[x] * g[x]) >> 7);
    }
    return TAV_OK;
}

uint32_t resizeFast(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src) {
    return tav_sr2_Image_resize_fast(ctx->pool, ctx->threads, ctx->tasks, dst, src);
}

// Steps 5 to 12: the skin term multiplied into ghost_small's half-size copy and enlarged.
uint32_t skinWeight(const tav_sr2_EnhanceInputs* in, const tav_sr2_Image* image,
                    const tav_sr2_Image* ghost_small, uint8_t* table, tav_sr2_Image* weight) {
    const tav_sr2_ImageCtx* ctx = &in->ctx;
    tav_sr2_Image frame8, frame_small, skin_half, ghost_half;
    for (tav_sr2_Image* im : {&frame8, &frame_small, &skin_half, &ghost_half})
        tav_sr2_Image_init(im, ctx->pool);
    const bool deep = tav_sr2_isSemiPlanar10(image->format);
    const int32_t f8 = image->format == TAV_SR2_FMT_YVU10B420_SEMIPLANAR ||
                               image->format == TAV_SR2_FMT_YVU420_SEMIPLANAR
                           ? TAV_SR2_FMT_YVU420_SEMIPLANAR
                           : TAV_SR2_FMT_YUV420_SEMIPLANAR;
    uint32_t status = TAV_OK;
    if (deep) {
        status = tav_sr2_Image_alloc(&frame8, image->width, image->height, nullptr, f8);
        if (status == TAV_OK)
            status = tav_sr2_convert10to8(ctx->threads, ctx->pool, &frame8, image);
    } else {
        status = tav_sr2_Image_crop(&frame8, image, 0, 0, image->width, image->height);
    }
    const int32_t sw = ghost_small->width >> 1, sh = ghost_small->height >> 1;
    if (status == TAV_OK) status = tav_sr2_Image_alloc(&frame_small, 2 * sw, 2 * sh, nullptr, f8);
    if (status == TAV_OK)
        status = tav_sr2_Image_alloc(&skin_half, sw, sh, nullptr, TAV_SR2_FMT_UINT8);
    if (status == TAV_OK)
        status = tav_sr2_Image_alloc(&ghost_half, sw, sh, nullptr, TAV_SR2_FMT_UINT8);
    if (status == TAV_OK) status = resizeFast(ctx, &frame_small, &frame8);
    if (status == TAV_OK) status = resizeFast(ctx, &ghost_half, ghost_small);
    double* g = status == TAV_OK
                    ? static_cast<double*>(tav_sr2_MemPool_alloc(ctx->pool, 1278 * sizeof(double)))
                    : nullptr;
    if (status == TAV_OK && g == nullptr) status = TAV_ERROR_MALLOC;
    if (status == TAV_OK) {
        skinTables(g);
        rateTable(in->do_unsharp_rate_for_skin, table);
        skinOf(&frame_small, g, table, &skin_half);
        status = dropIsolated(ctx, &skin_half);
    }
    if (status == TAV_OK) status = tav_sr2_Image_blurStrict(ctx, &skin_half, &skin_half, 1.7);
    tav_sr2_MemPool_free(ctx->pool, g);
    if (status == TAV_OK) status = multiplyInto(&ghost_half, &skin_half);
    if (status == TAV_OK) status = resizeFast(ctx, weight, &ghost_half);
    for (tav_sr2_Image* im : {&frame8, &frame_small, &skin_half, &ghost_half})
        tav_sr2_Image_finish(im);
    return status;
}

}  // namespace

uint32_t tav_sr2_Enhance_weight(const tav_sr2_EnhanceInputs* in, const tav_sr2_Image* image,
                                tav_sr2_Image* weight) {
    if (in == nullptr || image == nullptr || weight == nullptr) return TAV_ERROR_PARAM;
    tav_sr2_log_i("self->image_num = %d \n", in->frame_count);
    const tav_sr2_Image* sum = in->weight_sum;
    if (sum == nullptr || sum->plane[0] == nullptr || sum->width < 2 || sum->height < 2)
        return TAV_ERROR_PARAM;
    const tav_sr2_ImageCtx* ctx = &in->ctx;
    tav_sr2_Image ghost_small;
    tav_sr2_Image_init(&ghost_small, ctx->pool);
    uint32_t status =
        tav_sr2_Image_alloc(&ghost_small, sum->width, sum->height, nullptr, TAV_SR2_FMT_UINT8);
    const int32_t s = ghostShift(in->accum_num);
    uint8_t table[256];
    if (status == TAV_OK) status = tav_sr2_Image_shift_right(ctx, &ghost_small, sum, s);
    if (status == TAV_OK) {
        ghostTable(in, s, table);
        status = tav_sr2_Image_lookup(ctx->tasks, &ghost_small, &ghost_small, table);
    }
    if (status == TAV_OK) {
        status = in->do_unsharp_rate_for_skin >= 1.0
                     ? resizeFast(ctx, weight, &ghost_small)
                     : skinWeight(in, image, &ghost_small, table, weight);
    }
    tav_sr2_Image_finish(&ghost_small);
    return status;
}
