// Crash safety: a child process stores, re-stores and removes records in a
// loop, now and then checkpointing or compacting, and reports every
// operation before and after it to the parent over a pipe. The child ends
// either by SIGKILL at a random moment or, many more times and much faster,
// at a random step of writing (the container's crash hook, which first puts
// down a random part of that write). The parent reopens the container and
// checks that it opens, that every indexed record decodes, and that each
// record is either the version last acknowledged or the one in flight.
// Nothing acknowledged may be lost.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>

#include "foundation/Foundation.h"
#include "storage/LXContainer.h"
#include "storage/LXManagedObject.h"
#include "tests/support/TempDir.h"

#if defined(__SANITIZE_ADDRESS__)
// This test forks thousands of children. AddressSanitizer keeps freed memory
// in quarantine (256 MB by default), and a process that large makes every
// fork and exit slow; a small quarantine still finds uses after free.
extern "C" const char* __asan_default_options() { return "quarantine_size_mb=4"; }
#endif

namespace {

// One report of the child. Versions are unique over the whole test, so a
// record's version tells exactly which store wrote it.
struct Report {
    enum Kind : int32_t { kIntent = 1, kDone = 2 };
    enum Op : int32_t { kNew = 1, kRestore = 2, kRemove = 3 };
    int32_t kind;
    int32_t op;
    int32_t id;       // 0 for a new record until it is done
    int32_t version;  // the version being written; 0 for a removal
    int32_t ok;       // in kDone: whether the operation answered success
};

void sendReport(int fd, const Report& report) {
    // A report is far below PIPE_BUF, so the write is all or nothing.
    if (write(fd, &report, sizeof report) != static_cast<ssize_t>(sizeof report)) _exit(3);
}

NSString* ns(const std::string& text) { return NSString::stringWithUTF8String_(text.c_str()); }

int versionOf(LXManagedObject* object) {
    NSObject* v = object->objectForKeyPath_("v"_ns);
    return v ? static_cast<NSNumber*>(v)->intValue() : -1;
}

// The child: works on the container until it is killed.
[[noreturn]] void runChild(const std::string& stem, int fd, uint32_t randomStart, int firstVersion,
                           int crashStep) {
    NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
    LXContainer* box = LXContainer::alloc()->initWithName_(ns(stem));
    if (box->isDamaged()) _exit(4);
    std::mt19937 random(randomStart);
    if (crashStep > 0)
        LXContainer::crashAtWriteForTesting(crashStep, static_cast<int>(random() % 1001));
    int version = firstVersion;
    for (;;) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        NSArray* ids = box->allIds();
        uint32_t count = ids->count();
        uint32_t dice = random() % 10;
        Report intent{Report::kIntent, Report::kNew, 0, 0, 0};
        LXManagedObject* object = nullptr;
        if (count < 8 || (count < 40 && dice < 4)) {
            object = LXManagedObject::managedObject();
            // Payloads of varying length, so that blocks land in holes of
            // every size and behind the end.
            object->setObject_forKeyPath_(ns(std::string(random() % 300, 'p')), "payload"_ns);
        } else {
            int id = static_cast<NSString*>(ids->objectAtIndex_(random() % count))->intValue();
            object = box->objectWithId_(id);
            if (!object) _exit(5);
            intent.op = dice < 8 ? Report::kRestore : Report::kRemove;
            intent.id = id;
            if (intent.op == Report::kRestore) {
                object->setObject_forKeyPath_(ns(std::string(random() % 300, 'q')), "payload"_ns);
            }
        }
        if (intent.op != Report::kRemove) {
            intent.version = ++version;
            object->setObject_forKeyPath_(NSNumber::numberWithInt_(intent.version), "v"_ns);
        }
        sendReport(fd, intent);
        Report done = intent;
        done.kind = Report::kDone;
        if (intent.op == Report::kRemove) {
            done.ok = box->remove_(object);
        } else {
            int id = box->store_type_(object, "Rec"_ns);
            done.ok = id > 0;
            done.id = id;
        }
        sendReport(fd, done);
        // Checkpoints and compactions move no record: a stop inside one must
        // leave every record as acknowledged.
        uint32_t extra = random() % 40;
        if (extra == 0) box->compact();
        if (extra < 4) box->checkpoint();
        pool->release();
    }
    (void)outer;
}

class CrashTest : public ::testing::Test {
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        dir = vt_test::makeTempDir("vt-crash");
        stem = dir + "/crash";
    }
    void TearDown() override {
        pool->release();
        vt_test::removeTree(dir);
    }
    NSAutoreleasePool* pool = nullptr;
    std::string dir;
    std::string stem;
};

// Runs `kills` children that end by SIGKILL after a random delay, or, with
// `hook`, at a random step of writing.
void runKills(const std::string& stem, int kills, bool hook, uint32_t sequence) {
    std::mt19937 random(sequence);
    std::map<int, int> committed;  // id -> version, as last verified
    int version = 0;
    int inFlightKills = 0;
    int operations = 0;
    const int kKills = kills;
    {
        // Create the container before the first child.
        LXContainer* box = LXContainer::alloc()->initWithName_(ns(stem));
        ASSERT_FALSE(box->isDamaged());
        box->release();
    }

    for (int kill = 0; kill < kKills; kill++) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        // The n-th step of writing: mostly within the first operations,
        // now and then after many.
        int crashStep =
                hook ? 1 + static_cast<int>(random() % 4 == 0 ? random() % 200 : random() % 12) : 0;
        uint32_t childSeed = random();
        fflush(stdout);
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            close(fds[0]);
            runChild(stem, fds[1], childSeed, version, crashStep);
        }
        close(fds[1]);
        int status = 0;
        if (hook) {
            ASSERT_EQ(waitpid(child, &status, 0), child);
            ASSERT_TRUE(WIFEXITED(status) &&
                        WEXITSTATUS(status) == LXContainer::kCrashStatusForTesting)
                    << "the child ended otherwise, status " << status;
        } else {
            // From at once (inside opening) to a few milliseconds, now and
            // then longer, so that a child gets through many operations.
            usleep(random() % 4 == 0 ? random() % 20000 : random() % 6000);
            ASSERT_EQ(::kill(child, SIGKILL), 0);
            ASSERT_EQ(waitpid(child, &status, 0), child);
            ASSERT_TRUE(WIFSIGNALED(status))
                    << "the child ended by itself, status " << WEXITSTATUS(status);
        }

        // Replay the reports on the model of acknowledged state.
        std::map<int, int> expected = committed;
        Report report{};
        Report inFlight{};
        bool pending = false;
        while (read(fds[0], &report, sizeof report) == static_cast<ssize_t>(sizeof report)) {
            if (report.kind == Report::kIntent) {
                inFlight = report;
                pending = true;
                if (report.version) version = report.version;
                continue;
            }
            pending = false;
            operations++;
            ASSERT_TRUE(report.ok) << "operation " << report.op << " on " << report.id << " failed";
            if (report.op == Report::kRemove) {
                expected.erase(report.id);
            } else {
                expected[report.id] = report.version;
            }
        }
        close(fds[0]);
        if (pending) inFlightKills++;

        // Reopen and check every record against the model.
        NSAutoreleasePool* check = NSAutoreleasePool::alloc()->init();
        LXContainer* box = LXContainer::alloc()->initWithName_(ns(stem));
        ASSERT_FALSE(box->isDamaged());
        std::map<int, int> found;
        NSArray* ids = box->allIds();
        for (uint32_t i = 0; i < ids->count(); i++) {
            int id = static_cast<NSString*>(ids->objectAtIndex_(i))->intValue();
            LXManagedObject* object = box->objectWithId_(id);
            ASSERT_NE(object, nullptr) << "record " << id << " does not decode";
            found[id] = versionOf(object);
        }
        for (const auto& [id, v] : expected) {
            bool removing = pending && inFlight.op == Report::kRemove && inFlight.id == id;
            bool restoring = pending && inFlight.op == Report::kRestore && inFlight.id == id;
            auto it = found.find(id);
            if (it == found.end()) {
                EXPECT_TRUE(removing) << "acknowledged record " << id << " is lost";
            } else if (it->second != v) {
                EXPECT_TRUE(restoring && it->second == inFlight.version)
                        << "record " << id << " is version " << it->second << ", acknowledged "
                        << v;
            }
        }
        for (const auto& [id, v] : found) {
            if (expected.count(id)) continue;
            EXPECT_TRUE(pending && inFlight.op == Report::kNew && v == inFlight.version)
                    << "record " << id << " (version " << v << ") was never stored";
        }
        // Type sets agree with the records.
        EXPECT_EQ(box->allIdsForType_("Rec"_ns)->count(), ids->count());
        box->release();
        check->release();
        if (::testing::Test::HasFailure()) return;
        committed = found;
    }
    std::printf("%d kills, %d in the middle of an operation, %d operations acknowledged\n", kKills,
                inFlightKills, operations);
    // Where a timed kill lands depends on the machine; the hook's stops
    // are inside operations by construction.
    if (hook) {
        EXPECT_GT(inFlightKills, kKills / 4) << "the stops should land inside operations";
    }
    EXPECT_GT(operations, kKills / 2) << "the children should get work done";
}

TEST_F(CrashTest, KilledAtRandomMomentsLosesNothingAcknowledged) {
    runKills(stem, 320, false, 20261122);
}

TEST_F(CrashTest, StoppedAtEveryKindOfWriteLosesNothingAcknowledged) {
    runKills(stem, 2000, true, 20261123);
}

}  // namespace
