#include "structures/NSOperation.h"

NSOperation* NSOperation::init() {
    NSObject::init();
    _dependencies.adopt(NSMutableArray::alloc()->init());
    return this;
}

void NSOperation::main() { LOG("operation's main method executed"); }

void NSOperation::start() { LOG("operation's start method executed"); }

void NSOperation::addDependency_(NSOperation* operation) {
    if (_dependencies) _dependencies->addObject_(operation);
}

NS_CLASS_BEGIN(NSOperation, NSObject)
    NS_METHOD(init)
    NS_METHOD(main)
    NS_METHOD(start)
    NS_METHOD(setPriority_)
    NS_METHOD(priority)
    NS_METHOD(addDependency_)
    NS_METHOD(isReady)
    NS_METHOD(isExecuting)
    NS_METHOD(isFinished)
    NS_METHOD(isCancelled)
    NS_METHOD(isConcurrent)
    NS_FIELD(_priority)
    NS_FIELD(_dependencies)
NS_CLASS_END(NSOperation)
