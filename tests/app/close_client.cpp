// Closes the client as a person does: waits for its visible window of the
// given title (the login window) and sends it WM_CLOSE from outside, as
// the caption's close button does. Used by the client's tests, which run
// it next to the client under the same Wine session. Exit status 0 when a
// window was closed, 1 when none came within a minute.
#include "foundation/platform/Platform.h"
#include "tests/toolkit/NativeProbe.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    for (int tries = 0; tries < 600; tries++) {
        if (void* window = probeFindVisibleWindow(argv[1])) {
            probePost(window, kProbeClose, 0, 0);
            return 0;
        }
        vtSleepMilliseconds(100);
    }
    return 1;
}
