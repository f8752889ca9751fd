// The GPU render context's figures for the buffer budget.
#include "gpu/render_context_size.h"

#include <gtest/gtest.h>

namespace {

TEST(RenderContextSizeTest, TwoTexturesPerSlot) {
    EXPECT_EQ(tav_sr2_SR2GLRender_textureCount(TAV_SR2_RENDER_SLOT_COUNT), 48);
    EXPECT_EQ(tav_sr2_SR2GLRender_textureCount(0), 0);
    EXPECT_EQ(tav_sr2_SR2GLRender_textureCount(-3), 0);
}

TEST(RenderContextSizeTest, FixedNeedOfTheEngineContext) {
    // Pool blocks (request + 8, at least 24, to 16): EGL state 64 -> 80; 48 names of 4 bytes,
    // 192 -> 208; 48 sizes of 8 bytes, 384 -> 400; nine binaries of 65536 -> 65552 each. Of the
    // passing sets, the two FLOAT 6561 x 25 images (656100 -> 656112 each) beat the texts
    // (4184 -> 4192 and 16384 -> 16400).
    EXPECT_EQ(tav_sr2_SR2GLRender_fixedNeed(24), 80u + 208u + 400u + 9u * 65552u + 2u * 656112u);
    // Slots change only the two arrays: 46 names, 184 -> 192; 46 sizes, 368 -> 384.
    EXPECT_EQ(tav_sr2_SR2GLRender_fixedNeed(24) - tav_sr2_SR2GLRender_fixedNeed(23), 16u + 16u);
}

}  // namespace
