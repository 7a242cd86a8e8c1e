// The fixture's identity as stored in the board EEPROM.
#include "barcode/units.hpp"

#include <kelvane/protocol/json_rpc.hpp>
#include <kelvane/protocol/methods.hpp>
#include "session/fixture_control_private.hpp"

namespace kelvane {

Value FixtureControl::getFixtureIDFromEEPROMWithTimeout(std::int64_t timeoutMs) {
    return d_->units.getFixtureIDFromEEPROMWithTimeout(timeoutMs);
}

namespace {

constexpr std::string_view boardType = "TAVRIN";
constexpr std::string_view eepromUnit = "Unit1";
// The base board guards its EEPROM with a lock; this names the region the fixture id lives in.
constexpr std::string_view eepromRegion = "fixture_id";
constexpr int eepromAddress = 32;
constexpr int eepromLength = 30;

}  // namespace

Value Units::getFixtureIDFromEEPROMWithTimeout(std::int64_t timeoutMs) const {
    log("SIBBoardType is: " + std::string(boardType));
    std::string type = upperCased(boardType);
    bool baseBoard = type == "TAVRIN" || type == "QUENDALIX";
    std::string method(baseBoard ? methods::baseBoardReadEeprom : methods::sibBoardReadEeprom);
    Value args = baseBoard ? Value::array({eepromRegion, eepromAddress, eepromLength})
                           : Value::array({eepromAddress, eepromLength});
    std::optional<RpcError> error;
    Value reply = callThrough(client(std::string(eepromUnit)), method, args, jsonrpc::timeoutKwargs(timeoutMs), &error);
    if (error) log("Failed to read eeprom from SIB board; err=" + error->text());
    return reply;
}

}  // namespace kelvane
