#include "NSSet.h"

#include "NSNull.h"
#include "NSString.h"
#include "NSValue.h"

// A set is made only through NSMutableSet's initializers, which give it its
// table; the operations below still go through NSNil so that a set that was
// never initialized answers like nil (0, false, nothing) instead of crashing.

NSEnumerator* NSSet::objectEnumerator() { return allObjects()->objectEnumerator(); }

uint32_t NSSet::count() { return NSNil(_dict.get(), &NSDictionary::count); }

bool NSSet::member_(NSObject* object) {
    return NSNil(_dict.get(), &NSDictionary::objectForKey_, object) != nullptr;
}

NSMutableArray* NSSet::allObjects() {
    if (!_dict) return NSMutableArray::array();
    return _dict->allKeys();
}

bool NSSet::intersectsSet_(NSSet* set) {
    NSSet* other = NSDynamicCast<NSSet>(set);
    if (!other) return false;
    NSMutableArray* members = allObjects();
    for (uint32_t i = 0; i < members->count(); i++) {
        if (other->member_(members->objectAtIndex_(i))) return true;
    }
    return false;
}

NSMutableSet* NSSet::setWithArray_(NSArray* array) {
    NSMutableSet* s =
            NSMutableSet::setWithCapacity_(NSNil(NSDynamicCast<NSArray>(array), &NSArray::count));
    s->addObjectsFromArray_(array);
    return s;
}

bool NSSet::isEqual_(NSObject* other) {
    if (other == this) return true;
    NSSet* s = NSDynamicCast<NSSet>(other);
    if (!s || s->count() != count()) return false;
    NSMutableArray* members = allObjects();
    for (uint32_t i = 0; i < members->count(); i++) {
        if (!s->member_(members->objectAtIndex_(i))) return false;
    }
    return true;
}

uint32_t NSSet::hash() { return allObjects()->hash(); }

NSObject* NSSet::mutableCopyWithZone_(NSZone*) {
    NSMutableSet* s = NSMutableSet::alloc()->initWithCapacity_(count());
    s->addObjectsFromArray_(allObjects());
    return s;
}

NSString* NSSet::description() {
    NSMutableString* s = NSMutableString::stringWithUTF8String_("<set> ");
    s->appendString_(allObjects()->description());
    return s;
}

NSArray* NSSet::attributeKeys() { return NSArray::arrayWithObjects_("dict"_ns, nullptr); }

// ---------------------------------------------------------------------------

NSMutableSet* NSMutableSet::init() { return initWithCapacity_(10); }

NSMutableSet* NSMutableSet::set() { return NSAutorelease(alloc()->init()); }

NSMutableSet* NSMutableSet::initWithCapacity_(uint32_t buckets) {
    _dict.adopt(static_cast<NSMutableDictionary*>(
            NSMutableDictionary::alloc()->initWithCapacity_(buckets)));
    return this;
}

NSMutableSet* NSMutableSet::setWithCapacity_(uint32_t buckets) {
    return NSAutorelease(alloc()->initWithCapacity_(buckets));
}

void NSMutableSet::addObject_(NSObject* object) {
    // On a member already there only the value (the shared null again) is
    // replaced: the stored member and its place stay.
    NSNil(_dict.get(), &NSMutableDictionary::setObject_forKey_, NSNull::null(), object);
}

void NSMutableSet::removeObject_(NSObject* object) {
    NSNil(_dict.get(), &NSMutableDictionary::removeObjectForKey_, object);
}

void NSMutableSet::addObjectsFromArray_(NSArray* objects) {
    // The array's enumeration: it ends at a nil element, as everywhere.
    NSArray* array = NSDynamicCast<NSArray>(objects);
    if (!array) return;
    for (uint32_t i = 0; i < array->count() && array->objectAtIndex_(i); i++)
        addObject_(array->objectAtIndex_(i));
}

NSObject* NSMutableSet::copyWithZone_(NSZone* zone) { return mutableCopyWithZone_(zone); }

// ---------------------------------------------------------------------------

void NSCountedSet::addObject_(NSObject* object) {
    if (!_dict || !object) return;
    uint32_t n = countForObject_(object);
    _dict->setObject_forKey_(NSNumber::numberWithInt_(static_cast<int>(n + 1)), object);
}

void NSCountedSet::removeObject_(NSObject* object) {
    uint32_t n = countForObject_(object);
    if (n == 0) return;
    if (n == 1) {
        _dict->removeObjectForKey_(object);
    } else {
        _dict->setObject_forKey_(NSNumber::numberWithInt_(static_cast<int>(n - 1)), object);
    }
}

uint32_t NSCountedSet::countForObject_(NSObject* object) {
    auto* n = static_cast<NSNumber*>(NSNil(_dict.get(), &NSDictionary::objectForKey_, object));
    return n ? static_cast<uint32_t>(n->intValue()) : 0;
}

NSObject* NSCountedSet::copyWithZone_(NSZone*) {
    NSCountedSet* s = NSCountedSet::alloc();
    // The copy of the table: as many buckets as members, the same members
    // and the same count objects (numbers are shared, never changed).
    if (_dict) s->_dict.adopt(static_cast<NSMutableDictionary*>(_dict->copy()));
    return s;
}

// ---------------------------------------------------------------------------

NS_CLASS_BEGIN(NSSet, NSObject)
    NS_METHOD(objectEnumerator)
    NS_METHOD(count)
    NS_METHOD(member_)
    NS_METHOD(allObjects)
    NS_METHOD(intersectsSet_)
    NS_CLASS_METHOD(setWithArray_)
    NS_METHOD(isEqual_)
    NS_METHOD(hash)
    NS_METHOD(mutableCopyWithZone_)
    NS_METHOD(description)
    NS_METHOD(attributeKeys)
    NS_FIELD(_dict)
NS_CLASS_END(NSSet)

NS_CLASS_BEGIN(NSMutableSet, NSSet)
    NS_METHOD(init)
    NS_CLASS_METHOD(set)
    NS_METHOD(initWithCapacity_)
    NS_CLASS_METHOD(setWithCapacity_)
    NS_METHOD(addObject_)
    NS_METHOD(removeObject_)
    NS_METHOD(addObjectsFromArray_)
    NS_METHOD(copyWithZone_)
NS_CLASS_END(NSMutableSet)

NS_CLASS_BEGIN(NSCountedSet, NSMutableSet)
    NS_METHOD(addObject_)
    NS_METHOD(removeObject_)
    NS_METHOD(countForObject_)
    NS_METHOD(copyWithZone_)
NS_CLASS_END(NSCountedSet)
