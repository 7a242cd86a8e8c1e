// Session creation, connection and the calls the session's own members make.
#include <kelvane/FixtureControl.hpp>

#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/replies.hpp>
#include "session/fixture_control_private.hpp"

#include <fmt/format.h>

namespace kelvane {
namespace {

// The TEC set-up step of session creation stays switched off: the station does not monitor
// TECs from this library at creation time.
constexpr std::string_view tecSetupSwitch = "NO";

}  // namespace

FixtureControl::FixtureControl(Platform platform) : d_(std::make_unique<Private>(std::move(platform))) {}

FixtureControl::~FixtureControl() = default;

std::shared_ptr<FixtureControl> FixtureControl::initWithIP(const Value& topology, Platform platform) {
    std::shared_ptr<FixtureControl> session(new FixtureControl(std::move(platform)));
    session->d_->ConnectFlag = 1;
    session->toPology(topology);
    session->identifier(topology.is_object() ? topology.value("identifier", Value()) : Value());
    session->log("********self.toPology  " + describe(topology));
    session->d_->units.qorClientDic.clear();
    session->tecRecordArr(Value::array());

    Value address = topology.is_object() ? topology.value("FixtureIP", Value()) : Value();
    session->log("Connect to " + describe(address));
    session->d_->fixtureAddress = address;
    if (!session->connectWithIPAddress(session->d_->fixtureAddress)) {
        session->log("================Connect Fixture fail================");
        session->d_->ConnectFlag = 0;
        return nullptr;
    }
    session->log("================Connect Fixture seccussful================");

    Value scanSN = topology.is_object() ? topology.value("ScanSN", Value()) : Value();
    if (scanSN.is_string() && upperCased(scanSN.get<std::string>()) == "YES" && !session->barcodeSecurityCheck()) {
        return nullptr;
    }
    if (tecSetupSwitch == "YES" && !session->setUpTecMonitoring(session->d_->units.slotNumber)) {
        return nullptr;
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
    log(fmt::format("{} Connecting to RPC server {}:{}...", describe(identifier()), ip, port));
    d_->controller.connect(d_->platform, ip, port);
    Value reply = call(methods::serverMode);
    log("RPC server.mode: " + describe(reply) + "...");
    if (reply.is_null()) {
        log("Error Failed to connect fxiture");
        return false;
    }
    return true;
}

std::int32_t FixtureControl::getConnectFlag() const { return d_->ConnectFlag; }

bool FixtureControl::initialFixture() { return describedContains(call(methods::fixtureInitialise), replies::done); }

void FixtureControl::close() {
    d_->controller.close();
    d_->tec.close();
}

void FixtureControl::log(std::string_view line) const { d_->platform.log->write(line); }

Value FixtureControl::call(std::string_view method, const Value& args, const Value& kwargs, RpcErrorSlot error) {
    return d_->controller.call(method, args, kwargs, error);
}

}  // namespace kelvane
