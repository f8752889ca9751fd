// Driving the public interface for one burst.
//
// runBurst: TavrinKELD_init, TavrinKELD_setParamsByCfgFile (only with a tuning file; a file
//   without a row for this capture is a note, not a failure: the library keeps its defaults),
//   TavrinKELD_addFaceRect, TavrinKELD_addImage, TavrinKELD_process, TavrinKELD_uninit. The first
//   failing call ends the run; uninit runs whenever init succeeded.
// geometryProblem: the library's size rules, restated so that a refusal can be named before the
//   run, since a refusal inside TavrinKELD_process is reported as success.
#include "cli/burst_runner.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace tsr {
namespace {

double nowMs() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec * 1000.0 + t.tv_nsec / 1e6;
}

// A pattern the engine will not write by chance: xorshift32 from a fixed seed.
void fillCanary(std::vector<uint8_t>* bytes) {
    uint32_t x = 0x9E3779B9u;
    for (uint8_t& b : *bytes) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        b = static_cast<uint8_t>(x >> 24);
    }
}

tavrin_KELD_Image imageOf(tavio::RawFrame* frame) {
    tavrin_KELD_Image im = {};
    im.width = frame->width;
    im.height = frame->height;
    im.plane0 = frame->plane0();
    im.plane1 = frame->plane1();
    im.pitch0 = frame->layout.pitch0;
    im.pitch1 = frame->layout.pitch1;
    return im;
}

bool readable(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), R_OK) == 0;
}

std::string executableFolder() {
    char buffer[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return "";
    buffer[n] = '\0';
    std::string path(buffer);
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

// The run after a successful init; uninit is the caller's.
bool feedAndProcess(tavrin_KELD_Obj** handle, const BurstRequest& req, BurstResult* res) {
    const auto fail = [&](const char* call, uint64_t status) {
        res->failed_call = call;
        res->status = static_cast<uint32_t>(status);
        return false;
    };
    if (!req.params_file.empty()) {
        const tavrin_KELD_PublicMetaData meta = {req.iso, req.exposures[0], 0};
        const uint32_t status = static_cast<uint32_t>(TavrinKELD_setParamsByCfgFile(handle, &meta));
        if (status != TAV_OK) {
            res->tuning_note = "the tuning file has no row for ISO " + std::to_string(req.iso) +
                               " at this zoom (" + statusName(status) +
                               "); the library's defaults apply";
        }
    }
    for (const tavrin_KELD_Rect& face : req.faces) {
        const uint64_t status = TavrinKELD_addFaceRect(handle, &face);
        if (static_cast<uint32_t>(status) != TAV_OK) return fail("TavrinKELD_addFaceRect", status);
    }
    for (size_t k = 0; k < req.frames.size(); ++k) {
        const tavrin_KELD_Image image = imageOf(req.frames[k]);
        const tavrin_KELD_PublicMetaData meta = {req.iso, req.exposures[k],
                                                 static_cast<int32_t>(k) == req.base ? 1 : 0};
        const uint64_t status = TavrinKELD_addImage(handle, &image, &meta);
        if (static_cast<uint32_t>(status) != TAV_OK) return fail("TavrinKELD_addImage", status);
    }
    tavio::RawFrame& out = res->output;
    out.width = req.output_width;
    out.height = req.output_height;
    out.format = req.frames[0]->format == tavio::RawFormat::Nv21 ? tavio::RawFormat::Nv21
                                                                 : tavio::RawFormat::Nv12;
    out.layout = tavio::rawLayout(out.width, out.height, out.format);
    out.bytes.resize(static_cast<size_t>(out.layout.size()));
    fillCanary(&out.bytes);
    const std::vector<uint8_t> canary = out.bytes;
    const tavrin_KELD_Image output = imageOf(&out);
    tavrin_KELD_ProcessResult pr = {-1, 0};
    const double start = nowMs();
    const uint64_t status = TavrinKELD_process(handle, &output, &pr);
    res->process_ms = nowMs() - start;
    if (static_cast<uint32_t>(status) != TAV_OK) return fail("TavrinKELD_process", status);
    res->base_id = pr.base_id;
    res->merge_num = pr.merge_num;
    res->output_written = out.bytes != canary;
    return res->output_written;
}

}  // namespace

bool runBurst(const BurstRequest& req, BurstResult* res) {
    *res = BurstResult();
    if (req.frames.empty() || req.exposures.size() != req.frames.size()) {
        res->status = TAV_ERROR_PARAM;
        return false;
    }
    const tavio::RawFrame& first = *req.frames[0];
    const double start = nowMs();
    tavrin_KELD_PublicInitParams init = {};
    init.camera_id = req.camera_id;
    init.width = first.width;
    init.height = first.height;
    init.stride = first.layout.pitch0;
    init.output_width = req.output_width;
    init.output_height = req.output_height;
    init.num_max_ev = static_cast<int32_t>(req.frames.size());
    init.zoom_ratio = req.zoom_ratio;
    std::copy(req.rect, req.rect + 4, init.zoom_rect);
    init.format = formatCode(first.format);
    init.params_cfg_file = req.params_file.empty() ? nullptr : req.params_file.c_str();
    init.params_bin_file = req.cache_dir.c_str();
    init.affinity_mask = 240;
    tavrin_KELD_Obj* handle = nullptr;
    const uint64_t status = TavrinKELD_init(&handle, &init);
    if (static_cast<uint32_t>(status) != TAV_OK) {
        res->failed_call = "TavrinKELD_init";
        res->status = static_cast<uint32_t>(status);
        return false;
    }
    const bool ok = feedAndProcess(&handle, req, res);
    const uint64_t closed = TavrinKELD_uninit(&handle);
    res->total_ms = nowMs() - start;
    if (ok && static_cast<uint32_t>(closed) != TAV_OK) {
        res->failed_call = "TavrinKELD_uninit";
        res->status = static_cast<uint32_t>(closed);
        return false;
    }
    return ok;
}

std::string statusName(uint32_t status) {
    static const struct {
        uint32_t value;
        const char* name;
    } kNames[] = {
        {TAV_OK, "TAV_OK"},
        {TAV_ERROR_GENERIC, "TAV_ERROR_GENERIC"},
        {TAV_ERROR_PARAM, "TAV_ERROR_PARAM"},
        {TAV_ERROR_STATE, "TAV_ERROR_STATE"},
        {TAV_ERROR_MALLOC, "TAV_ERROR_MALLOC"},
        {TAV_ERROR_IO, "TAV_ERROR_IO"},
        {TAV_ERROR_UNSUPPORTED, "TAV_ERROR_UNSUPPORTED"},
        {TAV_ERROR_NOT_FOUND, "TAV_ERROR_NOT_FOUND"},
        {TAV_ERROR_MAGIC, "TAV_ERROR_MAGIC"},
        {TAV_ERROR_TIMEOUT, "TAV_ERROR_TIMEOUT"},
        {TAV_ERROR_BUFFER, "TAV_ERROR_BUFFER"},
    };
    for (const auto& n : kNames) {
        if (n.value == status) return n.name;
    }
    char text[16];
    snprintf(text, sizeof text, "0x%08X", status);
    return text;
}

int32_t formatCode(tavio::RawFormat format) {
    switch (format) {
        case tavio::RawFormat::Nv12:
            return 48;
        case tavio::RawFormat::Nv21:
            return 49;
        case tavio::RawFormat::P10:
            return 62;
    }
    return 0;
}

std::string geometryProblem(int32_t width, int32_t height, int32_t output_width,
                            int32_t output_height, const int32_t rect[4], float zoom_ratio) {
    const std::string frame = std::to_string(width) + "x" + std::to_string(height);
    const std::string output = std::to_string(output_width) + "x" + std::to_string(output_height);
    if (width % 2 || height % 2) return "frame size " + frame + ": the library needs even sizes";
    if (output_width % 2 || output_height % 2)
        return "output size " + output + ": the library needs even sizes";
    if (output_width < width || output_height < height)
        return "output size " + output + " is smaller than the frames (" + frame +
               "); the library's output is at least the frame size";
    int32_t r[4] = {rect[0], rect[1], rect[2], rect[3]};
    if (r[0] == r[2]) {
        r[0] = 0;
        r[1] = 0;
        r[2] = width;
        r[3] = height;
    }
    float zoom = zoom_ratio;
    if (zoom_ratio == 0.0f || output_width != width) {
        const double zx = static_cast<double>(output_width) / (r[2] - r[0]);
        const double zy = static_cast<double>(output_height) / (r[3] - r[1]);
        zoom = static_cast<float>(std::max(zx, zy));
    } else {
        r[0] = 0;
        r[1] = 0;
        r[2] = width;
        r[3] = height;
    }
    char ratio[32];
    snprintf(ratio, sizeof ratio, "%.4g", zoom);
    if (zoom < 1.0f || zoom > 30.0f)
        return std::string("zoom ratio ") + ratio + " is outside 1..30";
    if (static_cast<int32_t>(static_cast<float>(width) * zoom) < output_width ||
        static_cast<int32_t>(static_cast<float>(height) * zoom) < output_height)
        return std::string("output size ") + output + " cannot be reached from " + frame +
               " at ratio " + ratio;
    const int32_t win_w = static_cast<int32_t>(static_cast<float>(output_width) / zoom);
    const int32_t win_h = static_cast<int32_t>(static_cast<float>(output_height) / zoom);
    const int32_t cx = (r[0] + r[2]) / 2;
    const int32_t cy = (r[1] + r[3]) / 2;
    if (cx - win_w / 2 < 0 || cx - win_w / 2 + win_w > width || cy - win_h / 2 < 0 ||
        cy - win_h / 2 + win_h > height)
        return "the zoom window (" + std::to_string(win_w) + "x" + std::to_string(win_h) +
               " around " + std::to_string(cx) + "," + std::to_string(cy) +
               ") does not fit inside the frame";
    return "";
}

void outputForZoom(int32_t width, int32_t height, const int32_t rect[4], double zoom,
                   int32_t* output_width, int32_t* output_height) {
    const bool whole = rect[0] == rect[2];
    const int32_t rw = whole ? width : rect[2] - rect[0];
    const int32_t rh = whole ? height : rect[3] - rect[1];
    int32_t ow = static_cast<int32_t>(zoom * rw) & ~1;
    int32_t oh = static_cast<int32_t>(zoom * rh) & ~1;
    for (int attempt = 0; attempt < 4 && ow > 2 && oh > 2; ++attempt) {
        const float z = static_cast<float>(
            std::max(static_cast<double>(ow) / rw, static_cast<double>(oh) / rh));
        const bool wide = static_cast<int32_t>(static_cast<float>(width) * z) >= ow;
        const bool tall = static_cast<int32_t>(static_cast<float>(height) * z) >= oh;
        if (wide && tall) break;
        if (!wide) ow -= 2;
        if (!tall) oh -= 2;
    }
    *output_width = ow;
    *output_height = oh;
}

std::string findDefaultParams() {
    static const char kName[] = "tavrin_keld_params_sample.xml";
    std::vector<std::string> places;
    const std::string exe = executableFolder();
    if (!exe.empty()) {
        places.push_back(exe + "/../share/tavrin/params");
        places.push_back(exe + "/../data/params");
        places.push_back(exe + "/../../data/params");
    }
#ifdef TAVRIN_SOURCE_DIR
    places.push_back(std::string(TAVRIN_SOURCE_DIR) + "/data/params");
#endif
    for (const std::string& place : places) {
        const std::string path = place + "/" + kName;
        if (readable(path)) return path;
    }
    return "";
}

std::string defaultCacheDir() {
    const char* xdg = getenv("XDG_CACHE_HOME");
    if (xdg && xdg[0] == '/') return std::string(xdg) + "/tavrin-keld";
    const char* home = getenv("HOME");
    if (home && home[0] == '/') return std::string(home) + "/.cache/tavrin-keld";
    return "/tmp/tavrin-keld-" + std::to_string(getuid());
}

bool makeFolders(const std::string& path, std::string* error) {
    for (size_t at = 1; at <= path.size(); ++at) {
        if (at != path.size() && path[at] != '/') continue;
        const std::string part = path.substr(0, at);
        if (mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) {
            *error = "cannot make the folder " + part + ": " + strerror(errno);
            return false;
        }
    }
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        *error = path + " is not a folder";
        return false;
    }
    return true;
}

}  // namespace tsr
