// Resize operators.
//
// tav_sr2_Image_resize: Q15 bilinear. With target (dw, dh) and source (sw, sh) the column step is
// (sw << 15) / dw and the first position ((sw - dw) << 15) / (2 * dw), both truncated, and the
// same for rows. Each band of destination rows keeps two row buffers of the destination's width
// (in the widened type: 16 bits for 8- and 16-bit samples), one per source row, and refills one
// only when the source row pair moves on. The horizontal pass rounds into the buffer and the
// vertical pass rounds into the destination, both with (f * b + (32768 - f) * a + 16384) >> 15.
// Bands: one per worker, band k holding rows k*dh/n up to (k+1)*dh/n. The row buffers of all
// bands and of all planes of a frame are one pool block, taken before any plane is written.
//
// tav_sr2_Image_resize_fast: semi-planar frames split into luma and chroma; exact 2x and 4x
// enlargements of UINT8 and UINT88 use fixed phase weights (3:1 of 4 at 2x; 7:1, 5:3 of 8 at 4x),
// rounded horizontally and then vertically, as a row task of source height + 1 rows, row j
// making the output rows between source rows j - 1 and j.
//
// tav_sr2_Image_resize_cell: exact 4x and 2x box means ((sum + 8) >> 4, (sum + 2) >> 2) as row
// tasks; a source at least 5 times the destination is first box-reduced by 4.
//
// tav_sr2_Image_warpResize: the bilinear mix at the exact position of each pixel centre,
// ((2x + 1) * sw - dw) << 15 divided by 2 * dw, rounded down.

#include "enhance/resize.h"

#include "enhance/image_ops.h"
#include "enhance/image_rows.h"

namespace {

int32_t clampIndex(int32_t i, int32_t n) {
    return i < 0 ? 0 : i >= n ? n - 1 : i;
}

// ---- general bilinear -------------------------------------------------------------------------

template <typename T, typename B>
struct BilinearJob {
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    int32_t channels;
    void (*horizontal)(const T* src, int32_t sw, B* out, int32_t dw, int32_t first, int32_t step);
    void (*vertical)(const B* b0, const B* b1, T* out, int32_t n, int32_t f);
    B* buffers;  // two rows of dst width per band
    int32_t first_x, step_x, first_y, step_y;
};

template <typename T, typename B>
uint32_t bilinearBand(void* arg, int32_t band, int32_t y0, int32_t y1) {
    const BilinearJob<T, B>* job = static_cast<const BilinearJob<T, B>*>(arg);
    const int32_t sw = job->src->width, sh = job->src->height;
    const int32_t dw = job->dst->width;
    const int32_t n = dw * job->channels;
    B* buffer[2] = {job->buffers + (int64_t)band * 2 * n,
                    job->buffers + ((int64_t)band * 2 + 1) * n};
    int32_t held[2] = {-1, -1};  // source row in each buffer
    auto fill = [&](int32_t slot, int32_t row) {
        job->horizontal(tav_sr2_rowOf<const T>(job->src, 0, row), sw, buffer[slot], dw,
                        job->first_x, job->step_x);
        held[slot] = row;
    };
    for (int32_t y = y0; y < y1; ++y) {
        const int32_t p = job->first_y + y * job->step_y;
        const int32_t r0 = clampIndex(p >> 15, sh);
        const int32_t r1 = clampIndex((p >> 15) + 1, sh);
        int32_t s0 = held[0] == r0 ? 0 : held[1] == r0 ? 1 : -1;
        int32_t s1 = held[0] == r1 ? 0 : held[1] == r1 ? 1 : -1;
        if (s0 < 0) {
            s0 = s1 == 0 ? 1 : 0;
            fill(s0, r0);
        }
        if (s1 < 0) {
            s1 = r1 == r0 ? s0 : 1 - s0;
            if (s1 != s0) fill(s1, r1);
        }
        job->vertical(buffer[s0], buffer[s1], tav_sr2_rowOf<T>(job->dst, 0, y), n, p & 0x7fff);
    }
    return TAV_OK;
}

// One plane into `scratch`, which holds two row buffers of the plane's width per worker.
template <typename T, typename B>
uint32_t bilinearPlane(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src,
                       int32_t channels, void* scratch,
                       void (*horizontal)(const T*, int32_t, B*, int32_t, int32_t, int32_t),
                       void (*vertical)(const B*, const B*, T*, int32_t, int32_t)) {
    const int32_t sw = src->width, sh = src->height, dw = dst->width, dh = dst->height;
    BilinearJob<T, B> job;
    job.src = src;
    job.dst = dst;
    job.channels = channels;
    job.horizontal = horizontal;
    job.vertical = vertical;
    job.buffers = static_cast<B*>(scratch);
    job.step_x = (int32_t)(((int64_t)sw << 15) / dw);
    job.first_x = (int32_t)((((int64_t)sw - dw) << 15) / (2 * dw));
    job.step_y = (int32_t)(((int64_t)sh << 15) / dh);
    job.first_y = (int32_t)((((int64_t)sh - dh) << 15) / (2 * dh));
    return tav_sr2_ImageCtx_runBands(ctx, tav_sr2_ImageCtx_workers(ctx), dh, &bilinearBand<T, B>,
                                     &job);
}

uint32_t bilinearOnePlane(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src,
                          const tav_sr2_ResizeRowOps* rows, void* scratch) {
    switch (dst->format) {
        case TAV_SR2_FMT_UINT8:
            return bilinearPlane<uint8_t, uint16_t>(ctx, dst, src, 1, scratch, rows->h_u8,
                                                    rows->v_u8);
        case TAV_SR2_FMT_UINT88:
            return bilinearPlane<uint8_t, uint16_t>(ctx, dst, src, 2, scratch, rows->h_u8x2,
                                                    rows->v_u8);
        case TAV_SR2_FMT_UINT16:
            return bilinearPlane<uint16_t, uint16_t>(ctx, dst, src, 1, scratch, rows->h_u16,
                                                     rows->v_u16);
        case TAV_SR2_FMT_UINT1616:
            return bilinearPlane<uint16_t, uint16_t>(ctx, dst, src, 2, scratch, rows->h_u16x2,
                                                     rows->v_u16);
        case TAV_SR2_FMT_INT32:
            return bilinearPlane<int32_t, int32_t>(ctx, dst, src, 1, scratch, rows->h_i32,
                                                   rows->v_i32);
        case TAV_SR2_FMT_FLOAT:
            return bilinearPlane<float, float>(ctx, dst, src, 1, scratch, rows->h_f32, rows->v_f32);
        default:
            return TAV_ERROR_UNSUPPORTED;
    }
}

// Bytes of one row-buffer sample for a destination format, 0 for a format the bilinear resize
// does not take. Frames hold 8-bit planes, none wider than the luma.
int32_t bufferSampleBytes(int32_t format) {
    switch (format) {
        case TAV_SR2_FMT_UINT8:
        case TAV_SR2_FMT_UINT88:
        case TAV_SR2_FMT_UINT16:
        case TAV_SR2_FMT_UINT1616:
        case TAV_SR2_FMT_YUV444_PLANAR:
        case TAV_SR2_FMT_YUV422_PLANAR:
        case TAV_SR2_FMT_YUV422_SEMIPLANAR:
        case TAV_SR2_FMT_YVU422_SEMIPLANAR:
        case TAV_SR2_FMT_YUV420_PLANAR:
        case TAV_SR2_FMT_YUV420_SEMIPLANAR:
        case TAV_SR2_FMT_YVU420_SEMIPLANAR:
            return 2;
        case TAV_SR2_FMT_INT32:
        case TAV_SR2_FMT_FLOAT:
            return 4;
        default:
            return 0;
    }
}

typedef uint32_t (*PlaneViewFn)(tav_sr2_Image*, const tav_sr2_Image*, int32_t, int32_t, int32_t,
                                int32_t);

// Views one plane of both images; false when the plane is empty on either side (the chroma of
// a one-pixel-wide frame), which the callers skip.
bool viewBoth(PlaneViewFn view, tav_sr2_Image* dst_view, tav_sr2_Image* src_view,
              const tav_sr2_Image* dst, const tav_sr2_Image* src, uint32_t* status) {
    *dst_view = {};
    *src_view = {};
    *status = view(dst_view, dst, 0, 0, dst->width, dst->height);
    if (*status == TAV_OK) *status = view(src_view, src, 0, 0, src->width, src->height);
    return *status == TAV_OK && dst_view->width > 0 && dst_view->height > 0 &&
           src_view->width > 0 && src_view->height > 0;
}

// Runs `op` on each plane of a planar or semi-planar frame; false when the format is not one.
template <typename Op>
bool forEachPlane(tav_sr2_Image* dst, const tav_sr2_Image* src, uint32_t* status, Op&& op) {
    static const PlaneViewFn kPlanar[] = {tav_sr2_Image_viewPlane0, tav_sr2_Image_viewPlane1,
                                          tav_sr2_Image_viewPlane2};
    static const PlaneViewFn kSemiPlanar[] = {tav_sr2_Image_viewPlane0, tav_sr2_Image_viewChroma};
    const PlaneViewFn* views = nullptr;
    int32_t count = 0;
    switch (dst->format) {
        case TAV_SR2_FMT_YUV444_PLANAR:
        case TAV_SR2_FMT_YUV422_PLANAR:
        case TAV_SR2_FMT_YUV420_PLANAR:
            views = kPlanar;
            count = 3;
            break;
        case TAV_SR2_FMT_YUV422_SEMIPLANAR:
        case TAV_SR2_FMT_YVU422_SEMIPLANAR:
        case TAV_SR2_FMT_YUV420_SEMIPLANAR:
        case TAV_SR2_FMT_YVU420_SEMIPLANAR:
            views = kSemiPlanar;
            count = 2;
            break;
        default:
            return false;
    }
    *status = TAV_OK;
    for (int32_t i = 0; i < count && *status == TAV_OK; ++i) {
        tav_sr2_Image dst_view, src_view;
        if (viewBoth(views[i], &dst_view, &src_view, dst, src, status)) {
            *status = op(&dst_view, &src_view);
        }
    }
    return true;
}

// ---- 2x and 4x enlargement ---------------------------------------------------------------------

// Weight of the earlier neighbour per phase; the later one gets the rest of 4 (2x) or 8 (4x).
constexpr int32_t kUpWeights2[2] = {3, 1};
constexpr int32_t kUpWeights4[4] = {7, 5, 3, 1};

struct UpsampleJob {
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    int32_t channels;
};

template <int F>
uint32_t upsampleRow(void* arg, int32_t j, tav_sr2_TaskCtx*) {
    constexpr const int32_t* weights = F == 2 ? kUpWeights2 : kUpWeights4;
    constexpr int32_t kTotal = 2 * F, kShift = F == 2 ? 2 : 3, kHalf = kTotal / 2;
    constexpr int32_t kChunk = 256;
    const UpsampleJob* job = static_cast<const UpsampleJob*>(arg);
    const int32_t sw = job->src->width, sh = job->src->height, c = job->channels;
    const int32_t dw = job->dst->width, dh = job->dst->height;
    const int32_t y_begin = F * j - F / 2 < 0 ? 0 : F * j - F / 2;
    const int32_t y_end = F * j + F / 2 > dh ? dh : F * j + F / 2;
    const uint8_t* row_a = tav_sr2_rowOf<const uint8_t>(job->src, 0, clampIndex(j - 1, sh));
    const uint8_t* row_b = tav_sr2_rowOf<const uint8_t>(job->src, 0, clampIndex(j, sh));
    uint8_t ha[kChunk * 2], hb[kChunk * 2];
    for (int32_t x0 = 0; x0 < dw; x0 += kChunk) {
        const int32_t x1 = x0 + kChunk < dw ? x0 + kChunk : dw;
        for (int32_t x = x0; x < x1; ++x) {
            const int32_t i = (x + F / 2) / F;
            const int32_t w = weights[(x + F / 2) % F];
            const int32_t l = clampIndex(i - 1, sw) * c, r = clampIndex(i, sw) * c;
            for (int32_t ch = 0; ch < c; ++ch) {
                const int32_t k = (x - x0) * c + ch;
                ha[k] =
                    (uint8_t)((w * row_a[l + ch] + (kTotal - w) * row_a[r + ch] + kHalf) >> kShift);
                hb[k] =
                    (uint8_t)((w * row_b[l + ch] + (kTotal - w) * row_b[r + ch] + kHalf) >> kShift);
            }
        }
        for (int32_t y = y_begin; y < y_end; ++y) {
            const int32_t w = weights[y + F / 2 - F * j];
            uint8_t* out = tav_sr2_rowOf<uint8_t>(job->dst, 0, y) + x0 * c;
            for (int32_t k = 0; k < (x1 - x0) * c; ++k) {
                out[k] = (uint8_t)((w * ha[k] + (kTotal - w) * hb[k] + kHalf) >> kShift);
            }
        }
    }
    return TAV_OK;
}

constexpr tav_sr2_TaskType kUpsample2 = tav_sr2_rowTaskType<upsampleRow<2>>();
constexpr tav_sr2_TaskType kUpsample4 = tav_sr2_rowTaskType<upsampleRow<4>>();

// ---- box reduction ------------------------------------------------------------------------------

struct BoxJob {
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    int32_t channels;
};

template <typename T, int F>
uint32_t boxRow(void* arg, int32_t y, tav_sr2_TaskCtx*) {
    constexpr int32_t kShift = F == 2 ? 2 : 4;
    const BoxJob* job = static_cast<const BoxJob*>(arg);
    const int32_t c = job->channels;
    const int32_t n = job->dst->width * c;
    T* out = tav_sr2_rowOf<T>(job->dst, 0, y);
    const T* rows[F];
    for (int32_t r = 0; r < F; ++r)
        rows[r] = tav_sr2_rowOf<const T>(job->src, 0, F * y + r);
    for (int32_t k = 0; k < n; ++k) {
        const int32_t x = k / c, ch = k - x * c;
        uint32_t sum = 0;
        for (int32_t r = 0; r < F; ++r) {
            for (int32_t t = 0; t < F; ++t)
                sum += rows[r][(F * x + t) * c + ch];
        }
        out[k] = (T)((sum + (1u << (kShift - 1))) >> kShift);
    }
    return TAV_OK;
}

template <int F>
uint32_t boxReduce(tav_sr2_TaskSys* tasks, tav_sr2_Image* dst, const tav_sr2_Image* src) {
    static constexpr tav_sr2_TaskType kBox8 = tav_sr2_rowTaskType<boxRow<uint8_t, F>>();
    static constexpr tav_sr2_TaskType kBox16 = tav_sr2_rowTaskType<boxRow<uint16_t, F>>();
    BoxJob job = {src, dst, tav_sr2_channelsOf(dst->format)};
    const bool wide = dst->format == TAV_SR2_FMT_UINT16 || dst->format == TAV_SR2_FMT_UINT1616;
    return tav_sr2_TaskSys_run(tasks, wide ? &kBox16 : &kBox8, &job, dst->height);
}

bool boxFormat(int32_t f) {
    return f == TAV_SR2_FMT_UINT8 || f == TAV_SR2_FMT_UINT88 || f == TAV_SR2_FMT_UINT16 ||
           f == TAV_SR2_FMT_UINT1616;
}

// ---- area-exact bilinear ----------------------------------------------------------------------

// Q15 position of the centre of pixel x of d in a row of s: floor(((2x + 1) s - d) 2^15 / 2d).
int32_t exactPosition(int32_t x, int32_t s, int32_t d) {
    const int64_t num = ((2 * (int64_t)x + 1) * s - d) * 32768;
    const int64_t den = 2 * (int64_t)d;
    const int64_t q = num / den;
    return (int32_t)(q * den > num ? q - 1 : q);
}

template <typename T>
T mixQ15(int32_t a, int32_t b, int32_t f) {
    return (T)(((int64_t)f * b + (int64_t)(32768 - f) * a + 16384) >> 15);
}

struct WarpJob {
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    int32_t channels;
};

template <typename T>
uint32_t warpBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const WarpJob* job = static_cast<const WarpJob*>(arg);
    const int32_t sw = job->src->width, sh = job->src->height, c = job->channels;
    const int32_t dw = job->dst->width, dh = job->dst->height;
    for (int32_t y = y0; y < y1; ++y) {
        const int32_t py = exactPosition(y, sh, dh);
        const T* r0 = tav_sr2_rowOf<const T>(job->src, 0, clampIndex(py >> 15, sh));
        const T* r1 = tav_sr2_rowOf<const T>(job->src, 0, clampIndex((py >> 15) + 1, sh));
        T* out = tav_sr2_rowOf<T>(job->dst, 0, y);
        for (int32_t x = 0; x < dw; ++x) {
            const int32_t px = exactPosition(x, sw, dw);
            const int32_t i0 = clampIndex(px >> 15, sw) * c;
            const int32_t i1 = clampIndex((px >> 15) + 1, sw) * c;
            const int32_t f = px & 0x7fff;
            for (int32_t ch = 0; ch < c; ++ch) {
                const T top = mixQ15<T>(r0[i0 + ch], r0[i1 + ch], f);
                const T bottom = mixQ15<T>(r1[i0 + ch], r1[i1 + ch], f);
                out[x * c + ch] = mixQ15<T>(top, bottom, py & 0x7fff);
            }
        }
    }
    return TAV_OK;
}

}  // namespace

uint32_t tav_sr2_Image_resizeStrict(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                    const tav_sr2_Image* src, const tav_sr2_ResizeRowOps* rows) {
    if (ctx == nullptr || rows == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = tav_sr2_checkImagePair(dst, src);
    if (status != TAV_OK) return status;
    if (tav_sr2_sameSize(dst, src)) {
        return dst->format == src->format ? tav_sr2_Image_copy(dst, src)
                                          : tav_sr2_Image_convert(ctx, dst, src);
    }
    if (dst->format != src->format) return TAV_ERROR_UNSUPPORTED;
    if (ctx->pool == nullptr || !tav_sr2_fitsQ15(dst) || !tav_sr2_fitsQ15(src)) {
        return TAV_ERROR_PARAM;
    }
    const int32_t sample_bytes = bufferSampleBytes(dst->format);
    if (sample_bytes == 0) return TAV_ERROR_UNSUPPORTED;
    // One block serves every plane, so a frame is resized whole or not at all.
    const int64_t bytes = (int64_t)tav_sr2_ImageCtx_workers(ctx) * 2 * dst->width *
                          tav_sr2_channelsOf(dst->format) * sample_bytes;
    void* scratch = tav_sr2_MemPool_alloc(ctx->pool, tav_sr2_MemPool_sizeOf(bytes));
    if (scratch == nullptr) return TAV_SR2_ROWS_MISSING;
    const bool planes = forEachPlane(dst, src, &status, [&](tav_sr2_Image* d, tav_sr2_Image* s) {
        return bilinearOnePlane(ctx, d, s, rows, scratch);
    });
    if (!planes) status = bilinearOnePlane(ctx, dst, src, rows, scratch);
    tav_sr2_MemPool_free(ctx->pool, scratch);
    return status;
}

uint32_t tav_sr2_Image_resizeWithRows(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                      const tav_sr2_Image* src, const tav_sr2_ResizeRowOps* rows) {
    const uint32_t status = tav_sr2_Image_resizeStrict(ctx, dst, src, rows);
    // Kept behaviour: no row buffers is not reported, the destination just stays as it was.
    return status == TAV_SR2_ROWS_MISSING ? TAV_OK : status;
}

uint32_t tav_sr2_Image_resize(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                              const tav_sr2_Image* src) {
    return tav_sr2_Image_resizeWithRows(ctx, dst, src, &tav_sr2_resizeRowsVector);
}

uint32_t tav_sr2_Image_resize_fast(tav_sr2_MemPool* pool, tav_sr2_ThreadPool* threads,
                                   tav_sr2_TaskSys* tasks, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src) {
    uint32_t status = tav_sr2_checkImagePair(dst, src);
    if (status != TAV_OK) return status;
    if (tav_sr2_isSemiPlanar8(dst->format) || tav_sr2_isSemiPlanar8(src->format)) {
        tav_sr2_Image dst_view, src_view;
        if (viewBoth(tav_sr2_Image_viewPlane0, &dst_view, &src_view, dst, src, &status)) {
            status = tav_sr2_Image_resize_fast(pool, threads, tasks, &dst_view, &src_view);
        }
        const bool both = tav_sr2_isSemiPlanar8(dst->format) && tav_sr2_isSemiPlanar8(src->format);
        if (status != TAV_OK || !both) return status;
        if (viewBoth(tav_sr2_Image_viewChroma, &dst_view, &src_view, dst, src, &status)) {
            status = tav_sr2_Image_resize_fast(pool, threads, tasks, &dst_view, &src_view);
        }
        return status;
    }
    const int32_t f = dst->format;
    if (f == src->format && (f == TAV_SR2_FMT_UINT8 || f == TAV_SR2_FMT_UINT88)) {
        UpsampleJob job = {src, dst, tav_sr2_channelsOf(f)};
        const int32_t sw = src->width, sh = src->height;
        if (dst->width == 4 * sw && dst->height == 4 * sh) {
            return tav_sr2_TaskSys_run(tasks, &kUpsample4, &job, sh + 1);
        }
        if (dst->width == 2 * sw && dst->height == 2 * sh) {
            return tav_sr2_TaskSys_run(tasks, &kUpsample2, &job, sh + 1);
        }
    }
    const tav_sr2_ImageCtx ctx = {pool, threads, tasks};
    return tav_sr2_Image_resize(&ctx, dst, src);
}

uint32_t tav_sr2_Image_resize_cell(tav_sr2_MemPool* pool, tav_sr2_ThreadPool* threads,
                                   tav_sr2_TaskSys* tasks, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src) {
    uint32_t status = tav_sr2_checkImagePair(dst, src);
    if (status != TAV_OK) return status;
    const tav_sr2_ImageCtx ctx = {pool, threads, tasks};
    const int32_t sw = src->width, sh = src->height, dw = dst->width, dh = dst->height;
    if (dst->format != src->format || !boxFormat(dst->format)) {
        return tav_sr2_Image_resize(&ctx, dst, src);
    }
    if (sw == 4 * dw && sh == 4 * dh) return boxReduce<4>(tasks, dst, src);
    if (sw == 2 * dw && sh == 2 * dh) return boxReduce<2>(tasks, dst, src);
    const int32_t tw = (sw / 4) & ~1, th = (sh / 4) & ~1;
    if (sw >= 5 * dw && sh >= 5 * dh && tw >= dw && th >= dh) {
        tav_sr2_Image small;
        tav_sr2_Image_init(&small, pool);
        status = tav_sr2_Image_alloc(&small, tw, th, nullptr, src->format);
        if (status == TAV_OK) status = boxReduce<4>(tasks, &small, src);
        if (status == TAV_OK) status = tav_sr2_Image_resize_cell(pool, threads, tasks, dst, &small);
        tav_sr2_Image_finish(&small);
        return status;
    }
    return tav_sr2_Image_resize(&ctx, dst, src);
}

uint32_t tav_sr2_Image_warpResize(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                  const tav_sr2_Image* src) {
    if (ctx == nullptr) return TAV_ERROR_PARAM;
    const uint32_t status = tav_sr2_checkImagePair(dst, src);
    if (status != TAV_OK) return status;
    if (!tav_sr2_fitsQ15(dst) || !tav_sr2_fitsQ15(src)) return TAV_ERROR_PARAM;
    if (dst->format != src->format || !boxFormat(dst->format)) return TAV_ERROR_UNSUPPORTED;
    WarpJob job = {src, dst, tav_sr2_channelsOf(dst->format)};
    const bool wide = dst->format == TAV_SR2_FMT_UINT16 || dst->format == TAV_SR2_FMT_UINT1616;
    return tav_sr2_ImageCtx_runBands(ctx, tav_sr2_ImageCtx_workers(ctx), dst->height,
                                     wide ? &warpBand<uint16_t> : &warpBand<uint8_t>, &job);
}
