// LXDeltaRepository: the outgoing deltas of this client, waiting in the
// container "_deltas_" of the working directory until the relay has taken
// them. It survives restarts: whatever was not delivered goes out in a later
// run. No lock of its own beyond the container's (see LXTransceiver.cpp for
// who calls it when).
#pragma once

#include "foundation/NSObject.h"
#include "storage/LXContainer.h"

class LXDelta;

class LXDeltaRepository : public NSObject {
    NS_DECLARE_CLASS(LXDeltaRepository, NSObject)

public:
    // Opens (or creates) the container "_deltas_" in the working directory.
    LXDeltaRepository* init() override;
    // alloc, init, autorelease.
    static LXDeltaRepository* deltaRepository();
    // Stores the delta: one complete, durable container store.
    void addDelta_(LXDelta* delta);
    // The stored delta with the smallest id in text order ("10" before
    // "9"), autoreleased and known to the container so that removeDelta:
    // finds it; nil when the store is empty or that record can't be read.
    LXDelta* firstDelta();
    // The ids of the stored deltas in sending order (text order),
    // autoreleased; empty when there are none.
    NSArray* sortedIds();
    // The stored delta of one of those ids, as firstDelta answers it; nil
    // when the record is gone or can't be read.
    LXDelta* deltaWithId_(NSString* identifier);
    // Deletes the record of a delta that came from this repository.
    void removeDelta_(LXDelta* delta);
    // The number of stored deltas.
    uint32_t count();

    LXContainer* container() { return _container; }

    LXDeltaRepository() = default;

protected:
    ~LXDeltaRepository() override = default;

private:
    Ref<LXContainer> _container;
};
