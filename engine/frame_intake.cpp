// Frame intake.
//
// tav_sr2_addImage(handle, image): wraps the host's frame in the next slot (converting format 62
//   into a pool image of format 48), cuts the work crop around the current zoom centre as a view,
//   blurs that view in place when y_input_nr_level is above 0, and hands it to the pipeline.
// tav_sr2_Pipeline_addImage(self, clip_view): keeps the view and measures sharpness (centre half
//   of the luma, shrunk by eval_blur_shrink_ratio) and brightness (mean of the luma).
// tav_sr2_getBaseImage(handle, base): the first frame of the chosen order.
//
// A run ends with restart_pending set; the first frame of the next run resets the run (frame
// count, failures, the stored order) and clears the flag, so later frames of that run add up.

#include "engine/frame_intake.h"

#include "engine/convert_packed10.h"
#include "engine/frame_select.h"
#include "engine/sharpness.h"
#include "engine/wrap_planes.h"
#include "enhance/blur.h"
#include "enhance/image_ctx.h"
#include "enhance/resize.h"

namespace {

tav_sr2_ImageCtx engineCtx(tav_sr2_Engine* e) {
    return {&e->pool, &e->thread_pool, &e->task_sys};
}

// The host's frame into full_images[slot]: bound as it is, or converted from format 62.
uint32_t takeFrame(tav_sr2_Engine* e, int32_t slot, const tavrin_KELD_Image* image) {
    tav_sr2_Image* full = &e->full_images[slot];
    if (e->format != TAV_SR2_FMT_YUV10B_PACKED_LE_420S) {
        return tav_sr2_Image_wrapPlanes(full, image, e->format);
    }
    tav_sr2_Image packed;
    tav_sr2_Image_init(&packed, nullptr);
    uint32_t status = tav_sr2_Image_wrapPlanes(&packed, image, e->format);
    if (status == TAV_OK) {
        status = tav_sr2_Image_alloc(full, image->width, image->height, nullptr,
                                     TAV_SR2_FMT_YUV420_SEMIPLANAR);
    }
    if (status == TAV_OK) status = tav_sr2_convertPacked10to8(&e->thread_pool, full, &packed);
    tav_sr2_Image_finish(&packed);
    return status;
}

// The luma of a frame view as a "UINT8" view; a one-plane image is its own luma.
uint32_t lumaView(tav_sr2_Image* luma, const tav_sr2_Image* view) {
    if (view->format == TAV_SR2_FMT_YUV420_SEMIPLANAR ||
        view->format == TAV_SR2_FMT_YVU420_SEMIPLANAR) {
        return tav_sr2_Image_viewPlane0(luma, view, 0, 0, view->width, view->height);
    }
    *luma = *view;
    luma->external = 1;
    return TAV_OK;
}

int32_t shifted(int32_t v, int32_t shift) {
    return shift >= 31 ? 0 : v >> shift;
}

// Sharpness of the centre half of the luma, shrunk by 2^shrink first when shrink is at least 1.
uint32_t measureSharpness(tav_sr2_Pipeline* self, const tav_sr2_Image* luma, int32_t* score) {
    const tav_sr2_ImageCtx ctx = {self->pool, self->thread_pool, self->task_sys};
    const int32_t shrink = self->tuning.eval_blur_shrink_ratio;
    tav_sr2_Image small;
    tav_sr2_Image_init(&small, self->pool);
    const tav_sr2_Image* measured = luma;
    uint32_t status = TAV_OK;
    if (shrink >= 1) {
        status = tav_sr2_Image_alloc(&small, shifted(luma->width, shrink),
                                     shifted(luma->height, shrink), nullptr, TAV_SR2_FMT_UINT8);
        if (status == TAV_OK) status = tav_sr2_Image_resize(&ctx, &small, luma);
        measured = &small;
    }
    tav_sr2_Image centre;
    tav_sr2_Image_init(&centre, self->pool);
    if (status == TAV_OK) {
        status =
            tav_sr2_Image_viewPlane0(&centre, measured, measured->width >> 2, measured->height >> 2,
                                     measured->width >> 1, measured->height >> 1);
    }
    uint32_t value = 0;
    if (status == TAV_OK) {
        const double sigma = self->tuning.eval_blur_sigma;
        status = tav_sr2_Image_sharpness(self->thread_pool, self->pool, &value, &centre,
                                         sigma * TAV_SR2_SQRT2, sigma);
    }
    const uint32_t released = tav_sr2_Image_finish(&small);
    if (status != TAV_OK) return status;
    *score = (int32_t)value;
    return released;
}

}  // namespace

uint32_t tav_sr2_Pipeline_addImage(tav_sr2_Pipeline* self, const tav_sr2_Image* clip_view) {
    if (self == nullptr || clip_view == nullptr) return TAV_ERROR_PARAM;
    if (self->restart_pending != 0) {
        self->frame_count = 0;
        self->align_fail_count = 0;
        self->order_ready = 0;
        self->restart_pending = 0;
    }
    const int32_t n = self->frame_count;
    if (n >= self->max_image_num || n >= TAV_SR2_PIPELINE_FRAMES) return TAV_ERROR_STATE;
    self->images[n] = *clip_view;
    self->images[n].external = 1;
    self->sharpness[n] = 0;
    self->brightness[n] = 0.0f;
    tav_sr2_Image luma = {};
    uint32_t status = TAV_OK;
    if (self->tuning.select_frame != 0 || self->tuning.removebrightnessdiff_image_enable != 0) {
        status = lumaView(&luma, clip_view);
    }
    if (status == TAV_OK && self->tuning.select_frame != 0) {
        status = measureSharpness(self, &luma, &self->sharpness[n]);
    }
    if (status == TAV_OK && self->tuning.removebrightnessdiff_image_enable != 0) {
        status = tav_sr2_Image_brightness(self->task_sys, &luma, &self->brightness[n]);
    }
    if (status != TAV_OK) return status;
    self->frame_count = n + 1;
    return TAV_OK;
}

uint32_t tav_sr2_addImage(tav_sr2_Engine** handle, const tavrin_KELD_Image* image) {
    if (handle == nullptr || *handle == nullptr || image == nullptr || image->width < 1 ||
        image->height < 1 || image->plane0 == nullptr) {
        return TAV_ERROR_PARAM;
    }
    tav_sr2_Engine* e = nullptr;
    const uint32_t state = tav_sr2_Engine_get(handle, TAV_SR2_OP_ADD_IMAGE, &e);
    if (state != TAV_OK) return state;
    const int32_t slot = e->cursor;
    if (slot < 0 || slot >= e->max_image_num || slot >= TAV_SR2_ENGINE_SLOTS) {
        return TAV_ERROR_GENERIC;
    }
    if (takeFrame(e, slot, image) != TAV_OK) return TAV_ERROR_GENERIC;
    tav_sr2_Rect crop;
    tav_sr2_Engine_workCrop(e, &crop);
    tav_sr2_Image* clip = &e->clip_images[slot];
    if (tav_sr2_Image_crop(clip, &e->full_images[slot], crop.left, crop.top, crop.right - crop.left,
                           crop.bottom - crop.top) != TAV_OK) {
        return TAV_ERROR_GENERIC;
    }
    uint32_t status = TAV_OK;
    if (e->y_input_nr_level > 0.0) {
        const tav_sr2_ImageCtx ctx = engineCtx(e);
        status |= tav_sr2_Image_blur(&ctx, clip, clip, e->y_input_nr_level);
    }
    status |= tav_sr2_Pipeline_addImage(&e->pipeline, clip);
    if (status != TAV_OK) return TAV_ERROR_GENERIC;
    e->cursor = slot + 1;
    e->state |= TAV_SR2_STATE_FRAME_TAKEN;
    return TAV_OK;
}

uint32_t tav_sr2_getBaseImage(tav_sr2_Engine** handle, int32_t* base) {
    tav_sr2_Engine* e = nullptr;
    const uint32_t state = tav_sr2_Engine_get(handle, TAV_SR2_OP_GET_BASE_IMAGE, &e);
    if (state != TAV_OK) return state;
    if (base == nullptr) return TAV_ERROR_PARAM;
    const uint32_t status = tav_sr2_Pipeline_selectFrames(&e->pipeline, e->pipeline.frame_order);
    if (status != TAV_OK) return status;
    *base = e->pipeline.frame_order[0];
    return TAV_OK;
}
