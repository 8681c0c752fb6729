#include "NSDictionary.h"

#include <cstdarg>
#include <cstring>

#include "NSNull.h"
#include "NSString.h"
#include "NSValue.h"

namespace {

// Strings and numbers of the foundation's own classes are equal only when
// their hashes are: isEqual: and hash both come from the text, or from the
// number, and neither has side effects. Between two such keys a differing
// hash therefore answers isEqual: without asking it, and nobody can tell the
// difference; it saves most of the cost of a long bucket. Two such strings
// with the same hash are compared by their bytes here, as their isEqual:
// would. Subclasses are left out: they may redefine either operation.
enum class KeyKind : uint8_t { other, string, number };

struct KeyClasses {
    Class string, mutableString, constantString, number;
};

const KeyClasses& keyClasses() {
    static const KeyClasses classes = {NSString::classObject(), NSMutableString::classObject(),
                                       NSConstantString::classObject(), NSNumber::classObject()};
    return classes;
}

// Runs for every key looked at: one guarded initialisation for all four
// classes, and small enough to be inlined.
inline KeyKind keyKindOf(Class cls) {
    const KeyClasses& c = keyClasses();
    if (cls == c.string || cls == c.mutableString || cls == c.constantString)
        return KeyKind::string;
    return cls == c.number ? KeyKind::number : KeyKind::other;
}

// The key looked for, with its hash taken once (the first thing an
// insertion does).
struct KeyProbe {
    explicit KeyProbe(NSObject* k) : key(k), hash(k->hash()), kind(keyKindOf(k->class_())) {}
    // The stored key asked isEqual: with the key looked for, in that
    // direction: a key whose isEqual: is not symmetric finds what it
    // always found.
    bool matchedBy(NSObject* stored) const {
        if (kind != KeyKind::other && stored != key) {
            KeyKind storedKind = keyKindOf(stored->class_());
            if (storedKind != KeyKind::other) {
                if (stored->hash() != hash) return false;
                if (kind == KeyKind::string && storedKind == KeyKind::string) {
                    auto* a = static_cast<NSString*>(stored);
                    auto* b = static_cast<NSString*>(key);
                    return a->byteLength() == b->byteLength() &&
                           std::memcmp(a->UTF8String(), b->UTF8String(), a->byteLength()) == 0;
                }
            }
        }
        return stored->isEqual_(key);
    }
    NSObject* key;
    uint32_t hash;
    KeyKind kind;
};

}  // namespace

NSDictionary* NSDictionary::init() { return initWithCapacity_(1024); }

NSDictionary* NSDictionary::initWithCapacity_(uint32_t buckets) {
    if (buckets == 0) buckets = 10;
    _array.adopt(NSMutableArray::alloc()->initWithCapacity_(buckets));
    NSNull* null = NSNull::null();
    for (uint32_t i = 0; i < buckets; i++) _array->addObject_(null);
    _count = 0;
    return this;
}

NSDictionary* NSDictionary::initWithObjectsAndKeys_(NSObject* firstValue, ...) {
    init();
    va_list ap;
    va_start(ap, firstValue);
    for (NSObject* value = firstValue; value; value = va_arg(ap, NSObject*)) {
        NSObject* key = va_arg(ap, NSObject*);
        insertValue_forKey_(value, key);
    }
    va_end(ap);
    return this;
}

NSMutableDictionary* NSDictionary::dictionaryWithObjectsAndKeys_(NSObject* firstValue, ...) {
    NSMutableDictionary* d = NSMutableDictionary::dictionaryWithCapacity_(10);
    va_list ap;
    va_start(ap, firstValue);
    for (NSObject* value = firstValue; value; value = va_arg(ap, NSObject*)) {
        NSObject* key = va_arg(ap, NSObject*);
        d->setObject_forKey_(value, key);
    }
    va_end(ap);
    return d;
}

void NSDictionary::insertValue_forKey_(NSObject* value, NSObject* key) {
    // A nil key never matches and can't be stored: storing it would put a
    // nil into a bucket, where it would end enumerations early.
    if (!key) return;
    KeyProbe probe(key);
    uint32_t index = probe.hash % _array->count();
    NSObject* slot = _array->objectAtIndex_(index);
    NSNull* null = NSNull::null();
    if (slot != null) {
        auto* bucket = static_cast<NSMutableArray*>(slot);
        for (uint32_t i = 0; i < bucket->count(); i += 2) {
            if (!probe.matchedBy(bucket->objectAtIndex_(i))) continue;
            if (value) {
                bucket->replaceObjectAtIndex_withObject_(i + 1, value);
            } else {
                // Value first, so that the key (possibly the caller's
                // argument) stays alive while it goes.
                bucket->removeObjectAtIndex_(i + 1);
                bucket->removeObjectAtIndex_(i);
                _count--;
                if (bucket->count() == 0) _array->replaceObjectAtIndex_withObject_(index, null);
            }
            return;
        }
    }
    if (!value) return;
    NSMutableArray* bucket;
    if (slot == null) {
        bucket = NSMutableArray::alloc()->initWithCapacity_(2);
        _array->replaceObjectAtIndex_withObject_(index, bucket);
        bucket->release();
    } else {
        bucket = static_cast<NSMutableArray*>(slot);
    }
    // The key is stored as its copy: strings and numbers are shared, a
    // mutable key is duplicated so that later changes can't reach it.
    NSObject* copy = key->copy();
    bucket->addObject_(copy);
    copy->release();
    bucket->addObject_(value);
    _count++;
}

NSObject* NSDictionary::objectForKey_(NSObject* key) {
    if (!key || !_array) return nullptr;
    KeyProbe probe(key);
    NSObject* slot = _array->objectAtIndex_(probe.hash % _array->count());
    // The shared null never changes; taken once instead of per lookup.
    static NSNull* const null = NSNull::null();
    if (slot == null) return nullptr;
    auto* bucket = static_cast<NSMutableArray*>(slot);
    for (uint32_t i = 0; i < bucket->count(); i += 2) {
        if (probe.matchedBy(bucket->objectAtIndex_(i))) return bucket->objectAtIndex_(i + 1);
    }
    return nullptr;
}

namespace {
// Calls f(key, value) for every entry in enumeration order: buckets from 0
// up, each in its order of insertion.
template <class F>
void forEachEntry(NSMutableArray* table, F f) {
    NSNull* null = NSNull::null();
    for (uint32_t b = 0; table && b < table->count(); b++) {
        NSObject* slot = table->objectAtIndex_(b);
        if (slot == null) continue;
        auto* bucket = static_cast<NSMutableArray*>(slot);
        for (uint32_t i = 0; i + 1 < bucket->count(); i += 2)
            f(bucket->objectAtIndex_(i), bucket->objectAtIndex_(i + 1));
    }
}
}  // namespace

NSMutableArray* NSDictionary::allKeys() {
    NSMutableArray* out = NSMutableArray::arrayWithCapacity_(_count);
    forEachEntry(_array, [out](NSObject* key, NSObject*) { out->addObject_(key); });
    return out;
}

NSMutableArray* NSDictionary::allValues() {
    NSMutableArray* out = NSMutableArray::arrayWithCapacity_(_count);
    forEachEntry(_array, [out](NSObject*, NSObject* value) { out->addObject_(value); });
    return out;
}

NSMutableArray* NSDictionary::allKeysForObject_(NSObject* object) {
    NSMutableArray* out = NSMutableArray::array();
    forEachEntry(_array, [out, object](NSObject* key, NSObject* value) {
        if (NSNil(object, &NSObject::isEqual_, value)) out->addObject_(key);
    });
    return out;
}

bool NSDictionary::isEqual_(NSObject* other) {
    if (other == this) return true;
    NSDictionary* d = NSDynamicCast<NSDictionary>(other);
    if (!d || d->_count != _count) return false;
    bool equal = true;
    forEachEntry(_array, [d, &equal](NSObject* key, NSObject* value) {
        if (equal && !NSNil(d->objectForKey_(key), &NSObject::isEqual_, value)) equal = false;
    });
    return equal;
}

uint32_t NSDictionary::hash() {
    uint32_t h = 17;
    forEachEntry(_array, [&h](NSObject* key, NSObject* value) {
        h = 37 * h + key->hash();
        h = 37 * h + value->hash();
    });
    return h;
}

NSArray* NSDictionary::attributeKeys() {
    return NSArray::arrayWithObjects_("count"_ns, "array"_ns, nullptr);
}

NSObject* NSDictionary::mutableCopyWithZone_(NSZone*) {
    auto* d = static_cast<NSMutableDictionary*>(
            NSMutableDictionary::alloc()->initWithCapacity_(_count));
    d->addEntriesFromDictionary_(this);
    return d;
}

NSString* NSDictionary::description() {
    NSMutableString* s = NSMutableString::stringWithUTF8String_("{");
    bool first = true;
    forEachEntry(_array, [s, &first](NSObject* key, NSObject* value) {
        if (!first) s->appendString_(", "_ns);
        first = false;
        s->appendString_(key->description());
        s->appendString_(":"_ns);
        s->appendString_(value->description());
    });
    s->appendString_("}"_ns);
    return s;
}

// ---------------------------------------------------------------------------

NSMutableDictionary* NSMutableDictionary::dictionary() { return dictionaryWithCapacity_(10); }

NSMutableDictionary* NSMutableDictionary::dictionaryWithCapacity_(uint32_t buckets) {
    return static_cast<NSMutableDictionary*>(NSAutorelease(alloc()->initWithCapacity_(buckets)));
}

void NSMutableDictionary::setObject_forKey_(NSObject* value, NSObject* key) {
    // Sent as a message, so that a subclass's insertValue:forKey: is used.
    NSSend<void>(this, NS_SEL("insertValue:forKey:"), value, key);
}

void NSMutableDictionary::removeObjectForKey_(NSObject* key) { insertValue_forKey_(nullptr, key); }

void NSMutableDictionary::removeAllObjects() {
    NSNull* null = NSNull::null();
    for (uint32_t b = 0; b < _array->count(); b++)
        _array->replaceObjectAtIndex_withObject_(b, null);
    _count = 0;
}

void NSMutableDictionary::addEntriesFromDictionary_(NSDictionary* dictionary) {
    NSDictionary* other = NSDynamicCast<NSDictionary>(dictionary);
    if (!other) return;
    NSMutableArray* keys = other->allKeys();
    for (uint32_t i = 0; i < keys->count(); i++) {
        NSObject* key = keys->objectAtIndex_(i);
        setObject_forKey_(other->objectForKey_(key), key);
    }
}

NSObject* NSMutableDictionary::copyWithZone_(NSZone* zone) { return mutableCopyWithZone_(zone); }

NS_CLASS_BEGIN(NSDictionary, NSObject)
    NS_METHOD(init)
    NS_METHOD(initWithCapacity_)
    NS_METHOD(insertValue_forKey_)
    NS_METHOD(objectForKey_)
    NS_METHOD(allKeys)
    NS_METHOD(allValues)
    NS_METHOD(count)
    NS_METHOD(allKeysForObject_)
    NS_METHOD(isEqual_)
    NS_METHOD(hash)
    NS_METHOD(attributeKeys)
    NS_METHOD(mutableCopyWithZone_)
    NS_METHOD(description)
    NS_FIELD(_array)
    NS_FIELD(_count)
NS_CLASS_END(NSDictionary)

NS_CLASS_BEGIN(NSMutableDictionary, NSDictionary)
    NS_CLASS_METHOD(dictionary)
    NS_CLASS_METHOD(dictionaryWithCapacity_)
    NS_METHOD(setObject_forKey_)
    NS_METHOD(removeObjectForKey_)
    NS_METHOD(removeAllObjects)
    NS_METHOD(addEntriesFromDictionary_)
    NS_METHOD(copyWithZone_)
NS_CLASS_END(NSMutableDictionary)
