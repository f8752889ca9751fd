// JPEG through libjpeg(-turbo).
//
// readJpegFile: greyscale or colour (YCbCr or RGB) JPEG into 8-bit RGB; CMYK is refused.
// writeJpegFile: 8-bit RGB at the given quality, 4:2:0; 16-bit samples are rounded to 8 bits.
// libjpeg ends a failed call by its error_exit handler, which here longjmps back into
// guardedRun; the step functions own nothing that needs a destructor.
#include <setjmp.h>
#include <stdio.h>

// jpeglib.h needs FILE and size_t declared first.
#include <jpeglib.h>

#include "tools/imageio/image_io_internal.h"

namespace tavio {
namespace {

constexpr int64_t kMaxPixels = int64_t{1} << 28;

struct JpegGuard {
    jpeg_error_mgr manager;  // first: libjpeg hands back a pointer to it
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void onJpegError(j_common_ptr info) {
    auto* guard = reinterpret_cast<JpegGuard*>(info->err);
    (*info->err->format_message)(info, guard->message);
    longjmp(guard->jump, 1);
}

void onJpegMessage(j_common_ptr, int) {}

struct ReadJob {
    jpeg_decompress_struct* info;
    FILE* file;
    RgbImage* image;
    std::vector<uint8_t>* bytes;
    bool refused;
};

struct WriteJob {
    jpeg_compress_struct* info;
    FILE* file;
    const std::vector<uint8_t>* bytes;
    int32_t width, height, quality;
};

template <typename Job>
bool guardedRun(JpegGuard* guard, void (*step)(Job*), Job* job) {
    if (setjmp(guard->jump) != 0) return false;
    step(job);
    return true;
}

void readHeader(ReadJob* job) {
    jpeg_stdio_src(job->info, job->file);
    jpeg_read_header(job->info, TRUE);
    const J_COLOR_SPACE space = job->info->jpeg_color_space;
    if (space == JCS_CMYK || space == JCS_YCCK ||
        int64_t{job->info->image_width} * job->info->image_height > kMaxPixels) {
        job->refused = true;
        return;
    }
    job->info->out_color_space = JCS_RGB;
    jpeg_start_decompress(job->info);
    job->image->width = static_cast<int32_t>(job->info->output_width);
    job->image->height = static_cast<int32_t>(job->info->output_height);
}

void readPixels(ReadJob* job) {
    const size_t stride = static_cast<size_t>(job->image->width) * 3;
    while (job->info->output_scanline < job->info->output_height) {
        JSAMPROW row = job->bytes->data() + job->info->output_scanline * stride;
        jpeg_read_scanlines(job->info, &row, 1);
    }
    jpeg_finish_decompress(job->info);
}

void writeAll(WriteJob* job) {
    jpeg_stdio_dest(job->info, job->file);
    job->info->image_width = static_cast<JDIMENSION>(job->width);
    job->info->image_height = static_cast<JDIMENSION>(job->height);
    job->info->input_components = 3;
    job->info->in_color_space = JCS_RGB;
    jpeg_set_defaults(job->info);
    jpeg_set_quality(job->info, job->quality, TRUE);
    jpeg_start_compress(job->info, TRUE);
    const size_t stride = static_cast<size_t>(job->width) * 3;
    while (job->info->next_scanline < job->info->image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(job->bytes->data() + job->info->next_scanline * stride);
        jpeg_write_scanlines(job->info, &row, 1);
    }
    jpeg_finish_compress(job->info);
}

}  // namespace

bool readJpegFile(FILE* file, RgbImage* image, std::string* error) {
    JpegGuard guard{};
    jpeg_decompress_struct info{};
    info.err = jpeg_std_error(&guard.manager);
    guard.manager.error_exit = onJpegError;
    guard.manager.emit_message = onJpegMessage;
    jpeg_create_decompress(&info);
    RgbImage out;
    std::vector<uint8_t> bytes;
    ReadJob job{&info, file, &out, &bytes, false};
    bool ok = guardedRun(&guard, readHeader, &job);
    if (ok && job.refused) {
        snprintf(guard.message, sizeof guard.message, "CMYK or oversized JPEG not supported");
        ok = false;
    }
    if (ok) {
        bytes.resize(static_cast<size_t>(out.width) * out.height * 3);
        ok = guardedRun(&guard, readPixels, &job);
    }
    jpeg_destroy_decompress(&info);
    if (!ok) {
        *error = std::string("bad JPEG file: ") + guard.message;
        return false;
    }
    out.bits = 8;
    out.rgb.assign(bytes.begin(), bytes.end());
    *image = std::move(out);
    return true;
}

bool writeJpegFile(FILE* file, const RgbImage& image, int32_t quality, std::string* error) {
    std::vector<uint8_t> bytes(image.rgb.size());
    for (size_t i = 0; i < bytes.size(); ++i) {
        const uint32_t v = image.bits == 16 ? (image.rgb[i] + 128u) / 257u : image.rgb[i];
        bytes[i] = static_cast<uint8_t>(v > 255 ? 255 : v);
    }
    JpegGuard guard{};
    jpeg_compress_struct info{};
    info.err = jpeg_std_error(&guard.manager);
    guard.manager.error_exit = onJpegError;
    guard.manager.emit_message = onJpegMessage;
    jpeg_create_compress(&info);
    WriteJob job{&info, file, &bytes, image.width, image.height, quality};
    const bool ok = guardedRun(&guard, writeAll, &job);
    jpeg_destroy_compress(&info);
    if (!ok) *error = std::string("JPEG writer failed: ") + guard.message;
    return ok;
}

}  // namespace tavio
