// Running built programs from tests, as operators and scripts run them:
// a command line through the shell, standard input from a string, and
// standard output, standard error and the exit status collected.
//
// In the Windows flavour the tests are Windows programs (under Wine) and
// there is no POSIX shell. There runProgram takes the simple command lines
// the tests write (words, 'single' or "double" quoted, and a closing
// "2>&1") and starts the program itself.
#pragma once

#include <stdlib.h>
#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <process.h>
#include <sys/stat.h>

#include <filesystem>
#include <system_error>
#include <vector>
#else
#include <sys/wait.h>
#include <unistd.h>
#endif

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

#if defined(_WIN32)
// The words of a command line as a POSIX shell splits it, for the quoting
// quoteShell writes: blanks separate, '...' and "..." group, and a
// backslash outside quotes takes the next character as it is.
inline std::vector<std::string> splitCommandLine(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    for (size_t i = 0; i < line.size(); i++) {
        char c = line[i];
        if (c == ' ' || c == '\t' || c == '\n') {
            if (inWord) words.push_back(word);
            word.clear();
            inWord = false;
            continue;
        }
        inWord = true;
        if (c == '\'' || c == '"') {
            size_t end = line.find(c, i + 1);
            if (end == std::string::npos) end = line.size();
            word += line.substr(i + 1, end - i - 1);
            i = end;
        } else if (c == '\\' && i + 1 < line.size()) {
            word += line[++i];
        } else {
            word += c;
        }
    }
    if (inWord) words.push_back(word);
    return words;
}

// One argument as the Windows runtime of the started program splits its
// command line again: in double quotes, backslashes doubled before a quote.
inline std::string quoteWindowsArgument(const std::string& argument) {
    std::string quoted = "\"";
    size_t backslashes = 0;
    for (char c : argument) {
        if (c == '\\') {
            backslashes++;
            continue;
        }
        quoted.append(c == '"' ? 2 * backslashes + 1 : backslashes, '\\');
        backslashes = 0;
        quoted += c;
    }
    quoted.append(2 * backslashes, '\\');
    return quoted + "\"";
}

// Starts the program of `words` with standard input, output and error on
// the given files, waits for it and answers its exit status (-1 if it
// could not be started).
inline int spawnWithFiles(const std::vector<std::string>& words, const std::string& in,
                          const std::string& out, const std::string& err, bool mergeErrors) {
    if (words.empty()) return -1;
    std::vector<std::string> quoted;
    for (const std::string& word : words) quoted.push_back(quoteWindowsArgument(word));
    std::vector<const char*> argv;
    for (const std::string& word : quoted) argv.push_back(word.c_str());
    argv.push_back(nullptr);
    std::fflush(stdout);
    std::fflush(stderr);
    int saved[3] = {_dup(0), _dup(1), _dup(2)};
    int files[3] = {
            _open(in.c_str(), _O_RDONLY | _O_BINARY),
            _open(out.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY, _S_IREAD | _S_IWRITE),
            _open(err.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY, _S_IREAD | _S_IWRITE)};
    intptr_t status = -1;
    if (files[0] >= 0 && files[1] >= 0 && files[2] >= 0) {
        _dup2(files[0], 0);
        _dup2(files[1], 1);
        _dup2(mergeErrors ? files[1] : files[2], 2);
        status = _spawnv(_P_WAIT, words[0].c_str(), argv.data());
    }
    for (int fd = 0; fd < 3; fd++) {
        _dup2(saved[fd], fd);
        _close(saved[fd]);
        if (files[fd] >= 0) _close(files[fd]);
    }
    return static_cast<int>(status);
}
#endif

// Runs commandLine through the shell with `input` on standard input.
inline ProgramResult runProgram(const std::string& commandLine, const std::string& input = "") {
    TempDir scratch("vt-run");
    writeFile(scratch / "in", input);
    ProgramResult result;
#if defined(_WIN32)
    std::vector<std::string> words = splitCommandLine(commandLine);
    bool merge = !words.empty() && words.back() == "2>&1";
    if (merge) words.pop_back();
    result.status = spawnWithFiles(words, scratch / "in", scratch / "out", scratch / "err", merge);
#else
    std::string command = "(" + commandLine + ") < " + quoteShell(scratch / "in") + " > " +
                          quoteShell(scratch / "out") + " 2> " + quoteShell(scratch / "err");
    int status = std::system(command.c_str());
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
    result.out = readFile(scratch / "out");
    result.err = readFile(scratch / "err");
    return result;
}

}  // namespace vt_test
