// The bilinear resize's pool figure for the buffer budget.
#include "enhance/resize_size.h"

#include <gtest/gtest.h>

#include "foundation/image_format.h"

namespace {

TEST(ResizeSizeTest, RowBuffersPerWorkerInTheWidenedType) {
    // 16 workers * 2000 * 2 rows * 4 bytes (two 16-bit channels) = 256000, + 8 -> 256016.
    EXPECT_EQ(tav_sr2_Image_resizeRequiredSize(2000, 1500, TAV_SR2_FMT_UINT1616, 16), 256016u);
    // UINT8 widens to 16 bits: 4 * 100 * 2 * 2 = 1600, + 8 -> 1616.
    EXPECT_EQ(tav_sr2_Image_resizeRequiredSize(100, 7, TAV_SR2_FMT_UINT8, 4), 1616u);
    // FLOAT stays 32 bits: 1 * 10 * 2 * 4 = 80, + 8 -> 96. No workers counts as one.
    EXPECT_EQ(tav_sr2_Image_resizeRequiredSize(10, 10, TAV_SR2_FMT_FLOAT, 0), 96u);
    // Semi-planar frames go plane by plane; the chroma row is as long as the luma row.
    EXPECT_EQ(tav_sr2_Image_resizeRequiredSize(100, 7, TAV_SR2_FMT_YUV420_SEMIPLANAR, 4), 1616u);
}

}  // namespace
