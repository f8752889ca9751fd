// The shipped sample parameter file: every group of every row names every key, and every value
// passes the engine's limits unchanged, as its README says.
#include <gtest/gtest.h>
#include <string.h>

#include <filesystem>

#include "foundation/status.h"
#include "src/params_loader.h"
#include "tests/src/ev_params_keys.h"

namespace {

namespace fs = std::filesystem;
using namespace ev_keys;

class SampleParamsTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::path file = fs::path(__FILE__).parent_path().parent_path().parent_path() / "data" /
                        "params" / "tavrin_keld_params_sample.xml";
        ASSERT_EQ(TavrinKELD_XmlParser_open(&parser, file.c_str(), TAVRIN_KELD_XML_READ), TAV_OK)
            << file;
    }
    void TearDown() override {
        if (parser) TavrinKELD_XmlParser_close(&parser);
    }

    tavrin_KELD_XmlParser* parser = nullptr;
};

TEST_F(SampleParamsTest, EveryGroupIsCompleteAndInsideTheEngineLimits) {
    mxml_node_t* top = parser->tree;
    size_t groups = 0;
    for (mxml_node_t* g = mxmlFindElement(top, top, "super_resolution", "id", "0", MXML_DESCEND); g;
         g = mxmlFindElement(g, top, "super_resolution", "id", "0", MXML_DESCEND)) {
        groups++;
        Ev ev = tavrin_KELD_evParamsDefault;
        for (const tavrin_KELD_EvParamField& f : tavrin_KELD_evParamFields) {
            if (!f.in_file) continue;
            ASSERT_EQ(TavrinKELD_XmlParser_readValue(parser, g, f.name, nullptr, nullptr, f.type,
                                                     reinterpret_cast<char*>(&ev) + f.offset, 0),
                      TAV_OK)
                << f.name << " in group " << groups;
        }
        const bool super_zoom =
            strcmp(mxmlGetElement(mxmlGetParent(mxmlGetParent(g))), "super_zoom_ratio") == 0;
        for (int32_t mode : {TAVRIN_KELD_DEGHOST_PLAIN, TAVRIN_KELD_DEGHOST_FACE}) {
            Sr sr = {};
            TavrinKELD_internal_toSrParams(&ev, mode, &sr);
            sr_tunning_param tuning = {};
            double y_input = 0;
            tav_sr2_SrParams_apply(&sr, super_zoom, &tuning, &y_input);
            Sr back = {};
            tav_sr2_SrParams_fromTuning(&tuning, y_input, &back);
            for (const IntKey& key : kIntKeys) {
                if (!key.sr) continue;
                const int32_t want = key.sr == &Sr::hfe_level ? (sr.*key.sr | 128) : sr.*key.sr;
                EXPECT_EQ(back.*key.sr, want) << key.name << " in group " << groups;
            }
            for (const DoubleKey& key : kDoubleKeys)
                if (key.sr) {
                    EXPECT_NEAR(back.*key.sr, sr.*key.sr, 1e-6) << key.name;
                }
            EXPECT_EQ(back.deghost_level, sr.deghost_level);
            EXPECT_EQ(back.deghost_sigma, sr.deghost_sigma);
            EXPECT_EQ(back.deghost_nr_level, sr.deghost_nr_level);
            EXPECT_EQ(back.ghost_ratio_thres, sr.ghost_ratio_thres);
            EXPECT_EQ(back.deghost_weight_face, sr.deghost_weight_face);
        }
    }
    // 8 zoom and 6 super zoom rows, 7 ISO rows each.
    EXPECT_EQ(groups, (8u + 6u) * 7u);
}

}  // namespace
