// A doubly linked ring of nodes, the building block of the priority heap
// and usable by itself.
//
// Ownership. Links between nodes (left, right, parent) are plain pointers:
// held as references they would form cycles that counting never frees.
// Instead a list holds one reference to each node it has taken in, by add:
// or by merge:, until it removes the node or ends; a node holds its value
// and its list of sons. A heap is thus a tree of owners: heap -> root list
// -> nodes -> their sons' lists -> sons, and letting go of a node lets go
// of its whole subtree.
//
// merge: hands the other list's references over to the receiver: the
// other list keeps its fields as they were, but owns nothing any more and
// must not be used for its nodes again (its ring has been spliced away).
#pragma once

#include <cstdint>

#include "foundation/NSObject.h"

class LXCircularList;

class LXCircularNode : public NSObject {
    NS_DECLARE_CLASS(LXCircularNode, NSObject)

public:
    // Retains the value. A fresh node has no links until a list takes it.
    LXCircularNode* initWithKey_value_(int32_t key, NSObject* value);
    // Autoreleased.
    static LXCircularNode* nodeWithKey_value_(int32_t key, NSObject* value);

    int32_t key() { return _key; }
    NSObject* value() { return _value; }
    LXCircularNode* parent() { return _parent; }
    // nil until the first addSon:.
    LXCircularList* sons() { return _sons; }
    LXCircularNode* left() { return _left; }
    LXCircularNode* right() { return _right; }
    bool isMarked() { return _marked != 0; }
    void mark() { _marked = 1; }
    // Links only; no reference is taken (see above).
    void setLeft_(LXCircularNode* node);
    void setRight_(LXCircularNode* node);
    void setParent_(LXCircularNode* node);
    void setNeighbours__(LXCircularNode* left, LXCircularNode* right);
    // The number of sons, 0 without a list.
    uint32_t degree();
    // Adds to sons (made on first use) and sets the son's parent.
    void addSon_(LXCircularNode* son);

protected:
    ~LXCircularNode() override;

private:
    friend class LXCircularList;

    int32_t _key = 0;
    Ref<NSObject> _value;
    LXCircularNode* _left = nullptr;
    LXCircularNode* _right = nullptr;
    LXCircularNode* _parent = nullptr;
    Ref<LXCircularList> _sons;
    uint8_t _marked = 0;
    // The list that holds this node's reference, or null.
    LXCircularList* _holder = nullptr;
};

class LXCircularList : public NSObject {
    NS_DECLARE_CLASS(LXCircularList, NSObject)

public:
    uint32_t count() { return _count; }
    LXCircularNode* first() { return _node; }
    // The right neighbour, or nil when that is the first node: a walk from
    // first ends after one turn.
    LXCircularNode* next_(LXCircularNode* node);
    void setFirst_(LXCircularNode* node) { _node = node; }
    // Into an empty list the node becomes first and its own neighbour;
    // otherwise it goes directly right of the first node.
    void add_(LXCircularNode* node);
    // Unlinks the node (it keeps its own links) and lets go of it: the
    // caller who still needs it must hold a reference of its own.
    void remove_(LXCircularNode* node);
    // Splices the other's ring in right of the first node; see the header
    // comment for what is left of the other list.
    void merge_(LXCircularList* other);
    void dealloc() override;

protected:
    ~LXCircularList() override = default;

private:
    LXCircularNode* _node = nullptr;
    uint32_t _count = 0;
    // How many nodes have this list as their holder.
    uint32_t _held = 0;

    void hold(LXCircularNode* node);
};
