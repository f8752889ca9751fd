# libFuzzer targets (clang only), included from the top CMakeLists.txt after tavrin_core exists.
#
#   CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DTAVRIN_FUZZ=ON \
#       -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g"
#   cmake --build build-fuzz --target tavrin_params_fuzz
#   mkdir -p build-fuzz/params_work
#   build-fuzz/tavrin_params_fuzz -dict=tests/fuzz/params.dict -max_total_time=120 \
#       build-fuzz/params_work tests/fuzz/params_corpus
#
# New inputs go into the first directory (params_work); copy the interesting ones into
# tests/fuzz/params_corpus, where the ordinary test suite runs them as well
# (tests/src/params_corpus_test.cpp). Build only the fuzz targets in such a tree: the library
# code is instrumented for the fuzzer and the sanitizers, which the shared library's
# --no-undefined link does not accept under clang.
option(TAVRIN_FUZZ "build the libFuzzer targets (needs clang)" OFF)
set(TAVRIN_FUZZ_SANITIZE "address,undefined" CACHE STRING
    "sanitizers the fuzz targets and the library code under them run with")
if(NOT TAVRIN_FUZZ)
    return()
endif()
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "TAVRIN_FUZZ needs clang: configure with CC=clang CXX=clang++")
endif()

set(tavrin_fuzz_sanitize -fno-omit-frame-pointer -fno-sanitize-recover=all)
if(TAVRIN_FUZZ_SANITIZE)
    list(APPEND tavrin_fuzz_sanitize -fsanitize=${TAVRIN_FUZZ_SANITIZE})
endif()

# Coverage feedback from the library code an input reaches.
target_compile_options(tavrin_core PRIVATE -fsanitize=fuzzer-no-link ${tavrin_fuzz_sanitize})

# tavrin_fuzz_target(NAME SOURCE CORPUS_DIR): a fuzzer, and a test that runs its corpus once.
function(tavrin_fuzz_target name source corpus)
    add_executable(${name} ${source})
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer ${tavrin_fuzz_sanitize})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer ${tavrin_fuzz_sanitize})
    target_link_libraries(${name} PRIVATE tavrin_core)
    add_test(NAME ${name}_corpus COMMAND ${name} -runs=0 ${CMAKE_SOURCE_DIR}/${corpus})
endfunction()

tavrin_fuzz_target(tavrin_params_fuzz tests/fuzz/params_fuzz.cpp tests/fuzz/params_corpus)
