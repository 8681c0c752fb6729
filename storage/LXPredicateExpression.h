// NSExpression: one side of a comparison predicate, a constant, the
// evaluated object itself or a key path into it.
#pragma once

#include <cstdint>

#include "foundation/NSObject.h"

class NSMutableDictionary;

class NSExpression : public NSObject {
    NS_DECLARE_CLASS(NSExpression, NSObject)

public:
    // Types: 0 constant, 1 evaluated object, 3 key path.
    enum : int32_t { kConstant = 0, kEvaluatedObject = 1, kKeyPath = 3 };

    // Any other type evaluates to nil and describes as nil.
    NSExpression* initWithExpressionType_(int32_t type);
    // Autoreleased; the constant and the path are retained.
    static NSExpression* expressionForConstantValue_(NSObject* constant);
    static NSExpression* expressionForEvaluatedObject();
    static NSExpression* expressionForKeyPath_(NSString* keyPath);
    // The constant, the object, or valueForKeyPath: sent to the object
    // (nil for an object without that operation). The context is unused.
    NSObject* expressionValueWithObject_context_(NSObject* object, NSMutableDictionary* context);
    // "<const> <constant>", "<object>", "<key path> <path>", or nil.
    NSString* description() override;

    int32_t expressionType() { return _type; }
    NSObject* constantValue() { return _constant; }
    NSString* keyPath() { return _keyPath; }

protected:
    ~NSExpression() override = default;

private:
    int32_t _type = 0;
    Ref<NSObject> _constant;
    Ref<NSString> _keyPath;
};
