# Cross-builds libKelvane for macOS on x86-64 from Linux, with the same CMakeLists as every
# other build:
#
#   cmake -S . -B build-macos --toolchain cmake/macos-x86_64.toolchain.cmake \
#         -DKELVANE_ZIG=/path/to/zig -DKELVANE_HOST_BUILD_DIR=build-test
#
# Zig 0.11 compiles: its clang 16 carries libc++'s headers and the macOS C headers. It does not
# link: its own Mach-O linker exports hidden symbols and links libc++ statically into every
# binary. Clang's Mach-O driver links instead, with ld64.lld. What stands in for the macOS SDK is
# a folder of the build tree (KELVANE_MACOS_SDK): zig's stub of libSystem, a stub of the system's
# libc++ listing what Debian's libc++ and libc++abi export, and the macOS builds of dependencies
# installed into its usr/local (see cmake/MacosDependencies.cmake).
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_SYSTEM_VERSION 19.0.0)  # Darwin 19: macOS 10.15
# CMake asks the build machine's sw_vers whether the linker takes -rpath, and a Linux machine
# has none: without these the tools would lose their rpath (@loader_path/../lib).
foreach(language C CXX)
  set(CMAKE_SHARED_LIBRARY_RUNTIME_${language}_FLAG "-Wl,-rpath,")
  set(CMAKE_EXECUTABLE_RUNTIME_${language}_FLAG "-Wl,-rpath,")
endforeach()
# The first release whose C++ library has std::filesystem.
set(CMAKE_OSX_DEPLOYMENT_TARGET 10.15)

set(KELVANE_ZIG "" CACHE FILEPATH "The zig 0.11 compiler")
set(KELVANE_MACOS_KIT "${CMAKE_BINARY_DIR}/macos-kit" CACHE PATH
    "Where the compiler wrappers and the stand-in SDK are made")
# try_compile projects read this file again: they get the same kit instead of making another.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KELVANE_ZIG KELVANE_MACOS_KIT)
if(NOT EXISTS "${KELVANE_ZIG}")
  message(FATAL_ERROR "KELVANE_ZIG: give the zig 0.11 compiler (-DKELVANE_ZIG=/path/to/zig)")
endif()
set(KELVANE_MACOS_SDK ${KELVANE_MACOS_KIT}/sdk)

find_program(KELVANE_LD64 NAMES ld64.lld ld64.lld-14 REQUIRED)
find_program(KELVANE_LINK_DRIVER NAMES clang-14 clang REQUIRED)
find_program(KELVANE_LLVM_NM NAMES llvm-nm llvm-nm-14 REQUIRED)
find_program(CMAKE_AR NAMES llvm-ar llvm-ar-14 REQUIRED)
find_program(CMAKE_RANLIB NAMES llvm-ranlib llvm-ranlib-14 REQUIRED)
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool llvm-install-name-tool-14 REQUIRED)

# The system's libc++ as a text stub (libc++.tbd): its install name and what it exports. The
# exports are Debian's libc++ and libc++abi's, the same ABI (std::__1) as Apple's, which
# re-exports libc++abi the same way; what the deployment target lacks of them, libc++'s
# availability markup (switched on in the wrappers) refuses at compile time.
function(kelvane_write_libcxx_stub stub)
  find_library(KELVANE_HOST_LIBCXX NAMES libc++.so.1 PATHS /usr/lib/llvm-14/lib NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  find_library(KELVANE_HOST_LIBCXXABI NAMES libc++abi.so.1 PATHS /usr/lib/llvm-14/lib NO_CMAKE_FIND_ROOT_PATH
               REQUIRED)
  execute_process(COMMAND ${KELVANE_LLVM_NM} -D --defined-only --format=just-symbols ${KELVANE_HOST_LIBCXX}
                          ${KELVANE_HOST_LIBCXXABI}
                  OUTPUT_VARIABLE names COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "(_Z|__cxa_|__gxx_personality|__dynamic_cast)[^\n]*" names "${names}")
  list(REMOVE_DUPLICATES names)
  list(SORT names)
  list(TRANSFORM names PREPEND "      '_")
  list(TRANSFORM names APPEND "'")
  list(JOIN names ",\n" names)
  file(WRITE ${stub} "--- !tapi-tbd
tbd-version: 4
targets: [ x86_64-macos ]
install-name: '/usr/lib/libc++.1.dylib'
exports:
  - targets: [ x86_64-macos ]
    symbols: [
${names} ]
...
")
endfunction()

get_filename_component(zig_libc ${KELVANE_ZIG} DIRECTORY)
set(zig_libc ${zig_libc}/lib/libc)
if(NOT EXISTS ${KELVANE_MACOS_SDK}/usr/lib/libc++.tbd)
  file(MAKE_DIRECTORY ${KELVANE_MACOS_SDK}/usr/lib ${KELVANE_MACOS_KIT}/bin)
  file(CREATE_LINK ${zig_libc}/darwin/libSystem.11.tbd ${KELVANE_MACOS_SDK}/usr/lib/libSystem.tbd SYMBOLIC)
  file(CREATE_LINK ${KELVANE_LD64} ${KELVANE_MACOS_KIT}/bin/ld64.lld SYMBOLIC)
  kelvane_write_libcxx_stub(${KELVANE_MACOS_SDK}/usr/lib/libc++.tbd)
endif()
# zig's macOS header folders are for macOS 11 and later; they serve an older deployment target
# the way a newer SDK does, their availability markup keeping out what it lacks. zig switches
# off libc++'s availability markup and visibility annotations, which Apple's SDK has on: they
# are switched back on.
set(zig_flags "-idirafter ${zig_libc}/include/x86_64-macos.11-none -idirafter ${zig_libc}/include/any-macos.11-any \
-idirafter ${zig_libc}/include/any-macos-any -U_LIBCPP_HAS_NO_VENDOR_AVAILABILITY_ANNOTATIONS \
-U_LIBCPP_DISABLE_VISIBILITY_ANNOTATIONS -U_LIBCXXABI_DISABLE_VISIBILITY_ANNOTATIONS")
set(zig_cache ${KELVANE_MACOS_KIT}/zig-cache)
foreach(language c c++)
  if(language STREQUAL c)
    set(zig_command cc)
    set(driver_mode gcc)
  else()
    set(zig_command c++)
    set(driver_mode g++)
  endif()
  file(CONFIGURE OUTPUT ${KELVANE_MACOS_KIT}/wrappers/${language} @ONLY CONTENT [[#!/bin/sh
# @language@ for macOS x86-64, made by cmake/macos-x86_64.toolchain.cmake: zig compiles, clang's
# Mach-O driver links with ld64.lld. Compiling and linking are separate steps.
export ZIG_GLOBAL_CACHE_DIR="@zig_cache@" ZIG_LOCAL_CACHE_DIR="@zig_cache@"
for arg do
  case $arg in -c|-E|-S)
    # zig refuses linker options, which a compile step does not use anyway.
    for arg do
      shift
      case $arg in -Wl,*) ;; *) set -- "$@" "$arg" ;; esac
    done
    exec "@KELVANE_ZIG@" @zig_command@ -target x86_64-macos.@CMAKE_OSX_DEPLOYMENT_TARGET@ @zig_flags@ "$@" ;;
  esac
done
for arg do
  case $arg in *.c|*.cpp|*.cc|*.cxx) echo "$0: compile (-c) and link in separate steps" >&2; exit 1 ;; esac
done
unset LIBRARY_PATH
exec "@KELVANE_LINK_DRIVER@" --driver-mode=@driver_mode@ -target x86_64-apple-macos@CMAKE_OSX_DEPLOYMENT_TARGET@ \
  -stdlib=libc++ -fuse-ld=lld -B "@KELVANE_MACOS_KIT@/bin" -isysroot "@KELVANE_MACOS_SDK@" "$@"
]])
endforeach()
file(CHMOD ${KELVANE_MACOS_KIT}/wrappers/c ${KELVANE_MACOS_KIT}/wrappers/c++
     FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CMAKE_C_COMPILER ${KELVANE_MACOS_KIT}/wrappers/c)
set(CMAKE_CXX_COMPILER ${KELVANE_MACOS_KIT}/wrappers/c++)
# zig reuses a compiled object from its cache only when not asked for a dependency file (-MD):
# the Makefiles find each source's headers themselves instead.
set(CMAKE_DEPENDS_USE_COMPILER FALSE)

# Libraries, headers and packages come from the stand-in SDK only, programs from the build machine.
set(CMAKE_FIND_ROOT_PATH ${KELVANE_MACOS_SDK})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${KELVANE_MACOS_SDK}/usr/local/lib/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${KELVANE_MACOS_SDK})
