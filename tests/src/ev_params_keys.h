// The file keys of tavrin_KELD_EvParams written out by hand, each with the record member it must
// land in and the member of tav_sr2_SrParams it feeds. Tests compare the library's own table and
// hand-over against this list, so a misspelt key or a crossed field shows up.
#pragma once

#include "engine/sr_params.h"
#include "src/ev_params.h"

namespace ev_keys {

using Ev = tavrin_KELD_EvParams;
using Sr = tav_sr2_SrParams;

struct IntKey {
    const char* name;
    int32_t Ev::*ev;
    int32_t Sr::*sr;  // null where the key has no plain counterpart in the engine record
};

struct DoubleKey {
    const char* name;
    double Ev::*ev;
    double Sr::*sr;
};

inline const IntKey kIntKeys[] = {
    {"light_enable", &Ev::light_enable, &Sr::light_enable},
    {"fast_enable", &Ev::fast_enable, &Sr::fast_enable},
    {"cross_enable", &Ev::cross_enable, &Sr::cross_enable},
    {"hfe_level", &Ev::hfe_level, &Sr::hfe_level},
    {"hfe_black_level", &Ev::hfe_black_level, &Sr::hfe_black_level},
    {"hfe_white_level", &Ev::hfe_white_level, &Sr::hfe_white_level},
    {"hfe_thr", &Ev::hfe_thr, &Sr::hfe_thr},
    {"c_hf_nr_enable", &Ev::c_hf_nr_enable, &Sr::c_hf_nr_enable},
    {"deghost_weight_face", &Ev::deghost_weight_face, nullptr},
    {"y_nr_mode", &Ev::y_nr_mode, &Sr::y_nr_mode},
    {"y_nr_times", &Ev::y_nr_times, &Sr::y_nr_times},
    {"y_edge_nr_radius", &Ev::y_edge_nr_radius, &Sr::y_edge_nr_radius},
    {"c_nr_times", &Ev::c_nr_times, &Sr::c_nr_times},
    {"c_nr_mode", &Ev::c_nr_mode, &Sr::c_nr_mode},
    {"c_lf_nr_level", &Ev::c_lf_nr_level, &Sr::c_lf_nr_level},
    {"unsharp_level", &Ev::unsharp_level, &Sr::unsharp_level},
    {"unsharp_mode", &Ev::unsharp_mode, &Sr::unsharp_mode},
    {"structure_level", &Ev::structure_level, &Sr::structure_level},
    {"lce_level", &Ev::lce_level, &Sr::lce_level},
    {"grain_adder_thr", &Ev::grain_adder_thr, &Sr::grain_adder_thr},
};

inline const DoubleKey kDoubleKeys[] = {
    {"deghost_level", &Ev::deghost_level, nullptr},
    {"deghost_level_face", &Ev::deghost_level_face, nullptr},
    {"deghost_sigma", &Ev::deghost_sigma, nullptr},
    {"deghost_sigma_face", &Ev::deghost_sigma_face, nullptr},
    {"deghost_nr_level", &Ev::deghost_nr_level, nullptr},
    {"deghost_nr_level_face", &Ev::deghost_nr_level_face, nullptr},
    {"ghost_ratio_thres", &Ev::ghost_ratio_thres, nullptr},
    {"ghost_ratio_thres_face", &Ev::ghost_ratio_thres_face, nullptr},
    {"ghost_sigle_nr_level", &Ev::ghost_sigle_nr_level, &Sr::ghost_sigle_nr_level},
    {"ghost_nr_level", &Ev::ghost_nr_level, &Sr::ghost_nr_level},
    {"y_nr_level", &Ev::y_nr_level, &Sr::y_nr_level},
    {"y_lf_nr_level", &Ev::y_lf_nr_level, &Sr::y_lf_nr_level},
    {"y_hf_nr_level", &Ev::y_hf_nr_level, &Sr::y_hf_nr_level},
    {"y_edge_nr_level", &Ev::y_edge_nr_level, &Sr::y_edge_nr_level},
    {"y_edge_ghost_nr_level", &Ev::y_edge_ghost_nr_level, &Sr::y_edge_ghost_nr_level},
    {"dark_nr_level", &Ev::dark_nr_level, &Sr::dark_nr_level},
    {"y_input_nr_level", &Ev::y_input_nr_level, &Sr::y_input_nr_level},
    {"c_nr_level", &Ev::c_nr_level, &Sr::c_nr_level},
    {"unsharp_range_low", &Ev::unsharp_range_low, &Sr::unsharp_range_low},
    {"unsharp_range_high", &Ev::unsharp_range_high, &Sr::unsharp_range_high},
    {"unsharp_nr_level", &Ev::unsharp_nr_level, &Sr::unsharp_nr_level},
    {"structure_sigma", &Ev::structure_sigma, &Sr::structure_sigma},
    {"deblur_level", &Ev::deblur_level, &Sr::deblur_level},
    {"deblur_scale", &Ev::deblur_scale, &Sr::deblur_scale},
    {"lce_lf", &Ev::lce_lf, &Sr::lce_lf},
    {"lce_hf", &Ev::lce_hf, &Sr::lce_hf},
    {"white_edge_level", &Ev::white_edge_level, &Sr::white_edge_level},
    {"black_edge_level", &Ev::black_edge_level, &Sr::black_edge_level},
    {"grain_adder", &Ev::grain_adder, &Sr::grain_adder},
    {"p_grain_adder", &Ev::p_grain_adder, &Sr::p_grain_adder},
    {"c_grain_adder", &Ev::c_grain_adder, &Sr::c_grain_adder},
};

// A record whose every keyed field holds a value of its own: ints 1000 + k, doubles k + 0.25.
inline Ev distinctRecord(int32_t salt) {
    Ev ev = {};
    int32_t k = salt;
    for (const IntKey& key : kIntKeys)
        ev.*key.ev = 1000 + k++;
    for (const DoubleKey& key : kDoubleKeys)
        ev.*key.ev = k++ + 0.25;
    ev.select_frame = 7000 + salt;
    ev.base_index = 8000 + salt;
    return ev;
}

// Field-by-field equality, so that padding bytes never decide.
inline bool sameRecord(const Ev& a, const Ev& b) {
    for (const IntKey& key : kIntKeys)
        if (a.*key.ev != b.*key.ev) return false;
    for (const DoubleKey& key : kDoubleKeys)
        if (a.*key.ev != b.*key.ev) return false;
    return a.select_frame == b.select_frame && a.base_index == b.base_index;
}

}  // namespace ev_keys
