/*
 * kelvane-fixture-cycle: drives one full fixture cycle through the C interface and prints each
 * step with its result and time: connect, initialise, tray in, DUT check, down, lock, fan,
 * IO line, a TEC reading of slots 1 and 2, unlock, up, out. Stops at the first step that fails.
 *
 * Exit status: 0 cycle done, 1 a step failed, 2 the controller cannot be reached, 64 usage.
 * The library's step-by-step log (standard error) is hidden unless --log is given.
 */
#define _POSIX_C_SOURCE 200809L

#include <kelvane/kelvane.h>

#include <fcntl.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

enum { exitDone = 0, exitStepFailed = 1, exitUnreachable = 2, exitUsage = 64 };

/* The values the cycle sets; any the controller accepts would do. */
enum { cycleFan = 1, cycleFanSpeed = 60, cycleIoLine = 10, cycleIoState = 1 };

typedef struct {
    char text[256]; /* what the library answered, as printed */
    bool ok;
} StepResult;

typedef StepResult (*StepFunction)(KelvaneHandle device);

typedef struct {
    const char* name;
    StepFunction run;
} Step;

static StepResult fromText(const char* text, bool ok) {
    StepResult result;
    snprintf(result.text, sizeof result.text, "%s", text ? text : "(no reply)");
    result.ok = text != NULL && ok;
    return result;
}

static StepResult exactly(const char* text, const char* expected) {
    return fromText(text, text && strcmp(text, expected) == 0);
}

static StepResult holdingDone(const char* text) { return fromText(text, text && strstr(text, "done") != NULL); }

static StepResult initialise(KelvaneHandle device) {
    bool done = initialFixture(device);
    return fromText(done ? "true" : "false", done);
}

static StepResult initialiseIo(KelvaneHandle device) { return holdingDone(fixtureInit(device)); }
static StepResult moveIn(KelvaneHandle device) { return exactly(trayIn(device), "IN OK"); }
static StepResult checkDut(KelvaneHandle device) { return exactly(checkDUTSensor(device), "dut_sensor_on"); }
static StepResult moveDown(KelvaneHandle device) { return exactly(trayDown(device), "DOWN OK"); }
static StepResult lock(KelvaneHandle device) { return holdingDone(fixtureLock(device, "on")); }

static StepResult setFan(KelvaneHandle device) {
    bool done = setFanSpeed(device, cycleFan, cycleFanSpeed) == 1;
    return fromText(done ? "1" : "0", done);
}

static StepResult readFan(KelvaneHandle device) {
    const char* speed = getFanSpeed(device, cycleFan);
    /* A missing reply comes back printed, not as NULL. */
    return fromText(speed, speed && strcmp(speed, "(null)") != 0);
}

static StepResult setIoLine(KelvaneHandle device) { return holdingDone(setIO(device, cycleIoLine, cycleIoState)); }

/* Shows the reading without its time stamp and line end: sensors, PWM, current, test step. */
static StepResult readTec(KelvaneHandle device, int slot) {
    static const char missingMark[] = " get null value.\r\n";
    const char* line = tecTempRecord(device, slot);
    if (!line) return fromText(NULL, false);
    size_t length = strlen(line);
    bool missing =
        length >= sizeof missingMark - 1 && strcmp(line + length - (sizeof missingMark - 1), missingMark) == 0;
    const char* fields = strchr(line, ',');
    StepResult result = fromText(fields && !missing ? fields + 1 : line, !missing);
    result.text[strcspn(result.text, "\r\n")] = '\0';
    return result;
}

static StepResult readTecSlot1(KelvaneHandle device) { return readTec(device, 1); }
static StepResult readTecSlot2(KelvaneHandle device) { return readTec(device, 2); }

static StepResult unlock(KelvaneHandle device) { return holdingDone(fixtureLock(device, "off")); }
static StepResult moveUp(KelvaneHandle device) { return exactly(trayUp(device), "UP OK"); }
static StepResult moveOut(KelvaneHandle device) { return exactly(trayOut(device), "OUT OK"); }

static const Step cycle[] = {
    {"initialFixture", initialise},
    {"fixtureInit", initialiseIo},
    {"trayIn", moveIn},
    {"checkDUTSensor", checkDut},
    {"trayDown", moveDown},
    {"fixtureLock on", lock},
    {"setFanSpeed", setFan},
    {"getFanSpeed", readFan},
    {"setIO", setIoLine},
    {"tecTempRecord 1", readTecSlot1},
    {"tecTempRecord 2", readTecSlot2},
    {"fixtureLock off", unlock},
    {"trayUp", moveUp},
    {"trayOut", moveOut},
};

static double secondsNow(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

static void printStep(const char* name, const StepResult* result, double seconds) {
    printf("  %-16s %-44s %6.2f s  %s\n", name, result->text, seconds, result->ok ? "ok" : "FAILED");
    fflush(stdout);
}

/* Standard error carries the library's log; hide it unless asked. */
static void hideLibraryLog(void) {
    int null = open("/dev/null", O_WRONLY);
    if (null < 0) return;
    dup2(null, STDERR_FILENO);
    close(null);
}

static void usage(FILE* out) {
    fprintf(out,
            "Usage: kelvane-fixture-cycle [--ip ADDRESS] [--log]\n"
            "Drives one fixture cycle through the C interface (controller port %d):\n"
            "connect, initialise, tray in, DUT check, down, lock, fan, IO line,\n"
            "TEC reading of slots 1 and 2, unlock, up, out.\n"
            "  --ip ADDRESS  the fixture controller (default 127.0.0.1)\n"
            "  --log         show the library's step-by-step log on standard error\n"
            "Exit status: 0 cycle done, 1 a step failed, 2 the controller cannot be reached.\n",
            KELVANE_CONTROLLER_PORT);
}

static int runCycle(const char* ip) {
    printf("Fixture cycle on %s:%d\n", ip, KELVANE_CONTROLLER_PORT);
    double cycleStart = secondsNow();
    KelvaneHandle device = createKelvaneDev(ip);
    StepResult connected = fromText(getConnectFlag(device) == 1 ? "1" : "0", getConnectFlag(device) == 1);
    printStep("connect", &connected, secondsNow() - cycleStart);
    if (!connected.ok) {
        destroyKelvaneDev(device);
        printf("Cycle FAILED: the fixture controller at %s:%d cannot be reached\n", ip, KELVANE_CONTROLLER_PORT);
        return exitUnreachable;
    }
    int status = exitDone;
    for (size_t i = 0; i < sizeof cycle / sizeof cycle[0]; ++i) {
        double stepStart = secondsNow();
        StepResult result = cycle[i].run(device);
        printStep(cycle[i].name, &result, secondsNow() - stepStart);
        if (!result.ok) {
            printf("Cycle FAILED at %s\n", cycle[i].name);
            status = exitStepFailed;
            break;
        }
    }
    destroyKelvaneDev(device);
    if (status == exitDone) printf("Cycle done in %.2f s\n", secondsNow() - cycleStart);
    return status;
}

int main(int argc, char** argv) {
    const char* ip = "127.0.0.1";
    bool showLog = false;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--ip") == 0 && i + 1 < argc) {
            ip = argv[++i];
        } else if (strcmp(argv[i], "--log") == 0) {
            showLog = true;
        } else if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            usage(stdout);
            return exitDone;
        } else {
            fprintf(stderr, "kelvane-fixture-cycle: unknown argument '%s'\n", argv[i]);
            usage(stderr);
            return exitUsage;
        }
    }
    if (!showLog) hideLibraryLog();
    return runCycle(ip);
}
