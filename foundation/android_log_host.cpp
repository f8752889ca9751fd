// Host stand-in for Android's log, used on every build that is not for Android.
//
// __android_log_vprint(prio, tag, fmt, ap) formats the message and writes one line to standard
// error: the priority letter (V D I W E F, '?' for other priorities), '/', the tag, ": ", the
// message, and a newline unless the message already ends with one. Like Android's own log it
// formats into a fixed buffer of 1024 bytes and cuts longer messages there; it never allocates.
// A null tag prints as an empty tag, a null format as an empty message. The line is written under
// the stream's lock so that lines of concurrent threads do not interleave. Both calls return the
// number of bytes written, or a negative number when the write fails.
#ifndef __ANDROID__

#include <stdio.h>
#include <string.h>

#include "foundation/android_log.h"

namespace {

// Android's own formatting buffer is this large; longer messages are cut, as there.
constexpr size_t kMessageCapacity = 1024;

}  // namespace

char tav_sr2_androidLog_letter(int prio) {
    switch (prio) {
        case ANDROID_LOG_VERBOSE:
            return 'V';
        case ANDROID_LOG_DEBUG:
            return 'D';
        case ANDROID_LOG_INFO:
            return 'I';
        case ANDROID_LOG_WARN:
            return 'W';
        case ANDROID_LOG_ERROR:
            return 'E';
        case ANDROID_LOG_FATAL:
            return 'F';
        default:
            return '?';
    }
}

extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    char message[kMessageCapacity];
    message[0] = '\0';
    if (fmt) vsnprintf(message, sizeof message, fmt, ap);
    size_t length = strlen(message);
    bool has_newline = length > 0 && message[length - 1] == '\n';

    flockfile(stderr);
    int written = fprintf(stderr, "%c/%s: %s%s", tav_sr2_androidLog_letter(prio), tag ? tag : "",
                          message, has_newline ? "" : "\n");
    funlockfile(stderr);
    return written;
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int written = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return written;
}

#endif
