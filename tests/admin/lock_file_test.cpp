// vantor.lock as vantor-admin takes it, the same code the client uses: two
// commands started together in one installation, a stale lock, and the
// ways a command waiting at its password prompt can be ended; and what a
// command shows only on a terminal. Each command
// runs on a terminal of its own (a pseudo-terminal), where it asks for the
// password and waits, holding the lock.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/RunProgram.h"

#ifndef VANTOR_ADMIN_PATH
#error "the build passes the path of vantor-admin as VANTOR_ADMIN_PATH"
#endif

namespace {

using vt_test::quoteShell;

// vantor-admin on a pseudo-terminal in `dir`, without VANTOR_PASSWORD.
class OnTerminal {
public:
    OnTerminal(const std::string& dir, std::vector<const char*> arguments) {
        arguments.insert(arguments.begin(), VANTOR_ADMIN_PATH);
        arguments.push_back(nullptr);
        _pid = forkpty(&_master, nullptr, nullptr, nullptr);
        if (_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            unsetenv("VANTOR_PASSWORD");
            if (chdir(dir.c_str()) != 0) _exit(126);
            execv(VANTOR_ADMIN_PATH, const_cast<char**>(arguments.data()));
            _exit(127);
        }
    }
    OnTerminal(const std::string& dir, const char* command)
        : OnTerminal(dir, std::vector<const char*>{command}) {}
    ~OnTerminal() {
        if (_pid > 0) {
            kill(_pid, SIGKILL);
            waitpid(_pid, nullptr, 0);
        }
        if (_master >= 0) close(_master);
    }
    pid_t pid() const { return _pid; }
    // Takes in what the program wrote within `ms`; false once it has
    // closed its terminal.
    bool drain(int ms) {
        struct pollfd p {
            _master, POLLIN, 0
        };
        if (poll(&p, 1, ms) <= 0) return true;
        char buffer[512];
        ssize_t n = read(_master, buffer, sizeof buffer);
        if (n <= 0) return false;
        _output.append(buffer, static_cast<size_t>(n));
        return true;
    }
    // Reads what the program wrote until `text` appears, it ends, or 20 s.
    bool waitForOutput(const std::string& text) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (_output.find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() > deadline || !drain(100)) break;
        }
        return _output.find(text) != std::string::npos;
    }
    // Types on its terminal.
    void type(const std::string& keys) {
        ASSERT_EQ(write(_master, keys.data(), keys.size()), ssize_t(keys.size()));
    }
    // Waits for its end: the raw wait status, or -1 after 20 s.
    int wait() {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        int status = 0;
        while (waitpid(_pid, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > deadline) return -1;
            // Keeps the terminal from filling up.
            if (!drain(10)) std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        _pid = -1;
        // What it wrote just before it ended.
        for (struct pollfd p{_master, POLLIN, 0}; poll(&p, 1, 100) > 0;) {
            char buffer[512];
            ssize_t n = read(_master, buffer, sizeof buffer);
            if (n <= 0) break;
            _output.append(buffer, static_cast<size_t>(n));
        }
        return status;
    }
    const std::string& output() const { return _output; }
    // Whether its terminal echoes what is typed.
    bool echoes() const {
        termios settings{};
        return tcgetattr(_master, &settings) == 0 && (settings.c_lflag & ECHO) != 0;
    }

private:
    pid_t _pid = -1;
    int _master = -1;
    std::string _output;
};

class LockFileTest : public testing::Test {
protected:
    void SetUp() override {
        dir_ = vt_test::makeTempDir("vt-lock");
        std::string script = std::string(VANTOR_SOURCE_DIR) + "/scripts/new-workdir.sh";
        ASSERT_EQ(std::system(("bash " + quoteShell(script) + " " + quoteShell(dir_) +
                               " >/dev/null 2>&1")
                                      .c_str()),
                  0);
    }
    void TearDown() override { vt_test::removeTree(dir_); }
    std::string lockPath() const { return dir_ + "/vantor.lock"; }
    bool locked() const { return access(lockPath().c_str(), F_OK) == 0; }

    std::string dir_;
};

// Both check and create in one step: of two commands started at the same
// moment, one waits for its password holding the lock, the other is
// refused naming the first.
TEST_F(LockFileTest, OfTwoCommandsStartedTogetherExactlyOneRuns) {
    OnTerminal first(dir_, "deltas");
    OnTerminal second(dir_, "deltas");
    OnTerminal* winner = nullptr;
    OnTerminal* loser = nullptr;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!winner && std::chrono::steady_clock::now() < deadline) {
        for (OnTerminal* t : {&first, &second}) {
            t->drain(10);
            if (t->output().find("Password: ") != std::string::npos) winner = t;
        }
    }
    ASSERT_NE(winner, nullptr) << first.output() << second.output();
    loser = winner == &first ? &second : &first;
    int status = loser->wait();
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_NE(loser->output().find(
                      "vantor-admin: deltas: An instance of this application is already running in "
                      "the same working directory. (vantor.lock exists, made by process " +
                      std::to_string(winner->pid()) + ")"),
              std::string::npos)
            << loser->output();
    EXPECT_EQ(loser->output().find("Password: "), std::string::npos);
    EXPECT_EQ(vt_test::readFile(lockPath()), std::to_string(winner->pid()) + " posix\n");
    // The winner goes on as usual once it has its password, and leaves no
    // lock behind.
    winner->type("vantor-demo\n");
    status = winner->wait();
    ASSERT_TRUE(WIFEXITED(status)) << winner->output();
    EXPECT_EQ(WEXITSTATUS(status), 0) << winner->output();
    EXPECT_FALSE(locked());
}

// Ctrl-C typed at the prompt (the terminal sends SIGINT) and SIGTERM both
// end the command with their signal, and both remove the lock and leave
// the terminal echoing again.
TEST_F(LockFileTest, CtrlCAndSigtermAtThePasswordPromptRemoveTheLock) {
    for (int signal : {SIGINT, SIGTERM}) {
        OnTerminal command(dir_, "sync");
        ASSERT_TRUE(command.waitForOutput("Password: ")) << command.output();
        ASSERT_TRUE(locked());
        EXPECT_FALSE(command.echoes());
        if (signal == SIGINT) {
            command.type("\x03");
        } else {
            kill(command.pid(), SIGTERM);
        }
        int status = command.wait();
        ASSERT_TRUE(WIFSIGNALED(status)) << status;
        EXPECT_EQ(WTERMSIG(status), signal);
        EXPECT_FALSE(locked()) << strsignal(signal);
        EXPECT_TRUE(command.echoes()) << strsignal(signal);
    }
}

// On a terminal, record set of an array shows how far it has got on
// standard error and clears the line at the end; Ctrl-D ends the input.
TEST_F(LockFileTest, RecordSetShowsProgressOnATerminal) {
    OnTerminal command(dir_, {"record", "set", "company", "--json"});
    ASSERT_TRUE(command.waitForOutput("Password: ")) << command.output();
    command.type("vantor-demo\n");
    command.type(R"([{"name": "P1", "industry": "trade"}, {"name": "P2", "industry": "trade"}])"
                 "\n\x04");
    int status = command.wait();
    ASSERT_TRUE(WIFEXITED(status)) << command.output();
    EXPECT_EQ(WEXITSTATUS(status), 0) << command.output();
    const std::string& shown = command.output();
    EXPECT_NE(shown.find("\r\033[Krecord set: saved 1 of 2 (50%)"), std::string::npos) << shown;
    EXPECT_NE(shown.find("\r\033[Krecord set: saved 2 of 2 (100%)\r\033[K"), std::string::npos)
            << shown;
}

// A lock whose process is gone is not taken over: the refusal names the
// process and says how to remove the file.
TEST_F(LockFileTest, AStaleLockNamesItsProcessAndHowToRemoveIt) {
    pid_t gone = fork();
    if (gone == 0) _exit(0);
    ASSERT_GT(gone, 0);
    waitpid(gone, nullptr, 0);
    std::string stale = std::to_string(gone) + " posix\n";
    vt_test::writeFile(lockPath(), stale);
    vt_test::ProgramResult run =
            vt_test::runProgram("cd " + quoteShell(dir_) + " && VANTOR_PASSWORD=vantor-demo " +
                                quoteShell(VANTOR_ADMIN_PATH) + " deltas");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              "vantor-admin: deltas: The lock file vantor.lock was left behind by process " +
                      std::to_string(gone) +
                      ", which no longer runs. If nothing else works in this directory, delete "
                      "vantor.lock and start again.\n");
    EXPECT_EQ(vt_test::readFile(lockPath()), stale);

    // Once removed, the command runs.
    std::remove(lockPath().c_str());
    run = vt_test::runProgram("cd " + quoteShell(dir_) + " && VANTOR_PASSWORD=vantor-demo " +
                              quoteShell(VANTOR_ADMIN_PATH) + " deltas");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_FALSE(locked());
}

}  // namespace
