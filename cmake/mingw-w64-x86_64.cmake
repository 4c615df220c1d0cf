# Cross toolchain for 64-bit Windows with Debian's mingw-w64; produces self-contained .exe files.
#
#   cmake -S . -B build-win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
#         -DKINEFIX_FFMPEG_PREFIX=<prefix from scripts/build_ffmpeg.sh --windows>

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(KINEFIX_MINGW_HOST x86_64-w64-mingw32)

# std::thread, std::mutex and std::condition_variable need the posix thread model of GCC 12.
foreach(lang C CXX)
  if(lang STREQUAL "C")
    set(driver gcc)
  else()
    set(driver g++)
  endif()
  find_program(KINEFIX_MINGW_${lang} NAMES ${KINEFIX_MINGW_HOST}-${driver}-posix ${KINEFIX_MINGW_HOST}-${driver}
    REQUIRED)
  set(CMAKE_${lang}_COMPILER ${KINEFIX_MINGW_${lang}})
endforeach()
find_program(CMAKE_RC_COMPILER NAMES ${KINEFIX_MINGW_HOST}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${KINEFIX_MINGW_HOST})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# No DLLs beside the program: libgcc, libstdc++ and winpthreads go into the .exe.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# Test executables run under wine, both for test discovery and for ctest.
find_program(KINEFIX_WINE NAMES wine wine64)
if(KINEFIX_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine_run.sh)
endif()
# Listing test cases needs wine too; do it when ctest runs, not at every link.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
set(KINEFIX_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest source tree built for the target")
