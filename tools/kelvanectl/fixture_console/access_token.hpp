// The secret a browser console's page must present with every API request, so that another
// page in the technician's browser, or another user of the machine, cannot drive the fixtures.
// Made fresh each run and shown only in the console's one line on standard output.
#pragma once

#include <string>
#include <string_view>

namespace kelvanectl {

class AccessToken {
public:
    // 256 random bits from the system's source, as 64 hex digits.
    AccessToken();

    const std::string& text() const { return text_; }
    // Whether `presented` is the token; in a time that does not tell how much of it was right.
    bool matches(std::string_view presented) const;

private:
    std::string text_;
};

}  // namespace kelvanectl
