// Valid rectangles and the final scale.
//
// tav_sr2_validRect(in, rect): the rectangle that all counted frames cover, symmetric in the
//   area of interest and on even coordinates.
// tav_sr2_scaleWindow(in, window): how much further the picture must be enlarged, and the centred
//   window of it that the final scaling takes.
// tav_sr2_Pipeline_calcAutoScale(self, picture w, h, valid, window): both over the pipeline.
//
// A projected corner is truncated toward zero at once, and every comparison is made on those
// integers. Corners that go to infinity or NaN (a transform whose third row vanishes there) are
// limited to the i32 range, NaN to 0, which leaves such a frame out through the area rule.

#include "engine/valid_rect.h"

#include "foundation/log.h"

namespace {

int32_t truncToInt(double v) {
    if (!(v == v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return (int32_t)v;
}

int32_t max32(int32_t a, int32_t b) {
    return a > b ? a : b;
}
int32_t min32(int32_t a, int32_t b) {
    return a < b ? a : b;
}

// The part of the base that the frame of this transform shows, one pixel inside its corners.
void frameRect(const tav_sr2_Trans2D* t, int32_t w, int32_t h, tav_sr2_Rect* r) {
    tav_sr2_Trans2D inv;
    tav_sr2_Trans2D_invert(&inv, t);  // a singular transform gives the identity
    double a;
    double b;
    tav_sr2_Trans2D_apply(&inv, &a, &b, 0.0, 0.0);
    r->left = max32(truncToInt(a + 1.0), 0);
    r->top = max32(truncToInt(b + 1.0), 0);
    tav_sr2_Trans2D_apply(&inv, &a, &b, 0.0, (double)h);
    r->left = max32(r->left, truncToInt(a + 1.0));
    r->bottom = min32(h, truncToInt(b - 1.0));
    tav_sr2_Trans2D_apply(&inv, &a, &b, (double)w, 0.0);
    r->right = min32(w, truncToInt(a - 1.0));
    r->top = max32(r->top, truncToInt(b + 1.0));
    tav_sr2_Trans2D_apply(&inv, &a, &b, (double)w, (double)h);
    r->right = min32(r->right, truncToInt(a - 1.0));
    r->bottom = min32(r->bottom, truncToInt(b - 1.0));
}

// A frame counts when its rectangle is not empty and covers the share of the frame asked for.
bool frameCounts(const tav_sr2_Rect* r, int32_t w, int32_t h, int32_t percent) {
    const int64_t dx = (int64_t)r->right - r->left;
    const int64_t dy = (int64_t)r->bottom - r->top;
    if (dx < 0 || dy < 0) return false;
    const int32_t product = (int32_t)((uint32_t)w * (uint32_t)h * (uint32_t)percent);
    return dx * dy >= (int64_t)(product / 100);
}

// Moves the nearer edge inwards so that both margins to the area of interest are equal.
void centreSpan(int32_t* lo, int32_t* hi, int32_t clip_lo, int32_t clip_hi) {
    const int32_t margin_lo = *lo - clip_lo;
    const int32_t margin_hi = clip_hi - *hi;
    if (margin_lo > margin_hi) {
        *hi = clip_hi - margin_lo;
    } else {
        *lo = clip_lo + margin_hi;
    }
}

double shrinkFactor(int32_t zoom_span, int32_t valid_span) {
    if (valid_span <= 0) return 1e300;
    return (double)zoom_span / (double)valid_span;
}

// The window along one dimension: (offset, size).
void windowSpan(int32_t output, double ratio, int32_t picture, int32_t* offset, int32_t* size) {
    int32_t s = truncToInt((double)output / ratio + 0.5) & ~1;
    if (s < 0) s = 0;
    if (s > picture) s = picture;
    *size = s;
    *offset = ((picture - s) >> 1) & ~1;
}

}  // namespace

void tav_sr2_validRect(const tav_sr2_ValidRectInput* in, tav_sr2_Rect* rect) {
    *rect = in->clip_rect;
    if (in->frame_count >= 2) {
        const int32_t frames =
            in->frame_count < TAV_SR2_PIPELINE_FRAMES ? in->frame_count : TAV_SR2_PIPELINE_FRAMES;
        for (int32_t i = 0; i < frames; ++i) {
            if (in->align_status[i] != 0) continue;
            tav_sr2_Rect r;
            frameRect(&in->transforms[i], in->frame_width, in->frame_height, &r);
            if (!frameCounts(&r, in->frame_width, in->frame_height, in->large_move_ratio_thres)) {
                continue;
            }
            rect->left = max32(rect->left, r.left);
            rect->top = max32(rect->top, r.top);
            rect->right = min32(rect->right, r.right);
            rect->bottom = min32(rect->bottom, r.bottom);
            tav_sr2_log_i("calc_auto_scale_ratio rect[%d,%d,%d,%d] \n", r.left, r.top, r.right,
                          r.bottom);
            tav_sr2_log_i("calc_auto_scale_ratio valid_rect[%d,%d,%d,%d] \n", rect->left, rect->top,
                          rect->right, rect->bottom);
        }
        centreSpan(&rect->left, &rect->right, in->clip_rect.left, in->clip_rect.right);
        centreSpan(&rect->top, &rect->bottom, in->clip_rect.top, in->clip_rect.bottom);
        rect->left = (rect->left + 1) & ~1;
        rect->top = (rect->top + 1) & ~1;
        rect->right &= ~1;
        rect->bottom &= ~1;
    }
    tav_sr2_log_i("calc_auto_scale_ratio final valid_rect[%d,%d,%d,%d] \n", rect->left, rect->top,
                  rect->right, rect->bottom);
}

double tav_sr2_scaleWindow(const tav_sr2_ScaleWindowInput* in, tav_sr2_Rect* window) {
    const double rx =
        shrinkFactor(in->zoom_rect.right - in->zoom_rect.left, in->valid.right - in->valid.left);
    const double ry =
        shrinkFactor(in->zoom_rect.bottom - in->zoom_rect.top, in->valid.bottom - in->valid.top);
    double r = 1.0;
    if (rx > r) r = rx;
    if (ry > r) r = ry;
    const double z = in->internal_zoom > 0.0 ? in->internal_zoom : 1.0;
    const double ratio = in->zoom_ratio * r / z;
    int32_t x, y, w, h;
    windowSpan(in->output_width, ratio, in->picture_width, &x, &w);
    windowSpan(in->output_height, ratio, in->picture_height, &y, &h);
    *window = {x, y, x + w, y + h};
    return ratio;
}

uint32_t tav_sr2_Pipeline_calcAutoScale(const tav_sr2_Pipeline* self, int32_t picture_width,
                                        int32_t picture_height, tav_sr2_Rect* valid,
                                        tav_sr2_Rect* window) {
    if (self == nullptr || window == nullptr) return TAV_ERROR_PARAM;
    tav_sr2_Trans2D transforms[TAV_SR2_PIPELINE_FRAMES] = {};
    for (int32_t i = 0; i < TAV_SR2_PIPELINE_FRAMES; ++i) {
        for (int32_t k = 0; k < 9; ++k)
            transforms[i].m[k] = self->align_transforms[i][k];
    }
    tav_sr2_ValidRectInput in;
    in.transforms = transforms;
    in.align_status = self->align_status;
    in.frame_count = self->frame_count;
    in.large_move_ratio_thres = self->tuning.large_move_ratio_thres;
    in.clip_rect = self->clip_rect;
    in.frame_width = self->clip_width;
    in.frame_height = self->clip_height;
    tav_sr2_Rect rect;
    tav_sr2_validRect(&in, &rect);
    if (valid != nullptr) *valid = rect;
    tav_sr2_ScaleWindowInput s;
    s.zoom_rect = self->zoom_rect_in_clip;
    s.valid = rect;
    s.zoom_ratio = self->tuning.zoom_ratio;
    s.internal_zoom = self->tuning.internal_zoom_ratio;
    s.output_width = self->output_width;
    s.output_height = self->output_height;
    s.picture_width = picture_width;
    s.picture_height = picture_height;
    tav_sr2_scaleWindow(&s, window);
    return TAV_OK;
}
