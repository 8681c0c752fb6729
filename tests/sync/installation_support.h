// Installations of the headless client and a relay, as separate processes
// on loopback, for the end-to-end tests of replication: the relay
// (vantor-relay) and vantor-admin in working directories of their own.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/RunProgram.h"

namespace vt_installations {

using vt_test::ProgramResult;
using vt_test::quoteShell;
using vt_test::readFile;
using vt_test::runProgram;
using vt_test::writeFile;

inline std::string envPath(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

inline int countOf(const std::string& text, const std::string& what) {
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + what.size()))
        n++;
    return n;
}

// The text value of a key in one line of `record list` or `container dump`
// (objects of strings, dates and numbers as vantor-admin prints them): the
// outermost occurrence, so that the same name inside a record's versions
// or history is passed over.
inline std::string valueOf(const std::string& line, const std::string& key) {
    std::string head = "\"" + key + "\":";
    int depth = 0, bestDepth = 1 << 30;
    bool quoted = false;
    std::string best;
    for (size_t at = 0; at < line.size(); at++) {
        char c = line[at];
        if (quoted) {
            if (c == '\\')
                at++;
            else if (c == '"')
                quoted = false;
            continue;
        }
        if (c == '{' || c == '[') depth++;
        if (c == '}' || c == ']') depth--;
        if (c != '"') continue;
        if (depth < bestDepth && line.compare(at, head.size(), head) == 0) {
            size_t from = at + head.size();
            while (from < line.size() && line[from] == ' ') from++;
            std::string value;
            if (from < line.size() && line[from] == '"') {
                for (from++; from < line.size() && line[from] != '"'; from++) {
                    if (line[from] == '\\' && from + 1 < line.size()) from++;
                    value += line[from];
                }
            }
            best = value;
            bestDepth = depth;
        }
        quoted = true;
    }
    return best;
}

// A child process running a shell command line, its output in a file.
class Child {
public:
    Child(const std::string& commandLine, const std::string& logPath) {
        _pid = fork();
        if (_pid == 0) {
            int fd = open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
            if (fd >= 0) {
                dup2(fd, 1);
                dup2(fd, 2);
                close(fd);
            }
            setpgid(0, 0);
            // Ends with the test, also when the test itself is killed.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            execl("/bin/sh", "sh", "-c", commandLine.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
    }
    ~Child() { kill9(); }
    void kill9() {
        if (_pid <= 0) return;
        kill(-_pid, SIGKILL);  // the shell and the program it runs
        int status;
        waitpid(_pid, &status, 0);
        _pid = -1;
    }
    // The exit status once it ended by itself within the time, else -1.
    int wait(double seconds) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        while (_pid > 0) {
            int status;
            if (waitpid(_pid, &status, WNOHANG) == _pid) {
                _pid = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            if (std::chrono::steady_clock::now() > deadline) return -1;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return -1;
    }
    bool running() const { return _pid > 0; }

private:
    pid_t _pid = -1;
};

template <class F>
bool waitFor(F done, double seconds) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// The relay process, restartable on the port it first got.
class Relay {
public:
    explicit Relay(const std::string& root) : _dir(root + "/relay"), _log(root + "/relay.log") {
        mkdir(_dir.c_str(), 0755);
    }
    bool start() {
        size_t from = readFile(_log).size();
        _child.reset(new Child("exec " + quoteShell(envPath("VANTOR_RELAY_PATH")) + " --port " +
                                       std::to_string(_port) + " --dir " + quoteShell(_dir) +
                                       " --timeout 2",
                               _log));
        std::string head = "listening on port ";
        bool up = waitFor(
                [&] {
                    std::string log = readFile(_log);
                    size_t at = log.find(head, from);
                    if (at == std::string::npos) return false;
                    _port = std::atoi(log.c_str() + at + head.size());
                    return true;
                },
                10);
        return up && _port > 0;
    }
    void kill9() { _child.reset(); }
    int port() const { return _port; }
    int enqueued() const { return countOf(readFile(_log), "delta enqueued"); }
    std::string log() const { return readFile(_log); }

private:
    std::string _dir, _log;
    int _port = 0;
    std::unique_ptr<Child> _child;
};

class Installation {
public:
    Installation() = default;
    Installation(const std::string& dir, const std::string& password)
        : dir(dir), password(password) {}
    std::string commandLine(const std::string& args) const {
        return "cd " + quoteShell(dir) + " && VANTOR_PASSWORD=" + quoteShell(password) + " exec " +
               quoteShell(envPath("VANTOR_ADMIN_PATH")) + " " + args;
    }
    ProgramResult admin(const std::string& args, const std::string& input = "") const {
        return runProgram(commandLine(args), input);
    }
    // Sync until a run ends with nothing left to move; a run that fails
    // (relay away, connection broken) is repeated.
    bool syncDone(int port, int attempts = 40) const {
        for (int i = 0; i < attempts; i++) {
            ProgramResult r = admin("sync --timeout 2 --port " + std::to_string(port));
            if (r.status == 0) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }
    // id -> the record's line in `record list`.
    std::map<std::string, std::string> records(const std::string& sheet) const {
        return linesById(admin("record list " + sheet));
    }
    // id -> the record's line in `container dump` of the sheet's store:
    // every stored record, whatever the user's table of the sheet shows.
    std::map<std::string, std::string> stored(const std::string& stem) const {
        return linesById(admin("container dump data/" + stem));
    }
    // The JSON lines a command printed, by their record's id.
    static std::map<std::string, std::string> linesById(const ProgramResult& r) {
        std::map<std::string, std::string> byId;
        EXPECT_EQ(r.status, 0) << r.err;
        size_t start = 0;
        for (size_t end; (end = r.out.find('\n', start)) != std::string::npos; start = end + 1) {
            std::string line = r.out.substr(start, end - start);
            byId[valueOf(line, "__recordId")] = line;
        }
        return byId;
    }
    std::string set(const std::string& sheet, const std::string& json) const {
        ProgramResult r = admin("record set " + sheet, json);
        EXPECT_EQ(r.status, 0) << r.err;
        return r.out.substr(0, r.out.find('\n'));
    }

    std::string dir;
    std::string password;
};

// Makes an installation for each of `users` (first name, last name,
// password) beside the admin's installation `first`: a record of the user
// sheet made there, a key (key make), the demo's configuration, and every
// record pushed to it. Answers the new users' record ids; a failure is
// reported to the test and leaves the list short.
inline std::vector<std::string> addUsers(
        const Installation& first, std::vector<Installation*> installations,
        const std::vector<std::pair<std::string, std::string>>& names) {
    std::vector<std::string> ids;
    std::string source = envPath("VANTOR_SOURCE_DIR");
    for (size_t i = 0; i < installations.size() && i < names.size(); i++) {
        Installation* user = installations[i];
        std::string id = first.set("user", R"({"firstName": ")" + names[i].first +
                                                   R"(", "lastName": ")" + names[i].second +
                                                   R"(", "orgUnit": "Sales", "company": "Demo",
                                  "role": "manager", "groups": "demo-group-admins"})");
        if (id.empty()) return ids;
        ProgramResult key =
                first.admin("key make " + id + " --password-stdin", user->password + "\n");
        EXPECT_EQ(key.status, 0) << key.err;
        if (key.status != 0) return ids;
        std::string keyFile = key.out.substr(0, key.out.find('\n'));
        int copied = std::system(("mkdir -p " + quoteShell(user->dir + "/userkey") + " " +
                                  quoteShell(user->dir + "/data") + " && cp -r " +
                                  quoteShell(source + "/demo/conf") + " " + quoteShell(user->dir) +
                                  " && mv " + quoteShell(first.dir + "/" + keyFile) + " " +
                                  quoteShell(user->dir + "/userkey/"))
                                         .c_str());
        EXPECT_EQ(copied, 0);
        if (copied != 0) return ids;
        writeFile(user->dir + "/transceiver.txt", "127.0.0.1\n");
        ProgramResult pushed = first.admin("record action user " + id + " VTActionPushSpaces");
        EXPECT_EQ(pushed.status, 0) << pushed.err;
        ids.push_back(id);
    }
    return ids;
}

// The admin's installation, made from the demo by scripts/new-workdir.sh.
inline bool makeFirstInstallation(const Installation& first) {
    std::string source = envPath("VANTOR_SOURCE_DIR");
    ProgramResult made = runProgram("bash " + quoteShell(source + "/scripts/new-workdir.sh") + " " +
                                    quoteShell(first.dir) + " >/dev/null");
    EXPECT_EQ(made.status, 0) << made.err;
    if (made.status != 0) return false;
    writeFile(first.dir + "/transceiver.txt", "127.0.0.1\n");
    return true;
}

}  // namespace vt_installations
