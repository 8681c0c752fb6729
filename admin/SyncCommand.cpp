// sync [--cycles N] [--port N] [--timeout SECONDS] | deltas
//
// sync: the transceiver's check cycles of the client, run in the
// foreground as the user of the installation in the working directory (see
// Session.h): the deltas waiting in the delta store go to the relay named
// in transceiver.txt, and what the relay holds for the user is applied
// through the workspace. Without --cycles it runs cycles until one goes
// through to its end without moving anything; a cycle that can't reach the
// relay, or that breaks off (a cut connection, a refused delta), ends it
// with status 1, the deltas still waiting and the relay keeping the rest,
// so that running it again goes on where it stopped. With --cycles it runs
// exactly N and answers for the last one. --port: the relay's port
// (default 8888); --timeout: how long each element of the exchange may
// take, in seconds (default 30). Prints one line per cycle:
//   cycle N: sent S, received R, waiting W
//
// deltas: the outgoing deltas waiting in the delta store, one JSON object
// per line in sending order: {"to": ..., "action": ..., "sheet": ...,
// "recordId": ..., "fields": [...]} ("fields" for set deltas only).
//
// deltas --refused: the incoming deltas kept aside in "_refused_" because
// they can never be applied here, in the order they were refused, in the
// same style led by "reason", "refused" (the time) and "from".
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Commands.h"
#include "Json.h"
#include "Session.h"
#include "foundation/Foundation.h"
#include "foundation/platform/Platform.h"
#include "sync/LXDelta.h"
#include "sync/LXRefusedDeltas.h"
#include "sync/LXSocket.h"
#include "sync/LXTransceiver.h"
#include "sync/LXUser.h"

namespace admin {

namespace {

int sync(long cycles, uint32_t port, bool json) {
    Session session;
    if (!session.open("sync")) return 1;
    NSString* host = session.relayHost();
    if (!host || host->length() == 0) {
        std::fprintf(stderr, "vantor-admin: sync: transceiver.txt names no relay host\n");
        return 1;
    }
    LXTransceiver* transceiver = LXTransceiver::defaultTransceiver();
    Progress progress("sync:", 0);
    for (long n = 1;; n++) {
        progress.showText("cycle " + std::to_string(n) + " with " + host->UTF8String() + " port " +
                          std::to_string(port) + ", " + std::to_string(transceiver->deltaCount()) +
                          " delta(s) to send ...");
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        transceiver->checkWithPort_host_(port, host);
        pool->release();
        int32_t sent = transceiver->lastCycleSent();
        int32_t received = transceiver->lastCycleReceived();
        uint32_t waiting = transceiver->deltaCount();
        bool complete = transceiver->lastCycleComplete();
        if (json) {
            std::fprintf(session.results(), "%s\n",
                         JsonObject()
                                 .add("cycle", static_cast<double>(n))
                                 .add("sent", sent)
                                 .add("received", received)
                                 .add("waiting", waiting)
                                 .addBool("complete", complete)
                                 .text()
                                 .c_str());
        } else {
            std::fprintf(session.results(), "cycle %ld: sent %d, received %d, waiting %u\n", n,
                         sent, received, waiting);
        }
        std::fflush(session.results());
        bool quiet = complete && sent == 0 && received == 0 && waiting == 0;
        if (cycles > 0 && n < cycles) continue;
        if (complete && (quiet || cycles > 0)) return 0;
        if (complete) continue;
        std::fprintf(stderr,
                     "vantor-admin: sync: the relay at %s port %u was not reached or broke off; %u "
                     "delta(s) still "
                     "waiting here\n",
                     host->UTF8String(), port, waiting);
        return 1;
    }
}

// One line of JSON for a delta: `head` (members shown first, in order),
// then "to", "action", "sheet", "recordId" and "fields" from the delta.
// False when the delta has no contents dictionary to show.
bool printDelta(FILE* out, LXDelta* delta,
                const std::vector<std::pair<const char*, NSObject*>>& head) {
    NSObject* contents = NSNil(delta, &LXDelta::contents);
    if (!contents || !contents->isKindOfClass_(NSDictionary::classObject())) return false;
    auto* c = static_cast<NSDictionary*>(contents);
    NSMutableDictionary* shown = NSMutableDictionary::dictionary();
    std::vector<NSObject*> order;
    auto put = [&](const char* key, NSObject* value) {
        if (!value) return;
        NSString* k = NSString::stringWithUTF8String_(key);
        shown->setObject_forKey_(value, k);
        order.push_back(k);
    };
    for (const auto& member : head) put(member.first, member.second);
    put("to", NSNil(delta->addressee(), &LXUser::uniqueId));
    put("action", c->objectForKey_("action"_ns));
    put("sheet", c->objectForKey_("sheet"_ns));
    NSObject* object = c->objectForKey_("object"_ns);
    put("recordId", object && object->isKindOfClass_(NSDictionary::classObject())
                            ? static_cast<NSDictionary*>(object)->objectForKey_("__recordId"_ns)
                            : c->objectForKey_("objectId"_ns));
    put("fields", c->objectForKey_("fields"_ns));
    std::string json;
    appendJSON(&json, shown, [&](NSDictionary* d) { return d == shown ? &order : nullptr; });
    std::fprintf(out, "%s\n", json.c_str());
    return true;
}

int deltas() {
    Session session;
    if (!session.open("deltas")) return 1;
    LXDeltaRepository* repository = LXTransceiver::defaultTransceiver()->deltaRepository();
    NSArray* ids = repository->sortedIds();
    for (uint32_t i = 0; i < ids->count(); i++) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        auto* id = static_cast<NSString*>(ids->objectAtIndex_(i));
        if (!printDelta(session.results(), repository->deltaWithId_(id), {})) {
            std::fprintf(session.results(), "{\"unreadable\": %s}\n", id->UTF8String());
        }
        pool->release();
    }
    return 0;
}

// The incoming deltas kept aside as never applicable, in the order they
// were refused: the style of `deltas`, led by "reason", "refused" (when)
// and "from". One that did not decode as a delta shows its size instead.
int refusedDeltas() {
    Session session;
    if (!session.open("deltas")) return 1;
    // Nothing was ever refused here: no store to list, and none to make.
    if (!vtFileExists((std::string(LXRefusedDeltas::kContainerName) + ".vci").c_str())) return 0;
    LXRefusedDeltas* store = LXTransceiver::defaultTransceiver()->refusedDeltas();
    NSArray* ids = store->sortedIds();
    for (uint32_t i = 0; i < ids->count(); i++) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        auto* id = static_cast<NSString*>(ids->objectAtIndex_(i));
        LXRefusedDelta* entry = store->refusedDeltaWithId_(id);
        LXDelta* delta = NSNil(entry, &LXRefusedDelta::delta);
        NSString* when = entry && entry->refused() ? entry->refused()->description() : nullptr;
        NSString* from = NSNil(delta, &LXDelta::sender) ? delta->sender()->description() : nullptr;
        if (!entry) {
            std::fprintf(session.results(), "{\"unreadable\": %s}\n", id->UTF8String());
        } else if (!printDelta(session.results(), delta,
                               {{"reason", entry->reason()}, {"refused", when}, {"from", from}})) {
            NSMutableDictionary* shown = NSMutableDictionary::dictionary();
            std::vector<NSObject*> order;
            NSData* archive = entry->archive();
            std::pair<const char*, NSObject*> members[] = {
                    {"reason", entry->reason()},
                    {"refused", when},
                    {"from", from},
                    {"to", delta && delta->addressee() ? delta->addressee()->uniqueId() : nullptr},
                    {"bytes",
                     archive ? NSNumber::numberWithInt_(static_cast<int>(archive->length()))
                             : nullptr}};
            for (const auto& member : members) {
                if (!member.second) continue;
                NSString* k = NSString::stringWithUTF8String_(member.first);
                shown->setObject_forKey_(member.second, k);
                order.push_back(k);
            }
            std::string json;
            appendJSON(&json, shown,
                       [&](NSDictionary* d) { return d == shown ? &order : nullptr; });
            std::fprintf(session.results(), "%s\n", json.c_str());
        }
        pool->release();
    }
    return 0;
}

}  // namespace

int runSync(int argc, char** argv) {
    Arguments args;
    if (!parseArguments(
                "sync", argc, argv,
                {{"--cycles", true}, {"--port", true}, {"--timeout", true}, {"--json", false}},
                &args)) {
        return 2;
    }
    if (!args.words.empty()) return wrongUsage("sync", "unexpected argument", args.words[0]);
    long cycles = 0;
    long port = LXTransceiver::relayPort();
    if (!wholeOption("sync", args, "--cycles", 1, 1000000, &cycles)) return 2;
    if (!wholeOption("sync", args, "--port", 1, 65535, &port)) return 2;
    if (const char* text = args.value("--timeout")) {
        char* end = nullptr;
        double seconds = std::strtod(text, &end);
        if (!end || *end != 0 || end == text || !(seconds > 0) || seconds > 3600) {
            return wrongUsage("sync", "not a number of seconds (above 0, up to 3600) for --timeout",
                              text);
        }
        LXSocket::setDefaultReceiveTimeout_(seconds);
        if (seconds < LXSocket::defaultConnectTimeout())
            LXSocket::setDefaultConnectTimeout_(seconds);
    }
    return sync(cycles, static_cast<uint32_t>(port), args.has("--json"));
}

int runDeltas(int argc, char** argv) {
    Arguments args;
    if (!parseArguments("deltas", argc, argv, {{"--refused", false}}, &args)) return 2;
    if (!args.words.empty()) return wrongUsage("deltas", "unexpected argument", args.words[0]);
    return args.has("--refused") ? refusedDeltas() : deltas();
}

}  // namespace admin
