// Burst manifests: the writer, the reader and path resolution.
//
// writeManifest: every field of the record, doubles as %.17g, through the atomic writer.
// readManifest: key-driven; each known key checks its own field count and ranges, and the file
//   as a whole must name frame_size, truth_size, truth and one frame line per index 0..n-1.
#include "tools/toolkit/manifest.h"

#include <inttypes.h>
#include <stdio.h>

#include <fstream>
#include <sstream>

namespace tavtool {
namespace {

void putDouble(FILE* f, double v) {
    fprintf(f, " %.17g", v);
}

bool writeBody(FILE* f, const Manifest& m) {
    fprintf(f, "# Synthetic burst made by make-burst: settings, then one line per frame.\n");
    fprintf(f, "format tavrin-burst 1\n");
    fprintf(f, "source %s\n", m.source.c_str());
    fprintf(f, "seed %" PRIu64 "\n", m.seed);
    fprintf(f, "factor %d\n", m.factor);
    fprintf(f, "zoom");
    putDouble(f, m.zoom);
    fprintf(f, "\norigin %d %d\n", m.origin_x, m.origin_y);
    fprintf(f, "frame_size %d %d\n", m.frame_width, m.frame_height);
    fprintf(f, "truth_size %d %d\n", m.truth_width, m.truth_height);
    fprintf(f, "truth %s\n", m.truth.c_str());
    fprintf(f, "base %d\n", m.base);
    fprintf(f, "iso %d\n", m.iso);
    fprintf(f, "exposure %d\n", m.exposure);
    fprintf(f, "noise");
    putDouble(f, m.noise.gain);
    putDouble(f, m.noise.read);
    fprintf(f, "\ndepth %d\n", m.depth);
    fprintf(f, "supersample %d\n", m.supersample);
    fprintf(f, "limits");
    for (double v : m.limits)
        putDouble(f, v);
    fprintf(f, "\n");
    for (size_t k = 0; k < m.frames.size(); ++k) {
        const ManifestFrame& fr = m.frames[k];
        fprintf(f, "frame %zu %s", k, fr.file.c_str());
        for (double v : fr.h.m)
            putDouble(f, v);
        fprintf(f, "\nmotion %zu", k);
        for (double v : {fr.motion.dx, fr.motion.dy, fr.motion.angle_deg, fr.motion.scale,
                         fr.motion.kx, fr.motion.ky})
            putDouble(f, v);
        fprintf(f, "\n");
    }
    for (size_t g = 0; g < m.ghosts.size(); ++g) {
        const GhostPatch& p = m.ghosts[g];
        fprintf(f, "ghost %zu", g);
        for (double v : {p.size, p.src_x, p.src_y, p.x0, p.y0, p.vx, p.vy})
            putDouble(f, v);
        fprintf(f, "\n");
    }
    return !ferror(f);
}

// Reads exactly `n` numbers from the rest of the line.
template <typename T>
bool readNumbers(std::istringstream& in, T* values, int n) {
    for (int i = 0; i < n; ++i) {
        if (!(in >> values[i])) return false;
    }
    std::string extra;
    return !(in >> extra);
}

struct Seen {
    bool frame_size = false, truth_size = false, truth = false;
};

// One line; false when it is malformed.
bool parseLine(const std::string& key, std::istringstream& in, Manifest* m, Seen* seen) {
    if (key == "format") {
        std::string name;
        int version = 0;
        return (in >> name >> version) && name == "tavrin-burst" && version == 1;
    }
    if (key == "source") {
        std::getline(in >> std::ws, m->source);
        return true;
    }
    if (key == "truth") {
        seen->truth = true;
        return static_cast<bool>(in >> m->truth);
    }
    if (key == "seed") return readNumbers(in, &m->seed, 1);
    if (key == "factor") return readNumbers(in, &m->factor, 1) && m->factor >= 1;
    if (key == "zoom") return readNumbers(in, &m->zoom, 1) && m->zoom > 0.0;
    if (key == "base") return readNumbers(in, &m->base, 1) && m->base >= 0;
    if (key == "iso") return readNumbers(in, &m->iso, 1) && m->iso >= 1;
    if (key == "exposure") return readNumbers(in, &m->exposure, 1) && m->exposure >= 1;
    if (key == "depth") return readNumbers(in, &m->depth, 1);
    if (key == "supersample") return readNumbers(in, &m->supersample, 1);
    if (key == "limits") return readNumbers(in, m->limits, 4);
    if (key == "noise") {
        double v[2];
        if (!readNumbers(in, v, 2)) return false;
        m->noise = {v[0], v[1]};
        return true;
    }
    if (key == "origin") {
        int32_t v[2];
        if (!readNumbers(in, v, 2)) return false;
        m->origin_x = v[0];
        m->origin_y = v[1];
        return true;
    }
    if (key == "frame_size" || key == "truth_size") {
        int32_t v[2];
        if (!readNumbers(in, v, 2) || v[0] < 1 || v[1] < 1) return false;
        (key == "frame_size" ? m->frame_width : m->truth_width) = v[0];
        (key == "frame_size" ? m->frame_height : m->truth_height) = v[1];
        (key == "frame_size" ? seen->frame_size : seen->truth_size) = true;
        return true;
    }
    if (key == "frame" || key == "motion" || key == "ghost") {
        size_t index = 0;
        if (!(in >> index) || index > 4096) return false;
        if (key == "ghost") {
            double v[7];
            if (!readNumbers(in, v, 7)) return false;
            if (m->ghosts.size() <= index) m->ghosts.resize(index + 1);
            m->ghosts[index] = {v[0], v[1], v[2], v[3], v[4], v[5], v[6]};
            return true;
        }
        if (m->frames.size() <= index) m->frames.resize(index + 1);
        ManifestFrame& fr = m->frames[index];
        if (key == "frame") return (in >> fr.file) && readNumbers(in, fr.h.m, 9);
        double v[6];
        if (!readNumbers(in, v, 6)) return false;
        fr.motion = {v[0], v[1], v[2], v[3], v[4], v[5]};
        return true;
    }
    return true;  // a key of a later version
}

}  // namespace

Manifest manifestOf(const Burst& burst, const std::string& source,
                    const std::vector<std::string>& frame_files, const std::string& truth_file,
                    int32_t exposure) {
    const BurstConfig& c = burst.config;
    Manifest m;
    m.source = source;
    m.seed = c.seed;
    m.factor = c.factor;
    m.zoom = c.zoom;
    m.origin_x = burst.origin_x;
    m.origin_y = burst.origin_y;
    m.frame_width = burst.frame_width;
    m.frame_height = burst.frame_height;
    m.truth_width = burst.truth_width;
    m.truth_height = burst.truth_height;
    m.truth = truth_file;
    m.base = c.base;
    m.iso = c.iso;
    m.exposure = exposure;
    m.noise = c.noise;
    m.depth = c.depth;
    m.supersample = c.supersample;
    m.limits[0] = c.max_shift;
    m.limits[1] = c.max_rotate_deg;
    m.limits[2] = c.max_scale;
    m.limits[3] = c.max_keystone;
    for (size_t k = 0; k < burst.frames.size(); ++k)
        m.frames.push_back({frame_files[k], burst.homographies[k], burst.motions[k]});
    m.ghosts = burst.ghosts;
    return m;
}

bool writeManifest(const std::string& path, const Manifest& manifest, std::string* error) {
    return tavio::writeFileAtomic(
        path,
        [&](FILE* f, std::string* why) {
            if (writeBody(f, manifest)) return true;
            *why = "cannot write " + path;
            return false;
        },
        error);
}

bool readManifest(const std::string& path, Manifest* manifest, std::string* error) {
    std::ifstream file(path);
    if (!file) {
        *error = "cannot open " + path;
        return false;
    }
    Manifest m;
    Seen seen;
    std::string line;
    for (int32_t number = 1; std::getline(file, line); ++number) {
        const size_t hash = line.find('#');
        if (hash != std::string::npos) line.erase(hash);
        std::istringstream in(line);
        std::string key;
        if (!(in >> key)) continue;
        if (!parseLine(key, in, &m, &seen)) {
            *error = path + ":" + std::to_string(number) + ": malformed '" + key + "' line";
            return false;
        }
    }
    bool frames_named = !m.frames.empty();
    for (const ManifestFrame& fr : m.frames)
        frames_named = frames_named && !fr.file.empty();
    if (!seen.frame_size || !seen.truth_size || !seen.truth || !frames_named ||
        m.base >= static_cast<int32_t>(m.frames.size())) {
        *error = path + ": not a complete burst manifest (sizes, truth, base and frames)";
        return false;
    }
    *manifest = std::move(m);
    return true;
}

std::string manifestFile(const std::string& manifest_path, const std::string& file) {
    if (!file.empty() && file[0] == '/') return file;
    const size_t slash = manifest_path.find_last_of('/');
    if (slash == std::string::npos) return file;
    return manifest_path.substr(0, slash + 1) + file;
}

}  // namespace tavtool
