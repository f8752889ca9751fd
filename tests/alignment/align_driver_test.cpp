// The alignment driver on whole bursts: failing frames and the collapse of a burst, the base
// frame's immunity, the work size and its rescaling, failures of the calls inside, and the
// accuracy of recovered homographies on real photographs at several noise levels.
#include "alignment/align_driver.h"

#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine/pipeline.h"
#include "foundation/log.h"
#include "tests/alignment/png_luma.h"
#include "tests/alignment/scene_util.h"
#include "tests/foundation/pool_fixtures.h"

namespace {

using tav_scene::Plane;

// Keeps the engine's warning and debug lines while it lives.
class LogKeeper {
public:
    LogKeeper() {
        lines().clear();
        tav_sr2_Logger_enable();
        tav_sr2_Logger_setLevel(4);
        tav_sr2_logger->sink_w = &keep;
        tav_sr2_logger->sink_d = &keep;
    }
    ~LogKeeper() { tav_sr2_Logger_disable(); }
    static std::vector<std::string>& lines() {
        static std::vector<std::string> kept;
        return kept;
    }
    static int count(const std::string& line) {
        int n = 0;
        for (const std::string& l : lines())
            n += l == line ? 1 : 0;
        return n;
    }

private:
    static void keep(const char*, const char* fmt, va_list ap) {
        char text[256];
        vsnprintf(text, sizeof text, fmt, ap);
        lines().push_back(text);
    }
};

// A pipeline over a pool and two workers, with frames of a burst given as grey planes.
struct Burst {
    tav_fixtures::Heap heap{48 << 20};
    tav_fixtures::Workers workers{&heap.pool, 2};
    std::unique_ptr<tav_sr2_Pipeline> p{new tav_sr2_Pipeline};
    std::vector<std::unique_ptr<tav_fixtures::TestImage>> frames;
    std::vector<std::vector<uint8_t>> originals;

    Burst(const std::vector<Plane>& planes, int32_t shrink) {
        tav_sr2_Pipeline_init(p.get(), &heap.pool, workers.ts, &workers.tp);
        p->clip_width = planes[0].width;
        p->clip_height = planes[0].height;
        p->tuning.detectmotion_shrink_ratio = shrink;
        p->frame_count = (int32_t)planes.size();
        p->order_ready = 1;
        for (int32_t i = 0; i < TAV_SR2_PIPELINE_FRAMES; ++i) {
            p->frame_order[i] = i;
            for (int j = 0; j < 9; ++j)
                p->align_transforms[i][j] = (j % 4 == 0) ? 1.0 : 0.0;
        }
        for (size_t k = 0; k < planes.size(); ++k)
            addFrame((int32_t)k, planes[k]);
    }
    ~Burst() {
        tav_sr2_Pipeline_finish(p.get());
        frames.clear();
    }

    void addFrame(int32_t k, const Plane& plane) {
        frames.emplace_back(new tav_fixtures::TestImage(&heap.pool, plane.width, plane.height, 48));
        tav_sr2_Image& img = frames.back()->img;
        for (int32_t y = 0; y < plane.height; ++y)
            memcpy(img.plane[0] + (size_t)y * img.pitch[0], &plane.px[(size_t)y * plane.width],
                   plane.width);
        for (int32_t y = 0; y < (plane.height + 1) / 2; ++y)
            memset(img.plane[1] + (size_t)y * img.pitch[1], 128, img.pitch[1]);
        EXPECT_EQ(tav_sr2_Image_crop(&p->images[k], &img, 0, 0, plane.width, plane.height), TAV_OK);
        originals.push_back(plane.px);
    }
    bool frameUnchanged(int32_t k) const {
        const tav_sr2_Image& img = frames[k]->img;
        for (int32_t y = 0; y < img.height; ++y)
            if (memcmp(img.plane[0] + (size_t)y * img.pitch[0],
                       &originals[k][(size_t)y * img.width], img.width) != 0)
                return false;
        return true;
    }
    tav_sr2_Trans2D transform(int32_t k) const { return tav_scene::matrix(p->align_transforms[k]); }
    // The identity up to the homogeneous scale (the base frame's comes normalised).
    bool isIdentity(int32_t k) const {
        const double* m = p->align_transforms[k];
        for (int j = 0; j < 9; ++j)
            if (j % 4 != 0 && m[j] != 0.0) return false;
        return m[0] > 0 && m[0] == m[4] && m[4] == m[8];
    }
};

const int32_t kW = 320, kH = 240;

Plane sceneFrame(const Plane& scene, const tav_sr2_Trans2D& t, double noise, uint32_t seed) {
    return tav_scene::warpedFrame(scene, t, 16, 16, kW, kH, noise, seed);
}

std::string failLine(int32_t k, uint32_t status) {
    char text[64];
    snprintf(text, sizeof text, "WARNING!!! image %d algin failed %d\n", k, (int)status);
    return text;
}

TEST(AlignDriver, FailedSecondFrameCollapsesATwoFrameBurst) {
    tav_sr2_Trans2D identity;
    tav_sr2_Trans2D_identity(&identity);
    const Plane base = sceneFrame(tav_scene::texturedScene(kW + 32, kH + 32, 1), identity, 0, 0);
    const Plane other = sceneFrame(tav_scene::texturedScene(kW + 32, kH + 32, 99), identity, 0, 0);
    LogKeeper log;
    Burst b({base, other}, 0);
    ASSERT_EQ(tav_sr2_Pipeline_align(b.p.get()), TAV_OK);
    EXPECT_NE(b.p->align_status[1], 0u);
    EXPECT_EQ(b.p->align_status[0], 0u);
    EXPECT_EQ(b.p->align_fail_count, 1);
    EXPECT_EQ(b.p->frame_count, 1);
    EXPECT_TRUE(b.isIdentity(0));
    EXPECT_TRUE(b.isIdentity(1));
    EXPECT_EQ(log.count(failLine(1, b.p->align_status[1])), 1);
    EXPECT_EQ(log.count("All align failed"), 1);
    EXPECT_TRUE(b.frameUnchanged(0) && b.frameUnchanged(1));  // shrink 0 aligns in place
}

TEST(AlignDriver, OneFailureInThreeKeepsTheBurst) {
    const Plane scene = tav_scene::texturedScene(kW + 32, kH + 32, 2);
    tav_sr2_Trans2D identity;
    tav_sr2_Trans2D_identity(&identity);
    const tav_sr2_Trans2D moved =
        tav_scene::aboutCentre(0.5, 1.005, 6.25, -3.5, 0, 0, kW / 2, kH / 2);
    // The base is slot 1; the frame of another scene, slot 2, comes last.
    LogKeeper log;
    Burst b({sceneFrame(scene, moved, 1, 5), sceneFrame(scene, identity, 1, 6),
             sceneFrame(tav_scene::texturedScene(kW + 32, kH + 32, 77), identity, 1, 7)},
            0);
    const int32_t order[3] = {1, 0, 2};
    memcpy(b.p->frame_order, order, sizeof order);
    ASSERT_EQ(tav_sr2_Pipeline_align(b.p.get()), TAV_OK);
    EXPECT_EQ(b.p->frame_count, 3);
    EXPECT_EQ(b.p->align_fail_count, 1);
    EXPECT_EQ(b.p->align_status[1], 0u);
    EXPECT_TRUE(b.isIdentity(1));
    EXPECT_EQ(b.p->align_status[0], 0u);
    EXPECT_LT(tav_scene::meanCornerError(b.transform(0), moved, kW, kH), 0.5);
    EXPECT_NE(b.p->align_status[2], 0u);
    EXPECT_TRUE(b.isIdentity(2));
    EXPECT_EQ(log.count("All align failed"), 0);
    EXPECT_EQ(log.count(failLine(2, b.p->align_status[2])), 1);
}

TEST(AlignDriver, FlatBaseIsNeverCountedAsFailed) {
    const Plane scene = tav_scene::texturedScene(kW + 32, kH + 32, 3);
    tav_sr2_Trans2D identity;
    tav_sr2_Trans2D_identity(&identity);
    Burst b({tav_scene::flatPlane(kW, kH, 60), sceneFrame(scene, identity, 0, 0),
             sceneFrame(scene, identity, 0, 0)},
            0);
    ASSERT_EQ(tav_sr2_Pipeline_align(b.p.get()), TAV_OK);
    EXPECT_EQ(b.p->align_status[0], 0u);
    EXPECT_TRUE(b.isIdentity(0));
    EXPECT_NE(b.p->align_status[1], 0u);  // nothing to track from a flat reference
    EXPECT_NE(b.p->align_status[2], 0u);
    EXPECT_EQ(b.p->align_fail_count, 2);
    EXPECT_EQ(b.p->frame_count, 1);
}

TEST(AlignDriver, ShrunkWorkImageGivesClipCoordinates) {
    const Plane scene = tav_scene::texturedScene(kW + 32, kH + 32, 4);
    tav_sr2_Trans2D identity;
    tav_sr2_Trans2D_identity(&identity);
    const tav_sr2_Trans2D moved =
        tav_scene::aboutCentre(-0.8, 0.99, -9.0, 5.5, 1e-5, 0, kW / 2, kH / 2);
    for (int32_t shrink : {1, 33}) {  // 33 is 1 modulo 32
        Burst b({sceneFrame(scene, identity, 0.5, 7), sceneFrame(scene, moved, 0.5, 8)}, shrink);
        ASSERT_EQ(tav_sr2_Pipeline_align(b.p.get()), TAV_OK);
        ASSERT_EQ(b.p->align_status[1], 0u);
        EXPECT_EQ(b.p->frame_count, 2);
        const tav_sr2_Trans2D got = b.transform(1);
        // Normalised as every transform leaving the estimator.
        EXPECT_NEAR(got.m[0] * got.m[0] + got.m[4] * got.m[4] + got.m[8] * got.m[8], 1.0, 1e-12);
        EXPECT_LT(tav_scene::meanCornerError(got, moved, kW, kH), 0.5) << shrink;
    }
}

TEST(AlignDriver, EmptyBurstAndFailingCallsLeaveNothingBehind) {
    {
        LogKeeper log;
        Burst b({tav_scene::flatPlane(kW, kH, 1)}, 0);
        b.p->frame_count = 0;
        ASSERT_EQ(tav_sr2_Pipeline_align(b.p.get()), TAV_OK);
        EXPECT_EQ(b.p->frame_count, 1);
        EXPECT_EQ(log.count("All align failed"), 1);
    }
    EXPECT_EQ(tav_sr2_Pipeline_align(nullptr), TAV_ERROR_PARAM);
#ifdef TAVRIN_FAULT_INJECTION
    const Plane scene = tav_scene::texturedScene(kW + 32, kH + 32, 5);
    tav_sr2_Trans2D identity;
    tav_sr2_Trans2D_identity(&identity);
    const Plane f0 = sceneFrame(scene, identity, 0, 0), f1 = sceneFrame(scene, identity, 1, 1);
    for (int32_t shrink : {0, 1}) {
        Burst b({f0, f1}, shrink);
        const uint32_t in_use = tav_sr2_MemPool_inUse(&b.heap.pool);
        tav_sr2_MemPool_injectFailure(0, false);
        ASSERT_EQ(tav_sr2_Pipeline_align(b.p.get()), TAV_OK);
        const uint32_t allocations = tav_sr2_MemPool_allocCount();
        ASSERT_GT(allocations, 0u);
        for (uint32_t nth = 1; nth <= allocations; ++nth) {
            b.p->frame_count = 2;
            b.p->align_fail_count = 0;
            tav_sr2_MemPool_injectFailure(nth, false);
            const uint32_t status = tav_sr2_Pipeline_align(b.p.get());
            tav_sr2_MemPool_injectFailure(0, false);
            EXPECT_TRUE(status == TAV_OK || tav_sr2_failed(status)) << nth;
            if (status != TAV_OK) {
                EXPECT_EQ(b.p->frame_count, 2) << nth;  // no end check
            }
            EXPECT_EQ(tav_sr2_MemPool_inUse(&b.heap.pool), in_use) << nth;
        }
    }
#endif
}

// Photographs for the accuracy test, in two sets. The validation photographs of the shared
// data (035 to 049, 1.0 to 1.3 MP; 001 to 034 are kept for training and never used here) come
// closest to the engine's work crop, which is at least 1280 x 960; Kodak pictures (768 x 512)
// add variety. By default a third of the first set and two of the second; all of them with
// TAVRIN_ALIGN_ALL_PHOTOS set. A ThreadSanitizer build, where this test alone would take most
// of a minute, keeps the first photograph of each set: the workers run the same either way.
#if defined(__SANITIZE_THREAD__)
const bool kFirstOfEachSet = true;
#else
const bool kFirstOfEachSet = false;
#endif

struct PhotoSet {
    const char* label;
    std::vector<std::string> names;
};

std::vector<PhotoSet> accuracyPhotos() {
    const bool all = getenv("TAVRIN_ALIGN_ALL_PHOTOS") != nullptr;
    char name[64];
    PhotoSet wiki = {"validation", {}}, kodak = {"Kodak", {}};
    for (int i = 35; i <= 49; i += all ? 1 : 3) {
        snprintf(name, sizeof name, "/photos/wikipedia/%03d.png", i);
        wiki.names.push_back(name);
    }
    const int first_kodak = all ? 1 : 5, kodak_step = all ? 1 : 10;
    const int last_kodak = all ? 24 : 15;
    for (int i = first_kodak; i <= last_kodak; i += kodak_step) {
        snprintf(name, sizeof name, "/photos/kodak/kodim%02d.png", i);
        kodak.names.push_back(name);
    }
    if (kFirstOfEachSet && !all) {
        wiki.names.resize(1);
        kodak.names.resize(1);
    }
    return {wiki, kodak};
}

// A motion of a hand-held burst: rotation up to 1.5 degrees, scale within 2 percent, shifts up
// to 30 px and a mild perspective (up to 2e-5 per pixel), about the centre of the frame.
tav_sr2_Trans2D handheldMotion(std::mt19937& rng, double cx, double cy) {
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    const double degrees = 1.5 * unit(rng);
    const double scale = 1.0 + 0.02 * unit(rng);
    const double tx = 30.0 * unit(rng);
    const double ty = 30.0 * unit(rng);
    const double g = 2e-5 * unit(rng);
    const double h = 2e-5 * unit(rng);
    return tav_scene::aboutCentre(degrees, scale, tx, ty, g, h, cx, cy);
}

struct ErrorFigures {
    double mean = 0, median = 0, worst = 0;
};

ErrorFigures figuresOf(std::vector<double> errors) {
    ErrorFigures f;
    if (errors.empty()) return f;
    std::sort(errors.begin(), errors.end());
    for (double e : errors)
        f.mean += e / errors.size();
    f.median = errors[errors.size() / 2];
    f.worst = errors.back();
    return f;
}

// Corner errors of one set of photographs at one noise level.
struct Tally {
    std::vector<double> errors;        // hand-held motions
    std::vector<double> shift_errors;  // whole-pixel shifts
    int failed = 0;
    int frames() const { return (int)(errors.size() + shift_errors.size()) + failed; }
};

struct NoiseLevel {
    const char* iso;
    double sigma;
};
const NoiseLevel kNoiseLevels[] = {{"ISO 100", 1.0}, {"ISO 800", 3.0}, {"ISO 3200", 6.0}};
const int kLevels = 3;

// The burst of one photograph: the base (a window of it), four hand-held motions, and last a
// whole-pixel shift, a frame of copied pixels with no interpolation at all. Adds the error of
// each frame, the mean displacement of the window's four corners between the recovered and the
// true transform, to the tallies of the noise levels, and returns the window's area.
int64_t alignPhotograph(const Plane& photo, std::mt19937& rng, uint32_t* seed, Tally* tallies) {
    const int32_t margin = 32;  // room for the motions, so that frames show the photograph
    const int32_t w = (photo.width - 2 * margin) & ~7, h = (photo.height - 2 * margin) & ~7;
    std::vector<tav_sr2_Trans2D> motions(1);
    tav_sr2_Trans2D_identity(&motions[0]);
    for (int k = 0; k < 4; ++k)
        motions.push_back(handheldMotion(rng, w / 2.0, h / 2.0));
    const double shift[9] = {1, 0, 17, 0, 1, -9, 0, 0, 1};
    motions.push_back(tav_scene::matrix(shift));
    std::vector<tav_scene::Field> fields;
    for (const tav_sr2_Trans2D& t : motions)
        fields.push_back(tav_scene::warpedField(photo, t, margin, margin, w, h));
    // The warp's conventions: the base is the window itself, the shift a copy of pixels.
    EXPECT_EQ(fields[0].v[0], photo.at(margin, margin));
    EXPECT_EQ(fields.back().v[(size_t)w * 20 + 30], photo.at(margin + 13, margin + 29));

    for (int l = 0; l < kLevels; ++l) {
        std::vector<Plane> planes;
        for (const tav_scene::Field& f : fields)
            planes.push_back(tav_scene::quantized(f, kNoiseLevels[l].sigma, (*seed)++));
        Burst b(planes, 0);
        EXPECT_EQ(tav_sr2_Pipeline_align(b.p.get()), TAV_OK);
        const int32_t last = (int32_t)motions.size() - 1;
        for (int32_t k = 1; k <= last; ++k) {
            if (b.p->align_status[k] != 0) {
                tallies[l].failed++;
                continue;
            }
            const double e = tav_scene::meanCornerError(b.transform(k), motions[k], w, h);
            (k == last ? tallies[l].shift_errors : tallies[l].errors).push_back(e);
        }
    }
    return (int64_t)w * h;
}

TEST(AlignDriver, RecoversKnownHomographiesOnPhotographs) {
    const std::string dir = tav_scene::sharedData();
    if (dir.empty()) GTEST_SKIP() << "TAVRIN_SHARED_DATA is not set: no photographs to align";
    std::mt19937 rng(7);
    uint32_t seed = 100;
    int photos = 0;
    for (const PhotoSet& set : accuracyPhotos()) {
        Tally tallies[kLevels];
        int64_t area = 0;
        int count = 0;
        for (const std::string& name : set.names) {
            Plane photo;
            if (!tav_scene::readPngLuma(dir + name, &photo)) continue;
            SCOPED_TRACE(name);
            area += alignPhotograph(photo, rng, &seed, tallies);
            ++count;
        }
        if (count == 0) continue;
        photos += count;
        for (int l = 0; l < kLevels; ++l) {
            const Tally& t = tallies[l];
            const ErrorFigures f = figuresOf(t.errors);
            printf(
                "[ alignment ] %s, %d photos of %.2f MP on average, %s sigma %.1f: %d frames, %d "
                "failed, corner error mean %.4f px, median %.4f px, worst %.4f px; whole-pixel "
                "shifts mean %.4f px\n",
                set.label, count, area / 1e6 / count, kNoiseLevels[l].iso, kNoiseLevels[l].sigma,
                t.frames(), t.failed, f.mean, f.median, f.worst, figuresOf(t.shift_errors).mean);
        }
        // The fit is exact (the motion model tests), and frames of copied pixels come back
        // within a few hundredths of a pixel, so neither the fit nor this test's warp limits what
        // is measured here (a Lanczos warp in place of the bicubic one moves the mean by less
        // than 0.005 px). The limit is the pixel templates: a corner of strength 50 or less,
        // which is most corners of a photograph on the detector's sparse grid, is followed by a
        // whole-pixel search, so its match carries the rounding of its true position (rms 0.41
        // px; 0.45 px measured). With at most 256 matches per level, whatever the picture's
        // size, and eight parameters, that leaves about 0.10 px at the corners even when every
        // match rounds perfectly, and 0.12 to 0.14 px as tracked. A mean below 0.1 px is out of
        // this tracker's reach; the bounds hold the measured figures with room.
        SCOPED_TRACE(set.label);
        const ErrorFigures low = figuresOf(tallies[0].errors);
        EXPECT_EQ(tallies[0].failed, 0);
        EXPECT_LT(low.mean, 0.2);
        EXPECT_LT(low.median, 0.2);
        EXPECT_LT(low.worst, 0.5);
        EXPECT_LT(figuresOf(tallies[0].shift_errors).mean, 0.05);
        EXPECT_LT(figuresOf(tallies[1].errors).mean, 0.35);
        EXPECT_LT(figuresOf(tallies[2].errors).mean, 0.6);
        for (const Tally& t : tallies)
            EXPECT_LE(t.failed, t.frames() / 4);
    }
    if (photos == 0) GTEST_SKIP() << "no photographs under " << dir << "/photos";
}

}  // namespace
