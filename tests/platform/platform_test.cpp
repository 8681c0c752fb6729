// The platform layer's contracts, checked against whichever flavour this
// program is linked with (POSIX natively, Win32 under Wine). Paths are
// relative, as the client's are: it works in its own working directory.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#if !defined(_WIN32)
#include <sys/wait.h>
#endif
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "foundation/platform/Platform.h"

namespace {

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeAll(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// A fresh scratch directory per test, relative to the working directory.
class PlatformTest : public testing::Test {
protected:
    void SetUp() override {
        const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
        dir_ = std::string("scratch-") + info->name() + "-" + std::to_string(getpid());
        std::error_code error;
        std::filesystem::remove_all(dir_, error);
        ASSERT_TRUE(std::filesystem::create_directory(dir_, error));
    }
    void TearDown() override {
        std::error_code error;
        std::filesystem::remove_all(dir_, error);
    }
    std::string path(const std::string& name) const { return dir_ + "/" + name; }

    std::string dir_;
};

TEST_F(PlatformTest, ExistsAndRemove) {
    EXPECT_TRUE(vtFileExists(dir_.c_str())) << "a directory exists too";
    EXPECT_FALSE(vtFileExists(path("missing").c_str()));
    writeAll(path("a"), "x");
    EXPECT_TRUE(vtFileExists(path("a").c_str()));
    EXPECT_TRUE(vtRemoveFile(path("a").c_str()));
    EXPECT_FALSE(vtFileExists(path("a").c_str()));
    EXPECT_FALSE(vtRemoveFile(path("a").c_str())) << "removing twice fails";
}

TEST_F(PlatformTest, CopyNoOverwrite) {
    // Binary bytes (NUL, CR LF, 0xFF) over more than one read buffer.
    std::string bytes;
    for (int i = 0; i < 200000; i++) bytes.push_back(static_cast<char>((i * 7 + i / 251) & 0xFF));
    bytes += "\r\n\0end";
    writeAll(path("from.vci"), bytes);

    ASSERT_TRUE(vtCopyFileNoOverwrite(path("from.vci").c_str(), path("to.vci").c_str()));
    EXPECT_EQ(readAll(path("to.vci")), bytes);

    // An existing target is left exactly as it was.
    writeAll(path("kept.vci"), "mine");
    EXPECT_FALSE(vtCopyFileNoOverwrite(path("from.vci").c_str(), path("kept.vci").c_str()));
    EXPECT_EQ(readAll(path("kept.vci")), "mine");

    // A missing source creates nothing.
    EXPECT_FALSE(vtCopyFileNoOverwrite(path("missing").c_str(), path("none").c_str()));
    EXPECT_FALSE(vtFileExists(path("none").c_str()));

    // An empty file copies as an empty file.
    writeAll(path("empty"), "");
    ASSERT_TRUE(vtCopyFileNoOverwrite(path("empty").c_str(), path("empty2").c_str()));
    EXPECT_TRUE(vtFileExists(path("empty2").c_str()));
    EXPECT_EQ(readAll(path("empty2")), "");
}

TEST_F(PlatformTest, ListDirectory) {
    std::vector<std::string> names;
    ASSERT_TRUE(vtListDirectory(dir_.c_str(), &names)) << "an empty directory lists";
    EXPECT_TRUE(names.empty());

    writeAll(path("user.vci"), "1");
    writeAll(path("b.vcd"), "2");
    std::error_code error;
    ASSERT_TRUE(std::filesystem::create_directory(path("sub"), error));
    writeAll(path("sub/inner"), "3");

    names = {"kept"};
    ASSERT_TRUE(vtListDirectory(dir_.c_str(), &names));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"b.vcd", "kept", "sub", "user.vci"}))
            << "appends, without . and .. and without descending";

    names.clear();
    EXPECT_FALSE(vtListDirectory(path("missing").c_str(), &names));
    EXPECT_TRUE(names.empty());
}

TEST_F(PlatformTest, ExclusiveCreationHasOneWinner) {
    EXPECT_EQ(vtCreateFileExclusive(path("lock").c_str(), "1 first\n"), kVTFileCreated);
    EXPECT_EQ(vtCreateFileExclusive(path("lock").c_str(), "2 second\n"), kVTFileExists);
    EXPECT_EQ(readAll(path("lock")), "1 first\n") << "the loser leaves the file alone";
    EXPECT_EQ(vtCreateFileExclusive(path("missing/lock").c_str(), "x"), kVTFileNotCreated);
}

TEST(Platform, ProcessIds) {
#ifdef VANTOR_TEST_WIN32
    EXPECT_STREQ(vtProcessIdKind(), "windows");
#else
    EXPECT_STREQ(vtProcessIdKind(), "posix");
    EXPECT_EQ(vtCurrentProcessId(), getpid());
#endif
    EXPECT_TRUE(vtProcessIsRunning(vtCurrentProcessId()));
    EXPECT_FALSE(vtProcessIsRunning(2147483000)) << "beyond any id in use";
    EXPECT_FALSE(vtProcessIsRunning(0));
    EXPECT_FALSE(vtProcessIsRunning(-5));
}

// The file is removed only while it still holds what this process wrote.
TEST_F(PlatformTest, RemovingAtEndOnlyTheOwnFile) {
    ASSERT_EQ(vtCreateFileExclusive(path("lock").c_str(), "mine\n"), kVTFileCreated);
    vtRemoveFileAtEnd(path("lock").c_str(), "mine\n");
    EXPECT_TRUE(vtRemoveFileAtEndNow());
    EXPECT_FALSE(vtFileExists(path("lock").c_str()));
    EXPECT_FALSE(vtRemoveFileAtEndNow()) << "forgotten after the removal";

    ASSERT_EQ(vtCreateFileExclusive(path("lock").c_str(), "mine\n"), kVTFileCreated);
    vtRemoveFileAtEnd(path("lock").c_str(), "mine\n");
    writeAll(path("lock"), "another process's\n");
    EXPECT_FALSE(vtRemoveFileAtEndNow());
    EXPECT_EQ(readAll(path("lock")), "another process's\n");
}

TEST(Platform, Environment) {
#if defined(_WIN32)
    // The Windows runtime's setenv: an empty value removes the variable.
    _putenv_s("VANTOR_PLATFORM_TEST", "value 1");
#else
    setenv("VANTOR_PLATFORM_TEST", "value 1", 1);
#endif
    ASSERT_NE(vtGetEnv("VANTOR_PLATFORM_TEST"), nullptr);
    EXPECT_STREQ(vtGetEnv("VANTOR_PLATFORM_TEST"), "value 1");
#if defined(_WIN32)
    _putenv_s("VANTOR_PLATFORM_TEST", "");
#else
    unsetenv("VANTOR_PLATFORM_TEST");
#endif
    EXPECT_EQ(vtGetEnv("VANTOR_PLATFORM_TEST"), nullptr);
}

#ifndef VANTOR_TEST_WIN32
// Under Wine only Win32 threads may call into Wine, so this runs natively.
TEST(Platform, ThreadIdsDiffer) {
    uint64_t main = vtCurrentThreadId();
    uint64_t other = 0;
    std::thread([&] { other = vtCurrentThreadId(); }).join();
    EXPECT_EQ(vtCurrentThreadId(), main) << "stable within a thread";
    EXPECT_NE(other, main);
}

// A process that ends by exit() or by SIGTERM, SIGINT or SIGHUP removes
// its file, and one ended by a signal still reports that signal.
TEST_F(PlatformTest, TheFileGoesAtExitAndOnTerminationSignals) {
    for (int signal : {0, SIGTERM, SIGINT, SIGHUP}) {
        std::string name = path("lock-" + std::to_string(signal));
        pid_t child = fork();
        if (child == 0) {
            if (vtCreateFileExclusive(name.c_str(), "child\n") != kVTFileCreated) _exit(3);
            vtRemoveFileAtEnd(name.c_str(), "child\n");
            if (signal == 0) std::exit(0);
            raise(signal);
            _exit(4);
        }
        ASSERT_GT(child, 0);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        if (signal == 0) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        } else {
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        }
        EXPECT_FALSE(vtFileExists(name.c_str())) << signal;
    }
}

#endif

}  // namespace
