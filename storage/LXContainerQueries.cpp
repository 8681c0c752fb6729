// The object layer of LXContainer: plain objects stored by their
// attributes, and the mapping that links each live object to its record.
#include <cstdio>

#include <string>

#include "foundation/NSArray.h"
#include "foundation/NSNull.h"
#include "foundation/NSSet.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "foundation/platform/Platform.h"
#include "storage/LXContainer.h"

namespace {

NSArray* attributeKeysOf(NSObject* object) {
    return NSSend<NSArray*>(object, NS_SEL("attributeKeys"));
}

}  // namespace

LXContainer* LXContainer::containerWithName_(NSString* name) {
    return NSAutorelease(LXContainer::alloc()->initWithName_(name));
}

NSArray* LXContainer::idsForClass_(Class cls) {
    return allIdsForType_(NSString::stringWithUTF8String_(cls->name()));
}

uint32_t LXContainer::count_(Class cls) { return idsForClass_(cls)->count(); }

LXContainer* LXContainer::existingContainerWithName_(NSString* name) {
    if (!name) return nullptr;
    std::string stem = name->UTF8String();
    bool exists = vtFileStatus((stem + ".vci").c_str(), nullptr) ||
                  vtFileStatus((stem + ".vci.tmp").c_str(), nullptr) ||
                  vtFileStatus((stem + ".vci.compact").c_str(), nullptr);
    if (!exists) {
        // An empty data file alone is what a store that never committed
        // leaves: nothing is stored, and opening would create an index.
        FILE* data = std::fopen((stem + ".vcd").c_str(), "rb");
        exists = data && std::fgetc(data) != EOF;
        if (data) std::fclose(data);
    }
    return exists ? containerWithName_(name) : nullptr;
}

bool LXContainer::recordFits(LXManagedObject* record, Class cls, std::string* why) {
    if (!record || !cls) {
        *why = "no record";
        return false;
    }
    if (cls->isSubclassOf(NSSet::classObject())) {
        NSObject* dict = record->objectForKey_("dict"_ns);
        if (!dict || !dict->isKindOfClass_(NSMutableDictionary::classObject())) {
            *why = "the set's dict is not a dictionary";
            return false;
        }
        return true;
    }
    if (!cls->isSubclassOf(NSDictionary::classObject())) return true;
    NSObject* count = record->objectForKey_("count"_ns);
    NSObject* array = record->objectForKey_("array"_ns);
    if (!count || !count->isKindOfClass_(NSNumber::classObject())) {
        *why = "the dictionary's count is not a number";
        return false;
    }
    if (!array || !array->isKindOfClass_(NSMutableArray::classObject()) ||
        static_cast<NSArray*>(array)->count() == 0) {
        *why = "the dictionary's bucket table is not a list of buckets";
        return false;
    }
    NSArray* buckets = static_cast<NSArray*>(array);
    NSNull* null = NSNull::null();
    double pairs = 0;
    for (uint32_t b = 0; b < buckets->count(); b++) {
        NSObject* slot = buckets->objectAtIndex_(b);
        if (slot == null) continue;
        if (!slot || !slot->isKindOfClass_(NSMutableArray::classObject())) {
            *why = "a bucket of the dictionary is not a list";
            return false;
        }
        NSArray* bucket = static_cast<NSArray*>(slot);
        if (bucket->count() == 0 || bucket->count() % 2 != 0) {
            *why = "a bucket of the dictionary does not hold key and value pairs";
            return false;
        }
        for (uint32_t i = 0; i < bucket->count(); i += 2) {
            if (!bucket->objectAtIndex_(i) || !bucket->objectAtIndex_(i + 1)) {
                *why = "a key or value of the dictionary is missing";
                return false;
            }
        }
        pairs += bucket->count() / 2;
    }
    if (static_cast<NSNumber*>(count)->doubleValue() != pairs) {
        *why = "the dictionary's count is not its number of entries";
        return false;
    }
    return true;
}

NSObject* LXContainer::buildObject(LXManagedObject* managed, Class cls) {
    std::string why;
    if (!recordFits(managed, cls, &why)) {
        NSObject* identifier = managed ? managed->uniqueId() : nullptr;
        LOG("LXContainer %s: record %s makes no %s: %s", _name->UTF8String(),
            identifier ? identifier->description()->UTF8String() : "?", cls->name(), why.c_str());
        return nullptr;
    }
    NSObject* object = cls->alloc();
    if (!object) return nullptr;
    object = object->init();
    // Key access by message: a class may answer setValue:forKey: itself.
    NSArray* keys = attributeKeysOf(object);
    for (uint32_t i = 0, n = keys ? keys->count() : 0; i < n; i++) {
        NSString* key = static_cast<NSString*>(keys->objectAtIndex_(i));
        NSSend<void>(object, NS_SEL("setValue:forKey:"), managed->objectForKeyPath_(key), key);
    }
    enterMapping(object, managed);
    return object;
}

void LXContainer::enterMapping(NSObject* object, LXManagedObject* managed) {
    {
        std::lock_guard<std::recursive_mutex> guard(_mappingMutex);
        _mapping[object] = retainRef(managed);
    }
    object->setReleaseCallbackWithTarget_action_(this, NS_SEL("releaseCallback:"));
}

// A record that can't be read gives nil, not an object of empty attributes:
// an empty object would be a new record at its first set:, quietly
// standing in for the lost one.
NSObject* LXContainer::queryById_class_(int identifier, Class cls) {
    LXManagedObject* managed = objectWithId_(identifier);
    if (!managed || !cls) return nullptr;
    return NSAutorelease(buildObject(managed, cls));
}

// One open of the data file for the whole query rather than one per record.
// The lock is still taken per record, so another thread may store between
// two reads; each read looks its block up in the index of that moment and
// the handle is unbuffered, so it sees every block as a fresh open would.
NSMutableArray* LXContainer::query_(Class cls) {
    // The ids are read under the lock: read without it, the type's set
    // could be growing under a store on another thread at that moment.
    NSArray* ids = cls ? idsForClass_(cls) : nullptr;
    uint32_t n = ids ? ids->count() : 0;
    NSMutableArray* result = NSMutableArray::arrayWithCapacity_(n ? n : 10);
    if (n == 0 || _damaged) return result;
    FILE* data = std::fopen(_dataPath.c_str(), "rb");
    if (data) std::setvbuf(data, nullptr, _IONBF, 0);
    for (uint32_t i = 0; i < n; i++) {
        int identifier = static_cast<NSString*>(ids->objectAtIndex_(i))->intValue();
        _lock->lock();
        NSData* block = readBlock(identifier, data);
        _lock->unlock();
        LXManagedObject* managed = decodeBlock(block, identifier);
        if (!managed) continue;
        NSObject* object = buildObject(managed, cls);
        if (!object) continue;
        result->addObject_(object);
        object->release();
    }
    if (data) std::fclose(data);
    return result;
}

// The mapping lock is held for the whole of set: so that two threads
// setting one object never fill its managed object at the same time. The
// order is always the mapping's lock, then the container's.
int LXContainer::set_(NSObject* object) {
    if (!object) return -1;
    std::lock_guard<std::recursive_mutex> guard(_mappingMutex);
    auto entry = _mapping.find(object);
    LXManagedObject* managed = nullptr;
    if (entry == _mapping.end()) {
        managed = LXManagedObject::managedObject();
        enterMapping(object, managed);
    } else {
        managed = entry->second.get();
    }
    NSArray* keys = attributeKeysOf(object);
    for (uint32_t i = 0, n = keys ? keys->count() : 0; i < n; i++) {
        NSString* key = static_cast<NSString*>(keys->objectAtIndex_(i));
        managed->setObject_forKeyPath_(NSSend<NSObject*>(object, NS_SEL("valueForKey:"), key), key);
    }
    return store_type_(managed, object->className());
}

void LXContainer::delete_(NSObject* object) {
    if (!object) return;
    std::lock_guard<std::recursive_mutex> guard(_mappingMutex);
    auto entry = _mapping.find(object);
    if (entry == _mapping.end()) return;
    // The entry keeps the managed object alive through remove:.
    Ref<LXManagedObject> managed = entry->second;
    _mapping.erase(entry);
    remove_(managed);
}

void LXContainer::releaseCallback_(NSObject* object) {
    Ref<LXManagedObject> dropped;
    std::lock_guard<std::recursive_mutex> guard(_mappingMutex);
    auto entry = _mapping.find(object);
    if (entry == _mapping.end()) return;
    dropped = std::move(entry->second);
    _mapping.erase(entry);
}

uint32_t LXContainer::mappingSize() {
    std::lock_guard<std::recursive_mutex> guard(_mappingMutex);
    return static_cast<uint32_t>(_mapping.size());
}
