#!/usr/bin/env bash
# Builds and runs the whole test suite: a Release build of every target in the default
# configuration, an AddressSanitizer + UndefinedBehaviorSanitizer build with fault injection,
# and a ThreadSanitizer build of the concurrent parts. Warnings are errors. Exits non-zero on
# any failure.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=$(nproc)

bash "$root/scripts/install-deps.sh"

# suite NAME TARGETS CTEST_REGEX CMAKE_ARGS...   (TARGETS "all" or a space-separated list)
suite() {
    local name=$1 targets=$2 regex=$3; shift 3
    local dir="$root/build/$name"
    echo "== $name build"
    cmake -S "$root" -B "$dir" -G Ninja -DTAVRIN_WERROR=ON "$@" >/dev/null
    # shellcheck disable=SC2086
    cmake --build "$dir" -j "$jobs" --target $targets
    echo "== $name tests"
    (cd "$dir" && ctest --output-on-failure -j "$jobs" --timeout 600 ${regex:+-R "$regex"})
}

# The default configuration (no fault injection) at full optimisation, every target: library,
# program, tools, tests and benchmarks. What -O3 warns about, and what builds only without the
# test options, breaks here and not in a user's hands. Its out-of-memory tests skip with one line.
suite release all "" -DCMAKE_BUILD_TYPE=Release -DTAVRIN_FAULT_INJECTION=OFF
ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
    suite asan "tavrin_tests tavrin_blackbox_tests tavrin_keld" "" -DCMAKE_BUILD_TYPE=Debug -DTAVRIN_SANITIZE=address,undefined \
    -DTAVRIN_FAULT_INJECTION=ON \
    -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g"
# Only the code that shares memory between threads; TSan slows everything else for no gain.
TSAN_OPTIONS=halt_on_error=1 \
    suite tsan tavrin_tests "MemPool|TaskSys|ThreadPool|Queue|Mutex|Cond|Thread|RankFilter|DepthConvert|GuidedFilter|LumaNr|Unsharp|Enhance" \
    -DCMAKE_BUILD_TYPE=Debug -DTAVRIN_SANITIZE=thread -DTAVRIN_FAULT_INJECTION=ON -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g"
