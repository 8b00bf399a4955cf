# GNUstep, under which the macOS adapters are built on Linux: kx_gnustep.
if(NOT CMAKE_OBJCXX_COMPILER_ID MATCHES Clang)
  message(FATAL_ERROR "Objective-C++ needs clang: set OBJCXX=clang++")
endif()
set(CMAKE_OBJCXX_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
find_path(KX_GNUSTEP_INCLUDE_DIR Foundation/Foundation.h PATH_SUFFIXES GNUstep REQUIRED)
find_library(KX_GNUSTEP_LIBRARY gnustep-base REQUIRED)
# The Objective-C runtime is part of GCC and lies among its files. Clang gets only the headers of
# the runtime: it has its own for everything else.
find_program(KX_GXX g++ REQUIRED)
execute_process(COMMAND ${KX_GXX} -print-file-name=include
  OUTPUT_VARIABLE gcc_include_dir OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND ${KX_GXX} -print-file-name=libobjc.so
  OUTPUT_VARIABLE objc_library OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT EXISTS ${gcc_include_dir}/objc/objc.h OR NOT EXISTS ${objc_library})
  message(FATAL_ERROR "GCC's Objective-C runtime is missing (Debian: gobjc++)")
endif()
set(runtime_include_dir ${CMAKE_BINARY_DIR}/gnustep-runtime)
file(MAKE_DIRECTORY ${runtime_include_dir})
file(CREATE_LINK ${gcc_include_dir}/objc ${runtime_include_dir}/objc SYMBOLIC)

add_library(kx_gnustep INTERFACE)
target_compile_options(kx_gnustep INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:
  -fobjc-runtime=gcc -fobjc-exceptions -fconstant-string-class=NSConstantString>)
target_compile_definitions(kx_gnustep INTERFACE
  $<$<COMPILE_LANGUAGE:OBJCXX>:GNUSTEP;GNUSTEP_BASE_LIBRARY=1>)
# What GNUstep lacks is declared in the tests.
target_include_directories(kx_gnustep BEFORE INTERFACE ${CMAKE_SOURCE_DIR}/tests/macos/declarations)
target_include_directories(kx_gnustep SYSTEM INTERFACE
  ${KX_GNUSTEP_INCLUDE_DIR} ${runtime_include_dir})
target_link_libraries(kx_gnustep INTERFACE ${KX_GNUSTEP_LIBRARY} ${objc_library})
