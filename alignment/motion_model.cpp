// Motion model record and its kind 3, the full homography.
//
// tav_sr2_MotionModel_setKind makes the state block of a kind from the model's pool; kind 3 is
// the only kind built, the other valid kinds give TAV_ERROR_UNSUPPORTED. Matches go in as moments
// (36 weighted sums), so adding is cheap and the solve never walks the matches. set start takes
// the running transform (reference to current) and stores its inverse as both the start and the
// prior mean; solve runs the Newton iteration of newton_solver; get transform hands the inverse of
// the result back. A model whose state could not be made reports status 5 and leaves every
// transform untouched.
#include "alignment/motion_model.h"

#include <string.h>

#include "alignment/newton_solver.h"

namespace {

const double kSingular = 1e-16;
const double kPriorSigma[TAV_MODEL_PARAMS] = {1.0, 1.0, 1e10, 1.0, 1.0, 1e10, 0.001, 0.001};
const double kIdentityParams[TAV_MODEL_PARAMS] = {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0};

double magnitude(double v) {
    return v < 0.0 ? -v : v;
}

tav_sr2_HomographyState* stateOf(const tav_sr2_MotionModel* model) {
    return (tav_sr2_HomographyState*)model->state;
}

// The inverse of the homography h by its adjugate, scaled so that its last entry is 1. False,
// with out untouched, when that last entry (h0 h4 - h1 h3) is too small to divide by.
bool inverseWithUnitCorner(const double* h, double* out) {
    const double corner = h[0] * h[4] - h[1] * h[3];
    if (magnitude(corner) < kSingular) return false;
    const double adj[9] = {
        h[4] * h[8] - h[5] * h[7], h[2] * h[7] - h[1] * h[8], h[1] * h[5] - h[2] * h[4],
        h[5] * h[6] - h[3] * h[8], h[0] * h[8] - h[2] * h[6], h[2] * h[3] - h[0] * h[5],
        h[3] * h[7] - h[4] * h[6], h[1] * h[6] - h[0] * h[7], corner,
    };
    for (int32_t i = 0; i < 9; ++i)
        out[i] = adj[i] / corner;
    out[8] = 1.0;
    return true;
}

void homographyReset(tav_sr2_MotionModel* model) {
    tav_sr2_HomographyState* s = stateOf(model);
    s->status = TAV_MODEL_OK;
    for (int32_t i = 0; i < TAV_MODEL_MOMENTS; ++i)
        s->moments[i] = 0.0;
    for (int32_t k = 0; k < TAV_MODEL_PARAMS; ++k) {
        s->params[k] = kIdentityParams[k];
        s->prior_mean[k] = kIdentityParams[k];
        s->prior_sigma[k] = kPriorSigma[k];
    }
}

uint32_t homographyCreate(tav_sr2_MotionModel* model, int32_t images) {
    if (images != 2) return TAV_ERROR_PARAM;
    void* block = tav_sr2_MemPool_alloc(model->pool, (uint32_t)sizeof(tav_sr2_HomographyState));
    if (!block) return TAV_ERROR_MALLOC;
    model->state = block;
    stateOf(model)->n = images;
    homographyReset(model);
    return TAV_OK;
}

void homographyDestroy(tav_sr2_MotionModel* model) {
    if (model->state) tav_sr2_MemPool_free(model->pool, model->state);
    model->state = nullptr;
}

uint32_t homographySetImages(tav_sr2_MotionModel* model, int32_t images) {
    return images == stateOf(model)->n ? TAV_OK : TAV_ERROR_PARAM;
}

uint32_t homographyCopy(tav_sr2_MotionModel* dst, const tav_sr2_MotionModel* src) {
    if (dst->kind != src->kind || !src->state) return TAV_ERROR_PARAM;
    memcpy(dst->state, src->state, sizeof(tav_sr2_HomographyState));
    return TAV_OK;
}

void homographyAddMatch(tav_sr2_MotionModel* model, double c, double d, double a, double b,
                        double w) {
    const double aa = a * a, ab = a * b, bb = b * b;
    const double terms[TAV_MODEL_MOMENTS] = {
        1.0,        a,          b,          c,          d,          aa,
        ab,         bb,         c * c,      d * d,      c * d,      a * c,
        a * d,      b * c,      b * d,      c * aa,     d * aa,     c * ab,
        d * ab,     c * bb,     d * bb,     c * c * a,  d * d * a,  c * d * a,
        c * c * b,  d * d * b,  c * d * b,  c * c * aa, d * d * aa, c * d * aa,
        c * c * ab, d * d * ab, c * d * ab, c * c * bb, d * d * bb, c * d * bb,
    };
    double* m = stateOf(model)->moments;
    for (int32_t i = 0; i < TAV_MODEL_MOMENTS; ++i)
        m[i] += w * terms[i];
}

void homographyAddMatchInt(tav_sr2_MotionModel* model, int32_t c, int32_t d, int32_t a, int32_t b,
                           double w) {
    homographyAddMatch(model, c, d, a, b, w);
}

void homographyAddMatchQ15(tav_sr2_MotionModel* model, int32_t c, int32_t d, int32_t a, int32_t b,
                           double w) {
    const double q = 1.0 / 32768.0;
    homographyAddMatch(model, c * q, d * q, a * q, b * q, w);
}

uint32_t homographySolve(tav_sr2_MotionModel* model) {
    tav_sr2_HomographyState* s = stateOf(model);
    tav_sr2_Quadratic q;
    tav_sr2_Quadratic_fromMoments(s->moments, &q);
    s->status = tav_sr2_Newton_minimise(&q, s->params, s->prior_mean, s->prior_sigma);
    return TAV_OK;
}

uint32_t homographyGetTransform(const tav_sr2_MotionModel* model, tav_sr2_Trans2D* t) {
    const double* p = stateOf(model)->params;
    const double h[9] = {p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], 1.0};
    tav_sr2_Trans2D_identity(t);
    inverseWithUnitCorner(h, t->m);
    return TAV_OK;
}

// The running transform seeds both the iteration and the prior it is held to.
uint32_t homographySetStart(tav_sr2_MotionModel* model, const tav_sr2_Trans2D* t) {
    double h[9];
    const double scale = t->m[8] != 0.0 ? 1.0 / t->m[8] : 1.0;
    for (int32_t i = 0; i < 9; ++i)
        h[i] = t->m[i] * scale;
    double inv[9];
    if (!inverseWithUnitCorner(h, inv)) return TAV_OK;
    tav_sr2_HomographyState* s = stateOf(model);
    for (int32_t k = 0; k < TAV_MODEL_PARAMS; ++k) {
        s->params[k] = inv[k];
        s->prior_mean[k] = inv[k];
    }
    return TAV_OK;
}

uint32_t homographyPrepare(tav_sr2_MotionModel*, int32_t, int32_t, double) {
    return TAV_OK;
}

int32_t homographyGetStatus(const tav_sr2_MotionModel* model) {
    return stateOf(model)->status;
}

double homographyGetResiduals(const tav_sr2_MotionModel* model) {
    const tav_sr2_HomographyState* s = stateOf(model);
    tav_sr2_Quadratic q;
    tav_sr2_Quadratic_fromMoments(s->moments, &q);
    const double weight = s->moments[0];
    return weight != 0.0 ? tav_sr2_Quadratic_eval(&q, s->params, nullptr) / weight : 0.0;
}

const tav_sr2_MotionModelOps kHomographyOps = {
    homographyCreate,
    homographyDestroy,
    homographySetImages,
    homographyReset,
    nullptr,
    homographyCopy,
    homographyAddMatchInt,
    homographyAddMatchQ15,
    homographyAddMatch,
    homographySolve,
    nullptr,
    homographyGetTransform,
    nullptr,
    homographySetStart,
    homographyPrepare,
    homographyGetStatus,
    homographyGetResiduals,
};

// Kind 3 is the only kind the engine asks for; the others exist only as numbers.
const int32_t kHomographyKind = 3;
const int32_t kLastKind = 5;

bool ready(const tav_sr2_MotionModel* model) {
    return model && model->ops && model->state;
}

}  // namespace

uint32_t tav_sr2_MotionModel_init(tav_sr2_MotionModel* model, tav_sr2_MemPool* pool) {
    if (!model) return TAV_ERROR_PARAM;
    memset(model, 0, sizeof(*model));
    model->pool = pool;
    return TAV_OK;
}

uint32_t tav_sr2_MotionModel_setKind(tav_sr2_MotionModel* model, int32_t kind, int32_t images) {
    if (!model) return TAV_ERROR_PARAM;
    if (model->ops) model->ops->destroy(model);
    model->ops = nullptr;
    model->state = nullptr;
    model->kind = kind;
    if (kind < 0 || kind > kLastKind) return TAV_ERROR_PARAM;
    if (kind != kHomographyKind) return TAV_ERROR_UNSUPPORTED;
    if (!model->pool) return TAV_ERROR_PARAM;
    const uint32_t status = kHomographyOps.create(model, images);
    if (status == TAV_OK) model->ops = &kHomographyOps;
    return status;
}

uint32_t tav_sr2_MotionModel_finish(tav_sr2_MotionModel* model) {
    if (!model) return TAV_ERROR_PARAM;
    if (model->ops) model->ops->destroy(model);
    tav_sr2_MemPool* pool = model->pool;
    memset(model, 0, sizeof(*model));
    model->pool = pool;
    return TAV_OK;
}

uint32_t tav_sr2_MotionModel_reset(tav_sr2_MotionModel* model) {
    if (!ready(model)) return TAV_ERROR_PARAM;
    model->ops->reset(model);
    return TAV_OK;
}

uint32_t tav_sr2_MotionModel_copy(tav_sr2_MotionModel* dst, const tav_sr2_MotionModel* src) {
    if (!ready(dst) || !ready(src)) return TAV_ERROR_PARAM;
    return dst->ops->copy(dst, src);
}

uint32_t tav_sr2_MotionModel_addMatch(tav_sr2_MotionModel* model, double c, double d, double a,
                                      double b, double w) {
    if (!ready(model)) return TAV_ERROR_PARAM;
    model->ops->add_match(model, c, d, a, b, w);
    return TAV_OK;
}

uint32_t tav_sr2_MotionModel_addMatchQ15(tav_sr2_MotionModel* model, int32_t c, int32_t d,
                                         int32_t a, int32_t b, double w) {
    if (!ready(model)) return TAV_ERROR_PARAM;
    model->ops->add_match_q15(model, c, d, a, b, w);
    return TAV_OK;
}

uint32_t tav_sr2_MotionModel_addMatchInt(tav_sr2_MotionModel* model, int32_t c, int32_t d,
                                         int32_t a, int32_t b, double w) {
    if (!ready(model)) return TAV_ERROR_PARAM;
    model->ops->add_match_int(model, c, d, a, b, w);
    return TAV_OK;
}

uint32_t tav_sr2_MotionModel_solve(tav_sr2_MotionModel* model) {
    if (!ready(model)) return TAV_ERROR_PARAM;
    return model->ops->solve(model);
}

uint32_t tav_sr2_MotionModel_setStart(tav_sr2_MotionModel* model, const tav_sr2_Trans2D* t) {
    if (!ready(model) || !t) return TAV_ERROR_PARAM;
    return model->ops->set_start(model, t);
}

uint32_t tav_sr2_MotionModel_getTransform(const tav_sr2_MotionModel* model, tav_sr2_Trans2D* t) {
    if (!ready(model) || !t) return TAV_ERROR_PARAM;
    return model->ops->get_transform(model, t);
}

int32_t tav_sr2_MotionModel_getStatus(const tav_sr2_MotionModel* model) {
    if (!ready(model)) return TAV_MODEL_NO_MEMORY;
    return model->ops->get_status(model);
}
