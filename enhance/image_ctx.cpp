// Row bands of the shared image operators.
//
// tav_sr2_ImageCtx_runBands posts the same small block, a pointer to one shared job record, once
// per band; each posted job claims bands by an atomic add until none is left, so a band runs
// exactly once whatever worker picks it up. Band k always covers the same rows, which keeps the
// results independent of the worker count. Jobs already posted still reference the job record,
// so the join runs even after a failed post.

#include "enhance/image_ctx.h"

#include <atomic>

namespace {

struct BandJob {
    tav_sr2_ImageBandFn fn;
    void* arg;
    int32_t bands;
    int32_t rows;
    std::atomic<int32_t> next;
};

int32_t bandStart(int32_t rows, int32_t band, int32_t bands) {
    return (int32_t)((int64_t)rows * band / bands);
}

uint32_t runClaimedBands(BandJob* job) {
    uint32_t status = TAV_OK;
    for (;;) {
        const int32_t band = job->next.fetch_add(1, std::memory_order_relaxed);
        if (band >= job->bands) return status;
        const int32_t y0 = bandStart(job->rows, band, job->bands);
        const int32_t y1 = bandStart(job->rows, band + 1, job->bands);
        status |= job->fn(job->arg, band, y0, y1);
    }
}

uint32_t bandJobEntry(void* block) {
    return runClaimedBands(*static_cast<BandJob**>(block));
}

}  // namespace

int32_t tav_sr2_ImageCtx_workers(const tav_sr2_ImageCtx* ctx) {
    if (ctx == nullptr || ctx->threads == nullptr) return 1;
    const int32_t workers = tav_sr2_ThreadPool_threadCount(ctx->threads);
    return workers > 1 ? workers : 1;
}

uint32_t tav_sr2_ImageCtx_runBands(const tav_sr2_ImageCtx* ctx, int32_t bands, int32_t rows,
                                   tav_sr2_ImageBandFn fn, void* arg) {
    if (bands < 1) bands = 1;
    BandJob job;
    job.fn = fn;
    job.arg = arg;
    job.bands = bands;
    job.rows = rows;
    job.next.store(0, std::memory_order_relaxed);
    if (ctx == nullptr || ctx->threads == nullptr || bands == 1) return runClaimedBands(&job);
    BandJob* block = &job;
    uint32_t status = TAV_OK;
    for (int32_t i = 0; i < bands && status == TAV_OK; ++i) {
        status = tav_sr2_ThreadPool_post(ctx->threads, &bandJobEntry, &block, sizeof(block));
    }
    return status | tav_sr2_ThreadPool_join(ctx->threads);
}
