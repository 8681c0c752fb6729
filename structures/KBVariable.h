// A named variable of unification. Its binding lives in a context, a KBAVM
// that maps variable names to values; a value that is itself a variable
// links the two, and reading follows the chain to its end. Two variables
// are equal when their names are.
#pragma once

#include "structures/KBAVM.h"

class KBVariable : public NSObject {
    NS_DECLARE_CLASS(KBVariable, NSObject)

public:
    // Retains the name.
    KBVariable* initWithName_(NSString* name);
    static KBVariable* variableWithName_(NSString* name);
    NSString* varName() { return _name; }
    void setName_(NSString* name) { _name.set(name); }
    // The value at the end of the chain of variables, or nil.
    NSObject* valueInContext_(KBAVM* context);
    // The context with the value bound to the variable at the end of the
    // chain (autoreleased); a nil context counts as the empty matrix.
    KBAVM* setValue_inContext_(NSObject* value, KBAVM* context);
    // Unifies the variable with an object, binding in *context.
    bool unifyWithObject_context_(NSObject* object, KBAVM** context);
    NSString* description() override;
    bool isEqual_(NSObject* other) override;
    uint32_t hash() override;

protected:
    ~KBVariable() override = default;

private:
    // The last variable of the chain that starts here: the one whose value
    // in the context is not a variable.
    KBVariable* chainEnd(KBAVM* context);
    bool bind(NSObject* value, KBAVM** context);

    Ref<NSString> _name;
};
