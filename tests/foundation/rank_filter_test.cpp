#include "foundation/rank_filter.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>
#include <stdint.h>
#include <string.h>

#include <random>
#include <vector>

#include "foundation/image_format.h"
#include "foundation/rank_filter_rows.h"
#include "tests/foundation/pool_fixtures.h"

namespace {

using tav_fixtures::Heap;
using tav_fixtures::TestImage;
using tav_fixtures::Workers;

// Where the filtered samples of a format sit in a row of plane 0, worked out from the format's
// name for the packed YUV ones.
struct Luma {
    int32_t kind;  // 0 u8, 1 u16, 2 i32, 3 float
    int32_t size;
    int32_t channels;
    int32_t format;
    int32_t offset(int32_t x, int32_t c) const {
        const char* name = tav_sr2_ImageFormat_name(format);
        if (format >= 29 && format <= 34)
            return 3 * x + (int32_t)(strchr(name + 7, 'Y') - name - 7);
        if (format >= 36 && format <= 39) {
            const char* first_y = strchr(name + 7, 'Y');
            const char* y = (x & 1) ? strchr(first_y + 1, 'Y') : first_y;
            return 4 * (x / 2) + (int32_t)(y - name - 7);
        }
        return (x * channels + c) * size;
    }
    double value(const uint8_t* row, int32_t x, int32_t c) const {
        uint8_t bytes[4] = {};
        memcpy(bytes, row + offset(x, c), size);
        uint16_t u16;
        int32_t i32;
        float f32;
        memcpy(&u16, bytes, 2);
        memcpy(&i32, bytes, 4);
        memcpy(&f32, bytes, 4);
        return kind == 1 ? u16 : kind == 2 ? i32 : kind == 3 ? f32 : bytes[0];
    }
};

Luma lumaOf(int32_t format) {
    if (format == 3) return {1, 2, 1, format};
    if (format == 4) return {2, 4, 1, format};
    if (format == 5) return {3, 4, 1, format};
    return {0, 1, format == 9 ? 3 : 1, format};
}

// The cut window written out: every output is the extreme over the in-image neighbours.
std::vector<uint8_t> referenceFilter(const std::vector<uint8_t>& src, int32_t src_pitch,
                                     int32_t src_format, std::vector<uint8_t> dst,
                                     int32_t dst_pitch, int32_t dst_format, int32_t w, int32_t h,
                                     bool max) {
    const Luma in = lumaOf(src_format), out = lumaOf(dst_format);
    for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) {
            for (int32_t c = 0; c < in.channels; ++c) {
                const uint8_t* best = nullptr;
                double best_value = 0;
                for (int32_t yy = y - 1; yy <= y + 1; ++yy) {
                    for (int32_t xx = x - 1; xx <= x + 1; ++xx) {
                        if (yy < 0 || yy >= h || xx < 0 || xx >= w) continue;
                        const uint8_t* row = &src[yy * src_pitch];
                        const double v = in.value(row, xx, c);
                        if (best == nullptr || (max ? v > best_value : v < best_value)) {
                            best = row + in.offset(xx, c);
                            best_value = v;
                        }
                    }
                }
                memcpy(&dst[y * dst_pitch + out.offset(x, c)], best, in.size);
            }
        }
    }
    return dst;
}

uint32_t runFilter(tav_sr2_RankFilter* filter, const tav_sr2_Image* src, tav_sr2_Image* dst,
                   bool max) {
    return max ? tav_sr2_Image_max3x3(filter, src, dst) : tav_sr2_Image_min3x3(filter, src, dst);
}

// Filters a random image with the key (src_format, dst_format) and compares every byte of the
// destination, chroma and padding included, with the reference.
void checkKey(tav_sr2_MemPool* pool, tav_sr2_ThreadPool* tp, int32_t src_format, int32_t dst_format,
              bool in_place, int32_t w, int32_t h, std::mt19937& rng) {
    tav_sr2_RankFilter filter;
    tav_sr2_RankFilter_init(&filter, pool, tp);
    for (bool max : {false, true}) {
        SCOPED_TRACE(testing::Message()
                     << src_format << "," << dst_format << (in_place ? " in place " : " ") << w
                     << "x" << h << (max ? " max" : " min"));
        TestImage src(pool, w, h, src_format);
        src.randomize(rng);
        const std::vector<uint8_t> input = src.snapshot();
        if (in_place) {
            ASSERT_EQ(runFilter(&filter, &src.img, &src.img, max), TAV_OK);
            EXPECT_EQ(src.snapshot(), referenceFilter(input, src.img.pitch[0], src_format, input,
                                                      src.img.pitch[0], dst_format, w, h, max));
        } else {
            TestImage dst(pool, w, h, dst_format);
            dst.randomize(rng);
            const std::vector<uint8_t> before = dst.snapshot();
            ASSERT_EQ(runFilter(&filter, &src.img, &dst.img, max), TAV_OK);
            EXPECT_EQ(dst.snapshot(), referenceFilter(input, src.img.pitch[0], src_format, before,
                                                      dst.img.pitch[0], dst_format, w, h, max));
            EXPECT_EQ(src.snapshot(), input) << "the source changed";
        }
    }
}

const int32_t kInPlaceFormats[] = {1, 35, 44, 45, 46, 47, 48, 49, 3,  4,  5,
                                   9, 29, 30, 31, 32, 33, 34, 36, 37, 38, 39};
const int32_t kOutOfPlacePairs[][2] = {{1, 1},  {3, 3},  {4, 4},  {5, 5},  {9, 9},  {1, 35},
                                       {1, 44}, {1, 45}, {1, 46}, {1, 47}, {1, 48}, {1, 49},
                                       {1, 29}, {1, 30}, {1, 31}, {1, 32}, {1, 33}, {1, 34},
                                       {1, 36}, {1, 37}, {1, 38}, {1, 39}};
const int32_t kSizes[][2] = {{1, 1}, {1, 6}, {6, 1}, {2, 3}, {5, 2}, {37, 5}, {67, 9}, {131, 4}};

// Random samples for a layout; float rows get whole numbers so that no NaN appears.
void fillRow(std::vector<uint8_t>& bytes, int32_t layout, std::mt19937& rng) {
    for (auto& b : bytes)
        b = (uint8_t)rng();
    if (layout != TAV_SR2_RANK_F32) return;
    for (size_t i = 0; i + 4 <= bytes.size(); i += 4) {
        const float f = (float)(int32_t)(rng() % 2001) - 1000.0f;
        memcpy(&bytes[i], &f, 4);
    }
}

int32_t rowBytes(const tav_sr2_RankLayoutInfo& info, int32_t width, bool dst) {
    const int32_t units = width * info.units_per_pixel;
    return units * (dst ? info.dst_stride : info.src_stride) * info.sample_bytes;
}

// Each compiled target in turn: the vector row writes the same bytes as the scalar reference,
// chroma bytes of packed rows included, for widths around every vector size.
TEST(RankFilterRows, VectorEqualsScalarOnEveryTarget) {
    std::mt19937 rng(7);
    const int32_t widths[] = {1, 2, 3, 4, 5, 7, 15, 17, 31, 33, 63, 65, 67, 129, 131, 257};
    const tav_sr2_RankRows* scalar = tav_sr2_rankRowsScalar();
    for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        const tav_sr2_RankRows* vector = tav_sr2_rankRowsVector();
        for (int32_t layout = 0; layout < TAV_SR2_RANK_LAYOUT_COUNT; ++layout) {
            const tav_sr2_RankLayoutInfo& info = tav_sr2_rank_layouts[layout];
            for (int32_t width : widths) {
                std::vector<uint8_t> rows[3];
                for (auto& r : rows) {
                    r.resize(rowBytes(info, width, false));
                    fillRow(r, layout, rng);
                }
                std::vector<uint8_t> expect(rowBytes(info, width, true));
                fillRow(expect, layout, rng);
                for (int32_t op = 0; op < 2; ++op) {
                    std::vector<uint8_t> got = expect;
                    scalar->row[op][layout](rows[0].data(), rows[1].data(), rows[2].data(),
                                            expect.data(), width);
                    vector->row[op][layout](rows[0].data(), rows[1].data(), rows[2].data(),
                                            got.data(), width);
                    ASSERT_EQ(got, expect) << hwy::TargetName(target) << " layout " << layout
                                           << " op " << op << " width " << width;
                }
            }
        }
    }
    hwy::SetSupportedTargetsForTest(0);
}

// 255 rows run on the caller alone, 256 rows are split over every worker; the results match the
// reference either way, band edges and empty bands included.
TEST(RankFilter, ThreadRuleAndBandsMatchTheReference) {
    Heap heap(32 << 20);
    Workers workers(&heap.pool, 3);
    tav_sr2_RankFilter filter;
    tav_sr2_RankFilter_init(&filter, &heap.pool, &workers.tp);
    EXPECT_EQ(tav_sr2_RankFilter_threadCount(&filter, 255), 1);
    EXPECT_EQ(tav_sr2_RankFilter_threadCount(&filter, 256), 3);
    tav_sr2_RankFilter_init(&filter, &heap.pool, nullptr);
    EXPECT_EQ(tav_sr2_RankFilter_threadCount(&filter, 4000), 1);

    std::mt19937 rng(5);
    const int32_t sizes[][2] = {{33, 255}, {70, 256}, {17, 263}};
    for (const auto& size : sizes) {
        for (int32_t format : {1, 48, 3, 5, 9, 31, 38}) {
            checkKey(&heap.pool, &workers.tp, format, format, true, size[0], size[1], rng);
        }
        for (const auto& pair : {std::pair{1, 1}, {4, 4}, {9, 9}, {1, 30}, {1, 39}}) {
            checkKey(&heap.pool, &workers.tp, pair.first, pair.second, false, size[0], size[1],
                     rng);
        }
    }
}

#ifdef TAVRIN_FAULT_INJECTION

// Every allocation of the call fails in turn: the working images, and with workers the posts.
// The status is out of memory, nothing stays allocated, and a failed working image leaves the
// picture untouched.
TEST(RankFilter, AllocationFailuresAreReportedAndLeakNothing) {
    Heap heap(16 << 20);
    Workers workers(&heap.pool, 3);
    std::mt19937 rng(3);
    for (tav_sr2_ThreadPool* tp : {(tav_sr2_ThreadPool*)nullptr, &workers.tp}) {
        tav_sr2_RankFilter filter;
        tav_sr2_RankFilter_init(&filter, &heap.pool, tp);
        TestImage image(&heap.pool, 21, 300, TAV_SR2_FMT_YUV420_SEMIPLANAR);
        image.randomize(rng);
        const std::vector<uint8_t> input = image.snapshot();
        const uint32_t in_use = tav_sr2_MemPool_inUse(&heap.pool);
        tav_sr2_MemPool_injectFailure(0, false);
        ASSERT_EQ(tav_sr2_Image_min3x3(&filter, &image.img, &image.img), TAV_OK);
        const uint32_t allocations = tav_sr2_MemPool_allocCount();
        ASSERT_GE(allocations, 2u);
        for (uint32_t nth = 1; nth <= allocations; ++nth) {
            memcpy(image.img.plane[0], input.data(), input.size());
            tav_sr2_MemPool_injectFailure(nth, false);
            EXPECT_EQ(tav_sr2_Image_min3x3(&filter, &image.img, &image.img), TAV_ERROR_MALLOC)
                << "allocation " << nth;
            EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), in_use) << "allocation " << nth;
            if (nth <= 2) {
                EXPECT_EQ(image.snapshot(), input) << "allocation " << nth;
            }
        }
        tav_sr2_MemPool_injectFailure(0, false);
    }
}
#endif

TEST(RankFilter, RefusedCallsWriteNothing) {
    Heap heap(1 << 20);
    std::mt19937 rng(9);
    tav_sr2_RankFilter filter;
    tav_sr2_RankFilter_init(&filter, &heap.pool, nullptr);
    TestImage a(&heap.pool, 8, 6, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    TestImage b(&heap.pool, 8, 6, TAV_SR2_FMT_YVU420_SEMIPLANAR);
    TestImage narrow(&heap.pool, 7, 6, TAV_SR2_FMT_UINT8);
    TestImage wide(&heap.pool, 8, 6, TAV_SR2_FMT_UINT8);
    for (TestImage* t : {&a, &b, &narrow, &wide})
        t->randomize(rng);
    const std::vector<uint8_t> b_before = b.snapshot(), narrow_before = narrow.snapshot();
    const std::vector<uint8_t> a_before = a.snapshot();
    TestImage c(&heap.pool, 8, 6, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    const uint32_t in_use = tav_sr2_MemPool_inUse(&heap.pool);

    // Key 48,49: out of place, and in place through a record that shares a's pixels.
    EXPECT_EQ(tav_sr2_Image_max3x3(&filter, &a.img, &b.img), TAV_ERROR_UNSUPPORTED);
    tav_sr2_Image alias = a.img;
    alias.format = TAV_SR2_FMT_YVU420_SEMIPLANAR;
    EXPECT_EQ(tav_sr2_Image_min3x3(&filter, &a.img, &alias), TAV_ERROR_UNSUPPORTED);
    // 48,48 is an in-place key only.
    EXPECT_EQ(tav_sr2_Image_max3x3(&filter, &a.img, &c.img), TAV_ERROR_UNSUPPORTED);
    // Sizes that differ, and an empty one.
    EXPECT_EQ(tav_sr2_Image_max3x3(&filter, &wide.img, &narrow.img), TAV_ERROR_UNSUPPORTED);
    tav_sr2_Image empty = wide.img;
    empty.width = 0;
    EXPECT_EQ(tav_sr2_Image_max3x3(&filter, &empty, &empty), TAV_ERROR_UNSUPPORTED);
    EXPECT_EQ(a.snapshot(), a_before);
    EXPECT_EQ(b.snapshot(), b_before);
    EXPECT_EQ(narrow.snapshot(), narrow_before);

    EXPECT_EQ(tav_sr2_Image_max3x3(nullptr, &a.img, &a.img), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_max3x3(&filter, nullptr, &a.img), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_min3x3(&filter, &a.img, nullptr), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), in_use) << "a working image was left behind";
}

}  // namespace
