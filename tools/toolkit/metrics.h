// Quality figures of one image plane against a reference, and the bicubic enlarger the
// single-frame baseline uses.
//
// psnr: 10 log10(peak^2 / MSE) over the plane less `crop` pixels on each side. Two identical
//   planes give +infinity (printed "inf"); there is no cap.
// ssim: the mean structural similarity of Wang et al. (2004): Gaussian window of 11 taps and
//   sigma 1.5, K1 = 0.01, K2 = 0.03, over every window that fits inside the cropped plane.
// Both give NaN when the sizes differ or the crop leaves nothing (SSIM needs 11 x 11).
#pragma once

#include <stdint.h>

#include <vector>

namespace tavtool {

struct PlaneView {
    const uint16_t* data = nullptr;
    int32_t width = 0;
    int32_t height = 0;  // rows of `width` samples, no padding
};

double psnr(const PlaneView& a, const PlaneView& b, int32_t crop, double peak);
double ssim(const PlaneView& a, const PlaneView& b, int32_t crop, double peak);
// How sharp a's edges are against the reference b: on the tenth of b's pixels with the largest
// gradient (central differences, inside the crop), the mean gradient magnitude of a over that of
// b. 1 is as sharp as the reference, below 1 softer; NaN as for psnr.
double edgeSharpness(const PlaneView& a, const PlaneView& b, int32_t crop);

// Keys' cubic convolution (a = -0.5) with pixel centres aligned: destination x samples the source
// at (x + 0.5) * sw / dw - 0.5, edges repeated, results rounded and clamped to 0..max_code.
std::vector<uint16_t> bicubicResize(const PlaneView& src, int32_t dst_width, int32_t dst_height,
                                    int32_t max_code);

// A centred zoom and shift between an output and the truth: output pixel x shows the truth at
// c + (x - c) / scale + dx, with c = (width - 1) / 2 (likewise y). The library crops the area
// that every merged frame covers and enlarges it to the output, so its output is such a zoom of
// the base frame's view; comparing it pixel by pixel needs the same window of the truth.
struct Registration {
    double scale = 1.0;
    double dx = 0.0;
    double dy = 0.0;
};

// The registration in scale 1..max_scale and shifts within +-max_shift that gives the smallest
// squared difference between `image` and the truth read through it, over the plane less `crop`
// pixels on each side (sampled on every third row and column), both planes smoothed first: a
// coarse search of the scale, then shrinking steps in all three.
Registration registerCentredZoom(const PlaneView& image, const PlaneView& truth, int32_t crop,
                                 double max_scale, double max_shift);
// `plane` read through the registration with Keys' cubic, at its own size. For a chroma plane
// of a 4:2:0 image pass the luma registration with dx and dy halved.
std::vector<uint16_t> warpCentredZoom(const PlaneView& plane, const Registration& r,
                                      int32_t max_code);

}  // namespace tavtool
