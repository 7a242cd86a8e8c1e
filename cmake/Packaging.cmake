# How libKelvane is installed and found: the CMake package (find_package(Kelvane)), the
# pkg-config file, the tools' help texts and the docs, and the Debian package made by CPack.
include(CMakePackageConfigHelpers)

set(KELVANE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Kelvane)
set(KELVANE_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/libkelvane)

# --- CMake package: Kelvane::Kelvane -------------------------------------------------------
install(EXPORT KelvaneTargets NAMESPACE Kelvane:: DESTINATION ${KELVANE_CMAKE_DIR})
configure_package_config_file(cmake/KelvaneConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KelvaneConfig.cmake INSTALL_DESTINATION ${KELVANE_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KelvaneConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KelvaneConfig.cmake
              ${PROJECT_BINARY_DIR}/KelvaneConfigVersion.cmake
        DESTINATION ${KELVANE_CMAKE_DIR})

# --- pkg-config: kelvane.pc ----------------------------------------------------------------
# The prefix is found from where the file lies, so the same file serves /usr, /usr/local and
# any prefix a build was installed into.
file(RELATIVE_PATH KELVANE_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" KELVANE_PC_TO_PREFIX ${KELVANE_PC_TO_PREFIX})
configure_file(cmake/kelvane.pc.in ${PROJECT_BINARY_DIR}/kelvane.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kelvane.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# --- Installed tools find the library beside them -------------------------------------------
if(APPLE)
  set(KELVANE_TOOL_RPATH @loader_path/../${CMAKE_INSTALL_LIBDIR})
else()
  set(KELVANE_TOOL_RPATH $ORIGIN/../${CMAKE_INSTALL_LIBDIR})
endif()
set_target_properties(kelvanectl kelvane-fixture-cycle PROPERTIES INSTALL_RPATH ${KELVANE_TOOL_RPATH})

# --- Help texts and docs --------------------------------------------------------------------
# Each tool's help, as the tool itself prints it, so the installed text never drifts from it. A
# cross-build's tools cannot run where they are built: there the same tools built for the build
# machine print it, from a native build of the same sources.
if(CMAKE_CROSSCOMPILING)
  set(KELVANE_HOST_BUILD_DIR "" CACHE PATH
      "A native build of these sources whose kelvanectl and kelvane-sim print the help texts")
  if(NOT EXISTS ${KELVANE_HOST_BUILD_DIR}/CMakeCache.txt)
    message(FATAL_ERROR "Cross-compiling: give a native build of these sources "
                        "(-DKELVANE_HOST_BUILD_DIR=...), whose tools print the installed help texts")
  endif()
endif()
set(KELVANE_HELP_TEXTS)
foreach(tool kelvanectl kelvane-sim)
  set(text ${PROJECT_BINARY_DIR}/help/${tool}.txt)
  if(CMAKE_CROSSCOMPILING)
    set(printer ${KELVANE_HOST_BUILD_DIR}/tools/${tool}/${tool})
  else()
    set(printer $<TARGET_FILE:${tool}>)
  endif()
  add_custom_command(OUTPUT ${text}
    COMMAND ${CMAKE_COMMAND} -DTOOL=${printer} -DOUTPUT=${text}
            -P ${PROJECT_SOURCE_DIR}/cmake/WriteHelpText.cmake
    DEPENDS ${tool} ${printer} ${PROJECT_SOURCE_DIR}/cmake/WriteHelpText.cmake
    COMMENT "Writing ${tool}'s help text")
  list(APPEND KELVANE_HELP_TEXTS ${text})
endforeach()
add_custom_target(kelvane_help_texts ALL DEPENDS ${KELVANE_HELP_TEXTS})
install(FILES ${KELVANE_HELP_TEXTS} DESTINATION ${KELVANE_DOC_DIR})
install(FILES README.md DESTINATION ${KELVANE_DOC_DIR})
install(DIRECTORY docs/ DESTINATION ${KELVANE_DOC_DIR} FILES_MATCHING PATTERN "*.md")

# --- Debian package: libkelvane -------------------------------------------------------------
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libkelvane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "libKelvane developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "drives a factory test fixture's controller board over ZeroMQ")
# CPack puts the summary first and wraps this text below it.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "libKelvane is the library a test station loads to drive \
one test fixture (tray, lock, sensors, LEDs, fans, IO lines, barcode cameras, TEC controllers) \
through JSON-RPC calls to the fixture's controller board. The package carries the shared \
library, its C and C++ headers with CMake and pkg-config files, kelvanectl, the kelvane-sim \
simulator and the docs.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# Run-time dependencies come from the binaries themselves; the C++ headers need the nlohmann/json
# release the library was built with (see KelvaneConfig.cmake.in), any Debian revision of it.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
math(EXPR KELVANE_JSON_NEXT_PATCH "${nlohmann_json_VERSION_PATCH} + 1")
set(KELVANE_JSON_NEXT_RELEASE ${nlohmann_json_VERSION_MAJOR}.${nlohmann_json_VERSION_MINOR}.${KELVANE_JSON_NEXT_PATCH})
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "nlohmann-json3-dev (>= ${nlohmann_json_VERSION}), nlohmann-json3-dev (<< ${KELVANE_JSON_NEXT_RELEASE}~)")
include(CPack)
