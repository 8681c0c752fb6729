// vantor-admin archive encode|decode, run as operators run it: JSON and
// archives through standard input and output, errors on standard error.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "tests/support/RunProgram.h"

#ifndef VANTOR_ADMIN_PATH
#error "the build passes the path of vantor-admin as VANTOR_ADMIN_PATH"
#endif

namespace {

using Result = vt_test::ProgramResult;
using vt_test::readFile;

// Runs vantor-admin with `input` on standard input.
Result run(const std::string& arguments, const std::string& input) {
    return vt_test::runProgram(vt_test::quoteShell(VANTOR_ADMIN_PATH) + " " + arguments, input);
}

std::string field(const std::string& bytes) {
    uint32_t n = static_cast<uint32_t>(bytes.size());
    return std::string{char(n), char(n >> 8), char(n >> 16), char(n >> 24)} + bytes;
}
std::string name(const char* text) { return field(std::string(text) + '\0'); }
std::string number(double value) {
    std::string bits(8, '\0');
    std::memcpy(&bits[0], &value, 8);
    return name("NSNumber") + field(bits);
}
std::string string(const char* text) { return name("NSString") + field(std::string(text) + '\0'); }

TEST(ArchiveCommand, EncodesTheMappingToTheByte) {
    // Two entries, two buckets: a (hash 726) in bucket 0, b (727) in 1.
    Result r = run("archive encode", R"({"a": 3, "b": ["abc", null]})");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, name("NSMutableDictionary") + number(2) + string("a") + number(3) +
                             string("b") + name("NSMutableArray") + number(2) + string("abc") +
                             name("NSNull") + number(0));

    EXPECT_EQ(run("archive encode", "{}").out, name("NSMutableDictionary") + number(0));
    EXPECT_EQ(run("archive encode", R"({"$data": ""})").out, name("NSData") + field(""));
    EXPECT_EQ(run("archive encode", R"({"$data": "00ff"})").out,
              name("NSData") + field(std::string("\0\xff", 2)));
    EXPECT_EQ(run("archive encode", R"({"$date": "2024-01-31 09:30:00 +0100"})").out,
              name("NSDate") + name("NSMutableString") +
                      field(std::string("2024-01-31 09:30:00 +0100") + '\0'));
    EXPECT_EQ(run("archive encode", R"({"$set": ["m"]})").out,
              name("NSMutableSet") + name("NSMutableDictionary") + number(1) + string("m") +
                      name("NSNull") + number(0));
    EXPECT_EQ(run("archive encode", "true").out, number(1));
    EXPECT_EQ(run("archive encode", R"("\u00e9\n")").out, string("\xC3\xA9\n"));
}

TEST(ArchiveCommand, DecodesInArchiveOrderAndMarksClasses) {
    // A dictionary written with 1024 buckets lists b before a; read back
    // into 2 buckets it would list a first. decode shows the archive.
    std::string archive = name("NSMutableDictionary") + number(2) + string("b") + number(1) +
                          string("a") + number(-2.5);
    Result r = run("archive decode", archive);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "{\"b\":1,\"a\":-2.5}\n");

    std::string json =
            R"({"name":"Ada","when":{"$date":"2024-01-31 09:30:00 +0100"},"bytes":{"$data":"00ff"},)"
            R"("tags":{"$set":["x"]},"list":[1,"two",null,[]],"odd":{"$entries":[[1,"one"]]},)"
            R"("n":{"$number":"nan"},"counted":{"$class":"NSCountedSet","$dict":{"c":2}}})";
    Result encoded = run("archive encode", json);
    ASSERT_EQ(encoded.status, 0) << encoded.err;
    Result decoded = run("archive decode", encoded.out);
    ASSERT_EQ(decoded.status, 0) << decoded.err;
    // The keys come in the archive's order (the buckets of an 8-entry
    // dictionary), not the text's; every value is marked as it was given.
    for (const char* piece :
         {R"("name":"Ada")", R"("when":{"$date":"2024-01-31 09:30:00 +0100"})",
          R"("bytes":{"$data":"00ff"})", R"("tags":{"$set":["x"]})", R"("list":[1,"two",null,[]])",
          R"("odd":{"$entries":[[1,"one"]]})", R"("n":{"$number":"nan"})",
          R"("counted":{"$class":"NSCountedSet","$dict":{"c":2}})"})
        EXPECT_NE(decoded.out.find(piece), std::string::npos) << piece << " in " << decoded.out;
    EXPECT_EQ(decoded.out.size(), json.size() + 1);
    // And the same again is the same archive.
    EXPECT_EQ(run("archive encode", decoded.out).out, encoded.out);
}

TEST(ArchiveCommand, KeyEnciphersTheWholeStream) {
    Result plain = run("archive encode", R"(["abc"])");
    Result keyed = run("archive encode --key Rk2pWn", R"(["abc"])");
    ASSERT_EQ(keyed.status, 0);
    ASSERT_EQ(keyed.out.size(), plain.out.size());
    for (size_t i = 0; i < plain.out.size(); i++) {
        ASSERT_EQ(static_cast<char>(keyed.out[i] ^ ~"Rk2pWn"[i % 6]), plain.out[i]) << i;
    }
    EXPECT_EQ(run("archive decode --key Rk2pWn", keyed.out).out, "[\"abc\"]\n");
    // A wrong key lands on the reader's refusal.
    Result wrong = run("archive decode --key Mq7Tarn", keyed.out);
    EXPECT_EQ(wrong.status, 1);
    EXPECT_EQ(wrong.out, "");
    EXPECT_NE(wrong.err.find("NSUnarchiver: "), std::string::npos) << wrong.err;
}

TEST(ArchiveCommand, BadInputAndUsage) {
    Result json = run("archive encode", R"({"a": [1, 2})");
    EXPECT_EQ(json.status, 1);
    EXPECT_EQ(json.out, "");
    EXPECT_EQ(json.err,
              "vantor-admin: archive encode: invalid JSON at line 1, column 12: ',' or ']' "
              "expected\n");
    EXPECT_EQ(run("archive encode", R"({"$date": "yesterday"})").status, 1);
    EXPECT_EQ(run("archive encode", R"({"$class": "NoSuchClass"})").status, 1);
    EXPECT_EQ(run("archive encode", std::string(400, '[') + std::string(400, ']')).status, 1);

    Result truncated = run("archive decode", string("abc").substr(0, 18));
    EXPECT_EQ(truncated.status, 1);
    EXPECT_EQ(truncated.out, "");
    EXPECT_EQ(truncated.err,
              "NSUnarchiver: field of 4 bytes past the end at byte 13\n"
              "vantor-admin: archive decode: the archive does not decode (see the line above)\n");
    Result trailing = run("archive decode", string("abc") + "junk");
    EXPECT_EQ(trailing.status, 0);
    EXPECT_EQ(trailing.out, "\"abc\"\n");
    EXPECT_EQ(trailing.err, "vantor-admin: archive decode: 4 bytes after the object ignored\n");

    for (const char* wrong : {"archive", "archive pack", "archive encode --key",
                              "archive decode --cipher x", "archive encode --key ''"})
        EXPECT_EQ(run(wrong, "").status, 2) << wrong;
}

}  // namespace
