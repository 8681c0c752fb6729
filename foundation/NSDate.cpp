#include "NSDate.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "NSString.h"

namespace {

constexpr int64_t kTicksPerMillisecond = 10000;
constexpr int64_t kTicksPerSecond = 10000000;
constexpr int64_t kTicksPerDay = 86400 * kTicksPerSecond;
// Whole-calendar cycles. 1601 starts a 400-year cycle, so inside every cycle
// the century, the four-year group and the year with the extra day come
// last; that keeps the way back from a day count short.
constexpr int64_t kDaysPer400Years = 146097;
constexpr int64_t kDaysPer100Years = 36524;
constexpr int64_t kDaysPer4Years = 1461;

const int kDaysBeforeMonth[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
const int kDaysInMonth[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }
int64_t floorMod(int64_t a, int64_t b) { return a - floorDiv(a, b) * b; }

bool isLeapYear(int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

// Days from 1601-01-01 to the given day; month 0 or 13 carry into the year.
int64_t daysFromCivil(int64_t year, int64_t month, int64_t day) {
    year += floorDiv(month - 1, 12);
    int64_t m = floorMod(month - 1, 12);
    int64_t y = year - 1601;
    int64_t leapDaysBefore = floorDiv(y, 4) - floorDiv(y, 100) + floorDiv(y, 400);
    int64_t days = 365 * y + leapDaysBefore + kDaysBeforeMonth[m] + day - 1;
    if (m >= 2 && isLeapYear(year)) days++;
    return days;
}

constexpr VTSystemTime kLatest = {30827, 12, 0, 31, 23, 59, 59, 999};

int64_t latestTicks() {
    static const int64_t ticks = VTTicksFromSystemTime(kLatest) + kTicksPerMillisecond - 1;
    return ticks;
}

int64_t referenceDateTicks() {
    static const int64_t ticks = VTTicksFromSystemTime(VTSystemTime{2001, 1, 0, 1, 0, 0, 0, 0});
    return ticks;
}

VTSystemTime localNow() {
    using namespace std::chrono;
    int64_t ms = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    std::time_t seconds = static_cast<std::time_t>(floorDiv(ms, 1000));
    std::tm tm{};
#ifdef _WIN32
    localtime_s(&tm, &seconds);
#else
    localtime_r(&seconds, &tm);
#endif
    VTSystemTime t;
    t.year = static_cast<uint16_t>(tm.tm_year + 1900);
    t.month = static_cast<uint16_t>(tm.tm_mon + 1);
    t.dayOfWeek = static_cast<uint16_t>(tm.tm_wday);
    t.day = static_cast<uint16_t>(tm.tm_mday);
    t.hour = static_cast<uint16_t>(tm.tm_hour);
    t.minute = static_cast<uint16_t>(tm.tm_min);
    t.second = static_cast<uint16_t>(tm.tm_sec);
    t.milliseconds = static_cast<uint16_t>(floorMod(ms, 1000));
    return t;
}

double secondsOf(const VTSystemTime& t) {
    return static_cast<double>(VTTicksFromSystemTime(t)) / kTicksPerSecond;
}

// The first two pieces of the text as the string splitting of the system
// cuts it at white space (blank, tab, line feed, carriage return): the first
// unit is never a separator, every piece is trimmed, and two separators in a
// row give an empty piece. Pieces are runs of 16-bit units.
struct Piece {
    const uint16_t* units = nullptr;
    uint32_t length = 0;
};

bool isWhite(uint16_t u) { return u == ' ' || u == '\t' || u == '\n' || u == '\r'; }

Piece trimmed(const uint16_t* units, uint32_t start, uint32_t end) {
    while (start < end && isWhite(units[start])) start++;
    while (end > start && isWhite(units[end - 1])) end--;
    return Piece{units + start, end - start};
}

void firstTwoPieces(const uint16_t* units, uint32_t length, Piece* first, Piece* second,
                    bool* hasSecond) {
    uint32_t start = 0;
    int found = 0;
    for (uint32_t position = 1; position < length && found < 2; position++) {
        if (!isWhite(units[position])) continue;
        (found == 0 ? *first : *second) = trimmed(units, start, position);
        found++;
        start = position + 1;
    }
    if (found < 2) (found == 0 ? *first : *second) = trimmed(units, start, length);
    *hasSecond = found >= 1;
}

// intValue of the units [from, from + count) of a piece: the runtime
// library's atoi of their text. Units beyond the piece are not read.
int fieldOf(const Piece& piece, uint32_t from, uint32_t count) {
    char text[8] = {};
    for (uint32_t i = 0; i < count && from + i < piece.length; i++) {
        uint16_t u = piece.units[from + i];
        // atoi stops at anything that is neither a digit nor a sign, which a
        // character beyond ASCII never is.
        text[i] = u < 0x80 ? static_cast<char>(u) : '?';
    }
    return std::atoi(text);
}

}  // namespace

int64_t VTTicksFromSystemTime(const VTSystemTime& t) {
    int64_t days = daysFromCivil(t.year, t.month, t.day);
    int64_t seconds = ((days * 24 + t.hour) * 60 + t.minute) * 60 + t.second;
    // Years beyond 30828 don't fit a 64-bit tick count; Win32 refuses them
    // outright, we hold them at the largest count.
    if (seconds > (INT64_MAX - 999 * kTicksPerMillisecond) / kTicksPerSecond) return INT64_MAX;
    return seconds * kTicksPerSecond + int64_t(t.milliseconds) * kTicksPerMillisecond;
}

VTSystemTime VTSystemTimeFromTicks(int64_t ticks) {
    // Win32 turns no count before 1601 and nothing after 30827 into a
    // structure; rather than answer garbage we stay at the nearest end.
    if (ticks < 0) ticks = 0;
    if (ticks > latestTicks()) ticks = latestTicks();
    int64_t days = ticks / kTicksPerDay;
    int64_t rest = ticks % kTicksPerDay;

    VTSystemTime t;
    // 1601-01-01 was a Monday; Sunday is 0.
    t.dayOfWeek = static_cast<uint16_t>((days + 1) % 7);
    int64_t cycles = days / kDaysPer400Years;
    int64_t r = days % kDaysPer400Years;
    int64_t centuries = std::min<int64_t>(r / kDaysPer100Years, 3);
    r -= centuries * kDaysPer100Years;
    int64_t groups = r / kDaysPer4Years;
    r -= groups * kDaysPer4Years;
    int64_t years = std::min<int64_t>(r / 365, 3);
    r -= years * 365;
    int64_t year = 1601 + 400 * cycles + 100 * centuries + 4 * groups + years;

    int month = 0;
    bool leap = isLeapYear(year);
    for (;;) {
        int length = kDaysInMonth[month] + (month == 1 && leap ? 1 : 0);
        if (r < length) break;
        r -= length;
        month++;
    }
    t.year = static_cast<uint16_t>(year);
    t.month = static_cast<uint16_t>(month + 1);
    t.day = static_cast<uint16_t>(r + 1);
    int64_t ms = rest / kTicksPerMillisecond;
    t.milliseconds = static_cast<uint16_t>(ms % 1000);
    int64_t s = ms / 1000;
    t.second = static_cast<uint16_t>(s % 60);
    t.minute = static_cast<uint16_t>(s / 60 % 60);
    t.hour = static_cast<uint16_t>(s / 3600);
    return t;
}

NSDate* NSDate::init() {
    _time = localNow();
    return this;
}

NSDate* NSDate::date() { return NSAutorelease(alloc()->init()); }

NSDate* NSDate::initWithString_(NSString* text) {
    // Nil gives the reading whose every field is 0, as the pieces of nil
    // would under the rule that a message to nil answers 0.
    _time = VTSystemTime{};
    if (!text) return this;
    Piece date, time;
    bool hasTime = false;
    firstTwoPieces(text->UTF16String(), text->length(), &date, &time, &hasTime);
    _time.year = static_cast<uint16_t>(fieldOf(date, 0, 4));
    _time.month = static_cast<uint16_t>(fieldOf(date, 5, 2));
    _time.day = static_cast<uint16_t>(fieldOf(date, 8, 2));
    // A text without a time piece isn't a date that description wrote;
    // rather than read beyond it, the time is taken as midnight.
    if (hasTime) {
        _time.hour = static_cast<uint16_t>(fieldOf(time, 0, 2));
        _time.minute = static_cast<uint16_t>(fieldOf(time, 3, 2));
        _time.second = static_cast<uint16_t>(fieldOf(time, 6, 2));
    }
    return this;
}

NSDate* NSDate::dateWithString_(NSString* text) {
    return NSAutorelease(alloc()->initWithString_(text));
}

NSDate* NSDate::initWithSystemTime_(VTSystemTime time) {
    _time = time;
    return this;
}

double NSDate::timeIntervalSince1970() { return secondsOf(_time); }

double NSDate::timeIntervalSinceNow() { return secondsOf(_time) - secondsOf(localNow()); }

double NSDate::timeIntervalSinceDate_(NSDate* date) {
    // Nil counts as 0 seconds, as a message to nil answers 0; so does
    // anything that is no date.
    NSDate* other = NSDynamicCast<NSDate>(date);
    return secondsOf(_time) - (other ? secondsOf(other->_time) : 0.0);
}

double NSDate::timeIntervalSinceReferenceDate() {
    return static_cast<double>(VTTicksFromSystemTime(_time) - referenceDateTicks()) /
           kTicksPerSecond;
}

double NSDate::timeIntervalSinceReferenceDate(Class) {
    return static_cast<double>(VTTicksFromSystemTime(localNow()) - referenceDateTicks()) /
           kTicksPerSecond;
}

NSDate* NSDate::addTimeInterval_(double seconds) {
    int64_t ticks = VTTicksFromSystemTime(_time);
    double delta = seconds * kTicksPerSecond;
    int64_t result;
    if (std::isnan(delta)) {
        // Not a number of seconds: the date stays where it is.
        result = ticks;
    } else if (delta >= 8.0e18 || delta <= -8.0e18) {
        // Far beyond either end of the range (and the infinities); the bound
        // keeps the sum below inside 64 bits for every reading.
        result = delta > 0 ? INT64_MAX : 0;
    } else {
        // The sum is formed in 64-bit integers rather than as a double: from
        // 2057 on a double can't hold every tick of a reading, and adding
        // nothing could then lose a millisecond. The step is rounded to the
        // nearest tick, not cut: 123456.789 seconds is a hair less in
        // binary64, and cutting would add a millisecond too few.
        int64_t step = std::llround(delta);
        if (step > 0 && ticks > INT64_MAX - step)
            result = INT64_MAX;
        else
            result = ticks + step;
    }
    return NSAutorelease(NSDate::alloc()->initWithSystemTime_(VTSystemTimeFromTicks(result)));
}

namespace {
// Two digits of 0 to 99, as %02d writes them.
inline char* putTwoDigits(char* out, unsigned value) {
    out[0] = static_cast<char>('0' + value / 10);
    out[1] = static_cast<char>('0' + value % 10);
    return out + 2;
}

// Writes `value` in decimal, padded with zeros to at least `width` digits
// as %0*d does; returns the end of what it wrote. Fields within their
// usual ranges (a two-digit field, a four-digit year) take a shortcut.
inline char* putDecimal(char* out, unsigned value, int width) {
    if (width <= 2 && value < 100 && (width == 2 || value >= 10)) return putTwoDigits(out, value);
    if (width <= 4 && value >= 1000 && value < 10000)
        return putTwoDigits(putTwoDigits(out, value / 100), value % 100);
    char digits[8];
    int n = 0;
    do {
        digits[n++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value);
    while (n < width) digits[n++] = '0';
    while (n) *out++ = digits[--n];
    return out;
}
}  // namespace

uint32_t NSDate::getDescription(char* out) {
    // Every export line and every sort by date writes this text, so it is
    // put together digit by digit rather than through printf.
    const VTSystemTime& t = _time;
    char* p = putDecimal(out, t.year, 1);
    *p++ = '-';
    p = putDecimal(p, t.month, 2);
    *p++ = '-';
    p = putDecimal(p, t.day, 2);
    *p++ = ' ';
    p = putDecimal(p, t.hour, 2);
    *p++ = ':';
    p = putDecimal(p, t.minute, 2);
    *p++ = ':';
    p = putDecimal(p, t.second, 2);
    std::memcpy(p, " +0100", 7);
    return static_cast<uint32_t>(p + 6 - out);
}

NSString* NSDate::description() {
    char text[kDescriptionSize];
    getDescription(text);
    return NSMutableString::stringWithUTF8String_(text);
}

NSString* NSDate::vantorDescription() {
    char text[64];
    // The time part of description reads 00:00:00 exactly when all three
    // fields are 0: a date at midnight sharp shows as a bare date.
    if (_time.hour == 0 && _time.minute == 0 && _time.second == 0) {
        std::snprintf(text, sizeof text, "%d.%d.%d", _time.day, _time.month, _time.year);
    } else {
        std::snprintf(text, sizeof text, "%d.%d.%d %02d:%02d:%02d", _time.day, _time.month,
                      _time.year, _time.hour, _time.minute, _time.second);
    }
    return NSString::stringWithUTF8String_(text);
}

int NSDate::compare_(NSObject* object) {
    // Nothing to compare with: a date sorts after nil.
    if (!object) return 1;
    NSDate* other = NSDynamicCast<NSDate>(object);
    if (!other) return NSCompareKinds(this, object);
    // The bytes of both descriptions compared as compare: of strings does
    // it, without making the two string objects.
    char mine[kDescriptionSize], theirs[kDescriptionSize];
    getDescription(mine);
    other->getDescription(theirs);
    int c = std::strcmp(mine, theirs);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

bool NSDate::isEqual_(NSObject* other) {
    NSDate* date = NSDynamicCast<NSDate>(other);
    if (!date) return false;
    const VTSystemTime& a = _time;
    const VTSystemTime& b = date->_time;
    return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour &&
           a.minute == b.minute && a.second == b.second;
}

uint32_t NSDate::hash() {
    uint32_t h = 17;
    for (uint16_t field :
         {_time.year, _time.month, _time.day, _time.hour, _time.minute, _time.second})
        h = 37 * h + field;
    return h;
}

// systemTime isn't in the table: a result travels in one machine word and
// the structure needs two. Its one caller, the date picker, calls it
// directly.
// The instance and the class operation timeIntervalSinceReferenceDate share
// a C++ name, so their rows name the overload they mean.
// clang-format off
NS_CLASS_BEGIN(NSDate, NSObject)
    NS_METHOD(init)
    NS_CLASS_METHOD(date)
    NS_METHOD(initWithString_)
    NS_CLASS_METHOD(dateWithString_)
    NS_METHOD(initWithSystemTime_)
    NS_METHOD(timeIntervalSince1970)
    NS_METHOD(timeIntervalSinceNow)
    NS_METHOD(timeIntervalSinceDate_)
    .method<static_cast<double (NSDate::*)()>(&NSDate::timeIntervalSinceReferenceDate)>(
        "timeIntervalSinceReferenceDate")
    .classMethod<static_cast<double (*)(Class)>(&NSDate::timeIntervalSinceReferenceDate)>(
        "timeIntervalSinceReferenceDate")
    NS_METHOD(addTimeInterval_)
    NS_METHOD(description)
    NS_METHOD(vantorDescription)
    NS_METHOD(compare_)
    NS_METHOD(isEqual_)
    NS_METHOD(hash)
NS_CLASS_END(NSDate)
// clang-format on
