#!/usr/bin/env bash
# Builds and runs the whole test suite: a normal build, an AddressSanitizer +
# UndefinedBehaviorSanitizer build, and a ThreadSanitizer build of the concurrent parts.
# Warnings are errors. Exits non-zero on any failure.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=$(nproc)

bash "$root/scripts/install-deps.sh"

# suite NAME CTEST_REGEX CMAKE_ARGS...
suite() {
    local name=$1 regex=$2; shift 2
    local dir="$root/build/$name"
    echo "== $name build"
    cmake -S "$root" -B "$dir" -G Ninja -DTAVRIN_WERROR=ON -DTAVRIN_FAULT_INJECTION=ON "$@" >/dev/null
    cmake --build "$dir" -j "$jobs"
    echo "== $name tests"
    (cd "$dir" && ctest --output-on-failure -j "$jobs" --timeout 600 ${regex:+-R "$regex"})
}

suite release "" -DCMAKE_BUILD_TYPE=RelWithDebInfo
ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
    suite asan "" -DCMAKE_BUILD_TYPE=Debug -DTAVRIN_SANITIZE=address,undefined \
    -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g"
# Only the code that shares memory between threads; TSan slows everything else for no gain.
TSAN_OPTIONS=halt_on_error=1 \
    suite tsan "MemPool|TaskSys|ThreadPool|Queue|Mutex|Cond|Thread|RankFilter|DepthConvert" \
    -DCMAKE_BUILD_TYPE=Debug -DTAVRIN_SANITIZE=thread -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g"
