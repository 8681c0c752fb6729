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

void appendJSONString(std::string* out, NSString* atom) {
    static const char kHex[] = "0123456789abcdef";
    out->push_back('"');
    // The atom's UTF-8 comes from 16-bit units of at most 0x07FF, so it is
    // valid UTF-8 and passes through; only the characters JSON forbids raw
    // are escaped (and DEL, to keep the line printable).
    const char* bytes = atom->UTF8String();
    for (uint32_t i = 0, n = atom->byteLength(); i < n; i++) {
        unsigned char c = static_cast<unsigned char>(bytes[i]);
        switch (c) {
            case '"':
                out->append("\\\"");
                break;
            case '\\':
                out->append("\\\\");
                break;
            case '\b':
                out->append("\\b");
                break;
            case '\f':
                out->append("\\f");
                break;
            case '\n':
                out->append("\\n");
                break;
            case '\r':
                out->append("\\r");
                break;
            case '\t':
                out->append("\\t");
                break;
            default:
                if (c < 0x20 || c == 0x7F) {
                    out->append("\\u00");
                    out->push_back(kHex[c >> 4]);
                    out->push_back(kHex[c & 15]);
                } else {
                    out->push_back(static_cast<char>(c));
                }
        }
    }
    out->push_back('"');
}

// Recursion is bounded by the parser's depth limit.
void appendJSON(std::string* out, NSObject* value) {
    if (value && value->isKindOfClass_(NSArray::classObject())) {
        auto* list = static_cast<NSArray*>(value);
        out->push_back('[');
        for (uint32_t i = 0; i < list->count(); i++) {
            if (i) out->push_back(',');
            appendJSON(out, list->objectAtIndex_(i));
        }
        out->push_back(']');
    } else if (value) {
        appendJSONString(out, static_cast<NSString*>(value));
    } else {
        out->append("null");
    }
}

}  // namespace

int runParseList(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: vantor-admin parse-list FILE\n");
        return 2;
    }
    const char* path = argv[1];
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
    std::string json;
    appendJSON(&json, list);
    json.push_back('\n');
    std::fwrite(json.data(), 1, json.size(), stdout);
    return 0;
}

}  // namespace admin
