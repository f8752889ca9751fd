// Grain and dither (see dither.h).
//
// The seed table: 256 words of a 32-bit mixing generator started from the centre luma sample.
// Group g (rows g h / 8 up to (g + 1) h / 8) takes words 8g .. 8g + 7 for its luma generators,
// 64 + 8g .. for chroma and 128 + 8g .. for the noise image of modes 1 and 2; a zero word would
// stall a shift register, so it is replaced by a fixed odd constant.
#include "sharpen/dither.h"

#include <string.h>

#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/maths.h"
#include "foundation/row_band.h"
#include "foundation/task_sys.h"
#include "sharpen/unsharp.h"

namespace {

constexpr int32_t kGroups = 8;

struct Generator {
    uint32_t a[4], b[4];
    int32_t used;  // values of the current step already taken, 0..8
};

void seedTable(uint32_t seed, uint32_t* table) {
    uint32_t x = seed * 0x9E3779B9u + 0x7F4A7C15u;
    for (int32_t i = 0; i < 256; ++i) {
        x += 0x9E3779B9u;
        uint32_t z = x;
        z = (z ^ (z >> 16)) * 0x85EBCA6Bu;
        z = (z ^ (z >> 13)) * 0xC2B2AE35u;
        z ^= z >> 16;
        table[i] = z != 0 ? z : 0x2545F491u;
    }
}

Generator generatorAt(const uint32_t* table, int32_t first) {
    Generator g;
    for (int32_t k = 0; k < 4; ++k) {
        g.a[k] = table[first + k];
        g.b[k] = table[first + 4 + k];
    }
    g.used = 8;  // the first value steps the registers
    return g;
}

void step(Generator* g) {
    for (int32_t k = 0; k < 4; ++k) {
        uint32_t a = g->a[k], b = g->b[k];
        a ^= a << 13;
        a ^= a >> 17;
        a ^= a << 15;
        b ^= b << 1;
        b ^= b >> 3;
        b ^= b << 10;
        g->a[k] = a;
        g->b[k] = b;
    }
    g->used = 0;
}

int32_t signedByte(uint32_t word, int32_t shift) {
    return (int32_t)(int8_t)(uint8_t)(word >> shift);
}

// The next noise value, and in *second one from the other half of the same words (the pepper).
int32_t next(Generator* g, int32_t* second) {
    if (g->used == 8) step(g);
    const int32_t lane = g->used & 3, half = (g->used >> 2) * 16;
    const uint32_t a = g->a[lane], b = g->b[lane];
    ++g->used;
    if (second != nullptr) {
        const int32_t other = 16 - half;
        *second = signedByte(a, other) + signedByte(a, other + 8) + signedByte(b, other) +
                  signedByte(b, other + 8);
    }
    return signedByte(a, half) + signedByte(a, half + 8) + signedByte(b, half) +
           signedByte(b, half + 8);
}

int32_t clampTo(int32_t v, int32_t lo, int32_t hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

struct Dither {
    tav_sr2_Image luma, chroma;  // the destination's planes
    const tav_sr2_Image* noise;  // the noise image of modes 1 and 2, when it is being filled
    uint32_t table[256];
    int32_t amplitude, pepper, uv;
    int32_t thr, end, limit;  // weight shape and the sample limit
    bool deep;
};

int32_t sampleAt(const tav_sr2_Image* image, bool deep, int32_t x, int32_t y) {
    return deep ? tav_sr2_rowOf<const uint16_t>(image, 0, y)[x]
                : tav_sr2_rowOf<const uint8_t>(image, 0, y)[x];
}

void setSample(tav_sr2_Image* image, bool deep, int32_t x, int32_t y, int32_t v) {
    if (deep) {
        tav_sr2_rowOf<uint16_t>(image, 0, y)[x] = (uint16_t)v;
    } else {
        tav_sr2_rowOf<uint8_t>(image, 0, y)[x] = (uint8_t)v;
    }
}

int32_t weightOf(const Dither* d, int32_t y) {
    if (y <= d->thr) return 256;
    if (y >= d->end) return 0;
    return 256 * (d->end - y) / (d->end - d->thr);
}

int32_t lumaNoise(const Dither* d, Generator* g, int32_t y) {
    int32_t second = 0;
    const int32_t n = next(g, d->pepper > 0 ? &second : nullptr);
    const int32_t w = weightOf(d, y);
    int32_t v = (0x40000 + n * d->amplitude * w) >> 19;
    if (d->pepper > 0) v += (0x40000 + second * d->pepper * w) >> 19;
    return v;
}

void groupRows(int32_t height, int32_t group, int32_t* y0, int32_t* y1) {
    *y0 = (int32_t)((int64_t)height * group / kGroups);
    *y1 = (int32_t)((int64_t)height * (group + 1) / kGroups);
}

uint32_t lumaGroup(void* arg, int32_t group, tav_sr2_TaskCtx*) {
    Dither* d = static_cast<Dither*>(arg);
    Generator g = generatorAt(d->table, 8 * group);
    int32_t y0, y1;
    groupRows(d->luma.height, group, &y0, &y1);
    for (int32_t y = y0; y < y1; ++y)
        for (int32_t x = 0; x < d->luma.width; ++x) {
            const int32_t v = sampleAt(&d->luma, d->deep, x, y);
            setSample(&d->luma, d->deep, x, y, clampTo(v + lumaNoise(d, &g, v), 0, d->limit));
        }
    return TAV_OK;
}

uint32_t chromaGroup(void* arg, int32_t group, tav_sr2_TaskCtx*) {
    Dither* d = static_cast<Dither*>(arg);
    Generator g = generatorAt(d->table, 64 + 8 * group);
    int32_t y0, y1;
    groupRows(d->chroma.height, group, &y0, &y1);
    const int32_t top = d->deep ? 1023 : 255;
    for (int32_t y = y0; y < y1; ++y)
        for (int32_t x = 0; x < 2 * d->chroma.width; ++x) {
            const int32_t c = d->deep ? tav_sr2_rowOf<const uint16_t>(&d->chroma, 0, y)[x]
                                      : tav_sr2_rowOf<const uint8_t>(&d->chroma, 0, y)[x];
            const int32_t v = clampTo(c + ((next(&g, nullptr) * d->uv + 256) >> 9), 0, top);
            if (d->deep) {
                tav_sr2_rowOf<uint16_t>(&d->chroma, 0, y)[x] = (uint16_t)v;
            } else {
                tav_sr2_rowOf<uint8_t>(&d->chroma, 0, y)[x] = (uint8_t)v;
            }
        }
    return TAV_OK;
}

// The noise image: each sample the luma noise for the frame's luma at the same relative place,
// biased by 512.
uint32_t noiseGroup(void* arg, int32_t group, tav_sr2_TaskCtx*) {
    Dither* d = static_cast<Dither*>(arg);
    tav_sr2_Image* noise = const_cast<tav_sr2_Image*>(d->noise);
    Generator g = generatorAt(d->table, 128 + 8 * group);
    int32_t y0, y1;
    groupRows(noise->height, group, &y0, &y1);
    const int32_t w = d->luma.width, h = d->luma.height;
    for (int32_t y = y0; y < y1; ++y)
        for (int32_t x = 0; x < noise->width; ++x) {
            const int32_t fx = clampTo((int32_t)((int64_t)x * w / noise->width), 0, w - 1);
            const int32_t fy = clampTo((int32_t)((int64_t)y * h / noise->height), 0, h - 1);
            const int32_t v = lumaNoise(d, &g, sampleAt(&d->luma, true, fx, fy)) + 512;
            tav_sr2_rowOf<uint16_t>(noise, 0, y)[x] = (uint16_t)clampTo(v, 0, 65535);
        }
    return TAV_OK;
}

struct AddNoise {
    Dither* d;
    const tav_sr2_Image* noise;
    bool cross;
    int32_t bands;
};

uint32_t addBand(void* arg, int32_t band, int32_t, int32_t) {
    const AddNoise* a = static_cast<const AddNoise*>(arg);
    tav_sr2_Image* luma = &a->d->luma;
    int32_t y0, y1;
    tav_sr2_rowBand(luma->height, band, a->bands, &y0, &y1);
    for (int32_t y = y0; y < y1; ++y) {
        const uint16_t* n0 = tav_sr2_rowOf<const uint16_t>(a->noise, 0, y);
        const uint16_t* n1 = a->cross ? tav_sr2_rowOf<const uint16_t>(a->noise, 0, y + 1) : nullptr;
        uint16_t* row = tav_sr2_rowOf<uint16_t>(luma, 0, y);
        for (int32_t x = 0; x < luma->width; ++x) {
            const int32_t v = a->cross ? row[x] + ((n0[x + 1] - 512) >> 1) + ((n1[x] - 512) >> 1)
                                       : row[x] + ((n0[x] - 512) >> 1);
            row[x] = (uint16_t)clampTo(v, 0, a->cross ? 1023 : 1024);
        }
    }
    return TAV_OK;
}

// Modes 1 and 2 of the 10-bit form.
uint32_t correlated(const tav_sr2_ImageCtx* ctx, Dither* d, int32_t mode) {
    static constexpr tav_sr2_TaskType kNoise = tav_sr2_rowTaskType<noiseGroup>();
    const int32_t w = d->luma.width, h = d->luma.height;
    const bool cross = mode != 1;
    const int32_t nw = cross ? w + 1 : (3 * w) / 4, nh = cross ? h + 1 : (3 * h) / 4;
    tav_sr2_Image noise, full;
    tav_sr2_Image_init(&noise, ctx->pool);
    tav_sr2_Image_init(&full, ctx->pool);
    uint32_t status = tav_sr2_Image_alloc(&noise, nw, nh, nullptr, TAV_SR2_FMT_UINT16);
    if (status == TAV_OK && !cross)
        status = tav_sr2_Image_alloc(&full, w, h, nullptr, TAV_SR2_FMT_UINT16);
    if (status == TAV_OK) {
        d->noise = &noise;
        tav_sr2_TaskSys_run(ctx->tasks, &kNoise, d, kGroups);
        d->noise = nullptr;
    }
    if (status == TAV_OK && !cross) {
        if (nw >= 7)
            status = tav_sr2_Unsharp_band5_16(ctx, &noise, &noise, nullptr, 1.0, 0.5, 300.0, 0.5);
        if (status == TAV_OK)
            status = tav_sr2_Image_resizeStrict(ctx, &full, &noise, &tav_sr2_resizeRowsVector);
    }
    if (status == TAV_OK) {
        const int32_t workers = tav_sr2_ImageCtx_workers(ctx);
        AddNoise add = {d, cross ? &noise : &full, cross, workers < 1 ? 1 : workers};
        status = tav_sr2_ImageCtx_runBands(ctx, add.bands, add.bands, addBand, &add);
    }
    tav_sr2_Image_finish(&full);
    tav_sr2_Image_finish(&noise);
    return status;
}

uint32_t prepare(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src,
                 bool deep, Dither* d) {
    if (ctx == nullptr || dst == nullptr || src == nullptr || src->plane[0] == nullptr)
        return TAV_ERROR_PARAM;
    const bool ok = deep ? tav_sr2_isSemiPlanar10(src->format) : tav_sr2_isSemiPlanar8(src->format);
    if (!ok || dst->format != src->format) return TAV_ERROR_UNSUPPORTED;
    if (!tav_sr2_sameSize(dst, src) || src->width < 2 || src->height < 2) return TAV_ERROR_PARAM;
    if (dst->plane[0] != src->plane[0]) {
        const uint32_t status = tav_sr2_Image_copy(dst, src);
        if (status != TAV_OK) return status;
    }
    uint32_t status = tav_sr2_Image_viewPlane0(&d->luma, dst, 0, 0, dst->width, dst->height);
    if (status == TAV_OK)
        status = tav_sr2_Image_viewChroma(&d->chroma, dst, 0, 0, dst->width, dst->height);
    if (status != TAV_OK) return status;
    d->deep = deep;
    d->noise = nullptr;
    seedTable((uint32_t)sampleAt(&d->luma, deep, dst->width >> 1, dst->height >> 1), d->table);
    return TAV_OK;
}

uint32_t runGroups(const tav_sr2_ImageCtx* ctx, Dither* d, bool luma) {
    static constexpr tav_sr2_TaskType kLuma = tav_sr2_rowTaskType<lumaGroup>();
    static constexpr tav_sr2_TaskType kChroma = tav_sr2_rowTaskType<chromaGroup>();
    return tav_sr2_TaskSys_run(ctx->tasks, luma ? &kLuma : &kChroma, d, kGroups);
}

}  // namespace

int32_t tav_sr2_Dither_amplitude(double level) {
    const double a = 4.0 * tav_sr2_sqrt(level * level * 3.0 + 1.0);
    return a < 512.0 ? (int32_t)a : 512;
}

uint32_t tav_sr2_Dither_run16(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                              const tav_sr2_Image* src, int32_t thr, int32_t, int32_t, int32_t mode,
                              double level, double pepper, double uv) {
    Dither d;
    uint32_t status = prepare(ctx, dst, src, true, &d);
    if (status != TAV_OK) return status;
    d.amplitude = tav_sr2_Dither_amplitude(level);
    d.pepper = pepper > 0.0 ? tav_sr2_Dither_amplitude(pepper) : 0;
    d.uv = tav_sr2_Dither_amplitude(uv);
    d.thr = thr;
    d.end = 768;
    d.limit = 1023;
    if (level > 0.0) status = mode == 0 ? runGroups(ctx, &d, true) : correlated(ctx, &d, mode);
    if (status == TAV_OK && uv > 0.0) status = runGroups(ctx, &d, false);
    return status;
}

uint32_t tav_sr2_Dither_run8(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                             const tav_sr2_Image* src, int32_t thr, int32_t, int32_t, double level,
                             double uv) {
    Dither d;
    uint32_t status = prepare(ctx, dst, src, false, &d);
    if (status != TAV_OK) return status;
    d.amplitude = tav_sr2_Dither_amplitude(level);
    d.pepper = 0;
    d.uv = tav_sr2_Dither_amplitude(uv) >> 1;
    d.thr = clampTo(thr, 0, 128);
    d.end = 192;
    d.limit = 255;
    if (level > 0.0) status = runGroups(ctx, &d, true);
    if (status == TAV_OK && uv > 0.0) status = runGroups(ctx, &d, false);
    return status;
}
