// PNG of an 8-bit frame at the fast zlib levels, compressed in strips on several threads.
//
// Each thread converts its rows to RGB, applies the Up filter (the row above a strip is
// converted once more for its first row) and deflates them as raw deflate data; every strip but
// the last ends with a sync flush, so the strips join into one zlib stream. The stream's header
// is written here and its Adler-32 is the strips' checksums combined. The file is the signature,
// IHDR, the stream in IDAT chunks of at most 1 MiB, and IEND, each chunk with its CRC. A decoder
// cannot tell it from libpng's output at the same filter; only the deflate blocks differ at the
// strip joins.
#include <string.h>
#include <zlib.h>

#include <algorithm>
#include <thread>

#include "tools/imageio/image_io_internal.h"

namespace tavio {
namespace {

constexpr size_t kChunkBytes = size_t{1} << 20;
constexpr int32_t kFilterUp = 2;

struct Strip {
    int32_t y0 = 0, y1 = 0;
    std::vector<uint8_t> deflated;
    uLong adler = 1;
    uLong raw_bytes = 0;
    bool ok = false;
};

void putBigEndian(uint8_t* p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
}

bool writeChunk(FILE* file, const char* type, const uint8_t* data, size_t size) {
    uint8_t head[8];
    putBigEndian(head, static_cast<uint32_t>(size));
    memcpy(head + 4, type, 4);
    uLong crc = crc32(0L, head + 4, 4);
    if (size > 0) crc = crc32(crc, data, static_cast<uInt>(size));
    uint8_t tail[4];
    putBigEndian(tail, static_cast<uint32_t>(crc));
    return fwrite(head, 1, 8, file) == 8 && (size == 0 || fwrite(data, 1, size, file) == size) &&
           fwrite(tail, 1, 4, file) == 4;
}

// Rows y0 .. y1-1 filtered with Up and deflated; the last strip finishes the stream.
void deflateStrip(const RawFrame* frame, int32_t level, bool last, Strip* strip) {
    const size_t stride = static_cast<size_t>(frame->width) * 3;
    std::vector<uint8_t> above(stride, 0), row(stride), line(stride + 1);
    std::vector<int32_t> chroma(static_cast<size_t>(chromaWidth(frame->width)) * 2);
    int32_t* u = chroma.data();
    int32_t* v = u + chroma.size() / 2;
    if (strip->y0 > 0) frameRowToRgb(*frame, strip->y0 - 1, u, v, above.data());
    z_stream z{};
    if (deflateInit2(&z, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) return;
    strip->deflated.resize(deflateBound(&z, (stride + 1) * (strip->y1 - strip->y0)) + 64);
    z.next_out = strip->deflated.data();
    z.avail_out = static_cast<uInt>(strip->deflated.size());
    bool ok = true;
    for (int32_t y = strip->y0; y < strip->y1 && ok; ++y) {
        frameRowToRgb(*frame, y, u, v, row.data());
        line[0] = kFilterUp;
        for (size_t i = 0; i < stride; ++i)
            line[i + 1] = static_cast<uint8_t>(row[i] - above[i]);
        row.swap(above);
        strip->adler = adler32(strip->adler, line.data(), static_cast<uInt>(line.size()));
        strip->raw_bytes += line.size();
        z.next_in = line.data();
        z.avail_in = static_cast<uInt>(line.size());
        const int flush = y + 1 < strip->y1 ? Z_NO_FLUSH : last ? Z_FINISH : Z_SYNC_FLUSH;
        const int result = deflate(&z, flush);
        ok = z.avail_in == 0 && (result == Z_OK || result == Z_STREAM_END || result == Z_BUF_ERROR);
    }
    strip->deflated.resize(strip->deflated.size() - z.avail_out);
    deflateEnd(&z);
    strip->ok = ok;
}

}  // namespace

bool writePngStrips(FILE* file, const RawFrame& frame, int32_t level, int32_t threads,
                    std::string* error) {
    const int32_t n = std::max(1, std::min(threads, frame.height));
    std::vector<Strip> strips(static_cast<size_t>(n));
    std::vector<std::thread> helpers;
    for (int32_t k = 0; k < n; ++k) {
        strips[k].y0 = static_cast<int32_t>(int64_t{frame.height} * k / n);
        strips[k].y1 = static_cast<int32_t>(int64_t{frame.height} * (k + 1) / n);
    }
    for (int32_t k = 1; k < n; ++k)
        helpers.emplace_back(deflateStrip, &frame, level, k == n - 1, &strips[k]);
    deflateStrip(&frame, level, n == 1, &strips[0]);
    for (std::thread& t : helpers)
        t.join();

    // The zlib header: deflate with a 32 KiB window, the level's speed flag, a check value.
    const uint8_t flevel = level <= 1 ? 0 : level <= 5 ? 1 : level == 6 ? 2 : 3;
    uint8_t header[2] = {0x78, static_cast<uint8_t>(flevel << 6)};
    header[1] = static_cast<uint8_t>(header[1] + 31 - (header[0] * 256 + header[1]) % 31);
    std::vector<uint8_t> stream(header, header + 2);
    uLong adler = 1;
    for (const Strip& s : strips) {
        if (!s.ok) {
            *error = "PNG writer failed: deflate";
            return false;
        }
        stream.insert(stream.end(), s.deflated.begin(), s.deflated.end());
        adler = adler32_combine(adler, s.adler, static_cast<z_off_t>(s.raw_bytes));
    }
    uint8_t check[4];
    putBigEndian(check, static_cast<uint32_t>(adler));
    stream.insert(stream.end(), check, check + 4);

    static const uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    uint8_t ihdr[13] = {};
    putBigEndian(ihdr, static_cast<uint32_t>(frame.width));
    putBigEndian(ihdr + 4, static_cast<uint32_t>(frame.height));
    ihdr[8] = 8;  // bits a sample
    ihdr[9] = 2;  // RGB
    bool ok = fwrite(kSignature, 1, 8, file) == 8 && writeChunk(file, "IHDR", ihdr, 13);
    for (size_t at = 0; at < stream.size() && ok; at += kChunkBytes)
        ok =
            writeChunk(file, "IDAT", stream.data() + at, std::min(kChunkBytes, stream.size() - at));
    ok = ok && writeChunk(file, "IEND", nullptr, 0);
    if (!ok) *error = "PNG writer failed: cannot write the file";
    return ok;
}

}  // namespace tavio
