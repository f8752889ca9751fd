// tavrin-sr as a user runs it: the built program in a child process, its exit status, its
// messages, and the files it leaves (or does not leave) behind.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tools/imageio/image_io.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

struct Outcome {
    int code = -1;  // exit status, or -1 when the program died of a signal
    std::string out;
    std::string err;
};

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Lines of standard error that are not notes.
std::vector<std::string> problems(const std::string& err) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < err.size()) {
        const size_t end = err.find('\n', start);
        const std::string line = err.substr(start, end - start);
        if (line.rfind("tavrin-sr: note:", 0) != 0) lines.push_back(line);
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return lines;
}

// A textured picture: gradients, a checker and a few sharp lines, moved by (dx, dy).
tavio::RgbImage scene(int32_t w, int32_t h, int32_t dx, int32_t dy, int32_t bits = 8) {
    tavio::RgbImage im;
    im.width = w;
    im.height = h;
    im.bits = bits;
    im.rgb.resize(size_t(w) * h * 3);
    const double scale = bits == 16 ? 257.0 : 1.0;
    for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) {
            const int32_t sx = x + dx, sy = y + dy;
            const int32_t checker = ((sx / 8) + (sy / 8)) % 2 ? 50 : 0;
            const int32_t line = (sx % 13 == 0 || sy % 11 == 0) ? 60 : 0;
            for (int c = 0; c < 3; ++c) {
                const int32_t v = 40 + (sx * (c + 1) + sy * 2) % 120 + checker + line;
                im.rgb[(size_t(y) * w + x) * 3 + c] = uint16_t(std::min(v, 255) * scale);
            }
        }
    }
    return im;
}

class TavrinSr : public ::testing::Test {
protected:
    void SetUp() override {
#ifndef TAVRIN_SR_PATH
        GTEST_SKIP() << "tavrin-sr is not part of this build";
#else
        program_ = TAVRIN_SR_PATH;
#endif
        char pattern[] = "/tmp/tavrin_sr_test_XXXXXX";
        dir_ = mkdtemp(pattern);
    }
    void TearDown() override {
        std::error_code ignored;
        if (!dir_.empty()) fs::remove_all(dir_, ignored);
    }

    std::string file(const std::string& name) const {
        return dir_ + "/" + name;
    }

    std::string writeFrame(const std::string& name, const tavio::RgbImage& im) {
        std::string error;
        EXPECT_TRUE(tavio::writeImage(file(name), im, &error)) << error;
        return file(name);
    }

    Outcome run(std::vector<std::string> args) {
        args.insert(args.begin(), program_);
        std::vector<char*> argv;
        for (std::string& a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        const std::string out = file(".stdout"), err = file(".stderr");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0644);
        posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0644);
        pid_t pid;
        Outcome o;
        const int spawned =
            posix_spawn(&pid, program_.c_str(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        EXPECT_EQ(spawned, 0);
        if (spawned != 0) return o;
        int status = 0;
        waitpid(pid, &status, 0);
        o.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        o.out = slurp(out);
        o.err = slurp(err);
        unlink(out.c_str());
        unlink(err.c_str());
        return o;
    }

    // Every name in the folder that is not in `inputs` (hidden temporary files included).
    std::vector<std::string> leftovers(const std::vector<std::string>& inputs) const {
        std::vector<std::string> extra;
        for (const auto& e : fs::directory_iterator(dir_)) {
            const std::string path = e.path().string();
            if (std::find(inputs.begin(), inputs.end(), path) == inputs.end() &&
                e.path().filename() != "cache")
                extra.push_back(e.path().filename().string());
        }
        return extra;
    }

    std::string program_;
    std::string dir_;
};

TEST_F(TavrinSr, BadInputExitsOneWithoutAnOutputFile) {
    const std::string f0 = writeFrame("a.png", scene(64, 48, 0, 0));
    const std::string small = writeFrame("small.png", scene(32, 24, 0, 0));
    const std::string odd = writeFrame("odd.png", scene(63, 48, 0, 0));
    std::ofstream(file("text.png")) << "hello";
    const std::string text = file("text.png");
    std::string error;
    ASSERT_TRUE(tavio::writeRaw(
        file("raw.yuv"),
        tavio::packRaw(tavio::rgbToYuv420(scene(64, 48, 0, 0), 8), tavio::RawFormat::Nv12),
        &error));
    const std::string raw = file("raw.yuv");
    const std::string out = file("out.png");
    const std::string cache = file("cache");
    struct Case {
        std::vector<std::string> args;
        std::vector<const char*> says;
    } cases[] = {
        {{file("missing.png"), "-o", out}, {"missing.png"}},
        {{text, "-o", out}, {"text.png", "not a PNG or JPEG"}},
        {{f0, small, "-o", out}, {"small.png", "32x24", "64x48", "same size"}},
        {{odd, odd, "-o", out}, {"63x48", "even"}},
        {{raw, "-o", out}, {"raw.yuv", "--size"}},
        {{raw, "--size", "64x40", "-o", out}, {"raw.yuv", "bytes"}},
        {{f0, "--output-size", "32x24", "-o", out}, {"32x24", "smaller than the frames"}},
        {{f0, "--output-size", "2000x1500", "-o", out}, {"zoom ratio", "outside 1..30"}},
        {{f0, "--rect", "0,0,100,10", "-o", out}, {"--rect", "outside"}},
        {{f0, "--params", file("nope.xml"), "-o", out}, {"nope.xml"}},
        {{f0, "-o", file("no/folder/out.png")}, {"no/folder", "cannot write"}},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = c.args;
        args.insert(args.end(), {"--cache-dir", cache});
        const Outcome o = run(args);
        EXPECT_EQ(o.code, 1) << o.err;
        const std::vector<std::string> lines = problems(o.err);
        ASSERT_EQ(lines.size(), 1u) << o.err;
        for (const char* s : c.says)
            EXPECT_NE(lines[0].find(s), std::string::npos) << lines[0] << " lacks " << s;
        EXPECT_EQ(leftovers({f0, small, odd, text, raw}), std::vector<std::string>{}) << lines[0];
    }
}

TEST_F(TavrinSr, EveryOutputFormatHoldsTheFrameTheLibraryCopied) {
    // With the bypass switch the library copies the first frame to the output, so the files
    // written must hold exactly that frame in each container.
    const tavio::RgbImage first = scene(64, 48, 0, 0);
    const std::string f0 = writeFrame("a.png", first);
    const std::string f1 = writeFrame("b.png", scene(64, 48, 3, 1));
    const tavio::RawFrame expected =
        tavio::packRaw(tavio::rgbToYuv420(first, 8), tavio::RawFormat::Nv12);
    const tavio::RgbImage expected_rgb = tavio::yuv420ToRgb(tavio::unpackRaw(expected));
    const std::vector<std::string> bypass = {"--output-size", "64x48",
                                             "--prop",        "debug.tavrin.keld.enable=1",
                                             "--prop",        "debug.tavrin.keld.bypass=1",
                                             "--cache-dir",   file("cache")};
    std::vector<std::string> inputs = {f0, f1};
    for (const char* name : {"out.yuv", "out.png", "out.JPG"}) {
        std::vector<std::string> args = {f0, f1, "-o", file(name)};
        args.insert(args.end(), bypass.begin(), bypass.end());
        const Outcome o = run(args);
        ASSERT_EQ(o.code, 0) << o.err;
        for (const char* line : {"status: TAV_OK\n", "base frame: ", "merge limit: ", "time: "})
            EXPECT_NE(o.out.find(line), std::string::npos) << o.out;
        inputs.push_back(file(name));
    }
    EXPECT_EQ(slurp(file("out.yuv")), std::string(expected.bytes.begin(), expected.bytes.end()));
    tavio::RgbImage png, jpg;
    std::string error;
    ASSERT_TRUE(tavio::readImage(file("out.png"), &png, &error)) << error;
    EXPECT_EQ(png.rgb, expected_rgb.rgb);
    ASSERT_TRUE(tavio::readImage(file("out.JPG"), &jpg, &error)) << error;
    ASSERT_EQ(jpg.rgb.size(), expected_rgb.rgb.size());
    double mse = 0;
    for (size_t i = 0; i < jpg.rgb.size(); ++i)
        mse += std::pow(double(jpg.rgb[i]) - expected_rgb.rgb[i], 2);
    EXPECT_GT(10 * std::log10(255.0 * 255.0 * jpg.rgb.size() / mse), 30.0);

    // Raw frames in, raw frame out: an NV21 burst comes back byte for byte.
    const tavio::RawFrame nv21 =
        tavio::packRaw(tavio::rgbToYuv420(first, 8), tavio::RawFormat::Nv21);
    ASSERT_TRUE(tavio::writeRaw(file("in.yuv"), nv21, &error)) << error;
    std::vector<std::string> args = {
        file("in.yuv"), "--size", "64x48", "--format", "nv21", "-o", file("raw_out.yuv")};
    args.insert(args.end(), bypass.begin(), bypass.end());
    const Outcome o = run(args);
    ASSERT_EQ(o.code, 0) << o.err;
    EXPECT_EQ(slurp(file("raw_out.yuv")), slurp(file("in.yuv")));
    inputs.insert(inputs.end(), {file("in.yuv"), file("raw_out.yuv")});
    EXPECT_EQ(leftovers(inputs), std::vector<std::string>{});
}

TEST_F(TavrinSr, AFullRunWritesTheWholeOutputOrNothing) {
    // Whatever the engine makes of it, the program either succeeds with an output of the asked
    // size or fails with one message and no file: never a partial output.
    std::vector<std::string> inputs;
    std::vector<std::string> args;
    const int32_t shifts[4][2] = {{0, 0}, {2, 1}, {-1, 2}, {1, -2}};
    for (int k = 0; k < 4; ++k) {
        inputs.push_back(writeFrame("f" + std::to_string(k) + ".png",
                                    scene(96, 64, shifts[k][0], shifts[k][1], 16)));
        args.push_back(inputs.back());
    }
    // The same burst as packed 10-bit raw files.
    std::vector<std::string> raw_args;
    for (int k = 0; k < 4; ++k) {
        const std::string name = file("f" + std::to_string(k) + ".yuv");
        std::string error;
        ASSERT_TRUE(tavio::writeRaw(
            name,
            tavio::packRaw(tavio::rgbToYuv420(scene(96, 64, shifts[k][0], shifts[k][1], 16), 10),
                           tavio::RawFormat::P10),
            &error))
            << error;
        inputs.push_back(name);
        raw_args.push_back(name);
    }
    raw_args.insert(raw_args.end(), {"--size", "96x64"});
    struct Variant {
        const std::vector<std::string>* frames;
        const char* format;
        const char* out;
    } variants[] = {{&args, "nv12", "png_nv12.png"},
                    {&args, "p10", "png_p10.png"},
                    {&raw_args, "p10", "raw_p10.png"}};
    for (const Variant& v : variants) {
        const std::string out = file(v.out);
        std::vector<std::string> a = *v.frames;
        a.insert(a.end(), {"--zoom", "2", "--base", "0", "--iso", "200", "--format", v.format,
                           "--cache-dir", file("cache"), "-o", out});
        const Outcome o = run(a);
        ASSERT_NE(o.code, -1) << "tavrin-sr died: " << o.err;
        if (o.code == 0) {
            tavio::RgbImage im;
            std::string error;
            ASSERT_TRUE(tavio::readImage(out, &im, &error)) << error;
            EXPECT_EQ(im.width, 192);
            EXPECT_EQ(im.height, 128);
            EXPECT_NE(o.out.find("status: TAV_OK"), std::string::npos);
            inputs.push_back(out);
        } else {
            EXPECT_EQ(o.code, 1);
            EXPECT_EQ(problems(o.err).size(), 1u) << o.err;
        }
    }
    EXPECT_EQ(leftovers(inputs), std::vector<std::string>{});
}

}  // namespace
