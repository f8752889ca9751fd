// make-burst: a synthetic burst with its ground truth and manifest, from one photograph.
//
// main: parse, read the photograph, makeBurst, then write the frames, truth.png and manifest.txt
//   into the output folder (made if missing). The manifest is written last, so a folder with a
//   manifest holds a complete burst. Same photograph, settings and seed: the same bytes.
#include <stdio.h>
#include <sys/stat.h>

#include "tools/imageio/image_io.h"
#include "tools/toolkit/args.h"
#include "tools/toolkit/burst.h"
#include "tools/toolkit/manifest.h"

namespace {

const char kUsage[] = R"(Usage: make-burst PHOTO -o DIR [options]

Makes a burst of frames of PHOTO as a hand-held camera would see it: each frame moved by a random
homography, reduced by a factor, with noise of a simple ISO model; writes DIR/frame_NN.png, the
ground truth DIR/truth.png (the base frame's view at the output size, no noise) and
DIR/manifest.txt with every transform and setting. Deterministic for a seed.

  --frames N          frames (default 8)
  --factor D          photograph pixels per frame pixel (default 2)
  --zoom Z            output size over frame size, for the truth (default: the factor)
  --margin M          photograph pixels kept free around the frames (default 32)
  --seed S            random seed (default 1)
  --shift PX          largest shift in frame pixels (default 4)
  --rotate DEG        largest rotation (default 0.5)
  --scale S           largest relative change of scale (default 0.005)
  --keystone K        largest relative keystone at the frame's edge (default 0.005)
  --iso N             ISO; sets the noise (default 400)
  --noise GAIN,READ   noise variance GAIN * level + READ^2 in 8-bit units, in place of the ISO's
                      (ISO 100: 0.05,0.5, both in proportion to the ISO)
  --exposure N        exposure time recorded in the manifest, microseconds (default 10000)
  --ghosts K          moving patches (default 0)
  --ghost-size PX     their side in frame pixels (default 24)
  --ghost-step PX     their movement per frame in frame pixels (default 6)
  --base I            the frame the truth shows (default 0)
  --depth 8|16        bits per sample of frames and truth (default 8)
  --supersample N     points per frame pixel and axis (default 4)
  --ext png|jpg       container of the frames (default png; the truth is always PNG)
  -o DIR              output folder
)";

bool makeFolder(const std::string& path) {
    std::string part;
    for (size_t i = 0; i <= path.size(); ++i) {
        if (i == path.size() || (path[i] == '/' && i > 0)) {
            part = path.substr(0, i);
            mkdir(part.c_str(), 0777);
        }
    }
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

int fail(const std::string& message) {
    fprintf(stderr, "make-burst: %s\n", message.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    tavtool::BurstConfig c;
    std::string out_dir;
    std::string ext = "png";
    int32_t exposure = 10000;
    bool help = false;
    using tavtool::parseDoubleArg;
    using tavtool::parseIntArg;
    const std::vector<tavtool::ArgSpec> specs = {
        {"o", true, "a folder", [&](const std::string& v) { return !(out_dir = v).empty(); }},
        {"h", false, "", [&](const std::string&) { return help = true; }},
        {"help", false, "", [&](const std::string&) { return help = true; }},
        {"frames", true, "1..64",
         [&](const std::string& v) { return parseIntArg(v, 1, 64, &c.frames); }},
        {"factor", true, "1..8",
         [&](const std::string& v) { return parseIntArg(v, 1, 8, &c.factor); }},
        {"zoom", true, "1..16",
         [&](const std::string& v) { return parseDoubleArg(v, 1, 16, &c.zoom); }},
        {"margin", true, "0..4096",
         [&](const std::string& v) { return parseIntArg(v, 0, 4096, &c.margin); }},
        {"seed", true, "a whole number from 0",
         [&](const std::string& v) {
             int32_t s;
             if (!parseIntArg(v, 0, INT32_MAX, &s)) return false;
             c.seed = static_cast<uint64_t>(s);
             return true;
         }},
        {"shift", true, "0..64",
         [&](const std::string& v) { return parseDoubleArg(v, 0, 64, &c.max_shift); }},
        {"rotate", true, "0..10",
         [&](const std::string& v) { return parseDoubleArg(v, 0, 10, &c.max_rotate_deg); }},
        {"scale", true, "0..0.2",
         [&](const std::string& v) { return parseDoubleArg(v, 0, 0.2, &c.max_scale); }},
        {"keystone", true, "0..0.2",
         [&](const std::string& v) { return parseDoubleArg(v, 0, 0.2, &c.max_keystone); }},
        {"iso", true, "1..1000000",
         [&](const std::string& v) { return parseIntArg(v, 1, 1000000, &c.iso); }},
        {"noise", true, "GAIN,READ, both 0 or more",
         [&](const std::string& v) {
             const size_t comma = v.find(',');
             if (comma == std::string::npos) return false;
             c.noise_from_iso = false;
             return parseDoubleArg(v.substr(0, comma), 0, 1e6, &c.noise.gain) &&
                    parseDoubleArg(v.substr(comma + 1), 0, 1e6, &c.noise.read);
         }},
        {"exposure", true, "microseconds from 1",
         [&](const std::string& v) { return parseIntArg(v, 1, INT32_MAX, &exposure); }},
        {"ghosts", true, "0..64",
         [&](const std::string& v) { return parseIntArg(v, 0, 64, &c.ghosts); }},
        {"ghost-size", true, "1..1024",
         [&](const std::string& v) { return parseDoubleArg(v, 1, 1024, &c.ghost_size); }},
        {"ghost-step", true, "0..1024",
         [&](const std::string& v) { return parseDoubleArg(v, 0, 1024, &c.ghost_step); }},
        {"base", true, "a frame index",
         [&](const std::string& v) { return parseIntArg(v, 0, 63, &c.base); }},
        {"depth", true, "8 or 16",
         [&](const std::string& v) {
             return parseIntArg(v, 8, 16, &c.depth) && (c.depth == 8 || c.depth == 16);
         }},
        {"supersample", true, "1..16",
         [&](const std::string& v) { return parseIntArg(v, 1, 16, &c.supersample); }},
        {"ext", true, "png or jpg",
         [&](const std::string& v) { return (ext = v) == "png" || ext == "jpg"; }},
    };
    std::vector<std::string> positional;
    std::string error;
    if (!tavtool::parseArgs(argc, argv, specs, &positional, &error))
        return fail(error + " (see make-burst --help)");
    if (help) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (positional.size() != 1) return fail("give one photograph (see make-burst --help)");
    if (out_dir.empty()) return fail("give the output folder with -o DIR");
    if (ext == "jpg" && c.depth == 16) return fail("JPEG frames hold 8 bits: use --depth 8");

    tavio::RgbImage photo;
    if (!tavio::readImage(positional[0], &photo, &error)) return fail(error);
    tavtool::Burst burst;
    if (!tavtool::makeBurst(photo, c, &burst, &error)) return fail(positional[0] + ": " + error);
    if (!makeFolder(out_dir)) return fail("cannot make the folder " + out_dir);

    std::vector<std::string> names;
    for (size_t k = 0; k < burst.frames.size(); ++k) {
        char name[32];
        snprintf(name, sizeof name, "frame_%02zu.%s", k, ext.c_str());
        names.push_back(name);
        if (!tavio::writeImage(out_dir + "/" + name, burst.frames[k], &error)) return fail(error);
    }
    if (!tavio::writeImage(out_dir + "/truth.png", burst.truth, &error)) return fail(error);
    const tavtool::Manifest manifest =
        tavtool::manifestOf(burst, positional[0], names, "truth.png", exposure);
    if (!tavtool::writeManifest(out_dir + "/manifest.txt", manifest, &error)) return fail(error);
    printf(
        "make-burst: %d frames %dx%d, truth %dx%d, ISO %d (noise %.3g * level + %.3g^2), "
        "seed %llu -> %s\n",
        c.frames, burst.frame_width, burst.frame_height, burst.truth_width, burst.truth_height,
        c.iso, burst.config.noise.gain, burst.config.noise.read,
        static_cast<unsigned long long>(c.seed), out_dir.c_str());
    return 0;
}
