#include "NSObject.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "NSAutoreleasePool.h"
#include "NSDate.h"
#include "NSInvocation.h"
#include "NSNull.h"
#include "NSString.h"
#include "NSThread.h"
#include "NSValue.h"
#include "platform/Platform.h"

_NSRange NSMakeRange(uint32_t location, uint32_t length) { return _NSRange{location, length}; }

_NSRect NSMakeRect(float x, float y, float width, float height) {
    return _NSRect{_NSPoint{x, y}, _NSSize{width, height}};
}

NSObject::~NSObject() {
#if VANTOR_DEBUG_CHECKS
    // An object dies through dealloc after its last release, nothing else.
    if (_retainCount != 0) {
        std::fprintf(stderr, "object of class %s deleted with a count of %u\n", class_()->name(),
                     _retainCount);
        std::abort();
    }
#endif
    NSRelease(_releaseTarget);
}

NSObject* NSObject::init() { return this; }

// Counts are changed atomically although the design needs no such thing:
// shared objects are guarded by their owners' locks. It costs little and
// turns a forgotten lock into a lost race rather than a corrupt count.
NSObject* NSObject::retain() {
    __atomic_add_fetch(&_retainCount, 1, __ATOMIC_RELAXED);
    return this;
}

void NSObject::release() {
    uint32_t count = __atomic_load_n(&_retainCount, __ATOMIC_ACQUIRE);
    if (count == 0) {
        std::fprintf(stderr, "release of a dead object of class %s\n", class_()->name());
        std::abort();
    }
    if (count == 1 && _releaseTarget) {
        // The object is still whole during the callback, and the callback
        // stays armed: it fires at every release that finds the count at 1.
        // The target keeps the reference that the callback took until the
        // object ends (its destructor lets go), so that a callback which
        // keeps the object alive can fire again without over-releasing.
        NSObject* target = _releaseTarget;
        target->retain();
        target->performSelector_withObject_(_releaseAction, this);
        target->release();
    }
    if (__atomic_sub_fetch(&_retainCount, 1, __ATOMIC_ACQ_REL) == 0) dealloc();
}

void NSObject::setReleaseCallbackWithTarget_action_(NSObject* target, SEL action) {
    NSRetain(target);
    NSRelease(_releaseTarget);
    _releaseTarget = target;
    _releaseAction = action;
}

void NSObject::dealloc() { delete this; }

uint32_t NSObject::retainCount() { return __atomic_load_n(&_retainCount, __ATOMIC_RELAXED); }

bool NSObject::respondsToSelector_(SEL sel) {
    return sel && class_()->lookupMethod(sel) != nullptr;
}

bool NSObject::conformsToProtocol_(NSString* protocol) {
    return protocol && class_()->conformsToProtocol(protocol->UTF8String());
}

bool NSObject::isMemberOfClass_(Class cls) { return class_() == cls; }

bool NSObject::isKindOfClass_(Class cls) { return class_()->isSubclassOf(cls); }

NSObject* NSObject::performSelector_(SEL sel) {
    if (!sel)
        NSFatalProgramError(class_()->name(), false, "invalid selector passed to performSelector:");
    return NSSend(this, sel);
}

NSObject* NSObject::performSelector_withObject_(SEL sel, NSObject* object) {
    if (!sel) {
        NSFatalProgramError(class_()->name(), false,
                            "invalid selector passed to performSelector:withObject:");
    }
    return NSSend(this, sel, object);
}

NSObject* NSObject::performSelector_withObject_withObject_(SEL sel, NSObject* object1,
                                                           NSObject* object2) {
    if (!sel) {
        NSFatalProgramError(class_()->name(), false,
                            "invalid selector passed to performSelector:withObject:withObject:");
    }
    return NSSend(this, sel, object1, object2);
}

NSObject* NSObject::performSelector_withObject_afterDelay_(SEL sel, NSObject* object,
                                                           double delay) {
    // Blocks the caller: nothing is queued.
    NSThread::sleepForTimeInterval_(delay);
    return performSelector_withObject_(sel, object);
}

NSMethodSignature* NSObject::methodSignatureForSelector_(SEL sel) {
    NSMethodSignature* signature = NSMethodSignature::alloc()->initWithSelector_(sel);
    return NSAutorelease(signature);
}

NSWord NSObject::forward__(SEL sel, const NSArgFrame* frame) {
    NSMethodSignature* signature = methodSignatureForSelector_(sel);
    signature->setSelector_(sel);
    NSInvocation* invocation = NSInvocation::invocationWithMethodSignature_(signature);
    invocation->setArguments_(frame);
    forwardInvocation_(invocation);
    NSWord result = 0;
    invocation->getReturnValue_(&result);
    return result;
}

NSWord NSObject::performv__(SEL sel, const NSArgFrame* frame) {
    IMP imp = sel ? class_()->lookupMethod(sel) : nullptr;
    if (!imp) {
        // No forwarding here; the caller broke the contract, and says so.
        doesNotRecognizeSelector_(sel);
        return 0;
    }
    return imp(this, sel, frame);
}

void NSObject::forwardInvocation_(NSInvocation*) {}

NSString* NSObject::description() {
    return NSString::stringWithFormat_("object:%" PRIdPTR, reinterpret_cast<intptr_t>(this));
}

NSObject* NSObject::autorelease() {
    NSAutoreleasePool::addObjectToCurrentPool(this);
    return this;
}

// The address, cut to the 32 bits of a hash.
uint32_t NSObject::hash() { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this)); }

bool NSObject::isEqual_(NSObject* other) { return this == other; }

IMP NSObject::methodForSelector_(SEL sel) { return sel ? class_()->lookupMethod(sel) : nullptr; }

NSString* NSObject::className() { return NSString::stringWithUTF8String_(class_()->name()); }

NSObject* NSObject::doesNotRecognize_(SEL sel) {
    doesNotRecognizeSelector_(sel);
    return nullptr;
}

void NSObject::doesNotRecognizeSelector_(SEL) { std::fputs("selector not recognized", stderr); }

// ---------------------------------------------------------------------------
// Key access.

NSObject* NSObject::valueForKey_(NSString* key) { return valueForKey_forClass_(key, class_()); }

void NSObject::setValue_forKey_(NSObject* value, NSString* key) {
    setValue_forKey_forClass_(value, key, class_());
}

namespace {

// The field of that name in cls or its bases, or null after logging. A key
// that is no string names no field.
const NSFieldInfo* findField(NSString* key, Class cls) {
    NSString* text = NSDynamicCast<NSString>(key);
    const char* name = text ? text->UTF8String() : "";
    for (Class c = cls; c; c = c->base()) {
        if (const NSFieldInfo* f = c->ownField(name)) return f;
        if (c == NSObject::classObject()) break;
    }
    LOG("unknown attribute %s", name);
    return nullptr;
}

int intOf(NSObject* value) { return NSSend<int>(value, NS_SEL("intValue")); }
double doubleOf(NSObject* value) { return NSSend<double>(value, NS_SEL("doubleValue")); }

}  // namespace

NSObject* NSObject::valueForKey_forClass_(NSString* key, Class cls) {
    const NSFieldInfo* f = findField(key, cls);
    if (!f) return nullptr;
    void* p = f->address(this);
    switch (f->type[0]) {
        case 'c':
            return NSNumber::numberWithInt_(*static_cast<int8_t*>(p));
        case 'C':
            return NSNumber::numberWithInt_(*static_cast<uint8_t*>(p));
        case 's':
            return NSNumber::numberWithInt_(*static_cast<int16_t*>(p));
        case 'S':
            return NSNumber::numberWithInt_(*static_cast<uint16_t*>(p));
        case 'i':
        case 'I':
        case 'l':
        case 'L':
            return NSNumber::numberWithInt_(*static_cast<int32_t*>(p));
        case 'q':
        case 'Q':
            return NSNumber::numberWithInt_(static_cast<int32_t>(*static_cast<uint64_t*>(p)));
        case 'f':
            return NSNumber::numberWithDouble_(*static_cast<float*>(p));
        case 'd':
            return NSNumber::numberWithDouble_(*static_cast<double*>(p));
        case ':': {
            // A selector field reads as the selector's name.
            SEL sel = *static_cast<SEL*>(p);
            return sel ? NSStringFromSelector(sel) : nullptr;
        }
        default:
            return *static_cast<NSObject**>(p);
    }
}

void NSObject::setValue_forKey_forClass_(NSObject* value, NSString* key, Class cls) {
    const NSFieldInfo* f = findField(key, cls);
    if (!f) return;
    void* p = f->address(this);
    switch (f->type[0]) {
        case 'c':
        case 'C':
            *static_cast<uint8_t*>(p) = static_cast<uint8_t>(intOf(value));
            break;
        case 's':
        case 'S':
            *static_cast<uint16_t*>(p) = static_cast<uint16_t>(intOf(value));
            break;
        case 'i':
        case 'I':
        case 'l':
        case 'L':
            *static_cast<int32_t*>(p) = intOf(value);
            break;
        case 'q':
        case 'Q':
            *static_cast<int64_t*>(p) = static_cast<int64_t>(intOf(value));
            break;
        case 'f':
            *static_cast<float*>(p) = static_cast<float>(doubleOf(value));
            break;
        case 'd':
            *static_cast<double*>(p) = doubleOf(value);
            break;
        case ':':
            *static_cast<SEL*>(p) = value ? NSSelectorFromString(value->description()) : nullptr;
            break;
        default: {
            NSObject** slot = static_cast<NSObject**>(p);
            if (*slot == value) return;
            NSRelease(*slot);
            *slot = NSRetain(value);
        }
    }
}

NSArray* NSObject::attributeKeys() { return nullptr; }

// The proxy class belongs to the storage layer, above this one. It is found
// by name, as the configuration finds its classes, so that the foundation
// links alone; a program without the storage layer gets nil.
LXProxy* NSObject::proxy() {
    Class cls = NSClassFromCString("LXProxy");
    if (!cls) return nullptr;
    return reinterpret_cast<LXProxy*>(
            NSSendClass<NSObject*>(cls, NS_SEL("proxyWithObject:"), this));
}

NSObject* NSObject::copy() { return copyWithZone_(nullptr); }

NSObject* NSObject::mutableCopy() { return mutableCopyWithZone_(nullptr); }

// Immutable values are shared, not duplicated; classes with a real copy
// override these.
NSObject* NSObject::copyWithZone_(NSZone*) { return retain(); }

NSObject* NSObject::mutableCopyWithZone_(NSZone*) { return retain(); }

// ---------------------------------------------------------------------------
// Registration of the root class, written out because it has no base.

namespace {
NSObject* createObject() { return new (std::nothrow) NSObject(); }

Class instanceClass(Class cls) { return cls; }
const char* nameOfClass(Class cls) { return cls->name(); }
NSObject* allocObject(Class cls) { return cls->alloc(); }
void initializeNothing() {}
}  // namespace

Class NSObject::classObject() {
    using Self = NSObject;
    static const Class ns_class =
            NSClassBuilder(new NSClass("NSObject", nullptr, &createObject, nullptr)) NS_METHOD(init) NS_METHOD(
                    release) NS_METHOD(setReleaseCallbackWithTarget_action_) NS_METHOD(dealloc) NS_METHOD(retainCount)
                    NS_METHOD(retain) NS_METHOD(respondsToSelector_) NS_METHOD(conformsToProtocol_) NS_METHOD(
                            isMemberOfClass_) NS_METHOD(isKindOfClass_) NS_METHOD(performSelector_)
                            NS_METHOD(performSelector_withObject_) NS_METHOD(performSelector_withObject_withObject_) NS_METHOD(
                                    performSelector_withObject_afterDelay_) NS_METHOD(methodSignatureForSelector_)
                                    NS_METHOD(forward__) NS_METHOD(performv__) NS_METHOD(forwardInvocation_) NS_METHOD(
                                            description) NS_METHOD(autorelease) NS_METHOD(hash) NS_METHOD(isEqual_)
                                            NS_METHOD(methodForSelector_) NS_METHOD(className) NS_METHOD(
                                                    doesNotRecognize_) NS_METHOD(doesNotRecognizeSelector_)
                                                    NS_METHOD(valueForKey_) NS_METHOD(valueForKey_forClass_) NS_METHOD(
                                                            setValue_forKey_) NS_METHOD(setValue_forKey_forClass_)
                                                            NS_METHOD(attributeKeys) NS_METHOD(copy) NS_METHOD(
                                                                    mutableCopy) NS_METHOD(copyWithZone_)
                                                                    NS_METHOD(mutableCopyWithZone_) NS_METHOD_NAMED(
                                                                            "class", class_)
                                                                            .classMethod<
                                                                                    &initializeNothing>(
                                                                                    "initialize")
                                                                            .classMethod<
                                                                                    &allocObject>(
                                                                                    "alloc")
                                                                            .classMethodNamed<
                                                                                    &instanceClass>(
                                                                                    "class")
                                                                            .classMethodNamed<
                                                                                    &nameOfClass>(
                                                                                    "name")
                                                                            .classMethod<
                                                                                    &NSObject::
                                                                                            instancesRespondToSelector_>(
                                                                                    "instancesRespo"
                                                                                    "ndToSelector_")
                                                                            .classMethod<
                                                                                    &NSObject::
                                                                                            poseAsClass_>(
                                                                                    "poseAsClass_")
                                                                                    NS_FIELD(_retainCount) NS_FIELD(
                                                                                            _releaseTarget)
                                                                                            NS_FIELD(
                                                                                                    _releaseAction)
                                                                            .done();
    return ns_class;
}

namespace {
const Class ns_registered_NSObject = NSObject::classObject();
}

NS_CLASS_BEGIN(NSZone, NSObject)
NS_CLASS_END(NSZone)

// ---------------------------------------------------------------------------

NSWord NSSendFrame(NSObject* receiver, SEL sel, const NSArgFrame* frame) {
    if (!receiver) return 0;
    if (IMP imp = receiver->class_()->lookupMethod(sel)) return imp(receiver, sel, frame);
    return receiver->forward__(sel, frame);
}

NSWord NSSendClassFrame(Class cls, SEL sel, const NSArgFrame* frame) {
    if (!cls) return 0;
    cls->ensureInitialized();
    ClassIMP imp = cls->lookupClassMethod(sel);
    if (!imp) {
        std::string text = std::string(cls->name()) + " does not recognize " + sel->name();
        NSFatalProgramError(cls->name(), true, text.c_str());
    }
    return imp(cls, sel, frame);
}

void LOG(NSString* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::vprintf(format ? format->UTF8String() : "", ap);
    va_end(ap);
    std::putchar('\n');
}

void LOG(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::vprintf(format, ap);
    va_end(ap);
    std::putchar('\n');
}

Class NSClassFromString(NSString* name) {
    // A name that no class bears gives nil: the callers (configured actions,
    // archives) test nothing, and a message to nil does nothing. Nor does a
    // name that is no string at all.
    NSString* text = NSDynamicCast<NSString>(name);
    return text ? NSClassFromCString(text->UTF8String()) : nullptr;
}

SEL NSSelectorFromString(NSString* name) {
    NSString* text = NSDynamicCast<NSString>(name);
    return NSSelectorFromCString(text ? text->UTF8String() : "");
}

NSString* NSStringFromSelector(SEL sel) {
    return sel ? NSString::stringWithUTF8String_(sel->name()) : nullptr;
}

NSString* NSStringFromClass(Class cls) {
    return cls ? NSString::stringWithUTF8String_(cls->name()) : nullptr;
}

void NSBeep() { vtBeep(); }

namespace {

// Rank of a value's kind in the order of NSCompareKinds; -1 for a class
// outside it.
int kindRank(NSObject* value) {
    if (!value || value == NSNull::null()) return 0;
    if (value->isKindOfClass_(NSString::classObject())) return 1;
    if (value->isKindOfClass_(NSNumber::classObject())) return 2;
    if (value->isKindOfClass_(NSDate::classObject())) return 3;
    return -1;
}

}  // namespace

int NSCompareKinds(NSObject* receiver, NSObject* other) {
    int mine = kindRank(receiver);
    int theirs = kindRank(other);
    if (mine < 0 || theirs < 0) return 0;
    return mine < theirs ? -1 : (mine > theirs ? 1 : 0);
}
