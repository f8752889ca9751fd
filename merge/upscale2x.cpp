// tav_sr2_Upscaler_upscale2x: the pattern-indexed 2x enlargement of 8-bit luma.
//
// Rows go in at most 32 bands (fewer with fewer workers). A band keeps the five rows y - 2 .. y + 2
// (clamped to the image) in a ring of padded buffers, the edge pixel repeated twice on each side,
// copying one new row per source row; it classifies the row's pixels from the middle three and
// filters each pixel's 5 x 5 window with its pattern's filter into output rows 2y and 2y + 1. The
// buffers of all bands are one pool block taken before the bands run.
#include <string.h>

#include "enhance/image_rows.h"
#include "merge/upscaler.h"

namespace {

constexpr int32_t kMaxBands = 32;
constexpr int32_t kPad = 2;

struct Upscale2xJob {
    const tav_sr2_Upscaler* u;
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    uint8_t* scratch;
    int32_t band_bytes;
};

bool isLuma8(int32_t format) {
    return format == TAV_SR2_FMT_UINT8 || tav_sr2_isSemiPlanar8(format);
}

int32_t clampRow(int32_t y, int32_t height) {
    return y < 0 ? 0 : (y >= height ? height - 1 : y);
}

void padRow(const uint8_t* row, int32_t width, uint8_t* out) {
    out[0] = out[1] = row[0];
    memcpy(out + kPad, row, (size_t)width);
    out[width + kPad] = out[width + kPad + 1] = row[width - 1];
}

int32_t paddedBytes(int32_t width) {
    return (width + 2 * kPad + 15) & ~15;
}

uint32_t upscaleBand(void* arg, int32_t band, int32_t y0, int32_t y1) {
    const Upscale2xJob* job = static_cast<const Upscale2xJob*>(arg);
    const tav_sr2_Image* src = job->src;
    const int32_t w = src->width;
    const int32_t stride = paddedBytes(w);
    uint8_t* base = job->scratch + (int64_t)band * job->band_bytes;
    uint8_t* rows[5];
    for (int32_t r = 0; r < 5; ++r)
        rows[r] = base + r * stride;
    uint16_t* index = reinterpret_cast<uint16_t*>(base + 5 * stride);
    const tav_sr2_UpscaleRowOps* ops = job->u->rows;
    for (int32_t r = 0; r < 5; ++r)
        padRow(tav_sr2_rowOf<uint8_t>(src, 0, clampRow(y0 - 2 + r, src->height)), w, rows[r]);
    for (int32_t y = y0; y < y1; ++y) {
        if (y > y0) {  // the ring moves down a row: the oldest buffer takes row y + 2
            uint8_t* oldest = rows[0];
            for (int32_t r = 0; r < 4; ++r)
                rows[r] = rows[r + 1];
            rows[4] = oldest;
            padRow(tav_sr2_rowOf<uint8_t>(src, 0, clampRow(y + 2, src->height)), w, rows[4]);
        }
        ops->classify(rows + 1, w, job->u->pattern_threshold, index);
        ops->filter2x(rows, index, job->u->patterns, w, tav_sr2_rowOf<uint8_t>(job->dst, 0, 2 * y),
                      tav_sr2_rowOf<uint8_t>(job->dst, 0, 2 * y + 1));
    }
    return TAV_OK;
}

}  // namespace

uint32_t tav_sr2_Upscaler_upscale2x(tav_sr2_Upscaler* u, tav_sr2_Image* dst,
                                    const tav_sr2_Image* src) {
    if (u == nullptr) return TAV_ERROR_PARAM;
    const uint32_t status = tav_sr2_checkImagePair(dst, src);
    if (status != TAV_OK) return status;
    if (dst->width != 2 * src->width || dst->height != 2 * src->height) return TAV_ERROR_PARAM;
    if (!isLuma8(dst->format) || !isLuma8(src->format)) return TAV_ERROR_UNSUPPORTED;
    int32_t bands = tav_sr2_ImageCtx_workers(&u->resize);
    if (bands > kMaxBands) bands = kMaxBands;
    if (bands > src->height) bands = src->height;
    Upscale2xJob job;
    job.u = u;
    job.src = src;
    job.dst = dst;
    job.band_bytes = 5 * paddedBytes(src->width) + ((2 * src->width + 15) & ~15);
    job.scratch =
        static_cast<uint8_t*>(tav_sr2_MemPool_alloc(u->pool, (uint32_t)(bands * job.band_bytes)));
    if (job.scratch == nullptr) return TAV_ERROR_MALLOC;
    const uint32_t ran =
        tav_sr2_ImageCtx_runBands(&u->resize, bands, src->height, &upscaleBand, &job);
    const uint32_t released = tav_sr2_MemPool_free(u->pool, job.scratch);
    return ran != TAV_OK ? ran : released;
}
