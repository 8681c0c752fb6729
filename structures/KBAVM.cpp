#include "structures/KBAVM.h"

#include <unordered_set>
#include <vector>

#include "foundation/NSDictionary.h"
#include "foundation/NSSet.h"
#include "foundation/NSString.h"
#include "structures/KBVariable.h"

namespace {

bool isMatrix(NSObject* object) { return object && object->isKindOfClass_(KBAVM::classObject()); }
bool isVariable(NSObject* object) {
    return object && object->isKindOfClass_(KBVariable::classObject());
}

}  // namespace

KBAVM* KBAVM::avm() { return static_cast<KBAVM*>(NSAutorelease(KBAVM::alloc()->init())); }

KBAVM* KBAVM::initWithPredecessor_(KBAVM* pred1) {
    return initWithPredecessor_and_(pred1, nullptr);
}

KBAVM* KBAVM::initWithPredecessor_and_(KBAVM* pred1, KBAVM* pred2) {
    NSObject::init();
    _pred1.set(pred1);
    _pred2.set(pred2);
    return this;
}

KBAVM* KBAVM::avmWithPredecessor_(KBAVM* pred1) {
    return NSAutorelease(KBAVM::alloc()->initWithPredecessor_(pred1));
}

KBAVM* KBAVM::avmWithPredecessor_and_(KBAVM* pred1, KBAVM* pred2) {
    return NSAutorelease(KBAVM::alloc()->initWithPredecessor_and_(pred1, pred2));
}

KBAVM* KBAVM::setObject_forKey_(NSObject* object, NSObject* key) {
    KBAVM* link = static_cast<KBAVM*>(class_()->alloc());
    if (!link) return nullptr;
    link->initWithPredecessor_(this);
    link->_object.set(object);
    link->_key.set(key);
    return NSAutorelease(link);
}

// The recursive rule (own pair, else pred1, and only if that gives nil,
// pred2) without recursion along pred1, which is as long as the number of
// updates: the pred2 branches wait on a stack, the deepest first, as the
// recursion would take them.
NSObject* KBAVM::objectForKey_(NSObject* key) {
    std::vector<KBAVM*> pending{this};
    while (!pending.empty()) {
        KBAVM* link = pending.back();
        pending.pop_back();
        while (link) {
            if (link->_key && link->_key->isEqual_(key)) {
                if (link->_object) return link->_object;
                break;  // bound to nil on this path: the other paths decide
            }
            if (!link->_pred1) break;
            if (link->_pred2) pending.push_back(link->_pred2);
            link = link->_pred1;
        }
    }
    return nullptr;
}

// The keys in pre-order (own key, pred1's, pred2's) into one set. A link
// shared by both sides is visited once: its keys are in the set already
// and would not move, so the set's order is that of visiting it again.
NSMutableArray* KBAVM::allKeys() {
    NSMutableSet* keys = NSMutableSet::set();
    std::unordered_set<KBAVM*> seen;
    std::vector<KBAVM*> stack{this};
    while (!stack.empty()) {
        KBAVM* link = stack.back();
        stack.pop_back();
        if (!seen.insert(link).second) continue;
        if (link->_key) keys->addObject_(link->_key);
        if (link->_pred2) stack.push_back(link->_pred2);
        if (link->_pred1) stack.push_back(link->_pred1);
    }
    return keys->allObjects();
}

KBAVM* KBAVM::unifyWith_(KBAVM* other) { return unify(other, nullptr); }

// A failed unification puts the context back as it was: bindings made for
// keys before the clash would otherwise outlive an answer of nil.
KBAVM* KBAVM::unifyWith_context_(KBAVM* other, KBAVM** context) {
    KBAVM* before = context ? *context : nullptr;
    KBAVM* result = unify(other, context);
    if (!result && context) *context = before;
    return result;
}

KBAVM* KBAVM::unify(KBAVM* other, KBAVM** context) {
    KBAVM* result = static_cast<KBAVM*>(class_()->alloc());
    if (!result) return nullptr;
    result->initWithPredecessor_and_(this, other);
    NSAutorelease(result);
    if (!other) return result;
    NSMutableArray* keys = allKeys();
    for (uint32_t i = 0, n = keys->count(); i < n; i++) {
        NSObject* key = keys->objectAtIndex_(i);
        NSObject* b = other->objectForKey_(key);
        if (!b) continue;
        NSObject* a = objectForKey_(key);
        bool aMatrix = isMatrix(a), bMatrix = isMatrix(b);
        if (aMatrix && bMatrix) {
            // Nested matrices unify without the context.
            KBAVM* unified = static_cast<KBAVM*>(a)->unifyWith_(static_cast<KBAVM*>(b));
            if (!unified) return nullptr;
            result = result->setObject_forKey_(unified, key);
        } else if (aMatrix || bMatrix) {
            return nullptr;
        } else if (context && (isVariable(a) || isVariable(b))) {
            bool ok = isVariable(a)
                              ? static_cast<KBVariable*>(a)->unifyWithObject_context_(b, context)
                              : static_cast<KBVariable*>(b)->unifyWithObject_context_(a, context);
            if (!ok) return nullptr;
        } else if (!a || !a->isEqual_(b)) {
            return nullptr;
        }
    }
    return result;
}

NSMutableArray* KBAVM::allVariables() {
    NSMutableArray* variables = NSMutableArray::array();
    NSMutableArray* keys = allKeys();
    for (uint32_t i = 0, n = keys->count(); i < n; i++) {
        NSObject* value = objectForKey_(keys->objectAtIndex_(i));
        if (isVariable(value)) {
            variables->addObject_(value);
        } else if (isMatrix(value)) {
            variables->addObjectsFromArray_(static_cast<KBAVM*>(value)->allVariables());
        }
    }
    return variables;
}

// Each link once: a link that both sides of a unification share would
// otherwise be renamed twice, its X-2 becoming X-2-2.
void KBAVM::renameVariables_names_(int suffix, NSMutableDictionary* names) {
    std::unordered_set<KBAVM*> seen;
    std::vector<KBAVM*> stack{this};
    while (!stack.empty()) {
        KBAVM* link = stack.back();
        stack.pop_back();
        if (!seen.insert(link).second) continue;
        if (isVariable(link->_object)) {
            NSString* old = static_cast<KBVariable*>(link->_object.get())->varName();
            NSObject* renamed = NSNil(names, &NSMutableDictionary::objectForKey_, old);
            if (!renamed) {
                renamed = KBVariable::variableWithName_(
                        NSString::stringWithFormat_("%s-%d", old ? old->UTF8String() : "", suffix));
                NSNil(names, &NSMutableDictionary::setObject_forKey_, renamed, old);
            }
            link->_object.set(renamed);
        }
        if (link->_pred2) stack.push_back(link->_pred2);
        if (link->_pred1) stack.push_back(link->_pred1);
    }
}

NSString* KBAVM::description() {
    NSMutableDictionary* dictionary = NSMutableDictionary::dictionary();
    NSMutableArray* keys = allKeys();
    for (uint32_t i = 0, n = keys->count(); i < n; i++) {
        NSObject* key = keys->objectAtIndex_(i);
        if (NSObject* value = objectForKey_(key)) dictionary->setObject_forKey_(value, key);
    }
    return dictionary->description();
}

NS_CLASS_BEGIN(KBAVM, NSObject)
    NS_CLASS_METHOD(avm)
    NS_METHOD(initWithPredecessor_)
    NS_CLASS_METHOD(avmWithPredecessor_)
    NS_METHOD(initWithPredecessor_and_)
    NS_CLASS_METHOD(avmWithPredecessor_and_)
    NS_METHOD(setObject_forKey_)
    NS_METHOD(objectForKey_)
    NS_METHOD(allKeys)
    NS_METHOD(unifyWith_)
    NS_METHOD(unifyWith_context_)
    NS_METHOD(allVariables)
    NS_METHOD(renameVariables_names_)
    NS_METHOD(description)
    NS_FIELD(_pred1)
    NS_FIELD(_pred2)
    NS_FIELD(_object)
    NS_FIELD(_key)
NS_CLASS_END(KBAVM)
