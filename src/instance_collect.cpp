// Collecting a burst: faces and frames are recorded, never read.
//
// TavrinKELD_internal_faceInZoom(zoom_rect, face): with m a fifth of the face's width as a float,
//   (x0 - left - m) and (right - x1 - m), truncated to int, must both be below 1; the same with
//   the height for top and bottom. A face may thus stick out by a fifth of itself on each side.
// TavrinKELD_internal_addFaceRect(handle, rect): TAV_ERROR_PARAM for a sixth face or an empty
//   rect. A face outside the limit is logged and ignored with TAV_OK; any other is stored.
// TavrinKELD_internal_addImage(handle, image, meta): TAV_ERROR_PARAM for a null argument, an iso
//   or exposure time below 1, five groups in use, or a full group. The first frame of a burst
//   gives the look-up ISO; a base frame gives base_iso and its group's base_index. With num_evs 1
//   every frame joins group 0; otherwise a frame joins the first group whose first frame has its
//   exposure time and ISO, or opens a new group.
#include "foundation/status.h"
#include "src/keld_log.h"
#include "src/tavrin_internal_keld.h"

namespace {

constexpr double kFaceMargin = 0.2;  // a face may stick out by this share of its size

bool rectEmpty(const tavrin_KELD_Rect* r) {
    return r->right <= r->left || r->bottom <= r->top;
}

// Whether [lo, hi) lies within [zoom_lo, zoom_hi) but for a margin m, a fifth of the span
// rounded to float, on each side. A truncated
// value is below 1 exactly when the value is, so the float is compared as it stands; that also
// keeps far-off rectangles clear of an out-of-range conversion.
bool spanInZoom(int32_t zoom_lo, int32_t zoom_hi, int32_t lo, int32_t hi) {
    const float m = static_cast<float>(kFaceMargin * static_cast<double>(int64_t{hi} - lo));
    const float before = static_cast<float>(int64_t{zoom_lo} - lo) - m;
    const float after = static_cast<float>(int64_t{hi} - zoom_hi) - m;
    return before < 1.0f && after < 1.0f;
}

bool sameExposure(const tavrin_KELD_MetaData* a, const tavrin_KELD_MetaData* b) {
    return a->exposure_time == b->exposure_time && a->iso == b->iso;
}

// The group a frame joins; ev_num or more means a new group.
int32_t groupOf(const tavrin_KELD_Obj* obj, const tavrin_KELD_MetaData* meta) {
    if (obj->num_evs == 1) return 0;
    int32_t g = 0;
    while (g < obj->ev_num && !sameExposure(&obj->meta_data[g][0], meta))
        g++;
    return g;
}

}  // namespace

bool TavrinKELD_internal_faceInZoom(const int32_t zoom_rect[4], const tavrin_KELD_Rect* face) {
    return spanInZoom(zoom_rect[0], zoom_rect[2], face->left, face->right) &&
           spanInZoom(zoom_rect[1], zoom_rect[3], face->top, face->bottom);
}

uint32_t TavrinKELD_internal_addFaceRect(tavrin_KELD_Obj** handle, const tavrin_KELD_Rect* rect) {
    if (!handle || !*handle || !rect || (*handle)->face_num >= TAVRIN_KELD_MAX_FACES ||
        rectEmpty(rect)) {
        TAVRIN_KELD_LOG_PARAM_ERROR();
        return TAV_ERROR_PARAM;
    }
    tavrin_KELD_Obj* obj = *handle;
    const int32_t level = obj->debug.log_level;
    const int32_t* z = obj->zoom_rect;
    if (!TavrinKELD_internal_faceInZoom(z, rect)) {
        TavrinKELD_logDebug(level,
                            "Unvalid face info[%d, %d, %d, %d], Zoom rect info [%d, %d, %d, %d], "
                            "ratio : %lf",
                            rect->left, rect->top, rect->right, rect->bottom, z[0], z[1], z[2],
                            z[3], kFaceMargin);
        return TAV_OK;
    }
    obj->face_rects[obj->face_num++] = *rect;
    TavrinKELD_logDebug(level, "face_rect = {%d, %d, %d, %d}", rect->left, rect->top, rect->right,
                        rect->bottom);
    return TAV_OK;
}

uint32_t TavrinKELD_internal_addImage(tavrin_KELD_Obj** handle, const tavrin_KELD_Image* image,
                                      const tavrin_KELD_MetaData* meta) {
    if (!handle || !*handle || !image || !meta || meta->iso < 1 || meta->exposure_time < 1 ||
        (*handle)->ev_num >= TAVRIN_KELD_MAX_EV_GROUPS) {
        TAVRIN_KELD_LOG_PARAM_ERROR();
        return TAV_ERROR_PARAM;
    }
    tavrin_KELD_Obj* obj = *handle;
    const int32_t group = groupOf(obj, meta);  // at most ev_num, thus below five
    if (obj->ev_image_num[group] >= TAVRIN_KELD_MAX_GROUP_FRAMES) {
        TAVRIN_KELD_LOG_PARAM_ERROR();
        return TAV_ERROR_PARAM;
    }
    const int32_t level = obj->debug.log_level;

    if (obj->cfg_meta.iso == 0) {
        obj->cfg_meta.iso = meta->iso;
        obj->debug.iso = meta->iso;
    }
    if (meta->is_base_img) obj->base_iso = meta->iso;
    TavrinKELD_logDebug(level,
                        "input_image[%d] = {buffer = %p, size = %d x %d}, meta_data = {iso: %d, "
                        "et = %d, is_base_img = %d}",
                        obj->input_num, image->plane0, image->width, image->height, meta->iso,
                        meta->exposure_time, meta->is_base_img);
    // INTERIM: input dumps (dump bit 1) arrive with the dump writer.

    if (obj->num_evs == 1) {
        obj->ev_num = 1;
    } else if (group >= obj->ev_num) {
        obj->ev_num = group + 1;
    }
    const int32_t slot = obj->ev_image_num[group];
    if (meta->is_base_img) obj->ev_params.ev[group].base_index = slot;
    obj->meta_data[group][slot] = *meta;
    obj->input_images[group][slot] = *image;
    obj->ev_image_num[group]++;
    obj->input_num++;
    return TAV_OK;
}
