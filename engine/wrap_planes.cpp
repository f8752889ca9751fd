// Host frames into image records.
//
// tav_sr2_Image_wrapPlaneSet(slot, w, h, plane, pitch, format): checks the record against the
//   format (see the header) and binds its planes as an external image. The pitch each plane
//   needs is the format's pitch query for rows of width w, so a frame of code 62 must carry the
//   padding to its width unit of 6 pixels.

#include "engine/wrap_planes.h"

#include "foundation/image_format.h"

namespace {

// Pitch queries of the three planes.
constexpr uint32_t kPitchQuery[3] = {4, 7, 10};

}  // namespace

uint32_t tav_sr2_Image_wrapPlaneSet(tav_sr2_Image* slot, int32_t width, int32_t height,
                                    void* const plane[3], const int32_t pitch[3], int32_t format) {
    if (slot == nullptr || plane == nullptr || pitch == nullptr) return TAV_ERROR_PARAM;
    if (width < 0 || height < 0 || format < 0 || format >= TAV_SR2_FORMAT_COUNT) {
        return TAV_ERROR_PARAM;
    }
    const int32_t count = tav_sr2_ImageFormat_planeCount(format);
    if (width > 0 && height > 0) {
        for (int32_t i = 0; i < count; ++i) {
            if (plane[i] == nullptr) return TAV_ERROR_PARAM;
        }
    }
    for (int32_t i = 0; i < 3; ++i) {
        const uint32_t need = tav_sr2_ImageFormat_query(width, height, format, kPitchQuery[i]);
        if ((int64_t)pitch[i] < (int64_t)need) return TAV_ERROR_PARAM;
    }
    tav_sr2_ImagePlanes3 planes3 = {{(uint8_t*)plane[0], (uint8_t*)plane[1], (uint8_t*)plane[2]},
                                    {pitch[0], pitch[1], pitch[2]}};
    tav_sr2_ImagePlanes2 planes2 = {{(uint8_t*)plane[0], (uint8_t*)plane[1]}, {pitch[0], pitch[1]}};
    tav_sr2_ImagePlanes1 planes1 = {{(uint8_t*)plane[0]}, {pitch[0]}};
    const void* block = count == 3   ? (const void*)&planes3
                        : count == 2 ? (const void*)&planes2
                                     : (const void*)&planes1;
    return tav_sr2_Image_setup(slot, width, height, block, format);
}
