# Builds the tool once for each kind of Mac and joins the slices into one binary.
include(ExternalProject)
set(KX_MACOS_SDK "$ENV{MACOS_SDK}" CACHE PATH "The macOS SDK to build against")
if(NOT EXISTS ${KX_MACOS_SDK}/System/Library/Frameworks/Foundation.framework)
  message(FATAL_ERROR "MACOS_SDK must name a macOS SDK; it is \"${KX_MACOS_SDK}\"")
endif()
find_program(KX_LIPO NAMES llvm-lipo-19 REQUIRED)

set(slices "")
foreach(slice x86_64 arm64)
  ExternalProject_Add(slice_${slice}
    SOURCE_DIR ${CMAKE_SOURCE_DIR}
    BINARY_DIR ${CMAKE_BINARY_DIR}/${slice}
    PREFIX ${CMAKE_BINARY_DIR}/${slice}-steps
    CMAKE_CACHE_ARGS
      -DCMAKE_TOOLCHAIN_FILE:FILEPATH=${CMAKE_SOURCE_DIR}/cmake/macos-cross.cmake
      -DCMAKE_BUILD_TYPE:STRING=${CMAKE_BUILD_TYPE}
      -DKX_SLICE:STRING=${slice}
      -DKX_MACOS_SDK:PATH=${KX_MACOS_SDK}
      -DKX_INFO_PLIST:FILEPATH=${KX_INFO_PLIST}
      -DKX_TESTS:BOOL=OFF
    BUILD_COMMAND ${CMAKE_COMMAND} --build . --target KXTool kx_declarations_match simulator
    BUILD_BYPRODUCTS ${CMAKE_BINARY_DIR}/${slice}/KXTool
    BUILD_ALWAYS ON
    INSTALL_COMMAND ""
    USES_TERMINAL_BUILD ON)
  list(APPEND slices ${CMAKE_BINARY_DIR}/${slice}/KXTool)
endforeach()

add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/KXTool
  COMMAND ${KX_LIPO} -create ${slices} -output ${CMAKE_BINARY_DIR}/KXTool
  DEPENDS slice_x86_64 slice_arm64 ${slices}
  COMMENT "Joining the slices" VERBATIM)
add_custom_target(universal ALL DEPENDS ${CMAKE_BINARY_DIR}/KXTool)
