#include "structures/LXPriorityHeap.h"

#include <climits>
#include <cmath>
#include <vector>

LXPriorityHeap* LXPriorityHeap::init() {
    NSObject::init();
    return this;
}

LXPriorityHeap* LXPriorityHeap::heap() { return NSAutorelease(LXPriorityHeap::alloc()->init()); }

int32_t LXPriorityHeap::minKey() { return _min ? _min->key() : 0; }

NSObject* LXPriorityHeap::minimum() { return _min ? _min->value() : nullptr; }

void LXPriorityHeap::add_value_(int32_t key, NSObject* value) {
    LXCircularNode* node = LXCircularNode::alloc()->initWithKey_value_(key, value);
    if (!_roots) _roots.adopt(static_cast<LXCircularList*>(LXCircularList::alloc()->init()));
    _roots->add_(node);
    node->release();  // the root list holds it now
    // ">=": among equal keys the newest is the minimum.
    if (!_min || _min->key() >= key) _min = node;
    _count++;
}

void LXPriorityHeap::removeMinimum() {
    if (!_min) return;
    // Held here while the heap is rebuilt: the root list lets go of it at
    // remove:.
    Ref<LXCircularNode> old = retainRef(_min);
    _roots->remove_(old);
    if (LXCircularList* sons = old->sons()) {
        for (LXCircularNode* son = sons->first(); son; son = sons->next_(son))
            son->setParent_(nullptr);
        _roots->merge_(sons);
    }

    // One slot per possible degree, trunc(log2(count) + 1) with count still
    // counting the entry that goes. A tree of degree d holds 2^d entries, so
    // no degree reaches the last slot; the spare slot only keeps a rounding
    // of log() at an exact power of two from mattering.
    size_t slots = static_cast<size_t>(std::log(static_cast<double>(_count)) / std::log(2.0) + 1.0);
    std::vector<LXCircularNode*> degrees(slots + 1, nullptr);
    for (LXCircularNode* n = _roots->first(); n;) n = updateArray___(degrees.data(), n, _roots);

    old = nullptr;
    LXCircularNode* best = nullptr;
    int32_t bestKey = INT32_MAX;
    for (LXCircularNode* n = _roots->first(); n; n = _roots->next_(n)) {
        // "<=": among equal keys the last one scanned wins.
        if (n->key() <= bestKey) {
            best = n;
            bestKey = n->key();
        }
    }
    _min = best;
    _count--;
}

LXCircularNode* LXPriorityHeap::updateArray___(LXCircularNode** slots, LXCircularNode* node,
                                               LXCircularList* list) {
    uint32_t d = node->degree();
    LXCircularNode* other = slots[d];
    if (!other) {
        slots[d] = node;
        return list->next_(node);
    }
    if (other == node) return list->next_(node);
    slots[d] = nullptr;
    LXCircularNode* survivor;
    LXCircularNode* loser;
    // With equal keys the node already in the array stays the root.
    if (other->key() > node->key()) {
        survivor = node;
        loser = other;
    } else {
        survivor = other;
        loser = node;
    }
    {
        Ref<LXCircularNode> keep = retainRef(loser);  // between the two lists
        list->remove_(loser);
        survivor->addSon_(loser);
    }
    updateArray___(slots, survivor, list);
    // After each link the walk starts again from the front.
    return list->first();
}

NS_CLASS_BEGIN(LXPriorityHeap, NSObject)
    NS_METHOD(init)
    NS_CLASS_METHOD(heap)
    NS_METHOD(count)
    NS_METHOD(minKey)
    NS_METHOD(minimum)
    NS_METHOD(add_value_)
    NS_METHOD(removeMinimum)
    NS_METHOD(updateArray___)
    NS_FIELD(_roots)
    NS_FIELD(_count)
NS_CLASS_END(LXPriorityHeap)
