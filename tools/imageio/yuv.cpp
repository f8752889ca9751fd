// Colour conversion and the raw frame layouts.
//
// rgbToYuv420, yuv420ToRgb: BT.601 full range, chroma at the centre of each 2 x 2 block; see
//   image_io.h for the equations. Values are rounded to the nearest code and clamped.
// changeDepth: 8 <-> 10 bits, the same rule as the library's own conversion.
// rawLayout, packRaw, unpackRaw: the library's Nv12, Nv21 and packed 10-bit layouts. A raw frame
//   has no padding beyond the width unit, so its byte count is pitch0 * rows0 + pitch1 * rows1.
#include <algorithm>
#include <cmath>

#include "tools/imageio/image_io.h"

namespace tavio {
namespace {

uint16_t clampCode(double v, int32_t max_code) {
    const double r = std::floor(v + 0.5);
    return static_cast<uint16_t>(std::clamp(r, 0.0, static_cast<double>(max_code)));
}

struct Ycc {
    double y, cb, cr;  // luma 0..1, chroma -0.5..0.5
};

Ycc toYcc(double r, double g, double b) {
    return {0.299 * r + 0.587 * g + 0.114 * b, -0.168736 * r - 0.331264 * g + 0.5 * b,
            0.5 * r - 0.418688 * g - 0.081312 * b};
}

// Chroma of output pixel x from the chroma samples of its row, which sit at 2j + 0.5.
// Returns the two taps and their weights.
void chromaTaps(int32_t x, int32_t samples, int32_t* j0, int32_t* j1, double* w1) {
    const double pos = (x - 0.5) / 2.0;
    const double f = std::floor(pos);
    *w1 = pos - f;
    *j0 = std::clamp(static_cast<int32_t>(f), 0, samples - 1);
    *j1 = std::clamp(static_cast<int32_t>(f) + 1, 0, samples - 1);
}

// Packed 10-bit: sample s of a row in bits 10 (s % 3) of little-endian word s / 3.
void putPacked(uint8_t* row, int32_t s, uint32_t v) {
    uint8_t* w = row + (s / 3) * 4;
    uint32_t word =
        uint32_t{w[0]} | uint32_t{w[1]} << 8 | uint32_t{w[2]} << 16 | uint32_t{w[3]} << 24;
    const int32_t shift = 10 * (s % 3);
    word = (word & ~(0x3FFu << shift)) | ((v & 0x3FFu) << shift);
    w[0] = static_cast<uint8_t>(word);
    w[1] = static_cast<uint8_t>(word >> 8);
    w[2] = static_cast<uint8_t>(word >> 16);
    w[3] = static_cast<uint8_t>(word >> 24);
}

uint16_t getPacked(const uint8_t* row, int32_t s) {
    const uint8_t* w = row + (s / 3) * 4;
    const uint32_t word =
        uint32_t{w[0]} | uint32_t{w[1]} << 8 | uint32_t{w[2]} << 16 | uint32_t{w[3]} << 24;
    return static_cast<uint16_t>((word >> (10 * (s % 3))) & 0x3FFu);
}

// Writes sample `s` of a padded row: 8-bit bytes or packed 10-bit words.
void putSample(uint8_t* row, int32_t s, uint16_t v, bool packed) {
    if (packed) {
        putPacked(row, s, v);
    } else {
        row[s] = static_cast<uint8_t>(v);
    }
}

uint16_t getSample(const uint8_t* row, int32_t s, bool packed) {
    return packed ? getPacked(row, s) : row[s];
}

}  // namespace

Yuv420 rgbToYuv420(const RgbImage& image, int32_t bits) {
    const int32_t w = image.width;
    const int32_t h = image.height;
    const double in_max = image.bits == 16 ? 65535.0 : 255.0;
    const int32_t max_code = (1 << bits) - 1;
    const double centre = static_cast<double>(1 << (bits - 1));
    Yuv420 out;
    out.width = w;
    out.height = h;
    out.bits = bits;
    out.y.resize(static_cast<size_t>(w) * h);
    const int32_t cw = chromaWidth(w);
    const int32_t ch = chromaHeight(h);
    std::vector<double> cb_sum(static_cast<size_t>(cw) * ch, 0.0);
    std::vector<double> cr_sum(cb_sum.size(), 0.0);
    std::vector<int32_t> count(cb_sum.size(), 0);
    for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) {
            const uint16_t* p = &image.rgb[(static_cast<size_t>(y) * w + x) * 3];
            const Ycc c = toYcc(p[0] / in_max, p[1] / in_max, p[2] / in_max);
            out.y[static_cast<size_t>(y) * w + x] = clampCode(c.y * max_code, max_code);
            const size_t k = static_cast<size_t>(y / 2) * cw + x / 2;
            cb_sum[k] += c.cb;
            cr_sum[k] += c.cr;
            ++count[k];
        }
    }
    out.cb.resize(cb_sum.size());
    out.cr.resize(cb_sum.size());
    for (size_t k = 0; k < cb_sum.size(); ++k) {
        out.cb[k] = clampCode(centre + max_code * cb_sum[k] / count[k], max_code);
        out.cr[k] = clampCode(centre + max_code * cr_sum[k] / count[k], max_code);
    }
    return out;
}

RgbImage yuv420ToRgb(const Yuv420& image) {
    const int32_t w = image.width;
    const int32_t h = image.height;
    const int32_t cw = chromaWidth(w);
    const int32_t ch = chromaHeight(h);
    const double in_max = static_cast<double>((1 << image.bits) - 1);
    const double centre = static_cast<double>(1 << (image.bits - 1));
    RgbImage out;
    out.width = w;
    out.height = h;
    out.bits = image.bits > 8 ? 16 : 8;
    const int32_t out_max = out.bits == 16 ? 65535 : 255;
    out.rgb.resize(static_cast<size_t>(w) * h * 3);
    for (int32_t y = 0; y < h; ++y) {
        int32_t r0, r1;
        double wy;
        chromaTaps(y, ch, &r0, &r1, &wy);
        for (int32_t x = 0; x < w; ++x) {
            int32_t c0, c1;
            double wx;
            chromaTaps(x, cw, &c0, &c1, &wx);
            auto at = [&](const std::vector<uint16_t>& p) {
                const double top =
                    p[size_t(r0) * cw + c0] * (1 - wx) + p[size_t(r0) * cw + c1] * wx;
                const double bot =
                    p[size_t(r1) * cw + c0] * (1 - wx) + p[size_t(r1) * cw + c1] * wx;
                return (top * (1 - wy) + bot * wy - centre) / in_max;
            };
            const double cb = at(image.cb);
            const double cr = at(image.cr);
            const double luma = image.y[static_cast<size_t>(y) * w + x] / in_max;
            uint16_t* p = &out.rgb[(static_cast<size_t>(y) * w + x) * 3];
            p[0] = clampCode((luma + 1.402 * cr) * out_max, out_max);
            p[1] = clampCode((luma - 0.344136 * cb - 0.714136 * cr) * out_max, out_max);
            p[2] = clampCode((luma + 1.772 * cb) * out_max, out_max);
        }
    }
    return out;
}

Yuv420 changeDepth(const Yuv420& image, int32_t bits) {
    Yuv420 out = image;
    out.bits = bits;
    if (bits == image.bits) return out;
    auto convert = [&](std::vector<uint16_t>& plane) {
        for (uint16_t& v : plane) {
            if (bits > image.bits) {
                v = static_cast<uint16_t>(v << 2);
            } else {
                v = v < 1022 ? static_cast<uint16_t>((v + 2) >> 2) : uint16_t{255};
            }
        }
    };
    convert(out.y);
    convert(out.cb);
    convert(out.cr);
    return out;
}

RawLayout rawLayout(int32_t width, int32_t height, RawFormat format) {
    RawLayout l;
    const int32_t rows = (height + 1) / 2;
    if (format == RawFormat::P10) {
        const int32_t wu = (width + 5) / 6 * 6;
        l.pitch0 = wu / 3 * 4;
        l.pitch1 = wu / 6 * 8;
    } else {
        const int32_t wu = (width + 1) / 2 * 2;
        l.pitch0 = wu;
        l.pitch1 = wu;
    }
    l.rows0 = rows * 2;
    l.rows1 = rows;
    return l;
}

int32_t rawBits(RawFormat format) {
    return format == RawFormat::P10 ? 10 : 8;
}

bool parseRawFormat(const std::string& name, RawFormat* format) {
    if (name == "nv12") {
        *format = RawFormat::Nv12;
    } else if (name == "nv21") {
        *format = RawFormat::Nv21;
    } else if (name == "p10") {
        *format = RawFormat::P10;
    } else {
        return false;
    }
    return true;
}

const char* rawFormatName(RawFormat format) {
    switch (format) {
        case RawFormat::Nv12:
            return "nv12";
        case RawFormat::Nv21:
            return "nv21";
        case RawFormat::P10:
            return "p10";
    }
    return "?";
}

RawFrame packRaw(const Yuv420& image, RawFormat format) {
    RawFrame f;
    f.width = image.width;
    f.height = image.height;
    f.format = format;
    f.layout = rawLayout(image.width, image.height, format);
    f.bytes.assign(static_cast<size_t>(f.layout.size()), 0);
    const bool packed = format == RawFormat::P10;
    const int32_t w = image.width;
    const int32_t h = image.height;
    const int32_t units0 = packed ? f.layout.pitch0 / 4 * 3 : f.layout.pitch0;
    for (int32_t y = 0; y < f.layout.rows0; ++y) {
        const uint16_t* src = &image.y[static_cast<size_t>(std::min(y, h - 1)) * w];
        uint8_t* row = f.plane0() + static_cast<int64_t>(y) * f.layout.pitch0;
        for (int32_t s = 0; s < units0; ++s)
            putSample(row, s, src[std::min(s, w - 1)], packed);
    }
    const int32_t cw = chromaWidth(w);
    const int32_t ch = chromaHeight(h);
    const int32_t pairs = (packed ? f.layout.pitch1 / 4 * 3 : f.layout.pitch1) / 2;
    const bool cr_first = format == RawFormat::Nv21;
    for (int32_t y = 0; y < f.layout.rows1; ++y) {
        const size_t src = static_cast<size_t>(std::min(y, ch - 1)) * cw;
        uint8_t* row = f.plane1() + static_cast<int64_t>(y) * f.layout.pitch1;
        for (int32_t j = 0; j < pairs; ++j) {
            const size_t k = src + std::min(j, cw - 1);
            putSample(row, 2 * j, cr_first ? image.cr[k] : image.cb[k], packed);
            putSample(row, 2 * j + 1, cr_first ? image.cb[k] : image.cr[k], packed);
        }
    }
    return f;
}

Yuv420 unpackRaw(const RawFrame& frame) {
    const bool packed = frame.format == RawFormat::P10;
    const bool cr_first = frame.format == RawFormat::Nv21;
    Yuv420 out;
    out.width = frame.width;
    out.height = frame.height;
    out.bits = rawBits(frame.format);
    const int32_t w = frame.width;
    const int32_t cw = chromaWidth(w);
    const int32_t ch = chromaHeight(frame.height);
    out.y.resize(static_cast<size_t>(w) * frame.height);
    out.cb.resize(static_cast<size_t>(cw) * ch);
    out.cr.resize(out.cb.size());
    for (int32_t y = 0; y < frame.height; ++y) {
        const uint8_t* row = frame.plane0() + static_cast<int64_t>(y) * frame.layout.pitch0;
        for (int32_t x = 0; x < w; ++x)
            out.y[static_cast<size_t>(y) * w + x] = getSample(row, x, packed);
    }
    for (int32_t y = 0; y < ch; ++y) {
        const uint8_t* row = frame.plane1() + static_cast<int64_t>(y) * frame.layout.pitch1;
        for (int32_t j = 0; j < cw; ++j) {
            const uint16_t a = getSample(row, 2 * j, packed);
            const uint16_t b = getSample(row, 2 * j + 1, packed);
            out.cb[static_cast<size_t>(y) * cw + j] = cr_first ? b : a;
            out.cr[static_cast<size_t>(y) * cw + j] = cr_first ? a : b;
        }
    }
    return out;
}

}  // namespace tavio
