// The tests' one log capture: what LOG (and anything else on standard
// output) writes while a block runs.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace vt_test {

// LOG doesn't flush, so the capture does before it reads.
template <class F>
std::string logOf(F&& f) {
    testing::internal::CaptureStdout();
    f();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

}  // namespace vt_test
