// The controller's RPC method names: the one table that the library, the simulator and the
// protocol document (checked by a test) all use.
#pragma once

#include <array>
#include <string_view>

namespace kelvane::methods {

inline constexpr std::string_view serverMode = "server.mode";
inline constexpr std::string_view fixtureInitialise = "vantrel.fixture_init";

inline constexpr std::string_view inSensorRead = "vantrel.in_sensor_read";
inline constexpr std::string_view outSensorRead = "vantrel.out_sensor_read";
inline constexpr std::string_view upSensorRead = "vantrel.up_sensor_read";
inline constexpr std::string_view downSensorRead = "vantrel.down_sensor_read";
inline constexpr std::string_view dutSensorRead = "vantrel.dut_sensor_read";

inline constexpr std::string_view fixtureUp = "vantrel.fixture_up";
inline constexpr std::string_view fixtureDown = "vantrel.fixture_down";
inline constexpr std::string_view fixtureIn = "vantrel.fixture_in";
inline constexpr std::string_view fixtureOut = "vantrel.fixture_out";
inline constexpr std::string_view magnetControl = "vantrel.magnet_control";
inline constexpr std::string_view fixtureIoSet = "vantrel.fixture_io_set";

inline constexpr std::string_view ledControl = "vantrel.led_control";
inline constexpr std::string_view ledBlinkControl = "vantrel.led_blink_control";
inline constexpr std::string_view setFanSpeed = "vantrel.set_fan_speed";
inline constexpr std::string_view getFanSpeed = "vantrel.get_fan_speed";

inline constexpr std::string_view canOpen = "can.open";
inline constexpr std::string_view canSend = "can.send";
inline constexpr std::string_view canRecv = "can.recv";

inline constexpr std::string_view barcodeDecode = "barcode.decode";
inline constexpr std::string_view barcodeReadReverseItem = "barcode.read_reverse_item";
inline constexpr std::string_view barcodeReadConfig = "barcode.read_config";

inline constexpr std::string_view baseBoardReadEeprom = "base_board.lock_read_eeprom_string";
inline constexpr std::string_view sibBoardReadEeprom = "sib_board.read_eeprom_string";

inline constexpr std::array all = {
    serverMode,
    fixtureInitialise,
    inSensorRead,
    outSensorRead,
    upSensorRead,
    downSensorRead,
    dutSensorRead,
    fixtureUp,
    fixtureDown,
    fixtureIn,
    fixtureOut,
    magnetControl,
    fixtureIoSet,
    ledControl,
    ledBlinkControl,
    setFanSpeed,
    getFanSpeed,
    canOpen,
    canSend,
    canRecv,
    barcodeDecode,
    barcodeReadReverseItem,
    barcodeReadConfig,
    baseBoardReadEeprom,
    sibBoardReadEeprom,
};

}  // namespace kelvane::methods
