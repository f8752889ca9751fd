#include "foundation/image.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <functional>
#include <random>
#include <vector>

namespace {

const uint8_t kSentinel = 0xEE;

class ImageTest : public ::testing::Test {
protected:
    void SetUp() override {
        region_.assign(1 << 20, 0);
        ASSERT_EQ(tav_sr2_MemPool_init(&pool_, region_.data(), region_.size()), TAV_OK);
        base_ = tav_sr2_MemPool_inUse(&pool_);
    }
    // Every block a test takes must be back: the pool reports a leak at finish.
    void TearDown() override {
#ifdef TAVRIN_FAULT_INJECTION
        tav_sr2_MemPool_injectFailure(0, false);
#endif
        EXPECT_EQ(tav_sr2_MemPool_finish(&pool_), TAV_OK);
    }
    tav_sr2_Image owned(int w, int h, int code) {
        tav_sr2_Image img;
        EXPECT_EQ(tav_sr2_Image_init(&img, &pool_), TAV_OK);
        EXPECT_EQ(tav_sr2_Image_alloc(&img, w, h, nullptr, code), TAV_OK);
        return img;
    }
    std::vector<uint8_t> region_;
    tav_sr2_MemPool pool_;
    uint32_t base_ = 0;
};

tav_sr2_ImageLayout layoutOf(int w, int h, int code) {
    tav_sr2_ImageLayout l;
    tav_sr2_ImageFormat_layout(w, h, code, &l);
    return l;
}
bool hasPlane(int code, int i) {
    return tav_sr2_format_layout[code][4 * i] != 0;
}

void fillRandom(uint8_t* p, size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    for (size_t k = 0; k < n; k++)
        p[k] = (uint8_t)rng();
}

// A source over caller memory with the layout's pitches.
struct Wrapped {
    std::vector<uint8_t> bytes;
    tav_sr2_Image img{};
    Wrapped(int w, int h, int code) : bytes(layoutOf(w, h, code).total + 1, kSentinel) {
        EXPECT_EQ(tav_sr2_Image_wrapBuffer(&img, w, h, bytes.data(), (int32_t)bytes.size(), code),
                  TAV_OK);
    }
};

}  // namespace

TEST_F(ImageTest, SetupKeepsABlockOfUnchangedSizeAndReleasesOnEmpty) {
    tav_sr2_Image img = owned(100, 100, TAV_SR2_FMT_UINT8);
    uint8_t* block = img.plane[0];
    const uint32_t used = tav_sr2_MemPool_inUse(&pool_);
#ifdef TAVRIN_FAULT_INJECTION
    tav_sr2_MemPool_injectFailure(1, true);  // any allocation now would fail
#endif
    ASSERT_EQ(tav_sr2_Image_setup(&img, 50, 100, nullptr, TAV_SR2_FMT_UINT16), TAV_OK);
    EXPECT_EQ(img.plane[0], block);
    EXPECT_EQ(img.pitch[0], 100);
    EXPECT_EQ(img.format, TAV_SR2_FMT_UINT16);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&pool_), used);
#ifdef TAVRIN_FAULT_INJECTION
    tav_sr2_MemPool_injectFailure(0, false);
#endif
    ASSERT_EQ(tav_sr2_Image_setup(&img, 64, 48, nullptr, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_OK);
    EXPECT_EQ(img.plane[1], img.plane[0] + 64 * 48);
    EXPECT_GE(tav_sr2_MemPool_inUse(&pool_), base_ + 64 * 72);

    ASSERT_EQ(tav_sr2_Image_setup(&img, 0, 0, nullptr, 0), TAV_OK);
    EXPECT_EQ(img.plane[0], nullptr);
    EXPECT_EQ(img.plane[1], nullptr);
    EXPECT_EQ(img.pool, &pool_);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&pool_), base_);
    EXPECT_EQ(tav_sr2_Image_alloc(&img, 8, 8, nullptr, TAV_SR2_FMT_UINT8), TAV_OK);
    EXPECT_EQ(tav_sr2_Image_finish(&img), TAV_OK);

    EXPECT_EQ(tav_sr2_Image_setup(nullptr, 1, 1, nullptr, 1), TAV_ERROR_PARAM);
    for (auto [w, h, code] : {std::array{-1, 1, 1}, {1, -1, 1}, {1, 1, 90}, {1, 1, -1}})
        EXPECT_EQ(tav_sr2_Image_setup(&img, w, h, nullptr, code), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_init(nullptr, &pool_), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_finish(nullptr), TAV_ERROR_PARAM);
}

TEST_F(ImageTest, CallerPlanesAndTheAllocBufferAsymmetry) {
    uint8_t mem[3][256];
    tav_sr2_Image img = owned(16, 16, TAV_SR2_FMT_YUV444_PLANAR);
    tav_sr2_ImagePlanes2 two = {{mem[0], mem[1]}, {20, 22}};
    // Going external releases the owned block; the unused third plane is cleared.
    ASSERT_EQ(tav_sr2_Image_setup(&img, 10, 6, &two, TAV_SR2_FMT_YVU420_SEMIPLANAR), TAV_OK);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&pool_), base_);
    EXPECT_EQ(img.external, 1u);
    EXPECT_EQ(img.plane[0], mem[0]);
    EXPECT_EQ(img.plane[1], mem[1]);
    EXPECT_EQ(img.plane[2], nullptr);
    EXPECT_EQ(img.pitch[1], 22);
    EXPECT_EQ(img.pitch[2], 0);
    tav_sr2_ImagePlanes3 three = {{mem[0], mem[1], mem[2]}, {7, 8, 9}};
    ASSERT_EQ(tav_sr2_Image_setup(&img, 4, 4, &three, TAV_SR2_FMT_YUV420_PLANAR), TAV_OK);
    EXPECT_EQ(img.plane[2], mem[2]);
    EXPECT_EQ(img.pitch[2], 9);
    tav_sr2_ImagePlanes1 one = {{mem[2]}, {5}};
    ASSERT_EQ(tav_sr2_Image_setup(&img, 4, 4, &one, TAV_SR2_FMT_UINT8), TAV_OK);
    EXPECT_EQ(img.plane[0], mem[2]);
    EXPECT_EQ(img.plane[1], nullptr);
    EXPECT_EQ(img.pitch[0], 5);

    // One plane: the buffer is the pixels. Two or three: an array of plane pointers.
    ASSERT_EQ(tav_sr2_Image_alloc(&img, 9, 4, mem[1], TAV_SR2_FMT_RGB888), TAV_OK);
    EXPECT_EQ(img.plane[0], mem[1]);
    EXPECT_EQ(img.pitch[0], 27);
    uint8_t* ptrs[3] = {mem[2], mem[0], mem[1]};
    ASSERT_EQ(tav_sr2_Image_alloc(&img, 5, 4, ptrs, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_OK);
    EXPECT_EQ(img.plane[0], mem[2]);
    EXPECT_EQ(img.plane[1], mem[0]);
    EXPECT_EQ(img.plane[2], nullptr);
    EXPECT_EQ(img.pitch[0], 6);
    EXPECT_EQ(img.pitch[1], 6);
    ASSERT_EQ(tav_sr2_Image_alloc(&img, 5, 4, ptrs, TAV_SR2_FMT_YUV422_PLANAR), TAV_OK);
    EXPECT_EQ(img.plane[2], mem[1]);
    EXPECT_EQ(img.pitch[2], 3);
    EXPECT_EQ(tav_sr2_Image_alloc(&img, 5, 4, ptrs, 90), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_alloc(nullptr, 5, 4, ptrs, 1), TAV_ERROR_PARAM);

    // A view set up to owned storage of no bytes must not keep the foreign pointer.
    ASSERT_EQ(tav_sr2_Image_setup(&img, 0, 4, nullptr, TAV_SR2_FMT_UINT8), TAV_OK);
    EXPECT_EQ(img.plane[0], nullptr);
    EXPECT_EQ(img.external, 0u);
    EXPECT_EQ(tav_sr2_Image_finish(&img), TAV_OK);
}

TEST_F(ImageTest, ExhaustedMemoryLeavesNoBlock) {
    std::vector<uint8_t> small(4096);
    tav_sr2_MemPool tiny;
    ASSERT_EQ(tav_sr2_MemPool_init(&tiny, small.data(), small.size()), TAV_OK);
    tav_sr2_Image img;
    tav_sr2_Image_init(&img, &tiny);
    ASSERT_EQ(tav_sr2_Image_alloc(&img, 32, 32, nullptr, TAV_SR2_FMT_UINT8), TAV_OK);
    // The old block goes before the new one is sought, so the image ends with none.
    EXPECT_EQ(tav_sr2_Image_alloc(&img, 100, 100, nullptr, TAV_SR2_FMT_UINT8), TAV_ERROR_MALLOC);
    EXPECT_EQ(img.plane[0], nullptr);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&tiny), 0u);
    EXPECT_EQ(tav_sr2_Image_alloc(&img, 32, 32, nullptr, TAV_SR2_FMT_UINT8), TAV_OK);
    tav_sr2_Image from = owned(100, 100, TAV_SR2_FMT_UINT8);
    EXPECT_EQ(tav_sr2_Image_copy(&img, &from), TAV_ERROR_MALLOC);
    EXPECT_EQ(img.plane[0], nullptr);
    EXPECT_EQ(tav_sr2_Image_finish(&img), TAV_OK);
    EXPECT_EQ(tav_sr2_MemPool_finish(&tiny), TAV_OK);

    tav_sr2_Image unbound;
    tav_sr2_Image_init(&unbound, nullptr);
    EXPECT_EQ(tav_sr2_Image_alloc(&unbound, 4, 4, nullptr, 1), TAV_ERROR_MALLOC);
    EXPECT_EQ(tav_sr2_Image_alloc(&unbound, 0, 4, nullptr, 1), TAV_OK);  // nothing to take

#ifdef TAVRIN_FAULT_INJECTION
    tav_sr2_Image_init(&img, &pool_);
    tav_sr2_MemPool_injectFailure(1, false);
    EXPECT_EQ(tav_sr2_Image_alloc(&img, 64, 64, nullptr, TAV_SR2_FMT_YUV420_SEMIPLANAR),
              TAV_ERROR_MALLOC);
    EXPECT_EQ(img.plane[0], nullptr);
    EXPECT_EQ(tav_sr2_Image_alloc(&img, 64, 64, nullptr, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_OK);
    EXPECT_EQ(tav_sr2_Image_finish(&img), TAV_OK);
#endif
    EXPECT_EQ(tav_sr2_Image_finish(&from), TAV_OK);
}

TEST_F(ImageTest, CropChecksItsSourceAndRectangle) {
    Wrapped nv(12, 8, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    Wrapped packed(12, 8, TAV_SR2_FMT_YUV10B_PACKED_LE_420S);
    tav_sr2_Image view;
    EXPECT_EQ(tav_sr2_Image_crop(&view, &packed.img, 0, 0, 6, 2), TAV_ERROR_UNSUPPORTED);
    EXPECT_EQ(tav_sr2_Image_crop(&view, &nv.img, 2, 0, 11, 8), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_crop(&view, &nv.img, 0, 2, 12, 7), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_crop(&view, &nv.img, -1, 0, 2, 2), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_crop(&view, &nv.img, 0, 0, -1, 2), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_crop(nullptr, &nv.img, 0, 0, 2, 2), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_crop(&view, nullptr, 0, 0, 2, 2), TAV_ERROR_PARAM);
    tav_sr2_Image broken = nv.img;
    broken.plane[1] = nullptr;
    EXPECT_EQ(tav_sr2_Image_crop(&view, &broken, 0, 0, 2, 2), TAV_ERROR_PARAM);
    broken = nv.img;
    broken.pitch[0] = 0;
    EXPECT_EQ(tav_sr2_Image_crop(&view, &broken, 0, 0, 2, 2), TAV_ERROR_PARAM);
    broken = nv.img;
    broken.format = 0;
    EXPECT_EQ(tav_sr2_Image_crop(&view, &broken, 0, 0, 2, 2), TAV_ERROR_UNSUPPORTED);
    // The source's planes are checked before its format, and an empty crop needs no format rule.
    ASSERT_EQ(tav_sr2_Image_crop(&view, &broken, 2, 2, 0, 3), TAV_OK);
    EXPECT_EQ(view.plane[0], nullptr);
    broken.format = 95;
    ASSERT_EQ(tav_sr2_Image_crop(&view, &broken, 2, 2, 3, 0), TAV_OK);
    EXPECT_EQ(view.format, 95);
    EXPECT_EQ(view.pitch[0], 12);
    broken.plane[0] = nullptr;
    EXPECT_EQ(tav_sr2_Image_crop(&view, &broken, 0, 0, 2, 2), TAV_ERROR_PARAM);

    ASSERT_EQ(tav_sr2_Image_crop(&view, &nv.img, 12, 3, 0, 5), TAV_OK);
    EXPECT_EQ(view.plane[0], nullptr);
    EXPECT_EQ(view.plane[1], nullptr);
    EXPECT_EQ(view.pitch[1], 12);
    EXPECT_EQ(view.height, 5);
    // In place: the record is its own source.
    tav_sr2_Image self = nv.img;
    ASSERT_EQ(tav_sr2_Image_crop(&self, &self, 4, 2, 4, 4), TAV_OK);
    EXPECT_EQ(self.plane[1], nv.img.plane[1] + 12 + 4);
}

namespace {
// Copies a random w x h picture of this code into caller planes wider than the layout's pitch,
// and checks that exactly the real pixels of each plane arrived and nothing else moved.
void checkCopyTouchesOnlyRealPixels(tav_sr2_MemPool* pool, int code, int w, int h) {
    SCOPED_TRACE(testing::Message() << "code " << code << " " << w << "x" << h);
    tav_sr2_Image src;
    tav_sr2_Image_init(&src, pool);
    ASSERT_EQ(tav_sr2_Image_alloc(&src, w, h, nullptr, code), TAV_OK);
    fillRandom(src.plane[0], layoutOf(w, h, code).total, code);

    std::vector<uint8_t> mem[3];
    tav_sr2_ImagePlanes3 three = {};
    int count = 0;
    for (int i = 0; i < 3 && hasPlane(code, i); i++, count++) {
        three.pitch[i] = (int32_t)layoutOf(w, 1, code).pitch[i] + 3;
        mem[i].assign((size_t)three.pitch[i] * (layoutOf(w, h, code).rows[i] + 1), kSentinel);
        three.plane[i] = mem[i].data();
    }
    tav_sr2_ImagePlanes2 two = {{three.plane[0], three.plane[1]}, {three.pitch[0], three.pitch[1]}};
    tav_sr2_ImagePlanes1 one = {{three.plane[0]}, {three.pitch[0]}};
    const void* block = count == 3 ? (const void*)&three : count == 2 ? (const void*)&two : &one;
    tav_sr2_Image dst{};
    ASSERT_EQ(tav_sr2_Image_setup(&dst, w, h, block, code), TAV_OK);
    ASSERT_EQ(tav_sr2_Image_copy(&dst, &src), TAV_OK);

    for (int i = 0; i < count; i++) {
        const uint8_t* p = tav_sr2_format_layout[code] + 4 * i;
        const int row_bytes = (w + p[1] - 1) / p[1] * p[0];
        const int rows = (h + (1 << p[3]) - 1) >> p[3];
        for (size_t k = 0; k < mem[i].size(); k++) {
            const int r = (int)(k / three.pitch[i]), col = (int)(k % three.pitch[i]);
            const bool real = r < rows && col < row_bytes;
            const uint8_t want = real ? src.plane[i][r * src.pitch[i] + col] : kSentinel;
            ASSERT_EQ(mem[i][k], want) << "plane " << i << " row " << r << " byte " << col;
        }
    }
    tav_sr2_Image_finish(&src);
}
}  // namespace

TEST_F(ImageTest, CopyMovesRealPixelsAndNotPadding) {
    for (auto [code, w, h] : {std::array<int, 3>{TAV_SR2_FMT_YUV420_SEMIPLANAR, 5, 5},
                              {TAV_SR2_FMT_YUV420_PLANAR, 7, 3},
                              {TAV_SR2_FMT_YUV10B_PACKED_LE_420S, 7, 3},
                              {TAV_SR2_FMT_YUV422_YUYV, 5, 2},
                              {TAV_SR2_FMT_BAYER10_M8L2PACKED_GRBG, 6, 3},
                              {TAV_SR2_FMT_YUV10B_PACKED_LE_422_UYVY, 7, 2},
                              {TAV_SR2_FMT_LAB, 3, 2},
                              {TAV_SR2_FMT_YUV10B420_SEMIPLANAR, 9, 7}}) {
        checkCopyTouchesOnlyRealPixels(&pool_, code, w, h);
    }

    // An owned destination is sized to the source.
    tav_sr2_Image src = owned(5, 4, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    fillRandom(src.plane[0], layoutOf(5, 4, 48).total, 9);
    tav_sr2_Image sized;
    tav_sr2_Image_init(&sized, &pool_);
    ASSERT_EQ(tav_sr2_Image_copy(&sized, &src), TAV_OK);
    EXPECT_EQ(sized.external, 0u);
    EXPECT_EQ(sized.width, 5);
    for (int r = 0; r < 4; r++)  // pitch 6: five real luma bytes a row
        EXPECT_EQ(memcmp(sized.plane[0] + 6 * r, src.plane[0] + 6 * r, 5), 0) << r;
    EXPECT_EQ(memcmp(sized.plane[1], src.plane[1], 12), 0);

    // An external destination of another size is refused and left as it was.
    std::vector<uint8_t> other(layoutOf(6, 4, 48).total, kSentinel);
    tav_sr2_Image wrong{};
    tav_sr2_Image_wrapBuffer(&wrong, 6, 4, other.data(), (int32_t)other.size(), 48);
    EXPECT_EQ(tav_sr2_Image_copy(&wrong, &src), TAV_ERROR_PARAM);
    EXPECT_EQ(std::count(other.begin(), other.end(), kSentinel), (long)other.size());
    tav_sr2_Image_wrapBuffer(&wrong, 5, 4, other.data(), (int32_t)other.size(), 49);
    EXPECT_EQ(tav_sr2_Image_copy(&wrong, &src), TAV_ERROR_PARAM);
    tav_sr2_Image_wrapBuffer(&wrong, 5, 4, other.data(), (int32_t)other.size(), 48);
    wrong.plane[1] = nullptr;
    EXPECT_EQ(tav_sr2_Image_copy(&wrong, &src), TAV_ERROR_PARAM);

    EXPECT_EQ(tav_sr2_Image_copy(&src, &src), TAV_OK);
    tav_sr2_Image alias = src;
    alias.external = 1;
    EXPECT_EQ(tav_sr2_Image_copy(&alias, &src), TAV_OK);
    EXPECT_EQ(tav_sr2_Image_copy(nullptr, &src), TAV_ERROR_PARAM);
    tav_sr2_Image_wrapBuffer(&wrong, 5, 4, other.data(), (int32_t)other.size(), 48);
    EXPECT_EQ(tav_sr2_Image_copy(&wrong, nullptr), TAV_ERROR_PARAM);
    tav_sr2_Image bad[3] = {src, src, src};
    bad[0].plane[1] = nullptr;
    bad[1].height = 0;
    bad[2].format = 0;
    for (const tav_sr2_Image& b : bad)
        EXPECT_EQ(tav_sr2_Image_copy(&wrong, &b), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_finish(&sized), TAV_OK);
    EXPECT_EQ(tav_sr2_Image_finish(&src), TAV_OK);
}
