// Dates: a reading of the local wall clock with no time zone at all. The
// zone printed behind it (" +0100") is a constant; differences of dates are
// differences of wall-clock readings.
#pragma once

#include <cstdint>

#include "NSObject.h"

class NSMutableString;

// The calendar reading of a date, field for field and in the order of the
// Win32 SYSTEMTIME structure, which the date picker exchanges with us.
// dayOfWeek counts from Sunday = 0.
struct VTSystemTime {
    uint16_t year;
    uint16_t month;
    uint16_t dayOfWeek;
    uint16_t day;
    uint16_t hour;
    uint16_t minute;
    uint16_t second;
    uint16_t milliseconds;
};

class NSDate : public NSObject {
    NS_DECLARE_CLASS(NSDate, NSObject)

public:
    // The present moment of the local clock. The class form is autoreleased.
    NSDate* init() override;
    static NSDate* date();
    // From the text that `description` writes; positions are fixed and
    // nothing is validated. The class form is autoreleased.
    NSDate* initWithString_(NSString* text);
    static NSDate* dateWithString_(NSString* text);
    // A copy of the structure as it stands.
    NSDate* initWithSystemTime_(VTSystemTime time);
    // The structure, by value.
    VTSystemTime systemTime() { return _time; }

    // Seconds since 1601-01-01 00:00:00 of the wall clock (not since 1970),
    // milliseconds in the fraction.
    double timeIntervalSince1970();
    // This date minus the present moment, in seconds.
    double timeIntervalSinceNow();
    // This date minus the other.
    double timeIntervalSinceDate_(NSDate* other);
    // This date minus 2001-01-01 00:00:00; the class form does the same for
    // the present moment (call it with NSDate::classObject()).
    double timeIntervalSinceReferenceDate();
    static double timeIntervalSinceReferenceDate(Class cls);
    // A new autoreleased date that many seconds later (earlier if negative).
    NSDate* addTimeInterval_(double seconds);

    // "2008-05-03 09:00:07 +0100", as a new autoreleased NSMutableString.
    NSString* description() override;
    // The same text written into `out`, which holds kDescriptionSize bytes,
    // with its NUL; no object is made. Returns the length without the NUL.
    static constexpr uint32_t kDescriptionSize = 48;
    uint32_t getDescription(char* out);
    // "3.5.2008 09:00:07", or "3.5.2008" at midnight sharp. Autoreleased.
    NSString* vantorDescription();
    // By the description strings: -1, 0 or 1 on second resolution. A date
    // sorts after nil; a value of another kind is ordered by NSCompareKinds.
    int compare_(NSObject* other);
    // Year, month, day, hour, minute and second; not milliseconds nor the
    // day of the week.
    bool isEqual_(NSObject* other) override;
    uint32_t hash() override;
    // Archiving, as the description text (storage/ValueCoding.cpp).
    void encodeWithCoder_(NSCoder* coder) override;
    NSObject* initWithCoder_(NSCoder* coder) override;

private:
    VTSystemTime _time = {};
};

// The calendar arithmetic under NSDate, in the proleptic Gregorian calendar
// and without any time zone: a reading as a count of 100-nanosecond ticks
// since 1601-01-01 00:00:00, and back. Fields out of their range (month 13,
// hour 25) carry over into the next larger one.
int64_t VTTicksFromSystemTime(const VTSystemTime& time);
// Ticks before 1601 or after the end of year 30827, the range of the
// structure on Win32, are held at the nearest end.
VTSystemTime VTSystemTimeFromTicks(int64_t ticks);
