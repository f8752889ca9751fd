// tav_sr2_Trans2D: a projective transform of the image plane.
//
// x' = (m0 x + m1 y + m2) / (m6 x + m7 y + m8), y' = (m3 x + m4 y + m5) / (m6 x + m7 y + m8),
// in pixels with the origin at the centre of the top left pixel. The record is homogeneous: a
// transform leaving the pipeline is scaled so that m0^2 + m4^2 + m8^2 = 1, so m8 is not 1 and
// every consumer divides by the third row. `extra` holds the three angles of a rotation model and
// is zero for the plain homography.
#pragma once

#include <stdint.h>

#include "foundation/status.h"

struct tav_sr2_Trans2D {
    double m[9];
    double extra[3];
};
static_assert(sizeof(tav_sr2_Trans2D) == 96, "twelve doubles");

uint32_t tav_sr2_Trans2D_identity(tav_sr2_Trans2D* t);
uint32_t tav_sr2_Trans2D_apply(const tav_sr2_Trans2D* t, double* out_x, double* out_y, double x,
                               double y);
// Positions with 15 fraction bits in and out.
uint32_t tav_sr2_Trans2D_applyQ15(const tav_sr2_Trans2D* t, int32_t* out_x, int32_t* out_y,
                                  int32_t x, int32_t y);
uint32_t tav_sr2_Trans2D_applyInt(const tav_sr2_Trans2D* t, int32_t* out_x, int32_t* out_y,
                                  int32_t x, int32_t y);
// out = a b (b first, then a); out may be a or b.
uint32_t tav_sr2_Trans2D_multiply(tav_sr2_Trans2D* out, const tav_sr2_Trans2D* a,
                                  const tav_sr2_Trans2D* b);
// TAV_ERROR_GENERIC, and the identity in out, when the determinant is below 1e-16 in magnitude.
uint32_t tav_sr2_Trans2D_invert(tav_sr2_Trans2D* out, const tav_sr2_Trans2D* t);
uint32_t tav_sr2_Trans2D_normalize(tav_sr2_Trans2D* out, const tav_sr2_Trans2D* t);
// S = [[s, 0, ox], [0, s, oy], [0, 0, 1]]: out = S t S^-1, or S^-1 t S with inverse set, then
// normalised. A null offset is (0, 0).
uint32_t tav_sr2_Trans2D_rescale(tav_sr2_Trans2D* out, const tav_sr2_Trans2D* t,
                                 const double* offset, int inverse, double s);

// Nearest integer with halves away from zero, saturated to the i32 range; 0 for a NaN.
int32_t tav_sr2_roundHalfAway(double v);
