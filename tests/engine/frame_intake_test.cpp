// Frame intake: the pipeline's bookkeeping and scores for each frame, the reset at a new run, the
// slot limit, allocation failures during a measure, and the engine's intake of host frames in
// both input forms (wrapped 8-bit and converted packed 10-bit), with the work crop and the input
// blur, up to the choice of the base frame.

#include "engine/frame_intake.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <random>
#include <vector>

#include "engine/buffer_budget.h"
#include "enhance/resize.h"
#include "tests/engine/sharpness_reference.h"
#include "tests/foundation/pool_fixtures.h"

namespace {

using tav_fixtures::Heap;
using tav_fixtures::TestImage;
using tav_fixtures::Workers;
using tav_sharp_ref::referenceBrightness;
using tav_sharp_ref::referenceScore;

const double kSigma = 0.7;

struct PipelineRig {
    Heap heap{64u << 20};
    Workers workers{&heap.pool, 3};
    std::unique_ptr<tav_sr2_Pipeline> p = std::make_unique<tav_sr2_Pipeline>();
    PipelineRig() {
        *p = {};
        EXPECT_EQ(tav_sr2_Pipeline_init(p.get(), &heap.pool, workers.ts, &workers.tp), TAV_OK);
        tav_sr2_SrParams_setDefault(&p->tuning);
        p->max_image_num = 3;
        p->restart_pending = 1;
    }
};

#ifdef TAVRIN_FAULT_INJECTION
void fillNoise(tav_sr2_Image* im, std::mt19937& rng, int spread) {
    for (int32_t y = 0; y < im->height; ++y) {
        for (int32_t x = 0; x < im->width; ++x) {
            im->plane[0][(size_t)y * im->pitch[0] + x] =
                (uint8_t)(128 + (int)(rng() % (2 * spread + 1)) - spread);
        }
    }
}

TEST(PipelineAddImage, AllocationFailuresLeaveNoTrace) {
    PipelineRig rig;
    tav_sr2_Pipeline* p = rig.p.get();
    p->tuning.eval_blur_shrink_ratio = 1;
    p->tuning.removebrightnessdiff_image_enable = 1;
    std::mt19937 rng(4);
    TestImage frame(&rig.heap.pool, 96, 64, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    fillNoise(&frame.img, rng, 40);
    tav_sr2_MemPool_injectFailure(0, false);
    ASSERT_EQ(tav_sr2_Pipeline_addImage(p, &frame.img), TAV_OK);
    const uint32_t allocations = tav_sr2_MemPool_allocCount();
    ASSERT_GT(allocations, 1u);
    const int32_t good = p->sharpness[0];
    uint32_t failures = 0;
    for (uint32_t nth = 1; nth <= allocations; ++nth) {
        p->restart_pending = 1;
        const uint32_t in_use = tav_sr2_MemPool_inUse(&rig.heap.pool);
        tav_sr2_MemPool_injectFailure(nth, false);
        const uint32_t status = tav_sr2_Pipeline_addImage(p, &frame.img);
        tav_sr2_MemPool_injectFailure(0, false);
        EXPECT_EQ(tav_sr2_MemPool_inUse(&rig.heap.pool), in_use) << nth;
        if (status == TAV_OK) {
            EXPECT_EQ(p->frame_count, 1) << nth;
        } else {
            EXPECT_TRUE(tav_sr2_failed(status)) << nth;
            EXPECT_EQ(p->frame_count, 0) << nth;
            ++failures;
        }
    }
    // The shrunk copy and the rings are refused outright; a refused row buffer of the resize is
    // not reported by it, so not every injected failure shows.
    EXPECT_GE(failures, 2u);
    p->restart_pending = 1;
    ASSERT_EQ(tav_sr2_Pipeline_addImage(p, &frame.img), TAV_OK);
    EXPECT_EQ(p->sharpness[0], good);
}
#endif

// ---- The engine's intake --------------------------------------------------------------------

struct FreeDeleter {
    void operator()(void* b) const { free(b); }
};

// An engine on frames of 2000 x 1500 at zoom 2: the work crop is 1280 x 960 at (360, 270).
struct EngineRig {
    std::unique_ptr<uint8_t, FreeDeleter> buffer;
    tav_sr2_Engine* e = nullptr;
    explicit EngineRig(const char* format, int32_t slots = 3) {
        const int32_t size =
            tav_sr2_getBufferSize(2000, 1500, 2000, 1500, slots, slots, format, 2.0f);
        EXPECT_GT(size, 0);
        buffer.reset(static_cast<uint8_t*>(aligned_alloc(64, ((size_t)size + 63) & ~(size_t)63)));
        EXPECT_EQ(tav_sr2_init(&e, buffer.get(), size, 2000, 1500, 2000, 1500, slots, slots, 2,
                               format, 2.0f),
                  TAV_OK);
    }
    ~EngineRig() {
        if (e != nullptr) {
            EXPECT_EQ(tav_sr2_finish(&e), TAV_OK);
        }
    }
};

struct HostFrame {
    std::vector<uint8_t> luma, chroma;
    tavrin_KELD_Image rec;
    HostFrame(int32_t w, int32_t h, int32_t pitch0, int32_t pitch1) {
        luma.assign((size_t)pitch0 * h, 0);
        chroma.assign((size_t)pitch1 * ((h + 1) / 2), 128);
        rec = {w, h, luma.data(), chroma.data(), nullptr, pitch0, pitch1, 0};
    }
};

TEST(EngineAddImage, WrapsCropsScoresAndChoosesTheBase) {
    EngineRig rig("YUV420_SEMIPLANAR");
    std::mt19937 rng(2);
    std::vector<HostFrame> frames;
    for (int i = 0; i < 4; ++i)
        frames.emplace_back(2000, 1500, 2016, 2016);
    for (int i = 0; i < 4; ++i) {
        // Frame 1 carries the strongest detail; the others are smooth ramps with weak noise.
        for (int32_t y = 0; y < 1500; ++y) {
            for (int32_t x = 0; x < 2000; ++x) {
                const int noise = i == 1 ? (int)(rng() % 81) - 40 : (int)(rng() % 5) - 2;
                frames[i].luma[(size_t)y * 2016 + x] = (uint8_t)(100 + (x + y) % 50 + noise);
            }
        }
    }
    int32_t base = -1;
    EXPECT_EQ(tav_sr2_addImage(&rig.e, &frames[0].rec), TAV_ERROR_STATE);  // not started
    ASSERT_EQ(tav_sr2_start(&rig.e), TAV_OK);
    EXPECT_EQ(tav_sr2_getBaseImage(&rig.e, &base), TAV_ERROR_STATE);  // no frame yet
    EXPECT_EQ(tav_sr2_addImage(&rig.e, nullptr), TAV_ERROR_PARAM);
    tavrin_KELD_Image bad = frames[0].rec;
    bad.plane0 = nullptr;
    EXPECT_EQ(tav_sr2_addImage(&rig.e, &bad), TAV_ERROR_PARAM);
    bad = frames[0].rec;
    bad.height = 0;
    EXPECT_EQ(tav_sr2_addImage(&rig.e, &bad), TAV_ERROR_PARAM);
    bad = frames[0].rec;
    bad.pitch0 = 1999;
    EXPECT_EQ(tav_sr2_addImage(&rig.e, &bad), TAV_ERROR_GENERIC);
    EXPECT_EQ(rig.e->cursor, 0);

    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(tav_sr2_addImage(&rig.e, &frames[i].rec), TAV_OK) << i;
    EXPECT_EQ(tav_sr2_addImage(&rig.e, &frames[3].rec), TAV_ERROR_GENERIC);  // slots full
    EXPECT_EQ(rig.e->cursor, 3);
    EXPECT_NE(rig.e->state & TAV_SR2_STATE_FRAME_TAKEN, 0);
    EXPECT_EQ(rig.e->pipeline.frame_count, 3);
    // The crop view sits at (360, 270) of the host's own pixels.
    const tav_sr2_Image& clip = rig.e->clip_images[1];
    EXPECT_EQ(clip.width, 1280);
    EXPECT_EQ(clip.height, 960);
    EXPECT_EQ(clip.plane[0], frames[1].luma.data() + 270 * 2016 + 360);
    EXPECT_EQ(clip.plane[1], frames[1].chroma.data() + 135 * 2016 + 360);
    EXPECT_EQ(rig.e->full_images[1].external, 1u);

    ASSERT_EQ(tav_sr2_getBaseImage(&rig.e, &base), TAV_OK);
    EXPECT_EQ(base, 1);
    EXPECT_EQ(rig.e->pipeline.order_ready, 1);
    EXPECT_EQ(tav_sr2_getBaseImage(&rig.e, nullptr), TAV_ERROR_PARAM);
}

void packSample(uint8_t* row, int32_t i, uint32_t v) {
    uint32_t word;
    memcpy(&word, row + (i / 3) * 4, 4);
    const int shift = 10 * (i % 3);
    word = (word & ~(0x3FFu << shift)) | (v << shift);
    memcpy(row + (i / 3) * 4, &word, 4);
}

TEST(EngineAddImage, PackedTenBitFramesAreConvertedIntoThePool) {
    EngineRig rig("YUV10B_PACKED_LE_420S");
    ASSERT_EQ(tav_sr2_start(&rig.e), TAV_OK);
    // 2000 pixels pad to 2004: 2672 bytes per row in both planes.
    HostFrame f(2000, 1500, 2672, 2672);
    std::mt19937 rng(8);
    std::vector<uint16_t> y((size_t)2000 * 1500);
    for (int32_t r = 0; r < 1500; ++r) {
        for (int32_t x = 0; x < 2000; ++x) {
            y[(size_t)r * 2000 + x] = (uint16_t)(rng() % 1024);
            packSample(&f.luma[(size_t)r * 2672], x, y[(size_t)r * 2000 + x]);
        }
    }
    for (int32_t r = 0; r < 750; ++r) {
        for (int32_t i = 0; i < 2000; ++i)
            packSample(&f.chroma[(size_t)r * 2672], i, (uint32_t)(4 * i % 1024));
    }
    tavrin_KELD_Image short_pitch = f.rec;
    short_pitch.pitch1 = 2671;
    EXPECT_EQ(tav_sr2_addImage(&rig.e, &short_pitch), TAV_ERROR_GENERIC);
    ASSERT_EQ(tav_sr2_addImage(&rig.e, &f.rec), TAV_OK);
    const tav_sr2_Image& full = rig.e->full_images[0];
    EXPECT_EQ(full.format, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    EXPECT_EQ(full.external, 0u);
    for (int32_t r = 0; r < 1500; r += 3) {
        for (int32_t x = 0; x < 2000; ++x) {
            const uint32_t v = y[(size_t)r * 2000 + x];
            ASSERT_EQ(full.plane[0][(size_t)r * full.pitch[0] + x], v >= 1022 ? 255 : (v + 2) / 4);
        }
    }
    for (int32_t i = 0; i < 2000; ++i) {
        const uint32_t v = 4 * i % 1024;
        ASSERT_EQ(full.plane[1][749 * full.pitch[1] + i], v >= 1022 ? 255 : (v + 2) / 4) << i;
    }
    // The crop is a view of the converted frame, and the frame was scored.
    EXPECT_EQ(rig.e->clip_images[0].plane[0], full.plane[0] + 270 * full.pitch[0] + 360);
    EXPECT_GT(rig.e->pipeline.sharpness[0], 0);
}

}  // namespace
