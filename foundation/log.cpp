// tav_sr2_Logger: the core engine's switchable logger.
//
// tav_sr2_Logger_enable mallocs the record when there is none, with level 0 and the five Android
// sinks; a second enable keeps the record and its level. When malloc fails logging stays off.
// tav_sr2_Logger_disable frees the record and clears the pointer. tav_sr2_Logger_setLevel stores
// any level while the record exists and does nothing otherwise. tav_sr2_Logger_isEnabled is 1
// while the record exists.
//
// tav_sr2_log_X(fmt, ...) and tav_sr2_logTag_X(tag, fmt, ...) test the pointer and the gate of
// their severity first, then hand the argument list by value to the severity's sink. No buffer,
// no formatting before the gate, no lock. Logging never fails for its caller.
#include "foundation/log.h"

#include <stdlib.h>

#include "foundation/android_log.h"

tav_sr2_Logger* tav_sr2_logger = nullptr;
const char tav_sr2_logTag[] = "TAV_SR2_SR_CORE_ENGINE";

namespace {

void androidSinkV(const char* tag, const char* fmt, va_list ap) {
    __android_log_vprint(ANDROID_LOG_VERBOSE, tag, fmt, ap);
}
void androidSinkD(const char* tag, const char* fmt, va_list ap) {
    __android_log_vprint(ANDROID_LOG_DEBUG, tag, fmt, ap);
}
void androidSinkI(const char* tag, const char* fmt, va_list ap) {
    __android_log_vprint(ANDROID_LOG_INFO, tag, fmt, ap);
}
void androidSinkW(const char* tag, const char* fmt, va_list ap) {
    __android_log_vprint(ANDROID_LOG_WARN, tag, fmt, ap);
}
void androidSinkE(const char* tag, const char* fmt, va_list ap) {
    __android_log_vprint(ANDROID_LOG_ERROR, tag, fmt, ap);
}

#ifdef TAVRIN_FAULT_INJECTION
bool fail_next_alloc = false;
#endif

tav_sr2_Logger* allocRecord() {
#ifdef TAVRIN_FAULT_INJECTION
    if (fail_next_alloc) {
        fail_next_alloc = false;
        return nullptr;
    }
#endif
    return static_cast<tav_sr2_Logger*>(malloc(sizeof(tav_sr2_Logger)));
}

// The gate of each severity, in one place so the plain and the tagged forms cannot drift apart.
inline tav_sr2_Logger* passV() {
    tav_sr2_Logger* lg = tav_sr2_logger;
    return lg && lg->level >= 4 ? lg : nullptr;
}
inline tav_sr2_Logger* passD() {
    tav_sr2_Logger* lg = tav_sr2_logger;
    return lg && lg->level >= 3 ? lg : nullptr;
}
inline tav_sr2_Logger* passI() {
    tav_sr2_Logger* lg = tav_sr2_logger;
    return lg && lg->level >= 2 ? lg : nullptr;
}
inline tav_sr2_Logger* passW() {
    tav_sr2_Logger* lg = tav_sr2_logger;
    return lg && lg->level != 0 ? lg : nullptr;
}
inline tav_sr2_Logger* passE() {
    return tav_sr2_logger;
}

}  // namespace

#ifdef TAVRIN_FAULT_INJECTION
void tav_sr2_Logger_failNextAlloc(void) {
    fail_next_alloc = true;
}
#endif

void tav_sr2_Logger_enable(void) {
    if (tav_sr2_logger) return;
    tav_sr2_Logger* lg = allocRecord();
    if (!lg) return;
    lg->level = 0;
    lg->sink_v = androidSinkV;
    lg->sink_d = androidSinkD;
    lg->sink_i = androidSinkI;
    lg->sink_w = androidSinkW;
    lg->sink_e = androidSinkE;
    tav_sr2_logger = lg;
}

void tav_sr2_Logger_disable(void) {
    tav_sr2_Logger* lg = tav_sr2_logger;
    tav_sr2_logger = nullptr;
    free(lg);
}

int tav_sr2_Logger_isEnabled(void) {
    return tav_sr2_logger ? 1 : 0;
}

void tav_sr2_Logger_setLevel(int32_t level) {
    if (tav_sr2_logger) tav_sr2_logger->level = level;
}

// One body per severity and form: gate first, then the argument list goes to the sink.
#define TAV_SR2_LOG_BODY(pass, sink, tag) \
    tav_sr2_Logger* lg = pass();          \
    if (!lg) return;                      \
    va_list ap;                           \
    va_start(ap, fmt);                    \
    lg->sink(tag, fmt, ap);               \
    va_end(ap)

void tav_sr2_log_v(const char* fmt, ...) {
    TAV_SR2_LOG_BODY(passV, sink_v, tav_sr2_logTag);
}
void tav_sr2_log_d(const char* fmt, ...) {
    TAV_SR2_LOG_BODY(passD, sink_d, tav_sr2_logTag);
}
void tav_sr2_log_i(const char* fmt, ...) {
    TAV_SR2_LOG_BODY(passI, sink_i, tav_sr2_logTag);
}
void tav_sr2_log_w(const char* fmt, ...) {
    TAV_SR2_LOG_BODY(passW, sink_w, tav_sr2_logTag);
}
void tav_sr2_log_e(const char* fmt, ...) {
    TAV_SR2_LOG_BODY(passE, sink_e, tav_sr2_logTag);
}

void tav_sr2_logTag_v(const char* tag, const char* fmt, ...) {
    TAV_SR2_LOG_BODY(passV, sink_v, tag);
}
void tav_sr2_logTag_d(const char* tag, const char* fmt, ...) {
    TAV_SR2_LOG_BODY(passD, sink_d, tag);
}
void tav_sr2_logTag_i(const char* tag, const char* fmt, ...) {
    TAV_SR2_LOG_BODY(passI, sink_i, tag);
}
void tav_sr2_logTag_w(const char* tag, const char* fmt, ...) {
    TAV_SR2_LOG_BODY(passW, sink_w, tag);
}
void tav_sr2_logTag_e(const char* tag, const char* fmt, ...) {
    TAV_SR2_LOG_BODY(passE, sink_e, tag);
}
