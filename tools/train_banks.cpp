// train-banks: trains the pattern upscaler's two filter banks and writes them where the library
// build takes them from (data/banks/pattern_bank_0.bin and pattern_bank_1.bin).
//
//   bash scripts/train-banks.sh        (builds this tool and runs it with the defaults below)
//   train-banks --photos DIR --out DIR [--augment 8] [--threads 2] [--ridge 200000]
//               [--soft 0.8] [--noise 1.0] [--deblur-psf 1.0]
//
// Data. Training photographs 001.png to 034.png of the photo folder and nothing else: the
// validation photographs (035 on, and Kodak) are never read. Each is taken in `augment` of its
// eight rotations and mirrors. Pairs follow the sensor model of make-burst at factor 2: the BT.601
// luma is the truth, a 2 x 2 mean of it rounded to a byte is the low-resolution pixel.
//
// Classes. A low-resolution pixel's class is its 3^8 pattern at the threshold the engine uses by
// default, max(trunc(noise_level), 8) = 8, computed exactly as the library computes it.
//
// Filters. Per class, a 5 x 5 -> 2 x 2 filter by ridge-regularised least squares, pulled towards
// the filter trained on all data of the bank: F = (X'X + r I)^-1 (X'Y + r F_all). A class with
// few samples thus stays close to the all-data filter and a class never seen gets it exactly.
// r = 200000 (in squared 8-bit codes) is strong: it weighs about as much as a few hundred
// textured samples, and measured on the training photographs' own classes it keeps the per-class
// filters from fitting the noise of their samples (weaker ridges score lower on photographs
// outside the training set).
//
// Bank 0: the sensor model as it is; it is what upscale_bank_mix 0 (the default) uses, and the
// better choice for noisy input as well (at noise sigma 2 it still beats bicubic, where bank 1's
// sharper filters lose to it). Bank 1: soft input, the truth blurred by a Gaussian of 0.8 truth
// pixels before the box, with noise of sigma 1 (classes taken on that picture, as the engine
// would): the softness of a real lens and of a merge of frames aligned to a tenth of a pixel.
// Blending towards it trades fidelity on sharp input for detail recovered from soft input; its
// sharper filters are also what the deblur below needs.
//
// Deblur. The GPU finishing pass reads the same banks in another way: the sum of a class's four
// outputs per tap, as a 5 x 5 kernel on the merged picture at its own size, blended (256 - w, w)
// with w = trunc(512 * 2.78 * deblur_psf); with A and B the two banks' sums (each summing to 4)
// the kernel is A / 4 + (w / 256) (B - A) / 4. Bank 0's sums are close to a unit impulse, since
// the mean of a pixel's four outputs predicts the mean of the four truth pixels, which is the
// low-resolution pixel itself. So the pass's effect lies in B - A. The trainer fits a deblur
// kernel D per class on merge proxies (four frames at the four half-pixel phases, each enlarged
// by bank 0 with noise of sigma 1, aligned and averaged; classes at 4 codes on that picture),
// then sets bank 1's per-tap sums to A + 4 (D - A / 4) / (w_ref / 256), with w_ref from
// deblur_psf 1.0, the top of the shipped tuning's range: the pass applies D exactly there and a
// proportionally smaller step below, so no shipped setting overshoots the trained kernel. Bank 1's
// soft-input filters keep their least-squares fit under that constraint: the excess of each tap's
// sum is taken off its four outputs equally, which is the constrained least-squares solution since
// the four outputs share one normal matrix.
//
// Quantisation: Q12, rounded, then each output's centre tap absorbs the rounding so that every
// output's 25 taps sum to exactly 4096 and a flat picture stays flat. Filters are checked to fit
// the vector form's 16-bit sums.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

#include "tools/imageio/image_io.h"
#include "tools/toolkit/args.h"
#include "tools/toolkit/upscale_pairs.h"

namespace {

using tavtool::Bytes;
using tavtool::Luma;

constexpr int32_t kClasses = TAV_SR2_PATTERN_COUNT;
constexpr int32_t kTaps = 25;
constexpr int32_t kPairs = kTaps * (kTaps + 1) / 2;
constexpr int32_t kLastTrainingPhoto = 34;
constexpr int32_t kUpscaleThreshold = 8;

struct Options {
    std::string photos = "../shared/data/photos/wikipedia";
    std::string out = "data/banks";
    int32_t augment = 8;
    int32_t deblur_augment = 2;
    int32_t threads = 2;
    double ridge = 200000.0;
    double noise = 1.0;
    double soft = 0.8;
    double deblur_psf = 1.0;
};

// Normal equations of every class for `outputs` targets per sample.
struct Stats {
    int32_t outputs = 0;
    std::vector<double> xtx;  // kPairs per class, upper triangle row by row
    std::vector<double> xty;  // kTaps * outputs per class
    std::vector<int64_t> n;
    void open(int32_t o) {
        outputs = o;
        xtx.assign((size_t)kClasses * kPairs, 0.0);
        xty.assign((size_t)kClasses * kTaps * o, 0.0);
        n.assign(kClasses, 0);
    }
    void add(const Stats& other) {
        for (size_t i = 0; i < xtx.size(); ++i)
            xtx[i] += other.xtx[i];
        for (size_t i = 0; i < xty.size(); ++i)
            xty[i] += other.xty[i];
        for (size_t i = 0; i < n.size(); ++i)
            n[i] += other.n[i];
    }
};

// The samples of one picture, sorted by class before they are added up, so that each class's
// sums stay in cache while its samples go in.
struct Samples {
    std::vector<uint16_t> cls;
    std::vector<uint8_t> x;  // kTaps per sample
    std::vector<double> y;   // outputs per sample
};

void accumulate(const Samples& s, Stats* stats) {
    const int32_t o = stats->outputs;
    const size_t count = s.cls.size();
    std::vector<uint32_t> order(count);
    std::vector<uint32_t> start(kClasses + 1, 0);
    for (uint16_t c : s.cls)
        start[c + 1]++;
    for (int32_t c = 0; c < kClasses; ++c)
        start[c + 1] += start[c];
    std::vector<uint32_t> fill(start.begin(), start.end() - 1);
    for (size_t i = 0; i < count; ++i)
        order[fill[s.cls[i]]++] = (uint32_t)i;
    for (int32_t c = 0; c < kClasses; ++c) {
        if (start[c] == start[c + 1]) continue;
        double* a = &stats->xtx[(size_t)c * kPairs];
        double* b = &stats->xty[(size_t)c * kTaps * o];
        for (uint32_t j = start[c]; j < start[c + 1]; ++j) {
            const uint32_t i = order[j];
            double x[kTaps];
            for (int32_t k = 0; k < kTaps; ++k)
                x[k] = s.x[(size_t)i * kTaps + k];
            const double* y = &s.y[(size_t)i * o];
            double* row = a;
            for (int32_t p = 0; p < kTaps; ++p) {
                const double xp = x[p];
                for (int32_t q = p; q < kTaps; ++q)
                    row[q - p] += xp * x[q];
                row += kTaps - p;
                for (int32_t t = 0; t < o; ++t)
                    b[p * o + t] += xp * y[t];
            }
        }
        stats->n[c] += start[c + 1] - start[c];
    }
}

void window(const Bytes& b, int32_t x, int32_t y, uint8_t* out) {
    for (int32_t r = 0; r < 5; ++r)
        for (int32_t c = 0; c < 5; ++c)
            out[r * 5 + c] = b.at(x + c - 2, y + r - 2);
}

// Upscaler pairs: each low-resolution pixel against its four truth pixels. The low-resolution
// picture sees the truth softened by a Gaussian of `soft` truth pixels first, when above 0.
void upscalePairs(const Luma& hr, double soft, double sigma, uint64_t seed, Stats* stats) {
    tavtool::Prng prng;
    tavtool::prngSeed(&prng, seed);
    const Bytes lr = tavtool::sensorFrame(soft > 0.0 ? tavtool::gaussianBlur(hr, soft) : hr, 0, 0,
                                          sigma, sigma > 0.0 ? &prng : nullptr);
    Samples s;
    const size_t count = (size_t)lr.width * lr.height;
    s.cls.resize(count);
    s.x.resize(count * kTaps);
    s.y.resize(count * 4);
    for (int32_t y = 0; y < lr.height; ++y) {
        for (int32_t x = 0; x < lr.width; ++x) {
            const size_t i = (size_t)y * lr.width + x;
            s.cls[i] = tavtool::patternIndex(lr, x, y, kUpscaleThreshold);
            window(lr, x, y, &s.x[i * kTaps]);
            for (int32_t o = 0; o < 4; ++o)
                s.y[i * 4 + o] = hr.v[(size_t)(2 * y + (o >> 1)) * hr.width + 2 * x + (o & 1)];
        }
    }
    accumulate(s, stats);
}

// Deblur pairs: each merge-proxy pixel against its truth pixel.
void deblurPairs(const Luma& hr, tavtool::UpscalerRig* rig, uint64_t seed, Stats* stats) {
    tavtool::Prng prng;
    tavtool::prngSeed(&prng, seed);
    const Bytes merged = tavtool::mergeProxy(hr, rig, 1.0, &prng);
    Samples s;
    const size_t count = (size_t)merged.width * merged.height;
    s.cls.resize(count);
    s.x.resize(count * kTaps);
    s.y.resize(count);
    for (int32_t y = 0; y < merged.height; ++y) {
        for (int32_t x = 0; x < merged.width; ++x) {
            const size_t i = (size_t)y * merged.width + x;
            s.cls[i] = tavtool::patternIndex(merged, x, y, tavtool::TAV_DEBLUR_THRESHOLD);
            window(merged, x, y, &s.x[i * kTaps]);
            s.y[i] = hr.v[i];
        }
    }
    accumulate(s, stats);
}

// Solves (A + r I) F = B + r prior for `o` right-hand sides by Cholesky; A is the packed upper
// triangle. false when the matrix is not positive definite.
bool solve(const double* packed, const double* rhs, const double* prior, double r, int32_t o,
           double* f) {
    double a[kTaps][kTaps];
    const double* p = packed;
    for (int32_t i = 0; i < kTaps; ++i)
        for (int32_t j = i; j < kTaps; ++j)
            a[i][j] = a[j][i] = *p++;
    for (int32_t i = 0; i < kTaps; ++i)
        a[i][i] += r;
    for (int32_t j = 0; j < kTaps; ++j) {
        double d = a[j][j];
        for (int32_t k = 0; k < j; ++k)
            d -= a[j][k] * a[j][k];
        if (!(d > 0.0)) return false;
        a[j][j] = std::sqrt(d);
        for (int32_t i = j + 1; i < kTaps; ++i) {
            double v = a[i][j];
            for (int32_t k = 0; k < j; ++k)
                v -= a[i][k] * a[j][k];
            a[i][j] = v / a[j][j];
        }
    }
    for (int32_t t = 0; t < o; ++t) {
        double z[kTaps];
        for (int32_t i = 0; i < kTaps; ++i) {
            double v = rhs[i * o + t] + (prior ? r * prior[i * o + t] : 0.0);
            for (int32_t k = 0; k < i; ++k)
                v -= a[i][k] * z[k];
            z[i] = v / a[i][i];
        }
        for (int32_t i = kTaps - 1; i >= 0; --i) {
            double v = z[i];
            for (int32_t k = i + 1; k < kTaps; ++k)
                v -= a[k][i] * f[k * o + t];
            f[i * o + t] = v / a[i][i];
        }
    }
    return true;
}

// Filters of every class (kTaps * outputs each, tap-major), each pulled towards the all-data
// filter, which is returned in `global`.
std::vector<double> solveAll(const Stats& stats, double ridge, std::vector<double>* global) {
    const int32_t o = stats.outputs;
    Stats all;
    all.open(o);
    for (int32_t c = 0; c < kClasses; ++c) {
        for (int32_t i = 0; i < kPairs; ++i)
            all.xtx[i] += stats.xtx[(size_t)c * kPairs + i];
        for (int32_t i = 0; i < kTaps * o; ++i)
            all.xty[i] += stats.xty[(size_t)c * kTaps * o + i];
    }
    global->assign((size_t)kTaps * o, 0.0);
    solve(all.xtx.data(), all.xty.data(), nullptr, 1.0, o, global->data());
    std::vector<double> filters((size_t)kClasses * kTaps * o);
    int32_t sparse = 0;
    for (int32_t c = 0; c < kClasses; ++c) {
        double* f = &filters[(size_t)c * kTaps * o];
        if (stats.n[c] < kTaps) ++sparse;
        if (!solve(&stats.xtx[(size_t)c * kPairs], &stats.xty[(size_t)c * kTaps * o],
                   global->data(), ridge, o, f))
            std::copy(global->begin(), global->end(), f);
    }
    printf("  %d of %d classes have fewer samples than taps and lean on the all-data filter\n",
           sparse, kClasses);
    return filters;
}

// Q12 with every output's taps summing to 4096 through its centre tap; counts filters whose
// 16-bit vector sums could overflow.
std::vector<int16_t> quantise(const std::vector<double>& filters) {
    std::vector<int16_t> bank((size_t)kClasses * TAV_SR2_PATTERN_TAPS);
    int32_t wide = 0;
    for (int32_t c = 0; c < kClasses; ++c) {
        const double* f = &filters[(size_t)c * TAV_SR2_PATTERN_TAPS];
        int16_t* q = &bank[(size_t)c * TAV_SR2_PATTERN_TAPS];
        for (int32_t o = 0; o < 4; ++o) {
            int32_t sum = 0;
            int32_t magnitude = 0;
            for (int32_t k = 0; k < kTaps; ++k) {
                double v = std::floor(f[k * 4 + o] * 4096.0 + 0.5);
                v = std::min(32767.0, std::max(-32768.0, v));
                q[k * 4 + o] = (int16_t)v;
                sum += q[k * 4 + o];
            }
            q[12 * 4 + o] = (int16_t)(q[12 * 4 + o] + 4096 - sum);
            for (int32_t k = 0; k < kTaps; ++k)
                magnitude += std::abs((int32_t)q[k * 4 + o]);
            // 25 products of at most |coef| * 255 / 256 must stay inside 16 bits.
            if (magnitude * 255 / 256 > 32767) ++wide;
        }
    }
    if (wide > 0)
        printf("  warning: %d outputs may overflow the vector form's 16-bit sums\n", wide);
    return bank;
}

bool writeBank(const std::string& path, const std::vector<int16_t>& bank) {
    std::vector<uint8_t> bytes(bank.size() * 2);
    for (size_t i = 0; i < bank.size(); ++i) {
        const uint16_t v = (uint16_t)bank[i];
        bytes[2 * i] = (uint8_t)(v & 255);
        bytes[2 * i + 1] = (uint8_t)(v >> 8);
    }
    std::string error;
    const bool ok = tavio::writeFileAtomic(
        path,
        [&](FILE* f, std::string* why) {
            if (fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size()) return true;
            *why = "short write";
            return false;
        },
        &error);
    if (!ok) fprintf(stderr, "train-banks: %s: %s\n", path.c_str(), error.c_str());
    return ok;
}

std::vector<Luma> loadPhotos(const std::string& folder) {
    std::vector<Luma> photos;
    for (int32_t i = 1; i <= kLastTrainingPhoto; ++i) {
        char name[16];
        snprintf(name, sizeof(name), "/%03d.png", i);
        Luma luma;
        std::string error;
        if (!tavtool::loadLuma(folder + name, &luma, &error)) {
            fprintf(stderr, "train-banks: %s\n", error.c_str());
            return {};
        }
        photos.push_back(std::move(luma));
    }
    return photos;
}

// Runs `job(photo, transform, stats)` over every photograph and transform on `threads` threads,
// each with its own sums, and adds them up.
template <typename Job>
Stats gather(const std::vector<Luma>& photos, int32_t transforms, int32_t threads, int32_t outputs,
             Job job) {
    std::vector<Stats> parts(threads);
    std::vector<std::thread> pool;
    for (int32_t t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            parts[t].open(outputs);
            int32_t item = 0;
            for (size_t p = 0; p < photos.size(); ++p)
                for (int32_t d = 0; d < transforms; ++d, ++item)
                    if (item % threads == t) job(tavtool::dihedral(photos[p], d), item, &parts[t]);
        });
    }
    for (std::thread& th : pool)
        th.join();
    for (int32_t t = 1; t < threads; ++t)
        parts[0].add(parts[t]);
    return std::move(parts[0]);
}

// Bank 1's per-tap sums set to carry the deblur kernel (see the header).
void imposeDeblur(const std::vector<int16_t>& bank0, const std::vector<double>& deblur,
                  float deblur_psf, std::vector<double>* filters1) {
    const int32_t w = (int32_t)(512.0f * (deblur_psf * 2.78f));
    const double lambda = w / 256.0;
    for (int32_t c = 0; c < kClasses; ++c) {
        double* f = &(*filters1)[(size_t)c * TAV_SR2_PATTERN_TAPS];
        for (int32_t k = 0; k < kTaps; ++k) {
            const int16_t* a = &bank0[(size_t)c * TAV_SR2_PATTERN_TAPS + 4 * k];
            const double sum_a = (a[0] + a[1] + a[2] + a[3]) / 4096.0;
            const double target =
                sum_a + 4.0 * (deblur[(size_t)c * kTaps + k] - sum_a / 4.0) / lambda;
            const double sum_b = f[4 * k] + f[4 * k + 1] + f[4 * k + 2] + f[4 * k + 3];
            for (int32_t o = 0; o < 4; ++o)
                f[4 * k + o] += (target - sum_b) / 4.0;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    const std::vector<tavtool::ArgSpec> specs = {
        {"photos", true, "a folder",
         [&](const std::string& v) { return !(opt.photos = v).empty(); }},
        {"out", true, "a folder", [&](const std::string& v) { return !(opt.out = v).empty(); }},
        {"augment", true, "1..8",
         [&](const std::string& v) { return tavtool::parseIntArg(v, 1, 8, &opt.augment); }},
        {"threads", true, "1..64",
         [&](const std::string& v) { return tavtool::parseIntArg(v, 1, 64, &opt.threads); }},
        {"ridge", true, "a number of at least 1",
         [&](const std::string& v) { return tavtool::parseDoubleArg(v, 1.0, 1e9, &opt.ridge); }},
        {"noise", true, "0..20",
         [&](const std::string& v) { return tavtool::parseDoubleArg(v, 0.0, 20.0, &opt.noise); }},
        {"soft", true, "0..4",
         [&](const std::string& v) { return tavtool::parseDoubleArg(v, 0.0, 4.0, &opt.soft); }},
        {"deblur-psf", true, "0.05..3",
         [&](const std::string& v) {
             return tavtool::parseDoubleArg(v, 0.05, 3.0, &opt.deblur_psf);
         }},
    };
    std::vector<std::string> positional;
    std::string error;
    if (!tavtool::parseArgs(argc, argv, specs, &positional, &error) || !positional.empty()) {
        fprintf(stderr, "train-banks: %s\n",
                error.empty() ? "no positional arguments" : error.c_str());
        return 2;
    }
    const std::vector<Luma> photos = loadPhotos(opt.photos);
    if (photos.empty()) return 1;
    printf("train-banks: %zu training photographs, %d transforms each\n", photos.size(),
           opt.augment);

    printf("bank 0: clean pairs\n");
    Stats clean =
        gather(photos, opt.augment, opt.threads, 4, [&](const Luma& hr, int32_t item, Stats* s) {
            upscalePairs(hr, 0.0, 0.0, 0, s);
            (void)item;
        });
    std::vector<double> global;
    const std::vector<int16_t> bank0 = quantise(solveAll(clean, opt.ridge, &global));
    clean = Stats();

    printf("bank 1: soft pairs (blur sigma %.2f) with noise of sigma %.2f\n", opt.soft, opt.noise);
    Stats soft =
        gather(photos, opt.augment, opt.threads, 4, [&](const Luma& hr, int32_t item, Stats* s) {
            upscalePairs(hr, opt.soft, opt.noise, 1000 + item, s);
        });
    std::vector<double> filters1 = solveAll(soft, opt.ridge, &global);
    soft = Stats();

    printf("deblur: merge proxies enlarged by bank 0, %d transforms each\n", opt.deblur_augment);
    Stats deblur = gather(photos, opt.deblur_augment, opt.threads, 1,
                          [&](const Luma& hr, int32_t item, Stats* s) {
                              tavtool::UpscalerRig rig;
                              if (!tavtool::rigOpen(&rig, kUpscaleThreshold)) return;
                              tavtool::rigUseBank(&rig, bank0.data());
                              deblurPairs(hr, &rig, 2000 + item, s);
                              tavtool::rigClose(&rig);
                          });
    std::vector<double> global_deblur;
    const std::vector<double> kernels = solveAll(deblur, opt.ridge, &global_deblur);
    imposeDeblur(bank0, kernels, (float)opt.deblur_psf, &filters1);
    const std::vector<int16_t> bank1 = quantise(filters1);

    if (!writeBank(opt.out + "/pattern_bank_0.bin", bank0) ||
        !writeBank(opt.out + "/pattern_bank_1.bin", bank1))
        return 1;
    printf("train-banks: wrote %s/pattern_bank_0.bin and pattern_bank_1.bin\n", opt.out.c_str());
    return 0;
}
