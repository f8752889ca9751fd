// Valid rectangle and final scale, against cases worked out by hand from the rules: corners one
// pixel inside, truncation, the area share with its 32-bit product, the symmetric margin, even
// edges, and the window that the final scaling takes.

#include "engine/valid_rect.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

const int32_t W = 1280;
const int32_t H = 960;

// Base to frame: p -> p + (dx, dy), scaled as a homogeneous record is (m8 is not 1).
tav_sr2_Trans2D shift(double dx, double dy) {
    const double s = 0.5773502691896258;
    tav_sr2_Trans2D t = {{s, 0, dx * s, 0, s, dy * s, 0, 0, s}, {0, 0, 0}};
    return t;
}

struct Burst {
    tav_sr2_Trans2D t[TAV_SR2_PIPELINE_FRAMES];
    uint32_t status[TAV_SR2_PIPELINE_FRAMES] = {};
    tav_sr2_ValidRectInput in;
    Burst(int32_t frames, int32_t percent, tav_sr2_Rect clip = {0, 0, W, H}) {
        for (auto& x : t)
            x = shift(0, 0);
        in = {t, status, frames, percent, clip, W, H};
    }
    tav_sr2_Rect run() {
        tav_sr2_Rect r;
        tav_sr2_validRect(&in, &r);
        return r;
    }
};

void expectRect(const tav_sr2_Rect& r, int32_t l, int32_t t, int32_t rt, int32_t b) {
    EXPECT_EQ(r.left, l);
    EXPECT_EQ(r.top, t);
    EXPECT_EQ(r.right, rt);
    EXPECT_EQ(r.bottom, b);
}

TEST(ValidRect, FewerThanTwoFramesKeepTheAreaAsItIs) {
    Burst b(1, 95, {17, 23, 1001, 703});
    b.t[0] = shift(300, 300);
    expectRect(b.run(), 17, 23, 1001, 703);  // not even made symmetric or even
}

TEST(ValidRect, PerfectAlignmentCutsOnePixelThenEvens) {
    // Each frame: (1, 1, W - 1, H - 1); symmetric already; left and top round up to 2.
    Burst b(3, 95);
    expectRect(b.run(), 2, 2, W - 2, H - 2);
    // An area of interest inside the frame is not cut at all.
    Burst inner(3, 95, {96, 64, 1184, 896});
    expectRect(inner.run(), 96, 64, 1184, 896);
}

TEST(ValidRect, ShiftedFrameNarrowsAndTheMarginIsMirrored) {
    // Frame 1 shows base (x - 10.3, y + 6.4): corners give (0, 7, W - 11, H), area 1269 * 953 above
    // 95 % of W * H. With frame 0 the result is (1, 7, 1269, 959); the wider margins (11 on the
    // right, 7 on top) are mirrored: (11, 7, 1269, 953), then (12, 8, 1268, 952).
    Burst b(2, 95);
    b.t[1] = shift(10.3, -6.4);
    expectRect(b.run(), 12, 8, 1268, 952);
    // The same shift with a failed alignment is left out.
    b.status[1] = 0x80000000u;
    expectRect(b.run(), 2, 2, W - 2, H - 2);
}

TEST(ValidRect, AreaShareDecidesWhichFramesCount) {
    // Shift 100.2: (0, 1, 1178, 959) covers 1178 * 958 = 1128524 pixels.
    Burst b(2, 95);  // needs 1167360
    b.t[1] = shift(100.2, 0);
    expectRect(b.run(), 2, 2, W - 2, H - 2);
    b.in.large_move_ratio_thres = 90;  // needs 1105920: counts; margins 1 and 102 mirrored
    expectRect(b.run(), 102, 2, 1178, H - 2);
    // At 100 % even a perfect frame (one pixel inside) does not count.
    Burst all(3, 100);
    expectRect(all.run(), 0, 0, W, H);
    // 1280 * 960 * 2000 wraps in 32 bits to a negative limit: every non-empty frame counts.
    Burst wrapped(2, 2000);
    wrapped.t[1] = shift(500.2, 0);  // (0, 1, 778, 959)
    expectRect(wrapped.run(), 502, 2, 778, H - 2);
    // A frame whose rectangle is empty never counts.
    wrapped.t[1] = shift(2000, 0);
    expectRect(wrapped.run(), 2, 2, W - 2, H - 2);
}

TEST(ScaleWindow, RatioAndCentredEvenWindow) {
    tav_sr2_ScaleWindowInput s;
    s.zoom_rect = {200, 150, 1080, 810};  // 880 x 660
    s.valid = {12, 8, 1268, 952};         // larger than the zoom window: r = 1
    s.zoom_ratio = 2.0;
    s.internal_zoom = 1.0;
    s.output_width = 1760;
    s.output_height = 1320;
    s.picture_width = 1280;
    s.picture_height = 960;
    tav_sr2_Rect win;
    EXPECT_DOUBLE_EQ(tav_sr2_scaleWindow(&s, &win), 2.0);
    expectRect(win, 200, 150, 1080, 810);

    // A valid area narrower than the zoom window enlarges further: r = 880 / 800 = 1.1, and
    // 1760 / 2.2 + 0.5 and 1320 / 2.2 + 0.5 truncate to 800 and 600.
    s.valid = {40, 30, 840, 690};  // 800 x 660
    EXPECT_DOUBLE_EQ(tav_sr2_scaleWindow(&s, &win), 2.2);
    expectRect(win, 240, 180, 1040, 780);

    // Merged at 1.5 for a zoom of 3: the same ratio 2 on a larger picture.
    s.valid = {12, 8, 1268, 952};
    s.zoom_ratio = 3.0;
    s.internal_zoom = 1.5;
    s.picture_width = 1920;
    s.picture_height = 1440;
    EXPECT_DOUBLE_EQ(tav_sr2_scaleWindow(&s, &win), 2.0);
    expectRect(win, 520, 390, 1400, 1050);

    // Odd sizes: 1001 rounds down to 1000, and the offset (282 >> 1) = 141 to 140.
    s.zoom_ratio = 1.0;
    s.internal_zoom = 1.0;
    s.output_width = 1001;
    s.output_height = 3;
    s.picture_width = 1282;
    s.picture_height = 9;
    tav_sr2_scaleWindow(&s, &win);
    expectRect(win, 140, 2, 1140, 4);

    // Never larger than the picture; an empty valid area gives an empty window.
    s.internal_zoom = 2.0;
    s.output_width = 1000;
    s.picture_width = 1280;
    tav_sr2_scaleWindow(&s, &win);
    EXPECT_EQ(win.left, 0);
    EXPECT_EQ(win.right, 1280);
    s.valid = {500, 30, 500, 690};
    tav_sr2_scaleWindow(&s, &win);
    EXPECT_EQ(win.left, 640);
    EXPECT_EQ(win.right, 640);
}

}  // namespace
