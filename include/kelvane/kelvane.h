/*
 * libKelvane: drive one test fixture from plain C.
 *
 * Create a device from the controller board's IP address, call one operation per function,
 * destroy the device. Every operation is one or more synchronous JSON-RPC calls to the
 * controller (port 7805) on the calling thread; tray moves block until their sensor confirms
 * (up to 5 s for up/down, 15 s for in/out) or the deadline passes. Each step is written to the
 * process log (standard error).
 *
 * Handles: a KelvaneHandle is an opaque pointer to the library's Kelvane object (the C++
 * wrapper of <kelvane/Kelvane.hpp>). createKelvaneDev never returns NULL; pass the handle back
 * to destroyKelvaneDev exactly once. Other functions do not check their handle: passing NULL or
 * a destroyed handle to them is undefined. The library takes no lock: the host serialises calls
 * that move the fixture; different handles may be used from different threads at once.
 *
 * Texts returned by the operations (const char*): UTF-8, owned by the library, never freed by
 * the caller. A returned text stays valid until the same thread's next call into the library;
 * copy it before then. NULL means the controller gave no reply (or the device has no session).
 * A reply that is not a text is returned as its printed form (a number as "1", a list or
 * dictionary as compact JSON).
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

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque: points at a Kelvane object; never dereferenced by the host. */
typedef struct KelvaneDevice* KelvaneHandle;

/* ---- Device ---------------------------------------------------------------------------- */

/* Connects to the fixture controller at ip (a text such as "10.0.1.20"), port 7805, with no
 * scanner check. Blocks until the controller answers its first call or that call fails
 * (a few seconds at most). Always returns a new handle: when the controller did not answer, the
 * handle has no session and getConnectFlag gives 0. A NULL ip gives a handle with no session
 * and makes no connection. The caller owns the handle and releases it with destroyKelvaneDev. */
KELVANE_API KelvaneHandle createKelvaneDev(const char* ip);

/* Releases the device and its connection. NULL is ignored. The handle and every text it
 * returned are invalid afterwards. */
KELVANE_API void destroyKelvaneDev(KelvaneHandle handle);

/* 1 when the device has a live session with its controller, 0 when creation could not reach
 * the controller. */
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
