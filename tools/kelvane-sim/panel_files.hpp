// The panel's page, style sheet and script, built into the binary from tools/kelvane-sim/panel
// (embed_panel_files.cmake writes their bytes), so the simulator has nothing to install and the
// page nothing to fetch from elsewhere.
#pragma once

#include <span>
#include <string_view>

namespace kelvane::sim {

struct PanelFile {
    std::string_view name;  // "index.html", "panel.css", ...
    std::string_view bytes;
};

std::span<const PanelFile> panelFiles();

// The Content-Type a file is served with, from its extension.
std::string_view contentTypeOf(std::string_view name);

}  // namespace kelvane::sim
