// container dump|check|store|remove: a container seen from outside.
//
//   dump STEM             one JSON line per stored object, by ascending id:
//                         {"id":N,"type":T,"contents":C}. T is the stored
//                         type or null. A record of a dictionary class shows
//                         the dictionary it rebuilds (its keys in bucket
//                         order); any other record shows its managed
//                         object's entries but __meta, in archive order.
//                         JSON as in Json.h.
//   check STEM            reads and decodes every block as dump does;
//                         prints what is damaged and exits 1, or prints a
//                         summary. dump exits 1 for the same damage.
//   dump, check, remove and compact of a stem that has no container fail and create
//   nothing; store creates the container.
//   store STEM [--id ID]  a JSON object on standard input, stored with set:
//                         as an NSMutableDictionary record; prints the id.
//                         With --id the record is read, emptied, given the
//                         JSON's members in their order and set again: it
//                         keeps its id and bucket count, in a new block.
//   remove STEM ID        removes the record.
//   compact STEM          writes the journal into the index and copies the
//                         live blocks into a fresh pair without free space;
//                         prints "compacted STEM: N objects, X -> Y bytes"
//                         (the data file's length before and after).
//
// Every command reads the index with its journal (<stem>.vcj) replayed, as
// the programs that use the container do.
// Log lines of the container and the archive reader go to standard error,
// so that standard output carries only the result.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "Commands.h"
#include "Json.h"
#include "foundation/NSArray.h"
#include "foundation/NSData.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSSet.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "storage/LXContainer.h"
#include "storage/LXDataKey.h"
#include "storage/LXManagedObject.h"
#include "storage/NSUnarchiver.h"

namespace admin {

std::vector<Block> indexedBlocks(LXContainer* box) {
    std::vector<Block> blocks;
    LXManagedObject* index = static_cast<LXManagedObject*>(box->valueForKey_("index"_ns));
    NSArray* ids = box->allIds();
    for (uint32_t i = 0; i < ids->count(); i++) {
        NSString* key = static_cast<NSString*>(ids->objectAtIndex_(i));
        NSString* pos = "objects.pos."_ns->stringByAppendingString_(key);
        NSString* length = "objects.length."_ns->stringByAppendingString_(key);
        blocks.push_back({key->intValue(),
                          static_cast<NSNumber*>(index->objectForKeyPath_(pos))->intValue(),
                          static_cast<NSNumber*>(index->objectForKeyPath_(length))->intValue()});
    }
    std::sort(blocks.begin(), blocks.end(),
              [](const Block& a, const Block& b) { return a.id < b.id; });
    return blocks;
}

namespace {

bool parseId(const char* text, int* out) {
    char* end = nullptr;
    long value = std::strtol(text, &end, 10);
    if (!*text || *end || value <= 0 || value > 0x7FFFFFFF) return false;
    *out = static_cast<int>(value);
    return true;
}

// The bytes of a block as the data file holds them; false when the file
// ends before the block does.
bool readBlock(FILE* data, const Block& block, std::string* out) {
    out->assign(static_cast<size_t>(block.length), '\0');
    return std::fseek(data, block.offset, SEEK_SET) == 0 &&
           std::fread(&(*out)[0], 1, out->size(), data) == out->size();
}

// A block deciphered and decoded, with the key order of the archive kept.
// The caller releases the unarchiver, which owns the object.
NSObject* decodeBlock(const std::string& bytes, NSUnarchiver** reader) {
    NSData* data = NSData::dataWithBytes_length_(bytes.data(), static_cast<uint32_t>(bytes.size()));
    data->decryptWithKey_(LXDataKey());
    *reader = NSUnarchiver::alloc()->initForReadingWithData_(data);
    (*reader)->recordKeyOrder();
    return (*reader)->decodeObject();
}

bool isDictionaryType(NSObject* type) {
    if (!type || !type->isKindOfClass_(NSString::classObject())) return false;
    Class cls = NSClassFromString(static_cast<NSString*>(type));
    return cls && cls->isSubclassOf(NSDictionary::classObject());
}

// Reads and decodes one block as dump shows it; answers what is wrong with
// it, or null with *object set. dump and check both read every block
// through here, so that they agree on what is damaged. The caller
// releases *reader when it is set.
const char* readObject(FILE* data, const Block& block, NSUnarchiver** reader,
                       LXManagedObject** object, std::string* why) {
    std::string bytes;
    *object = nullptr;
    if (!data || !readBlock(data, block, &bytes)) return "lies beyond the end of the data file";
    NSObject* decoded = decodeBlock(bytes, reader);
    if (!decoded) return "does not decode";
    if (!decoded->isKindOfClass_(LXManagedObject::classObject()))
        return "does not hold a managed object";
    if ((*reader)->pos() != bytes.size()) return "holds bytes after its object";
    LXManagedObject* managed = static_cast<LXManagedObject*>(decoded);
    NSObject* id = managed->uniqueId();
    if (!id || !id->isKindOfClass_(NSNumber::classObject()) ||
        static_cast<NSNumber*>(id)->intValue() != block.id) {
        return "holds another object's id";
    }
    NSObject* type = managed->objectForKeyPath_("__meta.type"_ns);
    Class cls = type && type->isKindOfClass_(NSString::classObject())
                        ? NSClassFromString(static_cast<NSString*>(type))
                        : nullptr;
    if (cls && !LXContainer::recordFits(managed, cls, why)) {
        *why = "holds a record that makes no " + std::string(cls->name()) + ": " + *why;
        return why->c_str();
    }
    *object = managed;
    return nullptr;
}

std::string contentsJSON(LXManagedObject* object, NSObject* type, NSUnarchiver* reader) {
    std::string out;
    if (isDictionaryType(type)) {
        // The dictionary that queryById:class: would build.
        NSMutableDictionary* rebuilt = NSMutableDictionary::dictionaryWithCapacity_(10);
        rebuilt->setValue_forKey_(object->objectForKey_("count"_ns), "count"_ns);
        rebuilt->setValue_forKey_(object->objectForKey_("array"_ns), "array"_ns);
        appendJSON(&out, rebuilt);
        return out;
    }
    const std::vector<NSObject*>* order = reader->keysInArchiveOrder(object);
    NSMutableDictionary* plain =
            NSMutableDictionary::dictionaryWithCapacity_(object->count() ? object->count() : 10);
    std::vector<NSObject*> keys;
    if (order) {
        keys = *order;
    } else {
        NSMutableArray* all = object->allKeys();
        for (uint32_t i = 0; i < all->count(); i++) keys.push_back(all->objectAtIndex_(i));
    }
    std::vector<NSObject*> shown;
    for (NSObject* key : keys) {
        if (key->isEqual_("__meta"_ns)) continue;
        plain->setObject_forKey_(object->objectForKey_(key), key);
        shown.push_back(key);
    }
    appendJSON(&out, plain,
               [&shown, plain, reader](NSDictionary* d) -> const std::vector<NSObject*>* {
                   return d == plain ? &shown : reader->keysInArchiveOrder(d);
               });
    return out;
}

// The container of the stem, or nil after a message: one that does not
// open cleanly, or, with `existing`, one that is not there (reading a name
// must not create a store).
LXContainer* openContainer(const char* stem, bool existing) {
    NSString* name = NSString::stringWithUTF8String_(stem);
    LXContainer* box = existing ? LXContainer::existingContainerWithName_(name)
                                : LXContainer::containerWithName_(name);
    if (!box) {
        std::fprintf(stderr, "vantor-admin: no container %s: neither %s.vci nor %s.vcd holds one\n",
                     stem, stem, stem);
        return nullptr;
    }
    if (box->isDamaged()) {
        std::fprintf(
                stderr,
                "vantor-admin: container %s is damaged (see the line above); nothing was changed\n",
                stem);
        return nullptr;
    }
    return box;
}

int dump(const char* stem) {
    LogToStderr redirect;
    LXContainer* box = openContainer(stem, true);
    if (!box) return 1;
    std::vector<Block> blocks = indexedBlocks(box);
    // A container holding nothing may have no data file at all.
    FILE* data = std::fopen((std::string(stem) + ".vcd").c_str(), "rb");
    if (!data && !blocks.empty()) {
        std::fprintf(stderr, "vantor-admin: container %s: can't read the data file\n", stem);
        return 1;
    }
    int status = 0;
    std::string line;
    for (const Block& block : blocks) {
        NSUnarchiver* reader = nullptr;
        LXManagedObject* managed = nullptr;
        std::string why;
        if (const char* problem = readObject(data, block, &reader, &managed, &why)) {
            std::fprintf(stderr, "vantor-admin: container %s: object %d %s\n", stem, block.id,
                         problem);
            status = 1;
        } else {
            NSObject* type = managed->objectForKeyPath_("__meta.type"_ns);
            line = "{\"id\":" + std::to_string(block.id) + ",\"type\":";
            appendJSON(&line, type);
            line += ",\"contents\":" + contentsJSON(managed, type, reader) + "}\n";
            std::fwrite(line.data(), 1, line.size(), redirect.results());
        }
        if (reader) reader->release();
    }
    if (data) std::fclose(data);
    return status;
}

// The index's own shape (ids, block positions, overlaps, type sets) is
// checked when the container opens; a store that opens has a sound index,
// and what is left to check is each block.
int check(const char* stem, bool json) {
    LogToStderr redirect;
    FILE* out = redirect.results();
    LXContainer* box = openContainer(stem, true);
    if (!box) {
        if (json) {
            std::fprintf(out, "%s\n",
                         JsonObject()
                                 .add("stem", stem)
                                 .addBool("ok", false)
                                 .add("problem", "the store does not open")
                                 .text()
                                 .c_str());
        } else {
            std::fprintf(out, "damaged: the store does not open; see standard error\n");
        }
        return 1;
    }
    std::string problems;
    std::vector<Block> blocks = indexedBlocks(box);
    std::string dataPath = std::string(stem) + ".vcd";
    FILE* data = std::fopen(dataPath.c_str(), "rb");
    long fileLength = 0;
    if (data && std::fseek(data, 0, SEEK_END) == 0) fileLength = std::ftell(data);
    int damaged = 0;
    long used = 0;
    for (const Block& block : blocks) {
        NSUnarchiver* reader = nullptr;
        LXManagedObject* managed = nullptr;
        std::string why;
        const char* problem = readObject(data, block, &reader, &managed, &why);
        if (problem && json) {
            problems += problems.empty() ? "[" : ",";
            problems += JsonObject()
                                .add("id", block.id)
                                .add("offset", static_cast<double>(block.offset))
                                .add("length", static_cast<double>(block.length))
                                .add("problem", problem)
                                .text();
        } else if (problem) {
            std::fprintf(out, "damaged: object %d, block at %ld of %ld bytes, %s\n", block.id,
                         block.offset, block.length, problem);
        }
        if (problem) damaged++;
        if (reader) reader->release();
        used += block.length;
    }
    if (data) std::fclose(data);

    if (json) {
        std::fprintf(out, "%s\n",
                     JsonObject()
                             .add("stem", stem)
                             .addBool("ok", damaged == 0)
                             .add("objects", static_cast<double>(blocks.size()))
                             .add("bytesInBlocks", static_cast<double>(used))
                             .add("dataFileBytes", static_cast<double>(fileLength))
                             .add("highestId", box->maxId())
                             .addJSON("problems", problems.empty() ? "[]" : problems + "]")
                             .text()
                             .c_str());
        return damaged ? 1 : 0;
    }
    if (damaged) {
        std::fprintf(out, "%d problem%s in %zu objects\n", damaged, damaged == 1 ? "" : "s",
                     blocks.size());
        return 1;
    }
    std::fprintf(out, "ok: %zu objects, %ld bytes in blocks, data file %ld bytes, highest id %d\n",
                 blocks.size(), used, fileLength, box->maxId());
    return 0;
}

// The raw texts of the member names of the JSON object `text`, in the
// order they stand. The text has been parsed already, so it is valid JSON:
// this only walks strings and brackets to find the top level.
std::vector<std::string> memberNameTexts(const std::string& text) {
    std::vector<std::string> names;
    int depth = 0;
    bool expectName = false;
    for (size_t i = 0; i < text.size(); i++) {
        char c = text[i];
        if (c == '"') {
            size_t start = i;
            for (i++; i < text.size() && text[i] != '"'; i++) {
                if (text[i] == '\\') i++;
            }
            if (depth == 1 && expectName) names.push_back(text.substr(start, i - start + 1));
            expectName = false;
        } else if (c == '{' || c == '[') {
            depth++;
            expectName = depth == 1;
        } else if (c == '}' || c == ']') {
            depth--;
        } else if (c == ',' && depth == 1) {
            expectName = true;
        }
    }
    return names;
}

int store(const char* stem, int id) {
    std::string text = readAll(stdin);
    std::string error;
    LogToStderr redirect;
    NSObject* parsed = newObjectFromJSON(text, &error);
    if (!parsed) {
        std::fprintf(stderr, "vantor-admin: container store: %s\n", error.c_str());
        return 1;
    }
    NSAutorelease(parsed);
    if (!parsed->isMemberOfClass_(NSMutableDictionary::classObject())) {
        std::fprintf(stderr,
                     "vantor-admin: container store: the input is not a JSON object of members\n");
        return 1;
    }
    LXContainer* box = openContainer(stem, false);
    if (!box) return 1;
    NSMutableDictionary* record = static_cast<NSMutableDictionary*>(parsed);
    if (id) {
        LXManagedObject* stored = box->objectWithId_(id);
        if (!stored) {
            std::fprintf(stderr, "vantor-admin: container store: no object %d in %s\n", id, stem);
            return 1;
        }
        if (!isDictionaryType(stored->objectForKeyPath_("__meta.type"_ns))) {
            std::fprintf(stderr,
                         "vantor-admin: container store: object %d is not a dictionary record\n",
                         id);
            return 1;
        }
        record = static_cast<NSMutableDictionary*>(
                box->queryById_class_(id, NSMutableDictionary::classObject()));
        if (!record) return 1;
        record->removeAllObjects();
        for (const std::string& nameText : memberNameTexts(text)) {
            NSObject* name = newObjectFromJSON(nameText, &error);
            if (!name) continue;
            record->setObject_forKey_(static_cast<NSDictionary*>(parsed)->objectForKey_(name),
                                      name);
            name->release();
        }
    }
    int stored = box->set_(record);
    if (stored < 0) {
        std::fprintf(stderr, "vantor-admin: container store: the store failed\n");
        return 1;
    }
    std::fprintf(redirect.results(), "%d\n", stored);
    return 0;
}

int remove(const char* stem, int id) {
    LogToStderr redirect;
    LXContainer* box = openContainer(stem, true);
    if (!box) return 1;
    LXManagedObject* object = box->objectWithId_(id);
    if (!object) {
        std::fprintf(stderr, "vantor-admin: container remove: no object %d in %s\n", id, stem);
        return 1;
    }
    if (!box->remove_(object)) {
        std::fprintf(stderr, "vantor-admin: container remove: the index could not be written\n");
        return 1;
    }
    return 0;
}

long fileLength(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return 0;
    long length = std::fseek(f, 0, SEEK_END) == 0 ? std::ftell(f) : 0;
    std::fclose(f);
    return length;
}

int compact(const char* stem) {
    LogToStderr redirect;
    LXContainer* box = openContainer(stem, true);
    if (!box) return 1;
    std::string data = std::string(stem) + ".vcd";
    long before = fileLength(data);
    if (!box->compact()) {
        std::fprintf(
                stderr,
                "vantor-admin: container compact: %s could not be compacted (see the line above)\n",
                stem);
        return 1;
    }
    std::fprintf(redirect.results(), "compacted %s: %u objects, %ld -> %ld bytes\n", stem,
                 box->allIds()->count(), before, fileLength(data));
    return 0;
}

}  // namespace

int runContainer(int argc, char** argv) {
    Arguments args;
    if (!parseArguments("container", argc, argv, {{"--id", true}, {"--json", false}}, &args))
        return 2;
    const std::vector<std::string>& w = args.words;
    if (w.empty()) return wrongUsage("container", "missing verb (dump, check, store, remove)", "");
    const std::string& verb = w[0];
    size_t wanted = verb == "remove"                                                            ? 3
                    : verb == "dump" || verb == "check" || verb == "store" || verb == "compact" ? 2
                                                                                                : 0;
    if (wanted == 0)
        return wrongUsage("container", "unknown verb (dump, check, store, remove, compact)", verb);
    if (w.size() < wanted)
        return wrongUsage("container", verb == "remove" ? "missing STEM or ID" : "missing STEM",
                          verb);
    if (w.size() > wanted) return wrongUsage("container", "unexpected argument", w[wanted]);
    if (args.has("--id") && verb != "store")
        return wrongUsage("container", "--id belongs to store, not", verb);
    if (args.has("--json") && verb != "check")
        return wrongUsage("container", "--json belongs to check, not", verb);
    const char* stem = w[1].c_str();
    int id = 0;
    if (verb == "dump") return dump(stem);
    if (verb == "check") return check(stem, args.has("--json"));
    if (verb == "store") {
        if (args.has("--id") && !parseId(args.value("--id"), &id))
            return wrongUsage("container", "not a record id", args.value("--id"));
        return store(stem, id);
    }
    if (verb == "compact") return compact(stem);
    if (!parseId(w[2].c_str(), &id)) return wrongUsage("container", "not a record id", w[2]);
    return remove(stem, id);
}

}  // namespace admin
