#include "sync/LXDelta.h"

#include "foundation/NSArray.h"
#include "foundation/NSCoder.h"
#include "foundation/NSNull.h"
#include "foundation/NSString.h"

LXDelta* LXDelta::initWithPool_sender_contents_(LXPool* pool, LXUser* sender, NSObject* contents) {
    init();
    _pool.set(pool);
    _from.set(sender);
    _contents.set(contents);
    return this;
}

LXDelta* LXDelta::deltaWithPool_sender_contents_(LXPool* pool, LXUser* sender, NSObject* contents) {
    return NSAutorelease(LXDelta::alloc()->initWithPool_sender_contents_(pool, sender, contents));
}

void LXDelta::setAddressee_(LXUser* user) {
    if (user != _to.get()) _to.set(user);
}

void LXDelta::postTo_(LXUser* user) {
    if (_from && _from->isEqual_(user)) {
        LOG("cannot post delta to the same user as sender");
        return;
    }
    NSNil(_pool.get(), &LXPool::post_to_, this, user);
}

NSString* LXDelta::description() {
    auto text = [](NSString* s) { return s ? s->UTF8String() : "(null)"; };
    NSString* poolName = _pool ? _pool->poolName() : nullptr;
    NSString* from = _from ? _from->description() : nullptr;
    NSString* to = _to ? _to->description() : nullptr;
    NSString* kind = _contents ? _contents->className() : nullptr;
    return NSString::stringWithFormat_("(%s) %s -> %s (%s)", text(poolName), text(from), text(to),
                                       text(kind));
}

NSArray* LXDelta::attributeKeys() {
    static NSArray* keys = [] {
        NSMutableArray* list = NSMutableArray::alloc()->initWithCapacity_(4);
        list->addObject_("pool"_ns);
        list->addObject_("from"_ns);
        list->addObject_("to"_ns);
        list->addObject_("contents"_ns);
        return list;
    }();
    return keys;
}

// A nil field (the addressee of a delta not yet posted, say) is written as
// the shared null and read back as nil: the archive has no encoding for nil
// inside a body, and writing nothing would shift the fields behind it.
void LXDelta::encodeWithCoder_(NSCoder* coder) {
    for (NSObject* field :
         {static_cast<NSObject*>(_pool.get()), static_cast<NSObject*>(_from.get()),
          static_cast<NSObject*>(_to.get()), _contents.get()}) {
        coder->encodeObject_(field ? field : NSNull::null());
    }
}

// Deltas arrive from the relay: pool, sender and addressee must be of their
// classes, or the code that reads them would take one object for another.
NSObject* LXDelta::initWithCoder_(NSCoder* coder) {
    init();
    NSObject* fields[4];
    for (NSObject*& field : fields) {
        field = coder->decodeObject();
        if (coder->decodingFailed()) {
            release();
            return nullptr;
        }
        if (field == NSNull::null()) field = nullptr;
    }
    if ((fields[0] && !fields[0]->isKindOfClass_(LXPool::classObject())) ||
        (fields[1] && !fields[1]->isKindOfClass_(LXUser::classObject())) ||
        (fields[2] && !fields[2]->isKindOfClass_(LXUser::classObject()))) {
        coder->failDecoding("delta whose pool or users are of another class");
        release();
        return nullptr;
    }
    _pool.set(static_cast<LXPool*>(fields[0]));
    _from.set(static_cast<LXUser*>(fields[1]));
    _to.set(static_cast<LXUser*>(fields[2]));
    _contents.set(fields[3]);
    return this;
}

NS_CLASS_BEGIN(LXDelta, NSObject)
    NS_METHOD(initWithPool_sender_contents_)
    NS_CLASS_METHOD(deltaWithPool_sender_contents_)
    NS_METHOD(setAddressee_)
    NS_METHOD(addressee)
    NS_METHOD(sender)
    NS_METHOD(pool)
    NS_METHOD(contents)
    NS_METHOD(postTo_)
    NS_METHOD(description)
    NS_METHOD(attributeKeys)
    NS_METHOD(encodeWithCoder_)
    NS_METHOD(initWithCoder_)
    NS_FIELD(_pool)
    NS_FIELD(_from)
    NS_FIELD(_to)
    NS_FIELD(_contents)
NS_CLASS_END(LXDelta)
