// relay status DIR [--json]: what a relay's store holds, read from its
// files in DIR (the relay's --dir) without running or disturbing the relay:
// nothing is written, no queue is rebuilt in a relay's stead, and a relay
// working there goes on as it was.
//
// Text: one line for the store (deltas, bytes, data and index file sizes,
// free space of its file system), then one line per addressee's queue in
// the order of its oldest delta:
//   queue UNIQUEID: N delta(s), B bytes, oldest from DATE (AGE)
// The age of a delta is that of the change it carries (the record's
// __modified or __created stamp): a delta has no time of its own. A stored
// delta without an addressee is counted as "unqueued": no collect can ever
// take it.
// --json: one object: {"store", "deltas", "bytes", "dataFileBytes",
// "indexFileBytes", "freeBytes", "totalBytes", "unqueued", "queues":
// [{"addressee", "deltas", "bytes", "oldest", "oldestAgeSeconds"}]} (dates
// and ages null when unknown).
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "Commands.h"
#include "Json.h"
#include "foundation/Foundation.h"
#include "foundation/platform/Platform.h"
#include "storage/LXContainer.h"
#include "sync/LXDelta.h"
#include "sync/LXRelay.h"
#include "sync/LXUser.h"

namespace admin {

namespace {

struct Queue {
    std::string addressee;
    long deltas = 0;
    long bytes = 0;
    NSDate* oldest = nullptr;  // retained
};

// When the change a delta carries was made: the newest stamp of its record,
// or nil.
NSDate* changeDate(LXDelta* delta) {
    NSObject* contents = delta->contents();
    if (!contents || !contents->isKindOfClass_(NSDictionary::classObject())) return nullptr;
    NSObject* object = static_cast<NSDictionary*>(contents)->objectForKey_("object"_ns);
    if (!object || !object->isKindOfClass_(NSDictionary::classObject())) return nullptr;
    for (const char* stamp : {"__modified", "__created"}) {
        NSObject* date = static_cast<NSDictionary*>(object)->objectForKey_(
                NSString::stringWithUTF8String_(stamp));
        if (date && date->isKindOfClass_(NSDate::classObject())) return static_cast<NSDate*>(date);
    }
    return nullptr;
}

long fileSize(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return 0;
    long size = std::fseek(f, 0, SEEK_END) == 0 ? std::ftell(f) : 0;
    std::fclose(f);
    return size;
}

std::string ageText(double seconds) {
    long s = static_cast<long>(seconds);
    char text[64];
    if (s >= 86400) {
        std::snprintf(text, sizeof text, "%ldd %ldh", s / 86400, s % 86400 / 3600);
    } else if (s >= 3600) {
        std::snprintf(text, sizeof text, "%ldh %ldm", s / 3600, s % 3600 / 60);
    } else {
        std::snprintf(text, sizeof text, "%ldm %lds", s / 60, s % 60);
    }
    return text;
}

int status(const std::string& dir, bool json) {
    std::string stem = dir + "/" + LXRelay::kContainerName;
    LogToStderr redirect;
    FILE* out = redirect.results();
    if (!vtFileExists((stem + ".vci").c_str())) {
        std::fprintf(stderr,
                     "vantor-admin: relay status: no relay store in %s (%s.vci is missing)\n",
                     dir.c_str(), LXRelay::kContainerName);
        return 1;
    }
    LXContainer* box =
            LXContainer::existingContainerWithName_(NSString::stringWithUTF8String_(stem.c_str()));
    if (!box || box->isDamaged()) {
        std::fprintf(stderr,
                     "vantor-admin: relay status: the relay store %s.vcd/.vci is damaged or "
                     "unreadable\n",
                     stem.c_str());
        return 1;
    }
    std::map<int, long> lengths;
    for (const Block& block : indexedBlocks(box)) lengths[block.id] = block.length;

    std::map<std::string, Queue> queues;
    long deltas = 0, bytes = 0, unqueued = 0;
    for (const auto& [id, length] : lengths) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        auto* delta = static_cast<LXDelta*>(box->queryById_class_(id, LXDelta::classObject()));
        NSString* addressee = delta ? NSNil(delta->addressee(), &LXUser::uniqueId) : nullptr;
        if (delta) {
            deltas++;
            bytes += length;
        }
        if (delta && addressee && addressee->length() > 0) {
            Queue& q = queues[addressee->UTF8String()];
            q.addressee = addressee->UTF8String();
            q.deltas++;
            q.bytes += length;
            NSDate* when = changeDate(delta);
            if (when && (!q.oldest || when->timeIntervalSinceDate_(q.oldest) < 0)) {
                NSRelease(q.oldest);
                q.oldest = NSRetain(when);
            }
        } else if (delta) {
            unqueued++;
        }
        pool->release();
    }
    std::vector<Queue*> order;
    for (auto& entry : queues) order.push_back(&entry.second);
    // Oldest first: the queue waiting longest is the one to look at.
    std::stable_sort(order.begin(), order.end(), [](Queue* a, Queue* b) {
        if (!a->oldest || !b->oldest) return a->oldest != nullptr && b->oldest == nullptr;
        return a->oldest->timeIntervalSinceDate_(b->oldest) < 0;
    });
    uint64_t freeBytes = 0, totalBytes = 0;
    bool space = vtDiskSpace(dir.c_str(), &freeBytes, &totalBytes);
    long dataBytes = fileSize(stem + ".vcd"), indexBytes = fileSize(stem + ".vci");

    if (json) {
        std::string list = "[";
        for (Queue* q : order) {
            if (list.size() > 1) list += ",";
            JsonObject shown;
            shown.add("addressee", q->addressee).add("deltas", q->deltas).add("bytes", q->bytes);
            shown.add("oldest", q->oldest ? q->oldest->description()->UTF8String() : nullptr);
            if (q->oldest) {
                shown.add("oldestAgeSeconds", -q->oldest->timeIntervalSinceNow());
            } else {
                shown.addJSON("oldestAgeSeconds", "null");
            }
            list += shown.text();
        }
        JsonObject shown;
        shown.add("store", stem).add("deltas", deltas).add("bytes", bytes);
        shown.add("dataFileBytes", dataBytes).add("indexFileBytes", indexBytes);
        if (space) {
            shown.add("freeBytes", static_cast<double>(freeBytes))
                    .add("totalBytes", static_cast<double>(totalBytes));
        } else {
            shown.addJSON("freeBytes", "null").addJSON("totalBytes", "null");
        }
        shown.add("unqueued", unqueued).addJSON("queues", list + "]");
        std::fprintf(out, "%s\n", shown.text().c_str());
    } else {
        std::fprintf(out,
                     "store %s: %ld delta(s) in %zu queue(s), %ld bytes; files %ld + %ld bytes",
                     stem.c_str(), deltas, queues.size(), bytes, dataBytes, indexBytes);
        if (space) {
            std::fprintf(out, "; %.1f MB free of %.1f MB", freeBytes / 1e6, totalBytes / 1e6);
        }
        std::fprintf(out, "\n");
        if (unqueued) std::fprintf(out, "unqueued: %ld delta(s) without an addressee\n", unqueued);
        for (Queue* q : order) {
            std::fprintf(out, "queue %s: %ld delta(s), %ld bytes", q->addressee.c_str(), q->deltas,
                         q->bytes);
            if (q->oldest) {
                std::fprintf(out, ", oldest from %s (%s ago)",
                             q->oldest->description()->UTF8String(),
                             ageText(-q->oldest->timeIntervalSinceNow()).c_str());
            }
            std::fprintf(out, "\n");
        }
    }
    for (auto& entry : queues) NSRelease(entry.second.oldest);
    return 0;
}

}  // namespace

int runRelay(int argc, char** argv) {
    Arguments args;
    if (!parseArguments("relay", argc, argv, {{"--json", false}}, &args)) return 2;
    const std::vector<std::string>& w = args.words;
    if (w.empty()) return wrongUsage("relay", "missing verb (status)", "");
    if (w[0] != "status") return wrongUsage("relay", "unknown verb (status)", w[0]);
    if (w.size() < 2) return wrongUsage("relay", "missing DIR after", w[0]);
    if (w.size() > 2) return wrongUsage("relay", "unexpected argument", w[2]);
    return status(w[1], args.has("--json"));
}

}  // namespace admin
