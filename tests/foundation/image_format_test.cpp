#include "foundation/image_format.h"

#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <string>

namespace {

// The format groups written out independently of the library's table: bytes/pixels of each
// plane, vertical shift of the chroma planes, width unit and height shift.
struct Group {
    int first, last;
    int b0, p0, b1, p1, v1, b2, p2, v2, unit, hshift;
};
const Group kGroups[] = {
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},    {1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 1, 0},
    {2, 3, 2, 1, 0, 0, 0, 0, 0, 0, 1, 0},    {4, 5, 4, 1, 0, 0, 0, 0, 0, 0, 1, 0},
    {6, 6, 2, 1, 0, 0, 0, 0, 0, 0, 1, 0},    {7, 7, 4, 1, 0, 0, 0, 0, 0, 0, 1, 0},
    {8, 8, 2, 1, 0, 0, 0, 0, 0, 0, 1, 0},    {9, 10, 3, 1, 0, 0, 0, 0, 0, 0, 1, 0},
    {11, 22, 4, 1, 0, 0, 0, 0, 0, 0, 1, 0},  {23, 23, 4, 1, 0, 0, 0, 0, 0, 0, 1, 0},
    {24, 24, 6, 1, 0, 0, 0, 0, 0, 0, 1, 0},  {25, 28, 16, 1, 0, 0, 0, 0, 0, 0, 1, 0},
    {29, 34, 3, 1, 0, 0, 0, 0, 0, 0, 1, 0},  {35, 35, 1, 1, 1, 1, 0, 1, 1, 0, 1, 0},
    {36, 43, 4, 2, 0, 0, 0, 0, 0, 0, 2, 0},  {44, 44, 1, 1, 1, 2, 0, 1, 2, 0, 2, 0},
    {45, 46, 1, 1, 2, 2, 0, 0, 0, 0, 2, 0},  {47, 47, 1, 1, 1, 2, 1, 1, 2, 1, 2, 1},
    {48, 49, 1, 1, 2, 2, 1, 0, 0, 0, 2, 1},  {50, 50, 2, 1, 2, 2, 0, 2, 2, 0, 2, 0},
    {51, 51, 2, 1, 2, 2, 1, 2, 2, 1, 2, 1},  {52, 53, 2, 1, 4, 2, 1, 0, 0, 0, 2, 1},
    {54, 61, 16, 6, 0, 0, 0, 0, 0, 0, 6, 0}, {62, 62, 4, 3, 8, 6, 1, 0, 0, 0, 6, 1},
    {63, 63, 2, 1, 2, 1, 0, 2, 1, 0, 1, 0},  {64, 64, 2, 1, 2, 2, 0, 2, 2, 0, 2, 0},
    {65, 66, 2, 1, 4, 2, 1, 0, 0, 0, 2, 1},  {67, 67, 4, 1, 4, 2, 0, 4, 2, 0, 2, 0},
    {68, 71, 1, 1, 0, 0, 0, 0, 0, 0, 1, 0},  {72, 75, 2, 1, 0, 0, 0, 0, 0, 0, 1, 0},
    {76, 79, 5, 4, 0, 0, 0, 0, 0, 0, 4, 0},  {80, 83, 2, 1, 0, 0, 0, 0, 0, 0, 1, 0},
    {84, 87, 2, 1, 0, 0, 0, 0, 0, 0, 1, 0},  {88, 88, 3, 1, 0, 0, 0, 0, 0, 0, 1, 0},
    {89, 89, 12, 1, 0, 0, 0, 0, 0, 0, 1, 0},
};

const Group& groupOf(int code) {
    for (const Group& g : kGroups) {
        if (code >= g.first && code <= g.last) return g;
    }
    static const Group none{};
    return none;
}

struct RefLayout {
    int64_t pitch[3], rows[3], size[3], total;
};

RefLayout referenceLayout(int64_t w, int64_t h, int code) {
    const Group& g = groupOf(code);
    const int b[3] = {g.b0, g.b1, g.b2}, p[3] = {g.p0, g.p1, g.p2}, v[3] = {0, g.v1, g.v2};
    const int64_t wu = g.unit == 0 ? 0 : (w + g.unit - 1) / g.unit * g.unit;
    const int64_t hu = (h + (int64_t{1} << g.hshift) - 1) >> g.hshift;
    RefLayout r{};
    for (int i = 0; i < 3; i++) {
        if (b[i] == 0) continue;
        r.pitch[i] = b[i] * wu / p[i];
        r.rows[i] = hu << (g.hshift - v[i]);
        r.size[i] = r.rows[i] * r.pitch[i];
        r.total += r.size[i];
    }
    return r;
}

uint32_t q(int w, int h, int code, uint32_t what) {
    return tav_sr2_ImageFormat_query(w, h, code, what);
}

}  // namespace

TEST(ImageFormat, WorkedFiguresOfTheSemiPlanarFrame) {
    // {width, height, code, what, answer}; 62 is packed 10-bit, three samples a word, unit 6.
    const uint32_t figures[][5] = {{4000, 3000, 48, 4, 4000},
                                   {4000, 3000, 48, 7, 4000},
                                   {4000, 3000, 48, 10, 0},
                                   {4000, 3000, 48, 2, 12000000},
                                   {4000, 3000, 48, 5, 6000000},
                                   {4000, 3000, 48, 0, 18000000},
                                   {4000, 3001, 48, 1, 3002},
                                   {4000, 3001, 48, 6, 1501},
                                   {5, 4, 48, 4, 6},
                                   {5, 4, 48, 7, 6},
                                   {7, 3, 62, 4, 16},
                                   {7, 3, 62, 7, 16},
                                   {7, 3, 62, 6, 2}};
    for (const auto& f : figures)
        EXPECT_EQ(q(f[0], f[1], f[2], f[3]), f[4]) << f[0] << "x" << f[1] << " code " << f[2];
}

TEST(ImageFormat, QueryAgreesWithReferenceForEveryCode) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> small(0, 40), large(0, 9000);
    for (int trial = 0; trial < 40; trial++) {
        const int w = trial % 2 ? small(rng) : large(rng);
        const int h = trial % 3 ? small(rng) : large(rng);
        for (int c = 0; c < TAV_SR2_FORMAT_COUNT; c++) {
            const RefLayout r = referenceLayout(w, h, c);
            const int64_t want[14] = {r.total,    r.rows[0], r.size[0],  r.rows[0], r.pitch[0],
                                      r.size[1],  r.rows[1], r.pitch[1], r.size[2], r.rows[2],
                                      r.pitch[2], r.size[1], r.rows[1],  r.pitch[1]};
            for (uint32_t what = 0; what < 14; what++) {
                ASSERT_EQ(q(w, h, c, what), (uint32_t)want[what])
                    << w << "x" << h << " code " << c << " what " << what;
            }
        }
    }
    EXPECT_EQ(q(-1, 4, 1, 0), 0u);
    EXPECT_EQ(q(4, -1, 1, 0), 0u);
    EXPECT_EQ(q(4, 4, 90, 0), 0u);
    EXPECT_EQ(q(4, 4, -1, 0), 0u);
    EXPECT_EQ(q(4, 4, 1, 14), 0u);
    EXPECT_EQ(q(4, 4, 1, 13), 0u);  // UINT8 has no plane 1
    EXPECT_EQ(q(4, 4, 48, 13), 4u);
}
