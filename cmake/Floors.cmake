# Quick builds, HMX_QUICK: what is the same in many sources is compiled once for all of them. The commands of the Makefile build so;
# without it every source is compiled for itself, which lint and editors need.

# hmx_precompiled(NAME HEADER.h | FROM TARGET): cmake/precompiled/HEADER.h for NAME, or the one of TARGET, which has the same options.
function(hmx_precompiled name header)
  if(NOT HMX_QUICK)
    return()
  endif()
  # GCC 12, with precompiled headers, reports more of the copies that its optimiser takes for overlong in "literal" + std::string;
  # builds without them have these warnings on.
  target_compile_options(${name} PRIVATE -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
  if(header STREQUAL "FROM")
    target_precompile_headers(${name} REUSE_FROM ${ARGN})
  else()
    target_precompile_headers(${name} PRIVATE "${PROJECT_SOURCE_DIR}/cmake/precompiled/${header}")
  endif()
endfunction()

# hmx_together(NAME COUNT [ALONE REGEX]): compiles up to COUNT sources as one, but those whose path matches REGEX: what they
# declare for themselves has names that others have too, or they are large.
function(hmx_together name count)
  if(NOT HMX_QUICK)
    return()
  endif()
  cmake_parse_arguments(ARG "" "ALONE" "" ${ARGN})
  set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${count})
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

# hmx_program(NAME MAIN FILE... [LINKS TARGET...])
function(hmx_program name)
  cmake_parse_arguments(ARG "" "" "MAIN;LINKS" ${ARGN})
  add_executable(${name} ${ARG_MAIN})
  target_link_libraries(${name} PRIVATE ${ARG_LINKS} hmx_options)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
  if(CMAKE_BUILD_TYPE STREQUAL "Release" AND HMX_SANITIZE STREQUAL "")
    # To load and bind the C++ library is a quarter of a program's way to its first answer, and 0.8 MiB.
    target_link_options(${name} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
endfunction()
