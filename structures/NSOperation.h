// An operation for NSOperationQueue, meant to be subclassed: the queue asks
// isFinished, isReady, isExecuting and isConcurrent, then sends main (or
// start) on its worker thread. An operation leaves the queue only by
// answering true to isFinished, so a subclass must do so when its work is
// done; the base class never does, and its main runs again and again.
#pragma once

#include <cstdint>

#include "foundation/NSArray.h"

class NSOperation : public NSObject {
    NS_DECLARE_CLASS(NSOperation, NSObject)

public:
    // Priority 0 and an empty dependency list.
    NSOperation* init() override;
    // Log "operation's main method executed" / "... start ...".
    virtual void main();
    virtual void start();
    void setPriority_(int32_t priority) { _priority = priority; }
    int32_t priority() { return _priority; }
    // Recorded only; the queue doesn't consult dependencies.
    void addDependency_(NSOperation* operation);
    NSMutableArray* dependencies() { return _dependencies; }
    virtual bool isReady() { return true; }
    virtual bool isExecuting() { return false; }
    virtual bool isFinished() { return false; }
    virtual bool isCancelled() { return false; }
    virtual bool isConcurrent() { return false; }

protected:
    ~NSOperation() override = default;

    int32_t _priority = 0;
    Ref<NSMutableArray> _dependencies;
};
