// Sharpness of a frame.
//
// tav_sr2_Image_sharpness(threads, pool, score, image, sigma_a, sigma_b): the sum over a "UINT8"
//   image of the absolute difference of two seven-tap Gaussian blurs. Rows are cut into at most
//   32 bands by the worker count (band k from ((k * h / n) + 3) & ~3 to the next such start),
//   one job per band. Each band keeps, per kernel, a ring of 8 horizontally blurred rows indexed
//   by row number modulo 8, so a row that falls outside the image (clamped to the edge) still has
//   a slot of its own; it adds its pixel scores in 32 bits, and the bands are added at the end.
//   The result does not depend on the band count: 32-bit sums wrap the same in any order.
// tav_sr2_Image_sharpnessWithRows: the same on a chosen table of row kernels.

#include <atomic>

#include "engine/sharpness.h"
#include "foundation/row_band.h"

namespace {

constexpr int32_t kRingRows = 8;  // a power of two above the 7 rows of the vertical window

struct SharpJob {
    const tav_sr2_Image* image;
    const tav_sr2_SharpRowOps* rows;
    tav_sr2_SharpKernel ka;
    tav_sr2_SharpKernel kb;
    int16_t* scratch;  // per band: ring a, then ring b, kRingRows rows of width samples each
    int32_t bands;
    std::atomic<int32_t> next;
    uint32_t partial[TAV_SR2_SHARPNESS_MAX_BANDS];
};

int16_t* ringRow(int16_t* ring, int32_t w, int32_t r) {
    return ring + (r & (kRingRows - 1)) * w;
}

// Blurs image row r (clamped to the image) horizontally into its slot of both rings.
void fillRings(SharpJob* job, int16_t* ring_a, int16_t* ring_b, int32_t r) {
    const tav_sr2_Image* im = job->image;
    const int32_t y = r < 0 ? 0 : r >= im->height ? im->height - 1 : r;
    const uint8_t* src = im->plane[0] + (int64_t)y * im->pitch[0];
    job->rows->horizontal(src, im->width, &job->ka, ringRow(ring_a, im->width, r));
    job->rows->horizontal(src, im->width, &job->kb, ringRow(ring_b, im->width, r));
}

void runBand(SharpJob* job, int32_t band) {
    const int32_t w = job->image->width;
    int32_t y0;
    int32_t y1;
    tav_sr2_rowBand(job->image->height, band, job->bands, &y0, &y1);
    int16_t* ring_a = job->scratch + (int64_t)band * 2 * kRingRows * w;
    int16_t* ring_b = ring_a + (int64_t)kRingRows * w;
    uint32_t total = 0;
    for (int32_t y = y0; y < y1; ++y) {
        if (y == y0) {
            for (int32_t r = y - 3; r <= y + 3; ++r)
                fillRings(job, ring_a, ring_b, r);
        } else {
            fillRings(job, ring_a, ring_b, y + 3);
        }
        const int16_t* rows_a[7];
        const int16_t* rows_b[7];
        for (int32_t j = 0; j < 7; ++j) {
            rows_a[j] = ringRow(ring_a, w, y - 3 + j);
            rows_b[j] = ringRow(ring_b, w, y - 3 + j);
        }
        total += job->rows->energy(rows_a, rows_b, w, &job->ka, &job->kb);
    }
    job->partial[band] = total;
}

uint32_t claimBands(SharpJob* job) {
    for (;;) {
        const int32_t band = job->next.fetch_add(1, std::memory_order_relaxed);
        if (band >= job->bands) return TAV_OK;
        runBand(job, band);
    }
}

uint32_t bandJobEntry(void* block) {
    return claimBands(*static_cast<SharpJob**>(block));
}

// Posts one job per band and joins. When a post fails the caller eats the bands left over, so
// that every band has run before the join returns and the job record goes out of scope.
uint32_t runBands(tav_sr2_ThreadPool* threads, SharpJob* job) {
    if (threads == nullptr || job->bands == 1) return claimBands(job);
    SharpJob* block = job;
    uint32_t status = TAV_OK;
    for (int32_t i = 0; i < job->bands && status == TAV_OK; ++i) {
        status = tav_sr2_ThreadPool_post(threads, bandJobEntry, &block, sizeof(block));
    }
    if (status != TAV_OK) claimBands(job);
    return status | tav_sr2_ThreadPool_join(threads);
}

int32_t bandCount(tav_sr2_ThreadPool* threads) {
    const int32_t workers = threads != nullptr ? tav_sr2_ThreadPool_threadCount(threads) : 1;
    if (workers < 1) return 1;
    return workers < TAV_SR2_SHARPNESS_MAX_BANDS ? workers : TAV_SR2_SHARPNESS_MAX_BANDS;
}

uint32_t checkImage(const tav_sr2_Image* image) {
    if (image->format != TAV_SR2_FMT_UINT8) return TAV_ERROR_UNSUPPORTED;
    if (image->width < 1 || image->height < 1) return TAV_OK;
    if (image->plane[0] == nullptr || image->pitch[0] < image->width) return TAV_ERROR_PARAM;
    return TAV_OK;
}

}  // namespace

uint32_t tav_sr2_Image_sharpnessWithRows(tav_sr2_ThreadPool* threads, tav_sr2_MemPool* pool,
                                         uint32_t* score, const tav_sr2_Image* image,
                                         double sigma_a, double sigma_b,
                                         const tav_sr2_SharpRowOps* rows) {
    if (pool == nullptr || score == nullptr || image == nullptr || rows == nullptr) {
        return TAV_ERROR_PARAM;
    }
    const uint32_t check = checkImage(image);
    if (check != TAV_OK) return check;
    if (image->width < 1 || image->height < 1) {
        *score = 0;
        return TAV_OK;
    }
    SharpJob job;
    job.image = image;
    job.rows = rows;
    tav_sr2_SharpKernel_make(&job.ka, sigma_a);
    tav_sr2_SharpKernel_make(&job.kb, sigma_b);
    job.bands = bandCount(threads);
    job.next.store(0, std::memory_order_relaxed);
    const uint64_t bytes =
        (uint64_t)job.bands * 2 * kRingRows * (uint64_t)image->width * sizeof(int16_t);
    if (bytes > 0xFFFFFFF0u) return TAV_ERROR_MALLOC;
    job.scratch = static_cast<int16_t*>(tav_sr2_MemPool_alloc(pool, (uint32_t)bytes));
    if (job.scratch == nullptr) return TAV_ERROR_MALLOC;
    const uint32_t status = runBands(threads, &job);
    const uint32_t released = tav_sr2_MemPool_free(pool, job.scratch);
    if (status != TAV_OK) return status;
    if (released != TAV_OK) return released;
    uint32_t total = 0;
    for (int32_t b = 0; b < job.bands; ++b)
        total += job.partial[b];
    *score = total;
    return TAV_OK;
}

uint32_t tav_sr2_Image_sharpness(tav_sr2_ThreadPool* threads, tav_sr2_MemPool* pool,
                                 uint32_t* score, const tav_sr2_Image* image, double sigma_a,
                                 double sigma_b) {
    return tav_sr2_Image_sharpnessWithRows(threads, pool, score, image, sigma_a, sigma_b,
                                           &tav_sr2_sharpRowsVector);
}
