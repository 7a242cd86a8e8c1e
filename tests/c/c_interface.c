/*
 * Every export of <kelvane/kelvane.h>, called from a C program the way a station host calls
 * them: against nothing (an unreachable controller), against kelvane-sim on 127.0.0.1:7805
 * through a whole cycle, and after the controller has died. argv[1] is the simulator.
 */
#define _POSIX_C_SOURCE 200809L

#include <kelvane/kelvane.h>

#include <poll.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

static int passed;
static int failed;

static void check(bool ok, const char* what) {
    if (ok) {
        ++passed;
    } else {
        ++failed;
        printf("FAILED: %s\n", what);
    }
}

/* expected NULL means the result must be NULL. */
static void checkText(const char* got, const char* expected, const char* what) {
    bool same = expected ? got && strcmp(got, expected) == 0 : got == NULL;
    if (!same)
        printf("  got \"%s\", expected \"%s\"\n", got ? got : "NULL", expected ? expected : "NULL");
    check(same, what);
}

static void checkHolds(const char* got, const char* part, const char* what) {
    bool holds = got && strstr(got, part);
    if (!holds) printf("  got \"%s\", expected it to hold \"%s\"\n", got ? got : "NULL", part);
    check(holds, what);
}

/* ---- the simulator on the C interface's fixed port ---- */

static pid_t simulator = -1;

static bool startSimulator(const char* path) {
    int out[2];
    if (pipe(out) != 0) return false;
    simulator = fork();
    if (simulator < 0) return false;
    if (simulator == 0) {
#ifdef __linux__
        prctl(PR_SET_PDEATHSIG, SIGTERM);
#endif
        dup2(out[1], STDOUT_FILENO);
        close(out[0]);
        close(out[1]);
        execl(path, path, "--bind", "tcp://127.0.0.1:7805", "--quiet", (char*)NULL);
        _exit(127);
    }
    close(out[1]);
    char line[256] = {0};
    size_t length = 0;
    struct pollfd readable = {out[0], POLLIN, 0};
    while (length < sizeof line - 1 && !strchr(line, '\n') && poll(&readable, 1, 5000) > 0) {
        ssize_t got = read(out[0], line + length, sizeof line - 1 - length);
        if (got <= 0) break;
        length += (size_t)got;
    }
    close(out[0]);
    if (strncmp(line, "listening on ", 13) == 0) return true;
    printf("kelvane-sim did not start on 127.0.0.1:7805 (port busy?); it printed \"%s\"\n", line);
    return false;
}

static void killSimulator(void) {
    if (simulator <= 0) return;
    kill(simulator, SIGKILL);
    waitpid(simulator, NULL, 0);
    simulator = -1;
}

/* ---- the checks ---- */

static void checkTextHelpers(void) {
    char* text = stringFromHexString("414243");
    checkText(text, "ABC", "stringFromHexString decodes pairs");
    free(text);
    text = stringFromHexString("414");
    checkText(text, "A", "stringFromHexString ignores a trailing odd digit");
    free(text);
    text = stringFromHexString("41004243");
    checkText(text, "A", "stringFromHexString ends at the first zero byte");
    free(text);
    check(stringFromHexString("") == NULL, "stringFromHexString of an empty text is NULL");
    check(stringFromHexString(NULL) == NULL, "stringFromHexString of NULL is NULL");

    check(isPureFloat("1.5") && isPureFloat("-2e3") && isPureFloat(".5") && isPureFloat("42"),
          "isPureFloat accepts whole numbers");
    check(!isPureFloat("1.5V") && !isPureFloat("1 2") && !isPureFloat("") && !isPureFloat("nan"),
          "isPureFloat refuses texts with anything besides one number");
    check(!isPureFloat(NULL), "isPureFloat(NULL) is false");
}

/* A device without a session answers everything with its null result and never crashes. */
static void checkDeviceWithoutSession(KelvaneHandle device, const char* which) {
    char what[160];
    snprintf(what, sizeof what, "%s: connect flag 0, NULL texts, 0, false", which);
    bool nulls = getConnectFlag(device) == 0 && !initialFixture(device) &&
                 checkPositionSensor(device) == NULL && checkDUTSensor(device) == NULL &&
                 trayUp(device) == NULL && trayDown(device) == NULL && trayIn(device) == NULL &&
                 trayOut(device) == NULL && fixtureInit(device) == NULL &&
                 fixtureLock(device, "on") == NULL && setIO(device, 10, 1) == NULL &&
                 setFanSpeed(device, 1, 50) == 0 && getFanSpeed(device, 1) == NULL;
    check(nulls, what);
}

static void checkWithoutController(void) {
    KelvaneHandle unreachable = createKelvaneDev("127.0.0.1");
    check(unreachable != NULL, "createKelvaneDev gives a handle even when nothing listens");
    checkDeviceWithoutSession(unreachable, "unreachable controller");
    destroyKelvaneDev(unreachable);

    KelvaneHandle noAddress = createKelvaneDev(NULL);
    check(noAddress != NULL, "createKelvaneDev(NULL) gives a handle");
    checkDeviceWithoutSession(noAddress, "NULL address");
    destroyKelvaneDev(noAddress);

    destroyKelvaneDev(NULL);
    check(true, "destroyKelvaneDev(NULL) is ignored");
}

static void checkCycle(KelvaneHandle device) {
    check(getConnectFlag(device) == 1, "connect flag 1 with a live controller");
    check(initialFixture(device), "initialFixture is confirmed");
    checkHolds(fixtureInit(device), "done", "fixtureInit returns the controller's done");
    checkText(checkPositionSensor(device), "0;1;1;0", "the tray starts OUT and UP");
    checkText(checkDUTSensor(device), "dut_sensor_on", "checkDUTSensor returns the reply as given");

    checkText(trayDown(device), "Please IN first!", "trayDown before IN is refused");
    checkText(trayIn(device), "IN OK", "trayIn");
    checkText(checkPositionSensor(device), "1;0;1;0", "the tray reads IN and UP");
    checkText(trayDown(device), "DOWN OK", "trayDown");
    checkText(trayOut(device), "Please UP first!", "trayOut while DOWN is refused");

    checkText(fixtureLock(device, "on"), "done", "fixtureLock on");
    checkText(fixtureLock(device, "ON"), "Unknown state!", "fixtureLock is case-sensitive");
    checkText(fixtureLock(device, NULL), "Unknown state!", "fixtureLock(NULL) is an unknown state");
    check(setFanSpeed(device, 1, 55) == 1, "setFanSpeed is confirmed");
    checkText(getFanSpeed(device, 1), "55", "getFanSpeed gives a numeric reply as its text");
    checkText(setIO(device, 10, 1), "done", "setIO");
    checkText(fixtureLock(device, "off"), "done", "fixtureLock off");

    checkText(trayUp(device), "UP OK", "trayUp");
    checkText(trayOut(device), "OUT OK", "trayOut");
}

/* The same handle after its controller died: failures, not crashes or hangs. */
static void checkAfterControllerDied(KelvaneHandle device) {
    checkText(trayUp(device), NULL, "a move without a reply returns NULL");
    checkText(checkDUTSensor(device), NULL, "a DUT read without a reply is NULL");
    checkText(checkPositionSensor(device), "0;0;0;0", "unanswered position reads count as 0");
    check(setFanSpeed(device, 1, 50) == 0, "setFanSpeed without a reply is 0");
    checkText(getFanSpeed(device, 1), "(null)", "getFanSpeed prints a missing reply");
    check(!initialFixture(device), "initialFixture without a reply is false");
    const char* io = setIO(device, 10, 1);
    check(io != NULL && strstr(io, "done") == NULL, "setIO without a reply gives a failure text");
}

int main(int argc, char** argv) {
    checkTextHelpers();
    checkWithoutController();

    if (argc < 2 || !startSimulator(argv[1])) {
        check(false, "kelvane-sim must run for the cycle checks (pass its path as argv[1])");
    } else {
        KelvaneHandle device = createKelvaneDev("127.0.0.1");
        checkCycle(device);
        killSimulator();
        checkAfterControllerDied(device);
        destroyKelvaneDev(device);
    }
    killSimulator();
    printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
