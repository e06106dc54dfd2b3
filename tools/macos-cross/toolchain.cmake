# Cross-builds the Apple build against a macOS SDK folder, with clang and ld64.lld.
# The SDK and the architecture come from the environment, so that CMake's own
# compiler checks (which re-read this file) see them too:
#   TARNWICK_MACOS_SDK   a MacOSX SDK folder (usr/include, System/Library/Frameworks)
#   TARNWICK_MACOS_ARCH  arm64 or x86_64
#   TARNWICK_MACOS_LINK_FLAGS  what the SDK needs besides, for every link
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR $ENV{TARNWICK_MACOS_ARCH})
set(CMAKE_OSX_SYSROOT $ENV{TARNWICK_MACOS_SDK})
set(CMAKE_OSX_ARCHITECTURES $ENV{TARNWICK_MACOS_ARCH})

find_program(TARNWICK_CROSS_CLANG NAMES clang clang-19 clang-16 clang-15 clang-14 REQUIRED)
find_program(TARNWICK_CROSS_CLANGXX NAMES clang++ clang++-19 clang++-16 clang++-15 clang++-14 REQUIRED)
set(CMAKE_C_COMPILER ${TARNWICK_CROSS_CLANG})
set(CMAKE_CXX_COMPILER ${TARNWICK_CROSS_CLANGXX})
set(CMAKE_OBJCXX_COMPILER ${TARNWICK_CROSS_CLANGXX})
foreach(language C CXX OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET $ENV{TARNWICK_MACOS_ARCH}-apple-macos)
endforeach()
# A clang that is not Apple's does not assume Apple's C++ library, and would
# prefer a libc++ installed beside it to the SDK's: the SDK's headers are the
# ones a Mac builds with (and carry its availability markings).
set(CMAKE_CXX_FLAGS_INIT "-stdlib=libc++ -nostdinc++ -isystem $ENV{TARNWICK_MACOS_SDK}/usr/include/c++/v1")
set(CMAKE_OBJCXX_FLAGS_INIT "${CMAKE_CXX_FLAGS_INIT}")
# CMake repeats the compile flags when it links; -nostdinc++ means nothing there.
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-stdlib=libc++ -Wno-unused-command-line-argument")
endforeach()

if(NOT CMAKE_HOST_APPLE)
  # Apple's linker is not here; LLVM's Mach-O linker reads the SDK's .tbd stubs.
  find_program(TARNWICK_CROSS_LD64 NAMES ld64.lld ld64.lld-19 ld64.lld-16 ld64.lld-15 ld64.lld-14 REQUIRED)
  foreach(kind EXE SHARED MODULE)
    # clang hands the linker -platform_version only when told it is a recent ld64.
    string(APPEND CMAKE_${kind}_LINKER_FLAGS_INIT " --ld-path=${TARNWICK_CROSS_LD64} -mlinker-version=711")
  endforeach()
endif()
foreach(kind EXE SHARED MODULE)
  string(APPEND CMAKE_${kind}_LINKER_FLAGS_INIT " $ENV{TARNWICK_MACOS_LINK_FLAGS}")
endforeach()
if(NOT CMAKE_HOST_APPLE)
  find_program(CMAKE_AR NAMES llvm-ar llvm-ar-19 llvm-ar-16 llvm-ar-15 llvm-ar-14 REQUIRED)
  find_program(CMAKE_RANLIB NAMES llvm-ranlib llvm-ranlib-19 llvm-ranlib-16 llvm-ranlib-15 llvm-ranlib-14 REQUIRED)
  find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool llvm-install-name-tool-14)
endif()

# Libraries for the target only (simdjson, built for it); programs from the host.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
