// Ownership faults end the process with a line that says what happened: an
// object released once too often, and one deleted while references remain
// (the latter only where the debug checks are compiled in: Debug and the
// sanitizer build). Scopes release what they made on every way out.
#include <gtest/gtest.h>

#include "foundation/Foundation.h"

namespace {

int endedCount = 0;

class Owned : public NSObject {
    NS_DECLARE_CLASS(Owned, NSObject)

public:
    void dealloc() override {
        endedCount++;
        NSObject::dealloc();
    }
    // What a caller that bypasses release would do.
    void destroyWhileReferenced() { delete this; }

protected:
    ~Owned() override = default;
};

NS_CLASS_BEGIN(Owned, NSObject)
NS_CLASS_END(Owned)

// A static object whose storage outlives its last release, so that the
// over-release is seen by the object model rather than by the allocator.
class Immortal : public NSObject {
    NS_DECLARE_CLASS(Immortal, NSObject)

public:
    void dealloc() override {}
};

NS_CLASS_BEGIN(Immortal, NSObject)
NS_CLASS_END(Immortal)

}  // namespace

TEST(OwnershipDeathTest, OverReleaseEndsTheProcess) {
    EXPECT_DEATH(
            {
                Immortal* object = Immortal::alloc();
                object->release();
                object->release();
            },
            "release of a dead object of class Immortal");
}

TEST(OwnershipDeathTest, DeletionWithReferencesEndsTheProcess) {
#if VANTOR_DEBUG_CHECKS
    EXPECT_DEATH(
            {
                Owned* object = Owned::alloc();
                object->retain();
                object->destroyWhileReferenced();
            },
            "deleted with a count of 2");
#else
    GTEST_SKIP() << "the debug checks are compiled into Debug and sanitizer builds only";
#endif
}

TEST(OwnershipTest, ScopesAndMakeReleaseOnEveryWayOut) {
    endedCount = 0;
    auto early = [](bool leave) {
        NSAutoreleasePoolScope pool;
        NSAutorelease(Owned::alloc());
        Ref<Owned> kept = NSMake<Owned>();
        if (leave) return 1;
        NSAutorelease(Owned::alloc());
        return 2;
    };
    EXPECT_EQ(early(true), 1);
    EXPECT_EQ(endedCount, 2);
    EXPECT_EQ(early(false), 2);
    EXPECT_EQ(endedCount, 5);

    Ref<NSMutableDictionary> dictionary =
            NSMake<NSMutableDictionary>(&NSMutableDictionary::initWithCapacity_, 4u);
    ASSERT_TRUE(dictionary);
    EXPECT_TRUE(dictionary->isKindOfClass_(NSMutableDictionary::classObject()));
    EXPECT_EQ(dictionary->retainCount(), 1u);
}
