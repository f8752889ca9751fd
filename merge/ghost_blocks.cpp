// The block grids of the ghost map: the structure tensor of the base and its regularised inverse,
// the radial weight, the flow of a frame and its residual.
//
// The tensor and the flow's right-hand side are smoothed over 7 x 7 blocks with the kernel
// 1 3 6 7 6 3 1 in each direction, block indices clamped to the grid and no division, so both
// carry the factor 27^2 = 729; the regulariser lambda = 256 * 729 is scaled to match, and the
// factor 64 of the inverse gives the flow in 1/32 of a work pixel (the central differences are
// twice the slope).
#include "enhance/image_ops.h"
#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/maths.h"
#include "merge/ghost_internal.h"

namespace {

constexpr float kLambda = 186624.0f;  // 256 * 729
constexpr int32_t kRadialCells = 768;
constexpr int32_t kStill = 128;  // flow byte of no motion
constexpr int32_t kSmooth[7] = {1, 3, 6, 7, 6, 3, 1};

int32_t clampIndex(int32_t i, int32_t n) {
    return i < 0 ? 0 : i >= n ? n - 1 : i;
}

int32_t blocksAcross(const tav_sr2_Ghost* g) {
    return (g->ghost_block_rect[2] - g->ghost_block_rect[0]) >> 2;
}
int32_t blocksDown(const tav_sr2_Ghost* g) {
    return (g->ghost_block_rect[3] - g->ghost_block_rect[1]) >> 2;
}

// Rows y0 - 1 .. y0 + 4 of a work image around block row j, each at the block rectangle's x0.
void blockRows(const tav_sr2_Ghost* g, const tav_sr2_Image* image, int32_t j, int32_t first,
               int32_t count, const uint8_t** rows) {
    const int32_t y0 = g->ghost_block_rect[1] + 4 * j;
    for (int32_t k = 0; k < count; ++k)
        rows[k] = tav_sr2_rowOf<const uint8_t>(image, 0, y0 + first + k) + g->ghost_block_rect[0];
}

// ---- 7 x 7 block smoothing of interleaved INT32 planes
// -------------------------------------------

struct SmoothJob {
    tav_sr2_Image* image;  // smoothed in place
    tav_sr2_Image* rows;   // the horizontal pass
    int32_t planes;
};

uint32_t smoothRowsBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const SmoothJob* job = static_cast<const SmoothJob*>(arg);
    const int32_t n = job->image->width / job->planes, p = job->planes;
    for (int32_t y = y0; y < y1; ++y) {
        const int32_t* in = tav_sr2_rowOf<const int32_t>(job->image, 0, y);
        int32_t* out = tav_sr2_rowOf<int32_t>(job->rows, 0, y);
        for (int32_t i = 0; i < n; ++i) {
            for (int32_t c = 0; c < p; ++c) {
                int32_t sum = 0;
                for (int32_t k = -3; k <= 3; ++k)
                    sum += kSmooth[k + 3] * in[clampIndex(i + k, n) * p + c];
                out[i * p + c] = sum;
            }
        }
    }
    return TAV_OK;
}

uint32_t smoothColumnsBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const SmoothJob* job = static_cast<const SmoothJob*>(arg);
    const int32_t h = job->image->height, w = job->image->width;
    for (int32_t y = y0; y < y1; ++y) {
        const int32_t* r[7];
        for (int32_t k = -3; k <= 3; ++k)
            r[k + 3] = tav_sr2_rowOf<const int32_t>(job->rows, 0, clampIndex(y + k, h));
        int32_t* out = tav_sr2_rowOf<int32_t>(job->image, 0, y);
        for (int32_t x = 0; x < w; ++x) {
            int32_t sum = 0;
            for (int32_t k = 0; k < 7; ++k)
                sum += kSmooth[k] * r[k][x];
            out[x] = sum;
        }
    }
    return TAV_OK;
}

// The vertical pass runs in one band per `rows_per_band` block rows.
uint32_t smoothBlocks(const tav_sr2_Ghost* g, tav_sr2_Image* image, int32_t planes,
                      int32_t rows_per_band) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Ghost_ctx(g);
    tav_sr2_Image rows;
    tav_sr2_Image_init(&rows, g->pool);
    uint32_t status =
        tav_sr2_Image_alloc(&rows, image->width, image->height, nullptr, TAV_SR2_FMT_INT32);
    SmoothJob job = {image, &rows, planes};
    const int32_t bands = image->height / rows_per_band > 1 ? image->height / rows_per_band : 1;
    if (status == TAV_OK)
        status = tav_sr2_ImageCtx_runBands(&ctx, tav_sr2_ImageCtx_workers(&ctx), image->height,
                                           smoothRowsBand, &job);
    if (status == TAV_OK)
        status = tav_sr2_ImageCtx_runBands(&ctx, bands, image->height, smoothColumnsBand, &job);
    const uint32_t released = tav_sr2_Image_finish(&rows);
    return status != TAV_OK ? status : released;
}

// ---- tensor -------------------------------------------------------------------------------------

// A pass over the block grid: its sums (INT32, A B C per block for the tensor, Bx By for the
// flow) and what is made from them.
struct GridJob {
    tav_sr2_Ghost* g;
    tav_sr2_Image* sums;
};

// Per-block sums of `planes` values by `sum`, smoothed over 7 x 7 blocks, then read by `finish`.
uint32_t smoothedSums(tav_sr2_Ghost* g, int32_t planes, int32_t rows_per_band,
                      tav_sr2_ImageBandFn sum, tav_sr2_ImageBandFn finish) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Ghost_ctx(g);
    const int32_t nbx = blocksAcross(g), nby = blocksDown(g);
    const int32_t workers = tav_sr2_ImageCtx_workers(&ctx);
    tav_sr2_Image sums;
    tav_sr2_Image_init(&sums, g->pool);
    uint32_t status = tav_sr2_Image_alloc(&sums, planes * nbx, nby, nullptr, TAV_SR2_FMT_INT32);
    GridJob job = {g, &sums};
    if (status == TAV_OK) status = tav_sr2_ImageCtx_runBands(&ctx, workers, nby, sum, &job);
    if (status == TAV_OK) status = smoothBlocks(g, &sums, planes, rows_per_band);
    if (status == TAV_OK) status = tav_sr2_ImageCtx_runBands(&ctx, workers, nby, finish, &job);
    const uint32_t released = tav_sr2_Image_finish(&sums);
    return status != TAV_OK ? status : released;
}

uint32_t tensorBand(void* arg, int32_t, int32_t j0, int32_t j1) {
    const GridJob* job = static_cast<const GridJob*>(arg);
    for (int32_t j = j0; j < j1; ++j) {
        const uint8_t* b[6];
        blockRows(job->g, &job->g->base_filtered, j, -1, 6, b);
        job->g->rows->tensor(b, blocksAcross(job->g), tav_sr2_rowOf<int32_t>(job->sums, 0, j));
    }
    return TAV_OK;
}

uint32_t invertBand(void* arg, int32_t, int32_t j0, int32_t j1) {
    const GridJob* job = static_cast<const GridJob*>(arg);
    const int32_t n = blocksAcross(job->g);
    for (int32_t j = j0; j < j1; ++j) {
        const int32_t* s = tav_sr2_rowOf<const int32_t>(job->sums, 0, j);
        float* t = tav_sr2_rowOf<float>(&job->g->inv_tensor, 0, j);
        for (int32_t i = 0; i < n; ++i) {
            const float a = kLambda + (float)s[3 * i], b = (float)s[3 * i + 1];
            const float c = kLambda + (float)s[3 * i + 2];
            const float f = 64.0f / (a * c - b * b);
            t[3 * i] = a * f;
            t[3 * i + 1] = -b * f;
            t[3 * i + 2] = c * f;
        }
    }
    return TAV_OK;
}

// ---- flow and residual
// ----------------------------------------------------------------------------

uint32_t rhsBand(void* arg, int32_t, int32_t j0, int32_t j1) {
    const GridJob* job = static_cast<const GridJob*>(arg);
    for (int32_t j = j0; j < j1; ++j) {
        const uint8_t* b[6];
        const uint8_t* c[4];
        blockRows(job->g, &job->g->base_filtered, j, -1, 6, b);
        blockRows(job->g, &job->g->cur_filtered, j, 0, 4, c);
        job->g->rows->rhs(b, c, blocksAcross(job->g), tav_sr2_rowOf<int32_t>(job->sums, 0, j));
    }
    return TAV_OK;
}

uint8_t flowByte(float v) {
    if (!(v > 0.0f)) return 0;
    return v >= 255.0f ? 255 : (uint8_t)v;
}

uint32_t flowBand(void* arg, int32_t, int32_t j0, int32_t j1) {
    const GridJob* job = static_cast<const GridJob*>(arg);
    const int32_t n = blocksAcross(job->g);
    for (int32_t j = j0; j < j1; ++j) {
        const int32_t* s = tav_sr2_rowOf<const int32_t>(job->sums, 0, j);
        const float* t = tav_sr2_rowOf<const float>(&job->g->inv_tensor, 0, j);
        uint8_t* flow = tav_sr2_rowOf<uint8_t>(&job->g->flow_map, 0, j);
        for (int32_t i = 0; i < n; ++i) {
            const float bx = (float)s[2 * i], by = (float)s[2 * i + 1];
            flow[2 * i] = flowByte(t[3 * i + 2] * bx + t[3 * i + 1] * by + 128.5f);
            flow[2 * i + 1] = flowByte(t[3 * i + 1] * bx + t[3 * i] * by + 128.5f);
        }
    }
    return TAV_OK;
}

uint32_t residualBand(void* arg, int32_t, int32_t j0, int32_t j1) {
    const GridJob* job = static_cast<const GridJob*>(arg);
    tav_sr2_Ghost* g = job->g;
    for (int32_t j = j0; j < j1; ++j) {
        const uint8_t* b[6];
        const uint8_t* c[4];
        blockRows(g, &g->base_filtered, j, -1, 6, b);
        blockRows(g, &g->cur_filtered, j, 0, 4, c);
        g->rows->residual(b, c, tav_sr2_rowOf<const uint8_t>(&g->flow_map, 0, j),
                          tav_sr2_rowOf<const uint8_t>(&g->radial_weight, 0, j), blocksAcross(g),
                          tav_sr2_rowOf<uint8_t>(&g->ghost_map, 0, j));
    }
    return TAV_OK;
}

int32_t roundedQuotient(int32_t n, int32_t f) {
    const int32_t q = (2 * n + f) / (2 * f);  // n / f rounded half up
    return q > 1 ? q : 1;
}

void paintRadial(const tav_sr2_Ghost* g, tav_sr2_Image* cells) {
    const int32_t gw = cells->width, gh = cells->height;
    const double cx = (gw - 1) * 0.5, cy = (gh - 1) * 0.5;
    const double radius = tav_sr2_hypot(cx, cy);
    double peak = (g->deghost_ofs <= 16.0 ? 140.0 : 128.0) / tav_sr2_sqrt(g->deghost_noise_level);
    if (!(peak < 255.0)) peak = 255.0;  // a strength of 0 divides by 0
    for (int32_t y = 0; y < gh; ++y) {
        uint8_t* row = tav_sr2_rowOf<uint8_t>(cells, 0, y);
        for (int32_t x = 0; x < gw; ++x) {
            const double r = radius > 0.0 ? tav_sr2_hypot(x - cx, y - cy) / radius : 0.0;
            const double v = peak / (g->radial_falloff * r * r + 1.0) + 0.5;
            row[x] = (uint8_t)(v < 255.0 ? v : 255.0);
        }
    }
}

}  // namespace

uint32_t tav_sr2_Ghost_invTensor(tav_sr2_Ghost* ghost) {
    const uint32_t status = tav_sr2_Image_alloc(&ghost->inv_tensor, 3 * blocksAcross(ghost),
                                                blocksDown(ghost), nullptr, TAV_SR2_FMT_FLOAT);
    if (status != TAV_OK) return status;
    return smoothedSums(ghost, 3, 32, tensorBand, invertBand);
}

uint32_t tav_sr2_Ghost_radialWeight(tav_sr2_Ghost* ghost) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Ghost_ctx(ghost);
    const int32_t nbx = blocksAcross(ghost), nby = blocksDown(ghost);
    int32_t gw = nbx, gh = nby;
    for (int32_t f = 2; gw * gh > kRadialCells; ++f) {
        gw = roundedQuotient(nbx, f);
        gh = roundedQuotient(nby, f);
    }
    uint32_t status = tav_sr2_Image_alloc(&ghost->radial_small, gw, gh, nullptr, TAV_SR2_FMT_UINT8);
    if (status == TAV_OK)
        status = tav_sr2_Image_alloc(&ghost->radial_weight, nbx, nby, nullptr, TAV_SR2_FMT_UINT8);
    if (status != TAV_OK) return status;
    paintRadial(ghost, &ghost->radial_small);
    status = tav_sr2_Image_resizeStrict(&ctx, &ghost->radial_weight, &ghost->radial_small,
                                        &tav_sr2_resizeRowsVector);
    return status == TAV_SR2_ROWS_MISSING ? TAV_ERROR_MALLOC : status;
}

uint32_t tav_sr2_Ghost_flow(tav_sr2_Ghost* ghost) {
    return smoothedSums(ghost, 2, 16, rhsBand, flowBand);
}

uint32_t tav_sr2_Ghost_residual(tav_sr2_Ghost* ghost) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Ghost_ctx(ghost);
    GridJob job = {ghost, nullptr};
    return tav_sr2_ImageCtx_runBands(&ctx, tav_sr2_ImageCtx_workers(&ctx), blocksDown(ghost),
                                     residualBand, &job);
}

// The block grid's flow map starts still and its ghost map untrusted.
uint32_t tav_sr2_Ghost_allocMaps(tav_sr2_Ghost* ghost) {
    const int32_t nbx = blocksAcross(ghost), nby = blocksDown(ghost);
    uint32_t status = tav_sr2_Image_alloc(&ghost->ghost_map, nbx, nby, nullptr, TAV_SR2_FMT_UINT8);
    if (status == TAV_OK)
        status = tav_sr2_Image_alloc(&ghost->flow_map, nbx, nby, nullptr, TAV_SR2_FMT_UINT88);
    const tav_sr2_ImageCtx ctx = tav_sr2_Ghost_ctx(ghost);
    if (status == TAV_OK) status = tav_sr2_Image_fillValue(&ctx, &ghost->flow_map, kStill);
    if (status == TAV_OK) status = tav_sr2_Image_fillValue(&ctx, &ghost->ghost_map, 255);
    return status;
}
