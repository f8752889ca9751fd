// Training and measuring pairs for the pattern upscaler's banks, and the CPU reference of the
// deblur pass that reads the same banks.
//
// Sensor model (the one make-burst renders with at factor 2): the photograph's BT.601 luma, in
// 8-bit units, is the high-resolution truth; a low-resolution pixel is the mean of a 2 x 2 block
// of it, plus optional Gaussian noise, rounded and clamped to a byte.
//
// Merge proxy: what the merge step makes of four perfectly aligned frames that see the scene
// shifted by (0, 0), (1, 0), (0, 1) and (1, 1) truth pixels. Each frame is enlarged 2x by the
// pattern upscaler, moved back by its shift and the four are averaged, rounded to bytes. It is
// the picture the deblur pass is trained and scored on.
//
// Deblur reference: the 5 x 5 kernel of a pixel's class, where the class is the pattern index of
// the merged picture at TAV_DEBLUR_THRESHOLD and the kernel of a class is the bank blend the GPU
// pass uploads: ((256 - w) sum_o A[4k + o] + w sum_o B[4k + o]) 2^-22 for tap k, in float, with
// w = trunc(512 deblur_weight) and deblur_weight = deblur_psf * 2.78.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "merge/upscaler.h"
#include "tools/toolkit/prng.h"

namespace tavtool {

// Pattern threshold of the deblur classes, in 8-bit codes of the merged picture: half the
// upscaler's floor of 8, as a 2x enlargement halves the steps between neighbours.
constexpr int32_t TAV_DEBLUR_THRESHOLD = 4;

struct Luma {
    int32_t width = 0;
    int32_t height = 0;
    std::vector<double> v;  // 8-bit units, not rounded
};

struct Bytes {
    int32_t width = 0;
    int32_t height = 0;
    std::vector<uint8_t> v;
    uint8_t at(int32_t x, int32_t y) const {  // clamped to the picture
        x = x < 0 ? 0 : (x >= width ? width - 1 : x);
        y = y < 0 ? 0 : (y >= height ? height - 1 : y);
        return v[(size_t)y * width + x];
    }
};

// A photograph's luma, cut to even sides. false with `error` when it cannot be read.
bool loadLuma(const std::string& path, Luma* out, std::string* error);
// One of the eight rotations and mirrors (0 is the picture itself).
Luma dihedral(const Luma& in, int32_t transform);
// Rounded and clamped to bytes.
Bytes toBytes(const Luma& in);
// A Gaussian blur of `sigma` pixels (taps to 3 sigma, edges repeated): the softness of a real
// lens and of a merge of imperfectly aligned frames, beyond the sensor's box.
Luma gaussianBlur(const Luma& in, double sigma);
// The sensor: 2 x 2 means of `hr` shifted by (sx, sy) truth pixels (edges repeated), plus noise
// of `sigma` when a generator is given.
Bytes sensorFrame(const Luma& hr, int32_t sx, int32_t sy, double sigma, Prng* prng);
// The pattern index of (x, y) at threshold t, edges repeated: the engine's classification.
uint16_t patternIndex(const Bytes& b, int32_t x, int32_t y, int32_t t);

// The library's upscaler on its own pool, with any bank in place of the shipped blend.
struct UpscalerRig {
    std::vector<uint8_t> region;
    tav_sr2_MemPool pool;
    tav_sr2_Upscaler u;
};
// threshold: the pattern threshold; false when the pool or the phase table cannot be had.
bool rigOpen(UpscalerRig* rig, int32_t threshold);
void rigClose(UpscalerRig* rig);
// Points every pattern at `bank` (6561 x 100 i16), which must outlive its use.
void rigUseBank(UpscalerRig* rig, const int16_t* bank);
// The shipped banks blended at `mix` by tav_sr2_Upscaler_blendBanks.
bool rigUseBlend(UpscalerRig* rig, double mix);
Bytes rigUpscale2x(UpscalerRig* rig, const Bytes& lr);

// The merge proxy of `hr` with the rig's current filters; frames get noise of `sigma`.
Bytes mergeProxy(const Luma& hr, UpscalerRig* rig, double sigma, Prng* prng);

// The GPU pass's kernels of every class (6561 x 25 floats) for two banks at deblur_psf.
std::vector<float> deblurKernels(const int16_t* bank_a, const int16_t* bank_b, float deblur_psf);
// The deblur of `merged` by those kernels, rounded and clamped.
Bytes deblurReference(const Bytes& merged, const std::vector<float>& kernels);

// Luma PSNR (peak 255) of two same-size pictures, less `crop` pixels on each side.
double psnrBytes(const Bytes& a, const Bytes& b, int32_t crop);
// Keys' cubic 2x of a low-resolution picture, the reference upscaler.
Bytes bicubic2x(const Bytes& lr);

}  // namespace tavtool
