// Session creation, connection and the calls every other operation goes through.
#include <kelvane/FixtureControl.hpp>

#include <kelvane/protocol/methods.hpp>
#include "session/fixture_control_private.hpp"
#include "tec/monitor.hpp"

#include <fmt/format.h>

namespace kelvane {
namespace {

// The TEC set-up step of session creation stays switched off: the station does not monitor
// TECs from this library at creation time.
constexpr std::string_view tecSetupSwitch = "NO";

constexpr std::uint32_t lowestPort = 1;
constexpr std::uint32_t highestPort = 65535;

}  // namespace

FixtureControl::FixtureControl(Platform platform)
    : d_(std::make_unique<Private>(std::move(platform))) {
    // A host that leaves a service out gets the real one, so no operation meets an empty seam.
    if (!d_->platform.clock) d_->platform.clock = systemClock();
    if (!d_->platform.log) d_->platform.log = standardErrorLog();
}

FixtureControl::~FixtureControl() = default;

std::shared_ptr<FixtureControl> FixtureControl::initWithIP(const Value& topology, Platform platform) {
    std::shared_ptr<FixtureControl> session(new FixtureControl(std::move(platform)));
    session->d_->ConnectFlag = 1;
    session->toPology(topology);
    session->identifier(topology.is_object() ? topology.value("identifier", Value()) : Value());
    session->log("********self.toPology  " + describe(topology));
    session->d_->qorClientDic.clear();
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
    if (scanSN.is_string() && upperCased(scanSN.get<std::string>()) == "YES" &&
        !session->barcodeSecurityCheck()) {
        return nullptr;
    }
    if (tecSetupSwitch == "YES" && !session->setUpTecMonitoring(session->d_->slotNumber)) {
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
    // A port no TCP connection can use fails as a controller that does not answer, without
    // waiting for the client's connect grace.
    bool usablePort = port >= lowestPort && port <= highestPort;
    fixtureControlClient(usablePort ? d_->platform.clientFor(ip, port) : nullptr);
    Value reply = call(methods::serverMode);
    log("RPC server.mode: " + describe(reply) + "...");
    if (reply.is_null()) {
        log("Error Failed to connect fxiture");
        return false;
    }
    return true;
}

std::int32_t FixtureControl::getConnectFlag() const { return d_->ConnectFlag; }

bool FixtureControl::initialFixture() {
    return describedContains(call(methods::fixtureInitialise), "done");
}

void FixtureControl::close() {
    d_->closed = true;
    if (auto client = fixtureControlClient()) client->close();
    std::vector<std::shared_ptr<WorkerThread>> workers;
    {
        std::lock_guard lock(d_->workersMutex);
        workers.swap(d_->liveWorkers);
    }
    tec::stopWorkers(workers, *this);
}

void FixtureControl::log(std::string_view line) const { d_->platform.log->write(line); }

Value FixtureControl::call(std::string_view method, const Value& args, const Value& kwargs,
                           RpcErrorSlot error) {
    // Our own reference: a host that replaces the property meanwhile cannot free the client
    // under this call.
    return callThrough(fixtureControlClient(), std::string(method), args, kwargs, error);
}

std::shared_ptr<RpcClient> FixtureControl::unitClient(const std::string& unitKey) const {
    auto found = d_->qorClientDic.find(unitKey);
    return found == d_->qorClientDic.end() ? nullptr : found->second;
}

}  // namespace kelvane
