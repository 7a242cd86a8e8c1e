#include "access_token.hpp"

#include <random>

namespace kelvanectl {

AccessToken::AccessToken() {
    constexpr int words = 8;  // of 32 bits
    constexpr char digits[] = "0123456789abcdef";
    std::random_device source;  // the system's (getentropy, /dev/urandom), not a seeded engine
    for (int i = 0; i < words; ++i) {
        auto bits = static_cast<std::uint32_t>(source());
        for (int shift = 28; shift >= 0; shift -= 4) text_ += digits[(bits >> shift) & 0xf];
    }
}

bool AccessToken::matches(std::string_view presented) const {
    if (presented.size() != text_.size()) return false;
    unsigned char difference = 0;
    for (std::size_t i = 0; i < text_.size(); ++i) difference |= static_cast<unsigned char>(presented[i] ^ text_[i]);
    return difference == 0;
}

}  // namespace kelvanectl
