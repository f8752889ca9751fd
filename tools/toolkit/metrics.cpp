// PSNR, SSIM and the bicubic enlarger; see metrics.h for the definitions.
//
// ssim streams the plane: each row is filtered horizontally into a ring of 11 rows of the five
// moments (a, b, a^2, b^2, ab), and each full ring gives one row of the SSIM map. Memory is
// therefore 55 rows, whatever the image height.
#include "tools/toolkit/metrics.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tavtool {
namespace {

constexpr int32_t kTaps = 11;
constexpr double kSigma = 1.5;

bool sameSize(const PlaneView& a, const PlaneView& b) {
    return a.width == b.width && a.height == b.height && a.data && b.data;
}

struct Window {
    double w[kTaps];
};

Window gaussianWindow() {
    Window g;
    double sum = 0.0;
    for (int32_t k = 0; k < kTaps; ++k) {
        const double d = k - kTaps / 2;
        g.w[k] = std::exp(-d * d / (2.0 * kSigma * kSigma));
        sum += g.w[k];
    }
    for (double& v : g.w)
        v /= sum;
    return g;
}

double keys(double x) {
    x = std::fabs(x);
    if (x <= 1.0) return (1.5 * x - 2.5) * x * x + 1.0;
    if (x < 2.0) return ((-0.5 * x + 2.5) * x - 4.0) * x + 2.0;
    return 0.0;
}

// Taps of destination position d along one axis: 4 source indices and weights.
void cubicTaps(int32_t d, int32_t src_size, int32_t dst_size, int32_t idx[4], double w[4]) {
    const double pos = (d + 0.5) * src_size / dst_size - 0.5;
    const double base = std::floor(pos);
    for (int32_t t = 0; t < 4; ++t) {
        const int32_t i = static_cast<int32_t>(base) - 1 + t;
        idx[t] = std::clamp(i, 0, src_size - 1);
        w[t] = keys(pos - i);
    }
}

// Keys' cubic at (x, y), edges repeated.
double cubicAt(const PlaneView& p, double x, double y) {
    const double bx = std::floor(x);
    const double by = std::floor(y);
    double wx[4], wy[4];
    int32_t ix[4], iy[4];
    for (int32_t t = 0; t < 4; ++t) {
        const int32_t i = static_cast<int32_t>(bx) - 1 + t;
        const int32_t j = static_cast<int32_t>(by) - 1 + t;
        wx[t] = keys(x - i);
        wy[t] = keys(y - j);
        ix[t] = std::clamp(i, 0, p.width - 1);
        iy[t] = std::clamp(j, 0, p.height - 1);
    }
    double v = 0.0;
    for (int32_t j = 0; j < 4; ++j) {
        const uint16_t* row = p.data + static_cast<size_t>(iy[j]) * p.width;
        v += wy[j] *
             (wx[0] * row[ix[0]] + wx[1] * row[ix[1]] + wx[2] * row[ix[2]] + wx[3] * row[ix[3]]);
    }
    return v;
}

double registrationCost(const PlaneView& image, const PlaneView& truth, int32_t crop,
                        const Registration& r) {
    const double cx = (image.width - 1) / 2.0;
    const double cy = (image.height - 1) / 2.0;
    double sum = 0.0;
    int64_t n = 0;
    for (int32_t y = crop; y < image.height - crop; y += 3) {
        const double ty = cy + (y - cy) / r.scale + r.dy;
        for (int32_t x = crop; x < image.width - crop; x += 3) {
            const double d = image.data[static_cast<size_t>(y) * image.width + x] -
                             cubicAt(truth, cx + (x - cx) / r.scale + r.dx, ty);
            sum += d * d;
            ++n;
        }
    }
    return n ? sum / n : 0.0;
}

// The plane smoothed by the binomial [1 4 6 4 1] / 16 twice in each direction (sigma about
// 1.4), edges repeated. Registering smoothed planes keeps the search from preferring fractional
// shifts merely because reading the truth between pixels softens it, which would flatter soft
// images.
std::vector<uint16_t> smoothed(const PlaneView& p) {
    static const int32_t kTap[5] = {1, 4, 6, 4, 1};
    std::vector<double> a(p.data, p.data + static_cast<size_t>(p.width) * p.height);
    std::vector<double> b(a.size());
    for (int32_t pass = 0; pass < 4; ++pass) {
        const bool across = pass % 2 == 0;
        for (int32_t y = 0; y < p.height; ++y) {
            for (int32_t x = 0; x < p.width; ++x) {
                double v = 0.0;
                for (int32_t t = -2; t <= 2; ++t) {
                    const int32_t xx = across ? std::clamp(x + t, 0, p.width - 1) : x;
                    const int32_t yy = across ? y : std::clamp(y + t, 0, p.height - 1);
                    v += kTap[t + 2] * a[static_cast<size_t>(yy) * p.width + xx];
                }
                b[static_cast<size_t>(y) * p.width + x] = v / 16.0;
            }
        }
        a.swap(b);
    }
    std::vector<uint16_t> out(a.size());
    for (size_t i = 0; i < a.size(); ++i)
        out[i] = static_cast<uint16_t>(std::floor(a[i] * 16.0 + 0.5));  // 4 more bits kept
    return out;
}

}  // namespace

Registration registerCentredZoom(const PlaneView& image_plane, const PlaneView& truth_plane,
                                 int32_t crop, double max_scale, double max_shift) {
    Registration best;
    if (!sameSize(image_plane, truth_plane) || 2 * crop >= image_plane.width ||
        2 * crop >= image_plane.height) {
        return best;
    }
    const std::vector<uint16_t> image_smooth = smoothed(image_plane);
    const std::vector<uint16_t> truth_smooth = smoothed(truth_plane);
    const PlaneView image = {image_smooth.data(), image_plane.width, image_plane.height};
    const PlaneView truth = {truth_smooth.data(), truth_plane.width, truth_plane.height};
    double best_cost = registrationCost(image, truth, crop, best);
    for (double s = 1.0; s <= max_scale + 1e-9; s += 0.004) {
        const Registration r = {s, 0.0, 0.0};
        const double cost = registrationCost(image, truth, crop, r);
        if (cost < best_cost) {
            best_cost = cost;
            best = r;
        }
    }
    // Shrinking pattern search over (scale, dx, dy), each kept inside its range.
    double step_s = 0.004;
    double step_d = 1.0;
    for (int32_t round = 0; round < 1000 && step_d > 0.03; ++round) {
        bool moved = false;
        for (int32_t axis = 0; axis < 3; ++axis) {
            for (int32_t sign = -1; sign <= 1; sign += 2) {
                Registration r = best;
                if (axis == 0) r.scale = std::clamp(r.scale + sign * step_s, 1.0, max_scale);
                if (axis == 1) r.dx = std::clamp(r.dx + sign * step_d, -max_shift, max_shift);
                if (axis == 2) r.dy = std::clamp(r.dy + sign * step_d, -max_shift, max_shift);
                const double cost = registrationCost(image, truth, crop, r);
                if (cost < best_cost) {
                    best_cost = cost;
                    best = r;
                    moved = true;
                }
            }
        }
        if (!moved) {
            step_s /= 2;
            step_d /= 2;
        }
    }
    return best;
}

std::vector<uint16_t> warpCentredZoom(const PlaneView& plane, const Registration& r,
                                      int32_t max_code) {
    std::vector<uint16_t> out(static_cast<size_t>(plane.width) * plane.height);
    const double cx = (plane.width - 1) / 2.0;
    const double cy = (plane.height - 1) / 2.0;
    for (int32_t y = 0; y < plane.height; ++y) {
        const double ty = cy + (y - cy) / r.scale + r.dy;
        for (int32_t x = 0; x < plane.width; ++x) {
            const double v = cubicAt(plane, cx + (x - cx) / r.scale + r.dx, ty);
            out[static_cast<size_t>(y) * plane.width + x] = static_cast<uint16_t>(
                std::clamp(std::floor(v + 0.5), 0.0, static_cast<double>(max_code)));
        }
    }
    return out;
}

double psnr(const PlaneView& a, const PlaneView& b, int32_t crop, double peak) {
    if (!sameSize(a, b) || crop < 0 || 2 * crop >= a.width || 2 * crop >= a.height) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    double sum = 0.0;
    for (int32_t y = crop; y < a.height - crop; ++y) {
        for (int32_t x = crop; x < a.width - crop; ++x) {
            const size_t i = static_cast<size_t>(y) * a.width + x;
            const double d = static_cast<double>(a.data[i]) - b.data[i];
            sum += d * d;
        }
    }
    if (sum == 0.0) return std::numeric_limits<double>::infinity();
    const double n = static_cast<double>(a.width - 2 * crop) * (a.height - 2 * crop);
    return 10.0 * std::log10(peak * peak / (sum / n));
}

double edgeSharpness(const PlaneView& a, const PlaneView& b, int32_t crop) {
    const int32_t w = a.width, h = a.height;
    const int32_t lo = std::max(crop, 1);
    if (w != b.width || h != b.height || w - lo <= lo || h - lo <= lo)
        return std::numeric_limits<double>::quiet_NaN();
    auto gradient = [&](const PlaneView& p, int32_t x, int32_t y) {
        const double gx = double(p.data[y * w + x + 1]) - double(p.data[y * w + x - 1]);
        const double gy = double(p.data[(y + 1) * w + x]) - double(p.data[(y - 1) * w + x]);
        return std::sqrt(gx * gx + gy * gy);
    };
    std::vector<std::pair<double, int32_t>> edges;
    for (int32_t y = lo; y < h - lo; ++y)
        for (int32_t x = lo; x < w - lo; ++x)
            edges.push_back({gradient(b, x, y), y * w + x});
    const size_t keep = std::max<size_t>(edges.size() / 10, 1);
    std::nth_element(edges.begin(), edges.begin() + (keep - 1), edges.end(),
                     [](const auto& u, const auto& v) { return u.first > v.first; });
    double sa = 0.0, sb = 0.0;
    for (size_t k = 0; k < keep; ++k) {
        sa += gradient(a, edges[k].second % w, edges[k].second / w);
        sb += edges[k].first;
    }
    return sb > 0.0 ? sa / sb : std::numeric_limits<double>::quiet_NaN();
}

double ssim(const PlaneView& a, const PlaneView& b, int32_t crop, double peak) {
    const int32_t w = a.width - 2 * crop;
    const int32_t h = a.height - 2 * crop;
    if (!sameSize(a, b) || crop < 0 || w < kTaps || h < kTaps) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const Window g = gaussianWindow();
    const int32_t out_w = w - kTaps + 1;
    // ring[row % 11][moment][x]
    std::vector<double> ring(static_cast<size_t>(kTaps) * 5 * out_w);
    auto slot = [&](int32_t row, int32_t moment) {
        return &ring[(static_cast<size_t>(row % kTaps) * 5 + moment) * out_w];
    };
    const double c1 = (0.01 * peak) * (0.01 * peak);
    const double c2 = (0.03 * peak) * (0.03 * peak);
    double total = 0.0;
    for (int32_t y = 0; y < h; ++y) {
        const size_t row = static_cast<size_t>(y + crop) * a.width + crop;
        for (int32_t x = 0; x < out_w; ++x) {
            double m[5] = {0, 0, 0, 0, 0};
            for (int32_t k = 0; k < kTaps; ++k) {
                const double va = a.data[row + x + k];
                const double vb = b.data[row + x + k];
                m[0] += g.w[k] * va;
                m[1] += g.w[k] * vb;
                m[2] += g.w[k] * va * va;
                m[3] += g.w[k] * vb * vb;
                m[4] += g.w[k] * va * vb;
            }
            for (int32_t i = 0; i < 5; ++i)
                slot(y, i)[x] = m[i];
        }
        if (y < kTaps - 1) continue;
        for (int32_t x = 0; x < out_w; ++x) {
            double m[5] = {0, 0, 0, 0, 0};
            for (int32_t k = 0; k < kTaps; ++k) {
                for (int32_t i = 0; i < 5; ++i)
                    m[i] += g.w[k] * slot(y - kTaps + 1 + k, i)[x];
            }
            const double va = m[2] - m[0] * m[0];
            const double vb = m[3] - m[1] * m[1];
            const double cov = m[4] - m[0] * m[1];
            total += ((2 * m[0] * m[1] + c1) * (2 * cov + c2)) /
                     ((m[0] * m[0] + m[1] * m[1] + c1) * (va + vb + c2));
        }
    }
    return total / (static_cast<double>(out_w) * (h - kTaps + 1));
}

std::vector<uint16_t> bicubicResize(const PlaneView& src, int32_t dst_width, int32_t dst_height,
                                    int32_t max_code) {
    std::vector<double> rows(static_cast<size_t>(src.height) * dst_width);
    for (int32_t x = 0; x < dst_width; ++x) {
        int32_t idx[4];
        double w[4];
        cubicTaps(x, src.width, dst_width, idx, w);
        for (int32_t y = 0; y < src.height; ++y) {
            const uint16_t* s = src.data + static_cast<size_t>(y) * src.width;
            rows[static_cast<size_t>(y) * dst_width + x] =
                w[0] * s[idx[0]] + w[1] * s[idx[1]] + w[2] * s[idx[2]] + w[3] * s[idx[3]];
        }
    }
    std::vector<uint16_t> out(static_cast<size_t>(dst_width) * dst_height);
    for (int32_t y = 0; y < dst_height; ++y) {
        int32_t idx[4];
        double w[4];
        cubicTaps(y, src.height, dst_height, idx, w);
        for (int32_t x = 0; x < dst_width; ++x) {
            double v = 0.0;
            for (int32_t t = 0; t < 4; ++t)
                v += w[t] * rows[static_cast<size_t>(idx[t]) * dst_width + x];
            out[static_cast<size_t>(y) * dst_width + x] = static_cast<uint16_t>(
                std::clamp(std::floor(v + 0.5), 0.0, static_cast<double>(max_code)));
        }
    }
    return out;
}

}  // namespace tavtool
