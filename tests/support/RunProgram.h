// Running built programs from tests, as operators and scripts run them:
// a command line through the shell, standard input from a string, and
// standard output, standard error and the exit status collected.
#pragma once

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/TempDir.h"

namespace vt_test {

struct ProgramResult {
    int status = -1;  // the exit status; -1 when the program did not exit normally
    std::string out;
    std::string err;
};

inline std::string quoteShell(const std::string& s) {
    std::string quoted = "'";
    for (char c : s) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Runs commandLine through the shell with `input` on standard input.
inline ProgramResult runProgram(const std::string& commandLine, const std::string& input = "") {
    TempDir scratch("vt-run");
    writeFile(scratch / "in", input);
    std::string command = "(" + commandLine + ") < " + quoteShell(scratch / "in") + " > " +
                          quoteShell(scratch / "out") + " 2> " + quoteShell(scratch / "err");
    int status = std::system(command.c_str());
    ProgramResult result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = readFile(scratch / "out");
    result.err = readFile(scratch / "err");
    return result;
}

}  // namespace vt_test
