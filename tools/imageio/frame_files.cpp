// Frames straight between image files and the library's layouts: the program's hot path.
//
// readFrame: into an 8-bit frame, a YCbCr JPEG by readJpegFrame (no RGB round trip) and an
//   8-bit PNG by readPngFrame, a pair of rows at a time through the integer rows below, so that
//   no whole RGB picture is ever held. Anything else (16-bit or interlaced PNG, grey JPEG, a
//   10-bit frame) goes through a whole RGB picture and rgbToYuv420.
// writeFrame: an 8-bit frame by writeJpegFrame (as YCbCr), by writePngStrips at the fast PNG
//   levels (strips deflated in parallel) or writePngFrame (a row at a time) at the others; a
//   10-bit one through a whole RGB picture.
// readFrames: the frames on up to `threads` threads, one file each at a time.
//
// The integer rows are the fixed-point twins of rgbToYuv420 and yuv420ToRgb at 8 bits (Q16
// coefficients, chroma weights 1/4 and 3/4 exactly); they differ from them by at most one code,
// which tests/tools/frame_files_test.cpp checks.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "tools/imageio/image_io.h"
#include "tools/imageio/image_io_internal.h"

namespace tavio {
namespace {

uint8_t clamp8(int32_t v) {
    return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
}

// Q16 BT.601 full-range coefficients; chroma sums four pixels, hence the extra 2 bits of shift.
constexpr int32_t kYr = 19595, kYg = 38470, kYb = 7471;
constexpr int32_t kUr = -11059, kUg = -21709, kUb = 32768;
constexpr int32_t kVr = 32768, kVg = -27439, kVb = -5329;

uint8_t lumaOf(int32_t r, int32_t g, int32_t b) {
    return clamp8((kYr * r + kYg * g + kYb * b + 32768) >> 16);
}

}  // namespace

RawFrame newFrame(int32_t width, int32_t height, RawFormat format) {
    RawFrame f;
    f.width = width;
    f.height = height;
    f.format = format;
    f.layout = rawLayout(width, height, format);
    f.bytes.resize(static_cast<size_t>(f.layout.size()));
    return f;
}

namespace {

// BT.601 full range from RGB: chroma sums four pixels, hence the extra 2 bits of shift.
struct RgbModel {
    template <typename Sample>
    static uint8_t luma(const Sample* p) {
        return lumaOf(p[0], p[1], p[2]);
    }
    static void chroma(const int32_t* s, uint8_t* u, uint8_t* v) {
        *u = clamp8(128 + ((kUr * s[0] + kUg * s[1] + kUb * s[2] + (1 << 17)) >> 18));
        *v = clamp8(128 + ((kVr * s[0] + kVg * s[1] + kVb * s[2] + (1 << 17)) >> 18));
    }
};

}  // namespace

template <typename Sample>
void rgbRowPairToFrame(const Sample* top, const Sample* bottom, int32_t y, RawFrame* f) {
    pixelRowPairToFrame<RgbModel>(top, bottom, y, f);
}
template void rgbRowPairToFrame(const uint8_t*, const uint8_t*, int32_t, RawFrame*);
template void rgbRowPairToFrame(const uint16_t*, const uint16_t*, int32_t, RawFrame*);

namespace {

// Q16 inverse coefficients.
constexpr int32_t kRv = 91881, kGu = -22554, kGv = -46802, kBu = 116130;

// Chroma of frame row y from chroma rows at 2i + 0.5: the two rows and the weight (of 4) of
// the second, as yuv420ToRgb takes them.
void chromaRowsOf(int32_t y, int32_t rows, int32_t* r0, int32_t* r1, int32_t* w1) {
    const int32_t f = (y - 1) >> 1;  // floor((y - 0.5) / 2)
    *w1 = (y & 1) ? 1 : 3;
    *r0 = std::clamp(f, 0, rows - 1);
    *r1 = std::clamp(f + 1, 0, rows - 1);
}

}  // namespace

void frameRowToRgb(const RawFrame& f, int32_t y, int32_t* u, int32_t* v, uint8_t* rgb) {
    const int32_t w = f.width;
    const int32_t cw = chromaWidth(w);
    int32_t r0, r1, wy;
    chromaRowsOf(y, chromaHeight(f.height), &r0, &r1, &wy);
    const uint8_t* c0 = f.plane1() + int64_t{r0} * f.layout.pitch1;
    const uint8_t* c1 = f.plane1() + int64_t{r1} * f.layout.pitch1;
    const int32_t iu = f.format == RawFormat::Nv21 ? 1 : 0;
    for (int32_t j = 0; j < cw; ++j) {
        u[j] = (4 - wy) * c0[2 * j + iu] + wy * c1[2 * j + iu];
        v[j] = (4 - wy) * c0[2 * j + 1 - iu] + wy * c1[2 * j + 1 - iu];
    }
    const uint8_t* luma = f.plane0() + int64_t{y} * f.layout.pitch0;
    for (int32_t x = 0; x < w; ++x) {
        int32_t j0, j1, wx;
        chromaRowsOf(x, cw, &j0, &j1, &wx);
        // Chroma in 16ths, centred.
        const int32_t cb = (4 - wx) * u[j0] + wx * u[j1] - 16 * 128;
        const int32_t cr = (4 - wx) * v[j0] + wx * v[j1] - 16 * 128;
        const int32_t l = (luma[x] << 20) + (1 << 19);
        rgb[3 * x] = clamp8((l + kRv * cr) >> 20);
        rgb[3 * x + 1] = clamp8((l + kGu * cb + kGv * cr) >> 20);
        rgb[3 * x + 2] = clamp8((l + kBu * cb) >> 20);
    }
}

namespace {

enum class Container { Png, Jpeg, Other };

Container containerOf(FILE* file) {
    uint8_t head[8] = {};
    const size_t got = fread(head, 1, sizeof head, file);
    rewind(file);
    if (got == 8 && memcmp(head, "\x89PNG\r\n\x1a\n", 8) == 0) return Container::Png;
    if (got >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF) return Container::Jpeg;
    return Container::Other;
}

}  // namespace

RawFrame rgbToFrame(const RgbImage& image, RawFormat format) {
    if (format == RawFormat::P10 || image.bits != 8) {
        return packRaw(rgbToYuv420(image, rawBits(format)), format);
    }
    RawFrame f = newFrame(image.width, image.height, format);
    const size_t stride = static_cast<size_t>(image.width) * 3;
    for (int32_t y = 0; y < image.height; y += 2) {
        const uint16_t* top = &image.rgb[y * stride];
        rgbRowPairToFrame(top, y + 1 < image.height ? top + stride : top, y, &f);
    }
    return f;
}

RgbImage frameToRgb(const RawFrame& frame) {
    if (frame.format == RawFormat::P10) return yuv420ToRgb(unpackRaw(frame));
    RgbImage out;
    out.width = frame.width;
    out.height = frame.height;
    out.bits = 8;
    out.rgb.resize(static_cast<size_t>(frame.width) * frame.height * 3);
    std::vector<int32_t> u(static_cast<size_t>(chromaWidth(frame.width)));
    std::vector<int32_t> v(u.size());
    std::vector<uint8_t> row(static_cast<size_t>(frame.width) * 3);
    for (int32_t y = 0; y < frame.height; ++y) {
        frameRowToRgb(frame, y, u.data(), v.data(), row.data());
        std::copy(row.begin(), row.end(), out.rgb.begin() + int64_t{y} * frame.width * 3);
    }
    return out;
}

bool readFrame(const std::string& path, RawFormat format, RawFrame* frame, std::string* error) {
    if (format != RawFormat::P10) {
        FILE* file = fopen(path.c_str(), "rb");
        if (!file) {
            *error = systemError("cannot open", path);
            return false;
        }
        bool refused = true;
        bool ok = false;
        switch (containerOf(file)) {
            case Container::Jpeg:
                ok = readJpegFrame(file, format, frame, &refused, error);
                break;
            case Container::Png:
                ok = readPngFrame(file, format, frame, &refused, error);
                break;
            case Container::Other:
                break;
        }
        fclose(file);
        if (!ok && !refused) *error = path + ": " + *error;
        if (ok || !refused) return ok;
    }
    RgbImage rgb;
    if (!readImage(path, &rgb, error)) return false;
    *frame = rgbToFrame(rgb, format);
    return true;
}

bool readFrames(const std::vector<std::string>& paths, RawFormat format, int32_t threads,
                std::vector<RawFrame>* frames, std::vector<std::string>* errors) {
    const size_t n = paths.size();
    frames->assign(n, RawFrame());
    errors->assign(n, std::string());
    std::vector<char> ok(n, 0);
    std::atomic<size_t> next{0};
    const auto work = [&]() {
        for (size_t k = next++; k < n; k = next++)
            ok[k] = readFrame(paths[k], format, &(*frames)[k], &(*errors)[k]) ? 1 : 0;
    };
    const size_t helpers = std::min(n, static_cast<size_t>(std::max(threads, 1))) - (n ? 1 : 0);
    std::vector<std::thread> pool;
    for (size_t t = 0; t < helpers; ++t)
        pool.emplace_back(work);
    work();
    for (std::thread& t : pool)
        t.join();
    return std::all_of(ok.begin(), ok.end(), [](char v) { return v != 0; });
}

bool writeFrame(const std::string& path, const RawFrame& frame, const FrameWriteOptions& options,
                std::string* error) {
    const FileKind kind = fileKindOf(path);
    if (kind == FileKind::Yuv) return writeRaw(path, frame, error);
    if ((kind != FileKind::Jpeg && kind != FileKind::Png) || frame.format == RawFormat::P10)
        return writeImage(path, frameToRgb(frame), error, options.jpeg_quality, options.png_level);
    return writeFileAtomic(
        path,
        [&](FILE* file, std::string* why) {
            const bool ok =
                kind == FileKind::Jpeg ? writeJpegFrame(file, frame, options.jpeg_quality, why)
                : options.png_level <= kPngLastFastLevel
                    ? writePngStrips(file, frame, options.png_level, options.threads, why)
                    : writePngFrame(file, frame, options.png_level, why);
            if (!ok) *why = path + ": " + *why;
            return ok;
        },
        error);
}

}  // namespace tavio
