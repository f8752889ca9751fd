// Parsing the tavrin-sr command line.
//
// parseCommandLine: GNU style: options and frames in any order, "--name value" or
//   "--name=value", "-o OUT" or "-oOUT", and "--" ending the options. A repeated option keeps
//   its last value, except --face and --prop, which add. Every value is parsed in full: "12x" is
//   not a number. The splitting and the error texts are the tools' parser (tools/toolkit/args.h);
//   this file holds the options themselves and the checks across them.
#include "cli/options.h"

#include "cli/prop_table.h"
#include "tools/toolkit/args.h"

namespace tsr {
namespace {

using tavtool::parseDoubleArg;
using tavtool::parseIntArg;

constexpr int32_t kMaxFrames = 10;  // the engine merges at most this many
constexpr size_t kMaxFaces = 5;

// "a,b,c" into integers in lo..hi.
bool parseIntList(const std::string& text, int64_t lo, int64_t hi, std::vector<int32_t>* out) {
    out->clear();
    size_t start = 0;
    for (;;) {
        const size_t comma = text.find(',', start);
        int32_t v;
        if (!parseIntArg(text.substr(start, comma - start), lo, hi, &v)) return false;
        out->push_back(v);
        if (comma == std::string::npos) return true;
        start = comma + 1;
    }
}

bool parseRect(const std::string& text, int32_t r[4]) {
    std::vector<int32_t> v;
    if (!parseIntList(text, 0, 65535, &v) || v.size() != 4 || v[2] <= v[0] || v[3] <= v[1]) {
        return false;
    }
    for (int i = 0; i < 4; ++i)
        r[i] = v[i];
    return true;
}

// The options, each handler writing into `o`; -o, -h and -v stand for --output, --help and
// --verbose.
std::vector<tavtool::ArgSpec> optionTable(CliOptions* o) {
    return {
        {"output", true, "a file name",
         [o](const std::string& v) {
             o->output = v;
             return !v.empty();
         },
         'o'},
        {"help", false, "", [o](const std::string&) { return o->help = true; }, 'h'},
        {"version", false, "", [o](const std::string&) { return o->version = true; }},
        {"verbose", false, "", [o](const std::string&) { return o->verbose = true; }, 'v'},
        {"size", true, "WxH",
         [o](const std::string& v) { return tavio::parseSize(v, &o->raw_width, &o->raw_height); },
         0, tavio::sizeProblem},
        {"format", true, "nv12, nv21 or p10",
         [o](const std::string& v) { return tavio::parseRawFormat(v, &o->format); }},
        {"zoom", true, "a ratio from 1 to 30",
         [o](const std::string& v) { return parseDoubleArg(v, 1.0, 30.0, &o->zoom); }},
        {"output-size", true, "WxH",
         [o](const std::string& v) {
             return tavio::parseSize(v, &o->output_width, &o->output_height);
         },
         0, tavio::sizeProblem},
        {"rect", true, "x0,y0,x1,y1 with x1 > x0 and y1 > y0",
         [o](const std::string& v) { return o->have_rect = parseRect(v, o->rect); }},
        {"iso", true, "a whole number from 1",
         [o](const std::string& v) { return parseIntArg(v, 1, 1000000, &o->iso); }},
        {"exposure", true, "microseconds from 1, or a comma-separated list, one per frame",
         [o](const std::string& v) { return parseIntList(v, 1, INT32_MAX, &o->exposures); }},
        {"base", true, "a frame index from 0",
         [o](const std::string& v) { return parseIntArg(v, 0, 1000, &o->base); }},
        {"face", true, "x0,y0,x1,y1 with x1 > x0 and y1 > y0 (at most 5 faces)",
         [o](const std::string& v) {
             std::array<int32_t, 4> r;
             if (o->faces.size() >= kMaxFaces || !parseRect(v, r.data())) return false;
             o->faces.push_back(r);
             return true;
         }},
        {"params", true, "a tuning file",
         [o](const std::string& v) {
             o->params = v;
             return !v.empty();
         }},
        {"cache-dir", true, "a folder",
         [o](const std::string& v) {
             o->cache_dir = v;
             return !v.empty();
         }},
        {"camera-id", true, "a whole number from 0",
         [o](const std::string& v) { return parseIntArg(v, 0, INT32_MAX, &o->camera_id); }},
        {"threads", true, "1 to 12",
         [o](const std::string& v) { return parseIntArg(v, 1, 12, &o->threads); }},
        {"jpeg-quality", true, "1 to 100",
         [o](const std::string& v) { return parseIntArg(v, 1, 100, &o->jpeg_quality); }},
        {"png-level", true, "0 to 9",
         [o](const std::string& v) { return parseIntArg(v, 0, 9, &o->png_level); }},
        {"prop", true, "key=value, the value at most 91 bytes",
         [o](const std::string& v) {
             const size_t eq = v.find('=');
             if (eq == 0 || eq == std::string::npos || v.size() - eq - 1 > kTsrPropertyValueMax)
                 return false;
             o->props.emplace_back(v.substr(0, eq), v.substr(eq + 1));
             return true;
         }},
    };
}

bool crossChecks(CliOptions* o, std::string* error) {
    if (o->help || o->version) return true;
    const int32_t n = static_cast<int32_t>(o->frames.size());
    if (n == 0) {
        *error = "no input frames";
    } else if (n > kMaxFrames) {
        *error = std::to_string(n) + " frames given; the engine merges at most " +
                 std::to_string(kMaxFrames);
    } else if (o->output.empty()) {
        *error = "no output file: give -o OUT";
    } else if (tavio::fileKindOf(o->output) == tavio::FileKind::Unknown) {
        *error = o->output + ": the output name must end in .png, .jpg, .jpeg or .yuv";
    } else if (!o->exposures.empty() && o->exposures.size() != 1 &&
               static_cast<int32_t>(o->exposures.size()) != n) {
        *error = "--exposure lists " + std::to_string(o->exposures.size()) + " values for " +
                 std::to_string(n) + " frames";
    } else if (o->base >= n) {
        *error = "--base " + std::to_string(o->base) + ": there are only " + std::to_string(n) +
                 " frames";
    } else {
        if (o->exposures.empty()) o->exposures.push_back(10000);
        if (o->exposures.size() == 1) o->exposures.resize(static_cast<size_t>(n), o->exposures[0]);
        return true;
    }
    return false;
}

}  // namespace

bool parseCommandLine(int argc, char** argv, CliOptions* o, std::string* error) {
    return tavtool::parseArgs(argc, argv, optionTable(o), &o->frames, error) &&
           crossChecks(o, error);
}

const char* usageText() {
    return R"(Usage: tavrin-sr [options] FRAME... -o OUT

Merges a burst of frames of one scene into one enlarged, denoised, sharpened frame with the
Tavrin KELD library.

Frames: PNG (8 or 16 bits), JPEG, or raw .yuv (needs --size and --format). All frames must have
the same size. PNG and JPEG are converted to YUV with BT.601 full range (the JPEG convention);
--format then picks the form the library gets (p10 keeps 10 bits of a 16-bit PNG).
Output: .png, .jpg/.jpeg or .yuv by the name (.yuv: 8-bit NV12, or NV21 for nv21 frames). The
file appears only when the run succeeded.

Geometry (default --zoom 2):
  --zoom R              enlarge the frame (or the --rect) R times, 1..30
  --output-size WxH     output size; with --zoom as well, R is passed as given (equal to the
                        frame size: a centre crop enlarged R times, as a phone's digital zoom)
  --rect x0,y0,x1,y1    zoom window in frame pixels; alone, the output is the frame size
Capture:
  --iso N               ISO of the burst (default 100)
  --exposure N[,N...]   exposure in microseconds, one value or one per frame (default 10000)
  --base I              mark frame I (from 0) as the base frame
  --face x0,y0,x1,y1    a face rectangle (repeatable, at most 5)
Library:
  --params FILE         tuning file (default: data/params/tavrin_keld_params_sample.xml, looked
                        for beside the program and in the source tree)
  --camera-id N         camera whose tuning to use (default 0)
  --threads N           worker threads, 1..12 (sets debug.tavrin.keld.core_num)
  --cache-dir DIR       GPU program cache (default $XDG_CACHE_HOME/tavrin-keld)
  --prop KEY=VALUE      set a debug property for this run (repeatable), e.g.
                        --prop debug.tavrin.keld.enable=1 --prop debug.tavrin.keld.log_level=2
  --verbose, -v         the library's log on standard error (enable=1, log_level=2)
Raw input:
  --size WxH            frame size of .yuv files
  --format F            nv12 (default), nv21 or p10 (packed 10-bit, three samples a word)
Other:
  --jpeg-quality Q      quality of a JPEG output, 1..100 (default 95)
  --png-level L         zlib level of a PNG output, 0..9 (default 1; 9 makes files 20% smaller
                        and 70 times slower)
  -o, --output OUT      the output file
  -h, --help            this text
  --version             the library's version

Prints the status, the base frame, the merge limit in force and the time. Exit status: 0 success,
1 a file, size or library failure, 2 a command-line error.
)";
}

}  // namespace tsr
