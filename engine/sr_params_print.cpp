// The engine's print-out of its tuning, written at the end of tav_sr2_Pipeline_start.
//
// tav_sr2_SrParams_print logs, at info level through the engine log, first every tuned field
// under its record name beside its parameter-file key, then the internal fields that no file key
// reaches. Each line is one log call; with the log off nothing is formatted.
#include "engine/sr_params.h"
#include "foundation/log.h"

namespace {

constexpr const char* kStars = "************************************\n";

void printTunedFields(const sr_tunning_param* t) {
    tav_sr2_log_i("%s", kStars);
    tav_sr2_log_i("****** print sr_tunning_param ****** \n");
    tav_sr2_log_i(" dark_light_nr_enable  (light_enable)          = %d\n", t->dark_light_nr_enable);
    tav_sr2_log_i(" fast_merge_mode       (fast_enable)           = %d\n", t->fast_merge_mode);
    tav_sr2_log_i(" dither_noise_mode     (cross_enable)          = %d\n", t->dither_noise_mode);
    tav_sr2_log_i(" hfe_level             (128 + hfe_level)       = %d\n", t->hfe_level);
    tav_sr2_log_i(" hfe_white_level       (hfe_white_level)       = %d\n", t->hfe_white_level);
    tav_sr2_log_i(" hfe_black_level       (hfe_black_level)       = %d\n", t->hfe_black_level);
    tav_sr2_log_i(" hfe_thr               (hfe_thr)               = %d\n", t->hfe_thr);
    tav_sr2_log_i(" high_freq_uvnr_enable (c_hf_nr_enable)        = %d\n",
                  t->high_freq_uvnr_enable);
    tav_sr2_log_i(" deghost_deg           (deghost_level)         = %f\n", t->deghost_deg);
    tav_sr2_log_i(" deghost_gauss_sigma0  (deghost_sigma)         = %f\n", t->deghost_gauss_sigma0);
    tav_sr2_log_i(" deghost_face_weight   (deghost_weight_face)   = %d\n", t->deghost_face_weight);
    tav_sr2_log_i(" deghost_noise_level   (deghost_nr_level)      = %f\n", t->deghost_noise_level);
    tav_sr2_log_i(" deghost_ofs           (ghost_ratio_thres)     = %f\n", t->deghost_ofs);
    tav_sr2_log_i(" noise_level_4ghost_ratio_scale (ghost_sigle_nr_level) = %f\n",
                  t->noise_level_4ghost_ratio_scale);
    tav_sr2_log_i(" ghost_nr_level        (ghost_nr_level)        = %f\n", t->ghost_nr_level);
    tav_sr2_log_i(" gf_eps2               (y_nr_level)            = %f\n", t->gf_eps2);
    tav_sr2_log_i(" gf_window2            (y_nr_mode:3,9,21,41)   = %d\n", t->gf_window2);
    tav_sr2_log_i(" num_nr_times_y        (y_nr_times)            = %d\n", t->num_nr_times_y);
    tav_sr2_log_i(" ynr_high_eps          (y_hf_nr_level)         = %f\n", t->ynr_high_eps);
    tav_sr2_log_i(" ynr_low_eps           (y_lf_nr_level)         = %f\n", t->ynr_low_eps);
    tav_sr2_log_i(" dirnr                 (y_edge_nr_level)       = %f\n", t->dirnr);
    tav_sr2_log_i(" dirnr_radius          (y_edge_nr_radius)      = %d\n", t->dirnr_radius);
    tav_sr2_log_i(" dirnr_ghost_nr        (y_edge_ghost_nr_level) = %f\n", t->dirnr_ghost_nr);
    tav_sr2_log_i(" dark_area_nr_level    (dark_nr_level)         = %f\n", t->dark_area_nr_level);
    tav_sr2_log_i(" noise_level_uv        (c_nr_level)            = %f\n", t->noise_level_uv);
    tav_sr2_log_i(" num_nr_times_uv       (c_nr_times)            = %d\n", t->num_nr_times_uv);
    tav_sr2_log_i(" nr_uv_window          (c_nr_mode:3,9,21,41)   = %d\n", t->nr_uv_window);
    tav_sr2_log_i(" c_nr_clip_sigma       (c_lf_nr_level)         = %d\n", t->c_nr_clip_sigma);
    tav_sr2_log_i(" do_unsharp            (unsharp_level)         = %d\n", t->do_unsharp);
    tav_sr2_log_i(" unsharp_sigma2        (unsharp_range_low)     = %f\n", t->unsharp_sigma2);
    tav_sr2_log_i(" unsharp_sigma         (unsharp_range_high)    = %f\n", t->unsharp_sigma);
    tav_sr2_log_i(" unsharp_noise_level   (unsharp_nr_level)      = %f\n", t->unsharp_noise_level);
    tav_sr2_log_i(" unsharp_method        (unsharp_mode)          = %d\n", t->unsharp_method);
    tav_sr2_log_i(" contrast_enhance_blur_sigma (structure_sigma) = %f\n",
                  t->contrast_enhance_blur_sigma);
    tav_sr2_log_i(" contrast_enhance_extra_arg (structure_level)  = %d\n",
                  t->contrast_enhance_extra_arg);
    tav_sr2_log_i(" deblur_psf            (deblur_level)          = %f\n", t->deblur_psf);
    tav_sr2_log_i(" deblur_scale          (deblur_scale)          = %f\n", t->deblur_scale);
    tav_sr2_log_i(" stucture_eps_low      (lce_lf)                = %f\n", t->stucture_eps_low);
    tav_sr2_log_i(" stucture_eps_high     (lce_hf)                = %f\n", t->stucture_eps_high);
    tav_sr2_log_i(" stucture_strength     (lce_level)             = %d\n", t->stucture_strength);
    tav_sr2_log_i(" white_edge_level      (white_edge_level)      = %f\n", t->white_edge_level);
    tav_sr2_log_i(" black_edge_level      (black_edge_level)      = %f\n", t->black_edge_level);
    tav_sr2_log_i(" adrc_gain                         (adrc_gain) = %f\n", t->adrc_gain);
    tav_sr2_log_i(" dither_noise_level(grain_adder = 1.5 * adrc_gain) = %f\n",
                  t->dither_noise_level);
    tav_sr2_log_i(" dither_thr            (grain_adder_thr)       = %d\n", t->dither_thr);
    tav_sr2_log_i(" dither_pepper_noise_level (p_grain_adder)     = %f\n",
                  t->dither_pepper_noise_level);
    tav_sr2_log_i(" dither_uv_noise_level (c_grain_adder)         = %f\n",
                  t->dither_uv_noise_level);
}

void printInternalFields(const sr_tunning_param* t) {
    tav_sr2_log_i("%s", kStars);
    tav_sr2_log_i("****** print sr_internal_param ****** \n");
    tav_sr2_log_i("[param]zoom_ratio = %f\n", t->zoom_ratio);
    tav_sr2_log_i("[param]internal_zoom_ratio = %f\n", t->internal_zoom_ratio);
    tav_sr2_log_i("[param]output_width = %d\n", t->output_width);
    tav_sr2_log_i("[param]output_height = %d\n", t->output_height);
    tav_sr2_log_i("[param]use_16bit = %d\n", t->use_16bit);
    tav_sr2_log_i("[param]keld_mode = %d\n", t->keld_mode);
    tav_sr2_log_i("[param]base_id = %d\n", t->base_id);
    tav_sr2_log_i("[param]select_frame = %d\n", t->select_frame);
    tav_sr2_log_i("[param]sharpness_skip_ratio = %f\n", t->sharpness_skip_ratio);
    tav_sr2_log_i("[param]eval_blur_sigma = %f\n", t->eval_blur_sigma);
    tav_sr2_log_i("[param]eval_blur_shrink_ratio = %d\n", t->eval_blur_shrink_ratio);
    tav_sr2_log_i("[param]detectmotion_shrink_ratio = %d\n", t->detectmotion_shrink_ratio);
    // The deblur pass's noise limit lives in the record as deblur_limit.
    tav_sr2_log_i("[param]deblur_noise_level = %f\n", t->deblur_limit);
    tav_sr2_log_i("[param]do_unsharp_rate_for_skin = %f\n", t->do_unsharp_rate_for_skin);
    tav_sr2_log_i("[param]unsharp_4ghost_ratio = %f\n", t->unsharp_4ghost_ratio);
    tav_sr2_log_i("[param]nr_y_range = [%d, %d, %d, %d]\n", t->nr_y_range[0], t->nr_y_range[1],
                  t->nr_y_range[2], t->nr_y_range[3]);
    tav_sr2_log_i("[param]nr_y_strength = [%f, %f, %f, %f]\n", t->nr_y_strength[0],
                  t->nr_y_strength[1], t->nr_y_strength[2], t->nr_y_strength[3]);
    tav_sr2_log_i("[param]denoise_uv_strength = %f\n", t->denoise_uv_strength);
    tav_sr2_log_i("[param]gf_clip_eps2 = %f\n", t->gf_clip_eps2);
    tav_sr2_log_i("[param]gf_clip_window2 = %d\n", t->gf_clip_window2);
    tav_sr2_log_i("[param]large_move_ratio_thres = %d\n", t->large_move_ratio_thres);
    tav_sr2_log_i("[param]removebrightnessdiff_image_enable = %d\n",
                  t->removebrightnessdiff_image_enable);
}

}  // namespace

void tav_sr2_SrParams_print(const sr_tunning_param* tuning) {
    printTunedFields(tuning);
    printInternalFields(tuning);
}
