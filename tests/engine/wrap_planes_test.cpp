// Binding host frame records: the checks against the format and the binding itself.

#include "engine/wrap_planes.h"

#include <gtest/gtest.h>

#include "tests/foundation/pool_fixtures.h"

namespace {

// The host's record, field for field.
struct HostImage {
    int32_t width;
    int32_t height;
    void* plane0;
    void* plane1;
    void* plane2;
    int32_t pitch0;
    int32_t pitch1;
    int32_t pitch2;
};

uint8_t pixels[3][4096];

HostImage frame(int32_t w, int32_t h, int32_t p0, int32_t p1, int32_t p2 = 0) {
    return {w, h, pixels[0], pixels[1], pixels[2], p0, p1, p2};
}

TEST(WrapPlanes, PitchesMustReachTheFormatsRowBytes) {
    tav_sr2_Image im;
    tav_sr2_Image_init(&im, nullptr);
    // Width 5 of code 48 rounds to 6: both pitches need 6.
    HostImage f = frame(5, 3, 6, 6);
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_OK);
    f.pitch0 = 5;
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_ERROR_PARAM);
    f = frame(5, 3, 6, 5);
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_ERROR_PARAM);
    // Code 62 at width 7 pads to 12 pixels: 16 bytes of luma and of chroma.
    f = frame(7, 2, 16, 16);
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, TAV_SR2_FMT_YUV10B_PACKED_LE_420S), TAV_OK);
    f.pitch1 = 15;
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, TAV_SR2_FMT_YUV10B_PACKED_LE_420S),
              TAV_ERROR_PARAM);
    // A plane the format lacks needs a pitch of 0 or more.
    f = frame(6, 2, 6, 6, -1);
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_ERROR_PARAM);
}

TEST(WrapPlanes, PlanesOfTheFormatMustBeThereWhenTheImageHasSize) {
    tav_sr2_Image im;
    tav_sr2_Image_init(&im, nullptr);
    HostImage f = frame(4, 4, 4, 4);
    f.plane1 = nullptr;
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_ERROR_PARAM);
    f.plane2 = nullptr;
    f.plane1 = pixels[1];
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_OK);
    f = frame(4, 4, 4, 2, 2);
    f.plane2 = nullptr;
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, TAV_SR2_FMT_YUV420_PLANAR), TAV_ERROR_PARAM);
    // Without size no plane is needed.
    f = frame(0, 4, 0, 0);
    f.plane0 = f.plane1 = nullptr;
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_OK);
}

TEST(WrapPlanes, RefusesBadRecords) {
    tav_sr2_Image im;
    tav_sr2_Image_init(&im, nullptr);
    HostImage f = frame(-2, 4, 4, 4);
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_ERROR_PARAM);
    f = frame(2, 4, 4, 4);
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, 90), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, -1), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_wrapPlanes(&im, (const HostImage*)nullptr, 48), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_wrapPlanes((tav_sr2_Image*)nullptr, &f, 48), TAV_ERROR_PARAM);
}

TEST(WrapPlanes, ReleasesAPoolBlockTheSlotOwned) {
    tav_fixtures::Heap heap(1u << 16);
    tav_sr2_Image im;
    tav_sr2_Image_init(&im, &heap.pool);
    ASSERT_EQ(tav_sr2_Image_alloc(&im, 16, 16, nullptr, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_OK);
    EXPECT_GT(tav_sr2_MemPool_inUse(&heap.pool), 0u);
    const HostImage f = frame(16, 16, 16, 16);
    ASSERT_EQ(tav_sr2_Image_wrapPlanes(&im, &f, TAV_SR2_FMT_YUV420_SEMIPLANAR), TAV_OK);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), 0u);
    EXPECT_EQ(tav_sr2_Image_finish(&im), TAV_OK);
}

}  // namespace
