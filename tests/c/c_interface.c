/* <kelvane/kelvane.h> compiled as C, and the exports that need no controller called the way a
 * C host calls them. The cycle itself is kelvane-fixture-cycle's (fixture_cycle.sh). */
#include <kelvane/kelvane.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failed;

static void check(int ok, const char* what) {
    if (!ok) printf("FAILED: %s\n", what), ++failed;
}

int main(void) {
    char* text = stringFromHexString("41424");
    check(text && strcmp(text, "AB") == 0, "stringFromHexString decodes pairs into a buffer the caller frees");
    free(text);
    check(!stringFromHexString("") && !stringFromHexString(NULL), "stringFromHexString of an empty text or NULL");
    check(isPureFloat("-2e3") && !isPureFloat("1.5V") && !isPureFloat(NULL), "isPureFloat");

    KelvaneOptions options = KELVANE_OPTIONS_INIT;
    options.port = 70000;
    KelvaneHandle devices[] = {createKelvaneDev(NULL), createKelvaneDevWithOptions("127.0.0.1", &options)};
    for (int i = 0; i < 2; ++i) {
        check(devices[i] && !getConnectFlag(devices[i]) && !trayIn(devices[i]),
              i ? "a port past 65535 gives a handle without a session"
                : "a NULL address gives a handle without a session");
        destroyKelvaneDev(devices[i]);
    }
    printf("%d passed, %d failed\n", 5 - failed, failed);
    return failed != 0;
}
