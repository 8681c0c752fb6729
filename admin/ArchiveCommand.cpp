// archive encode|decode [--key KEY]: the archive format seen from outside.
// encode reads JSON on standard input and writes its archive on standard
// output; decode does the reverse (see Json.h for the mapping). With a key,
// the whole stream is enciphered after encoding, or deciphered before
// decoding, in one call. The archive code's own log lines (a malformed
// archive, a class without a body) go to standard error, so that standard
// output carries nothing but the result.
#include <cstdio>
#include <cstring>
#include <string>

#include "Commands.h"
#include "Json.h"
#include "foundation/NSData.h"
#include "foundation/NSString.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"

namespace admin {

namespace {

int encode(NSString* key) {
    std::string text = readAll(stdin);
    std::string error;
    NSObject* object;
    NSMutableData* data = static_cast<NSMutableData*>(NSMutableData::alloc()->init());
    {
        LogToStderr redirect;
        object = newObjectFromJSON(text, &error);
        if (object) {
            NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(data);
            archiver->encodeRootObject_(object);
            archiver->release();
            object->release();
        }
    }
    if (!object) {
        data->release();
        std::fprintf(stderr, "vantor-admin: archive encode: %s\n", error.c_str());
        return 1;
    }
    if (key) data->encryptWithKey_(key);
    void* bytes = data->bytes();
    std::fwrite(bytes, 1, data->length(), stdout);
    std::free(bytes);
    data->release();
    return 0;
}

int decode(NSString* key) {
    std::string bytes = readAll(stdin);
    if (bytes.size() >= UINT32_MAX) {
        std::fprintf(stderr, "vantor-admin: archive decode: larger than 4 GB\n");
        return 1;
    }
    NSData* data = NSData::alloc()->initWithBytes_length_(bytes.data(),
                                                          static_cast<uint32_t>(bytes.size()));
    if (key) data->decryptWithKey_(key);
    NSUnarchiver* unarchiver = NSUnarchiver::alloc()->initForReadingWithData_(data);
    unarchiver->recordKeyOrder();
    NSObject* root;
    std::string json;
    {
        LogToStderr redirect;
        root = unarchiver->decodeObject();
        if (root) {
            appendJSON(&json, root,
                       [unarchiver](NSDictionary* d) { return unarchiver->keysInArchiveOrder(d); });
        }
    }
    uint32_t end = unarchiver->pos();
    bool failed = unarchiver->decodingFailed();
    unarchiver->release();
    data->release();
    if (!root) {
        std::fprintf(stderr, "vantor-admin: archive decode: %s\n",
                     failed ? "the archive does not decode (see the line above)"
                            : "the archive's object reads back as nil (a class without a body)");
        return 1;
    }
    // Nothing in the format marks its end; what follows the object is
    // shown to the operator, not treated as an error.
    if (end < bytes.size()) {
        std::fprintf(stderr, "vantor-admin: archive decode: %zu bytes after the object ignored\n",
                     bytes.size() - end);
    }
    json.push_back('\n');
    std::fwrite(json.data(), 1, json.size(), stdout);
    return 0;
}

}  // namespace

int runArchive(int argc, char** argv) {
    Arguments args;
    if (!parseArguments("archive", argc, argv, {{"--key", true}}, &args)) return 2;
    if (args.words.empty()) return wrongUsage("archive", "missing encode or decode", "");
    const std::string& verb = args.words[0];
    if (verb != "encode" && verb != "decode")
        return wrongUsage("archive", "unknown verb (encode, decode)", verb);
    if (args.words.size() > 1) return wrongUsage("archive", "unexpected argument", args.words[1]);
    NSString* key = nullptr;
    if (const char* given = args.value("--key")) {
        // The cipher needs at least one key character.
        if (!*given) return wrongUsage("archive", "the key must not be empty", given);
        key = NSString::stringWithUTF8String_(given);
    }
    return verb == "encode" ? encode(key) : decode(key);
}

}  // namespace admin
