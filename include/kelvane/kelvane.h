/*
 * libKelvane: drive one test fixture from plain C.
 *
 * Create a device from the controller board's IP address, call one operation per function,
 * destroy the device. Every operation is one or more synchronous JSON-RPC calls to the
 * controller (port KELVANE_CONTROLLER_PORT unless the device's options name another) on the
 * calling thread; tray moves block until their sensor confirms (up to 5 s for up/down, 15 s for
 * in/out) or the deadline passes. Each step is written to the process log (standard error,
 * unless the environment's KELVANE_LOG or the device's options send it elsewhere).
 *
 * Handles: a KelvaneHandle is an opaque token for a device the library keeps (a Kelvane object,
 * the C++ wrapper of <kelvane/Kelvane.hpp>); it is not an address. createKelvaneDev returns a
 * new handle; destroyKelvaneDev releases it. A NULL handle, a destroyed handle and any value the
 * library did not hand out give the results of a device without a session (NULL, 0, false) and
 * make no RPC; no handle value is handed out twice. The library takes no lock around the
 * fixture: the host serialises calls that move it; different handles may be used from
 * different threads at once.
 *
 * Destroying a device while other threads are inside calls on it (a station aborting a run)
 * is safe. The calls under way end early: each RPC they wait for or start fails at once with
 * the "RPC client closed" error (code -32102), so each call returns what its function gives
 * when the controller does not answer (NULL for a read, "RPC client closed (code -32102)" for
 * setIO, 0 or false), and a tray move already polling its sensor stops at its next step and
 * returns its timeout text (the one ending in "！"). The device and its connection are freed
 * when the last of those calls returns. Calls that start after the destroy see a destroyed
 * handle.
 *
 * Texts returned by the operations (const char*): UTF-8, owned by the library, never freed by
 * the caller. A returned text belongs to the thread that called and stays valid until that
 * thread's next call into the library, also when the device is destroyed meanwhile; copy it
 * before then. NULL means the controller gave no reply (or the device has no session). A reply
 * that is not a text is returned as its printed form, as the process log shows it: a number as
 * "1", a list or dictionary in the old-style property-list layout over several lines, texts in
 * it quoted unless they are ASCII letters and digits ([1, "a b"] as "(\n    1,\n    \"a b\"\n)",
 * {"state": "in_done"} as "{\n    state = \"in_done\";\n}"). A text reply holding zero bytes is
 * returned whole, each zero byte replaced by U+FFFD (the bytes EF BF BD): the library judges a
 * reply on its whole text (a "done" after a zero byte counts), and the host sees that same text
 * rather than a C string cut short.
 *
 * A device whose controller could not be reached at creation has no session: getConnectFlag
 * gives 0 and every operation gives NULL, 0 or false without any RPC.
 *
 * No function raises: failures show only in the results described next to each function.
 */
#ifndef KELVANE_KELVANE_H
#define KELVANE_KELVANE_H

#include <kelvane/export.h>

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Every fixture controller listens for the library on this TCP port. */
#define KELVANE_CONTROLLER_PORT 7805

/* Opaque: a token for a device kept by the library; never dereferenced by the host. */
typedef struct KelvaneDevice* KelvaneHandle;

/* ---- Device ---------------------------------------------------------------------------- */

/* Connects to the fixture controller at ip (a text such as "10.0.1.20"), port
 * KELVANE_CONTROLLER_PORT, with no scanner check. Blocks until the controller answers its first
 * call or that call fails (a few seconds at most). Returns a new handle (NULL only when memory
 * runs out): when the controller did not answer, the handle has no session and getConnectFlag
 * gives 0. A NULL ip gives a handle with no session and makes no connection. The caller owns
 * the handle and releases it with destroyKelvaneDev. */
KELVANE_API KelvaneHandle createKelvaneDev(const char* ip);

/* Settings of one device, for createKelvaneDevWithOptions. Start from KELVANE_OPTIONS_INIT,
 * which sets `size` and leaves every other field 0 or NULL ("as createKelvaneDev does"), then
 * set the fields you need:
 *
 *     KelvaneOptions options = KELVANE_OPTIONS_INIT;
 *     options.port = 7806;
 *     options.traceFile = "/var/log/station/fixture3.trace";
 *     KelvaneHandle fixture = createKelvaneDevWithOptions("10.0.1.20", &options);
 *
 * Later versions of this header only add fields at the end, and `size` tells the library which
 * fields the host knows. Without options, the environment's KELVANE_TRACE, KELVANE_TRACE_MAX_MB
 * and KELVANE_LOG decide the trace and the log, as for createKelvaneDev. */
typedef struct KelvaneOptions {
    /* sizeof(KelvaneOptions) as the host was built; KELVANE_OPTIONS_INIT sets it. */
    size_t size;
    /* The controller's TCP port, 1 to 65535; 0: KELVANE_CONTROLLER_PORT. */
    int port;
    /* How long a call waits for its reply when the operation sets no wait of its own, in ms
     * (setting IO lines and the CAN exchanges of TEC readings set theirs); 0 or less: 3000. */
    int callTimeoutMs;
    /* The file every controller call of this device is traced to, one JSON line per call, shared
     * with other devices tracing to the same path (see docs/trace.md); "": no trace; NULL: the
     * environment's KELVANE_TRACE if set, else no trace. */
    const char* traceFile;
    /* traceFile's size limit in MiB (the file is moved to "<file>.1" when it would pass it);
     * 0: KELVANE_TRACE_MAX_MB if set, else 64. */
    size_t traceMaxMB;
    /* Where this device's process log goes: "stderr", "off" (nowhere) or a file path to append
     * to; NULL: the process's log, which KELVANE_LOG routes (standard error when unset). */
    const char* log;
} KelvaneOptions;

#define KELVANE_OPTIONS_INIT \
    { sizeof(KelvaneOptions), 0, 0, NULL, 0, NULL }

/* As createKelvaneDev, with the settings in `options`; NULL options are createKelvaneDev itself.
 * A struct whose size is smaller than this header's (a host built against an older header) is
 * read only up to that size, the fields beyond it taking their defaults; a larger one (a newer
 * header) is read up to the fields this library knows and the rest is ignored. A size smaller
 * than the size field, or a port outside 0 to 65535, gives a handle with no session without
 * connecting, as a NULL ip does. `options` and its texts are only read during the call. */
KELVANE_API KelvaneHandle createKelvaneDevWithOptions(const char* ip, const KelvaneOptions* options);

/* Releases the device and its connection; returns at once. Calls other threads have under way
 * on it end early (see "Destroying a device" above) and the device is freed when the last of
 * them returns. Afterwards the handle gives the results of a device without a session; texts
 * it returned stay valid as described above. NULL, a handle destroyed before (a second
 * destroy) and an unknown handle are ignored. */
KELVANE_API void destroyKelvaneDev(KelvaneHandle handle);

/* 1 when the device has a live session with its controller, 0 when creation could not reach
 * the controller (and for a NULL or destroyed handle). */
KELVANE_API int getConnectFlag(KelvaneHandle handle);

/* Initialises the fixture ("vantrel.fixture_init"): true when the controller's reply holds
 * "done"; false on any other reply, no reply, or no session. */
KELVANE_API bool initialFixture(KelvaneHandle handle);

/* ---- Sensors (returned texts: library-owned, valid until this thread's next call) ------- */

/* The four tray position sensors as "IN;OUT;UP;DOWN" integers, e.g. "0;1;1;0" (a sensor the
 * controller did not answer reads 0). NULL only without a session. */
KELVANE_API const char* checkPositionSensor(KelvaneHandle handle);

/* The DUT presence sensor's reply as the controller gave it, e.g. "dut_sensor_on";
 * NULL when there was no reply or no session. */
KELVANE_API const char* checkDUTSensor(KelvaneHandle handle);

/* ---- Tray motion and lock (returned texts: library-owned, valid until this thread's next
 * call; NULL when the move call got no reply, or without a session) -------------------------
 *
 * A move either is refused before moving (a text saying why, e.g. "Please UP first!"),
 * returns the controller's reply when that is not the move's acknowledgement, or polls its
 * target sensor and returns the success text or a text ending in a full-width "！" when the
 * sensor did not confirm in time. */

/* Raises the tray; no precondition. "UP OK" on success. */
KELVANE_API const char* trayUp(KelvaneHandle handle);

/* Lowers the tray; needs the tray IN and a DUT present. "DOWN OK" on success;
 * "Please IN first!" or "Can not down,Because DUT state is not right!" when refused. */
KELVANE_API const char* trayDown(KelvaneHandle handle);

/* Moves the tray in; needs UP and neither IN nor DOWN. "IN OK" on success; "Please UP first!"
 * or "Current state is IN already!" when refused. */
KELVANE_API const char* trayIn(KelvaneHandle handle);

/* Moves the tray out; needs neither OUT nor DOWN. "OUT OK" on success; "Current state is OUT
 * already!" or "Please UP first!" when refused. */
KELVANE_API const char* trayOut(KelvaneHandle handle);

/* Clamps ("on") or releases ("off") the magnet lock; returns the controller's reply (it holds
 * "done" on success). Any other state, compared case-sensitively, and NULL give
 * "Unknown state!" without an RPC. state is only read during the call. */
KELVANE_API const char* fixtureLock(KelvaneHandle handle, const char* state);

/* Puts the fixture's IO lines into their initial state; returns the controller's reply
 * untested (it holds "done" on success). */
KELVANE_API const char* fixtureInit(KelvaneHandle handle);

/* ---- Fans and IO lines ------------------------------------------------------------------ */

/* Sets fan `fan` to `speed`: 1 when the controller's reply holds "done", else 0. */
KELVANE_API int setFanSpeed(KelvaneHandle handle, int fan, int speed);

/* Fan `fan`'s speed as the controller's reply text (not parsed); "(null)" when the controller
 * gave no reply; NULL without a session. Library-owned, valid until this thread's next call. */
KELVANE_API const char* getFanSpeed(KelvaneHandle handle, int fan);

/* Sets IO line `line` to `state`. Returns the controller's reply when it holds "done", else
 * the error text of the failed call, else "Fail"; NULL without a session. Library-owned,
 * valid until this thread's next call. */
KELVANE_API const char* setIO(KelvaneHandle handle, int line, int state);

/* ---- TEC controllers --------------------------------------------------------------------- */

/* One on-demand reading of slot `slot`'s TEC controller (slots count from 1; its CAN message id
 * is slot + 2079) over the fixture's CAN bus: "get tec temp:1" to "get tec temp:4" and
 * "get tec power", one after the other, each sent as frames ("can.send") and its answer collected
 * ("can.recv"). Blocks for those five exchanges: each takes one round trip or, when the
 * controller does not answer, about 5 s, so a silent slot takes about 25 s. Writes no CSV line,
 * makes no temperature check and changes no warm-up state; the frames received are logged to
 * the slot's TEC monitor log in the station's per-slot log folder when that folder exists.
 * Returns the reading as one CSV line, the local time first:
 *     "MM/dd/yyyy HH:mm:ss.SSS,s1,s2,s3,s4,pwm,current,<item name>\r\n"
 * e.g. "11/22/2026 21:30:05.123,25.31,25.30,25.32,25.29,-35.20,1.25,(null)\r\n": the four
 * sensors in degrees Celsius, the PWM in percent and the current in amperes, two decimals each
 * (an answer that does not read as a number gives 0.00), then the name of the test step running
 * in the slot, which a device of this interface never has ("(null)"). When any of the five answers is missing or
 * empty, the line is instead
 *     "MM/dd/yyyy HH:mm:ss.SSS,<answer 1>,<answer 2>,<answer 3>,<answer 4>,<power answer>"
 *     " get null value.\r\n"
 * (one line) with the answers as they came ("(null)" for a missing one, nothing for an empty
 * one; an answer may itself hold commas). NULL without a session and for a NULL, destroyed or
 * unknown handle. Library-owned, valid until this thread's next call. */
KELVANE_API const char* tecTempRecord(KelvaneHandle handle, int slot);

/* ---- Text helpers (no device) ----------------------------------------------------------- */

/* Decodes hex text two characters at a time ("414243" gives "ABC"); a trailing odd character
 * is ignored and the result ends at the first zero byte. Returns a new zero-terminated buffer
 * allocated with malloc: the CALLER frees it with free(). NULL for a NULL or empty hex text
 * (or when memory runs out). */
KELVANE_API char* stringFromHexString(const char* hex);

/* True when the whole text is one decimal floating-point number ("12", "-0.5", "1e-3",
 * ".5"), optionally surrounded by blanks, with nothing else. "inf", "nan", hex numbers and
 * NULL give false. */
KELVANE_API bool isPureFloat(const char* text);

#ifdef __cplusplus
}
#endif

#endif /* KELVANE_KELVANE_H */
