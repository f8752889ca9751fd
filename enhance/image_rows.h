// Small helpers the image operators share: argument checks in the order the operators report
// them, row addressing, and the format groups they dispatch on.
#pragma once

#include <stdint.h>

#include "foundation/image.h"
#include "foundation/status.h"

// Internal answer of the resize and the blur when the pool cannot give their row scratch. It
// never leaves a public operator: those answer 0 with the destination as it was (kept behaviour),
// but a caller that chains operators needs to know that nothing was written.
static const uint32_t TAV_SR2_ROWS_MISSING = 0x8000u;

// Null record: TAV_ERROR_PARAM; zero width or height: TAV_ERROR_GENERIC; missing pixels:
// TAV_ERROR_PARAM.
static inline uint32_t tav_sr2_checkImage(const tav_sr2_Image* image) {
    if (image == nullptr) return TAV_ERROR_PARAM;
    if (image->width < 1 || image->height < 1) return TAV_ERROR_GENERIC;
    return image->plane[0] == nullptr ? TAV_ERROR_PARAM : TAV_OK;
}

// Q15 positions of a resampling operator stay in 32 bits for sides below 32768.
static inline bool tav_sr2_fitsQ15(const tav_sr2_Image* image) {
    return image->width < 32768 && image->height < 32768;
}

static inline uint32_t tav_sr2_checkImagePair(const tav_sr2_Image* dst, const tav_sr2_Image* src) {
    if (dst == nullptr || src == nullptr) return TAV_ERROR_PARAM;
    const uint32_t status = tav_sr2_checkImage(dst);
    return status != TAV_OK ? status : tav_sr2_checkImage(src);
}

static inline bool tav_sr2_sameSize(const tav_sr2_Image* a, const tav_sr2_Image* b) {
    return a->width == b->width && a->height == b->height;
}

template <typename T>
static inline T* tav_sr2_rowOf(const tav_sr2_Image* image, int32_t plane, int32_t y) {
    return reinterpret_cast<T*>(image->plane[plane] + (int64_t)y * image->pitch[plane]);
}

static inline bool tav_sr2_isSemiPlanar8(int32_t f) {
    return f == TAV_SR2_FMT_YUV420_SEMIPLANAR || f == TAV_SR2_FMT_YVU420_SEMIPLANAR;
}
static inline bool tav_sr2_isSemiPlanar10(int32_t f) {
    return f == TAV_SR2_FMT_YUV10B420_SEMIPLANAR || f == TAV_SR2_FMT_YVU10B420_SEMIPLANAR;
}
// Two interleaved samples per pixel: the chroma views of the semi-planar formats.
static inline int32_t tav_sr2_channelsOf(int32_t f) {
    return f == TAV_SR2_FMT_UINT88 || f == TAV_SR2_FMT_UINT1616 ? 2 : 1;
}
