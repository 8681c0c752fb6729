// The delta the relay benchmarks move: what a Save of one record of a
// 12-field sheet sends, from `sender` to `addressee`.
#pragma once

#include <string>

#include "foundation/Foundation.h"
#include "sync/LXDelta.h"

namespace vt_bench {

// What a Save of one record of a 12-field sheet sends: the "set" contents
// with the changed fields and the whole record, reserved keys included.
inline LXDelta* saveDelta(int n, const char* sender, const char* addressee) {
    auto ns = [](const std::string& text) { return NSString::stringWithUTF8String_(text.c_str()); };
    static const char* names[12] = {"name",  "firstName", "company", "unit",    "street", "city",
                                    "phone", "mobile",    "email",   "country", "status", "notes"};
    NSMutableDictionary* record = NSMutableDictionary::dictionaryWithCapacity_(10);
    NSMutableArray* fields = NSMutableArray::array();
    for (int i = 0; i < 12; i++) {
        record->setObject_forKey_(
                ns(std::string(names[i]) + " value " + std::to_string(n) + " of a typical record"),
                ns(names[i]));
        fields->addObject_(ns(names[i]));
    }
    record->setObject_forKey_(ns(std::to_string(100000 + n)), "__recordId"_ns);
    record->setObject_forKey_("2024-03-01 09:30:00"_ns, "__created"_ns);
    record->setObject_forKey_(ns(sender), "__creator"_ns);
    record->setObject_forKey_("2024-03-02 14:05:00"_ns, "__modified"_ns);
    record->setObject_forKey_(ns(sender), "__modifier"_ns);
    NSMutableDictionary* contents = NSMutableDictionary::dictionaryWithCapacity_(10);
    contents->setObject_forKey_("set"_ns, "action"_ns);
    contents->setObject_forKey_(fields, "fields"_ns);
    contents->setObject_forKey_("contacts"_ns, "sheet"_ns);
    contents->setObject_forKey_(record, "object"_ns);
    LXDelta* delta = LXDelta::deltaWithPool_sender_contents_(
            LXPool::poolWithName_(NSString::stringWithUTF8String_(LXPool::kReplicationPoolName)),
            LXUser::userWithString_(ns(sender)), contents);
    delta->setAddressee_(LXUser::userWithString_(ns(addressee)));
    return delta;
}

}  // namespace vt_bench
