// Packed 10-bit frames to 8 bits.
//
// tav_sr2_convertPacked10to8(threads, dst, src): code 62 into 48 or 49. Band k of t covers luma
//   rows ((k * h / t) + 3) & ~3 up to the next such start, and the chroma rows y0 / 2 up to
//   (y1 + 1) / 2 that belong to them; band starts are multiples of 4, so neighbouring bands never
//   share a chroma row. Each posted job claims bands by an atomic counter.
// tav_sr2_packed10LumaRow, tav_sr2_packed10ChromaRow: one row, whole words first.

#include "engine/convert_packed10.h"

#include <atomic>

#include "foundation/image_format.h"
#include "foundation/row_band.h"

namespace {

uint32_t loadWord(const uint8_t* p) {
    return (uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}

struct ConvertJob {
    tav_sr2_Image* dst;
    const tav_sr2_Image* src;
    int swap;
    int32_t bands;
    std::atomic<int32_t> next;
};

void convertBand(ConvertJob* job, int32_t band) {
    const tav_sr2_Image* s = job->src;
    tav_sr2_Image* d = job->dst;
    int32_t y0;
    int32_t y1;
    tav_sr2_rowBand(s->height, band, job->bands, &y0, &y1);
    for (int32_t y = y0; y < y1; ++y) {
        tav_sr2_packed10LumaRow(s->plane[0] + (int64_t)y * s->pitch[0], s->width,
                                d->plane[0] + (int64_t)y * d->pitch[0]);
    }
    const int32_t pairs = (s->width + 1) >> 1;
    for (int32_t y = y0 >> 1; y < ((y1 + 1) >> 1); ++y) {
        tav_sr2_packed10ChromaRow(s->plane[1] + (int64_t)y * s->pitch[1], pairs, job->swap,
                                  d->plane[1] + (int64_t)y * d->pitch[1]);
    }
}

uint32_t claimBands(ConvertJob* job) {
    for (;;) {
        const int32_t band = job->next.fetch_add(1, std::memory_order_relaxed);
        if (band >= job->bands) return TAV_OK;
        convertBand(job, band);
    }
}

uint32_t bandJobEntry(void* block) {
    return claimBands(*static_cast<ConvertJob**>(block));
}

uint32_t runBands(tav_sr2_ThreadPool* threads, ConvertJob* job) {
    if (threads == nullptr || job->bands == 1) return claimBands(job);
    ConvertJob* block = job;
    uint32_t status = TAV_OK;
    for (int32_t i = 0; i < job->bands && status == TAV_OK; ++i) {
        status = tav_sr2_ThreadPool_post(threads, bandJobEntry, &block, sizeof(block));
    }
    if (status != TAV_OK) claimBands(job);  // every band runs before the record goes away
    return status | tav_sr2_ThreadPool_join(threads);
}

bool planesFit(const tav_sr2_Image* im) {
    for (int32_t p = 0; p < 2; ++p) {
        const uint32_t need =
            tav_sr2_ImageFormat_query(im->width, im->height, im->format, p == 0 ? 4 : 7);
        if (im->plane[p] == nullptr || im->pitch[p] < 0 || (uint32_t)im->pitch[p] < need) {
            return false;
        }
    }
    return true;
}

}  // namespace

void tav_sr2_packed10LumaRow(const uint8_t* src, int32_t n, uint8_t* dst) {
    int32_t x = 0;
    for (; x + 3 <= n; x += 3, src += 4) {
        const uint32_t word = loadWord(src);
        dst[x] = tav_sr2_tenToEight(word & 0x3FF);
        dst[x + 1] = tav_sr2_tenToEight((word >> 10) & 0x3FF);
        dst[x + 2] = tav_sr2_tenToEight((word >> 20) & 0x3FF);
    }
    for (int32_t i = 0; x < n; ++x, ++i)
        dst[x] = tav_sr2_tenToEight(tav_sr2_packed10Sample(src, i));
}

void tav_sr2_packed10ChromaRow(const uint8_t* src, int32_t n, int swap, uint8_t* dst) {
    const int32_t u = swap ? 1 : 0;
    const int32_t v = 1 - u;
    int32_t j = 0;
    // Three pairs per 8-byte group: U0 V0 U1 in the first word, V1 U2 V2 in the second.
    for (; j + 3 <= n; j += 3, src += 8, dst += 6) {
        const uint32_t a = loadWord(src);
        const uint32_t b = loadWord(src + 4);
        dst[u] = tav_sr2_tenToEight(a & 0x3FF);
        dst[v] = tav_sr2_tenToEight((a >> 10) & 0x3FF);
        dst[2 + u] = tav_sr2_tenToEight((a >> 20) & 0x3FF);
        dst[2 + v] = tav_sr2_tenToEight(b & 0x3FF);
        dst[4 + u] = tav_sr2_tenToEight((b >> 10) & 0x3FF);
        dst[4 + v] = tav_sr2_tenToEight((b >> 20) & 0x3FF);
    }
    for (int32_t k = 0; j < n; ++j, ++k, dst += 2) {
        dst[u] = tav_sr2_tenToEight(tav_sr2_packed10Sample(src, 2 * k));
        dst[v] = tav_sr2_tenToEight(tav_sr2_packed10Sample(src, 2 * k + 1));
    }
}

uint32_t tav_sr2_convertPacked10to8(tav_sr2_ThreadPool* threads, tav_sr2_Image* dst,
                                    const tav_sr2_Image* src) {
    if (dst == nullptr || src == nullptr) return TAV_ERROR_PARAM;
    if (src->format != TAV_SR2_FMT_YUV10B_PACKED_LE_420S) return TAV_ERROR_UNSUPPORTED;
    if (dst->format != TAV_SR2_FMT_YUV420_SEMIPLANAR &&
        dst->format != TAV_SR2_FMT_YVU420_SEMIPLANAR) {
        return TAV_ERROR_UNSUPPORTED;
    }
    if (src->width < 1 || src->height < 1 || src->width != dst->width ||
        src->height != dst->height) {
        return TAV_ERROR_UNSUPPORTED;
    }
    if (!planesFit(src) || !planesFit(dst)) return TAV_ERROR_PARAM;
    ConvertJob job;
    job.dst = dst;
    job.src = src;
    job.swap = dst->format == TAV_SR2_FMT_YVU420_SEMIPLANAR;
    const int32_t workers = threads != nullptr ? tav_sr2_ThreadPool_threadCount(threads) : 1;
    job.bands = workers > 1 ? workers : 1;
    job.next.store(0, std::memory_order_relaxed);
    return runBands(threads, &job);
}
