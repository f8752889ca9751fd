// Training and measuring pairs for the pattern upscaler (see upscale_pairs.h).
#include "tools/toolkit/upscale_pairs.h"

#include <cmath>
#include <cstring>

#include "tools/imageio/image_io.h"
#include "tools/toolkit/metrics.h"

namespace tavtool {

namespace {

constexpr size_t kRigPoolBytes = 64u << 20;

uint8_t clampByte(double v) {
    const double r = std::floor(v + 0.5);
    return (uint8_t)(r < 0.0 ? 0.0 : (r > 255.0 ? 255.0 : r));
}

double hrAt(const Luma& hr, int32_t x, int32_t y) {
    x = x < 0 ? 0 : (x >= hr.width ? hr.width - 1 : x);
    y = y < 0 ? 0 : (y >= hr.height ? hr.height - 1 : y);
    return hr.v[(size_t)y * hr.width + x];
}

// A pool image (an initialised record) holding a copy of `b`.
bool poolPlane(tav_sr2_Image* image, const Bytes& b) {
    if (tav_sr2_Image_alloc(image, b.width, b.height, nullptr, TAV_SR2_FMT_UINT8) != TAV_OK)
        return false;
    for (int32_t y = 0; y < b.height; ++y)
        memcpy(image->plane[0] + (size_t)y * image->pitch[0], &b.v[(size_t)y * b.width],
               (size_t)b.width);
    return true;
}

}  // namespace

bool loadLuma(const std::string& path, Luma* out, std::string* error) {
    tavio::RgbImage rgb;
    if (!tavio::readImage(path, &rgb, error)) return false;
    const double scale = rgb.bits == 16 ? 255.0 / 65535.0 : 1.0;
    out->width = rgb.width & ~1;
    out->height = rgb.height & ~1;
    out->v.resize((size_t)out->width * out->height);
    for (int32_t y = 0; y < out->height; ++y) {
        for (int32_t x = 0; x < out->width; ++x) {
            const uint16_t* p = &rgb.rgb[3 * ((size_t)y * rgb.width + x)];
            out->v[(size_t)y * out->width + x] =
                scale * (0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2]);
        }
    }
    return true;
}

Luma dihedral(const Luma& in, int32_t transform) {
    const bool swap = (transform & 4) != 0;
    Luma out;
    out.width = swap ? in.height : in.width;
    out.height = swap ? in.width : in.height;
    out.v.resize(in.v.size());
    for (int32_t y = 0; y < out.height; ++y) {
        for (int32_t x = 0; x < out.width; ++x) {
            int32_t sx = swap ? y : x;
            int32_t sy = swap ? x : y;
            if (transform & 1) sx = in.width - 1 - sx;
            if (transform & 2) sy = in.height - 1 - sy;
            out.v[(size_t)y * out.width + x] = in.v[(size_t)sy * in.width + sx];
        }
    }
    return out;
}

Bytes toBytes(const Luma& in) {
    Bytes out;
    out.width = in.width;
    out.height = in.height;
    out.v.resize(in.v.size());
    for (size_t i = 0; i < in.v.size(); ++i)
        out.v[i] = clampByte(in.v[i]);
    return out;
}

Luma gaussianBlur(const Luma& in, double sigma) {
    const int32_t radius = (int32_t)std::ceil(3.0 * sigma);
    std::vector<double> taps(2 * radius + 1);
    double sum = 0.0;
    for (int32_t k = -radius; k <= radius; ++k)
        sum += taps[k + radius] = std::exp(-0.5 * k * k / (sigma * sigma));
    for (double& t : taps)
        t /= sum;
    Luma rows = in;
    for (int32_t y = 0; y < in.height; ++y)
        for (int32_t x = 0; x < in.width; ++x) {
            double acc = 0.0;
            for (int32_t k = -radius; k <= radius; ++k)
                acc += taps[k + radius] * hrAt(in, x + k, y);
            rows.v[(size_t)y * in.width + x] = acc;
        }
    Luma out = rows;
    for (int32_t y = 0; y < in.height; ++y)
        for (int32_t x = 0; x < in.width; ++x) {
            double acc = 0.0;
            for (int32_t k = -radius; k <= radius; ++k)
                acc += taps[k + radius] * hrAt(rows, x, y + k);
            out.v[(size_t)y * in.width + x] = acc;
        }
    return out;
}

Bytes sensorFrame(const Luma& hr, int32_t sx, int32_t sy, double sigma, Prng* prng) {
    Bytes out;
    out.width = hr.width / 2;
    out.height = hr.height / 2;
    out.v.resize((size_t)out.width * out.height);
    for (int32_t y = 0; y < out.height; ++y) {
        for (int32_t x = 0; x < out.width; ++x) {
            const int32_t u = 2 * x + sx;
            const int32_t v = 2 * y + sy;
            double mean = 0.25 * (hrAt(hr, u, v) + hrAt(hr, u + 1, v) + hrAt(hr, u, v + 1) +
                                  hrAt(hr, u + 1, v + 1));
            if (prng != nullptr && sigma > 0.0) mean += sigma * prngGauss(prng);
            out.v[(size_t)y * out.width + x] = clampByte(mean);
        }
    }
    return out;
}

uint16_t patternIndex(const Bytes& b, int32_t x, int32_t y, int32_t t) {
    const int32_t c = b.at(x, y);
    int32_t index = 0;
    for (int32_t dy = -1; dy <= 1; ++dy) {
        for (int32_t dx = -1; dx <= 1; ++dx) {
            if (dx == 0 && dy == 0) continue;
            const int32_t n = b.at(x + dx, y + dy);
            index = index * 3 + (c > n + t ? 2 : 0) + (n > c + t ? 1 : 0);
        }
    }
    return (uint16_t)index;
}

bool rigOpen(UpscalerRig* rig, int32_t threshold) {
    rig->region.assign(kRigPoolBytes, 0);
    if (tav_sr2_MemPool_init(&rig->pool, rig->region.data(), rig->region.size()) != TAV_OK)
        return false;
    tav_sr2_Upscaler_init(&rig->u, &rig->pool);
    return tav_sr2_Upscaler_reset(&rig->u) == TAV_OK &&
           tav_sr2_Upscaler_setThreshold(&rig->u, threshold) == TAV_OK;
}

void rigClose(UpscalerRig* rig) {
    tav_sr2_Upscaler_finish(&rig->u);
    tav_sr2_MemPool_finish(&rig->pool);
}

void rigUseBank(UpscalerRig* rig, const int16_t* bank) {
    // The reset returns any blended copies to the pool before the patterns are pointed away.
    const int32_t threshold = rig->u.pattern_threshold;
    tav_sr2_Upscaler_reset(&rig->u);
    tav_sr2_Upscaler_setThreshold(&rig->u, threshold);
    for (int32_t i = 0; i < TAV_SR2_PATTERN_COUNT; ++i)
        rig->u.patterns[i] = bank + (size_t)i * TAV_SR2_PATTERN_TAPS;
}

bool rigUseBlend(UpscalerRig* rig, double mix) {
    return tav_sr2_Upscaler_blendBanks(&rig->u, mix) == TAV_OK;
}

Bytes rigUpscale2x(UpscalerRig* rig, const Bytes& lr) {
    Bytes out;
    out.width = 2 * lr.width;
    out.height = 2 * lr.height;
    out.v.assign((size_t)out.width * out.height, 0);
    tav_sr2_Image src;
    tav_sr2_Image dst;
    tav_sr2_Image_init(&src, &rig->pool);
    tav_sr2_Image_init(&dst, &rig->pool);
    if (poolPlane(&src, lr) && poolPlane(&dst, out) &&
        tav_sr2_Upscaler_upscale2x(&rig->u, &dst, &src) == TAV_OK) {
        for (int32_t y = 0; y < out.height; ++y)
            memcpy(&out.v[(size_t)y * out.width], dst.plane[0] + (size_t)y * dst.pitch[0],
                   (size_t)out.width);
    }
    tav_sr2_Image_finish(&src);
    tav_sr2_Image_finish(&dst);
    return out;
}

Bytes mergeProxy(const Luma& hr, UpscalerRig* rig, double sigma, Prng* prng) {
    std::vector<double> sum(hr.v.size(), 0.0);
    for (int32_t s = 0; s < 4; ++s) {
        const int32_t sx = s & 1;
        const int32_t sy = s >> 1;
        const Bytes up = rigUpscale2x(rig, sensorFrame(hr, sx, sy, sigma, prng));
        // The frame saw truth pixel (u + sx, v + sy) at its (u, v).
        for (int32_t y = 0; y < hr.height; ++y)
            for (int32_t x = 0; x < hr.width; ++x)
                sum[(size_t)y * hr.width + x] += up.at(x - sx, y - sy);
    }
    Bytes out;
    out.width = hr.width;
    out.height = hr.height;
    out.v.resize(sum.size());
    for (size_t i = 0; i < sum.size(); ++i)
        out.v[i] = clampByte(0.25 * sum[i]);
    return out;
}

std::vector<float> deblurKernels(const int16_t* bank_a, const int16_t* bank_b, float deblur_psf) {
    const float weight = deblur_psf * 2.78f;
    const int32_t w = (int32_t)(512.0f * weight);
    const float wa = (float)(256 - w);
    const float wb = (float)w;
    std::vector<float> kernels((size_t)TAV_SR2_PATTERN_COUNT * 25);
    for (int32_t c = 0; c < TAV_SR2_PATTERN_COUNT; ++c) {
        const int16_t* a = bank_a + (size_t)c * TAV_SR2_PATTERN_TAPS;
        const int16_t* b = bank_b + (size_t)c * TAV_SR2_PATTERN_TAPS;
        for (int32_t k = 0; k < 25; ++k) {
            const float sa = (float)(a[4 * k] + a[4 * k + 1] + a[4 * k + 2] + a[4 * k + 3]);
            const float sb = (float)(b[4 * k] + b[4 * k + 1] + b[4 * k + 2] + b[4 * k + 3]);
            kernels[(size_t)c * 25 + k] = (sa * wa + sb * wb) * 0x1.0p-22f;
        }
    }
    return kernels;
}

Bytes deblurReference(const Bytes& merged, const std::vector<float>& kernels) {
    Bytes out = merged;
    for (int32_t y = 0; y < merged.height; ++y) {
        for (int32_t x = 0; x < merged.width; ++x) {
            const float* k =
                &kernels[(size_t)patternIndex(merged, x, y, TAV_DEBLUR_THRESHOLD) * 25];
            float acc = 0.0f;
            for (int32_t r = 0; r < 5; ++r)
                for (int32_t c = 0; c < 5; ++c)
                    acc += k[r * 5 + c] * merged.at(x + c - 2, y + r - 2);
            out.v[(size_t)y * out.width + x] = clampByte(acc);
        }
    }
    return out;
}

double psnrBytes(const Bytes& a, const Bytes& b, int32_t crop) {
    std::vector<uint16_t> wa(a.v.begin(), a.v.end());
    std::vector<uint16_t> wb(b.v.begin(), b.v.end());
    return psnr({wa.data(), a.width, a.height}, {wb.data(), b.width, b.height}, crop, 255.0);
}

Bytes bicubic2x(const Bytes& lr) {
    std::vector<uint16_t> w(lr.v.begin(), lr.v.end());
    const std::vector<uint16_t> up =
        bicubicResize({w.data(), lr.width, lr.height}, 2 * lr.width, 2 * lr.height, 255);
    Bytes out;
    out.width = 2 * lr.width;
    out.height = 2 * lr.height;
    out.v.assign(up.begin(), up.end());
    return out;
}

}  // namespace tavtool
