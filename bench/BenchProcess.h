// Programs and files for the benchmarks that start the system's own
// programs (the relay, vantor-admin) as processes.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace vt_bench {

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline std::string makeTempDir(const char* tag) {
    std::string pattern = std::string("/tmp/") + tag + "-XXXXXX";
    return mkdtemp(&pattern[0]) ? pattern : std::string();
}

// A program in the background with its output to a file.
inline pid_t spawn(const std::vector<std::string>& args, const std::string& logPath) {
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    pid_t pid = -1;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// SIGTERM, then SIGKILL after 10 s; waits for the end.
inline void stop(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    auto start = std::chrono::steady_clock::now();
    while (waitpid(pid, nullptr, WNOHANG) == 0) {
        if (secondsSince(start) > 10) kill(pid, SIGKILL);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// A shell command's standard output.
inline std::string run(const std::string& command) {
    std::string out;
    if (FILE* p = popen(command.c_str(), "r")) {
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, p)) > 0) out.append(buffer, n);
        pclose(p);
    }
    return out;
}

// A program of this build: $<variable>, else the path relative to the
// build directory (e.g. "relay/vantor-relay"), found from this program's
// place in bench/.
inline std::string builtProgram(const char* variable, const std::string& relative) {
    if (const char* path = getenv(variable)) return path;
    char self[4096];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    std::string dir = n > 0 ? std::string(self, static_cast<size_t>(n)) : std::string("./x");
    dir = dir.substr(0, dir.rfind('/'));
    return dir + "/../" + relative;
}

// User plus system CPU seconds a process has used so far (Linux).
inline double cpuSecondsOf(pid_t pid) {
    std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    size_t at = stat.rfind(')');
    if (at == std::string::npos) return 0;
    // Fields after the command: state is 3rd; utime and stime are 14th, 15th.
    std::vector<std::string> fields;
    size_t start = at + 2;
    for (size_t end; (end = stat.find(' ', start)) != std::string::npos; start = end + 1)
        fields.push_back(stat.substr(start, end - start));
    if (fields.size() < 13) return 0;
    double ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
    return (std::stod(fields[11]) + std::stod(fields[12])) / ticks;
}

}  // namespace vt_bench
