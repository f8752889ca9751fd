// tav_sr2_Trans2D: operations on projective transforms.
//
// Every operation returns TAV_OK, or TAV_ERROR_PARAM for a null argument. apply divides exactly
// by the third row. applyQ15 forms the numerators and the denominator with the constant column
// scaled by 2^15 and gives num 2^15 / den; applyInt gives num / den; both round half away from
// zero and saturate to the i32 range (a zero denominator saturates, a NaN gives 0). multiply is
// the matrix product a b and may write over a or b. invert is the adjugate over the determinant;
// when |det| < 1e-16 out becomes the identity and the call returns TAV_ERROR_GENERIC. normalize
// divides the nine entries by sqrt(m0^2 + m4^2 + m8^2) and gives TAV_ERROR_PARAM, copying t, when
// that sum is zero. rescale conjugates t with the scale-and-offset S (S t S^-1, or S^-1 t S with
// the inverse flag) and normalises; a zero s is a bad argument. Products and inverses are plain
// homographies: their `extra` is zero; normalize keeps the angles of t.
#include "foundation/trans2d.h"

#include <string.h>

#include "foundation/maths.h"

namespace {

constexpr double kQ15One = 32768.0;
constexpr double kSingularDeterminant = 1e-16;

void clearExtra(tav_sr2_Trans2D* t) {
    t->extra[0] = t->extra[1] = t->extra[2] = 0.0;
}

tav_sr2_Trans2D scaleAndOffset(double s, double ox, double oy) {
    tav_sr2_Trans2D t = {{s, 0.0, ox, 0.0, s, oy, 0.0, 0.0, 1.0}, {0.0, 0.0, 0.0}};
    return t;
}

}  // namespace

int32_t tav_sr2_roundHalfAway(double v) {
    if (v != v) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    int64_t whole = (int64_t)v;
    double fraction = v - (double)whole;  // exact: |v| < 2^31
    if (fraction >= 0.5) whole += 1;
    if (fraction <= -0.5) whole -= 1;
    return (int32_t)whole;
}

uint32_t tav_sr2_Trans2D_identity(tav_sr2_Trans2D* t) {
    if (!t) return TAV_ERROR_PARAM;
    memset(t, 0, sizeof *t);
    t->m[0] = t->m[4] = t->m[8] = 1.0;
    return TAV_OK;
}

uint32_t tav_sr2_Trans2D_apply(const tav_sr2_Trans2D* t, double* out_x, double* out_y, double x,
                               double y) {
    if (!t || !out_x || !out_y) return TAV_ERROR_PARAM;
    const double* m = t->m;
    double den = m[6] * x + m[7] * y + m[8];
    *out_x = (m[0] * x + m[1] * y + m[2]) / den;
    *out_y = (m[3] * x + m[4] * y + m[5]) / den;
    return TAV_OK;
}

uint32_t tav_sr2_Trans2D_applyQ15(const tav_sr2_Trans2D* t, int32_t* out_x, int32_t* out_y,
                                  int32_t x, int32_t y) {
    if (!t || !out_x || !out_y) return TAV_ERROR_PARAM;
    const double* m = t->m;
    double fx = x, fy = y;
    double den = m[6] * fx + m[7] * fy + m[8] * kQ15One;
    double num_x = m[0] * fx + m[1] * fy + m[2] * kQ15One;
    double num_y = m[3] * fx + m[4] * fy + m[5] * kQ15One;
    *out_x = tav_sr2_roundHalfAway(num_x * kQ15One / den);
    *out_y = tav_sr2_roundHalfAway(num_y * kQ15One / den);
    return TAV_OK;
}

uint32_t tav_sr2_Trans2D_applyInt(const tav_sr2_Trans2D* t, int32_t* out_x, int32_t* out_y,
                                  int32_t x, int32_t y) {
    if (!t || !out_x || !out_y) return TAV_ERROR_PARAM;
    double fx, fy;
    tav_sr2_Trans2D_apply(t, &fx, &fy, x, y);
    *out_x = tav_sr2_roundHalfAway(fx);
    *out_y = tav_sr2_roundHalfAway(fy);
    return TAV_OK;
}

uint32_t tav_sr2_Trans2D_multiply(tav_sr2_Trans2D* out, const tav_sr2_Trans2D* a,
                                  const tav_sr2_Trans2D* b) {
    if (!out || !a || !b) return TAV_ERROR_PARAM;
    tav_sr2_Trans2D product = {};
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col) {
            product.m[row * 3 + col] = a->m[row * 3] * b->m[col] +
                                       a->m[row * 3 + 1] * b->m[3 + col] +
                                       a->m[row * 3 + 2] * b->m[6 + col];
        }
    }
    *out = product;
    return TAV_OK;
}

uint32_t tav_sr2_Trans2D_invert(tav_sr2_Trans2D* out, const tav_sr2_Trans2D* t) {
    if (!out || !t) return TAV_ERROR_PARAM;
    const double* m = t->m;
    double adj[9] = {
        m[4] * m[8] - m[5] * m[7], m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4],
        m[5] * m[6] - m[3] * m[8], m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5],
        m[3] * m[7] - m[4] * m[6], m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3],
    };
    double det = m[0] * adj[0] + m[1] * adj[3] + m[2] * adj[6];
    double magnitude = det < 0.0 ? -det : det;
    if (!(magnitude >= kSingularDeterminant)) {
        tav_sr2_Trans2D_identity(out);
        return TAV_ERROR_GENERIC;
    }
    for (int i = 0; i < 9; ++i)
        out->m[i] = adj[i] / det;
    clearExtra(out);
    return TAV_OK;
}

uint32_t tav_sr2_Trans2D_normalize(tav_sr2_Trans2D* out, const tav_sr2_Trans2D* t) {
    if (!out || !t) return TAV_ERROR_PARAM;
    const double* m = t->m;
    double sum = m[0] * m[0] + m[4] * m[4] + m[8] * m[8];
    if (out != t) *out = *t;
    if (!(sum > 0.0)) return TAV_ERROR_PARAM;
    double norm = tav_sr2_sqrt(sum);
    for (int i = 0; i < 9; ++i)
        out->m[i] /= norm;
    return TAV_OK;
}

uint32_t tav_sr2_Trans2D_rescale(tav_sr2_Trans2D* out, const tav_sr2_Trans2D* t,
                                 const double* offset, int inverse, double s) {
    if (!out || !t || s == 0.0) return TAV_ERROR_PARAM;
    double ox = offset ? offset[0] : 0.0;
    double oy = offset ? offset[1] : 0.0;
    tav_sr2_Trans2D scale = scaleAndOffset(s, ox, oy);
    tav_sr2_Trans2D unscale = scaleAndOffset(1.0 / s, -ox / s, -oy / s);
    const tav_sr2_Trans2D* left = inverse ? &unscale : &scale;
    const tav_sr2_Trans2D* right = inverse ? &scale : &unscale;
    tav_sr2_Trans2D conjugated;
    tav_sr2_Trans2D_multiply(&conjugated, t, right);
    tav_sr2_Trans2D_multiply(&conjugated, left, &conjugated);
    return tav_sr2_Trans2D_normalize(out, &conjugated);
}
