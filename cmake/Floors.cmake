# Quick builds, HMX_QUICK: what many sources have in common is compiled once for all of them. The Makefile's commands build this
# way. Editors need the other way, in which every source is compiled by itself; lint uses both.

# hmx_precompiled(NAME HEADER.h | FROM TARGET): precompiles cmake/precompiled/HEADER.h for NAME, or uses the one of TARGET,
# which must have the same options.
function(hmx_precompiled name header)
  if(NOT HMX_QUICK)
    return()
  endif()
  get_target_property(type ${name} TYPE)
  if(type STREQUAL "EXECUTABLE")
    target_compile_options(${name} PRIVATE -fPIC)  # like the header, which libraries use too
  endif()
  # -fpch-preprocess is for the compiler cache, which hashes preprocessed sources. With precompiled headers, GCC 12 reports more
  # of the false overflows that its optimiser sees in "literal" + std::string; builds without them keep these warnings on.
  target_compile_options(${name} PRIVATE -fpch-preprocess -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
  if(header STREQUAL "FROM")
    target_precompile_headers(${name} REUSE_FROM ${ARGN})
  else()
    target_precompile_headers(${name} PRIVATE "${PROJECT_SOURCE_DIR}/cmake/precompiled/${header}")
  endif()
endfunction()

# hmx_together(NAME COUNT [ALONE REGEX]): compiles up to COUNT sources as one. Sources whose path matches REGEX are compiled
# alone, because they are large or their local names clash with those of others.
function(hmx_together name count)
  if(NOT HMX_QUICK)
    return()
  endif()
  cmake_parse_arguments(ARG "" "ALONE" "" ${ARGN})
  set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${count}
                        UNITY_BUILD_CODE_BEFORE_INCLUDE "// NOLINTNEXTLINE(bugprone-suspicious-include)")
  if(ARG_ALONE)
    get_target_property(files ${name} SOURCES)
    list(FILTER files INCLUDE REGEX "${ARG_ALONE}")
    set_source_files_properties(${files} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
endfunction()

# hmx_floor(NAME SOURCES DIR... [INCLUDE DIR...] [LINKS TARGET...] [PRIVATE TARGET...])
#   One library per folder: every .cpp below SOURCES but a main.cpp; INCLUDE (default: SOURCES) is its include root.
function(hmx_floor name)
  cmake_parse_arguments(ARG "" "" "SOURCES;INCLUDE;LINKS;PRIVATE" ${ARGN})
  set(files "")
  foreach(dir IN LISTS ARG_SOURCES)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.cpp")
    list(APPEND files ${found})
  endforeach()
  list(FILTER files EXCLUDE REGEX "/main\\.cpp$")
  if(NOT ARG_INCLUDE)
    set(ARG_INCLUDE ${ARG_SOURCES})
  endif()
  add_library(${name} STATIC ${files})
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
  foreach(dir IN LISTS ARG_INCLUDE)
    target_include_directories(${name} PUBLIC "$<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/${dir}>")
  endforeach()
  target_include_directories(${name} PRIVATE ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC ${ARG_LINKS} PRIVATE $<BUILD_INTERFACE:hmx_options> ${ARG_PRIVATE})
endfunction()

# Where tests start the programs. Those of another architecture are started through the emulator, by scripts of the same names.
set(HMX_PROGRAMS "${CMAKE_BINARY_DIR}/bin")
if(CMAKE_CROSSCOMPILING_EMULATOR)
  string(APPEND HMX_PROGRAMS "/emulated")
endif()

# hmx_program(NAME MAIN FILE... [LINKS TARGET...])
function(hmx_program name)
  cmake_parse_arguments(ARG "" "" "MAIN;LINKS" ${ARGN})
  add_executable(${name} ${ARG_MAIN})
  target_link_libraries(${name} PRIVATE ${ARG_LINKS} hmx_options)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
  if(CMAKE_BUILD_TYPE STREQUAL "Release" AND HMX_SANITIZE STREQUAL "")
    # Loading and binding the C++ library would take a quarter of the time to a program's first answer, and 0.8 MiB.
    target_link_options(${name} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    add_custom_command(TARGET ${name} POST_BUILD COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} --make "$<TARGET_FILE:${name}>" VERBATIM)
  endif()
endfunction()

# hmx_embedded(NAME FILE SYMBOL): NAME gets the text of FILE as `extern const std::string_view SYMBOL`, "namespace::name".
function(hmx_embedded name file symbol)
  string(REGEX REPLACE "::[^:]*$" "" space "${symbol}")
  string(REGEX REPLACE "^.*::" "" symbol "${symbol}")
  file(READ "${file}" text)
  set(made "${CMAKE_CURRENT_BINARY_DIR}/embedded/${symbol}.cpp")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/embedded.cpp.in" "${made}" @ONLY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${file}")
  target_sources(${name} PRIVATE "${made}")
endfunction()
