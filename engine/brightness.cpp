// Mean brightness of a frame's luma.
//
// tav_sr2_Image_brightness(tasks, image, mean): a row task of 8 rows, row k summing band k of
//   the image (from ((k * h / 8) + 3) & ~3 to the next such start) over its even rows and even
//   columns into partial k. Band starts are multiples of 4, so the even rows of the bands are
//   the even rows of the image. The mean is float(sum of partials) / float((w * h) >> 2): for an
//   even size exactly the mean of the pixels visited.

#include <atomic>

#include "engine/sharpness.h"
#include "foundation/row_band.h"

namespace {

struct BrightJob {
    const tav_sr2_Image* image;
    uint64_t partial[TAV_SR2_BRIGHTNESS_PARTIALS];
};

uint32_t brightnessRow(void* arg, int32_t row, tav_sr2_TaskCtx* /*ctx*/) {
    BrightJob* job = static_cast<BrightJob*>(arg);
    const tav_sr2_Image* im = job->image;
    int32_t y0;
    int32_t y1;
    tav_sr2_rowBand(im->height, row, TAV_SR2_BRIGHTNESS_PARTIALS, &y0, &y1);
    uint64_t sum = 0;
    for (int32_t y = (y0 + 1) & ~1; y < y1; y += 2) {
        const uint8_t* p = im->plane[0] + (int64_t)y * im->pitch[0];
        uint32_t row_sum = 0;
        for (int32_t x = 0; x < im->width; x += 2)
            row_sum += p[x];
        sum += row_sum;
    }
    job->partial[row] = sum;
    return TAV_OK;
}

constexpr tav_sr2_TaskType kBrightnessRows = tav_sr2_rowTaskType<brightnessRow>();

// A scheduler that is not running would run nothing and still answer 0: the rows then run here.
tav_sr2_TaskSys* runningOrNull(tav_sr2_TaskSys* tasks) {
    if (tasks == nullptr) return nullptr;
    return std::atomic_ref<int32_t>(tasks->running).load(std::memory_order_acquire) != 0 ? tasks
                                                                                         : nullptr;
}

}  // namespace

uint32_t tav_sr2_Image_brightness(tav_sr2_TaskSys* tasks, const tav_sr2_Image* image, float* mean) {
    if (image == nullptr || mean == nullptr) return TAV_ERROR_PARAM;
    if (image->format != TAV_SR2_FMT_UINT8) return TAV_ERROR_UNSUPPORTED;
    const int64_t divisor = ((int64_t)image->width * image->height) >> 2;
    if (image->width < 1 || image->height < 1 || divisor < 1) {
        *mean = 0.0f;
        return TAV_OK;
    }
    if (image->plane[0] == nullptr || image->pitch[0] < image->width) return TAV_ERROR_PARAM;
    BrightJob job{};
    job.image = image;
    const uint32_t status = tav_sr2_TaskSys_run(runningOrNull(tasks), &kBrightnessRows, &job,
                                                TAV_SR2_BRIGHTNESS_PARTIALS);
    if (status != TAV_OK) return status;
    uint64_t sum = 0;
    for (uint64_t partial : job.partial)
        sum += partial;
    *mean = (float)sum / (float)divisor;
    return TAV_OK;
}
