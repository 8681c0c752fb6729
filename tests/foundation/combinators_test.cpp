// Message combinators: what each does with a caught message, what the
// sender gets back, and how long what they hold lives. Built natively and
// as a Winelib program (CMInNewThread's thread is a Win32 thread there).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>

#include "foundation/CMAfterDelay.h"
#include "foundation/CMCollect.h"
#include "foundation/CMContinuation.h"
#include "foundation/CMEach.h"
#include "foundation/CMInNewThread.h"
#include "foundation/NSArray.h"
#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSLock.h"
#include "foundation/NSString.h"
#include "foundation/NSThread.h"
#include "foundation/NSValue.h"
#include "foundation/platform/Platform.h"
#include "tests/support/TestSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

using vt_test::waitUntil;

std::string text(NSObject* s) { return s ? static_cast<NSString*>(s)->UTF8String() : "(nil)"; }

std::string journal;  // what the elements were sent, in order
std::atomic<int> elementsDeallocated{0};

// An element that records every message it gets.
class Element : public NSObject {
    NS_DECLARE_CLASS(Element, NSObject)

public:
    static Element* named(const char* name) {
        Element* e = Element::alloc();
        e->name = name;
        return NSAutorelease(e);
    }
    void ping() {
        journal += name + ";";
        calls++;
    }
    NSString* tagWith_and_(NSString* a, NSString* b) {
        journal += name + "(" + text(a) + "," + text(b) + ");";
        return NSString::stringWithFormat_("%s-%s", name.c_str(), a ? a->UTF8String() : "");
    }
    NSObject* nothing() { return nullptr; }
    int add_to_(int a, int b) {
        callerId = vtCurrentThreadId();
        return a + b;
    }
    NSString* description() override {
        descriptions++;
        return NSObject::description();
    }
    NSObject* remember_(NSObject* argument) {
        remembered.set(argument);
        calls++;
        return this;
    }
    NSObject* remember_and_(NSObject* first, NSObject* second) {
        remembered.set(first);
        rememberedSecond.set(second);
        calls++;
        return this;
    }
    // Runs on a CMInNewThread's thread: waits for the test to open the
    // gate, so that the caller's pool has ended before the message runs.
    void slowAdd_to_(int a, int b) {
        while (!gate) vtSleepMilliseconds(1);
        onDetachedThread = NSThread::currentThread()->threadId() != nullptr;
        threadSum = a + b;
        fired++;
    }
    void dealloc() override {
        elementsDeallocated++;
        NSObject::dealloc();
    }

    std::string name;
    int calls = 0;
    int descriptions = 0;
    uint64_t callerId = 0;
    Ref<NSObject> remembered;
    Ref<NSObject> rememberedSecond;
    std::atomic<bool> gate{false};
    std::atomic<bool> onDetachedThread{false};
    std::atomic<int> threadSum{0};
    std::atomic<int> fired{0};
};

NS_CLASS_BEGIN(Element, NSObject)
    NS_METHOD(ping)
    NS_METHOD(tagWith_and_)
    NS_METHOD(nothing)
    NS_METHOD(add_to_)
    NS_METHOD(description)
    NS_METHOD(remember_)
    NS_METHOD(remember_and_)
    NS_METHOD(slowAdd_to_)
NS_CLASS_END(Element)

class CombinatorsTest : public testing::Test {
protected:
    void SetUp() override {
        pool_ = NSAutoreleasePool::alloc()->init();
        journal.clear();
    }
    void TearDown() override {
        EXPECT_TRUE(waitUntil([] { return NSThread::registeredThreadCount() == 0; }));
        pool_->release();
    }
    NSAutoreleasePool* pool_ = nullptr;
};

TEST_F(CombinatorsTest, EachSendsTheSameMessageToEveryElementInOrderAndAnswersNil) {
    NSArray* elements = NSArray::arrayWithObjects_(Element::named("x"), Element::named("y"),
                                                   Element::named("z"), nullptr);
    NSObject* result = NSSend(elements->each(), NS_SEL("tagWith:and:"), "1"_ns, "2"_ns);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(journal, "x(1,2);y(1,2);z(1,2);") << "one frame, reused unchanged";

    journal.clear();
    EXPECT_EQ(NSSend(NSMutableArray::array()->each(), NS_SEL("ping")), nullptr);
    EXPECT_EQ(journal, "") << "an empty array is sent nothing";
}

TEST_F(CombinatorsTest, EnumerationEndsAtANilElementAsTheArraysEnumeratorDoes) {
    NSMutableArray* elements = NSMutableArray::array();
    elements->addObject_(Element::named("a"));
    elements->addObject_(nullptr);
    elements->addObject_(Element::named("c"));
    NSSend(elements->each(), NS_SEL("ping"));
    EXPECT_EQ(journal, "a;");
    auto* results = NSSend<NSMutableArray*>(elements->collect(), NS_SEL("tagWith:and:"), "p"_ns,
                                            static_cast<NSString*>(nullptr));
    EXPECT_EQ(results->count(), 1u);
}

TEST_F(CombinatorsTest, CollectGathersEachResultInPlaceNilIncluded) {
    NSArray* words =
            NSArray::arrayWithObjects_(" alpha"_ns, "beta  "_ns, " gamma "_ns, "delta"_ns, nullptr);
    auto* trimmed = NSSend<NSMutableArray*>(words->collect(), NS_SEL("trim"));
    ASSERT_NE(trimmed, nullptr);
    ASSERT_EQ(trimmed->count(), 4u);
    EXPECT_EQ(text(trimmed->objectAtIndex_(0)), "alpha");
    EXPECT_EQ(text(trimmed->objectAtIndex_(1)), "beta");
    EXPECT_EQ(text(trimmed->objectAtIndex_(2)), "gamma");
    EXPECT_EQ(text(trimmed->objectAtIndex_(3)), "delta");

    NSArray* elements =
            NSArray::arrayWithObjects_(Element::named("m"), Element::named("n"), nullptr);
    auto* nils = NSSend<NSMutableArray*>(elements->collect(), NS_SEL("nothing"));
    ASSERT_EQ(nils->count(), 2u) << "a nil result keeps its place";
    EXPECT_EQ(nils->objectAtIndex_(0), nullptr);
    EXPECT_EQ(nils->objectAtIndex_(1), nullptr);

    auto* empty = NSSend<NSMutableArray*>(NSMutableArray::array()->collect(), NS_SEL("trim"));
    ASSERT_NE(empty, nullptr) << "an empty array, not nil";
    EXPECT_EQ(empty->count(), 0u);
}

TEST_F(CombinatorsTest, TheObjectCoreActsOnTheCombinatorItself) {
    Element* element = Element::named("e");
    NSArray* elements = NSArray::arrayWithObjects_(element, nullptr);
    CMEach* each = elements->each();
    NSObject* description = NSSend(each, NS_SEL("description"));
    EXPECT_EQ(text(description), "object:" + std::to_string(reinterpret_cast<intptr_t>(each)));
    EXPECT_EQ(element->descriptions, 0);
    EXPECT_FALSE(each->respondsToSelector_(NS_SEL("ping"))) << "forwarding doesn't count";
    EXPECT_TRUE(element->respondsToSelector_(NS_SEL("ping")));
    EXPECT_EQ(NSSend(each, NS_SEL("isEqual:"), each), reinterpret_cast<NSObject*>(1));
    EXPECT_EQ(journal, "");
}

TEST_F(CombinatorsTest, EachAndCollectKeepTheirContainerAlive) {
    NSMutableArray* elements = NSMutableArray::alloc()->initWithCapacity_(2);
    elements->addObject_(Element::named("k"));
    CMCollect* collect = CMCollect::alloc()->initWithContainer_(elements);
    CMEach* each = CMEach::alloc()->initWithContainer_(elements);
    elements->release();  // the combinators are its owners now
    NSSend(each, NS_SEL("ping"));
    EXPECT_EQ(NSSend<NSMutableArray*>(collect, NS_SEL("nothing"))->count(), 1u);
    EXPECT_EQ(journal, "k;");
    each->release();
    collect->release();
}

TEST_F(CombinatorsTest, ContinuationKeepsAMessageAndSendsItAtEveryCall) {
    Element* element = Element::named("t");
    CMContinuation* continuation = element->continuation();
    NSObject* kept = NSSend(continuation, NS_SEL("ping"));
    EXPECT_EQ(kept, continuation) << "the message can be written in line";
    EXPECT_EQ(element->calls, 0) << "nothing is sent yet";
    continuation->call();
    continuation->call();
    EXPECT_EQ(element->calls, 2) << "nothing is used up";
    EXPECT_EQ(continuation->valueForKey_("arg1"_ns), nullptr);

    // call: on a message without arguments fills arg1.
    NSString* first = "first"_ns;
    continuation->call_(first);
    EXPECT_EQ(continuation->valueForKey_("arg1"_ns), first);
    EXPECT_EQ(continuation->valueForKey_("arg2"_ns), nullptr);
    EXPECT_EQ(element->calls, 3);
}

TEST_F(CombinatorsTest, ContinuationCopiesItsArgumentsAndCallAddsTheSecond) {
    Element* element = Element::named("t");
    CMContinuation* continuation = element->continuation();
    NSMutableString* argument = NSMutableString::stringWithUTF8String_("before");
    NSSend(continuation, NS_SEL("remember:and:"), argument, static_cast<NSObject*>(nullptr));
    argument->appendString_("-changed"_ns);
    NSObject* result = continuation->call();
    EXPECT_EQ(result, element) << "call gives the target's result";
    EXPECT_EQ(text(element->remembered), "before") << "a copy was kept, not the mutable original";
    EXPECT_NE(element->remembered.get(), argument);

    NSString* extra = "extra"_ns;
    continuation->call_(extra);
    EXPECT_EQ(text(element->remembered), "before");
    EXPECT_EQ(element->rememberedSecond.get(), extra) << "arg1 is taken: call: fills arg2";
    NSString* other = "other"_ns;
    continuation->call_(other);
    EXPECT_EQ(element->rememberedSecond.get(), other) << "and replaces it";
}

TEST_F(CombinatorsTest, ContinuationKeepsOnlyAsManyArgumentsAsTheOperationTakes) {
    Element* element = Element::named("t");
    CMContinuation* continuation = element->continuation();
    NSSend(continuation, NS_SEL("remember:"), "one"_ns);
    EXPECT_EQ(text(continuation->valueForKey_("arg1"_ns)), "one");
    EXPECT_EQ(continuation->valueForKey_("arg2"_ns), nullptr);

    // A second message replaces the first, arguments and all.
    NSSend(continuation, NS_SEL("ping"));
    EXPECT_EQ(continuation->valueForKey_("arg1"_ns), nullptr);
    continuation->call();
    EXPECT_EQ(element->calls, 1);
    EXPECT_EQ(element->remembered.get(), nullptr) << "remember: was replaced before any call";
    EXPECT_EQ(text(continuation->valueForKey_("selector"_ns)), "ping");
}

TEST_F(CombinatorsTest, ContinuationWithoutAMessageCallsNothing) {
    Element* element = Element::named("t");
    CMContinuation* continuation = element->continuation();
    EXPECT_EQ(continuation->call(), nullptr);
    EXPECT_EQ(element->calls, 0);
}

TEST_F(CombinatorsTest, ContinuationKeepsItsTargetAlive) {
    int before = elementsDeallocated;
    Element* element = Element::alloc();
    CMContinuation* continuation = CMContinuation::alloc()->initWithTarget_(element);
    NSSend(continuation, NS_SEL("ping"));
    element->release();  // the continuation is the last owner
    EXPECT_EQ(elementsDeallocated - before, 0);
    continuation->call();
    EXPECT_EQ(element->calls, 1);
    continuation->release();
    EXPECT_EQ(elementsDeallocated - before, 1);
}

TEST_F(CombinatorsTest, AfterDelaySendsOnTheCallingThreadAndAnswersTheResult) {
    Element* element = Element::named("d");
    EXPECT_EQ(NSSend<int>(element->afterDelay_(0), NS_SEL("add:to:"), 2, 40), 42);
    EXPECT_EQ(element->callerId, vtCurrentThreadId());

    auto start = Clock::now();
    EXPECT_EQ(NSSend<int>(element->afterDelay_(0.03), NS_SEL("add:to:"), 1, 1), 2);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30)) << "the caller waits";
}

TEST_F(CombinatorsTest, InNewThreadAnswersAtOnceAndOutlivesTheCallersPool) {
    int before = elementsDeallocated;
    Element* element = Element::alloc();
    NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
    CMInNewThread* combinator = element->inNewThread();
    NSObject* result = NSSend(combinator, NS_SEL("slowAdd:to:"), 20, 22);
    inner->release();  // the combinator was autoreleased here; its frame is gone
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(element->fired.load(), 0) << "the caller doesn't wait";
    element->release();  // the combinator keeps the object alive
    EXPECT_EQ(elementsDeallocated - before, 0);
    element->gate = true;
    ASSERT_TRUE(waitUntil([&] { return elementsDeallocated - before == 1; }))
            << "the object goes with the combinator once fire is over";
}

// The same message shape, observed once it has run.
class Adder : public NSObject {
    NS_DECLARE_CLASS(Adder, NSObject)

public:
    void add_to_(int a, int b) {
        sum += a + b;
        onDetachedThread = onDetachedThread && NSThread::currentThread()->threadId() != nullptr;
        calls++;
    }
    std::atomic<int> sum{0};
    std::atomic<int> calls{0};
    std::atomic<bool> onDetachedThread{true};
};

NS_CLASS_BEGIN(Adder, NSObject)
    NS_METHOD(add_to_)
NS_CLASS_END(Adder)

TEST_F(CombinatorsTest, InNewThreadRunsEveryMessageOnARegisteredThreadWithItsOwnArguments) {
    Adder* adder = Adder::alloc();
    // The first lookup in a class, made here rather than by two threads at
    // once: the runtime would build its method table twice and lose one.
    ASSERT_TRUE(adder->respondsToSelector_(NS_SEL("add:to:")));
    CMInNewThread* combinator = adder->inNewThread();
    NSSend(combinator, NS_SEL("add:to:"), 1, 2);
    NSSend(combinator, NS_SEL("add:to:"), 30, 40);  // a second message to the same combinator
    ASSERT_TRUE(waitUntil([&] { return adder->calls == 2; }));
    EXPECT_EQ(adder->sum.load(), 73);
    EXPECT_TRUE(adder->onDetachedThread);
    EXPECT_TRUE(waitUntil([] { return NSThread::registeredThreadCount() == 0; }));
    adder->release();
}

TEST_F(CombinatorsTest, CombinatorsAreFoundByName) {
    for (const char* name :
         {"CMEach", "CMCollect", "CMAfterDelay", "CMInNewThread", "CMContinuation", "NSLock",
          "NSRecursiveLock", "NSNotification", "NSNotificationCenter", "NSTimer", "NSTask",
          "NSFileManager", "NSFileHandle", "NSError"}) {
        EXPECT_NE(NSClassFromCString(name), nullptr) << name;
    }
    EXPECT_TRUE(NSArray::classObject()->instancesRespondToSelector_(NS_SEL("each")));
    EXPECT_TRUE(NSArray::classObject()->instancesRespondToSelector_(NS_SEL("collect")));
    EXPECT_TRUE(NSObject::classObject()->instancesRespondToSelector_(NS_SEL("afterDelay:")));
    EXPECT_TRUE(NSObject::classObject()->instancesRespondToSelector_(NS_SEL("inNewThread")));
    EXPECT_TRUE(NSObject::classObject()->instancesRespondToSelector_(NS_SEL("continuation")));
}

}  // namespace
