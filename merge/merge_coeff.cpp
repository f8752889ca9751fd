// The merge coefficient. Row bands on the workers with edges rounded up to multiples of 4; each
// pixel depends only on its own position, so the result does not depend on the banding. The
// face mix divides by 255 as a multiply by 16843010 (2^32 / 255, rounded up) with 2^31 added
// and a shift of 32, which is a rounded division for every value the mix can take.
#include "merge/merge_coeff.h"

#include <string.h>

#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/log.h"
#include "foundation/row_band.h"

namespace {

struct CoeffJob {
    tav_sr2_Image* coef;
    tav_sr2_Image* sum;
    const tav_sr2_Image* ghost;
    const tav_sr2_MergeWeights* weights;
    int32_t bands;
};

uint32_t faceMix(uint32_t m, uint32_t plain, uint32_t face) {
    const uint64_t mix = uint64_t{(m ^ 255u) * plain + m * face};
    return static_cast<uint32_t>((mix * 16843010u + (uint64_t{1} << 31)) >> 32) & 0xFFu;
}

void coeffRow(const CoeffJob* job, int32_t y) {
    const tav_sr2_MergeWeights* wt = job->weights;
    const uint8_t* g = tav_sr2_rowOf<const uint8_t>(job->ghost, 0, y);
    const uint8_t* mask =
        wt->face_mask != nullptr ? tav_sr2_rowOf<const uint8_t>(wt->face_mask, 0, y) : nullptr;
    uint16_t* s = tav_sr2_rowOf<uint16_t>(job->sum, 0, y);
    uint8_t* c = tav_sr2_rowOf<uint8_t>(job->coef, 0, y);
    for (int32_t x = 0; x < job->ghost->width; ++x) {
        uint32_t w = wt->table[g[x]];
        if (mask != nullptr) {
            const uint32_t m = mask[x] != 0 ? static_cast<uint32_t>(wt->face_weight) : 0u;
            w = faceMix(m, w, wt->face_table[g[x]]);
        }
        const uint32_t total = s[x] + w;
        c[x] = static_cast<uint8_t>(total == 0 ? 0 : (uint32_t{s[x]} << 7) / total);
        s[x] = static_cast<uint16_t>(total);
    }
}

uint32_t coeffBand(void* arg, int32_t band, int32_t, int32_t) {
    const CoeffJob* job = static_cast<const CoeffJob*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(job->ghost->height, band, job->bands, &y0, &y1);
    for (int32_t y = y0; y < y1; ++y)
        coeffRow(job, y);
    return TAV_OK;
}

bool sameSize(const tav_sr2_Image* a, const tav_sr2_Image* b) {
    return a->width == b->width && a->height == b->height;
}

}  // namespace

uint32_t tav_sr2_MergeCoeff_make(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* coef,
                                 tav_sr2_Image* weight_sum, const tav_sr2_Image* ghost,
                                 const tav_sr2_MergeWeights* weights) {
    if (coef == nullptr || weight_sum == nullptr || ghost == nullptr || weights == nullptr ||
        coef->format != TAV_SR2_FMT_UINT8 || ghost->format != TAV_SR2_FMT_UINT8 ||
        weight_sum->format != TAV_SR2_FMT_UINT16 || !sameSize(coef, ghost) ||
        !sameSize(weight_sum, ghost))
        return TAV_ERROR_PARAM;
    const tav_sr2_Image* mask = weights->face_mask;
    if (mask != nullptr && (mask->format != TAV_SR2_FMT_UINT8 || !sameSize(mask, ghost)))
        return TAV_ERROR_PARAM;
    CoeffJob job = {coef, weight_sum, ghost, weights, tav_sr2_ImageCtx_workers(ctx)};
    const uint32_t status = tav_sr2_ImageCtx_runBands(ctx, job.bands, job.bands, coeffBand, &job);
    if (mask != nullptr) tav_sr2_log_i(" make_face_coeff_table ");
    return status;
}

uint32_t tav_sr2_MergeCoeff_spread(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* out,
                                   const tav_sr2_Image* quarter, const tav_sr2_Rect* rect) {
    if (out == nullptr || quarter == nullptr || rect == nullptr ||
        out->format != TAV_SR2_FMT_UINT8 || out->plane[0] == nullptr)
        return TAV_ERROR_PARAM;
    tav_sr2_Rect r = {rect->left < 0 ? 0 : rect->left, rect->top < 0 ? 0 : rect->top,
                      rect->right > out->width ? out->width : rect->right,
                      rect->bottom > out->height ? out->height : rect->bottom};
    if (r.right <= r.left || r.bottom <= r.top) r = {0, 0, out->width, out->height};
    tav_sr2_Image inside;
    uint32_t status =
        tav_sr2_Image_crop(&inside, out, r.left, r.top, r.right - r.left, r.bottom - r.top);
    if (status == TAV_OK) status = tav_sr2_Image_resize(ctx, &inside, quarter);
    if (status != TAV_OK) return status;
    const int32_t pitch = out->pitch[0];
    for (int32_t y = r.top; y < r.bottom; ++y) {
        uint8_t* row = out->plane[0] + (int64_t)y * pitch;
        memset(row, row[r.left], (size_t)r.left);
        memset(row + r.right, row[r.right - 1], (size_t)(out->width - r.right));
    }
    const uint8_t* first = out->plane[0] + (int64_t)r.top * pitch;
    const uint8_t* last = out->plane[0] + (int64_t)(r.bottom - 1) * pitch;
    for (int32_t y = 0; y < r.top; ++y)
        memcpy(out->plane[0] + (int64_t)y * pitch, first, (size_t)out->width);
    for (int32_t y = r.bottom; y < out->height; ++y)
        memcpy(out->plane[0] + (int64_t)y * pitch, last, (size_t)out->width);
    return TAV_OK;
}
