#include "NSDictionary.h"

#include <cstdarg>

#include "NSNull.h"
#include "NSString.h"

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
    if (!key) return;
    uint32_t index = key->hash() % _array->count();
    NSObject* slot = _array->objectAtIndex_(index);
    NSNull* null = NSNull::null();
    if (slot != null) {
        auto* bucket = static_cast<NSMutableArray*>(slot);
        for (uint32_t i = 0; i < bucket->count(); i += 2) {
            if (!bucket->objectAtIndex_(i)->isEqual_(key)) continue;
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
    NSObject* slot = _array->objectAtIndex_(key->hash() % _array->count());
    if (slot == NSNull::null()) return nullptr;
    auto* bucket = static_cast<NSMutableArray*>(slot);
    for (uint32_t i = 0; i < bucket->count(); i += 2) {
        if (bucket->objectAtIndex_(i)->isEqual_(key)) return bucket->objectAtIndex_(i + 1);
    }
    return nullptr;
}

namespace {
// Keys (offset 0) or values (offset 1) in enumeration order.
NSMutableArray* entries(NSMutableArray* table, uint32_t count, uint32_t offset) {
    NSMutableArray* out = NSMutableArray::arrayWithCapacity_(count);
    NSNull* null = NSNull::null();
    for (uint32_t b = 0; table && b < table->count(); b++) {
        NSObject* slot = table->objectAtIndex_(b);
        if (slot == null) continue;
        auto* bucket = static_cast<NSMutableArray*>(slot);
        for (uint32_t i = offset; i < bucket->count(); i += 2) out->addObject_(bucket->objectAtIndex_(i));
    }
    return out;
}
}  // namespace

NSMutableArray* NSDictionary::allKeys() { return entries(_array, _count, 0); }

NSMutableArray* NSDictionary::allValues() { return entries(_array, _count, 1); }

NSMutableArray* NSDictionary::allKeysForObject_(NSObject* object) {
    NSMutableArray* out = NSMutableArray::array();
    NSMutableArray* keys = allKeys();
    for (uint32_t i = 0; i < keys->count(); i++) {
        NSObject* key = keys->objectAtIndex_(i);
        if (NSNil(object, &NSObject::isEqual_, objectForKey_(key))) out->addObject_(key);
    }
    return out;
}

bool NSDictionary::isEqual_(NSObject* other) {
    if (other == this) return true;
    if (!other || !other->isKindOfClass_(NSDictionary::classObject())) return false;
    auto* d = static_cast<NSDictionary*>(other);
    if (d->_count != _count) return false;
    NSMutableArray* keys = allKeys();
    for (uint32_t i = 0; i < keys->count(); i++) {
        NSObject* key = keys->objectAtIndex_(i);
        if (!NSNil(d->objectForKey_(key), &NSObject::isEqual_, objectForKey_(key))) return false;
    }
    return true;
}

uint32_t NSDictionary::hash() {
    uint32_t h = 17;
    NSMutableArray* keys = allKeys();
    for (uint32_t i = 0; i < keys->count(); i++) {
        NSObject* key = keys->objectAtIndex_(i);
        h = 37 * h + key->hash();
        h = 37 * h + NSNil(objectForKey_(key), &NSObject::hash);
    }
    return h;
}

NSArray* NSDictionary::attributeKeys() { return NSArray::arrayWithObjects_("count"_ns, "array"_ns, nullptr); }

NSObject* NSDictionary::mutableCopyWithZone_(NSZone*) {
    auto* d = static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(_count));
    d->addEntriesFromDictionary_(this);
    return d;
}

NSString* NSDictionary::description() {
    NSMutableString* s = NSMutableString::stringWithUTF8String_("{");
    NSMutableArray* keys = allKeys();
    for (uint32_t i = 0; i < keys->count(); i++) {
        NSObject* key = keys->objectAtIndex_(i);
        if (i) s->appendString_(", "_ns);
        s->appendString_(key->description());
        s->appendString_(":"_ns);
        s->appendString_(NSNil(objectForKey_(key), &NSObject::description));
    }
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
    for (uint32_t b = 0; b < _array->count(); b++) _array->replaceObjectAtIndex_withObject_(b, null);
    _count = 0;
}

void NSMutableDictionary::addEntriesFromDictionary_(NSDictionary* other) {
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
    NS_METHOD(setObject_forKey_)
    NS_METHOD(removeObjectForKey_)
    NS_METHOD(removeAllObjects)
    NS_METHOD(addEntriesFromDictionary_)
    NS_METHOD(copyWithZone_)
    NS_CLASS_METHOD(dictionary)
    NS_CLASS_METHOD(dictionaryWithCapacity_)
NS_CLASS_END(NSMutableDictionary)
