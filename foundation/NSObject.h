// The object model: NSObject, the root of every class, with its life
// (counts, pools, the last-release callback, dealloc), dynamic sending by
// selector, forwarding, and key access by field name.
#pragma once

#include <cstdint>

#include "NSRuntime.h"
#include "Ref.h"

class NSArray;
class NSCoder;
class NSMethodSignature;
class NSInvocation;
class NSZone;

struct _NSRange {
    uint32_t location;
    uint32_t length;
};
struct _NSPoint {
    float x;
    float y;
};
struct _NSSize {
    float width;
    float height;
};
struct _NSRect {
    _NSPoint origin;
    _NSSize size;
};

_NSRange NSMakeRange(uint32_t location, uint32_t length);
_NSRect NSMakeRect(float x, float y, float width, float height);

class NSObject {
public:
    using super = NSObject;
    static Class classObject();
    static NSObject* alloc() { return classObject()->alloc(); }
    // Class-wide set-up, run once before the first message to the class.
    static void initialize() {}

    // "class": the object's class, set on allocation, never changed.
    virtual Class class_() { return classObject(); }

    virtual NSObject* init();
    virtual void release();
    void setReleaseCallbackWithTarget_action_(NSObject* target, SEL action);
    // Frees the instance. A class that must do something at its end
    // overrides it and ends by sending dealloc to its base class; what a
    // class owns through Ref<T> fields is released by its destructor.
    virtual void dealloc();
    virtual uint32_t retainCount();
    virtual NSObject* retain();
    bool respondsToSelector_(SEL sel);
    bool conformsToProtocol_(NSString* protocol);
    bool isMemberOfClass_(Class cls);
    bool isKindOfClass_(Class cls);
    NSObject* performSelector_(SEL sel);
    NSObject* performSelector_withObject_(SEL sel, NSObject* object);
    NSObject* performSelector_withObject_withObject_(SEL sel, NSObject* object1, NSObject* object2);
    NSObject* performSelector_withObject_afterDelay_(SEL sel, NSObject* object, double delay);
    NSMethodSignature* methodSignatureForSelector_(SEL sel);
    // Reached by every message that the receiver's class lacks; the word it
    // delivers is the message's result.
    virtual NSWord forward__(SEL sel, const NSArgFrame* frame);
    // Sends a stored frame; the receiver must have a real operation of sel.
    NSWord performv__(SEL sel, const NSArgFrame* frame);
    virtual void forwardInvocation_(NSInvocation* invocation);
    virtual NSString* description();
    virtual NSObject* autorelease();
    virtual uint32_t hash();
    virtual bool isEqual_(NSObject* other);
    IMP methodForSelector_(SEL sel);
    NSString* className();
    NSObject* doesNotRecognize_(SEL sel);
    void doesNotRecognizeSelector_(SEL sel);
    // New autoreleased combinators around the receiver (CMAfterDelay.cpp,
    // CMInNewThread.cpp, CMContinuation.cpp register them).
    class CMAfterDelay* afterDelay_(double delay);
    class CMInNewThread* inNewThread();
    class CMContinuation* continuation();
    class LXProxy* proxy();
    NSObject* valueForKey_(NSString* key);
    NSObject* valueForKey_forClass_(NSString* key, Class cls);
    void setValue_forKey_(NSObject* value, NSString* key);
    void setValue_forKey_forClass_(NSObject* value, NSString* key, Class cls);
    virtual NSArray* attributeKeys();
    NSObject* copy();
    NSObject* mutableCopy();
    virtual NSObject* copyWithZone_(NSZone* zone);
    virtual NSObject* mutableCopyWithZone_(NSZone* zone);
    // Archiving (NSObjectCoding.cpp; the value classes' bodies are in
    // ValueCoding.cpp): the defaults log and do nothing; initWithCoder:
    // then releases the receiver and answers nil.
    virtual void encodeWithCoder_(NSCoder* coder);
    virtual NSObject* initWithCoder_(NSCoder* coder);

    // Class operations that need the receiving class.
    static bool instancesRespondToSelector_(Class cls, SEL sel) {
        return cls->instancesRespondToSelector_(sel);
    }
    static void poseAsClass_(Class cls, Class other) { cls->poseAsClass_(other); }
    static const char* name(Class cls) { return cls->name(); }

    NSObject() = default;
    NSObject(const NSObject&) = delete;
    NSObject& operator=(const NSObject&) = delete;

protected:
    // Only dealloc deletes an object.
    virtual ~NSObject();

    uint32_t _retainCount = 1;
    NSObject* _releaseTarget = nullptr;
    SEL _releaseAction = nullptr;

private:
    friend struct NSClassFactory<NSObject>;
};

static_assert(sizeof(Ref<NSObject>) == sizeof(NSObject*), "Ref<T> is one pointer wide");

// NSZone has no operations: the zone argument is passed as nil everywhere.
class NSZone : public NSObject {
    NS_DECLARE_CLASS(NSZone, NSObject)
};

// ---------------------------------------------------------------------------
// Sending by selector.

// Ordinary dispatch: a message to nil answers 0; an instance without the
// operation gets forward::.
NSWord NSSendFrame(NSObject* receiver, SEL sel, const NSArgFrame* frame);
// A class that lacks the operation is a fatal error.
NSWord NSSendClassFrame(Class cls, SEL sel, const NSArgFrame* frame);

template <class R = NSObject*, class... A>
R NSSend(NSObject* receiver, SEL sel, A... args) {
    NSArgFrame frame;
    NSPackFrame(&frame, args...);
    return NSDecodeResult<R>(NSSendFrame(receiver, sel, &frame));
}

template <class R = NSObject*, class... A>
R NSSendClass(Class cls, SEL sel, A... args) {
    NSArgFrame frame;
    NSPackFrame(&frame, args...);
    return NSDecodeResult<R>(NSSendClassFrame(cls, sel, &frame));
}

// The nil rule in C++: a message to nil does nothing and answers zero. Where
// behaviour depends on it, write NSNil(object, &Class::operation, args...).
template <class T, class R, class C, class... P, class... A>
R NSNil(T* object, R (C::*operation)(P...), A&&... args) {
    if (!object) return R();
    return (object->*operation)(std::forward<A>(args)...);
}

// The checked downcast: the object as a T when it is of T's class or a
// descendant, else nil. An argument that arrives by selector may be of any
// class whatever its C++ type says, so it is tested before it is read as a
// T.
template <class T>
T* NSDynamicCast(NSObject* object) {
    return object && object->isKindOfClass_(T::classObject()) ? static_cast<T*>(object) : nullptr;
}

// The order of values of different kinds, shared by compare: of strings,
// numbers, dates and the shared null whenever the argument is of another
// kind than the receiver: the kinds rank as
//
//   the shared null  <  strings  <  numbers  <  dates
//
// and within a kind each class keeps its own order (strings by their bytes,
// numbers by value, dates by their descriptions). Ranking whole kinds keeps
// the order antisymmetric and transitive across kinds, so a sort comes out
// the same whichever side of a pair asks. A record without a value sorts as
// the empty string, the least of all strings, and therefore before every
// number and date. An object of any other class (an array, a record) has no
// compare: and answers 0 to it, being ignored; to stay antisymmetric with
// that, it ranks equal to everything. Nil ranks with the shared null here;
// a nil argument to compare: itself keeps each class's reading of nil.
// Answers -1, 0 or 1.
int NSCompareKinds(NSObject* receiver, NSObject* other);

inline void NSRelease(NSObject* object) {
    if (object) object->release();
}
template <class T>
inline T* NSRetain(T* object) {
    if (object) object->retain();
    return object;
}
template <class T>
inline T* NSAutorelease(T* object) {
    if (object) object->autorelease();
    return object;
}

// Makes an owned T with one of its initialisers, without a cast at the call:
//   Ref<NSMutableDictionary> d =
//           NSMake<NSMutableDictionary>(&NSMutableDictionary::initWithCapacity_, 16u);
//   Ref<NSMutableArray> a = NSMake<NSMutableArray>();
// An initialiser answers its receiver or nil (a failing one has released
// it), so the result is a T or nil; inherited initialisers are declared to
// answer the base class, which is why the call sites used to cast.
template <class T, class R, class C, class... P, class... A>
Ref<T> NSMake(R* (C::*initialiser)(P...), A&&... args) {
    static_assert(std::is_base_of_v<C, T>, "the initialiser must be one of T's");
    NSObject* made = (T::alloc()->*initialiser)(std::forward<A>(args)...);
    return adoptRef(static_cast<T*>(made));
}
template <class T>
Ref<T> NSMake() {
    return NSMake<T>(&T::init);
}

// ---------------------------------------------------------------------------
// The plain functions of the foundation.

// The one log channel: a printf-style format and its arguments to standard
// output, then a newline. No time stamp, no level, no lock, no flush.
void LOG(NSString* format, ...);
void LOG(const char* format, ...) NS_FORMAT(1, 2);
Class NSClassFromString(NSString* name);
SEL NSSelectorFromString(NSString* name);
NSString* NSStringFromSelector(SEL sel);
NSString* NSStringFromClass(Class cls);
void NSBeep();
