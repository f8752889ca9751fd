// A small command-line parser for the tools: "--name value", "--name=value", "-x value" for
// one-letter names, "--" ending the options; everything else is positional.
#pragma once

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>

#include <functional>
#include <string>
#include <vector>

namespace tavtool {

struct ArgSpec {
    const char* name;  // "frames", or "o" for -o
    bool takes_value;
    const char* what;  // the value's form, for messages
    std::function<bool(const std::string& value)> handle;
};

inline bool parseIntArg(const std::string& text, int64_t lo, int64_t hi, int32_t* out) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const long long v = strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < lo || v > hi) return false;
    *out = static_cast<int32_t>(v);
    return true;
}

inline bool parseDoubleArg(const std::string& text, double lo, double hi, double* out) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const double v = strtod(text.c_str(), &end);
    if (errno != 0 || *end != '\0' || !(v >= lo && v <= hi)) return false;
    *out = v;
    return true;
}

inline bool parseArgs(int argc, char** argv, const std::vector<ArgSpec>& specs,
                      std::vector<std::string>* positional, std::string* error) {
    bool done = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (done || arg.size() < 2 || arg[0] != '-') {
            positional->push_back(arg);
            continue;
        }
        if (arg == "--") {
            done = true;
            continue;
        }
        const bool is_long = arg[1] == '-';
        const size_t eq = is_long ? arg.find('=') : std::string::npos;
        const std::string name =
            is_long ? arg.substr(2, eq == std::string::npos ? std::string::npos : eq - 2)
                    : arg.substr(1, 1);
        const ArgSpec* spec = nullptr;
        for (const ArgSpec& s : specs) {
            if (name == s.name && (is_long == (name.size() > 1))) spec = &s;
        }
        if (!spec) {
            *error = "unknown option '" + arg + "'";
            return false;
        }
        std::string value;
        const bool inline_value = is_long ? eq != std::string::npos : arg.size() > 2;
        if (inline_value) value = is_long ? arg.substr(eq + 1) : arg.substr(2);
        if (!spec->takes_value && inline_value) {
            *error = "option '" + arg + "' takes no value";
            return false;
        }
        if (spec->takes_value && !inline_value) {
            if (i + 1 >= argc) {
                *error = "option '" + arg + "' needs a value: " + spec->what;
                return false;
            }
            value = argv[++i];
        }
        if (!spec->handle(value)) {
            *error = "option '" + arg + "': bad value '" + value + "'; expected " + spec->what;
            return false;
        }
    }
    return true;
}

}  // namespace tavtool
