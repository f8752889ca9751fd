// tavrin_KELD_EvParams: the tuning of one frame group as the parameter file states it, one field
// per file key, and the instance's block of five of them.
//
// The defaults are what a record holds before the file is read; a key the file lacks keeps its
// default. select_frame and base_index have no key: base_index is set when a frame arrives
// marked as the base. The key ghost_sigle_nr_level is spelled so in every file.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "engine/sr_params.h"

static const int32_t TAVRIN_KELD_MAX_EV_GROUPS = 5;

struct tavrin_KELD_EvParams {
    int32_t light_enable;
    int32_t fast_enable;
    int32_t cross_enable;
    int32_t hfe_level;
    int32_t hfe_black_level;
    int32_t hfe_white_level;
    int32_t hfe_thr;
    int32_t c_hf_nr_enable;
    double deghost_level;
    double deghost_level_face;
    double deghost_sigma;
    double deghost_sigma_face;
    int32_t deghost_weight_face;
    double deghost_nr_level;
    double deghost_nr_level_face;
    double ghost_ratio_thres;
    double ghost_ratio_thres_face;
    double ghost_sigle_nr_level;
    double ghost_nr_level;
    double y_nr_level;
    int32_t y_nr_mode;
    int32_t y_nr_times;
    double y_lf_nr_level;
    double y_hf_nr_level;
    double y_edge_nr_level;
    double y_edge_ghost_nr_level;
    int32_t y_edge_nr_radius;
    double dark_nr_level;
    double y_input_nr_level;
    double c_nr_level;
    int32_t c_nr_times;
    int32_t c_nr_mode;
    int32_t c_lf_nr_level;
    int32_t unsharp_level;
    double unsharp_range_low;
    double unsharp_range_high;
    double unsharp_nr_level;
    int32_t unsharp_mode;
    int32_t structure_level;
    double structure_sigma;
    double deblur_level;
    double deblur_scale;
    int32_t lce_level;
    double lce_lf;
    double lce_hf;
    double white_edge_level;
    double black_edge_level;
    double grain_adder;
    int32_t grain_adder_thr;
    double p_grain_adder;
    double c_grain_adder;
    int32_t select_frame;
    int32_t base_index;
};

static_assert(offsetof(tavrin_KELD_EvParams, deghost_level) == 32);
static_assert(offsetof(tavrin_KELD_EvParams, base_index) == 348);
static_assert(sizeof(tavrin_KELD_EvParams) == 352);

// The instance's ev_params: one record per frame group and a reserved tail, cleared and copied
// with them.
struct tavrin_KELD_EvParamsBlock {
    tavrin_KELD_EvParams ev[TAVRIN_KELD_MAX_EV_GROUPS];
    uint8_t reserved[64];
};

// One field of tavrin_KELD_EvParams: its name (the file's key), its value type (the parser's
// TAVRIN_KELD_XML_INT or TAVRIN_KELD_XML_DOUBLE) and its place in the record.
struct tavrin_KELD_EvParamField {
    const char* name;
    int32_t type;
    uint32_t offset;
    bool in_file;  // false for select_frame and base_index
};

// Every field, in the order of the print-out: the record's order, but hfe_white_level before
// hfe_black_level.
static const int32_t TAVRIN_KELD_EV_PARAM_FIELDS = 53;
extern const tavrin_KELD_EvParamField tavrin_KELD_evParamFields[TAVRIN_KELD_EV_PARAM_FIELDS];

// The defaults of one record.
extern const tavrin_KELD_EvParams tavrin_KELD_evParamsDefault;

// Zeroes the whole block, then writes the defaults into the first num_evs records.
// TAV_ERROR_PARAM (with the "Error params" line) for a null block or num_evs outside 1..5.
uint32_t TavrinKELD_internal_getDefaultParams(int32_t num_evs, tavrin_KELD_EvParamsBlock* params);

// Copies params into the instance's block dst. If log_level has the bit of value 2, prints the
// first num_evs records field by field under "EV[%d] SuperResolution Params:".
// TAV_ERROR_PARAM for a null block or num_evs outside 1..5.
uint32_t TavrinKELD_internal_setParams(tavrin_KELD_EvParamsBlock* dst,
                                       const tavrin_KELD_EvParamsBlock* params, int32_t num_evs,
                                       int32_t log_level);

// Which deghost keys feed the engine: the plain ones, the _face ones (with
// deghost_weight_face), or the plain ones with deghost_weight_face forced to 0.
static const int32_t TAVRIN_KELD_DEGHOST_PLAIN = 0;
static const int32_t TAVRIN_KELD_DEGHOST_FACE = 1;
static const int32_t TAVRIN_KELD_DEGHOST_NO_FACE = -1;

// The choice of the instance: face keys when a face was added or face_enable is at least 1
// ("use face deghost params"), then plain keys without face weight when face_enable is -1
// ("disable face deghost params"). Both lines are debug lines.
int32_t TavrinKELD_internal_chooseDeghost(int32_t face_num, int32_t face_enable, int32_t log_level);

// Overwrites every keyed field of sr from ev, the deghost keys as deghost_mode says. The rows
// without a key (keld_mode, removebrightnessdiff_image_enable, do_unsharp_rate_for_skin,
// sharpness_skip_ratio) keep what sr held. Values are copied as they stand: the engine limits
// them when they enter it.
void TavrinKELD_internal_toSrParams(const tavrin_KELD_EvParams* ev, int32_t deghost_mode,
                                    tav_sr2_SrParams* sr);
