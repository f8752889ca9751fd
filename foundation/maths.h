// The library's own double-precision maths: no stage calls a system math library, so the same
// burst builds the same tables on every device. Everything rests on two cores, a base-2
// exponential and a base-2 logarithm, each a fixed polynomial. Results differ from a correctly
// rounded library by a few units in the last place: callers must not test them for equality
// (tav_sr2_sqrt(4.0) need not be exactly 2). Not for row loops: build a table first.
#pragma once

#include <stdint.h>

double tav_sr2_exp2core(double v);
double tav_sr2_log2(double x);

double tav_sr2_pow(double x, double y);
double tav_sr2_exp(double x);
double tav_sr2_sqrt(double x);
double tav_sr2_hypot(double x, double y);

double tav_sr2_cos(double x);
double tav_sr2_sin(double x);
double tav_sr2_tan(double x);
double tav_sr2_atan(double x);
double tav_sr2_atan2(double y, double x);
double tav_sr2_asin(double x);
double tav_sr2_acos(double x);

double tav_sr2_cosh(double x);
double tav_sr2_sinh(double x);
double tav_sr2_tanh(double x);

// Floor of the square root for n > 0; 0 for n <= 0.
int32_t tav_sr2_isqrt(int32_t n);

// Nearest integer with halves upwards, on the bits of the double; finite values only.
double tav_sr2_roundHalfUp(double x);
