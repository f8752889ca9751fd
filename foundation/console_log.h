// Console sink: a log sink that writes coloured lines with a time and thread prefix to standard
// output or to a chosen file. The engine's logger does not install it; tools and tests may put
// its sinks into the logger's record, as they match tav_sr2_LogSink.
#pragma once

#include <stdarg.h>
#include <stdio.h>
#include <sys/time.h>

// Where the sinks write; null (the default) means standard output.
void tav_sr2_ConsoleLog_setFile(FILE* out);

// Writes one line: colour, "[MM-DD hh:mm:ss.mmm tid L|tag] ", message, ESC "[0m" and a newline.
// The time is the given wall-clock time in local time.
void tav_sr2_ConsoleLog_writeAt(FILE* out, const struct timeval* now, char letter, const char* tag,
                                const char* fmt, va_list ap);

// As above with the time of the call.
void tav_sr2_ConsoleLog_write(FILE* out, char letter, const char* tag, const char* fmt, va_list ap);

// The five sinks, one per severity letter, writing to the file set above.
void tav_sr2_ConsoleLog_v(const char* tag, const char* fmt, va_list ap);
void tav_sr2_ConsoleLog_d(const char* tag, const char* fmt, va_list ap);
void tav_sr2_ConsoleLog_i(const char* tag, const char* fmt, va_list ap);
void tav_sr2_ConsoleLog_w(const char* tag, const char* fmt, va_list ap);
void tav_sr2_ConsoleLog_e(const char* tag, const char* fmt, va_list ap);
