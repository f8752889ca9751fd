// Image files for the command-line program and the tools: PNG (8 and 16 bits), JPEG, and raw
// semi-planar YUV frames in the library's memory layouts, with the colour conversion between RGB
// and YUV 4:2:0.
//
// Colour: BT.601 full range (the JFIF convention of JPEG files), at 8 or 10 bits:
//   Y  = M (0.299 R + 0.587 G + 0.114 B)
//   Cb = C + M (-0.168736 R - 0.331264 G + 0.5 B)
//   Cr = C + M (0.5 R - 0.418688 G - 0.081312 B)
// with R, G, B in 0..1, M = 2^bits - 1 and C = 2^(bits - 1). A chroma sample is the mean of the
// chroma of its 2 x 2 block and sits at the block's centre; back to RGB, chroma is interpolated
// bilinearly from those centres.
//
// Every writer goes through writeFileAtomic: the bytes go to a temporary file in the target's
// folder, which is renamed over the target only when everything was written. A failed write
// leaves no file behind.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <functional>
#include <string>
#include <vector>

namespace tavio {

// Interleaved RGB, 8 or 16 bits a sample, stored in 16-bit words either way.
struct RgbImage {
    int32_t width = 0;
    int32_t height = 0;
    int32_t bits = 8;           // 8 or 16
    std::vector<uint16_t> rgb;  // 3 * width * height samples, row after row
};

// Planar YUV 4:2:0, one sample a word. Chroma planes are ceil(width / 2) x ceil(height / 2).
struct Yuv420 {
    int32_t width = 0;
    int32_t height = 0;
    int32_t bits = 8;  // 8 or 10
    std::vector<uint16_t> y, cb, cr;
};

inline int32_t chromaWidth(int32_t width) {
    return (width + 1) / 2;
}
inline int32_t chromaHeight(int32_t height) {
    return (height + 1) / 2;
}

// The library's frame formats. Nv12 and Nv21 are 8-bit luma followed by interleaved chroma at
// half height (Cb first, or Cr first). P10 is the packed 10-bit form: three samples in each
// 32-bit little-endian word (sample 3j + i in bits 10i..10i+9 of word j), luma and interleaved
// Cb/Cr alike, rows padded to a width unit of 6 pixels.
enum class RawFormat { Nv12, Nv21, P10 };

// Plane geometry of a raw frame: pitches in bytes and row counts. Widths round up to the width
// unit (2, or 6 for P10), heights to even.
struct RawLayout {
    int32_t pitch0 = 0;
    int32_t rows0 = 0;
    int32_t pitch1 = 0;
    int32_t rows1 = 0;
    int64_t size() const { return int64_t{pitch0} * rows0 + int64_t{pitch1} * rows1; }
};

// A frame in the library's memory layout: plane 0 then plane 1, without gaps.
struct RawFrame {
    int32_t width = 0;
    int32_t height = 0;
    RawFormat format = RawFormat::Nv12;
    RawLayout layout;
    std::vector<uint8_t> bytes;

    uint8_t* plane0() { return bytes.data(); }
    uint8_t* plane1() { return bytes.data() + int64_t{layout.pitch0} * layout.rows0; }
    const uint8_t* plane0() const { return bytes.data(); }
    const uint8_t* plane1() const { return bytes.data() + int64_t{layout.pitch0} * layout.rows0; }
};

RawLayout rawLayout(int32_t width, int32_t height, RawFormat format);
// Sample depth of a raw format: 10 for P10, else 8.
int32_t rawBits(RawFormat format);
// "nv12", "nv21", "p10"; false for anything else.
bool parseRawFormat(const std::string& name, RawFormat* format);
const char* rawFormatName(RawFormat format);

// YUV 4:2:0 of `image.bits`' depth (8 for Nv12/Nv21, 10 for P10) into the raw layout. Padding
// columns and rows repeat the last real sample.
RawFrame packRaw(const Yuv420& image, RawFormat format);
Yuv420 unpackRaw(const RawFrame& frame);

// Files. readImage takes PNG or JPEG by their signature; writeImage picks the container by the
// extension (.png, .jpg, .jpeg). JPEG stores 8 bits: a 16-bit image is rounded down to 8.
enum class FileKind { Png, Jpeg, Yuv, Unknown };
FileKind fileKindOf(const std::string& path);  // by extension, case-insensitive
bool readImage(const std::string& path, RgbImage* image, std::string* error);
// PNG's zlib level for frames by default. Levels 1 to 3 use one predictor (Up), higher ones
// libpng's trial of all five. On a 12.7 MP photograph (bench/image_files_bench.cpp) level 1
// writes 12.0 MB in 0.5 s, level 9 9.5 MB in 35 s.
constexpr int32_t kPngDefaultLevel = 1;
bool writeImage(const std::string& path, const RgbImage& image, std::string* error,
                int32_t jpeg_quality = 95, int32_t png_level = kPngDefaultLevel);
// A raw file must hold exactly one frame of the given size and format.
bool readRaw(const std::string& path, int32_t width, int32_t height, RawFormat format,
             RawFrame* frame, std::string* error);
bool writeRaw(const std::string& path, const RawFrame& frame, std::string* error);

// Writes through `body` into a temporary file beside `path`, then renames it to `path`. On any
// failure (body returns false, a write error, the rename) the temporary file is removed and
// `error` says why. The new file gets the usual permissions (0666 less the umask).
bool writeFileAtomic(const std::string& path,
                     const std::function<bool(FILE* file, std::string* error)>& body,
                     std::string* error);

// Colour conversion (see the top of this file). rgbToYuv420 gives `bits` of 8 or 10; yuvToRgb
// gives 8 bits from 8-bit YUV and 16 bits from 10-bit YUV.
Yuv420 rgbToYuv420(const RgbImage& image, int32_t bits);
RgbImage yuv420ToRgb(const Yuv420& image);
// 8 <-> 10 bits by the library's rule: up by << 2, down by (v + 2) >> 2, 1022 and up to 255.
Yuv420 changeDepth(const Yuv420& image, int32_t bits);

// Frames straight between files and raw layouts (frame_files.cpp): the program's hot path.
// readFrame takes a YCbCr JPEG into an 8-bit frame without an RGB detour and anything else
// through RGB; readFrames reads files on up to `threads` threads, with one error text a file.
// writeFrame picks the container by the extension, like writeImage and writeRaw.
// rgbToFrame and frameToRgb are rgbToYuv420 + packRaw and unpackRaw + yuv420ToRgb, in integer
// arithmetic for 8-bit frames (within one code of those).
struct FrameWriteOptions {
    int32_t jpeg_quality = 95;
    int32_t png_level = kPngDefaultLevel;
    int32_t threads = 1;  // a PNG at the fast levels (1 to 3) is deflated in this many strips
};
RawFrame rgbToFrame(const RgbImage& image, RawFormat format);
RgbImage frameToRgb(const RawFrame& frame);
bool readFrame(const std::string& path, RawFormat format, RawFrame* frame, std::string* error);
bool readFrames(const std::vector<std::string>& paths, RawFormat format, int32_t threads,
                std::vector<RawFrame>* frames, std::vector<std::string>* errors);
bool writeFrame(const std::string& path, const RawFrame& frame, const FrameWriteOptions& options,
                std::string* error);

// "640x480" into 640 and 480, each in 1..kMaxSide; false for anything else.
constexpr long kMaxSide = 65535;
bool parseSize(const std::string& text, int32_t* width, int32_t* height);
// Why parseSize refuses `text` ("expected WxH", "too large: ..."); empty when it accepts it.
std::string sizeProblem(const std::string& text);

}  // namespace tavio
