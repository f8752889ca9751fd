// The guided filter's pool figure for the buffer budget.
#include "nr/guided_filter_size.h"

#include <gtest/gtest.h>

#include "foundation/image_format.h"

namespace {

TEST(GuidedFilterSizeTest, EightBitFilterOf1000Square) {
    // Grid 250 x 250 (62500 cells); pool blocks are the request + 8 rounded up to 16.
    // blk_sum 2 bytes: 125008; blk_sq 4: 250016; fused a and b, 1 byte: 2 * 62512.
    // Per direction: a, b 2 * 62512, line sums 125008 + 250016, two scratch rows of
    // (250 + 2 * 6) * 4 = 1048 -> 1056. map_small 62512; resize rows 16 * 250 * 2 * 2 -> 16016.
    const uint32_t direction = 2 * 62512 + 125008 + 250016 + 2 * 1056;
    EXPECT_EQ(tav_sr2_GuidedFilter_requiredSize(1000, 1000, TAV_SR2_FMT_UINT8),
              125008u + 250016u + 2 * 62512u + 4 * direction + 62512u + 16016u);
    // 1002 and 1003 fall on the same grid as 1000; 1004 adds a column pair.
    EXPECT_EQ(tav_sr2_GuidedFilter_requiredSize(1003, 1000, TAV_SR2_FMT_YUV420_SEMIPLANAR),
              tav_sr2_GuidedFilter_requiredSize(1000, 1000, TAV_SR2_FMT_UINT8));
    EXPECT_GT(tav_sr2_GuidedFilter_requiredSize(1004, 1000, TAV_SR2_FMT_UINT8),
              tav_sr2_GuidedFilter_requiredSize(1000, 1000, TAV_SR2_FMT_UINT8));
}

}  // namespace
