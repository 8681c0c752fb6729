#include "storage/LXManagedObject.h"

#include "foundation/NSArray.h"
#include "foundation/NSCharacterSet.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"

namespace {

// The parts of a key path. One character set for the life of the process:
// paths are split on every key access.
NSMutableArray* pathParts(NSString* path) {
    static NSCharacterSet* dot = NSCharacterSet::alloc()->initWithCharactersInString_("."_ns);
    return path->splitBy_(dot);
}

// The dictionary below `level` at `key`, or null when it isn't one.
NSMutableDictionary* childLevel(NSDictionary* level, NSObject* key) {
    NSObject* child = level->objectForKey_(key);
    if (!child || !child->isKindOfClass_(NSMutableDictionary::classObject())) return nullptr;
    return static_cast<NSMutableDictionary*>(child);
}

}  // namespace

LXManagedObject* LXManagedObject::init() {
    initWithCapacity_(10);
    return this;
}

LXManagedObject* LXManagedObject::managedObject() {
    return NSAutorelease(LXManagedObject::alloc()->init());
}

void LXManagedObject::setValue_forKey_(NSObject* value, NSString* key) {
    setObject_forKeyPath_(value, key);
}

void LXManagedObject::setValue_forKeyPath_(NSObject* value, NSString* path) {
    setObject_forKeyPath_(value, path);
}

NSObject* LXManagedObject::valueForKey_(NSString* key) { return objectForKeyPath_(key); }

NSObject* LXManagedObject::valueForKeyPath_(NSString* path) { return objectForKeyPath_(path); }

void LXManagedObject::setObject_forKeyPath_(NSObject* object, NSString* path) {
    if (!path) return;
    NSMutableArray* parts = pathParts(path);
    NSMutableDictionary* level = this;
    for (uint32_t i = 0; i + 1 < parts->count(); i++) {
        NSObject* key = parts->objectAtIndex_(i);
        NSMutableDictionary* next = childLevel(level, key);
        if (!next) {
            // A missing level, or one that holds a plain value: the path
            // goes on through a new dictionary in its place.
            next = NSMutableDictionary::dictionaryWithCapacity_(10);
            level->setObject_forKey_(next, key);
        }
        level = next;
    }
    level->setObject_forKey_(object, parts->objectAtIndex_(parts->count() - 1));
}

void LXManagedObject::removeObjectForKeyPath_(NSString* path) {
    if (!path) return;
    NSMutableArray* parts = pathParts(path);
    NSMutableDictionary* level = this;
    for (uint32_t i = 0; i + 1 < parts->count(); i++) {
        level = childLevel(level, parts->objectAtIndex_(i));
        if (!level) return;
    }
    level->removeObjectForKey_(parts->objectAtIndex_(parts->count() - 1));
}

NSObject* LXManagedObject::objectForKeyPath_(NSString* path) {
    if (!path) return nullptr;
    NSMutableArray* parts = pathParts(path);
    NSDictionary* level = this;
    for (uint32_t i = 0; i + 1 < parts->count(); i++) {
        level = childLevel(level, parts->objectAtIndex_(i));
        if (!level) return nullptr;
    }
    return level->objectForKey_(parts->objectAtIndex_(parts->count() - 1));
}

NSObject* LXManagedObject::uniqueId() {
    NSMutableDictionary* meta = childLevel(this, "__meta"_ns);
    return meta ? meta->objectForKey_("id"_ns) : nullptr;
}

bool LXManagedObject::isEqual_(NSObject* other) {
    if (!other || !other->isKindOfClass_(LXManagedObject::classObject())) return false;
    NSObject* mine = uniqueId();
    NSObject* theirs = static_cast<LXManagedObject*>(other)->uniqueId();
    return mine && theirs && mine->isEqual_(theirs);
}

uint32_t LXManagedObject::hash() {
    NSObject* identifier = uniqueId();
    return identifier ? identifier->hash() : NSObject::hash();
}

NS_CLASS_BEGIN(LXManagedObject, NSMutableDictionary)
    NS_METHOD(init)
    NS_CLASS_METHOD(managedObject)
    NS_METHOD(setValue_forKey_)
    NS_METHOD(setValue_forKeyPath_)
    NS_METHOD(setObject_forKeyPath_)
    NS_METHOD(removeObjectForKeyPath_)
    NS_METHOD(valueForKey_)
    NS_METHOD(valueForKeyPath_)
    NS_METHOD(objectForKeyPath_)
    NS_METHOD(uniqueId)
    NS_METHOD(isEqual_)
    NS_METHOD(hash)
NS_CLASS_END(LXManagedObject)
