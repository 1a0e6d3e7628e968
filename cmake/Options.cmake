# Language level, warnings, hardening and sanitizers, for all targets.
option(HMX_BUILD_TOOLS "Build the programs around the bridge, and the client library" ON)
option(HMX_BUILD_SHARED "Build libhmx.so, too, which holds what clients link" OFF)
option(HMX_BUILD_TESTS "Build the tests; needs the tools" ${HMX_BUILD_TOOLS})
option(HMX_BUILD_BENCH "Build the benchmarks" OFF)
option(HMX_BUILD_FUZZERS "Build the fuzzers (clang only)" OFF)
option(HMX_QUICK "Precompile headers, compile small sources together, optimise the tools less (GCC only)" OFF)
option(HMX_COVERAGE "Count which lines are run" OFF)
option(HMX_WERROR "Treat warnings as errors" OFF)
option(HMX_CCACHE "Use ccache, where it is installed" OFF)
option(HMX_MOLD "Link with mold, where it is installed" OFF)
set(HMX_SANITIZE "" CACHE STRING "Sanitizers to build with: empty, address or thread")
set_property(CACHE HMX_SANITIZE PROPERTY STRINGS "" address thread)

if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set(HMX_QUICK OFF)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

find_program(HMX_CCACHE_PROGRAM ccache)
if(HMX_CCACHE AND HMX_CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER env)
  if(HMX_QUICK)
    # A precompiled header knows its files by their absolute paths, so that of another checkout would not do. The checkouts do not
    # share the cache.
    # Without this, the cache does not handle sources that use a precompiled header.
    list(APPEND CMAKE_CXX_COMPILER_LAUNCHER CCACHE_SLOPPINESS=pch_defines,time_macros)
    # And comments count: GCC remembers the files of a precompiled header by their bytes, and does not recognise one of which a
    # comment has changed.
    list(APPEND CMAKE_CXX_COMPILER_LAUNCHER CCACHE_COMMENTS=1)
  else()
    # All checkouts share the cache, whatever their directory is called.
    list(APPEND CMAKE_CXX_COMPILER_LAUNCHER CCACHE_BASEDIR=${PROJECT_SOURCE_DIR})
    if(CMAKE_BUILD_TYPE STREQUAL "Release")
      list(APPEND CMAKE_CXX_COMPILER_LAUNCHER CCACHE_NOHASHDIR=1)  # in other builds, a debugger must find the sources
    endif()
  endif()
  list(APPEND CMAKE_CXX_COMPILER_LAUNCHER "${HMX_CCACHE_PROGRAM}")
endif()
find_program(HMX_MOLD_PROGRAM mold)
if(HMX_MOLD AND HMX_MOLD_PROGRAM AND NOT CMAKE_CROSSCOMPILING)  # the cross compiler does not find it
  add_link_options(-fuse-ld=mold)
endif()

add_library(hmx_options INTERFACE)
target_compile_options(hmx_options INTERFACE -Wall -Wextra -Wconversion -Wshadow -Wformat=2 $<$<BOOL:${HMX_WERROR}>:-Werror>
                                             -ffunction-sections -fdata-sections)
# Our functions are never interposed, so the compiler may inline them.
target_compile_options(hmx_options INTERFACE -fno-semantic-interposition)
# To clear an object of about ten words, GCC for x86-64 uses "rep stosq", whose start-up takes longer than a whole memset. A
# request clears eight such objects, which would take a twentieth of its time.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-mmemset-strategy=libcall:-1:noalign HMX_HAS_MEMSET_STRATEGY)
if(HMX_HAS_MEMSET_STRATEGY)
  target_compile_options(hmx_options INTERFACE -mmemset-strategy=libcall:-1:noalign)
endif()
target_link_options(hmx_options INTERFACE -Wl,--gc-sections -Wl,--as-needed)
# For code that is not on the path of a request, fast compilation matters more: for the gateway, the relay and what they link,
# and still more for tools and tests, which take a quarter less time this way.
add_library(hmx_quick_options INTERFACE)
target_compile_options(hmx_quick_options INTERFACE $<$<CONFIG:Release>:-O1>)
add_library(hmx_quickest_options INTERFACE)
target_compile_options(hmx_quickest_options INTERFACE $<$<CONFIG:Release>:-Og>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Optimised like this, GCC 12 takes the value of an empty optional for one that is used.
  target_compile_options(hmx_quickest_options INTERFACE -Wno-maybe-uninitialized)
endif()
if(HMX_QUICK)
  # GCC collects its garbage from 128 MiB on, and each time looks through the whole precompiled header, which takes a twelfth of the
  # time of our large sources. Where each processor has memory enough, it begins at 400 MiB.
  cmake_host_system_information(RESULT memory QUERY TOTAL_PHYSICAL_MEMORY)
  cmake_host_system_information(RESULT processors QUERY NUMBER_OF_LOGICAL_CORES)
  math(EXPR memory "${memory} / ${processors}")
  if(memory GREATER 1500)
    target_compile_options(hmx_options INTERFACE --param=ggc-min-heapsize=409600)
  endif()
endif()
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_options(hmx_options INTERFACE -fstack-protector-strong -fstack-clash-protection -D_FORTIFY_SOURCE=2)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12's optimiser sees overlapping copies in every "literal" + std::string.
    target_compile_options(hmx_options INTERFACE -Wno-restrict)
  endif()
  target_compile_definitions(hmx_options INTERFACE _GLIBCXX_ASSERTIONS)
  target_link_options(hmx_options INTERFACE -Wl,-z,relro -Wl,-z,now)
endif()
if(HMX_BUILD_FUZZERS)
  # The code under test is instrumented to report coverage and faults; only the fuzzers themselves link the engine.
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "HMX_BUILD_FUZZERS needs clang: configure with -DCMAKE_CXX_COMPILER=clang++")
  endif()
  set(HMX_SANITIZE address)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(HMX_COVERAGE)
  # Threads are counted too. A compiler cache would write the counts of one tree to another.
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
  unset(CMAKE_CXX_COMPILER_LAUNCHER)
endif()
if(HMX_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(HMX_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT HMX_SANITIZE STREQUAL "")
  message(FATAL_ERROR "HMX_SANITIZE is '${HMX_SANITIZE}'; it takes address or thread")
endif()
