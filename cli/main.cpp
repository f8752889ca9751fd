// tavrin-sr: a burst of image files through the Tavrin KELD library into one output file.
//
// main: parse, read and convert the frames, settle the geometry, serve the debug properties,
//   run the burst through the public interface, write the output atomically, print a summary.
//   Every failure prints one line on standard error and exits non-zero (2 for the command line,
//   1 otherwise) without leaving an output file behind.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "cli/burst_runner.h"
#include "cli/options.h"
#include "cli/prop_table.h"

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

int failWith(int code, const std::string& message) {
    fprintf(stderr, "tavrin-sr: %s\n", message.c_str());
    return code;
}

// Decoding threads: one a core; the library has not started yet, so they compete with nothing.
int32_t readerThreads() {
    const long cores = sysconf(_SC_NPROCESSORS_ONLN);
    return cores < 1 ? 1 : cores > 16 ? 16 : static_cast<int32_t>(cores);
}

std::string sizeText(int32_t w, int32_t h) {
    return std::to_string(w) + "x" + std::to_string(h);
}

// The frames, decoded in parallel, straight into the library's form where the file allows it.
bool loadFrames(const tsr::CliOptions& o, std::vector<tavio::RawFrame>* frames,
                std::string* error) {
    const bool raw = tavio::fileKindOf(o.frames[0]) == tavio::FileKind::Yuv;
    if (raw && o.raw_width == 0) {
        *error = o.frames[0] + ": a raw frame needs --size WxH";
        return false;
    }
    std::vector<std::string> errors;
    bool ok = true;
    if (raw) {
        frames->resize(o.frames.size());
        errors.resize(o.frames.size());
        for (size_t k = 0; k < o.frames.size() && ok; ++k)
            ok = tavio::readRaw(o.frames[k], o.raw_width, o.raw_height, o.format, &(*frames)[k],
                                &errors[k]);
    } else {
        ok = tavio::readFrames(o.frames, o.format, readerThreads(), frames, &errors);
    }
    for (size_t k = 0; k < o.frames.size(); ++k) {
        if (!errors[k].empty()) {
            *error = errors[k];
            return false;
        }
        const tavio::RawFrame& f = (*frames)[k];
        const tavio::RawFrame& first = (*frames)[0];
        if (f.width != first.width || f.height != first.height) {
            *error = o.frames[k] + " is " + sizeText(f.width, f.height) + " but " + o.frames[0] +
                     " is " + sizeText(first.width, first.height) +
                     ": all frames must have the same size";
            return false;
        }
    }
    return ok;
}

// Output size and ratio from the options; see the --help text.
bool settleGeometry(const tsr::CliOptions& o, const tavio::RawFrame& frame, tsr::BurstRequest* req,
                    std::string* error) {
    if (o.have_rect) {
        if (o.rect[2] > frame.width || o.rect[3] > frame.height) {
            *error =
                "--rect reaches outside the " + sizeText(frame.width, frame.height) + " frames";
            return false;
        }
        std::copy(o.rect, o.rect + 4, req->rect);
    }
    if (o.output_width > 0) {
        req->output_width = o.output_width;
        req->output_height = o.output_height;
        req->zoom_ratio = static_cast<float>(o.zoom);
    } else if (o.zoom == 0.0 && o.have_rect) {
        req->output_width = frame.width;
        req->output_height = frame.height;
    } else {
        const double zoom = o.zoom == 0.0 ? 2.0 : o.zoom;
        tsr::outputForZoom(frame.width, frame.height, req->rect, zoom, &req->output_width,
                           &req->output_height);
        req->zoom_ratio = static_cast<float>(zoom);
    }
    *error = tsr::geometryProblem(frame.width, frame.height, req->output_width, req->output_height,
                                  req->rect, req->zoom_ratio);
    return error->empty();
}

bool settleFiles(const tsr::CliOptions& o, tsr::BurstRequest* req, std::string* error) {
    if (o.params.empty()) {
        req->params_file = tsr::findDefaultParams();
        if (req->params_file.empty())
            fprintf(stderr,
                    "tavrin-sr: note: no tuning file found; the library's defaults apply\n");
    } else {
        FILE* f = fopen(o.params.c_str(), "rb");
        if (!f) {
            *error = o.params + ": cannot read the tuning file: " + strerror(errno);
            return false;
        }
        fclose(f);
        req->params_file = o.params;
    }
    req->cache_dir = o.cache_dir.empty() ? tsr::defaultCacheDir() : o.cache_dir;
    if (!tsr::makeFolders(req->cache_dir, error)) return false;
    const size_t slash = o.output.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : o.output.substr(0, slash + 1);
    if (access(folder.c_str(), W_OK) != 0) {
        *error = o.output + ": cannot write into " + folder + ": " + strerror(errno);
        return false;
    }
    return true;
}

void serveProperties(const tsr::CliOptions& o) {
    if (o.verbose) {
        tsr_setProperty("debug.tavrin.keld.enable", "1");
        tsr_setProperty("debug.tavrin.keld.log_level", "2");
    }
    if (o.threads > 0) tsr_setProperty("debug.tavrin.keld.core_num", std::to_string(o.threads));
    for (const auto& [key, value] : o.props)
        tsr_setProperty(key, value);
}

bool writeOutput(const tsr::CliOptions& o, const tavio::RawFrame& out, std::string* error) {
    tavio::FrameWriteOptions options;
    options.jpeg_quality = o.jpeg_quality;
    options.png_level = o.png_level;
    options.threads = readerThreads();
    return tavio::writeFrame(o.output, out, options, error);
}

std::string runFailure(const tsr::BurstResult& r) {
    if (!r.failed_call.empty())
        return r.failed_call + " failed: " + tsr::statusName(r.status) +
               " (run with --verbose for the library's log)";
    return "the library wrote no output: TavrinKELD_process returned " + tsr::statusName(r.status) +
           " but left the output buffer as it was " + "(run with --verbose for the library's log)";
}

}  // namespace

int main(int argc, char** argv) {
    tsr::CliOptions o;
    std::string error;
    if (!tsr::parseCommandLine(argc, argv, &o, &error))
        return failWith(kExitUsage, error + " (see tavrin-sr --help)");
    if (o.help) {
        fputs(tsr::usageText(), stdout);
        return 0;
    }
    if (o.version) {
        printf("%s\n", TavrinKELD_getVersion());
        return 0;
    }
    std::vector<tavio::RawFrame> frames;
    if (!loadFrames(o, &frames, &error)) return failWith(kExitFailure, error);
    tsr::BurstRequest req;
    if (!settleGeometry(o, frames[0], &req, &error)) return failWith(kExitFailure, error);
    if (!settleFiles(o, &req, &error)) return failWith(kExitFailure, error);
    serveProperties(o);
    for (tavio::RawFrame& f : frames)
        req.frames.push_back(&f);
    req.iso = o.iso;
    req.exposures = o.exposures;
    req.base = o.base;
    req.camera_id = o.camera_id;
    for (const auto& f : o.faces)
        req.faces.push_back({f[0], f[1], f[2], f[3]});

    printf("tavrin-sr: %zu frame%s %s %s -> %s\n", frames.size(), frames.size() == 1 ? "" : "s",
           sizeText(frames[0].width, frames[0].height).c_str(),
           tavio::rawFormatName(frames[0].format),
           sizeText(req.output_width, req.output_height).c_str());
    fflush(stdout);
    tsr::BurstResult result;
    const bool ok = tsr::runBurst(req, &result);
    if (!result.tuning_note.empty())
        fprintf(stderr, "tavrin-sr: note: %s\n", result.tuning_note.c_str());
    if (!ok) return failWith(kExitFailure, runFailure(result));
    if (!writeOutput(o, result.output, &error)) return failWith(kExitFailure, error);
    printf("status: %s\n", tsr::statusName(result.status).c_str());
    printf("base frame: %d\n", result.base_id);
    // The result record holds the merge limit in force, not the number of frames merged.
    printf("merge limit: %d\n", result.merge_num);
    printf("time: %.0f ms (TavrinKELD_process %.0f ms)\n", std::round(result.total_ms),
           std::round(result.process_ms));
    printf("wrote: %s\n", o.output.c_str());
    return 0;
}
