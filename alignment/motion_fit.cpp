// Fitting a level's matches and judging the level.
//
// tav_sr2_MotionModel_fitGated is the engine's fit: a first solve over every match, weighted by
// its score, then a second over the matches that the first result places within the residual
// gate; those are marked inliers. A solve that fails leaves the transform as it was after round
// one, and after round two the result is taken as it stands. tav_sr2_MotionModel_fitLevel adds
// the level statistics and the verdict bits around it: fewer than 16 matches skip the fit, weak
// scores and too few inliers mark the frame, and the bits of all levels add up in the caller.
// The fit never returns an error: a frame that fails is a verdict, not a failed call.
#include "alignment/motion_model.h"

namespace {

const int32_t kMinMatches = 16;
const double kMinMeanScore = 3.0;
const double kInlierShare = 0.2;  // of inlier_ratio
const int64_t kScoreSumCap = 0x400000;
const int32_t kOne = 32768;  // Q15 share of a level's templates
const int32_t kGatedMethod = 3;

// The template's score as a weight in [-127/128, 127/128].
double matchWeight(int32_t score) {
    const int32_t s = score < -127 ? -127 : (score > 127 ? 127 : score);
    return s / 128.0;
}

bool isMatched(const tav_sr2_MatchView* v, int32_t i) {
    return v->match_x[i] >= 0;
}

void addMatchOf(tav_sr2_MotionModel* model, const tav_sr2_MatchView* v, int32_t i) {
    tav_sr2_MotionModel_addMatch(model, v->ref_x[i], v->ref_y[i], v->match_x[i] / 32768.0,
                                 v->match_y[i] / 32768.0, matchWeight(v->score[i]));
}

// Squared distance from the first round's prediction, in Q5 level pixels, then back to Q0.
bool withinGate(const tav_sr2_Trans2D* t1, const tav_sr2_MatchView* v, int32_t i,
                int32_t threshold) {
    int32_t qx = 0;
    int32_t qy = 0;
    tav_sr2_Trans2D_applyQ15(t1, &qx, &qy, v->ref_x[i] * kOne, v->ref_y[i] * kOne);
    const int64_t ex = ((int64_t)v->match_x[i] - qx) >> 10;
    const int64_t ey = ((int64_t)v->match_y[i] - qy) >> 10;
    return ((ex * ex + ey * ey) >> 10) < threshold;
}

int32_t shareQ15(int64_t part, int64_t whole) {
    return (int32_t)(part * kOne / (whole > 1 ? whole : 1));
}

}  // namespace

void tav_sr2_LevelCounts_measure(const tav_sr2_MatchView* v, tav_sr2_LevelCounts* counts) {
    counts->count = v->count;
    counts->tried = 0;
    counts->matched = 0;
    counts->inliers = 0;
    counts->score_sum = 0;
    for (int32_t i = 0; i < v->count; ++i) {
        if (v->match_x[i] != TAV_TRACK_OUTSIDE) counts->tried++;
        if (isMatched(v, i)) {
            counts->matched++;
            counts->score_sum += v->score[i];
        }
    }
}

int32_t tav_sr2_LevelCounts_inliers(const tav_sr2_MatchView* v) {
    int32_t n = 0;
    for (int32_t i = 0; i < v->count; ++i)
        n += v->inlier[i] ? 1 : 0;
    return n;
}

uint32_t tav_sr2_Align_verdictBeforeFit(const tav_sr2_LevelCounts* c, int32_t stats[3],
                                        int* skip_fit) {
    stats[0] = shareQ15(c->matched, c->count);
    const int64_t capped = c->score_sum < kScoreSumCap ? c->score_sum : kScoreSumCap;
    stats[2] = (int32_t)(capped * 128 / (c->matched >= 2 ? c->matched : 1));
    uint32_t bits = 0;
    *skip_fit = c->matched < kMinMatches;
    if (*skip_fit) bits |= TAV_ALIGN_WEAK_MATCHES;
    if (c->matched > 0 && (double)c->score_sum / c->matched < kMinMeanScore) {
        bits |= TAV_ALIGN_WEAK_MATCHES;
    }
    return bits;
}

uint32_t tav_sr2_Align_verdictAfterFit(const tav_sr2_LevelCounts* c,
                                       const tav_sr2_FitConfig* config, int32_t stats[3]) {
    stats[1] = shareQ15(c->inliers, c->tried);
    uint32_t bits = 0;
    const double share = (double)c->inliers / (c->tried > 1 ? c->tried : 1);
    if (share < config->inlier_ratio * kInlierShare) bits |= TAV_ALIGN_WEAK_MATCHES;
    if (stats[2] < config->min_mean_score) bits |= TAV_ALIGN_LOW_SCORE;
    return bits;
}

uint32_t tav_sr2_MotionModel_fitGated(tav_sr2_MotionModel* model, const tav_sr2_MatchView* v,
                                      int32_t inlier_threshold, tav_sr2_Trans2D* t) {
    tav_sr2_MotionModel_reset(model);
    for (int32_t i = v->count - 1; i >= 0; --i) {
        if (isMatched(v, i)) addMatchOf(model, v, i);
    }
    tav_sr2_MotionModel_setStart(model, t);
    tav_sr2_MotionModel_solve(model);
    tav_sr2_Trans2D t1;
    if (tav_sr2_MotionModel_getTransform(model, &t1) != TAV_OK) return TAV_ALIGN_SOLVER_FAILED;
    if (tav_sr2_MotionModel_getStatus(model) != TAV_MODEL_OK) return TAV_ALIGN_SOLVER_FAILED;

    tav_sr2_MotionModel_reset(model);
    for (int32_t i = v->count - 1; i >= 0; --i) {
        if (!isMatched(v, i)) continue;
        v->inlier[i] = withinGate(&t1, v, i, inlier_threshold) ? 1 : 0;
        if (v->inlier[i]) addMatchOf(model, v, i);
    }
    tav_sr2_MotionModel_setStart(model, &t1);
    tav_sr2_MotionModel_solve(model);
    tav_sr2_MotionModel_getTransform(model, t);
    return tav_sr2_MotionModel_getStatus(model) != TAV_MODEL_OK ? TAV_ALIGN_SOLVER_FAILED : 0u;
}

uint32_t tav_sr2_MotionModel_fit(tav_sr2_MotionModel* model, const tav_sr2_FitConfig* config,
                                 const tav_sr2_MatchView* v, tav_sr2_Trans2D* t) {
    if (config->fit_method != kGatedMethod) return TAV_ALIGN_SOLVER_FAILED;
    return tav_sr2_MotionModel_fitGated(model, v, config->inlier_threshold, t);
}

uint32_t tav_sr2_MotionModel_fitLevel(tav_sr2_MotionModel* model, const tav_sr2_FitConfig* config,
                                      const tav_sr2_MatchView* v, tav_sr2_Trans2D* t,
                                      int32_t stats[3]) {
    tav_sr2_LevelCounts counts;
    tav_sr2_LevelCounts_measure(v, &counts);
    int skip_fit = 0;
    uint32_t bits = tav_sr2_Align_verdictBeforeFit(&counts, stats, &skip_fit);
    if (!skip_fit) bits |= tav_sr2_MotionModel_fit(model, config, v, t);
    counts.inliers = tav_sr2_LevelCounts_inliers(v);
    return bits | tav_sr2_Align_verdictAfterFit(&counts, config, stats);
}
