// Base frame choice, table-driven over brightness and sharpness arrays. Every expected order was
// worked out by hand from the rules of the choice, case by case in the comments.

#include "engine/frame_select.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

struct Case {
    const char* name;
    std::vector<float> brightness;
    std::vector<int32_t> sharpness;
    int32_t base_id;
    int32_t select_frame;
    double skip_ratio;
    int32_t bright_check;
    int32_t merge_cap;
    std::vector<int32_t> order;  // every position 0..n-1
    int32_t count;
};

std::vector<float> flat(size_t n) {
    return std::vector<float>(n, 100.0f);
}

// clang-format off
const Case kCases[] = {
    {"one frame", {80}, {3}, -1, 1, 0.5, 1, 10, {0}, 1},
    {"no frame", {}, {}, -1, 1, 0.5, 1, 10, {}, 0},
    {"nothing enabled keeps slot order", flat(4), {1, 2, 3, 4}, -1, 0, 0.0, 0, 10, {0, 1, 2, 3}, 4},
    {"forced base moves to the front",
     flat(5), {0, 0, 0, 0, 0}, 2, 0, 0.0, 0, 10, {2, 0, 1, 3, 4}, 5},
    {"base out of range is no base", flat(4), {1, 2, 3, 4}, 4, 0, 0.0, 0, 10, {0, 1, 2, 3}, 4},
    // Stable: the two 9s keep slot order.
    {"sort by sharpness, stable", flat(5), {5, 9, 7, 9, 1}, -1, 1, 0.0, 0, 10, {1, 3, 2, 0, 4}, 5},
    // Ratio 0: limit 0; -2 and 0 are not above it, 3 is.
    {"ratio 0 drops only scores of 0 and below",
     flat(4), {4, 0, -2, 3}, -1, 1, 0.0, 0, 10, {0, 3, 1, 2}, 2},
    // Limit trunc(0.5 * 100) = 50: 49 and 50 go, 60 stays.
    {"skip ratio keeps frames above the limit",
     flat(5), {100, 60, 50, 49, 80}, -1, 1, 0.5, 0, 10, {0, 4, 1, 2, 3}, 3},
    // Limit 90: position 1 (20) fails too, so only the base is left.
    {"position 1 failing leaves the base alone",
     flat(3), {100, 10, 20}, -1, 1, 0.9, 0, 10, {0, 2, 1}, 1},
    // Limit trunc(0.35 * 7) = 2 from the first unlocked frame; the base (0) stays in front.
    {"forced base is not sorted and sets no limit",
     flat(6), {1, 5, 3, 0, 7, 2}, 3, 1, 0.35, 0, 10, {3, 4, 1, 2, 5, 0}, 4},
    {"merge cap cuts after sorting",
     flat(8), {1, 2, 3, 4, 5, 6, 7, 8}, -1, 1, 0.0, 0, 3, {7, 6, 5, 4, 3, 2, 1, 0}, 3},
    // Median of 102 101 100 99.5 50 is 100; frame 2 goes to the end.
    {"median brightness, odd count",
     {100, 101, 50, 102, 99.5f}, {0, 0, 0, 0, 0}, -1, 0, 0.0, 1, 10, {0, 1, 3, 4, 2}, 4},
    // Median 100; 103 is exactly 3 off and stays, 103.5 goes.
    {"a difference of exactly 3 fits",
     {100, 103, 103.5f, 97, 100}, {0, 0, 0, 0, 0}, -1, 0, 0.0, 1, 10, {0, 1, 3, 4, 2}, 4},
    // Median (20 + 30) / 2 = 25: every frame is 5 or more off and walks to the end.
    {"median of an even count, all off",
     {10, 20, 30, 40}, {0, 0, 0, 0}, -1, 0, 0.0, 1, 10, {3, 2, 1, 0}, 0},
    // Median 100: 50, 150 and 200 go, in the order met.
    {"all but the normal ones go to the end",
     {50, 100, 150, 100, 200}, {0, 0, 0, 0, 0}, -1, 0, 0.0, 1, 10, {1, 3, 4, 2, 0}, 2},
    // Brightness first, then sharpness over what is left: 0 (sharp but dark) is out.
    {"brightness before sharpness",
     {40, 100, 101, 99}, {50, 1, 3, 2}, -1, 1, 0.0, 1, 10, {2, 3, 1, 0}, 3},
    // Base 2 at 99: frames 3 and 5 differ (2 < n - 3 = 3), so the base holds.
    {"forced base keeps the reference",
     {100, 101, 99, 140, 98, 60}, {0, 0, 0, 0, 0, 0}, 2, 0, 0.0, 1, 10, {2, 0, 1, 4, 5, 3}, 4},
    // Base 0 at 150 with 4 of 7 others off (4 >= n - 3): the median 101 rules, and the base
    // itself walks to the end, followed by 149 and 151.
    {"forced base out of step is replaced",
     {150, 100, 101, 99, 100, 149, 151}, {0, 0, 0, 0, 0, 0, 0}, 0, 0, 0.0, 1, 10,
     {1, 2, 3, 4, 6, 5, 0}, 4},
    // Two off of six is below n - 3: the base holds; 100 goes to the end, then 101 before it.
    {"two off of six keeps the base",
     {150, 100, 101, 149, 152, 151}, {0, 0, 0, 0, 0, 0}, 0, 0, 0.0, 1, 10, {0, 3, 4, 5, 2, 1}, 4},
    // n = 3: 0 differing reaches n - 3 at once; the base is unlocked and sorted like any frame.
    {"three frames never protect a forced base",
     flat(3), {9, 1, 5}, 1, 1, 0.0, 1, 10, {0, 2, 1}, 3},
    {"three frames without the brightness check keep it",
     flat(3), {9, 1, 5}, 1, 1, 0.0, 0, 10, {1, 0, 2}, 3},
    // n = 1 with a forced base: the exception applies, nothing moves.
    {"single forced frame", {30}, {0}, 0, 1, 0.5, 1, 10, {0}, 1},
};
// clang-format on

TEST(ChooseFrames, Table) {
    for (const Case& c : kCases) {
        tav_sr2_FrameChoice choice;
        choice.sharpness = c.sharpness.data();
        choice.brightness = c.brightness.data();
        choice.frame_count = (int32_t)c.brightness.size();
        choice.merge_cap = c.merge_cap;
        choice.base_id = c.base_id;
        choice.select_frame = c.select_frame;
        choice.sharpness_skip_ratio = c.skip_ratio;
        choice.removebrightnessdiff_image_enable = c.bright_check;
        int32_t order[TAV_SR2_PIPELINE_FRAMES];
        for (int32_t& o : order)
            o = -7;
        EXPECT_EQ(tav_sr2_chooseFrames(&choice, order), c.count) << c.name;
        const std::vector<int32_t> got(order, order + c.order.size());
        EXPECT_EQ(got, c.order) << c.name;
        // Positions past the burst are filled, so the whole array stays valid frame slots.
        for (int32_t p = (int32_t)c.order.size(); p < TAV_SR2_PIPELINE_FRAMES; ++p) {
            EXPECT_EQ(order[p], p) << c.name;
        }
    }
}

TEST(ChooseFrames, MedianBrightness) {
    const float odd[] = {5, 1, 9};
    const float even[] = {4, 8, 1, 2};
    EXPECT_EQ(tav_sr2_medianBrightness(odd, 3), 5.0f);
    EXPECT_EQ(tav_sr2_medianBrightness(even, 4), 3.0f);
    EXPECT_EQ(tav_sr2_medianBrightness(even, 1), 4.0f);
    EXPECT_EQ(tav_sr2_medianBrightness(even, 0), 0.0f);
}

}  // namespace
