// Launching another program. There is no way to wait for it, read its
// status or stop it, and a failure to start isn't noticed.
#pragma once

#include <cstdint>

#include "NSObject.h"

class NSArray;

class NSTask : public NSObject {
    NS_DECLARE_CLASS(NSTask, NSObject)

public:
    // Starts `path` with the arguments' descriptions joined by one blank
    // (no quoting) as its parameter text, in the working directory, and
    // returns at once. Autoreleased.
    static NSTask* launchedTaskWithLaunchPath_arguments_(NSString* path, NSArray* arguments);
    // What the platform answered: ShellExecuteA's value on Win32, the
    // program's process id on POSIX (0 when nothing could be started).
    int64_t hInstance() { return _hInstance; }

protected:
    ~NSTask() override = default;

private:
    int64_t _hInstance = 0;
};
