// evaluate: quality of a burst result against the ground truth of a synthetic burst, beside two
// baselines made in the same run.
//
// main: reads the manifest, the truth and the result; makes the baselines (the base frame alone
//   enlarged bicubically, and the library run on the base frame alone through its public
//   interface); measures luma PSNR and SSIM and chroma PSNR of each on YUV 4:2:0 (BT.601 full
//   range), leaving out a border; prints a table and may append a CSV line.
#include <stdio.h>
#include <sys/stat.h>

#include <cmath>

#include "cli/burst_runner.h"
#include "tools/imageio/image_io.h"
#include "tools/toolkit/args.h"
#include "tools/toolkit/manifest.h"
#include "tools/toolkit/metrics.h"

namespace {

const char kUsage[] = R"(Usage: evaluate MANIFEST RESULT [options]

Measures RESULT (PNG, JPEG, or .yuv at the truth's size) against the ground truth of the burst
described by MANIFEST (made by make-burst), and the same for two baselines made now: the base
frame alone enlarged bicubically, and the library run on the base frame alone. Figures: PSNR and
SSIM of luma, PSNR of Cb and Cr (4:2:0), all 8-bit, BT.601 full range. Identical images give a
PSNR of inf.

  --crop N         border left out on each side, in output pixels (default 16; chroma: N/2)
  --csv FILE       append one line of figures to FILE (with a header line when FILE is new)
  --label TEXT     first field of the CSV line (default: RESULT)
  --format F       layout of a .yuv RESULT: nv12 (default) or nv21
  --params FILE    tuning file of the single-frame run (default: the sample file)
  --cache-dir DIR  GPU program cache of the single-frame run
  --no-engine      leave out the single-frame run
  --write-baselines DIR  write the baselines as DIR/bicubic.png and DIR/single-frame.png
  --no-register    compare pixel for pixel, without the window search below
  --centre-window  RESULT is an ordinary zoom at the frame's size: the centre of the enlarged
                   view, so it is measured against the centre of the truth at that size, the
                   bicubic baseline is cut the same way and the single-frame run keeps the
                   frame's size
  --max-scale S    largest window scale searched (default 1.3)
  --max-shift PX   largest window shift searched (default 4)

Window: the library crops the area every merged frame covers and enlarges it to the output, so
its output is a slightly zoomed view of the base frame. Each image is therefore first registered
to the truth by a centred zoom (scale 1..max-scale) and a shift (+-max-shift px), found by least
squares on luma; the truth is read through that window (bicubic) and the figures are taken
against it. The window is printed beside the figures.

Moving patches (a burst made with --ghosts): the luma PSNR inside every place a patch takes in any
frame, where a double image would show, is printed on a line of its own and in the CSV.
)";

struct Figures {
    bool valid = false;
    std::string why;  // when not valid
    tavtool::Registration window;
    double y_psnr = NAN, y_ssim = NAN, cb_psnr = NAN, cr_psnr = NAN;
    double moving_psnr = NAN;  // luma inside the moving patches' area, when the burst has any
    double edge = NAN;  // edge sharpness: mean gradient on the truth's edges over the truth's
};

struct Settings {
    std::vector<uint8_t> moving;  // truth-sized mask of the moving area; empty without ghosts
    int32_t crop = 16;
    bool registered = true;
    double max_scale = 1.3;
    double max_shift = 4.0;
};

tavtool::PlaneView view(const std::vector<uint16_t>& p, int32_t w, int32_t h) {
    return {p.data(), w, h};
}

// The truth seen through a registration: every plane warped, chroma with half the shift.
tavio::Yuv420 truthThrough(const tavio::Yuv420& truth, const tavtool::Registration& r) {
    if (r.scale == 1.0 && r.dx == 0.0 && r.dy == 0.0) return truth;
    const int32_t cw = tavio::chromaWidth(truth.width);
    const int32_t ch = tavio::chromaHeight(truth.height);
    const tavtool::Registration half = {r.scale, r.dx / 2, r.dy / 2};
    tavio::Yuv420 out = truth;
    out.y = tavtool::warpCentredZoom(view(truth.y, truth.width, truth.height), r, 255);
    out.cb = tavtool::warpCentredZoom(view(truth.cb, cw, ch), half, 255);
    out.cr = tavtool::warpCentredZoom(view(truth.cr, cw, ch), half, 255);
    return out;
}

// Luma PSNR over the pixels the mask marks; NaN for an empty mask.
double maskedPsnr(const std::vector<uint16_t>& a, const std::vector<uint16_t>& b,
                  const std::vector<uint8_t>& mask) {
    double sum = 0.0;
    int64_t count = 0;
    for (size_t i = 0; i < mask.size() && i < a.size(); ++i) {
        if (!mask[i]) continue;
        const double d = double(a[i]) - double(b[i]);
        sum += d * d;
        ++count;
    }
    if (count == 0) return NAN;
    return sum == 0.0 ? INFINITY : 10.0 * std::log10(255.0 * 255.0 * double(count) / sum);
}

// The truth pixels that any moving patch covers in any frame: the place of a patch and of every
// double image it could leave. (ox, oy) is the truth's corner within the full truth.
std::vector<uint8_t> movingMask(const tavtool::Manifest& m, int32_t w, int32_t h, int32_t ox,
                                int32_t oy) {
    std::vector<uint8_t> mask;
    if (m.ghosts.empty()) return mask;
    mask.assign((size_t)w * h, 0);
    // Scene X shows at truth t = (X + 0.5 - origin) zoom / factor - 0.5.
    const double k = m.zoom / m.factor;
    for (const tavtool::GhostPatch& g : m.ghosts) {
        for (size_t f = 0; f < m.frames.size(); ++f) {
            const double step = double(f) - double(m.base);
            const double sx = g.x0 + g.vx * step, sy = g.y0 + g.vy * step;
            const int32_t x0 = (int32_t)std::floor((sx + 0.5 - m.origin_x) * k - 0.5) - ox;
            const int32_t y0 = (int32_t)std::floor((sy + 0.5 - m.origin_y) * k - 0.5) - oy;
            const int32_t side = (int32_t)std::ceil(g.size * k) + 1;
            for (int32_t y = std::max(0, y0); y < std::min(h, y0 + side); ++y)
                for (int32_t x = std::max(0, x0); x < std::min(w, x0 + side); ++x)
                    mask[(size_t)y * w + x] = 1;
        }
    }
    return mask;
}

Figures measure(const tavio::Yuv420& out, const tavio::Yuv420& truth, const Settings& s) {
    Figures f;
    if (s.registered) {
        f.window = tavtool::registerCentredZoom(view(out.y, out.width, out.height),
                                                view(truth.y, truth.width, truth.height), s.crop,
                                                s.max_scale, s.max_shift);
    }
    const tavio::Yuv420 ref = truthThrough(truth, f.window);
    const int32_t cw = tavio::chromaWidth(truth.width);
    const int32_t ch = tavio::chromaHeight(truth.height);
    const int32_t crop = s.crop;
    f.y_psnr = tavtool::psnr(view(out.y, out.width, out.height), view(ref.y, ref.width, ref.height),
                             crop, 255.0);
    f.y_ssim = tavtool::ssim(view(out.y, out.width, out.height), view(ref.y, ref.width, ref.height),
                             crop, 255.0);
    f.cb_psnr = tavtool::psnr(view(out.cb, cw, ch), view(ref.cb, cw, ch), crop / 2, 255.0);
    f.cr_psnr = tavtool::psnr(view(out.cr, cw, ch), view(ref.cr, cw, ch), crop / 2, 255.0);
    f.moving_psnr = maskedPsnr(out.y, ref.y, s.moving);
    f.edge = tavtool::edgeSharpness(view(out.y, out.width, out.height),
                                    view(ref.y, ref.width, ref.height), crop);
    f.valid = true;
    return f;
}

tavio::Yuv420 bicubicOf(const tavio::Yuv420& frame, int32_t w, int32_t h) {
    tavio::Yuv420 out;
    out.width = w;
    out.height = h;
    out.bits = 8;
    const int32_t fcw = tavio::chromaWidth(frame.width);
    const int32_t fch = tavio::chromaHeight(frame.height);
    out.y = tavtool::bicubicResize(view(frame.y, frame.width, frame.height), w, h, 255);
    out.cb = tavtool::bicubicResize(view(frame.cb, fcw, fch), tavio::chromaWidth(w),
                                    tavio::chromaHeight(h), 255);
    out.cr = tavtool::bicubicResize(view(frame.cr, fcw, fch), tavio::chromaWidth(w),
                                    tavio::chromaHeight(h), 255);
    return out;
}

Figures singleFrameRun(const tavtool::Manifest& m, const tavio::Yuv420& base,
                       const tavio::Yuv420& truth, const std::string& params,
                       const std::string& cache_dir, const Settings& settings,
                       tavio::Yuv420* output) {
    Figures f;
    tavio::RawFrame frame = tavio::packRaw(base, tavio::RawFormat::Nv12);
    tsr::BurstRequest req;
    req.frames.push_back(&frame);
    req.output_width = truth.width;
    req.output_height = truth.height;
    req.zoom_ratio = static_cast<float>(m.zoom);
    req.iso = m.iso;
    req.exposures.push_back(m.exposure);
    req.params_file = params.empty() ? tsr::findDefaultParams() : params;
    req.cache_dir = cache_dir.empty() ? tsr::defaultCacheDir() : cache_dir;
    std::string error;
    if (!tsr::makeFolders(req.cache_dir, &error)) {
        f.why = error;
        return f;
    }
    f.why = tsr::geometryProblem(frame.width, frame.height, req.output_width, req.output_height,
                                 req.rect, req.zoom_ratio);
    if (!f.why.empty()) return f;
    tsr::BurstResult r;
    if (!tsr::runBurst(req, &r)) {
        f.why = r.failed_call.empty() ? "the library wrote no output"
                                      : r.failed_call + " failed: " + tsr::statusName(r.status);
        return f;
    }
    *output = tavio::changeDepth(tavio::unpackRaw(r.output), 8);
    return measure(*output, truth, settings);
}

std::string number(double v, const char* format) {
    if (std::isinf(v)) return "inf";
    if (std::isnan(v)) return "nan";
    char text[32];
    snprintf(text, sizeof text, format, v);
    return text;
}

void printRow(const char* name, const Figures& f) {
    if (!f.valid) {
        printf("%-28s n/a: %s\n", name, f.why.c_str());
        return;
    }
    char window[64];
    snprintf(window, sizeof window, "x%.3f %+.2f,%+.2f", f.window.scale, f.window.dx, f.window.dy);
    printf("%-28s %8s %9s %9s %9s %7s   %s\n", name, number(f.y_psnr, "%.2f").c_str(),
           number(f.y_ssim, "%.4f").c_str(), number(f.cb_psnr, "%.2f").c_str(),
           number(f.cr_psnr, "%.2f").c_str(), number(f.edge, "%.3f").c_str(), window);
}

bool appendCsv(const std::string& path, const std::string& label, int32_t crop, const Figures* rows,
               std::string* error) {
    static const char* kPrefixes[] = {"result", "bicubic", "single"};
    struct stat st;
    const bool fresh = stat(path.c_str(), &st) != 0 || st.st_size == 0;
    FILE* f = fopen(path.c_str(), "a");
    if (!f) {
        *error = "cannot append to " + path;
        return false;
    }
    if (fresh) {
        fprintf(f, "label,crop");
        for (const char* p : kPrefixes)
            fprintf(
                f,
                ",%s_y_psnr,%s_y_ssim,%s_cb_psnr,%s_cr_psnr,%s_scale,%s_dx,%s_dy,%s_moving_psnr,"
                "%s_edge",
                p, p, p, p, p, p, p, p, p);
        fprintf(f, "\n");
    }
    fprintf(f, "%s,%d", label.c_str(), crop);
    for (int i = 0; i < 3; ++i) {
        const Figures& r = rows[i];
        fprintf(f, ",%s,%s,%s,%s,%s,%s,%s,%s,%s", number(r.y_psnr, "%.4f").c_str(),
                number(r.y_ssim, "%.5f").c_str(), number(r.cb_psnr, "%.4f").c_str(),
                number(r.cr_psnr, "%.4f").c_str(), number(r.window.scale, "%.4f").c_str(),
                number(r.window.dx, "%.3f").c_str(), number(r.window.dy, "%.3f").c_str(),
                number(r.moving_psnr, "%.4f").c_str(), number(r.edge, "%.4f").c_str());
    }
    fprintf(f, "\n");
    const bool ok = !ferror(f);
    if (fclose(f) != 0 || !ok) {
        *error = "cannot append to " + path;
        return false;
    }
    return true;
}

bool readYuv(const std::string& path, int32_t w, int32_t h, tavio::RawFormat format,
             tavio::Yuv420* out, std::string* error) {
    if (tavio::fileKindOf(path) == tavio::FileKind::Yuv) {
        tavio::RawFrame raw;
        if (!tavio::readRaw(path, w, h, format, &raw, error)) return false;
        *out = tavio::changeDepth(tavio::unpackRaw(raw), 8);
        return true;
    }
    tavio::RgbImage rgb;
    if (!tavio::readImage(path, &rgb, error)) return false;
    *out = tavio::rgbToYuv420(rgb, 8);
    return true;
}

int fail(const std::string& message) {
    fprintf(stderr, "evaluate: %s\n", message.c_str());
    return 1;
}

}  // namespace

// The centre w x h of a picture (offsets rounded down to even, so chroma stays on its grid).
tavio::Yuv420 centreOf(const tavio::Yuv420& in, int32_t w, int32_t h) {
    const int32_t ox = ((in.width - w) / 2) & ~1;
    const int32_t oy = ((in.height - h) / 2) & ~1;
    tavio::Yuv420 out;
    out.width = w;
    out.height = h;
    out.bits = in.bits;
    const int32_t icw = tavio::chromaWidth(in.width);
    const int32_t cw = tavio::chromaWidth(w);
    const int32_t ch = tavio::chromaHeight(h);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            out.y.push_back(in.y[(size_t)(y + oy) * in.width + x + ox]);
    for (int32_t y = 0; y < ch; ++y)
        for (int32_t x = 0; x < cw; ++x) {
            const size_t i = (size_t)(y + oy / 2) * icw + x + ox / 2;
            out.cb.push_back(in.cb[i]);
            out.cr.push_back(in.cr[i]);
        }
    return out;
}

int main(int argc, char** argv) {
    Settings settings;
    int32_t& crop = settings.crop;
    std::string csv, label, params, cache_dir, baselines_dir;
    tavio::RawFormat format = tavio::RawFormat::Nv12;
    bool engine = true;
    bool help = false;
    bool centre = false;
    const std::vector<tavtool::ArgSpec> specs = {
        {"h", false, "", [&](const std::string&) { return help = true; }},
        {"help", false, "", [&](const std::string&) { return help = true; }},
        {"crop", true, "0..4096",
         [&](const std::string& v) { return tavtool::parseIntArg(v, 0, 4096, &crop); }},
        {"csv", true, "a file", [&](const std::string& v) { return !(csv = v).empty(); }},
        {"label", true, "a text without commas",
         [&](const std::string& v) { return (label = v).find(',') == std::string::npos; }},
        {"format", true, "nv12 or nv21",
         [&](const std::string& v) {
             return tavio::parseRawFormat(v, &format) && format != tavio::RawFormat::P10;
         }},
        {"params", true, "a file", [&](const std::string& v) { return !(params = v).empty(); }},
        {"cache-dir", true, "a folder",
         [&](const std::string& v) { return !(cache_dir = v).empty(); }},
        {"no-engine", false, "", [&](const std::string&) { return !(engine = false); }},
        {"write-baselines", true, "a folder",
         [&](const std::string& v) { return !(baselines_dir = v).empty(); }},
        {"centre-window", false, "", [&](const std::string&) { return centre = true; }},
        {"no-register", false, "",
         [&](const std::string&) { return !(settings.registered = false); }},
        {"max-scale", true, "1..2",
         [&](const std::string& v) {
             return tavtool::parseDoubleArg(v, 1, 2, &settings.max_scale);
         }},
        {"max-shift", true, "0..64",
         [&](const std::string& v) {
             return tavtool::parseDoubleArg(v, 0, 64, &settings.max_shift);
         }},
    };
    std::vector<std::string> positional;
    std::string error;
    if (!tavtool::parseArgs(argc, argv, specs, &positional, &error))
        return fail(error + " (see evaluate --help)");
    if (help) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (positional.size() != 2) return fail("give MANIFEST and RESULT (see evaluate --help)");
    const std::string& manifest_path = positional[0];
    const std::string& result_path = positional[1];
    if (label.empty()) label = result_path;
    if (label.find(',') != std::string::npos) return fail("the label must not hold a comma");

    tavtool::Manifest m;
    if (!tavtool::readManifest(manifest_path, &m, &error)) return fail(error);
    tavio::Yuv420 truth, result, base;
    const std::string truth_path = tavtool::manifestFile(manifest_path, m.truth);
    if (!readYuv(truth_path, 0, 0, format, &truth, &error)) return fail(error);
    if (truth.width != m.truth_width || truth.height != m.truth_height)
        return fail(truth_path + " does not have the manifest's truth size");
    const std::string base_path = tavtool::manifestFile(manifest_path, m.frames[m.base].file);
    if (!readYuv(base_path, 0, 0, format, &base, &error)) return fail(error);
    const int32_t full_width = truth.width;
    const int32_t full_height = truth.height;
    if (centre) truth = centreOf(truth, base.width & ~1, base.height & ~1);
    settings.moving =
        movingMask(m, truth.width, truth.height, ((full_width - truth.width) / 2) & ~1,
                   ((full_height - truth.height) / 2) & ~1);
    if (!readYuv(result_path, truth.width, truth.height, format, &result, &error))
        return fail(error);
    if (result.width != truth.width || result.height != truth.height) {
        return fail(result_path + " is " + std::to_string(result.width) + "x" +
                    std::to_string(result.height) + ", the truth is " +
                    std::to_string(truth.width) + "x" + std::to_string(truth.height));
    }

    Figures rows[3];
    rows[0] = measure(result, truth, settings);
    tavio::Yuv420 bicubic = bicubicOf(base, full_width, full_height);
    if (centre) bicubic = centreOf(bicubic, truth.width, truth.height);
    rows[1] = measure(bicubic, truth, settings);
    tavio::Yuv420 single;
    if (engine) {
        rows[2] = singleFrameRun(m, base, truth, params, cache_dir, settings, &single);
    } else {
        rows[2].why = "left out (--no-engine)";
    }
    printf("evaluate: %s against %s (%dx%d), border of %d px left out\n", result_path.c_str(),
           truth_path.c_str(), truth.width, truth.height, crop);
    printf("%-28s %8s %9s %9s %9s %7s   %s\n", "", "Y PSNR", "Y SSIM", "Cb PSNR", "Cr PSNR",
           "edges", settings.registered ? "window (scale, shift)" : "window (not registered)");
    printRow("result", rows[0]);
    printRow("bicubic, base frame", rows[1]);
    printRow("library, base frame alone", rows[2]);
    if (!settings.moving.empty())
        printf("moving area, Y PSNR: result %s, bicubic %s, base frame alone %s\n",
               number(rows[0].moving_psnr, "%.2f").c_str(),
               number(rows[1].moving_psnr, "%.2f").c_str(),
               number(rows[2].moving_psnr, "%.2f").c_str());
    if (!csv.empty() && !appendCsv(csv, label, crop, rows, &error)) return fail(error);
    if (!baselines_dir.empty()) {
        const std::string bicubic_path = baselines_dir + "/bicubic.png";
        if (!tavio::writeImage(bicubic_path, tavio::yuv420ToRgb(bicubic), &error))
            return fail(error);
        if (rows[2].valid && !tavio::writeImage(baselines_dir + "/single-frame.png",
                                                tavio::yuv420ToRgb(single), &error))
            return fail(error);
    }
    return 0;
}
