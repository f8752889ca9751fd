// tav_sr2_Pipeline_align(self): one homography per frame of the burst, base frame first.
//
// The frames are walked in frame_order. Each frame's luma, reduced by detectmotion_shrink_ratio
// (a copy by the general resize) or taken in place (a view, never written), goes to one motion
// estimator: the base frame becomes its reference, every later frame is estimated from the
// transform found for the frame before. Results are brought back to clip pixels. A frame whose
// verdict is nonzero is not an error: it keeps the identity and counts as failed, and a burst in
// which all frames but the base failed is cut to the base frame. Any failing call ends the loop,
// releases the estimator and is returned; the burst is then the caller's to abandon.
#include "alignment/align_driver.h"

#include "alignment/motion_estimator.h"
#include "engine/frame_select.h"
#include "enhance/image_ctx.h"
#include "enhance/resize.h"
#include "foundation/image.h"
#include "foundation/log.h"
#include "foundation/trans2d.h"

namespace {

// What the pipeline insists on, whatever the estimator's defaults.
const int32_t kFitMethod = 3;
const int32_t kFeatureCount = 256;
const int32_t kMotionModel = 3;
const double kInlierRatio = 0.5;

struct WorkSize {
    int32_t shrink;
    int32_t width;  // clip size >> shrink
    int32_t height;
};

// The two image records of one frame: the view of its luma, and the image aligned on (the
// reduced copy, or a crop view of the whole plane when nothing is reduced).
struct FrameImages {
    tav_sr2_Image luma;
    tav_sr2_Image work;
};

uint32_t makeWorkImage(tav_sr2_Pipeline* self, int32_t k, const WorkSize& size, FrameImages* f) {
    tav_sr2_Image_init(&f->luma, self->pool);
    tav_sr2_Image_init(&f->work, self->pool);
    uint32_t status = tav_sr2_Image_viewPlane0(&f->luma, &self->images[k], 0, 0, self->clip_width,
                                               self->clip_height);
    if (status != TAV_OK) return status;
    if (size.shrink == 0) {
        return tav_sr2_Image_crop(&f->work, &f->luma, 0, 0, self->clip_width, self->clip_height);
    }
    status = tav_sr2_Image_alloc(&f->work, size.width, size.height, nullptr, TAV_SR2_FMT_UINT8);
    if (status != TAV_OK) return status;
    const tav_sr2_ImageCtx ctx = {self->pool, self->thread_pool, self->task_sys};
    return tav_sr2_Image_resize(&ctx, &f->work, &f->luma);
}

void releaseImages(FrameImages* f) {
    tav_sr2_Image_finish(&f->work);
    tav_sr2_Image_finish(&f->luma);
}

void storeTransform(tav_sr2_Pipeline* self, int32_t k, const tav_sr2_Trans2D& t) {
    for (int32_t i = 0; i < 9; ++i)
        self->align_transforms[k][i] = t.m[i];
}

// The base frame: the estimator is made, forced to the engine's configuration, and given its
// reference. The base keeps the estimator's first transform, the identity, and a zero status.
uint32_t startOnBase(tav_sr2_Pipeline* self, tav_sr2_MotionEstimator* est, int32_t k,
                     const WorkSize& size, const tav_sr2_Image* image) {
    est->fit_method = kFitMethod;
    est->max_pixels =
        (int32_t)(((int64_t)self->clip_width * self->clip_height) >> (2 * size.shrink));
    est->feature_count = kFeatureCount;
    est->motion_model = kMotionModel;
    est->normalize_level0 = 0;
    est->inlier_ratio = kInlierRatio;
    est->thread_pool = self->thread_pool;
    uint32_t status = tav_sr2_MotionEstimator_configure(est, size.width, size.height);
    if (status == TAV_OK) status = tav_sr2_MotionEstimator_setReference(est, image);
    tav_sr2_Trans2D t;
    if (status == TAV_OK) status = tav_sr2_MotionEstimator_getResult(est, &t);
    if (status != TAV_OK) return status;
    storeTransform(self, k, t);
    self->align_status[k] = 0;
    return TAV_OK;
}

uint32_t alignFrame(tav_sr2_Pipeline* self, tav_sr2_MotionEstimator* est, int32_t k,
                    const WorkSize& size, const tav_sr2_Image* image) {
    uint32_t status = tav_sr2_MotionEstimator_estimate(est, image);
    tav_sr2_Trans2D t;
    if (status == TAV_OK) status = tav_sr2_MotionEstimator_getResult(est, &t);
    if (status != TAV_OK) return status;
    // Only the width ratio is used: the height is reduced by the same shift.
    if (size.width != self->clip_width) {
        tav_sr2_Trans2D_rescale(&t, &t, nullptr, 0, (double)self->clip_width / size.width);
    }
    const uint32_t verdict = est->status;
    self->align_status[k] = verdict;
    if (verdict != 0) {
        tav_sr2_log_w("WARNING!!! image %d algin failed %d\n", k, (int)verdict);
        self->align_fail_count += 1;
        tav_sr2_Trans2D_identity(&t);
    }
    storeTransform(self, k, t);
    return TAV_OK;
}

// The frames in order; stops at the first failing call.
uint32_t alignFrames(tav_sr2_Pipeline* self, tav_sr2_MotionEstimator* est) {
    WorkSize size;
    size.shrink = self->tuning.detectmotion_shrink_ratio & 31;
    size.width = self->clip_width >> size.shrink;
    size.height = self->clip_height >> size.shrink;
    for (int32_t i = 0; i < self->frame_count; ++i) {
        const int32_t k = self->frame_order[i];
        FrameImages f;
        uint32_t status = makeWorkImage(self, k, size, &f);
        if (status == TAV_OK) {
            status = i == 0 ? startOnBase(self, est, k, size, &f.work)
                            : alignFrame(self, est, k, size, &f.work);
        }
        releaseImages(&f);
        if (status != TAV_OK) return status;
    }
    return TAV_OK;
}

}  // namespace

uint32_t tav_sr2_Pipeline_align(tav_sr2_Pipeline* self) {
    if (self == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = tav_sr2_Pipeline_selectFrames(self, nullptr);
    if (status != TAV_OK) return status;

    tav_sr2_MotionEstimator est;
    status = tav_sr2_MotionEstimator_init(&est, self->pool);
    if (status != TAV_OK) return status;
    if (self->frame_count >= 1) status = alignFrames(self, &est);
    if (status != TAV_OK) {
        tav_sr2_MotionEstimator_finish(&est);
        return status;
    }
    // frame_count 0 ends here too, and leaves with the base frame slot alone.
    if (self->align_fail_count >= self->frame_count - 1) {
        self->frame_count = 1;
        tav_sr2_log_d("All align failed");
    }
    tav_sr2_MotionEstimator_finish(&est);
    return TAV_OK;
}
