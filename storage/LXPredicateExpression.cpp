#include "storage/LXPredicateExpression.h"

#include "foundation/NSString.h"

NSExpression* NSExpression::initWithExpressionType_(int32_t type) {
    NSObject::init();
    _type = type;
    return this;
}

NSExpression* NSExpression::expressionForConstantValue_(NSObject* constant) {
    NSExpression* e = NSExpression::alloc()->initWithExpressionType_(kConstant);
    e->_constant.set(constant);
    return NSAutorelease(e);
}

NSExpression* NSExpression::expressionForEvaluatedObject() {
    return NSAutorelease(NSExpression::alloc()->initWithExpressionType_(kEvaluatedObject));
}

NSExpression* NSExpression::expressionForKeyPath_(NSString* keyPath) {
    NSExpression* e = NSExpression::alloc()->initWithExpressionType_(kKeyPath);
    // A path that is no string reaches nothing: it is kept as nil.
    e->_keyPath.set(NSDynamicCast<NSString>(keyPath));
    return NSAutorelease(e);
}

NSObject* NSExpression::expressionValueWithObject_context_(NSObject* object, NSMutableDictionary*) {
    switch (_type) {
        case kConstant:
            return _constant;
        case kEvaluatedObject:
            return object;
        case kKeyPath:
            return NSSend<NSObject*>(object, NS_SEL("valueForKeyPath:"),
                                     NSDynamicCast<NSString>(_keyPath.get()));
        default:
            return nullptr;
    }
}

NSString* NSExpression::description() {
    switch (_type) {
        case kConstant: {
            NSString* text = _constant ? _constant->description() : nullptr;
            return NSString::stringWithFormat_("<const> %s", text ? text->UTF8String() : "");
        }
        case kEvaluatedObject:
            return NSString::stringWithUTF8String_("<object>");
        case kKeyPath: {
            // Key access may have put anything into the field.
            NSString* path = NSDynamicCast<NSString>(_keyPath.get());
            return NSString::stringWithFormat_("<key path> %s", path ? path->UTF8String() : "");
        }
        default:
            return nullptr;
    }
}

NS_CLASS_BEGIN(NSExpression, NSObject)
    NS_METHOD(initWithExpressionType_)
    NS_CLASS_METHOD(expressionForConstantValue_)
    NS_CLASS_METHOD(expressionForEvaluatedObject)
    NS_CLASS_METHOD(expressionForKeyPath_)
    NS_METHOD(expressionValueWithObject_context_)
    NS_METHOD(description)
    NS_METHOD(expressionType)
    NS_METHOD(constantValue)
    NS_METHOD(keyPath)
    NS_FIELD(_type)
    NS_FIELD(_constant)
    NS_FIELD(_keyPath)
NS_CLASS_END(NSExpression)
