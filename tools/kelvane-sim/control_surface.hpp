// The "sim." methods that tests use to script answers, read the journal, inspect and change the
// simulated world. They are never journaled and never scripted.
#pragma once

#include "journal.hpp"
#include "outcome.hpp"
#include "scripts.hpp"
#include "simulated_fixture.hpp"

#include <string_view>

namespace kelvane::sim {

class ControlSurface {
public:
    ControlSurface(SimulatedFixture& fixture, ScriptBook& scripts, Journal& journal)
        : fixture_(fixture), scripts_(scripts), journal_(journal) {}

    static bool handles(std::string_view method);
    Outcome call(const jsonrpc::Request& request);

private:
    Outcome addScripts(const Value& params);
    Outcome changeWorld(const Value& params);
    Outcome resetAll();

    SimulatedFixture& fixture_;
    ScriptBook& scripts_;
    Journal& journal_;
};

}  // namespace kelvane::sim
