// The operation queue: run order by priority and by arrival, the key
// formula, operations that never finish, the head that blocks, and the
// worker's end when the queue goes.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/Foundation.h"
#include "structures/NSOperationQueue.h"
#include "tests/support/LogCapture.h"

namespace {

std::mutex gLogMutex;
std::vector<std::string> gRuns;

std::vector<std::string> runs() {
    std::lock_guard<std::mutex> guard(gLogMutex);
    return gRuns;
}

// Records its name at main and is finished after `times` runs.
class Job : public NSOperation {
    NS_DECLARE_CLASS(Job, NSOperation)

public:
    Job* initWithName_times_(const char* name, int times) {
        NSOperation::init();
        _name = name;
        _times = times;
        return this;
    }
    void main() override {
        {
            std::lock_guard<std::mutex> guard(gLogMutex);
            gRuns.push_back(_name);
        }
        _done.fetch_add(1);
    }
    bool isFinished() override { return _done.load() >= _times; }
    bool isReady() override { return _ready.load(); }

    std::string _name;
    int _times = 1;
    std::atomic<int> _done{0};
    std::atomic<bool> _ready{true};
};

NS_CLASS_BEGIN(Job, NSOperation)
NS_CLASS_END(Job)

Job* job(const char* name, int priority, int times = 1) {
    Job* j = static_cast<Job*>(NSAutorelease(Job::alloc()->initWithName_times_(name, times)));
    j->setPriority_(priority);
    return j;
}

// Blocks the worker in main until the test lets it go, so that the test
// can fill the queue behind it.
class Gate : public NSOperation {
    NS_DECLARE_CLASS(Gate, NSOperation)

public:
    void main() override {
        _entered.store(true);
        while (!_open.load()) NSThread::sleepForTimeInterval_(0.002);
        _finished.store(true);
    }
    bool isFinished() override { return _finished.load(); }
    std::atomic<bool> _entered{false}, _open{false}, _finished{false};
};

NS_CLASS_BEGIN(Gate, NSOperation)
NS_CLASS_END(Gate)

class OperationQueueTest : public ::testing::Test {
protected:
    void SetUp() override {
        gRuns.clear();
        pool = NSAutoreleasePool::alloc()->init();
        queue = NSOperationQueue::alloc()->init();
    }
    void TearDown() override {
        if (queue) queue->release();
        pool->release();
    }
    // Holds the worker so that everything added next is queued together.
    Gate* hold() {
        Gate* gate = static_cast<Gate*>(NSAutorelease(Gate::alloc()->init()));
        gate->setPriority_(1000);
        queue->addOperation_(gate);
        while (!gate->_entered.load()) NSThread::sleepForTimeInterval_(0.002);
        return gate;
    }
    NSAutoreleasePool* pool = nullptr;
    NSOperationQueue* queue = nullptr;
};

TEST_F(OperationQueueTest, PlainOperationDefaults) {
    NSOperation* op = static_cast<NSOperation*>(NSAutorelease(NSOperation::alloc()->init()));
    EXPECT_EQ(op->priority(), 0);
    EXPECT_TRUE(op->isReady());
    EXPECT_FALSE(op->isExecuting() || op->isFinished() || op->isCancelled() || op->isConcurrent());
    op->addDependency_(static_cast<NSOperation*>(NSAutorelease(NSOperation::alloc()->init())));
    EXPECT_EQ(op->dependencies()->count(), 1u);
    EXPECT_EQ(queue->maxConcurrentCount(), 4);
    queue->setMaxConcurrentOperationCount_(2);
    EXPECT_EQ(queue->maxConcurrentCount(), 2);
    EXPECT_EQ(vt_test::logOf([&] {
                  op->main();
                  op->start();
              }),
              "operation's main method executed\noperation's start method executed\n");
}

TEST_F(OperationQueueTest, HigherPriorityFirstThenOrderOfAdding) {
    Gate* gate = hold();
    queue->addOperation_(job("zero", 0));
    queue->addOperation_(job("one", 1));
    queue->addOperation_(job("minus", -1));
    queue->addOperation_(job("zero-b", 0));
    queue->addOperation_(job("one-b", 1));
    queue->addOperation_(job("zero-c", 0));
    gate->_open.store(true);
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(runs(),
              (std::vector<std::string>{"one", "one-b", "zero", "zero-b", "zero-c", "minus"}));
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST_F(OperationQueueTest, WaitOnAnEmptyQueueReturnsAtOnce) {
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST_F(OperationQueueTest, MainRunsAgainUntilFinished) {
    Job* thrice = job("again", 0, 3);
    queue->addOperation_(thrice);
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(runs(), (std::vector<std::string>{"again", "again", "again"}));
}

TEST_F(OperationQueueTest, FinishedHeadLeavesWithoutMain) {
    Gate* gate = hold();
    Job* done = job("done", 5, 0);  // finished from the start
    queue->addOperation_(done);
    queue->addOperation_(job("next", 0));
    gate->_open.store(true);
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(runs(), (std::vector<std::string>{"next"}));
    EXPECT_EQ(done->_done.load(), 0);
}

TEST_F(OperationQueueTest, AHeadThatIsNotReadyHoldsUpTheRest) {
    Gate* gate = hold();
    Job* waiting = job("waiting", 9);
    waiting->_ready.store(false);
    queue->addOperation_(waiting);
    queue->addOperation_(job("behind", 0));
    gate->_open.store(true);
    NSThread::sleepForTimeInterval_(0.25);
    EXPECT_TRUE(runs().empty()) << "only the minimum is looked at";
    waiting->_ready.store(true);
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(runs(), (std::vector<std::string>{"waiting", "behind"}));
}

// The base class's isFinished: never. Logs through the base main twice,
// then only counts, so that the captured output stays small.
class Repeater : public NSOperation {
    NS_DECLARE_CLASS(Repeater, NSOperation)

public:
    void main() override {
        if (_calls.fetch_add(1) < 2) NSOperation::main();
    }
    std::atomic<int> _calls{0};
};

NS_CLASS_BEGIN(Repeater, NSOperation)
NS_CLASS_END(Repeater)

TEST_F(OperationQueueTest, OperationThatNeverFinishesStaysAndMainRepeats) {
    Repeater* op = static_cast<Repeater*>(NSAutorelease(Repeater::alloc()->init()));
    EXPECT_EQ(vt_test::logOf([&] {
                  queue->addOperation_(op);
                  for (int i = 0; i < 500 && op->_calls.load() < 50; i++)
                      NSThread::sleepForTimeInterval_(0.01);
                  EXPECT_GE(op->_calls.load(), 50);
                  EXPECT_EQ(queue->operationCount(), 1u);
                  queue->release();  // waits for the worker to leave main
                  queue = nullptr;
              }),
              "operation's main method executed\noperation's main method executed\n");
}

// An operation that, while being asked whether it is finished, queues a
// more urgent one: the worker must not remove that one unrun.
class Spawner : public NSOperation {
    NS_DECLARE_CLASS(Spawner, NSOperation)

public:
    bool isFinished() override {
        if (_queue && !_spawned) {
            _spawned = true;
            _queue->addOperation_(job("urgent", 50));
        }
        return _spawned;
    }
    NSOperationQueue* _queue = nullptr;
    bool _spawned = false;
};

NS_CLASS_BEGIN(Spawner, NSOperation)
NS_CLASS_END(Spawner)

TEST_F(OperationQueueTest, OperationAddedBeforeRemovalStillRuns) {
    Gate* gate = hold();
    Spawner* spawner = static_cast<Spawner*>(NSAutorelease(Spawner::alloc()->init()));
    spawner->_queue = queue;
    queue->addOperation_(spawner);
    gate->_open.store(true);
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(runs(), (std::vector<std::string>{"urgent"}));
}

TEST_F(OperationQueueTest, OperationsAreReleasedWithTheQueue) {
    Job* stuck = job("stuck", 0, 1000000);
    stuck->_ready.store(false);
    queue->addOperation_(stuck);
    EXPECT_EQ(stuck->retainCount(), 2u);
    queue->release();
    queue = nullptr;
    EXPECT_EQ(stuck->retainCount(), 1u);
}

}  // namespace
