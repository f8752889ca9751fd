// The guided filter's process calls: block statistics, the four directions' line sums and models,
// the side-window fusion, and the 4x application to the source.
//
// Line sums take, at a position whose line leaves the grid, the value where it leaves (k along
// the line clamped to the grid), so every sum has L terms whatever the direction. Positions whose
// whole line lies inside take the row kernels; the border goes through a direct loop.
//
// Fusion, per block: candidates (i + k s dx, j + k s dy), k = -1 and 1, of each direction, those
// inside the grid; weight from a: d = (one - a) & mask, w = d (d + 1) + 1 (float: (1 - a) + 1e-12
// + (1 - a)^2); fused = (sum w v + W/2) / W, limited (float: without rounding). Sums are 64-bit:
// eight 16-bit-class weights times 1023 already pass 2^31.
//
// Apply, per output row y of the rectangle W x H (m = H / 4 block rows): rows 0 and 1 take grid
// row 0 alone, rows H - 2 and H - 1 grid row m - 1, the others rows j = (y - 2) >> 2 and j + 1
// with the weights 7 - 2p and 1 + 2p, p = (y - 2) & 3. The row so weighed to 8 is enlarged by
// the row kernel's upsample, which rounds (sum + 32) >> 6 once, and applied.
#include <string.h>

#include <type_traits>

#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/task_sys.h"
#include "nr/guided_filter.h"

namespace {

struct Class8 {
    using Pixel = uint8_t;
    using Sum = uint16_t;
    using Line = uint16_t;
    using Coef = uint8_t;
    static constexpr int64_t kOne = 128, kMask = 255, kALimit = 255, kBLimit = 255;
};
struct Class16 {
    using Pixel = uint16_t;
    using Sum = uint16_t;
    using Line = int32_t;
    using Coef = uint16_t;
    static constexpr int64_t kOne = 512, kMask = 65535, kALimit = 1023, kBLimit = 65535;
};
struct ClassF {
    using Pixel = float;
    using Sum = float;
    using Line = float;
    using Coef = float;
};

template <typename C>
using SqOf = std::conditional_t<std::is_same_v<C, ClassF>, float, int32_t>;

// The line geometry of a window.
struct Line {
    int32_t taps;    // L = 2n + 1
    int32_t radius;  // n
    int32_t side;    // s
};

Line lineOf(int32_t window) {
    const int32_t r = (window >> 2) | 1;
    return {(r >> 1) | 1, r >> 2, ((r >> 1) | 1) >> 1};
}

// Taps of the longest line, window 101.
constexpr int32_t kMaxTaps = 13;

constexpr int32_t kDx[TAV_SR2_GF_DIRECTIONS] = {1, 0, 1, 1};
constexpr int32_t kDy[TAV_SR2_GF_DIRECTIONS] = {0, 1, 1, -1};

// Everything one process call's passes read.
struct Call {
    tav_sr2_GuidedFilter* f;
    const tav_sr2_Image* src;  // luma views
    tav_sr2_Image* dst;
    Line line;
    float eps;
    const tav_sr2_Image* map;  // null for the plain variant
    int32_t* scratch;          // apply rows, per worker
    int32_t scratch_per_worker;
};

template <typename T>
T* gridRow(const tav_sr2_Image* image, int32_t j) {
    return tav_sr2_rowOf<T>(image, 0, j);
}

// ---- statistics ---------------------------------------------------------------------------------

template <typename C>
void statsRow(const Call* c, int32_t j) {
    using P = typename C::Pixel;
    const tav_sr2_GuidedFilter* f = c->f;
    const P* rows[4];
    for (int32_t r = 0; r < 4; ++r) {
        const int32_t y = 4 * j + r < f->height ? 4 * j + r : f->height - 1;
        rows[r] = tav_sr2_rowOf<const P>(c->src, 0, y);
    }
    auto* sum = gridRow<typename C::Sum>(&f->blk_sum, j);
    auto* sq = gridRow<SqOf<C>>(&f->blk_sq, j);
    if constexpr (std::is_same_v<C, Class8>) {
        f->rows->stats8(rows, f->width, f->grid_width, sum, sq);
    } else if constexpr (std::is_same_v<C, Class16>) {
        f->rows->stats16(rows, f->width, f->grid_width, sum, sq);
    } else {
        for (int32_t i = 0; i < f->grid_width; ++i) {
            float s = 0.0f, q = 0.0f;
            for (int32_t r = 0; r < 4; ++r) {
                for (int32_t k = 0; k < 4; ++k) {
                    const int32_t x = 4 * i + k < f->width ? 4 * i + k : f->width - 1;
                    s += rows[r][x];
                    q += rows[r][x] * rows[r][x];
                }
            }
            sum[i] = s;
            sq[i] = q;
        }
    }
}

// ---- line sums and models -----------------------------------------------------------------------

// The sum along direction d at block (i, j), k clamped to where the line stays in the grid.
template <typename In, typename Out>
Out lineSumAt(const tav_sr2_Image* grid, int32_t d, int32_t n, int32_t i, int32_t j) {
    int32_t lo = -n, hi = n;
    const auto limit = [&](int32_t pos, int32_t step, int32_t size) {
        if (step == 0) return;
        const int32_t to_start = step > 0 ? -pos : pos - (size - 1);
        const int32_t to_end = step > 0 ? size - 1 - pos : pos;
        lo = lo > to_start ? lo : to_start;
        hi = hi < to_end ? hi : to_end;
    };
    limit(i, kDx[d], grid->width);
    limit(j, kDy[d], grid->height);
    using Acc = std::conditional_t<std::is_floating_point_v<Out>, float, uint32_t>;
    Acc s = 0;
    for (int32_t k = -n; k <= n; ++k) {
        const int32_t t = k < lo ? lo : k > hi ? hi : k;
        s += (Acc)gridRow<const In>(grid, j + t * kDy[d])[i + t * kDx[d]];
    }
    return (Out)s;
}

template <typename In, typename Out>
void sumRowsOf(const tav_sr2_GuidedRowOps* ops, const In* const* rows, int32_t taps, int32_t n,
               Out* out) {
    if constexpr (std::is_same_v<In, uint16_t> && std::is_same_v<Out, uint16_t>) {
        ops->sumRows16(rows, taps, n, out);
    } else if constexpr (std::is_same_v<In, uint16_t>) {
        ops->sumRows16to32(rows, taps, n, out);
    } else if constexpr (std::is_same_v<In, int32_t>) {
        ops->sumRows32(rows, taps, n, out);
    } else {
        for (int32_t x = 0; x < n; ++x) {
            Out s = 0;
            for (int32_t k = 0; k < taps; ++k)
                s += rows[k][x];
            out[x] = s;
        }
    }
}

// Row j of a direction's line sum of one grid image: the row kernel where the whole line lies in
// the grid, lineSumAt elsewhere.
template <typename In, typename Out>
void lineRow(const tav_sr2_GuidedRowOps* ops, const tav_sr2_Image* grid, int32_t d, int32_t n,
             int32_t j, Out* out) {
    const int32_t gw = grid->width, gh = grid->height;
    const int32_t ax = n * (kDx[d] != 0), ay = n * (kDy[d] != 0);
    int32_t c0 = ax, c1 = gw - ax;
    if (j < ay || j >= gh - ay || c1 <= c0) c0 = c1 = 0;
    if (c1 > c0) {
        const In* rows[kMaxTaps];
        for (int32_t k = -n; k <= n; ++k)
            rows[k + n] = gridRow<const In>(grid, j + k * kDy[d]) + c0 + k * kDx[d];
        sumRowsOf<In, Out>(ops, rows, 2 * n + 1, c1 - c0, out + c0);
    }
    for (int32_t i = 0; i < gw; ++i) {
        if (i == c0 && c1 > c0) i = c1;
        if (i >= gw) break;
        out[i] = lineSumAt<In, Out>(grid, d, n, i, j);
    }
}

// The float class keeps its model unquantised: a as it is, b = mean (1 - a) without a limit.
void modelRowF(const float* s1, const float* s2, const uint8_t* map, float eps, int32_t count,
               int32_t n, float* a_out, float* b_out) {
    for (int32_t i = 0; i < n; ++i) {
        const float mean = s1[i] / (float)count;
        float var = s2[i] / (float)count - mean * mean;
        float e = eps, floor = 0.0f;
        if (map != nullptr) {
            e = eps * (float)map[i] / 32.0f;
            floor = 1e-12f;
        }
        var = var > floor ? var : floor;
        const float a = var / (var + e);
        a_out[i] = a;
        b_out[i] = mean * (1.0f - a);
    }
}

template <typename C>
void directionRow(const Call* c, int32_t d, int32_t j) {
    using Sq = SqOf<C>;
    using LineSq = Sq;
    tav_sr2_GuidedFilter* f = c->f;
    const int32_t n = c->line.radius;
    auto* s1 = gridRow<typename C::Line>(&f->line_sum[d], j);
    auto* s2 = gridRow<LineSq>(&f->line_sq[d], j);
    lineRow<typename C::Sum, typename C::Line>(f->rows, &f->blk_sum, d, n, j, s1);
    lineRow<Sq, LineSq>(f->rows, &f->blk_sq, d, n, j, s2);
    const uint8_t* map = c->map != nullptr ? gridRow<const uint8_t>(c->map, j) : nullptr;
    auto* a = gridRow<typename C::Coef>(&f->a_dir[d], j);
    auto* b = gridRow<typename C::Coef>(&f->b_dir[d], j);
    const int32_t count = c->line.taps * 16;
    if constexpr (std::is_same_v<C, Class8>) {
        f->rows->model8(s1, s2, map, c->eps, count, f->grid_width, a, b);
    } else if constexpr (std::is_same_v<C, Class16>) {
        f->rows->model16(s1, s2, map, c->eps, count, f->grid_width, a, b);
    } else {
        modelRowF(s1, s2, map, c->eps, count, f->grid_width, a, b);
    }
}

template <typename C>
struct DirectionTask {
    const Call* call;
    int32_t d;
};

template <typename C>
uint32_t directionWhole(void* arg) {
    const auto* t = static_cast<const DirectionTask<C>*>(arg);
    for (int32_t j = 0; j < t->call->f->grid_height; ++j)
        directionRow<C>(t->call, t->d, j);
    return TAV_OK;
}

template <typename C>
uint32_t directionRowTask(void* arg, int32_t j, tav_sr2_TaskCtx*) {
    const auto* t = static_cast<const DirectionTask<C>*>(arg);
    directionRow<C>(t->call, t->d, j);
    return TAV_OK;
}

// The plain variant: the four directions as four tasks joined together (inline without a
// scheduler, or for a task the scheduler would not take).
template <typename C>
void directionsAsTasks(const Call* c) {
    tav_sr2_TaskSys* ts = c->f->tasks;
    DirectionTask<C> tasks[TAV_SR2_GF_DIRECTIONS];
    tav_sr2_TaskCall calls[TAV_SR2_GF_DIRECTIONS];
    uint32_t ids[TAV_SR2_GF_DIRECTIONS];
    int32_t added = 0;
    for (int32_t d = 0; d < TAV_SR2_GF_DIRECTIONS; ++d) {
        tasks[d] = {c, d};
        calls[d] = {directionWhole<C>, &tasks[d]};
        uint32_t id = 0;
        if (ts != nullptr && tav_sr2_TaskSys_threadCount(ts) > 1 &&
            tav_sr2_TaskSys_addOne(ts, &tav_sr2_TaskType_call, &calls[d], 0, nullptr, &id) ==
                TAV_OK &&
            id != 0) {
            ids[added++] = id;
        } else {
            directionWhole<C>(&tasks[d]);
        }
    }
    if (added == 0) return;
    // The tasks read this frame's records: wait them out even past a timed-out wait.
    while (tav_sr2_TaskSys_wait(ts, added, ids) == TAV_ERROR_TIMEOUT) {
    }
    for (int32_t k = 0; k < added; ++k)
        tav_sr2_TaskSys_release(ts, ids[k]);
}

// The noise variant: one direction after the other, each by block rows.
template <typename C>
void directionsInTurn(const Call* c) {
    static constexpr tav_sr2_TaskType kRows = tav_sr2_rowTaskType<directionRowTask<C>>();
    for (int32_t d = 0; d < TAV_SR2_GF_DIRECTIONS; ++d) {
        DirectionTask<C> task{c, d};
        tav_sr2_TaskSys_run(c->f->tasks, &kRows, &task, c->f->grid_height);
    }
}

// ---- fusion -------------------------------------------------------------------------------------

template <typename C>
using FuseAcc = std::conditional_t<std::is_same_v<C, ClassF>, float, int64_t>;

// The weighed sums of the candidates at offset s around block (i, j).
template <typename C>
void gather(const tav_sr2_GuidedFilter* f, int32_t i, int32_t j, int32_t s, FuseAcc<C>* sums) {
    using Coef = typename C::Coef;
    using Acc = FuseAcc<C>;
    for (int32_t d = 0; d < TAV_SR2_GF_DIRECTIONS; ++d) {
        for (int32_t k = -1; k <= 1; k += 2) {
            const int32_t x = i + k * s * kDx[d], y = j + k * s * kDy[d];
            if (x < 0 || x >= f->grid_width || y < 0 || y >= f->grid_height) continue;
            const Acc a = gridRow<const Coef>(&f->a_dir[d], y)[x];
            const Acc b = gridRow<const Coef>(&f->b_dir[d], y)[x];
            Acc w;
            if constexpr (std::is_same_v<C, ClassF>) {
                w = (1.0f - a) + 1e-12f + (1.0f - a) * (1.0f - a);
            } else {
                const Acc dd = (C::kOne - a) & C::kMask;
                w = dd * (dd + 1) + 1;
            }
            sums[0] += w;
            sums[1] += w * a;
            sums[2] += w * b;
        }
    }
}

// A grid smaller than the side offset has no candidate inside for some blocks: those take the
// four directions' models at the block itself, as a one-block line would.
template <typename C>
void fuseRow(const Call* c, int32_t j) {
    using Coef = typename C::Coef;
    tav_sr2_GuidedFilter* f = c->f;
    Coef* a_out = gridRow<Coef>(&f->a_img, j);
    Coef* b_out = gridRow<Coef>(&f->b_img, j);
    for (int32_t i = 0; i < f->grid_width; ++i) {
        FuseAcc<C> sums[3] = {0, 0, 0};
        gather<C>(f, i, j, c->line.side, sums);
        if (sums[0] == 0) gather<C>(f, i, j, 0, sums);
        if constexpr (std::is_same_v<C, ClassF>) {
            a_out[i] = sums[1] / sums[0];
            b_out[i] = sums[2] / sums[0];
        } else {
            // One reciprocal for both quotients: the sums stay below 2^38 and the weight total
            // below 2^22, so x / W is either a whole number, which x * (1 / W) misses by less
            // than 1e-9 below, or at least 1 / W = 2^-22 away from one; floor(x * (1 / W) + 1e-9)
            // is then the integer quotient.
            const double inv = 1.0 / (double)sums[0];
            const int64_t a = (int64_t)((double)(sums[1] + sums[0] / 2) * inv + 1e-9);
            const int64_t b = (int64_t)((double)(sums[2] + sums[0] / 2) * inv + 1e-9);
            a_out[i] = (Coef)(a < C::kALimit ? a : C::kALimit);
            b_out[i] = (Coef)(b < C::kBLimit ? b : C::kBLimit);
        }
    }
}

template <typename C>
uint32_t fuseRowTask(void* arg, int32_t j, tav_sr2_TaskCtx*) {
    fuseRow<C>(static_cast<const Call*>(arg), j);
    return TAV_OK;
}

// ---- apply --------------------------------------------------------------------------------------

// The two grid rows and their weights (total 8) of output row y.
struct RowWeights {
    int32_t j0, j1, w0, w1;
};

RowWeights rowWeights(int32_t y, int32_t height) {
    const int32_t last = (height >> 2) - 1;
    if (y < 2) return {0, 0, 8, 0};
    if (y >= height - 2) return {last, last, 8, 0};
    const int32_t j = (y - 2) >> 2, p = (y - 2) & 3;
    return {j, j + 1, 7 - 2 * p, 1 + 2 * p};
}

template <typename C>
void applyRowF(const Call* c, int32_t y, const RowWeights& rw, float* scratch) {
    const tav_sr2_GuidedFilter* f = c->f;
    const int32_t blocks = f->rect.right >> 2, w = f->rect.right;
    float* up[2] = {scratch, scratch + w};
    const tav_sr2_Image* grids[2] = {&f->a_img, &f->b_img};
    for (int32_t g = 0; g < 2; ++g) {
        const float* r0 = gridRow<const float>(grids[g], rw.j0);
        const float* r1 = gridRow<const float>(grids[g], rw.j1);
        for (int32_t x = 0; x < w; ++x) {
            int32_t i0 = blocks - 1, i1 = blocks - 1, w0 = 8, w1 = 0;
            if (x < 2) {
                i0 = i1 = 0;
            } else if (x < w - 2) {
                i0 = (x - 2) >> 2, i1 = i0 + 1, w0 = 7 - 2 * ((x - 2) & 3), w1 = 8 - w0;
            }
            const float v0 = (float)rw.w0 * r0[i0] + (float)rw.w1 * r1[i0];
            const float v1 = (float)rw.w0 * r0[i1] + (float)rw.w1 * r1[i1];
            up[g][x] = ((float)w0 * v0 + (float)w1 * v1) / 64.0f;
        }
    }
    const float* src = tav_sr2_rowOf<const float>(c->src, 0, y);
    float* dst = tav_sr2_rowOf<float>(c->dst, 0, y);
    for (int32_t x = 0; x < w; ++x)
        dst[x] = up[1][x] + up[0][x] * src[x];
}

template <typename C>
void applyRow(const Call* c, int32_t y, int32_t* scratch) {
    const tav_sr2_GuidedFilter* f = c->f;
    const RowWeights rw = rowWeights(y, f->rect.bottom);
    if constexpr (std::is_same_v<C, ClassF>) {
        applyRowF<C>(c, y, rw, reinterpret_cast<float*>(scratch));
    } else {
        using Coef = typename C::Coef;
        using P = typename C::Pixel;
        const int32_t blocks = f->rect.right >> 2, w = f->rect.right;
        int32_t* grid_row = scratch;
        int32_t* up[2] = {scratch + 2 * blocks, scratch + 2 * blocks + w};
        const tav_sr2_Image* grids[2] = {&f->a_img, &f->b_img};
        for (int32_t g = 0; g < 2; ++g) {
            const Coef* r0 = gridRow<const Coef>(grids[g], rw.j0);
            const Coef* r1 = gridRow<const Coef>(grids[g], rw.j1);
            for (int32_t i = 0; i < blocks; ++i)
                grid_row[i] = rw.w0 * r0[i] + rw.w1 * r1[i];
            f->rows->upsample(grid_row, blocks, up[g]);
        }
        const P* src = tav_sr2_rowOf<const P>(c->src, 0, y);
        P* dst = tav_sr2_rowOf<P>(c->dst, 0, y);
        if constexpr (std::is_same_v<C, Class8>) {
            f->rows->apply8(src, up[0], up[1], w, dst);
        } else {
            f->rows->apply16(src, up[0], up[1], w, dst);
        }
    }
}

// Row group g: rows 0 and 1; then rows 4g - 2 .. 4g + 1 between two block centres; the last
// group rows H - 2 and H - 1.
template <typename C>
uint32_t applyGroupTask(void* arg, int32_t g, tav_sr2_TaskCtx* ctx) {
    const Call* c = static_cast<const Call*>(arg);
    const int32_t h = c->f->rect.bottom;
    const int32_t y0 = g == 0 ? 0 : 4 * g - 2;
    const int32_t y1 = g == 0 ? 2 : (y0 + 4 < h ? y0 + 4 : h);
    int32_t* scratch = c->scratch + (int64_t)ctx->worker_index * c->scratch_per_worker;
    for (int32_t y = y0; y < y1; ++y)
        applyRow<C>(c, y, scratch);
    return TAV_OK;
}

// ---- the call -----------------------------------------------------------------------------------

template <typename C>
uint32_t statsRowTask(void* arg, int32_t j, tav_sr2_TaskCtx*) {
    statsRow<C>(static_cast<const Call*>(arg), j);
    return TAV_OK;
}

template <typename C>
void runPasses(const Call* c) {
    static constexpr tav_sr2_TaskType kStats = tav_sr2_rowTaskType<statsRowTask<C>>();
    static constexpr tav_sr2_TaskType kFuse = tav_sr2_rowTaskType<fuseRowTask<C>>();
    static constexpr tav_sr2_TaskType kApply = tav_sr2_rowTaskType<applyGroupTask<C>>();
    tav_sr2_GuidedFilter* f = c->f;
    tav_sr2_TaskSys_run(f->tasks, &kStats, (void*)c, f->grid_height);
    if (c->map != nullptr) {
        directionsInTurn<C>(c);
    } else {
        directionsAsTasks<C>(c);
    }
    tav_sr2_TaskSys_run(f->tasks, &kFuse, (void*)c, f->grid_height);
    tav_sr2_TaskSys_run(f->tasks, &kApply, (void*)c, (f->rect.bottom >> 2) + 1);
}

uint32_t lumaView(const tav_sr2_Image* image, tav_sr2_Image* view) {
    const int32_t fmt = image->format;
    if (fmt == TAV_SR2_FMT_UINT8 || fmt == TAV_SR2_FMT_UINT16 || fmt == TAV_SR2_FMT_FLOAT) {
        return tav_sr2_Image_crop(view, image, 0, 0, image->width, image->height);
    }
    if (fmt == 67) {  // one float plane with no view of its own
        *view = *image;
        view->external = 1;
        return TAV_OK;
    }
    return tav_sr2_Image_viewPlane0(view, image, 0, 0, image->width, image->height);
}

bool samePixels(const tav_sr2_Image* a, const tav_sr2_Image* b) {
    return a->plane[0] == b->plane[0];
}

int32_t sampleBytes(int32_t cls) {
    return cls == TAV_SR2_GF_CLASS_8BIT ? 1 : cls == TAV_SR2_GF_CLASS_16BIT ? 2 : 4;
}

// Source pixels outside the rectangle into the destination: columns from W, rows from H.
void copyRemainder(const tav_sr2_GuidedFilter* f, const tav_sr2_Image* src, tav_sr2_Image* dst) {
    const int32_t sample = sampleBytes(f->cls);
    for (int32_t y = 0; y < f->height; ++y) {
        const int32_t x0 = y < f->rect.bottom ? f->rect.right : 0;
        if (x0 >= f->width) continue;
        memcpy(tav_sr2_rowOf<uint8_t>(dst, 0, y) + x0 * sample,
               tav_sr2_rowOf<const uint8_t>(src, 0, y) + x0 * sample,
               (size_t)(f->width - x0) * sample);
    }
}

void copyAll(const tav_sr2_GuidedFilter* f, const tav_sr2_Image* src, tav_sr2_Image* dst) {
    const int32_t sample = sampleBytes(f->cls);
    for (int32_t y = 0; y < f->height; ++y) {
        memcpy(tav_sr2_rowOf<uint8_t>(dst, 0, y), tav_sr2_rowOf<const uint8_t>(src, 0, y),
               (size_t)f->width * sample);
    }
}

// The noise map on the blocks of the rectangle; blocks past it repeat the last row and column.
uint32_t shrinkMap(tav_sr2_GuidedFilter* f, const tav_sr2_Image* noise_map) {
    const int32_t gw = f->grid_width, gh = f->grid_height;
    const int32_t bw = f->rect.right >> 2, bh = f->rect.bottom >> 2;
    uint32_t status = tav_sr2_Image_alloc(&f->map_small, gw, gh, nullptr, TAV_SR2_FMT_UINT8);
    if (status != TAV_OK) return status;
    tav_sr2_Image blocks;
    tav_sr2_Image_init(&blocks, f->pool);
    status = tav_sr2_Image_crop(&blocks, &f->map_small, 0, 0, bw, bh);
    const tav_sr2_ImageCtx ctx = {f->pool, nullptr, f->tasks};
    if (status == TAV_OK) status = tav_sr2_Image_warpResize(&ctx, &blocks, noise_map);
    if (status != TAV_OK) return status;
    for (int32_t j = 0; j < gh; ++j) {
        uint8_t* row = gridRow<uint8_t>(&f->map_small, j);
        if (j >= bh) memcpy(row, gridRow<const uint8_t>(&f->map_small, bh - 1), (size_t)bw);
        for (int32_t i = bw; i < gw; ++i)
            row[i] = row[bw - 1];
    }
    return TAV_OK;
}

uint32_t releaseScratch(tav_sr2_GuidedFilter* f, int32_t* scratch) {
    tav_sr2_MemPool_free(f->pool, scratch);
    const uint32_t status = tav_sr2_Image_finish(&f->map_small);
    tav_sr2_Image_init(&f->map_small, f->pool);
    return status;
}

template <typename C>
uint32_t filterWith(tav_sr2_GuidedFilter* f, Call* c) {
    const int32_t workers = tav_sr2_TaskSys_threadCount(f->tasks);
    c->scratch_per_worker = 2 * (f->rect.right >> 2) + 2 * f->rect.right;
    c->scratch = static_cast<int32_t*>(
        tav_sr2_MemPool_alloc(f->pool, (uint32_t)((int64_t)c->scratch_per_worker * workers * 4)));
    if (c->scratch == nullptr) return TAV_ERROR_MALLOC;
    if (c->map != nullptr) {
        const uint32_t status = shrinkMap(f, c->map);
        if (status != TAV_OK) {
            releaseScratch(f, c->scratch);
            return status;
        }
        c->map = &f->map_small;
    }
    runPasses<C>(c);
    if (!samePixels(c->src, c->dst)) copyRemainder(f, c->src, c->dst);
    return releaseScratch(f, c->scratch);
}

uint32_t processWith(tav_sr2_GuidedFilter* f, const tav_sr2_Image* src, tav_sr2_Image* dst,
                     const tav_sr2_Image* noise_map, int32_t window, float eps) {
    if (f == nullptr || dst == nullptr) return TAV_ERROR_PARAM;
    if (src == nullptr) src = dst;
    if (f->cls == TAV_SR2_GF_CLASS_NONE || tav_sr2_GuidedFilter_classOf(src->format) != f->cls ||
        tav_sr2_GuidedFilter_classOf(dst->format) != f->cls) {
        return TAV_ERROR_STATE;
    }
    if (window > TAV_SR2_GF_MAX_WINDOW || f->rect.right < 4 || f->rect.bottom < 4 ||
        src->width != f->width || src->height != f->height || dst->width != f->width ||
        dst->height != f->height) {
        return TAV_ERROR_PARAM;
    }
    tav_sr2_Image s, d;
    uint32_t status = lumaView(src, &s);
    if (status == TAV_OK) status = lumaView(dst, &d);
    if (status != TAV_OK) return status;
    const float magnitude = eps < 0.0f ? -eps : eps;
    if (magnitude <= 1e-12f || window < 2) {
        if (!samePixels(&s, &d)) copyAll(f, &s, &d);
        return TAV_OK;
    }
    Call c = {f, &s, &d, lineOf(window), eps, noise_map, nullptr, 0};
    switch (f->cls) {
        case TAV_SR2_GF_CLASS_8BIT:
            return filterWith<Class8>(f, &c);
        case TAV_SR2_GF_CLASS_16BIT:
            c.eps = eps * 16.0f;
            return filterWith<Class16>(f, &c);
        default:
            return filterWith<ClassF>(f, &c);
    }
}

}  // namespace

uint32_t tav_sr2_GuidedFilter_process(tav_sr2_GuidedFilter* filter, const tav_sr2_Image* src,
                                      tav_sr2_Image* dst, int32_t window, float eps) {
    return processWith(filter, src, dst, nullptr, window, eps);
}

uint32_t tav_sr2_GuidedFilter_processMap(tav_sr2_GuidedFilter* filter, const tav_sr2_Image* src,
                                         tav_sr2_Image* dst, const tav_sr2_Image* noise_map,
                                         int32_t window, float eps) {
    if (noise_map == nullptr) return TAV_ERROR_PARAM;
    return processWith(filter, src, dst, noise_map, window, eps);
}
