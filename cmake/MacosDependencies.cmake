# The dependencies of a macOS cross-build (cmake/macos-x86_64.toolchain.cmake), under the target
# names the rest of the build uses:
# - libzmq: its macOS build, installed into the stand-in SDK's usr/local and found through its
#   pkg-config file (scripts/build-macos.sh builds it from Debian's source package);
# - nlohmann/json, cppzmq, CLI11, spdlog, fmt and Boost (Beast and Asio, for the browser pages):
#   header-only, from the build machine's packages;
# - ICU: the build machine's headers only. No macOS build of it is at hand, so the library leaves
#   its symbols to be bound when it is loaded (-undefined dynamic_lookup), from the ICU the
#   process has loaded; only on a Mac is the library linked to ICU itself.
# The borrowed headers are linked into the build tree one folder each: the build machine's whole
# include folder would put its Linux C headers in front of the macOS ones.
pkg_check_modules(ZMQ REQUIRED IMPORTED_TARGET libzmq)

set(KELVANE_HOST_INCLUDE_DIR /usr/include CACHE PATH
    "Where the build machine keeps the headers the macOS cross-build borrows")
set(borrowed ${PROJECT_BINARY_DIR}/borrowed-include)
file(MAKE_DIRECTORY ${borrowed})
foreach(entry nlohmann zmq.hpp zmq_addon.hpp CLI spdlog fmt unicode boost)
  if(NOT EXISTS ${KELVANE_HOST_INCLUDE_DIR}/${entry})
    message(FATAL_ERROR "${KELVANE_HOST_INCLUDE_DIR}/${entry} is missing: run scripts/install-deps.sh")
  endif()
  file(CREATE_LINK ${KELVANE_HOST_INCLUDE_DIR}/${entry} ${borrowed}/${entry} SYMBOLIC)
endforeach()

foreach(target nlohmann_json::nlohmann_json cppzmq CLI11::CLI11 spdlog::spdlog ICU::uc ICU::i18n
               Boost::headers)
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} INTERFACE ${borrowed})
endforeach()
target_link_libraries(cppzmq INTERFACE PkgConfig::ZMQ)
target_link_libraries(spdlog::spdlog INTERFACE Threads::Threads)
target_compile_definitions(spdlog::spdlog INTERFACE SPDLOG_FMT_EXTERNAL FMT_HEADER_ONLY=1)
target_link_options(ICU::uc INTERFACE LINKER:-undefined,dynamic_lookup)

# The release the C++ headers are built against (the CMake package asks hosts for the same).
file(STRINGS ${borrowed}/nlohmann/detail/abi_macros.hpp parts REGEX "define NLOHMANN_JSON_VERSION_")
string(REGEX REPLACE "[^;]*_(MAJOR|MINOR|PATCH) ([0-9]+)[^;]*" "\\2" parts "${parts}")
list(JOIN parts . nlohmann_json_VERSION)
list(GET parts 0 nlohmann_json_VERSION_MAJOR)
list(GET parts 1 nlohmann_json_VERSION_MINOR)
list(GET parts 2 nlohmann_json_VERSION_PATCH)
