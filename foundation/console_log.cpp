// Console sink.
//
// tav_sr2_ConsoleLog_writeAt(out, now, letter, tag, fmt, ap) writes one line to out: the colour of
// the letter ('D' cyan, 'E' red, 'I' green, 'W' yellow, each after a reset; other letters none),
// the prefix "[%02d-%02d %02d:%02d:%02d.%03d %d %c|%s] " with month 1..12, day, hour, minute,
// second, millisecond (tv_usec / 1000), thread id and letter and tag, then the message, then
// ESC "[0m" and a newline. The whole line is written under the stream's lock. Nothing allocates.
// tav_sr2_ConsoleLog_write takes the time from gettimeofday; the five sinks write with their
// letter to the file of tav_sr2_ConsoleLog_setFile, or standard output when none is set.
#include "foundation/console_log.h"

#include <time.h>
#include <unistd.h>

namespace {

FILE* console_file = nullptr;

const char* colourOf(char letter) {
    switch (letter) {
        case 'D':
            return "\x1b[0m\x1b[30;36m";
        case 'E':
            return "\x1b[0m\x1b[30;31m";
        case 'I':
            return "\x1b[0m\x1b[30;32m";
        case 'W':
            return "\x1b[0m\x1b[30;33m";
        default:
            return "";
    }
}

void writeToConsole(char letter, const char* tag, const char* fmt, va_list ap) {
    tav_sr2_ConsoleLog_write(console_file ? console_file : stdout, letter, tag, fmt, ap);
}

}  // namespace

void tav_sr2_ConsoleLog_setFile(FILE* out) {
    console_file = out;
}

void tav_sr2_ConsoleLog_writeAt(FILE* out, const struct timeval* now, char letter, const char* tag,
                                const char* fmt, va_list ap) {
    struct tm local = {};
    time_t seconds = now->tv_sec;
    localtime_r(&seconds, &local);

    flockfile(out);
    fputs(colourOf(letter), out);
    fprintf(out, "[%02d-%02d %02d:%02d:%02d.%03d %d %c|%s] ", local.tm_mon + 1, local.tm_mday,
            local.tm_hour, local.tm_min, local.tm_sec, (int)(now->tv_usec / 1000), (int)gettid(),
            letter, tag ? tag : "");
    if (fmt) vfprintf(out, fmt, ap);
    fputs("\x1b[0m\n", out);
    funlockfile(out);
}

void tav_sr2_ConsoleLog_write(FILE* out, char letter, const char* tag, const char* fmt,
                              va_list ap) {
    struct timeval now = {};
    gettimeofday(&now, nullptr);
    tav_sr2_ConsoleLog_writeAt(out, &now, letter, tag, fmt, ap);
}

void tav_sr2_ConsoleLog_v(const char* tag, const char* fmt, va_list ap) {
    writeToConsole('V', tag, fmt, ap);
}
void tav_sr2_ConsoleLog_d(const char* tag, const char* fmt, va_list ap) {
    writeToConsole('D', tag, fmt, ap);
}
void tav_sr2_ConsoleLog_i(const char* tag, const char* fmt, va_list ap) {
    writeToConsole('I', tag, fmt, ap);
}
void tav_sr2_ConsoleLog_w(const char* tag, const char* fmt, va_list ap) {
    writeToConsole('W', tag, fmt, ap);
}
void tav_sr2_ConsoleLog_e(const char* tag, const char* fmt, va_list ap) {
    writeToConsole('E', tag, fmt, ap);
}
