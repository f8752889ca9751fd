// The engine record: init's checks, the state bits, the setters, a whole life in a buffer of
// exactly the budgeted size, and allocation failures all through init and start.
#include "engine/engine.h"

#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <vector>

#include "engine/buffer_budget.h"
#include "engine/frame_intake.h"
#include "engine/process.h"
#include "tests/engine/log_capture.h"

namespace {

struct FreeDeleter {
    void operator()(void* p) const { free(p); }
};
using Buffer = std::unique_ptr<uint8_t, FreeDeleter>;

Buffer makeBuffer(size_t bytes) {
    const size_t rounded = (bytes + 63) & ~size_t{63};
    return Buffer(static_cast<uint8_t*>(aligned_alloc(64, rounded)));
}

// The arguments of tav_sr2_init, good by default; a test changes one of them.
struct InitArgs {
    int32_t width = 4000, height = 3000, output_width = 4000, output_height = 3000;
    int32_t max_image_num = 8, merge_num = 8, num_cores = 4;
    const char* format = "YUV420_SEMIPLANAR";
    float zoom = 4.0f;

    int32_t budget() const {
        return tav_sr2_getBufferSize(width, height, output_width, output_height, max_image_num,
                                     merge_num, format, zoom);
    }
    uint32_t init(tav_sr2_Engine** handle, void* buffer, int32_t size) const {
        return tav_sr2_init(handle, buffer, size, width, height, output_width, output_height,
                            max_image_num, merge_num, num_cores, format, zoom);
    }
};

// Room for the engine and a small pool: enough for every check that stops before start.
constexpr int32_t kSmallBuffer = static_cast<int32_t>(sizeof(tav_sr2_Engine)) + (1 << 20);

bool allZero(const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (p[i] != 0) return false;
    return true;
}

TEST(EngineTest, InitRefusesEachBadArgument) {
    Buffer buf = makeBuffer(kSmallBuffer);
    struct Case {
        const char* what;
        void (*change)(InitArgs*);
        uint32_t status;
    };
    const Case cases[] = {
        {"format 52", [](InitArgs* a) { a->format = "YUV10B420_SEMIPLANAR"; },
         TAV_ERROR_UNSUPPORTED},
        {"lower-case name", [](InitArgs* a) { a->format = "yuv420_semiplanar"; },
         TAV_ERROR_UNSUPPORTED},
        {"no name", [](InitArgs* a) { a->format = nullptr; }, TAV_ERROR_UNSUPPORTED},
        // The format is checked first: a bad format wins over a bad count.
        {"format before counts",
         [](InitArgs* a) {
             a->format = "RGB888";
             a->merge_num = 0;
         },
         TAV_ERROR_UNSUPPORTED},
        {"merge 0", [](InitArgs* a) { a->merge_num = 0; }, TAV_ERROR_PARAM},
        {"merge 11", [](InitArgs* a) { a->merge_num = 11; }, TAV_ERROR_PARAM},
        {"slots 0", [](InitArgs* a) { a->max_image_num = 0; }, TAV_ERROR_PARAM},
        {"slots 11", [](InitArgs* a) { a->max_image_num = 11; }, TAV_ERROR_PARAM},
        {"odd width", [](InitArgs* a) { a->width = 3999; }, TAV_ERROR_PARAM},
        {"odd height", [](InitArgs* a) { a->height = 2999; }, TAV_ERROR_PARAM},
        {"odd output width", [](InitArgs* a) { a->output_width = 3999; }, TAV_ERROR_PARAM},
        {"odd output height", [](InitArgs* a) { a->output_height = 2999; }, TAV_ERROR_PARAM},
        {"zero width", [](InitArgs* a) { a->width = 0; }, TAV_ERROR_PARAM},
        {"negative output", [](InitArgs* a) { a->output_height = -2; }, TAV_ERROR_PARAM},
        {"zoom below 1", [](InitArgs* a) { a->zoom = 0.99f; }, TAV_ERROR_PARAM},
        {"zoom above 60", [](InitArgs* a) { a->zoom = 60.01f; }, TAV_ERROR_PARAM},
        {"zoom NaN", [](InitArgs* a) { a->zoom = NAN; }, TAV_ERROR_PARAM},
        // trunc(4000 * 1.0) = 4000 cannot reach an output of 4002.
        {"output beyond the zoom",
         [](InitArgs* a) {
             a->zoom = 1.0f;
             a->output_width = 4002;
         },
         TAV_ERROR_PARAM},
        // In float 100 * 2.1f is 209.99998, which truncates to 209: short of 210 (double
        // arithmetic would give 210 and pass).
        {"trunc in float",
         [](InitArgs* a) {
             a->width = a->height = 100;
             a->zoom = 2.1f;
             a->output_width = 210;
             a->output_height = 200;
         },
         TAV_ERROR_PARAM},
    };
    for (const Case& c : cases) {
        InitArgs args;
        c.change(&args);
        tav_sr2_Engine* sentinel = reinterpret_cast<tav_sr2_Engine*>(0x10);
        tav_sr2_Engine* handle = sentinel;
        EXPECT_EQ(args.init(&handle, buf.get(), kSmallBuffer), c.status) << c.what;
        EXPECT_EQ(handle, sentinel) << c.what;  // refused before anything was touched
    }
    // The same float case one step lower passes, and zoom 60 is still in range.
    for (auto change :
         {+[](InitArgs* a) {
              a->width = a->height = 100;
              a->zoom = 2.1f;
              a->output_width = 208;
              a->output_height = 200;
          },
          +[](InitArgs* a) { a->zoom = 60.0f; }, +[](InitArgs* a) { a->format = "NV21"; },
          +[](InitArgs* a) { a->format = "YUV10B_PACKED_LE_420S"; }}) {
        InitArgs args;
        change(&args);
        tav_sr2_Engine* handle = nullptr;
        ASSERT_EQ(args.init(&handle, buf.get(), kSmallBuffer), TAV_OK);
        EXPECT_EQ(tav_sr2_finish(&handle), TAV_OK);
    }
    // Null pointers and an empty buffer.
    InitArgs args;
    tav_sr2_Engine* handle = nullptr;
    EXPECT_EQ(args.init(nullptr, buf.get(), kSmallBuffer), TAV_ERROR_PARAM);
    EXPECT_EQ(args.init(&handle, nullptr, kSmallBuffer), TAV_ERROR_PARAM);
    EXPECT_EQ(args.init(&handle, buf.get(), 0), TAV_ERROR_PARAM);
}

TEST(EngineTest, InitRefusesABufferTooSmallForTheEngineOrItsPool) {
    const int32_t object = static_cast<int32_t>(sizeof(tav_sr2_Engine));
    Buffer buf = makeBuffer(kSmallBuffer);
    memset(buf.get(), 0xA5, kSmallBuffer);
    InitArgs args;
    tav_sr2_Engine* handle = reinterpret_cast<tav_sr2_Engine*>(0x10);
    EXPECT_EQ(args.init(&handle, buf.get(), object - 1), TAV_ERROR_BUFFER);
    EXPECT_EQ(handle, nullptr);
    // The object fits but leaves nothing for the pool: refused, and the object's bytes zeroed.
    handle = reinterpret_cast<tav_sr2_Engine*>(0x10);
    EXPECT_EQ(args.init(&handle, buf.get(), object), TAV_ERROR_BUFFER);
    EXPECT_EQ(handle, nullptr);
    EXPECT_TRUE(allZero(buf.get(), sizeof(tav_sr2_Engine)));
    // A buffer not aligned for the record.
    EXPECT_EQ(args.init(&handle, buf.get() + 4, kSmallBuffer - 4), TAV_ERROR_BUFFER);
}

TEST(EngineTest, OperationsCheckTheStateBits) {
    // A zeroed record has no bit set: everything that needs one refuses.
    auto* zeroed = static_cast<tav_sr2_Engine*>(calloc(1, sizeof(tav_sr2_Engine)));
    tav_sr2_Engine* z = zeroed;
    tav_sr2_SrParams params = {};
    tav_sr2_Condition cond = {};
    tav_sr2_Rect face = {0, 0, 100, 100};
    int32_t count = 0;
    EXPECT_EQ(tav_sr2_finish(&z), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_getParams(&z, &params), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_setParams(&z, &params), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_setCondition(&z, &cond), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_start(&z), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_setZoomCenter(&z, 2000, 1500), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_setCore(&z, 0, 4, 240), TAV_ERROR_STATE);
    free(zeroed);

    // Null handles, and a handle to nothing, are argument errors for every operation.
    tav_sr2_Engine* none = nullptr;
    for (tav_sr2_Engine** h : {static_cast<tav_sr2_Engine**>(nullptr), &none}) {
        EXPECT_EQ(tav_sr2_finish(h), TAV_ERROR_PARAM);
        EXPECT_EQ(tav_sr2_start(h), TAV_ERROR_PARAM);
        EXPECT_EQ(tav_sr2_setZoomCenter(h, 0, 0), TAV_ERROR_PARAM);
        EXPECT_EQ(tav_sr2_setCore(h, 0, 4, 240), TAV_ERROR_PARAM);
        EXPECT_EQ(tav_sr2_setCondition(h, &cond), TAV_ERROR_PARAM);
        EXPECT_EQ(tav_sr2_setFaceRects(h, &face, 1), TAV_ERROR_PARAM);
        EXPECT_EQ(tav_sr2_getMergeNum(h, &count), TAV_ERROR_PARAM);
        EXPECT_EQ(tav_sr2_getParams(h, &params), TAV_ERROR_PARAM);
        EXPECT_EQ(tav_sr2_setParams(h, &params), TAV_ERROR_PARAM);
    }

    InitArgs args;
    args.width = args.output_width = 1000;
    args.height = args.output_height = 750;
    args.zoom = 1.0f;
    Buffer buf = makeBuffer(args.budget());
    tav_sr2_Engine* e = nullptr;
    ASSERT_EQ(args.init(&e, buf.get(), args.budget()), TAV_OK);
    // Initialised, not started: faces and the merge count refuse.
    EXPECT_EQ(tav_sr2_setFaceRects(&e, &face, 1), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_getMergeNum(&e, &count), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_setCore(&e, 0, 2, 0), TAV_OK);
    ASSERT_EQ(tav_sr2_start(&e), TAV_OK);
    EXPECT_EQ(e->state, TAV_SR2_STATE_INITIALISED | TAV_SR2_STATE_STARTED);
    // Started: the settings of the workers and the crop are closed.
    EXPECT_EQ(tav_sr2_setZoomCenter(&e, 500, 375), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_setCore(&e, 0, 4, 240), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_setFaceRects(&e, &face, 1), TAV_OK);
    EXPECT_EQ(tav_sr2_getParams(&e, &params), TAV_OK);
    EXPECT_EQ(tav_sr2_setParams(&e, &params), TAV_OK);
    EXPECT_EQ(tav_sr2_getMergeNum(&e, &count), TAV_ERROR_STATE);  // nothing processed
    // The merge count is there once a run has ended.
    e->state |= TAV_SR2_STATE_PROCESSED;
    e->pipeline.accum_num = 3;
    EXPECT_EQ(tav_sr2_getMergeNum(&e, &count), TAV_OK);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(tav_sr2_getMergeNum(&e, nullptr), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_finish(&e), TAV_OK);
}

TEST(EngineTest, FinishReportsALeakAndKeepsTheEngine) {
    Buffer buf = makeBuffer(kSmallBuffer);
    InitArgs args;
    tav_sr2_Engine* e = nullptr;
    ASSERT_EQ(args.init(&e, buf.get(), kSmallBuffer), TAV_OK);
    ASSERT_NE(tav_sr2_MemPool_alloc(&e->pool, 100), nullptr);  // never given back
    tav_sr2_Engine* kept = e;
    EXPECT_EQ(tav_sr2_finish(&e), TAV_ERROR_BUFFER);
    EXPECT_EQ(e, kept);
    EXPECT_EQ(e->state, TAV_SR2_STATE_INITIALISED);
}

#ifdef TAVRIN_FAULT_INJECTION
TEST(EngineTest, EveryAllocationOfInitAndStartMayFail) {
    InitArgs args;
    args.width = args.output_width = 1000;
    args.height = args.output_height = 750;
    args.zoom = 1.0f;
    args.num_cores = 4;
    const int32_t budget = args.budget();
    Buffer buf = makeBuffer(budget);

    // Count the allocations of one clean init and start.
    tav_sr2_Engine* e = nullptr;
    tav_sr2_MemPool_injectFailure(0, false);
    ASSERT_EQ(args.init(&e, buf.get(), budget), TAV_OK);
    EXPECT_EQ(tav_sr2_MemPool_allocCount(), 0u);  // init takes nothing from the pool
    ASSERT_EQ(tav_sr2_start(&e), TAV_OK);
    const uint32_t total = tav_sr2_MemPool_allocCount();
    ASSERT_EQ(tav_sr2_finish(&e), TAV_OK);
    ASSERT_GT(total, 2u);  // at least the workers, the job list and the two quarter maps

    for (bool persist : {false, true}) {
        for (uint32_t nth = 1; nth <= total; ++nth) {
            ASSERT_EQ(args.init(&e, buf.get(), budget), TAV_OK);
            tav_sr2_MemPool_injectFailure(nth, persist);
            EXPECT_EQ(tav_sr2_start(&e), TAV_ERROR_GENERIC) << nth << " " << persist;
            tav_sr2_MemPool_injectFailure(0, false);
            EXPECT_EQ(e->state & TAV_SR2_STATE_STARTED, 0) << nth;
            EXPECT_EQ(tav_sr2_finish(&e), TAV_OK) << nth << " " << persist;  // nothing leaked
            EXPECT_EQ(e, nullptr);
        }
    }
}
#endif

}  // namespace
