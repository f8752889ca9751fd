#include "engine/sr_params.h"

#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <limits>
#include <string>
#include <vector>

#include "foundation/log.h"

namespace {

enum Kind { I32, F64, F32 };

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr size_t kEngineField = static_cast<size_t>(-1);

// One row of the key-to-field mapping. copied: the value passes unlimited, NaN included.
struct Row {
    const char* key;
    size_t src;
    Kind src_kind;
    const char* field;
    size_t dst;
    Kind dst_kind;
    double lo, hi;
    bool copied;
};

#define LIMITED(k, sk, f, dk, lo, hi) \
    { #k, offsetof(tav_sr2_SrParams, k), sk, #f, offsetof(sr_tunning_param, f), dk, lo, hi, false }
#define COPIED(k, sk, f)                                                                           \
    {                                                                                              \
#k, offsetof(tav_sr2_SrParams, k), sk, #f, offsetof(sr_tunning_param, f), sk, -kInf, kInf, \
            true                                                                                   \
    }

// The rows with a plain limit or a plain copy; hfe_level and the two window modes have their own
// tests.
const Row kRows[] = {
    COPIED(light_enable, I32, dark_light_nr_enable),
    LIMITED(fast_enable, I32, fast_merge_mode, I32, 0, 3),
    LIMITED(cross_enable, I32, dither_noise_mode, I32, 0, 2),
    LIMITED(hfe_white_level, I32, hfe_white_level, I32, 0, 128),
    LIMITED(hfe_black_level, I32, hfe_black_level, I32, -128, 0),
    LIMITED(hfe_thr, I32, hfe_thr, I32, 0, 128),
    COPIED(c_hf_nr_enable, I32, high_freq_uvnr_enable),
    COPIED(keld_mode, I32, keld_mode),
    COPIED(removebrightnessdiff_image_enable, I32, removebrightnessdiff_image_enable),
    LIMITED(deghost_level, F64, deghost_deg, F64, 0.05, kInf),
    LIMITED(deghost_sigma, F64, deghost_gauss_sigma0, F64, 0, 10),
    LIMITED(deghost_weight_face, I32, deghost_face_weight, I32, 0, 255),
    LIMITED(deghost_nr_level, F64, deghost_noise_level, F64, 0, 50),
    LIMITED(ghost_ratio_thres, F64, deghost_ofs, F64, 0, 128),
    LIMITED(ghost_sigle_nr_level, F64, noise_level_4ghost_ratio_scale, F64, 1, 8),
    LIMITED(ghost_nr_level, F64, ghost_nr_level, F64, 0, 32),
    LIMITED(y_nr_level, F64, gf_eps2, F64, 0, 50),
    LIMITED(y_nr_times, I32, num_nr_times_y, I32, 0, 3),
    LIMITED(y_hf_nr_level, F64, ynr_high_eps, F64, 0, 100),
    LIMITED(y_lf_nr_level, F64, ynr_low_eps, F64, 0, 100),
    LIMITED(y_edge_nr_level, F64, dirnr, F64, 0, 10),
    LIMITED(y_edge_nr_radius, I32, dirnr_radius, I32, 3, 11),
    LIMITED(y_edge_ghost_nr_level, F64, dirnr_ghost_nr, F32, 1, 10),
    LIMITED(dark_nr_level, F64, dark_area_nr_level, F64, 1, 16),
    {"y_input_nr_level", offsetof(tav_sr2_SrParams, y_input_nr_level), F64, "y_input_nr_level",
     kEngineField, F64, 0, 5, false},
    LIMITED(c_nr_level, F64, noise_level_uv, F64, 0, 50),
    LIMITED(c_nr_times, I32, num_nr_times_uv, I32, 0, 3),
    LIMITED(c_lf_nr_level, I32, c_nr_clip_sigma, I32, 0, 99),
    LIMITED(unsharp_level, I32, do_unsharp, I32, 0, 8192),
    LIMITED(unsharp_range_low, F64, unsharp_sigma2, F64, 0, 10),
    LIMITED(unsharp_range_high, F64, unsharp_sigma, F64, 0, 10),
    LIMITED(unsharp_nr_level, F64, unsharp_noise_level, F64, 0, 16),
    LIMITED(unsharp_mode, I32, unsharp_method, I32, 0, 3),
    LIMITED(structure_sigma, F64, contrast_enhance_blur_sigma, F64, 0, 5),
    LIMITED(structure_level, I32, contrast_enhance_extra_arg, I32, 0, 3000),
    LIMITED(deblur_level, F64, deblur_psf, F32, 0, 3),
    LIMITED(deblur_scale, F64, deblur_scale, F32, 0.1, 3),
    LIMITED(lce_lf, F64, stucture_eps_low, F64, 0, 1000),
    LIMITED(lce_hf, F64, stucture_eps_high, F64, 0, 1000),
    LIMITED(lce_level, I32, stucture_strength, I32, 0, 1024),
    LIMITED(white_edge_level, F64, white_edge_level, F32, 0, 1),
    LIMITED(black_edge_level, F64, black_edge_level, F32, 0, 1),
    LIMITED(grain_adder, F64, dither_noise_level, F64, 0, 32),
    LIMITED(grain_adder_thr, I32, dither_thr, I32, 16, 768),
    LIMITED(p_grain_adder, F64, dither_pepper_noise_level, F64, 0, 32),
    LIMITED(c_grain_adder, F64, dither_uv_noise_level, F64, 0, 32),
    COPIED(do_unsharp_rate_for_skin, F64, do_unsharp_rate_for_skin),
    COPIED(select_frame, I32, select_frame),
    COPIED(sharpness_skip_ratio, F64, sharpness_skip_ratio),
    COPIED(base_index, I32, base_id),
};

size_t kindSize(Kind k) {
    return k == F64 ? 8 : 4;
}

double readAs(const void* rec, size_t off, Kind k) {
    const char* p = static_cast<const char*>(rec) + off;
    int32_t i;
    float f;
    double d;
    if (k == I32) return memcpy(&i, p, 4), i;
    if (k == F32) return memcpy(&f, p, 4), f;
    return memcpy(&d, p, 8), d;
}

void writeAs(void* rec, size_t off, Kind k, double v) {
    char* p = static_cast<char*>(rec) + off;
    int32_t i = static_cast<int32_t>(v);
    double d = v;
    if (k == I32) memcpy(p, &i, 4);
    if (k == F64) memcpy(p, &d, 8);
}

// The limit rule written out once more: below lo gives lo, above hi gives hi, NaN gives lo.
double expected(const Row& r, double v) {
    double out = v;
    if (!r.copied) out = (isnan(v) || v < r.lo) ? r.lo : (v > r.hi ? r.hi : v);
    return r.dst_kind == F32 ? static_cast<float>(out) : out;
}

std::vector<double> probes(const Row& r) {
    std::vector<double> v;
    if (r.src_kind == I32) {
        v = {-2147483648.0, 2147483647.0, -7, 12345};
        if (!r.copied)
            v.insert(v.end(), {r.lo - 1, r.lo, r.hi, r.hi + 1, floor((r.lo + r.hi) / 2)});
    } else {
        v = {kNaN, -kInf, kInf, -1e300, 1e300};
        double mid = isinf(r.hi) ? 7.5 : r.lo + 0.37 * (r.hi - r.lo);
        if (!r.copied) v.insert(v.end(), {r.lo - 0.25, r.lo, mid, r.hi, r.hi + 0.25});
    }
    return v;
}

sr_tunning_param defaultTuning() {
    sr_tunning_param t;
    memset(&t, 0, sizeof t);
    tav_sr2_SrParams_setDefault(&t);
    return t;
}

tav_sr2_SrParams paramsOf(const sr_tunning_param& t, double y_input) {
    tav_sr2_SrParams p;
    memset(&p, 0, sizeof p);
    tav_sr2_SrParams_fromTuning(&t, y_input, &p);
    return p;
}

bool sameOutside(const sr_tunning_param& a, const sr_tunning_param& b, size_t off, size_t n) {
    const char* pa = reinterpret_cast<const char*>(&a);
    const char* pb = reinterpret_cast<const char*>(&b);
    for (size_t i = 0; i < sizeof a; ++i) {
        if ((i < off || i >= off + n) && pa[i] != pb[i]) return false;
    }
    return true;
}

TEST(SrParams, EveryRowLimitsIntoItsOwnFieldAndReadsBack) {
    sr_tunning_param start = defaultTuning();
    start.use_16bit = 0;  // so that fast_enable above 1 changes nothing beyond its own field
    const tav_sr2_SrParams base = paramsOf(start, 1.0);
    sr_tunning_param t0 = start;
    double y0 = 0;
    tav_sr2_SrParams_apply(&base, 0, &t0, &y0);

    for (const Row& r : kRows) {
        for (double v : probes(r)) {
            SCOPED_TRACE(std::string(r.key) + " = " + std::to_string(v));
            tav_sr2_SrParams p = base;
            writeAs(&p, r.src, r.src_kind, v);
            sr_tunning_param t = start;
            double y = -99;
            tav_sr2_SrParams_apply(&p, 0, &t, &y);

            const bool engine = r.dst == kEngineField;
            const double got = engine ? y : readAs(&t, r.dst, r.dst_kind);
            const double want = expected(r, v);
            if (isnan(want)) {
                EXPECT_TRUE(isnan(got));
            } else {
                EXPECT_EQ(got, want);
            }
            EXPECT_TRUE(engine ? sameOutside(t, t0, 0, 0)
                               : sameOutside(t, t0, r.dst, kindSize(r.dst_kind)));

            if (isnan(want) || isinf(want)) continue;
            const tav_sr2_SrParams back = paramsOf(t, y);
            EXPECT_EQ(readAs(&back, r.src, r.src_kind), want);
        }
    }
}

TEST(SrParams, HfeLevelCarriesBit128AndSaturates) {
    std::vector<int32_t> levels = {INT32_MIN, -1000, -1, INT32_MAX};
    for (int32_t v = 0; v <= 300; ++v)
        levels.push_back(v);
    for (int32_t v : levels) {
        tav_sr2_SrParams p = paramsOf(defaultTuning(), 0);
        p.hfe_level = v;
        sr_tunning_param t = defaultTuning();
        double y;
        tav_sr2_SrParams_apply(&p, 0, &t, &y);
        const int32_t want = v <= 0 ? 128 : (v < 127 ? 128 + v : 255);
        EXPECT_EQ(t.hfe_level, want) << v;
        EXPECT_EQ(paramsOf(t, 0).hfe_level, want) << v;  // read back as stored
    }
}

TEST(SrParams, FastModesFromTwoTurnTheGpuMergeOff) {
    for (int32_t v = -2; v <= 6; ++v) {
        for (int32_t use16 : {0, 1}) {
            tav_sr2_SrParams p = paramsOf(defaultTuning(), 0);
            p.fast_enable = v;
            sr_tunning_param t = defaultTuning();
            t.use_16bit = use16;
            double y;
            tav_sr2_SrParams_apply(&p, 0, &t, &y);
            EXPECT_EQ(t.fast_merge_mode, v < 0 ? 0 : (v > 3 ? 3 : v)) << v;
            EXPECT_EQ(t.use_16bit, v >= 2 ? 0 : use16) << v;
        }
    }
}

TEST(SrParams, SuperZoomForcesTheAlignmentShrink) {
    const tav_sr2_SrParams p = paramsOf(defaultTuning(), 0);
    for (int32_t shrink : {0, 1, 5}) {
        for (int super_zoom : {0, 1}) {
            sr_tunning_param t = defaultTuning();
            t.detectmotion_shrink_ratio = shrink;
            sr_tunning_param other = t;
            double y;
            tav_sr2_SrParams_apply(&p, super_zoom, &t, &y);
            tav_sr2_SrParams_apply(&p, 0, &other, &y);
            EXPECT_EQ(t.detectmotion_shrink_ratio, super_zoom ? 2 : shrink);
            EXPECT_TRUE(
                sameOutside(t, other, offsetof(sr_tunning_param, detectmotion_shrink_ratio), 4));
        }
    }
}

}  // namespace
