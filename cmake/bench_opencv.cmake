# OpenCV as the peer of the benchmarks, included from the top CMakeLists.txt after tavrin_bench.
#
#   scripts/bench.sh                      (installs OpenCV, builds build/bench, runs everything)
#   cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DTAVRIN_BENCH_OPENCV=ON
#
# With the option on, bench/opencv/*.cpp join tavrin_bench and link OpenCV's core and imgproc.
# Nothing else ever needs OpenCV: with the option off (the default) this file does nothing.
#
# OpenCV's CMake package comes only with Debian's full libopencv-dev, which drags in every module
# and their GUI and video stacks. The two modules the peers call (libopencv-core-dev,
# libopencv-imgproc-dev) ship headers and libraries but no package file, so when the package is
# not there the headers and libraries are looked up directly.
option(TAVRIN_BENCH_OPENCV "add the OpenCV peers to tavrin_bench (needs OpenCV core and imgproc)"
       OFF)
if(NOT TAVRIN_BENCH_OPENCV)
    return()
endif()
file(GLOB bench_opencv_sources CONFIGURE_DEPENDS RELATIVE ${CMAKE_SOURCE_DIR} bench/opencv/*.cpp)
tavrin_filter(bench_opencv_sources ${bench_opencv_sources})
if(NOT TARGET tavrin_bench OR NOT bench_opencv_sources)
    message(STATUS "TAVRIN_BENCH_OPENCV: the source filter leaves no OpenCV peers to build")
    return()
endif()

find_package(OpenCV QUIET COMPONENTS core imgproc)
if(OpenCV_FOUND)
    set(tavrin_opencv_includes ${OpenCV_INCLUDE_DIRS})
    set(tavrin_opencv_libraries opencv_core opencv_imgproc)
else()
    # opencv2/core.hpp lives under include/opencv4; Debian puts the build's configuration header
    # (cvconfig.h) in the multiarch include folder instead.
    find_path(TAVRIN_OPENCV_INCLUDE_DIR opencv2/imgproc.hpp PATH_SUFFIXES opencv4)
    find_path(TAVRIN_OPENCV_ARCH_INCLUDE_DIR opencv2/cvconfig.h PATH_SUFFIXES opencv4)
    find_library(TAVRIN_OPENCV_CORE_LIBRARY opencv_core)
    find_library(TAVRIN_OPENCV_IMGPROC_LIBRARY opencv_imgproc)
    if(NOT TAVRIN_OPENCV_INCLUDE_DIR OR NOT TAVRIN_OPENCV_CORE_LIBRARY
       OR NOT TAVRIN_OPENCV_IMGPROC_LIBRARY)
        message(FATAL_ERROR "TAVRIN_BENCH_OPENCV: OpenCV core and imgproc not found "
                            "(apt-get install libopencv-core-dev libopencv-imgproc-dev)")
    endif()
    set(tavrin_opencv_includes ${TAVRIN_OPENCV_INCLUDE_DIR})
    if(TAVRIN_OPENCV_ARCH_INCLUDE_DIR)
        list(APPEND tavrin_opencv_includes ${TAVRIN_OPENCV_ARCH_INCLUDE_DIR})
    endif()
    set(tavrin_opencv_libraries ${TAVRIN_OPENCV_IMGPROC_LIBRARY} ${TAVRIN_OPENCV_CORE_LIBRARY})
endif()

target_sources(tavrin_bench PRIVATE ${bench_opencv_sources})
# OpenCV's headers are not ours to keep warning-free.
target_include_directories(tavrin_bench SYSTEM PRIVATE ${tavrin_opencv_includes})
target_link_libraries(tavrin_bench PRIVATE ${tavrin_opencv_libraries})
message(STATUS "tavrin_bench: OpenCV peers on (${tavrin_opencv_libraries})")
