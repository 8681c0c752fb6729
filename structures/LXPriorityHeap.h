// A priority queue shaped as a Fibonacci heap without decrease-key: a ring
// of root trees, the smallest root, and consolidation by degree when the
// minimum goes. Keys are signed 32-bit; the smallest comes first.
//
// Ties: add:value: makes the newest of equal keys the minimum; after
// removeMinimum the scan of the roots decides, the last of equal keys in
// ring order winning. The heap owns its nodes through the root list (see
// LXCircularList.h); a value is released when its node leaves the heap,
// unless the caller holds that node.
#pragma once

#include <cstdint>

#include "structures/LXCircularList.h"

class LXPriorityHeap : public NSObject {
    NS_DECLARE_CLASS(LXPriorityHeap, NSObject)

public:
    LXPriorityHeap* init() override;
    // Autoreleased.
    static LXPriorityHeap* heap();

    uint32_t count() { return _count; }
    // Of the minimum; 0 and nil when empty.
    int32_t minKey();
    NSObject* minimum();
    // Retains the value.
    void add_value_(int32_t key, NSObject* value);
    // Callers ask count first; on an empty heap it does nothing.
    void removeMinimum();
    // One step of consolidation over the degree array `slots`, which has at
    // least one slot per possible degree: answers the node to go on with,
    // nil at the end of the walk.
    LXCircularNode* updateArray___(LXCircularNode** slots, LXCircularNode* node,
                                   LXCircularList* list);

    LXCircularList* roots() { return _roots; }

protected:
    ~LXPriorityHeap() override = default;

private:
    LXCircularNode* _min = nullptr;  // held by the root list
    Ref<LXCircularList> _roots;
    uint32_t _count = 0;
};
