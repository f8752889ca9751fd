// Image files and conversions of the tools: every writer read back by its reader, the packed
// 10-bit layout against an independent bit reader, the colour round trip, and the atomic writer.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "tests/tools/temp_dir.h"
#include "tools/imageio/image_io.h"

namespace {

using tavio::RawFormat;
using tavio::RgbImage;
using tavio::Yuv420;

using tav_test::TempDir;

RgbImage randomRgb(int32_t w, int32_t h, int32_t bits, uint32_t seed) {
    std::mt19937 rng(seed);
    RgbImage im;
    im.width = w;
    im.height = h;
    im.bits = bits;
    im.rgb.resize(size_t(w) * h * 3);
    const uint32_t max_code = bits == 16 ? 65535u : 255u;
    for (uint16_t& v : im.rgb)
        v = static_cast<uint16_t>(rng() % (max_code + 1));
    return im;
}

Yuv420 randomYuv(int32_t w, int32_t h, int32_t bits, uint32_t seed) {
    std::mt19937 rng(seed);
    Yuv420 im;
    im.width = w;
    im.height = h;
    im.bits = bits;
    const uint32_t n = 1u << bits;
    im.y.resize(size_t(w) * h);
    im.cb.resize(size_t((w + 1) / 2) * ((h + 1) / 2));
    im.cr.resize(im.cb.size());
    for (auto* p : {&im.y, &im.cb, &im.cr})
        for (uint16_t& v : *p)
            v = static_cast<uint16_t>(rng() % n);
    return im;
}

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Sample s of a packed row, read as a plain little-endian bit stream: 32 bits per three samples.
uint32_t bitStreamSample(const uint8_t* row, int32_t s) {
    const int64_t bit = int64_t{32} * (s / 3) + 10 * (s % 3);
    uint32_t v = 0;
    for (int b = 0; b < 10; ++b) {
        const int64_t at = bit + b;
        v |= uint32_t((row[at / 8] >> (at % 8)) & 1) << b;
    }
    return v;
}

TEST(ImageIo, PngRoundTripsEightAndSixteenBits) {
    TempDir dir;
    for (int32_t bits : {8, 16}) {
        const RgbImage im = randomRgb(37, 23, bits, 7u + bits);
        const std::string path = dir.file("im" + std::to_string(bits) + ".PNG");
        std::string error;
        ASSERT_TRUE(tavio::writeImage(path, im, &error)) << error;
        RgbImage back;
        ASSERT_TRUE(tavio::readImage(path, &back, &error)) << error;
        EXPECT_EQ(back.width, 37);
        EXPECT_EQ(back.height, 23);
        EXPECT_EQ(back.bits, bits);
        EXPECT_EQ(back.rgb, im.rgb);
    }
}

TEST(ImageIo, FailedWritesLeaveNoFileAndKeepAnOldOne) {
    TempDir dir;
    std::string error;
    const RgbImage im = randomRgb(6, 4, 8, 2);
    EXPECT_FALSE(tavio::writeImage(dir.file("out.bmp"), im, &error));
    EXPECT_FALSE(tavio::writeImage(dir.file("no/such/folder/out.png"), im, &error));
    EXPECT_TRUE(dir.entries().empty());

    std::ofstream(dir.file("keep.png")) << "old";
    const bool ok = tavio::writeFileAtomic(
        dir.file("keep.png"),
        [](FILE* f, std::string* why) {
            fputs("half of a new file", f);
            *why = "stopped on purpose";
            return false;
        },
        &error);
    EXPECT_FALSE(ok);
    EXPECT_EQ(error, "stopped on purpose");
    EXPECT_EQ(slurp(dir.file("keep.png")), "old");
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"keep.png"});

    ASSERT_TRUE(tavio::writeImage(dir.file("keep.png"), im, &error)) << error;
    struct stat st;
    ASSERT_EQ(stat(dir.file("keep.png").c_str(), &st), 0);
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(st.st_mode & 0777, 0666 & ~mask);  // not mkstemp's 0600
}

TEST(ImageIo, RawLayoutsPlaceSamplesAsTheLibraryReadsThem) {
    const int32_t w = 13, h = 5;
    const Yuv420 im10 = randomYuv(w, h, 10, 99);
    const tavio::RawFrame p10 = tavio::packRaw(im10, RawFormat::P10);
    // Width unit 6: 18 samples of a row take 6 words.
    EXPECT_EQ(p10.layout.pitch0, 24);
    EXPECT_EQ(p10.layout.pitch1, 24);
    EXPECT_EQ(p10.layout.rows0, 6);
    EXPECT_EQ(p10.layout.rows1, 3);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            ASSERT_EQ(bitStreamSample(p10.plane0() + y * p10.layout.pitch0, x),
                      im10.y[size_t(y) * w + x]);
    const int32_t cw = (w + 1) / 2;
    for (int32_t y = 0; y < (h + 1) / 2; ++y) {
        const uint8_t* row = p10.plane1() + y * p10.layout.pitch1;
        for (int32_t j = 0; j < cw; ++j) {
            ASSERT_EQ(bitStreamSample(row, 2 * j), im10.cb[size_t(y) * cw + j]);
            ASSERT_EQ(bitStreamSample(row, 2 * j + 1), im10.cr[size_t(y) * cw + j]);
        }
    }
    const Yuv420 im8 = randomYuv(w, h, 8, 98);
    const tavio::RawFrame nv12 = tavio::packRaw(im8, RawFormat::Nv12);
    const tavio::RawFrame nv21 = tavio::packRaw(im8, RawFormat::Nv21);
    EXPECT_EQ(nv12.layout.pitch0, 14);
    EXPECT_EQ(nv12.plane1()[2], im8.cb[1]);
    EXPECT_EQ(nv12.plane1()[3], im8.cr[1]);
    EXPECT_EQ(nv21.plane1()[2], im8.cr[1]);
    EXPECT_EQ(nv21.plane1()[3], im8.cb[1]);
    // Padding repeats the last column and row.
    EXPECT_EQ(nv12.plane0()[13], im8.y[12]);
    EXPECT_EQ(nv12.plane0()[5 * 14 + 3], im8.y[4 * w + 3]);
}

TEST(ImageIo, ColourConversionIsBt601FullRangeAndRoundTrips) {
    // Grey stays grey, at its own level.
    RgbImage grey;
    grey.width = 4;
    grey.height = 2;
    for (int i = 0; i < 8; ++i)
        grey.rgb.insert(grey.rgb.end(), 3, uint16_t(i * 30));
    const Yuv420 g = tavio::rgbToYuv420(grey, 8);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(g.y[i], i * 30);
    EXPECT_EQ(g.cb, std::vector<uint16_t>(g.cb.size(), 128));
    EXPECT_EQ(g.cr, g.cb);
    // Pure colours by the equations of JPEG's YCbCr.
    RgbImage red;
    red.width = red.height = 2;
    for (int i = 0; i < 4; ++i)
        red.rgb.insert(red.rgb.end(), {255, 0, 0});
    const Yuv420 r = tavio::rgbToYuv420(red, 8);
    EXPECT_EQ(r.y[0], std::lround(0.299 * 255));
    EXPECT_EQ(r.cb[0], std::lround(128 - 0.168736 * 255));
    EXPECT_EQ(r.cr[0], 255);  // 128 + 127.5 rounds up, clamped
    // Flat colours survive 4:2:0 within the rounding of the three channels (at most 1.4
    // codes, so 2 after rounding): the forward and backward matrices belong together.
    std::mt19937 rng(5);
    for (int32_t bits : {8, 16}) {
        const uint32_t max_code = bits == 16 ? 65535u : 255u;
        const double code = bits == 16 ? 65535.0 / 1023.0 : 1.0;
        for (int trial = 0; trial < 300; ++trial) {
            RgbImage im;
            im.width = 4;
            im.height = 2;
            im.bits = bits;
            const uint16_t c[3] = {uint16_t(rng() % (max_code + 1)),
                                   uint16_t(rng() % (max_code + 1)),
                                   uint16_t(rng() % (max_code + 1))};
            for (int i = 0; i < 8; ++i)
                im.rgb.insert(im.rgb.end(), c, c + 3);
            const RgbImage back = tavio::yuv420ToRgb(tavio::rgbToYuv420(im, bits == 16 ? 10 : 8));
            ASSERT_EQ(back.bits, bits);
            for (size_t i = 0; i < im.rgb.size(); ++i)
                ASSERT_LE(std::fabs(double(back.rgb[i]) - im.rgb[i]), 2.0 * code + 1.0)
                    << bits << " bits, colour " << c[0] << "," << c[1] << "," << c[2];
        }
    }
    // Chroma sits at the centre of its block: between two blocks of different colour, the
    // pixels next to the edge take a quarter of the neighbour's chroma, the outer ones none.
    RgbImage two;
    two.width = 4;
    two.height = 2;
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x)
            two.rgb.insert(two.rgb.end(), {0, 0, uint16_t(x < 2 ? 0 : 200)});
    const Yuv420 t = tavio::rgbToYuv420(two, 8);
    const RgbImage tb = tavio::yuv420ToRgb(t);
    const double cb0 = t.cb[0] - 128.0, cb1 = t.cb[1] - 128.0;
    EXPECT_EQ(tb.rgb[1 * 3 + 2],
              std::clamp(std::lround(t.y[1] + 1.772 * (0.75 * cb0 + 0.25 * cb1)), 0L, 255L));
    EXPECT_EQ(tb.rgb[0 * 3 + 2], std::clamp(std::lround(t.y[0] + 1.772 * cb0), 0L, 255L));
}

TEST(ImageIo, DepthChangeMatchesTheLibraryRuleAndParseSizeIsStrict) {
    Yuv420 im;
    im.width = 256;
    im.height = 1;
    for (int v = 0; v < 256; ++v)
        im.y.push_back(uint16_t(v));
    im.cb.assign(128, 128);
    im.cr.assign(128, 255);
    const Yuv420 up = tavio::changeDepth(im, 10);
    const Yuv420 down = tavio::changeDepth(up, 8);
    EXPECT_EQ(down.y, im.y);
    EXPECT_EQ(up.cb[0], 512);
    Yuv420 ten = im;
    ten.bits = 10;
    ten.y = {1021, 1022, 1023, 2};
    EXPECT_EQ(tavio::changeDepth(ten, 8).y, (std::vector<uint16_t>{255, 255, 255, 1}));

    int32_t w = 0, h = 0;
    EXPECT_TRUE(tavio::parseSize("640x480", &w, &h));
    EXPECT_EQ(w, 640);
    EXPECT_EQ(h, 480);
    EXPECT_EQ(tavio::sizeProblem("640x480"), "");
    // A well-formed size that is too large is told as such, not as a malformed one.
    const struct {
        const char* text;
        const char* problem;
    } bad[] = {{"640x", "expected WxH"},
               {"x480", "expected WxH"},
               {"64x48x", "expected WxH"},
               {"6a0x480", "expected WxH"},
               {"-5x5", "expected WxH"},
               {"640 x480", "expected WxH"},
               {"", "expected WxH"},
               {"0x5", "0 pixels"},
               {"65536x2", "too large"},
               {"100000x100000", "too large"},
               {"99999999999999999999x2", "too large"}};
    for (const auto& b : bad) {
        EXPECT_FALSE(tavio::parseSize(b.text, &w, &h)) << b.text;
        EXPECT_NE(tavio::sizeProblem(b.text).find(b.problem), std::string::npos) << b.text;
    }
    EXPECT_TRUE(tavio::parseSize("65535x1", &w, &h));
}

}  // namespace
