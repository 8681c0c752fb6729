// Versions of record fields: the text form, its one total order, and the
// hybrid logical clock behind it.
#include <algorithm>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/Foundation.h"
#include "sync/LXVersion.h"

namespace {

std::string str(NSString* s) { return s ? s->UTF8String() : "(nil)"; }

TEST(VersionTest, TextRoundTripsAndOrdersByClockThenWriter) {
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    uint64_t clock = (uint64_t{1700000000123} << lx::kClockCounterBits) | 7;
    NSString* v = lx::versionText(clock, "1700.5-3-99"_ns);
    EXPECT_EQ(str(v), "018bcfe5687b0007:1700.5-3-99");
    EXPECT_EQ(lx::versionClock(v), clock);
    EXPECT_EQ(lx::clockMillis(clock), 1700000000123u);
    EXPECT_EQ(str(lx::versionWriter(v)), "1700.5-3-99");

    // Clock first, whatever the writers; the writer breaks a tie.
    NSString* laterByCounter = lx::versionText(clock + 1, "0"_ns);
    NSString* sameClockOtherWriter = lx::versionText(clock, "1800"_ns);
    EXPECT_LT(lx::compareVersions(v, laterByCounter), 0);
    EXPECT_LT(lx::compareVersions(v, sameClockOtherWriter), 0);
    EXPECT_GT(lx::compareVersions(laterByCounter, sameClockOtherWriter), 0);
    EXPECT_EQ(lx::compareVersions(v, lx::versionText(clock, "1700.5-3-99"_ns)), 0);
    // Values written before versions existed are version zero.
    EXPECT_LT(lx::compareVersions(nullptr, v), 0);
    EXPECT_EQ(lx::compareVersions(nullptr, ""_ns), 0);
    for (NSString* bad : {"junk"_ns, "018bcfe568bb0007"_ns, "018bcfe568BB0007:x"_ns, ""_ns})
        EXPECT_EQ(lx::versionClock(bad), 0u) << str(bad);
    EXPECT_EQ(lx::versionWriter("junk"_ns), nullptr);
    pool->release();
}

TEST(VersionTest, TheClockNeverRunsBackAndPassesWhatItHasSeen) {
    uint64_t first = lx::LXClock::tick();
    // Near the wall clock (a reading is milliseconds, shifted).
    uint64_t wall = lx::LXClock::wallMillis();
    EXPECT_LE(lx::clockMillis(first), wall);
    EXPECT_GT(lx::clockMillis(first) + 1000, wall);

    // A reading from an installation whose clock is an hour ahead: every
    // later tick here is newer, and so is a tick after a given version.
    uint64_t ahead = (wall + 3600 * 1000) << lx::kClockCounterBits;
    lx::LXClock::observe(ahead);
    uint64_t next = lx::LXClock::tick();
    EXPECT_GT(next, ahead);
    uint64_t further = next + 500;
    EXPECT_GT(lx::LXClock::tick(further), further);

    // Readings from many threads at once are all different.
    std::vector<std::vector<uint64_t>> got(4);
    std::vector<std::thread> threads;
    for (auto& list : got)
        threads.emplace_back([&list] {
            for (int i = 0; i < 1000; i++) list.push_back(lx::LXClock::tick());
        });
    for (auto& t : threads) t.join();
    std::vector<uint64_t> all;
    for (auto& list : got) {
        for (size_t i = 1; i < list.size(); i++) EXPECT_GT(list[i], list[i - 1]);
        all.insert(all.end(), list.begin(), list.end());
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
}

}  // namespace
