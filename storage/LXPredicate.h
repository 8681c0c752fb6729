// Predicates for LXContainer's select:type: and query:predicate:.
// NSPredicate is abstract; NSComparisonPredicate compares two expressions
// with compare: and tests the result by its type:
//   0 below 0, 1 at most 0, 2 above 0, 3 at least 0, 4 equal 0, 5 not 0,
//   any other type never holds.
#pragma once

#include <cstdint>

#include "storage/LXPredicateExpression.h"

class NSPredicate : public NSObject {
    NS_DECLARE_CLASS(NSPredicate, NSObject)

public:
    // Logs "abstract predicate" and answers false.
    virtual bool evaluateWithObject_(NSObject* object);

protected:
    ~NSPredicate() override = default;
};

class NSComparisonPredicate : public NSPredicate {
    NS_DECLARE_CLASS(NSComparisonPredicate, NSPredicate)

public:
    enum : int32_t {
        kLess = 0,
        kLessOrEqual = 1,
        kGreater = 2,
        kGreaterOrEqual = 3,
        kEqual = 4,
        kNotEqual = 5
    };

    // Retains both expressions. The modifier is stored and not looked at;
    // the options are ignored.
    NSComparisonPredicate* initWithLeftExpression_rightExpression_modifier_type_options_(
            NSExpression* lhs, NSExpression* rhs, int32_t modifier, int32_t type, uint32_t options);
    static NSComparisonPredicate*
    predicateWithLeftExpression_rightExpression_modifier_type_options_(
            NSExpression* lhs, NSExpression* rhs, int32_t modifier, int32_t type, uint32_t options);
    // Evaluates the right side, then the left, and sends the left value
    // compare: with the right one. A nil left value answers 0, as any
    // message to nil does.
    bool evaluateWithObject_(NSObject* object) override;

    NSExpression* leftExpression() { return _lhs; }
    NSExpression* rightExpression() { return _rhs; }
    int32_t predicateOperatorType() { return _type; }
    int32_t comparisonPredicateModifier() { return _modifier; }

protected:
    ~NSComparisonPredicate() override = default;

private:
    int32_t _modifier = 0;
    int32_t _type = 0;
    Ref<NSExpression> _lhs;
    Ref<NSExpression> _rhs;
    SEL _selector = nullptr;  // never set
};
