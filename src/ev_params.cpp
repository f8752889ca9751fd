// Frame-group tuning records: defaults, the field table, the copy into the instance with its
// print-out, and the hand-over to the engine's record.
//
// TavrinKELD_internal_getDefaultParams: clears the whole block, reserved tail included, and
//   writes the defaults into the first num_evs records.
// TavrinKELD_internal_setParams: a plain copy of the block; with the bit of value 2 in the log
//   level every field of the first num_evs records is printed at debug priority, one line each,
//   as "name" padded to 23 columns, "= ", and the value ("%d" or "%f").
// TavrinKELD_internal_toSrParams: field-by-field copy by key; nothing is limited here.
#include "src/ev_params.h"

#include <string.h>

#include "foundation/status.h"
#include "src/keld_log.h"
#include "src/xml_parser.h"

#define TAVRIN_KELD_FIELD(name, type) \
    { #name, type, static_cast < uint32_t>(offsetof(tavrin_KELD_EvParams, name)), true }

namespace {

constexpr int32_t kInt = TAVRIN_KELD_XML_INT;
constexpr int32_t kDouble = TAVRIN_KELD_XML_DOUBLE;

bool validGroupCount(int32_t num_evs) {
    return num_evs >= 1 && num_evs <= TAVRIN_KELD_MAX_EV_GROUPS;
}

void printRecord(int32_t index, const tavrin_KELD_EvParams* ev) {
    __android_log_print(ANDROID_LOG_DEBUG, TAVRIN_KELD_LOG_TAG,
                        "EV[%d] SuperResolution Params:", index);
    const char* base = reinterpret_cast<const char*>(ev);
    for (const tavrin_KELD_EvParamField& f : tavrin_KELD_evParamFields) {
        if (f.type == kInt) {
            int32_t v;
            memcpy(&v, base + f.offset, sizeof v);
            __android_log_print(ANDROID_LOG_DEBUG, TAVRIN_KELD_LOG_TAG, "%-23s= %d", f.name, v);
        } else {
            double v;
            memcpy(&v, base + f.offset, sizeof v);
            __android_log_print(ANDROID_LOG_DEBUG, TAVRIN_KELD_LOG_TAG, "%-23s= %f", f.name, v);
        }
    }
}

}  // namespace

const tavrin_KELD_EvParamField tavrin_KELD_evParamFields[TAVRIN_KELD_EV_PARAM_FIELDS] = {
    TAVRIN_KELD_FIELD(light_enable, kInt),
    TAVRIN_KELD_FIELD(fast_enable, kInt),
    TAVRIN_KELD_FIELD(cross_enable, kInt),
    TAVRIN_KELD_FIELD(hfe_level, kInt),
    TAVRIN_KELD_FIELD(hfe_white_level, kInt),
    TAVRIN_KELD_FIELD(hfe_black_level, kInt),
    TAVRIN_KELD_FIELD(hfe_thr, kInt),
    TAVRIN_KELD_FIELD(c_hf_nr_enable, kInt),
    TAVRIN_KELD_FIELD(deghost_level, kDouble),
    TAVRIN_KELD_FIELD(deghost_level_face, kDouble),
    TAVRIN_KELD_FIELD(deghost_sigma, kDouble),
    TAVRIN_KELD_FIELD(deghost_sigma_face, kDouble),
    TAVRIN_KELD_FIELD(deghost_weight_face, kInt),
    TAVRIN_KELD_FIELD(deghost_nr_level, kDouble),
    TAVRIN_KELD_FIELD(deghost_nr_level_face, kDouble),
    TAVRIN_KELD_FIELD(ghost_ratio_thres, kDouble),
    TAVRIN_KELD_FIELD(ghost_ratio_thres_face, kDouble),
    TAVRIN_KELD_FIELD(ghost_sigle_nr_level, kDouble),
    TAVRIN_KELD_FIELD(ghost_nr_level, kDouble),
    TAVRIN_KELD_FIELD(y_nr_level, kDouble),
    TAVRIN_KELD_FIELD(y_nr_mode, kInt),
    TAVRIN_KELD_FIELD(y_nr_times, kInt),
    TAVRIN_KELD_FIELD(y_lf_nr_level, kDouble),
    TAVRIN_KELD_FIELD(y_hf_nr_level, kDouble),
    TAVRIN_KELD_FIELD(y_edge_nr_level, kDouble),
    TAVRIN_KELD_FIELD(y_edge_ghost_nr_level, kDouble),
    TAVRIN_KELD_FIELD(y_edge_nr_radius, kInt),
    TAVRIN_KELD_FIELD(dark_nr_level, kDouble),
    TAVRIN_KELD_FIELD(y_input_nr_level, kDouble),
    TAVRIN_KELD_FIELD(c_nr_level, kDouble),
    TAVRIN_KELD_FIELD(c_nr_times, kInt),
    TAVRIN_KELD_FIELD(c_nr_mode, kInt),
    TAVRIN_KELD_FIELD(c_lf_nr_level, kInt),
    TAVRIN_KELD_FIELD(unsharp_level, kInt),
    TAVRIN_KELD_FIELD(unsharp_range_low, kDouble),
    TAVRIN_KELD_FIELD(unsharp_range_high, kDouble),
    TAVRIN_KELD_FIELD(unsharp_nr_level, kDouble),
    TAVRIN_KELD_FIELD(unsharp_mode, kInt),
    TAVRIN_KELD_FIELD(structure_level, kInt),
    TAVRIN_KELD_FIELD(structure_sigma, kDouble),
    TAVRIN_KELD_FIELD(deblur_level, kDouble),
    TAVRIN_KELD_FIELD(deblur_scale, kDouble),
    TAVRIN_KELD_FIELD(lce_level, kInt),
    TAVRIN_KELD_FIELD(lce_lf, kDouble),
    TAVRIN_KELD_FIELD(lce_hf, kDouble),
    TAVRIN_KELD_FIELD(white_edge_level, kDouble),
    TAVRIN_KELD_FIELD(black_edge_level, kDouble),
    TAVRIN_KELD_FIELD(grain_adder, kDouble),
    TAVRIN_KELD_FIELD(grain_adder_thr, kInt),
    TAVRIN_KELD_FIELD(p_grain_adder, kDouble),
    TAVRIN_KELD_FIELD(c_grain_adder, kDouble),
    {"select_frame", kInt, offsetof(tavrin_KELD_EvParams, select_frame), false},
    {"base_index", kInt, offsetof(tavrin_KELD_EvParams, base_index), false},
};

const tavrin_KELD_EvParams tavrin_KELD_evParamsDefault = {
    .light_enable = 0,
    .fast_enable = 0,
    .cross_enable = 0,
    .hfe_level = 0,
    .hfe_black_level = -64,
    .hfe_white_level = 64,
    .hfe_thr = 128,
    .c_hf_nr_enable = 0,
    .deghost_level = 1.0,
    .deghost_level_face = 1.0,
    .deghost_sigma = 0.8,
    .deghost_sigma_face = 1.8,
    .deghost_weight_face = 0,
    .deghost_nr_level = 1.0,
    .deghost_nr_level_face = 1.0,
    .ghost_ratio_thres = 18.0,
    .ghost_ratio_thres_face = 18.0,
    .ghost_sigle_nr_level = 4.0,
    .ghost_nr_level = 1.5,
    .y_nr_level = 0,
    .y_nr_mode = 0,
    .y_nr_times = 0,
    .y_lf_nr_level = 0,
    .y_hf_nr_level = 0,
    .y_edge_nr_level = 0,
    .y_edge_ghost_nr_level = 1.0,
    .y_edge_nr_radius = 3,
    .dark_nr_level = 1.0,
    .y_input_nr_level = 0,
    .c_nr_level = 0,
    .c_nr_times = 0,
    .c_nr_mode = 0,
    .c_lf_nr_level = 0,
    .unsharp_level = 0,
    .unsharp_range_low = 0.1,
    .unsharp_range_high = 1.0,
    .unsharp_nr_level = 0,
    .unsharp_mode = 3,
    .structure_level = 0,
    .structure_sigma = 0.8,
    .deblur_level = 0,
    .deblur_scale = 1.0,
    .lce_level = 0,
    .lce_lf = 500.0,
    .lce_hf = 0,
    .white_edge_level = 1.0,
    .black_edge_level = 1.0,
    .grain_adder = 0,
    .grain_adder_thr = 512,
    .p_grain_adder = 0,
    .c_grain_adder = 0,
    .select_frame = 1,
    .base_index = -1,
};

uint32_t TavrinKELD_internal_getDefaultParams(int32_t num_evs, tavrin_KELD_EvParamsBlock* params) {
    if (!params || !validGroupCount(num_evs)) {
        TAVRIN_KELD_LOG_PARAM_ERROR();
        return TAV_ERROR_PARAM;
    }
    memset(params, 0, sizeof *params);
    for (int32_t g = 0; g < num_evs; g++)
        params->ev[g] = tavrin_KELD_evParamsDefault;
    return TAV_OK;
}

uint32_t TavrinKELD_internal_setParams(tavrin_KELD_EvParamsBlock* dst,
                                       const tavrin_KELD_EvParamsBlock* params, int32_t num_evs,
                                       int32_t log_level) {
    if (!dst || !params || !validGroupCount(num_evs)) {
        TAVRIN_KELD_LOG_PARAM_ERROR();
        return TAV_ERROR_PARAM;
    }
    memmove(dst, params, sizeof *dst);
    if (log_level & 2) {
        for (int32_t g = 0; g < num_evs; g++)
            printRecord(g, &dst->ev[g]);
    }
    return TAV_OK;
}

int32_t TavrinKELD_internal_chooseDeghost(int32_t face_num, int32_t face_enable,
                                          int32_t log_level) {
    int32_t mode = TAVRIN_KELD_DEGHOST_PLAIN;
    if (face_num >= 1 || face_enable >= 1) {
        TavrinKELD_logDebug(log_level, "use face deghost params");
        mode = TAVRIN_KELD_DEGHOST_FACE;
    }
    if (face_enable == -1) {
        TavrinKELD_logDebug(log_level, "disable face deghost params");
        mode = TAVRIN_KELD_DEGHOST_NO_FACE;
    }
    return mode;
}

void TavrinKELD_internal_toSrParams(const tavrin_KELD_EvParams* ev, int32_t deghost_mode,
                                    tav_sr2_SrParams* sr) {
    sr->light_enable = ev->light_enable;
    sr->fast_enable = ev->fast_enable;
    sr->cross_enable = ev->cross_enable;
    sr->hfe_level = ev->hfe_level;
    sr->hfe_white_level = ev->hfe_white_level;
    sr->hfe_black_level = ev->hfe_black_level;
    sr->hfe_thr = ev->hfe_thr;
    sr->c_hf_nr_enable = ev->c_hf_nr_enable;

    const bool face = deghost_mode == TAVRIN_KELD_DEGHOST_FACE;
    sr->deghost_level = face ? ev->deghost_level_face : ev->deghost_level;
    sr->deghost_sigma = face ? ev->deghost_sigma_face : ev->deghost_sigma;
    sr->deghost_weight_face =
        deghost_mode == TAVRIN_KELD_DEGHOST_NO_FACE ? 0 : ev->deghost_weight_face;
    sr->deghost_nr_level = face ? ev->deghost_nr_level_face : ev->deghost_nr_level;
    sr->ghost_ratio_thres = face ? ev->ghost_ratio_thres_face : ev->ghost_ratio_thres;

    sr->ghost_sigle_nr_level = ev->ghost_sigle_nr_level;
    sr->ghost_nr_level = ev->ghost_nr_level;
    sr->y_nr_level = ev->y_nr_level;
    sr->y_nr_mode = ev->y_nr_mode;
    sr->y_nr_times = ev->y_nr_times;
    sr->y_hf_nr_level = ev->y_hf_nr_level;
    sr->y_lf_nr_level = ev->y_lf_nr_level;
    sr->y_edge_nr_level = ev->y_edge_nr_level;
    sr->y_edge_nr_radius = ev->y_edge_nr_radius;
    sr->y_edge_ghost_nr_level = ev->y_edge_ghost_nr_level;
    sr->dark_nr_level = ev->dark_nr_level;
    sr->y_input_nr_level = ev->y_input_nr_level;
    sr->c_nr_level = ev->c_nr_level;
    sr->c_nr_times = ev->c_nr_times;
    sr->c_nr_mode = ev->c_nr_mode;
    sr->c_lf_nr_level = ev->c_lf_nr_level;
    sr->unsharp_level = ev->unsharp_level;
    sr->unsharp_range_low = ev->unsharp_range_low;
    sr->unsharp_range_high = ev->unsharp_range_high;
    sr->unsharp_nr_level = ev->unsharp_nr_level;
    sr->unsharp_mode = ev->unsharp_mode;
    sr->structure_sigma = ev->structure_sigma;
    sr->structure_level = ev->structure_level;
    sr->deblur_level = ev->deblur_level;
    sr->deblur_scale = ev->deblur_scale;
    sr->lce_lf = ev->lce_lf;
    sr->lce_hf = ev->lce_hf;
    sr->lce_level = ev->lce_level;
    sr->white_edge_level = ev->white_edge_level;
    sr->black_edge_level = ev->black_edge_level;
    sr->grain_adder = ev->grain_adder;
    sr->grain_adder_thr = ev->grain_adder_thr;
    sr->p_grain_adder = ev->p_grain_adder;
    sr->c_grain_adder = ev->c_grain_adder;
    sr->select_frame = ev->select_frame;
    sr->base_index = ev->base_index;
}
