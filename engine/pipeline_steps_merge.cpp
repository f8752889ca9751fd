// Steps 1 and 2 of a run: the run's images, and the merge of the frames into accum_image.
//
// tav_sr2_Pipeline_prepareImages(self, plan): accum_image at the internal size in the 10-bit
//   form of the first frame's format (52 for 48, 53 for 49, 52 and 53 as they are), and for the
//   CPU merge of 8-bit frames merge8_image in the frame's format. "sr process 1 init image:
//   finish...\n" once both exist.
// tav_sr2_Pipeline_mergeFrames(self, plan): accum_num 0; the three quarter-size maps; then each
//   position of frame_order up to frame_count, stopping at an index above 11 or at the first
//   failure. The base frame (the first one merged) sets up the weights and lands in the merge
//   target, enlarged when the run is zoomed, else copied. After the loop the maps are released
//   and the noise map is made; a failure there ends the step before its last part, which takes
//   what was merged into accum_image (the 8-to-10-bit conversion of merge8_image). merge8_image
//   is released either way. Logs "sr process 2 merge images: finish...\n".
//
// Each later frame is warped onto the crop and compared with the base by the ghost map, whose
// bytes, resized into ghost_quarter, make the frame's coefficient and raise weight_sum. The CPU
// merge then spreads the coefficient over the picture (enlarged with the frame in a zoomed run)
// and blends the frame into the running mean in merge8_image; after the loop the noise map is
// made and raised in dark areas before merge8_image becomes accum_image.
//
// INTERIM, while the GPU path is not built: 10-bit frames, which only the GPU merge takes, have
// their base frame placed straight into accum_image and their later frames only compared.
#include <stdio.h>

#include "engine/nr_map.h"
#include "engine/pipeline_steps.h"
#include "enhance/image_ops.h"
#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/depth_convert.h"
#include "foundation/log.h"
#include "merge/face_mask.h"
#include "merge/ghost.h"
#include "merge/merge_coeff.h"
#include "merge/warp.h"

namespace {

constexpr int32_t kFullWeight = 128;  // weight_sum of one fully trusted frame
constexpr int32_t kLastFrameSlot = TAV_SR2_PIPELINE_FRAMES - 1;
constexpr int32_t kCoarseGhostScale = 4;  // work image of a crop merged at its own scale

// The image the CPU merge builds: merge8_image for 8-bit frames, else accum_image itself.
tav_sr2_Image* mergeTarget(tav_sr2_Pipeline* self) {
    return self->merge8_image.plane[0] != nullptr ? &self->merge8_image : &self->accum_image;
}

uint32_t allocQuarterMaps(tav_sr2_Pipeline* self) {
    const int32_t w = self->weight_sum.width;
    const int32_t h = self->weight_sum.height;
    uint32_t status = tav_sr2_Image_alloc(&self->coef_quarter[0], w, h, nullptr, TAV_SR2_FMT_UINT8);
    if (status == TAV_OK) {
        status = tav_sr2_Image_alloc(&self->coef_quarter[1], w, h, nullptr, TAV_SR2_FMT_UINT8);
    }
    if (status == TAV_OK) {
        status = tav_sr2_Image_alloc(&self->ghost_quarter, w, h, nullptr, TAV_SR2_FMT_UINT8);
    }
    return status;
}

uint32_t releaseQuarterMaps(tav_sr2_Pipeline* self) {
    uint32_t status = tav_sr2_Pipeline_releaseImage(self, &self->ghost_quarter);
    status |= tav_sr2_Pipeline_releaseImage(self, &self->coef_quarter[0]);
    status |= tav_sr2_Pipeline_releaseImage(self, &self->coef_quarter[1]);
    return status;
}

// A crop that merges at the frames' own scale (q below 2) lowers the ghost thresholds: always
// on the GPU, on the CPU only at fast_merge_mode 3.
void lowerGhostThresholds(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan) {
    sr_tunning_param* t = &self->tuning;
    if (plan->gpu_merge) {
        self->ghost.ghost_scale = kCoarseGhostScale;
        t->deghost_ofs *= 0.5;
        t->deghost_deg *= 2.0;
    } else if (t->fast_merge_mode == 3) {
        self->ghost.ghost_scale = kCoarseGhostScale;
        t->deghost_ofs *= 0.5;
    }
}

// The face table and the face mask, painted from the base view brought to the mask's size.
uint32_t prepareFaces(tav_sr2_Pipeline* self, const tav_sr2_Image* base_view) {
    tav_sr2_Rect rects[TAV_SR2_MAX_FACES];
    const int32_t count =
        tav_sr2_Pipeline_faceMapRects(self, base_view->width, base_view->height, rects);
    tav_sr2_fillWeightTable(self->weight_table_face, 6.0, 0.25 * self->tuning.deghost_ofs);
    const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
    tav_sr2_Image picture;
    tav_sr2_Image_init(&picture, self->pool);
    uint32_t status = tav_sr2_Image_alloc(&picture, self->face_mask.width, self->face_mask.height,
                                          nullptr, base_view->format);
    if (status == TAV_OK) status = tav_sr2_Image_resize(&ctx, &picture, base_view);
    if (status == TAV_OK)
        status = tav_sr2_FaceMask_build(&ctx, &self->face_mask, &picture, rects, count);
    const uint32_t released = tav_sr2_Image_finish(&picture);
    return status != TAV_OK ? status : released;
}

// The base frame into the merge target: enlarged to the internal size by the pattern upscaler
// (luma) and the resampler (chroma), or copied.
uint32_t placeBase(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan,
                   const tav_sr2_Image* base_view) {
    tav_sr2_Image* target = mergeTarget(self);
    if (plan->zoomed) {
        // The pattern step takes 8-bit luma; a 10-bit frame (interim, see above) is resampled.
        tav_sr2_Upscaler* u = &self->upscaler;
        const uint32_t status = tav_sr2_isSemiPlanar8(base_view->format)
                                    ? tav_sr2_Upscaler_scaleLuma(u, target, base_view)
                                    : tav_sr2_Upscaler_resample(u, target, base_view);
        return status != TAV_OK ? status : tav_sr2_Upscaler_resampleChroma(u, target, base_view);
    }
    puts("tav_sr2_RawDouble_abs 1.......");
    return tav_sr2_Image_copy(target, base_view);
}

uint32_t mergeBase(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan, int32_t f) {
    tav_sr2_Image view;
    tav_sr2_Image_init(&view, self->pool);
    uint32_t status =
        tav_sr2_Image_crop(&view, &self->images[f], self->clip_rect.left, self->clip_rect.top,
                           self->aligned_width, self->aligned_height);
    if (status != TAV_OK) return status;
    const int32_t q = self->input_width / view.width;
    tav_sr2_Ghost* ghost = &self->ghost;
    ghost->fast_merge_mode = self->tuning.fast_merge_mode;
    ghost->input_scale = static_cast<float>(q);
    if (q < 2) lowerGhostThresholds(self, plan);
    if (self->internal_face_num > 0) status = prepareFaces(self, &view);
    if (status != TAV_OK) return status;
    ghost->deghost_gauss_sigma0 = self->tuning.deghost_gauss_sigma0;
    ghost->deghost_noise_level = self->tuning.deghost_noise_level;
    ghost->deghost_ofs = self->tuning.deghost_ofs;
    status = tav_sr2_Ghost_setBase(ghost, &view);
    if (status != TAV_OK) return status;
    const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
    status = tav_sr2_Image_fillValue(&ctx, &self->weight_sum, kFullWeight);
    if (status != TAV_OK) return status;
    const sr_tunning_param* t = &self->tuning;
    tav_sr2_fillWeightTable(self->weight_table, t->deghost_deg, t->deghost_ofs);
    status = placeBase(self, plan, &view);
    if (status == TAV_OK) self->accum_num += 1;
    return status;
}

// Frame f at position i onto the crop: translate(clip_rect.left, clip_rect.top) first, then
// align_transforms[f], from crop pixels to the frame's.
uint32_t warpFrame(tav_sr2_Pipeline* self, int32_t f, tav_sr2_Image* warped) {
    tav_sr2_Trans2D to_frame, to_clip;
    tav_sr2_Trans2D_identity(&to_clip);
    to_clip.m[2] = self->clip_rect.left;
    to_clip.m[5] = self->clip_rect.top;
    tav_sr2_Trans2D_identity(&to_frame);
    for (int32_t k = 0; k < 9; ++k)
        to_frame.m[k] = self->align_transforms[f][k];
    tav_sr2_Trans2D_multiply(&to_frame, &to_frame, &to_clip);
    const tav_sr2_Image* frame = &self->images[f];
    uint32_t status = tav_sr2_Image_alloc(warped, self->aligned_width, self->aligned_height,
                                          nullptr, frame->format);
    const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
    if (status == TAV_OK) status = tav_sr2_Warp_frame(&ctx, warped, frame, &to_frame);
    return status;
}

// The coefficient of the frame at position i from its ghost map, with the face table mixed in
// where the face mask is painted.
uint32_t makeCoefficient(tav_sr2_Pipeline* self, int32_t i) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
    uint32_t status = tav_sr2_Image_resize(&ctx, &self->ghost_quarter, &self->ghost.ghost_map);
    if (status != TAV_OK) return status;
    const bool faces = self->internal_face_num > 0;
    const tav_sr2_MergeWeights weights = {self->weight_table, self->weight_table_face,
                                          faces ? &self->face_mask : nullptr,
                                          self->tuning.deghost_face_weight};
    return tav_sr2_MergeCoeff_make(&ctx, &self->coef_quarter[i & 1], &self->weight_sum,
                                   &self->ghost_quarter, &weights);
}

// The crop pixels the ghost map could judge, as a rectangle.
tav_sr2_Rect ghostValidRect(const tav_sr2_Ghost* ghost) {
    const int32_t* v = ghost->ghost_valid_rect;
    return {v[0], v[1], v[2], v[3]};
}

// A later frame at the picture's own size: its coefficient spread over the picture, then the
// blend into the running mean.
uint32_t blendUnzoomed(tav_sr2_Pipeline* self, int32_t i, const tav_sr2_Image* warped) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
    tav_sr2_Image* target = &self->merge8_image;
    tav_sr2_Image coef;
    tav_sr2_Image_init(&coef, self->pool);
    uint32_t status =
        tav_sr2_Image_alloc(&coef, target->width, target->height, nullptr, TAV_SR2_FMT_UINT8);
    const tav_sr2_Rect valid = ghostValidRect(&self->ghost);
    if (status == TAV_OK)
        status = tav_sr2_MergeCoeff_spread(&ctx, &coef, &self->coef_quarter[i & 1], &valid);
    if (status == TAV_OK) status = tav_sr2_Image_blendMask(&ctx, target, target, warped, &coef);
    puts("tav_sr2_RawDouble_abs 2.......");
    const uint32_t released = tav_sr2_Image_finish(&coef);
    return status != TAV_OK ? status : released;
}

// A later frame of a zoomed run: the coefficient spread over the crop and enlarged to the
// picture; the frame enlarged (the pattern step for the second frame only) and blended.
uint32_t blendZoomed(tav_sr2_Pipeline* self, int32_t i, const tav_sr2_Image* warped) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
    tav_sr2_Image* target = &self->merge8_image;
    tav_sr2_Image coef, crop_coef, frame;
    tav_sr2_Image_init(&coef, self->pool);
    tav_sr2_Image_init(&crop_coef, self->pool);
    tav_sr2_Image_init(&frame, self->pool);
    uint32_t status =
        tav_sr2_Image_alloc(&coef, target->width, target->height, nullptr, TAV_SR2_FMT_UINT8);
    if (status == TAV_OK)
        status = tav_sr2_Image_alloc(&crop_coef, warped->width, warped->height, nullptr,
                                     TAV_SR2_FMT_UINT8);
    const tav_sr2_Rect valid = ghostValidRect(&self->ghost);
    if (status == TAV_OK)
        status = tav_sr2_MergeCoeff_spread(&ctx, &crop_coef, &self->coef_quarter[i & 1], &valid);
    if (status == TAV_OK) status = tav_sr2_Image_resize(&ctx, &coef, &crop_coef);
    if (status == TAV_OK)
        status =
            tav_sr2_Image_alloc(&frame, target->width, target->height, nullptr, warped->format);
    tav_sr2_Upscaler* u = &self->upscaler;
    if (status == TAV_OK)
        status = i == 1 ? tav_sr2_Upscaler_scaleLuma(u, &frame, warped)
                        : tav_sr2_Upscaler_resample(u, &frame, warped);
    if (status == TAV_OK) status = tav_sr2_Upscaler_resampleChroma(u, &frame, warped);
    if (status == TAV_OK) status = tav_sr2_Image_blendMask(&ctx, target, target, &frame, &coef);
    uint32_t released = tav_sr2_Image_finish(&frame);
    released |= tav_sr2_Image_finish(&crop_coef);
    released |= tav_sr2_Image_finish(&coef);
    return status != TAV_OK ? status : released;
}

// A later frame: warped onto the crop, compared with the base, its coefficient made and, on the
// CPU merge, blended into the running mean.
uint32_t mergeLater(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan, int32_t i, int32_t f) {
    tav_sr2_Image warped;
    tav_sr2_Image_init(&warped, self->pool);
    uint32_t status = warpFrame(self, f, &warped);
    if (status == TAV_OK) status = tav_sr2_Ghost_addFrame(&self->ghost, &warped);
    if (status == TAV_OK) status = makeCoefficient(self, i);
    // STAGE PENDING gpu/: without merge8_image the GPU merge pass blends the frame.
    if (status == TAV_OK && self->merge8_image.plane[0] != nullptr) {
        status = plan->zoomed ? blendZoomed(self, i, &warped) : blendUnzoomed(self, i, &warped);
        if (status == TAV_OK) self->accum_num += 1;
    }
    const uint32_t released = tav_sr2_Image_finish(&warped);
    return status != TAV_OK ? status : released;
}

// The last part of the merge step: what the merge target holds into accum_image, when anything
// was merged.
uint32_t finishMerge(tav_sr2_Pipeline* self) {
    if (mergeTarget(self) == &self->accum_image) {
        // STAGE PENDING gpu/: the GPU merge ends here with the deblur copy of nr_map,
        // boostDarkArea on the base crop (dark_area_nr_level above 1), the directional pass
        // (dirnr), the deblur pass (deblur_psf) and the read-back into accum_image.
        return TAV_OK;
    }
    if (self->accum_num == 0) return TAV_OK;
    const uint32_t status = tav_sr2_Pipeline_boostDarkArea(self, &self->merge8_image);
    if (status != TAV_OK) return status;
    return tav_sr2_convert8to10(self->thread_pool, self->pool, &self->accum_image,
                                &self->merge8_image);
}

}  // namespace

uint32_t tav_sr2_Pipeline_prepareImages(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan) {
    const int32_t format = self->images[0].format;
    const bool cpu_merge8 = tav_sr2_isSemiPlanar8(format) && !plan->gpu_merge;
    int32_t accum_format = format;
    if (format == TAV_SR2_FMT_YUV420_SEMIPLANAR) accum_format = TAV_SR2_FMT_YUV10B420_SEMIPLANAR;
    if (format == TAV_SR2_FMT_YVU420_SEMIPLANAR) accum_format = TAV_SR2_FMT_YVU10B420_SEMIPLANAR;
    if (!tav_sr2_isSemiPlanar10(accum_format)) return TAV_ERROR_UNSUPPORTED;
    // STAGE PENDING gpu/: prepare the render target, in 16-bit mode unless cpu_merge8.
    int32_t width;
    int32_t height;
    tav_sr2_Pipeline_internalSize(self, &width, &height);
    uint32_t status = tav_sr2_Image_alloc(&self->accum_image, width, height, nullptr, accum_format);
    if (status == TAV_OK && cpu_merge8) {
        status = tav_sr2_Image_alloc(&self->merge8_image, width, height, nullptr, format);
    }
    if (status != TAV_OK) return status;
    tav_sr2_log_i("sr process 1 init image: finish...\n");
    return TAV_OK;
}

uint32_t tav_sr2_Pipeline_mergeFrames(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan) {
    self->accum_num = 0;
    tav_sr2_Ghost_init(&self->ghost, self->pool);
    self->ghost.threads = self->thread_pool;
    self->ghost.tasks = self->task_sys;
    uint32_t status = allocQuarterMaps(self);
    for (int32_t i = 0; status == TAV_OK && i < self->frame_count; ++i) {
        const int32_t f = self->frame_order[i];
        if (f < 0 || f > kLastFrameSlot) break;
        status = self->accum_num == 0 ? mergeBase(self, plan, f) : mergeLater(self, plan, i, f);
        // STAGE PENDING gpu/: the GPU merge uploads the frame and runs the base warp pass at
        // i = 0, the merge pass with coef_quarter[i & 1] after.
    }
    // A failure in the loop ends the loop; one in what follows it ends the step.
    uint32_t after = releaseQuarterMaps(self);
    after |= tav_sr2_Ghost_finish(&self->ghost);
    if (after == TAV_OK) after = tav_sr2_Pipeline_makeNrMap(self);
    if (after == TAV_OK) after = finishMerge(self);
    if (status == TAV_OK) status = after;
    const uint32_t released = tav_sr2_Pipeline_releaseImage(self, &self->merge8_image);
    if (status == TAV_OK) status = released;
    tav_sr2_log_i("sr process 2 merge images: finish...\n");
    return status;
}
