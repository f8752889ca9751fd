// The main loop through the engine API: whole runs in both zoom modes and the three input
// forms compared with a straightforward resize of the zoom window, the pool's peak against the
// budget and its emptiness at finish, the time limit, the log lines that follow the tuning, the
// weights of the base frame, a second run on the same engine, and allocation failures all
// through a run.
#include "engine/pipeline.h"

#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "engine/pipeline_align.h"
#include "engine/pipeline_steps.h"
#include "engine/run_limit.h"
#include "engine/valid_rect.h"
#include "engine/wrap_planes.h"
#include "tests/engine/log_capture.h"
#include "tests/engine/run_fixtures.h"
#include "tests/foundation/pool_fixtures.h"

namespace {

using tav_run::EngineRun;
using tav_run::HostFrame;
using tav_run::HostOutput;
using tav_run::Scene;

const char* formatName(int32_t format) {
    return tav_sr2_ImageFormat_name(format);
}

struct RunCase {
    int32_t width, height, out_width, out_height;
    float zoom;
};

struct RunResult {
    uint32_t status;
    int32_t merged;
    uint32_t peak;
    int64_t pool_budget;
    uint32_t finished;       // tav_sr2_finish: TAV_ERROR_BUFFER when the pool still holds a block
    int32_t compared;        // frames the merge step compared with the base, the base included
    int32_t least_weight;    // the smallest weight_sum: 128 per frame found to agree
    tav_run::Window window;  // the part of the frame the run scaled to the output
};

// One run of `frames` copies of the scene; out receives the picture.
RunResult runScene(const RunCase& c, const Scene& scene, int32_t format, int32_t frames,
                   HostOutput* out) {
    RunResult r = {};
    EngineRun run(c.width, c.height, c.out_width, c.out_height, c.zoom, formatName(format), frames,
                  tav_run::noEnhancement);
    if (run.engine == nullptr) return r;
    const HostFrame frame(scene, format);
    run.add(frame, frames);
    r.status = tav_sr2_process(&run.engine, &out->record);
    EXPECT_EQ(tav_sr2_getMergeNum(&run.engine, &r.merged), TAV_OK);
    r.window = tav_run::scaledWindow(run.engine);
    const tav_sr2_Image& sums = run.engine->pipeline.weight_sum;
    r.compared = run.engine->pipeline.frame_count;
    r.least_weight = INT32_MAX;
    for (int32_t y = 0; y < sums.height; ++y)
        for (int32_t x = 0; x < sums.width; ++x)
            r.least_weight = std::min<int32_t>(
                r.least_weight,
                reinterpret_cast<const uint16_t*>(sums.plane[0] + y * sums.pitch[0])[x]);
    r.peak = run.engine->pool.peak;
    r.pool_budget = run.poolBudget();
    r.finished = tav_sr2_finish(&run.engine);
    return r;
}

// Output format of a run: the packed input gives its result in YUV420_SEMIPLANAR.
int32_t outputFormat(int32_t format) {
    return format == TAV_SR2_FMT_YUV10B_PACKED_LE_420S ? TAV_SR2_FMT_YUV420_SEMIPLANAR : format;
}

// The same window moved right by one output pixel: a misplacement the bound must catch.
tav_run::Window movedByOnePixel(tav_run::Window w, int32_t out_width) {
    w.x += w.width / out_width;
    return w;
}

// What a run must reach against the reference, a bilinear enlargement of exactly the run's
// window. A run that enlarges once by the plain resize differs from it only by rounding, above
// 50 dB, so 45 dB leaves room while a picture misplaced by one output pixel scores about 30 dB on
// this photograph (checked below for luma). Where the merge enlarges luma with the pattern
// upscaler and the final scaling resamples it with the Lanczos taps, the two filters differ from
// bilinear by about 43 dB (measured), so those cases hold luma to 40 dB. Chroma is too smooth for
// a pixel to matter much; its bound catches swapped or misplaced planes.
struct Expectation {
    int32_t frames;
    double min_luma;  // PSNR
    double min_chroma;
    bool zoom_window;  // the scaled window is exactly the zoom window
};

void expectMatchesWindow(const RunCase& c, int32_t format, const Expectation& e) {
    Scene scene;
    std::string why;
    if (!tav_run::loadKodak("kodim01.png", c.width, c.height, &scene, &why)) GTEST_SKIP() << why;
    HostOutput out(c.out_width, c.out_height, outputFormat(format));
    const RunResult r = runScene(c, scene, format, e.frames, &out);
    EXPECT_EQ(r.status, TAV_OK);
    EXPECT_GE(r.merged, 1);
    EXPECT_LE(r.merged, e.frames);
    EXPECT_LE(int64_t(r.peak), r.pool_budget);
    EXPECT_EQ(r.finished, TAV_OK);
    EXPECT_TRUE(out.paddingKept());
    // Copies of one picture agree with the base everywhere: each frame compared adds full weight.
    EXPECT_EQ(r.least_weight, 128 * r.compared);

    const tav_run::Window zw =
        tav_run::zoomWindow(c.width, c.height, c.out_width, c.out_height, c.zoom);
    const tav_run::Window& w = r.window;
    if (e.zoom_window) {
        EXPECT_DOUBLE_EQ(w.x, zw.x);
        EXPECT_DOUBLE_EQ(w.y, zw.y);
        EXPECT_DOUBLE_EQ(w.width, zw.width);
        EXPECT_DOUBLE_EQ(w.height, zw.height);
    } else {  // the border that not all frames cover is trimmed off, a few pixels on each side
        const double trims[4] = {w.x - zw.x, w.y - zw.y, zw.x + zw.width - (w.x + w.width),
                                 zw.y + zw.height - (w.y + w.height)};
        for (double t : trims) {
            EXPECT_GE(t, 0.0);
            EXPECT_LE(t, 4.0);
        }
    }
    const Scene got = out.picture();
    const Scene want = tav_run::referenceOutput(scene, w, c.out_width, c.out_height);
    const Scene moved =
        tav_run::referenceOutput(scene, movedByOnePixel(w, c.out_width), c.out_width, c.out_height);
    EXPECT_GE(tav_run::psnr(got.luma, want.luma), e.min_luma);
    EXPECT_GE(tav_run::psnr(got.chroma, want.chroma), e.min_chroma);
    EXPECT_LT(tav_run::psnr(moved.luma, want.luma), e.min_luma);  // the bound tells a pixel
}

class WholeRun : public ::testing::TestWithParam<int32_t> {};

TEST_P(WholeRun, MatchesTheScaledWindow) {
    const struct {
        RunCase run;
        Expectation expect;
    } cases[] = {
        {{1920, 1080, 1920, 1080, 2.0f}, {4, 40.0, 45.0, true}},
        // The merge enlarges by 1.5 before the final 2x: two resampling steps against the
        // reference's one cost luma about 6 dB; one pixel off gives 32.6 dB.
        {{1920, 1080, 1920, 1080, 3.0f}, {4, 36.0, 45.0, true}},
        {{1280, 960, 2560, 1920, 2.0f}, {1, 45.0, 45.0, true}},   // super zoom of one frame
        {{1280, 960, 2560, 1920, 2.0f}, {4, 45.0, 45.0, false}},  // of a burst: covered window
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message()
                     << c.run.zoom << " x" << c.run.out_width << " frames " << c.expect.frames);
        expectMatchesWindow(c.run, GetParam(), c.expect);
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, WholeRun,
                         ::testing::Values(TAV_SR2_FMT_YUV420_SEMIPLANAR,
                                           TAV_SR2_FMT_YVU420_SEMIPLANAR,
                                           TAV_SR2_FMT_YUV10B_PACKED_LE_420S));

// ---------------------------------------------------------------------------------------------
// Runs on a procedural scene: 1280 x 960 frames, whose work crop is the whole frame.

constexpr int32_t kW = 1280, kH = 960;

// The engine's log lines of a run, warnings included.
struct RunLog : EngineLogCapture {
    RunLog() { tav_sr2_logger->sink_w = tav_sr2_logger->sink_i; }
    // The progress lines of the main loop, in order.
    static std::vector<std::string> progress() {
        std::vector<std::string> out;
        for (const std::string& line : lines()) {
            if (line.find("sr process") != std::string::npos || line.rfind("super zoom", 0) == 0 ||
                line.rfind("TIMEOUT", 0) == 0)
                out.push_back(line);
        }
        return out;
    }
};

// Holds the run limit at `us` for its life.
struct RunLimit {
    explicit RunLimit(uint32_t us) { tav_sr2_run_limit_us = us; }
    ~RunLimit() { tav_sr2_run_limit_us = TAV_SR2_RUN_LIMIT_US; }
};

struct SmallRun {
    int32_t out_width = kW, out_height = kH;
    float zoom = 2.0f;
    int32_t frames = 2;
    void (*tune)(tav_sr2_SrParams*) = nullptr;

    // Runs the scene; the status of tav_sr2_process, the picture in *out.
    uint32_t run(const Scene& scene, HostOutput* out) const {
        EngineRun r(kW, kH, out_width, out_height, zoom, "YUV420_SEMIPLANAR", frames, tune);
        if (r.engine == nullptr) return TAV_ERROR_GENERIC;
        const HostFrame frame(scene, TAV_SR2_FMT_YUV420_SEMIPLANAR);  // lives through the run
        r.add(frame, frames);
        const uint32_t status = tav_sr2_process(&r.engine, &out->record);
        EXPECT_EQ(tav_sr2_finish(&r.engine), TAV_OK);
        return status;
    }
};

TEST(PipelineProcess, TimeLimitSkipsTheStagesButWritesTheOutput) {
    const Scene scene = tav_run::proceduralScene(kW, kH);
    SmallRun small;
    small.tune = [](tav_sr2_SrParams* p) {
        p->light_enable = 1;
        tav_run::noEnhancement(p);
    };
    HostOutput in_time(kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    ASSERT_EQ(small.run(scene, &in_time), TAV_OK);

    RunLog log;
    HostOutput late(kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    {
        RunLimit limit(0);
        EXPECT_EQ(small.run(scene, &late), TAV_ERROR_TIMEOUT);
    }
    // Past the check after the merge nothing but the output step runs; its picture is the one
    // of a run in time, as the default tuning leaves the skipped stages off.
    const std::vector<std::string> lines = RunLog::progress();
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[0], "sr process begin...\n");
    EXPECT_EQ(lines[1], "sr process 1 init image: finish...\n");
    EXPECT_EQ(lines[2], "sr process 2 merge images: finish...\n");
    int stage = 0;
    double elapsed = -1, limit = -1;
    ASSERT_EQ(sscanf(lines[3].c_str(), "TIMEOUT!!(%d) %lf > %lf\n", &stage, &elapsed, &limit), 3)
        << lines[3];
    EXPECT_EQ(stage, 2);
    EXPECT_GT(elapsed, 0.0);
    EXPECT_EQ(limit, 0.0);
    EXPECT_EQ(lines[4], "sr process 11 finish...\n");
    EXPECT_EQ(lines[5], "sr process end...\n");
    EXPECT_EQ(late.luma, in_time.luma);
    EXPECT_EQ(late.chroma, in_time.chroma);
}

// The luma noise reducers run under their tuning gates: each changes the picture when its levels
// are set, the pyramid logs one line per level it builds, and nothing runs with the levels at 0.
TEST(PipelineProcess, LumaNoiseReductionRunsUnderItsGates) {
    const Scene scene = tav_run::proceduralScene(kW, kH);
    struct Case {
        void (*tune)(tav_sr2_SrParams*);
        size_t pyramid_lines;
        bool changes;
    } cases[] = {
        {[](tav_sr2_SrParams* p) {
             tav_run::noChromaNr(p);
             p->y_lf_nr_level = 3;
         },
         3, true},
        {[](tav_sr2_SrParams* p) {
             tav_run::noChromaNr(p);
             p->y_hf_nr_level = 3;
         },
         3, true},
        {[](tav_sr2_SrParams* p) {
             tav_run::noChromaNr(p);
             p->y_nr_level = 40;
             p->y_nr_mode = 2;
             p->light_enable = 1;
         },
         0, true},
        {[](tav_sr2_SrParams* p) {
             tav_run::noChromaNr(p);
             p->y_nr_level = 40;
             p->y_nr_times = 0;
         },
         0, false},
    };
    SmallRun small;
    small.tune = tav_run::noChromaNr;  // the chroma filter reads luma: it would follow the change
    HostOutput plain(kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    ASSERT_EQ(small.run(scene, &plain), TAV_OK);
    for (const Case& c : cases) {
        small.tune = c.tune;
        RunLog log;
        HostOutput out(kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
        ASSERT_EQ(small.run(scene, &out), TAV_OK);
        size_t pyramid = 0;
        for (const std::string& line : RunLog::lines())
            pyramid += line.rfind("multiscale_ynr [", 0) == 0;
        EXPECT_EQ(pyramid, c.pyramid_lines);
        EXPECT_EQ(out.luma != plain.luma, c.changes);
        EXPECT_EQ(out.chroma, plain.chroma);
    }
}

// The ghost weight of a difference j: full up to the offset, then a logistic fall.
std::vector<uint8_t> referenceWeights(double slope, double offset) {
    std::vector<uint8_t> table(256);
    for (int j = 0; j < 256; ++j) {
        const double w = 256.0 / (exp(slope * std::max(0.0, j - offset)) + 1.0);
        table[j] = uint8_t(std::clamp(w, 0.0, 128.0));
    }
    return table;
}

TEST(PipelineProcess, WeightTablesAreTheLogisticCurve) {
    const struct {
        double slope, offset;
    } cases[] = {{1.0, 24.0}, {0.37, 10.5}, {2.0, 0.0}, {0.0, 30.0}, {6.0, 300.0}, {50.0, 3.0}};
    for (const auto& c : cases) {
        uint8_t table[256];
        tav_sr2_fillWeightTable(table, c.slope, c.offset);
        EXPECT_EQ(std::vector<uint8_t>(table, table + 256), referenceWeights(c.slope, c.offset))
            << c.slope << " " << c.offset;
    }
}

// A run's base frame: the weight tables from the tuning, lowered for a crop that merges at the
// frame's own scale at fast_merge_mode 3, and the faces taken to the face map.
TEST(PipelineProcess, BaseFrameSetsTheWeightsAndFaceRectangles) {
    const Scene scene = tav_run::proceduralScene(1920, 1080);
    const HostFrame frame(scene, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    const struct {
        float zoom;
        int32_t fast_enable;
        bool lowered;  // frame width / view width below 2 at fast_merge_mode 3
    } cases[] = {{2.0f, 3, true}, {2.0f, 1, false}, {3.0f, 3, false}};
    for (const auto& c : cases) {
        EngineRun run(
            1920, 1080, 1920, 1080, c.zoom, "YUV420_SEMIPLANAR", 2,
            c.fast_enable == 3 ? +[](tav_sr2_SrParams* p) { p->fast_enable = 3; }
                               : +[](tav_sr2_SrParams* p) { p->fast_enable = 1; });
        ASSERT_NE(run.engine, nullptr);
        tav_sr2_Rect crop;
        tav_sr2_Engine_workCrop(run.engine, &crop);
        const tav_sr2_Pipeline& p = run.engine->pipeline;
        // A face whose top left lies in the crop's margin, outside the area of interest.
        const tav_sr2_Rect face = {
            crop.left + p.clip_rect.left - 30, crop.top + p.clip_rect.top - 20,
            crop.left + p.clip_rect.left + 170, crop.top + p.clip_rect.top + 180};
        ASSERT_EQ(tav_sr2_setFaceRects(&run.engine, &face, 1), TAV_OK);
        ASSERT_EQ(p.internal_face_num, 1);
        run.add(frame, 2);
        const double deg = p.tuning.deghost_deg, ofs = p.tuning.deghost_ofs;
        RunLog log;
        HostOutput out(1920, 1080, TAV_SR2_FMT_YUV420_SEMIPLANAR);
        ASSERT_EQ(tav_sr2_process(&run.engine, &out.record), TAV_OK);

        const double used_ofs = c.lowered ? ofs / 2 : ofs;
        EXPECT_EQ(p.tuning.deghost_ofs, used_ofs) << c.zoom;
        EXPECT_EQ(p.tuning.deghost_deg, deg) << c.zoom;  // doubled on the GPU path only
        EXPECT_EQ(std::vector<uint8_t>(p.weight_table, p.weight_table + 256),
                  referenceWeights(deg, used_ofs));
        EXPECT_EQ(std::vector<uint8_t>(p.weight_table_face, p.weight_table_face + 256),
                  referenceWeights(6.0, used_ofs / 4));
        // Clamped to the view at the top left, then scaled to the face map, halves away from 0.
        const double sx = double(p.face_mask.width) / p.aligned_width;
        const double sy = double(p.face_mask.height) / p.aligned_height;
        const auto rendered = RunLog::starting("render_face_rect");
        const auto mapped = RunLog::starting("face_trans2D_rect");
        ASSERT_EQ(rendered.size(), 1u);
        ASSERT_EQ(mapped.size(), 1u);
        EXPECT_EQ(rendered[0], "render_face_rect  [0, 0, 170, 180]\n");
        char want[96];
        snprintf(want, sizeof want, "face_trans2D_rect  [0, 0, %ld, %ld]\n", lround(170 * sx),
                 lround(180 * sy));
        EXPECT_EQ(mapped[0], want);
        // The mask is painted around the face's centre and nowhere beyond its reach.
        const auto maskAt = [&](int32_t x, int32_t y) {
            return p.face_mask.plane[0][size_t(y) * p.face_mask.pitch[0] + x];
        };
        EXPECT_GT(maskAt(lround(85 * sx), lround(90 * sy)), 0) << c.zoom;
        EXPECT_EQ(maskAt(p.face_mask.width - 1, p.face_mask.height - 1), 0) << c.zoom;
    }
}

TEST(PipelineProcess, ProcessChecksItsArguments) {
    const Scene scene = tav_run::proceduralScene(kW, kH);
    EngineRun run(kW, kH, kW, kH, 2.0f, "YUV420_SEMIPLANAR", 2);
    ASSERT_NE(run.engine, nullptr);
    const HostFrame frame(scene, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    run.add(frame, 1);
    HostOutput out(kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    tav_sr2_Engine* none = nullptr;
    EXPECT_EQ(tav_sr2_process(nullptr, &out.record), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_process(&none, &out.record), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_process(&run.engine, nullptr), TAV_ERROR_PARAM);
    tavrin_KELD_Image bad = out.record;
    bad.plane0 = nullptr;
    EXPECT_EQ(tav_sr2_process(&run.engine, &bad), TAV_ERROR_PARAM);
    bad = out.record;
    bad.pitch0 = kW - 2;  // rows shorter than the picture
    EXPECT_EQ(tav_sr2_process(&run.engine, &bad), TAV_ERROR_GENERIC);
    EXPECT_EQ(run.engine->state & TAV_SR2_STATE_PROCESSED, 0);  // nothing ran yet

    // A first frame of a format the loop does not take ends the run at its images.
    tav_sr2_Pipeline* p = &run.engine->pipeline;
    p->images[0].format = TAV_SR2_FMT_UINT8;
    p->restart_pending = 0;
    EXPECT_EQ(tav_sr2_process(&run.engine, &out.record), TAV_ERROR_UNSUPPORTED);
    EXPECT_EQ(p->restart_pending, 1);
    EXPECT_NE(run.engine->state & TAV_SR2_STATE_PROCESSED, 0);
    EXPECT_TRUE(std::all_of(out.luma.begin(), out.luma.end(),
                            [](uint8_t v) { return v == HostOutput::kPad; }));
}

#ifdef TAVRIN_FAULT_INJECTION
// Fails every pool allocation of a call in turn, once or from then on (persist). `call` runs on
// an engine holding two frames; check sees each failing attempt's status. Nothing may crash and
// nothing may leak: the engine's finish finds the pool empty.
template <typename Call, typename Check>
void failEachAllocation(int32_t width, int32_t height, int32_t out_width, int32_t out_height,
                        float zoom, int32_t frames, Call call, Check check) {
    const Scene scene = tav_run::proceduralScene(width, height);
    const HostFrame frame(scene, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    auto attempt = [&](uint32_t nth, bool persist, uint32_t* count) {
        EngineRun run(width, height, out_width, out_height, zoom, "YUV420_SEMIPLANAR", frames);
        if (run.engine == nullptr) return TAV_ERROR_GENERIC;
        run.add(frame, frames);
        HostOutput out(out_width, out_height, TAV_SR2_FMT_YUV420_SEMIPLANAR);
        const uint32_t status = call(&run.engine, &out.record, nth, persist);
        if (count != nullptr) *count = tav_sr2_MemPool_allocCount();
        tav_sr2_MemPool_injectFailure(0, false);
        EXPECT_EQ(tav_sr2_finish(&run.engine), TAV_OK) << nth << " " << persist;
        return status;
    };
    uint32_t total = 0;
    ASSERT_EQ(attempt(0, false, &total), TAV_OK);
    ASSERT_GT(total, 3u);
    for (bool persist : {false, true}) {
        for (uint32_t nth = 1; nth <= total; ++nth)
            check(attempt(nth, persist, nullptr), nth, total, persist);
    }
}

// A zoomed merge of eight frames, each blended into the picture, and a super zoom.
const struct {
    int32_t width, height, out_width, out_height;
    float zoom;
    int32_t frames;
} kFaultGeometries[] = {{320, 240, 320, 240, 3.0f, 8}, {640, 480, 1280, 960, 2.0f, 2}};

// The main loop alone, on a burst already aligned: only the run's timer and images (its first
// three allocations) fail the run; later failures are dropped and the run reports success.
TEST(PipelineProcess, EveryAllocationOfTheLoopMayFail) {
    for (const auto& g : kFaultGeometries) {
        failEachAllocation(
            g.width, g.height, g.out_width, g.out_height, g.zoom, g.frames,
            [](tav_sr2_Engine** e, const tavrin_KELD_Image* out, uint32_t nth, bool persist) {
                tav_sr2_Pipeline* p = &(*e)->pipeline;
                EXPECT_EQ(tav_sr2_Image_wrapPlanes(&(*e)->output_image, out,
                                                   TAV_SR2_FMT_YUV420_SEMIPLANAR),
                          TAV_OK);
                EXPECT_EQ(tav_sr2_Pipeline_align(p), TAV_OK);
                tav_sr2_Pipeline_setOutput(p, &(*e)->output_image);
                tav_sr2_MemPool_injectFailure(nth, persist);
                const uint32_t status = tav_sr2_Pipeline_process(p);
                EXPECT_EQ(p->restart_pending, 1);
                return status;
            },
            [](uint32_t status, uint32_t nth, uint32_t total, bool persist) {
                EXPECT_EQ(status, nth <= 3 ? TAV_ERROR_MALLOC : TAV_OK)
                    << "allocation " << nth << " of " << total << (persist ? " onwards" : "");
            });
    }
}

// The whole engine run, alignment included: a failure is reported as the pool's, or dropped.
TEST(PipelineProcess, EveryAllocationOfARunMayFail) {
    for (const auto& g : kFaultGeometries) {
        failEachAllocation(
            g.width, g.height, g.out_width, g.out_height, g.zoom, g.frames,
            [](tav_sr2_Engine** e, const tavrin_KELD_Image* out, uint32_t nth, bool persist) {
                tav_sr2_MemPool_injectFailure(nth, persist);
                return tav_sr2_process(e, out);
            },
            [](uint32_t status, uint32_t nth, uint32_t total, bool persist) {
                EXPECT_TRUE(status == TAV_OK || status == TAV_ERROR_MALLOC)
                    << std::hex << status << std::dec << " at allocation " << nth << " of " << total
                    << (persist ? " onwards" : "");
            });
    }
}
#endif

}  // namespace
