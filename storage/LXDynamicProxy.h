// An object whose fields are named at run time, so that a container can
// store it by its attributeKeys like a declared class. Values live in a
// dictionary; the shared null stands for nil. A message it doesn't
// implement reads the field of the selector's name, or, for "setXyz:",
// writes field "xyz" (declared or not); anything else is logged.
#pragma once

#include "foundation/NSDictionary.h"

class LXDynamicProxy : public NSObject {
    NS_DECLARE_CLASS(LXDynamicProxy, NSObject)

public:
    // No fields yet, in a dictionary of 10 buckets.
    LXDynamicProxy* init() override;
    // One bucket per name, each name entered with the shared null.
    LXDynamicProxy* initWithInstanceVariables_(NSArray* names);
    static LXDynamicProxy* dynamicProxyWithInstanceVariables_(NSArray* names);
    // The entry; the shared null (and a missing entry) reads as nil.
    NSObject* valueForKey_(NSString* key);
    // nil is stored as the shared null.
    void setValue_forKey_(NSObject* value, NSString* key);
    NSArray* attributeKeys() override;
    NSString* description() override;
    // setValue:forKey: with the argument and tempKey.
    void set_(NSObject* value);
    NSWord forward__(SEL sel, const NSArgFrame* frame) override;

    NSMutableDictionary* ivars() { return _ivars; }
    NSString* tempKey() { return _tempKey; }

protected:
    ~LXDynamicProxy() override = default;

private:
    Ref<NSMutableDictionary> _ivars;
    Ref<NSString> _tempKey;
};
