// The client's entry point.
#include <cstdio>

#include "app/VTClient.h"
#include "toolkit/NSNative.h"

int main() {
    // Log lines reach a pipe or a file as they happen.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return VTClientMain(NSInstanceHandle());
}
