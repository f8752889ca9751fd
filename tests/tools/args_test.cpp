// The shared command-line parser: the forms an option may take, positional arguments, and the
// exact error texts that tavrin-sr and the tools print.
#include "tools/toolkit/args.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Parsed {
    bool ok = false;
    std::string error;
    std::vector<std::string> positional;
    std::vector<std::string> calls;  // "name=value" per handler call, in order
};

Parsed parse(std::vector<std::string> args) {
    Parsed p;
    auto record = [&p](const char* name, bool verdict) {
        return [&p, name, verdict](const std::string& v) {
            p.calls.push_back(std::string(name) + "=" + v);
            return verdict && v != "bad";
        };
    };
    const std::vector<tavtool::ArgSpec> specs = {
        {"output", true, "a file", record("output", true), 'o'},
        {"help", false, "", record("help", true), 'h'},
        {"n", true, "1..9", record("n", true)},
        {"count", true, "1..9", record("count", true)},
    };
    args.insert(args.begin(), "prog");
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    p.ok = tavtool::parseArgs(static_cast<int>(argv.size()), argv.data(), specs, &p.positional,
                              &p.error);
    return p;
}

using Strings = std::vector<std::string>;

TEST(Args, EveryFormReachesItsHandlerAndTheRestIsPositional) {
    const Parsed p = parse({"a", "--output", "x", "-", "--output=", "-o", "y", "-oz", "--count=3",
                            "-n", "-4", "-h", "--help", "b", "--", "--help", "-o"});
    ASSERT_TRUE(p.ok) << p.error;
    EXPECT_EQ(p.calls, (Strings{"output=x", "output=", "output=y", "output=z", "count=3", "n=-4",
                                "help=", "help="}));
    EXPECT_EQ(p.positional, (Strings{"a", "-", "b", "--help", "-o"}));
}

TEST(Args, ErrorsNameTheOptionByItsLongFormAndStopTheParse) {
    const struct {
        Strings args;
        const char* error;
    } cases[] = {
        {{"--nope"}, "unknown option '--nope'"},
        {{"-x", "1"}, "unknown option '-x'"},
        {{"--o", "f"}, "unknown option '--o'"},  // a letter is no long name
        {{"-count", "2"}, "unknown option '-count'"},
        {{"--output"}, "option '--output' needs a value: a file"},
        {{"-o"}, "option '--output' needs a value: a file"},
        {{"--help=yes"}, "option '--help' takes no value"},
        {{"-hv"}, "option '--help' takes no value"},
        {{"--count=bad", "--help"}, "option '--count': bad value 'bad'; expected 1..9"},
        {{"-nbad"}, "option '-n': bad value 'bad'; expected 1..9"},
        {{"-o", "bad"}, "option '--output': bad value 'bad'; expected a file"},
    };
    for (const auto& c : cases) {
        const Parsed p = parse(c.args);
        EXPECT_FALSE(p.ok) << c.error;
        EXPECT_EQ(p.error, c.error);
        EXPECT_LE(p.calls.size(), 1u) << c.error;  // nothing after the failing option runs
    }
}

}  // namespace
