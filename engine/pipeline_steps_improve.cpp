// Stages 3 to 12 of a run: noise reduction, enhancement and, in super zoom, the dither, all in
// place on accum_image and each under its tuning gate.
//
// tav_sr2_Pipeline_improve(self, plan): the stages in their fixed order with their log lines.
//   The run timer is checked after stage 3 (when it is the place of dark_light_nr), after stage
//   7, after each of stages 8, 9 and 10 that runs, and after stage 11 (when it is the place of
//   dark_light_nr, whether or not the filter runs). The first check past the limit ends the
//   stages and returns true. A stage that fails does not stop the run.
#include "engine/pipeline_steps.h"
#include "engine/run_limit.h"
#include "enhance/image_rows.h"
#include "foundation/log.h"
#include "foundation/maths.h"
#include "nr/chroma_nr.h"
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

// Stages 5 to 7: the chroma filter's passes, its narrow-change step and its high-frequency step.
// Failures leave the frame as the last finished pass made it.
void chromaNr(tav_sr2_Pipeline* self, const tav_sr2_StagePlan* plan) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
    const sr_tunning_param* t = &self->tuning;
    tav_sr2_Image* frame = &self->accum_image;
    const float scale = t->zoom_ratio < 5.0 ? 4.0f : 2.0f;
    const tav_sr2_Image* map = self->nr_map.plane[0] != nullptr ? &self->nr_map : nullptr;
    const int32_t passes = plan->chroma_nr_passes;
    if (passes > 0) {
        const float strength =
            (float)tav_sr2_pow(t->uv_strength_base / 1024.0, 1.0 / (double)passes);
        const double luma = t->denoise_uv_strength < 1.0     ? 1.0
                            : t->denoise_uv_strength > 128.0 ? 128.0
                                                             : t->denoise_uv_strength;
        for (int32_t i = 0; i < passes; ++i) {
            int32_t window = (t->nr_uv_window >> (i + 1)) | 1;
            window = window < 3 ? 3 : window > 99 ? 99 : window;
            const double f = tav_sr2_pow(0.125, (double)i);
            const float eps_uv = (float)(f * t->noise_level_uv / 16.0);
            tav_sr2_ChromaNR_run(&ctx, frame, frame, i == 0 ? map : nullptr, window,
                                 (float)(f * luma / 128.0), eps_uv, eps_uv, strength, scale);
        }
    }
    if (plan->chroma_clip && t->c_nr_clip_sigma >= 1) {
        int32_t window = t->c_nr_clip_sigma | 1;
        window = window < 3 ? 3 : window > 99 ? 99 : window;
        tav_sr2_ChromaNR_clip(&ctx, frame, window, scale);
    }
    if (plan->hf_chroma_nr && map != nullptr) tav_sr2_ChromaNR_highFrequency(&ctx, frame, map);
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
    chromaNr(self, plan);
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
