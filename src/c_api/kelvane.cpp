// The wrapper behind a C handle: one session, its results turned into C types.
#include <kelvane/Kelvane.hpp>

#include "c_api/returned_text.hpp"

namespace kelvane {
namespace {

// The C interface never runs the scanner check. Its identifier is the number 1 rather than a
// "Fixture<n>" text; log lines of C hosts have always been prefixed so.
Value topologyFor(const std::string& ip, std::uint32_t port) {
    return {{"FixtureIP", {{"ip", ip}, {"port", port}}}, {"identifier", 1}, {"units", 1}, {"ScanSN", "NO"}};
}

}  // namespace

Kelvane::Kelvane(const std::string& ip, Platform platform)
    : Kelvane(ip, KELVANE_CONTROLLER_PORT, std::move(platform)) {}

Kelvane::Kelvane(const std::string& ip, std::uint32_t port, Platform platform)
    : session_(FixtureControl::initWithIP(topologyFor(ip, port), std::move(platform))) {}

void Kelvane::close() {
    if (session_) session_->close();
}

int Kelvane::getConnectFlag() const { return session_ ? session_->getConnectFlag() : 0; }

bool Kelvane::initialFixture() { return session_ && session_->initialFixture(); }

const char* Kelvane::checkPositionSensor() {
    return session_ ? returnedText(session_->checkPositionSensor()) : nullptr;
}

const char* Kelvane::checkDUTSensor() { return session_ ? returnedText(session_->checkDUTSensor()) : nullptr; }

const char* Kelvane::trayUp() { return session_ ? returnedText(session_->trayUp()) : nullptr; }

const char* Kelvane::trayDown() { return session_ ? returnedText(session_->trayDown()) : nullptr; }

const char* Kelvane::trayIn() { return session_ ? returnedText(session_->trayIn()) : nullptr; }

const char* Kelvane::trayOut() { return session_ ? returnedText(session_->trayOut()) : nullptr; }

const char* Kelvane::fixtureInit() { return session_ ? returnedText(session_->fixtureInit()) : nullptr; }

const char* Kelvane::fixtureLock(const char* state) {
    return session_ ? returnedText(session_->fixtureLock(state ? state : "")) : nullptr;
}

const char* Kelvane::setIO(int line, int state) {
    return session_ ? returnedText(session_->setIO(line, state)) : nullptr;
}

int Kelvane::setFanSpeed(int fan, int speed) { return session_ && session_->setFanSpeed(fan, speed) ? 1 : 0; }

const char* Kelvane::getFanSpeed(int fan) { return session_ ? returnedText(session_->getFanSpeed(fan)) : nullptr; }

const char* Kelvane::tecTempRecord(int slot) {
    return session_ ? returnedText(session_->tecTempRecord2(slot)) : nullptr;
}

int Kelvane::sendCanCommandStringNeedFeedback(int, std::string, int) { return 0; }

}  // namespace kelvane
