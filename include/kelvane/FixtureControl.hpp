// FixtureControl: one session with one fixture's controller board.
//
// Every operation is synchronous on the calling thread and never throws, except where a
// helper below documents a range error for input its callers never pass. Operations take no
// lock; the host serialises fixture motion. An operation holds the session's client for its
// whole call, so replacing `fixtureControlClient` meanwhile affects only later calls.
#pragma once

#include <kelvane/Platform.hpp>
#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>
#include <kelvane/export.h>

#include <cstdint>
#include <memory>
#include <string>

namespace kelvane {

class KELVANE_API FixtureControl : public std::enable_shared_from_this<FixtureControl> {
public:
    // Creates a session from a topology dictionary ("FixtureIP" with "ip" and "port",
    // "identifier", "ScanSN", "units"). Null when the controller does not answer "server.mode"
    // or the scanner check fails. Shared-owned: worker threads keep the session alive.
    static std::shared_ptr<FixtureControl> initWithIP(const Value& topology,
                                                      Platform platform = Platform::defaults());

    ~FixtureControl();
    FixtureControl(const FixtureControl&) = delete;
    FixtureControl& operator=(const FixtureControl&) = delete;

    // Session
    // A port outside 1..65535 makes no client: the connection fails at once.
    bool connectWithIPAddress(const Value& address);
    std::int32_t getConnectFlag() const;
    bool initialFixture();
    // Ends the session's use; safe from any thread, more than once. The client is closed, so
    // calls under way and later ones fail with its "client closed" error, and a tray move under
    // way stops polling at its next step and returns its timeout text.
    void close();

    // Hex, number and pattern helpers
    std::string hexStringFromString(const std::string& text);
    // Throws std::out_of_range for a text of odd length.
    Value decimalFromHexString(const std::string& hex);
    // Throws std::out_of_range for the empty text.
    std::string stringFromHexString(const std::string& hex);
    // Null when the pattern is empty or does not compile (error in the slot), when nothing
    // matches, or when the group took no part. Throws std::out_of_range when there is a match
    // and the group index is negative or past the pattern's group count.
    Value findSubStringByRegexGroup(const std::string& text, const std::string& pattern,
                                    std::int32_t groupId, RpcErrorSlot error);

    // Position and DUT sensors
    std::string checkPositionSensor();
    Value checkDUTSensor();

    // Tray motion, lock and initialisation
    Value trayUp();
    Value trayDown();
    Value trayIn();
    Value trayOut();
    Value fixtureLock(const std::string& state);
    Value fixtureInit();

    // LEDs, fans and IO lines
    void uutLed(std::int32_t slot, const std::string& mode);
    void uutLedBlink(std::int32_t slot, const std::string& mode);
    void stateLed(const std::string& mode);
    bool setFanSpeed(std::int32_t fan, std::int32_t speed);
    std::string getFanSpeed(std::int32_t fan);
    Value setIO(std::int32_t line, std::int32_t state);

    // Barcode scan and scanner check
    bool barcodeSecurityCheck();
    Value scanBarcode();
    Value getDutSN(const std::string& unit);

    // Station info file, fixture log and board EEPROM
    std::string GetZtJsonInfo(const std::string& outerKey, const std::string& innerKey);
    void saveSamplelog(const std::string& text);
    Value getFixtureIDFromEEPROMWithTimeout(std::int64_t timeoutMs);

    // Properties: strong, unsynchronised; the host may read and replace them.
    std::shared_ptr<RpcClient> fixtureControlClient;
    Value identifier;
    Value toPology;
    std::string fixtureId;
    std::string tecTempLogPath;
    std::string tecVersion;
    Value tecRecordItemNameArray;  // nil until the TEC set-up step creates it
    Value tecRecordArr = Value::array();
    Value tecTempStableFlag;
    Value tecTempTimes;

    // The session's private state, defined inside the library.
    class Private;

private:
    explicit FixtureControl(Platform platform);
    void log(std::string_view line) const;
    // A call through the controller's client; with no client, no reply and no error.
    Value call(std::string_view method, const Value& args = Value::array(),
               const Value& kwargs = nullptr, RpcErrorSlot error = nullptr);
    Value pollSensor(const std::string& sensorMethod, double deadlineSeconds,
                     std::string_view successLog, std::string_view successResult,
                     std::string_view timeoutResult);
    std::shared_ptr<RpcClient> unitClient(const std::string& unitKey) const;

    std::unique_ptr<Private> d_;
};

}  // namespace kelvane
