// The program's fast frame path against the plain RGB path it replaces: the integer rows within
// one code of the double-precision conversions on awkward sizes, JPEG and PNG frames read
// straight into the layout close to the RGB route, the fall-backs, and one error per file.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "tests/tools/temp_dir.h"
#include "tools/imageio/image_io.h"

namespace {

using tavio::RawFormat;
using tavio::RawFrame;
using tavio::RgbImage;

using tav_test::TempDir;

// Smooth colour waves plus noise: saturated corners and mid-tones alike.
RgbImage picture(int32_t w, int32_t h, int32_t bits, uint32_t seed) {
    std::mt19937 rng(seed);
    RgbImage im;
    im.width = w;
    im.height = h;
    im.bits = bits;
    im.rgb.resize(size_t(w) * h * 3);
    const double top = bits == 16 ? 65535.0 : 255.0;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c) {
                const double v = 0.5 + 0.55 * std::sin(0.11 * x + 0.07 * y + 2.1 * c) +
                                 0.05 * (int(rng() % 21) - 10) / 10.0;
                im.rgb[(size_t(y) * w + x) * 3 + c] = uint16_t(std::clamp(v, 0.0, 1.0) * top);
            }
    return im;
}

int32_t maxDiff(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    int32_t m = a.size() == b.size() ? 0 : 1000;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        m = std::max(m, std::abs(int32_t(a[i]) - int32_t(b[i])));
    return m;
}

int32_t maxDiff(const std::vector<uint16_t>& a, const std::vector<uint16_t>& b) {
    int32_t m = a.size() == b.size() ? 0 : 1000;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        m = std::max(m, std::abs(int32_t(a[i]) - int32_t(b[i])));
    return m;
}

TEST(FrameFiles, IntegerRowsMatchTheReferenceConversionsWithinOneCode) {
    const int32_t sizes[][2] = {{1, 1}, {2, 2}, {3, 5}, {17, 4}, {64, 33}, {101, 7}};
    for (const auto& s : sizes) {
        for (RawFormat format : {RawFormat::Nv12, RawFormat::Nv21}) {
            const RgbImage rgb = picture(s[0], s[1], 8, uint32_t(s[0] * 7 + s[1]));
            const RawFrame fast = tavio::rgbToFrame(rgb, format);
            const RawFrame slow = tavio::packRaw(tavio::rgbToYuv420(rgb, 8), format);
            EXPECT_LE(maxDiff(fast.bytes, slow.bytes), 1) << s[0] << "x" << s[1];
            const RgbImage back_fast = tavio::frameToRgb(slow);
            const RgbImage back_slow = tavio::yuv420ToRgb(tavio::unpackRaw(slow));
            EXPECT_LE(maxDiff(back_fast.rgb, back_slow.rgb), 1) << s[0] << "x" << s[1];
        }
    }
    // 16-bit pictures and 10-bit frames take the reference path itself.
    const RgbImage deep = picture(9, 6, 16, 3);
    EXPECT_EQ(tavio::rgbToFrame(deep, RawFormat::Nv12).bytes,
              tavio::packRaw(tavio::rgbToYuv420(deep, 8), RawFormat::Nv12).bytes);
    EXPECT_EQ(tavio::rgbToFrame(deep, RawFormat::P10).bytes,
              tavio::packRaw(tavio::rgbToYuv420(deep, 10), RawFormat::P10).bytes);
}

TEST(FrameFiles, FilesReadStraightIntoFramesAgreeWithTheRgbRoute) {
    TempDir dir;
    const RgbImage rgb = picture(61, 37, 8, 11);
    std::string error;
    for (const char* name : {"a.png", "a.jpg"}) {
        ASSERT_TRUE(tavio::writeImage(dir.file(name), rgb, &error)) << error;
        for (RawFormat format : {RawFormat::Nv12, RawFormat::Nv21, RawFormat::P10}) {
            RawFrame direct;
            ASSERT_TRUE(tavio::readFrame(dir.file(name), format, &direct, &error)) << error;
            RgbImage decoded;
            ASSERT_TRUE(tavio::readImage(dir.file(name), &decoded, &error)) << error;
            const RawFrame via_rgb =
                tavio::packRaw(tavio::rgbToYuv420(decoded, tavio::rawBits(format)), format);
            ASSERT_EQ(direct.layout.size(), via_rgb.layout.size());
            // PNG: the integer rows. JPEG: the file's own YCbCr, against a decode to RGB with
            // smoothed chroma and a conversion back: close on the whole, a few codes at most.
            const bool png = std::string(name) == "a.png";
            const int32_t bound = format == RawFormat::P10 ? 0 : png ? 1 : 8;
            EXPECT_LE(maxDiff(direct.bytes, via_rgb.bytes), bound) << name;
            double sum = 0;
            for (size_t i = 0; i < direct.bytes.size(); ++i)
                sum += std::abs(int32_t(direct.bytes[i]) - int32_t(via_rgb.bytes[i]));
            EXPECT_LT(sum / double(direct.bytes.size()), 1.0) << name;
        }
    }
    // A 16-bit PNG keeps its precision: it goes the RGB way.
    const RgbImage deep = picture(20, 10, 16, 5);
    ASSERT_TRUE(tavio::writeImage(dir.file("deep.png"), deep, &error)) << error;
    RawFrame frame;
    ASSERT_TRUE(tavio::readFrame(dir.file("deep.png"), RawFormat::Nv12, &frame, &error));
    EXPECT_EQ(frame.bytes, tavio::packRaw(tavio::rgbToYuv420(deep, 8), RawFormat::Nv12).bytes);
}

TEST(FrameFiles, WrittenFramesReadBackAndEveryBadFileIsNamed) {
    TempDir dir;
    const RawFrame frame = tavio::rgbToFrame(picture(50, 30, 8, 2), RawFormat::Nv21);
    std::string error;
    tavio::FrameWriteOptions options;
    // The fast levels deflate row strips in parallel into one stream; libpng reads it back.
    for (int32_t level : {0, 1, 9}) {
        for (int32_t threads : {1, 3, 40}) {
            options.png_level = level;
            options.threads = threads;
            ASSERT_TRUE(tavio::writeFrame(dir.file("out.png"), frame, options, &error)) << error;
            RgbImage back;
            ASSERT_TRUE(tavio::readImage(dir.file("out.png"), &back, &error)) << error;
            EXPECT_EQ(back.rgb, tavio::frameToRgb(frame).rgb) << level << " " << threads;
        }
    }
    // JPEG stores the frame's own YCbCr: read back straight, it stays close.
    ASSERT_TRUE(tavio::writeFrame(dir.file("out.jpg"), frame, options, &error)) << error;
    RawFrame back;
    ASSERT_TRUE(tavio::readFrame(dir.file("out.jpg"), RawFormat::Nv21, &back, &error));
    EXPECT_LE(maxDiff(back.bytes, frame.bytes), 12);

    // Many files, some bad: each error names its own file, the good ones are read.
    ASSERT_TRUE(tavio::writeFrame(dir.file("good.jpg"), frame, options, &error));
    FILE* junk = fopen(dir.file("junk.jpg").c_str(), "wb");
    ASSERT_NE(junk, nullptr);
    fputs("\xFF\xD8\xFFnot really", junk);
    fclose(junk);
    const std::vector<std::string> paths = {dir.file("good.jpg"), dir.file("missing.png"),
                                            dir.file("junk.jpg"), dir.file("out.png")};
    std::vector<RawFrame> frames;
    std::vector<std::string> errors;
    EXPECT_FALSE(tavio::readFrames(paths, RawFormat::Nv12, 3, &frames, &errors));
    ASSERT_EQ(errors.size(), 4u);
    EXPECT_EQ(errors[0], "");
    EXPECT_NE(errors[1].find("missing.png"), std::string::npos) << errors[1];
    EXPECT_NE(errors[2].find("junk.jpg: bad JPEG"), std::string::npos) << errors[2];
    EXPECT_EQ(errors[3], "");
    EXPECT_EQ(frames[3].width, 50);
}

}  // namespace
