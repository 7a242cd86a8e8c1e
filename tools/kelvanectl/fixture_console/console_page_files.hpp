// The console's page, style sheet and script with the drawings and styles it shares with the
// simulator's panel (tools/web/assets), built into the binary.
#pragma once

#include "embedded_files.hpp"

#include <span>

namespace kelvanectl {

std::span<const kelvane::web::EmbeddedFile> consolePageFiles();

}  // namespace kelvanectl
