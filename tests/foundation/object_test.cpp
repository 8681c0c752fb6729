// The object core: counts and pools, release callbacks, dispatch by name,
// forwarding with frames, key access, and the fatal faults.
#include <gtest/gtest.h>
#if !defined(_WIN32)
#include <sys/wait.h>
#endif
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>
#include <thread>

#include "foundation/Foundation.h"
#include "tests/support/LogCapture.h"

namespace {

int deallocCount = 0;
int initializeOrder = 0;
int baseInitializedAt = 0;
int derivedInitializedAt = 0;

class Probe : public NSObject {
    NS_DECLARE_CLASS(Probe, NSObject)

public:
    static void initialize() { baseInitializedAt = ++initializeOrder; }
    void dealloc() override {
        deallocCount++;
        NSObject::dealloc();
    }
    NSString* echo_(NSString* s) { return s; }
    int add_to_(int a, int b) { return a + b; }
    double scale_by_(double v, double f) { return v * f; }
    uint32_t rangeEnd_(_NSRange r) { return r.location + r.length; }
    NSObject* perform__(NSNumber* row, NSObject* matrix) {
        lastRow = row ? row->intValue() : -1;
        lastMatrix = matrix;
        return this;
    }
    void callback_(NSObject* object) {
        callbackCount++;
        countSeen = object->retainCount();
    }
    static NSString* greeting() { return "hello"_ns; }
    int twice_(int v) { return 2 * v; }

    int lastRow = 0;
    NSObject* lastMatrix = nullptr;
    int callbackCount = 0;
    uint32_t countSeen = 0;

    int8_t _c = 0;
    uint8_t _C = 0;
    int16_t _s = 0;
    uint16_t _S = 0;
    int32_t _i = 0;
    uint32_t _I = 0;
    int64_t _q = 0;
    float _f = 0;
    double _d = 0;
    Ref<NSObject> _object;
};

NS_CLASS_BEGIN(Probe, NSObject)
    NS_METHOD(echo_)
    NS_METHOD(add_to_)
    NS_METHOD(scale_by_)
    NS_METHOD(rangeEnd_)
    NS_METHOD(perform__)
    NS_METHOD(callback_)
    NS_CLASS_METHOD(greeting)
    NS_FIELD(_c)
    NS_FIELD(_C)
    NS_FIELD(_s)
    NS_FIELD(_S)
    NS_FIELD(_i)
    NS_FIELD(_I)
    NS_FIELD(_q)
    NS_FIELD(_f)
    NS_FIELD(_d)
    NS_FIELD(_object)
NS_CLASS_END(Probe)

// An operation registered from another file, as subsystems extend the
// foundation's classes.
NS_EXTEND_CLASS(Probe, Extra)
NS_METHOD(twice_)
NS_EXTEND_END

class DerivedProbe : public Probe {
    NS_DECLARE_CLASS(DerivedProbe, Probe)

public:
    static void initialize() { derivedInitializedAt = ++initializeOrder; }
    int _extra = 0;
};

NS_CLASS_BEGIN(DerivedProbe, Probe)
    NS_FIELD(_extra)
NS_CLASS_END(DerivedProbe)

// Catches every message it lacks, keeps what it saw and replays the frame
// to a target: the shape of every combinator.
class Catcher : public NSObject {
    NS_DECLARE_CLASS(Catcher, NSObject)

public:
    NSWord forward__(SEL sel, const NSArgFrame* frame) override {
        caught = sel;
        return target ? target->performv__(sel, frame) : 0;
    }
    SEL caught = nullptr;
    NSObject* target = nullptr;
};

NS_CLASS_BEGIN(Catcher, NSObject)
NS_CLASS_END(Catcher)

// The faults that end the process are watched from a parent, which fork()
// gives; Windows has no fork, so those tests are left out there.
#if !defined(_WIN32)
struct ChildResult {
    int status = -1;
    std::string out;
    std::string err;
};

std::string drain(int fd) {
    std::string s;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) s.append(buf, static_cast<size_t>(n));
    close(fd);
    return s;
}

// Runs body in a child process and collects its exit status and output.
ChildResult runChild(const std::function<void()>& body) {
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return {};
    std::fflush(stdout);
    std::fflush(stderr);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(err[1], 2);
        close(out[0]);
        close(err[0]);
        body();
        std::fflush(stdout);
        _exit(0);
    }
    close(out[1]);
    close(err[1]);
    ChildResult r;
    r.out = drain(out[0]);
    r.err = drain(err[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}
#endif

using vt_test::logOf;

class ObjectTest : public testing::Test {
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        deallocCount = 0;
    }
    void TearDown() override { pool->release(); }
    NSAutoreleasePool* pool = nullptr;
};

TEST_F(ObjectTest, CountsFollowRetainReleaseAndThePool) {
    Probe* p = Probe::alloc();
    EXPECT_EQ(p->retainCount(), 1u);
    NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
    p->retain()->autorelease();
    EXPECT_EQ(p->retainCount(), 2u);
    inner->release();
    EXPECT_EQ(p->retainCount(), 1u);
    EXPECT_EQ(deallocCount, 0);
    p->release();
    EXPECT_EQ(deallocCount, 1);
}

TEST_F(ObjectTest, NestedPoolsEndInnerFirstAndReuseTheSlot) {
    int outerIndex = NSAutoreleasePool::poolIndex();
    NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
    EXPECT_EQ(NSAutoreleasePool::poolIndex(), outerIndex + 1);
    Probe::alloc()->autorelease();
    NSAutoreleasePool* innermost = NSAutoreleasePool::alloc()->init();
    Probe::alloc()->autorelease();
    innermost->release();
    EXPECT_EQ(deallocCount, 1);
    inner->release();
    EXPECT_EQ(deallocCount, 2);
    EXPECT_EQ(NSAutoreleasePool::poolIndex(), outerIndex);

    uint32_t slots = NSAutoreleasePool::pools()->count();
    NSAutoreleasePool* again = NSAutoreleasePool::alloc()->init();
    EXPECT_EQ(NSAutoreleasePool::pools()->count(), slots);
    EXPECT_EQ(NSAutoreleasePool::pools()->objectAtIndex_(static_cast<uint32_t>(outerIndex + 1)),
              again);
    EXPECT_EQ(again->retainCount(), 1u);
    again->release();
    EXPECT_EQ(NSAutoreleasePool::pools()->objectAtIndex_(static_cast<uint32_t>(outerIndex + 1)),
              nullptr);
}

TEST_F(ObjectTest, ObjectsAutoreleasedWhileThePoolEndsGoInTheSamePass) {
    NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
    // An object listed twice is released twice.
    Probe* twice = Probe::alloc();
    twice->retain();
    twice->autorelease();
    twice->autorelease();
    inner->release();
    EXPECT_EQ(deallocCount, 1);
}

TEST_F(ObjectTest, ReleaseCallbackSeesTheObjectWholeAndTheTargetGetsItsReferenceBack) {
    Probe* target = Probe::alloc();
    Probe* object = Probe::alloc();
    object->setReleaseCallbackWithTarget_action_(target, NS_SEL("callback:"));
    EXPECT_EQ(target->retainCount(), 2u);
    object->retain();
    object->release();
    EXPECT_EQ(target->callbackCount, 0);
    object->release();
    EXPECT_EQ(target->callbackCount, 1);
    EXPECT_EQ(target->countSeen, 1u);
    EXPECT_EQ(deallocCount, 1);
    EXPECT_EQ(target->retainCount(), 1u);
    target->release();
}

TEST_F(ObjectTest, ReleaseCallbackStaysArmedWhenTheObjectSurvivesIt) {
    // A callback that keeps the object alive (as a cache may) fires again
    // at the next release that finds the count at 1.
    Probe* target = Probe::alloc();
    Probe* object = Probe::alloc();
    object->setReleaseCallbackWithTarget_action_(target, NS_SEL("callback:"));
    object->retain();
    object->release();
    object->release();
    EXPECT_EQ(target->callbackCount, 1);
    target->release();
}

TEST_F(ObjectTest, DispatchBySelectorName) {
    Probe* p = NSAutorelease(Probe::alloc());
    SEL echo = NSSelectorFromString("echo:"_ns);
    EXPECT_EQ(echo, NS_SEL("echo:"));
    EXPECT_EQ(p->performSelector_withObject_(echo, "x"_ns), "x"_ns);
    EXPECT_EQ(NSSend<int>(p, NS_SEL("add:to:"), 2, 40), 42);
    EXPECT_DOUBLE_EQ(NSSend<double>(p, NS_SEL("scale:by:"), 1.5, -2.0), -3.0);
    EXPECT_EQ(NSSend<uint32_t>(p, NS_SEL("rangeEnd:"), NSMakeRange(7, 5)), 12u);
    EXPECT_EQ(NSSendClass<NSString*>(Probe::classObject(), NS_SEL("greeting")), "hello"_ns);
    EXPECT_TRUE(p->respondsToSelector_(echo));
    EXPECT_TRUE(p->respondsToSelector_(NS_SEL("description")));
    EXPECT_TRUE(Probe::classObject()->instancesRespondToSelector_(echo));
    EXPECT_EQ(NS_SEL("add:to:")->argumentCount(), 2u);
    EXPECT_EQ(Probe::classObject()->argumentCountOfMethod(NS_SEL("perform::")), 2);
    EXPECT_EQ(NSStringFromSelector(echo)->isEqual_("echo:"_ns), true);
    EXPECT_TRUE(NSStringFromClass(Probe::classObject())->isEqual_("Probe"_ns));
    EXPECT_EQ(NSSend<NSObject*>(nullptr, echo, "x"_ns), nullptr);
    // Extensions reach subclasses too.
    DerivedProbe* d = NSAutorelease(DerivedProbe::alloc());
    EXPECT_EQ(NSSend<int>(d, NS_SEL("twice:"), 21), 42);
}

TEST_F(ObjectTest, AnActionStartedByClassAndSelectorName) {
    Class cls = NSClassFromString("Probe"_ns);
    ASSERT_EQ(cls, Probe::classObject());
    NSObject* action = NSSend(cls->alloc(), NS_SEL("init"));
    SEL sel = NSSelectorFromString(NSString::stringWithFormat_("%s::", "perform"));
    NSObject* matrix = NSAutorelease(NSObject::alloc());
    EXPECT_EQ(action->performSelector_withObject_withObject_(sel, NSNumber::numberWithInt_(3),
                                                             matrix),
              action);
    EXPECT_EQ(static_cast<Probe*>(action)->lastRow, 3);
    EXPECT_EQ(static_cast<Probe*>(action)->lastMatrix, matrix);
    action->release();
    EXPECT_EQ(NSClassFromString("NoSuchClass"_ns), nullptr);
}

TEST_F(ObjectTest, UnknownMessagesAreSwallowedSilently) {
    Probe* p = NSAutorelease(Probe::alloc());
    SEL unknown = NS_SEL("noSuchOperation:");
    std::string log =
            logOf([&] { EXPECT_EQ(p->performSelector_withObject_(unknown, p), nullptr); });
    EXPECT_EQ(log, "");
    EXPECT_FALSE(p->respondsToSelector_(unknown));
    EXPECT_EQ(p->retainCount(), 1u);
}

TEST_F(ObjectTest, ForwardingCatchesAnyMessageAndReplaysItsFrame) {
    Catcher* c = NSAutorelease(Catcher::alloc());
    Probe* p = NSAutorelease(Probe::alloc());
    c->target = p;
    EXPECT_EQ(NSSend<int>(c, NS_SEL("add:to:"), -5, 8), 3);
    EXPECT_EQ(c->caught, NS_SEL("add:to:"));
    EXPECT_DOUBLE_EQ(NSSend<double>(c, NS_SEL("scale:by:"), 0.25, 8.0), 2.0);
    EXPECT_EQ(NSSend<uint32_t>(c, NS_SEL("rangeEnd:"), NSMakeRange(1, 2)), 3u);
    // Operations of the catcher's own classes are not caught.
    EXPECT_EQ(NSSend<uint32_t>(c, NS_SEL("retainCount")), 1u);
    EXPECT_FALSE(c->respondsToSelector_(NS_SEL("add:to:")));

    // An invocation replays a frame to another target and keeps the result.
    NSArgFrame frame;
    NSPackFrame(&frame, 20, 22);
    NSInvocation* inv = NSInvocation::invocationWithMethodSignature_(
            p->methodSignatureForSelector_(NS_SEL("add:to:")));
    inv->setArguments_(&frame);
    inv->invokeWithTarget_(p);
    NSWord result = 0;
    inv->getReturnValue_(&result);
    EXPECT_EQ(static_cast<int>(result), 42);
    EXPECT_EQ(inv->selector(), NS_SEL("add:to:"));
}

TEST_F(ObjectTest, KeyAccessByNameAndTypeCode) {
    DerivedProbe* p = NSAutorelease(DerivedProbe::alloc());
    p->_c = -3;
    p->_C = 250;
    p->_s = -300;
    p->_S = 65000;
    p->_q = 0x1'0000'0007LL;
    EXPECT_EQ(static_cast<NSNumber*>(p->valueForKey_("c"_ns))->intValue(), -3);
    EXPECT_EQ(static_cast<NSNumber*>(p->valueForKey_("C"_ns))->intValue(), 250);
    EXPECT_EQ(static_cast<NSNumber*>(p->valueForKey_("s"_ns))->intValue(), -300);
    EXPECT_EQ(static_cast<NSNumber*>(p->valueForKey_("S"_ns))->intValue(), 65000);
    EXPECT_EQ(static_cast<NSNumber*>(p->valueForKey_("q"_ns))->intValue(), 7);

    p->setValue_forKey_(NSNumber::numberWithInt_(0x1FF), "c"_ns);
    EXPECT_EQ(p->_c, -1);
    p->setValue_forKey_(NSNumber::numberWithInt_(-2), "q"_ns);
    EXPECT_EQ(p->_q, -2);
    p->setValue_forKey_(NSNumber::numberWithDouble_(0.1), "f"_ns);
    EXPECT_EQ(p->_f, 0.1f);
    p->setValue_forKey_(NSNumber::numberWithDouble_(0.1), "d"_ns);
    EXPECT_EQ(p->_d, 0.1);
    // Text that reads as a number is taken by its intValue.
    p->setValue_forKey_("42"_ns, "i"_ns);
    EXPECT_EQ(p->_i, 42);
    // Fields of a base class and of the root are reached too.
    p->setValue_forKey_(NSNumber::numberWithInt_(9), "extra"_ns);
    EXPECT_EQ(p->_extra, 9);
    EXPECT_EQ(static_cast<NSNumber*>(p->valueForKey_("retainCount"_ns))->intValue(), 1);

    NSObject* o = NSAutorelease(NSObject::alloc());
    p->setValue_forKey_(o, "object"_ns);
    EXPECT_EQ(o->retainCount(), 2u);
    p->setValue_forKey_(o, "object"_ns);
    EXPECT_EQ(o->retainCount(), 2u);
    EXPECT_EQ(p->valueForKey_("object"_ns), o);
    p->setValue_forKey_(nullptr, "object"_ns);
    EXPECT_EQ(o->retainCount(), 1u);

    std::string log = logOf([&] {
        EXPECT_EQ(p->valueForKey_("nothing"_ns), nullptr);
        p->setValue_forKey_(NSNumber::numberWithInt_(1), "nothing"_ns);
    });
    EXPECT_EQ(log, "unknown attribute nothing\nunknown attribute nothing\n");
    // A key that is no string, sent by selector, names no field.
    NSNumber* badKey = NSNumber::numberWithInt_(7);
    log = logOf([&] {
        EXPECT_EQ(NSSend<NSObject*>(p, NS_SEL("valueForKey:"), badKey), nullptr);
        NSSend<void>(p, NS_SEL("setValue:forKey:"), NSNumber::numberWithInt_(1), badKey);
    });
    EXPECT_EQ(log, "unknown attribute \nunknown attribute \n");
}

TEST_F(ObjectTest, InitializeRunsOnceBaseFirst) {
    DerivedProbe::alloc()->release();
    Probe::alloc()->release();
    EXPECT_GT(baseInitializedAt, 0);
    EXPECT_EQ(derivedInitializedAt, baseInitializedAt + 1);
    EXPECT_EQ(initializeOrder, 2);
}

TEST_F(ObjectTest, PlainObjectIdentity) {
    NSObject* o = NSAutorelease(NSObject::alloc());
    char expected[64];
    std::snprintf(expected, sizeof expected, "object:%ld",
                  static_cast<long>(reinterpret_cast<intptr_t>(o)));
    EXPECT_STREQ(o->description()->UTF8String(), expected);
    EXPECT_EQ(o->hash(), static_cast<uint32_t>(reinterpret_cast<uintptr_t>(o)));
    NSObject* c = o->copy();
    EXPECT_EQ(c, o);
    EXPECT_EQ(o->retainCount(), 2u);
    c->release();
    EXPECT_TRUE(o->isKindOfClass_(NSObject::classObject()));
    EXPECT_FALSE(o->isKindOfClass_(NSString::classObject()));
    EXPECT_TRUE("a"_ns->isKindOfClass_(NSString::classObject()));
    EXPECT_FALSE("a"_ns->isMemberOfClass_(NSString::classObject()));
}

TEST_F(ObjectTest, ConstantStringsAndTheNullIgnoreCounting) {
    NSString* s = "constant"_ns;
    s->retain();
    s->release();
    s->release();
    s->autorelease();
    EXPECT_EQ(s->retainCount(), 1u);
    EXPECT_EQ(s, "constant"_ns);
    NSNull* null = NSNull::null();
    null->release();
    null->release();
    EXPECT_EQ(null, NSNull::null());
    EXPECT_STREQ(null->description()->UTF8String(), "<NSNull>");
}

TEST_F(ObjectTest, EveryFoundationClassIsFoundByName) {
    for (const char* name : {"NSObject",
                             "NSString",
                             "NSConstantString",
                             "NSMutableString",
                             "NSArray",
                             "NSMutableArray",
                             "NSEnumerator",
                             "NSDictionary",
                             "NSMutableDictionary",
                             "NSNull",
                             "NSValue",
                             "NSNumber",
                             "NSAutoreleasePool",
                             "NSThread",
                             "NSException",
                             "NSInvalidArgumentException",
                             "NSRangeException",
                             "NSMethodSignature",
                             "NSInvocation",
                             "NSZone",
                             "NSCharacterSet",
                             "NSMutableCharacterSet",
                             "NSScanner",
                             "NSData",
                             "NSMutableData",
                             "NSDate",
                             "NSSet",
                             "NSMutableSet",
                             "NSCountedSet",
                             "NSIndexSet",
                             "NSMutableIndexSet",
                             "NSSortDescriptor",
                             "NSLock",
                             "NSRecursiveLock",
                             "NSNotification",
                             "NSTableViewSelectionDidChangeNotification",
                             "NSWindowDidBecomeKeyNotification",
                             "NSWindowDidResizeNotification",
                             "NSNotificationCenter",
                             "NSTimer",
                             "NSTask",
                             "NSFileManager",
                             "NSFileHandle",
                             "NSError",
                             "CMEach",
                             "CMCollect",
                             "CMAfterDelay",
                             "CMInNewThread",
                             "CMContinuation"}) {
        Class cls = NSClassFromCString(name);
        ASSERT_NE(cls, nullptr) << name;
        EXPECT_STREQ(cls->name(), name);
    }
}

#if !defined(_WIN32)
TEST(ObjectPoolTest, WithoutAPoolAnAutoreleaseLogsAndLeaks) {
    ChildResult r = runChild([] {
        deallocCount = 0;
        Probe* p = Probe::alloc();
        p->retain()->autorelease();
        p->autorelease();
        std::printf("%u %d\n", p->retainCount(), deallocCount);
    });
    EXPECT_EQ(r.out,
              "########## no autorelease pool -- leaking\n"
              "########## no autorelease pool -- leaking\n"
              "2 0\n");
}

TEST(ObjectFatalTest, RaiseLogsAndEndsWithStatusOne) {
    ChildResult r = runChild([] {
        NSException::raise_format_(NSRangeException::classObject(), "Range"_ns,
                                   "index %d beyond"_ns);
    });
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out,
              "an exception has been thrown outside of a during-block thus it cannot be caught: "
              "Range, index %d beyond (NSRangeException)\n");
}

TEST(ObjectFatalTest, AClassThatDoesNotKnowAMessageEndsTheProcess) {
    ChildResult r = runChild(
            [] { NSSendClass<NSObject*>(Probe::classObject(), NS_SEL("noSuchClassOperation")); });
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "error: Probe (class)\nProbe does not recognize noSuchClassOperation\n");
}

TEST(ObjectFatalTest, ANilSelectorEndsTheProcess) {
    ChildResult r = runChild([] {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        NSAutorelease(Probe::alloc())->performSelector_withObject_(nullptr, nullptr);
        pool->release();
    });
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err,
              "error: Probe (instance)\ninvalid selector passed to performSelector:withObject:\n");
}

TEST(ObjectFatalTest, DoesNotRecognizeSelectorWritesWithoutNewline) {
    ChildResult r = runChild([] { NSObject::alloc()->doesNotRecognize_(NS_SEL("x")); });
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "selector not recognized");
}
#endif

}  // namespace
