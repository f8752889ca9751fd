// The main loop of a run.
//
// tav_sr2_Pipeline_process(self): starts the run timer ("sr process begin...\n"), makes the
//   run's images (step 1: its failure is the result), merges the frames (step 2), checks the
//   time, runs the improvement stages with their checks (3 to 12) unless the limit has passed,
//   then always writes the output (13 to 15) and logs "sr process end...\n". Failures of steps 2
//   to 15 are dropped: the run goes on with what the images hold. The result is 0,
//   TAV_ERROR_TIMEOUT, or the failure of the timer or step 1. Every return releases the timer and
//   sets restart_pending, so the next frame taken in starts a new run.
// tav_sr2_Pipeline_setOutput(self, image): stores the borrowed output.
// tav_sr2_Pipeline_internalSize(self, w, h): internal_zoom_ratio times the area of interest.
// tav_sr2_Pipeline_planStages(self, plan): the branches and stages of the run.
#include "engine/buffer_budget.h"
#include "engine/pipeline_steps.h"
#include "engine/run_limit.h"
#include "foundation/log.h"

namespace {

// The merge enlarges only when the internal zoom is measurably away from 1.
constexpr double kZoomEpsilon = 1e-5;
// dark_light_nr filters a second time up to this zoom.
constexpr double kDarkLightTwiceZoom = 1.4;

// Evenness of the internal size: the chroma planes of the semi-planar frames need it.
int32_t scaledEven(double zoom, int32_t size) {
    return static_cast<int32_t>(zoom * size) & ~1;
}

uint32_t runTimed(tav_sr2_Pipeline* self) {
    if (self->output == nullptr) return TAV_ERROR_PARAM;
    tav_sr2_Stopwatch_init(&self->run_timer, self->pool);
    uint32_t status = tav_sr2_Stopwatch_reset(&self->run_timer);
    if (status != TAV_OK) return status;
    tav_sr2_Stopwatch_start(&self->run_timer);
    tav_sr2_log_i("sr process begin...\n");

    tav_sr2_StagePlan plan;
    tav_sr2_Pipeline_planStages(self, &plan);
    status = tav_sr2_Pipeline_prepareImages(self, &plan);
    if (status != TAV_OK) return status;
    tav_sr2_Pipeline_mergeFrames(self, &plan);
    const bool timed_out =
        tav_sr2_RunLimit_passed(&self->run_timer, 2) || tav_sr2_Pipeline_improve(self, &plan);
    tav_sr2_Pipeline_writeOutput(self, &plan);
    tav_sr2_log_i("sr process end...\n");
    return timed_out ? TAV_ERROR_TIMEOUT : TAV_OK;
}

}  // namespace

uint32_t tav_sr2_Pipeline_process(tav_sr2_Pipeline* self) {
    if (self == nullptr) return TAV_ERROR_PARAM;
    const uint32_t status = runTimed(self);
    tav_sr2_Stopwatch_finish(&self->run_timer);
    self->restart_pending = 1;
    return status;
}

uint32_t tav_sr2_Pipeline_setOutput(tav_sr2_Pipeline* self, tav_sr2_Image* image) {
    if (self != nullptr) self->output = image;
    return TAV_OK;
}

void tav_sr2_Pipeline_internalSize(const tav_sr2_Pipeline* self, int32_t* width, int32_t* height) {
    const double z = self->tuning.internal_zoom_ratio;
    *width = scaledEven(z, self->aligned_width);
    *height = scaledEven(z, self->aligned_height);
}

void tav_sr2_Pipeline_planStages(const tav_sr2_Pipeline* self, tav_sr2_StagePlan* plan) {
    const sr_tunning_param* t = &self->tuning;
    const double z = t->internal_zoom_ratio;
    plan->gpu_merge = 0;  // INTERIM: t->use_16bit != 0 once the GPU path (gpu/) is built
    plan->super_zoom = tav_sr2_isSuperZoom(self->input_width, self->input_height,
                                           self->output_width, self->output_height);
    plan->zoomed = (z - 1.0 > kZoomEpsilon || 1.0 - z > kZoomEpsilon) ? 1 : 0;
    plan->dark_light_early = t->dark_light_nr_enable != 0;
    const bool dark_light_filter = t->gf_eps2 > 0.0 && t->gf_window2 >= 2;
    plan->dark_light_runs = dark_light_filter && t->num_nr_times_y > 0 ? t->num_nr_times_y : 0;
    plan->dark_light_twice = t->zoom_ratio <= kDarkLightTwiceZoom && t->num_nr_times_y >= 2;
    plan->multiscale_ynr = t->ynr_low_eps > 0.0 || t->ynr_high_eps > 0.0;
    plan->chroma_nr_passes = t->num_nr_times_uv > 0 ? t->num_nr_times_uv : 0;
    plan->chroma_clip = t->c_nr_clip_sigma > 0;
    plan->hf_chroma_nr = t->high_freq_uvnr_enable != 0;
    plan->unsharp = t->do_unsharp > 0;
    plan->contrast = t->contrast_enhance_extra_arg > 0;
    plan->structure = t->stucture_strength > 0;
    plan->plain_luma_scaling = plan->super_zoom || t->fast_merge_mode == 3;
    plan->dither_output = !plan->super_zoom && self->output_width <= self->input_width &&
                          self->output_height <= self->input_height;
}

tav_sr2_ImageCtx tav_sr2_Pipeline_imageCtx(const tav_sr2_Pipeline* self) {
    return {self->pool, self->thread_pool, self->task_sys};
}

uint32_t tav_sr2_Pipeline_releaseImage(tav_sr2_Pipeline* self, tav_sr2_Image* image) {
    const uint32_t status = tav_sr2_Image_finish(image);
    if (status == TAV_OK) tav_sr2_Image_init(image, self->pool);
    return status;
}
