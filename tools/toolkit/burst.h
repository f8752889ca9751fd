// Synthetic bursts with a known ground truth, made from one photograph.
//
// Geometry. The photograph is the scene. Frame pixel centres sit at integer coordinates; frame
// coordinate u maps to scene coordinate X = origin + factor * (u + 0.5) - 0.5, so each frame
// pixel covers factor x factor scene pixels. The frame region is centred in the photograph and
// leaves at least `margin` scene pixels on every side, so moved frames still see real content.
// Frame k is the base frame's view moved by its homography H_k, which maps base-frame
// coordinates to frame-k coordinates: frame_k(H_k(u)) shows what the base frame shows at u.
// The base frame's H is the identity.
//
// Rendering. A frame pixel is the mean of supersample x supersample points spread over its
// footprint, each mapped back through H_k^-1 into the scene and read bilinearly: the box of the
// pixel plus a little optical blur. Noise is then added in 8-bit units (see NoiseModel) and the
// result rounded to the frame depth.
//
// Ground truth: the base frame's view at the output size (truth = trunc(zoom * frame) rounded
// down to even, as tavrin-sr sizes its output), without noise. When zoom equals factor it is
// exactly the photograph's pixels of the frame region.
//
// Moving patches (ghosts): squares of the photograph pasted elsewhere, moving in the scene by a
// fixed step per frame. The ground truth shows them where the base frame sees them.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "tools/imageio/image_io.h"
#include "tools/toolkit/prng.h"

namespace tavtool {

// Row-major 3 x 3, acting on (x, y, 1).
struct Homography {
    double m[9];
};

Homography homographyIdentity();
// a * b: b acts first.
Homography homographyMultiply(const Homography& a, const Homography& b);
bool homographyInvert(const Homography& h, Homography* inverse);
void homographyApply(const Homography& h, double x, double y, double* out_x, double* out_y);

// One frame's camera motion relative to the base frame, in frame pixels, about the frame centre
// (cx, cy): H = T(c) T(dx, dy) R(angle) S(scale) K(kx, ky) T(-c), where K is the keystone
// [1 0 0; 0 1 0; kx/cx ky/cy 1]: kx is the relative change of scale at the right edge.
struct Motion {
    double dx = 0.0;
    double dy = 0.0;
    double angle_deg = 0.0;
    double scale = 1.0;
    double kx = 0.0;
    double ky = 0.0;
};

Homography motionHomography(const Motion& motion, double cx, double cy);

// Noise of a pixel of level I (8-bit units, 0..255): variance = gain * I + read^2, independent
// per colour channel. noiseForIso: gain 0.05 and read 0.5 at ISO 100, both growing in proportion
// to the ISO.
struct NoiseModel {
    double gain = 0.0;
    double read = 0.0;
};

NoiseModel noiseForIso(int32_t iso);
double noiseVariance(const NoiseModel& model, double level);
// `level` plus one draw of the noise, in 8-bit units; not rounded or clamped.
double addNoise(const NoiseModel& model, double level, Prng* prng);

// A moving patch, in scene pixels: a square of side `size` copied from (src_x, src_y), at
// (x0 + vx * (k - base), y0 + vy * (k - base)) in frame k.
struct GhostPatch {
    double size = 0.0;
    double src_x = 0.0;
    double src_y = 0.0;
    double x0 = 0.0;
    double y0 = 0.0;
    double vx = 0.0;
    double vy = 0.0;
};

struct BurstConfig {
    int32_t frames = 8;
    int32_t factor = 2;  // scene pixels per frame pixel
    double zoom = 0.0;   // output over frame size; 0 means `factor`
    int32_t margin = 32;
    uint64_t seed = 1;
    double max_shift = 4.0;       // frame pixels
    double max_rotate_deg = 0.5;  // degrees
    double max_scale = 0.005;     // relative
    double max_keystone = 0.005;  // relative, at the frame's edge
    int32_t iso = 400;
    bool noise_from_iso = true;  // else `noise` as given
    NoiseModel noise;
    int32_t ghosts = 0;
    double ghost_size = 24.0;  // frame pixels
    double ghost_step = 6.0;   // frame pixels per frame
    int32_t base = 0;
    int32_t depth = 8;  // 8 or 16 bits a sample
    int32_t supersample = 4;
    // When not empty, one motion per frame used as given (the base frame's included) in place
    // of random ones.
    std::vector<Motion> motions;
};

struct Burst {
    BurstConfig config;  // as used: zoom and noise filled in
    int32_t origin_x = 0, origin_y = 0;
    int32_t frame_width = 0, frame_height = 0;
    int32_t truth_width = 0, truth_height = 0;
    std::vector<Motion> motions;
    std::vector<Homography> homographies;
    std::vector<GhostPatch> ghosts;
    std::vector<tavio::RgbImage> frames;
    tavio::RgbImage truth;
};

// The truth size that tavrin-sr gives for a zoom: trunc(zoom * size), rounded down to even.
int32_t outputSizeForZoom(int32_t size, double zoom);

// false with `error` when the configuration does not fit the photograph.
bool makeBurst(const tavio::RgbImage& photo, const BurstConfig& config, Burst* burst,
               std::string* error);

}  // namespace tavtool
