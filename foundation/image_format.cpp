// Engine pixel formats.
//
// tav_sr2_ImageFormat_layout: pitches, rows and sizes of the planes of a w x h picture, from the
//   format's layout row. The width rounds up to the width unit, the height to 2^height_shift;
//   arithmetic is signed 32-bit with truncating division and wraps like the phone's does.
// tav_sr2_ImageFormat_byName: code of a name or alias, exact and case-sensitive; 0 for null or an
//   unknown name.
// tav_sr2_ImageFormat_name: name of a code; "(unknown)" above 89 (read as unsigned).
// tav_sr2_ImageFormat_query: one number of the layout, chosen by `what`; 0 for bad arguments.
// tav_sr2_ImageFormat_isRgb / isRgba / isYuv: family tests by code range.
#include "foundation/image_format.h"

#include <string.h>

static_assert(sizeof(tav_sr2_format_layout) == 90 * 16);
static_assert(sizeof(tav_sr2_format_names) / sizeof(tav_sr2_format_names[0]) == 93);

static constexpr bool namesFollowCodes() {
    for (int32_t c = 0; c < TAV_SR2_FORMAT_COUNT; c++) {
        if (tav_sr2_format_names[c].code != c) return false;
    }
    return true;
}
static_assert(namesFollowCodes(), "row c of the name table must name code c");

// Sizes near 2^31 wrap rather than trap: the products are taken modulo 2^32, as on the device.
static inline int32_t mulWrap(int32_t a, int32_t b) {
    return (int32_t)((uint32_t)a * (uint32_t)b);
}
static inline int32_t addWrap(int32_t a, int32_t b) {
    return (int32_t)((uint32_t)a + (uint32_t)b);
}
static inline int32_t shlWrap(int32_t a, int32_t s) {
    return (int32_t)((uint32_t)a << s);
}

void tav_sr2_ImageFormat_layout(int32_t w, int32_t h, int32_t code, tav_sr2_ImageLayout* out) {
    const uint8_t* row = tav_sr2_format_layout[code];
    const int32_t unit = row[TAV_SR2_LAYOUT_WIDTH_UNIT];
    const int32_t hshift = row[TAV_SR2_LAYOUT_HEIGHT_SHIFT];
    const int32_t wu = unit == 0 ? 0 : mulWrap(addWrap(w, unit - 1) / unit, unit);
    const int32_t hu = addWrap(h, (1 << hshift) - 1) >> hshift;
    out->total = 0;
    for (int32_t i = 0; i < 3; i++) {
        const uint8_t* p = row + 4 * i;
        const int32_t bytes = p[0], pixels = p[1] == 0 ? 1 : p[1], rows = p[2], vshift = p[3];
        out->pitch[i] = bytes == 0 ? 0 : mulWrap(bytes, wu) / pixels;
        out->rows[i] = shlWrap(mulWrap(hu, rows), hshift - vshift);
        out->size[i] = mulWrap(out->rows[i], out->pitch[i]);
        out->total = addWrap(out->total, out->size[i]);
    }
}

int32_t tav_sr2_ImageFormat_planeCount(int32_t code) {
    const uint8_t* row = tav_sr2_format_layout[code];
    return (row[TAV_SR2_LAYOUT_BYTES0] != 0) + (row[TAV_SR2_LAYOUT_BYTES1] != 0) +
           (row[TAV_SR2_LAYOUT_BYTES2] != 0);
}

int32_t tav_sr2_ImageFormat_byName(const char* name) {
    if (name == nullptr) return 0;
    for (const tav_sr2_FormatName& row : tav_sr2_format_names) {
        if (strcmp(row.name, name) == 0) return row.code;
    }
    return 0;
}

const char* tav_sr2_ImageFormat_name(int32_t code) {
    if ((uint32_t)code >= (uint32_t)TAV_SR2_FORMAT_COUNT) return "(unknown)";
    return tav_sr2_format_names[code].name;
}

uint32_t tav_sr2_ImageFormat_query(int32_t width, int32_t height, int32_t code, uint32_t what) {
    if (width < 0 || height < 0 || (uint32_t)code >= (uint32_t)TAV_SR2_FORMAT_COUNT || what > 13) {
        return 0;
    }
    tav_sr2_ImageLayout l;
    tav_sr2_ImageFormat_layout(width, height, code, &l);
    int32_t value = 0;
    switch (what) {
        case 0:
            value = l.total;
            break;
        case 1:
        case 3:
            value = l.rows[0];
            break;
        case 2:
            value = l.size[0];
            break;
        case 4:
            value = l.pitch[0];
            break;
        case 5:
        case 11:
            value = l.size[1];
            break;
        case 6:
        case 12:
            value = l.rows[1];
            break;
        case 7:
        case 13:
            value = l.pitch[1];
            break;
        case 8:
            value = l.size[2];
            break;
        case 9:
            value = l.rows[2];
            break;
        case 10:
            value = l.pitch[2];
            break;
    }
    return (uint32_t)value;
}

bool tav_sr2_ImageFormat_isRgb(int32_t code) {
    return code >= 8 && code <= 10;
}
bool tav_sr2_ImageFormat_isRgba(int32_t code) {
    return code >= 11 && code <= 22;
}
bool tav_sr2_ImageFormat_isYuv(int32_t code) {
    return code >= 29 && code <= 49;
}
