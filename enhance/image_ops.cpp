// Per-pixel image operators: convert, shift_right, lookup, fillValue, blendMask.
//
// All of them work row by row with no scratch memory: row bands on the thread pool (one band per
// worker, rows k*h/n up to (k+1)*h/n), except lookup, which is a row task of one row per image
// row. Each output sample depends only on the samples at its own position, so the bands need no
// lock, and an operator may run in place where its contract says so.
//
// convert: equal formats copy; single-plane numbers convert by value with saturation (floats
// round half away from zero); the frames 48, 49, 52, 53 change depth (8 to 10 bits v << 2; 10 to
// 8 bits (v + 2) >> 2 below 1022, else 255) and swap U and V where their order differs.
// shift_right: arithmetic shift by the key (dst format << 8) | src format; left for a negative
// shift; 8- and 16-bit destinations saturate, INT32 wraps as a 32-bit shift would.
// fillValue: every sample of every plane, the padding of a row's last pixel group included.
// blendMask: the merge's running-mean blend under a Q7 mask.

#include "enhance/image_ops.h"

#include <type_traits>

#include "enhance/image_rows.h"

namespace {

// ---- row plans --------------------------------------------------------------------------------

// One plane of an operator: `rows` rows of `samples` samples, row y of each image at
// plane[plane] + y * pitch[plane].
typedef void (*SampleRowFn)(const uint8_t* in, uint8_t* out, int32_t samples, int32_t arg);

struct PlaneJob {
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    int32_t plane;
    int32_t samples;
    SampleRowFn row;
    int32_t arg;
};

uint32_t planeBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const PlaneJob* job = static_cast<const PlaneJob*>(arg);
    for (int32_t y = y0; y < y1; ++y) {
        const uint8_t* in =
            job->src != nullptr ? tav_sr2_rowOf<const uint8_t>(job->src, job->plane, y) : nullptr;
        job->row(in, tav_sr2_rowOf<uint8_t>(job->dst, job->plane, y), job->samples, job->arg);
    }
    return TAV_OK;
}

uint32_t runPlane(const tav_sr2_ImageCtx* ctx, const tav_sr2_Image* src, tav_sr2_Image* dst,
                  int32_t plane, int32_t rows, int32_t samples, SampleRowFn row, int32_t arg) {
    PlaneJob job = {src, dst, plane, samples, row, arg};
    return tav_sr2_ImageCtx_runBands(ctx, tav_sr2_ImageCtx_workers(ctx), rows, &planeBand, &job);
}

// Rows and bytes per row of plane i as the copy moves them: ceil(h / 2^vshift) * rows rows of
// ceil(w / pixels) * bytes bytes; 0 rows when the format lacks the plane.
void planeExtent(const tav_sr2_Image* image, int32_t i, int32_t* rows, int32_t* bytes) {
    const uint8_t* layout = tav_sr2_format_layout[image->format];
    const int32_t group = layout[4 * i], pixels = layout[4 * i + 1] ? layout[4 * i + 1] : 1;
    const int32_t vshift = layout[4 * i + 3];
    if (group == 0 || image->plane[i] == nullptr) {
        *rows = 0;
        *bytes = 0;
        return;
    }
    *rows = ((image->height + (1 << vshift) - 1) >> vshift) * layout[4 * i + 2];
    *bytes = (image->width + pixels - 1) / pixels * group;
}

// ---- value conversion ---------------------------------------------------------------------------

template <typename D>
struct Limits;
template <>
struct Limits<uint8_t> {
    static constexpr int64_t lo = 0, hi = 255;
};
template <>
struct Limits<uint16_t> {
    static constexpr int64_t lo = 0, hi = 65535;
};
template <>
struct Limits<int16_t> {
    static constexpr int64_t lo = -32768, hi = 32767;
};
template <>
struct Limits<int32_t> {
    static constexpr int64_t lo = -2147483647 - 1, hi = 2147483647;
};

template <typename D>
D saturate(int64_t v) {
    return (D)(v < Limits<D>::lo ? Limits<D>::lo : v > Limits<D>::hi ? Limits<D>::hi : v);
}

template <typename D>
D fromFloat(float v) {
    if (!(v == v)) return 0;  // NaN
    if (v <= (float)Limits<D>::lo) return (D)Limits<D>::lo;
    if (v >= (float)Limits<D>::hi) return (D)Limits<D>::hi;
    return (D)(int64_t)(v < 0 ? v - 0.5f : v + 0.5f);
}

template <typename S, typename D>
D convertValue(S v) {
    if constexpr (std::is_floating_point_v<D>) {
        return (D)v;
    } else if constexpr (std::is_floating_point_v<S>) {
        return fromFloat<D>(v);
    } else {
        return saturate<D>(v);
    }
}

template <typename S, typename D>
void valueRow(const uint8_t* in, uint8_t* out, int32_t n, int32_t) {
    const S* s = reinterpret_cast<const S*>(in);
    D* d = reinterpret_cast<D*>(out);
    for (int32_t i = 0; i < n; ++i)
        d[i] = convertValue<S, D>(s[i]);
}

SampleRowFn valueRowFor(int32_t from, int32_t to) {
#define TAV_VALUE_ROWS(S)                 \
    switch (to) {                         \
        case TAV_SR2_FMT_UINT8:           \
        case TAV_SR2_FMT_UINT88:          \
            return valueRow<S, uint8_t>;  \
        case TAV_SR2_FMT_INT16:           \
            return valueRow<S, int16_t>;  \
        case TAV_SR2_FMT_UINT16:          \
        case TAV_SR2_FMT_UINT1616:        \
            return valueRow<S, uint16_t>; \
        case TAV_SR2_FMT_INT32:           \
            return valueRow<S, int32_t>;  \
        case TAV_SR2_FMT_FLOAT:           \
            return valueRow<S, float>;    \
        default:                          \
            return nullptr;               \
    }
    switch (from) {
        case TAV_SR2_FMT_UINT8:
        case TAV_SR2_FMT_UINT88:
            TAV_VALUE_ROWS(uint8_t)
        case TAV_SR2_FMT_INT16:
            TAV_VALUE_ROWS(int16_t)
        case TAV_SR2_FMT_UINT16:
        case TAV_SR2_FMT_UINT1616:
            TAV_VALUE_ROWS(uint16_t)
        case TAV_SR2_FMT_INT32:
            TAV_VALUE_ROWS(int32_t)
        case TAV_SR2_FMT_FLOAT:
            TAV_VALUE_ROWS(float)
        default:
            return nullptr;
    }
#undef TAV_VALUE_ROWS
}

bool isNumber(int32_t f) {
    return f >= TAV_SR2_FMT_UINT8 && f <= TAV_SR2_FMT_FLOAT;
}
bool isPair(int32_t f) {
    return f == TAV_SR2_FMT_UINT88 || f == TAV_SR2_FMT_UINT1616;
}
bool isFrame(int32_t f) {
    return tav_sr2_isSemiPlanar8(f) || tav_sr2_isSemiPlanar10(f);
}
// 49 and 53 store V first.
bool vFirst(int32_t f) {
    return f == TAV_SR2_FMT_YVU420_SEMIPLANAR || f == TAV_SR2_FMT_YVU10B420_SEMIPLANAR;
}

// Depth change of frame samples; `swap` exchanges the two samples of each chroma pair.
struct Up {
    uint16_t operator()(uint8_t v) const { return (uint16_t)(v << 2); }
};
struct Down {
    uint8_t operator()(uint16_t v) const { return v < 1022 ? (uint8_t)((v + 2) >> 2) : 255; }
};
template <typename T>
struct Same {
    T operator()(T v) const { return v; }
};

template <typename S, typename D, typename Op>
void depthRow(const uint8_t* in, uint8_t* out, int32_t n, int32_t swap) {
    const S* s = reinterpret_cast<const S*>(in);
    D* d = reinterpret_cast<D*>(out);
    const Op op;
    if (swap) {
        for (int32_t i = 0; i + 1 < n; i += 2) {
            const D first = op(s[i + 1]);
            d[i + 1] = op(s[i]);
            d[i] = first;
        }
    } else {
        for (int32_t i = 0; i < n; ++i)
            d[i] = op(s[i]);
    }
}

uint32_t convertFrame(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src) {
    const bool from10 = tav_sr2_isSemiPlanar10(src->format);
    const bool to10 = tav_sr2_isSemiPlanar10(dst->format);
    const SampleRowFn row =
        from10
            ? (to10 ? depthRow<uint16_t, uint16_t, Same<uint16_t>>
                    : depthRow<uint16_t, uint8_t, Down>)
            : (to10 ? depthRow<uint8_t, uint16_t, Up> : depthRow<uint8_t, uint8_t, Same<uint8_t>>);
    uint32_t status = TAV_OK;
    for (int32_t i = 0; i < 2 && status == TAV_OK; ++i) {
        int32_t rows, bytes;
        planeExtent(src, i, &rows, &bytes);
        const int32_t samples = bytes / (from10 ? 2 : 1);
        const int32_t swap = i == 1 && vFirst(src->format) != vFirst(dst->format);
        status = runPlane(ctx, src, dst, i, rows, samples, row, swap);
    }
    return status;
}

// ---- shift -----------------------------------------------------------------------------------

template <typename S, typename D>
void shiftRow(const uint8_t* in, uint8_t* out, int32_t n, int32_t shift) {
    const S* s = reinterpret_cast<const S*>(in);
    D* d = reinterpret_cast<D*>(out);
    // Past 63 (right) or 32 (left) bits the results no longer change; capping before negating
    // also keeps the most negative shift from overflowing.
    const int32_t right = shift > 63 ? 63 : shift;
    const int32_t left = shift < -32 ? 32 : -shift;
    for (int32_t i = 0; i < n; ++i) {
        const int64_t v =
            shift >= 0 ? (int64_t)s[i] >> right : (int64_t)s[i] * ((int64_t)1 << left);
        if constexpr (sizeof(D) == 4) {
            d[i] = (D)(uint32_t)(uint64_t)v;
        } else {
            d[i] = saturate<D>(v);
        }
    }
}

constexpr int32_t shiftKey(int32_t dst, int32_t src) {
    return (dst << 8) | src;
}

SampleRowFn shiftRowFor(int32_t key) {
    switch (key) {
        case shiftKey(TAV_SR2_FMT_INT32, TAV_SR2_FMT_INT32):
            return shiftRow<int32_t, int32_t>;
        case shiftKey(TAV_SR2_FMT_INT32, TAV_SR2_FMT_UINT8):
            return shiftRow<uint8_t, int32_t>;
        case shiftKey(TAV_SR2_FMT_INT32, TAV_SR2_FMT_UINT16):
            return shiftRow<uint16_t, int32_t>;
        case shiftKey(TAV_SR2_FMT_UINT8, TAV_SR2_FMT_INT32):
            return shiftRow<int32_t, uint8_t>;
        case shiftKey(TAV_SR2_FMT_UINT16, TAV_SR2_FMT_INT32):
            return shiftRow<int32_t, uint16_t>;
        case shiftKey(TAV_SR2_FMT_UINT8, TAV_SR2_FMT_UINT16):
            return shiftRow<uint16_t, uint8_t>;
        default:
            return nullptr;
    }
}

// ---- look-up ------------------------------------------------------------------------------------

struct LookupJob {
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    const uint8_t* table;
};

uint32_t lookupRow(void* arg, int32_t y, tav_sr2_TaskCtx*) {
    const LookupJob* job = static_cast<const LookupJob*>(arg);
    const uint8_t* in = tav_sr2_rowOf<const uint8_t>(job->src, 0, y);
    uint8_t* out = tav_sr2_rowOf<uint8_t>(job->dst, 0, y);
    for (int32_t x = 0; x < job->dst->width; ++x)
        out[x] = job->table[in[x]];
    return TAV_OK;
}

constexpr tav_sr2_TaskType kLookupRows = tav_sr2_rowTaskType<lookupRow>();

// ---- fill ---------------------------------------------------------------------------------------

template <typename T>
void fillRow(const uint8_t*, uint8_t* out, int32_t n, int32_t value) {
    T* d = reinterpret_cast<T*>(out);
    const T v = (T)value;
    for (int32_t i = 0; i < n; ++i)
        d[i] = v;
}

// Bytes per sample of the formats fillValue takes; 0 for the others.
int32_t sampleBytes(int32_t f) {
    switch (f) {
        case TAV_SR2_FMT_UINT8:
        case TAV_SR2_FMT_UINT88:
        case TAV_SR2_FMT_YUV444_PLANAR:
        case TAV_SR2_FMT_YUV422_PLANAR:
        case TAV_SR2_FMT_YUV422_SEMIPLANAR:
        case TAV_SR2_FMT_YVU422_SEMIPLANAR:
        case TAV_SR2_FMT_YUV420_PLANAR:
        case TAV_SR2_FMT_YUV420_SEMIPLANAR:
        case TAV_SR2_FMT_YVU420_SEMIPLANAR:
            return 1;
        case TAV_SR2_FMT_INT16:
        case TAV_SR2_FMT_UINT16:
        case TAV_SR2_FMT_UINT1616:
        case TAV_SR2_FMT_YUV10B422_PLANAR:
        case TAV_SR2_FMT_YUV10B420_PLANAR:
        case TAV_SR2_FMT_YUV10B420_SEMIPLANAR:
        case TAV_SR2_FMT_YVU10B420_SEMIPLANAR:
        case TAV_SR2_FMT_YUV16B444_PLANAR:
        case TAV_SR2_FMT_YUV16B422_PLANAR:
        case TAV_SR2_FMT_YUV16B420_SEMIPLANAR:
        case TAV_SR2_FMT_YVU16B420_SEMIPLANAR:
            return 2;
        case TAV_SR2_FMT_INT32:
        case TAV_SR2_FMT_FLOAT:
        case TAV_SR2_FMT_YUV32F422_PLANAR:
            return 4;
        default:
            return 0;
    }
}

bool floatSamples(int32_t f) {
    return f == TAV_SR2_FMT_FLOAT || f == TAV_SR2_FMT_YUV32F422_PLANAR;
}

void fillFloatRow(const uint8_t*, uint8_t* out, int32_t n, int32_t value) {
    float* d = reinterpret_cast<float*>(out);
    for (int32_t i = 0; i < n; ++i)
        d[i] = (float)value;
}

// ---- blend --------------------------------------------------------------------------------------

struct BlendJob {
    tav_sr2_Image* dst;
    const tav_sr2_Image* a;
    const tav_sr2_Image* b;
    const tav_sr2_Image* mask;
    bool frame;
};

inline int32_t coefficient(uint8_t m) {
    return m > 128 ? 128 : m;
}

uint32_t blendBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const BlendJob* job = static_cast<const BlendJob*>(arg);
    const int32_t w = job->dst->width;
    // Frames round to nearest, plain pictures truncate.
    const int32_t half = job->frame ? 64 : 0;
    for (int32_t y = y0; y < y1; ++y) {
        const uint8_t* m = tav_sr2_rowOf<const uint8_t>(job->mask, 0, y);
        const uint8_t* a = tav_sr2_rowOf<const uint8_t>(job->a, 0, y);
        const uint8_t* b = tav_sr2_rowOf<const uint8_t>(job->b, 0, y);
        uint8_t* out = tav_sr2_rowOf<uint8_t>(job->dst, 0, y);
        for (int32_t x = 0; x < w; ++x) {
            const int32_t c = coefficient(m[x]);
            out[x] = (uint8_t)(((128 - c) * b[x] + c * a[x] + half) >> 7);
        }
    }
    if (!job->frame) return TAV_OK;
    // Chroma row cy goes with luma row 2 * cy; its byte column x takes luma column x.
    const int32_t bytes = (w + 1) / 2 * 2;
    for (int32_t cy = (y0 + 1) / 2; cy < (y1 + 1) / 2; ++cy) {
        const uint8_t* m = tav_sr2_rowOf<const uint8_t>(job->mask, 0, 2 * cy);
        const uint8_t* a = tav_sr2_rowOf<const uint8_t>(job->a, 1, cy);
        const uint8_t* b = tav_sr2_rowOf<const uint8_t>(job->b, 1, cy);
        uint8_t* out = tav_sr2_rowOf<uint8_t>(job->dst, 1, cy);
        for (int32_t x = 0; x < bytes; ++x) {
            const int32_t c = coefficient(m[x < w ? x : w - 1]);
            out[x] = (uint8_t)(((128 - c) * b[x] + c * a[x] + 64) >> 7);
        }
    }
    return TAV_OK;
}

}  // namespace

uint32_t tav_sr2_Image_convert(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                               const tav_sr2_Image* src) {
    if (ctx == nullptr) return TAV_ERROR_PARAM;
    const uint32_t status = tav_sr2_checkImagePair(dst, src);
    if (status != TAV_OK) return status;
    if (!tav_sr2_sameSize(dst, src)) return TAV_ERROR_PARAM;
    if (dst->format == src->format) return tav_sr2_Image_copy(dst, src);
    if (isFrame(dst->format) && isFrame(src->format)) {
        if (dst->plane[1] == nullptr || src->plane[1] == nullptr) return TAV_ERROR_PARAM;
        return convertFrame(ctx, dst, src);
    }
    const bool numbers = isNumber(dst->format) && isNumber(src->format);
    const bool pairs = isPair(dst->format) && isPair(src->format);
    if (!numbers && !pairs) return TAV_ERROR_UNSUPPORTED;
    const SampleRowFn row = valueRowFor(src->format, dst->format);
    return runPlane(ctx, src, dst, 0, dst->height, dst->width * tav_sr2_channelsOf(dst->format),
                    row, 0);
}

uint32_t tav_sr2_Image_shift_right(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src, int32_t shift) {
    if (ctx == nullptr) return TAV_ERROR_PARAM;
    const uint32_t status = tav_sr2_checkImagePair(dst, src);
    if (status != TAV_OK) return status;
    const SampleRowFn row = shiftRowFor(shiftKey(dst->format, src->format));
    if (row == nullptr || !tav_sr2_sameSize(dst, src)) return TAV_ERROR_PARAM;
    return runPlane(ctx, src, dst, 0, dst->height, dst->width, row, shift);
}

uint32_t tav_sr2_Image_lookup(tav_sr2_TaskSys* tasks, tav_sr2_Image* dst, const tav_sr2_Image* src,
                              const uint8_t* table) {
    if (table == nullptr) return TAV_ERROR_PARAM;
    const uint32_t status = tav_sr2_checkImagePair(dst, src);
    if (status != TAV_OK) return status;
    if (dst->format != TAV_SR2_FMT_UINT8 || src->format != TAV_SR2_FMT_UINT8) {
        return TAV_ERROR_UNSUPPORTED;
    }
    if (!tav_sr2_sameSize(dst, src)) return TAV_ERROR_PARAM;
    LookupJob job = {src, dst, table};
    return tav_sr2_TaskSys_run(tasks, &kLookupRows, &job, dst->height);
}

uint32_t tav_sr2_Image_fillValue(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* image, int32_t value) {
    if (ctx == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = tav_sr2_checkImage(image);
    if (status != TAV_OK) return status;
    const int32_t size = sampleBytes(image->format);
    if (size == 0) return TAV_ERROR_UNSUPPORTED;
    const SampleRowFn row = floatSamples(image->format) ? fillFloatRow
                            : size == 1                 ? fillRow<uint8_t>
                            : size == 2                 ? fillRow<uint16_t>
                                                        : fillRow<uint32_t>;
    for (int32_t i = 0; i < 3 && status == TAV_OK; ++i) {
        int32_t rows, bytes;
        planeExtent(image, i, &rows, &bytes);
        if (rows > 0) status = runPlane(ctx, nullptr, image, i, rows, bytes / size, row, value);
    }
    return status;
}

uint32_t tav_sr2_Image_blendMask(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                 const tav_sr2_Image* a, const tav_sr2_Image* b,
                                 const tav_sr2_Image* mask) {
    if (ctx == nullptr || a == nullptr || b == nullptr || mask == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = tav_sr2_checkImagePair(dst, a);
    if (status == TAV_OK) status = tav_sr2_checkImagePair(b, mask);
    if (status != TAV_OK) return status;
    const int32_t f = dst->format;
    const bool frame = tav_sr2_isSemiPlanar8(f);
    if ((f != TAV_SR2_FMT_UINT8 && !frame) || a->format != f || b->format != f ||
        mask->format != TAV_SR2_FMT_UINT8) {
        return TAV_ERROR_PARAM;
    }
    if (!tav_sr2_sameSize(dst, a) || !tav_sr2_sameSize(dst, b) || !tav_sr2_sameSize(dst, mask)) {
        return TAV_ERROR_PARAM;
    }
    if (frame && (dst->plane[1] == nullptr || a->plane[1] == nullptr || b->plane[1] == nullptr)) {
        return TAV_ERROR_PARAM;
    }
    BlendJob job = {dst, a, b, mask, frame};
    return tav_sr2_ImageCtx_runBands(ctx, tav_sr2_ImageCtx_workers(ctx), dst->height, &blendBand,
                                     &job);
}
