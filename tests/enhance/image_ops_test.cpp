// convert, shift_right, lookup, fillValue and blendMask against their rules written out here,
// at the edges of their ranges, on views with row padding, and with several workers.
#include "enhance/image_ops.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/enhance/image_test_util.h"

namespace {

using namespace tav_test;

template <typename T>
void put(tav_sr2_Image& img, int32_t plane, int32_t x, int32_t y, T v) {
    memcpy(img.plane[plane] + (int64_t)y * img.pitch[plane] + x * sizeof(T), &v, sizeof(T));
}
template <typename T>
T get(const tav_sr2_Image& img, int32_t plane, int32_t x, int32_t y) {
    T v;
    memcpy(&v, img.plane[plane] + (int64_t)y * img.pitch[plane] + x * sizeof(T), sizeof(T));
    return v;
}

TEST(ImageOpsTest, ConvertSaturatesAndRoundsNumbers) {
    Heap heap;
    Workers w(&heap.pool, 2);
    const float floats[] = {-3e9f, -2.5f, -0.49f, 0.5f, 2.5f, 254.6f, 255.5f, 70000.f, 3e9f};
    TestImage f(&heap.pool, 9, 1, TAV_SR2_FMT_FLOAT);
    for (int32_t x = 0; x < 9; ++x)
        put(f.img, 0, x, 0, floats[x]);
    TestImage u8(&heap.pool, 9, 1, 1), u16(&heap.pool, 9, 1, 3), i32(&heap.pool, 9, 1, 4);
    ASSERT_EQ(tav_sr2_Image_convert(&w.ctx, &u8.img, &f.img), TAV_OK);
    ASSERT_EQ(tav_sr2_Image_convert(&w.ctx, &u16.img, &f.img), TAV_OK);
    ASSERT_EQ(tav_sr2_Image_convert(&w.ctx, &i32.img, &f.img), TAV_OK);
    for (int32_t x = 0; x < 9; ++x) {
        // Half away from zero, then the destination's range.
        const double r =
            floats[x] < 0 ? -std::floor(-floats[x] + 0.5) : std::floor(floats[x] + 0.5);
        EXPECT_EQ(get<uint8_t>(u8.img, 0, x, 0), std::clamp(r, 0.0, 255.0)) << floats[x];
        EXPECT_EQ(get<uint16_t>(u16.img, 0, x, 0), std::clamp(r, 0.0, 65535.0)) << floats[x];
        EXPECT_EQ(get<int32_t>(i32.img, 0, x, 0), std::clamp(r, -2147483648.0, 2147483647.0));
    }
    // Integers saturate: INT32 into INT16 and UINT8.
    const int32_t ints[] = {-70000, -32769, -1, 0, 255, 256, 32767, 32768, 70000};
    for (int32_t x = 0; x < 9; ++x)
        put(i32.img, 0, x, 0, ints[x]);
    TestImage i16(&heap.pool, 9, 1, 2);
    ASSERT_EQ(tav_sr2_Image_convert(&w.ctx, &i16.img, &i32.img), TAV_OK);
    ASSERT_EQ(tav_sr2_Image_convert(&w.ctx, &u8.img, &i32.img), TAV_OK);
    for (int32_t x = 0; x < 9; ++x) {
        EXPECT_EQ(get<int16_t>(i16.img, 0, x, 0), std::clamp(ints[x], -32768, 32767));
        EXPECT_EQ(get<uint8_t>(u8.img, 0, x, 0), std::clamp(ints[x], 0, 255));
    }
    TestImage small(&heap.pool, 8, 1, 1), rgb(&heap.pool, 9, 1, 9);
    EXPECT_EQ(tav_sr2_Image_convert(&w.ctx, &small.img, &u8.img), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_convert(&w.ctx, &rgb.img, &u8.img), 0x80000010u);
}

TEST(ImageOpsTest, ConvertFramesChangesDepthAndSwapsChroma) {
    Heap heap;
    Workers w(&heap.pool, 3);
    // An odd width: the last chroma pair covers the padding column too.
    TestImage f10(&heap.pool, 7, 5, 52), f8(&heap.pool, 7, 5, 49), back(&heap.pool, 7, 5, 53);
    const uint16_t edges[] = {0, 1, 2, 1017, 1018, 1021, 1022, 1023};
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 7; ++x)
            put<uint16_t>(f10.img, 0, x, y, edges[(x + y) % 8]);
    for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 8; ++x)
            put<uint16_t>(f10.img, 1, x, y, edges[(x * 3 + y) % 8]);
    ASSERT_EQ(tav_sr2_Image_convert(&w.ctx, &f8.img, &f10.img), TAV_OK);
    auto down = [](uint16_t v) { return v >= 1022 ? 255 : (v % 4 >= 2 ? v / 4 + 1 : v / 4); };
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 7; ++x)
            EXPECT_EQ(get<uint8_t>(f8.img, 0, x, y), down(get<uint16_t>(f10.img, 0, x, y)));
    for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 8; ++x)  // 52 is U first, 49 V first
            EXPECT_EQ(get<uint8_t>(f8.img, 1, x, y), down(get<uint16_t>(f10.img, 1, x ^ 1, y)));
    ASSERT_EQ(tav_sr2_Image_convert(&w.ctx, &back.img, &f8.img), TAV_OK);
    for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 8; ++x)  // 49 and 53 agree in order: no swap, v << 2
            EXPECT_EQ(get<uint16_t>(back.img, 1, x, y), get<uint8_t>(f8.img, 1, x, y) << 2);
    EXPECT_EQ(get<uint16_t>(back.img, 0, 6, 4), get<uint8_t>(f8.img, 0, 6, 4) << 2);
}

TEST(ImageOpsTest, FillCoversEveryPlaneAndStaysInsideAView) {
    Heap heap;
    Workers w(&heap.pool, 2);
    TestImage frame(&heap.pool, 5, 3, 48);  // odd sizes: 6-byte chroma rows, 2 chroma rows
    ASSERT_EQ(tav_sr2_Image_fillValue(&w.ctx, &frame.img, 32), TAV_OK);
    for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 5; ++x)
            EXPECT_EQ(get<uint8_t>(frame.img, 0, x, y), 32);
    for (int32_t y = 0; y < 2; ++y)
        for (int32_t x = 0; x < 6; ++x)
            EXPECT_EQ(get<uint8_t>(frame.img, 1, x, y), 32);
    TestImage f(&heap.pool, 3, 2, TAV_SR2_FMT_FLOAT), h(&heap.pool, 3, 2, 52);
    ASSERT_EQ(tav_sr2_Image_fillValue(&w.ctx, &f.img, -7), TAV_OK);
    ASSERT_EQ(tav_sr2_Image_fillValue(&w.ctx, &h.img, 1023), TAV_OK);
    EXPECT_EQ(get<float>(f.img, 0, 2, 1), -7.0f);
    EXPECT_EQ(get<uint16_t>(h.img, 0, 2, 1), 1023);
    EXPECT_EQ(get<uint16_t>(h.img, 1, 3, 0), 1023);
    // A view fills its rectangle and nothing around it.
    TestImage big(&heap.pool, 9, 7, 3);
    memset(big.img.plane[0], 0, big.bytes());
    tav_sr2_Image view = {};
    ASSERT_EQ(tav_sr2_Image_crop(&view, &big.img, 2, 1, 5, 4), TAV_OK);
    ASSERT_EQ(tav_sr2_Image_fillValue(&w.ctx, &view, 0x1234), TAV_OK);
    for (int32_t y = 0; y < 7; ++y)
        for (int32_t x = 0; x < 9; ++x) {
            const bool inside = x >= 2 && x < 7 && y >= 1 && y < 5;
            EXPECT_EQ(get<uint16_t>(big.img, 0, x, y), inside ? 0x1234 : 0) << x << "," << y;
        }
    TestImage rgb(&heap.pool, 3, 3, 9);
    EXPECT_EQ(tav_sr2_Image_fillValue(&w.ctx, &rgb.img, 1), 0x80000010u);
}

TEST(ImageOpsTest, BlendMaskRoundsFramesAndTruncatesPlainImages) {
    Heap heap;
    std::mt19937 rng(71);
    for (int32_t n : {1, 3}) {
        Workers w(&heap.pool, n);
        for (int32_t format : {48, 49, 1}) {
            TestImage a(&heap.pool, 7, 5, format), b(&heap.pool, 7, 5, format);
            TestImage mask(&heap.pool, 7, 5, 1), dst(&heap.pool, 7, 5, format);
            a.randomize(rng);
            b.randomize(rng);
            memcpy(dst.img.plane[0], a.img.plane[0], a.bytes());  // the same row padding
            for (int32_t y = 0; y < 5; ++y)
                for (int32_t x = 0; x < 7; ++x)
                    put<uint8_t>(mask.img, 0, x, y, (uint8_t)(rng() % 129));
            put<uint8_t>(mask.img, 0, 6, 4, 0);
            put<uint8_t>(mask.img, 0, 0, 0, 128);
            ASSERT_EQ(tav_sr2_Image_blendMask(&w.ctx, &dst.img, &a.img, &b.img, &mask.img), TAV_OK);
            const int32_t half = format == 1 ? 0 : 64;
            auto mix = [&](int c, int av, int bv) { return ((128 - c) * bv + c * av + half) >> 7; };
            for (int32_t y = 0; y < 5; ++y)
                for (int32_t x = 0; x < 7; ++x) {
                    const int c = get<uint8_t>(mask.img, 0, x, y);
                    ASSERT_EQ(get<uint8_t>(dst.img, 0, x, y),
                              mix(c, get<uint8_t>(a.img, 0, x, y), get<uint8_t>(b.img, 0, x, y)));
                }
            if (format == 1) continue;
            for (int32_t cy = 0; cy < 3; ++cy)
                for (int32_t x = 0; x < 8; ++x) {  // byte 7 takes the last luma column's mask
                    const int c = get<uint8_t>(mask.img, 0, std::min(x, 6), 2 * cy);
                    ASSERT_EQ(get<uint8_t>(dst.img, 1, x, cy),
                              mix(c, get<uint8_t>(a.img, 1, x, cy), get<uint8_t>(b.img, 1, x, cy)))
                        << x << "," << cy;
                }
            // In place on a gives the same.
            const std::vector<uint8_t> out = dst.snapshot();
            ASSERT_EQ(tav_sr2_Image_blendMask(&w.ctx, &a.img, &a.img, &b.img, &mask.img), TAV_OK);
            EXPECT_EQ(a.snapshot(), out);
        }
        TestImage a(&heap.pool, 7, 5, 48), b(&heap.pool, 7, 5, 49), m(&heap.pool, 7, 5, 1);
        TestImage m2(&heap.pool, 6, 5, 1);
        EXPECT_EQ(tav_sr2_Image_blendMask(&w.ctx, &a.img, &a.img, &b.img, &m.img), TAV_ERROR_PARAM);
        EXPECT_EQ(tav_sr2_Image_blendMask(&w.ctx, &a.img, &a.img, &a.img, &m2.img),
                  TAV_ERROR_PARAM);
        EXPECT_EQ(tav_sr2_Image_blendMask(&w.ctx, &a.img, &a.img, &a.img, nullptr),
                  TAV_ERROR_PARAM);
    }
}

}  // namespace
