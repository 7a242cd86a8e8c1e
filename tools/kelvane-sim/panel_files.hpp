// The panel's page, style sheet and script, built into the binary from tools/kelvane-sim/panel.
#pragma once

#include "embedded_files.hpp"

#include <span>

namespace kelvane::sim {

std::span<const web::EmbeddedFile> panelFiles();

}  // namespace kelvane::sim
