// Runs the built vantor-admin on real files: its output and exit status are
// what operators and scripts rely on.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "tests/support/RunProgram.h"

#ifndef VANTOR_ADMIN_PATH
#error "the build passes the path of vantor-admin as VANTOR_ADMIN_PATH"
#endif

namespace {

using Result = vt_test::ProgramResult;

// The command's standard output (and standard error with `merge`), and its
// exit status.
Result run(const std::string& arguments, bool merge = false) {
    return vt_test::runProgram(vt_test::quoteShell(VANTOR_ADMIN_PATH) + " " + arguments +
                               (merge ? " 2>&1" : ""));
}

std::string writeFile(const char* name, const std::string& bytes) {
    std::string path = testing::TempDir() + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

TEST(ParseListCommand, PrintsJSONOrTheParserLines) {
    Result good = run("parse-list '" +
                      writeFile("good.lst", "(s \"q\" a\\b\x01 (\xC3\xA4 ()) (# n))\nrest") + "'");
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.out,
              "[\"s\",\"\\\"q\\\"\",\"a\\\\b\\u0001\",[\"\xC3\xA4\",[]],[\"#\",\"n\"]]\n");

    Result bad = run("parse-list '" + writeFile("bad.lst", "(a (b") + "'");
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.out, "identifier(s) or ')'\nidentifier(s) or ')'\n");
    EXPECT_EQ(run("parse-list '" + writeFile("empty.lst", "") + "'").out, "'(' expected\n");

    Result missing = run("parse-list /nonexistent/vantor.lst", true);
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.out.find("/nonexistent/vantor.lst"), std::string::npos) << missing.out;
}

TEST(ParseListCommand, Usage) {
    Result help = run("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("parse-list"), std::string::npos);
    for (const char* wrong : {"", "no-such-command", "parse-list", "parse-list a b"})
        EXPECT_EQ(run(wrong).status, 2);
}

}  // namespace
