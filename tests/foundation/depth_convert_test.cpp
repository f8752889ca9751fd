#include "foundation/depth_convert.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <vector>

#include "foundation/row_band.h"
#include "tests/foundation/pool_fixtures.h"

namespace {

using tav_fixtures::Heap;
using tav_fixtures::TestImage;
using tav_fixtures::Workers;

// The conversion rule, written out by cases rather than by the rounding formula.
uint32_t down(uint32_t v) {
    if (v >= 1022) return 255;
    const uint32_t q = v / 4, r = v % 4;
    return r >= 2 ? q + 1 : q;
}
uint32_t up(uint32_t v) {
    return v << 2;
}

bool isWordFormat(int32_t code) {
    return code == 52 || code == 53 || code == TAV_SR2_FMT_UINT16;
}

// Sample i of row y of a plane whose first byte is at `start`, in the plane's own word size.
uint32_t sampleAt(const tav_sr2_Image& img, const uint8_t* start, int32_t plane, int32_t y,
                  int32_t i) {
    const uint8_t* row = start + y * img.pitch[plane];
    if (!isWordFormat(img.format)) return row[i];
    uint16_t v;
    memcpy(&v, row + 2 * i, 2);
    return v;
}

// Sample i of row y of a plane; set writes one.
uint32_t at(const TestImage& image, int32_t plane, int32_t y, int32_t i) {
    return sampleAt(image.img, image.img.plane[plane], plane, y, i);
}

void set(TestImage& image, int32_t plane, int32_t y, int32_t i, uint32_t v) {
    uint8_t* row = image.img.plane[plane] + y * image.img.pitch[plane];
    if (isWordFormat(image.img.format)) {
        const uint16_t w = (uint16_t)v;
        memcpy(row + 2 * i, &w, 2);
    } else {
        row[i] = (uint8_t)v;
    }
}

// Checks every luma sample and the chroma samples that the half-size chroma view covers; the
// chroma that an odd size leaves outside the view must keep its old value.
void checkPlanes(const TestImage& src, const TestImage& dst, const std::vector<uint8_t>& dst_before,
                 uint32_t (*expect)(uint32_t)) {
    const int32_t w = src.img.width, h = src.img.height;
    for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) {
            ASSERT_EQ(at(dst, 0, y, x), expect(at(src, 0, y, x))) << "luma " << x << "," << y;
        }
    }
    if (src.img.plane[1] == nullptr || dst.img.plane[1] == nullptr) return;
    const uint8_t* before = dst_before.data() + (dst.img.plane[1] - dst.img.plane[0]);
    for (int32_t y = 0; y < (h + 1) / 2; ++y) {
        for (int32_t i = 0; i < 2 * ((w + 1) / 2); ++i) {
            const bool inside = y < h / 2 && i < 2 * (w / 2);
            const uint32_t want =
                inside ? expect(at(src, 1, y, i)) : sampleAt(dst.img, before, 1, y, i);
            ASSERT_EQ(at(dst, 1, y, i), want) << "chroma " << i << "," << y;
        }
    }
}

TEST(DepthConvertRows, RoundingAndSaturationOnEveryTarget) {
    std::vector<uint16_t> all(65536);
    for (uint32_t v = 0; v < 65536; ++v)
        all[v] = (uint16_t)v;
    std::vector<uint8_t> bytes(256);
    for (uint32_t v = 0; v < 256; ++v)
        bytes[v] = (uint8_t)v;

    std::vector<const tav_sr2_DepthRows*> forms = {tav_sr2_depthRowsScalar()};
    for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        forms.push_back(tav_sr2_depthRowsVector());
    }
    hwy::SetSupportedTargetsForTest(0);

    for (const tav_sr2_DepthRows* rows : forms) {
        // Every 16-bit word, from several starting offsets so that tails of all lengths occur.
        for (int32_t skip : {0, 1, 5, 13}) {
            std::vector<uint8_t> out(all.size(), 0xAA);
            rows->down(all.data() + skip, out.data(), (int32_t)all.size() - skip);
            for (uint32_t i = 0; i + skip < all.size(); ++i) {
                ASSERT_EQ(out[i], down(i + skip)) << "v " << i + skip;
            }
        }
        for (int32_t n : {1, 7, 31, 33, 255}) {
            std::vector<uint16_t> wide(256, 0x5555);
            rows->up(bytes.data() + (256 - n), wide.data(), n);
            for (int32_t i = 0; i < n; ++i)
                ASSERT_EQ(wide[i], (256 - n + i) * 4);
            EXPECT_EQ(wide[n], 0x5555) << "wrote past the row";
        }
    }
}

// Both directions on one thread and on four, for sizes even and odd, small and past 256 rows.
TEST(DepthConvert, BothDirectionsConvertEverySample) {
    Heap heap(16 << 20);
    Workers workers(&heap.pool, 4);
    const uint32_t in_use = tav_sr2_MemPool_inUse(&heap.pool);
    std::mt19937 rng(21);
    const int32_t sizes[][2] = {{1, 1}, {2, 2}, {7, 5}, {64, 36}, {130, 258}};
    for (tav_sr2_ThreadPool* tp : {(tav_sr2_ThreadPool*)nullptr, &workers.tp}) {
        for (const auto& size : sizes) {
            const int32_t w = size[0], h = size[1];
            SCOPED_TRACE(testing::Message() << w << "x" << h << (tp ? " workers" : " alone"));
            TestImage narrow(&heap.pool, w, h, TAV_SR2_FMT_YVU420_SEMIPLANAR);
            TestImage deep(&heap.pool, w, h, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
            narrow.randomize(rng);
            deep.randomize(rng);
            std::vector<uint8_t> before = deep.snapshot();
            ASSERT_EQ(tav_sr2_convert8to10(tp, &heap.pool, &deep.img, &narrow.img), TAV_OK);
            checkPlanes(narrow, deep, before, &up);

            // Back, from samples in 0..1023 and some stray high bits.
            for (int32_t plane = 0; plane < 2; ++plane) {
                const int32_t rows = plane == 0 ? h : (h + 1) / 2;
                const int32_t samples = plane == 0 ? w : 2 * ((w + 1) / 2);
                for (int32_t y = 0; y < rows; ++y) {
                    for (int32_t i = 0; i < samples; ++i) {
                        set(deep, plane, y, i, rng() % 8 == 0 ? rng() % 65536 : rng() % 1024);
                    }
                }
            }
            before = narrow.snapshot();
            ASSERT_EQ(tav_sr2_convert10to8(tp, &heap.pool, &narrow.img, &deep.img), TAV_OK);
            checkPlanes(deep, narrow, before, &down);
        }
    }
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), in_use) << "a job's block was left behind";
}

TEST(DepthConvert, RefusedCallsWriteNothing) {
    Heap heap(1 << 20);
    TestImage narrow(&heap.pool, 8, 6, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    TestImage deep(&heap.pool, 8, 6, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
    TestImage short_deep(&heap.pool, 8, 4, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
    TestImage bytes(&heap.pool, 8, 6, TAV_SR2_FMT_UINT8);
    memset(narrow.img.plane[0], 7, narrow.bytes());
    memset(deep.img.plane[0], 9, deep.bytes());
    memset(short_deep.img.plane[0], 9, short_deep.bytes());
    const std::vector<uint8_t> narrow_before = narrow.snapshot(), deep_before = deep.snapshot();
    const std::vector<uint8_t> short_before = short_deep.snapshot();

    const auto to10 = tav_sr2_convert8to10, to8 = tav_sr2_convert10to8;
    const struct {
        decltype(to10) convert;
        tav_sr2_Image *dst, *src;
        uint32_t status;
    } cases[] = {{to10, nullptr, &narrow.img, TAV_ERROR_PARAM},
                 {to10, &deep.img, nullptr, TAV_ERROR_PARAM},
                 {to8, nullptr, &deep.img, TAV_ERROR_PARAM},
                 {to10, &short_deep.img, &narrow.img, TAV_ERROR_UNSUPPORTED},
                 {to10, &narrow.img, &narrow.img, TAV_ERROR_UNSUPPORTED},
                 {to10, &deep.img, &bytes.img, TAV_ERROR_UNSUPPORTED},
                 {to8, &narrow.img, &short_deep.img, TAV_ERROR_UNSUPPORTED},
                 {to8, &bytes.img, &deep.img, TAV_ERROR_UNSUPPORTED},
                 {to8, &deep.img, &narrow.img, TAV_ERROR_UNSUPPORTED}};
    for (const auto& c : cases)
        EXPECT_EQ(c.convert(nullptr, &heap.pool, c.dst, c.src), c.status) << &c - cases;
    EXPECT_EQ(narrow.snapshot(), narrow_before);
    EXPECT_EQ(deep.snapshot(), deep_before);
    EXPECT_EQ(short_deep.snapshot(), short_before);
}

#ifdef TAVRIN_FAULT_INJECTION
#endif

}  // namespace
