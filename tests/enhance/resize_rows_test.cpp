// Row kernels of the bilinear resize: every compiled vector target against the scalar reference
// on awkward widths (the scalar reference is held to the mapping by the operator's tests).
#include "enhance/resize_rows.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <random>
#include <vector>

namespace {

struct Mapping {
    int32_t first, step;
};
Mapping mapping(int32_t sw, int32_t dw) {
    return {(int32_t)((((int64_t)sw - dw) << 15) / (2 * dw)), (int32_t)(((int64_t)sw << 15) / dw)};
}

// Widths below one vector, odd widths, and both directions of scaling.
const int32_t kWidths[] = {1, 2, 3, 4, 5, 7, 8, 15, 16, 17, 31, 33, 64, 65, 130};

class ResizeRowsTest : public ::testing::Test {
protected:
    void TearDown() override { hwy::SetSupportedTargetsForTest(0); }
    std::mt19937 rng{1234};
};

TEST_F(ResizeRowsTest, VectorTargetsEqualScalar) {
    const std::vector<int64_t> targets = hwy::SupportedAndGeneratedTargets();
    ASSERT_FALSE(targets.empty());
    for (int64_t target : targets) {
        hwy::SetSupportedTargetsForTest(target);
        SCOPED_TRACE(hwy::TargetName(target));
        for (int32_t sw : kWidths) {
            for (int32_t dw : kWidths) {
                std::vector<uint8_t> s8(sw);
                std::vector<uint16_t> s16(sw);
                for (int32_t x = 0; x < sw; ++x) {
                    s8[x] = (uint8_t)rng();
                    s16[x] = (uint16_t)rng();
                }
                // The operator's mapping and a shifted one that runs off both ends.
                const Mapping ms[] = {mapping(sw, dw), {-(3 << 15) + 77, (int32_t)(rng() % 90000)}};
                for (const Mapping& m : ms) {
                    std::vector<uint16_t> a(dw), b(dw);
                    tav_sr2_resizeRowsScalar.h_u8(s8.data(), sw, a.data(), dw, m.first, m.step);
                    tav_sr2_resizeRowsVector.h_u8(s8.data(), sw, b.data(), dw, m.first, m.step);
                    ASSERT_EQ(a, b) << "u8 " << sw << " -> " << dw;
                    tav_sr2_resizeRowsScalar.h_u16(s16.data(), sw, a.data(), dw, m.first, m.step);
                    tav_sr2_resizeRowsVector.h_u16(s16.data(), sw, b.data(), dw, m.first, m.step);
                    ASSERT_EQ(a, b) << "u16 " << sw << " -> " << dw;
                }
            }
        }
        for (int32_t n : kWidths) {
            std::vector<uint16_t> b0(n), b1(n), w0(n), w1(n);
            for (int32_t k = 0; k < n; ++k) {
                b0[k] = (uint16_t)(rng() & 0xFF);
                b1[k] = (uint16_t)(rng() & 0xFF);
                w0[k] = (uint16_t)rng();
                w1[k] = (uint16_t)rng();
            }
            for (int32_t f : {0, 1, 16383, 16384, 32767}) {
                std::vector<uint8_t> a8(n), v8(n);
                tav_sr2_resizeRowsScalar.v_u8(b0.data(), b1.data(), a8.data(), n, f);
                tav_sr2_resizeRowsVector.v_u8(b0.data(), b1.data(), v8.data(), n, f);
                ASSERT_EQ(a8, v8) << n << " f " << f;
                std::vector<uint16_t> a16(n), v16(n);
                tav_sr2_resizeRowsScalar.v_u16(w0.data(), w1.data(), a16.data(), n, f);
                tav_sr2_resizeRowsVector.v_u16(w0.data(), w1.data(), v16.data(), n, f);
                ASSERT_EQ(a16, v16) << n << " f " << f;
            }
        }
    }
}

}  // namespace
