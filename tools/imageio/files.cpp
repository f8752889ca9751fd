// Files: the atomic writer, the choice of container, raw frames and size texts.
//
// writeFileAtomic: mkstemp beside the target, body, flush, close, chmod to 0666 less the umask,
//   rename. The temporary file never survives a failure.
// readImage: PNG or JPEG by the first bytes of the file, whatever its name.
// writeImage: by the extension; anything else is refused before a file is made.
// readRaw: the file's size must be exactly the layout's, so a wrong --size or --format is caught.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>

#include "tools/imageio/image_io.h"
#include "tools/imageio/image_io_internal.h"

namespace tavio {
namespace {

std::string lowerExtension(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ext;
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

mode_t currentUmask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

}  // namespace

std::string systemError(const std::string& what, const std::string& path) {
    return what + " " + path + ": " + strerror(errno);
}

FileKind fileKindOf(const std::string& path) {
    const std::string ext = lowerExtension(path);
    if (ext == "png") return FileKind::Png;
    if (ext == "jpg" || ext == "jpeg") return FileKind::Jpeg;
    if (ext == "yuv") return FileKind::Yuv;
    return FileKind::Unknown;
}

bool writeFileAtomic(const std::string& path,
                     const std::function<bool(FILE* file, std::string* error)>& body,
                     std::string* error) {
    std::string temp = folderOf(path) + "/." + nameOf(path) + ".XXXXXX";
    const int fd = mkstemp(temp.data());
    if (fd < 0) {
        *error = systemError("cannot create a file in", folderOf(path));
        return false;
    }
    FILE* file = fdopen(fd, "wb");
    if (!file) {
        *error = systemError("cannot open", temp);
        close(fd);
        unlink(temp.c_str());
        return false;
    }
    bool ok = body(file, error);
    if (ok && (fflush(file) != 0 || ferror(file))) {
        *error = systemError("cannot write", path);
        ok = false;
    }
    if (ok && fchmod(fd, 0666 & ~currentUmask()) != 0) {
        *error = systemError("cannot set the permissions of", path);
        ok = false;
    }
    if (fclose(file) != 0 && ok) {
        *error = systemError("cannot write", path);
        ok = false;
    }
    if (ok && rename(temp.c_str(), path.c_str()) != 0) {
        *error = systemError("cannot write", path);
        ok = false;
    }
    if (!ok) unlink(temp.c_str());
    return ok;
}

bool readImage(const std::string& path, RgbImage* image, std::string* error) {
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) {
        *error = systemError("cannot open", path);
        return false;
    }
    uint8_t head[8] = {};
    const size_t got = fread(head, 1, sizeof head, file);
    rewind(file);
    bool ok = false;
    if (got == 8 && memcmp(head, "\x89PNG\r\n\x1a\n", 8) == 0) {
        ok = readPngFile(file, image, error);
    } else if (got >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF) {
        ok = readJpegFile(file, image, error);
    } else {
        *error = "not a PNG or JPEG file";
    }
    fclose(file);
    if (!ok) *error = path + ": " + *error;
    return ok;
}

bool writeImage(const std::string& path, const RgbImage& image, std::string* error,
                int32_t jpeg_quality, int32_t png_level) {
    const FileKind kind = fileKindOf(path);
    if (kind != FileKind::Png && kind != FileKind::Jpeg) {
        *error = path + ": the name must end in .png, .jpg or .jpeg";
        return false;
    }
    return writeFileAtomic(
        path,
        [&](FILE* file, std::string* why) {
            const bool ok = kind == FileKind::Png ? writePngFile(file, image, why, png_level)
                                                  : writeJpegFile(file, image, jpeg_quality, why);
            if (!ok) *why = path + ": " + *why;
            return ok;
        },
        error);
}

bool readRaw(const std::string& path, int32_t width, int32_t height, RawFormat format,
             RawFrame* frame, std::string* error) {
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) {
        *error = systemError("cannot open", path);
        return false;
    }
    RawFrame f;
    f.width = width;
    f.height = height;
    f.format = format;
    f.layout = rawLayout(width, height, format);
    const int64_t want = f.layout.size();
    struct stat st;
    if (fstat(fileno(file), &st) != 0 || !S_ISREG(st.st_mode)) {
        *error = path + ": not a regular file";
        fclose(file);
        return false;
    }
    if (st.st_size != want) {
        *error = path + ": holds " + std::to_string(st.st_size) + " bytes, a " +
                 std::to_string(width) + "x" + std::to_string(height) + " " +
                 rawFormatName(format) + " frame has " + std::to_string(want);
        fclose(file);
        return false;
    }
    f.bytes.resize(static_cast<size_t>(want));
    const bool ok = fread(f.bytes.data(), 1, f.bytes.size(), file) == f.bytes.size();
    if (!ok) *error = systemError("cannot read", path);
    fclose(file);
    if (ok) *frame = std::move(f);
    return ok;
}

bool writeRaw(const std::string& path, const RawFrame& frame, std::string* error) {
    return writeFileAtomic(
        path,
        [&](FILE* file, std::string* why) {
            if (fwrite(frame.bytes.data(), 1, frame.bytes.size(), file) == frame.bytes.size()) {
                return true;
            }
            *why = systemError("cannot write", path);
            return false;
        },
        error);
}

namespace {

// "WxH" with both parts all digits; the values may still be out of range.
bool splitSize(const std::string& text, std::string* w, std::string* h) {
    const size_t x = text.find('x');
    if (x == std::string::npos || x == 0 || x + 1 >= text.size()) return false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (i != x && !std::isdigit(static_cast<unsigned char>(text[i]))) return false;
    }
    *w = text.substr(0, x);
    *h = text.substr(x + 1);
    return true;
}

// Digits as a number, saturating above kMaxSide so that no length of text overflows.
long sideOf(const std::string& digits) {
    long v = 0;
    for (char c : digits) {
        v = v * 10 + (c - '0');
        if (v > kMaxSide) return kMaxSide + 1;
    }
    return v;
}

}  // namespace

bool parseSize(const std::string& text, int32_t* width, int32_t* height) {
    std::string ws, hs;
    if (!splitSize(text, &ws, &hs)) return false;
    const long w = sideOf(ws), h = sideOf(hs);
    if (w < 1 || h < 1 || w > kMaxSide || h > kMaxSide) return false;
    *width = static_cast<int32_t>(w);
    *height = static_cast<int32_t>(h);
    return true;
}

std::string sizeProblem(const std::string& text) {
    std::string ws, hs;
    if (!splitSize(text, &ws, &hs)) return "expected WxH";
    if (sideOf(ws) < 1 || sideOf(hs) < 1) return "a side of 0 pixels";
    if (sideOf(ws) > kMaxSide || sideOf(hs) > kMaxSide)
        return "too large: each side must be at most " + std::to_string(kMaxSide) + " pixels";
    return "";
}

}  // namespace tavio
