// The circular list and the priority heap: ring order of add:, remove: and
// merge:, the heap's order and tie rules against a model of the ring and
// consolidation kept in vectors, and the values' lifetime.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>
#include <set>
#include <vector>

#include "foundation/Foundation.h"
#include "structures/LXPriorityHeap.h"

namespace {

int gAlive = 0;

// A value that counts its instances.
class Tracked : public NSObject {
    NS_DECLARE_CLASS(Tracked, NSObject)

public:
    Tracked* initWithTag_(int tag) {
        NSObject::init();
        _tag = tag;
        gAlive++;
        return this;
    }
    void dealloc() override {
        gAlive--;
        NSObject::dealloc();
    }
    int _tag = 0;
};

NS_CLASS_BEGIN(Tracked, NSObject)
    NS_FIELD(_tag)
NS_CLASS_END(Tracked)

Tracked* tracked(int tag) { return NSAutorelease(Tracked::alloc()->initWithTag_(tag)); }
int tagOf(NSObject* value) { return value ? static_cast<Tracked*>(value)->_tag : -1; }

std::vector<int> walk(LXCircularList* list) {
    std::vector<int> keys;
    for (LXCircularNode* n = list->first(); n; n = list->next_(n)) keys.push_back(n->key());
    return keys;
}

LXCircularList* listOf(std::vector<int> keys) {
    LXCircularList* list =
            static_cast<LXCircularList*>(NSAutorelease(LXCircularList::alloc()->init()));
    for (int k : keys) list->add_(LXCircularNode::nodeWithKey_value_(k, nullptr));
    return list;
}

class HeapTest : public ::testing::Test {
protected:
    void SetUp() override {
        gAlive = 0;
        pool = NSAutoreleasePool::alloc()->init();
    }
    void TearDown() override {
        pool->release();
        EXPECT_EQ(gAlive, 0) << "every value is released";
    }
    NSAutoreleasePool* pool = nullptr;
};

TEST_F(HeapTest, StructureClassesAreFoundByName) {
    for (const char* name :
         {"LXCircularNode", "LXCircularList", "LXPriorityHeap", "NSOperation", "NSOperationQueue",
          "KBAVM", "KBVariable", "LXTernaryTree", "LXLevenshtein"}) {
        EXPECT_NE(NSClassFromString(NSString::stringWithUTF8String_(name)), nullptr) << name;
    }
    EXPECT_EQ(LXPriorityHeap::classObject()->argumentCountOfMethod(
                      NSSelectorFromString("updateArray:::"_ns)),
              3);
}

TEST_F(HeapTest, ListAddRemoveAndWalk) {
    LXCircularList* list = listOf({});
    EXPECT_EQ(list->first(), nullptr);
    LXCircularNode* a = LXCircularNode::nodeWithKey_value_(1, nullptr);
    list->add_(a);
    EXPECT_EQ(a->left(), a);
    EXPECT_EQ(a->right(), a);
    EXPECT_EQ(list->next_(a), nullptr) << "a ring of one ends after one step";
    for (int k = 2; k <= 5; k++) list->add_(LXCircularNode::nodeWithKey_value_(k, nullptr));
    // Each new node goes directly right of the first.
    EXPECT_EQ(walk(list), (std::vector<int>{1, 5, 4, 3, 2}));
    EXPECT_EQ(list->count(), 5u);
    // Left links run the other way round.
    EXPECT_EQ(a->left()->key(), 2);

    Ref<LXCircularNode> first = retainRef(list->first());
    LXCircularNode* oldLeft = first->left();
    LXCircularNode* oldRight = first->right();
    list->remove_(first);
    EXPECT_EQ(walk(list), (std::vector<int>{5, 4, 3, 2})) << "the right neighbour becomes first";
    EXPECT_EQ(first->left(), oldLeft) << "the removed node keeps its links";
    EXPECT_EQ(first->right(), oldRight);
    list->remove_(list->first()->right());
    EXPECT_EQ(walk(list), (std::vector<int>{5, 3, 2}));
    while (list->count()) list->remove_(list->first());
    EXPECT_EQ(list->first(), nullptr);
    list->remove_(first);
    EXPECT_EQ(list->count(), 0u) << "removing from an empty list is ignored";
}

TEST_F(HeapTest, ListMergeSplicesAfterTheFirstNode) {
    LXCircularList* mine = listOf({1, 2, 3});       // walk 1 3 2
    LXCircularList* theirs = listOf({10, 20, 30});  // walk 10 30 20
    mine->merge_(theirs);
    EXPECT_EQ(walk(mine), (std::vector<int>{1, 30, 20, 10, 3, 2}));
    EXPECT_EQ(mine->count(), 6u);
    EXPECT_EQ(theirs->count(), 3u) << "the other list keeps its fields";
    EXPECT_EQ(theirs->first()->key(), 10);

    LXCircularList* empty = listOf({});
    mine->merge_(empty);
    EXPECT_EQ(walk(mine), (std::vector<int>{1, 30, 20, 10, 3, 2}))
            << "merging an empty list changes nothing";
    empty->merge_(listOf({7, 8}));
    EXPECT_EQ(walk(empty), (std::vector<int>{7, 8}))
            << "into an empty list the other's first is first";
    LXCircularList* single = listOf({4});
    single->merge_(listOf({5}));
    EXPECT_EQ(walk(single), (std::vector<int>{4, 5}));
    EXPECT_EQ(single->first()->left()->key(), 5);
}

TEST_F(HeapTest, NodesSonsAndDegree) {
    LXCircularNode* root = LXCircularNode::nodeWithKey_value_(1, tracked(1));
    EXPECT_EQ(root->sons(), nullptr);
    EXPECT_EQ(root->degree(), 0u);
    LXCircularNode* son = LXCircularNode::nodeWithKey_value_(2, tracked(2));
    root->addSon_(son);
    EXPECT_EQ(root->degree(), 1u);
    EXPECT_EQ(son->parent(), root);
    EXPECT_FALSE(root->isMarked());
    root->mark();
    EXPECT_TRUE(root->isMarked());
}

TEST_F(HeapTest, SmallestFirstAndEmpty) {
    LXPriorityHeap* heap = LXPriorityHeap::heap();
    EXPECT_EQ(heap->minimum(), nullptr);
    EXPECT_EQ(heap->minKey(), 0);
    EXPECT_EQ(heap->roots(), nullptr) << "made by the first add:value:";
    heap->removeMinimum();  // not defined; must not harm
    EXPECT_EQ(heap->count(), 0u);
    heap->add_value_(3, tracked(3));
    heap->add_value_(1, tracked(1));
    heap->add_value_(2, tracked(2));
    std::vector<int> order;
    while (heap->count()) {
        order.push_back(heap->minKey());
        EXPECT_EQ(tagOf(heap->minimum()), heap->minKey());
        heap->removeMinimum();
    }
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(heap->minimum(), nullptr);
    EXPECT_EQ(heap->roots()->count(), 0u);
    EXPECT_EQ(heap->roots()->first(), nullptr);
    EXPECT_EQ(gAlive, 3) << "values of removed entries wait only for the pool";
}

TEST_F(HeapTest, TiesNewestOnAddScanAfterRemove) {
    LXPriorityHeap* heap = LXPriorityHeap::heap();
    heap->add_value_(5, tracked(1));
    heap->add_value_(5, tracked(2));
    EXPECT_EQ(tagOf(heap->minimum()), 2) << "the newest of equal keys";
    heap->add_value_(5, tracked(3));
    EXPECT_EQ(tagOf(heap->minimum()), 3);
    heap->add_value_(1, tracked(4));
    heap->removeMinimum();
    // Ring 1 4 3 2 less 4: walk 1 3 2. Consolidation: 1 in slot 0; 3 meets
    // it, 3's key is not greater, so 3 goes under 1; walk again: 1 (now
    // degree 1) in slot 1, then 2 in slot 0. Roots 1 2; the scan keeps the
    // last of equal keys: 2.
    EXPECT_EQ(tagOf(heap->minimum()), 2);
    heap->removeMinimum();
    EXPECT_EQ(tagOf(heap->minimum()), 1);
    heap->removeMinimum();
    EXPECT_EQ(tagOf(heap->minimum()), 3);
}

// The same algorithm over vectors: a ring is its walk from the first
// node, the nodes are indices.
struct Model {
    struct Node {
        int key;
        int tag;
        std::vector<int> sons;
    };
    std::vector<Node> nodes;
    std::vector<int> roots;
    int min = -1;
    unsigned count = 0;

    static void add(std::vector<int>& ring, int x) {
        ring.insert(ring.empty() ? ring.begin() : ring.begin() + 1, x);
    }
    static void remove(std::vector<int>& ring, int x) {
        for (size_t i = 0; i < ring.size(); i++) {
            if (ring[i] == x) {
                ring.erase(ring.begin() + static_cast<long>(i));
                return;
            }
        }
    }
    static void merge(std::vector<int>& ring, const std::vector<int>& other) {
        if (other.empty()) return;
        if (ring.empty()) {
            ring = other;
            return;
        }
        std::vector<int> joined{ring[0]};
        joined.insert(joined.end(), other.begin() + 1, other.end());
        joined.push_back(other[0]);
        joined.insert(joined.end(), ring.begin() + 1, ring.end());
        ring = joined;
    }
    int next(int x) const {
        for (size_t i = 0; i + 1 < roots.size(); i++) {
            if (roots[i] == x) return roots[i + 1];
        }
        return -1;
    }
    void addEntry(int key, int tag) {
        nodes.push_back({key, tag, {}});
        int id = static_cast<int>(nodes.size()) - 1;
        add(roots, id);
        if (min < 0 || nodes[static_cast<size_t>(min)].key >= key) min = id;
        count++;
    }
    int update(std::vector<int>& slots, int n) {
        size_t d = nodes[static_cast<size_t>(n)].sons.size();
        int m = slots[d];
        if (m < 0) {
            slots[d] = n;
            return next(n);
        }
        if (m == n) return next(n);
        slots[d] = -1;
        int survivor =
                nodes[static_cast<size_t>(m)].key > nodes[static_cast<size_t>(n)].key ? n : m;
        int loser = survivor == n ? m : n;
        remove(roots, loser);
        add(nodes[static_cast<size_t>(survivor)].sons, loser);
        update(slots, survivor);
        return roots.empty() ? -1 : roots[0];
    }
    void removeMinimum() {
        int old = min;
        remove(roots, old);
        merge(roots, nodes[static_cast<size_t>(old)].sons);
        std::vector<int> slots(
                static_cast<size_t>(std::log(double(count)) / std::log(2.0) + 1.0) + 1, -1);
        for (int n = roots.empty() ? -1 : roots[0]; n >= 0;) n = update(slots, n);
        min = -1;
        int best = INT_MAX;
        for (int r : roots) {
            if (nodes[static_cast<size_t>(r)].key <= best) {
                min = r;
                best = nodes[static_cast<size_t>(r)].key;
            }
        }
        count--;
    }
};

TEST_F(HeapTest, RandomRunsMatchTheModelAndTheSortedOrder) {
    std::mt19937 random(1234);
    for (int run = 0; run < 40; run++) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        LXPriorityHeap* heap = LXPriorityHeap::alloc()->init();
        Model model;
        std::multiset<int> reference;
        int keyRange = run % 2 ? 8 : 100000;  // many ties, or few
        int tag = 0;
        for (int step = 0; step < 400; step++) {
            bool add = reference.empty() || random() % 3 != 0;
            if (add) {
                int key =
                        static_cast<int>(random() % static_cast<unsigned>(keyRange)) - keyRange / 2;
                heap->add_value_(key, tracked(tag));
                model.addEntry(key, tag);
                reference.insert(key);
                tag++;
            } else {
                ASSERT_EQ(heap->minKey(), *reference.begin());
                reference.erase(reference.begin());
                heap->removeMinimum();
                model.removeMinimum();
            }
            ASSERT_EQ(heap->count(), model.count);
            if (model.count == 0) {
                ASSERT_EQ(heap->minimum(), nullptr);
                continue;
            }
            ASSERT_EQ(heap->minKey(), model.nodes[static_cast<size_t>(model.min)].key);
            ASSERT_EQ(tagOf(heap->minimum()), model.nodes[static_cast<size_t>(model.min)].tag)
                    << "run " << run << " step " << step;
            ASSERT_EQ(heap->roots()->count(), model.roots.size());
        }
        // Half of the runs drain the heap, the others let it go full.
        if (run % 4 < 2) {
            while (heap->count()) {
                ASSERT_EQ(heap->minKey(), *reference.begin());
                ASSERT_EQ(tagOf(heap->minimum()), model.nodes[static_cast<size_t>(model.min)].tag);
                reference.erase(reference.begin());
                heap->removeMinimum();
                model.removeMinimum();
            }
        }
        heap->release();
        inner->release();
        ASSERT_EQ(gAlive, 0) << "run " << run;
    }
}

TEST_F(HeapTest, ValueGoesWhenItsEntryLeaves) {
    NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
    LXPriorityHeap* heap = LXPriorityHeap::alloc()->init();
    for (int k = 0; k < 20; k++) heap->add_value_(k, tracked(k));
    inner->release();
    EXPECT_EQ(gAlive, 20) << "the heap holds its values";
    heap->removeMinimum();
    EXPECT_EQ(gAlive, 19) << "the entry's value goes with it";
    heap->removeMinimum();
    heap->removeMinimum();
    EXPECT_EQ(gAlive, 17);
    heap->release();
    EXPECT_EQ(gAlive, 0) << "a heap let go with entries frees them all";
}

}  // namespace
