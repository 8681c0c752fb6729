#include "VTKeyedArrays.h"

#include "foundation/NSString.h"

VTKeyedArrays* VTKeyedArrays::init() {
    NSObject::init();
    _dict.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    return this;
}

void VTKeyedArrays::addObject_forKey_(NSObject* object, NSObject* key) {
    if (!key || !_dict) return;
    auto* list = static_cast<NSMutableArray*>(_dict->objectForKey_(key));
    if (!list) {
        list = NSMutableArray::arrayWithCapacity_(4);
        _dict->setObject_forKey_(list, key);
    }
    list->addObject_(object);
}

NSMutableArray* VTKeyedArrays::objectsForKey_(NSObject* key) {
    NSObject* list = key && _dict ? _dict->objectForKey_(key) : nullptr;
    return list ? static_cast<NSMutableArray*>(list) : NSMutableArray::array();
}

bool VTKeyedArrays::containsKey_(NSObject* key) {
    return key && _dict && _dict->objectForKey_(key) != nullptr;
}

NSMutableArray* VTKeyedArrays::allKeys() {
    return _dict ? _dict->allKeys() : NSMutableArray::array();
}

void VTKeyedArrays::removeAllObjects() {
    if (_dict) _dict->removeAllObjects();
}

NSString* VTKeyedArrays::description() {
    return _dict ? _dict->description() : NSObject::description();
}

NS_CLASS_BEGIN(VTKeyedArrays, NSObject)
    NS_METHOD(init)
    NS_METHOD(addObject_forKey_)
    NS_METHOD(objectsForKey_)
    NS_METHOD(containsKey_)
    NS_METHOD(allKeys)
    NS_METHOD(removeAllObjects)
    NS_METHOD(description)
    NS_FIELD(_dict)
NS_CLASS_END(VTKeyedArrays)
