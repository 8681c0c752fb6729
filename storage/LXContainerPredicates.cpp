// Queries by predicate on LXContainer: select:type: reads and deciphers
// every record of the type (there is no index on attribute values) and
// keeps the managed objects that the predicate accepts; query:predicate:
// builds plain objects from them as query: does, mapping included.
#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSString.h"
#include "storage/LXContainer.h"
#include "storage/LXPredicate.h"

// Autoreleased managed objects, in the order of the type's id set. The
// predicate sees the managed object, so its key paths reach "__meta.id".
NSMutableArray* LXContainer::select_type_(NSPredicate* predicate, NSString* type) {
    NSMutableArray* picked = NSMutableArray::array();
    NSArray* ids = allIdsForType_(type);
    for (uint32_t i = 0, n = ids->count(); i < n; i++) {
        // A pool per record: the records that the predicate turns down go
        // at once instead of piling up until the caller's pool ends.
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        int identifier = NSSend<int>(ids->objectAtIndex_(i), NS_SEL("intValue"));
        LXManagedObject* managed = objectWithId_(identifier);
        if (managed && NSSend<bool>(predicate, NS_SEL("evaluateWithObject:"), managed))
            picked->addObject_(managed);
        pool->release();
    }
    return picked;
}

// The array holds the only references to the objects, as with query:.
NSMutableArray* LXContainer::query_predicate_(Class cls, NSPredicate* predicate) {
    if (!cls) return NSMutableArray::array();
    NSMutableArray* picked = select_type_(predicate, NSString::stringWithUTF8String_(cls->name()));
    uint32_t n = picked->count();
    NSMutableArray* result = NSMutableArray::arrayWithCapacity_(n ? n : 10);
    for (uint32_t i = 0; i < n; i++) {
        NSObject* object =
                buildObject(static_cast<LXManagedObject*>(picked->objectAtIndex_(i)), cls);
        if (!object) continue;
        result->addObject_(object);
        object->release();
    }
    return result;
}

NS_EXTEND_CLASS(LXContainer, Predicates)
NS_METHOD(query_predicate_)
NS_METHOD(select_type_)
NS_EXTEND_END
