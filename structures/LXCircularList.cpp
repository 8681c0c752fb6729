#include "structures/LXCircularList.h"

// ---------------------------------------------------------------------------
// LXCircularNode

LXCircularNode::~LXCircularNode() = default;

LXCircularNode* LXCircularNode::initWithKey_value_(int32_t key, NSObject* value) {
    NSObject::init();
    _key = key;
    _value.set(value);
    return this;
}

LXCircularNode* LXCircularNode::nodeWithKey_value_(int32_t key, NSObject* value) {
    return NSAutorelease(LXCircularNode::alloc()->initWithKey_value_(key, value));
}

void LXCircularNode::setLeft_(LXCircularNode* node) {
    if (node != _left) _left = node;
}

void LXCircularNode::setRight_(LXCircularNode* node) {
    if (node != _right) _right = node;
}

void LXCircularNode::setParent_(LXCircularNode* node) {
    if (node != _parent) _parent = node;
}

void LXCircularNode::setNeighbours__(LXCircularNode* left, LXCircularNode* right) {
    setLeft_(left);
    setRight_(right);
}

uint32_t LXCircularNode::degree() { return _sons ? _sons->count() : 0; }

void LXCircularNode::addSon_(LXCircularNode* son) {
    if (!son) return;
    if (!_sons) _sons.adopt(static_cast<LXCircularList*>(LXCircularList::alloc()->init()));
    _sons->add_(son);
    son->setParent_(this);
}

// The links are left out of key access: a write by key would count a
// reference that a link doesn't hold.
NS_CLASS_BEGIN(LXCircularNode, NSObject)
    NS_METHOD(initWithKey_value_)
    NS_CLASS_METHOD(nodeWithKey_value_)
    NS_METHOD(key)
    NS_METHOD(value)
    NS_METHOD(parent)
    NS_METHOD(sons)
    NS_METHOD(left)
    NS_METHOD(right)
    NS_METHOD(isMarked)
    NS_METHOD(mark)
    NS_METHOD(setLeft_)
    NS_METHOD(setRight_)
    NS_METHOD(setParent_)
    NS_METHOD(setNeighbours__)
    NS_METHOD(degree)
    NS_METHOD(addSon_)
    NS_FIELD(_key)
    NS_FIELD(_value)
    NS_FIELD(_sons)
    NS_FIELD(_marked)
NS_CLASS_END(LXCircularNode)

// ---------------------------------------------------------------------------
// LXCircularList

void LXCircularList::hold(LXCircularNode* node) {
    if (node->_holder == this) return;
    if (node->_holder) {
        node->_holder->_held--;  // handed over: the count stays as it is
    } else {
        node->retain();
    }
    node->_holder = this;
    _held++;
}

LXCircularNode* LXCircularList::next_(LXCircularNode* node) {
    if (!node) return nullptr;
    LXCircularNode* right = node->_right;
    return right == _node ? nullptr : right;
}

void LXCircularList::add_(LXCircularNode* node) {
    if (!node) return;
    if (!_node) {
        _node = node;
        node->setNeighbours__(node, node);
    } else {
        LXCircularNode* right = _node->_right;
        node->setNeighbours__(_node, right);
        _node->setRight_(node);
        right->setLeft_(node);
    }
    _count++;
    hold(node);
}

void LXCircularList::remove_(LXCircularNode* node) {
    // Removing from an empty list is a caller's fault that would wrap the
    // count; it is ignored.
    if (!node || _count == 0) return;
    if (_count == 1) {
        _node = nullptr;
    } else {
        if (node == _node) _node = node->_right;
        node->_left->setRight_(node->_right);
        node->_right->setLeft_(node->_left);
    }
    _count--;
    if (node->_holder == this) {
        node->_holder = nullptr;
        _held--;
        node->release();  // last: it may end the node
    }
}

void LXCircularList::merge_(LXCircularList* other) {
    // A list merged into itself would lose its ring; nothing is done.
    if (!other || other == this || other->_count == 0) return;
    LXCircularNode* theirs = other->_node;
    LXCircularNode* n = theirs;
    for (uint32_t k = 0; k < other->_count; k++) {
        hold(n);
        n = n->_right;
    }
    if (!_node) {
        _node = theirs;
    } else {
        LXCircularNode* oldRight = _node->_right;
        LXCircularNode* theirSecond = theirs->_right;
        _node->setRight_(theirSecond);
        theirSecond->setLeft_(_node);
        theirs->setRight_(oldRight);
        oldRight->setLeft_(theirs);
    }
    _count += other->_count;
}

void LXCircularList::dealloc() {
    LXCircularNode* n = _node;
    for (uint32_t k = 0; k < _count && _held > 0 && n; k++) {
        LXCircularNode* next = n->_right;
        if (n->_holder == this) {
            n->_holder = nullptr;
            _held--;
            n->release();
        }
        n = next;
    }
    _node = nullptr;
    NSObject::dealloc();
}

NS_CLASS_BEGIN(LXCircularList, NSObject)
    NS_METHOD(count)
    NS_METHOD(first)
    NS_METHOD(next_)
    NS_METHOD(setFirst_)
    NS_METHOD(add_)
    NS_METHOD(remove_)
    NS_METHOD(merge_)
    NS_METHOD(dealloc)
    NS_FIELD(_count)
NS_CLASS_END(LXCircularList)
