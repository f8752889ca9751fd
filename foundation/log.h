// tav_sr2_Logger: the core engine's switchable logger.
//
// One record per process behind the pointer tav_sr2_logger; null means logging is off, the normal
// state. Each log call tests the pointer and its severity gate before it touches its arguments,
// so a call with the logger off costs a load and a branch. Messages go to the record's sinks,
// which by default are Android's log at the priorities 2 to 6. The pointer and the level are
// read by every worker without a lock: only the instance layer changes them, between runs.
#pragma once

#include <stdarg.h>
#include <stdint.h>

// A sink receives the tag, the format and the caller's argument list.
typedef void (*tav_sr2_LogSink)(const char* tag, const char* fmt, va_list ap);

struct tav_sr2_Logger {
    int32_t level;  // 0..4: 0 passes errors only, 4 passes everything
    tav_sr2_LogSink sink_v;
    tav_sr2_LogSink sink_d;
    tav_sr2_LogSink sink_i;
    tav_sr2_LogSink sink_w;
    tav_sr2_LogSink sink_e;
};

// The engine's logger; null while logging is off.
extern tav_sr2_Logger* tav_sr2_logger;

// The tag of the engine's own lines.
extern const char tav_sr2_logTag[];

void tav_sr2_Logger_enable(void);
void tav_sr2_Logger_disable(void);
int tav_sr2_Logger_isEnabled(void);
void tav_sr2_Logger_setLevel(int32_t level);

#ifdef TAVRIN_FAULT_INJECTION
// Test builds only: the next tav_sr2_Logger_enable that needs a record finds no memory.
void tav_sr2_Logger_failNextAlloc(void);
#endif

#define TAV_SR2_PRINTF(f, a) __attribute__((format(printf, f, a)))

// Gates: v needs level 4, d level 3, i level 2, w any level but 0, e only an existing logger.
void tav_sr2_log_v(const char* fmt, ...) TAV_SR2_PRINTF(1, 2);
void tav_sr2_log_d(const char* fmt, ...) TAV_SR2_PRINTF(1, 2);
void tav_sr2_log_i(const char* fmt, ...) TAV_SR2_PRINTF(1, 2);
void tav_sr2_log_w(const char* fmt, ...) TAV_SR2_PRINTF(1, 2);
void tav_sr2_log_e(const char* fmt, ...) TAV_SR2_PRINTF(1, 2);

void tav_sr2_logTag_v(const char* tag, const char* fmt, ...) TAV_SR2_PRINTF(2, 3);
void tav_sr2_logTag_d(const char* tag, const char* fmt, ...) TAV_SR2_PRINTF(2, 3);
void tav_sr2_logTag_i(const char* tag, const char* fmt, ...) TAV_SR2_PRINTF(2, 3);
void tav_sr2_logTag_w(const char* tag, const char* fmt, ...) TAV_SR2_PRINTF(2, 3);
void tav_sr2_logTag_e(const char* tag, const char* fmt, ...) TAV_SR2_PRINTF(2, 3);
