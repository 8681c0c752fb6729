// Small helpers shared by the tests: waiting for another thread, the log
// lines a block writes, and the archive bytes of an object.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "foundation/NSData.h"
#include "foundation/platform/Platform.h"
#include "storage/NSArchiver.h"
#include "tests/support/LogCapture.h"

namespace vt_test {

// Polls until `done` holds or 5 seconds have passed; the tests' stand-in
// for a join, which the thread model doesn't have.
template <class F>
bool waitUntil(F done) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        vtSleepMilliseconds(1);
    }
    return true;
}

// Sets an environment variable of this process, or removes it (nullptr).
inline void setEnvironment(const char* name, const char* value) {
#if defined(_WIN32)
    // The Windows runtime's setenv: an empty value removes the variable.
    _putenv_s(name, value ? value : "");
#else
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
#endif
}

// The bytes that encodeObject: writes for an object.
inline std::string archiveBytes(NSObject* object) {
    NSMutableData* data = static_cast<NSMutableData*>(NSMutableData::alloc()->init());
    NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(data);
    archiver->encodeObject_(object);
    archiver->release();
    void* bytes = data->bytes();
    std::string out(static_cast<char*>(bytes), data->length());
    std::free(bytes);
    data->release();
    return out;
}

}  // namespace vt_test
