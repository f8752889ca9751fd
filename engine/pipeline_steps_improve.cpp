// Stages 3 to 12 of a run: noise reduction, enhancement and, in super zoom, the dither, all in
// place on accum_image and each under its tuning gate.
//
// tav_sr2_Pipeline_improve(self, plan): the stages in their fixed order with their log lines.
//   The run timer is checked after stage 3 (when it is the place of dark_light_nr), after stage
//   7, after each of stages 8, 9 and 10 that runs, and after stage 11 (when it is the place of
//   dark_light_nr, whether or not the filter runs). The first check past the limit ends the
//   stages and returns true. A stage that fails does not stop the run.
//
// STAGE PENDING marks a call site whose stage is not built yet: the gate is in place and the
// comment names the call that goes there.
#include "engine/pipeline_steps.h"
#include "engine/run_limit.h"
#include "enhance/image_rows.h"
#include "foundation/log.h"
#include "nr/luma_nr.h"
#include "sharpen/dither.h"
#include "sharpen/enhance.h"
#include "sharpen/image_effect.h"

namespace {

bool timeUp(const tav_sr2_Pipeline* self, int32_t stage) {
    return tav_sr2_RunLimit_passed(&self->run_timer, stage);
}

tav_sr2_NrEngine nrEngine(const tav_sr2_Pipeline* self) {
    const sr_tunning_param* t = &self->tuning;
    return {tav_sr2_Pipeline_imageCtx(self), t->hfe_white_level, t->hfe_black_level, t->hfe_thr};
}

tav_sr2_EnhanceInputs enhanceInputs(const tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan) {
    const sr_tunning_param* t = &self->tuning;
    tav_sr2_EnhanceInputs in = {};
    in.ctx = tav_sr2_Pipeline_imageCtx(self);
    in.weight_sum = &self->weight_sum;
    in.nr_map = &self->nr_map;
    in.accum_num = self->accum_num;
    in.frame_count = self->frame_count;
    in.do_unsharp = t->do_unsharp;
    in.unsharp_method = t->unsharp_method;
    in.unsharp_sigma = t->unsharp_sigma;
    in.unsharp_sigma2 = t->unsharp_sigma2;
    in.unsharp_noise_level = t->unsharp_noise_level;
    in.unsharp_4ghost_ratio = t->unsharp_4ghost_ratio;
    in.do_unsharp_rate_for_skin = t->do_unsharp_rate_for_skin;
    in.internal_zoom_ratio = t->internal_zoom_ratio;
    in.zoom_ratio = t->zoom_ratio;
    in.white_edge_level = t->white_edge_level;
    in.black_edge_level = t->black_edge_level;
    in.super_zoom = plan->super_zoom;
    return in;
}

// Stage 10: the structure enhancement, mode 4 of the image effects, in place.
void structure(tav_sr2_Pipeline* self) {
    const sr_tunning_param* t = &self->tuning;
    tav_sr2_ImageEffect effect;
    tav_sr2_ImageEffect_init(&effect, self->pool);
    tav_sr2_ImageEffect_setThreads(&effect, self->task_sys, self->thread_pool);
    tav_sr2_StructureParams params;
    tav_sr2_ImageEffect_defaults(4, &params);
    params.eps_low = t->stucture_eps_low;
    params.eps_high = t->stucture_eps_high;
    params.strength = t->stucture_strength;
    tav_sr2_ImageEffect_run(&effect, &self->accum_image, &self->accum_image, 4, &params);
    tav_sr2_ImageEffect_finish(&effect);
}

// dark_light_nr, at stage 3 or 11: plan->dark_light_runs runs, each filtering once with
// gf_window2 and gf_eps2, and a second time when plan->dark_light_twice.
void darkLightNr(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan) {
    const tav_sr2_NrEngine engine = nrEngine(self);
    const sr_tunning_param* t = &self->tuning;
    for (int32_t run = 0; run < plan->dark_light_runs; ++run) {
        dark_light_nr(&engine, &self->accum_image, t->gf_window2, (float)t->gf_eps2,
                      plan->dark_light_twice != 0);
    }
}

// Stages 4 to 7; returns whether the time check after stage 7 found the limit passed.
bool denoise(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan) {
    if (plan->multiscale_ynr) {
        // The stage leaves the frame as it was when its pyramid cannot be had; the run goes on.
        const tav_sr2_NrEngine engine = nrEngine(self);
        const sr_tunning_param* t = &self->tuning;
        const tav_sr2_Image* map = self->nr_map.plane[0] != nullptr ? &self->nr_map : nullptr;
        tav_sr2_ynr_dispatch(&engine, &self->accum_image, map, t->hfe_level, (float)t->ynr_low_eps,
                             (float)t->ynr_high_eps);
    }
    if (plan->chroma_nr_passes > 0) {
        // STAGE PENDING nr/ chroma NR: tav_sr2_ChromaNR_run, num_nr_times_uv passes with
        // noise_level_uv, denoise_uv_strength, nr_uv_window, and nr_map in the first pass.
    }
    if (plan->chroma_clip) {
        // STAGE PENDING nr/ chroma low-frequency clip with c_nr_clip_sigma.
    }
    if (plan->hf_chroma_nr) {
        // STAGE PENDING nr/ high-frequency chroma NR.
    }
    tav_sr2_log_i("sr process 4 : finish...\n");
    return timeUp(self, 7);
}

// Stages 8 to 10; returns whether a time check after one of them found the limit passed.
bool enhance(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan) {
    if (plan->unsharp) {
        const tav_sr2_EnhanceInputs in = enhanceInputs(self, plan);
        tav_sr2_Enhance_run(&in, &self->accum_image);
        if (timeUp(self, 8)) return true;
    }
    tav_sr2_log_i("sr process 5 finish...\n");
    if (plan->contrast) {
        const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
        const sr_tunning_param* t = &self->tuning;
        tav_sr2_Contrast_run(&ctx, &self->accum_image, t->contrast_enhance_extra_arg,
                             t->contrast_enhance_blur_sigma * 2.0 * t->internal_zoom_ratio);
        if (timeUp(self, 9)) return true;
    }
    tav_sr2_log_i("sr process 6 finish...\n");
    if (plan->structure) structure(self);
    tav_sr2_log_i("sr process 8 finish...\n");
    return plan->structure && timeUp(self, 10);
}

}  // namespace

uint32_t tav_sr2_Pipeline_dither(tav_sr2_Pipeline* self, tav_sr2_Image* frame) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
    const sr_tunning_param* t = &self->tuning;
    if (tav_sr2_isSemiPlanar10(frame->format)) {
        return tav_sr2_Dither_run16(&ctx, frame, frame, t->dither_thr, 255, 8, t->dither_noise_mode,
                                    t->dither_noise_level, t->dither_pepper_noise_level,
                                    t->dither_uv_noise_level);
    }
    return tav_sr2_Dither_run8(&ctx, frame, frame, t->dither_thr, 255, 8, t->dither_noise_level,
                               t->dither_uv_noise_level);
}

bool tav_sr2_Pipeline_improve(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan) {
    if (plan->dark_light_early) {
        darkLightNr(self, plan);
        tav_sr2_log_i("dark_light_nr_enable: sr process 3 dark_light_nr: finish...\n");
        if (timeUp(self, 3)) return true;
    }
    if (denoise(self, plan)) return true;
    if (enhance(self, plan)) return true;
    if (!plan->dark_light_early) {
        darkLightNr(self, plan);
        tav_sr2_log_i("sr process 10 finish...\n");
        if (timeUp(self, 11)) return true;
    }
    if (plan->super_zoom) {
        tav_sr2_Pipeline_dither(self, &self->accum_image);
        tav_sr2_log_i("super zoom mode dither finish...\n");
    }
    return false;
}
