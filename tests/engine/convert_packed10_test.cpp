// Packed 10-bit frames (code 62) into 8-bit frames, against a reference packer written here from
// the layout: three samples per 32-bit little-endian word in luma, the U/V sample stream packed
// the same way in chroma, rows padded to 6 pixels. Widths are chosen not to be multiples of 6.

#include "engine/convert_packed10.h"

#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <vector>

#include "tests/foundation/pool_fixtures.h"

namespace {

using tav_fixtures::Heap;
using tav_fixtures::TestImage;
using tav_fixtures::Workers;

// Writes sample i of a packed row; bits 30 and 31 of each word get junk that must be ignored.
void packSample(uint8_t* row, int32_t i, uint32_t v, uint32_t junk) {
    uint32_t word;
    memcpy(&word, row + (i / 3) * 4, 4);
    const int shift = 10 * (i % 3);
    word = (word & ~(0x3FFu << shift)) | (v << shift);
    word = (word & 0x3FFFFFFFu) | (junk << 30);
    memcpy(row + (i / 3) * 4, &word, 4);
}

uint8_t expected8(uint32_t v) {
    const uint32_t r = (v + 2) / 4;  // nearest, halves up
    return r > 255 ? 255 : (uint8_t)r;
}

struct Packed {
    int32_t w, h;
    std::vector<uint8_t> luma, chroma;
    std::vector<uint32_t> y, c;  // the samples, c as U0 V0 U1 V1 ...
    int32_t pitch0, pitch1;
    tav_sr2_Image img;

    Packed(int32_t w_, int32_t h_, std::mt19937& rng, int32_t extra = 0) : w(w_), h(h_) {
        const int32_t wu = (w + 5) / 6 * 6;
        pitch0 = wu * 4 / 3 + extra;
        pitch1 = wu * 8 / 6 + extra;
        const int32_t crow = (h + 1) / 2;
        const int32_t pairs = (w + 1) / 2;
        luma.assign((size_t)pitch0 * ((h + 1) & ~1), 0xA5);
        chroma.assign((size_t)pitch1 * crow, 0x5A);
        auto sample = [&]() -> uint32_t {
            const uint32_t edge[] = {0, 1, 2, 3, 1017, 1018, 1021, 1022, 1023};
            return rng() % 3 == 0 ? edge[rng() % 9] : rng() % 1024;
        };
        y.resize((size_t)w * h);
        for (int32_t r = 0; r < h; ++r) {
            for (int32_t x = 0; x < w; ++x) {
                y[(size_t)r * w + x] = sample();
                packSample(&luma[(size_t)r * pitch0], x, y[(size_t)r * w + x], rng() & 3);
            }
        }
        c.resize((size_t)2 * pairs * crow);
        for (int32_t r = 0; r < crow; ++r) {
            for (int32_t i = 0; i < 2 * pairs; ++i) {
                c[(size_t)r * 2 * pairs + i] = sample();
                packSample(&chroma[(size_t)r * pitch1], i, c[(size_t)r * 2 * pairs + i], rng() & 3);
            }
        }
        tav_sr2_Image_init(&img, nullptr);
        tav_sr2_ImagePlanes2 planes = {{luma.data(), chroma.data()}, {pitch0, pitch1}};
        EXPECT_EQ(tav_sr2_Image_setup(&img, w, h, &planes, TAV_SR2_FMT_YUV10B_PACKED_LE_420S),
                  TAV_OK);
    }
};

void expectConverted(const Packed& p, const tav_sr2_Image& d, bool swap) {
    const int32_t pairs = (p.w + 1) / 2;
    for (int32_t r = 0; r < p.h; ++r) {
        for (int32_t x = 0; x < p.w; ++x) {
            ASSERT_EQ(d.plane[0][(size_t)r * d.pitch[0] + x], expected8(p.y[(size_t)r * p.w + x]))
                << p.w << "x" << p.h << " luma " << x << "," << r;
        }
    }
    for (int32_t r = 0; r < (p.h + 1) / 2; ++r) {
        for (int32_t j = 0; j < pairs; ++j) {
            const uint32_t u = p.c[(size_t)r * 2 * pairs + 2 * j];
            const uint32_t v = p.c[(size_t)r * 2 * pairs + 2 * j + 1];
            const uint8_t* out = d.plane[1] + (size_t)r * d.pitch[1] + 2 * j;
            ASSERT_EQ(out[swap ? 1 : 0], expected8(u)) << p.w << "x" << p.h << " U " << j;
            ASSERT_EQ(out[swap ? 0 : 1], expected8(v)) << p.w << "x" << p.h << " V " << j;
        }
    }
}

TEST(ConvertPacked10, MatchesTheReferencePackerOnAwkwardSizes) {
    Heap heap(8u << 20);
    Workers workers(&heap.pool, 3);
    std::mt19937 rng(21);
    const int32_t sizes[][2] = {{1, 1},  {2, 2},   {5, 3},   {7, 5},  {11, 9},
                                {13, 2}, {17, 17}, {35, 37}, {64, 6}, {103, 41}};
    for (const auto& s : sizes) {
        for (int32_t code : {TAV_SR2_FMT_YUV420_SEMIPLANAR, TAV_SR2_FMT_YVU420_SEMIPLANAR}) {
            Packed p(s[0], s[1], rng, (s[0] & 1) ? 4 : 0);
            TestImage dst(&heap.pool, s[0], s[1], code);
            memset(dst.img.plane[0], 0xEE, dst.bytes());
            for (tav_sr2_ThreadPool* tp : {(tav_sr2_ThreadPool*)nullptr, &workers.tp}) {
                ASSERT_EQ(tav_sr2_convertPacked10to8(tp, &dst.img, &p.img), TAV_OK);
                expectConverted(p, dst.img, code == TAV_SR2_FMT_YVU420_SEMIPLANAR);
            }
            // The destination's own row padding is left alone.
            if (dst.img.pitch[0] > s[0]) {
                EXPECT_EQ(dst.img.plane[0][dst.img.pitch[0] - 1], 0xEE);
            }
        }
    }
}

TEST(ConvertPacked10, RefusesWhatItCannotConvert) {
    Heap heap(1u << 20);
    std::mt19937 rng(1);
    Packed p(7, 4, rng);
    TestImage dst(&heap.pool, 7, 4, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    TestImage other(&heap.pool, 8, 4, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    TestImage ten(&heap.pool, 7, 4, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
    EXPECT_EQ(tav_sr2_convertPacked10to8(nullptr, nullptr, &p.img), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_convertPacked10to8(nullptr, &dst.img, nullptr), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_convertPacked10to8(nullptr, &other.img, &p.img), TAV_ERROR_UNSUPPORTED);
    EXPECT_EQ(tav_sr2_convertPacked10to8(nullptr, &ten.img, &p.img), TAV_ERROR_UNSUPPORTED);
    EXPECT_EQ(tav_sr2_convertPacked10to8(nullptr, &dst.img, &dst.img), TAV_ERROR_UNSUPPORTED);
    // Code 62 at width 7 pads to 12 pixels: 16 bytes per row in both planes.
    EXPECT_EQ(p.img.pitch[0], 16);
    p.img.pitch[1] = 15;
    EXPECT_EQ(tav_sr2_convertPacked10to8(nullptr, &dst.img, &p.img), TAV_ERROR_PARAM);
}

}  // namespace
