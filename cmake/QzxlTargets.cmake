# Shared settings of the project's targets.

# Compiler warnings and the language level every target uses.
function(qzxl_defaults target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wno-unused-parameter)
  endif()
endfunction()

# Makes the headers of one folder (relative to the project) visible to `target` and to what
# links it, under the names the code includes them by: "range/range.hpp" for src/range,
# "engine/calc/formula.hpp" for engine/calc. Each folder gets an include root of its own in
# the build tree (a link to the folder), so a target sees the headers of its own folder and of
# the targets it links, and no others: including a header of a layer one does not link fails
# to compile.
function(qzxl_header_root target folder)
  string(REGEX REPLACE "^src/" "" name ${folder})
  set(root ${PROJECT_BINARY_DIR}/include-roots/${target})
  get_filename_component(parent ${root}/${name} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  if(NOT EXISTS ${root}/${name})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${root}/${name} SYMBOLIC)
  endif()
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${root}>)
endfunction()

# One layer of the library or the engine: a static library over the headers of its own folder
# and those of the layers it depends on.
#   qzxl_layer(<name> HEADERS <folder> SOURCES <files...> DEPS <targets...>)
function(qzxl_layer name)
  cmake_parse_arguments(L "" "HEADERS" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${L_SOURCES})
  qzxl_header_root(${name} ${L_HEADERS})
  target_include_directories(${name} PUBLIC $<INSTALL_INTERFACE:include>)
  target_link_libraries(${name} PUBLIC ${L_DEPS})
  qzxl_defaults(${name})
endfunction()

# A GoogleTest executable registered with CTest. Those labelled unit or cli are also part of
# `qzxl_checked`, the one target the sanitizer build needs, so that build compiles nothing
# else (the benchmarks, the corpus and readers tests, the models tool stay out).
#   qzxl_test(<name> SOURCES <files...> DEPS <targets...> [LABELS <labels...>])
function(qzxl_test name)
  cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;DEPS;LABELS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_DEPS} qzxl_test_support GTest::gmock_main)
  qzxl_defaults(${name})
  set(_properties LABELS "${T_LABELS}")
  if(T_TIMEOUT)
    list(APPEND _properties TIMEOUT ${T_TIMEOUT})
  endif()
  gtest_discover_tests(${name}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    PROPERTIES ${_properties}
    DISCOVERY_TIMEOUT 60)
  if("unit" IN_LIST T_LABELS OR "cli" IN_LIST T_LABELS)
    add_dependencies(qzxl_checked ${name})
  endif()
endfunction()
