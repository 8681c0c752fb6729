// A map from strings to objects as a ternary search tree, with a quick
// search for approximate keys. Keys are the UTF-8 bytes of the key's
// description, compared as signed bytes, so that bytes from 0x80 up sort
// below ASCII; a key must not be empty and must stay under 1,000 bytes.
#pragma once

#include <cstdint>

#include "foundation/NSArray.h"

struct _TernaryNode {
    int8_t character;  // 0 in a fresh node
    NSObject* value;   // retained; non-nil marks the end of a key
    _TernaryNode* low;
    _TernaryNode* equal;
    _TernaryNode* high;
};

class LXTernaryTree : public NSObject {
    NS_DECLARE_CLASS(LXTernaryTree, NSObject)

public:
    static constexpr uint32_t kMaxKeyBytes = 999;

    // The capacity is ignored.
    LXTernaryTree* initWithCapacity_(uint32_t capacity);
    uint32_t count() { return _count; }
    // Retains the object and releases one stored under the key before. An
    // empty or too long key is refused with a log line; so is nil, which
    // would mark no key at all.
    void setObject_forKey_(NSObject* object, NSObject* key);
    NSObject* objectForKey_(NSObject* key);
    // Autoreleased strings: at each node its equal subtree, then its own key,
    // then low, then high; so a longer key comes before its own prefix.
    NSMutableArray* allKeys();
    // Keys within about `distance` edits of the argument, found by trying
    // only certain edits along the tree: what it finds depends on the
    // tree's shape. Each key once, in the order of an NSMutableSet.
    NSMutableArray* fuzzyKeys_distance_(NSObject* key, uint32_t distance);
    // The height: 0 for a lone node (and for an empty tree).
    uint32_t maxLevel();
    // Rebuilds each level's low-high tree balanced, keeping every key.
    void balance();
    void dealloc() override;

protected:
    ~LXTernaryTree() override = default;

private:
    _TernaryNode* _root = nullptr;
    uint32_t _count = 0;
};
