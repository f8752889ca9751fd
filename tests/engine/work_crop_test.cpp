// The work crop, the zoom window and the area of interest on real frame geometries. Every
// expected value is worked out by hand from the rules in the comment beside it.
#include "engine/work_crop.h"

#include <gtest/gtest.h>

namespace {

struct Geometry {
    int32_t width, height, output_width, output_height;
    float zoom;
};

tav_sr2_Rect cropOf(const Geometry& g, int32_t cx, int32_t cy) {
    tav_sr2_Rect r;
    tav_sr2_WorkCrop_compute(g.width, g.height, g.output_width, g.output_height, g.zoom, cx, cy,
                             &r);
    return r;
}

tav_sr2_Rect centredCrop(const Geometry& g) {
    return cropOf(g, g.width / 2, g.height / 2);
}

// Area of interest of a crop around its middle, as the budget takes it.
tav_sr2_Rect middleAoi(const tav_sr2_Rect& crop, const Geometry& g) {
    const int32_t cw = crop.right - crop.left, ch = crop.bottom - crop.top;
    tav_sr2_Rect r;
    tav_sr2_WorkCrop_areaOfInterest(cw, ch, cw / 2, ch / 2, g.output_width, g.output_height, g.zoom,
                                    &r);
    return r;
}

void expectRect(const tav_sr2_Rect& r, int32_t l, int32_t t, int32_t rt, int32_t b) {
    EXPECT_EQ(r.left, l);
    EXPECT_EQ(r.top, t);
    EXPECT_EQ(r.right, rt);
    EXPECT_EQ(r.bottom, b);
}

TEST(WorkCropTest, ExtentChangesRuleAt1280And5140) {
    EXPECT_EQ(tav_sr2_WorkCrop_extent(750), 128);
    EXPECT_EQ(tav_sr2_WorkCrop_extent(1279), 128);
    EXPECT_EQ(tav_sr2_WorkCrop_extent(1280), 128);  // 128, bit 0 clear
    EXPECT_EQ(tav_sr2_WorkCrop_extent(1290), 128);  // 129 -> 128
    EXPECT_EQ(tav_sr2_WorkCrop_extent(3000), 300);
    EXPECT_EQ(tav_sr2_WorkCrop_extent(3856), 384);  // 385 -> 384
    EXPECT_EQ(tav_sr2_WorkCrop_extent(4000), 400);
    EXPECT_EQ(tav_sr2_WorkCrop_extent(5138), 512);   // 513 -> 512
    EXPECT_EQ(tav_sr2_WorkCrop_extent(5139), 512);   // 513 -> 512 by the d / 10 rule
    EXPECT_EQ(tav_sr2_WorkCrop_extent(5140), 512);   // the fixed 512
    EXPECT_EQ(tav_sr2_WorkCrop_extent(12000), 512);  // not 1200
}

TEST(WorkCropTest, SmallAndWideFrames) {
    // 1000 x 750: (128 + 1000) & ~7 = 1128 -> 1280; (128 + 750) & ~7 = 872 -> 960. Both start
    // at 0 and end at the frame: the floor never reaches past it.
    expectRect(centredCrop({1000, 750, 1000, 750, 1.0f}), 0, 0, 1000, 750);
    // 5140 x 3856 at 2: window 2570 x 1928; (512 + 2570) & ~7 = 3080, (384 + 1928) & ~7 = 2312;
    // x0 = 2570 - 1540 = 1030, y0 = 1928 - 1156 = 772.
    expectRect(centredCrop({5140, 3856, 5140, 3856, 2.0f}), 1030, 772, 4110, 3084);
    // 5139 wide at 2: window trunc(2569.5) = 2569; (512 + 2569) & ~7 = 3080; the centre 2569
    // gives 2569 - 1540 = 1029, cleared to 1028.
    tav_sr2_Rect r = cropOf({5139, 3856, 5139, 3856, 2.0f}, 5139 / 2, 3856 / 2);
    EXPECT_EQ(r.left, 1028);
    EXPECT_EQ(r.right, 1028 + 3080);
}

TEST(WorkCropTest, AreaOfInterestAroundTheMiddleOfTheCrop) {
    // Zoom 1, crop 4000 x 3000, centre (2000, 1500), window 4000 x 3000: x0 = (0 + 7) & ~7 = 0,
    // x1 = min(4016, 4000) & ~7 = 4000; y1 = min(3016, 3000) & ~7 = 3000.
    const Geometry z1 = {4000, 3000, 4000, 3000, 1.0f};
    expectRect(middleAoi(centredCrop(z1), z1), 0, 0, 4000, 3000);
    // Zoom 2, crop 2400 x 1800, centre (1200, 900), window 2000 x 1500:
    // x0 = (1200 - 1000 - 16 + 7) & ~7 = 184, x1 = (200 + 2000 + 16) & ~7 = 2216;
    // y0 = (900 - 750 - 16 + 7) & ~7 = 136, y1 = (150 + 1500 + 16) & ~7 = 1664.
    const Geometry z2 = {4000, 3000, 4000, 3000, 2.0f};
    expectRect(middleAoi(centredCrop(z2), z2), 184, 136, 2216, 1664);
    // Zoom 4, crop 1400 x 1048, centre (700, 524), window 1000 x 750:
    // x0 = (184 + 7) & ~7 = 184, x1 = 1216 & ~7 = 1216; y0 = (133 + 7) & ~7 = 136,
    // y1 = (149 + 750 + 16 = 915) & ~7 = 912.
    const Geometry z4 = {4000, 3000, 4000, 3000, 4.0f};
    expectRect(middleAoi(centredCrop(z4), z4), 184, 136, 1216, 912);
    // Zoom 10, crop 1280 x 960, centre (640, 480), window 400 x 300:
    // x0 = (424 + 7) & ~7 = 424, x1 = 856; y0 = (314 + 7) & ~7 = 320, y1 = 646 & ~7 = 640.
    const Geometry z10 = {4000, 3000, 4000, 3000, 10.0f};
    expectRect(middleAoi(centredCrop(z10), z10), 424, 320, 856, 640);
    // 1000 x 750: y1 = min(766, 750) & ~7 = 744.
    const Geometry small = {1000, 750, 1000, 750, 1.0f};
    expectRect(middleAoi(centredCrop(small), small), 0, 0, 1000, 744);
    // 5140 x 3856 at 2, crop 3080 x 2312, centre (1540, 1156), window 2570 x 1928:
    // x0 = (1540 - 1285 - 16 + 7) & ~7 = 240, x1 = (255 + 2570 + 16 = 2841) & ~7 = 2840;
    // y0 = (1156 - 964 - 16 + 7) & ~7 = 176, y1 = (192 + 1928 + 16) & ~7 = 2136.
    const Geometry wide = {5140, 3856, 5140, 3856, 2.0f};
    expectRect(middleAoi(centredCrop(wide), wide), 240, 176, 2840, 2136);
}

}  // namespace
