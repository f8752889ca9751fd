// The library's own maths, on two polynomial cores.
//
// tav_sr2_exp2core(v) is 2^v: 0 at or below -1075, the smallest subnormal above that up to -1074,
// infinity from 1024, NaN for NaN; otherwise 2^floor(v) built on the bits times a degree-10
// polynomial in the fraction, and exactly 2^v for an integer v. tav_sr2_log2(x) is log2 x: +inf
// for +inf, the quiet form of a NaN, -inf for either zero, a NaN for x < 0; otherwise
// x = m 2^e with m in [sqrt(2)/2, sqrt(2)) and e + s Q(s^2), s = (m - 1) / (m + 1).
// pow, exp and sqrt go through these two (sqrt(0) is 0, exp(0) is 1). hypot is |b| sqrt((a/b)^2 +
// 1) for the larger magnitude b, infinity when either is infinite. cos reduces |x| into [0, pi] by
// whole turns and evaluates a degree-18 even polynomial on [0, pi/2], mirrored above; NaN for a
// NaN or an infinity. sin, tan, asin and acos derive from cos and atan2. atan and atan2 share one
// odd polynomial on [-1, 1]. cosh and sinh take half of e^x and of e^-x from the exponential
// core; tanh is (e^2x - 1) / (e^2x + 1), and 1 once e^2x overflows. tav_sr2_isqrt is the floor of
// the square root by doubling and Newton steps, 0 for n <= 0.
#include "foundation/maths.h"

#include <string.h>

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kHalfPi = 1.5707963267948966;
constexpr double kTwoPi = 6.283185307179586;
constexpr double kLog2E = 1.4426950408889634;
constexpr double kTwoLog2E = 2.8853900817779268;

constexpr uint64_t kSignBit = 0x8000000000000000ull;
constexpr uint64_t kExponentMask = 0x7FF0000000000000ull;
constexpr uint64_t kMantissaMask = 0x000FFFFFFFFFFFFFull;
constexpr uint64_t kQuietBit = 0x0008000000000000ull;
constexpr uint64_t kPlusInfinity = 0x7FF0000000000000ull;
constexpr uint64_t kDefaultNaN = 0xFFF8000000000000ull;  // the top 13 bits set
constexpr uint64_t kSqrt2Bits = 0x3FF6A09E667F3BCDull;
constexpr uint64_t kOneBits = 0x3FF0000000000000ull;

// 2^f on [0, 1), highest power first.
constexpr double kExp2Poly[] = {
    1.0006697217452461e-8,  9.433920362359275e-8,  1.3318412101751585e-6, 1.5243996624121435e-5,
    0.00015404004101871477, 0.0013333541706066724, 0.00961812946262613,   0.05550410862015973,
    0.24022650696198009,    0.6931471805598729,    1.0000000000000002,
};

// log2((1 + s) / (1 - s)) / s as a polynomial in s^2, highest power first.
constexpr double kLog2Poly[] = {
    0.2136777781712274,  0.22091114554609512, 0.2623344309522164, 0.3205985333399848,
    0.41219858585711044, 0.5770780163454408,  0.9617966939259899, 2.8853900817779268,
};

// cos r on [0, pi/2] as a polynomial in r^2, highest power first.
constexpr double kCosPoly[] = {
    -1.5119893746599977e-16,
    4.776872981008344e-14,
    -1.1470670199182995e-11,
    2.087675566742367e-9,
    -2.7557319209666754e-7,
    2.4801587301492746e-5,
    -0.001388888888888853,
    0.04166666666666666,
    -0.5,
    1.0,
};

// atan(a) / a on [-1, 1] as a polynomial in a^2, highest power first.
constexpr double kAtanPoly[] = {
    -1.4296106976230644e-5, 0.00016434320345232596, -0.0008972802727697887, 0.0031126159637883295,
    -0.007764818061546401,  0.015008370685651312,   -0.023774517687559032,  0.03243006170557842,
    -0.039914685169369954,  0.04625375758514148,    -0.05221133894328429,   0.05872109106447547,
    -0.0666472335167253,    0.07692027114124143,    -0.09090879156425137,   0.11111108844676319,
    -0.14285714170762942,   0.1999999999642143,     -0.3333333333327423,    0.9999999999999961,
};

template <int N>
constexpr double horner(const double (&c)[N], double x) {
    double r = c[0];
    for (int i = 1; i < N; ++i)
        r = r * x + c[i];
    return r;
}

inline uint64_t bitsOf(double x) {
    uint64_t b;
    memcpy(&b, &x, sizeof b);
    return b;
}

inline double fromBits(uint64_t b) {
    double x;
    memcpy(&x, &b, sizeof x);
    return x;
}

inline double magnitude(double x) {
    return fromBits(bitsOf(x) & ~kSignBit);
}
inline bool signBit(double x) {
    return (bitsOf(x) & kSignBit) != 0;
}
inline bool isNaN(double x) {
    return x != x;
}
inline bool isInfinite(double x) {
    return (bitsOf(x) & ~kSignBit) == kPlusInfinity;
}

// atan on [-1, 1].
inline double atanCore(double a) {
    return a * horner(kAtanPoly, a * a);
}

}  // namespace

double tav_sr2_exp2core(double v) {
    if (isNaN(v)) return v;
    if (v <= -1074.0 || v >= 1024.0) {
        if (v <= -1075.0) return 0.0;
        return v < 0.0 ? fromBits(1) : fromBits(kPlusInfinity);
    }
    int32_t n = (int32_t)v;  // |v| < 1075: the truncation is defined
    if ((double)n > v) n -= 1;
    int32_t biased = n + 1023;
    double s = biased >= 1 ? fromBits((uint64_t)biased << 52) : fromBits(1ull << (n + 1074));
    if (v == (double)n) return s;
    return s * horner(kExp2Poly, v - (double)n);
}

double tav_sr2_log2(double x) {
    uint64_t bits = bitsOf(x);
    if (isNaN(x)) return fromBits(bits | kQuietBit);
    if (bits == kPlusInfinity) return x;
    if (x == 0.0) return -fromBits(kPlusInfinity);
    if (bits & kSignBit) return fromBits(kDefaultNaN);

    int32_t e;
    uint64_t mantissa;
    if ((bits & kExponentMask) == 0) {
        // Subnormal: the fraction as an integer converts to a normal double exactly, and its
        // exponent gives the scale.
        double scaled = (double)(bits & kMantissaMask);
        uint64_t sb = bitsOf(scaled);
        e = (int32_t)(sb >> 52) - 1023 - 1074;
        mantissa = sb & kMantissaMask;
    } else {
        e = (int32_t)(bits >> 52) - 1023;
        mantissa = bits & kMantissaMask;
    }
    uint64_t m_bits = mantissa | kOneBits;
    if (m_bits >= kSqrt2Bits) {
        e += 1;
        m_bits -= 1ull << 52;  // m / 2
    }
    double m = fromBits(m_bits);
    double s = (m - 1.0) / (m + 1.0);
    return s * horner(kLog2Poly, s * s) + (double)e;
}

double tav_sr2_pow(double x, double y) {
    return tav_sr2_exp2core(tav_sr2_log2(x) * y);
}

double tav_sr2_exp(double x) {
    return tav_sr2_exp2core(x * kLog2E);
}

double tav_sr2_sqrt(double x) {
    return tav_sr2_exp2core(tav_sr2_log2(x) * 0.5);
}

double tav_sr2_hypot(double x, double y) {
    if (isInfinite(x) || isInfinite(y)) return fromBits(kPlusInfinity);
    double ax = magnitude(x);
    double ay = magnitude(y);
    if (ax == 0.0 && ay == 0.0) return 0.0;
    double a = ax < ay ? ax : ay;
    double b = ax < ay ? ay : ax;
    double ratio = a / b;
    return b * tav_sr2_sqrt(ratio * ratio + 1.0);
}

double tav_sr2_roundHalfUp(double x) {
    uint64_t bits = bitsOf(x);
    int32_t e = (int32_t)((bits >> 52) & 0x7FF) - 1023;
    if (e >= 52) return x;  // already whole (or not finite)
    bool negative = (bits & kSignBit) != 0;
    if (e < -1) return 0.0;                                         // |x| < 0.5
    if (e == -1) return negative ? (x == -0.5 ? 0.0 : -1.0) : 1.0;  // 0.5 <= |x| < 1
    uint64_t half = 1ull << (51 - e);
    uint64_t fraction = (half << 1) - 1;
    // Upwards means away from zero for x > 0 and towards zero for x < 0.
    bits += negative ? half - 1 : half;
    return fromBits(bits & ~fraction);
}

double tav_sr2_cos(double x) {
    if (isNaN(x) || isInfinite(x)) return fromBits(kDefaultNaN);
    double r = magnitude(x);
    // Whole turns off until r is in [0, pi]; the +0.5 makes the nearest turn count at least 1
    // for any r above pi, so every pass makes progress. Huge r loses all accuracy but ends.
    while (r > kPi) {
        double q = tav_sr2_roundHalfUp((r - kPi) / kTwoPi + 0.5);
        r = magnitude(r - q * kTwoPi);
    }
    double sign = 1.0;
    if (r > kHalfPi) {
        r = kPi - r;
        sign = -1.0;
    }
    return sign * horner(kCosPoly, r * r);
}

double tav_sr2_sin(double x) {
    return tav_sr2_cos(x - kHalfPi);
}

double tav_sr2_tan(double x) {
    return tav_sr2_sin(x) / tav_sr2_cos(x);
}

double tav_sr2_atan(double x) {
    if (magnitude(x) > 1.0) {
        double r = atanCore(-1.0 / x);
        return x > 0.0 ? r + kHalfPi : r - kHalfPi;
    }
    return atanCore(x);
}

double tav_sr2_atan2(double y, double x) {
    double ax = magnitude(x);
    double ay = magnitude(y);
    double r;
    if (ax == 0.0 && ay == 0.0) {
        r = signBit(x) ? kPi : 0.0;
    } else {
        // Angle of (|x|, |y|) in [0, pi/2], then mirrored into the quadrant of (x, y).
        r = ay <= ax ? atanCore(ay / ax) : kHalfPi - atanCore(ax / ay);
        if (signBit(x)) r = kPi - r;
    }
    return signBit(y) ? -r : r;
}

double tav_sr2_asin(double x) {
    return 2.0 * tav_sr2_atan2(x, tav_sr2_sqrt(1.0 - x * x) + 1.0);
}

double tav_sr2_acos(double x) {
    return kHalfPi - tav_sr2_asin(x);
}

double tav_sr2_cosh(double x) {
    return tav_sr2_exp2core(x * kLog2E - 1.0) + tav_sr2_exp2core(-1.0 - x * kLog2E);
}

double tav_sr2_sinh(double x) {
    return tav_sr2_exp2core(x * kLog2E - 1.0) - tav_sr2_exp2core(-1.0 - x * kLog2E);
}

double tav_sr2_tanh(double x) {
    double t = tav_sr2_exp2core(x * kTwoLog2E);
    if (isInfinite(t)) return 1.0;  // (inf - 1) / (inf + 1) would be a NaN
    return (t - 1.0) / (t + 1.0);
}

int32_t tav_sr2_isqrt(int32_t n) {
    if (n <= 0) return 0;
    int32_t r = 1;
    int32_t m = n;
    while (r < m) {
        r <<= 1;
        m >>= 1;
    }
    for (int32_t next = (n / r + r) >> 1; next < r; next = (n / r + r) >> 1)
        r = next;
    return r;
}
