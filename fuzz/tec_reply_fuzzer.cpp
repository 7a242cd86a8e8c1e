// The TEC sampling reads four temperature answers and a power answer from the controllers.
// Input: the five answers, separated by zero bytes. Every answer gives a sample, never a crash,
// and a value the patterns could not find reads as 0.
#include "tec/replies.hpp"

#include <cctype>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

using namespace kelvane;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    std::string answers[5];
    for (auto& answer : answers) {
        auto zero = rest.find('\0');
        answer = rest.substr(0, zero);
        rest = zero == std::string_view::npos ? std::string_view() : rest.substr(zero + 1);
    }
    const std::string temperatures[4] = {answers[0], answers[1], answers[2], answers[3]};
    tec::TecSample sample = tec::parseSample(temperatures, answers[4]);
    std::string power = answers[4];
    for (char& c : power) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (power.find("TEC : ") == std::string::npos && (sample.pwm != 0 || sample.current != 0)) {
        std::abort();
    }
    for (float sensor : sample.sensors) {
        if (std::isnan(sensor)) std::abort();
    }
    return 0;
}
