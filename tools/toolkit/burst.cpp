// Synthetic bursts: homographies, the noise model and the renderer.
//
// makeBurst: draws the motions (unless given), the moving patches and the noise from three PRNG
//   streams seeded from config.seed, so changing the noise leaves the motions as they were.
//   Frames are rendered as burst.h describes; the truth is point-sampled where the output grid
//   is at least as fine as the scene's, and box-averaged where it is coarser.
#include "tools/toolkit/burst.h"

#include <algorithm>
#include <cmath>

namespace tavtool {
namespace {

constexpr double kPi = 3.14159265358979323846;

// The photograph as normalised float RGB, read bilinearly with clamped edges.
struct Scene {
    int32_t width = 0;
    int32_t height = 0;
    std::vector<float> rgb;

    void sample(double x, double y, double out[3]) const {
        x = std::clamp(x, 0.0, width - 1.0);
        y = std::clamp(y, 0.0, height - 1.0);
        const int32_t x0 = std::min(static_cast<int32_t>(x), width - 2 < 0 ? 0 : width - 2);
        const int32_t y0 = std::min(static_cast<int32_t>(y), height - 2 < 0 ? 0 : height - 2);
        const int32_t x1 = std::min(x0 + 1, width - 1);
        const int32_t y1 = std::min(y0 + 1, height - 1);
        const double fx = x - x0;
        const double fy = y - y0;
        for (int c = 0; c < 3; ++c) {
            const double a = at(x0, y0, c) * (1 - fx) + at(x1, y0, c) * fx;
            const double b = at(x0, y1, c) * (1 - fx) + at(x1, y1, c) * fx;
            out[c] = a * (1 - fy) + b * fy;
        }
    }
    double at(int32_t x, int32_t y, int c) const {
        return rgb[(static_cast<size_t>(y) * width + x) * 3 + c];
    }
};

Scene sceneOf(const tavio::RgbImage& photo) {
    Scene s;
    s.width = photo.width;
    s.height = photo.height;
    const float scale = photo.bits == 16 ? 1.0f / 65535.0f : 1.0f / 255.0f;
    s.rgb.resize(photo.rgb.size());
    for (size_t i = 0; i < photo.rgb.size(); ++i)
        s.rgb[i] = photo.rgb[i] * scale;
    return s;
}

// The scene as frame k sees it: the photograph with the patches at their places in frame k.
void sampleWorld(const Scene& scene, const std::vector<GhostPatch>& ghosts, double offset, double x,
                 double y, double out[3]) {
    for (size_t g = ghosts.size(); g-- > 0;) {
        const GhostPatch& p = ghosts[g];
        const double gx = p.x0 + p.vx * offset;
        const double gy = p.y0 + p.vy * offset;
        if (x >= gx && x < gx + p.size && y >= gy && y < gy + p.size) {
            scene.sample(x - gx + p.src_x, y - gy + p.src_y, out);
            return;
        }
    }
    scene.sample(x, y, out);
}

Motion randomMotion(const BurstConfig& c, Prng* prng) {
    Motion m;
    m.dx = prngRange(prng, -c.max_shift, c.max_shift);
    m.dy = prngRange(prng, -c.max_shift, c.max_shift);
    m.angle_deg = prngRange(prng, -c.max_rotate_deg, c.max_rotate_deg);
    m.scale = 1.0 + prngRange(prng, -c.max_scale, c.max_scale);
    m.kx = prngRange(prng, -c.max_keystone, c.max_keystone);
    m.ky = prngRange(prng, -c.max_keystone, c.max_keystone);
    return m;
}

std::vector<GhostPatch> randomGhosts(const BurstConfig& c, const Burst& b, const Scene& scene,
                                     Prng* prng) {
    std::vector<GhostPatch> ghosts;
    const double size = c.ghost_size * c.factor;
    const double region_w = b.frame_width * c.factor;
    const double region_h = b.frame_height * c.factor;
    for (int32_t g = 0; g < c.ghosts; ++g) {
        GhostPatch p;
        p.size = size;
        p.src_x = prngRange(prng, 0.0, std::max(1.0, scene.width - size));
        p.src_y = prngRange(prng, 0.0, std::max(1.0, scene.height - size));
        p.x0 = b.origin_x + prngRange(prng, 0.0, std::max(1.0, region_w - size));
        p.y0 = b.origin_y + prngRange(prng, 0.0, std::max(1.0, region_h - size));
        const double a = prngRange(prng, 0.0, 2.0 * kPi);
        p.vx = c.ghost_step * c.factor * std::cos(a);
        p.vy = c.ghost_step * c.factor * std::sin(a);
        ghosts.push_back(p);
    }
    return ghosts;
}

uint16_t quantise(double level8, int32_t depth) {
    const double max_code = depth == 16 ? 65535.0 : 255.0;
    const double v = std::floor(level8 * (max_code / 255.0) + 0.5);
    return static_cast<uint16_t>(std::clamp(v, 0.0, max_code));
}

tavio::RgbImage renderFrame(const Scene& scene, const Burst& b, int32_t k, Prng* noise) {
    const BurstConfig& c = b.config;
    Homography inverse;
    homographyInvert(b.homographies[k], &inverse);
    tavio::RgbImage f;
    f.width = b.frame_width;
    f.height = b.frame_height;
    f.bits = c.depth;
    f.rgb.resize(static_cast<size_t>(f.width) * f.height * 3);
    const int32_t ss = c.supersample;
    const double offset = k - c.base;
    for (int32_t y = 0; y < f.height; ++y) {
        for (int32_t x = 0; x < f.width; ++x) {
            double sum[3] = {0, 0, 0};
            for (int32_t j = 0; j < ss; ++j) {
                for (int32_t i = 0; i < ss; ++i) {
                    double ux, uy;
                    homographyApply(inverse, x + (i + 0.5) / ss - 0.5, y + (j + 0.5) / ss - 0.5,
                                    &ux, &uy);
                    double rgb[3];
                    sampleWorld(scene, b.ghosts, offset, b.origin_x + c.factor * (ux + 0.5) - 0.5,
                                b.origin_y + c.factor * (uy + 0.5) - 0.5, rgb);
                    for (int ch = 0; ch < 3; ++ch)
                        sum[ch] += rgb[ch];
                }
            }
            uint16_t* out = &f.rgb[(static_cast<size_t>(y) * f.width + x) * 3];
            for (int ch = 0; ch < 3; ++ch) {
                const double level = 255.0 * sum[ch] / (ss * ss);
                out[ch] = quantise(addNoise(c.noise, level, noise), c.depth);
            }
        }
    }
    return f;
}

tavio::RgbImage renderTruth(const Scene& scene, const Burst& b) {
    const BurstConfig& c = b.config;
    tavio::RgbImage t;
    t.width = b.truth_width;
    t.height = b.truth_height;
    t.bits = c.depth;
    t.rgb.resize(static_cast<size_t>(t.width) * t.height * 3);
    // Scene pixels per truth pixel, per axis.
    const double step_x = static_cast<double>(c.factor) * b.frame_width / t.width;
    const double step_y = static_cast<double>(c.factor) * b.frame_height / t.height;
    const int32_t ssx = step_x > 1.0 ? static_cast<int32_t>(std::ceil(2.0 * step_x)) : 1;
    const int32_t ssy = step_y > 1.0 ? static_cast<int32_t>(std::ceil(2.0 * step_y)) : 1;
    for (int32_t y = 0; y < t.height; ++y) {
        for (int32_t x = 0; x < t.width; ++x) {
            double sum[3] = {0, 0, 0};
            for (int32_t j = 0; j < ssy; ++j) {
                for (int32_t i = 0; i < ssx; ++i) {
                    const double sx = b.origin_x + step_x * (x + (i + 0.5) / ssx) - 0.5;
                    const double sy = b.origin_y + step_y * (y + (j + 0.5) / ssy) - 0.5;
                    double rgb[3];
                    sampleWorld(scene, b.ghosts, 0.0, sx, sy, rgb);
                    for (int ch = 0; ch < 3; ++ch)
                        sum[ch] += rgb[ch];
                }
            }
            uint16_t* out = &t.rgb[(static_cast<size_t>(y) * t.width + x) * 3];
            for (int ch = 0; ch < 3; ++ch)
                out[ch] = quantise(255.0 * sum[ch] / (ssx * ssy), c.depth);
        }
    }
    return t;
}

bool checkConfig(const BurstConfig& c, std::string* error) {
    if (c.frames < 1 || c.frames > 64) {
        *error = "the frame count must be 1..64";
    } else if (c.factor < 1 || c.factor > 8) {
        *error = "the down-sampling factor must be 1..8";
    } else if (c.zoom < 0.0 || c.zoom > 16.0) {
        *error = "the zoom must be 0 (the factor) or up to 16";
    } else if (c.margin < 0) {
        *error = "the margin must not be negative";
    } else if (c.base < 0 || c.base >= c.frames) {
        *error = "the base frame must be one of the frames";
    } else if (c.depth != 8 && c.depth != 16) {
        *error = "the depth must be 8 or 16";
    } else if (c.supersample < 1 || c.supersample > 16) {
        *error = "supersampling must be 1..16";
    } else if (c.iso < 1) {
        *error = "the ISO must be at least 1";
    } else if (!c.motions.empty() && static_cast<int32_t>(c.motions.size()) != c.frames) {
        *error = "give one motion per frame";
    } else if (c.ghosts < 0 || c.ghost_size <= 0.0) {
        *error = "moving patches need a count of 0 or more and a positive size";
    } else {
        return true;
    }
    return false;
}

}  // namespace

Homography homographyIdentity() {
    return {{1, 0, 0, 0, 1, 0, 0, 0, 1}};
}

Homography homographyMultiply(const Homography& a, const Homography& b) {
    Homography r;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            r.m[i * 3 + j] =
                a.m[i * 3] * b.m[j] + a.m[i * 3 + 1] * b.m[3 + j] + a.m[i * 3 + 2] * b.m[6 + j];
        }
    }
    return r;
}

bool homographyInvert(const Homography& h, Homography* inverse) {
    const double* m = h.m;
    const double c00 = m[4] * m[8] - m[5] * m[7];
    const double c01 = m[5] * m[6] - m[3] * m[8];
    const double c02 = m[3] * m[7] - m[4] * m[6];
    const double det = m[0] * c00 + m[1] * c01 + m[2] * c02;
    if (std::fabs(det) < 1e-12) return false;
    const double d = 1.0 / det;
    *inverse = {{c00 * d, (m[2] * m[7] - m[1] * m[8]) * d, (m[1] * m[5] - m[2] * m[4]) * d, c01 * d,
                 (m[0] * m[8] - m[2] * m[6]) * d, (m[2] * m[3] - m[0] * m[5]) * d, c02 * d,
                 (m[1] * m[6] - m[0] * m[7]) * d, (m[0] * m[4] - m[1] * m[3]) * d}};
    return true;
}

void homographyApply(const Homography& h, double x, double y, double* out_x, double* out_y) {
    const double* m = h.m;
    const double w = m[6] * x + m[7] * y + m[8];
    *out_x = (m[0] * x + m[1] * y + m[2]) / w;
    *out_y = (m[3] * x + m[4] * y + m[5]) / w;
}

Homography motionHomography(const Motion& motion, double cx, double cy) {
    const double a = motion.angle_deg * kPi / 180.0;
    const double s = motion.scale;
    const Homography to_centre = {{1, 0, -cx, 0, 1, -cy, 0, 0, 1}};
    const Homography keystone = {{1, 0, 0, 0, 1, 0, motion.kx / cx, motion.ky / cy, 1}};
    const Homography rotate_scale = {
        {s * std::cos(a), -s * std::sin(a), 0, s * std::sin(a), s * std::cos(a), 0, 0, 0, 1}};
    const Homography back = {{1, 0, cx + motion.dx, 0, 1, cy + motion.dy, 0, 0, 1}};
    Homography h = homographyMultiply(back, homographyMultiply(rotate_scale, keystone));
    h = homographyMultiply(h, to_centre);
    for (double& v : h.m)
        v /= h.m[8];
    return h;
}

NoiseModel noiseForIso(int32_t iso) {
    const double k = iso / 100.0;
    return {0.05 * k, 0.5 * k};
}

double noiseVariance(const NoiseModel& model, double level) {
    return model.gain * std::max(level, 0.0) + model.read * model.read;
}

double addNoise(const NoiseModel& model, double level, Prng* prng) {
    const double variance = noiseVariance(model, level);
    return variance > 0.0 ? level + std::sqrt(variance) * prngGauss(prng) : level;
}

int32_t outputSizeForZoom(int32_t size, double zoom) {
    return static_cast<int32_t>(zoom * size) & ~1;
}

bool makeBurst(const tavio::RgbImage& photo, const BurstConfig& config, Burst* burst,
               std::string* error) {
    if (!checkConfig(config, error)) return false;
    Burst b;
    b.config = config;
    BurstConfig& c = b.config;
    if (c.zoom == 0.0) c.zoom = c.factor;
    if (c.noise_from_iso) c.noise = noiseForIso(c.iso);
    b.frame_width = ((photo.width - 2 * c.margin) / c.factor) & ~1;
    b.frame_height = ((photo.height - 2 * c.margin) / c.factor) & ~1;
    if (b.frame_width < 2 || b.frame_height < 2) {
        *error = "the photograph is too small for this factor and margin";
        return false;
    }
    b.origin_x = (photo.width - b.frame_width * c.factor) / 2;
    b.origin_y = (photo.height - b.frame_height * c.factor) / 2;
    b.truth_width = outputSizeForZoom(b.frame_width, c.zoom);
    b.truth_height = outputSizeForZoom(b.frame_height, c.zoom);
    if (b.truth_width < 2 || b.truth_height < 2) {
        *error = "the zoom leaves no output";
        return false;
    }
    const Scene scene = sceneOf(photo);
    Prng motion_prng, ghost_prng, noise_prng;
    prngSeed(&motion_prng, c.seed);
    prngSeed(&ghost_prng, c.seed ^ 0x67686F7374ull);
    prngSeed(&noise_prng, c.seed ^ 0x6E6F697365ull);
    const double cx = b.frame_width / 2.0;
    const double cy = b.frame_height / 2.0;
    for (int32_t k = 0; k < c.frames; ++k) {
        Motion m;
        if (!c.motions.empty()) {
            m = c.motions[k];
        } else if (k != c.base) {
            m = randomMotion(c, &motion_prng);
        }
        b.motions.push_back(m);
        b.homographies.push_back(motionHomography(m, cx, cy));
        Homography unused;
        if (!homographyInvert(b.homographies.back(), &unused)) {
            *error = "a frame's motion cannot be inverted";
            return false;
        }
    }
    b.ghosts = randomGhosts(c, b, scene, &ghost_prng);
    for (int32_t k = 0; k < c.frames; ++k)
        b.frames.push_back(renderFrame(scene, b, k, &noise_prng));
    b.truth = renderTruth(scene, b);
    *burst = std::move(b);
    return true;
}

}  // namespace tavtool
