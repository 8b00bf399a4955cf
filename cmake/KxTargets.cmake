# Compiler settings and the functions with which the folders declare what they build.

# What all our code is compiled with.
add_library(kx_options INTERFACE)
target_include_directories(kx_options INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(kx_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
  -fstack-protector-strong -fvisibility=hidden -ffunction-sections -fdata-sections)
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_definitions(kx_options INTERFACE _FORTIFY_SOURCE=2)
  target_compile_options(kx_options INTERFACE $<$<PLATFORM_ID:Linux>:-fstack-clash-protection>)
endif()
if(KX_SANITIZE)
  target_compile_options(kx_options INTERFACE
    -fsanitize=${KX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1
    $<$<CXX_COMPILER_ID:Clang>:-fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/ignored_sanitizer_findings.txt>)
  target_link_options(kx_options INTERFACE -fsanitize=${KX_SANITIZE})
endif()
if(KX_COVERAGE)
  target_compile_options(kx_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(kx_options INTERFACE --coverage)
endif()
if(APPLE)
  # Nothing newer than the oldest macOS may be called without a check.
  target_compile_options(kx_options INTERFACE -Werror=unguarded-availability)
  # The two header-only libraries, and nothing else that lies beside them.
  find_path(KX_RAPIDJSON_INCLUDE_DIR rapidjson/rapidjson.h REQUIRED NO_CMAKE_FIND_ROOT_PATH)
  find_path(KX_RAPIDXML_INCLUDE_DIR rapidxml/rapidxml.hpp REQUIRED NO_CMAKE_FIND_ROOT_PATH)
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/headers)
  file(CREATE_LINK ${KX_RAPIDJSON_INCLUDE_DIR}/rapidjson ${CMAKE_BINARY_DIR}/headers/rapidjson
    SYMBOLIC)
  file(CREATE_LINK ${KX_RAPIDXML_INCLUDE_DIR}/rapidxml ${CMAKE_BINARY_DIR}/headers/rapidxml
    SYMBOLIC)
  target_include_directories(kx_options SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/headers)
  # RapidJSON 1.1.0 has a template with an assignment to a constant member. Nothing uses it, but,
  # by default, clang 19 and later checks templates before they are instantiated.
  target_compile_options(kx_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX,OBJCXX>:-fdelayed-template-parsing>)
endif()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
find_program(KX_CCACHE ccache)
if(KX_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${KX_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KX_CCACHE})
endif()

# How the tool itself is linked.
add_library(kx_tool_link INTERFACE)
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  target_link_options(kx_tool_link INTERFACE
    -Wl,-z,relro,-z,now,-z,noexecstack,-z,pack-relative-relocs -Wl,--gc-sections,--as-needed)
  if(KX_STATIC_RUNTIME)
    target_link_options(kx_tool_link INTERFACE -static-libstdc++ -static-libgcc -s)
  endif()
elseif(APPLE)
  target_link_options(kx_tool_link INTERFACE -Wl,-dead_strip -Wl,-S -Wl,-x)
endif()

# Embeds the property list in the programs that read it. On Linux the list is part of kx_platform.
add_library(kx_info_plist INTERFACE)
if(APPLE)
  target_link_options(kx_info_plist INTERFACE
    -Wl,-sectcreate,__TEXT,__info_plist,${KX_INFO_PLIST})
endif()

# kx_module(NAME SOURCE...): the object library kx_NAME of one module of the tool.
function(kx_module name)
  add_library(kx_${name} OBJECT ${ARGN})
  target_link_libraries(kx_${name} PUBLIC kx_options)
endfunction()

# All modules of the tool.
set(KX_MODULES kx_app kx_diag kx_product kx_sdk kx_queries kx_install)

# kx_unit_tests(NAME SOURCE... [ALONE PATTERN]): the test program kx_NAME_tests, which links the whole
# tool with the fakes of tests/support/ in place of platform/. Every test case is a separate CTest test; those
# that match the pattern run first and never alongside another test, since their threads need all
# processors.
function(kx_unit_tests name)
  if(NOT KX_TESTS OR KX_GNUSTEP)
    return()
  endif()
  cmake_parse_arguments(PARSE_ARGV 1 arg "" ALONE "")
  add_executable(kx_${name}_tests ${arg_UNPARSED_ARGUMENTS})
  target_link_libraries(kx_${name}_tests PRIVATE kx_options ${KX_MODULES} kx_test_support
    GTest::gmock GTest::gtest_main)
  if(arg_ALONE)
    kx_discover_tests(kx_${name}_tests RUN_SERIAL ON COST 2000 TEST_FILTER ${arg_ALONE})
    kx_discover_tests(kx_${name}_tests TEST_FILTER -${arg_ALONE})
  else()
    kx_discover_tests(kx_${name}_tests)
  endif()
endfunction()

# Test code is not optimised and keeps only line numbers, because compiling it takes most of the time of a
# clean build.
add_library(kx_test_code INTERFACE)
target_compile_options(kx_test_code INTERFACE -O0 -U_FORTIFY_SOURCE $<$<CONFIG:Debug>:-g1>)
# Tests that repeat something divide the number of repetitions by this.
set(slowdown 1)
if(KX_SANITIZE STREQUAL "thread")
  set(slowdown 50)
elseif(KX_SANITIZE)
  set(slowdown 10)
endif()
target_compile_definitions(kx_test_code INTERFACE KX_SLOWDOWN=${slowdown})

# kx_discover_tests(TARGET [ctest properties...] [TEST_FILTER PATTERN]): registers each case
# of a GoogleTest program, or each that matches the pattern, as a CTest test.
include(GoogleTest)
function(kx_discover_tests target)
  target_link_libraries(${target} PRIVATE kx_test_code)
  gtest_discover_tests(${target} NO_PRETTY_VALUES TEST_PREFIX "${target}." DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300 ${ARGN})
endfunction()
