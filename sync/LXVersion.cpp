#include "LXVersion.h"

#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "foundation/NSString.h"

namespace lx {

namespace {

constexpr size_t kClockDigits = 16;

// The last reading made or observed; compare-and-swap keeps it monotonic
// without a lock.
std::atomic<uint64_t> gLast{0};

void raiseTo(uint64_t clock) {
    uint64_t last = gLast.load();
    while (clock > last && !gLast.compare_exchange_weak(last, clock)) {
    }
}

}  // namespace

NSString* versionText(uint64_t clock, NSString* writer) {
    return NSString::stringWithFormat_("%016" PRIx64 ":%s", clock,
                                       writer ? writer->UTF8String() : "");
}

uint64_t versionClock(NSString* version) {
    const char* text = version ? version->UTF8String() : nullptr;
    if (!text || std::strlen(text) < kClockDigits + 1 || text[kClockDigits] != ':') return 0;
    uint64_t clock = 0;
    for (size_t i = 0; i < kClockDigits; i++) {
        char c = text[i];
        uint64_t digit;
        if (c >= '0' && c <= '9')
            digit = static_cast<uint64_t>(c - '0');
        else if (c >= 'a' && c <= 'f')
            digit = static_cast<uint64_t>(c - 'a' + 10);
        else
            return 0;
        clock = clock << 4 | digit;
    }
    return clock;
}

NSString* versionWriter(NSString* version) {
    if (versionClock(version) == 0) return nullptr;
    return NSString::stringWithUTF8String_(version->UTF8String() + kClockDigits + 1);
}

int compareVersions(NSString* a, NSString* b) {
    if (a && a->length() == 0) a = nullptr;
    if (b && b->length() == 0) b = nullptr;
    if (a == b) return 0;
    if (!a) return -1;
    if (!b) return 1;
    int c = std::strcmp(a->UTF8String(), b->UTF8String());
    return c < 0 ? -1 : c > 0 ? 1 : 0;
}

uint64_t LXClock::wallMillis() {
    auto since = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(
            std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

uint64_t LXClock::tick(uint64_t after) {
    uint64_t wall = wallMillis() << kClockCounterBits;
    uint64_t last = gLast.load();
    for (;;) {
        uint64_t next = last + 1;
        if (after + 1 > next) next = after + 1;
        if (wall > next) next = wall;
        if (gLast.compare_exchange_weak(last, next)) return next;
    }
}

void LXClock::observe(uint64_t clock) { raiseTo(clock); }

}  // namespace lx
