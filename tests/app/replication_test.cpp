// Record replication between clients, in one process: each client is a
// working directory with its own workspace and its own delta store, and a
// test switches between them. What a commit posts is read back from the
// store, put through the archive as the wire would, and handed to another
// client's processDelta:. One test runs a real check cycle against a
// scripted relay.
#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include "app/VTActionPushSpaces.h"
#include "sync/LXDelta.h"
#include "sync/LXDeltaRepository.h"
#include "sync/LXTransceiver.h"
#include "sync/LXVersion.h"
#include "tests/sync/sync_test_support.h"
#include "toolkit/NSTableView.h"
#include "workspace_fixture.h"

// Stands for another sheet's window side: notes each refresh, and whether
// the watched sheet was ignoring row selections then.
class RefreshProbe : public NSObject {
    NS_DECLARE_CLASS(RefreshProbe, NSObject)

public:
    void refresh() {
        refreshes++;
        ignoring = watched && watched->ignoresRowSelection();
    }
    VTSheet* watched = nullptr;
    int refreshes = 0;
    bool ignoring = false;

    RefreshProbe() = default;

protected:
    ~RefreshProbe() override = default;
};

NS_CLASS_BEGIN(RefreshProbe, NSObject)
    NS_METHOD(refresh)
NS_CLASS_END(RefreshProbe)

namespace {

constexpr const char kConfiguration[] =
        "(\n"
        " ((name role) (field name as string))\n"
        " ((name group) (field name as string) (field roles as string))\n"
        " ((name user) (field firstName as string) (field lastName as string) (field orgUnit as "
        "string)\n"
        "  (field company as string) (field role as string) (field groups as string))\n"
        " ((name task) (field title as string) (field note as string) (hiddenfield state as "
        "string))\n"
        " ((source task) (name mytasks) (field title as string))\n"
        " ((name message) (field subject as string) (field whom as reference user (firstName "
        "lastName))\n"
        "  (hiddenfield status as string) (hiddenfield dummy as string))\n"
        " ((source message) (name outbox) (field subject as string) (hiddenfield status as "
        "string))\n"
        ")\n";

struct Person {
    const char* id;
    const char* first;
    const char* last;
    const char* unit;
};
const Person kAda{"a-1", "Ada", "Lovelace", "Demo"};
const Person kBob{"b-2", "Bob", "Builder", "Sales"};
const Person kCy{"c-3", "Cy", "Young", "Ops"};

std::string userIdOf(const Person& p) {
    return std::string(p.first) + " " + p.last + "/" + p.unit + "/Acme";
}
std::string uniqueOf(const Person& p) { return userIdOf(p) + "-" + p.id; }

struct Client {
    std::string dir;
    VTWorkspace* w = nullptr;
    LXDeltaRepository* outbox = nullptr;
    VTSheet* sheet(const char* name) {
        return w->sheetNamed_(NSString::stringWithUTF8String_(name));
    }
    VTMatrix* matrix(const char* name) { return sheet(name)->matrix(); }
};

}  // namespace

class ReplicationTest : public WorkspaceTest {
protected:
    void SetUp() override {
        WorkspaceTest::SetUp();
        root = std::filesystem::current_path();
    }
    void TearDown() override {
        for (auto& c : clients) {
            // The pool retains its delegate: undo what joinTransceiver tied.
            if (auto* p = static_cast<LXPool*>(c->w->pool())) p->setDelegate_(nullptr);
            c->w->release();
            c->outbox->release();
        }
        clients.clear();
        std::filesystem::current_path(root);
        WorkspaceTest::TearDown();
    }

    // A client of `me` among `users`, current from now on; `prepare` stores
    // records before the workspace loads them.
    Client& client(const Person& me, std::vector<Person> users = {kAda, kBob, kCy},
                   const std::function<void()>& prepare = {}) {
        auto c = std::make_unique<Client>();
        c->dir = (root / me.id).string();
        std::filesystem::create_directories(c->dir);
        std::filesystem::current_path(c->dir);
        for (const char* sub : {"conf", "data", "userkey"}) std::filesystem::create_directory(sub);
        writeFile("conf/cro.vtr", kConfiguration);
        LXContainer* store = LXContainer::alloc()->initWithName_("data/user"_ns);
        for (const Person& p : users) {
            NSMutableDictionary* r = NSDictionary::dictionaryWithObjectsAndKeys_(
                    ns(p.first), "firstName"_ns, ns(p.last), "lastName"_ns, ns(p.unit),
                    "orgUnit"_ns, "Acme"_ns, "company"_ns, ns(p.id), "__recordId"_ns, nullptr);
            store->set_(r);
        }
        store->release();
        if (prepare) prepare();
        c->outbox = LXDeltaRepository::alloc()->init();
        enter(*c);
        c->w = build(key(userIdOf(me).c_str(), me.id));
        EXPECT_NE(c->w, nullptr);
        clients.push_back(std::move(c));
        return *clients.back();
    }

    // Makes the client current: its working directory and its delta store.
    static void enter(Client& c) {
        std::filesystem::current_path(c.dir);
        LXTransceiver::defaultTransceiver()->setValue_forKey_(c.outbox, "deltaRepository"_ns);
        VTTableDataSource::resetIdentityForTesting();
    }

    // What the current client has posted, in posting order, as its
    // addressees will decode it; the store is emptied.
    static std::vector<LXDelta*> drain() {
        LXDeltaRepository* store = LXTransceiver::defaultTransceiver()->deltaRepository();
        NSArray* ids = store->container()->idsForClass_(LXDelta::classObject());
        std::vector<int> numbers;
        for (uint32_t i = 0; i < ids->count(); i++)
            numbers.push_back(static_cast<NSString*>(ids->objectAtIndex_(i))->intValue());
        std::sort(numbers.begin(), numbers.end());
        std::vector<LXDelta*> out;
        for (int id : numbers) {
            auto* stored = static_cast<LXDelta*>(
                    store->container()->queryById_class_(id, LXDelta::classObject()));
            out.push_back(static_cast<LXDelta*>(synctest::decode(synctest::archiveOf(stored))));
            store->removeDelta_(stored);
        }
        return out;
    }

    static NSDictionary* contentsOf(LXDelta* d) {
        return static_cast<NSDictionary*>(d->contents());
    }
    static NSDictionary* objectOf(LXDelta* d) {
        return static_cast<NSDictionary*>(contentsOf(d)->objectForKey_("object"_ns));
    }
    // "addressee action sheet [fields]" or "addressee delete sheet id".
    static std::string summary(LXDelta* d) {
        NSDictionary* c = contentsOf(d);
        std::string out = str(d->addressee()->uniqueId()) + " " +
                          str(c->objectForKey_("action"_ns)) + " " +
                          str(c->objectForKey_("sheet"_ns));
        if (auto* fields = static_cast<NSArray*>(c->objectForKey_("fields"_ns)))
            out += " [" + str(fields->componentsJoinedByString_(" "_ns)) + "]";
        if (NSObject* id = c->objectForKey_("objectId"_ns)) out += " " + str(id);
        return out;
    }
    static std::vector<std::string> summaries(const std::vector<LXDelta*>& deltas) {
        std::vector<std::string> out;
        for (LXDelta* d : deltas) out.push_back(summary(d));
        std::sort(out.begin(), out.end());
        return out;
    }
    // The delta of `deltas` addressed to that person.
    static LXDelta* to(const std::vector<LXDelta*>& deltas, const Person& p) {
        for (LXDelta* d : deltas)
            if (str(d->addressee()->uniqueId()) == p.id) return d;
        ADD_FAILURE() << "no delta to " << p.id;
        return nullptr;
    }

    // A delta from Ada to Bob with these contents, as decoded off the wire.
    static LXDelta* incoming(NSDictionary* contents) {
        LXDelta* d = LXDelta::deltaWithPool_sender_contents_(
                LXPool::poolWithName_("Rk2pWn"_ns),
                LXUser::userWithString_(ns(uniqueOf(kAda).c_str())), contents);
        d->setAddressee_(LXUser::userWithString_(ns(uniqueOf(kBob).c_str())));
        return static_cast<LXDelta*>(synctest::decode(synctest::archiveOf(d)));
    }
    static NSDictionary* setOf(const char* sheet, NSArray* fields, NSDictionary* object) {
        return NSDictionary::dictionaryWithObjectsAndKeys_("set"_ns, "action"_ns, fields,
                                                           "fields"_ns, ns(sheet), "sheet"_ns,
                                                           object, "object"_ns, nullptr);
    }
    // The object as written by Eve (unique id e-9) after everything made so
    // far: the named fields carry a version newer than any here.
    static NSMutableDictionary* versioned(NSMutableDictionary* object,
                                          std::vector<const char*> fields) {
        NSMutableDictionary* versions = NSMutableDictionary::dictionary();
        for (const char* f : fields)
            versions->setObject_forKey_(lx::versionText(lx::LXClock::tick(), "e-9"_ns), ns(f));
        object->setObject_forKey_(versions, "__versions"_ns);
        return object;
    }
    static NSArray* names(const char* a, const char* b = nullptr) {
        return NSArray::arrayWithObjects_(ns(a), b ? ns(b) : nullptr, nullptr);
    }

    // Beeps while f runs: the sync beep writes BEL to standard error here.
    template <class F>
    static int beepsOf(F&& f) {
        testing::internal::CaptureStderr();
        f();
        std::string err = testing::internal::GetCapturedStderr();
        return static_cast<int>(std::count(err.begin(), err.end(), '\a'));
    }

    // Commits `value` into `field` of `row` (a new record at the end).
    static void commit(VTMatrix* m, uint32_t row, const char* field, NSObject* value) {
        m->beginTransaction();
        m->setValue_inRow_column_(value, row, ns(field));
        m->commitTransaction();
    }

    std::filesystem::path root;
    std::vector<std::unique_ptr<Client>> clients;
};

TEST_F(ReplicationTest, ACommitPostsOneDeltaPerOtherUserWithTheWholeRecord) {
    Client& ada = client(kAda);
    VTMatrix* tasks = ada.matrix("task");
    tasks->beginTransaction();
    tasks->setValue_inRow_column_("Write"_ns, 0, "title"_ns);
    tasks->setValue_inRow_column_("soon"_ns, 0, "note"_ns);
    tasks->commitTransaction();
    std::string id = str(tasks->valueInRow_column_(0, "__recordId"_ns));

    std::vector<LXDelta*> sent = drain();
    EXPECT_EQ(summaries(sent),
              (std::vector<std::string>{"b-2 set task [title note]", "c-3 set task [title note]"}));
    for (LXDelta* d : sent) {
        EXPECT_EQ(str(d->pool()->poolName()), "Rk2pWn");
        EXPECT_EQ(str(d->sender()), uniqueOf(kAda));
        EXPECT_EQ(contentsOf(d)->count(), 4u);
        NSDictionary* object = objectOf(d);
        EXPECT_EQ(str(object->objectForKey_("__recordId"_ns)), id);
        EXPECT_EQ(str(object->objectForKey_("note"_ns)), "soon");
        EXPECT_EQ(str(object->objectForKey_("__creator"_ns)), userIdOf(kAda));
        EXPECT_EQ(str(object->objectForKey_("__modifier"_ns)), userIdOf(kAda));
        EXPECT_NE(object->objectForKey_("__created"_ns), nullptr);
        EXPECT_NE(object->objectForKey_("__modified"_ns), nullptr);
    }
    // Before any transceiver the pool was made for the commit, without a
    // delegate.
    ASSERT_NE(ada.w->pool(), nullptr);
    EXPECT_EQ(static_cast<LXPool*>(ada.w->pool())->delegate(), nullptr);

    // A secondary sheet names itself; an unchanged value sends nothing.
    commit(ada.matrix("mytasks"), 0, "title", "Rewrite"_ns);
    EXPECT_EQ(summaries(drain()),
              (std::vector<std::string>{"b-2 set mytasks [title]", "c-3 set mytasks [title]"}));
    commit(tasks, 0, "title", "Rewrite"_ns);
    EXPECT_TRUE(drain().empty());

    tasks->beginTransaction();
    tasks->removeRow_(0);
    tasks->commitTransaction();
    std::vector<LXDelta*> deleted = drain();
    EXPECT_EQ(summaries(deleted),
              (std::vector<std::string>{"b-2 delete task " + id, "c-3 delete task " + id}));
    // The removal's version, beside action, sheet and objectId.
    EXPECT_EQ(contentsOf(deleted[0])->count(), 4u);
    EXPECT_EQ(str(contentsOf(deleted[0])->objectForKey_("version"_ns)),
              str(tasks->tombstoneWithRecordId_(ns(id.c_str()))->objectForKey_("__removed"_ns)));

    // A user alone has nobody to tell.
    Client& alone = client(kCy, {kCy});
    commit(alone.matrix("task"), 0, "title", "Solo"_ns);
    EXPECT_TRUE(drain().empty());
}

TEST_F(ReplicationTest, AnIncomingSetEntersTheRecordWholeAndIsNeverSentOn) {
    Client& ada = client(kAda);
    commit(ada.matrix("task"), 0, "title", "Write"_ns);
    auto* original =
            static_cast<NSDictionary*>(ada.matrix("task")->allObjectsSorted()->objectAtIndex_(0));
    LXDelta* forBob = to(drain(), kBob);

    Client& bob = client(kBob);
    std::string log;
    int beeps = beepsOf([&] { log = logOf([&] { EXPECT_TRUE(bob.w->processDelta_(forBob)); }); });
    EXPECT_EQ(log, "");
    EXPECT_EQ(beeps, 1);
    VTMatrix* tasks = bob.matrix("task");
    ASSERT_EQ(tasks->numberOfRows(), 1u);
    auto* record = static_cast<NSDictionary*>(tasks->allObjectsSorted()->objectAtIndex_(0));
    EXPECT_TRUE(record->isKindOfClass_(NSMutableDictionary::classObject()));
    for (const char* k :
         {"__recordId", "__creator", "__created", "__modifier", "__modified", "title"})
        EXPECT_EQ(str(record->objectForKey_(ns(k))), str(original->objectForKey_(ns(k)))) << k;
    EXPECT_FALSE(tasks->seenRecords()->member_(record->objectForKey_("__recordId"_ns)));
    EXPECT_EQ(tasks->container()->count_(NSMutableDictionary::classObject()), 1u);
    EXPECT_TRUE(drain().empty());

    // The same delta again finds the record; a change through the
    // secondary sheet lands in the shared records.
    bob.w->processDelta_(forBob);
    EXPECT_EQ(tasks->numberOfRows(), 1u);
    NSMutableDictionary* renamed =
            versioned(NSDictionary::dictionaryWithObjectsAndKeys_(
                              record->objectForKey_("__recordId"_ns), "__recordId"_ns, "Renamed"_ns,
                              "title"_ns, nullptr),
                      {"title"});
    EXPECT_TRUE(bob.w->processDelta_(incoming(setOf("mytasks", names("title"), renamed))));
    EXPECT_EQ(str(tasks->valueInRow_column_(0, "title"_ns)), "Renamed");
    EXPECT_EQ(tasks->numberOfRows(), 1u);
    EXPECT_TRUE(drain().empty());
}

TEST_F(ReplicationTest, OnlyNewerFieldsTheRecordHoldsAreAppliedAndLocalStampsStay) {
    Client& bob = client(kBob);
    VTMatrix* tasks = bob.matrix("task");
    tasks->beginTransaction();
    for (const char* f : {"title", "note", "state"}) tasks->setValue_inRow_column_(ns(f), 0, ns(f));
    tasks->commitTransaction_(false);
    drain();
    auto* record = static_cast<NSDictionary*>(tasks->allObjectsSorted()->objectAtIndex_(0));
    std::string creator = str(record->objectForKey_("__creator"_ns));
    tasks->markAsSeen_rowIndex_(true, 0);

    // `note` is named but not held, `state` held but neither named nor
    // newer.
    NSObject* id = record->objectForKey_("__recordId"_ns);
    NSMutableDictionary* object =
            versioned(NSDictionary::dictionaryWithObjectsAndKeys_(
                              id, "__recordId"_ns, "New title"_ns, "title"_ns, "changed"_ns,
                              "state"_ns, "Eve Other/X/Acme"_ns, "__creator"_ns,
                              "Eve Other/X/Acme"_ns, "__modifier"_ns, nullptr),
                      {"title", "note"});
    EXPECT_TRUE(bob.w->processDelta_(incoming(setOf("task", names("title", "note"), object))));
    EXPECT_EQ(str(record->objectForKey_("title"_ns)), "New title");
    EXPECT_EQ(str(record->objectForKey_("note"_ns)), "note");
    EXPECT_EQ(str(record->objectForKey_("state"_ns)), "state");
    EXPECT_EQ(str(record->objectForKey_("__creator"_ns)), creator);
    EXPECT_EQ(record->objectForKey_("__modifier"_ns), nullptr);
    // Seen before, unseen after the change.
    EXPECT_FALSE(tasks->seenRecords()->member_(id));

    // A record new here is stored even when it holds none of the fields
    // named; a record that arrives as a plain dictionary is made mutable.
    NSDictionary* plain = NSDictionary::alloc()->initWithObjectsAndKeys_(
            "plain-1"_ns, "__recordId"_ns, "P"_ns, "title"_ns, nullptr);
    EXPECT_TRUE(bob.w->processDelta_(incoming(setOf("task", names("note"), plain))));
    plain->release();
    ASSERT_EQ(tasks->numberOfRows(), 2u);
    EXPECT_TRUE(tasks->allObjectsSorted()->objectAtIndex_(1)->isKindOfClass_(
            NSMutableDictionary::classObject()));
    EXPECT_EQ(tasks->container()->count_(NSMutableDictionary::classObject()), 2u);
    commit(tasks, 1, "note", "local"_ns);
    EXPECT_EQ(str(tasks->valueInRow_column_(1, "title"_ns)), "P");
}

TEST_F(ReplicationTest, AnIncomingChangeRefreshesTablesOnlyOfShownSheetsWhileIgnoringSelection) {
    Client& bob = client(kBob);
    VTSheet* sheet = bob.sheet("task");
    auto* source = static_cast<VTTableDataSource*>(sheet->sheetTableView()->dataSource());
    RefreshProbe* probe = RefreshProbe::alloc();
    probe->init();
    probe->watched = sheet;
    bob.w->sheets()->setObject_forKey_(probe, "probe"_ns);
    probe->release();

    auto arrive = [&](const char* id) {
        NSMutableDictionary* o = NSDictionary::dictionaryWithObjectsAndKeys_(
                ns(id), "__recordId"_ns, "T"_ns, "title"_ns, nullptr);
        EXPECT_TRUE(bob.w->processDelta_(incoming(setOf("task", names("title"), o))));
    };
    // Not shown yet: only the matrix changes.
    arrive("r-1");
    EXPECT_EQ(source->translateIndexReversely_(0), -1);
    EXPECT_EQ(probe->refreshes, 1);
    EXPECT_TRUE(probe->ignoring);
    EXPECT_FALSE(sheet->ignoresRowSelection());

    sheet->setValue_forKey_(NSNumber::numberWithInt_(1), "fullyInitialized"_ns);
    arrive("r-2");
    EXPECT_EQ(source->objectIndices()->count(), 2u);
    EXPECT_EQ(source->translateIndexReversely_(1), 1);
    EXPECT_EQ(probe->refreshes, 2);
}

TEST_F(ReplicationTest, UnknownSheetsAskUnknownActionsAreRefusedBadRecordsDropped) {
    Client& bob = client(kBob);
    std::string log = logOf([&] {
        EXPECT_TRUE(bob.w->processDelta_(
                incoming(setOf("nosuch", names("title"), NSMutableDictionary::dictionary()))));
    });
    EXPECT_EQ(log, "could not find sheet 'nosuch'\nalert: Error: Unknown sheet. Ignore delta?\n");

    NSDictionary* merge = NSDictionary::dictionaryWithObjectsAndKeys_(
            "merge"_ns, "action"_ns, "task"_ns, "sheet"_ns, nullptr);
    log = logOf([&] { EXPECT_FALSE(bob.w->processDelta_(incoming(merge))); });
    EXPECT_EQ(log, "unknown action for incoming delta: merge\n");

    // The transceiver asks with performSelector:withObject: and takes
    // anything but nil for true.
    SEL process = NSSelectorFromCString("processDelta:");
    logOf([&] {
        EXPECT_EQ(bob.w->performSelector_withObject_(process, incoming(merge)), nullptr);
    });
    NSMutableDictionary* good =
            NSDictionary::dictionaryWithObjectsAndKeys_("g-1"_ns, "__recordId"_ns, nullptr);
    EXPECT_NE(bob.w->performSelector_withObject_(process,
                                                 incoming(setOf("task", names("title"), good))),
              nullptr);

    // A set without a record can never be applied: dropped with a line.
    log = logOf([&] {
        EXPECT_TRUE(bob.w->processDelta_(incoming(setOf("task", names("title"), nullptr))));
    });
    EXPECT_EQ(log, "incoming set delta without a record for sheet 'task'\n");
}

TEST_F(ReplicationTest, DeletesRemoveWithoutBeepAndUnknownIdsAreIgnored) {
    Client& bob = client(kBob);
    VTMatrix* tasks = bob.matrix("task");
    commit(tasks, 0, "title", "Keep"_ns);
    commit(tasks, 1, "title", "Drop"_ns);
    drain();
    NSObject* id = tasks->valueInRow_column_(1, "__recordId"_ns);
    Ref<NSObject> kept = retainRef(id);
    tasks->markAsSeen_rowIndex_(true, 1);
    auto deletion = [](NSObject* objectId) {
        return NSDictionary::dictionaryWithObjectsAndKeys_(
                "delete"_ns, "action"_ns, "task"_ns, "sheet"_ns, objectId, "objectId"_ns, nullptr);
    };
    int beeps = beepsOf([&] {
        EXPECT_TRUE(bob.w->processDelta_(incoming(deletion("unknown-1"_ns))));
        EXPECT_FALSE(tasks->inTransaction());
        EXPECT_EQ(tasks->numberOfRows(), 2u);
        EXPECT_TRUE(bob.w->processDelta_(incoming(deletion(kept))));
    });
    EXPECT_EQ(beeps, 0);
    ASSERT_EQ(tasks->numberOfRows(), 1u);
    EXPECT_EQ(str(tasks->valueInRow_column_(0, "title"_ns)), "Keep");
    EXPECT_EQ(tasks->objectWithRecordId_(static_cast<NSString*>(kept.get())), nullptr);
    // A removal without a version removes the record as it stands; its
    // tombstone stays in the store. An unknown id without one leaves none.
    EXPECT_NE(tasks->tombstoneWithRecordId_(static_cast<NSString*>(kept.get())), nullptr);
    EXPECT_EQ(tasks->tombstoneWithRecordId_("unknown-1"_ns), nullptr);
    EXPECT_EQ(tasks->container()->count_(NSMutableDictionary::classObject()), 2u);
    EXPECT_TRUE(tasks->seenRecords()->member_(kept));
    EXPECT_TRUE(drain().empty());
}

TEST_F(ReplicationTest, ASaveThatIsNotStoredIsReportedToTheUserAndSendsNothing) {
    Client& ada =
            client(kAda, {kAda, kBob, kCy}, [] { writeFile("data/task.vci", "not an index"); });
    VTMatrix* tasks = ada.matrix("task");
    ASSERT_TRUE(tasks->container()->isDamaged());
    bool stored = true;
    std::string log = logOf([&] {
        tasks->beginTransaction();
        tasks->setValue_inRow_column_("Lost"_ns, 0, "title"_ns);
        stored = tasks->commitTransaction();
    });
    EXPECT_FALSE(stored);
    EXPECT_NE(log.find("not saved in sheet 'task': the change did not reach the disk\n"
                       "alert: Error: The change could not be saved: the data of this sheet is "
                       "damaged or the disk "
                       "is full.\n"),
              std::string::npos)
            << log;
    EXPECT_EQ(tasks->numberOfRows(), 0u);
    EXPECT_TRUE(drain().empty());
    EXPECT_EQ(readFile("data/task.vci"), "not an index");
}

TEST_F(ReplicationTest, ADeltaThatCannotBeStoredIsRefusedUntilTheStoreIsWholeAgain) {
    // Bob's task store holds one record and has been cut before his start.
    std::string data;
    Client& bob = client(kBob, {kAda, kBob, kCy}, [&] {
        LXContainer* store = LXContainer::alloc()->initWithName_("data/task"_ns);
        store->set_(NSDictionary::dictionaryWithObjectsAndKeys_("t-1"_ns, "__recordId"_ns, "Old"_ns,
                                                                "title"_ns, nullptr));
        store->release();
        data = readFile("data/task.vcd");
        std::filesystem::resize_file("data/task.vcd", 5);
    });
    ASSERT_TRUE(bob.matrix("task")->container()->isDamaged());
    std::string index = readFile("data/task.vci");
    NSMutableDictionary* object = NSDictionary::dictionaryWithObjectsAndKeys_(
            "t-2"_ns, "__recordId"_ns, "New"_ns, "title"_ns, ns(userIdOf(kAda).c_str()),
            "__creator"_ns, nullptr);
    LXDelta* set = incoming(setOf("task", names("title"), object));
    LXDelta* removal = incoming(NSDictionary::dictionaryWithObjectsAndKeys_(
            "delete"_ns, "action"_ns, "task"_ns, "sheet"_ns, "t-1"_ns, "objectId"_ns, nullptr));
    std::string log = logOf([&] {
        EXPECT_FALSE(bob.w->processDelta_(set));
        EXPECT_FALSE(bob.w->processDelta_(removal));
    });
    EXPECT_NE(
            log.find("incoming change for sheet 'task' not stored; the delta stays at the relay\n"),
            std::string::npos)
            << log;
    EXPECT_NE(
            log.find(
                    "incoming removal for sheet 'task' not stored; the delta stays at the relay\n"),
            std::string::npos)
            << log;
    EXPECT_EQ(bob.matrix("task")->numberOfRows(), 0u);
    EXPECT_EQ(bob.matrix("task")->objectWithRecordId_("t-2"_ns), nullptr);
    EXPECT_EQ(readFile("data/task.vci"), index);
    EXPECT_EQ(std::filesystem::file_size("data/task.vcd"), 5u);
    EXPECT_TRUE(drain().empty());

    // The files restored, the next start takes the same deltas in.
    writeFile("data/task.vcd", data);
    Client& again = client(kBob);
    VTMatrix* tasks = again.matrix("task");
    ASSERT_FALSE(tasks->container()->isDamaged());
    EXPECT_TRUE(again.w->processDelta_(set));
    EXPECT_TRUE(again.w->processDelta_(removal));
    ASSERT_EQ(tasks->numberOfRows(), 1u);
    EXPECT_EQ(str(tasks->valueInRow_column_(0, "title"_ns)), "New");
    EXPECT_NE(tasks->tombstoneWithRecordId_("t-1"_ns), nullptr);
    EXPECT_EQ(tasks->container()->count_(NSMutableDictionary::classObject()), 2u);
}

TEST_F(ReplicationTest, BeepsComeAtMostOncePerTenSeconds) {
    Client& bob = client(kBob);
    int made = 0;
    auto arrive = [&] {
        NSMutableDictionary* o = NSDictionary::dictionaryWithObjectsAndKeys_(
                NSString::stringWithFormat_("b-%d", ++made), "__recordId"_ns, nullptr);
        bob.w->processDelta_(incoming(setOf("task", names("title"), o)));
    };
    // The clock is moved by moving the last beep into the past.
    auto age = [&](double seconds) {
        bob.w->setValue_forKey_(bob.w->lastSyncBeep()->addTimeInterval_(-seconds),
                                "lastSyncBeep"_ns);
    };
    EXPECT_EQ(beepsOf(arrive), 1);
    age(9.5);
    EXPECT_EQ(beepsOf(arrive), 0);
    age(1.0);
    EXPECT_EQ(beepsOf(arrive), 1);
    // One delta a second for a minute; a little more than a second, since
    // the clock reads milliseconds and ten arrivals may take less than one.
    int beeps = beepsOf([&] {
        for (int second = 0; second < 60; second++) {
            age(1.01);
            arrive();
        }
    });
    EXPECT_EQ(beeps, 6);
}

TEST_F(ReplicationTest, AMessageGoesFromSentToDeliveredToRead) {
    Client& ada = client(kAda);
    VTMatrix* outbox = ada.matrix("message");
    auto write = [](VTSheet* sheet, const char* whom) {
        VTMatrix* m = sheet->matrix();
        uint32_t row = m->numberOfRows();
        m->beginTransaction();
        m->setValue_inRow_column_("Hello"_ns, row, "subject"_ns);
        m->setValue_inRow_column_(ns(whom), row, "whom"_ns);
        sheet->willStoreRow_(NSRetain(NSNumber::numberWithInt_(static_cast<int>(row))));
        m->commitTransaction();
    };
    write(ada.sheet("message"), kBob.id);
    std::vector<LXDelta*> sent = drain();
    EXPECT_EQ(summaries(sent), (std::vector<std::string>{"b-2 set message [subject whom status]",
                                                         "c-3 set message [subject whom status]"}));
    EXPECT_EQ(str(objectOf(sent[0])->objectForKey_("status"_ns)), "sent");
    // The sender selecting it changes nothing.
    ada.sheet("message")->didSelectRow_(NSRetain(NSNumber::numberWithInt_(0)));
    EXPECT_TRUE(drain().empty());

    Client& cy = client(kCy);
    cy.w->processDelta_(to(sent, kCy));
    EXPECT_EQ(str(cy.matrix("message")->valueInRow_column_(0, "status"_ns)), "sent");
    EXPECT_TRUE(drain().empty());

    // Only the addressee's client sends "delivered" out again.
    Client& bob = client(kBob);
    bob.w->processDelta_(to(sent, kBob));
    VTMatrix* inbox = bob.matrix("message");
    EXPECT_EQ(str(inbox->valueInRow_column_(0, "status"_ns)), "delivered");
    EXPECT_EQ(str(inbox->valueInRow_column_(0, "dummy"_ns)), "delivery");
    std::vector<LXDelta*> delivered = drain();
    EXPECT_EQ(summaries(delivered), (std::vector<std::string>{"a-1 set message [status dummy]",
                                                              "c-3 set message [status dummy]"}));
    enter(ada);
    ada.w->processDelta_(to(delivered, kAda));
    EXPECT_EQ(str(outbox->valueInRow_column_(0, "status"_ns)), "delivered");
    EXPECT_TRUE(drain().empty());
    ada.sheet("outbox")->didSelectRow_(NSRetain(NSNumber::numberWithInt_(0)));
    EXPECT_TRUE(drain().empty());
    enter(cy);
    cy.w->processDelta_(to(delivered, kCy));
    EXPECT_EQ(str(cy.matrix("message")->valueInRow_column_(0, "status"_ns)), "delivered");
    EXPECT_TRUE(drain().empty());

    // The addressee's look makes it "read", for everyone.
    enter(bob);
    bob.sheet("message")->didSelectRow_(NSRetain(NSNumber::numberWithInt_(0)));
    EXPECT_EQ(str(inbox->valueInRow_column_(0, "status"_ns)), "read");
    std::vector<LXDelta*> read = drain();
    EXPECT_EQ(summaries(read),
              (std::vector<std::string>{"a-1 set message [status]", "c-3 set message [status]"}));
    bob.sheet("message")->didSelectRow_(NSRetain(NSNumber::numberWithInt_(0)));
    EXPECT_TRUE(drain().empty());
    enter(ada);
    ada.w->processDelta_(to(read, kAda));
    EXPECT_EQ(str(outbox->valueInRow_column_(0, "status"_ns)), "read");

    // A message to oneself: nobody who receives it is its addressee.
    write(ada.sheet("outbox"), kAda.id);
    std::vector<LXDelta*> self = drain();
    ASSERT_EQ(self.size(), 2u);
    enter(bob);
    bob.w->processDelta_(to(self, kBob));
    EXPECT_EQ(str(inbox->valueInRow_column_(1, "status"_ns)), "sent");
    EXPECT_TRUE(drain().empty());
}

TEST_F(ReplicationTest, PushSpacesSendsEveryRecordOfThePrimarySheetsToTheRowsUser) {
    Client& ada = client(kAda, {kAda, kBob, kCy}, [] {
        storeRecords("role", {{{"name", "staff"}}});
        storeRecords("group", {{{"name", "All"}}});
        storeRecords("task", {{{"title", "one"}}, {{"title", "two"}, {"note", "n"}}});
        storeRecords("message", {{{"subject", "hi"}}});
    });
    Class cls = NSClassFromCString("VTActionPushSpaces");
    ASSERT_NE(cls, nullptr);
    NSObject* action = cls->alloc()->init();
    VTMatrix* users = ada.matrix("user");
    int cyRow = 0;
    while (str(users->valueInRow_column_(static_cast<uint32_t>(cyRow), "__recordId"_ns)) != kCy.id)
        cyRow++;
    std::string log = logOf([&] {
        NSSend<void>(action, NS_SEL("perform::"),
                     static_cast<NSObject*>(NSNumber::numberWithInt_(cyRow)),
                     static_cast<NSObject*>(users));
        // A row beyond the matrix pushes nothing.
        NSSend<void>(action, NS_SEL("perform::"),
                     static_cast<NSObject*>(NSNumber::numberWithInt_(9)),
                     static_cast<NSObject*>(users));
    });
    action->release();
    EXPECT_EQ(log, "Pushing to user: " + uniqueOf(kCy) +
                           "\nPushing sheet: role\nPushing sheet: group\nPushing sheet: user\n"
                           "Pushing sheet: task\nPushing sheet: message\n");
    std::vector<LXDelta*> pushed = drain();
    std::vector<std::string> got;
    for (LXDelta* d : pushed) got.push_back(summary(d));
    const std::string user = "c-3 set user [firstName lastName orgUnit company role groups]";
    EXPECT_EQ(got, (std::vector<std::string>{"c-3 set role [name]", "c-3 set group [name roles]",
                                             user, user, user, "c-3 set task [title note state]",
                                             "c-3 set task [title note state]",
                                             "c-3 set message [subject whom status dummy]"}));
    EXPECT_EQ(str(objectOf(pushed[6])->objectForKey_("title"_ns)),
              str(ada.matrix("task")->valueInRow_column_(1, "title"_ns)));
    // Nothing was stamped.
    EXPECT_EQ(objectOf(pushed[5])->objectForKey_("__modified"_ns), nullptr);
}

TEST_F(ReplicationTest, AnIncomingChangeWaitsForASaveAndTheSaveNeverWaitsForIt) {
    Client& bob = client(kBob);
    VTMatrix* tasks = bob.matrix("task");
    NSMutableDictionary* object = NSDictionary::dictionaryWithObjectsAndKeys_(
            "w-1"_ns, "__recordId"_ns, "remote"_ns, "title"_ns, nullptr);
    LXDelta* delta = incoming(setOf("task", names("title"), object));
    tasks->beginTransaction();
    tasks->setValue_inRow_column_("local"_ns, 0, "title"_ns);
    SyncTestThread* receiver = SyncTestThread::start([&] { bob.w->processDelta_(delta); });
    NSThread::sleepForTimeInterval_(0.1);
    EXPECT_FALSE(receiver->done()) << "applied in the middle of an open transaction";
    // The commit posts its deltas while the receive path waits.
    tasks->commitTransaction();
    ASSERT_TRUE(receiver->join(5));
    receiver->release();
    EXPECT_EQ(tasks->numberOfRows(), 2u);
    EXPECT_EQ(drain().size(), 2u);
}

TEST_F(ReplicationTest, ACheckCycleAcknowledgesExactlyWhatTheWorkspaceTookIn) {
    Client& bob = client(kBob);
    writeFile("transceiver.txt", "  127.0.0.1 \r\n");
    NSString* host = bob.w->joinTransceiver();
    EXPECT_EQ(str(host), "127.0.0.1");
    LXTransceiver* transceiver = LXTransceiver::defaultTransceiver();
    EXPECT_EQ(transceiver->pools()->objectForKey_("Rk2pWn"_ns), bob.w->pool());
    EXPECT_EQ(static_cast<LXPool*>(bob.w->pool())->delegate(), bob.w);
    EXPECT_EQ(str(transceiver->user()), uniqueOf(kBob));

    synctest::FakeRelay relay;
    NSMutableDictionary* object = NSDictionary::dictionaryWithObjectsAndKeys_(
            "x-1"_ns, "__recordId"_ns, "wired"_ns, "title"_ns, nullptr);
    relay.enqueue(incoming(setOf("task", names("title"), object)));
    relay.enqueue(incoming(NSDictionary::dictionaryWithObjectsAndKeys_(
            "merge"_ns, "action"_ns, "task"_ns, "sheet"_ns, nullptr)));
    std::string log = logOf([&] { transceiver->checkWithPort_host_(relay.port(), host); });
    EXPECT_EQ(relay.events(),
              (std::vector<std::string>{"collect b-2 dummy_group", "ack", "no ack"}));
    EXPECT_NE(log.find("unknown action for incoming delta: merge\ndelegate has refused to process "
                       "delta\n"),
              std::string::npos)
            << log;
    EXPECT_EQ(relay.waiting(), 1u);
    EXPECT_EQ(str(bob.matrix("task")->valueInRow_column_(0, "title"_ns)), "wired");
}

namespace {

NSObject* historyOf(NSDictionary* record) {
    return record ? record->objectForKey_("__history"_ns) : nullptr;
}

std::string text(NSObject* o) {
    return o ? static_cast<NSString*>(o->description())->UTF8String() : "(nil)";
}

// The (field, value) pairs of a record's history, in its order.
std::vector<std::string> lostValues(NSDictionary* record) {
    std::vector<std::string> out;
    auto* history = static_cast<NSArray*>(historyOf(record));
    for (uint32_t i = 0, n = history ? history->count() : 0; i < n; i++) {
        auto* e = static_cast<NSDictionary*>(history->objectAtIndex_(i));
        out.push_back(text(e->objectForKey_("field"_ns)) + "=" +
                      text(e->objectForKey_("value"_ns)));
    }
    return out;
}

}  // namespace

TEST_F(ReplicationTest, ConcurrentChangesOfOneFieldConvergeAndTheLoserIsKeptInTheHistory) {
    Client& ada = client(kAda);
    commit(ada.matrix("task"), 0, "title", "First"_ns);
    LXDelta* made = to(drain(), kBob);
    Client& bob = client(kBob);
    ASSERT_TRUE(bob.w->processDelta_(made));
    drain();

    // Both change the title while apart; Bob's change is the later one.
    enter(ada);
    commit(ada.matrix("task"), 0, "title", "Ada's"_ns);
    LXDelta* fromAda = to(drain(), kBob);
    enter(bob);
    commit(bob.matrix("task"), 0, "title", "Bob's"_ns);
    LXDelta* fromBob = to(drain(), kAda);
    ASSERT_TRUE(bob.w->processDelta_(fromAda));
    enter(ada);
    ASSERT_TRUE(ada.w->processDelta_(fromBob));

    auto* atAda =
            static_cast<NSDictionary*>(ada.matrix("task")->allObjectsSorted()->objectAtIndex_(0));
    auto* atBob =
            static_cast<NSDictionary*>(bob.matrix("task")->allObjectsSorted()->objectAtIndex_(0));
    for (NSDictionary* r : {atAda, atBob}) {
        EXPECT_EQ(str(r->objectForKey_("title"_ns)), "Bob's");
        EXPECT_EQ(lostValues(r), (std::vector<std::string>{"title=Ada's", "title=First"}));
    }
    EXPECT_TRUE(
            atAda->objectForKey_("__versions"_ns)->isEqual_(atBob->objectForKey_("__versions"_ns)));
    EXPECT_TRUE(historyOf(atAda)->isEqual_(historyOf(atBob)));
    EXPECT_EQ(str(lx::versionWriter(static_cast<NSString*>(
                      static_cast<NSDictionary*>(atAda->objectForKey_("__versions"_ns))
                              ->objectForKey_("title"_ns)))),
              kBob.id);

    // The sheet numbers each field's lost values from the newest.
    NSString* id = static_cast<NSString*>(atAda->objectForKey_("__recordId"_ns));
    NSMutableArray* history = ada.sheet("task")->historyOfRecordWithId_(id);
    ASSERT_EQ(history->count(), 2u);
    auto* newest = static_cast<NSDictionary*>(history->objectAtIndex_(0));
    EXPECT_EQ(str(newest->objectForKey_("value"_ns)), "Ada's");
    EXPECT_EQ(str(newest->objectForKey_("writer"_ns)), kAda.id);
    EXPECT_EQ(static_cast<NSNumber*>(newest->objectForKey_("n"_ns))->intValue(), 1);
    EXPECT_EQ(str(ada.sheet("task")->valueOfField_ofRecordWithId_fromHistoryEntry_("title"_ns, id,
                                                                                   2)),
              "First");
    EXPECT_EQ(ada.sheet("task")->valueOfField_ofRecordWithId_fromHistoryEntry_("title"_ns, id, 3),
              nullptr);
    EXPECT_EQ(ada.sheet("task")->historyOfRecordWithId_("no-such"_ns)->count(), 0u);
}

TEST_F(ReplicationTest, RepeatedAndLateDeltasChangeNothing) {
    Client& ada = client(kAda);
    VTMatrix* atAda = ada.matrix("task");
    commit(atAda, 0, "title", "One"_ns);
    LXDelta* first = to(drain(), kBob);
    commit(atAda, 0, "title", "Two"_ns);
    LXDelta* second = to(drain(), kBob);

    Client& bob = client(kBob);
    VTMatrix* tasks = bob.matrix("task");
    ASSERT_TRUE(bob.w->processDelta_(second));
    auto* record = static_cast<NSMutableDictionary*>(tasks->allObjectsSorted()->objectAtIndex_(0));
    NSObject* id = record->objectForKey_("__recordId"_ns);
    tasks->markAsSeen_rowIndex_(true, 0);
    Ref<NSObject> before = adoptRef(record->mutableCopy());

    // The late first delta and the second once more: nothing moves, and the
    // record stays seen.
    ASSERT_TRUE(bob.w->processDelta_(first));
    ASSERT_TRUE(bob.w->processDelta_(second));
    EXPECT_TRUE(record->isEqual_(before.get()));
    EXPECT_TRUE(tasks->seenRecords()->member_(id));
    EXPECT_EQ(lostValues(record), std::vector<std::string>{"title=One"});

    // A local change since is not undone by the repeated delta.
    commit(tasks, 0, "title", "Three"_ns);
    drain();
    ASSERT_TRUE(bob.w->processDelta_(second));
    EXPECT_EQ(str(record->objectForKey_("title"_ns)), "Three");
    EXPECT_EQ(lostValues(record), (std::vector<std::string>{"title=Two", "title=One"}));
}

TEST_F(ReplicationTest, ARemovalHoldsAgainstOlderChangesAndANewerChangeBringsTheRecordBack) {
    Client& ada = client(kAda);
    commit(ada.matrix("task"), 0, "title", "Alive"_ns);
    std::vector<LXDelta*> made = drain();
    std::string id = str(ada.matrix("task")->valueInRow_column_(0, "__recordId"_ns));
    Client& bob = client(kBob);
    ASSERT_TRUE(bob.w->processDelta_(to(made, kBob)));
    drain();

    // Bob edits, then Ada removes: the removal is the newer.
    commit(bob.matrix("task"), 0, "title", "Bob's edit"_ns);
    std::vector<LXDelta*> edit = drain();
    enter(ada);
    ada.matrix("task")->beginTransaction();
    ada.matrix("task")->removeRow_(0);
    ada.matrix("task")->commitTransaction();
    std::vector<LXDelta*> removal = drain();

    // At Ada the older edit doesn't bring the record back; its value is
    // kept in the tombstone.
    ASSERT_TRUE(ada.w->processDelta_(to(edit, kAda)));
    EXPECT_EQ(ada.matrix("task")->numberOfRows(), 0u);
    NSDictionary* stone = ada.matrix("task")->tombstoneWithRecordId_(ns(id.c_str()));
    ASSERT_NE(stone, nullptr);
    EXPECT_EQ(str(stone->objectForKey_("title"_ns)), "Bob's edit");
    enter(bob);
    ASSERT_TRUE(bob.w->processDelta_(to(removal, kBob)));
    EXPECT_EQ(bob.matrix("task")->numberOfRows(), 0u);
    // Stamps are local; the rest is the same everywhere.
    auto expectSame = [](NSDictionary* a, NSDictionary* b) {
        ASSERT_NE(a, nullptr);
        for (const char* k :
             {"title", "__versions", "__history", "__removed", "__creator", "__created"})
            EXPECT_TRUE(a->objectForKey_(ns(k))->isEqual_(b->objectForKey_(ns(k)))) << k;
    };
    expectSame(bob.matrix("task")->tombstoneWithRecordId_(ns(id.c_str())), stone);

    // Cy hears of the removal before the record: the creation and the
    // edit, arriving late, find the tombstone.
    Client& cy = client(kCy);
    ASSERT_TRUE(cy.w->processDelta_(to(removal, kCy)));
    ASSERT_TRUE(cy.w->processDelta_(to(made, kCy)));
    ASSERT_TRUE(cy.w->processDelta_(to(edit, kCy)));
    EXPECT_EQ(cy.matrix("task")->numberOfRows(), 0u);
    expectSame(cy.matrix("task")->tombstoneWithRecordId_(ns(id.c_str())), stone);
    // Stored as it is: a new start finds no row and the same tombstone.
    EXPECT_EQ(cy.matrix("task")->container()->count_(NSMutableDictionary::classObject()), 1u);

    // A change made after the removal (Eve's, later than everything)
    // brings the record back, with a line in the log.
    NSMutableDictionary* revival =
            versioned(NSDictionary::dictionaryWithObjectsAndKeys_(ns(id.c_str()), "__recordId"_ns,
                                                                  "Back"_ns, "title"_ns, nullptr),
                      {"title"});
    std::string log = logOf([&] {
        ASSERT_TRUE(cy.w->processDelta_(incoming(setOf("task", names("title"), revival))));
    });
    EXPECT_EQ(log,
              "record " + id + " of task comes back: a change newer than its removal arrived\n");
    ASSERT_EQ(cy.matrix("task")->numberOfRows(), 1u);
    EXPECT_EQ(str(cy.matrix("task")->valueInRow_column_(0, "title"_ns)), "Back");
    EXPECT_EQ(cy.matrix("task")->tombstoneWithRecordId_(ns(id.c_str())), nullptr);
    // The old removal, once more, leaves it standing.
    ASSERT_TRUE(cy.w->processDelta_(to(removal, kCy)));
    EXPECT_EQ(cy.matrix("task")->numberOfRows(), 1u);
}

TEST_F(ReplicationTest, RecordsFromBeforeVersionsAreVersionZero) {
    Client& bob = client(kBob, {kAda, kBob, kCy}, [] {
        LXContainer* store = LXContainer::alloc()->initWithName_("data/task"_ns);
        store->set_(NSDictionary::dictionaryWithObjectsAndKeys_("old-1"_ns, "__recordId"_ns,
                                                                "Legacy"_ns, "title"_ns, "Kept"_ns,
                                                                "note"_ns, nullptr));
        store->release();
    });
    VTMatrix* tasks = bob.matrix("task");
    ASSERT_EQ(tasks->numberOfRows(), 1u);
    auto* record = static_cast<NSDictionary*>(tasks->allObjectsSorted()->objectAtIndex_(0));

    // Any versioned change is newer than a value without a version.
    NSMutableDictionary* change =
            versioned(NSDictionary::dictionaryWithObjectsAndKeys_("old-1"_ns, "__recordId"_ns,
                                                                  "New"_ns, "title"_ns, nullptr),
                      {"title"});
    ASSERT_TRUE(bob.w->processDelta_(incoming(setOf("task", names("title"), change))));
    EXPECT_EQ(str(record->objectForKey_("title"_ns)), "New");
    // A writer without versions changes nothing that has one, nor a value
    // that has none; what it sent is kept in the history.
    NSMutableDictionary* stale = NSDictionary::dictionaryWithObjectsAndKeys_(
            "old-1"_ns, "__recordId"_ns, "Stale"_ns, "title"_ns, "Other"_ns, "note"_ns, nullptr);
    ASSERT_TRUE(bob.w->processDelta_(incoming(setOf("task", names("title", "note"), stale))));
    EXPECT_EQ(str(record->objectForKey_("title"_ns)), "New");
    EXPECT_EQ(str(record->objectForKey_("note"_ns)), "Kept");
    EXPECT_EQ(lostValues(record),
              (std::vector<std::string>{"note=Other", "title=Legacy", "title=Stale"}));
    // A local change of the unversioned note gets its first version.
    commit(tasks, 0, "note", "Mine"_ns);
    EXPECT_EQ(str(lx::versionWriter(static_cast<NSString*>(
                      static_cast<NSDictionary*>(record->objectForKey_("__versions"_ns))
                              ->objectForKey_("note"_ns)))),
              kBob.id);
}

TEST_F(ReplicationTest, WithVersionsOffTheListedFieldsAreWrittenOverAndRemovalsLeaveNothing) {
    setenv("VANTOR_RECORD_VERSIONS", "off", 1);
    Client& bob = client(kBob);
    unsetenv("VANTOR_RECORD_VERSIONS");
    VTMatrix* tasks = bob.matrix("task");
    commit(tasks, 0, "title", "Mine"_ns);
    drain();
    auto* record = static_cast<NSDictionary*>(tasks->allObjectsSorted()->objectAtIndex_(0));
    EXPECT_EQ(record->objectForKey_("__versions"_ns), nullptr);
    NSObject* id = record->objectForKey_("__recordId"_ns);
    NSMutableDictionary* older = NSDictionary::dictionaryWithObjectsAndKeys_(
            id, "__recordId"_ns, "Theirs"_ns, "title"_ns, nullptr);
    ASSERT_TRUE(bob.w->processDelta_(incoming(setOf("task", names("title"), older))));
    EXPECT_EQ(str(record->objectForKey_("title"_ns)), "Theirs");
    tasks->beginTransaction();
    tasks->removeRow_(0);
    tasks->commitTransaction();
    EXPECT_EQ(tasks->container()->count_(NSMutableDictionary::classObject()), 0u);
    EXPECT_EQ(contentsOf(drain()[0])->objectForKey_("version"_ns), nullptr);
}
