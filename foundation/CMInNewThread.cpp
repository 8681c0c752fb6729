#include "CMInNewThread.h"

#include <new>

#include "NSThread.h"

CMInNewThread* CMInNewThread::inNewThreadWithObject_(NSObject* object) {
    return NSAutorelease(CMInNewThread::alloc()->initWithObject_(object));
}

CMInNewThread* CMInNewThread::initWithObject_(NSObject* object) {
    NSObject::init();
    _object.set(object);
    return this;
}

NSWord CMInNewThread::forward__(SEL sel, const NSArgFrame* frame) {
    if (_argFrame) {
        // One combinator carries one message. A later one goes through a
        // fresh combinator, so that a thread that has yet to fire never
        // sees its frame replaced under it.
        CMInNewThread* other = CMInNewThread::alloc()->initWithObject_(_object);
        other->forward__(sel, frame);
        other->release();
        return 0;
    }
    _argFrame = new (std::nothrow) NSArgFrame(*frame);
    if (!_argFrame) return 0;
    _selector = sel;
    // The new thread's reference: released at the end of fire.
    retain();
    if (!NSThread::detachNewThread(NS_SEL("fire"), this, nullptr)) release();
    return 0;
}

void CMInNewThread::fire() {
    if (_object) _object->performv__(_selector, _argFrame);
    release();
}

void CMInNewThread::dealloc() {
    delete _argFrame;
    _argFrame = nullptr;
    NSObject::dealloc();
}

CMInNewThread* NSObject::inNewThread() { return CMInNewThread::inNewThreadWithObject_(this); }

NS_CLASS_BEGIN(CMInNewThread, NSObject)
    NS_CLASS_METHOD(inNewThreadWithObject_)
    NS_METHOD(initWithObject_)
    NS_METHOD(fire)
    NS_METHOD(dealloc)
    NS_FIELD(_object)
    NS_FIELD(_selector)
NS_CLASS_END(CMInNewThread)

NS_EXTEND_CLASS(NSObject, Combinators)
NS_METHOD(inNewThread)
NS_EXTEND_END
