// Engine tuning: the record that crosses the engine API (tav_sr2_SrParams) and the record the
// stages read (sr_tunning_param), with the rules that carry one into the other.
//
// Every limit on a tuning value is applied here, on the way into sr_tunning_param, so that no
// stage ever checks a range. Out-of-range values are no failure: they are limited silently, and a
// NaN in a limited floating field gives the lower limit.
//
// What the engine functions built on these must add (they live with tav_sr2_Engine):
//
//   tav_sr2_getParams(engine, params):
//     - TAV_ERROR_PARAM if engine or params is NULL;
//     - TAV_ERROR_STATE unless bit 1 (initialised) of engine->state is set;
//     - tav_sr2_SrParams_fromTuning(&engine's sr_tunning_param, engine->y_input_nr_level, params);
//     - TAV_OK.
//   tav_sr2_setParams(engine, params):
//     - the same NULL and state checks, with the same statuses;
//     - super_zoom = input_width < output_width && input_height < output_height (both);
//     - tav_sr2_SrParams_apply(params, super_zoom, &engine's sr_tunning_param,
//                              &engine->y_input_nr_level);
//     - TAV_OK. There is no failure after the checks and nothing is logged.
//   tav_sr2_init: tav_sr2_SrParams_setDefault on the zeroed engine's record, then output_width,
//     output_height, zoom_ratio and internal_zoom_ratio as the engine's rules say.
//   tav_sr2_setCondition: writes iso and adrc_gain of the engine's record; nothing here touches
//     them except the print-out.
//   tav_sr2_Pipeline_start: tav_sr2_SrParams_print(&pipeline's copy) as its last step.
//
// sr_tunning_param keeps its historical spellings (sr_tunning_param, stucture_*): the print-out
// and every stage use these names.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Tuning as it crosses the engine API: one field per row of the mapping, in the mapping's order,
// named by the parameter file's key (the plain key where the instance picks between a plain and
// a _face key) or, for rows without a key, by the field it feeds.
struct tav_sr2_SrParams {
    int32_t light_enable;
    int32_t fast_enable;
    int32_t cross_enable;
    int32_t hfe_level;
    int32_t hfe_white_level;
    int32_t hfe_black_level;
    int32_t hfe_thr;
    int32_t c_hf_nr_enable;
    int32_t keld_mode;
    int32_t removebrightnessdiff_image_enable;
    double deghost_level;  // deghost_level or deghost_level_face
    double deghost_sigma;  // deghost_sigma or deghost_sigma_face
    int32_t deghost_weight_face;
    double deghost_nr_level;   // deghost_nr_level or deghost_nr_level_face
    double ghost_ratio_thres;  // ghost_ratio_thres or ghost_ratio_thres_face
    double ghost_sigle_nr_level;
    double ghost_nr_level;
    double y_nr_level;
    int32_t y_nr_mode;  // index 0..3 into the windows 3, 9, 21, 41
    int32_t y_nr_times;
    double y_hf_nr_level;
    double y_lf_nr_level;
    double y_edge_nr_level;
    int32_t y_edge_nr_radius;
    double y_edge_ghost_nr_level;
    double dark_nr_level;
    double y_input_nr_level;  // the engine's own field, not sr_tunning_param's
    double c_nr_level;
    int32_t c_nr_times;
    int32_t c_nr_mode;  // index 0..3 into the windows 3, 9, 21, 41
    int32_t c_lf_nr_level;
    int32_t unsharp_level;
    double unsharp_range_low;
    double unsharp_range_high;
    double unsharp_nr_level;
    int32_t unsharp_mode;
    double structure_sigma;
    int32_t structure_level;
    double deblur_level;
    double deblur_scale;
    double lce_lf;
    double lce_hf;
    int32_t lce_level;
    double white_edge_level;
    double black_edge_level;
    double grain_adder;
    int32_t grain_adder_thr;
    double p_grain_adder;
    double c_grain_adder;
    double do_unsharp_rate_for_skin;
    int32_t select_frame;
    double sharpness_skip_ratio;
    int32_t base_index;
};

static_assert(offsetof(tav_sr2_SrParams, deghost_level) == 40);
static_assert(offsetof(tav_sr2_SrParams, y_input_nr_level) == 160);
static_assert(offsetof(tav_sr2_SrParams, base_index) == 352);
static_assert(sizeof(tav_sr2_SrParams) == 360);

// Tuning as the stages read it, already limited. Fields the defaults leave alone are 0 through
// the zeroing of the engine.
struct sr_tunning_param {
    double zoom_ratio;
    double internal_zoom_ratio;  // zoom at which the frames merge
    int32_t output_width;
    int32_t output_height;
    int32_t use_16bit;  // 1 GPU merge, 0 CPU merge
    int32_t keld_mode;  // printed only
    int32_t base_id;    // forced base frame, negative for none
    int32_t select_frame;
    double sharpness_skip_ratio;
    double eval_blur_sigma;
    int32_t eval_blur_shrink_ratio;
    int32_t detectmotion_shrink_ratio;
    double upscale_bank_mix;
    int32_t do_unsharp;
    double do_unsharp_rate_for_skin;
    int32_t unsharp_method;
    double unsharp_sigma;
    double unsharp_sigma2;
    double unsharp_4ghost_ratio;
    double unsharp_noise_level;
    int32_t merge_reserved;  // kept as set; no stage reads it
    double deghost_ofs;
    double deghost_deg;
    float deblur_psf;
    float deblur_scale;
    float deblur_limit;  // printed as deblur_noise_level
    float white_edge_level;
    float black_edge_level;
    int32_t num_nr_times_y;
    int32_t nr_y_range[4];
    double nr_y_strength[4];
    double noise_level;
    double noise_level_4ghost_ratio;
    double noise_level_4ghost_ratio_scale;
    int32_t num_nr_times_uv;
    double noise_level_uv;
    double denoise_uv_strength;
    int32_t uv_strength_base;
    int32_t high_freq_uvnr_enable;
    int32_t dark_light_nr_enable;
    int32_t nr_uv_window;
    double gf_eps2;
    int32_t gf_window2;
    double dirnr;
    double deghost_noise_level;
    double deghost_gauss_sigma0;
    double contrast_enhance_blur_sigma;
    int32_t contrast_enhance_extra_arg;
    double stucture_eps_low;
    double stucture_eps_high;
    int32_t stucture_strength;
    int32_t large_move_ratio_thres;  // percent
    double dither_noise_level;
    double dither_pepper_noise_level;
    double dither_uv_noise_level;
    int32_t dither_thr;
    int32_t dither_noise_mode;
    int32_t removebrightnessdiff_image_enable;
    double gf_clip_eps2;
    int32_t gf_clip_window2;
    int32_t c_nr_clip_sigma;
    int32_t iso;  // from tav_sr2_setCondition
    double adrc_gain;
    int32_t fast_merge_mode;
    double dark_area_nr_level;
    double ghost_nr_level;
    int32_t deghost_face_weight;
    double ynr_high_eps;
    double ynr_low_eps;
    int32_t hfe_level;  // always carries bit 128 once set through tav_sr2_SrParams_apply
    int32_t hfe_white_level;
    int32_t hfe_black_level;
    int32_t dirnr_radius;
    int32_t hfe_thr;
    float dirnr_ghost_nr;
};

static_assert(offsetof(sr_tunning_param, sharpness_skip_ratio) == 40);
static_assert(offsetof(sr_tunning_param, deblur_psf) == 152);
static_assert(offsetof(sr_tunning_param, nr_y_strength) == 192);
static_assert(offsetof(sr_tunning_param, iso) == 424);
static_assert(offsetof(sr_tunning_param, dirnr_ghost_nr) == 508);
static_assert(sizeof(sr_tunning_param) == 512);

// Writes the default of every field that has one; all other fields are left as they are.
void tav_sr2_SrParams_setDefault(sr_tunning_param* tuning);

// Limits every field of params into tuning, and y_input_nr_level into *y_input_nr_level (the
// engine's field). super_zoom is non-zero when the frame is narrower and lower than the output;
// it forces detectmotion_shrink_ratio to 2. Fields without a row in the mapping are untouched.
void tav_sr2_SrParams_apply(const tav_sr2_SrParams* params, int super_zoom,
                            sr_tunning_param* tuning, double* y_input_nr_level);

// The reverse of apply: window sizes go back to their index (an unknown window gives 1) and
// hfe_level comes back as stored, with its bit 128.
void tav_sr2_SrParams_fromTuning(const sr_tunning_param* tuning, double y_input_nr_level,
                                 tav_sr2_SrParams* params);

// The engine's print-out of a tuning record through the engine log at info level.
void tav_sr2_SrParams_print(const sr_tunning_param* tuning);
