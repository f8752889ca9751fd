// tav_sr2_Upscaler_resample and tav_sr2_Upscaler_resampleChroma: the 8-tap polyphase resize.
//
// Destination coordinate i reads the source at P = ((src - dst + 2 src i) << 15) / (2 dst), Q15;
// the taps start at source (P >> 15) - 3 and come from phase (P >> 7) & 255 of the kernel table.
// Each band makes its output rows one at a time: the 8-tap vertical sum of the clamped source
// rows into a 16-bit row buffer (Q6 for 8-bit samples, Q4 for 10-bit ones), its ends repeated
// over the padding, then the horizontal sums from a table of every column's first tap and taps,
// rounded and clamped to the sample range. Chroma resizes the interleaved pairs, each channel
// from its own samples. Bands: up to 16, by the worker count. One pool block holds the column
// table and every band's row buffer.
#include <string.h>

#include "enhance/image_rows.h"
#include "merge/upscaler.h"

namespace {

constexpr int32_t kMaxBands = 16;
constexpr int32_t kPad = TAV_SR2_RESAMPLE_PAD;

struct Geometry {
    int32_t channels;  // 1 luma, 2 interleaved chroma
    int32_t deep;      // 0: 8-bit samples, 1: 10 bits in 16-bit words
};

struct ResampleJob {
    const tav_sr2_Upscaler* u;
    tav_sr2_Image src;  // plane views
    tav_sr2_Image dst;
    Geometry g;
    int32_t* col_base;  // first source sample of each destination column
    int16_t* col_taps;  // 8 per destination column
    int16_t* buffers;   // one row buffer per band
    int32_t buffer_samples;
};

int64_t positionQ15(int32_t src, int32_t dst, int32_t i) {
    return ((int64_t)(src - dst + 2LL * src * i) << 15) / (2LL * dst);
}

const int16_t* tapsAt(const tav_sr2_Upscaler* u, int64_t p) {
    return u->kernel_table + ((p >> 7) & 255) * TAV_SR2_PHASE_TAPS;
}

void fillColumns(ResampleJob* job) {
    const int32_t sw = job->src.width;
    const int32_t dw = job->dst.width;
    for (int32_t i = 0; i < dw; ++i) {
        const int64_t p = positionQ15(sw, dw, i);
        job->col_base[i] = (int32_t)(p >> 15) - 3;
        memcpy(job->col_taps + 8 * i, tapsAt(job->u, p), 8 * sizeof(int16_t));
    }
}

// Repeats the first and last sample (pair) of a row buffer over its padding.
void padEnds(int16_t* row, int32_t samples, int32_t channels) {
    for (int32_t k = 1; k <= kPad; ++k) {
        for (int32_t c = 0; c < channels; ++c) {
            row[-k * channels + c] = row[c];
            row[samples - channels + k * channels + c] = row[samples - channels + c];
        }
    }
}

// Chroma columns: each channel takes every second sample of the row buffer.
template <typename T>
void horizontalPairs(const int16_t* row, const ResampleJob* job, int32_t shift, int32_t max,
                     T* out) {
    for (int32_t i = 0; i < job->dst.width; ++i) {
        const int16_t* taps = job->col_taps + 8 * i;
        for (int32_t c = 0; c < 2; ++c) {
            const int16_t* s = row + 2 * job->col_base[i] + c;
            int32_t acc = 1 << (shift - 1);
            for (int32_t k = 0; k < 8; ++k)
                acc += taps[k] * s[2 * k];
            acc >>= shift;
            out[2 * i + c] = (T)(acc < 0 ? 0 : (acc > max ? max : acc));
        }
    }
}

void verticalRow(const ResampleJob* job, int32_t y, int16_t* row) {
    const tav_sr2_Image* src = &job->src;
    const int64_t p = positionQ15(src->height, job->dst.height, y);
    const int32_t first = (int32_t)(p >> 15) - 3;
    const int16_t* taps = tapsAt(job->u, p);
    const int32_t samples = src->width * job->g.channels;
    const void* rows[8];
    for (int32_t k = 0; k < 8; ++k) {
        int32_t r = first + k;
        r = r < 0 ? 0 : (r >= src->height ? src->height - 1 : r);
        rows[k] = src->plane[0] + (int64_t)r * src->pitch[0];
    }
    const tav_sr2_UpscaleRowOps* ops = job->u->rows;
    if (job->g.deep) {
        ops->vertical16(reinterpret_cast<const uint16_t* const*>(rows), taps, samples, 10, row);
    } else {
        ops->vertical8(reinterpret_cast<const uint8_t* const*>(rows), taps, samples, 8, row);
    }
    padEnds(row, samples, job->g.channels);
}

uint32_t resampleBand(void* arg, int32_t band, int32_t y0, int32_t y1) {
    const ResampleJob* job = static_cast<const ResampleJob*>(arg);
    int16_t* row = job->buffers + (int64_t)band * job->buffer_samples + kPad * job->g.channels;
    const tav_sr2_UpscaleRowOps* ops = job->u->rows;
    const int32_t dw = job->dst.width;
    for (int32_t y = y0; y < y1; ++y) {
        verticalRow(job, y, row);
        uint8_t* out = job->dst.plane[0] + (int64_t)y * job->dst.pitch[0];
        if (job->g.channels == 2 && job->g.deep) {
            horizontalPairs(row, job, 18, 1023, reinterpret_cast<uint16_t*>(out));
        } else if (job->g.channels == 2) {
            horizontalPairs(row, job, 20, 255, out);
        } else if (job->g.deep) {
            ops->horizontal16(row, job->col_base, job->col_taps, dw, 18, 1023,
                              reinterpret_cast<uint16_t*>(out));
        } else {
            ops->horizontal8(row, job->col_base, job->col_taps, dw, 20, out);
        }
    }
    return TAV_OK;
}

// Sample depth of a luma format: 0 for 8 bits, 1 for 16, -1 for a format the resampler does not
// take.
int32_t lumaDepth(int32_t f) {
    if (f == TAV_SR2_FMT_UINT8 || tav_sr2_isSemiPlanar8(f)) return 0;
    if (f == TAV_SR2_FMT_UINT16 || tav_sr2_isSemiPlanar10(f)) return 1;
    return -1;
}

int32_t chromaDepth(int32_t f) {
    if (f == TAV_SR2_FMT_UINT88 || tav_sr2_isSemiPlanar8(f)) return 0;
    if (f == TAV_SR2_FMT_UINT1616 || tav_sr2_isSemiPlanar10(f)) return 1;
    return -1;
}

uint32_t views(ResampleJob* job, tav_sr2_Image* dst, const tav_sr2_Image* src) {
    if (job->g.channels == 1) {
        const uint32_t s = tav_sr2_Image_viewPlane0(&job->dst, dst, 0, 0, dst->width, dst->height);
        return s != TAV_OK
                   ? s
                   : tav_sr2_Image_viewPlane0(&job->src, src, 0, 0, src->width, src->height);
    }
    if (tav_sr2_channelsOf(dst->format) == 2) {
        job->dst = *dst;
    } else {
        const uint32_t s = tav_sr2_Image_viewChroma(&job->dst, dst, 0, 0, dst->width, dst->height);
        if (s != TAV_OK) return s;
    }
    if (tav_sr2_channelsOf(src->format) == 2) {
        job->src = *src;
        return TAV_OK;
    }
    return tav_sr2_Image_viewChroma(&job->src, src, 0, 0, src->width, src->height);
}

uint32_t resamplePlanes(tav_sr2_Upscaler* u, tav_sr2_Image* dst, const tav_sr2_Image* src,
                        int32_t channels) {
    if (u == nullptr || u->kernel_table == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = tav_sr2_checkImagePair(dst, src);
    if (status != TAV_OK) return status;
    if (!tav_sr2_fitsQ15(dst) || !tav_sr2_fitsQ15(src)) return TAV_ERROR_PARAM;
    const int32_t depth = channels == 1 ? lumaDepth(src->format) : chromaDepth(src->format);
    const int32_t dst_depth = channels == 1 ? lumaDepth(dst->format) : chromaDepth(dst->format);
    if (depth < 0 || depth != dst_depth) return TAV_ERROR_UNSUPPORTED;
    ResampleJob job;
    job.u = u;
    job.g.channels = channels;
    job.g.deep = depth;
    status = views(&job, dst, src);
    if (status != TAV_OK) return status;
    int32_t bands = tav_sr2_ImageCtx_workers(&u->resize);
    if (bands > kMaxBands) bands = kMaxBands;
    if (bands > job.dst.height) bands = job.dst.height;
    const int32_t dw = job.dst.width;
    job.buffer_samples = ((job.src.width + 2 * kPad) * channels + 7) & ~7;
    const int64_t bytes = (int64_t)dw * (sizeof(int32_t) + 8 * sizeof(int16_t)) +
                          (int64_t)bands * job.buffer_samples * sizeof(int16_t);
    if (bytes > 0x7fffffff) return TAV_ERROR_PARAM;
    uint8_t* block = static_cast<uint8_t*>(tav_sr2_MemPool_alloc(u->pool, (uint32_t)bytes));
    if (block == nullptr) return TAV_ERROR_MALLOC;
    job.col_taps = reinterpret_cast<int16_t*>(block);
    job.col_base = reinterpret_cast<int32_t*>(block + (int64_t)dw * 8 * sizeof(int16_t));
    job.buffers =
        reinterpret_cast<int16_t*>(block + (int64_t)dw * (8 * sizeof(int16_t) + sizeof(int32_t)));
    fillColumns(&job);
    status = tav_sr2_ImageCtx_runBands(&u->resize, bands, job.dst.height, &resampleBand, &job);
    const uint32_t released = tav_sr2_MemPool_free(u->pool, block);
    return status != TAV_OK ? status : released;
}

}  // namespace

uint32_t tav_sr2_Upscaler_resample(tav_sr2_Upscaler* u, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src) {
    return resamplePlanes(u, dst, src, 1);
}

uint32_t tav_sr2_Upscaler_resampleChroma(tav_sr2_Upscaler* u, tav_sr2_Image* dst,
                                         const tav_sr2_Image* src) {
    return resamplePlanes(u, dst, src, 2);
}
