#include <gtest/gtest.h>

#include <vector>

#include "src/tavrin_internal_keld.h"

namespace {

// A luma plane with a pitch wider than the image, filled with a pattern, so that writes past a
// row's end or into the wrong row show.
struct Luma {
    int32_t width, height, pitch;
    std::vector<uint8_t> pixels;
    tavrin_KELD_Image image;

    Luma(int32_t w, int32_t h) : width(w), height(h), pitch(w + 5), pixels(size_t(pitch) * h) {
        for (size_t i = 0; i < pixels.size(); i++)
            pixels[i] = uint8_t(37 + i * 13);
        image = {w, h, pixels.data(), nullptr, nullptr, pitch, 0, 0};
    }
    uint8_t at(int32_t x, int32_t y) const { return pixels[size_t(y) * pitch + x]; }
};

// Reference: a pixel is black when it lies inside the face and within 3 of one of its edges.
bool onFrame(const tavrin_KELD_Rect& r, int32_t x, int32_t y) {
    const bool inside = x >= r.left && x < r.right && y >= r.top && y < r.bottom;
    const bool near_edge = x < r.left + 3 || x >= r.right - 3 || y < r.top + 3 || y >= r.bottom - 3;
    return inside && near_edge;
}

TEST(DrawMarks, FaceFramesAreThreePixelsBlackAndClipped) {
    Luma luma(61, 47);
    const Luma before = luma;
    const tavrin_KELD_Rect faces[] = {
        {10, 8, 30, 25},   // inside
        {-5, 40, 12, 60},  // over the bottom-left corner
        {55, -4, 70, 5},   // over the top-right corner
        {40, 30, 44, 33},  // smaller than two lines: filled
    };
    TavrinKELD_internal_drawFace(&luma.image, faces, 4);
    for (int32_t y = 0; y < luma.height; y++) {
        for (int32_t x = 0; x < luma.pitch; x++) {
            bool black = false;
            if (x < luma.width)
                for (const auto& f : faces)
                    black = black || onFrame(f, x, y);
            if (black)
                ASSERT_EQ(luma.at(x, y), 0) << x << "," << y;
            else
                ASSERT_EQ(luma.at(x, y), before.at(x, y)) << x << "," << y;
        }
    }
}

TEST(DrawMarks, LogoOnlyBrightensItsCornerBox) {
    Luma luma(100, 60);
    const Luma before = luma;
    TavrinKELD_internal_drawLogo(&luma.image);
    // The mark's box: 32 x 12, 8 pixels in from the bottom right.
    const int32_t x0 = 100 - 8 - 32, y0 = 60 - 8 - 12;
    int32_t changed = 0;
    for (int32_t y = 0; y < luma.height; y++) {
        for (int32_t x = 0; x < luma.pitch; x++) {
            const uint8_t was = before.at(x, y), now = luma.at(x, y);
            const bool in_box = x >= x0 && x < x0 + 32 && y >= y0 && y < y0 + 12;
            if (!in_box) {
                ASSERT_EQ(now, was) << x << "," << y;
            } else if (now != was) {
                ASSERT_EQ(now, 255 - ((255 - was) >> 2)) << x << "," << y;
                changed++;
            }
        }
    }
    // The box has a full border: at least its outline is set.
    EXPECT_GE(changed, 2 * 32 + 2 * 10 - 4);
    EXPECT_LT(changed, 32 * 12);
}

}  // namespace
