// PNG through libpng.
//
// readPngFile: any PNG (grey, palette, with or without alpha, 1 to 16 bits) into RGB of 8 bits,
//   or of 16 bits when the file has 16. Alpha and transparency are dropped.
// writePngFile: RGB of 8 or 16 bits.
// readPngFrame, writePngFrame: an 8-bit frame, a row (pair) at a time through the integer rows
//   of frame_files.cpp, so that no whole RGB picture is held.
// libpng reports errors by longjmp: every libpng call runs inside guardedRun, whose step
// functions keep their state in the job record and own nothing that needs a destructor.
#include <png.h>
#include <setjmp.h>
#include <string.h>

#include "tools/imageio/image_io_internal.h"

namespace tavio {
namespace {

constexpr int64_t kMaxPixels = int64_t{1} << 28;

struct PngGuard {
    jmp_buf jump;
    char message[256];
};

[[noreturn]] void onPngError(png_structp png, png_const_charp message) {
    auto* guard = static_cast<PngGuard*>(png_get_error_ptr(png));
    snprintf(guard->message, sizeof guard->message, "%s", message);
    longjmp(guard->jump, 1);
}

void onPngWarning(png_structp, png_const_charp) {}

bool hostIsLittleEndian() {
    const uint16_t probe = 1;
    uint8_t first;
    memcpy(&first, &probe, 1);
    return first == 1;
}

struct PngJob {
    png_structp png = nullptr;
    png_infop info = nullptr;
    FILE* file = nullptr;
    RgbImage* image = nullptr;              // read: the destination
    const RgbImage* source = nullptr;       // write: the picture
    int32_t level = 9;                      // write: zlib level
    std::vector<uint8_t>* bytes = nullptr;  // 8-bit staging rows
    std::vector<png_bytep>* rows = nullptr;
    bool too_large = false;
};

template <typename Job>
bool guardedRun(PngGuard* guard, void (*step)(Job*), Job* job) {
    if (setjmp(guard->jump) != 0) return false;
    step(job);
    return true;
}

void readHeader(PngJob* job) {
    png_init_io(job->png, job->file);
    png_read_info(job->png, job->info);
    const png_uint_32 w = png_get_image_width(job->png, job->info);
    const png_uint_32 h = png_get_image_height(job->png, job->info);
    if (int64_t{w} * h > kMaxPixels) {
        job->too_large = true;
        return;
    }
    const int type = png_get_color_type(job->png, job->info);
    const int depth = png_get_bit_depth(job->png, job->info);
    if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(job->png);
    if (type == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(job->png);
    if (type == PNG_COLOR_TYPE_GRAY || type == PNG_COLOR_TYPE_GRAY_ALPHA)
        png_set_gray_to_rgb(job->png);
    if (type & PNG_COLOR_MASK_ALPHA) png_set_strip_alpha(job->png);
    if (depth == 16 && hostIsLittleEndian()) png_set_swap(job->png);
    png_set_interlace_handling(job->png);
    png_read_update_info(job->png, job->info);
    job->image->width = static_cast<int32_t>(w);
    job->image->height = static_cast<int32_t>(h);
    job->image->bits = depth == 16 ? 16 : 8;
}

void readPixels(PngJob* job) {
    png_read_image(job->png, job->rows->data());
}

void writeAll(PngJob* job) {
    const RgbImage& im = *job->source;
    png_init_io(job->png, job->file);
    png_set_IHDR(job->png, job->info, static_cast<png_uint_32>(im.width),
                 static_cast<png_uint_32>(im.height), im.bits == 16 ? 16 : 8, PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(job->png, job->level);
    if (job->level <= kPngLastFastLevel) png_set_filter(job->png, 0, PNG_FILTER_UP);
    png_write_info(job->png, job->info);
    if (im.bits == 16 && hostIsLittleEndian()) png_set_swap(job->png);
    png_write_image(job->png, job->rows->data());
    png_write_end(job->png, nullptr);
}

// Colour transforms to 8-bit RGB; false for what the frame reader leaves to the RGB path.
bool setFrameTransforms(png_structp png, png_infop info) {
    const int type = png_get_color_type(png, info);
    const int depth = png_get_bit_depth(png, info);
    if (depth == 16 || png_get_interlace_type(png, info) != PNG_INTERLACE_NONE) return false;
    if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if (type == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(png);
    if (type == PNG_COLOR_TYPE_GRAY || type == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png);
    if (type & PNG_COLOR_MASK_ALPHA) png_set_strip_alpha(png);
    png_read_update_info(png, info);
    return png_get_rowbytes(png, info) == size_t{png_get_image_width(png, info)} * 3;
}

struct FrameJob {
    png_structp png = nullptr;
    png_infop info = nullptr;
    FILE* file = nullptr;
    RawFrame* frame = nullptr;         // read: the destination
    const RawFrame* source = nullptr;  // write: the frame
    std::vector<uint8_t>* rows = nullptr;
    std::vector<int32_t>* chroma = nullptr;  // write: two rows of chroma scratch
    int32_t level = 0;
    bool refused = false;
};

void frameHeader(FrameJob* job) {
    png_init_io(job->png, job->file);
    png_read_info(job->png, job->info);
    const png_uint_32 w = png_get_image_width(job->png, job->info);
    const png_uint_32 h = png_get_image_height(job->png, job->info);
    if (int64_t{w} * h > kMaxPixels || !setFrameTransforms(job->png, job->info)) {
        job->refused = true;
        return;
    }
    *job->frame = newFrame(static_cast<int32_t>(w), static_cast<int32_t>(h), job->frame->format);
    job->rows->resize(size_t{w} * 6);
}

void framePixels(FrameJob* job) {
    RawFrame* f = job->frame;
    const size_t stride = static_cast<size_t>(f->width) * 3;
    uint8_t* top = job->rows->data();
    for (int32_t y = 0; y < f->height; y += 2) {
        png_read_row(job->png, top, nullptr);
        if (y + 1 < f->height) png_read_row(job->png, top + stride, nullptr);
        rgbRowPairToFrame(top, y + 1 < f->height ? top + stride : top, y, f);
    }
    png_read_end(job->png, nullptr);
}

void frameWriteAll(FrameJob* job) {
    const RawFrame& f = *job->source;
    png_init_io(job->png, job->file);
    png_set_IHDR(job->png, job->info, static_cast<png_uint_32>(f.width),
                 static_cast<png_uint_32>(f.height), 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(job->png, job->level);
    // At the fast levels one predictor does nearly as well as libpng's trial of all five per
    // row, at a fraction of the time (bench/image_files_bench.cpp).
    if (job->level <= kPngLastFastLevel) png_set_filter(job->png, 0, PNG_FILTER_UP);
    png_write_info(job->png, job->info);
    const size_t cw = static_cast<size_t>(chromaWidth(f.width));
    int32_t* u = job->chroma->data();
    for (int32_t y = 0; y < f.height; ++y) {
        frameRowToRgb(f, y, u, u + cw, job->rows->data());
        png_write_row(job->png, job->rows->data());
    }
    png_write_end(job->png, nullptr);
}

}  // namespace

bool readPngFile(FILE* file, RgbImage* image, std::string* error) {
    PngGuard guard{};
    PngJob job;
    job.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &guard, onPngError, onPngWarning);
    if (job.png) job.info = png_create_info_struct(job.png);
    if (!job.info) {
        png_destroy_read_struct(&job.png, nullptr, nullptr);
        *error = "out of memory";
        return false;
    }
    RgbImage out;
    std::vector<uint8_t> bytes;
    std::vector<png_bytep> rows;
    job.file = file;
    job.image = &out;
    job.bytes = &bytes;
    job.rows = &rows;
    bool ok = guardedRun(&guard, readHeader, &job);
    if (ok && job.too_large) {
        snprintf(guard.message, sizeof guard.message, "image too large");
        ok = false;
    }
    if (ok) {
        const size_t samples = static_cast<size_t>(out.width) * out.height * 3;
        const size_t row_bytes = png_get_rowbytes(job.png, job.info);
        const size_t want = static_cast<size_t>(out.width) * 3 * (out.bits / 8);
        if (row_bytes != want) {
            snprintf(guard.message, sizeof guard.message, "unexpected row layout");
            ok = false;
        } else {
            out.rgb.resize(samples);
            if (out.bits == 8) bytes.resize(samples);
            rows.resize(static_cast<size_t>(out.height));
            for (int32_t y = 0; y < out.height; ++y) {
                rows[y] = out.bits == 16
                              ? reinterpret_cast<png_bytep>(&out.rgb[size_t(y) * out.width * 3])
                              : &bytes[size_t(y) * out.width * 3];
            }
            ok = guardedRun(&guard, readPixels, &job);
        }
    }
    png_destroy_read_struct(&job.png, &job.info, nullptr);
    if (!ok) {
        *error = std::string("bad PNG file: ") + guard.message;
        return false;
    }
    if (out.bits == 8) {
        for (size_t i = 0; i < bytes.size(); ++i)
            out.rgb[i] = bytes[i];
    }
    *image = std::move(out);
    return true;
}

bool writePngFile(FILE* file, const RgbImage& image, std::string* error, int32_t level) {
    PngGuard guard{};
    PngJob job;
    job.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &guard, onPngError, onPngWarning);
    if (job.png) job.info = png_create_info_struct(job.png);
    if (!job.info) {
        png_destroy_write_struct(&job.png, nullptr);
        *error = "out of memory";
        return false;
    }
    std::vector<uint8_t> bytes;
    std::vector<uint16_t> words;
    std::vector<png_bytep> rows(static_cast<size_t>(image.height));
    const size_t row_samples = static_cast<size_t>(image.width) * 3;
    if (image.bits == 16) {
        words = image.rgb;
        for (int32_t y = 0; y < image.height; ++y)
            rows[y] = reinterpret_cast<png_bytep>(&words[y * row_samples]);
    } else {
        bytes.resize(image.rgb.size());
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<uint8_t>(image.rgb[i] > 255 ? 255 : image.rgb[i]);
        for (int32_t y = 0; y < image.height; ++y)
            rows[y] = &bytes[y * row_samples];
    }
    job.file = file;
    job.source = &image;
    job.level = level;
    job.rows = &rows;
    const bool ok = guardedRun(&guard, writeAll, &job);
    png_destroy_write_struct(&job.png, &job.info);
    if (!ok) *error = std::string("PNG writer failed: ") + guard.message;
    return ok;
}

bool readPngFrame(FILE* file, RawFormat format, RawFrame* frame, bool* refused,
                  std::string* error) {
    PngGuard guard{};
    FrameJob job;
    job.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &guard, onPngError, onPngWarning);
    if (job.png) job.info = png_create_info_struct(job.png);
    *refused = false;
    if (!job.info) {
        png_destroy_read_struct(&job.png, nullptr, nullptr);
        *error = "out of memory";
        return false;
    }
    RawFrame out;
    out.format = format;
    std::vector<uint8_t> rows;
    job.file = file;
    job.frame = &out;
    job.rows = &rows;
    bool ok = guardedRun(&guard, frameHeader, &job);
    if (ok && !job.refused) ok = guardedRun(&guard, framePixels, &job);
    png_destroy_read_struct(&job.png, &job.info, nullptr);
    *refused = job.refused;
    if (!ok) *error = std::string("bad PNG file: ") + guard.message;
    if (!ok || job.refused) return false;
    *frame = std::move(out);
    return true;
}

bool writePngFrame(FILE* file, const RawFrame& frame, int32_t level, std::string* error) {
    PngGuard guard{};
    FrameJob job;
    job.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &guard, onPngError, onPngWarning);
    if (job.png) job.info = png_create_info_struct(job.png);
    if (!job.info) {
        png_destroy_write_struct(&job.png, nullptr);
        *error = "out of memory";
        return false;
    }
    std::vector<uint8_t> row(static_cast<size_t>(frame.width) * 3);
    std::vector<int32_t> chroma(static_cast<size_t>(chromaWidth(frame.width)) * 2);
    job.file = file;
    job.source = &frame;
    job.rows = &row;
    job.chroma = &chroma;
    job.level = level;
    const bool ok = guardedRun(&guard, frameWriteAll, &job);
    png_destroy_write_struct(&job.png, &job.info);
    if (!ok) *error = std::string("PNG writer failed: ") + guard.message;
    return ok;
}

}  // namespace tavio
