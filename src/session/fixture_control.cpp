// Session creation, connection and the calls every other operation goes through.
#include <kelvane/FixtureControl.hpp>

#include "rpc/methods.hpp"

#include <fmt/format.h>

namespace kelvane {
namespace {

// The TEC set-up step of session creation stays switched off: the station does not monitor
// TECs from this library at creation time.
constexpr std::string_view tecSetupSwitch = "NO";

}  // namespace

FixtureControl::FixtureControl(Platform platform) : platform_(std::move(platform)) {
    // A host that leaves a service out gets the real one, so no operation meets an empty seam.
    if (!platform_.clock) platform_.clock = systemClock();
    if (!platform_.log) platform_.log = standardErrorLog();
}

FixtureControl::~FixtureControl() = default;

std::shared_ptr<FixtureControl> FixtureControl::initWithIP(const Value& topology, Platform platform) {
    std::shared_ptr<FixtureControl> session(new FixtureControl(std::move(platform)));
    session->ConnectFlag = 1;
    session->toPology = topology;
    session->identifier = topology.is_object() ? topology.value("identifier", Value()) : Value();
    session->log("********self.toPology  " + describe(topology));
    session->qorClientDic.clear();
    session->tecRecordArr = Value::array();

    Value address = topology.is_object() ? topology.value("FixtureIP", Value()) : Value();
    session->log("Connect to " + describe(address));
    session->fixtureAddress = address;
    if (!session->connectWithIPAddress(session->fixtureAddress)) {
        session->log("================Connect Fixture fail================");
        session->ConnectFlag = 0;
        return nullptr;
    }
    session->log("================Connect Fixture seccussful================");

    Value scanSN = topology.is_object() ? topology.value("ScanSN", Value()) : Value();
    if (scanSN.is_string() && upperCased(scanSN.get<std::string>()) == "YES" &&
        !session->barcodeSecurityCheck()) {
        return nullptr;
    }
    if (tecSetupSwitch == "YES") {
        // Empty: the library has no TEC set-up to run yet, so turning the switch on would
        // change nothing.
    }
    return session;
}

bool FixtureControl::connectWithIPAddress(const Value& address) {
    log("ipAddress 'fixtureIP': <" + describe(address) + ">");
    Value ipValue = address.is_object() ? address.value("ip", Value()) : Value();
    Value portValue = address.is_object() ? address.value("port", Value()) : Value();
    std::string ip = describe(ipValue);
    auto port = static_cast<std::uint32_t>(integerValue(portValue));
    // An absent address text is not written at all (the port line still is).
    if (!ipValue.is_null()) saveSamplelog(ip);
    saveSamplelog(fmt::format("{}", port));
    log(fmt::format("{} Connecting to RPC server {}:{}...", describe(identifier), ip, port));
    fixtureControlClient = platform_.connect ? platform_.connect(ip, port) : nullptr;
    Value reply = call(methods::serverMode);
    log("RPC server.mode: " + describe(reply) + "...");
    if (reply.is_null()) {
        log("Error Failed to connect fxiture");
        return false;
    }
    return true;
}

std::int32_t FixtureControl::getConnectFlag() const { return ConnectFlag; }

bool FixtureControl::initialFixture() {
    std::optional<RpcError> error;
    Value reply = call(methods::fixtureInitialise, Value::array(), nullptr, &error);
    return describedContains(reply, "done");
}

void FixtureControl::log(std::string_view line) const { platform_.log->write(line); }

Value FixtureControl::call(std::string_view method, const Value& args, const Value& kwargs,
                           RpcErrorSlot error) {
    return callThrough(fixtureControlClient, std::string(method), args, kwargs, error);
}

std::shared_ptr<RpcClient> FixtureControl::unitClient(const std::string& unitKey) const {
    auto found = qorClientDic.find(unitKey);
    return found == qorClientDic.end() ? nullptr : found->second;
}

}  // namespace kelvane
