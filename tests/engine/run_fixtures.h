// Whole runs through the engine API for tests: scenes (a Kodak photograph or a procedural one),
// host frames of the three input forms made from a scene, an engine in a buffer of exactly the
// budget, and the straightforward reference a run's output is compared with.
//
// The photographs are read with libpng; a test skips when the data folder ($TAVRIN_SHARED_DATA)
// is missing.
#pragma once

#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine/buffer_budget.h"
#include "engine/engine.h"
#include "engine/frame_intake.h"
#include "engine/process.h"
#include "engine/valid_rect.h"
#include "foundation/image_format.h"
#include "tests/common/png_rgb.h"

namespace tav_run {

// An 8-bit 4:2:0 picture: luma, and interleaved chroma pairs at half size in both directions.
struct Scene {
    int32_t width = 0, height = 0;
    std::vector<uint8_t> luma;    // width x height
    std::vector<uint8_t> chroma;  // (width / 2 pairs) x (height / 2), U first
    uint8_t y(int32_t x, int32_t r) const { return luma[size_t(r) * width + x]; }
};

inline uint8_t clampByte(double v) {
    return uint8_t(std::clamp(lround(v), 0l, 255l));
}

// Mirror index into 0..n-1, so that a small photograph tiles a larger frame without seams;
// -1 reads 0, -2 reads 1.
inline int32_t mirror(int32_t i, int32_t n) {
    if (i < 0) i = -1 - i;
    const int32_t m = i % (2 * n);
    return m < n ? m : 2 * n - 1 - m;
}

// An RGB picture as 4:2:0 (BT.601, full range), mirrored out to width x height.
inline Scene sceneFromRgb(const std::vector<uint8_t>& rgb, int32_t rw, int32_t rh, int32_t width,
                          int32_t height) {
    Scene s;
    s.width = width;
    s.height = height;
    s.luma.resize(size_t(width) * height);
    s.chroma.resize(size_t(width) * height / 2);
    auto px = [&](int32_t x, int32_t y, int c) {
        return double(rgb[(size_t(mirror(y, rh)) * rw + mirror(x, rw)) * 3 + c]);
    };
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            s.luma[size_t(y) * width + x] =
                clampByte(0.299 * px(x, y, 0) + 0.587 * px(x, y, 1) + 0.114 * px(x, y, 2));
        }
    }
    for (int32_t y = 0; y < height / 2; ++y) {
        for (int32_t x = 0; x < width / 2; ++x) {
            double u = 0, v = 0;
            for (int32_t k = 0; k < 4; ++k) {
                const int32_t sx = 2 * x + (k & 1), sy = 2 * y + (k >> 1);
                u += -0.168736 * px(sx, sy, 0) - 0.331264 * px(sx, sy, 1) + 0.5 * px(sx, sy, 2);
                v += 0.5 * px(sx, sy, 0) - 0.418688 * px(sx, sy, 1) - 0.081312 * px(sx, sy, 2);
            }
            s.chroma[(size_t(y) * width / 2 + x) * 2] = clampByte(u / 4 + 128);
            s.chroma[(size_t(y) * width / 2 + x) * 2 + 1] = clampByte(v / 4 + 128);
        }
    }
    return s;
}

// Random lattices of three cell sizes read bilinearly and added: structure at every scale, none
// of it periodic, so that frames of it align as photographs do. Grey chroma.
inline Scene valueNoiseScene(int32_t width, int32_t height, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<double> lattice(64 * 64);
    for (double& v : lattice)
        v = double(rng() % 256);
    auto noise = [&](int32_t x, int32_t y, int32_t cell) {
        const int32_t gx = x / cell, gy = y / cell;
        const double fx = double(x % cell) / cell, fy = double(y % cell) / cell;
        auto at = [&](int32_t i, int32_t j) { return lattice[size_t(j % 64) * 64 + i % 64]; };
        return (at(gx, gy) * (1 - fx) + at(gx + 1, gy) * fx) * (1 - fy) +
               (at(gx, gy + 1) * (1 - fx) + at(gx + 1, gy + 1) * fx) * fy;
    };
    Scene s;
    s.width = width;
    s.height = height;
    s.luma.resize(size_t(width) * height);
    s.chroma.assign(size_t(width) * height / 2, 128);
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x)
            s.luma[size_t(y) * width + x] =
                clampByte(0.45 * noise(x, y, 61) + 0.35 * noise(x, y, 17) + 0.2 * noise(x, y, 5));
    return s;
}

// A Kodak photograph mirrored out to width x height; false, with why, when it cannot be read.
inline bool loadKodak(const char* name, int32_t width, int32_t height, Scene* scene,
                      std::string* why) {
    const std::string data = tav_png::sharedData();
    if (data.empty()) {
        *why = "TAVRIN_SHARED_DATA is not set";
        return false;
    }
    const std::string path = data + "/photos/kodak/" + name;
    std::vector<uint8_t> rgb;
    int32_t rw = 0;
    int32_t rh = 0;
    if (!tav_png::readPngRgb(path, &rgb, &rw, &rh)) {
        *why = "cannot read " + path;
        return false;
    }
    *scene = sceneFromRgb(rgb, rw, rh, width, height);
    return true;
}

// Smooth shading, fine stripes and hard-edged blocks: something for every stage to act on.
inline Scene proceduralScene(int32_t width, int32_t height) {
    std::vector<uint8_t> rgb(size_t(width) * height * 3);
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            const double shade = 110 + 60 * sin(x / 53.0) * cos(y / 41.0);
            const double stripes = 25 * sin((x + 2 * y) / 3.1);
            const double block = ((x / 40 + y / 40) % 3 == 0) ? 40 : 0;
            uint8_t* p = &rgb[(size_t(y) * width + x) * 3];
            p[0] = clampByte(shade + stripes + block);
            p[1] = clampByte(shade + stripes);
            p[2] = clampByte(shade - block + x % 7);
        }
    }
    return sceneFromRgb(rgb, width, height, width, height);
}

inline int32_t queryPitch(int32_t w, int32_t format, uint32_t what) {
    return int32_t(tav_sr2_ImageFormat_query(w, 2, format, what));
}

// A host frame of format 48, 49 or 62 holding the scene (for 62 each sample v becomes 4 v, the
// low bits set in every other sample, which the conversion rounds away). Rows carry padding.
struct HostFrame {
    std::vector<uint8_t> planes[2];
    tavrin_KELD_Image record = {};

    HostFrame(const Scene& s, int32_t format) {
        const int32_t w = s.width, h = s.height;
        if (format == TAV_SR2_FMT_YUV10B_PACKED_LE_420S) {
            const int32_t pitch0 = queryPitch(w, format, 4) + 8, pitch1 = queryPitch(w, format, 7);
            planes[0].assign(size_t(pitch0) * h, 0);
            planes[1].assign(size_t(pitch1) * (h / 2), 0);
            for (int32_t y = 0; y < h; ++y) {
                for (int32_t x = 0; x < w; ++x)
                    pack(&planes[0][size_t(y) * pitch0], x, s.y(x, y) * 4u + (x & 1));
            }
            for (int32_t y = 0; y < h / 2; ++y) {
                for (int32_t i = 0; i < w; ++i)
                    pack(&planes[1][size_t(y) * pitch1], i, s.chroma[size_t(y) * w + i] * 4u);
            }
            record = {w, h, planes[0].data(), planes[1].data(), nullptr, pitch0, pitch1, 0};
            return;
        }
        const int32_t pitch = w + 24;
        planes[0].assign(size_t(pitch) * h, 0);
        planes[1].assign(size_t(pitch) * (h / 2), 0);
        const bool swap = format == TAV_SR2_FMT_YVU420_SEMIPLANAR;
        for (int32_t y = 0; y < h; ++y)
            std::copy_n(&s.luma[size_t(y) * w], w, &planes[0][size_t(y) * pitch]);
        for (int32_t y = 0; y < h / 2; ++y) {
            for (int32_t i = 0; i < w; ++i)
                planes[1][size_t(y) * pitch + (i ^ (swap ? 1 : 0))] = s.chroma[size_t(y) * w + i];
        }
        record = {w, h, planes[0].data(), planes[1].data(), nullptr, pitch, pitch, 0};
    }

private:
    static void pack(uint8_t* row, int32_t i, uint32_t v) {
        uint8_t* word = row + (i / 3) * 4;
        const uint32_t bits = v << (10 * (i % 3));
        for (int32_t b = 0; b < 4; ++b)
            word[b] |= uint8_t(bits >> (8 * b));
    }
};

// The host's output of format 48 or 49, with padding at the end of each row that must stay.
struct HostOutput {
    static constexpr uint8_t kPad = 0xA5;
    int32_t width, height, pitch;
    bool swap;
    std::vector<uint8_t> luma, chroma;
    tavrin_KELD_Image record;

    HostOutput(int32_t w, int32_t h, int32_t format)
        : width(w), height(h), pitch(w + 32), swap(format == TAV_SR2_FMT_YVU420_SEMIPLANAR) {
        luma.assign(size_t(pitch) * h, kPad);
        chroma.assign(size_t(pitch) * (h / 2), kPad);
        record = {w, h, luma.data(), chroma.data(), nullptr, pitch, pitch, 0};
    }
    // The picture in the scene's layout (chroma U first).
    Scene picture() const {
        Scene s;
        s.width = width;
        s.height = height;
        for (int32_t y = 0; y < height; ++y)
            s.luma.insert(s.luma.end(), &luma[size_t(y) * pitch], &luma[size_t(y) * pitch] + width);
        for (int32_t y = 0; y < height / 2; ++y) {
            for (int32_t i = 0; i < width; ++i)
                s.chroma.push_back(chroma[size_t(y) * pitch + (i ^ (swap ? 1 : 0))]);
        }
        return s;
    }
    bool paddingKept() const {
        for (int32_t y = 0; y < height; ++y) {
            for (int32_t x = width; x < pitch; ++x) {
                if (luma[size_t(y) * pitch + x] != kPad) return false;
                if (y < height / 2 && chroma[size_t(y) * pitch + x] != kPad) return false;
            }
        }
        return true;
    }
};

// Centre-aligned bilinear resize of the window (x0, y0, w, h) of a plane of cols x rows pixels
// with `channels` interleaved samples (stride in bytes), in doubles, samples outside the window
// (or the plane) clamped to its edge: the straightforward form of the run's final scaling.
inline std::vector<uint8_t> resizeWindow(const uint8_t* plane, int32_t cols, int32_t rows,
                                         int32_t stride, int32_t channels, double x0, double y0,
                                         double w, double h, int32_t ow, int32_t oh) {
    const int32_t first_col = std::max(int32_t(floor(x0)), 0);
    const int32_t last_col = std::min(int32_t(ceil(x0 + w)), cols) - 1;
    const int32_t first_row = std::max(int32_t(floor(y0)), 0);
    const int32_t last_row = std::min(int32_t(ceil(y0 + h)), rows) - 1;
    std::vector<uint8_t> out(size_t(ow) * oh * channels);
    for (int32_t oy = 0; oy < oh; ++oy) {
        const double sy = y0 + (oy + 0.5) * h / oh - 0.5;
        const int32_t iy = int32_t(floor(sy));
        const double fy = sy - iy;
        const int32_t r0 = std::clamp(iy, first_row, last_row);
        const int32_t r1 = std::clamp(iy + 1, first_row, last_row);
        for (int32_t ox = 0; ox < ow; ++ox) {
            const double sx = x0 + (ox + 0.5) * w / ow - 0.5;
            const int32_t ix = int32_t(floor(sx));
            const double fx = sx - ix;
            const int32_t c0 = std::clamp(ix, first_col, last_col);
            const int32_t c1 = std::clamp(ix + 1, first_col, last_col);
            for (int32_t c = 0; c < channels; ++c) {
                auto at = [&](int32_t r, int32_t col) {
                    return double(plane[size_t(r) * stride + size_t(col) * channels + c]);
                };
                const double top = at(r0, c0) * (1 - fx) + at(r0, c1) * fx;
                const double bottom = at(r1, c0) * (1 - fx) + at(r1, c1) * fx;
                out[(size_t(oy) * ow + ox) * channels + c] =
                    clampByte(top * (1 - fy) + bottom * fy);
            }
        }
    }
    return out;
}

// A window of a frame in frame pixels; it need not fall on whole pixels.
struct Window {
    double x, y, width, height;
};

// The zoom window of a run: trunc(output / zoom), centred in the frame.
inline Window zoomWindow(int32_t width, int32_t height, int32_t ow, int32_t oh, float zoom) {
    const int32_t w = int32_t(float(ow) / zoom), h = int32_t(float(oh) / zoom);
    return {double(width / 2 - w / 2), double(height / 2 - h / 2), double(w), double(h)};
}

// The window of the scene resized to the output size, luma and chroma alike.
inline Scene referenceOutput(const Scene& s, const Window& w, int32_t ow, int32_t oh) {
    Scene r;
    r.width = ow;
    r.height = oh;
    r.luma = resizeWindow(s.luma.data(), s.width, s.height, s.width, 1, w.x, w.y, w.width, w.height,
                          ow, oh);
    r.chroma = resizeWindow(s.chroma.data(), s.width / 2, s.height / 2, s.width, 2, w.x / 2,
                            w.y / 2, w.width / 2, w.height / 2, ow / 2, oh / 2);
    return r;
}

inline double psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i)
        sum += double(int(a[i]) - int(b[i])) * double(int(a[i]) - int(b[i]));
    const double mse = sum / double(a.size());
    return mse == 0 ? 99.0 : 10 * log10(255.0 * 255.0 / mse);
}

struct FreeDeleter {
    void operator()(void* p) const { free(p); }
};

// The window of accum_image that the run scaled, in frame pixels: the auto scale over the
// pipeline as the run left it, taken back through the crop and the internal zoom.
inline Window scaledWindow(tav_sr2_Engine* e) {
    const tav_sr2_Pipeline& p = e->pipeline;
    tav_sr2_Rect w;
    EXPECT_EQ(
        tav_sr2_Pipeline_calcAutoScale(&p, p.accum_image.width, p.accum_image.height, nullptr, &w),
        TAV_OK);
    tav_sr2_Rect crop;
    tav_sr2_Engine_workCrop(e, &crop);
    const double sx = double(p.aligned_width) / p.accum_image.width;
    const double sy = double(p.aligned_height) / p.accum_image.height;
    return {crop.left + p.clip_rect.left + w.left * sx, crop.top + p.clip_rect.top + w.top * sy,
            (w.right - w.left) * sx, (w.bottom - w.top) * sy};
}

// One engine in a buffer of exactly its budget, started with four workers.
// Tuning hooks for runs that compare the merge or the scaling with a reference: the chroma
// filter off, and with it sharpening, contrast and structure.
inline void noChromaNr(tav_sr2_SrParams* p) {
    p->c_nr_times = 0;
    p->c_lf_nr_level = 0;
    p->c_hf_nr_enable = 0;
}
inline void noEnhancement(tav_sr2_SrParams* p) {
    noChromaNr(p);
    p->unsharp_level = 0;
    p->structure_level = 0;
    p->lce_level = 0;
}

struct EngineRun {
    int32_t width, height, out_width, out_height;
    float zoom;
    int32_t budget = 0;
    std::unique_ptr<uint8_t, FreeDeleter> buffer;
    tav_sr2_Engine* engine = nullptr;

    EngineRun(int32_t w, int32_t h, int32_t ow, int32_t oh, float z, const char* format,
              int32_t frames = 4, void (*tune)(tav_sr2_SrParams*) = nullptr)
        : width(w), height(h), out_width(ow), out_height(oh), zoom(z) {
        budget = tav_sr2_getBufferSize(w, h, ow, oh, frames, frames, format, z);
        EXPECT_GT(budget, 0);
        buffer.reset(static_cast<uint8_t*>(aligned_alloc(64, (size_t(budget) + 63) & ~size_t(63))));
        EXPECT_EQ(
            tav_sr2_init(&engine, buffer.get(), budget, w, h, ow, oh, frames, frames, 4, format, z),
            TAV_OK);
        if (engine == nullptr) return;
        if (tune != nullptr) {
            tav_sr2_SrParams params;
            EXPECT_EQ(tav_sr2_getParams(&engine, &params), TAV_OK);
            tune(&params);
            EXPECT_EQ(tav_sr2_setParams(&engine, &params), TAV_OK);
        }
        EXPECT_EQ(tav_sr2_start(&engine), TAV_OK);
    }
    ~EngineRun() {
        if (engine != nullptr) tav_sr2_finish(&engine);
    }
    EngineRun(const EngineRun&) = delete;
    EngineRun& operator=(const EngineRun&) = delete;

    void add(const HostFrame& frame, int32_t times) {
        for (int32_t i = 0; i < times; ++i)
            ASSERT_EQ(tav_sr2_addImage(&engine, &frame.record), TAV_OK);
    }
    // Pool bytes the run may use at most: the budget less the engine record.
    int64_t poolBudget() const { return int64_t(budget) - int64_t(sizeof(tav_sr2_Engine)); }
};

}  // namespace tav_run
