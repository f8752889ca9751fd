// Engine tuning records and the rules between them.
//
// tav_sr2_SrParams_setDefault writes the defaults of sr_tunning_param and nothing else.
// tav_sr2_SrParams_apply limits each value of tav_sr2_SrParams into sr_tunning_param: a range
// a..b gives a below a, b above b, and a for a NaN; the two NR modes are indices 0..3 into the
// window table; hfe_level always leaves with bit 128 (or saturated at 255); a fast_enable of 2 or
// more turns the GPU merge off; super zoom forces the alignment shrink to 2. It never fails.
// tav_sr2_SrParams_fromTuning reads the record back, so that get, set, get is stable after one
// set.
#include "engine/sr_params.h"

namespace {

// Window sizes of the guided-filter NR modes, by mode index.
constexpr int32_t kNrWindows[4] = {3, 9, 21, 41};

int32_t clampI32(int32_t v, int32_t lo, int32_t hi) {
    return v < lo ? lo : (v > hi ? hi : v);
}

// The negated test sends a NaN to the lower limit.
double clampF64(double v, double lo, double hi) {
    if (!(v >= lo)) return lo;
    return v > hi ? hi : v;
}

double atLeastF64(double v, double lo) {
    return v >= lo ? v : lo;
}

float clampF32(double v, double lo, double hi) {
    return static_cast<float>(clampF64(v, lo, hi));
}

int32_t windowFromMode(int32_t mode) {
    return kNrWindows[clampI32(mode, 0, 3)];
}

int32_t modeFromWindow(int32_t window) {
    for (int32_t i = 0; i < 4; ++i) {
        if (kNrWindows[i] == window) return i;
    }
    return 1;
}

// The high-frequency gain is stored with bit 128 set; a request of 127 or more saturates.
int32_t hfeLevelFromRequest(int32_t level) {
    if (level < 0) level = 0;
    return level < 127 ? (level | 128) : 255;
}

}  // namespace

void tav_sr2_SrParams_setDefault(sr_tunning_param* t) {
    t->zoom_ratio = 1.0;
    t->internal_zoom_ratio = 1.0;
    t->output_width = -1;
    t->output_height = -1;
    t->use_16bit = 1;
    t->keld_mode = 0;
    t->base_id = -1;
    t->select_frame = 1;
    t->sharpness_skip_ratio = 0.0;
    t->eval_blur_sigma = 0.7;
    t->eval_blur_shrink_ratio = 1;
    t->detectmotion_shrink_ratio = 0;
    t->upscale_bank_mix = 0.0;
    t->do_unsharp = 700;
    t->do_unsharp_rate_for_skin = 1.0;
    t->unsharp_method = 3;
    t->unsharp_sigma = 0.4;
    t->unsharp_sigma2 = 0.9;
    t->unsharp_4ghost_ratio = 0.5;
    t->unsharp_noise_level = 0.0;
    t->merge_reserved = 1;
    t->deghost_ofs = 24.0;
    t->deghost_deg = 1.0;
    t->deblur_psf = 1.0f;
    t->deblur_scale = 1.0f;
    t->deblur_limit = 5.0f;
    t->white_edge_level = 1.0f;
    t->black_edge_level = 1.0f;
    t->num_nr_times_y = 1;
    t->nr_y_range[0] = 1;
    t->nr_y_range[1] = 1;
    t->nr_y_range[2] = 1;
    t->nr_y_range[3] = 0;
    t->nr_y_strength[0] = -1.0;
    t->nr_y_strength[1] = -1.0;
    t->nr_y_strength[2] = -1.0;
    t->nr_y_strength[3] = 0.0;
    t->noise_level = 0.0;
    t->noise_level_4ghost_ratio = 6.0;
    t->noise_level_4ghost_ratio_scale = 4.0;
    t->num_nr_times_uv = 3;
    t->noise_level_uv = 4.0;
    t->denoise_uv_strength = 15.0;
    t->uv_strength_base = 1024;
    t->high_freq_uvnr_enable = 0;
    t->dark_light_nr_enable = 0;
    t->nr_uv_window = 21;
    t->gf_eps2 = 0.0;
    t->gf_window2 = 1;
    t->dirnr = 0.0;
    t->deghost_noise_level = 1.0;
    t->deghost_gauss_sigma0 = 0.8;
    t->contrast_enhance_blur_sigma = 0.8;
    t->contrast_enhance_extra_arg = 600;
    t->stucture_eps_low = 500.0;
    t->stucture_eps_high = 0.0;
    t->stucture_strength = 0;
    t->large_move_ratio_thres = 95;
    t->dither_noise_level = 0.0;
    t->dither_pepper_noise_level = 0.0;
    t->dither_uv_noise_level = 0.0;
    t->dither_thr = 512;
    t->dither_noise_mode = 0;
    t->removebrightnessdiff_image_enable = 0;
    t->gf_clip_eps2 = 0.0;
    t->gf_clip_window2 = 0;
    t->c_nr_clip_sigma = 0;
    t->fast_merge_mode = 0;
    t->dark_area_nr_level = 1.0;
    t->ghost_nr_level = 1.5;
    t->deghost_face_weight = 0;
    t->hfe_level = 160;
    t->hfe_white_level = 64;
    t->hfe_black_level = -64;
    t->dirnr_radius = 3;
    t->hfe_thr = 128;
    t->dirnr_ghost_nr = 1.0f;
}

void tav_sr2_SrParams_apply(const tav_sr2_SrParams* p, int super_zoom, sr_tunning_param* t,
                            double* y_input_nr_level) {
    t->dark_light_nr_enable = p->light_enable;
    t->fast_merge_mode = clampI32(p->fast_enable, 0, 3);
    // Modes 2 and 3 merge on the CPU; the test is on the value as given, before the limit.
    if (p->fast_enable >= 2) t->use_16bit = 0;
    t->dither_noise_mode = clampI32(p->cross_enable, 0, 2);
    t->hfe_level = hfeLevelFromRequest(p->hfe_level);
    t->hfe_white_level = clampI32(p->hfe_white_level, 0, 128);
    t->hfe_black_level = clampI32(p->hfe_black_level, -128, 0);
    t->hfe_thr = clampI32(p->hfe_thr, 0, 128);
    t->high_freq_uvnr_enable = p->c_hf_nr_enable;
    t->keld_mode = p->keld_mode;
    t->removebrightnessdiff_image_enable = p->removebrightnessdiff_image_enable;

    // The deghost curve's degree has a floor and no ceiling.
    t->deghost_deg = atLeastF64(p->deghost_level, 0.05);
    t->deghost_gauss_sigma0 = clampF64(p->deghost_sigma, 0.0, 10.0);
    t->deghost_face_weight = clampI32(p->deghost_weight_face, 0, 255);
    t->deghost_noise_level = clampF64(p->deghost_nr_level, 0.0, 50.0);
    t->deghost_ofs = clampF64(p->ghost_ratio_thres, 0.0, 128.0);
    t->noise_level_4ghost_ratio_scale = clampF64(p->ghost_sigle_nr_level, 1.0, 8.0);
    t->ghost_nr_level = clampF64(p->ghost_nr_level, 0.0, 32.0);

    t->gf_eps2 = clampF64(p->y_nr_level, 0.0, 50.0);
    t->gf_window2 = windowFromMode(p->y_nr_mode);
    t->num_nr_times_y = clampI32(p->y_nr_times, 0, 3);
    t->ynr_high_eps = clampF64(p->y_hf_nr_level, 0.0, 100.0);
    t->ynr_low_eps = clampF64(p->y_lf_nr_level, 0.0, 100.0);
    t->dirnr = clampF64(p->y_edge_nr_level, 0.0, 10.0);
    t->dirnr_radius = clampI32(p->y_edge_nr_radius, 3, 11);
    t->dirnr_ghost_nr = clampF32(p->y_edge_ghost_nr_level, 1.0, 10.0);
    t->dark_area_nr_level = clampF64(p->dark_nr_level, 1.0, 16.0);
    *y_input_nr_level = clampF64(p->y_input_nr_level, 0.0, 5.0);

    t->noise_level_uv = clampF64(p->c_nr_level, 0.0, 50.0);
    t->num_nr_times_uv = clampI32(p->c_nr_times, 0, 3);
    t->nr_uv_window = windowFromMode(p->c_nr_mode);
    t->c_nr_clip_sigma = clampI32(p->c_lf_nr_level, 0, 99);

    t->do_unsharp = clampI32(p->unsharp_level, 0, 8192);
    t->unsharp_sigma2 = clampF64(p->unsharp_range_low, 0.0, 10.0);
    t->unsharp_sigma = clampF64(p->unsharp_range_high, 0.0, 10.0);
    t->unsharp_noise_level = clampF64(p->unsharp_nr_level, 0.0, 16.0);
    t->unsharp_method = clampI32(p->unsharp_mode, 0, 3);
    t->contrast_enhance_blur_sigma = clampF64(p->structure_sigma, 0.0, 5.0);
    t->contrast_enhance_extra_arg = clampI32(p->structure_level, 0, 3000);
    t->deblur_psf = clampF32(p->deblur_level, 0.0, 3.0);
    t->deblur_scale = clampF32(p->deblur_scale, 0.1, 3.0);
    t->stucture_eps_low = clampF64(p->lce_lf, 0.0, 1000.0);
    t->stucture_eps_high = clampF64(p->lce_hf, 0.0, 1000.0);
    t->stucture_strength = clampI32(p->lce_level, 0, 1024);
    t->white_edge_level = clampF32(p->white_edge_level, 0.0, 1.0);
    t->black_edge_level = clampF32(p->black_edge_level, 0.0, 1.0);

    t->dither_noise_level = clampF64(p->grain_adder, 0.0, 32.0);
    t->dither_thr = clampI32(p->grain_adder_thr, 16, 768);
    t->dither_pepper_noise_level = clampF64(p->p_grain_adder, 0.0, 32.0);
    t->dither_uv_noise_level = clampF64(p->c_grain_adder, 0.0, 32.0);

    t->do_unsharp_rate_for_skin = p->do_unsharp_rate_for_skin;
    t->select_frame = p->select_frame;
    t->sharpness_skip_ratio = p->sharpness_skip_ratio;
    t->base_id = p->base_index;

    // Super zoom aligns on a quarter-size image whatever the tuning says.
    if (super_zoom) t->detectmotion_shrink_ratio = 2;
}

void tav_sr2_SrParams_fromTuning(const sr_tunning_param* t, double y_input_nr_level,
                                 tav_sr2_SrParams* p) {
    p->light_enable = t->dark_light_nr_enable;
    p->fast_enable = t->fast_merge_mode;
    p->cross_enable = t->dither_noise_mode;
    p->hfe_level = t->hfe_level;
    p->hfe_white_level = t->hfe_white_level;
    p->hfe_black_level = t->hfe_black_level;
    p->hfe_thr = t->hfe_thr;
    p->c_hf_nr_enable = t->high_freq_uvnr_enable;
    p->keld_mode = t->keld_mode;
    p->removebrightnessdiff_image_enable = t->removebrightnessdiff_image_enable;

    p->deghost_level = t->deghost_deg;
    p->deghost_sigma = t->deghost_gauss_sigma0;
    p->deghost_weight_face = t->deghost_face_weight;
    p->deghost_nr_level = t->deghost_noise_level;
    p->ghost_ratio_thres = t->deghost_ofs;
    p->ghost_sigle_nr_level = t->noise_level_4ghost_ratio_scale;
    p->ghost_nr_level = t->ghost_nr_level;

    p->y_nr_level = t->gf_eps2;
    p->y_nr_mode = modeFromWindow(t->gf_window2);
    p->y_nr_times = t->num_nr_times_y;
    p->y_hf_nr_level = t->ynr_high_eps;
    p->y_lf_nr_level = t->ynr_low_eps;
    p->y_edge_nr_level = t->dirnr;
    p->y_edge_nr_radius = t->dirnr_radius;
    p->y_edge_ghost_nr_level = t->dirnr_ghost_nr;
    p->dark_nr_level = t->dark_area_nr_level;
    p->y_input_nr_level = y_input_nr_level;

    p->c_nr_level = t->noise_level_uv;
    p->c_nr_times = t->num_nr_times_uv;
    p->c_nr_mode = modeFromWindow(t->nr_uv_window);
    p->c_lf_nr_level = t->c_nr_clip_sigma;

    p->unsharp_level = t->do_unsharp;
    p->unsharp_range_low = t->unsharp_sigma2;
    p->unsharp_range_high = t->unsharp_sigma;
    p->unsharp_nr_level = t->unsharp_noise_level;
    p->unsharp_mode = t->unsharp_method;
    p->structure_sigma = t->contrast_enhance_blur_sigma;
    p->structure_level = t->contrast_enhance_extra_arg;
    p->deblur_level = t->deblur_psf;
    p->deblur_scale = t->deblur_scale;
    p->lce_lf = t->stucture_eps_low;
    p->lce_hf = t->stucture_eps_high;
    p->lce_level = t->stucture_strength;
    p->white_edge_level = t->white_edge_level;
    p->black_edge_level = t->black_edge_level;

    p->grain_adder = t->dither_noise_level;
    p->grain_adder_thr = t->dither_thr;
    p->p_grain_adder = t->dither_pepper_noise_level;
    p->c_grain_adder = t->dither_uv_noise_level;

    p->do_unsharp_rate_for_skin = t->do_unsharp_rate_for_skin;
    p->select_frame = t->select_frame;
    p->sharpness_skip_ratio = t->sharpness_skip_ratio;
    p->base_index = t->base_id;
}
