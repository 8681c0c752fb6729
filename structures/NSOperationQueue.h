// Runs NSOperations one at a time, in order of priority, on a worker thread
// of its own. The heap key of an operation is -(priority << 16) | serial,
// the serial counting every addOperation: of the process from 1: a higher
// priority gives a lower key and equal priorities run in order of adding
// while the serial fits in 16 bits. The worker looks at the minimum only;
// see loop.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "foundation/NSLock.h"
#include "structures/LXPriorityHeap.h"
#include "structures/NSOperation.h"

class NSOperationQueue : public NSObject {
    NS_DECLARE_CLASS(NSOperationQueue, NSObject)

public:
    // Sets up the fields and starts the worker thread running loop.
    NSOperationQueue* init() override;
    // Retains the operation until it leaves the queue. Any thread.
    void addOperation_(NSOperation* operation);
    // Returns once the heap is empty, looking every 0.1 s. An operation
    // that never finishes keeps it waiting for ever.
    void waitUntilAllOperationsAreFinished();
    // Stored; only one operation ever runs at a time.
    void setMaxConcurrentOperationCount_(int32_t count) { _maxConcurrentCount = count; }
    // The worker's loop; runs while the queue lives.
    void loop();
    // Stops the worker and waits for it to leave its present step (at most
    // one main or one pause), then frees the queue.
    void dealloc() override;

    int32_t maxConcurrentCount() { return _maxConcurrentCount; }
    uint32_t operationCount();

protected:
    ~NSOperationQueue() override = default;

private:
    // One pass of the loop; true when the worker should pause.
    bool step();
    void pause();

    int32_t _maxConcurrentCount = 4;
    Ref<NSLock> _lock;
    Ref<LXPriorityHeap> _heap;
    uint8_t _running = 0;
    uint8_t _loopEnded = 0;
    uint8_t _freeOnExit = 0;
    std::atomic<std::thread::id> _worker{};
};
