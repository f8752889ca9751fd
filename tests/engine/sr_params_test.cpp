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
