// Convergence under faults: four installations (the demo admin's and three
// users'), a relay process and the fault proxy between them. Every round
// each installation makes random changes to a few company records (name
// and city), now and then removes one, makes one, or writes an old value
// back from a record's history; then each syncs through the proxy, or is
// killed in the middle of its sync, or waits for a later round. The proxy
// cuts, resets and stalls connections, so deltas arrive late, twice, or
// only after a killed sync is taken up again.
//
// At the end, with the faults off and every installation synced until
// nothing moves, all four stores hold the same records (every field and
// version, the same histories and tombstones; only the local stamps
// __modified and __modifier differ), the same records are shown, and every
// value ever saved is current or in its record's history.
//
// A fixed random sequence and a small number of rounds here; for a longer run by hand:
//   VANTOR_CONVERGENCE_ROUNDS=200 VANTOR_CONVERGENCE_SEQUENCE=7 ctest -R sync_convergence
// The sanitizer build runs fewer rounds (VANTOR_CONVERGENCE_ROUNDS still
// decides when given).
#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/Foundation.h"
#include "storage/LXContainer.h"
#include "tests/support/FaultProxy.h"
#include "tests/support/RunProgram.h"
#include "tests/sync/installation_support.h"

namespace {

using namespace vt_installations;
using vt_test::ProgramResult;

#if defined(__SANITIZE_ADDRESS__)
constexpr int kDefaultRounds = 4;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr int kDefaultRounds = 4;
#else
constexpr int kDefaultRounds = 25;
#endif
#else
constexpr int kDefaultRounds = 25;
#endif

// Per field, the history keeps this many lost values (sheets/VTRecordVersions.h).
constexpr uint32_t kHistoryPerField = 32;

int envNumber(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value && *value ? std::atoi(value) : fallback;
}

// The stored records of a sheet, by id, without the local stamps.
std::map<std::string, Ref<NSMutableDictionary>> storedRecords(const Installation& i,
                                                              const char* stem) {
    std::map<std::string, Ref<NSMutableDictionary>> byId;
    NSAutoreleasePoolScope pool;
    NSString* path = NSString::stringWithUTF8String_((i.dir + "/data/" + stem).c_str());
    LXContainer* store = LXContainer::existingContainerWithName_(path);
    NSMutableArray* records = store ? store->query_(NSMutableDictionary::classObject()) : nullptr;
    for (uint32_t k = 0, n = records ? records->count() : 0; k < n; k++) {
        auto* record = static_cast<NSMutableDictionary*>(records->objectAtIndex_(k));
        Ref<NSMutableDictionary> copy =
                adoptRef(static_cast<NSMutableDictionary*>(record->mutableCopy()));
        copy->removeObjectForKey_("__modified"_ns);
        copy->removeObjectForKey_("__modifier"_ns);
        byId[static_cast<NSString*>(record->objectForKey_("__recordId"_ns))->UTF8String()] = copy;
    }
    return byId;
}

// Whether the record holds the value in a field or in its history; or, for
// a field whose history is full, may have let it go as its oldest.
bool keeps(NSDictionary* record, const std::string& field, const std::string& value) {
    NSString* wanted = NSString::stringWithUTF8String_(value.c_str());
    NSString* name = NSString::stringWithUTF8String_(field.c_str());
    NSObject* current = record->objectForKey_(name);
    if (current && current->isEqual_(wanted)) return true;
    auto* history = static_cast<NSArray*>(record->objectForKey_("__history"_ns));
    uint32_t ofField = 0;
    for (uint32_t i = 0, n = history ? history->count() : 0; i < n; i++) {
        auto* entry = static_cast<NSDictionary*>(history->objectAtIndex_(i));
        if (!entry->objectForKey_("field"_ns)->isEqual_(name)) continue;
        ofField++;
        if (entry->objectForKey_("value"_ns)->isEqual_(wanted)) return true;
    }
    return ofField >= kHistoryPerField;
}

struct Figures {
    int changes = 0, removals = 0, creations = 0, restores = 0, syncs = 0, killed = 0, waits = 0;
};

class ConvergenceTest : public testing::Test {
protected:
    void SetUp() override {
        root = vt_test::makeTempDir("vt-convergence");
        relay.reset(new Relay(root));
        ASSERT_TRUE(relay->start()) << relay->log();
        const char* passwords[] = {"vantor-demo", "bob-secret", "carol-secret", "dan-secret"};
        for (int i = 0; i < 4; i++)
            all.emplace_back(root + "/" + std::string(1, static_cast<char>('a' + i)), passwords[i]);
        ASSERT_TRUE(makeFirstInstallation(all[0]));
        ASSERT_EQ(addUsers(all[0], {&all[1], &all[2], &all[3]},
                           {{"Bob", "Baker"}, {"Carol", "Cooper"}, {"Dan", "Dunn"}})
                          .size(),
                  3u);
    }
    void TearDown() override {
        relay.reset();
        if (!HasFailure()) vt_test::removeTree(root);
    }

    std::string root;
    std::unique_ptr<Relay> relay;
    std::vector<Installation> all;
};

TEST_F(ConvergenceTest, FourInstallationsEndWithTheSameRecordsAndLoseNoValue) {
    NSAutoreleasePoolScope pool;
    const int rounds = envNumber("VANTOR_CONVERGENCE_ROUNDS", kDefaultRounds);
    const uint32_t sequence = static_cast<uint32_t>(envNumber("VANTOR_CONVERGENCE_SEQUENCE", 27));
    std::mt19937 rng(sequence);
    auto chance = [&](double p) { return std::uniform_real_distribution<double>(0, 1)(rng) < p; };
    auto pick = [&](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); };

    // The records fought over, and every value saved into them.
    std::set<std::string> ours;
    std::map<std::string, std::vector<std::pair<std::string, std::string>>>
            saved;  // id -> (field, value)
    Figures figures;
    auto make = [&](const Installation& at, int n, const std::string& tag) {
        std::string json = "[";
        for (int k = 0; k < n; k++)
            json += std::string(k ? "," : "") + R"({"name": ")" + tag + "-" + std::to_string(k) +
                    R"(", "city": "Start", "industry": "trade"})";
        ProgramResult r = at.admin("record set company", json + "]");
        EXPECT_EQ(r.status, 0) << r.err;
        int k = 0;
        for (size_t start = 0, end; (end = r.out.find('\n', start)) != std::string::npos;
             start = end + 1, k++) {
            std::string id = r.out.substr(start, end - start);
            ours.insert(id);
            saved[id].push_back({"name", tag + "-" + std::to_string(k)});
            saved[id].push_back({"city", "Start"});
        }
    };
    make(all[0], 6, "first");
    for (const Installation& i : all) ASSERT_TRUE(i.syncDone(relay->port())) << i.dir;
    for (const Installation& i : all) ASSERT_TRUE(i.syncDone(relay->port())) << i.dir;

    vt_test::FaultProxyOptions options;
    options.sequence = sequence;
    options.passWeight = 8;
    options.stallSeconds = 3;
    vt_test::FaultProxy proxy(static_cast<uint16_t>(relay->port()), options);
    const std::string viaProxy = "sync --timeout 2 --port " + std::to_string(proxy.port());

    int serial = 0;
    for (int round = 0; round < rounds; round++) {
        std::vector<size_t> order = {0, 1, 2, 3};
        std::shuffle(order.begin(), order.end(), rng);
        for (size_t who : order) {
            const Installation& at = all[who];
            std::vector<std::string> live;
            for (const auto& [id, line] : at.records("company"))
                if (ours.count(id)) live.push_back(id);
            if (live.empty()) continue;
            // A burst of Saves, one field each.
            int n = static_cast<int>(pick(25));
            std::string json = "[";
            std::vector<std::pair<std::string, std::pair<std::string, std::string>>> batch;
            for (int k = 0; k < n; k++) {
                std::string id = live[pick(live.size())];
                std::string field = chance(0.5) ? "name" : "city";
                std::string value = "v" + std::to_string(++serial) + "-" + std::to_string(who);
                json += std::string(k ? "," : "") + R"({"__recordId": ")" + id + R"(", ")" + field +
                        R"(": ")" + value + R"("})";
                batch.push_back({id, {field, value}});
            }
            if (n > 0) {
                // Each Save prints its record's id once it is stored.
                size_t done = static_cast<size_t>(
                        countOf(at.admin("record set company", json + "]").out, "\n"));
                for (size_t k = 0; k < done && k < batch.size(); k++)
                    saved[batch[k].first].push_back(batch[k].second);
                figures.changes += static_cast<int>(done);
            }
            if (chance(0.25)) {
                // An old value written back from the history.
                std::string id = live[pick(live.size())];
                std::string history = at.admin("record history company " + id).out;
                std::string field = valueOf(history, "field");
                if (!field.empty() &&
                    at.admin("record restore company " + id + " " + field + " 1").status == 0)
                    figures.restores++;
            }
            if (chance(0.12)) {
                if (at.admin("record remove company " + live[pick(live.size())]).status == 0)
                    figures.removals++;
            }
            if (chance(0.3)) {
                make(at, 1, "new" + std::to_string(++serial));
                figures.creations++;
            }
        }
        std::shuffle(order.begin(), order.end(), rng);
        for (size_t who : order) {
            const Installation& at = all[who];
            double roll = std::uniform_real_distribution<double>(0, 1)(rng);
            if (roll < 0.6) {
                at.admin(viaProxy);
                figures.syncs++;
            } else if (roll < 0.8) {
                // Killed somewhere in its sync; its lock stays behind, as a
                // killed client's does, and is removed.
                {
                    Child sync(at.commandLine(viaProxy), root + "/killed.log");
                    std::this_thread::sleep_for(std::chrono::milliseconds(20 + pick(400)));
                }
                std::remove((at.dir + "/vantor.lock").c_str());
                figures.killed++;
            } else {
                figures.waits++;
            }
        }
    }

    // Everything delivered: the faults off, each syncs until a run moves
    // nothing, twice round (what one collects the others may not have
    // deposited yet).
    proxy.setFaultsEnabled(false);
    for (int pass = 0; pass < 2; pass++)
        for (const Installation& i : all) ASSERT_TRUE(i.syncDone(proxy.port())) << i.dir;

    std::printf(
            "convergence: sequence %u, %d rounds: %d changes, %d restores, %d removals, %d new "
            "records; "
            "%d syncs, %d killed, %d waits; proxy: %d cut, %d reset, %d stalled, %d refused\n",
            sequence, rounds, figures.changes, figures.restores, figures.removals,
            figures.creations, figures.syncs, figures.killed, figures.waits,
            proxy.count(vt_test::Fate::Cut), proxy.count(vt_test::Fate::Reset),
            proxy.count(vt_test::Fate::Stall), proxy.count(vt_test::Fate::Refuse));

    auto reference = storedRecords(all[0], "company");
    for (size_t k = 1; k < all.size(); k++) {
        auto there = storedRecords(all[k], "company");
        ASSERT_EQ(there.size(), reference.size()) << all[k].dir;
        for (const auto& [id, record] : reference) {
            ASSERT_TRUE(there.count(id)) << id << " missing at " << all[k].dir;
            EXPECT_TRUE(there[id]->isEqual_(record.get()))
                    << id << " differs at " << all[k].dir << ":\n"
                    << static_cast<NSString*>(there[id]->description())->UTF8String() << "\nat a:\n"
                    << static_cast<NSString*>(record->description())->UTF8String();
        }
    }
    // The same records shown everywhere.
    std::set<std::string> shown;
    for (const auto& [id, line] : all[0].records("company")) shown.insert(id);
    for (size_t k = 1; k < all.size(); k++) {
        std::set<std::string> there;
        for (const auto& [id, line] : all[k].records("company")) there.insert(id);
        EXPECT_EQ(there, shown) << all[k].dir;
    }
    // Nothing saved is lost: current, in a history, or in a tombstone.
    int values = 0;
    for (const auto& [id, list] : saved) {
        ASSERT_TRUE(reference.count(id)) << id;
        for (const auto& [field, value] : list) {
            values++;
            EXPECT_TRUE(keeps(reference[id].get(), field, value))
                    << id << " lost " << field << " = " << value;
        }
    }
    EXPECT_GT(figures.changes, 0);
    std::printf("convergence: %zu records (%zu shown), %d saved values all kept\n",
                reference.size(), shown.size(), values);
}

}  // namespace
