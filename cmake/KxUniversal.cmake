# Builds everything that a Mac builds, once for each kind of Mac, and joins the slices of the tool into one
# binary. Builds everything a second time with libc++ headers newer than the SDK's, because a Mac may have
# newer ones.
include(ExternalProject)
set(KX_MACOS_SDK "$ENV{MACOS_SDK}" CACHE PATH "The macOS SDK to build against")
if(NOT EXISTS ${KX_MACOS_SDK}/System/Library/Frameworks/Foundation.framework)
  message(FATAL_ERROR "MACOS_SDK must name a macOS SDK; it is \"${KX_MACOS_SDK}\"")
endif()
find_program(KX_LIPO NAMES llvm-lipo-19 REQUIRED)

# kx_universal(NAME DIRECTORY HEADERS): the target NAME makes the universal binary DIRECTORY/KXTool, and
# the slices' programs in DIRECTORY/x86_64 and DIRECTORY/arm64.
function(kx_universal name directory headers)
  set(slices "")
  foreach(slice x86_64 arm64)
    ExternalProject_Add(slice_${slice}_${name}
      SOURCE_DIR ${CMAKE_SOURCE_DIR}
      BINARY_DIR ${directory}/${slice}
      PREFIX ${directory}/${slice}-steps
      CMAKE_CACHE_ARGS
        -DCMAKE_TOOLCHAIN_FILE:FILEPATH=${CMAKE_SOURCE_DIR}/cmake/macos-cross.cmake
        -DCMAKE_BUILD_TYPE:STRING=${CMAKE_BUILD_TYPE}
        -DKX_SLICE:STRING=${slice}
        -DKX_MACOS_SDK:PATH=${KX_MACOS_SDK}
        -DKX_LIBCXX_HEADERS:STRING=${headers}
        -DKX_INFO_PLIST:FILEPATH=${KX_INFO_PLIST}
      BUILD_COMMAND ${CMAKE_COMMAND} --build .
      BUILD_BYPRODUCTS ${directory}/${slice}/KXTool
      BUILD_ALWAYS ON
      INSTALL_COMMAND ""
      USES_TERMINAL_BUILD ON)
    list(APPEND slices ${directory}/${slice}/KXTool)
  endforeach()
  add_custom_command(OUTPUT ${directory}/KXTool
    COMMAND ${KX_LIPO} -create ${slices} -output ${directory}/KXTool
    DEPENDS slice_x86_64_${name} slice_arm64_${name} ${slices}
    COMMENT "Joining the slices" VERBATIM)
  add_custom_target(${name} ALL DEPENDS ${directory}/KXTool)
endfunction()

kx_universal(universal ${CMAKE_BINARY_DIR} ${KX_MACOS_SDK}/usr/include/c++/v1)

# Debian's headers assume Debian's own libc++. Apple's, whatever their version, adapt to the libc++
# of the target.
set(newer ${CMAKE_BINARY_DIR}/newer-headers)
file(CONFIGURE OUTPUT ${newer}/include/__config_site CONTENT
  "#include_next <__config_site>\n#undef _LIBCPP_HAS_NO_VENDOR_AVAILABILITY_ANNOTATIONS\n")
find_path(KX_NEWER_HEADERS __config_site PATHS /usr/lib/llvm-19/include/c++/v1 NO_DEFAULT_PATH REQUIRED)
kx_universal(newer_headers ${newer} ${newer}/include:${KX_NEWER_HEADERS})
