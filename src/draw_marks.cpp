// Debug marks drawn into the luma plane of an 8-bit output.
//
// TavrinKELD_internal_drawLogo(output): the library's mark, a 32 x 12 bitmap, brightened into the
//   luma 8 pixels in from the bottom right corner: each set pixel moves three quarters of the way
//   to white. An image too small for the mark and its margin is left alone.
// TavrinKELD_internal_drawFace(output, faces, face_num): each face as a black frame 3 pixels thick
//   inside its rectangle, in the rectangle's own coordinates, clipped to the image.
// Both touch nothing but luma, and nothing when plane0 is null.
#include <stdint.h>

#include "src/tavrin_internal_keld.h"

namespace {

constexpr int32_t kLogoWidth = 32;
constexpr int32_t kLogoHeight = 12;
constexpr int32_t kLogoMargin = 8;
constexpr int32_t kFaceLine = 3;

// Bit 31 is the left column: a framed "TK" between two bars.
constexpr uint32_t kLogo[kLogoHeight] = {
    0xFFFFFFFFu, 0x80000001u, 0x9FF18C01u, 0x9FF19801u, 0x8381B001u, 0x8381E001u,
    0x8381E001u, 0x8381B001u, 0x83819801u, 0x83818C01u, 0x80000001u, 0xFFFFFFFFu,
};

uint8_t* lumaRow(const tavrin_KELD_Image* image, int32_t y) {
    return static_cast<uint8_t*>(image->plane0) + static_cast<int64_t>(y) * image->pitch0;
}

// Host rectangles may hold any int: the edges are widened before the line width is added.
int32_t clampTo(int64_t v, int32_t hi) {
    return static_cast<int32_t>(v < 0 ? 0 : v > hi ? hi : v);
}

// Sets [x0, x1) x [y0, y1), clipped to the image, to value.
void fillLuma(const tavrin_KELD_Image* image, int64_t x0, int64_t y0, int64_t x1, int64_t y1,
              uint8_t value) {
    const int32_t left = clampTo(x0, image->width);
    const int32_t right = clampTo(x1, image->width);
    const int32_t top = clampTo(y0, image->height);
    const int32_t bottom = clampTo(y1, image->height);
    for (int32_t y = top; y < bottom; y++) {
        uint8_t* row = lumaRow(image, y);
        for (int32_t x = left; x < right; x++)
            row[x] = value;
    }
}

void drawFrame(const tavrin_KELD_Image* image, const tavrin_KELD_Rect* r) {
    const uint8_t black = 0;
    const int64_t left = r->left, top = r->top, right = r->right, bottom = r->bottom;
    fillLuma(image, left, top, right, top + kFaceLine, black);
    fillLuma(image, left, bottom - kFaceLine, right, bottom, black);
    fillLuma(image, left, top, left + kFaceLine, bottom, black);
    fillLuma(image, right - kFaceLine, top, right, bottom, black);
}

}  // namespace

void TavrinKELD_internal_drawLogo(const tavrin_KELD_Image* output) {
    if (!output || !output->plane0) return;
    const int32_t x0 = output->width - kLogoMargin - kLogoWidth;
    const int32_t y0 = output->height - kLogoMargin - kLogoHeight;
    if (x0 < 0 || y0 < 0) return;
    for (int32_t r = 0; r < kLogoHeight; r++) {
        uint8_t* row = lumaRow(output, y0 + r) + x0;
        for (int32_t c = 0; c < kLogoWidth; c++) {
            if ((kLogo[r] >> (kLogoWidth - 1 - c)) & 1u) row[c] = 255 - ((255 - row[c]) >> 2);
        }
    }
}

void TavrinKELD_internal_drawFace(const tavrin_KELD_Image* output, const tavrin_KELD_Rect* faces,
                                  int32_t face_num) {
    if (!output || !output->plane0 || !faces) return;
    for (int32_t i = 0; i < face_num; i++)
        drawFrame(output, &faces[i]);
}
