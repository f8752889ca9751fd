// The two Android log entry points the library writes through, and their priorities.
//
// On Android this is the system header. On any other host the library carries its own
// __android_log_print and __android_log_vprint (foundation/android_log_host.cpp), which write one
// line per message to standard error, so that host builds and tests need nothing from Android.
#pragma once

#include <stdarg.h>

#ifdef __ANDROID__
#include <android/log.h>
#else

// Priorities under the names and values Android's header gives them.
typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT = 1,
    ANDROID_LOG_VERBOSE = 2,
    ANDROID_LOG_DEBUG = 3,
    ANDROID_LOG_INFO = 4,
    ANDROID_LOG_WARN = 5,
    ANDROID_LOG_ERROR = 6,
    ANDROID_LOG_FATAL = 7,
    ANDROID_LOG_SILENT = 8,
} android_LogPriority;

extern "C" {
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap)
    __attribute__((format(printf, 3, 0)));
}

// Letter of a priority in a host line: V D I W E F, '?' for any other value.
char tav_sr2_androidLog_letter(int prio);

#endif
