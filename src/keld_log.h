// The instance layer's log lines: Android's log under the tag "TAVRIN", gated by the instance's
// log level (the debug block's log_level). Error lines need level 1 or more, debug lines level 2
// or more; argument errors are written whatever the level.
#pragma once

#include <stdint.h>

#include "foundation/android_log.h"

#define TAVRIN_KELD_LOG_TAG "TAVRIN"

void TavrinKELD_logError(int32_t log_level, const char* fmt, ...)
    __attribute__((format(printf, 2, 3)));
void TavrinKELD_logDebug(int32_t log_level, const char* fmt, ...)
    __attribute__((format(printf, 2, 3)));

// "%s:%d:%s(): Error params" with the caller's file, line and function, at error priority, at
// every log level.
#define TAVRIN_KELD_LOG_PARAM_ERROR()                                                       \
    __android_log_print(ANDROID_LOG_ERROR, TAVRIN_KELD_LOG_TAG, "%s:%d:%s(): Error params", \
                        __FILE__, __LINE__, __func__)
