// The buffer budget on real geometries. Expected terms are worked out by hand from the budget's
// rules in the comments; the parts that come from other objects' size queries (G, the guided
// filter, the task system) are taken from those queries.
#include "engine/buffer_budget.h"

#include <gtest/gtest.h>

#include "engine/engine.h"
#include "engine/work_crop.h"
#include "foundation/image_format.h"
#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"
#include "gpu/render_context_size.h"
#include "nr/guided_filter.h"
#include "tests/engine/log_capture.h"

namespace {

struct RunGeometry {
    int32_t width, height, output_width, output_height;
    float zoom;
};

// The budget of a run as tav_sr2_getBufferSize computes it: the crop around the middle.
tav_sr2_BufferBudget budgetOf(const RunGeometry& r, int32_t merge_num = 8,
                              void (*tweak)(sr_tunning_param*) = nullptr) {
    sr_tunning_param t = {};
    tav_sr2_setRunTuning(&t, r.width, r.height, r.output_width, r.output_height, r.zoom);
    if (tweak != nullptr) tweak(&t);
    tav_sr2_Rect crop;
    tav_sr2_WorkCrop_compute(r.width, r.height, r.output_width, r.output_height, r.zoom,
                             r.width / 2, r.height / 2, &crop);
    tav_sr2_BufferBudget b;
    tav_sr2_BufferBudget_compute(
        crop.right - crop.left, crop.bottom - crop.top, merge_num, TAV_SR2_FMT_YUV420_SEMIPLANAR,
        tav_sr2_isSuperZoom(r.width, r.height, r.output_width, r.output_height), &t, &b);
    return b;
}

const int64_t kG = tav_sr2_SR2GLRender_fixedNeed(TAV_SR2_RENDER_SLOT_COUNT);
// 200 bytes for each of the 48 textures, and the fixed 103424.
const int64_t kFixed = 200 * 48 + 103424;

TEST(BufferBudgetTest, TermsOf4000x3000AtZoom1) {
    // Crop and area of interest 4000 x 3000, quarter 1000 x 750, internal zoom 1.0: iw 4000,
    // ih 3000.
    const tav_sr2_BufferBudget b = budgetOf({4000, 3000, 4000, 3000, 1.0f});
    // 750000 (UINT8 quarter) + 1500000 (UINT16 quarter) + 3 * 12000000.
    EXPECT_EQ(b.init_size, kG + kFixed + 750000 + 1500000 + 36000000);
    // m 0, e 1: 3 * 4000 * 3000 + 2000 * 1500.
    EXPECT_EQ(b.align_size, 39000000);
    // a 2000, b 1500, c 1000, p 3000000, r 500 * 1500 = 750000, u 187500, v 562500,
    // t 2000 * 7 = 14000: 2250000 + 3000000 + 562500 + 21000000 + 2250000 +
    // (3500 * 1500 >> 1 = 2625000) + max(6000000, 18452000 + 2250000, 6750000).
    EXPECT_EQ(b.merge_size, 52389500);
    // max(48000000 + 12000000 + 8 * 4096000, 6000000 + 750000 + 27000000 + 24000000 + 12000000).
    EXPECT_EQ(b.nr_size, 92768000);
    EXPECT_EQ(b.gf_size, tav_sr2_GuidedFilter_requiredSize(4000, 3000, TAV_SR2_FMT_UINT16));
    EXPECT_EQ(b.lc_size, b.gf_size);
    // Method 3: 48000000 + 24000000 + 12000000 + 7 * 4096000.
    EXPECT_EQ(b.unsharp_size, 112672000);
    EXPECT_EQ(b.enhance_size, 48000000);
    // 3/2 of 24000000, and the resize at 2000 x 1500: 16 workers * 2000 * 2 rows * 4 bytes,
    // one pool block (256000 + 8 rounded to 16).
    EXPECT_EQ(b.clip_size, 36000000 + 256016);
    // The largest stage (unsharp) beats 3 * 24000000 + clip = 108256016.
    EXPECT_EQ(b.local_size, 112672000);
    // init + local + UINT16 2000 x 1500.
    EXPECT_EQ(b.tot_size, b.init_size + 112672000 + 6000000);
    EXPECT_EQ(b.pipeline_size, static_cast<int64_t>(static_cast<double>(b.tot_size) * 1.1));
}

TEST(BufferBudgetTest, SuperZoomSizesByTheClipAndTheInternalPlanes) {
    // 4000 x 3000 to 8000 x 6000 at 2: crop and area 4000 x 3000, internal 1.0.
    const tav_sr2_BufferBudget b = budgetOf({4000, 3000, 8000, 6000, 2.0f});
    // 3/2 of UINT16 8000 x 6000, and the resize at 4000 wide: 16 * 4000 * 2 * 4 + 8 -> 512016.
    EXPECT_EQ(b.clip_size, 144000000 + 512016);
    // Clip beats every stage and 3 * UINT16 4000 x 3000 = 72000000.
    EXPECT_EQ(b.local_size, b.clip_size);
    EXPECT_EQ(b.align_size, 39000000);  // the default shift of the alignment image stays 0
}

TEST(BufferBudgetTest, SmallFrame) {
    // 1000 x 750: crop 1000 x 750, area 1000 x 744, quarter 250 x 186.
    const tav_sr2_BufferBudget b = budgetOf({1000, 750, 1000, 750, 1.0f});
    EXPECT_EQ(b.align_size, 3 * 1000 * 750 + 500 * 375);
    EXPECT_EQ(b.enhance_size, 4 * 1000 * 744);
    EXPECT_EQ(b.init_size, kG + kFixed + 250 * 186 + 2 * 250 * 186 + 3 * 1000 * 744);
}

TEST(BufferBudgetTest, GetBufferSizeRefusesOddAndEmptySizes) {
    const char* f = "YUV420_SEMIPLANAR";
    EXPECT_EQ(tav_sr2_getBufferSize(4000, 3000, 4000, 2999, 8, 8, f, 1.0f), 0);
    EXPECT_EQ(tav_sr2_getBufferSize(4000, 3000, 3999, 3000, 8, 8, f, 1.0f), 0);
    EXPECT_EQ(tav_sr2_getBufferSize(5139, 3856, 5140, 3856, 8, 8, f, 1.0f), 0);
    EXPECT_EQ(tav_sr2_getBufferSize(4000, 3001, 4000, 3002, 8, 8, f, 1.0f), 0);
    EXPECT_EQ(tav_sr2_getBufferSize(0, 3000, 4000, 3000, 8, 8, f, 1.0f), 0);
    EXPECT_EQ(tav_sr2_getBufferSize(4000, -2, 4000, 3000, 8, 8, f, 1.0f), 0);
    EXPECT_EQ(tav_sr2_getBufferSize(4000, 3000, 4000, 3000, 8, 8, f, 0.5f), 0);
    EXPECT_GT(tav_sr2_getBufferSize(5140, 3856, 5140, 3856, 8, 8, f, 1.0f), 0);
    // What init refuses later still gets a size, so that the instance's own init goes through.
    EXPECT_GT(tav_sr2_getBufferSize(4000, 3000, 4000, 3000, 11, 11, f, 1.0f), 0);
    EXPECT_GT(tav_sr2_getBufferSize(4000, 3000, 4000, 3000, 8, 8, "RGB888", 1.0f), 0);
}

TEST(BufferBudgetTest, GetBufferSizeIsTheEngineThePipelineAndTheWorkers) {
    const tav_sr2_BufferBudget b = budgetOf({4000, 3000, 4000, 3000, 4.0f});
    const int64_t workers =
        int64_t{tav_sr2_TaskSys_requiredSize()} + tav_sr2_ThreadPool_requiredSize(64, 64, 64, 64);
    const int64_t engine = static_cast<int64_t>(sizeof(tav_sr2_Engine)) + b.pipeline_size + workers;
    EXPECT_EQ(tav_sr2_getBufferSize(4000, 3000, 4000, 3000, 8, 8, "NV21", 4.0f), engine);
    // Packed 10-bit frames are converted into the pool at intake: every slot holds one 8-bit
    // frame of the full size, beyond the stages' terms.
    const int64_t frame = tav_sr2_ImageFormat_query(4000, 3000, TAV_SR2_FMT_YUV420_SEMIPLANAR, 0) +
                          TAV_SR2_BUDGET_BLOCK_SLACK;
    EXPECT_EQ(tav_sr2_getBufferSize(4000, 3000, 4000, 3000, 8, 8, "YUV10B_PACKED_LE_420S", 4.0f),
              engine + 8 * frame);
}

}  // namespace
