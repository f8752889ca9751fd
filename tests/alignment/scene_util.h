// Test scenes for alignment: grey planes, a procedural textured scene, frames made from a scene
// through a known homography with sensor-like noise, and the transforms to make them with.
#pragma once

#include <math.h>
#include <stdint.h>

#include <random>
#include <vector>

#include "foundation/trans2d.h"

namespace tav_scene {

struct Plane {
    int32_t width = 0;
    int32_t height = 0;
    std::vector<uint8_t> px;
    uint8_t at(int32_t x, int32_t y) const { return px[(size_t)y * width + x]; }
};

inline Plane flatPlane(int32_t w, int32_t h, uint8_t value) {
    Plane p;
    p.width = w;
    p.height = h;
    p.px.assign((size_t)w * h, value);
    return p;
}

// Smooth value noise over four octaves plus hard-edged rectangles and diamonds: corners of every
// strength at every scale, no repeated pattern.
inline Plane texturedScene(int32_t w, int32_t h, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<double> acc((size_t)w * h, 0.0);
    double amplitude = 1.0;
    for (int32_t cell = 64; cell >= 8; cell /= 2, amplitude *= 0.6) {
        const int32_t gw = w / cell + 2, gh = h / cell + 2;
        std::vector<double> grid((size_t)gw * gh);
        for (double& g : grid)
            g = unit(rng);
        for (int32_t y = 0; y < h; ++y) {
            const double fy = (double)y / cell;
            const int32_t iy = (int32_t)fy;
            const double ty = fy - iy;
            for (int32_t x = 0; x < w; ++x) {
                const double fx = (double)x / cell;
                const int32_t ix = (int32_t)fx;
                const double tx = fx - ix;
                const double* g0 = &grid[(size_t)iy * gw + ix];
                const double* g1 = g0 + gw;
                const double top = g0[0] + (g0[1] - g0[0]) * tx;
                const double bottom = g1[0] + (g1[1] - g1[0]) * tx;
                acc[(size_t)y * w + x] += amplitude * (top + (bottom - top) * ty);
            }
        }
    }
    // Hard-edged rectangles strong enough for gradient templates, and diamonds for weaker ones.
    const int32_t blobs = w * h / 3000;
    for (int32_t b = 0; b < blobs; ++b) {
        const double cx = unit(rng) * w, cy = unit(rng) * h, r = 3 + unit(rng) * 12;
        const bool square = (b & 1) != 0;
        const double add = (unit(rng) < 0.5 ? -1.0 : 1.0) * (square ? 1.0 : 0.5);
        for (int32_t y = (int32_t)fmax(0, cy - r); y < (int32_t)fmin(h, cy + r + 1); ++y)
            for (int32_t x = (int32_t)fmax(0, cx - r); x < (int32_t)fmin(w, cx + r + 1); ++x)
                if (square || fabs(x - cx) + fabs(y - cy) < r) acc[(size_t)y * w + x] += add;
    }
    Plane p = flatPlane(w, h, 0);
    for (size_t i = 0; i < acc.size(); ++i) {
        const double v = acc[i] * 150 - 20;
        p.px[i] = (uint8_t)fmin(255, fmax(0, v));
    }
    return p;
}

inline tav_sr2_Trans2D matrix(const double* m) {
    tav_sr2_Trans2D t;
    tav_sr2_Trans2D_identity(&t);
    for (int i = 0; i < 9; ++i)
        t.m[i] = m[i];
    return t;
}

// Rotation by deg and scale s about (cx, cy), then a shift (tx, ty), then perspective (g, h)
// applied about the same centre so that the centre stays put by it.
inline tav_sr2_Trans2D aboutCentre(double deg, double s, double tx, double ty, double g, double h,
                                   double cx, double cy) {
    const double r = deg * M_PI / 180.0;
    const double c = s * cos(r), n = s * sin(r);
    const double to_centre[9] = {1, 0, -cx, 0, 1, -cy, 0, 0, 1};
    const double body[9] = {c, -n, tx, n, c, ty, g, h, 1};
    const double back[9] = {1, 0, cx, 0, 1, cy, 0, 0, 1};
    tav_sr2_Trans2D a = matrix(to_centre), b = matrix(body), k = matrix(back), t;
    tav_sr2_Trans2D_multiply(&t, &b, &a);
    tav_sr2_Trans2D_multiply(&t, &k, &t);
    return t;
}

inline void project(const tav_sr2_Trans2D& t, double x, double y, double* ox, double* oy) {
    const double* m = t.m;
    const double w = m[6] * x + m[7] * y + m[8];
    *ox = (m[0] * x + m[1] * y + m[2]) / w;
    *oy = (m[3] * x + m[4] * y + m[5]) / w;
}

// Mean distance between the images of the four corners of a w x h frame.
inline double meanCornerError(const tav_sr2_Trans2D& a, const tav_sr2_Trans2D& b, int32_t w,
                              int32_t h) {
    const double xs[4] = {0, (double)w - 1, 0, (double)w - 1};
    const double ys[4] = {0, 0, (double)h - 1, (double)h - 1};
    double sum = 0.0;
    for (int i = 0; i < 4; ++i) {
        double ax, ay, bx, by;
        project(a, xs[i], ys[i], &ax, &ay);
        project(b, xs[i], ys[i], &bx, &by);
        sum += hypot(ax - bx, ay - by);
    }
    return sum / 4;
}

inline double cubicWeight(double d) {  // Keys, a = -0.5
    d = fabs(d);
    if (d < 1) return (1.5 * d - 2.5) * d * d + 1;
    if (d < 2) return ((-0.5 * d + 2.5) * d - 4) * d + 2;
    return 0;
}

// Index v held to 0 .. n - 1: edges replicated.
inline int32_t edgeIndex(int32_t v, int32_t n) {
    return v < 0 ? 0 : v >= n ? n - 1 : v;
}

// The four Keys taps around position v: pixels first .. first + 3, first = floor(v) - 1.
inline void cubicTaps(double v, int32_t* first, double w[4]) {
    const double base = floor(v);
    const double f = v - base;
    *first = (int32_t)base - 1;
    w[0] = cubicWeight(f + 1);
    w[1] = cubicWeight(f);
    w[2] = cubicWeight(1 - f);
    w[3] = cubicWeight(2 - f);
}

inline double sampleCubic(const Plane& src, double x, double y) {
    int32_t x0, y0;
    double wx[4], wy[4];
    cubicTaps(x, &x0, wx);
    cubicTaps(y, &y0, wy);
    const bool inside = x0 >= 0 && y0 >= 0 && x0 + 3 < src.width && y0 + 3 < src.height;
    double sum = 0.0;
    for (int32_t j = 0; j < 4; ++j) {
        const int32_t yy = inside ? y0 + j : edgeIndex(y0 + j, src.height);
        const uint8_t* row = &src.px[(size_t)yy * src.width];
        double across = 0.0;
        for (int32_t i = 0; i < 4; ++i) {
            const int32_t xx = inside ? x0 + i : edgeIndex(x0 + i, src.width);
            across += wx[i] * row[xx];
        }
        sum += wy[j] * across;
    }
    return sum;
}

// Grey values before rounding, so that noise can be added to one warp at several levels.
struct Field {
    int32_t width = 0;
    int32_t height = 0;
    std::vector<double> v;
};

// The whole-pixel shift that t^-1 is, if it is one.
inline bool wholeShift(const tav_sr2_Trans2D& inv, int32_t* dx, int32_t* dy) {
    const double* m = inv.m;
    if (m[1] != 0 || m[3] != 0 || m[6] != 0 || m[7] != 0 || m[0] != m[8] || m[4] != m[8]) {
        return false;
    }
    const double x = m[2] / m[8], y = m[5] / m[8];
    *dx = (int32_t)x;
    *dy = (int32_t)y;
    return *dx == x && *dy == y;
}

// A w x h frame seen through t (base to frame, in frame pixels), the base being the window of
// `src` at (ox, oy): field(q) = src((ox, oy) + t^-1 q), bicubic, edges replicated. A whole-pixel
// shift is a plain copy, which is also what the bicubic taps give there.
inline Field warpedField(const Plane& src, const tav_sr2_Trans2D& t, int32_t ox, int32_t oy,
                         int32_t w, int32_t h) {
    tav_sr2_Trans2D inv;
    tav_sr2_Trans2D_invert(&inv, &t);
    Field out;
    out.width = w;
    out.height = h;
    out.v.resize((size_t)w * h);
    int32_t dx = 0, dy = 0;
    const bool copy = wholeShift(inv, &dx, &dy);
    for (int32_t y = 0; y < h; ++y) {
        double* row = &out.v[(size_t)y * w];
        for (int32_t x = 0; x < w; ++x) {
            if (copy) {
                row[x] =
                    src.at(edgeIndex(x + dx + ox, src.width), edgeIndex(y + dy + oy, src.height));
                continue;
            }
            double sx, sy;
            project(inv, x, y, &sx, &sy);
            row[x] = sampleCubic(src, sx + ox, sy + oy);
        }
    }
    return out;
}

// Draws of the standard normal distribution, made once: the frames need millions of samples,
// and a table lookup per pixel keeps that cheap even in unoptimised sanitizer builds.
inline const std::vector<double>& gaussTable() {
    static const std::vector<double> table = [] {
        std::mt19937 rng(2024);
        std::normal_distribution<double> gauss(0.0, 1.0);
        std::vector<double> t(1 << 16);
        for (double& v : t)
            v = gauss(rng);
        return t;
    }();
    return table;
}

// The field plus Gaussian noise of the given sigma in grey levels, rounded to bytes.
inline Plane quantized(const Field& f, double noise, uint32_t seed) {
    const std::vector<double>& gauss = gaussTable();
    uint32_t state = seed * 2654435761u ^ 0x9E3779B9u;  // xorshift32: any state but 0
    if (state == 0) state = 1;
    Plane out = flatPlane(f.width, f.height, 0);
    for (size_t i = 0; i < f.v.size(); ++i) {
        double v = f.v[i];
        if (noise > 0) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            v += noise * gauss[state >> 16];
        }
        out.px[i] = (uint8_t)fmin(255, fmax(0, floor(v + 0.5)));
    }
    return out;
}

inline Plane warpedFrame(const Plane& src, const tav_sr2_Trans2D& t, int32_t ox, int32_t oy,
                         int32_t w, int32_t h, double noise, uint32_t seed) {
    return quantized(warpedField(src, t, ox, oy, w, h), noise, seed);
}

}  // namespace tav_scene
