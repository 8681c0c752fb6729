// Versions of record fields, for replication that converges.
//
// A version is a reading of the hybrid logical clock below and the unique
// id of the user who wrote, kept as one text:
//
//   <16 lowercase hex digits of the clock>:<writer's unique id>
//
// The clock is 64 bits: the upper 48 the wall time in milliseconds since
// 1970, the lower 16 a counter for readings within one millisecond (or
// while the wall clock lags behind a reading seen from elsewhere). As the
// digits have a fixed width, comparing two version texts byte by byte
// orders them by clock, then by writer: one total order that every
// installation computes alike. A missing version (nil: a value written
// before versions existed) is version zero, older than any other.
#pragma once

#include <cstdint>

class NSString;

namespace lx {

constexpr int kClockCounterBits = 16;

// The version text of a clock reading and a writer, autoreleased.
NSString* versionText(uint64_t clock, NSString* writer);
// The clock of a version text; 0 for nil or a text that isn't one.
uint64_t versionClock(NSString* version);
// The writer of a version text, autoreleased; nil for nil or a text
// without one.
NSString* versionWriter(NSString* version);
// <0, 0, >0 as `a` is older than, the same as, or newer than `b`; nil is
// version zero.
int compareVersions(NSString* a, NSString* b);
// Milliseconds since 1970 of a clock reading.
inline uint64_t clockMillis(uint64_t clock) { return clock >> kClockCounterBits; }

// The process's hybrid logical clock. Its readings never run backwards,
// whatever the wall clock does, and each is newer than every reading this
// process has seen (observe) or made. Safe on any thread.
class LXClock {
public:
    // A new reading, newer than the last one, than every reading observed
    // and than `after` (the version a write replaces, so that a user's own
    // change always wins over the value it overwrites).
    static uint64_t tick(uint64_t after = 0);
    // Takes in a reading from elsewhere: later ticks are newer than it.
    static void observe(uint64_t clock);
    // The wall clock, in milliseconds since 1970.
    static uint64_t wallMillis();
};

}  // namespace lx
