/* Reads the DUT sensor through the C interface, from a program built with pkg-config alone. */
#include <kelvane/kelvane.h>
#include <kelvane/version.h>

#include <stdio.h>

int main(void) {
    KelvaneHandle fixture = createKelvaneDev("127.0.0.1");
    const char* dut = getConnectFlag(fixture) == 1 ? checkDUTSensor(fixture) : NULL;
    printf("libKelvane %s dut %s\n", KELVANE_VERSION_STRING, dut ? dut : "(no reply)");
    destroyKelvaneDev(fixture);
    return dut ? 0 : 1;
}
