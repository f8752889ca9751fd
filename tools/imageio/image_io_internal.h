// The container codecs behind readImage and writeImage, on open files.
#pragma once

#include <stdio.h>

#include <string>

#include "tools/imageio/image_io.h"

namespace tavio {

bool readPngFile(FILE* file, RgbImage* image, std::string* error);
// `level`: zlib's 0 (stored) to 9 (smallest, slowest).
bool writePngFile(FILE* file, const RgbImage& image, std::string* error, int32_t level);
bool readJpegFile(FILE* file, RgbImage* image, std::string* error);
bool writeJpegFile(FILE* file, const RgbImage& image, int32_t quality, std::string* error);
// An 8-bit (Nv12/Nv21) frame from a YCbCr JPEG. False with `refused` set, and nothing said in
// `error`, for a JPEG of another colour space, which the RGB path reads instead.
bool readJpegFrame(FILE* file, RawFormat format, RawFrame* frame, bool* refused,
                   std::string* error);
bool writeJpegFrame(FILE* file, const RawFrame& frame, int32_t quality, std::string* error);
// An 8-bit frame from a non-interlaced PNG of 8 bits a sample, a pair of rows at a time.
// False with `refused` set, and nothing said in `error`, for other PNGs.
bool readPngFrame(FILE* file, RawFormat format, RawFrame* frame, bool* refused, std::string* error);
bool writePngFrame(FILE* file, const RawFrame& frame, int32_t level, std::string* error);
// The same for the fast levels (0 to kPngLastFastLevel, Up filter), deflated in row strips on
// `threads` threads (png_strips.cpp).
constexpr int32_t kPngLastFastLevel = 3;
bool writePngStrips(FILE* file, const RawFrame& frame, int32_t level, int32_t threads,
                    std::string* error);

// The integer rows of frame_files.cpp. newFrame: a frame of the layout's size. rgbRowPairToFrame:
// RGB rows y and y + 1 (`bottom` may repeat `top` at an odd height) into luma rows y, y + 1 and
// chroma row y / 2 of an 8-bit frame. frameRowToRgb: row y of an 8-bit frame into RGB; `u` and
// `v` are scratch of chromaWidth(width) entries.
RawFrame newFrame(int32_t width, int32_t height, RawFormat format);
template <typename Sample>
void rgbRowPairToFrame(const Sample* top, const Sample* bottom, int32_t y, RawFrame* frame);
void frameRowToRgb(const RawFrame& frame, int32_t y, int32_t* u, int32_t* v, uint8_t* rgb);

// Rows y and y + 1 of 3-sample pixels into an 8-bit frame through a colour model: Model::luma of
// a pixel, Model::chroma of the sums of each sample over a 2 x 2 block into (u, v). At an odd
// width the last column counts twice, at an odd height `bottom` is `top`: the mean is then the
// one over the real pixels. The padding column repeats the last luma sample.
template <typename Model, typename Sample>
void pixelRowPairToFrame(const Sample* top, const Sample* bottom, int32_t y, RawFrame* f) {
    const int32_t w = f->width;
    uint8_t* l0 = f->plane0() + int64_t{y} * f->layout.pitch0;
    uint8_t* l1 = l0 + f->layout.pitch0;
    for (int32_t x = 0; x < w; ++x) {
        l0[x] = Model::luma(top + 3 * x);
        l1[x] = Model::luma(bottom + 3 * x);
    }
    if (f->layout.pitch0 > w) {
        l0[w] = l0[w - 1];
        l1[w] = l1[w - 1];
    }
    const int32_t iu = f->format == RawFormat::Nv21 ? 1 : 0;
    uint8_t* c = f->plane1() + int64_t{y / 2} * f->layout.pitch1;
    for (int32_t j = 0; 2 * j < w; ++j) {
        const int32_t a = 6 * j, b = 3 * (2 * j + 1 < w ? 2 * j + 1 : w - 1);
        int32_t sums[3];
        for (int32_t k = 0; k < 3; ++k)
            sums[k] = top[a + k] + top[b + k] + bottom[a + k] + bottom[b + k];
        Model::chroma(sums, &c[2 * j + iu], &c[2 * j + 1 - iu]);
    }
}

// "WHAT PATH: strerror(errno)".
std::string systemError(const std::string& what, const std::string& path);

}  // namespace tavio
