#include "storage/LXDynamicProxy.h"

#include <cctype>
#include <cstring>
#include <string>

#include "foundation/NSNull.h"
#include "foundation/NSString.h"

// Made here rather than left nil: an instance that a container builds with
// alloc and init must still take the fields it is given.
LXDynamicProxy* LXDynamicProxy::init() {
    NSObject::init();
    _ivars.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    return this;
}

LXDynamicProxy* LXDynamicProxy::initWithInstanceVariables_(NSArray* names) {
    NSObject::init();
    uint32_t n = names ? names->count() : 0;
    // 0 counts as 10.
    _ivars.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(n)));
    for (uint32_t i = 0; i < n; i++)
        _ivars->setObject_forKey_(NSNull::null(), names->objectAtIndex_(i));
    return this;
}

LXDynamicProxy* LXDynamicProxy::dynamicProxyWithInstanceVariables_(NSArray* names) {
    return NSAutorelease(LXDynamicProxy::alloc()->initWithInstanceVariables_(names));
}

NSObject* LXDynamicProxy::valueForKey_(NSString* key) {
    NSObject* value = _ivars->objectForKey_(key);
    return value == NSNull::null() ? nullptr : value;
}

void LXDynamicProxy::setValue_forKey_(NSObject* value, NSString* key) {
    if (!key) return;
    _ivars->setObject_forKey_(value ? value : NSNull::null(), key);
}

NSArray* LXDynamicProxy::attributeKeys() { return _ivars->allKeys(); }

NSString* LXDynamicProxy::description() { return _ivars->description(); }

void LXDynamicProxy::set_(NSObject* value) { setValue_forKey_(value, _tempKey); }

NSWord LXDynamicProxy::forward__(SEL sel, const NSArgFrame* frame) {
    const char* name = sel ? sel->name() : "";
    NSString* key = NSString::stringWithUTF8String_(name);
    if (_ivars->objectForKey_(key)) return NSEncodeResult<NSObject*>(valueForKey_(key));
    size_t length = std::strlen(name);
    // "setX:" is the shortest setter: a name of fewer than five characters
    // has no field name to make, and is not taken for one.
    if (length >= 5 && std::strncmp(name, "set", 3) == 0) {
        std::string field(1, static_cast<char>(std::tolower(static_cast<unsigned char>(name[3]))));
        field.append(name + 4, length - 5);
        _tempKey.set(NSString::stringWithUTF8String_(field.c_str()));
        return performv__(NS_SEL("set:"), frame);
    }
    LOG("unsupported selector: %s", name);
    return 0;
}

NS_CLASS_BEGIN(LXDynamicProxy, NSObject)
    NS_METHOD(init)
    NS_METHOD(initWithInstanceVariables_)
    NS_CLASS_METHOD(dynamicProxyWithInstanceVariables_)
    NS_METHOD(valueForKey_)
    NS_METHOD(setValue_forKey_)
    NS_METHOD(attributeKeys)
    NS_METHOD(description)
    NS_METHOD(set_)
    NS_METHOD(forward__)
    NS_FIELD(_ivars)
    NS_FIELD(_tempKey)
NS_CLASS_END(LXDynamicProxy)
