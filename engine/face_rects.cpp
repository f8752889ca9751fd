// The engine's face list.
//
// tav_sr2_setFaceRects(handle, rects, count): needs a started engine (TAV_ERROR_STATE); count in
//   0..5 and rects present when count is above 0 (TAV_ERROR_PARAM). The list is cleared, then each
//   face that lies wholly inside the work crop and covers at least ((crop width / 100) * crop
//   height) / 100 pixels goes in, moved to crop coordinates. Faces that fail either test are left
//   out without any failure: a small or cut face would only disturb the face weighting.
#include "engine/engine.h"
#include "foundation/log.h"

namespace {

int32_t areaLimit(const tav_sr2_Rect& crop) {
    return ((crop.right - crop.left) / 100) * (crop.bottom - crop.top) / 100;
}

bool liesInside(const tav_sr2_Rect& face, const tav_sr2_Rect& crop) {
    return face.left >= crop.left && face.top >= crop.top && face.right <= crop.right &&
           face.bottom <= crop.bottom;
}

int64_t areaOf(const tav_sr2_Rect& face) {
    return int64_t{face.right - face.left} * int64_t{face.bottom - face.top};
}

}  // namespace

uint32_t tav_sr2_setFaceRects(tav_sr2_Engine** handle, const tav_sr2_Rect* rects, int32_t count) {
    tav_sr2_Engine* e = nullptr;
    const uint32_t status = tav_sr2_Engine_get(handle, TAV_SR2_OP_SET_FACE_RECTS, &e);
    if (status != TAV_OK) return status;
    if (count < 0 || count > TAV_SR2_MAX_FACES || (count > 0 && rects == nullptr))
        return TAV_ERROR_PARAM;

    tav_sr2_Pipeline* p = &e->pipeline;
    p->internal_face_num = 0;
    tav_sr2_Rect crop;
    tav_sr2_Engine_workCrop(e, &crop);
    const int32_t limit = areaLimit(crop);
    for (int32_t i = 0; i < count; ++i) {
        const tav_sr2_Rect& face = rects[i];
        tav_sr2_log_i(" rect_tmp =[%d, %d, %d, %d]\n", face.left, face.top, face.right,
                      face.bottom);
        tav_sr2_log_i(" input_clip_rect =[%d, %d, %d, %d]\n", crop.left, crop.top, crop.right,
                      crop.bottom);
        if (areaOf(face) < limit || !liesInside(face, crop)) continue;
        tav_sr2_Rect& kept = p->internal_face_rects[p->internal_face_num++];
        kept = {face.left - crop.left, face.top - crop.top, face.right - crop.left,
                face.bottom - crop.top};
        tav_sr2_log_i(" internal face_num = %d face_rect[%d, %d, %d, %d]\n", p->internal_face_num,
                      kept.left, kept.top, kept.right, kept.bottom);
    }
    return TAV_OK;
}
