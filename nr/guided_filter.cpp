// The guided filter's record: defaults, init, finish, setup, and its pool figure.
//
// Setup allocates every grid image of the class at gw x gh and clears the directions' models;
// a process call adds only its apply rows (one set per worker) and, in the noise variant,
// map_small, which tav_sr2_GuidedFilter_requiredSize counts with the rest.
#include "nr/guided_filter.h"

#include "foundation/image_format.h"
#include "foundation/task_sys.h"

namespace {

// Image formats of the filter's buffers, by class.
struct ClassFormats {
    int32_t blk_sum;
    int32_t blk_sq;
    int32_t model;  // a and b, fused and per direction
    int32_t line_sum;
    int32_t line_sq;
};

ClassFormats formatsOf(int32_t cls) {
    switch (cls) {
        case TAV_SR2_GF_CLASS_8BIT:
            return {TAV_SR2_FMT_UINT16, TAV_SR2_FMT_INT32, TAV_SR2_FMT_UINT8, TAV_SR2_FMT_UINT16,
                    TAV_SR2_FMT_INT32};
        case TAV_SR2_GF_CLASS_16BIT:
            return {TAV_SR2_FMT_UINT16, TAV_SR2_FMT_INT32, TAV_SR2_FMT_UINT16, TAV_SR2_FMT_INT32,
                    TAV_SR2_FMT_INT32};
        default:
            return {TAV_SR2_FMT_FLOAT, TAV_SR2_FMT_FLOAT, TAV_SR2_FMT_FLOAT, TAV_SR2_FMT_FLOAT,
                    TAV_SR2_FMT_FLOAT};
    }
}

int32_t gridSide(int32_t side) {
    return ((side >> 2) + 1) & ~1;
}

uint64_t poolBlock(uint64_t n) {
    const uint64_t need = n + 8 < 24 ? 24 : n + 8;
    return (need + 15) & ~uint64_t{15};
}

uint64_t gridImage(int32_t gw, int32_t gh, int32_t format) {
    return poolBlock(tav_sr2_ImageFormat_query(gw, gh, format, 0));
}

// Every image of the record, for the loops of init, release and finish.
template <typename Fn>
void forEachImage(tav_sr2_GuidedFilter* f, Fn&& fn) {
    fn(&f->blk_sum);
    fn(&f->blk_sq);
    fn(&f->a_img);
    fn(&f->b_img);
    for (int32_t d = 0; d < TAV_SR2_GF_DIRECTIONS; ++d) {
        fn(&f->a_dir[d]);
        fn(&f->b_dir[d]);
        fn(&f->line_sum[d]);
        fn(&f->line_sq[d]);
    }
    fn(&f->map_small);
}

uint32_t releaseAll(tav_sr2_GuidedFilter* f) {
    uint32_t status = TAV_OK;
    forEachImage(f, [&](tav_sr2_Image* image) {
        const uint32_t s = tav_sr2_Image_finish(image);
        if (status == TAV_OK) status = s;
        tav_sr2_Image_init(image, f->pool);
    });
    f->cls = TAV_SR2_GF_CLASS_NONE;
    return status;
}

uint32_t allocGrids(tav_sr2_GuidedFilter* f) {
    const ClassFormats fm = formatsOf(f->cls);
    const int32_t gw = f->grid_width, gh = f->grid_height;
    uint32_t status = tav_sr2_Image_alloc(&f->blk_sum, gw, gh, nullptr, fm.blk_sum);
    status |= tav_sr2_Image_alloc(&f->blk_sq, gw, gh, nullptr, fm.blk_sq);
    status |= tav_sr2_Image_alloc(&f->a_img, gw, gh, nullptr, fm.model);
    status |= tav_sr2_Image_alloc(&f->b_img, gw, gh, nullptr, fm.model);
    for (int32_t d = 0; d < TAV_SR2_GF_DIRECTIONS && status == TAV_OK; ++d) {
        status |= tav_sr2_Image_alloc(&f->a_dir[d], gw, gh, nullptr, fm.model);
        status |= tav_sr2_Image_alloc(&f->b_dir[d], gw, gh, nullptr, fm.model);
        status |= tav_sr2_Image_alloc(&f->line_sum[d], gw, gh, nullptr, fm.line_sum);
        status |= tav_sr2_Image_alloc(&f->line_sq[d], gw, gh, nullptr, fm.line_sq);
    }
    return status;
}

// The directions' models start at 0, so a row the process never reaches reads as flat.
void clearModels(tav_sr2_GuidedFilter* f) {
    for (int32_t d = 0; d < TAV_SR2_GF_DIRECTIONS; ++d) {
        for (tav_sr2_Image* image : {&f->a_dir[d], &f->b_dir[d]}) {
            const uint64_t bytes = (uint64_t)image->pitch[0] * (uint64_t)image->height;
            uint8_t* p = image->plane[0];
            for (uint64_t k = 0; k < bytes; ++k)
                p[k] = 0;
        }
    }
}

}  // namespace

void tav_sr2_GuidedFilter_defaults(tav_sr2_GuidedFilterConfig* config) {
    if (config == nullptr) return;
    config->mode = 1;
    config->level_shift = 2;
}

uint32_t tav_sr2_GuidedFilter_init(tav_sr2_GuidedFilter* filter, tav_sr2_MemPool* pool) {
    if (filter == nullptr) return TAV_ERROR_PARAM;
    *filter = tav_sr2_GuidedFilter{};
    filter->pool = pool;
    tav_sr2_GuidedFilter_defaults(&filter->config);
    filter->rows = &tav_sr2_guidedRowsVector;
    forEachImage(filter, [&](tav_sr2_Image* image) { tav_sr2_Image_init(image, pool); });
    return TAV_OK;
}

uint32_t tav_sr2_GuidedFilter_finish(tav_sr2_GuidedFilter* filter) {
    if (filter == nullptr) return TAV_ERROR_PARAM;
    const uint32_t status = releaseAll(filter);
    *filter = tav_sr2_GuidedFilter{};
    return status;
}

uint32_t tav_sr2_GuidedFilter_setThreads(tav_sr2_GuidedFilter* filter, tav_sr2_TaskSys* tasks) {
    if (filter == nullptr) return TAV_ERROR_PARAM;
    filter->tasks = tasks;
    return TAV_OK;
}

uint32_t tav_sr2_GuidedFilter_setup(tav_sr2_GuidedFilter* filter, int32_t width, int32_t height,
                                    int32_t format, const tav_sr2_GuidedFilterConfig* config) {
    if (filter == nullptr) return TAV_ERROR_PARAM;
    releaseAll(filter);
    const int32_t cls = tav_sr2_GuidedFilter_classOf(format);
    if (cls == TAV_SR2_GF_CLASS_NONE) return TAV_ERROR_UNSUPPORTED;
    tav_sr2_GuidedFilterConfig chosen;
    tav_sr2_GuidedFilter_defaults(&chosen);
    if (config != nullptr) chosen = *config;
    if (chosen.level_shift > 2 || width < 0 || height < 0) return TAV_ERROR_PARAM;

    filter->config = chosen;
    filter->width = width;
    filter->height = height;
    filter->cls = cls;
    filter->rect = {0, 0, width & ~3, height & ~3};
    filter->grid_width = gridSide(width);
    filter->grid_height = gridSide(height);
    // Below 4 pixels there is no block to filter: the process calls refuse the empty rectangle.
    if (filter->grid_width == 0 || filter->grid_height == 0) return TAV_OK;
    const uint32_t status = allocGrids(filter);
    if (status != TAV_OK) {
        releaseAll(filter);
        return status;
    }
    clearModels(filter);
    return TAV_OK;
}

int32_t tav_sr2_GuidedFilter_classOf(int32_t format) {
    switch (format) {
        case 1:
        case 35:
        case 44:
        case 45:
        case 46:
        case 47:
        case 48:
        case 49:
            return TAV_SR2_GF_CLASS_8BIT;
        case 3:
        case 50:
        case 52:
        case 53:
        case 63:
        case 64:
            return TAV_SR2_GF_CLASS_16BIT;
        case 5:
        case 67:
            return TAV_SR2_GF_CLASS_FLOAT;
        default:
            return TAV_SR2_GF_CLASS_NONE;
    }
}

uint32_t tav_sr2_GuidedFilter_requiredSize(int32_t width, int32_t height, int32_t format) {
    const int32_t cls = tav_sr2_GuidedFilter_classOf(format);
    if (width < 0 || height < 0 || cls == TAV_SR2_GF_CLASS_NONE) return 0;
    const int32_t gw = gridSide(width);
    const int32_t gh = gridSide(height);
    const ClassFormats f = formatsOf(cls);

    uint64_t total =
        gridImage(gw, gh, f.blk_sum) + gridImage(gw, gh, f.blk_sq) + 2 * gridImage(gw, gh, f.model);
    const uint64_t per_direction = 2 * gridImage(gw, gh, f.model) + gridImage(gw, gh, f.line_sum) +
                                   gridImage(gw, gh, f.line_sq);
    total += TAV_SR2_GF_DIRECTIONS * per_direction;
    // A process call: two grid rows and two pixel rows of 32 bits per worker, and the noise
    // variant's map on the grid.
    const uint64_t apply_rows = 2 * (uint64_t)(width >> 2) + 2 * (uint64_t)(width & ~3);
    total += poolBlock(apply_rows * 4 * TAV_SR2_TASK_MAX_WORKERS);
    total += gridImage(gw, gh, TAV_SR2_FMT_UINT8);
    return total > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<uint32_t>(total);
}
