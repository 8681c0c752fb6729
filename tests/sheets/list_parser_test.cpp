// The configuration-list parser: its syntax to the exact log line, and that
// no input, however broken or deep, crashes it or takes more than linear
// time.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <string>

#include "foundation/NSArray.h"
#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSString.h"
#include "sheets/LXListParser.h"
#include "tests/support/LogCapture.h"

namespace {

const char kExpected[] = "'(' expected\n";
const char kOpen[] = "identifier(s) or ')'\n";
const char kUnsupported[] = "unsupported Unicode character (> 0x07ff)\n";

std::string times(int n, const char* line) {
    std::string out;
    while (n-- > 0) out += line;
    return out;
}

// Lists as [a,b], atoms as <text>.
std::string render(NSObject* value) {
    if (!value) return "nil";
    if (!value->isKindOfClass_(NSArray::classObject())) {
        return "<" + std::string(static_cast<NSString*>(value)->UTF8String()) + ">";
    }
    EXPECT_TRUE(value->isKindOfClass_(NSMutableArray::classObject()));
    auto* list = static_cast<NSArray*>(value);
    std::string out = "[";
    for (uint32_t i = 0; i < list->count(); i++)
        out += (i ? "," : "") + render(list->objectAtIndex_(i));
    return out + "]";
}

struct Outcome {
    std::string list;  // rendered, "nil" on failure
    std::string log;
};

class ListParserTest : public testing::Test {
protected:
    void SetUp() override { pool = NSAutoreleasePool::alloc()->init(); }
    void TearDown() override { pool->release(); }

    static Outcome parse(const std::string& bytes, uint8_t openingToRead = 1) {
        NSString* text = NSAutorelease(NSString::alloc()->initWithBytes_length_(
                bytes.data(), static_cast<uint32_t>(bytes.size())));
        NSMutableArray* list = nullptr;
        std::string log = vt_test::logOf(
                [&] { list = LXListParser::listParserWithString_(text)->parse_(openingToRead); });
        return {render(list), log};
    }
    NSAutoreleasePool* pool = nullptr;
};

TEST_F(ListParserTest, Syntax) {
    struct Case {
        const char* text;
        const char* list;
        std::string log;
    } cases[] = {
            {"()", "[]", ""},
            {"(a b)   trailing words (", "[<a>,<b>]", ""},
            {"(a)b)", "[<a>]", ""},
            {"(a)(b)", "[<a>]", ""},
            {"(a(b c)", "[<a(b>,<c>]", ""},
            {"\n\t (a\r\n(b ( ) )c )", "[<a>,[<b>,[]],<c>]", ""},
            {"(()(()))", "[[],[[]]]", ""},
            // Comments are lists like any other, and must balance.
            {"(# a comment (with a list) ) ", "[<#>,<a>,<comment>,[<with>,<a>,<list>]]", ""},
            // No quoting, no escapes.
            {"(\"two words\" 'x' a\\b)", "[<\"two>,<words\">,<'x'>,<a\\b>]", ""},
            // Control characters other than the four white ones are atom
            // characters.
            {"(a\001b \x0b\x0c \x1b)", "[<a\001b>,<\x0b\x0c>,<\x1b>]", ""},
            {"(\xC3\xA4 b\xC4\x8D)", "[<\xC3\xA4>,<b\xC4\x8D>]", ""},
            // Bytes beyond two-byte UTF-8 become question marks in the 16-bit
            // form, each with the string's line.
            {"(\xE2\x82\xAC)", "[<\?\?\?>]", times(3, kUnsupported)},
            {"", "nil", kExpected},
            {" \t\r\n", "nil", kExpected},
            {"x (a)", "nil", kExpected},
            {")", "nil", kExpected},
            {"(", "nil", kOpen},
            {"(a", "nil", kOpen},
            {"(a (b c", "nil", times(2, kOpen)},
            {"((((", "nil", times(4, kOpen)},
            {"(a (b) (c", "nil", times(2, kOpen)},
    };
    for (const Case& c : cases) {
        Outcome got = parse(c.text);
        EXPECT_EQ(got.list, c.list) << "text: " << c.text;
        EXPECT_EQ(got.log, c.log) << "text: " << c.text;
    }
}

TEST_F(ListParserTest, ParseWithTheOpeningAlreadyConsumed) {
    EXPECT_EQ(parse(" a (b)) rest", 0).list, "[<a>,[<b>]]");
    // The list that was opened before the call is still open at the end.
    Outcome open = parse("(a)", 0);
    EXPECT_EQ(open.list, "nil");
    EXPECT_EQ(open.log, kOpen);
}

TEST_F(ListParserTest, IsFoundAndSentByName) {
    Class cls = NSClassFromString("LXListParser"_ns);
    ASSERT_NE(cls, nullptr);
    auto* parser = static_cast<LXListParser*>(NSSendClass<NSObject*>(
            cls, NS_SEL("listParserWithString:"), static_cast<NSObject*>("(x)"_ns)));
    ASSERT_NE(parser, nullptr);
    EXPECT_EQ(render(NSSend<NSObject*>(parser, NS_SEL("parse:"), uint8_t{1})), "[<x>]");
}

TEST_F(ListParserTest, NestingIsLimited) {
    const uint32_t limit = LXListParser::kMaxDepth;
    std::string deepest = std::string(limit, '(') + "x" + std::string(limit, ')');
    Outcome ok = parse(deepest);
    EXPECT_EQ(ok.log, "");
    EXPECT_EQ(ok.list.size(), 2 * limit + 3);

    Outcome tooDeep = parse("(" + deepest + ")");
    EXPECT_EQ(tooDeep.list, "nil");
    EXPECT_EQ(tooDeep.log, "list nested deeper than 1000 levels\n");

    auto start = std::chrono::steady_clock::now();
    Outcome flood = parse(std::string(10 * 1024 * 1024, '('));
    EXPECT_EQ(flood.list, "nil");
    EXPECT_EQ(flood.log, "list nested deeper than 1000 levels\n");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

// Any bytes: no crash, and nil comes with the parser's own lines.
TEST_F(ListParserTest, RandomBytesNeverCrash) {
    std::mt19937 rng(12345);
    const char alphabet[] = "(()) \t\r\n#ab\xC3\xA4\xE2\x01";
    for (int round = 0; round < 3000; round++) {
        std::string bytes(rng() % 64, '\0');
        for (char& b : bytes)
            b = round % 2 ? static_cast<char>(rng()) : alphabet[rng() % (sizeof alphabet - 1)];
        Outcome got = parse(bytes);
        if (got.list == "nil") {
            bool known = got.log.find(kExpected) != std::string::npos ||
                         got.log.find(kOpen) != std::string::npos;
            EXPECT_TRUE(known) << got.log;
        }
    }
}

// A random tree, printed with random white space, reads back as itself.
std::string randomTree(std::mt19937& rng, int depth, std::string* printed) {
    static const char* const kAtomChars[] = {"a",  "Z", "0",    "#",    "\"",       "'",
                                             "\\", "(", "\x01", "\x7f", "\xC3\xA4", "\xDF\xBF"};
    static const char* const kWhite[] = {" ", "\t", "\n", "\r", "  \r\n"};
    std::string shape = "[";
    *printed += "(";
    int items = static_cast<int>(rng() % 5);
    for (int i = 0; i < items; i++) {
        *printed += kWhite[rng() % 5];
        if (depth < 6 && rng() % 3 == 0) {
            shape += (i ? "," : "") + randomTree(rng, depth + 1, printed);
        } else {
            std::string atom = kAtomChars[rng() % 3];  // never starts with '('
            for (int k = rng() % 4; k > 0; k--) atom += kAtomChars[rng() % 12];
            shape += (i ? "," : "") + ("<" + atom + ">");
            *printed += atom;
        }
    }
    if (rng() % 2) *printed += kWhite[rng() % 5];
    *printed += ")";
    return shape + "]";
}

TEST_F(ListParserTest, RandomWellFormedListsReadBack) {
    std::mt19937 rng(99);
    for (int round = 0; round < 2000; round++) {
        std::string printed;
        std::string shape = randomTree(rng, 0, &printed);
        Outcome got = parse(printed);
        ASSERT_EQ(got.list, shape) << printed;
        ASSERT_EQ(got.log, "");
    }
}

TEST_F(ListParserTest, AMegabyteParsesInLinearTime) {
    std::string text = "(";
    while (text.size() < 1024 * 1024)
        text += "(sheet customers (field name text 40) (# comment words) \xC3\xA4)\n";
    text += ")";
    auto start = std::chrono::steady_clock::now();
    Outcome got = parse(text);
    EXPECT_EQ(got.log, "");
    EXPECT_EQ(got.list.substr(0, 31), "[[<sheet>,<customers>,[<field>,");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

}  // namespace
