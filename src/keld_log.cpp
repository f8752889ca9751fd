// Instance-layer log gates.
//
// TavrinKELD_logError writes at ANDROID_LOG_ERROR when log_level >= 1, TavrinKELD_logDebug at
// ANDROID_LOG_DEBUG when log_level >= 2; both test the level before touching their arguments.
#include "src/keld_log.h"

#include <stdarg.h>

void TavrinKELD_logError(int32_t log_level, const char* fmt, ...) {
    if (log_level < 1) return;
    va_list ap;
    va_start(ap, fmt);
    __android_log_vprint(ANDROID_LOG_ERROR, TAVRIN_KELD_LOG_TAG, fmt, ap);
    va_end(ap);
}

void TavrinKELD_logDebug(int32_t log_level, const char* fmt, ...) {
    if (log_level < 2) return;
    va_list ap;
    va_start(ap, fmt);
    __android_log_vprint(ANDROID_LOG_DEBUG, TAVRIN_KELD_LOG_TAG, fmt, ap);
    va_end(ap);
}
