/* Reads the DUT sensor through the C interface, from a program built with pkg-config alone;
 * argv[1] is the controller's port. */
#include <kelvane/kelvane.h>
#include <kelvane/version.h>

#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
    KelvaneOptions options = KELVANE_OPTIONS_INIT;
    options.port = argc > 1 ? atoi(argv[1]) : 0;
    KelvaneHandle fixture = createKelvaneDevWithOptions("127.0.0.1", &options);
    const char* dut = getConnectFlag(fixture) == 1 ? checkDUTSensor(fixture) : NULL;
    printf("libKelvane %s dut %s\n", KELVANE_VERSION_STRING, dut ? dut : "(no reply)");
    destroyKelvaneDev(fixture);
    return dut ? 0 : 1;
}
