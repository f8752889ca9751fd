// The pipeline's life outside a run: init, finish, the input size, and the start of a run.
//
// tav_sr2_Pipeline_init(self, pool, task_sys, thread_pool): clears the record, binds the borrowed
//   objects and every image record to the pool. TAV_ERROR_PARAM for a null record.
// tav_sr2_Pipeline_finish(self): releases the owned images; clears the record when all went.
// tav_sr2_Pipeline_setInputSize(self, w, h): the size of the frames as the host gives them.
// tav_sr2_Pipeline_start(self, crop w, crop h, slots, merge cap, centre, tuning): see pipeline.h.
//   The copy of the tuning is what every stage of the run reads; the engine's own record may
//   change afterwards without effect on this run.
// tav_sr2_Pipeline_upscalePreset(tuning, preset), tav_sr2_Pipeline_deblurWeight(tuning): the
//   settings start hands to the upscale and GPU contexts.
#include <string.h>

#include "engine/pipeline.h"
#include "engine/work_crop.h"

namespace {

// Every image record the pipeline holds, owned or view, for init and finish.
template <typename Fn>
uint32_t forEachImage(tav_sr2_Pipeline* self, Fn&& fn) {
    uint32_t status = TAV_OK;
    auto visit = [&](tav_sr2_Image* image) {
        const uint32_t s = fn(image);
        if (status == TAV_OK) status = s;
    };
    for (tav_sr2_Image& image : self->images)
        visit(&image);
    visit(&self->accum_image);
    visit(&self->merge8_image);
    visit(&self->nr_map);
    visit(&self->weight_sum);
    visit(&self->ghost_quarter);
    for (tav_sr2_Image& image : self->coef_quarter)
        visit(&image);
    visit(&self->face_mask);
    return status;
}

void resetRun(tav_sr2_Pipeline* self) {
    self->frame_count = 0;
    self->accum_num = 0;
    self->align_fail_count = 0;
    for (double(&m)[9] : self->align_transforms) {
        for (double& v : m)
            v = 0.0;
        m[0] = m[4] = m[8] = 1.0;
    }
    for (uint32_t& s : self->align_status)
        s = TAV_OK;
    self->clip_rect = {0, 0, self->clip_width, self->clip_height};
    self->restart_pending = 1;
}

void setAreaOfInterest(tav_sr2_Pipeline* self) {
    const double zoom = self->tuning.zoom_ratio;
    tav_sr2_WorkCrop_zoomRect(self->clip_width, self->clip_height, self->center_x, self->center_y,
                              self->output_width, self->output_height, zoom,
                              &self->zoom_rect_in_clip);
    tav_sr2_WorkCrop_areaOfInterest(self->clip_width, self->clip_height, self->center_x,
                                    self->center_y, self->output_width, self->output_height, zoom,
                                    &self->clip_rect);
    self->aligned_width = self->clip_rect.right - self->clip_rect.left;
    self->aligned_height = self->clip_rect.bottom - self->clip_rect.top;
    self->quarter_width = self->aligned_width / 4;
    self->quarter_height = self->aligned_height / 4;
}

// weight_sum and face_mask share the quarter size less a border of one on each side.
uint32_t allocQuarterMaps(tav_sr2_Pipeline* self) {
    const int32_t w = self->quarter_width - 2;
    const int32_t h = self->quarter_height - 2;
    if (w < 1 || h < 1) return TAV_ERROR_PARAM;
    uint32_t status = tav_sr2_Image_alloc(&self->weight_sum, w, h, nullptr, TAV_SR2_FMT_UINT16);
    if (status != TAV_OK) return status;
    return tav_sr2_Image_alloc(&self->face_mask, w, h, nullptr, TAV_SR2_FMT_UINT8);
}

// The upscale context in its set-up order: reset, phase table, bank blend, pattern threshold.
uint32_t setUpUpscaler(tav_sr2_Pipeline* self) {
    tav_sr2_UpscalePreset preset;
    tav_sr2_Pipeline_upscalePreset(&self->tuning, &preset);
    tav_sr2_Upscaler* u = &self->upscaler;
    uint32_t status = tav_sr2_Upscaler_reset(u);
    const tav_sr2_UpscaleKernel kernel = {preset.kernel_mode, preset.kernel_b, preset.kernel_c};
    if (status == TAV_OK) status = tav_sr2_Upscaler_setKernel(u, &kernel);
    if (status == TAV_OK) status = tav_sr2_Upscaler_blendBanks(u, preset.bank_mix);
    if (status == TAV_OK) status = tav_sr2_Upscaler_setThreshold(u, preset.threshold);
    return status;
}

}  // namespace

uint32_t tav_sr2_Pipeline_init(tav_sr2_Pipeline* self, tav_sr2_MemPool* pool,
                               tav_sr2_TaskSys* task_sys, tav_sr2_ThreadPool* thread_pool) {
    if (self == nullptr) return TAV_ERROR_PARAM;
    memset(self, 0, sizeof *self);
    self->pool = pool;
    self->task_sys = task_sys;
    self->thread_pool = thread_pool;
    tav_sr2_Upscaler_init(&self->upscaler, pool);
    self->upscaler.resize.threads = thread_pool;
    self->upscaler.resize.tasks = task_sys;
    return forEachImage(self,
                        [pool](tav_sr2_Image* image) { return tav_sr2_Image_init(image, pool); });
}

uint32_t tav_sr2_Pipeline_finish(tav_sr2_Pipeline* self) {
    if (self == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = forEachImage(self, tav_sr2_Image_finish);
    const uint32_t upscaler = tav_sr2_Upscaler_finish(&self->upscaler);
    if (status == TAV_OK) status = upscaler;
    if (status == TAV_OK) memset(self, 0, sizeof *self);
    return status;
}

void tav_sr2_Pipeline_setInputSize(tav_sr2_Pipeline* self, int32_t width, int32_t height) {
    self->input_width = width;
    self->input_height = height;
}

uint32_t tav_sr2_Pipeline_start(tav_sr2_Pipeline* self, int32_t clip_width, int32_t clip_height,
                                int32_t max_image_num, int32_t merge_num, int32_t center_x,
                                int32_t center_y, const sr_tunning_param* tuning) {
    if (self == nullptr || tuning == nullptr || clip_width < 1 || clip_height < 1 ||
        max_image_num < 1 || max_image_num > TAV_SR2_PIPELINE_FRAMES || merge_num < 1 ||
        !(tuning->zoom_ratio > 0.0))
        return TAV_ERROR_PARAM;

    self->tuning = *tuning;
    self->clip_width = clip_width;
    self->clip_height = clip_height;
    self->output_width = tuning->output_width > 0 ? tuning->output_width : clip_width;
    self->output_height = tuning->output_height > 0 ? tuning->output_height : clip_height;
    self->center_x = center_x;
    self->center_y = center_y;
    self->max_image_num = max_image_num;
    self->merge_cap = merge_num;
    resetRun(self);

    uint32_t status = setUpUpscaler(self);
    if (status != TAV_OK) return status;

    setAreaOfInterest(self);
    status = allocQuarterMaps(self);
    if (status != TAV_OK) return status;

    // GPU render context: takes tav_sr2_Pipeline_deblurWeight(&self->tuning) as its
    // deblur_weight when that is above 0, and is prepared here with TAV_SR2_PIPELINE_GPU_ROWS
    // once the pipeline holds a tav_sr2_SR2GLRender.

    tav_sr2_SrParams_print(&self->tuning);
    return TAV_OK;
}

void tav_sr2_Pipeline_upscalePreset(const sr_tunning_param* tuning, tav_sr2_UpscalePreset* preset) {
    const bool cubic = tuning->use_16bit != 0 && tuning->fast_merge_mode == 0;
    preset->kernel_mode = cubic ? 0 : 2;
    preset->kernel_b = 0.2;
    preset->kernel_c = cubic ? 0.4 : 0.2;
    preset->bank_mix = tuning->upscale_bank_mix;
    preset->bank_weight = static_cast<int32_t>(512.0 * tuning->upscale_bank_mix);
    const int32_t floor = static_cast<int32_t>(tuning->noise_level);
    preset->threshold = floor > 8 ? floor : 8;
}

float tav_sr2_Pipeline_deblurWeight(const sr_tunning_param* tuning) {
    const double psf = tuning->deblur_psf;
    return psf > 1e-6 ? static_cast<float>(psf * 2.78) : 0.0f;
}
