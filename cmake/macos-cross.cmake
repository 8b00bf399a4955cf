# Toolchain for one slice of the macOS programs (KX_SLICE), built on Linux with clang and lld against the
# SDK in KX_MACOS_SDK and the headers of libc++ in KX_LIBCXX_HEADERS (colon-separated folders).
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${KX_SLICE})
set(CMAKE_OSX_SYSROOT ${KX_MACOS_SDK})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KX_SLICE KX_MACOS_SDK KX_LIBCXX_HEADERS)

# The oldest supported macOS for each architecture.
set(macos_version_x86_64 10.11)
set(macos_version_arm64 11.0)

find_program(KX_CROSS_CLANG NAMES clang-19 REQUIRED)
find_program(KX_CROSS_CLANGXX NAMES clang++-19 REQUIRED)
# clang looks for ld64.lld beside its own tools.
file(REAL_PATH ${KX_CROSS_CLANG} clang_program)
cmake_path(GET clang_program PARENT_PATH tools_dir)
string(REPLACE ":" " -isystem " libcxx_headers "${KX_LIBCXX_HEADERS}")
foreach(language C CXX OBJCXX ASM)
  set(CMAKE_${language}_COMPILER ${KX_CROSS_CLANGXX})
  set(CMAKE_${language}_COMPILER_TARGET ${KX_SLICE}-apple-macos${macos_version_${KX_SLICE}})
  # Named explicitly, because clang otherwise prefers the libc++ headers installed beside it.
  set(CMAKE_${language}_FLAGS_INIT "-nostdinc++ -isystem ${libcxx_headers}")
endforeach()
foreach(language C ASM)
  set(CMAKE_${language}_COMPILER ${KX_CROSS_CLANG})
  set(CMAKE_${language}_FLAGS_INIT "")
endforeach()
# The symbols that the tool may import from libSystem, libc++ and libobjc. The SDK of a newer macOS exports
# more symbols than the oldest macOS has. An SDK that consists only of headers exports none.
set(CMAKE_EXE_LINKER_FLAGS_INIT
  "-fuse-ld=lld -B${tools_dir} -L${CMAKE_CURRENT_LIST_DIR}/macos-symbols")
# Test programs cannot run here, so test discovery is postponed until ctest runs.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
# The stand-ins are only linked here, never run, so their symbols may stay undefined.
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-fuse-ld=lld -B${tools_dir} -Wl,-undefined,dynamic_lookup")
set(CMAKE_AR ${tools_dir}/llvm-ar)
set(CMAKE_RANLIB ${tools_dir}/llvm-ranlib)
set(CMAKE_STRIP ${tools_dir}/llvm-strip)
set(CMAKE_INSTALL_NAME_TOOL ${tools_dir}/llvm-install-name-tool)

# Header-only libraries are the host's; everything else is the SDK's.
set(CMAKE_FIND_ROOT_PATH ${CMAKE_OSX_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
