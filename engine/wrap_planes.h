// Binding a host frame record into an image record of the engine, after checking it against a
// format. The host's pixels are not copied; the image becomes external.
#pragma once

#include <stdint.h>

#include "foundation/image.h"
#include "foundation/status.h"

// The checks and the binding on plain values. TAV_ERROR_PARAM for a null slot, a negative width
// or height, a format outside 0..89, a missing plane pointer of the format while the image has
// size (three planes for three-plane formats, two for two-plane formats, one otherwise), or a
// pitch below the format's pitch of that plane for rows of this width (0 where the format has no
// such plane, so only a negative pitch fails there). Otherwise the status of binding the planes
// with tav_sr2_Image_setup, which releases a block the slot owned.
uint32_t tav_sr2_Image_wrapPlaneSet(tav_sr2_Image* slot, int32_t width, int32_t height,
                                    void* const plane[3], const int32_t pitch[3], int32_t format);

// tav_sr2_Image_wrapPlanes(slot, record, format) on the host's frame record (width, height,
// plane0..plane2, pitch0..pitch2); TAV_ERROR_PARAM for a null record.
template <typename Record>
inline uint32_t tav_sr2_Image_wrapPlanes(tav_sr2_Image* slot, const Record* record,
                                         int32_t format) {
    if (record == nullptr) return TAV_ERROR_PARAM;
    void* const plane[3] = {record->plane0, record->plane1, record->plane2};
    const int32_t pitch[3] = {record->pitch0, record->pitch1, record->pitch2};
    return tav_sr2_Image_wrapPlaneSet(slot, record->width, record->height, plane, pitch, format);
}
