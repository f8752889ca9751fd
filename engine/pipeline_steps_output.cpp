// Steps 13 to 15 of a run: the window of accum_image that the well-aligned frames cover, scaled
// into the caller's output.
//
// tav_sr2_Pipeline_writeOutput(self, plan): the window from tav_sr2_Pipeline_calcAutoScale, then
//   - ordinary zoom: the destination is the output itself when it has accum_image's format, else
//     a pool image of the output's size in that format. Luma is scaled first (the upscaler's
//     resample, or the plain resize at fast_merge_mode 3), then chroma by the plain resize; an
//     output within the frame size is dithered; a temporary destination is converted into the
//     output (10 to 8 bits for 48 and 49, else 8 to 10);
//   - super zoom: the source is accum_image itself when the output has its format, else a pool
//     copy of it in the output's format; its window is scaled into the output, chroma first, both
//     planes by the plain resize.
//   Logs "sr process 11 finish...\n". The status is the first failure, which ends the step.
//
// tav_sr2_resizeFramePlanes(ctx, dst, src, chroma_first): luma and chroma plane views of both
//   frames resized one after the other by tav_sr2_Image_resize.
#include "engine/pipeline_steps.h"
#include "engine/valid_rect.h"
#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/depth_convert.h"
#include "foundation/log.h"

namespace {

uint32_t resizeLuma(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src) {
    tav_sr2_Image d;
    tav_sr2_Image s;
    uint32_t status = tav_sr2_Image_viewPlane0(&d, dst, 0, 0, dst->width, dst->height);
    if (status == TAV_OK) status = tav_sr2_Image_viewPlane0(&s, src, 0, 0, src->width, src->height);
    if (status == TAV_OK) status = tav_sr2_Image_resize(ctx, &d, &s);
    return status;
}

uint32_t resizeChroma(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src) {
    tav_sr2_Image d;
    tav_sr2_Image s;
    uint32_t status = tav_sr2_Image_viewChroma(&d, dst, 0, 0, dst->width, dst->height);
    if (status == TAV_OK) status = tav_sr2_Image_viewChroma(&s, src, 0, 0, src->width, src->height);
    if (status == TAV_OK) status = tav_sr2_Image_resize(ctx, &d, &s);
    return status;
}

// Converts between the 8- and 10-bit forms of a frame, whichever way dst asks.
uint32_t convertDepth(tav_sr2_Pipeline* self, tav_sr2_Image* dst, const tav_sr2_Image* src) {
    if (tav_sr2_isSemiPlanar8(dst->format)) {
        return tav_sr2_convert10to8(self->thread_pool, self->pool, dst, src);
    }
    return tav_sr2_convert8to10(self->thread_pool, self->pool, dst, src);
}

// Luma of the window into dst: the upscaler's resampler, or the plain resize at fast_merge_mode 3.
uint32_t scaleLuma(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan, tav_sr2_Image* dst,
                   const tav_sr2_Image* window) {
    if (plan->plain_luma_scaling) {
        const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
        return resizeLuma(&ctx, dst, window);
    }
    return tav_sr2_Upscaler_resample(&self->upscaler, dst, window);
}

uint32_t scaleOrdinary(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan,
                       const tav_sr2_Image* window) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
    tav_sr2_Image* output = self->output;
    tav_sr2_Image temporary;
    tav_sr2_Image_init(&temporary, self->pool);
    tav_sr2_Image* dst = output;
    uint32_t status = TAV_OK;
    if (output->format != self->accum_image.format) {
        status = tav_sr2_Image_alloc(&temporary, output->width, output->height, nullptr,
                                     self->accum_image.format);
        dst = &temporary;
    }
    if (status == TAV_OK) status = scaleLuma(self, plan, dst, window);
    if (status == TAV_OK) status = resizeChroma(&ctx, dst, window);
    if (status == TAV_OK && plan->dither_output) status = tav_sr2_Pipeline_dither(self, dst);
    if (status == TAV_OK && dst == &temporary) status = convertDepth(self, output, &temporary);
    const uint32_t released = tav_sr2_Image_finish(&temporary);
    return status != TAV_OK ? status : released;
}

uint32_t scaleSuper(tav_sr2_Pipeline* self, const tav_sr2_Rect* w) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
    tav_sr2_Image* output = self->output;
    const tav_sr2_Image* accum = &self->accum_image;
    tav_sr2_Image copy;
    tav_sr2_Image_init(&copy, self->pool);
    const tav_sr2_Image* source = accum;
    uint32_t status = TAV_OK;
    if (output->format != accum->format) {
        status = tav_sr2_Image_alloc(&copy, accum->width, accum->height, nullptr, output->format);
        if (status == TAV_OK) status = convertDepth(self, &copy, accum);
        source = &copy;
    }
    tav_sr2_Image window;
    if (status == TAV_OK) {
        status = tav_sr2_Image_crop(&window, source, w->left, w->top, w->right - w->left,
                                    w->bottom - w->top);
    }
    if (status == TAV_OK) status = tav_sr2_resizeFramePlanes(&ctx, output, &window, true);
    const uint32_t released = tav_sr2_Image_finish(&copy);
    return status != TAV_OK ? status : released;
}

}  // namespace

uint32_t tav_sr2_resizeFramePlanes(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src, bool chroma_first) {
    if (chroma_first) {
        const uint32_t status = resizeChroma(ctx, dst, src);
        return status != TAV_OK ? status : resizeLuma(ctx, dst, src);
    }
    const uint32_t status = resizeLuma(ctx, dst, src);
    return status != TAV_OK ? status : resizeChroma(ctx, dst, src);
}

uint32_t tav_sr2_Pipeline_writeOutput(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan) {
    const tav_sr2_Image* accum = &self->accum_image;
    tav_sr2_Rect w;
    uint32_t status =
        tav_sr2_Pipeline_calcAutoScale(self, accum->width, accum->height, nullptr, &w);
    if (status == TAV_OK && plan->super_zoom) {
        status = scaleSuper(self, &w);
    } else if (status == TAV_OK) {
        tav_sr2_Image window;
        status =
            tav_sr2_Image_crop(&window, accum, w.left, w.top, w.right - w.left, w.bottom - w.top);
        if (status == TAV_OK) status = scaleOrdinary(self, plan, &window);
    }
    tav_sr2_log_i("sr process 11 finish...\n");
    return status;
}
