// An attribute-value matrix, the feature structure of unification: keys
// mapped to atoms, nested matrices or variables. Persistent: each link of a
// chain holds one pair and points at one or two predecessors; an update
// answers a new link and the old matrix keeps answering what it did. The
// newest binding of a key shadows older ones, and pred1 goes before pred2.
#pragma once

#include "foundation/NSArray.h"

class NSMutableDictionary;

class KBAVM : public NSObject {
    NS_DECLARE_CLASS(KBAVM, NSObject)

public:
    // The empty matrix, autoreleased.
    static KBAVM* avm();
    // New links behind one or two predecessors (retained).
    KBAVM* initWithPredecessor_(KBAVM* pred1);
    KBAVM* initWithPredecessor_and_(KBAVM* pred1, KBAVM* pred2);
    static KBAVM* avmWithPredecessor_(KBAVM* pred1);
    static KBAVM* avmWithPredecessor_and_(KBAVM* pred1, KBAVM* pred2);
    // An autoreleased link of the receiver's class behind the receiver; the
    // receiver doesn't change.
    KBAVM* setObject_forKey_(NSObject* object, NSObject* key);
    // The newest value of the key, or nil. A key bound to nil on one path
    // lets the search go on through the other predecessor.
    NSObject* objectForKey_(NSObject* key);
    // The distinct keys, in the order of an NSMutableSet of 10 buckets.
    NSMutableArray* allKeys();
    // Merges two matrices, or nil when they clash. Autoreleased.
    KBAVM* unifyWith_(KBAVM* other);
    // The same, with variables bound in *context, which may be replaced by
    // a new matrix. A nil *context counts as the empty matrix.
    KBAVM* unifyWith_context_(KBAVM* other, KBAVM** context);
    // Variables of the values, nested matrices included, in allKeys order;
    // the same variable can appear more than once.
    NSMutableArray* allVariables();
    // Renames in place, down the whole chain but not into nested matrices:
    // each variable named N becomes the one under N in `names`, made there
    // as "N-<suffix>" when absent. The one operation that changes a matrix.
    void renameVariables_names_(int suffix, NSMutableDictionary* names);
    NSString* description() override;

    KBAVM* pred1() { return _pred1; }
    KBAVM* pred2() { return _pred2; }
    NSObject* object() { return _object; }
    NSObject* key() { return _key; }

protected:
    ~KBAVM() override = default;

private:
    KBAVM* unify(KBAVM* other, KBAVM** context);

    Ref<KBAVM> _pred1;
    Ref<KBAVM> _pred2;
    Ref<NSObject> _object;
    Ref<NSObject> _key;
};
