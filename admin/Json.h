// JSON for vantor-admin: a small reader and writer of our own, and the
// mapping between JSON and the objects that archives hold.
//
// The mapping, both ways:
//   object            NSMutableDictionary, one bucket per member (10 when
//                     empty), entered in the order of the text
//   array             NSMutableArray
//   string            NSString
//   number            NSNumber; true and false are the numbers 1 and 0
//   null              the shared NSNull
//   {"$date": "2024-01-31 09:30:00 +0100"}   NSDate
//   {"$data": "0aff"}                         NSData (hex, two digits a byte)
//   {"$set": [...]}                           NSMutableSet, one bucket per
//                                             member (10 when empty)
//   {"$entries": [[key, value], ...]}         a dictionary with keys that are
//                                             not all strings
//   {"$number": "nan" | "inf" | "-inf"}       numbers JSON cannot write
//   {"$class": "Name", "$dict": {...}}        a dictionary or set of another
//                                             class (LXManagedObject,
//                                             NSCountedSet: member to count)
//   {"$class": "Name", "field": value, ...}   any other class, by its fields;
//                                             written only: the reader makes
//                                             value classes alone, and takes
//                                             "$class" for the dictionary
//                                             and set classes only
// An object is read as a marker when its one member is one of the "$" keys
// above, or when its first member is "$class"; a dictionary that would
// look like one is written as "$entries".
// Strings pass through as the bytes they hold: valid UTF-8 stays valid, and
// other bytes are not invented or dropped, so a round trip is exact.
#pragma once

#include <functional>
#include <string>
#include <vector>

class NSObject;
class NSDictionary;

namespace admin {

// Deepest nesting of arrays and objects that the reader accepts; an
// archive of it stays well inside the archive reader's own limit.
constexpr int kMaxJsonDepth = 300;

// The object tree of a JSON text (one value, white space around it), owned
// by the caller; nil with a message in *error for invalid JSON or a value
// the mapping refuses.
NSObject* newObjectFromJSON(const std::string& text, std::string* error);

// Keys of a dictionary in the order to print them; null: allKeys order.
using KeyOrder = std::function<const std::vector<NSObject*>*(NSDictionary*)>;

// Appends the JSON text of an object tree on one line. nil prints as null.
void appendJSON(std::string* out, NSObject* object, const KeyOrder& order = nullptr);

// One JSON object written member by member in the order they are added,
// for results that are plain values rather than object trees (--json).
class JsonObject {
public:
    JsonObject& add(const char* key, const std::string& value);
    // null for a null text.
    JsonObject& add(const char* key, const char* value);
    JsonObject& add(const char* key, double value);
    JsonObject& addBool(const char* key, bool value);
    // A value that is JSON text already (an array, a nested object).
    JsonObject& addJSON(const char* key, const std::string& json);
    // The object's text, without a line end.
    std::string text() const { return _text + "}"; }

private:
    void key(const char* name);
    std::string _text = "{";
};

}  // namespace admin
