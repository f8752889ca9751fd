// 3 x 3 rank filters.
//
// tav_sr2_Image_max3x3 / tav_sr2_Image_min3x3 (filter, source, destination): each output sample is
// the maximum / minimum of the samples of its 3 x 3 window that lie inside the image. The key
// (source format << 8) | destination format picks a row routine from one of two tables, in place
// when the images share plane[0], out of place otherwise. Members that touch luma leave chroma as
// it is. Results: 0; 0x80000001 for a null filter, image or plane; 0x80000010 for a size below 1,
// sizes that differ or an unknown key, with nothing written; 0x80000004 when a working image
// cannot be had; the failure of a post or of the join otherwise.
//
// Work is split in T bands of rows (tav_sr2_rowBand): T is 1 without a thread pool or below 256
// rows, else the pool's count of workers. Jobs claim bands from a shared atomic counter. In place,
// a row's input must outlive the output of its neighbours: each band walks a rolling set of three
// saved lines, and the rows just outside each band are saved before any job starts.

#include "foundation/rank_filter.h"

#include <string.h>

#include "foundation/row_band.h"
#include "foundation/sync.h"

namespace {

const int32_t kThreadRows = 256;  // below this many rows one thread does the whole image

struct RankKey {
    uint16_t key;
    int8_t layout;
};

constexpr uint16_t keyOf(int32_t src, int32_t dst) {
    return (uint16_t)((src << 8) | dst);
}

constexpr RankKey kInPlace[] = {
    {keyOf(1, 1), TAV_SR2_RANK_U8},          {keyOf(35, 35), TAV_SR2_RANK_U8},
    {keyOf(44, 44), TAV_SR2_RANK_U8},        {keyOf(45, 45), TAV_SR2_RANK_U8},
    {keyOf(46, 46), TAV_SR2_RANK_U8},        {keyOf(47, 47), TAV_SR2_RANK_U8},
    {keyOf(48, 48), TAV_SR2_RANK_U8},        {keyOf(49, 49), TAV_SR2_RANK_U8},
    {keyOf(3, 3), TAV_SR2_RANK_U16},         {keyOf(4, 4), TAV_SR2_RANK_I32},
    {keyOf(5, 5), TAV_SR2_RANK_F32},         {keyOf(9, 9), TAV_SR2_RANK_RGB888},
    {keyOf(29, 29), TAV_SR2_RANK_YUV444_Y0}, {keyOf(30, 30), TAV_SR2_RANK_YUV444_Y0},
    {keyOf(31, 31), TAV_SR2_RANK_YUV444_Y1}, {keyOf(32, 32), TAV_SR2_RANK_YUV444_Y1},
    {keyOf(33, 33), TAV_SR2_RANK_YUV444_Y2}, {keyOf(34, 34), TAV_SR2_RANK_YUV444_Y2},
    {keyOf(36, 36), TAV_SR2_RANK_YUV422_Y0}, {keyOf(37, 37), TAV_SR2_RANK_YUV422_Y0},
    {keyOf(38, 38), TAV_SR2_RANK_YUV422_Y1}, {keyOf(39, 39), TAV_SR2_RANK_YUV422_Y1},
};

constexpr RankKey kOutOfPlace[] = {
    {keyOf(1, 1), TAV_SR2_RANK_U8},
    {keyOf(3, 3), TAV_SR2_RANK_U16},
    {keyOf(4, 4), TAV_SR2_RANK_I32},
    {keyOf(5, 5), TAV_SR2_RANK_F32},
    {keyOf(9, 9), TAV_SR2_RANK_RGB888},
    {keyOf(1, 35), TAV_SR2_RANK_U8},
    {keyOf(1, 44), TAV_SR2_RANK_U8},
    {keyOf(1, 45), TAV_SR2_RANK_U8},
    {keyOf(1, 46), TAV_SR2_RANK_U8},
    {keyOf(1, 47), TAV_SR2_RANK_U8},
    {keyOf(1, 48), TAV_SR2_RANK_U8},
    {keyOf(1, 49), TAV_SR2_RANK_U8},
    {keyOf(1, 29), TAV_SR2_RANK_U8_TO_444_Y0},
    {keyOf(1, 30), TAV_SR2_RANK_U8_TO_444_Y0},
    {keyOf(1, 31), TAV_SR2_RANK_U8_TO_444_Y1},
    {keyOf(1, 32), TAV_SR2_RANK_U8_TO_444_Y1},
    {keyOf(1, 33), TAV_SR2_RANK_U8_TO_444_Y2},
    {keyOf(1, 34), TAV_SR2_RANK_U8_TO_444_Y2},
    {keyOf(1, 36), TAV_SR2_RANK_U8_TO_422_Y0},
    {keyOf(1, 37), TAV_SR2_RANK_U8_TO_422_Y0},
    {keyOf(1, 38), TAV_SR2_RANK_U8_TO_422_Y1},
    {keyOf(1, 39), TAV_SR2_RANK_U8_TO_422_Y1},
};

// Everything the band jobs share; the posted block is a pointer to it.
struct RankJob {
    tav_sr2_RankRowFn row;
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    int32_t bands;
    int32_t next_band;  // shared band counter, claimed by atomic add
    // In place only: the saved band edges (two lines a band) and the rolling lines (three a band).
    const tav_sr2_Image* edges;
    const tav_sr2_Image* lines;
    int32_t row_bytes;
};

inline bool validFormat(int32_t code) {
    return code >= 0 && code < TAV_SR2_FORMAT_COUNT;
}

inline const uint8_t* rowOf(const tav_sr2_Image* image, int32_t y) {
    return image->plane[0] + (int64_t)y * image->pitch[0];
}

inline uint8_t* rowOf(tav_sr2_Image* image, int32_t y) {
    return image->plane[0] + (int64_t)y * image->pitch[0];
}

// Bytes of real samples in a row of plane 0, without the padding a pitch may hold.
int32_t rowBytes(const tav_sr2_Image* image) {
    const uint8_t* layout = tav_sr2_format_layout[image->format];
    const int32_t pixels = layout[TAV_SR2_LAYOUT_PIXELS0];
    return (image->width + pixels - 1) / pixels * layout[TAV_SR2_LAYOUT_BYTES0];
}

void filterBandOutOfPlace(const RankJob* job, int32_t y0, int32_t y1) {
    const int32_t last = job->src->height - 1;
    for (int32_t y = y0; y < y1; ++y) {
        job->row(rowOf(job->src, y > 0 ? y - 1 : 0), rowOf(job->src, y),
                 rowOf(job->src, y < last ? y + 1 : last), rowOf(job->dst, y), job->dst->width);
    }
}

// Rows y0..y1-1 of band `band` in place. Each input row is copied to a rolling line before its
// output overwrites it; the rows just outside the band come from the saved edges.
void filterBandInPlace(const RankJob* job, int32_t band, int32_t y0, int32_t y1) {
    tav_sr2_Image* image = job->dst;
    uint8_t* ring[3];
    for (int32_t k = 0; k < 3; ++k) {
        ring[k] = job->lines->plane[0] + (int64_t)(3 * band + k) * job->lines->pitch[0];
    }
    const uint8_t* edge_above = rowOf(job->edges, 2 * band);
    const uint8_t* edge_below = rowOf(job->edges, 2 * band + 1);

    memcpy(ring[0], rowOf(image, y0), job->row_bytes);
    const uint8_t* prev = y0 > 0 ? edge_above : ring[0];
    const uint8_t* cur = ring[0];
    for (int32_t y = y0; y < y1; ++y) {
        const uint8_t* next = cur;
        if (y + 1 < y1) {
            uint8_t* line = ring[(y + 1 - y0) % 3];
            memcpy(line, rowOf(image, y + 1), job->row_bytes);
            next = line;
        } else if (y + 1 < image->height) {
            next = edge_below;
        }
        job->row(prev, cur, next, rowOf(image, y), image->width);
        prev = cur;
        cur = next;
    }
}

void runBand(RankJob* job, int32_t band) {
    int32_t y0, y1;
    tav_sr2_rowBand(job->dst->height, band, job->bands, &y0, &y1);
    if (y0 >= y1) return;
    if (job->lines != nullptr) {
        filterBandInPlace(job, band, y0, y1);
    } else {
        filterBandOutOfPlace(job, y0, y1);
    }
}

// The band job: claims bands until none is left.
uint32_t rankBandJob(void* arg) {
    RankJob* job = *static_cast<RankJob**>(arg);
    for (;;) {
        const int32_t band = tav_sr2_atomicAdd(&job->next_band, 1);
        if (band >= job->bands) return TAV_OK;
        runBand(job, band);
    }
}

// Posts the band job once per band and joins. Jobs already posted still reference `job`, so the
// join runs even after a failed post.
uint32_t runBands(tav_sr2_ThreadPool* thread_pool, RankJob* job) {
    uint32_t status = TAV_OK;
    for (int32_t i = 0; i < job->bands && status == TAV_OK; ++i) {
        status = tav_sr2_ThreadPool_post(thread_pool, &rankBandJob, &job, sizeof(job));
    }
    return status | tav_sr2_ThreadPool_join(thread_pool);
}

// Saves, for every band, the input row just above it and the one just below it.
void saveBandEdges(const RankJob* job) {
    const int32_t h = job->dst->height;
    for (int32_t band = 0; band < job->bands; ++band) {
        int32_t y0, y1;
        tav_sr2_rowBand(h, band, job->bands, &y0, &y1);
        if (y0 >= y1) continue;
        uint8_t* above = job->edges->plane[0] + (int64_t)(2 * band) * job->edges->pitch[0];
        if (y0 > 0) memcpy(above, rowOf(job->dst, y0 - 1), job->row_bytes);
        if (y1 < h) memcpy(above + job->edges->pitch[0], rowOf(job->dst, y1), job->row_bytes);
    }
}

uint32_t filterInPlace(tav_sr2_RankFilter* filter, RankJob* job) {
    tav_sr2_Image* image = job->dst;
    tav_sr2_Image edges, lines;
    tav_sr2_Image_init(&edges, filter->pool);
    tav_sr2_Image_init(&lines, filter->pool);
    uint32_t status =
        tav_sr2_Image_alloc(&edges, image->width, 2 * job->bands, nullptr, job->src->format);
    if (status == TAV_OK) {
        status = tav_sr2_Image_alloc(&lines, image->width, 3 * job->bands, nullptr, image->format);
    }
    if (status != TAV_OK) {
        tav_sr2_Image_finish(&edges);
        tav_sr2_Image_finish(&lines);
        return status;
    }
    job->edges = &edges;
    job->lines = &lines;
    job->row_bytes = rowBytes(image);
    if (job->bands == 1) {
        runBand(job, 0);
    } else {
        saveBandEdges(job);
        status = runBands(filter->thread_pool, job);
    }
    tav_sr2_Image_finish(&lines);
    tav_sr2_Image_finish(&edges);
    return status;
}

}  // namespace

void tav_sr2_RankFilter_init(tav_sr2_RankFilter* filter, tav_sr2_MemPool* pool,
                             tav_sr2_ThreadPool* thread_pool) {
    filter->pool = pool;
    filter->thread_pool = thread_pool;
}

int32_t tav_sr2_RankFilter_layout(int32_t key, bool in_place) {
    const RankKey* table = in_place ? kInPlace : kOutOfPlace;
    const size_t count = in_place ? sizeof(kInPlace) / sizeof(kInPlace[0])
                                  : sizeof(kOutOfPlace) / sizeof(kOutOfPlace[0]);
    for (size_t i = 0; i < count; ++i) {
        if (table[i].key == key) return table[i].layout;
    }
    return -1;
}

int32_t tav_sr2_RankFilter_threadCount(const tav_sr2_RankFilter* filter, int32_t height) {
    if (filter->thread_pool == nullptr || height < kThreadRows) return 1;
    const int32_t workers = tav_sr2_ThreadPool_threadCount(filter->thread_pool);
    return workers > 1 ? workers : 1;
}

uint32_t tav_sr2_Image_rank3x3(tav_sr2_RankFilter* filter, const tav_sr2_Image* src,
                               tav_sr2_Image* dst, tav_sr2_RankOp op,
                               const tav_sr2_RankRows* rows) {
    if (filter == nullptr || src == nullptr || dst == nullptr || rows == nullptr ||
        (op != TAV_SR2_RANK_MIN && op != TAV_SR2_RANK_MAX)) {
        return TAV_ERROR_PARAM;
    }
    if (src->plane[0] == nullptr || dst->plane[0] == nullptr) return TAV_ERROR_PARAM;
    if (src->width < 1 || src->height < 1 || src->width != dst->width ||
        src->height != dst->height) {
        return TAV_ERROR_UNSUPPORTED;
    }
    if (!validFormat(src->format) || !validFormat(dst->format)) return TAV_ERROR_UNSUPPORTED;
    const bool in_place = src->plane[0] == dst->plane[0];
    const int32_t layout = tav_sr2_RankFilter_layout(keyOf(src->format, dst->format), in_place);
    if (layout < 0) return TAV_ERROR_UNSUPPORTED;

    RankJob job;
    job.row = rows->row[op][layout];
    job.src = src;
    job.dst = dst;
    job.bands = tav_sr2_RankFilter_threadCount(filter, dst->height);
    job.next_band = 0;
    job.edges = nullptr;
    job.lines = nullptr;
    job.row_bytes = 0;
    if (in_place) return filterInPlace(filter, &job);
    if (job.bands == 1) {
        runBand(&job, 0);
        return TAV_OK;
    }
    return runBands(filter->thread_pool, &job);
}

uint32_t tav_sr2_Image_max3x3(tav_sr2_RankFilter* filter, const tav_sr2_Image* src,
                              tav_sr2_Image* dst) {
    return tav_sr2_Image_rank3x3(filter, src, dst, TAV_SR2_RANK_MAX, tav_sr2_rankRowsVector());
}

uint32_t tav_sr2_Image_min3x3(tav_sr2_RankFilter* filter, const tav_sr2_Image* src,
                              tav_sr2_Image* dst) {
    return tav_sr2_Image_rank3x3(filter, src, dst, TAV_SR2_RANK_MIN, tav_sr2_rankRowsVector());
}
