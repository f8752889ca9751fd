// The command-line parser shared by tavrin-sr and the tools: "--name value", "--name=value",
// "-x value" or "-xVALUE" for one-letter names, "--" ending the options; everything else, "-"
// included, is positional, in any order with the options. Each option's handler gets the value
// as typed and says whether it is good. The first problem stops the parse with a one-line
// message naming the option by its long form, so "-o" and "--output" read the same.
#pragma once

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>

#include <functional>
#include <string>
#include <vector>

namespace tavtool {

struct ArgSpec {
    const char* name;  // a long name ("frames" for --frames), or one letter ("o" for -o only)
    bool takes_value;
    const char* what;  // the value's form, for messages
    std::function<bool(const std::string& value)> handle;
    char short_name = 0;  // a one-letter alias of a long name: 'o' lets -o stand for --output
    // Why a rejected value is bad, where "expected <what>" would mislead (a well-formed size that
    // is too large); empty text falls back to "expected <what>".
    std::function<std::string(const std::string& value)> explain = nullptr;
};

// Whole-text numbers in lo..hi; `out` is left alone on failure.
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

namespace argsdetail {

inline bool isLetterName(const char* name) {
    return name[0] != '\0' && name[1] == '\0';
}

// The entry that "--name" (is_long) or "-c" asks for, or null. A one-letter name is never long:
// "--o" is unknown even where -o is known.
inline const ArgSpec* findSpec(const std::vector<ArgSpec>& specs, bool is_long,
                               const std::string& name) {
    for (const ArgSpec& s : specs) {
        const bool letter = isLetterName(s.name);
        const bool match = is_long ? !letter && name == s.name
                                   : (letter && name[0] == s.name[0]) || name[0] == s.short_name;
        if (match) return &s;
    }
    return nullptr;
}

inline std::string messageName(const ArgSpec& s) {
    return (isLetterName(s.name) ? "-" : "--") + std::string(s.name);
}

}  // namespace argsdetail

// Runs the handlers of the options in argv[1..] in order and appends the rest to `positional`.
// False with `error` set at the first unknown option, missing, unwanted or rejected value.
inline bool parseArgs(int argc, char** argv, const std::vector<ArgSpec>& specs,
                      std::vector<std::string>* positional, std::string* error) {
    bool options_done = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (options_done || arg.size() < 2 || arg[0] != '-') {
            positional->push_back(arg);
            continue;
        }
        if (arg == "--") {
            options_done = true;
            continue;
        }
        const bool is_long = arg[1] == '-';
        const size_t eq = is_long ? arg.find('=') : std::string::npos;
        const std::string name =
            is_long ? arg.substr(2, eq == std::string::npos ? std::string::npos : eq - 2)
                    : arg.substr(1, 1);
        const ArgSpec* spec = argsdetail::findSpec(specs, is_long, name);
        if (!spec) {
            *error = "unknown option '" + arg + "'";
            return false;
        }
        const std::string option = "option '" + argsdetail::messageName(*spec) + "'";
        const bool inline_value = is_long ? eq != std::string::npos : arg.size() > 2;
        std::string value;
        if (inline_value) value = is_long ? arg.substr(eq + 1) : arg.substr(2);
        if (!spec->takes_value && inline_value) {
            *error = option + " takes no value";
            return false;
        }
        if (spec->takes_value && !inline_value) {
            if (i + 1 >= argc) {
                *error = option + " needs a value: " + spec->what;
                return false;
            }
            value = argv[++i];
        }
        if (!spec->handle(value)) {
            const std::string why = spec->explain ? spec->explain(value) : std::string();
            *error = option + ": bad value '" + value + "'; " +
                     (why.empty() ? "expected " + std::string(spec->what) : why);
            return false;
        }
    }
    return true;
}

}  // namespace tavtool
