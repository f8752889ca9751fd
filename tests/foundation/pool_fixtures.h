// Test fixtures for operations that take pool memory and workers: a pool over a heap block, a
// running scheduler with a thread pool bound to it, and owned test images with random contents.
// The image operators' helpers (tests/enhance/image_test_util.h) build on these.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <random>
#include <vector>

#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"

namespace tav_fixtures {

struct Heap {
    std::unique_ptr<max_align_t[]> region;
    tav_sr2_MemPool pool = {};
    explicit Heap(size_t bytes = 32u << 20) : region(new max_align_t[bytes / sizeof(max_align_t)]) {
        EXPECT_EQ(tav_sr2_MemPool_init(&pool, region.get(), bytes), TAV_OK);
    }
};

// A scheduler of n workers, the caller included, and a thread pool bound to it; posts take
// their copies from `pool`.
struct Workers {
    tav_sr2_TaskSys* ts;
    tav_sr2_ThreadPool tp = {};
    Workers(tav_sr2_MemPool* pool, int32_t n) {
        ts = static_cast<tav_sr2_TaskSys*>(calloc(1, sizeof(tav_sr2_TaskSys)));
        tav_sr2_TaskSys_init(ts, pool);
        ts->config.thread_count = n;
        EXPECT_EQ(tav_sr2_TaskSys_start(ts), TAV_OK);
        tav_sr2_ThreadPool_init(&tp, pool);
        tp.task_sys = ts;
        tp.thread_limit = n;
        EXPECT_EQ(tav_sr2_ThreadPool_start(&tp, 64, 64), TAV_OK);
    }
    ~Workers() {
        tav_sr2_ThreadPool_finish(&tp);
        tav_sr2_TaskSys_finish(ts);
        free(ts);
    }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;
};

struct TestImage {
    tav_sr2_Image img;
    TestImage(tav_sr2_MemPool* pool, int32_t w, int32_t h, int32_t code) {
        tav_sr2_Image_init(&img, pool);
        EXPECT_EQ(tav_sr2_Image_alloc(&img, w, h, nullptr, code), TAV_OK);
    }
    ~TestImage() { tav_sr2_Image_finish(&img); }
    TestImage(const TestImage&) = delete;
    TestImage& operator=(const TestImage&) = delete;
    size_t bytes() const { return tav_sr2_ImageFormat_query(img.width, img.height, img.format, 0); }
    std::vector<uint8_t> snapshot() const {
        return std::vector<uint8_t>(img.plane[0], img.plane[0] + bytes());
    }
    // Random bytes everywhere; float planes get random finite values instead.
    void randomize(std::mt19937& rng) {
        if (img.format == TAV_SR2_FMT_FLOAT) {
            for (size_t i = 0; i < bytes() / 4; ++i) {
                const float v = (float)((int32_t)(rng() % 2000001) - 1000000) / 64.0f;
                memcpy(img.plane[0] + 4 * i, &v, 4);
            }
            return;
        }
        for (size_t i = 0; i < bytes(); ++i)
            img.plane[0][i] = (uint8_t)rng();
    }
};

}  // namespace tav_fixtures
