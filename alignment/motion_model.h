// tav_sr2_MotionModel: the motion model fitted on each pyramid level, and the per-level verdict.
//
// A model is a table of operations over a state block, chosen by tav_sr2_MotionModel_setKind.
// Kind 3, the full 8-parameter homography, is the one the engine uses and the one built here; the
// other kinds (0..5) are refused with TAV_ERROR_UNSUPPORTED, a kind above 5 with TAV_ERROR_PARAM.
//
// Kind 3 keeps P = (p0 .. p7), mapping a point (A, B) of the current image to (C, D) of the
// reference: C = (p0 A + p1 B + p2) / (p6 A + p7 B + 1), D = (p3 A + p4 B + p5) / (same). A
// transform T given to or read from the model goes the other way, reference to current, so P is
// the inverse of T.
//
// Usage by the estimator, once per level after tracking:
//     tav_sr2_MatchView view = {count, ref_x, ref_y, match_x, match_y, score, inlier};
//     status |= tav_sr2_MotionModel_fitLevel(&models[k], &config, &view, &t, &level_stats[3 * k]);
#pragma once

#include <stdint.h>

#include "foundation/mem_pool.h"
#include "foundation/status.h"
#include "foundation/trans2d.h"

// Marks in the tracker's Q15 position arrays: the matcher gave up, or the projected point fell
// outside the image. Every other value is a position, and a matched one is >= 0.
#ifndef TAV_TRACK_MARKS
#define TAV_TRACK_MARKS
static const int32_t TAV_TRACK_LOST = (int32_t)0xC0000000u;
static const int32_t TAV_TRACK_OUTSIDE = (int32_t)0xE0000000u;
#endif

// Bits of the estimator's status word for a frame.
static const uint32_t TAV_ALIGN_WEAK_MATCHES = 1u;   // too few or too weak matches on a level
static const uint32_t TAV_ALIGN_LOW_SCORE = 2u;      // mean score below min_mean_score
static const uint32_t TAV_ALIGN_SOLVER_FAILED = 4u;  // the solver did not finish
static const uint32_t TAV_ALIGN_BLOCK_FAILED = 8u;   // block search confidence too low

// Status of a kind 3 model after solve.
static const int32_t TAV_MODEL_OK = 0;
static const int32_t TAV_MODEL_PIVOT = 1;        // a pivot of the elimination vanished
static const int32_t TAV_MODEL_NO_CONVERGE = 3;  // 100 Newton rounds without convergence
static const int32_t TAV_MODEL_NO_MEMORY = 5;    // no state block

static const int32_t TAV_MODEL_MOMENTS = 36;
static const int32_t TAV_MODEL_PARAMS = 8;

struct tav_sr2_MotionModel;

// Operation slots, in table order. A slot a kind does not provide is null, and its front-end
// function returns TAV_ERROR_UNSUPPORTED.
struct tav_sr2_MotionModelOps {
    uint32_t (*create)(tav_sr2_MotionModel* model, int32_t images);
    void (*destroy)(tav_sr2_MotionModel* model);
    uint32_t (*set_images)(tav_sr2_MotionModel* model, int32_t images);
    void (*reset)(tav_sr2_MotionModel* model);
    uint32_t (*resize)(tav_sr2_MotionModel* model, int32_t width, int32_t height);
    uint32_t (*copy)(tav_sr2_MotionModel* dst, const tav_sr2_MotionModel* src);
    // Reference point (C, D) of frame 0, current point (A, B) of frame 1, weight w.
    void (*add_match_int)(tav_sr2_MotionModel* model, int32_t c, int32_t d, int32_t a, int32_t b,
                          double w);
    void (*add_match_q15)(tav_sr2_MotionModel* model, int32_t c, int32_t d, int32_t a, int32_t b,
                          double w);
    void (*add_match)(tav_sr2_MotionModel* model, double c, double d, double a, double b, double w);
    uint32_t (*solve)(tav_sr2_MotionModel* model);
    uint32_t (*get_transform_fixed)(const tav_sr2_MotionModel* model, int32_t* m);
    uint32_t (*get_transform)(const tav_sr2_MotionModel* model, tav_sr2_Trans2D* t);
    uint32_t (*set_start_fixed)(tav_sr2_MotionModel* model, const int32_t* m);
    uint32_t (*set_start)(tav_sr2_MotionModel* model, const tav_sr2_Trans2D* t);
    uint32_t (*prepare)(tav_sr2_MotionModel* model, int32_t width, int32_t height,
                        double field_of_view);
    int32_t (*get_status)(const tav_sr2_MotionModel* model);
    // Weighted mean of the algebraic residual E over the matches added.
    double (*get_residuals)(const tav_sr2_MotionModel* model);
};

// State block of kind 3, from the pool.
struct tav_sr2_HomographyState {
    int32_t n;       // images: 2, the reference and one unknown
    int32_t status;  // TAV_MODEL_*
    double moments[TAV_MODEL_MOMENTS];
    double params[TAV_MODEL_PARAMS];
    double prior_mean[TAV_MODEL_PARAMS];
    double prior_sigma[TAV_MODEL_PARAMS];
};

struct tav_sr2_MotionModel {
    const tav_sr2_MotionModelOps* ops;  // null until setKind
    void* state;                        // the kind's state block
    int32_t kind;
    tav_sr2_MemPool* pool;
};

// Clears the record and binds the pool. TAV_ERROR_PARAM for a null model.
uint32_t tav_sr2_MotionModel_init(tav_sr2_MotionModel* model, tav_sr2_MemPool* pool);
// Destroys what an earlier kind made, then makes a model of `kind` for `images` images (kind 3:
// exactly 2). TAV_ERROR_MALLOC when the pool is short (the model is left empty).
uint32_t tav_sr2_MotionModel_setKind(tav_sr2_MotionModel* model, int32_t kind, int32_t images);
// Destroys the state and clears the record; safe on a cleared or half-built model.
uint32_t tav_sr2_MotionModel_finish(tav_sr2_MotionModel* model);

// Front ends of the slots; TAV_ERROR_PARAM for a model without a kind.
uint32_t tav_sr2_MotionModel_reset(tav_sr2_MotionModel* model);
uint32_t tav_sr2_MotionModel_copy(tav_sr2_MotionModel* dst, const tav_sr2_MotionModel* src);
uint32_t tav_sr2_MotionModel_addMatch(tav_sr2_MotionModel* model, double c, double d, double a,
                                      double b, double w);
uint32_t tav_sr2_MotionModel_addMatchQ15(tav_sr2_MotionModel* model, int32_t c, int32_t d,
                                         int32_t a, int32_t b, double w);
uint32_t tav_sr2_MotionModel_addMatchInt(tav_sr2_MotionModel* model, int32_t c, int32_t d,
                                         int32_t a, int32_t b, double w);
// Returns 0; the model's own status (tav_sr2_MotionModel_getStatus) tells how it went.
uint32_t tav_sr2_MotionModel_solve(tav_sr2_MotionModel* model);
uint32_t tav_sr2_MotionModel_setStart(tav_sr2_MotionModel* model, const tav_sr2_Trans2D* t);
uint32_t tav_sr2_MotionModel_getTransform(const tav_sr2_MotionModel* model, tav_sr2_Trans2D* t);
// TAV_MODEL_NO_MEMORY for a model without state.
int32_t tav_sr2_MotionModel_getStatus(const tav_sr2_MotionModel* model);

// The tracking results of one level, as parallel arrays of `count` templates. Positions ref_x,
// ref_y are level pixels; match_x, match_y Q15 level pixels or a TAV_TRACK_* mark. The fit writes
// `inlier`.
struct tav_sr2_MatchView {
    int32_t count;
    const int32_t* ref_x;
    const int32_t* ref_y;
    const int32_t* match_x;
    const int32_t* match_y;
    const int32_t* score;
    int32_t* inlier;
};

// The estimator's fields that the fit and the verdict read.
struct tav_sr2_FitConfig {
    int32_t fit_method;        // 3, the engine's; any other value fails the fit (solver bit)
    int32_t inlier_threshold;  // residual gate, (ex^2 + ey^2) in level pixels squared, Q0
    double inlier_ratio;       // a level fails under inlier_ratio * 0.2 inliers per tried match
    int32_t min_mean_score;
};

// Counts of one level.
struct tav_sr2_LevelCounts {
    int32_t count;    // templates
    int32_t tried;    // match_x not TAV_TRACK_OUTSIDE
    int32_t matched;  // match_x >= 0
    int32_t inliers;  // inlier set, after the fit
    int64_t score_sum;
};

// tried, matched, score_sum (and count) of a level; inliers = 0.
void tav_sr2_LevelCounts_measure(const tav_sr2_MatchView* matches, tav_sr2_LevelCounts* counts);
// Counts templates with inlier set.
int32_t tav_sr2_LevelCounts_inliers(const tav_sr2_MatchView* matches);

// level_stats[0] and [2] from the counts after tracking, and the verdict bits known before the
// fit (TAV_ALIGN_WEAK_MATCHES). *skip_fit is set when there are fewer than 16 matches.
uint32_t tav_sr2_Align_verdictBeforeFit(const tav_sr2_LevelCounts* counts, int32_t stats[3],
                                        int* skip_fit);
// level_stats[1] from the inliers, and the bits after the fit (WEAK_MATCHES, LOW_SCORE).
uint32_t tav_sr2_Align_verdictAfterFit(const tav_sr2_LevelCounts* counts,
                                       const tav_sr2_FitConfig* config, int32_t stats[3]);

// Fits the model to a level's matches by config->fit_method, starting from *t and writing the
// result there. Returns the status bits to OR in (TAV_ALIGN_SOLVER_FAILED).
uint32_t tav_sr2_MotionModel_fit(tav_sr2_MotionModel* model, const tav_sr2_FitConfig* config,
                                 const tav_sr2_MatchView* matches, tav_sr2_Trans2D* t);
// Two rounds with the residual gate: all matches, then the ones the first result explains.
uint32_t tav_sr2_MotionModel_fitGated(tav_sr2_MotionModel* model, const tav_sr2_MatchView* matches,
                                      int32_t inlier_threshold, tav_sr2_Trans2D* t);

// A whole level after tracking: counts, level_stats (three i32), verdict, fit. *t is the level's
// transform, in level coordinates, updated by the fit unless the fit is skipped or fails. Returns
// the status bits of the level.
uint32_t tav_sr2_MotionModel_fitLevel(tav_sr2_MotionModel* model, const tav_sr2_FitConfig* config,
                                      const tav_sr2_MatchView* matches, tav_sr2_Trans2D* t,
                                      int32_t stats[3]);
