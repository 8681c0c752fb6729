#include "NSAutoreleasePool.h"

#include "NSArray.h"
#include "NSDictionary.h"
#include "NSString.h"
#include "NSThread.h"
#include "NSValue.h"

namespace {

NSString* poolsKey() { return "__autorelease_pools"_ns; }
NSString* indexKey() { return "__autorelease_pool_index"_ns; }

NSMutableDictionary* threadDictionary() { return NSThread::currentThread()->threadDictionary(); }

}  // namespace

NSMutableArray* NSAutoreleasePool::pools() {
    return static_cast<NSMutableArray*>(threadDictionary()->objectForKey_(poolsKey()));
}

int NSAutoreleasePool::poolIndex() {
    auto* index = static_cast<NSNumber*>(threadDictionary()->objectForKey_(indexKey()));
    return index ? index->intValue() : -1;
}

void NSAutoreleasePool::setPoolIndex_(int index) {
    threadDictionary()->setObject_forKey_(NSNumber::numberWithInt_(index), indexKey());
}

NSAutoreleasePool* NSAutoreleasePool::init() {
    NSObject::init();
    NSMutableDictionary* dict = threadDictionary();
    auto* stack = static_cast<NSMutableArray*>(dict->objectForKey_(poolsKey()));
    if (!stack) {
        stack = NSMutableArray::alloc()->initWithCapacity_(10);
        dict->setObject_forKey_(stack, poolsKey());
        stack->release();
    }
    auto* number = static_cast<NSNumber*>(dict->objectForKey_(indexKey()));
    int index = (number ? number->intValue() : -1) + 1;
    // The NSNumber itself would need a pool to be autoreleased in; made
    // owned and released here instead.
    NSNumber* newIndex = NSNumber::alloc()->initWithInt_(index);
    dict->setObject_forKey_(newIndex, indexKey());
    newIndex->release();
    // The slot doesn't count as a reference: the array holds the pool
    // without retaining it.
    if (static_cast<uint32_t>(index) < stack->count()) {
        stack->_elements[index] = this;
    } else {
        stack->addObject_(nullptr);
        stack->_elements[stack->count() - 1] = this;
    }
    _objects.adopt(NSMutableArray::alloc()->initWithCapacity_(32));
    return this;
}

NSAutoreleasePool* NSAutoreleasePool::initForDebugging() {
    init();
    _debugMode = 1;
    return this;
}

void NSAutoreleasePool::addObject_(NSObject* object) {
    _objects->addObject_(object);
    NSRelease(object);
    _objCount++;
}

void NSAutoreleasePool::addObjectToCurrentPool(NSObject* object) {
    NSMutableDictionary* dict = threadDictionary();
    auto* number = static_cast<NSNumber*>(dict->objectForKey_(indexKey()));
    int index = number ? number->intValue() : -1;
    if (index < 0) {
        LOG("########## no autorelease pool -- leaking");
        return;
    }
    auto* stack = static_cast<NSMutableArray*>(dict->objectForKey_(poolsKey()));
    static_cast<NSAutoreleasePool*>(stack->objectAtIndex_(static_cast<uint32_t>(index)))
            ->addObject_(object);
}

void NSAutoreleasePool::dealloc() {
    // The pool stays current while its objects go: whatever their dealloc
    // autoreleases joins this list and goes in the same pass.
    for (uint32_t i = 0; i < _objects->count(); i++)
        _objects->replaceObjectAtIndex_withObject_(i, nullptr);
    _objects = nullptr;
    NSMutableDictionary* dict = threadDictionary();
    auto* stack = static_cast<NSMutableArray*>(dict->objectForKey_(poolsKey()));
    auto* number = static_cast<NSNumber*>(dict->objectForKey_(indexKey()));
    int index = number ? number->intValue() : -1;
    if (stack && index >= 0 && static_cast<uint32_t>(index) < stack->count()) {
        stack->_elements[index] = nullptr;
    }
    NSNumber* newIndex = NSNumber::alloc()->initWithInt_(index - 1);
    dict->setObject_forKey_(newIndex, indexKey());
    newIndex->release();
    NSObject::dealloc();
}

NSAutoreleasePool::~NSAutoreleasePool() = default;

NS_CLASS_BEGIN(NSAutoreleasePool, NSObject)
    NS_METHOD(init)
    NS_METHOD(initForDebugging)
    NS_METHOD(addObject_)
    NS_METHOD(dealloc)
    NS_CLASS_METHOD_NAMED("addObject:", addObjectToCurrentPool)
    NS_CLASS_METHOD(pools)
    NS_CLASS_METHOD(poolIndex)
    NS_CLASS_METHOD(setPoolIndex_)
    NS_FIELD(_objects)
    NS_FIELD(_debugMode)
    NS_FIELD(_objCount)
NS_CLASS_END(NSAutoreleasePool)
