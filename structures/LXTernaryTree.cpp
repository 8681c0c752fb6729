#include "structures/LXTernaryTree.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "foundation/NSSet.h"
#include "foundation/NSString.h"

namespace {

_TernaryNode* newNode() {
    void* block = std::calloc(1, sizeof(_TernaryNode));
    if (!block) {
        LOG("LXTernaryTree: out of memory");
        std::abort();
    }
    return static_cast<_TernaryNode*>(block);
}

// The key's bytes, or false after a log line for a key that can't be one.
bool keyBytes(NSObject* key, std::string* bytes) {
    NSString* text = key ? key->description() : nullptr;
    uint32_t length = text ? text->byteLength() : 0;
    if (length == 0 || length > LXTernaryTree::kMaxKeyBytes) {
        LOG("LXTernaryTree: key of %u bytes refused", length);
        return false;
    }
    bytes->assign(text->UTF8String(), length);
    return true;
}

// The approximate search of fuzzyKeys:distance:, one call per step of the
// walk; see search().
struct FuzzySearch {
    const std::string& key;
    NSMutableSet* results;
    char out[LXTernaryTree::kMaxKeyBytes + 1];

    // Positions past the key (reached by skipping bytes) read as 0, a byte
    // that no node holds.
    int8_t byteAt(uint32_t i) const { return i < key.size() ? static_cast<int8_t>(key[i]) : 0; }

    void result(uint32_t o) {
        results->addObject_(NSString::stringWithUTF8String_(std::string(out, o + 1).c_str()));
    }

    void search(_TernaryNode* n, uint32_t i, uint32_t o, uint32_t b) {
        int8_t c = byteAt(i);
        out[o] = static_cast<char>(c);
        if (n->character == c) {
            if (i + 1 == key.size()) {
                if (!n->value) return;
                result(o);
            } else {
                // A stored key that the rest of the argument could be
                // deleted down to.
                int64_t rest = static_cast<int64_t>(key.size()) - static_cast<int64_t>(o + 1);
                if (b != 0 && n->value && rest <= static_cast<int64_t>(b)) result(o);
                if (n->equal) search(n->equal, i + 1, o + 1, b);
            }
        } else if (n->character > c) {
            if (n->low) search(n->low, i, o, b);
        } else if (n->high) {
            search(n->high, i, o, b);
        }
        if (b == 0) return;
        // A skipped key byte, then this node's byte inserted.
        search(n, i + 1, o, b - 1);
        if (n->equal) {
            out[o] = static_cast<char>(n->character);
            search(n->equal, i, o + 1, b - 1);
        }
        // The bytes of the whole low-high tree below this node, breadth
        // first, each as a replaced and as an inserted byte.
        std::vector<_TernaryNode*> work;
        if (n->low) work.push_back(n->low);
        if (n->high) work.push_back(n->high);
        for (size_t k = 0; k < work.size(); k++) {
            _TernaryNode* e = work[k];
            if (e->low) work.push_back(e->low);
            if (e->high) work.push_back(e->high);
            out[o] = static_cast<char>(e->character);
            if (e->equal) {
                search(e->equal, i + 1, o + 1, b - 1);
                search(e->equal, i, o + 1, b - 1);
            }
        }
    }
};

// The nodes of one level: the low-high tree under `top`.
void collectLevel(_TernaryNode* top, std::vector<_TernaryNode*>* level) {
    std::vector<_TernaryNode*> stack{top};
    while (!stack.empty()) {
        _TernaryNode* n = stack.back();
        stack.pop_back();
        level->push_back(n);
        if (n->low) stack.push_back(n->low);
        if (n->high) stack.push_back(n->high);
    }
}

// The middle of [lowest, highest] is lowest + (highest - lowest) / 2: of two
// nodes the smaller becomes the top.
_TernaryNode* relink(const std::vector<_TernaryNode*>& sorted, int lowest, int highest) {
    if (lowest > highest) return nullptr;
    int middle = lowest + (highest - lowest) / 2;
    _TernaryNode* top = sorted[static_cast<size_t>(middle)];
    top->low = relink(sorted, lowest, middle - 1);
    top->high = relink(sorted, middle + 1, highest);
    return top;
}

_TernaryNode* balanceLevel(_TernaryNode* top) {
    if (!top) return nullptr;
    std::vector<_TernaryNode*> level;
    collectLevel(top, &level);
    std::sort(level.begin(), level.end(), [](const _TernaryNode* a, const _TernaryNode* b) {
        return a->character < b->character;
    });
    _TernaryNode* root = relink(level, 0, static_cast<int>(level.size()) - 1);
    for (_TernaryNode* n : level) n->equal = balanceLevel(n->equal);
    return root;
}

}  // namespace

LXTernaryTree* LXTernaryTree::initWithCapacity_(uint32_t) {
    NSObject::init();
    return this;
}

void LXTernaryTree::setObject_forKey_(NSObject* object, NSObject* key) {
    if (!object) {
        LOG("LXTernaryTree: nil object refused");
        return;
    }
    std::string bytes;
    if (!keyBytes(key, &bytes)) return;
    if (!_root) _root = newNode();
    _TernaryNode* n = _root;
    size_t p = 0;
    for (;;) {
        int8_t c = static_cast<int8_t>(bytes[p]);
        if (n->character == 0) n->character = c;
        _TernaryNode** next;
        if (n->character > c) {
            next = &n->low;
        } else if (n->character < c) {
            next = &n->high;
        } else if (p + 1 == bytes.size()) {
            break;
        } else {
            next = &n->equal;
            p++;
        }
        if (!*next) *next = newNode();
        n = *next;
    }
    NSObject* old = n->value;
    n->value = NSRetain(object);
    if (old) {
        old->release();
    } else {
        _count++;
    }
}

NSObject* LXTernaryTree::objectForKey_(NSObject* key) {
    std::string bytes;
    if (!_root || !keyBytes(key, &bytes)) return nullptr;
    _TernaryNode* n = _root;
    size_t p = 0;
    while (n) {
        int8_t c = static_cast<int8_t>(bytes[p]);
        if (n->character > c) {
            n = n->low;
        } else if (n->character < c) {
            n = n->high;
        } else if (p + 1 == bytes.size()) {
            return n->value;
        } else {
            n = n->equal;
            p++;
        }
    }
    return nullptr;
}

NSMutableArray* LXTernaryTree::allKeys() {
    NSMutableArray* keys = NSMutableArray::arrayWithCapacity_(_count ? _count : 10);
    if (!_root) return keys;
    char buffer[kMaxKeyBytes + 1];
    // The recursion (equal, own key, low, high) with a stack of its own:
    // a tree filled in sorted order is as deep as it has keys.
    struct Step {
        _TernaryNode* node;
        uint32_t depth;
        bool emit;
    };
    std::vector<Step> stack{{_root, 0, false}};
    while (!stack.empty()) {
        Step s = stack.back();
        stack.pop_back();
        buffer[s.depth] = static_cast<char>(s.node->character);
        if (s.emit) {
            keys->addObject_(
                    NSString::stringWithUTF8String_(std::string(buffer, s.depth + 1).c_str()));
            continue;
        }
        if (s.node->high) stack.push_back({s.node->high, s.depth, false});
        if (s.node->low) stack.push_back({s.node->low, s.depth, false});
        if (s.node->value) stack.push_back({s.node, s.depth, true});
        if (s.node->equal) stack.push_back({s.node->equal, s.depth + 1, false});
    }
    return keys;
}

NSMutableArray* LXTernaryTree::fuzzyKeys_distance_(NSObject* key, uint32_t distance) {
    NSMutableSet* results = NSMutableSet::set();
    NSString* text = key ? key->description() : nullptr;
    if (!_root || !text) return results->allObjects();
    // The output buffer only ever holds a path of the tree, which is
    // shorter than kMaxKeyBytes, whatever the argument's length.
    std::string bytes(text->UTF8String(), text->byteLength());
    FuzzySearch search{bytes, results, {}};
    search.search(_root, 0, 0, distance);
    return results->allObjects();
}

uint32_t LXTernaryTree::maxLevel() {
    uint32_t height = 0;
    if (!_root) return 0;
    std::vector<std::pair<_TernaryNode*, uint32_t>> stack{{_root, 0}};
    while (!stack.empty()) {
        auto [n, level] = stack.back();
        stack.pop_back();
        height = std::max(height, level);
        if (n->low) stack.push_back({n->low, level + 1});
        if (n->equal) stack.push_back({n->equal, level + 1});
        if (n->high) stack.push_back({n->high, level + 1});
    }
    return height;
}

void LXTernaryTree::balance() { _root = balanceLevel(_root); }

void LXTernaryTree::dealloc() {
    std::vector<_TernaryNode*> stack;
    if (_root) stack.push_back(_root);
    while (!stack.empty()) {
        _TernaryNode* n = stack.back();
        stack.pop_back();
        if (n->low) stack.push_back(n->low);
        if (n->equal) stack.push_back(n->equal);
        if (n->high) stack.push_back(n->high);
        NSRelease(n->value);
        std::free(n);
    }
    _root = nullptr;
    NSObject::dealloc();
}

NS_CLASS_BEGIN(LXTernaryTree, NSObject)
    NS_METHOD(initWithCapacity_)
    NS_METHOD(count)
    NS_METHOD(setObject_forKey_)
    NS_METHOD(objectForKey_)
    NS_METHOD(allKeys)
    NS_METHOD(fuzzyKeys_distance_)
    NS_METHOD(maxLevel)
    NS_METHOD(balance)
    NS_METHOD(dealloc)
    NS_FIELD(_count)
NS_CLASS_END(LXTernaryTree)
