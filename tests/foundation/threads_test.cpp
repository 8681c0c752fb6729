// Threads and the thread table, pools on detached threads, locks,
// notifications, timers, and the thin platform classes (tasks, files).
// Built twice: natively (POSIX threads) and as a Winelib program whose
// threads are Win32 threads (VANTOR_TEST_WIN32).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "foundation/NSArray.h"
#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSData.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSFileHandle.h"
#include "foundation/NSFileManager.h"
#include "foundation/NSInvocation.h"
#include "foundation/NSLock.h"
#include "foundation/NSNotification.h"
#include "foundation/NSNotificationCenter.h"
#include "foundation/NSNull.h"
#include "foundation/NSString.h"
#include "foundation/NSTask.h"
#include "foundation/NSThread.h"
#include "foundation/NSTimer.h"
#include "foundation/NSValue.h"
#include "foundation/platform/Platform.h"
#include "tests/support/TestSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

using vt_test::waitUntil;

bool waitForThreadsToEnd() {
    return waitUntil([] { return NSThread::registeredThreadCount() == 0; });
}

std::string idText() { return std::to_string(static_cast<long>(vtCurrentThreadId())); }

std::string text(NSString* s) { return s ? s->UTF8String() : "(nil)"; }

std::atomic<int> probesAlive{0};
std::atomic<int> probesDeallocated{0};

// Counts its instances; its dealloc may autorelease, as real deallocs do.
class ThreadProbe : public NSObject {
    NS_DECLARE_CLASS(ThreadProbe, NSObject)

public:
    ThreadProbe() { probesAlive++; }
    void dealloc() override {
        if (onDealloc) onDealloc(this);
        probesAlive--;
        probesDeallocated++;
        NSObject::dealloc();
    }
    void (*onDealloc)(ThreadProbe*) = nullptr;
};

NS_CLASS_BEGIN(ThreadProbe, NSObject)
NS_CLASS_END(ThreadProbe)

// The target of detached threads: each operation records what its thread
// saw, for the main thread to check once the thread has ended.
class Worker : public NSObject {
    NS_DECLARE_CLASS(Worker, NSObject)

public:
    void inspect_(NSObject* argument) {
        NSThread* thread = NSThread::currentThread();
        sawArgument = argument;
        sawThread = thread;
        sawDefault = thread->threadId() == nullptr;
        sawId = text(thread->threadId());
        ownId = idText();
        NSMutableArray* keys = thread->threadDictionary()->allKeys();
        keyCount = keys->count();
        hasPoolKeys =
                thread->threadDictionary()->objectForKey_("__autorelease_pools"_ns) != nullptr &&
                thread->threadDictionary()->objectForKey_("__autorelease_pool_index"_ns) != nullptr;
        tableCountDuringRun = NSThread::registeredThreadCount();
        done = true;
    }

    // Autoreleases a probe that records, in its dealloc, whether the
    // target had returned by then and on which thread it died.
    void autoreleaseProbe_(NSObject*) {
        ThreadProbe* probe = ThreadProbe::alloc();
        probe->onDealloc = [](ThreadProbe*) {
            current->probeDiedAfterReturn = current->returned.load();
            current->probeDiedOnThread = idText();
            // Autoreleasing during the pool's end joins the same pass.
            NSString::stringWithFormat_("%d", 42);
        };
        NSAutorelease(probe);
        runnerId = idText();
        returned = true;
    }

    // Autoreleases 10,000 objects in nested pools.
    void churn_(NSObject*) {
        for (int outer = 0; outer < 100; outer++) {
            NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
            for (int inner = 0; inner < 10; inner++) {
                NSAutoreleasePool* nested = NSAutoreleasePool::alloc()->init();
                for (int k = 0; k < 9; k++) NSAutorelease(ThreadProbe::alloc());
                nested->release();
            }
            for (int k = 0; k < 10; k++) NSAutorelease(ThreadProbe::alloc());
            pool->release();
        }
        finished++;
    }

    void checkRegistered_(NSObject*) {
        NSThread* thread = NSThread::currentThread();
        if (!thread->threadId() || text(thread->threadId()) != idText()) mismatches++;
        finished++;
    }

    void priorities_(NSObject*) {
        initialPriority = NSThread::threadPriority();
        for (int i = 0; i < kSteps; i++) {
            accepted[i] = NSThread::setThreadPriority_(requested[i]);
            readBack[i] = NSThread::threadPriority();
        }
        done = true;
    }

    static Worker* current;
    NSObject* sawArgument = nullptr;
    NSThread* sawThread = nullptr;
    bool sawDefault = true;
    std::string sawId, ownId, runnerId, probeDiedOnThread;
    uint32_t keyCount = 0;
    bool hasPoolKeys = false;
    uint32_t tableCountDuringRun = 0;
    std::atomic<bool> done{false};
    std::atomic<bool> returned{false};
    bool probeDiedAfterReturn = false;
    std::atomic<int> finished{0};
    std::atomic<int> mismatches{0};

    static constexpr int kSteps = 8;
    // Lowest first and highest last: each step is one band of the table.
    double requested[kSteps] = {0.0, 0.09, 0.1, 0.34, 0.35, 0.64, 0.65, 0.9};
    bool accepted[kSteps] = {};
    double readBack[kSteps] = {};
    double initialPriority = -2;
};

Worker* Worker::current = nullptr;

NS_CLASS_BEGIN(Worker, NSObject)
    NS_METHOD(inspect_)
    NS_METHOD(autoreleaseProbe_)
    NS_METHOD(churn_)
    NS_METHOD(checkRegistered_)
    NS_METHOD(priorities_)
NS_CLASS_END(Worker)

class ThreadsTest : public testing::Test {
protected:
    void SetUp() override {
        pool_ = NSAutoreleasePool::alloc()->init();
        // The first lookup in a class, made here rather than by several
        // threads at once: the runtime would build its method table more
        // than once and lose the extra copies.
        Worker::classObject()->lookupMethod(NS_SEL("churn:"));
    }
    void TearDown() override {
        EXPECT_TRUE(waitForThreadsToEnd()) << "a detached thread outlived its test";
        pool_->release();
    }
    NSAutoreleasePool* pool_ = nullptr;
};

// Read before main(), when nothing can have detached a thread yet.
const bool multiThreadedAtStart = NSThread::isMultiThreaded();

TEST_F(ThreadsTest, MainThreadIsTheDefaultThreadAndMultiThreadingStartsAtTheFirstDetach) {
    EXPECT_FALSE(multiThreadedAtStart);
    NSThread* main = NSThread::currentThread();
    EXPECT_EQ(main, NSThread::currentThread());
    EXPECT_EQ(main->threadId(), nullptr);
    EXPECT_EQ(NSThread::registeredThreadCount(), 0u) << "the main thread is never registered";

    Worker* worker = Worker::alloc();
    NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("inspect:"), worker, nullptr);
    EXPECT_TRUE(NSThread::isMultiThreaded());
    ASSERT_TRUE(waitForThreadsToEnd());
    EXPECT_TRUE(NSThread::isMultiThreaded()) << "the flag is never cleared";
    EXPECT_EQ(NSThread::currentThread(), main);
    worker->release();
}

TEST_F(ThreadsTest, DetachedThreadIsRegisteredUnderItsIdWithAFreshDictionary) {
    Worker* worker = Worker::alloc();
    NSString* argument = NSString::stringWithUTF8String_("argument");
    NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("inspect:"), worker, argument);
    ASSERT_TRUE(waitUntil([&] { return worker->done.load(); }));
    ASSERT_TRUE(waitForThreadsToEnd());

    EXPECT_EQ(worker->sawArgument, argument);
    EXPECT_FALSE(worker->sawDefault);
    EXPECT_EQ(worker->sawId, worker->ownId) << "the key is the platform id as %ld";
    EXPECT_NE(worker->sawThread, NSThread::currentThread());
    EXPECT_EQ(worker->keyCount, 2u) << "only the two pool keys";
    EXPECT_TRUE(worker->hasPoolKeys);
    EXPECT_EQ(worker->tableCountDuringRun, 1u);
    EXPECT_EQ(NSThread::registeredThreadCount(), 0u);
    worker->release();
}

TEST_F(ThreadsTest, EveryThreadFindsItsOwnEntryEvenWhenStartedInABurst) {
    Worker* worker = Worker::alloc();
    const int kThreads = 40;
    for (int i = 0; i < kThreads; i++) {
        NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("checkRegistered:"), worker,
                                                               nullptr);
    }
    ASSERT_TRUE(waitForThreadsToEnd());
    EXPECT_EQ(worker->finished.load(), kThreads);
    EXPECT_EQ(worker->mismatches.load(), 0);
    worker->release();
}

TEST_F(ThreadsTest, AnObjectAutoreleasedOnADetachedThreadDiesWhenTheThreadEnds) {
    Worker* worker = Worker::alloc();
    Worker::current = worker;
    int before = probesDeallocated;
    NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("autoreleaseProbe:"), worker,
                                                           nullptr);
    ASSERT_TRUE(waitForThreadsToEnd());
    EXPECT_EQ(probesDeallocated - before, 1);
    EXPECT_TRUE(worker->probeDiedAfterReturn) << "the pool ends after the target returned";
    EXPECT_EQ(worker->probeDiedOnThread, worker->runnerId) << "and on the thread itself";
    Worker::current = nullptr;
    worker->release();
}

TEST_F(ThreadsTest, EightThreadsChurningNestedPoolsLeaveNothingBehind) {
    Worker* worker = Worker::alloc();
    int aliveBefore = probesAlive;
    int before = probesDeallocated;
    for (int i = 0; i < 8; i++) {
        NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("churn:"), worker, nullptr);
    }
    ASSERT_TRUE(waitForThreadsToEnd());
    EXPECT_EQ(worker->finished.load(), 8);
    EXPECT_EQ(probesDeallocated - before, 8 * 10000);
    EXPECT_EQ(probesAlive.load(), aliveBefore);
    EXPECT_EQ(NSThread::registeredThreadCount(), 0u);
    worker->release();
}

TEST_F(ThreadsTest, PriorityMappingRoundTripsOnADetachedThread) {
    Worker* worker = Worker::alloc();
    NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("priorities:"), worker, nullptr);
    ASSERT_TRUE(waitForThreadsToEnd());
#ifdef VANTOR_TEST_WIN32
    EXPECT_EQ(worker->initialPriority, 0.5) << "a new thread starts at normal priority";
#else
    // A POSIX thread inherits the nice value of the process, which the
    // test doesn't choose; every nice value lies in one band of the table.
    EXPECT_NE(worker->initialPriority, -1.0);
#endif
    const double expected[Worker::kSteps] = {0.0, 0.0, 0.25, 0.25, 0.5, 0.5, 0.75, 1.0};
    for (int i = 0; i < Worker::kSteps; i++) {
        // Raising a thread's priority again needs a privilege that a POSIX
        // test may lack; the mapping is checked wherever it was accepted.
        if (!worker->accepted[i]) continue;
        EXPECT_EQ(worker->readBack[i], expected[i]) << "requested " << worker->requested[i];
    }
    EXPECT_TRUE(worker->accepted[0]) << "lowering is always allowed";
    worker->release();
}

// A date stand-in: sleepUntilDate: only asks timeIntervalSinceNow.
class FakeDate : public NSObject {
    NS_DECLARE_CLASS(FakeDate, NSObject)

public:
    double timeIntervalSinceNow() { return interval; }
    double interval = 0;
};

NS_CLASS_BEGIN(FakeDate, NSObject)
    NS_METHOD(timeIntervalSinceNow)
NS_CLASS_END(FakeDate)

TEST_F(ThreadsTest, SleepingTruncatesToMillisecondsAndNeverSleepsForThePast) {
    auto start = Clock::now();
    NSThread::sleepForTimeInterval_(0.0309);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));

    // None of these may hang: 0, below a millisecond, negative, a past date.
    NSThread::sleepForTimeInterval_(0);
    NSThread::sleepForTimeInterval_(0.0004);
    NSThread::sleepForTimeInterval_(-1e9);
    FakeDate* past = FakeDate::alloc();
    past->interval = -3600;
    NSThread::sleepUntilDate_(past);
    NSThread::sleepUntilDate_(nullptr);

    FakeDate* soon = FakeDate::alloc();
    soon->interval = 0.02;
    start = Clock::now();
    NSThread::sleepUntilDate_(soon);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(20));
    past->release();
    soon->release();
}

// ---------------------------------------------------------------------------
// Locks.

class LockUser : public NSObject {
    NS_DECLARE_CLASS(LockUser, NSObject)

public:
    void tryOnce_(NSObject* lock) {
        triedResult = static_cast<NSLock*>(lock)->tryLock();
        if (triedResult) static_cast<NSLock*>(lock)->unlock();
        tried = true;
    }
    void lockAndRecord_(NSObject* lock) {
        static_cast<NSLock*>(lock)->lock();
        acquired = true;
        static_cast<NSLock*>(lock)->unlock();
    }
    std::atomic<bool> tried{false};
    std::atomic<bool> triedResult{false};
    std::atomic<bool> acquired{false};
};

NS_CLASS_BEGIN(LockUser, NSObject)
    NS_METHOD(tryOnce_)
    NS_METHOD(lockAndRecord_)
NS_CLASS_END(LockUser)

TEST_F(ThreadsTest, LockIsReentrantForItsHolderAndLockedIsOnlyAHint) {
    NSLock* lock = NSLock::alloc()->init();
    EXPECT_FALSE(lock->isLocked());
    lock->lock();
    lock->lock();  // must not block
    EXPECT_TRUE(lock->isLocked());
    lock->unlock();
    EXPECT_FALSE(lock->isLocked()) << "the first unlock clears the hint";

    // Still held once: another thread's tryLock fails at once.
    LockUser* user = LockUser::alloc();
    NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("tryOnce:"), user, lock);
    ASSERT_TRUE(waitForThreadsToEnd());
    EXPECT_TRUE(user->tried);
    EXPECT_FALSE(user->triedResult);

    lock->unlock();
    user->tried = false;
    NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("tryOnce:"), user, lock);
    ASSERT_TRUE(waitForThreadsToEnd());
    EXPECT_TRUE(user->tried);
    EXPECT_TRUE(user->triedResult) << "free after as many unlocks as locks";

    EXPECT_TRUE(lock->tryLock());
    EXPECT_TRUE(lock->tryLock()) << "tryLock re-enters too";
    lock->unlock();
    lock->unlock();
    lock->release();
    user->release();
}

TEST_F(ThreadsTest, RecursiveLockIsFreeForOthersOnlyWhenItsCountIsBackAtZero) {
    NSRecursiveLock* lock = NSRecursiveLock::alloc()->initWithName_("table"_ns);
    EXPECT_EQ(text(lock->name()), "table");
    lock->lock();
    lock->lock();
    EXPECT_EQ(lock->count(), 2);

    LockUser* user = LockUser::alloc();
    NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("lockAndRecord:"), user, lock);
    lock->unlock();
    EXPECT_EQ(lock->count(), 1);
    vtSleepMilliseconds(50);
    EXPECT_FALSE(user->acquired) << "one level is still held";
    lock->unlock();
    EXPECT_TRUE(waitUntil([&] { return user->acquired.load(); }));
    ASSERT_TRUE(waitForThreadsToEnd());
    EXPECT_EQ(lock->count(), 0);

    lock->unlock();  // an unlock too many is ignored
    EXPECT_EQ(lock->count(), 0);

    bool got = false;
    EXPECT_EQ(vt_test::logOf([&] { got = lock->tryLock(); }), "unsupported tryLock\n");
    EXPECT_FALSE(got);
    lock->release();
    user->release();
}

// ---------------------------------------------------------------------------
// Notifications.

// A notification class of the tests' own: its name is its class.
class VTTestDidHappenNotification : public NSNotification {
    NS_DECLARE_CLASS(VTTestDidHappenNotification, NSNotification)
};

NS_CLASS_BEGIN(VTTestDidHappenNotification, NSNotification)
NS_CLASS_END(VTTestDidHappenNotification)

std::string deliveries;

class Observer : public NSObject {
    NS_DECLARE_CLASS(Observer, NSObject)

public:
    void observe_(NSNotification* notification) {
        last.set(notification);
        count++;
        deliveries += tag;
    }
    std::string tag;
    int count = 0;
    Ref<NSNotification> last;
};

NS_CLASS_BEGIN(Observer, NSObject)
    NS_METHOD(observe_)
NS_CLASS_END(Observer)

class NotificationTest : public ThreadsTest {
protected:
    void SetUp() override {
        ThreadsTest::SetUp();
        center_ = NSNotificationCenter::alloc()->init();
        a_ = Observer::alloc();
        a_->tag = "a";
        b_ = Observer::alloc();
        b_->tag = "b";
        deliveries.clear();
    }
    void TearDown() override {
        // Released before the observers: the center's entries hold them.
        center_->release();
        a_->release();
        b_->release();
        ThreadsTest::TearDown();
    }
    NSNotificationCenter* center_ = nullptr;
    Observer* a_ = nullptr;
    Observer* b_ = nullptr;
};

TEST_F(NotificationTest, APostWithoutObserversDoesNothing) {
    center_->addObserver_selector_name_object_(a_, NS_SEL("observe:"),
                                               "VTTestDidHappenNotification"_ns, nullptr);
    center_->postNotificationName_object_("NoSuchClassAtAll"_ns, nullptr);
    center_->postNotificationName_object_("NSWindowDidResizeNotification"_ns, a_);
    center_->postNotificationName_object_(nullptr, nullptr);
    EXPECT_EQ(a_->count, 0);
}

TEST_F(NotificationTest, ObserversAreCalledInOrderOfRegistrationEachWithItsOwnNotification) {
    NSString* name = "VTTestDidHappenNotification"_ns;
    center_->addObserver_selector_name_object_(b_, NS_SEL("observe:"), name, nullptr);
    center_->addObserver_selector_name_object_(a_, NS_SEL("observe:"), name, nullptr);
    center_->addObserver_selector_name_object_(b_, NS_SEL("observe:"), name,
                                               nullptr);  // no duplicate check
    NSString* object = NSString::stringWithUTF8String_("sender");
    center_->postNotificationName_object_(name, object);
    EXPECT_EQ(deliveries, "bab");
    ASSERT_NE(a_->last.get(), nullptr);
    EXPECT_NE(a_->last.get(), b_->last.get()) << "each observer gets a notification of its own";
    EXPECT_EQ(a_->last->class_(), VTTestDidHappenNotification::classObject());
    EXPECT_EQ(text(a_->last->name()), "VTTestDidHappenNotification");
    EXPECT_EQ(a_->last->object(), object);
}

TEST_F(NotificationTest, AnObserverWithAnObjectGetsOnlyPostsOfAnEqualObject) {
    NSString* name = "NSTableViewSelectionDidChangeNotification"_ns;
    NSString* table = NSString::stringWithUTF8String_("table 1");
    center_->addObserver_selector_name_object_(a_, NS_SEL("observe:"), name, nullptr);
    center_->addObserver_selector_name_object_(b_, NS_SEL("observe:"), name, table);
    center_->postNotificationName_object_(
            name, NSString::stringWithUTF8String_("table 1"));  // equal, not same
    center_->postNotificationName_object_(name, "table 2"_ns);
    center_->postNotificationName_object_(name, nullptr);
    EXPECT_EQ(deliveries, "abaa");
    EXPECT_EQ(a_->count, 3);
    EXPECT_EQ(b_->count, 1);
    EXPECT_EQ(b_->last->class_(), NSTableViewSelectionDidChangeNotification::classObject());
    EXPECT_EQ(a_->last->object(), nullptr);
}

TEST_F(NotificationTest, ANameThatNoClassBearsReachesTheObserverAsNil) {
    // A posted name with observers is expected to name a class; without one the nil class makes a
    // nil notification, and the observer is still called.
    center_->addObserver_selector_name_object_(a_, NS_SEL("observe:"), "VTNoSuchNotification"_ns,
                                               nullptr);
    center_->postNotificationName_object_("VTNoSuchNotification"_ns, nullptr);
    EXPECT_EQ(a_->count, 1);
    EXPECT_EQ(a_->last.get(), nullptr);
}

TEST_F(NotificationTest, ARegistrationWithoutObserverSelectorOrNameIsIgnored) {
    NSString* name = "VTTestDidHappenNotification"_ns;
    const std::string line = "observer not added: it needs an observer, a selector and a name\n";
    EXPECT_EQ(vt_test::logOf([&] {
                  center_->addObserver_selector_name_object_(nullptr, NS_SEL("observe:"), name,
                                                             nullptr);
                  center_->addObserver_selector_name_object_(a_, nullptr, name, nullptr);
                  center_->addObserver_selector_name_object_(a_, NS_SEL("observe:"), nullptr,
                                                             nullptr);
                  NSSend<void>(center_, NS_SEL("addObserver:selector:name:object:"), b_,
                               NS_SEL("observe:"), NSNumber::numberWithInt_(1),
                               static_cast<NSObject*>(nullptr));
              }),
              line + line + line + line);
    // Nothing was left behind that a later post could trip over.
    center_->addObserver_selector_name_object_(b_, NS_SEL("observe:"), name, nullptr);
    center_->postNotificationName_object_(name, nullptr);
    center_->postNotificationName_object_(nullptr, nullptr);
    NSSend<void>(center_, NS_SEL("postNotificationName:object:"), NSNumber::numberWithInt_(1),
                 static_cast<NSObject*>(nullptr));
    EXPECT_EQ(deliveries, "b");
    EXPECT_EQ(a_->count, 0);
}

TEST_F(NotificationTest, DefaultCenterIsOneSharedCenterAndNotificationsKnowTheirClass) {
    EXPECT_EQ(NSNotificationCenter::defaultCenter(), NSNotificationCenter::defaultCenter());
    EXPECT_NE(NSNotificationCenter::defaultCenter(), nullptr);
    for (const char* name : {"NSNotification", "NSTableViewSelectionDidChangeNotification",
                             "NSWindowDidBecomeKeyNotification", "NSWindowDidResizeNotification"}) {
        Class cls = NSClassFromCString(name);
        ASSERT_NE(cls, nullptr) << name;
        NSObject* n = NSSendClass(cls, NS_SEL("notificationWithName:object:"), "x"_ns,
                                  static_cast<NSObject*>(nullptr));
        EXPECT_EQ(n->class_(), cls) << "made by the receiving class";
    }
}

// ---------------------------------------------------------------------------
// Timers.

class Ticker : public NSObject {
    NS_DECLARE_CLASS(Ticker, NSObject)

public:
    void tick() {
        onDefaultThread = onDefaultThread || NSThread::currentThread()->threadId() == nullptr;
        ticks++;
    }
    std::atomic<int> ticks{0};
    std::atomic<bool> onDefaultThread{false};
};

NS_CLASS_BEGIN(Ticker, NSObject)
    NS_METHOD(tick)
NS_CLASS_END(Ticker)

NSInvocation* tickInvocation(Ticker* ticker) {
    NSMethodSignature* signature = ticker->methodSignatureForSelector_(NS_SEL("tick"));
    NSInvocation* invocation = NSInvocation::invocationWithMethodSignature_(signature);
    invocation->setTarget_(ticker);
    return invocation;
}

TEST_F(ThreadsTest, RepeatingTimerFiresOnItsOwnThreadAndStopsAfterInvalidate) {
    Ticker* ticker = Ticker::alloc();
    NSTimer* timer = NSTimer::scheduledTimerWithTimeInterval_invocation_repeats_(
            0.02, tickInvocation(ticker), true);
    EXPECT_TRUE(timer->repeats());
    EXPECT_EQ(timer->seconds(), 0.02);
    EXPECT_EQ(NSThread::registeredThreadCount(), 1u) << "a timer is a thread";
    ASSERT_TRUE(waitUntil([&] { return ticker->ticks >= 3; }));
    timer->invalidate();
    // The thread ends when its current sleep is over, without firing.
    ASSERT_TRUE(waitForThreadsToEnd());
    int ticks = ticker->ticks;
    vtSleepMilliseconds(60);
    EXPECT_EQ(ticker->ticks.load(), ticks) << "no tick after the thread ended";
    EXPECT_FALSE(ticker->onDefaultThread) << "fire runs on the timer's thread";
    timer->release();
    ticker->release();
}

TEST_F(ThreadsTest, OneShotTimerFiresOnceAndAnInvalidatedOneNever) {
    Ticker* ticker = Ticker::alloc();
    NSTimer* once = NSTimer::scheduledTimerWithTimeInterval_invocation_repeats_(
            0.01, tickInvocation(ticker), false);
    ASSERT_TRUE(waitForThreadsToEnd());
    EXPECT_EQ(ticker->ticks.load(), 1);
    once->release();

    // Released by its caller at once: the sleeping thread keeps it alive.
    NSTimer* never = NSTimer::scheduledTimerWithTimeInterval_invocation_repeats_(
            0.03, tickInvocation(ticker), true);
    never->invalidate();
    never->release();
    ASSERT_TRUE(waitForThreadsToEnd());
    EXPECT_EQ(ticker->ticks.load(), 1);

    // fire by hand runs on the calling thread.
    NSTimer* manual = NSTimer::scheduledTimerWithTimeInterval_invocation_repeats_(
            0, tickInvocation(ticker), false);
    manual->invalidate();
    manual->fire();
    EXPECT_EQ(ticker->ticks.load(), 2);
    ASSERT_TRUE(waitForThreadsToEnd());
    manual->release();
    ticker->release();
}

// ---------------------------------------------------------------------------
// Files and tasks. Paths are relative to the working directory.

class FilesTest : public ThreadsTest {
protected:
    void SetUp() override {
        ThreadsTest::SetUp();
        const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
        dir_ = std::string("scratch-threads-") + info->name() + "-" + std::to_string(getpid());
        std::error_code error;
        std::filesystem::remove_all(dir_, error);
        ASSERT_TRUE(std::filesystem::create_directory(dir_, error));
    }
    void TearDown() override {
        std::error_code error;
        std::filesystem::remove_all(dir_, error);
        ThreadsTest::TearDown();
    }
    std::string path(const std::string& name) const { return dir_ + "/" + name; }
    NSString* ns(const std::string& s) const { return NSString::stringWithUTF8String_(s.c_str()); }
    static void write(const std::string& p, const std::string& bytes) {
        std::ofstream(p, std::ios::binary) << bytes;
    }
    static std::string read(const std::string& p) {
        std::ifstream in(p, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    static std::string bytesOf(NSData* data) {
        void* bytes = data->bytes();
        std::string s(static_cast<char*>(bytes), data->length());
        std::free(bytes);
        return s;
    }
    std::string dir_;
};

TEST_F(FilesTest, DirectoryContentsLeaveOutEveryNameBeginningWithAPoint) {
    write(path(".x"), "hidden");
    write(path("y"), "shown");
    NSFileManager* manager = NSFileManager::defaultManager();
    EXPECT_EQ(manager, NSFileManager::defaultManager());
    NSMutableArray* names = manager->directoryContentsAtPath_(ns(dir_));
    ASSERT_EQ(names->count(), 1u);
    EXPECT_EQ(text(static_cast<NSString*>(names->objectAtIndex_(0))), "y");

    NSMutableArray* none = nullptr;
    EXPECT_EQ(
            vt_test::logOf([&] { none = manager->directoryContentsAtPath_(ns(path("missing"))); }),
            "Couldn't open the directory\n");
    ASSERT_NE(none, nullptr);
    EXPECT_EQ(none->count(), 0u);
}

TEST_F(FilesTest, FileExistsReportsDirectoriesAndAcceptsANullFlag) {
    write(path("file"), "x");
    NSFileManager* manager = NSFileManager::defaultManager();
    bool isDirectory = false;
    EXPECT_TRUE(manager->fileExistsAtPath_isDirectory_(ns(dir_), &isDirectory));
    EXPECT_TRUE(isDirectory);
    EXPECT_TRUE(manager->fileExistsAtPath_isDirectory_(ns(path("file")), &isDirectory));
    EXPECT_FALSE(isDirectory);
    EXPECT_TRUE(manager->fileExistsAtPath_isDirectory_(ns(dir_), nullptr));
    isDirectory = true;
    EXPECT_FALSE(manager->fileExistsAtPath_isDirectory_(ns(path("missing")), &isDirectory));
    EXPECT_TRUE(isDirectory) << "untouched when the path doesn't exist";
}

TEST_F(FilesTest, ContentsAtPathReadsEveryByteAcrossChunks) {
    std::string bytes;
    for (int i = 0; i < 65536 * 2 + 17; i++)
        bytes.push_back(static_cast<char>((i * 31 + i / 7) & 0xFF));
    write(path("blob"), bytes);
    NSFileManager* manager = NSFileManager::defaultManager();
    EXPECT_EQ(bytesOf(manager->contentsAtPath_(ns(path("blob")))), bytes);

    NSMutableData* missing = nullptr;
    EXPECT_EQ(vt_test::logOf([&] { missing = manager->contentsAtPath_(ns(path("missing"))); }), "")
            << "no log line for a missing file";
    ASSERT_NE(missing, nullptr);
    EXPECT_EQ(missing->length(), 0u);
}

TEST_F(FilesTest, FileHandleWritesWholeDataAndClosesAtTheEnd) {
    std::string bytes("a\0b\r\n\xff", 6);
    NSFileHandle* handle = NSFileHandle::fileHandleForWritingAtPath_(ns(path("out")));
    ASSERT_TRUE(handle->isOpen());
    handle->writeData_(NSData::dataWithBytes_length_(bytes.data(), 6));
    handle->writeData_(NSData::dataWithBytes_length_("!", 1));
    handle->closeFile();
    EXPECT_EQ(read(path("out")), bytes + "!");
    handle->writeData_(NSData::dataWithBytes_length_("lost", 4));  // closed: nothing
    handle->closeFile();
    EXPECT_EQ(read(path("out")), bytes + "!");

    // dealloc closes (and so flushes) a stream left open.
    NSFileHandle* open = NSFileHandle::alloc()->initForWritingAtPath_(ns(path("open")));
    open->writeData_(NSData::dataWithBytes_length_("kept", 4));
    open->release();
    EXPECT_EQ(read(path("open")), "kept");

    NSFileHandle* reading = NSFileHandle::fileHandleForReadingAtPath_(ns(path("missing")));
    EXPECT_FALSE(reading->isOpen());
    reading->writeData_(NSData::dataWithBytes_length_("x", 1));
    EXPECT_TRUE(NSFileHandle::fileHandleForReadingAtPath_(ns(path("out")))->isOpen());
}

TEST_F(FilesTest, TaskGetsTheArgumentsAsOneBlankSeparatedTextAndIsNotWaitedFor) {
#ifdef VANTOR_TEST_WIN32
    // ShellExecuteA runs Windows programs: cmd.exe writes its own command
    // line's tail, which is the joined parameter text.
    NSArray* arguments = NSArray::arrayWithObjects_("/c"_ns, "echo"_ns, "a"_ns, "b>"_ns,
                                                    ns(dir_ + "\\out"), nullptr);
    NSTask* task = NSTask::launchedTaskWithLaunchPath_arguments_("cmd.exe"_ns, arguments);
    EXPECT_GT(task->hInstance(), 32);
    ASSERT_TRUE(waitUntil([&] { return read(path("out")).size() >= 3; }));
    EXPECT_EQ(read(path("out")).substr(0, 3), "a b");
#else
    // The program waits for a file that the test makes only after launch
    // returned, then writes each argument it got on a line of its own.
    write(path("prog.sh"),
          "#!/bin/sh\n"
          "dir=$(dirname \"$0\")\n"
          "while [ ! -e \"$dir/go\" ]; do sleep 0.01; done\n"
          "for a in \"$@\"; do echo \"[$a]\"; done > \"$dir/out.tmp\"\n"
          "mv \"$dir/out.tmp\" \"$dir/out\"\n");
    chmod(path("prog.sh").c_str(), 0755);
    NSString* quoted = "\"c d\""_ns;  // no quoting is added, but quotes given are honoured
    NSArray* arguments =
            NSArray::arrayWithObjects_("a"_ns, NSNumber::numberWithInt_(7), quoted, nullptr);
    NSTask* task = NSTask::launchedTaskWithLaunchPath_arguments_(ns(path("prog.sh")), arguments);
    EXPECT_GT(task->hInstance(), 0);
    write(path("go"), "");
    ASSERT_TRUE(waitUntil([&] { return vtFileExists(path("out").c_str()); }));
    EXPECT_EQ(read(path("out")), "[a]\n[7]\n[c d]\n");
#endif
}

}  // namespace
