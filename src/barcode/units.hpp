// The DUT units' own controllers, each reached by a client of its own keyed "Unit<n>": the
// scanner cameras (barcode.cpp) and the unit board whose EEPROM holds the fixture's id
// (station/eeprom.cpp).
#pragma once

#include <kelvane/Platform.hpp>
#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace kelvane {

// The library never adds a unit's client nor sets the slot count: at a station every lookup
// finds no client (a call through none gives no reply and no error) and loops over the slots run
// zero times. The station's tests give a Units clients of their own. Called on host threads;
// nothing changes a session's Units after creation.
class Units {
public:
    explicit Units(LogSink& log) : log_(log) {}

    // The per-unit clients, keyed "Unit<n>" (qorClientDic), and the number of slots.
    std::map<std::string, std::shared_ptr<RpcClient>> qorClientDic;
    std::int32_t slotNumber = 0;

    // barcode.cpp: as FixtureControl's members of the same names; getDutSN reads "ScanSN" of
    // the topology given.
    bool barcodeSecurityCheck() const;
    Value scanBarcode() const;
    Value getDutSN(const Value& topology, const std::string& unit) const;
    // station/eeprom.cpp
    Value getFixtureIDFromEEPROMWithTimeout(std::int64_t timeoutMs) const;

private:
    std::shared_ptr<RpcClient> client(const std::string& unitKey) const;
    void log(std::string_view line) const { log_.write(line); }

    LogSink& log_;
};

}  // namespace kelvane
