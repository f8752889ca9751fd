// OpenCV doing the work of the resize, blur, rank filter and depth conversion benchmarks, on the
// same sizes and the same input content, so that one run gives the ratios. Each peer carries its
// tavrin benchmark's name with "OpenCV" appended and the same arguments less the form, so a
// filter on the tavrin name selects both; "workers" is cv::setNumThreads. Counters: megapixels
// per second ("MP/s") counted as the tavrin benchmark counts them.
//
//   tavrin_bench --benchmark_filter='Resize|Blur|RankFilter|DepthConvert|Upscale|GuidedFilter'
//
// Peers: cv::resize INTER_LINEAR; cv::resize INTER_CUBIC for the upscaler's 2x and resampler;
// cv::GaussianBlur with the kernel size OpenCV derives from sigma and repeated borders; cv::dilate
// and cv::erode with the 3 x 3 square (OpenCV's default border leaves the edges out of the window,
// as the rank filter cuts it); Mat::convertTo with scale 4 and 0.25 over the luma and chroma rows
// of a 4000 x 3000 semi-planar frame.
#include <benchmark/benchmark.h>
#include <stdint.h>

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#include <random>

namespace {

const int kFrameWidth = 4000;
const int kFrameHeight = 3000;
// A semi-planar 4:2:0 frame: the luma rows, then half as many rows of interleaved chroma.
const int kFrameRows = kFrameHeight + kFrameHeight / 2;

// The resize and blur benchmarks' content: smooth ramps with some texture, as a photograph has.
cv::Mat photoLike(int width, int height) {
    cv::Mat m(height, width, CV_8UC1);
    std::mt19937 rng(1);
    for (int y = 0; y < height; ++y) {
        uint8_t* row = m.ptr<uint8_t>(y);
        for (int x = 0; x < width; ++x)
            row[x] = (uint8_t)(((x * 7 + y * 3) >> 4) + (rng() & 15));
    }
    return m;
}

// The rank filter and conversion benchmarks' content: a linear congruential byte stream, or
// 10-bit words of it for the deep frame.
cv::Mat noise(int width, int height, int type, uint32_t seed) {
    cv::Mat m(height, width, type);
    const bool words = type == CV_16UC1;
    for (int y = 0; y < height; ++y) {
        uint8_t* row = m.ptr<uint8_t>(y);
        const int bytes = width * (words ? 2 : 1);
        for (int i = 0; i < bytes; ++i) {
            seed = seed * 1664525u + 1013904223u;
            row[i] = words && (i & 1) ? (uint8_t)((seed >> 24) & 3) : (uint8_t)(seed >> 24);
        }
    }
    return m;
}

void setRate(benchmark::State& state, double megapixels) {
    state.counters["MP/s"] =
        benchmark::Counter(megapixels, benchmark::Counter::kIsIterationInvariantRate);
}

void setWorkers(benchmark::State& state, int64_t workers) {
    cv::setNumThreads((int)workers);
    if (cv::getNumThreads() != (int)workers) state.SkipWithError("OpenCV ignored the thread count");
}

// Arguments: source width, height, destination width, height, workers.
void BM_ResizeOpenCV(benchmark::State& state) {
    setWorkers(state, state.range(4));
    const cv::Mat src = photoLike((int)state.range(0), (int)state.range(1));
    cv::Mat dst((int)state.range(3), (int)state.range(2), CV_8UC1);
    for (auto _ : state) {
        cv::resize(src, dst, dst.size(), 0, 0, cv::INTER_LINEAR);
        benchmark::DoNotOptimize(dst.data);
        benchmark::ClobberMemory();
    }
    setRate(state, (double)dst.total() * 1e-6);
}

// The upscaler's peer: INTER_CUBIC from 2000 x 1500 to 4000 x 3000. Arguments: workers.
void cubicUpscale(benchmark::State& state) {
    setWorkers(state, state.range(0));
    const cv::Mat src = photoLike(2000, 1500);
    cv::Mat dst(3000, 4000, CV_8UC1);
    for (auto _ : state) {
        cv::resize(src, dst, dst.size(), 0, 0, cv::INTER_CUBIC);
        benchmark::DoNotOptimize(dst.data);
        benchmark::ClobberMemory();
    }
    setRate(state, (double)dst.total() * 1e-6);
}
void BM_Upscale2xOpenCV(benchmark::State& state) {
    cubicUpscale(state);
}
void BM_UpscalerResampleOpenCV(benchmark::State& state) {
    cubicUpscale(state);
}

// The guided filter's peer: this OpenCV has no ximgproc (no guidedFilter), so the edge-preserving
// filter it has, cv::bilateralFilter, with a 9-pixel diameter, sigma 10 grey levels and 4.5
// pixels, on the same 2000 x 1500 content. Arguments: window (unused by the peer), workers.
void BM_GuidedFilterOpenCV(benchmark::State& state) {
    setWorkers(state, state.range(1));
    const cv::Mat src = photoLike(2000, 1500);
    cv::Mat dst;
    for (auto _ : state) {
        cv::bilateralFilter(src, dst, 9, 10.0, 4.5);
        benchmark::DoNotOptimize(dst.data);
        benchmark::ClobberMemory();
    }
    setRate(state, (double)src.total() * 1e-6);
}

// Arguments: width, height, sigma * 10, workers.
void BM_BlurOpenCV(benchmark::State& state) {
    setWorkers(state, state.range(3));
    const cv::Mat src = photoLike((int)state.range(0), (int)state.range(1));
    cv::Mat dst(src.size(), CV_8UC1);
    const double sigma = state.range(2) / 10.0;
    for (auto _ : state) {
        cv::GaussianBlur(src, dst, cv::Size(), sigma, sigma, cv::BORDER_REPLICATE);
        benchmark::DoNotOptimize(dst.data);
        benchmark::ClobberMemory();
    }
    setRate(state, (double)dst.total() * 1e-6);
}

enum class Rank { kMax, kMin };

void rank3x3(benchmark::State& state, Rank op, bool in_place) {
    setWorkers(state, state.range(0));
    cv::Mat src = noise(kFrameWidth, kFrameHeight, CV_8UC1, 1);
    cv::Mat dst = noise(kFrameWidth, kFrameHeight, CV_8UC1, 2);
    cv::Mat& out = in_place ? src : dst;
    const cv::Mat square = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
    for (auto _ : state) {
        if (op == Rank::kMax) {
            cv::dilate(src, out, square);
        } else {
            cv::erode(src, out, square);
        }
        benchmark::DoNotOptimize(out.data);
        benchmark::ClobberMemory();
    }
    setRate(state, (double)kFrameWidth * kFrameHeight * 1e-6);
}

// 8 to 10 bits is a shift by two (scale 4); 10 to 8 rounds and saturates (scale 0.25).
void convertDepth(benchmark::State& state, bool up) {
    setWorkers(state, state.range(0));
    const cv::Mat narrow = noise(kFrameWidth, kFrameRows, CV_8UC1, 3);
    const cv::Mat deep = noise(kFrameWidth, kFrameRows, CV_16UC1, 4);
    cv::Mat out(kFrameRows, kFrameWidth, up ? CV_16UC1 : CV_8UC1);
    for (auto _ : state) {
        if (up) {
            narrow.convertTo(out, CV_16U, 4.0);
        } else {
            deep.convertTo(out, CV_8U, 0.25);
        }
        benchmark::DoNotOptimize(out.data);
        benchmark::ClobberMemory();
    }
    // Counted per frame pixel, chroma included in the work, as the tavrin benchmark counts it.
    setRate(state, (double)kFrameWidth * kFrameHeight * 1e-6);
}

void BM_RankFilterMax3x3InPlaceOpenCV(benchmark::State& state) {
    rank3x3(state, Rank::kMax, true);
}
void BM_RankFilterMax3x3OutOfPlaceOpenCV(benchmark::State& state) {
    rank3x3(state, Rank::kMax, false);
}
void BM_RankFilterMin3x3OutOfPlaceOpenCV(benchmark::State& state) {
    rank3x3(state, Rank::kMin, false);
}
void BM_DepthConvert8to10OpenCV(benchmark::State& state) {
    convertDepth(state, true);
}
void BM_DepthConvert10to8OpenCV(benchmark::State& state) {
    convertDepth(state, false);
}

void resizeArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"sw", "sh", "dw", "dh", "workers"});
    for (int64_t workers : {1, 2}) {
        bm->Args({4000, 3000, 2000, 1500, workers});  // 12 MP to 3 MP
        bm->Args({2000, 1500, 4000, 3000, workers});  // 3 MP to 12 MP
    }
}

void blurArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"w", "h", "sigma10", "workers"});
    for (int64_t workers : {1, 2}) {
        bm->Args({2000, 1500, 10, workers});
        bm->Args({2000, 1500, 40, workers});
    }
}

void filterArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"window", "workers"});
    for (int64_t workers : {1, 2})
        bm->Args({9, workers});
}

void workerArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"workers"});
    for (int64_t workers : {1, 2})
        bm->Args({workers});
}

#define TAVRIN_PEER(name, args) \
    BENCHMARK(name)->Apply(args)->Unit(benchmark::kMillisecond)->UseRealTime()

TAVRIN_PEER(BM_ResizeOpenCV, resizeArgs);
TAVRIN_PEER(BM_BlurOpenCV, blurArgs);
TAVRIN_PEER(BM_Upscale2xOpenCV, workerArgs);
TAVRIN_PEER(BM_UpscalerResampleOpenCV, workerArgs);
TAVRIN_PEER(BM_RankFilterMax3x3InPlaceOpenCV, workerArgs);
TAVRIN_PEER(BM_RankFilterMax3x3OutOfPlaceOpenCV, workerArgs);
TAVRIN_PEER(BM_RankFilterMin3x3OutOfPlaceOpenCV, workerArgs);
TAVRIN_PEER(BM_DepthConvert8to10OpenCV, workerArgs);
TAVRIN_PEER(BM_DepthConvert10to8OpenCV, workerArgs);
TAVRIN_PEER(BM_GuidedFilterOpenCV, filterArgs);

}  // namespace
