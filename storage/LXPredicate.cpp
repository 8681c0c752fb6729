#include "storage/LXPredicate.h"

bool NSPredicate::evaluateWithObject_(NSObject*) {
    LOG("abstract predicate");
    return false;
}

NS_CLASS_BEGIN(NSPredicate, NSObject)
    NS_METHOD(evaluateWithObject_)
NS_CLASS_END(NSPredicate)

NSComparisonPredicate*
NSComparisonPredicate::initWithLeftExpression_rightExpression_modifier_type_options_(
        NSExpression* lhs, NSExpression* rhs, int32_t modifier, int32_t type, uint32_t) {
    NSObject::init();
    _lhs.set(lhs);
    _rhs.set(rhs);
    _modifier = modifier;
    _type = type;
    return this;
}

NSComparisonPredicate*
NSComparisonPredicate::predicateWithLeftExpression_rightExpression_modifier_type_options_(
        NSExpression* lhs, NSExpression* rhs, int32_t modifier, int32_t type, uint32_t options) {
    return NSAutorelease(NSComparisonPredicate::alloc()
                                 ->initWithLeftExpression_rightExpression_modifier_type_options_(
                                         lhs, rhs, modifier, type, options));
}

bool NSComparisonPredicate::evaluateWithObject_(NSObject* object) {
    // The sides may have been set by key access to anything: what is no
    // expression has no value. compare: orders values of different kinds
    // (a string attribute against a number) by kind, never reading one as
    // the other.
    NSObject* right = NSNil(NSDynamicCast<NSExpression>(_rhs.get()),
                            &NSExpression::expressionValueWithObject_context_, object, nullptr);
    NSObject* left = NSNil(NSDynamicCast<NSExpression>(_lhs.get()),
                           &NSExpression::expressionValueWithObject_context_, object, nullptr);
    int order = NSSend<int>(left, NS_SEL("compare:"), right);
    switch (_type) {
        case kLess:
            return order < 0;
        case kLessOrEqual:
            return order <= 0;
        case kGreater:
            return order > 0;
        case kGreaterOrEqual:
            return order >= 0;
        case kEqual:
            return order == 0;
        case kNotEqual:
            return order != 0;
        default:
            return false;
    }
}

NS_CLASS_BEGIN(NSComparisonPredicate, NSPredicate)
    NS_METHOD(initWithLeftExpression_rightExpression_modifier_type_options_)
    NS_CLASS_METHOD(predicateWithLeftExpression_rightExpression_modifier_type_options_)
    NS_METHOD(evaluateWithObject_)
    NS_METHOD(leftExpression)
    NS_METHOD(rightExpression)
    NS_METHOD(predicateOperatorType)
    NS_METHOD(comparisonPredicateModifier)
    NS_FIELD(_modifier)
    NS_FIELD(_type)
    NS_FIELD(_lhs)
    NS_FIELD(_rhs)
    NS_FIELD(_selector)
NS_CLASS_END(NSComparisonPredicate)
