// Test helpers of the image operators: a pool over a heap block, a running scheduler with its
// thread pool, owned test images with random contents, and sample access by format.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <random>
#include <vector>

#include "enhance/image_ctx.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"

namespace tav_test {

struct Heap {
    std::unique_ptr<max_align_t[]> region;
    tav_sr2_MemPool pool = {};
    explicit Heap(size_t bytes = 32u << 20) : region(new max_align_t[bytes / sizeof(max_align_t)]) {
        EXPECT_EQ(tav_sr2_MemPool_init(&pool, region.get(), bytes), TAV_OK);
    }
};

// n workers, the caller included; n = 1 gives a context without a thread pool.
struct Workers {
    tav_sr2_TaskSys* ts = nullptr;
    tav_sr2_ThreadPool tp = {};
    tav_sr2_ImageCtx ctx = {};
    Workers(tav_sr2_MemPool* pool, int32_t n) {
        ctx.pool = pool;
        if (n <= 1) return;
        ts = static_cast<tav_sr2_TaskSys*>(calloc(1, sizeof(tav_sr2_TaskSys)));
        tav_sr2_TaskSys_init(ts, pool);
        ts->config.thread_count = n;
        EXPECT_EQ(tav_sr2_TaskSys_start(ts), TAV_OK);
        tav_sr2_ThreadPool_init(&tp, pool);
        tp.task_sys = ts;
        tp.thread_limit = n;
        EXPECT_EQ(tav_sr2_ThreadPool_start(&tp, 64, 64), TAV_OK);
        ctx.threads = &tp;
        ctx.tasks = ts;
    }
    ~Workers() {
        if (ts == nullptr) return;
        tav_sr2_ThreadPool_finish(&tp);
        tav_sr2_TaskSys_finish(ts);
        free(ts);
    }
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

inline int32_t channels(int32_t code) {
    return code == 6 || code == 7 ? 2 : 1;
}
inline int32_t sampleSize(int32_t code) {
    return code == 1 || code == 6 ? 1 : code == 2 || code == 3 || code == 7 ? 2 : 4;
}

// Sample (x, channel c) of row y of a one-plane image, as a double (signed for INT16, INT32).
inline double sample(const tav_sr2_Image& img, int32_t x, int32_t y, int32_t c = 0) {
    const int32_t code = img.format;
    const uint8_t* row = img.plane[0] + (int64_t)y * img.pitch[0];
    const int32_t i = x * channels(code) + c;
    switch (sampleSize(code)) {
        case 1:
            return row[i];
        case 2: {
            uint16_t v;
            memcpy(&v, row + 2 * i, 2);
            return code == 2 ? (double)(int16_t)v : (double)v;
        }
        default: {
            if (code == TAV_SR2_FMT_FLOAT) {
                float f;
                memcpy(&f, row + 4 * i, 4);
                return f;
            }
            int32_t v;
            memcpy(&v, row + 4 * i, 4);
            return v;
        }
    }
}

inline int32_t clampIndex(int32_t i, int32_t n) {
    return i < 0 ? 0 : i >= n ? n - 1 : i;
}

}  // namespace tav_test
