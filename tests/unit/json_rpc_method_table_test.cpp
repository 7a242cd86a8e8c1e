// The protocol document lists every controller method the library calls, so a controller
// written from the document alone answers everything the library may ask.
#include "rpc/methods.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

namespace kelvane {
namespace {

TEST(JsonRpcMethodTable, EveryMethodTheLibraryCallsIsDocumentedForControllerWriters) {
    std::ifstream file(std::string(KELVANE_SOURCE_DIR) + "/docs/protocol.md");
    ASSERT_TRUE(file) << "docs/protocol.md is missing";
    std::stringstream document;
    document << file.rdbuf();
    for (std::string_view method : methods::all) {
        std::string quoted = "`" + std::string(method) + "`";
        EXPECT_NE(document.str().find(quoted), std::string::npos)
            << method << " is not in docs/protocol.md (looked for " << quoted << ")";
    }
}

}  // namespace
}  // namespace kelvane
