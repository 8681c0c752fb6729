#include "Json.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "foundation/NSArray.h"
#include "foundation/NSData.h"
#include "foundation/NSDate.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSNull.h"
#include "foundation/NSSet.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"

namespace admin {

namespace {

// ---------------------------------------------------------------------------
// The reader: text to a small tree of values.

struct Value {
    enum Kind { Null, Bool, Number, String, Array, Object } kind = Null;
    bool boolean = false;
    double number = 0;
    std::string text;
    std::vector<Value> items;
    std::vector<std::pair<std::string, Value>> members;
};

class Reader {
public:
    Reader(const std::string& text, std::string* error) : _s(text), _error(error) {}

    bool parseDocument(Value* out) {
        skipSpace();
        if (!parseValue(out, 0)) return false;
        skipSpace();
        if (_i != _s.size()) return failAt("text after the value");
        return true;
    }

private:
    bool failAt(const char* what) {
        // Line and column of the offending byte, as an editor counts them.
        size_t line = 1, column = 1;
        for (size_t k = 0; k < _i && k < _s.size(); k++) {
            if (_s[k] == '\n') {
                line++;
                column = 1;
            } else {
                column++;
            }
        }
        char buffer[160];
        std::snprintf(buffer, sizeof buffer, "invalid JSON at line %zu, column %zu: %s", line,
                      column, what);
        *_error = buffer;
        return false;
    }

    void skipSpace() {
        while (_i < _s.size() &&
               (_s[_i] == ' ' || _s[_i] == '\t' || _s[_i] == '\n' || _s[_i] == '\r'))
            _i++;
    }

    bool literal(const char* word) {
        size_t n = std::strlen(word);
        if (_s.compare(_i, n, word) != 0) return false;
        _i += n;
        return true;
    }

    bool parseValue(Value* out, int depth) {
        if (_i >= _s.size()) return failAt("a value expected");
        char c = _s[_i];
        if (c == '{' || c == '[') {
            if (depth >= kMaxJsonDepth) return failAt("nested too deeply");
            return c == '{' ? parseObject(out, depth + 1) : parseArray(out, depth + 1);
        }
        if (c == '"') {
            out->kind = Value::String;
            return parseString(&out->text);
        }
        if (literal("true")) {
            out->kind = Value::Bool;
            out->boolean = true;
            return true;
        }
        if (literal("false")) {
            out->kind = Value::Bool;
            return true;
        }
        if (literal("null")) return true;
        if (c == '-' || (c >= '0' && c <= '9')) return parseNumber(out);
        return failAt("a value expected");
    }

    bool digits() {
        size_t start = _i;
        while (_i < _s.size() && _s[_i] >= '0' && _s[_i] <= '9') _i++;
        return _i > start;
    }

    bool parseNumber(Value* out) {
        size_t start = _i;
        if (_s[_i] == '-') _i++;
        if (_i < _s.size() && _s[_i] == '0') {
            _i++;
        } else if (!digits()) {
            return failAt("a digit expected");
        }
        if (_i < _s.size() && _s[_i] == '.') {
            _i++;
            if (!digits()) return failAt("a digit expected after the point");
        }
        if (_i < _s.size() && (_s[_i] == 'e' || _s[_i] == 'E')) {
            _i++;
            if (_i < _s.size() && (_s[_i] == '+' || _s[_i] == '-')) _i++;
            if (!digits()) return failAt("a digit expected in the exponent");
        }
        out->kind = Value::Number;
        out->number = std::strtod(_s.substr(start, _i - start).c_str(), nullptr);
        return true;
    }

    static void appendUTF8(std::string* out, uint32_t cp) {
        if (cp < 0x80) {
            out->push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out->push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }

    bool hex4(uint32_t* out) {
        if (_s.size() - _i < 4) return failAt("four hex digits expected");
        uint32_t v = 0;
        for (int k = 0; k < 4; k++) {
            char h = _s[_i + k];
            int d = h >= '0' && h <= '9'   ? h - '0'
                    : h >= 'a' && h <= 'f' ? h - 'a' + 10
                    : h >= 'A' && h <= 'F' ? h - 'A' + 10
                                           : -1;
            if (d < 0) return failAt("four hex digits expected");
            v = v * 16 + static_cast<uint32_t>(d);
        }
        _i += 4;
        *out = v;
        return true;
    }

    bool parseString(std::string* out) {
        _i++;  // the opening quote
        while (true) {
            if (_i >= _s.size()) return failAt("unterminated string");
            unsigned char c = static_cast<unsigned char>(_s[_i]);
            if (c == '"') {
                _i++;
                return true;
            }
            if (c < 0x20) return failAt("control character in a string");
            if (c != '\\') {
                out->push_back(static_cast<char>(c));
                _i++;
                continue;
            }
            _i++;
            if (_i >= _s.size()) return failAt("unterminated string");
            char e = _s[_i++];
            switch (e) {
                case '"':
                    out->push_back('"');
                    break;
                case '\\':
                    out->push_back('\\');
                    break;
                case '/':
                    out->push_back('/');
                    break;
                case 'b':
                    out->push_back('\b');
                    break;
                case 'f':
                    out->push_back('\f');
                    break;
                case 'n':
                    out->push_back('\n');
                    break;
                case 'r':
                    out->push_back('\r');
                    break;
                case 't':
                    out->push_back('\t');
                    break;
                case 'u': {
                    uint32_t cp;
                    if (!hex4(&cp)) return false;
                    if (cp >= 0xD800 && cp < 0xDC00 && _s.compare(_i, 2, "\\u") == 0) {
                        size_t mark = _i;
                        _i += 2;
                        uint32_t low;
                        if (!hex4(&low)) return false;
                        if (low >= 0xDC00 && low < 0xE000) {
                            cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                        } else {
                            _i = mark;
                        }
                    }
                    // A NUL would end the string's text in every archive.
                    if (cp == 0) return failAt("\\u0000 cannot be held by a string");
                    appendUTF8(out, cp);
                    break;
                }
                default:
                    return failAt("unknown escape");
            }
        }
    }

    bool parseArray(Value* out, int depth) {
        out->kind = Value::Array;
        _i++;
        skipSpace();
        if (_i < _s.size() && _s[_i] == ']') {
            _i++;
            return true;
        }
        while (true) {
            out->items.emplace_back();
            skipSpace();
            if (!parseValue(&out->items.back(), depth)) return false;
            skipSpace();
            if (_i < _s.size() && _s[_i] == ',') {
                _i++;
                continue;
            }
            if (_i < _s.size() && _s[_i] == ']') {
                _i++;
                return true;
            }
            return failAt("',' or ']' expected");
        }
    }

    bool parseObject(Value* out, int depth) {
        out->kind = Value::Object;
        _i++;
        skipSpace();
        if (_i < _s.size() && _s[_i] == '}') {
            _i++;
            return true;
        }
        while (true) {
            skipSpace();
            if (_i >= _s.size() || _s[_i] != '"') return failAt("a member name expected");
            out->members.emplace_back();
            if (!parseString(&out->members.back().first)) return false;
            skipSpace();
            if (_i >= _s.size() || _s[_i] != ':') return failAt("':' expected");
            _i++;
            skipSpace();
            if (!parseValue(&out->members.back().second, depth)) return false;
            skipSpace();
            if (_i < _s.size() && _s[_i] == ',') {
                _i++;
                continue;
            }
            if (_i < _s.size() && _s[_i] == '}') {
                _i++;
                return true;
            }
            return failAt("',' or '}' expected");
        }
    }

    const std::string& _s;
    std::string* _error;
    size_t _i = 0;
};

// ---------------------------------------------------------------------------
// Values to objects. Every builder answers an owned object or nil with
// *error set.

bool isMarkerKey(const std::string& key) {
    return key == "$date" || key == "$data" || key == "$set" || key == "$entries" ||
           key == "$number";
}

// Whether the members of an object read as a marker rather than as a
// dictionary: one marker key alone, or "$class" first.
bool isMarker(const std::vector<std::string>& keys) {
    return (keys.size() == 1 && isMarkerKey(keys[0])) || (!keys.empty() && keys[0] == "$class");
}

NSString* newString(const std::string& text) {
    return NSString::alloc()->initWithBytes_length_(text.data(),
                                                    static_cast<uint32_t>(text.size()));
}

// "2024-01-31 09:30:00", optionally followed by a blank and a zone: the
// form description writes. The date reader itself checks nothing.
bool isDateText(const std::string& s) {
    static const char shape[] = "dddd-dd-dd dd:dd:dd";
    if (s.size() < sizeof shape - 1) return false;
    for (size_t k = 0; k < sizeof shape - 1; k++) {
        bool digit = s[k] >= '0' && s[k] <= '9';
        if (shape[k] == 'd' ? !digit : s[k] != shape[k]) return false;
    }
    return s.size() == sizeof shape - 1 || s[sizeof shape - 1] == ' ';
}

NSObject* newObject(const Value& v, std::string* error);

NSMutableDictionary* newDictionary(const std::vector<std::pair<NSObject*, NSObject*>>& entries,
                                   Class cls) {
    auto* d = static_cast<NSMutableDictionary*>(
            static_cast<NSDictionary*>(cls->alloc())
                    ->initWithCapacity_(static_cast<uint32_t>(entries.size())));
    for (const auto& e : entries) NSSend<void>(d, NS_SEL("insertValue:forKey:"), e.second, e.first);
    return d;
}

// Builds the entries of {...} or [[k, v], ...]; the pairs are owned and
// released by the caller.
bool buildEntries(const Value& v, std::vector<std::pair<NSObject*, NSObject*>>* out,
                  std::string* error) {
    if (v.kind == Value::Object && v.members.size() == 1 && v.members[0].first == "$entries") {
        return buildEntries(v.members[0].second, out, error);
    }
    if (v.kind == Value::Object) {
        for (const auto& m : v.members) {
            NSObject* value = newObject(m.second, error);
            if (!value) return false;
            out->emplace_back(newString(m.first), value);
        }
        return true;
    }
    if (v.kind != Value::Array) {
        *error = "\"$entries\" must be an array of [key, value] pairs";
        return false;
    }
    for (const Value& pair : v.items) {
        if (pair.kind != Value::Array || pair.items.size() != 2) {
            *error = "\"$entries\" must be an array of [key, value] pairs";
            return false;
        }
        NSObject* key = newObject(pair.items[0], error);
        if (!key) return false;
        NSObject* value = newObject(pair.items[1], error);
        if (!value) {
            key->release();
            return false;
        }
        out->emplace_back(key, value);
    }
    return true;
}

void releaseEntries(std::vector<std::pair<NSObject*, NSObject*>>* entries) {
    for (auto& e : *entries) {
        e.first->release();
        e.second->release();
    }
}

NSObject* newDictionaryOf(const Value& v, Class cls, std::string* error) {
    std::vector<std::pair<NSObject*, NSObject*>> entries;
    NSObject* result = nullptr;
    if (buildEntries(v, &entries, error)) result = newDictionary(entries, cls);
    releaseEntries(&entries);
    return result;
}

NSObject* newSet(const Value& members, std::string* error) {
    if (members.kind != Value::Array) {
        *error = "\"$set\" must be an array";
        return nullptr;
    }
    NSMutableSet* set =
            NSMutableSet::alloc()->initWithCapacity_(static_cast<uint32_t>(members.items.size()));
    for (const Value& item : members.items) {
        NSObject* member = newObject(item, error);
        if (!member) {
            set->release();
            return nullptr;
        }
        set->addObject_(member);
        member->release();
    }
    return set;
}

NSObject* newData(const std::string& hex, std::string* error) {
    if (hex.size() % 2) {
        *error = "\"$data\" must hold two hex digits a byte";
        return nullptr;
    }
    std::string bytes;
    for (size_t k = 0; k < hex.size(); k += 2) {
        char pair[3] = {hex[k], hex[k + 1], 0};
        char* end;
        long b = std::strtol(pair, &end, 16);
        if (end != pair + 2 || !std::isxdigit(static_cast<unsigned char>(pair[0]))) {
            *error = "\"$data\" must hold two hex digits a byte";
            return nullptr;
        }
        bytes.push_back(static_cast<char>(b));
    }
    return NSData::alloc()->initWithBytes_length_(bytes.data(),
                                                  static_cast<uint32_t>(bytes.size()));
}

// The classes "$class" may name: the dictionaries and sets that archives
// and containers hold. Reading JSON makes values only; an arbitrary class
// found by name would run code of that class (its init, its key access) on
// behalf of a text.
bool isValueClassName(const std::string& name) {
    static const char* const names[] = {"NSDictionary", "NSMutableDictionary", "LXManagedObject",
                                        "NSSet",        "NSMutableSet",        "NSCountedSet"};
    for (const char* known : names) {
        if (name == known) return true;
    }
    return false;
}

// {"$class": "Name", "$dict": {...}}: a dictionary or set of that class.
NSObject* newOfClass(const Value& v, std::string* error) {
    const Value& name = v.members[0].second;
    if (name.kind != Value::String || !isValueClassName(name.text)) {
        *error = "\"$class\": " + (name.kind == Value::String ? name.text : std::string("that")) +
                 " is not a dictionary or set class";
        return nullptr;
    }
    Class cls = NSClassFromCString(name.text.c_str());
    if (!cls) {
        *error = "\"$class\": no class named " + name.text;
        return nullptr;
    }
    const Value* dict = nullptr;
    for (const auto& m : v.members) {
        if (m.first == "$dict") dict = &m.second;
    }
    if (!dict || v.members.size() != 2) {
        *error = "\"$class\" " + name.text + ": \"$dict\" and nothing else expected";
        return nullptr;
    }
    if (cls->isSubclassOf(NSDictionary::classObject())) return newDictionaryOf(*dict, cls, error);
    // A set of another class: its members with their counts.
    std::vector<std::pair<NSObject*, NSObject*>> entries;
    NSObject* result = nullptr;
    if (buildEntries(*dict, &entries, error)) {
        auto* set = static_cast<NSMutableSet*>(cls->alloc()->init());
        bool ok = true;
        for (const auto& e : entries) {
            double count = e.second->isKindOfClass_(NSNumber::classObject())
                                   ? static_cast<NSNumber*>(e.second)->doubleValue()
                                   : -1;
            if (!(count >= 1 && count <= 1000000) || count != std::floor(count)) {
                *error = "\"$dict\" of a " + name.text + ": counts from 1 to 1000000 expected";
                ok = false;
                break;
            }
            for (int k = 0; k < static_cast<int>(count); k++) set->addObject_(e.first);
        }
        if (ok) {
            result = set;
        } else {
            set->release();
        }
    }
    releaseEntries(&entries);
    return result;
}

NSObject* newObject(const Value& v, std::string* error) {
    switch (v.kind) {
        case Value::Null:
            return NSNull::null();
        case Value::Bool:
            return NSNumber::alloc()->initWithBool_(v.boolean);
        case Value::Number:
            return NSNumber::alloc()->initWithDouble_(v.number);
        case Value::String:
            return newString(v.text);
        case Value::Array: {
            NSMutableArray* a = NSMutableArray::alloc()->initWithCapacity_(
                    static_cast<uint32_t>(v.items.size()));
            for (const Value& item : v.items) {
                NSObject* element = newObject(item, error);
                if (!element) {
                    a->release();
                    return nullptr;
                }
                a->addObject_(element);
                element->release();
            }
            return a;
        }
        case Value::Object:
            break;
    }
    std::vector<std::string> keys;
    for (const auto& m : v.members) keys.push_back(m.first);
    if (!isMarker(keys)) return newDictionaryOf(v, NSMutableDictionary::classObject(), error);
    const std::string& key = keys[0];
    const Value& arg = v.members[0].second;
    if (key == "$class") return newOfClass(v, error);
    if (key == "$set") return newSet(arg, error);
    if (key == "$entries") return newDictionaryOf(arg, NSMutableDictionary::classObject(), error);
    if (arg.kind != Value::String) {
        *error = "\"" + key + "\" must hold a string";
        return nullptr;
    }
    if (key == "$date") {
        if (!isDateText(arg.text)) {
            *error = "\"$date\" must have the form 2024-01-31 09:30:00 +0100, not \"" + arg.text +
                     "\"";
            return nullptr;
        }
        NSString* text = newString(arg.text);
        NSObject* date = NSDate::alloc()->initWithString_(text);
        text->release();
        return date;
    }
    if (key == "$data") return newData(arg.text, error);
    // "$number"
    double value = arg.text == "nan"    ? NAN
                   : arg.text == "inf"  ? INFINITY
                   : arg.text == "-inf" ? -INFINITY
                                        : 0;
    if (value == 0) {
        *error = "\"$number\" must be \"nan\", \"inf\" or \"-inf\"";
        return nullptr;
    }
    return NSNumber::alloc()->initWithDouble_(value);
}

// ---------------------------------------------------------------------------
// Objects to text.

void appendString(std::string* out, const char* bytes, size_t n) {
    static const char kHex[] = "0123456789abcdef";
    out->push_back('"');
    for (size_t i = 0; i < n; i++) {
        unsigned char c = static_cast<unsigned char>(bytes[i]);
        switch (c) {
            case '"':
                out->append("\\\"");
                break;
            case '\\':
                out->append("\\\\");
                break;
            case '\b':
                out->append("\\b");
                break;
            case '\f':
                out->append("\\f");
                break;
            case '\n':
                out->append("\\n");
                break;
            case '\r':
                out->append("\\r");
                break;
            case '\t':
                out->append("\\t");
                break;
            default:
                if (c < 0x20 || c == 0x7F) {
                    out->append("\\u00");
                    out->push_back(kHex[c >> 4]);
                    out->push_back(kHex[c & 15]);
                } else {
                    out->push_back(static_cast<char>(c));
                }
        }
    }
    out->push_back('"');
}

void appendString(std::string* out, NSString* s) {
    appendString(out, s->UTF8String(), s->byteLength());
}

void appendNumber(std::string* out, double d) {
    char buffer[40];
    if (std::isnan(d)) {
        out->append("{\"$number\":\"nan\"}");
        return;
    }
    if (std::isinf(d)) {
        out->append(d > 0 ? "{\"$number\":\"inf\"}" : "{\"$number\":\"-inf\"}");
        return;
    }
    if (d == std::floor(d) && std::fabs(d) < 1e15) {
        std::snprintf(buffer, sizeof buffer, "%.0f", d);
    } else {
        std::snprintf(buffer, sizeof buffer, "%.17g", d);
    }
    out->append(buffer);
}

class Writer {
public:
    Writer(std::string* out, const KeyOrder& order) : _out(out), _order(order) {}

    bool write(NSObject* o) {
        std::string& out = *_out;
        if (!o || o == NSNull::null()) {
            out.append("null");
            return true;
        }
        if (o->isKindOfClass_(NSString::classObject())) {
            appendString(_out, static_cast<NSString*>(o));
            return true;
        }
        if (o->isKindOfClass_(NSNumber::classObject())) {
            appendNumber(_out, static_cast<NSNumber*>(o)->doubleValue());
            return true;
        }
        if (o->isKindOfClass_(NSDate::classObject())) {
            out.append("{\"$date\":");
            appendString(_out, o->description());
            out.push_back('}');
            return true;
        }
        if (o->isKindOfClass_(NSData::classObject())) {
            auto* data = static_cast<NSData*>(o);
            auto* bytes = static_cast<unsigned char*>(data->bytes());
            static const char kHex[] = "0123456789abcdef";
            out.append("{\"$data\":\"");
            for (uint32_t i = 0; i < data->length(); i++) {
                out.push_back(kHex[bytes[i] >> 4]);
                out.push_back(kHex[bytes[i] & 15]);
            }
            std::free(bytes);
            out.append("\"}");
            return true;
        }
        if (o->isKindOfClass_(NSArray::classObject())) {
            auto* a = static_cast<NSArray*>(o);
            out.push_back('[');
            for (uint32_t i = 0; i < a->count(); i++) {
                if (i) out.push_back(',');
                if (!write(a->objectAtIndex_(i))) return false;
            }
            out.push_back(']');
            return true;
        }
        Class cls = o->class_();
        if (o->isKindOfClass_(NSSet::classObject())) {
            NSMutableDictionary* dict = static_cast<NSSet*>(o)->dict();
            if (cls == NSSet::classObject() || cls == NSMutableSet::classObject()) {
                out.append("{\"$set\":[");
                std::vector<NSObject*> keys = keysOf(dict);
                for (size_t i = 0; i < keys.size(); i++) {
                    if (i) out.push_back(',');
                    if (!write(keys[i])) return false;
                }
                out.append("]}");
                return true;
            }
            return writeClassDict(cls, dict);
        }
        if (o->isKindOfClass_(NSDictionary::classObject())) {
            if (cls == NSDictionary::classObject() || cls == NSMutableDictionary::classObject()) {
                return writeDictionary(static_cast<NSDictionary*>(o));
            }
            return writeClassDict(cls, static_cast<NSDictionary*>(o));
        }
        // Any other class: its name and its fields, base class first.
        out.append("{\"$class\":");
        appendString(_out, cls->name(), std::strlen(cls->name()));
        std::vector<Class> chain;
        for (Class c = cls; c && c != NSObject::classObject(); c = c->base())
            chain.insert(chain.begin(), c);
        for (Class c : chain) {
            for (const NSFieldInfo& field : c->fields()) {
                // Objects and numbers; a selector has no JSON form.
                if (field.type == ":") continue;
                out.push_back(',');
                appendString(_out, field.name.data(), field.name.size());
                out.push_back(':');
                NSString* key = NSString::stringWithUTF8String_(field.name.c_str());
                if (!write(o->valueForKey_(key))) return false;
            }
        }
        out.push_back('}');
        return true;
    }

private:
    std::vector<NSObject*> keysOf(NSDictionary* d) {
        const std::vector<NSObject*>* ordered = _order ? _order(d) : nullptr;
        std::vector<NSObject*> keys;
        if (ordered) {
            // Archive order; a key written twice counts once, and a key
            // whose value removed it is gone.
            for (NSObject* key : *ordered) {
                if (!key || !d->objectForKey_(key)) continue;
                bool seen = false;
                for (NSObject* k : keys) seen = seen || k->isEqual_(key);
                if (!seen) keys.push_back(key);
            }
            if (keys.size() == d->count()) return keys;
            keys.clear();
        }
        NSMutableArray* all = d->allKeys();
        for (uint32_t i = 0; i < all->count(); i++) keys.push_back(all->objectAtIndex_(i));
        return keys;
    }

    bool writeClassDict(Class cls, NSDictionary* d) {
        _out->append("{\"$class\":");
        appendString(_out, cls->name(), std::strlen(cls->name()));
        _out->append(",\"$dict\":");
        if (!writeDictionary(d)) return false;
        _out->push_back('}');
        return true;
    }

    bool writeDictionary(NSDictionary* d) {
        std::string& out = *_out;
        std::vector<NSObject*> keys = keysOf(d);
        bool plain = true;
        std::vector<std::string> names;
        for (NSObject* key : keys) {
            if (!key->isKindOfClass_(NSString::classObject())) {
                plain = false;
                break;
            }
            names.push_back(static_cast<NSString*>(key)->UTF8String());
        }
        if (plain && !isMarker(names)) {
            out.push_back('{');
            for (size_t i = 0; i < keys.size(); i++) {
                if (i) out.push_back(',');
                appendString(_out, static_cast<NSString*>(keys[i]));
                out.push_back(':');
                if (!write(d->objectForKey_(keys[i]))) return false;
            }
            out.push_back('}');
            return true;
        }
        out.append("{\"$entries\":[");
        for (size_t i = 0; i < keys.size(); i++) {
            if (i) out.push_back(',');
            out.push_back('[');
            if (!write(keys[i])) return false;
            out.push_back(',');
            if (!write(d->objectForKey_(keys[i]))) return false;
            out.push_back(']');
        }
        out.append("]}");
        return true;
    }

    std::string* _out;
    const KeyOrder& _order;
};

}  // namespace

NSObject* newObjectFromJSON(const std::string& text, std::string* error) {
    Value root;
    Reader reader(text, error);
    if (!reader.parseDocument(&root)) return nullptr;
    return newObject(root, error);
}

void appendJSON(std::string* out, NSObject* object, const KeyOrder& order) {
    Writer writer(out, order);
    writer.write(object);
}

void JsonObject::key(const char* name) {
    if (_text.size() > 1) _text.push_back(',');
    appendString(&_text, name, std::strlen(name));
    _text.push_back(':');
}

JsonObject& JsonObject::add(const char* name, const std::string& value) {
    key(name);
    appendString(&_text, value.data(), value.size());
    return *this;
}

JsonObject& JsonObject::add(const char* name, const char* value) {
    if (!value) return addJSON(name, "null");
    return add(name, std::string(value));
}

JsonObject& JsonObject::add(const char* name, double value) {
    key(name);
    appendNumber(&_text, value);
    return *this;
}

JsonObject& JsonObject::addBool(const char* name, bool value) {
    return addJSON(name, value ? "true" : "false");
}

JsonObject& JsonObject::addJSON(const char* name, const std::string& json) {
    key(name);
    _text += json;
    return *this;
}

}  // namespace admin
