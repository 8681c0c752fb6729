#include "NSNotificationCenter.h"

#include "NSArray.h"
#include "NSDictionary.h"
#include "NSNull.h"
#include "NSString.h"
#include "NSValue.h"

namespace {

NSNotificationCenter* sharedCenter = nullptr;

}  // namespace

void NSNotificationCenter::initialize() { sharedCenter = NSNotificationCenter::alloc()->init(); }

NSNotificationCenter* NSNotificationCenter::defaultCenter() {
    classObject()->ensureInitialized();
    return sharedCenter;
}

NSNotificationCenter* NSNotificationCenter::init() {
    NSObject::init();
    _table.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    return this;
}

void NSNotificationCenter::addObserver_selector_name_object_(NSObject* observer, SEL selector,
                                                             NSString* name, NSObject* object) {
    // An entry without an observer or a selector would fail every later
    // post of the name, and a nil key can't be stored at all.
    if (!observer || !selector || !NSDynamicCast<NSString>(name)) {
        LOG("observer not added: it needs an observer, a selector and a name");
        return;
    }
    auto* list = static_cast<NSMutableArray*>(_table->objectForKey_(name));
    if (!list) {
        list = NSMutableArray::alloc()->initWithCapacity_(10);
        _table->setObject_forKey_(list, name);
        list->release();
    }
    NSObject* match = object ? object : NSNull::null();
    NSValue* action = NSValue::alloc()->initWithPointer_(const_cast<NSSelector*>(selector));
    NSArray* entry = NSArray::alloc()->initWithObjects_(match, observer, action, nullptr);
    list->addObject_(entry);
    entry->release();
    action->release();
}

void NSNotificationCenter::postNotificationName_object_(NSString* name, NSObject* object) {
    auto* list = static_cast<NSMutableArray*>(_table->objectForKey_(name));
    if (!list) return;
    NSNull* null = NSNull::null();
    Class cls = NSClassFromString(name);
    // The count is read at every turn: an observer that registers another
    // one for this name during the post is called too, at its place.
    for (uint32_t i = 0; i < list->count(); i++) {
        auto* entry = static_cast<NSArray*>(list->objectAtIndex_(i));
        NSObject* match = entry->objectAtIndex_(0);
        if (match != null && !match->isEqual_(object)) continue;
        NSObject* observer = entry->objectAtIndex_(1);
        SEL selector =
                static_cast<SEL>(static_cast<NSValue*>(entry->objectAtIndex_(2))->pointerValue());
        // A name that no class bears gives a nil class, and a message to
        // nil a nil notification: the observer is still called, with nil.
        NSObject* notification =
                NSSendClass(cls, NS_SEL("notificationWithName:object:"), name, object);
        NSNil(observer, &NSObject::performSelector_withObject_, selector, notification);
    }
}

NS_CLASS_BEGIN(NSNotificationCenter, NSObject)
    NS_CLASS_METHOD(defaultCenter)
    NS_METHOD(init)
    NS_METHOD(addObserver_selector_name_object_)
    NS_METHOD(postNotificationName_object_)
    NS_FIELD(_table)
NS_CLASS_END(NSNotificationCenter)
