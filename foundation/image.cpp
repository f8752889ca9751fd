// tav_sr2_Image operations.
//
// tav_sr2_Image_init: clears the record and binds it to a pool.
// tav_sr2_Image_finish: releases an owned block and clears the record, pool included; a failed
//   release is returned with the record untouched. Finishing a view releases nothing.
// tav_sr2_Image_setup: sizes an image. With caller planes it becomes external; without, it owns
//   one pool block laid out by the format. A block of unchanged byte count is kept, whatever the
//   format, so stages resize their buffers on every frame without allocating. Setting (0, 0, null,
//   0) drops the pixels and keeps the pool. TAV_ERROR_MALLOC leaves plane[0] null.
// tav_sr2_Image_alloc: setup with the layout's pitches over a caller buffer, or from the pool
//   when buffer is null. A one-plane buffer is the pixels; a two- or three-plane buffer is an
//   array of plane pointers.
// tav_sr2_Image_wrapBuffer: external image over one caller buffer, planes back to back; fails
//   when the buffer is smaller than the layout's total.
// tav_sr2_Image_crop / viewPlane0 / viewPlane1 / viewPlane2 / viewChroma: external views sharing
//   the source's pixels and pitches. TAV_ERROR_PARAM for a rectangle outside the source or a
//   source without its planes, TAV_ERROR_UNSUPPORTED for a format the view does not offer
//   (packed 10-bit among them).
// tav_sr2_Image_copy: copies the real pixels of each plane, not the width-unit padding; sizes an
//   owned destination, requires an external one to match.
// tav_sr2_Image_copyRect: copy of a source rectangle to (x, y) of the destination, both aligned to
//   the destination format's width unit and height step.
#include "foundation/image.h"

#include <string.h>

namespace {

// How a crop moves a plane horizontally, in bytes, for a pixel offset x.
enum tav_sr2_CropX : uint8_t {
    kCropNone,    // the format offers no crop
    kCropScaled,  // x times the pixel size
    kCropPair4,   // 2x rounded down to a multiple of 4: two-pixel groups of four bytes
    kCropM8L2,    // x + x/4: four 10-bit samples in five bytes
    kCropHalf,    // x/2: one chroma byte per two pixels
    kCropEven,    // x with the low bit cleared: one UV pair per two pixels
};

struct tav_sr2_CropRule {
    uint8_t luma;  // tav_sr2_CropX of plane 0
    uint8_t luma_scale;
    uint8_t chroma;  // tav_sr2_CropX of planes 1 and 2; their rows follow the plane's vshift
    uint8_t chroma_scale;
};

static constexpr tav_sr2_CropRule cropRuleOf(int32_t c) {
    auto in = [c](int32_t a, int32_t b) { return c >= a && c <= b; };
    if (c == 1 || in(68, 71)) return {kCropScaled, 1, kCropNone, 0};
    if (c == 2 || c == 3 || c == 6 || c == 8 || in(72, 75) || in(80, 87)) {
        return {kCropScaled, 2, kCropNone, 0};
    }
    if (c == 4 || c == 5 || c == 7 || in(11, 22)) return {kCropScaled, 4, kCropNone, 0};
    if (c == 9 || c == 10 || in(29, 34) || c == 88) return {kCropScaled, 3, kCropNone, 0};
    if (c == 24) return {kCropScaled, 6, kCropNone, 0};
    if (in(25, 28)) return {kCropScaled, 16, kCropNone, 0};
    if (c == 89) return {kCropScaled, 12, kCropNone, 0};
    if (in(36, 43)) return {kCropPair4, 0, kCropNone, 0};
    if (in(76, 79)) return {kCropM8L2, 0, kCropNone, 0};
    if (c == 35) return {kCropScaled, 1, kCropScaled, 1};
    if (c == 44 || c == 47) return {kCropScaled, 1, kCropHalf, 0};
    if (in(45, 46) || in(48, 49)) return {kCropScaled, 1, kCropEven, 0};
    if (c == 50 || c == 64) return {kCropScaled, 2, kCropEven, 0};
    if (in(52, 53)) return {kCropScaled, 2, kCropPair4, 0};
    if (c == 67) return {kCropScaled, 4, kCropPair4, 0};
    return {kCropNone, 0, kCropNone, 0};
}

// Formats of the one-plane views a source code offers; 0 where it offers none.
struct tav_sr2_ViewRule {
    uint8_t plane0;  // viewPlane0
    uint8_t planar;  // viewPlane1 and viewPlane2
    uint8_t chroma;  // viewChroma
};

static constexpr tav_sr2_ViewRule viewRuleOf(int32_t c) {
    if (c == 1 || (c >= 44 && c <= 49)) {
        const bool planar = c == 44 || c == 47;
        const bool semi = c == 45 || c == 46 || c == 48 || c == 49;
        return {TAV_SR2_FMT_UINT8, (uint8_t)(planar ? TAV_SR2_FMT_UINT8 : 0),
                (uint8_t)(semi ? TAV_SR2_FMT_UINT88 : 0)};
    }
    if (c == 35) return {TAV_SR2_FMT_UINT8, TAV_SR2_FMT_UINT8, 0};
    if (c == 3) return {TAV_SR2_FMT_UINT16, 0, 0};
    if (c == 50 || c == 64) return {TAV_SR2_FMT_UINT16, TAV_SR2_FMT_UINT16, 0};
    if (c == 52 || c == 53) return {TAV_SR2_FMT_UINT16, 0, TAV_SR2_FMT_UINT1616};
    if (c == 67) return {TAV_SR2_FMT_FLOAT, TAV_SR2_FMT_FLOAT, 0};
    return {0, 0, 0};
}

template <typename Rule, Rule (*of)(int32_t)>
struct tav_sr2_RuleTable {
    Rule row[TAV_SR2_FORMAT_COUNT];
    constexpr tav_sr2_RuleTable() : row{} {
        for (int32_t c = 0; c < TAV_SR2_FORMAT_COUNT; c++)
            row[c] = of(c);
    }
};
}  // namespace

static constexpr tav_sr2_RuleTable<tav_sr2_CropRule, cropRuleOf> kCropRules;
static constexpr tav_sr2_RuleTable<tav_sr2_ViewRule, viewRuleOf> kViewRules;

static bool codeInTable(int32_t code) {
    return (uint32_t)code < (uint32_t)TAV_SR2_FORMAT_COUNT;
}

static bool formatHasPlane(int32_t code, int32_t i) {
    return tav_sr2_format_layout[code][4 * i] != 0;
}

static ptrdiff_t cropX(uint8_t rule, uint8_t scale, int32_t x) {
    switch (rule) {
        case kCropScaled:
            return (ptrdiff_t)x * scale;
        case kCropPair4:
            return ((ptrdiff_t)x * 2) & ~(ptrdiff_t)3;
        case kCropM8L2:
            return (ptrdiff_t)x + (x >> 2);
        case kCropHalf:
            return x >> 1;
        case kCropEven:
            return x & ~1;
    }
    return 0;
}

// Byte offset of pixel (x, y) within plane i of an image of this code.
static ptrdiff_t planeOffset(int32_t code, int32_t i, int32_t pitch, int32_t x, int32_t y) {
    const tav_sr2_CropRule& r = kCropRules.row[code];
    const int32_t vshift = tav_sr2_format_layout[code][4 * i + 3];
    const ptrdiff_t dx =
        i == 0 ? cropX(r.luma, r.luma_scale, x) : cropX(r.chroma, r.chroma_scale, x);
    return (ptrdiff_t)(y >> vshift) * pitch + dx;
}

static bool rectInside(const tav_sr2_Image* src, int32_t x, int32_t y, int32_t w, int32_t h) {
    if (x < 0 || y < 0 || w < 0 || h < 0) return false;
    return (int64_t)x + w <= src->width && (int64_t)y + h <= src->height;
}

static bool planeUsable(const tav_sr2_Image* img, int32_t i) {
    return img->plane[i] != nullptr && img->pitch[i] >= 1;
}

static uint32_t releaseBlock(tav_sr2_Image* image) {
    if (image->external || image->plane[0] == nullptr) return TAV_OK;
    return tav_sr2_MemPool_free(image->pool, image->plane[0]);
}

uint32_t tav_sr2_Image_init(tav_sr2_Image* image, tav_sr2_MemPool* pool) {
    if (image == nullptr) return TAV_ERROR_PARAM;
    memset(image, 0, sizeof(*image));
    image->pool = pool;
    return TAV_OK;
}

uint32_t tav_sr2_Image_finish(tav_sr2_Image* image) {
    if (image == nullptr) return TAV_ERROR_PARAM;
    const uint32_t status = releaseBlock(image);
    if (tav_sr2_failed(status)) return status;
    memset(image, 0, sizeof(*image));
    return TAV_OK;
}

// Reads a caller plane block, packed by the plane count, into three pointers and pitches.
static void readPlaneBlock(const void* planes, int32_t count, uint8_t* plane[3], int32_t pitch[3]) {
    for (int32_t i = 0; i < 3; i++) {
        plane[i] = nullptr;
        pitch[i] = 0;
    }
    if (count == 1) {
        const auto* b = (const tav_sr2_ImagePlanes1*)planes;
        plane[0] = b->plane[0];
        pitch[0] = b->pitch[0];
    } else if (count == 2) {
        const auto* b = (const tav_sr2_ImagePlanes2*)planes;
        for (int32_t i = 0; i < 2; i++) {
            plane[i] = b->plane[i];
            pitch[i] = b->pitch[i];
        }
    } else if (count == 3) {
        const auto* b = (const tav_sr2_ImagePlanes3*)planes;
        for (int32_t i = 0; i < 3; i++) {
            plane[i] = b->plane[i];
            pitch[i] = b->pitch[i];
        }
    }
}

// Points the planes of an owned or wrapped image at consecutive ranges from base.
static void layPlanes(tav_sr2_Image* image, uint8_t* base, int32_t code,
                      const tav_sr2_ImageLayout* l) {
    uint8_t* next = base;
    for (int32_t i = 0; i < 3; i++) {
        const bool present = base != nullptr && formatHasPlane(code, i);
        image->plane[i] = present ? next : nullptr;
        image->pitch[i] = l->pitch[i];
        if (present) next += l->size[i];
    }
}

static int32_t ownedBytes(const tav_sr2_Image* image) {
    if (image->plane[0] == nullptr || image->external || !codeInTable(image->format)) return 0;
    tav_sr2_ImageLayout l;
    tav_sr2_ImageFormat_layout(image->width, image->height, image->format, &l);
    return l.total;
}

uint32_t tav_sr2_Image_setup(tav_sr2_Image* image, int32_t width, int32_t height,
                             const void* planes, int32_t code) {
    if (image == nullptr || width < 0 || height < 0 || !codeInTable(code)) return TAV_ERROR_PARAM;
    tav_sr2_ImageLayout l;
    tav_sr2_ImageFormat_layout(width, height, code, &l);
    const int32_t old_bytes = ownedBytes(image);
    const int32_t new_bytes = planes != nullptr ? 0 : l.total;
    // A view's pointer is never a block of ours, so it is dropped rather than kept.
    uint8_t* block = image->external ? nullptr : image->plane[0];
    const bool keep = (planes != nullptr && old_bytes == 0) || new_bytes == old_bytes;
    if (!keep) {
        const uint32_t status = releaseBlock(image);
        if (tav_sr2_failed(status)) return status;
        block = nullptr;
        if (new_bytes != 0) {
            if (new_bytes > 0 && image->pool != nullptr) {
                block = (uint8_t*)tav_sr2_MemPool_alloc(image->pool, (uint32_t)new_bytes);
            }
            if (block == nullptr) {
                image->plane[0] = image->plane[1] = image->plane[2] = nullptr;
                return TAV_ERROR_MALLOC;
            }
        }
    }
    if (planes != nullptr) {
        readPlaneBlock(planes, tav_sr2_ImageFormat_planeCount(code), image->plane, image->pitch);
    } else {
        layPlanes(image, block, code, &l);
    }
    image->width = width;
    image->height = height;
    image->format = code;
    image->external = planes != nullptr ? 1u : 0u;
    return TAV_OK;
}

uint32_t tav_sr2_Image_alloc(tav_sr2_Image* image, int32_t width, int32_t height,
                             const void* buffer, int32_t code) {
    if (buffer == nullptr) return tav_sr2_Image_setup(image, width, height, nullptr, code);
    if (image == nullptr || width < 0 || height < 0 || !codeInTable(code)) return TAV_ERROR_PARAM;
    tav_sr2_ImageLayout l;
    tav_sr2_ImageFormat_layout(width, height, code, &l);
    const int32_t count = tav_sr2_ImageFormat_planeCount(code);
    if (count <= 1) {
        tav_sr2_ImagePlanes1 b = {{(uint8_t*)buffer}, {l.pitch[0]}};
        return tav_sr2_Image_setup(image, width, height, &b, code);
    }
    uint8_t* const* ptrs = (uint8_t* const*)buffer;
    if (count == 2) {
        tav_sr2_ImagePlanes2 b = {{ptrs[0], ptrs[1]}, {l.pitch[0], l.pitch[1]}};
        return tav_sr2_Image_setup(image, width, height, &b, code);
    }
    tav_sr2_ImagePlanes3 b = {{ptrs[0], ptrs[1], ptrs[2]}, {l.pitch[0], l.pitch[1], l.pitch[2]}};
    return tav_sr2_Image_setup(image, width, height, &b, code);
}

uint32_t tav_sr2_Image_wrapBuffer(tav_sr2_Image* image, int32_t width, int32_t height, void* data,
                                  int32_t size, int32_t code) {
    if (image == nullptr || data == nullptr || size < 0 || width < 0 || height < 0 ||
        !codeInTable(code)) {
        return TAV_ERROR_PARAM;
    }
    tav_sr2_ImageLayout l;
    tav_sr2_ImageFormat_layout(width, height, code, &l);
    if (l.total < 0 || l.total > size) return TAV_ERROR_PARAM;
    layPlanes(image, code == 0 ? nullptr : (uint8_t*)data, code, &l);
    image->width = width;
    image->height = height;
    image->format = code;
    image->external = 1;
    return TAV_OK;
}

static void setView(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t width, int32_t height,
                    int32_t format) {
    tav_sr2_MemPool* pool = src->pool;
    memset(dst, 0, sizeof(*dst));
    dst->width = width;
    dst->height = height;
    dst->format = format;
    dst->external = 1;
    dst->pool = pool;
}

uint32_t tav_sr2_Image_crop(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x, int32_t y,
                            int32_t width, int32_t height) {
    if (dst == nullptr || src == nullptr || !rectInside(src, x, y, width, height)) {
        return TAV_ERROR_PARAM;
    }
    // Planes first, format last: an empty crop is a view whatever the format, and a code outside
    // the table has no planes past the first to ask for.
    const int32_t code = src->format;
    if (!planeUsable(src, 0)) return TAV_ERROR_PARAM;
    for (int32_t i = 1; i < 3; i++) {
        if (codeInTable(code) && formatHasPlane(code, i) && !planeUsable(src, i)) {
            return TAV_ERROR_PARAM;
        }
    }
    const bool empty = width < 1 || height < 1;
    if (!empty && (code < 1 || !codeInTable(code) || kCropRules.row[code].luma == kCropNone)) {
        return TAV_ERROR_UNSUPPORTED;
    }
    tav_sr2_Image view;  // src may be dst
    setView(&view, src, width, height, code);
    for (int32_t i = 0; i < 3; i++) {
        view.pitch[i] = src->pitch[i];
        if (!empty && (i == 0 || formatHasPlane(code, i))) {
            view.plane[i] = src->plane[i] + planeOffset(code, i, src->pitch[i], x, y);
        }
    }
    *dst = view;
    return TAV_OK;
}

namespace {
// Which plane a one-plane view shows, and so which rule column gives its format.
enum tav_sr2_ViewKind : int32_t { kViewPlane0, kViewPlane1, kViewPlane2, kViewChroma };
}  // namespace

static uint32_t viewPlane(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x, int32_t y,
                          int32_t width, int32_t height, tav_sr2_ViewKind kind) {
    if (dst == nullptr || src == nullptr || !rectInside(src, x, y, width, height) ||
        !planeUsable(src, 0)) {
        return TAV_ERROR_PARAM;
    }
    const int32_t i = kind == kViewPlane2 ? 2 : kind == kViewPlane0 ? 0 : 1;
    tav_sr2_Image view;  // src may be dst
    if (width < 1 || height < 1) {
        setView(&view, src, width, height, TAV_SR2_FMT_UINT8);
        view.pitch[0] = src->pitch[i];
        *dst = view;
        return TAV_OK;
    }
    const int32_t code = src->format;
    if (code < 1 || code >= TAV_SR2_FORMAT_COUNT) return TAV_ERROR_UNSUPPORTED;
    const tav_sr2_ViewRule& rule = kViewRules.row[code];
    const int32_t format = kind == kViewPlane0   ? rule.plane0
                           : kind == kViewChroma ? rule.chroma
                                                 : rule.planar;
    if (format == 0) return TAV_ERROR_UNSUPPORTED;
    if (!planeUsable(src, i)) return TAV_ERROR_PARAM;
    // Chroma planes lose an odd last column or row: the halves are plain shifts.
    const uint8_t* row = tav_sr2_format_layout[code];
    const int32_t hshift = i == 0 ? 0 : row[4 * i + 1] == 2 ? 1 : 0;
    const int32_t vshift = row[4 * i + 3];
    setView(&view, src, width >> hshift, height >> vshift, format);
    view.plane[0] = src->plane[i] + planeOffset(code, i, src->pitch[i], x, y);
    view.pitch[0] = src->pitch[i];
    *dst = view;
    return TAV_OK;
}

uint32_t tav_sr2_Image_viewPlane0(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x,
                                  int32_t y, int32_t width, int32_t height) {
    return viewPlane(dst, src, x, y, width, height, kViewPlane0);
}

uint32_t tav_sr2_Image_viewPlane1(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x,
                                  int32_t y, int32_t width, int32_t height) {
    return viewPlane(dst, src, x, y, width, height, kViewPlane1);
}

uint32_t tav_sr2_Image_viewPlane2(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x,
                                  int32_t y, int32_t width, int32_t height) {
    return viewPlane(dst, src, x, y, width, height, kViewPlane2);
}

uint32_t tav_sr2_Image_viewChroma(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x,
                                  int32_t y, int32_t width, int32_t height) {
    return viewPlane(dst, src, x, y, width, height, kViewChroma);
}

static bool sourceComplete(const tav_sr2_Image* src) {
    if (src->plane[0] == nullptr || src->width < 1 || src->height < 1) return false;
    if (src->format < 1 || src->format >= TAV_SR2_FORMAT_COUNT) return false;
    for (int32_t i = 1; i < 3; i++) {
        if (formatHasPlane(src->format, i) && src->plane[i] == nullptr) return false;
    }
    return true;
}

static bool externalMatches(const tav_sr2_Image* dst, const tav_sr2_Image* src) {
    if (dst->width != src->width || dst->height != src->height || dst->format != src->format) {
        return false;
    }
    for (int32_t i = 0; i < 3; i++) {
        if ((dst->plane[i] != nullptr) != formatHasPlane(src->format, i)) return false;
    }
    return true;
}

// Copies the pixels of plane i that the picture really covers, leaving row padding alone.
static void copyPlane(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t i) {
    const uint8_t* p = tav_sr2_format_layout[src->format] + 4 * i;
    const int32_t bytes = p[0], pixels = p[1] == 0 ? 1 : p[1], rows = p[2], vshift = p[3];
    const size_t row_bytes = (size_t)((src->width + pixels - 1) / pixels) * bytes;
    const int32_t row_count = ((src->height + (1 << vshift) - 1) >> vshift) * rows;
    const uint8_t* s = src->plane[i];
    uint8_t* d = dst->plane[i];
    for (int32_t r = 0; r < row_count; r++) {
        memcpy(d, s, row_bytes);
        s += src->pitch[i];
        d += dst->pitch[i];
    }
}

uint32_t tav_sr2_Image_copy(tav_sr2_Image* dst, const tav_sr2_Image* src) {
    if (dst == nullptr || src == nullptr) return TAV_ERROR_PARAM;
    if (dst == src || dst->plane[0] == src->plane[0]) return TAV_OK;
    if (!sourceComplete(src)) return TAV_ERROR_PARAM;
    if (dst->external) {
        if (!externalMatches(dst, src)) return TAV_ERROR_PARAM;
    } else {
        const uint32_t status =
            tav_sr2_Image_setup(dst, src->width, src->height, nullptr, src->format);
        if (tav_sr2_failed(status)) return status;
    }
    for (int32_t i = 0; i < 3; i++) {
        if (formatHasPlane(src->format, i)) copyPlane(dst, src, i);
    }
    return TAV_OK;
}

uint32_t tav_sr2_Image_copyRect(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x, int32_t y,
                                const tav_sr2_Rect* rect) {
    if (dst == nullptr || src == nullptr || rect == nullptr) return TAV_ERROR_PARAM;
    if (dst == src || dst->plane[0] == src->plane[0]) return TAV_OK;
    const int64_t width = (int64_t)rect->right - rect->left;
    const int64_t height = (int64_t)rect->bottom - rect->top;
    if (width <= 0 || height <= 0) return TAV_OK;
    if (width > INT32_MAX || height > INT32_MAX) return TAV_ERROR_PARAM;
    // Alignment follows the destination's format; a code without a row is left to the crop.
    if (codeInTable(dst->format)) {
        const uint8_t* row = tav_sr2_format_layout[dst->format];
        const int32_t unit =
            row[TAV_SR2_LAYOUT_WIDTH_UNIT] == 0 ? 1 : row[TAV_SR2_LAYOUT_WIDTH_UNIT];
        const int32_t step = 1 << row[TAV_SR2_LAYOUT_HEIGHT_SHIFT];
        if (x % unit != 0 || rect->left % unit != 0 || y % step != 0 || rect->top % step != 0) {
            return TAV_ERROR_PARAM;
        }
    }
    tav_sr2_Image to, from;
    uint32_t status = tav_sr2_Image_crop(&to, dst, x, y, (int32_t)width, (int32_t)height);
    if (tav_sr2_failed(status)) return status;
    status = tav_sr2_Image_crop(&from, src, rect->left, rect->top, (int32_t)width, (int32_t)height);
    if (tav_sr2_failed(status)) return status;
    return tav_sr2_Image_copy(&to, &from);
}
