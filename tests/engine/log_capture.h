// A test fixture part that turns the engine logger on and keeps every info line it writes.
#pragma once

#include <stdarg.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "foundation/log.h"

class EngineLogCapture {
public:
    EngineLogCapture() {
        lines().clear();
        tav_sr2_Logger_enable();
        tav_sr2_Logger_setLevel(2);
        tav_sr2_logger->sink_i = &keep;
    }
    ~EngineLogCapture() { tav_sr2_Logger_disable(); }
    EngineLogCapture(const EngineLogCapture&) = delete;
    EngineLogCapture& operator=(const EngineLogCapture&) = delete;

    static std::vector<std::string>& lines() {
        static std::vector<std::string> kept;
        return kept;
    }
    // Lines that begin with prefix, in order.
    static std::vector<std::string> starting(const std::string& prefix) {
        std::vector<std::string> out;
        for (const std::string& line : lines())
            if (line.rfind(prefix, 0) == 0) out.push_back(line);
        return out;
    }

private:
    static void keep(const char*, const char* fmt, va_list ap) {
        char text[512];
        vsnprintf(text, sizeof text, fmt, ap);
        lines().push_back(text);
    }
};
