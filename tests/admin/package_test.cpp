// The Debian packages of scripts/package-debian.sh: what they hold, the
// relay's service unit (checked by systemd-analyze verify, and its
// ExecStart run the way the service runs it, on 127.0.0.1 and a scratch
// store), and the man pages rendered without a warning.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <thread>

#include "tests/support/RunProgram.h"

#ifndef VANTOR_ADMIN_PATH
#error "the build passes the path of vantor-admin as VANTOR_ADMIN_PATH"
#endif
#ifndef VANTOR_RELAY_PATH
#error "the build passes the path of vantor-relay as VANTOR_RELAY_PATH"
#endif

namespace {

using vt_test::ProgramResult;
using vt_test::quoteShell;

bool hasTool(const char* name) {
    return vt_test::runProgram(std::string("command -v ") + name).status == 0;
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

class PackageTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        out = vt_test::makeTempDir("vt-package");
        ProgramResult built = vt_test::runProgram(
                "VANTOR_ADMIN_PATH=" + quoteShell(VANTOR_ADMIN_PATH) +
                " VANTOR_RELAY_PATH=" + quoteShell(VANTOR_RELAY_PATH) + " bash " +
                quoteShell(std::string(VANTOR_SOURCE_DIR) + "/scripts/package-debian.sh") + " " +
                quoteShell(out));
        ASSERT_EQ(built.status, 0) << built.err;
        ProgramResult version = vt_test::runProgram(quoteShell(VANTOR_RELAY_PATH) + " --version");
        suffix = "_" + version.out.substr(13, version.out.size() - 14) + "_" +
                 vt_test::runProgram("dpkg --print-architecture").out;
        suffix.pop_back();
        root = out + "/root";
        for (const char* name : {"vantor-admin", "vantor-relay"}) {
            ASSERT_EQ(vt_test::runProgram("dpkg-deb -x " + quoteShell(deb(name)) + " " +
                                          quoteShell(root))
                              .status,
                      0);
        }
    }
    static void TearDownTestSuite() { vt_test::removeTree(out); }
    static std::string deb(const std::string& name) { return out + "/" + name + suffix + ".deb"; }

    // The [Service] keys of the unit; a repeated key keeps its last value.
    static std::map<std::string, std::string> serviceKeys() {
        std::istringstream unit(
                vt_test::readFile(root + "/lib/systemd/system/vantor-relay.service"));
        std::map<std::string, std::string> keys;
        std::string section, line;
        while (std::getline(unit, line)) {
            if (line.empty() || line[0] == '#') continue;
            if (line[0] == '[') {
                section = line;
            } else if (section == "[Service]" && line.find('=') != std::string::npos) {
                keys[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
            }
        }
        return keys;
    }

    static std::string out;
    static std::string root;
    static std::string suffix;
};
std::string PackageTest::out;
std::string PackageTest::root;
std::string PackageTest::suffix;

TEST_F(PackageTest, PackagesHoldProgramsManPagesAndTheService) {
    for (const char* path :
         {"/usr/bin/vantor-admin", "/usr/bin/vantor-relay", "/usr/share/man/man1/vantor-admin.1.gz",
          "/usr/share/man/man1/vantor-relay.1.gz", "/lib/systemd/system/vantor-relay.service",
          "/etc/default/vantor-relay"}) {
        EXPECT_EQ(vt_test::runProgram("test -s " + quoteShell(root + path)).status, 0) << path;
    }
    ProgramResult info = vt_test::runProgram("dpkg-deb -f " + quoteShell(deb("vantor-relay")) +
                                             " Package Depends");
    EXPECT_EQ(info.out,
              "Package: vantor-relay\nDepends: libc6 (>= 2.34), libstdc++6 (>= 12), libgcc-s1\n");
    ProgramResult conffiles =
            vt_test::runProgram("dpkg-deb -I " + quoteShell(deb("vantor-relay")) + " conffiles");
    EXPECT_EQ(conffiles.out, "/etc/default/vantor-relay\n");
    // The installed programs are the built ones.
    EXPECT_EQ(vt_test::runProgram(quoteShell(root + "/usr/bin/vantor-admin") + " --version").out,
              vt_test::runProgram(quoteShell(VANTOR_ADMIN_PATH) + " --version").out);
}

TEST_F(PackageTest, TheServiceRunsTheRelayAsItsOwnUserWithItsStoreAndTheJournal) {
    std::map<std::string, std::string> keys = serviceKeys();
    EXPECT_EQ(keys["User"], "vantor-relay");
    EXPECT_EQ(keys["StateDirectory"], "vantor-relay");
    EXPECT_EQ(keys["WorkingDirectory"], "/var/lib/vantor-relay");
    EXPECT_EQ(keys["StandardOutput"], "journal");
    EXPECT_EQ(keys["EnvironmentFile"], "-/etc/default/vantor-relay");
    const std::string exec = keys["ExecStart"];
    ASSERT_EQ(exec, "/usr/bin/vantor-relay --dir /var/lib/vantor-relay $VANTOR_RELAY_OPTIONS");
    // The options the package ships in /etc/default.
    EXPECT_NE(vt_test::readFile(root + "/etc/default/vantor-relay")
                      .find("\nVANTOR_RELAY_OPTIONS=\"--bind 0.0.0.0 --port 8888\"\n"),
              std::string::npos);

    if (hasTool("systemd-analyze")) {
        // The unit as installed, its program where the package put it.
        std::string unit = out + "/vantor-relay.service";
        vt_test::writeFile(
                unit,
                replaceAll(vt_test::readFile(root + "/lib/systemd/system/vantor-relay.service"),
                           "/usr/bin/vantor-relay", root + "/usr/bin/vantor-relay"));
        ProgramResult verified =
                vt_test::runProgram("systemd-analyze verify --man=no " + quoteShell(unit));
        EXPECT_EQ(verified.status, 0) << verified.out << verified.err;
        EXPECT_EQ(verified.err, "");
    }

    // ExecStart as systemd runs it: the options from the environment file
    // (here 127.0.0.1 and a free port), the store directory made for it.
    std::string store = out + "/var-lib-vantor-relay";
    ASSERT_EQ(vt_test::runProgram("mkdir -p " + quoteShell(store)).status, 0);
    std::string command = replaceAll(replaceAll(exec, "/usr/bin/", root + "/usr/bin/"),
                                     "/var/lib/vantor-relay", store);
    command = replaceAll(command, "$VANTOR_RELAY_OPTIONS", "--bind 127.0.0.1 --port 0");
    std::string log = out + "/relay.log";
    ProgramResult started =
            vt_test::runProgram("(cd " + quoteShell(store) + " && exec timeout 120 " + command +
                                " > " + quoteShell(log) + " 2>&1) & echo $!");
    int pid = std::atoi(started.out.c_str());
    ASSERT_GT(pid, 0);
    std::string text;
    for (int i = 0;
         i < 2000 && (text = vt_test::readFile(log)).find("listening on port") == std::string::npos;
         i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(std::regex_search(text, std::regex("listening on port [1-9][0-9]*\n"))) << text;
    // The installed tool reads the store the service keeps.
    ProgramResult status = vt_test::runProgram(quoteShell(root + "/usr/bin/vantor-admin") +
                                               " relay status " + quoteShell(store) + " --json");
    EXPECT_EQ(status.status, 0) << status.err;
    EXPECT_NE(status.out.find("\"deltas\":0,"), std::string::npos) << status.out;
    kill(pid, SIGTERM);
}

TEST_F(PackageTest, ManPagesRenderWithoutWarnings) {
    if (!hasTool("groff")) GTEST_SKIP() << "groff is not installed";
    for (const char* name : {"vantor-admin", "vantor-relay"}) {
        std::string page = root + "/usr/share/man/man1/" + name + ".1.gz";
        ProgramResult shown = vt_test::runProgram("zcat " + quoteShell(page) +
                                                  " | groff -man -Tutf8 -ww -P-cbou");
        EXPECT_EQ(shown.status, 0) << name;
        EXPECT_EQ(shown.err, "") << name;
        EXPECT_NE(shown.out.find("SYNOPSIS"), std::string::npos) << name;
        EXPECT_NE(shown.out.find("\n       " + std::string(name) + " - "), std::string::npos)
                << name << shown.out;
    }
}

}  // namespace
