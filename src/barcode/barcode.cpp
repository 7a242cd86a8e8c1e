// Barcode scanner cameras: the check at session creation, and scans of all slots or one unit.
// Scanners are reached through the per-unit clients; a unit without a client gives no reply.
#include "barcode/units.hpp"

#include <kelvane/protocol/methods.hpp>
#include "session/fixture_control_private.hpp"

#include <fmt/format.h>

namespace kelvane {

bool FixtureControl::barcodeSecurityCheck() { return d_->units.barcodeSecurityCheck(); }
Value FixtureControl::scanBarcode() { return d_->units.scanBarcode(); }
Value FixtureControl::getDutSN(const std::string& unit) { return d_->units.getDutSN(toPology(), unit); }

namespace {

constexpr int decodeArgument = 5000;

std::string unitKey(std::int32_t slot) { return fmt::format("Unit{}", slot); }

}  // namespace

std::shared_ptr<RpcClient> Units::client(const std::string& unitKey) const {
    auto found = qorClientDic.find(unitKey);
    return found == qorClientDic.end() ? nullptr : found->second;
}

bool Units::barcodeSecurityCheck() const {
    log("***Barcode Security Check***");
    for (std::int32_t slot = 1; slot <= slotNumber; ++slot) {
        std::string key = unitKey(slot);
        auto scanner = client(key);

        Value cameraId = callThrough(scanner, std::string(methods::barcodeReadReverseItem), Value::array({"slotID"}),
                                     nullptr, nullptr);
        log(fmt::format("{} get cameraID:{}", key, describe(cameraId)));
        if (cameraId.is_null() || !describedContains(cameraId, fmt::format("slot{}", slot))) {
            log(fmt::format("--FAIL--Slot{} Camera ID is not right: {}!", slot, describe(cameraId)));
            return false;
        }

        Value checkSN =
            callThrough(scanner, std::string(methods::barcodeReadConfig), Value::array({"CheckSN"}), nullptr, nullptr);
        log(fmt::format("{} get checkSNConfig:{}", key, describe(checkSN)));
        if (integerValue(checkSN) != 1) {
            log(fmt::format("--FAIL--Slot{} check SN config is not enable: {}!", slot, describe(checkSN)));
            return false;
        }

        Value cameraSN =
            callThrough(scanner, std::string(methods::barcodeReadConfig), Value::array({"SN"}), nullptr, nullptr);
        log(fmt::format("{} get cameraSN:{}", key, describe(cameraSN)));
        if (cameraSN.is_null() || !describedContains(cameraSN, "SG")) {
            log(fmt::format("--FAIL--Slot{} read camera SN fail: {}!", slot, describe(cameraSN)));
            return false;
        }
    }
    return true;
}

Value Units::scanBarcode() const {
    log("get barcode from scanner.");
    Value barcodes = Value::object();
    // One error slot for all units: once a unit has failed, later units whose call leaves the
    // slot alone are reported as failed in the log too.
    std::optional<RpcError> error;
    for (std::int32_t slot = 1; slot <= slotNumber; ++slot) {
        std::string key = unitKey(slot);
        Value barcode = callThrough(client(key), std::string(methods::barcodeDecode), Value::array({decodeArgument}),
                                    nullptr, &error);
        if (error) log(fmt::format("{} scanBarcode: barcode.decode fail; err:{}", key, error->text()));
        log(fmt::format("{} get barcode from scanner:{}", key, describe(barcode)));
        if (!barcode.is_null() && upperCased(describe(barcode)).find("FAIL") == std::string::npos) {
            barcodes[key] = barcode;
        }
    }
    return barcodes;
}

Value Units::getDutSN(const Value& topology, const std::string& unit) const {
    Value scanSN = topology.is_object() ? topology.value("ScanSN", Value()) : Value();
    if (!scanSN.is_null() && !isText(scanSN, "YES")) {
        log("Current config don't need  scan SN.");
        return nullptr;
    }
    std::string key = "Unit" + unit;
    std::optional<RpcError> error;
    Value barcode =
        callThrough(client(key), std::string(methods::barcodeDecode), Value::array({decodeArgument}), nullptr, &error);
    if (error) {
        log("scanBarcode: barcode.decode fail; err:" + error->text());
        return error->text();
    }
    log(fmt::format("{} get barcode from scanner:{}", key, describe(barcode)));
    return barcode;
}

}  // namespace kelvane
