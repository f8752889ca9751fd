// The shipped sample parameter file: complete, inside the engine's limits, shaped as its README
// says, and looked up as the rules say.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <deque>
#include <filesystem>
#include <string>
#include <vector>

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
        zooms = listed("zoom_ratio");
        super_zooms = listed("super_zoom_ratio");
        mxml_node_t* first = nullptr;
        ASSERT_EQ(TavrinKELD_XmlParser_findElement(parser, nullptr, "zoom_ratio", nullptr, nullptr,
                                                   &first),
                  TAV_OK);
        isos = listedBelow(first, "iso");
    }
    void TearDown() override {
        if (parser) TavrinKELD_XmlParser_close(&parser);
    }

    std::vector<double> listedBelow(mxml_node_t* node, const char* name) {
        const char* values[TAVRIN_KELD_MAX_CFG_ROWS];
        int32_t count = 0;
        EXPECT_EQ(TavrinKELD_XmlParser_collectAttr(parser, node, name, "value", values,
                                                   TAVRIN_KELD_MAX_CFG_ROWS, &count),
                  TAV_OK);
        std::vector<double> list;
        for (int32_t k = 0; k < count; k++)
            list.push_back(atof(values[k]));
        return list;
    }
    std::vector<double> listed(const char* name) { return listedBelow(nullptr, name); }

    // Group 0 of the row a capture finds, or a failure status.
    uint32_t load(double ratio, int32_t iso, int32_t super_zoom, Ev* ev) {
        tavrin_KELD_EvParamsBlock block;
        EXPECT_EQ(TavrinKELD_internal_getDefaultParams(1, &block), TAV_OK);
        tavrin_KELD_CfgMeta meta = {iso, super_zoom ? 0.0 : ratio, super_zoom ? ratio : 0.0};
        uint32_t status = TavrinKELD_internal_loadParams(parser, 0, &meta, super_zoom, &block, 0);
        *ev = block.ev[0];
        return status;
    }

    // The record a capture exactly on a row finds, looked up once per row.
    const Ev& rowRecord(int32_t super_zoom, double ratio, double iso) {
        for (const Row& r : rows)
            if (r.super_zoom == super_zoom && r.ratio == ratio && r.iso == iso) return r.ev;
        Row row = {super_zoom, ratio, iso, {}};
        EXPECT_EQ(load(ratio, static_cast<int32_t>(iso), super_zoom, &row.ev), TAV_OK);
        rows.push_back(row);
        return rows.back().ev;
    }

    struct Row {
        int32_t super_zoom;
        double ratio, iso;
        Ev ev;
    };
    std::deque<Row> rows;
    tavrin_KELD_XmlParser* parser = nullptr;
    std::vector<double> zooms, super_zooms, isos;
};

// The smallest listed value not below key, as the README states the rule; -1 when none is.
double rowFor(const std::vector<double>& list, double key) {
    for (double v : list)
        if (v >= key - 1e-6) return v;
    return -1;
}

TEST_F(SampleParamsTest, ShapeAsDocumented) {
    EXPECT_EQ(zooms, (std::vector<double>{1.0, 1.5, 2.0, 3.0, 4.0, 6.0, 8.0, 10.0}));
    EXPECT_EQ(super_zooms, (std::vector<double>{1.5, 2.0, 3.0, 4.0, 6.0, 8.0}));
    EXPECT_EQ(isos, (std::vector<double>{100, 200, 400, 800, 1600, 3200, 6400}));
    int32_t camera = -1, length = 0;
    ASSERT_EQ(TavrinKELD_XmlParser_readArray(parser, nullptr, "camera_id", nullptr, nullptr,
                                             TAVRIN_KELD_XML_INT, &camera, 1, &length),
              TAV_OK);
    EXPECT_EQ(camera, 0);
    EXPECT_EQ(length, 1);

    // Every group of every row names every key.
    size_t groups = 0;
    mxml_node_t* top = parser->tree;
    for (mxml_node_t* g = mxmlFindElement(top, top, "super_resolution", "id", "0", MXML_DESCEND); g;
         g = mxmlFindElement(g, top, "super_resolution", "id", "0", MXML_DESCEND)) {
        groups++;
        Ev ev = {};
        for (const tavrin_KELD_EvParamField& f : tavrin_KELD_evParamFields) {
            if (!f.in_file) continue;
            ASSERT_EQ(TavrinKELD_XmlParser_readValue(parser, g, f.name, nullptr, nullptr, f.type,
                                                     reinterpret_cast<char*>(&ev) + f.offset, 0),
                      TAV_OK)
                << f.name << " in group " << groups;
        }
    }
    EXPECT_EQ(groups, (zooms.size() + super_zooms.size()) * isos.size());
}

TEST_F(SampleParamsTest, CapturesFindTheirRows) {
    struct Capture {
        double ratio;
        int32_t iso;
        int32_t super_zoom;
    };
    const Capture captures[] = {
        {1.0, 100, 0},  {1.2, 150, 0},  {2.0, 800, 0},   {2.0000001, 801, 0}, {2.5, 50, 0},
        {9.5, 6400, 0}, {10.5, 100, 0}, {3.0, 7000, 0},  {1.2, 100, 1},       {7.0, 3000, 1},
        {8.0, 6400, 1}, {8.5, 400, 1},  {1.00001, 1, 0},
    };
    for (const Capture& c : captures) {
        const std::vector<double>& list = c.super_zoom ? super_zooms : zooms;
        const double row_ratio = rowFor(list, c.ratio);
        const double row_iso = rowFor(isos, c.iso);
        Ev found = {};
        uint32_t status = load(c.ratio, c.iso, c.super_zoom, &found);
        if (row_ratio < 0 || row_iso < 0) {
            EXPECT_EQ(status, TAV_ERROR_NOT_FOUND) << c.ratio << " " << c.iso;
            continue;
        }
        ASSERT_EQ(status, TAV_OK) << c.ratio << " " << c.iso;
        // The record of that row and of no other row of the table.
        for (double z : list) {
            for (double i : isos) {
                const bool same = z == row_ratio && i == row_iso;
                const Ev& row = rowRecord(c.super_zoom, z, i);
                EXPECT_EQ(sameRecord(found, row), same)
                    << c.ratio << " " << c.iso << " against " << z << " " << i;
            }
        }
    }
}

TEST_F(SampleParamsTest, NoiseReductionRisesWithIsoAndSharpeningWithZoom) {
    for (int32_t super_zoom : {0, 1}) {
        const std::vector<double>& list = super_zoom ? super_zooms : zooms;
        for (size_t z = 0; z < list.size(); z++) {
            for (size_t i = 0; i < isos.size(); i++) {
                Ev ev = {};
                ASSERT_EQ(load(list[z], static_cast<int32_t>(isos[i]), super_zoom, &ev), TAV_OK);
                if (i > 0) {
                    Ev quieter = {};
                    load(list[z], static_cast<int32_t>(isos[i - 1]), super_zoom, &quieter);
                    EXPECT_GT(ev.c_nr_level, quieter.c_nr_level);
                    EXPECT_GT(ev.y_lf_nr_level, quieter.y_lf_nr_level);
                    EXPECT_GT(ev.ghost_ratio_thres, quieter.ghost_ratio_thres);
                    EXPECT_LT(ev.unsharp_level, quieter.unsharp_level);
                }
                if (z > 0) {
                    Ev wider = {};
                    load(list[z - 1], static_cast<int32_t>(isos[i]), super_zoom, &wider);
                    EXPECT_GT(ev.unsharp_level, wider.unsharp_level);
                    EXPECT_GE(ev.lce_level, wider.lce_level);
                }
                EXPECT_EQ(ev.grain_adder > 0, super_zoom == 1);
            }
        }
    }
}

// Every sample value passes the engine's limits unchanged: nothing is clipped on the way in.
TEST_F(SampleParamsTest, ValuesLieInsideTheEngineLimits) {
    for (int32_t super_zoom : {0, 1}) {
        for (double z : super_zoom ? super_zooms : zooms) {
            for (double i : isos) {
                Ev ev = {};
                ASSERT_EQ(load(z, static_cast<int32_t>(i), super_zoom, &ev), TAV_OK);
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
                        const int32_t want =
                            key.sr == &Sr::hfe_level ? (sr.*key.sr | 128) : sr.*key.sr;
                        EXPECT_EQ(back.*key.sr, want) << key.name << " " << z << " " << i;
                    }
                    for (const DoubleKey& key : kDoubleKeys) {
                        if (key.sr) {
                            EXPECT_NEAR(back.*key.sr, sr.*key.sr, 1e-6) << key.name;
                        }
                    }
                    EXPECT_NEAR(back.deghost_level, sr.deghost_level, 1e-12);
                    EXPECT_NEAR(back.deghost_sigma, sr.deghost_sigma, 1e-12);
                    EXPECT_NEAR(back.deghost_nr_level, sr.deghost_nr_level, 1e-12);
                    EXPECT_NEAR(back.ghost_ratio_thres, sr.ghost_ratio_thres, 1e-12);
                    EXPECT_EQ(back.deghost_weight_face, sr.deghost_weight_face);
                }
            }
        }
    }
}

}  // namespace
