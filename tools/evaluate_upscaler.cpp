// evaluate-upscaler: the shipped upscaler banks against bicubic on the validation photographs.
//
//   evaluate-upscaler [--photos ../shared/data/photos] [--threads 2] [--banks DIR] [--noise 2]
//
// --banks measures the pattern_bank_0.bin and pattern_bank_1.bin of a folder (a training run's
// output) in place of the banks built into the library.
//
// For every validation photograph (wikipedia/035.png to 049.png and kodak/*.png; the training
// photographs 001 to 034 are never read) the truth is its BT.601 luma, the input its 2 x 2 box
// mean (the sensor model of make-burst). Columns, luma PSNR in dB against the truth with 8 pixels
// left out at each side:
//   bicubic, mix 0, mix 0.5     the input enlarged 2x by Keys' cubic and by upscale2x with the
//                               banks blended at upscale_bank_mix 0 and 0.5;
//   noisy: bicubic, mix 0, 0.5  the same with Gaussian noise of sigma 2 (--noise) on the input;
//   soft: bicubic, mix 0, 0.5   the same with the truth blurred by a Gaussian of 0.8 truth
//                               pixels before the box (a softer lens or merge);
//   merged, psf 0.3/0.6/1.0     the merge proxy (four aligned frames at the half-pixel phases,
//                               noise sigma 1, enlarged with mix 0 and averaged) and the CPU
//                               reference of the GPU deblur pass on it at three deblur_psf.
// The last lines give the means and the gains that the banks are held to.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "merge/pattern_banks.h"
#include "tools/toolkit/args.h"
#include "tools/toolkit/upscale_pairs.h"

namespace {

using tavtool::Bytes;
using tavtool::Luma;

constexpr int32_t kCrop = 8;
constexpr int32_t kThreshold = 8;  // the engine's default pattern threshold
constexpr float kPsf[3] = {0.3f, 0.6f, 1.0f};
constexpr int32_t kColumns = 13;
constexpr double kSoft = 0.8;  // blur of the soft input, truth pixels

struct Row {
    std::string name;
    double v[kColumns] = {};
    bool ok = false;
};

std::vector<std::string> validationNames() {
    std::vector<std::string> names;
    for (int32_t i = 35; i <= 49; ++i) {
        char name[32];
        snprintf(name, sizeof(name), "wikipedia/%03d.png", i);
        names.push_back(name);
    }
    for (int32_t i = 1; i <= 24; ++i) {
        char name[32];
        snprintf(name, sizeof(name), "kodak/kodim%02d.png", i);
        names.push_back(name);
    }
    return names;
}

// Noise of the noisy columns (--noise).
double g_noise = 2.0;

// Bank blends at mix 0 and 0.5 from files; empty to use the library's own.
std::vector<int16_t> g_mix[2];

void useMix(tavtool::UpscalerRig* rig, int32_t which) {
    if (g_mix[which].empty()) {
        tavtool::rigUseBlend(rig, which ? 0.5 : 0.0);
    } else {
        tavtool::rigUseBank(rig, g_mix[which].data());
    }
}

void measure(const Luma& hr, tavtool::UpscalerRig* rig, const std::vector<float>* kernels,
             Row* row) {
    const Bytes truth = tavtool::toBytes(hr);
    tavtool::Prng prng;
    tavtool::prngSeed(&prng, 7);
    // Inputs: clean, noisy, soft (the truth blurred before the sensor's box).
    for (int32_t kind = 0; kind < 3; ++kind) {
        const double sigma = kind == 1 ? g_noise : 0.0;
        const Bytes lr = tavtool::sensorFrame(kind == 2 ? tavtool::gaussianBlur(hr, kSoft) : hr, 0,
                                              0, sigma, kind == 1 ? &prng : nullptr);
        double* v = row->v + 3 * kind;
        v[0] = tavtool::psnrBytes(tavtool::bicubic2x(lr), truth, kCrop);
        useMix(rig, 0);
        v[1] = tavtool::psnrBytes(tavtool::rigUpscale2x(rig, lr), truth, kCrop);
        useMix(rig, 1);
        v[2] = tavtool::psnrBytes(tavtool::rigUpscale2x(rig, lr), truth, kCrop);
    }
    useMix(rig, 0);
    const Bytes merged = tavtool::mergeProxy(hr, rig, 1.0, &prng);
    row->v[9] = tavtool::psnrBytes(merged, truth, kCrop);
    for (int32_t i = 0; i < 3; ++i)
        row->v[10 + i] =
            tavtool::psnrBytes(tavtool::deblurReference(merged, kernels[i]), truth, kCrop);
    row->ok = true;
}

bool readBank(const std::string& path, std::vector<int16_t>* bank) {
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) return false;
    bank->assign((size_t)TAV_SR2_PATTERN_COUNT * TAV_SR2_PATTERN_TAPS, 0);
    std::vector<uint8_t> bytes(bank->size() * 2);
    const bool ok = fread(bytes.data(), 1, bytes.size(), f) == bytes.size();
    fclose(f);
    for (size_t i = 0; ok && i < bank->size(); ++i)
        (*bank)[i] = (int16_t)(uint16_t)(bytes[2 * i] | (bytes[2 * i + 1] << 8));
    return ok;
}

// Blends two banks as tav_sr2_Upscaler_blendBanks does.
std::vector<int16_t> blend(const std::vector<int16_t>& a, const std::vector<int16_t>& b, double t) {
    const int32_t n = (int32_t)(t * 256.0 + t * 256.0);
    std::vector<int16_t> out(a.size());
    for (size_t e = 0; e < a.size(); ++e)
        out[e] = (int16_t)(((256 - n) * a[e] + n * b[e]) >> 8);
    return out;
}

double mean(const std::vector<Row>& rows, int32_t column) {
    double sum = 0.0;
    for (const Row& r : rows)
        sum += r.v[column];
    return sum / (double)rows.size();
}

double leastGain(const std::vector<Row>& rows, int32_t column, int32_t reference) {
    double least = 1e9;
    for (const Row& r : rows)
        least = std::min(least, r.v[column] - r.v[reference]);
    return least;
}

}  // namespace

int main(int argc, char** argv) {
    std::string folder = "../shared/data/photos";
    int32_t threads = 2;
    std::string banks;
    const std::vector<tavtool::ArgSpec> specs = {
        {"banks", true, "a folder", [&](const std::string& v) { return !(banks = v).empty(); }},
        {"photos", true, "a folder", [&](const std::string& v) { return !(folder = v).empty(); }},
        {"noise", true, "0..20",
         [&](const std::string& v) { return tavtool::parseDoubleArg(v, 0.0, 20.0, &g_noise); }},
        {"threads", true, "1..64",
         [&](const std::string& v) { return tavtool::parseIntArg(v, 1, 64, &threads); }},
    };
    std::vector<std::string> positional;
    std::string error;
    if (!tavtool::parseArgs(argc, argv, specs, &positional, &error) || !positional.empty()) {
        fprintf(stderr, "evaluate-upscaler: %s\n",
                error.empty() ? "no positional arguments" : error.c_str());
        return 2;
    }
    const int16_t* bank_a = tav_sr2_pattern_bank_0;
    const int16_t* bank_b = tav_sr2_pattern_bank_1;
    std::vector<int16_t> file_banks[2];
    if (!banks.empty()) {
        for (int32_t i = 0; i < 2; ++i) {
            const std::string path = banks + "/pattern_bank_" + std::to_string(i) + ".bin";
            if (!readBank(path, &file_banks[i])) {
                fprintf(stderr, "evaluate-upscaler: cannot read %s\n", path.c_str());
                return 1;
            }
        }
        bank_a = file_banks[0].data();
        bank_b = file_banks[1].data();
        g_mix[0] = blend(file_banks[0], file_banks[1], 0.0);
        g_mix[1] = blend(file_banks[0], file_banks[1], 0.5);
    }
    std::vector<float> kernels[3];
    for (int32_t i = 0; i < 3; ++i)
        kernels[i] = tavtool::deblurKernels(bank_a, bank_b, kPsf[i]);
    const std::vector<std::string> names = validationNames();
    std::vector<Row> rows(names.size());
    std::vector<std::thread> pool;
    for (int32_t t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            tavtool::UpscalerRig rig;
            if (!tavtool::rigOpen(&rig, kThreshold)) return;
            for (size_t i = t; i < names.size(); i += threads) {
                Luma hr;
                std::string why;
                rows[i].name = names[i];
                if (tavtool::loadLuma(folder + "/" + names[i], &hr, &why))
                    measure(hr, &rig, kernels, &rows[i]);
                else
                    fprintf(stderr, "evaluate-upscaler: %s\n", why.c_str());
            }
            tavtool::rigClose(&rig);
        });
    }
    for (std::thread& th : pool)
        th.join();
    if (std::any_of(rows.begin(), rows.end(), [](const Row& r) { return !r.ok; })) return 1;

    printf(
        "| photograph | bicubic | mix 0 | mix 0.5 | s2 bicubic | s2 mix 0 | s2 mix 0.5 | "
        "merged | psf 0.3 | psf 0.6 | psf 1.0 |\n");
    printf("|---|---|---|---|---|---|---|---|---|---|---|\n");
    for (const Row& r : rows) {
        printf("| %s |", r.name.c_str());
        for (double v : r.v)
            printf(" %.2f |", v);
        printf("\n");
    }
    printf("| mean |");
    for (int32_t c = 0; c < kColumns; ++c)
        printf(" %.2f |", mean(rows, c));
    printf("\n\n");
    printf("mix 0 over bicubic: mean %+.2f dB, least %+.2f dB\n", mean(rows, 1) - mean(rows, 0),
           leastGain(rows, 1, 0));
    printf("mix 0.5 over bicubic: mean %+.2f dB, least %+.2f dB\n", mean(rows, 2) - mean(rows, 0),
           leastGain(rows, 2, 0));
    printf("noise sigma %g, mix 0 over bicubic: mean %+.2f dB, least %+.2f dB\n", g_noise,
           mean(rows, 4) - mean(rows, 3), leastGain(rows, 4, 3));
    printf("noise sigma %g, mix 0.5 over bicubic: mean %+.2f dB, least %+.2f dB\n", g_noise,
           mean(rows, 5) - mean(rows, 3), leastGain(rows, 5, 3));
    printf("soft input, mix 0 over bicubic: mean %+.2f dB, least %+.2f dB\n",
           mean(rows, 7) - mean(rows, 6), leastGain(rows, 7, 6));
    printf("soft input, mix 0.5 over bicubic: mean %+.2f dB, least %+.2f dB\n",
           mean(rows, 8) - mean(rows, 6), leastGain(rows, 8, 6));
    for (int32_t i = 0; i < 3; ++i)
        printf("deblur at psf %.1f over the merged picture: mean %+.2f dB, least %+.2f dB\n",
               kPsf[i], mean(rows, 10 + i) - mean(rows, 9), leastGain(rows, 10 + i, 9));
    return 0;
}
