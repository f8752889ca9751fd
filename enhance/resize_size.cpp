// Pool figures of the bilinear resize.
//
// tav_sr2_Image_resizeSampleBytes(format): UINT8, INT16, UINT16 and the 8-bit YUV formats up to 49:
//   2 per channel; UINT88 and UINT1616: 4; INT32 and FLOAT: 4; anything else 0.
// tav_sr2_Image_resizeRequiredSize(w, h, format, workers): workers * w * 2 rows of the widened
//   samples, in one pool block, rounded as the pool rounds it.
#include "enhance/resize_size.h"

#include "foundation/image_format.h"

int32_t tav_sr2_Image_resizeSampleBytes(int32_t format) {
    switch (format) {
        case TAV_SR2_FMT_UINT8:
        case TAV_SR2_FMT_INT16:
        case TAV_SR2_FMT_UINT16:
            return 2;
        case TAV_SR2_FMT_INT32:
        case TAV_SR2_FMT_FLOAT:
        case TAV_SR2_FMT_UINT88:
        case TAV_SR2_FMT_UINT1616:
            return 4;
        default:
            break;
    }
    // Planar and semi-planar YUV run plane by plane; an interleaved chroma row of w / 2 pairs is
    // as long as a luma row, so every plane needs 2 bytes per luma pixel.
    if (format >= TAV_SR2_FMT_YUV444_PLANAR && format <= TAV_SR2_FMT_YVU420_SEMIPLANAR &&
        tav_sr2_ImageFormat_planeCount(format) > 1)
        return 2;
    return 0;
}

uint32_t tav_sr2_Image_resizeRequiredSize(int32_t dst_width, int32_t dst_height, int32_t format,
                                          int32_t workers) {
    const int32_t sample = tav_sr2_Image_resizeSampleBytes(format);
    if (dst_width < 1 || dst_height < 1 || sample == 0) return 0;
    const uint64_t n = workers > 1 ? static_cast<uint64_t>(workers) : 1;
    const uint64_t bytes = n * static_cast<uint64_t>(dst_width) * 2 * sample;
    const uint64_t need = bytes + 8 < 24 ? 24 : bytes + 8;
    const uint64_t block = (need + 15) & ~uint64_t{15};
    return block > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<uint32_t>(block);
}
