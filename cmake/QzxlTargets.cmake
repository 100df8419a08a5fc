# Shared settings of the project's targets.

# Compiler warnings and the language level every target uses.
function(qzxl_defaults target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wno-unused-parameter)
  endif()
endfunction()

# One layer of the library: a static library over the public headers and src/.
#   qzxl_layer(<name> SOURCES <files...> DEPS <targets...>)
function(qzxl_layer name)
  cmake_parse_arguments(L "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${L_SOURCES})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>
    $<INSTALL_INTERFACE:include>)
  target_link_libraries(${name} PUBLIC ${L_DEPS})
  qzxl_defaults(${name})
endfunction()

# A GoogleTest executable registered with CTest.
#   qzxl_test(<name> SOURCES <files...> DEPS <targets...> [LABELS <labels...>])
function(qzxl_test name)
  cmake_parse_arguments(T "" "" "SOURCES;DEPS;LABELS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_DEPS} qzxl_test_support GTest::gmock_main)
  qzxl_defaults(${name})
  gtest_discover_tests(${name}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    PROPERTIES LABELS "${T_LABELS}"
    DISCOVERY_TIMEOUT 60)
endfunction()
