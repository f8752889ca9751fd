// Test helpers of the image operators: the pool, image and worker fixtures of
// tests/foundation/pool_fixtures.h, an image context over them, and sample access by format.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <memory>
#include <random>
#include <vector>

#include "enhance/image_ctx.h"
#include "foundation/image.h"
#include "tests/foundation/pool_fixtures.h"

namespace tav_test {

using tav_fixtures::Heap;
using tav_fixtures::TestImage;

// n workers, the caller included, and the image context over them; n = 1 gives a context
// without a thread pool or task system.
struct Workers {
    std::unique_ptr<tav_fixtures::Workers> running;
    tav_sr2_TaskSys* ts = nullptr;
    tav_sr2_ImageCtx ctx = {};
    Workers(tav_sr2_MemPool* pool, int32_t n) {
        ctx.pool = pool;
        if (n <= 1) return;
        running = std::make_unique<tav_fixtures::Workers>(pool, n);
        ts = running->ts;
        ctx.threads = &running->tp;
        ctx.tasks = ts;
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
