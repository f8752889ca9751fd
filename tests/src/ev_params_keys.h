// The file keys of tavrin_KELD_EvParams written out by hand, each with the record member it must
// land in, the member of tav_sr2_SrParams it feeds and its default. Tests compare the library's own
// table and hand-over against this list, so a misspelt key or a crossed field shows up.
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
    int32_t def;      // the value a record holds before the file is read
};

struct DoubleKey {
    const char* name;
    double Ev::*ev;
    double Sr::*sr;
    double def;
};

inline const IntKey kIntKeys[] = {
    {"light_enable", &Ev::light_enable, &Sr::light_enable, 0},
    {"fast_enable", &Ev::fast_enable, &Sr::fast_enable, 0},
    {"cross_enable", &Ev::cross_enable, &Sr::cross_enable, 0},
    {"hfe_level", &Ev::hfe_level, &Sr::hfe_level, 0},
    {"hfe_black_level", &Ev::hfe_black_level, &Sr::hfe_black_level, -64},
    {"hfe_white_level", &Ev::hfe_white_level, &Sr::hfe_white_level, 64},
    {"hfe_thr", &Ev::hfe_thr, &Sr::hfe_thr, 128},
    {"c_hf_nr_enable", &Ev::c_hf_nr_enable, &Sr::c_hf_nr_enable, 0},
    {"deghost_weight_face", &Ev::deghost_weight_face, nullptr, 0},
    {"y_nr_mode", &Ev::y_nr_mode, &Sr::y_nr_mode, 0},
    {"y_nr_times", &Ev::y_nr_times, &Sr::y_nr_times, 0},
    {"y_edge_nr_radius", &Ev::y_edge_nr_radius, &Sr::y_edge_nr_radius, 3},
    {"c_nr_times", &Ev::c_nr_times, &Sr::c_nr_times, 0},
    {"c_nr_mode", &Ev::c_nr_mode, &Sr::c_nr_mode, 0},
    {"c_lf_nr_level", &Ev::c_lf_nr_level, &Sr::c_lf_nr_level, 0},
    {"unsharp_level", &Ev::unsharp_level, &Sr::unsharp_level, 0},
    {"unsharp_mode", &Ev::unsharp_mode, &Sr::unsharp_mode, 3},
    {"structure_level", &Ev::structure_level, &Sr::structure_level, 0},
    {"lce_level", &Ev::lce_level, &Sr::lce_level, 0},
    {"grain_adder_thr", &Ev::grain_adder_thr, &Sr::grain_adder_thr, 512},
};

inline const DoubleKey kDoubleKeys[] = {
    {"deghost_level", &Ev::deghost_level, nullptr, 1.0},
    {"deghost_level_face", &Ev::deghost_level_face, nullptr, 1.0},
    {"deghost_sigma", &Ev::deghost_sigma, nullptr, 0.8},
    {"deghost_sigma_face", &Ev::deghost_sigma_face, nullptr, 1.8},
    {"deghost_nr_level", &Ev::deghost_nr_level, nullptr, 1.0},
    {"deghost_nr_level_face", &Ev::deghost_nr_level_face, nullptr, 1.0},
    {"ghost_ratio_thres", &Ev::ghost_ratio_thres, nullptr, 18.0},
    {"ghost_ratio_thres_face", &Ev::ghost_ratio_thres_face, nullptr, 18.0},
    {"ghost_sigle_nr_level", &Ev::ghost_sigle_nr_level, &Sr::ghost_sigle_nr_level, 4.0},
    {"ghost_nr_level", &Ev::ghost_nr_level, &Sr::ghost_nr_level, 1.5},
    {"y_nr_level", &Ev::y_nr_level, &Sr::y_nr_level, 0.0},
    {"y_lf_nr_level", &Ev::y_lf_nr_level, &Sr::y_lf_nr_level, 0.0},
    {"y_hf_nr_level", &Ev::y_hf_nr_level, &Sr::y_hf_nr_level, 0.0},
    {"y_edge_nr_level", &Ev::y_edge_nr_level, &Sr::y_edge_nr_level, 0.0},
    {"y_edge_ghost_nr_level", &Ev::y_edge_ghost_nr_level, &Sr::y_edge_ghost_nr_level, 1.0},
    {"dark_nr_level", &Ev::dark_nr_level, &Sr::dark_nr_level, 1.0},
    {"y_input_nr_level", &Ev::y_input_nr_level, &Sr::y_input_nr_level, 0.0},
    {"c_nr_level", &Ev::c_nr_level, &Sr::c_nr_level, 0.0},
    {"unsharp_range_low", &Ev::unsharp_range_low, &Sr::unsharp_range_low, 0.1},
    {"unsharp_range_high", &Ev::unsharp_range_high, &Sr::unsharp_range_high, 1.0},
    {"unsharp_nr_level", &Ev::unsharp_nr_level, &Sr::unsharp_nr_level, 0.0},
    {"structure_sigma", &Ev::structure_sigma, &Sr::structure_sigma, 0.8},
    {"deblur_level", &Ev::deblur_level, &Sr::deblur_level, 0.0},
    {"deblur_scale", &Ev::deblur_scale, &Sr::deblur_scale, 1.0},
    {"lce_lf", &Ev::lce_lf, &Sr::lce_lf, 500.0},
    {"lce_hf", &Ev::lce_hf, &Sr::lce_hf, 0.0},
    {"white_edge_level", &Ev::white_edge_level, &Sr::white_edge_level, 1.0},
    {"black_edge_level", &Ev::black_edge_level, &Sr::black_edge_level, 1.0},
    {"grain_adder", &Ev::grain_adder, &Sr::grain_adder, 0.0},
    {"p_grain_adder", &Ev::p_grain_adder, &Sr::p_grain_adder, 0.0},
    {"c_grain_adder", &Ev::c_grain_adder, &Sr::c_grain_adder, 0.0},
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
