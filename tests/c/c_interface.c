/*
 * Every export of <kelvane/kelvane.h>, called from a C program the way a station host calls
 * them: against nothing (an unreachable controller), against kelvane-sim on 127.0.0.1 at the
 * controller port
 * through a whole cycle, and after the controller has died. argv[1] is the simulator.
 */
#define _POSIX_C_SOURCE 200809L

#include <kelvane/kelvane.h>

#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

static int passed;
static int failed;

static void check(bool ok, const char* what) {
    passed += ok;
    failed += !ok;
    if (!ok) printf("FAILED: %s\n", what);
}

/* expected NULL means the result must be NULL. */
static void checkText(const char* got, const char* expected, const char* what) {
    bool same = expected ? got && strcmp(got, expected) == 0 : got == NULL;
    if (!same)
        printf("  got \"%s\", expected \"%s\"\n", got ? got : "NULL", expected ? expected : "NULL");
    check(same, what);
}

static pid_t simulator = -1;

#define DIGITS(number) #number
#define AS_TEXT(macro) DIGITS(macro)
static const char simulatorEndpoint[] = "tcp://127.0.0.1:" AS_TEXT(KELVANE_CONTROLLER_PORT);

/* True once kelvane-sim says it listens on the C interface's fixed port. */
static bool startSimulator(const char* path) {
    int out[2];
    if (pipe(out) != 0 || (simulator = fork()) < 0) return false;
    if (simulator == 0) {
#ifdef __linux__
        prctl(PR_SET_PDEATHSIG, SIGTERM);
#endif
        dup2(out[1], STDOUT_FILENO);
        close(out[0]);
        close(out[1]);
        execl(path, path, "--bind", simulatorEndpoint, "--quiet", (char*)NULL);
        _exit(127);
    }
    close(out[1]);
    char line[256] = "";
    FILE* said = fdopen(out[0], "r");
    if (!said || !fgets(line, sizeof line, said)) line[0] = '\0';
    if (said) fclose(said);
    if (strncmp(line, "listening on ", 13) == 0) return true;
    printf("kelvane-sim did not start on %s (port busy?); it printed \"%s\"\n", simulatorEndpoint,
           line);
    return false;
}

static void killSimulator(void) {
    if (simulator <= 0) return;
    kill(simulator, SIGKILL);
    waitpid(simulator, NULL, 0);
    simulator = -1;
}

static void checkTextHelpers(void) {
    char* text = stringFromHexString("41424");
    checkText(text, "AB", "stringFromHexString decodes pairs into a buffer the caller frees");
    free(text);
    check(stringFromHexString("") == NULL && stringFromHexString(NULL) == NULL,
          "stringFromHexString of an empty text or NULL is NULL");
    check(isPureFloat("-2e3") && !isPureFloat("1.5V") && !isPureFloat(NULL), "isPureFloat");
}

/* A device without a session answers everything with its null result and never crashes. */
static void checkDeviceWithoutSession(const char* ip, const char* what) {
    KelvaneHandle device = createKelvaneDev(ip);
    check(device != NULL && getConnectFlag(device) == 0 && !initialFixture(device) &&
              checkPositionSensor(device) == NULL && checkDUTSensor(device) == NULL &&
              trayUp(device) == NULL && trayDown(device) == NULL && trayIn(device) == NULL &&
              trayOut(device) == NULL && fixtureInit(device) == NULL &&
              fixtureLock(device, "on") == NULL && setIO(device, 10, 1) == NULL &&
              setFanSpeed(device, 1, 50) == 0 && getFanSpeed(device, 1) == NULL,
          what);
    destroyKelvaneDev(device);
}

static void checkCycle(KelvaneHandle device) {
    check(getConnectFlag(device) == 1 && initialFixture(device), "connected; initialFixture confirmed");
    const char* init = fixtureInit(device);
    check(init && strstr(init, "done"), "fixtureInit returns the controller's done");
    checkText(checkPositionSensor(device), "0;1;1;0", "the tray starts OUT and UP");
    checkText(checkDUTSensor(device), "dut_sensor_on", "checkDUTSensor returns the reply as given");

    checkText(trayDown(device), "Please IN first!", "trayDown before IN is refused");
    checkText(trayIn(device), "IN OK", "trayIn");
    checkText(trayDown(device), "DOWN OK", "trayDown");

    checkText(fixtureLock(device, "on"), "done", "fixtureLock on");
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
    checkText(getFanSpeed(device, 1), "(null)", "getFanSpeed prints a missing reply");
    const char* io = setIO(device, 10, 1);
    check(io != NULL && strstr(io, "done") == NULL, "setIO without a reply gives a failure text");
    checkText(checkPositionSensor(device), "0;0;0;0", "unanswered position reads count as 0");
    check(checkDUTSensor(device) == NULL && setFanSpeed(device, 1, 50) == 0 && !initialFixture(device),
          "no reply: checkDUTSensor NULL, setFanSpeed 0, initialFixture false");
}

int main(int argc, char** argv) {
    checkTextHelpers();
    checkDeviceWithoutSession("127.0.0.1", "unreachable controller: a handle giving 0/NULL/false");
    checkDeviceWithoutSession(NULL, "NULL address: a handle giving 0/NULL/false");
    destroyKelvaneDev(NULL);

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
