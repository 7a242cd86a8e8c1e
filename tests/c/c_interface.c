/*
 * <kelvane/kelvane.h> compiled as C, and the exports that need no controller called the way a
 * C host calls them. The cycle itself is kelvane-fixture-cycle's (fixture_cycle.sh).
 */
#include <kelvane/kelvane.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failed;

static void check(int ok, const char* what) {
    failed += !ok;
    if (!ok) printf("FAILED: %s\n", what);
}

int main(void) {
    char* text = stringFromHexString("41424");
    check(text && strcmp(text, "AB") == 0, "stringFromHexString decodes pairs into a buffer the caller frees");
    free(text);
    check(stringFromHexString("") == NULL && stringFromHexString(NULL) == NULL,
          "stringFromHexString of an empty text or NULL is NULL");
    check(isPureFloat("-2e3") && !isPureFloat("1.5V") && !isPureFloat(NULL), "isPureFloat");

    KelvaneHandle device = createKelvaneDev(NULL);
    check(device != NULL && getConnectFlag(device) == 0 && trayIn(device) == NULL,
          "a NULL address gives a handle without a session");
    destroyKelvaneDev(device);
    KelvaneOptions options = KELVANE_OPTIONS_INIT;
    options.port = 70000;
    device = createKelvaneDevWithOptions("127.0.0.1", &options);
    check(device != NULL && getConnectFlag(device) == 0, "a port past 65535 gives a handle without a session");
    destroyKelvaneDev(device);
    printf("%d passed, %d failed\n", 4 - failed, failed);
    return failed != 0;
}
