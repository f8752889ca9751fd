// The program's file work on a burst of 8 frames of 4128 x 3088: reading the frames into the
// library's form, and writing the output in each container, beside the RGB path the program
// used before (RGB decode, double-precision colour conversion, PNG at zlib level 9) in the same
// run. The frames are a photograph of the sample burst enlarged to that size, so the codecs see
// real picture content; they are written once into a temporary folder.
//
//   tavrin_bench --benchmark_filter=ImageFiles
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tools/imageio/image_io.h"

namespace {

constexpr int32_t kWidth = 4128, kHeight = 3088, kFrames = 8;

// The sample burst's first frame, enlarged bilinearly to kWidth x kHeight, moved by k pixels.
tavio::RgbImage enlargedPhoto(const tavio::RgbImage& photo, int32_t k) {
    tavio::RgbImage out;
    out.width = kWidth;
    out.height = kHeight;
    out.rgb.resize(size_t(kWidth) * kHeight * 3);
    for (int32_t y = 0; y < kHeight; ++y) {
        const double sy = (y + k) * double(photo.height - 1) / (kHeight + kFrames);
        const int32_t y0 = int32_t(sy);
        const double fy = sy - y0;
        for (int32_t x = 0; x < kWidth; ++x) {
            const double sx = (x + k) * double(photo.width - 1) / (kWidth + kFrames);
            const int32_t x0 = int32_t(sx);
            const double fx = sx - x0;
            for (int32_t c = 0; c < 3; ++c) {
                auto at = [&](int32_t yy, int32_t xx) {
                    return double(photo.rgb[(size_t(yy) * photo.width + xx) * 3 + c]);
                };
                const double v = (at(y0, x0) * (1 - fx) + at(y0, x0 + 1) * fx) * (1 - fy) +
                                 (at(y0 + 1, x0) * (1 - fx) + at(y0 + 1, x0 + 1) * fx) * fy;
                out.rgb[(size_t(y) * kWidth + x) * 3 + c] = uint16_t(v + 0.5);
            }
        }
    }
    return out;
}

struct Burst {
    std::string folder;
    std::vector<std::string> jpeg, png;
    tavio::RawFrame output;  // an Nv12 frame to write
    bool ok = false;

    Burst() {
        char pattern[] = "/tmp/tavrin_files_bench_XXXXXX";
        if (!mkdtemp(pattern)) return;
        folder = pattern;
        tavio::RgbImage photo;
        std::string error;
        if (!tavio::readImage(std::string(TAVRIN_SOURCE_DIR) + "/data/sample-burst/frame_00.png",
                              &photo, &error))
            return;
        for (int32_t k = 0; k < kFrames; ++k) {
            const tavio::RgbImage big = enlargedPhoto(photo, k);
            jpeg.push_back(folder + "/frame_" + std::to_string(k) + ".jpg");
            png.push_back(folder + "/frame_" + std::to_string(k) + ".png");
            if (!tavio::writeImage(jpeg.back(), big, &error) ||
                !tavio::writeImage(png.back(), big, &error))
                return;
            if (k == 0) output = tavio::rgbToFrame(big, tavio::RawFormat::Nv12);
        }
        ok = true;
    }
    ~Burst() {
        for (const auto* list : {&jpeg, &png})
            for (const std::string& f : *list)
                unlink(f.c_str());
        for (const char* name : {"/out.jpg", "/out.png"})
            unlink((folder + name).c_str());
        rmdir(folder.c_str());
    }
};

Burst& burst() {
    static Burst b;
    return b;
}

// Reading 8 frames the new way: YCbCr JPEG decode or integer RGB rows, on `threads` threads.
void BM_ImageFilesRead(benchmark::State& state) {
    Burst& b = burst();
    if (!b.ok) return state.SkipWithError("could not make the burst");
    const auto& paths = state.range(0) == 0 ? b.jpeg : b.png;
    std::vector<tavio::RawFrame> frames;
    std::vector<std::string> errors;
    for (auto _ : state) {
        if (!tavio::readFrames(paths, tavio::RawFormat::Nv12, int32_t(state.range(1)), &frames,
                               &errors))
            return state.SkipWithError("read failed");
    }
    state.SetLabel(state.range(0) == 0 ? "jpeg" : "png");
    state.counters["MP/s"] = benchmark::Counter(double(kWidth) * kHeight * kFrames / 1e6,
                                                benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ImageFilesRead)
    ->ArgsProduct({{0, 1}, {1, 2}})
    ->ArgNames({"png", "threads"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The reference: RGB decode, double-precision conversion, packing; one thread.
void BM_ImageFilesReadViaRgb(benchmark::State& state) {
    Burst& b = burst();
    if (!b.ok) return state.SkipWithError("could not make the burst");
    const auto& paths = state.range(0) == 0 ? b.jpeg : b.png;
    for (auto _ : state) {
        for (const std::string& path : paths) {
            tavio::RgbImage rgb;
            std::string error;
            if (!tavio::readImage(path, &rgb, &error)) return state.SkipWithError("read failed");
            benchmark::DoNotOptimize(
                tavio::packRaw(tavio::rgbToYuv420(rgb, 8), tavio::RawFormat::Nv12));
        }
    }
    state.SetLabel(state.range(0) == 0 ? "jpeg" : "png");
}
BENCHMARK(BM_ImageFilesReadViaRgb)
    ->Arg(0)
    ->Arg(1)
    ->ArgName("png")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Writing the output: JPEG as YCbCr, PNG at each zlib level (the first argument; 10 is JPEG),
// the fast levels deflated in strips on `threads` threads.
void BM_ImageFilesWrite(benchmark::State& state) {
    Burst& b = burst();
    if (!b.ok) return state.SkipWithError("could not make the burst");
    const bool jpeg = state.range(0) == 10;
    tavio::FrameWriteOptions options;
    options.png_level = jpeg ? 0 : int32_t(state.range(0));
    options.threads = int32_t(state.range(1));
    const std::string path = b.folder + (jpeg ? "/out.jpg" : "/out.png");
    std::string error;
    for (auto _ : state) {
        if (!tavio::writeFrame(path, b.output, options, &error))
            return state.SkipWithError(error.c_str());
    }
    FILE* f = fopen(path.c_str(), "rb");
    if (f) {
        fseek(f, 0, SEEK_END);
        state.counters["MB"] = double(ftell(f)) / 1e6;
        fclose(f);
    }
    state.SetLabel(jpeg ? "jpeg" : "png");
}
BENCHMARK(BM_ImageFilesWrite)
    ->ArgsProduct({{0, 1, 2, 3, 6, 9, 10}, {1, 2}})
    ->ArgNames({"level", "threads"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The reference: double-precision conversion to RGB, then the RGB writers (PNG at level 9).
void BM_ImageFilesWriteViaRgb(benchmark::State& state) {
    Burst& b = burst();
    if (!b.ok) return state.SkipWithError("could not make the burst");
    const bool jpeg = state.range(0) == 1;
    const std::string path = b.folder + (jpeg ? "/out.jpg" : "/out.png");
    std::string error;
    for (auto _ : state) {
        const tavio::RgbImage rgb = tavio::yuv420ToRgb(tavio::unpackRaw(b.output));
        if (!tavio::writeImage(path, rgb, &error, 95, 9)) return state.SkipWithError(error.c_str());
    }
    state.SetLabel(jpeg ? "jpeg" : "png level 9");
}
BENCHMARK(BM_ImageFilesWriteViaRgb)
    ->Arg(0)
    ->Arg(1)
    ->ArgName("jpeg")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
