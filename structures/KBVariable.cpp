#include "structures/KBVariable.h"

#include <vector>

#include "foundation/NSString.h"

namespace {

bool isMatrix(NSObject* object) { return object && object->isKindOfClass_(KBAVM::classObject()); }
bool isVariable(NSObject* object) {
    return object && object->isKindOfClass_(KBVariable::classObject());
}

bool seenBefore(const std::vector<KBVariable*>& chain, KBVariable* variable) {
    for (KBVariable* v : chain) {
        if (v->isEqual_(variable)) return true;
    }
    return false;
}

}  // namespace

KBVariable* KBVariable::initWithName_(NSString* name) {
    NSObject::init();
    _name.set(name);
    return this;
}

KBVariable* KBVariable::variableWithName_(NSString* name) {
    return NSAutorelease(KBVariable::alloc()->initWithName_(name));
}

// unifyWithObject:context: never links a chain back onto itself, but
// setValue:inContext: called by hand can; a chain that comes back to a
// variable already passed ends there, so that reading always ends.
KBVariable* KBVariable::chainEnd(KBAVM* context) {
    std::vector<KBVariable*> chain{this};
    KBVariable* current = this;
    for (;;) {
        NSObject* value = NSNil(context, &KBAVM::objectForKey_, current->_name.get());
        if (!isVariable(value)) return current;
        KBVariable* next = static_cast<KBVariable*>(value);
        if (seenBefore(chain, next)) return current;
        chain.push_back(next);
        current = next;
    }
}

NSObject* KBVariable::valueInContext_(KBAVM* context) {
    KBVariable* end = chainEnd(context);
    NSObject* value = NSNil(context, &KBAVM::objectForKey_, end->_name.get());
    return isVariable(value) ? nullptr : value;  // a cycle reads as unbound
}

KBAVM* KBVariable::setValue_inContext_(NSObject* value, KBAVM* context) {
    // Passing the call along the chain binds its last variable.
    KBVariable* end = chainEnd(context);
    if (!context) context = KBAVM::avm();
    return context->setObject_forKey_(value, end->_name);
}

bool KBVariable::bind(NSObject* value, KBAVM** context) {
    *context = setValue_inContext_(value, *context);
    return true;
}

bool KBVariable::unifyWithObject_context_(NSObject* object, KBAVM** context) {
    KBAVM* local = nullptr;
    if (!context) context = &local;
    NSObject* v = valueInContext_(*context);
    if (!isVariable(object)) {
        if (!v) return bind(object, context);
        if (isMatrix(v) && isMatrix(object)) {
            KBAVM* unified = static_cast<KBAVM*>(v)->unifyWith_(static_cast<KBAVM*>(object));
            return unified && bind(unified, context);
        }
        if (isMatrix(v) || isMatrix(object)) return false;
        return v->isEqual_(object);
    }
    KBVariable* other = static_cast<KBVariable*>(object);
    NSObject* w = other->valueInContext_(*context);
    if (!v && !w) {
        // Two free variables on one chain (X with X, or X with a Y that
        // already leads to X) are one already: binding would close a loop.
        if (chainEnd(*context)->isEqual_(other->chainEnd(*context))) return true;
        return bind(other, context);
    }
    if (!v) return bind(w, context);
    if (!w) return other->unifyWithObject_context_(this, context);
    if (isMatrix(v) && isMatrix(w)) {
        KBAVM* unified = static_cast<KBAVM*>(v)->unifyWith_(static_cast<KBAVM*>(w));
        if (!unified) return false;
        bind(unified, context);
        return other->bind(unified, context);
    }
    if (isMatrix(v) || isMatrix(w)) return false;
    return v->isEqual_(w);
}

NSString* KBVariable::description() {
    return NSString::stringWithFormat_("var:%s", _name ? _name->UTF8String() : "");
}

bool KBVariable::isEqual_(NSObject* other) {
    if (other == this) return true;
    if (!isVariable(other)) return false;
    NSString* theirs = static_cast<KBVariable*>(other)->_name;
    return _name && theirs && _name->isEqual_(theirs);
}

uint32_t KBVariable::hash() { return _name ? _name->hash() : 0; }

NS_CLASS_BEGIN(KBVariable, NSObject)
    NS_METHOD(initWithName_)
    NS_CLASS_METHOD(variableWithName_)
    NS_METHOD(varName)
    NS_METHOD(setName_)
    NS_METHOD(valueInContext_)
    NS_METHOD(setValue_inContext_)
    NS_METHOD(unifyWithObject_context_)
    NS_METHOD(description)
    NS_METHOD(isEqual_)
    NS_METHOD(hash)
    NS_FIELD(_name)
NS_CLASS_END(KBVariable)
