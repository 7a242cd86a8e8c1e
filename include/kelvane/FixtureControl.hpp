// FixtureControl: one session with one fixture's controller board.
//
// Threads: every operation may be called from any host thread and is synchronous on it; the
// host serialises fixture motion and calls tecTempGet and creatTecTempThread from one thread.
// The session's TEC workers run passes on threads of their own. No operation throws, except
// where a helper below documents a range error for input its callers never pass, and the
// second start of a TEC worker (see tecTempGet).
//
// TEC monitoring: switching a slot on starts a background worker that runs a sampling pass,
// pauses 1.5 s, and so on until switched off; it keeps the session alive while it runs. A
// session made by initWithIP has no workers: its TEC set-up step is switched off.
//
// Locks. A pass (and an on-demand reading) holds the session's object lock for its whole length,
// up to tens of seconds with a silent controller, so the CAN exchanges of different slots never
// interleave; no other operation takes it. Each property, the per-slot TEC tables and the failure
// records are guarded by locks of their own, each held only to copy or replace one value (a
// property, one slot's table entry, a record), never across a call to the controller, a sleep or
// a file write, so a host never waits for a pass to read or set a property. Order: object lock
// first, then one of the others, never two of those together. The locks live with the TEC
// monitor (src/tec/monitor.hpp), which documents them.
#pragma once

#include <kelvane/Platform.hpp>
#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>
#include <kelvane/export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <thread>

namespace kelvane {

class KELVANE_API FixtureControl : public std::enable_shared_from_this<FixtureControl> {
public:
    // Creates a session from a topology dictionary ("FixtureIP" with "ip" and "port",
    // "identifier", "ScanSN", "units"). Null when the controller does not answer "server.mode"
    // or the scanner check fails. Shared-owned: worker threads keep the session alive.
    static std::shared_ptr<FixtureControl> initWithIP(const Value& topology, Platform platform = Platform::defaults());

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
    // way stops polling at its next step and returns its timeout text. Every TEC worker of the
    // session is cancelled, and close() waits until they have ended: a worker in its pause ends
    // at once, one in a pass when the pass ends. The pass's later calls fail at once on the
    // closed client, but a command whose answer the close cuts off waits out its 5 s answer
    // period. Once close() returns no worker writes another line. It holds no lock while it
    // waits. Not to be called from a worker's own thread (a clock or log sink the session
    // calls), where it does not wait for that worker.
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
    Value findSubStringByRegexGroup(const std::string& text, const std::string& pattern, std::int32_t groupId,
                                    RpcErrorSlot error);

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

    // CAN bridge. Every CAN call gives the controller board 3000 ms. canConfig,
    // sendCanCommandWithMessageId and receiveCanWithSlotId are kept for hosts that drive the bus
    // themselves: the station interface has them, though nothing in the library calls them.
    // "can.open" with the bit rate; true when the reply holds "done".
    bool canConfig(const Value& bitRate);
    // Puts one frame with the fixed data 1, 2, 3 on the bus, whatever `command` holds; logs
    // whether the board took it. Always true.
    bool sendCanCommandWithMessageId(std::uint32_t messageId, const std::string& command);
    // The frames of a command in sending order: an array of arrays of bytes 0..255. Empty for a
    // command of more than 28 bytes.
    Value handleCanCMD(const std::string& command, std::int32_t slot);
    // Reads frames until one whose last byte is 3, or until a read brings nothing. A controller
    // that never sends a closing 3 keeps the caller here; the transport's timeout bounds only
    // each single read.
    std::string receiveCanWithSlotId(std::int32_t slot);
    // Sends a command's frames to `messageId` and waits up to 5 s for an answer holding "OK"
    // (any letter case): true when one came.
    bool sendCanCommandString(const Value& messageId, const std::string& command, std::int32_t slot);
    // As sendCanCommandString, but gives the answer text as received, or nil.
    Value sendCanCommandStringNeedFeedback(const Value& messageId, const std::string& command, std::int32_t slot);

    // TEC monitoring
    // The TEC set-up step of creation (switched off there): opens the CAN channel at 500 kbit/s
    // and creates the worker array and the per-slot tables for `slotCount` slots ("NOT SET",
    // "YES", 0). False, with "need TEC,Config Can fail." logged, when the channel does not open.
    bool setUpTecMonitoring(std::int32_t slotCount);
    // "ON" or "OFF" in any letter case; other words only log. ON drops every slot's failure
    // records, creates a worker for the slot, writes the CSV header and starts every worker of
    // the slot's name; without the set-up step it starts nothing. A second ON without OFF asks
    // the running worker to start again, which throws WorkerAlreadyStarted to the caller. OFF
    // cancels and drops the slot's workers, but of two side by side it looks only at the first;
    // a worker in its pause ends at once, one in a pass after the pass. Call from one thread.
    void tecTempGet(std::int32_t slot, const std::string& state);
    // Creates the slot's worker "Slot<n>_TecTempThread", unstarted, and adds it to the worker
    // array; without the set-up step the worker is dropped. A worker holds the session while
    // its loop runs; one never started does not hold it, so the session (which holds the
    // worker) is never kept alive by a worker of its own that will never run.
    void creatTecTempThread(std::int32_t slot);
    // A snapshot of every slot's failure records (the slot plays no part).
    Value getTecRecord(std::int32_t slot);
    // One sampling pass of the slot's TEC controller at `messageId`, under the object lock.
    void tecTempRecord(std::int32_t slot, const Value& messageId);
    // One measurement on demand: the CSV line, or the line naming the missing answers. Nothing
    // is written, checked or recorded.
    std::string tecTempRecord2(std::int32_t slot);
    // Appends a time-stamped line to the slot's TEC monitor log.
    void saveTecMonitorLogInfo(std::int32_t slot, const std::string& text);
    // Appends the text as it is to the slot's TEC CSV file.
    void saveTecTemplog(std::int32_t slot, const std::string& text);

    // Barcode scan and scanner check
    bool barcodeSecurityCheck();
    Value scanBarcode();
    Value getDutSN(const std::string& unit);

    // Station info file, fixture log and board EEPROM
    std::string GetZtJsonInfo(const std::string& outerKey, const std::string& innerKey);
    // Appends the text and "\r\n" to the fixture log. A log that cannot be opened loses the
    // line quietly; a write that fails once it is open logs "save datalogger exception !".
    void saveSamplelog(const std::string& text);
    Value getFixtureIDFromEEPROMWithTimeout(std::int64_t timeoutMs);

    // Properties: a getter and a setter of the same name each. A getter gives a copy and a
    // setter replaces the whole value, under the property's lock (tecRecordArr: the records'
    // lock) held for that alone: callable from any thread at any time, never waiting for a TEC
    // pass.

    // The controller board's client, set by connectWithIPAddress. Each call to the controller
    // takes the client set at that moment, so a client set during a tray move serves the move's
    // later calls. A CAN operation, a TEC pass and an on-demand reading take it once when they
    // start and use that one to their end.
    std::shared_ptr<RpcClient> fixtureControlClient() const;
    void fixtureControlClient(std::shared_ptr<RpcClient> client);
    // A thread of the host's: nil until the host sets one, never used by the library, which only
    // holds it (the last reference to a joinable std::thread must not go with the session).
    std::shared_ptr<std::thread> threadReset() const;
    void threadReset(std::shared_ptr<std::thread> thread);
    // The topology's "identifier": prefixes log lines, and names the slots' TEC files and their
    // folder's group. A TEC pass reads it once when it starts.
    Value identifier() const;
    void identifier(Value identifier);
    // The topology as given to initWithIP; getDutSN reads its "ScanSN".
    Value toPology() const;
    void toPology(Value topology);
    // Kept for the host, never read by the library. The TEC set-up step sets tecTempLogPath "".
    std::string fixtureId() const;
    void fixtureId(std::string fixtureId);
    std::string tecTempLogPath() const;
    void tecTempLogPath(std::string path);
    std::string tecVersion() const;
    void tecVersion(std::string version);

    // The per-slot TEC tables, arrays indexed by slot - 1, nil until the TEC set-up step: the
    // test step running in each slot (the CSV lines' last column), whether the slot has warmed
    // up ("YES"; set a slot's entry to "NO" to ask for a warm-up), and the warm-up passes made.
    // A worker reads and writes them one entry at a time under the tables' lock. A host's get and
    // set are two steps: an entry a worker writes between them (the end of a warm-up sets the
    // slot's flag to "YES" and its count to 0) is overwritten by the set.
    Value tecRecordItemNameArray() const;
    void tecRecordItemNameArray(Value names);
    Value tecTempStableFlag() const;
    void tecTempStableFlag(Value flags);
    Value tecTempTimes() const;
    void tecTempTimes(Value passes);
    // Every slot's failure records, under the records' own lock; getTecRecord gives the same
    // copy, but always an array.
    Value tecRecordArr() const;
    void tecRecordArr(Value records);

    // The session's private state, defined inside the library.
    class Private;

private:
    explicit FixtureControl(Platform platform);
    void log(std::string_view line) const;
    // A call through the controller's client; with no client, no reply and no error.
    Value call(std::string_view method, const Value& args = Value::array(), const Value& kwargs = nullptr,
               RpcErrorSlot error = nullptr);

    std::unique_ptr<Private> d_;
};

}  // namespace kelvane
