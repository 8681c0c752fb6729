// parse-list FILE: reads a configuration list as the client does (the file's
// bytes as UTF-8 text, LXListParser) and prints it as JSON on one line:
// atoms as strings, lists as arrays. A syntax error shows the parser's log
// lines on standard output and fails.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "Commands.h"
#include "Json.h"
#include "foundation/NSArray.h"
#include "foundation/NSString.h"
#include "sheets/LXListParser.h"

namespace admin {

namespace {

// The whole file, or false with errno set.
bool readFile(const char* path, std::string* out) {
    FILE* f = std::fopen(path, "rb");
    if (!f) return false;
    char buffer[65536];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) out->append(buffer, n);
    bool failed = std::ferror(f) != 0;
    int saved = errno;
    std::fclose(f);
    errno = saved;
    return !failed;
}

}  // namespace

int runParseList(int argc, char** argv) {
    Arguments args;
    if (!parseArguments("parse-list", argc, argv, {}, &args)) return 2;
    if (args.words.size() != 1) {
        return wrongUsage("parse-list",
                          args.words.empty() ? "missing FILE" : "one FILE only, not also",
                          args.words.empty() ? "" : args.words[1]);
    }
    const char* path = args.words[0].c_str();
    std::string bytes;
    if (!readFile(path, &bytes)) {
        std::fprintf(stderr, "vantor-admin: cannot read %s: %s\n", path, std::strerror(errno));
        return 1;
    }
    if (bytes.size() >= UINT32_MAX) {
        std::fprintf(stderr, "vantor-admin: cannot read %s: larger than 4 GB\n", path);
        return 1;
    }
    Ref<NSString> text = adoptRef(NSString::alloc()->initWithBytes_length_(
            bytes.data(), static_cast<uint32_t>(bytes.size())));
    NSMutableArray* list = LXListParser::listParserWithString_(text.get())->parse();
    if (!list) return 1;
    // Atoms print as JSON strings and lists as arrays.
    std::string json;
    appendJSON(&json, list);
    json.push_back('\n');
    std::fwrite(json.data(), 1, json.size(), stdout);
    return 0;
}

}  // namespace admin
