// Base frame choice.
//
// tav_sr2_chooseFrames(choice, order): the whole choice over plain arrays (see the header).
// tav_sr2_medianBrightness(brightness, n): the reference brightness when no base is forced.
// tav_sr2_Pipeline_selectFrames(self, order): the choice over the pipeline's own scores, made
//   once per run.
//
// Brightness differences are taken in float, as the scores are floats: |b - R| > 3.0.

#include "engine/frame_select.h"

#include <string.h>

#include "foundation/log.h"

namespace {

bool brightnessDiffers(float b, float reference) {
    const float d = b - reference;
    return (d < 0.0f ? -d : d) > TAV_SR2_BRIGHTNESS_LIMIT;
}

// Moves the frame at position `from` to position `to` (to <= from), the frames between moving
// one place back.
void moveBack(int32_t* order, int32_t from, int32_t to) {
    const int32_t f = order[from];
    for (int32_t p = from; p > to; --p)
        order[p] = order[p - 1];
    order[to] = f;
}

// Moves the frame at position `from` to position `to` (to >= from), the frames between moving
// one place forward.
void moveForward(int32_t* order, int32_t from, int32_t to) {
    const int32_t f = order[from];
    for (int32_t p = from; p < to; ++p)
        order[p] = order[p + 1];
    order[to] = f;
}

// A forced base whose brightness is off from most of the burst cannot be the reference: counts
// the others that differ from it and decides. Returns true when the base stays the reference.
bool baseKeepsReference(const tav_sr2_FrameChoice* c, int32_t n, float reference) {
    int32_t differing = 0;
    for (int32_t i = 0; i < n; ++i) {
        if (i == c->base_id || !brightnessDiffers(c->brightness[i], reference)) continue;
        tav_sr2_log_d("select base id bright:  %d bright diff, base_bright = %f,  cur_bright = %f ",
                      i, (double)reference, (double)c->brightness[i]);
        ++differing;
    }
    if (differing < n - 3) return true;
    tav_sr2_log_d("bright_diff_num = %d  (end -2) = %d \n", differing, n - 3);
    return false;
}

// Moves every frame from position `locked` on whose brightness differs from the reference to the
// end; returns the new last position.
int32_t dropBrightnessOutliers(const tav_sr2_FrameChoice* c, int32_t* order, int32_t locked,
                               int32_t last, float reference) {
    int32_t p = locked;
    while (p <= last) {
        const int32_t f = order[p];
        if (!brightnessDiffers(c->brightness[f], reference)) {
            ++p;
            continue;
        }
        tav_sr2_log_d(" %d bright diff, base_bright = %f,  cur_bright = %f ", f, (double)reference,
                      (double)c->brightness[f]);
        moveForward(order, p, last);
        --last;
    }
    return last;
}

void sortBySharpness(const int32_t* sharpness, int32_t* order, int32_t first, int32_t last) {
    for (int32_t p = first + 1; p <= last; ++p) {
        const int32_t f = order[p];
        int32_t q = p;
        while (q > first && sharpness[order[q - 1]] < sharpness[f]) {
            order[q] = order[q - 1];
            --q;
        }
        order[q] = f;
    }
}

// trunc(v) kept in double, so that no ratio can overflow an integer.
double truncated(double v) {
    if (!(v > -4503599627370496.0 && v < 4503599627370496.0)) return v;  // |v| >= 2^52 or NaN
    return (double)(int64_t)v;
}

// Keeps the frames down to the last one sharper than the limit; position 0 always stays.
int32_t dropBlurred(const tav_sr2_FrameChoice* c, const int32_t* order, int32_t locked,
                    int32_t last) {
    const double limit = truncated(c->sharpness_skip_ratio * (double)c->sharpness[order[locked]]);
    for (int32_t p = last; p >= 1; --p) {
        if ((double)c->sharpness[order[p]] > limit) return p;
    }
    return 0;
}

}  // namespace

float tav_sr2_medianBrightness(const float* brightness, int32_t n) {
    if (n < 1) return 0.0f;
    float sorted[TAV_SR2_PIPELINE_FRAMES];
    if (n > TAV_SR2_PIPELINE_FRAMES) n = TAV_SR2_PIPELINE_FRAMES;
    for (int32_t i = 0; i < n; ++i) {
        int32_t q = i;
        while (q > 0 && sorted[q - 1] < brightness[i]) {
            sorted[q] = sorted[q - 1];
            --q;
        }
        sorted[q] = brightness[i];
    }
    const int32_t m = n / 2;
    return (n & 1) ? sorted[m] : (sorted[m] + sorted[m - 1]) / 2.0f;
}

int32_t tav_sr2_chooseFrames(const tav_sr2_FrameChoice* c, int32_t* order) {
    int32_t n = c->frame_count;
    if (n < 0) n = 0;
    if (n > TAV_SR2_PIPELINE_FRAMES) n = TAV_SR2_PIPELINE_FRAMES;
    for (int32_t i = 0; i < TAV_SR2_PIPELINE_FRAMES; ++i)
        order[i] = i;
    int32_t last = n - 1;
    int32_t locked = 0;
    const bool forced = c->base_id >= 0 && c->base_id < n;
    if (forced) {
        moveBack(order, c->base_id, 0);
        locked = 1;
    }
    if (c->removebrightnessdiff_image_enable != 0) {
        float reference;
        if (!forced) {
            reference = tav_sr2_medianBrightness(c->brightness, n);
        } else {
            reference = c->brightness[c->base_id];
            if (!baseKeepsReference(c, n, reference)) {
                reference = tav_sr2_medianBrightness(c->brightness, n);
                tav_sr2_log_d(
                    " base frame bright diff more than all other frame, need change base id ");
                locked = 0;
            }
        }
        last = dropBrightnessOutliers(c, order, locked, last, reference);
    }
    if (c->select_frame != 0) {
        sortBySharpness(c->sharpness, order, locked, last);
        if (last >= 1) last = dropBlurred(c, order, locked, last);
    }
    return last < c->merge_cap ? last + 1 : c->merge_cap;
}

uint32_t tav_sr2_Pipeline_selectFrames(tav_sr2_Pipeline* self, int32_t* order) {
    if (self == nullptr) return TAV_ERROR_PARAM;
    if (self->order_ready == 0) {
        tav_sr2_FrameChoice choice;
        choice.sharpness = self->sharpness;
        choice.brightness = self->brightness;
        choice.frame_count = self->frame_count;
        choice.merge_cap = self->merge_cap;
        choice.base_id = self->tuning.base_id;
        choice.select_frame = self->tuning.select_frame;
        choice.sharpness_skip_ratio = self->tuning.sharpness_skip_ratio;
        choice.removebrightnessdiff_image_enable = self->tuning.removebrightnessdiff_image_enable;
        self->frame_count = tav_sr2_chooseFrames(&choice, self->frame_order);
        self->order_ready = 1;
    }
    if (order != nullptr && order != self->frame_order) {
        memcpy(order, self->frame_order, sizeof(self->frame_order));
    }
    return TAV_OK;
}
