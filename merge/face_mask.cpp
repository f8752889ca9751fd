// The face mask.
//
// For each rectangle, aligned inward to multiples of 4: the modal skin colour of the centre
// third (a 64 x 64 x 64 histogram of 2 x 2 luma sums and chroma pairs, the first fullest bin
// winning), then a paint over a square around the centre whose radius follows the rectangle's
// size: mask += 255 * e(g * distance^2) * e(colour distance), e(i) = exp(-7 i / 256) tabled, with
// luma counting a sixteenth as much as colour and a dead zone of 100. Paints add and saturate at
// 255, so overlapping faces sum. Afterwards the mask is opened and closed (min 2, max 4, min 2)
// and blurred.
//
// The chroma component called `a` is V in either frame order (the second byte of a pair in
// format 48, the first in 49), so the histogram does not depend on the order.
#include "merge/face_mask.h"

#include "enhance/blur.h"
#include "enhance/image_ctx.h"
#include "enhance/image_ops.h"
#include "enhance/image_rows.h"
#include "foundation/log.h"
#include "foundation/maths.h"
#include "merge/morph_filter.h"

namespace {

constexpr int32_t kHistogramBins = 64 * 64 * 64;
constexpr int32_t kMaxPaintBands = 16;

struct Colour {
    int32_t y, a, b;  // modal luma (of one pixel) and chroma pair
};

// Where a pixel of picture row y, column x keeps its chroma pair.
void chromaAt(const tav_sr2_Image* p, int32_t x, int32_t y, int32_t* a, int32_t* b) {
    const uint8_t* pair = tav_sr2_rowOf<const uint8_t>(p, 1, y >> 1) + (x & ~1);
    const bool v_first = p->format == TAV_SR2_FMT_YVU420_SEMIPLANAR;
    *a = v_first ? pair[0] : pair[1];
    *b = v_first ? pair[1] : pair[0];
}

int32_t floorToEven(int32_t v) {
    return v & ~1;
}

// The mode of the 2 x 2 luma sums and chroma pairs in rows and columns lo .. hi-1 (even, step 2).
Colour modalColour(const tav_sr2_Image* p, uint32_t* histogram, int32_t x_lo, int32_t x_hi,
                   int32_t y_lo, int32_t y_hi) {
    for (int32_t i = 0; i < kHistogramBins; ++i)
        histogram[i] = 0;
    for (int32_t y = y_lo; y < y_hi; y += 2) {
        const uint8_t* r0 = tav_sr2_rowOf<const uint8_t>(p, 0, y);
        const uint8_t* r1 = tav_sr2_rowOf<const uint8_t>(p, 0, y + 1);
        for (int32_t x = x_lo; x < x_hi; x += 2) {
            const int32_t l = r0[x] + r0[x + 1] + r1[x] + r1[x + 1];
            int32_t a, b;
            chromaAt(p, x, y, &a, &b);
            ++histogram[(b >> 2) + ((a >> 2) << 6) + (((l + 2) >> 4) << 12)];
        }
    }
    int32_t mode = 0;
    for (int32_t i = 1; i < kHistogramBins; ++i)
        if (histogram[i] > histogram[mode]) mode = i;
    return {((mode >> 12) << 2) + 2, (((mode >> 6) & 63) << 2) + 2, ((mode & 63) << 2) + 2};
}

struct Paint {
    tav_sr2_Image* mask;
    const tav_sr2_Image* picture;
    const float* e;
    Colour skin;
    float g;
    int32_t cx, cy;
    int32_t x0, x1;  // columns x0 .. x1-1
    int32_t y0;      // first row; the bands count from it
};

int32_t weightIndex(double v) {
    return v < 256.0 ? static_cast<int32_t>(v) : 256;
}

void paintRow(const Paint* job, int32_t y) {
    const tav_sr2_Image* p = job->picture;
    uint8_t* out = tav_sr2_rowOf<uint8_t>(job->mask, 0, y);
    const uint8_t* rows[4];
    for (int32_t k = 0; k < 4; ++k)
        rows[k] = tav_sr2_rowOf<const uint8_t>(p, 0, y + k);
    const int32_t dy2 = (y - job->cy) * (y - job->cy);
    for (int32_t x = job->x0; x < job->x1; ++x) {
        int32_t sum = 8;
        for (int32_t k = 0; k < 4; ++k)
            sum += rows[k][x] + rows[k][x + 1] + rows[k][x + 2] + rows[k][x + 3];
        const int32_t dl = (sum >> 4) - job->skin.y;
        int32_t a, b;
        chromaAt(p, x, y, &a, &b);
        const int32_t ds = a + b - (job->skin.a + job->skin.b);
        const int32_t dd = a - b - (job->skin.a - job->skin.b);
        const int32_t i1 =
            weightIndex(job->g * static_cast<float>((x - job->cx) * (x - job->cx) + dy2));
        const int32_t q = ds * ds + ((dl * dl) >> 4) + dd * dd - 100;
        const int32_t i2 = weightIndex((q > 0 ? q : 0) * 0.03657142857142857);
        const float w1 = i1 < 256 ? job->e[i1] : 0.0f;
        const float w2 = i2 < 256 ? job->e[i2] : 0.0f;
        const int32_t v = out[x] + static_cast<int32_t>(w1 * 255.0 * w2);
        out[x] = static_cast<uint8_t>(v < 255 ? v : 255);
    }
}

uint32_t paintBand(void* arg, int32_t, int32_t r0, int32_t r1) {
    const Paint* job = static_cast<const Paint*>(arg);
    for (int32_t y = job->y0 + r0; y < job->y0 + r1; ++y)
        paintRow(job, y);
    return TAV_OK;
}

// 16 bands, or one per 16 rows when there are fewer; each pixel depends on nothing but the
// picture and its own mask value, so the banding does not change the result.
uint32_t paintRows(const tav_sr2_ImageCtx* ctx, Paint* job, int32_t y0, int32_t y1) {
    int32_t bands = (y1 - y0) / 16 < kMaxPaintBands ? (y1 - y0) / 16 : kMaxPaintBands;
    if (bands < 1) bands = 1;
    job->y0 = y0;
    return tav_sr2_ImageCtx_runBands(ctx, bands, y1 - y0, paintBand, job);
}

uint32_t paintFace(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* mask, const tav_sr2_Image* p,
                   const float* e, uint32_t* histogram, const tav_sr2_Rect& rect) {
    const int32_t x0 = (rect.left + 3) & ~3, y0 = (rect.top + 3) & ~3;
    const int32_t x1 = rect.right & ~3, y1 = rect.bottom & ~3;
    tav_sr2_log_i("111 calc_rect[%d, %d, %d, %d]", x0, y0, x1, y1);
    Paint job = {mask, p, e, {}, 0.0f, (x0 + x1) >> 1, (y0 + y1) >> 1, 0, 0, 0};
    const int32_t hx = ((x1 - x0) >> 1) / 3, hy = ((y1 - y0) >> 1) / 3;
    job.skin = modalColour(p, histogram, floorToEven(job.cx - hx + 1), floorToEven(job.cx + hx),
                           floorToEven(job.cy - hy + 1), floorToEven(job.cy + hy));
    const int32_t rx = (x1 - x0) >> 1, ry = (y1 - y0) >> 1;
    job.g = 18.285715f / (static_cast<float>(rx * rx + ry * ry) * 0.4f);
    // With whole-pixel centres floor(c - radius) + 1 = c - ceil(radius) + 1.
    const double radius = tav_sr2_sqrt(256.0 / job.g);
    int32_t reach = static_cast<int32_t>(radius);
    if (reach < radius) ++reach;
    job.x0 = floorToEven(job.cx - reach + 1);
    if (job.x0 < 0) job.x0 = 0;
    job.x1 = floorToEven(job.cx + reach);
    if (job.x1 > mask->width - 3) job.x1 = mask->width - 3;  // the 4 x 4 luma sum stays inside
    int32_t py0 = floorToEven(job.cy - reach + 1);
    if (py0 < 0) py0 = 0;
    int32_t py1 = floorToEven(job.cy + reach);
    if (py1 > mask->height - 3) py1 = mask->height - 3;
    tav_sr2_log_i("222 calc_rect[%d, %d, %d, %d]", job.x0, py0, job.x1, py1);
    if (job.x1 <= job.x0 || py1 <= py0) return TAV_OK;
    return paintRows(ctx, &job, py0, py1);
}

uint32_t cleanMask(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* mask) {
    static const int32_t kPasses[] = {TAV_SR2_MORPH_MIN, TAV_SR2_MORPH_MIN, TAV_SR2_MORPH_MAX,
                                      TAV_SR2_MORPH_MAX, TAV_SR2_MORPH_MAX, TAV_SR2_MORPH_MAX,
                                      TAV_SR2_MORPH_MIN, TAV_SR2_MORPH_MIN};
    uint32_t status = TAV_OK;
    for (int32_t kind : kPasses)
        if (status == TAV_OK) status = tav_sr2_Morph_filter(ctx, mask, kind);
    const int32_t side = mask->width < mask->height ? mask->width : mask->height;
    if (status == TAV_OK) status = tav_sr2_Image_blur(ctx, mask, mask, side * 0.005);
    return status;
}

}  // namespace

uint32_t tav_sr2_FaceMask_build(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* mask,
                                const tav_sr2_Image* picture, const tav_sr2_Rect* rects,
                                int32_t count) {
    if (picture->format != TAV_SR2_FMT_YUV420_SEMIPLANAR &&
        picture->format != TAV_SR2_FMT_YVU420_SEMIPLANAR)
        return TAV_ERROR_UNSUPPORTED;
    if (mask->format != TAV_SR2_FMT_UINT8 || mask->width != picture->width ||
        mask->height != picture->height)
        return TAV_ERROR_PARAM;
    uint32_t status = tav_sr2_Image_fillValue(ctx, mask, 0);
    if (status != TAV_OK) return status;
    uint32_t* histogram =
        static_cast<uint32_t*>(tav_sr2_MemPool_alloc(ctx->pool, kHistogramBins * sizeof(uint32_t)));
    if (histogram == nullptr) return TAV_ERROR_MALLOC;
    float e[256];
    for (int32_t i = 0; i < 256; ++i)
        e[i] = static_cast<float>(tav_sr2_exp(-0.02734375 * i));
    for (int32_t k = 0; k < count && status == TAV_OK; ++k)
        status = paintFace(ctx, mask, picture, e, histogram, rects[k]);
    status |= tav_sr2_MemPool_free(ctx->pool, histogram);
    if (status == TAV_OK) status = cleanMask(ctx, mask);
    return status;
}
