// A sheet whose table is a real native list, made by the main thread, while
// another thread applies incoming changes to the same sheet and reloads the
// table, as the transceiver's thread does. The main thread saves in a loop
// meanwhile and serves its messages between saves, as the message loop
// does. Nothing may hang, no change may be lost, and whenever the other
// thread waits for the main thread to serve a message to the list, it may
// hold neither of the matrix's locks: the main thread would wait for them in
// its next save and never serve the message.
#include <algorithm>
#include <atomic>

#include "foundation/platform/Platform.h"
#include "tests/toolkit/NativeProbe.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSWindow.h"
#include "workspace_fixture.h"

// Applies incoming records to the sheet on its own thread.
class IncomingChanges : public NSObject {
    NS_DECLARE_CLASS(IncomingChanges, NSObject)

public:
    void run_(NSObject*) {
        for (int k = 0; k < count; k++) {
            NSAutoreleasePoolScope pool;
            NSMutableDictionary* record = NSMutableDictionary::dictionary();
            record->setObject_forKey_(NSString::stringWithFormat_("in-%d", k), "__recordId"_ns);
            record->setObject_forKey_(NSString::stringWithFormat_("incoming %d", k), "title"_ns);
            if (sheet->updateFields_ofObject_remote_(
                        NSArray::arrayWithObjects_("title"_ns, nullptr), record, true))
                applied++;
        }
        done = true;
    }
    // A reload that breaks the rule: it holds the matrix's write lock while
    // its message waits for the main thread.
    void reloadHoldingALock_(NSObject*) {
        auto* lock = static_cast<NSLock*>(sheet->matrix()->valueForKey_("writeLock"_ns));
        lock->lock();
        sheet->sheetTableView()->reloadData();
        lock->unlock();
        done = true;
    }
    VTSheet* sheet = nullptr;
    int count = 0;
    std::atomic<int> applied{0};
    std::atomic<bool> done{false};

protected:
    ~IncomingChanges() override = default;
};

NS_CLASS_BEGIN(IncomingChanges, NSObject)
    NS_METHOD(run_)
    NS_METHOD(reloadHoldingALock_)
NS_CLASS_END(IncomingChanges)

namespace {

// What the main thread sees while it serves a message another thread sent
// to the list: whether that thread holds a lock of the matrix.
struct LockWatch {
    VTMatrix* matrix = nullptr;
    int served = 0;
    int heldLocks = 0;

    static void seen(void* context) {
        auto* watch = static_cast<LockWatch*>(context);
        watch->served++;
        for (const char* name : {"transactionLock", "writeLock"}) {
            auto* lock = static_cast<NSLock*>(
                    watch->matrix->valueForKey_(NSString::stringWithUTF8String_(name)));
            // The main thread holds neither here (it is between saves), so
            // a lock it cannot take is held by the waiting sender.
            if (lock->tryLock())
                lock->unlock();
            else
                watch->heldLocks++;
        }
    }
};

class TableThreadsTest : public Win32WorkspaceTest {
protected:
    void TearDown() override {
        if (_workspace) _workspace->release();
        Win32WorkspaceTest::TearDown();
    }
    // The task sheet on screen: its table in a window with a column, all
    // made by this thread, and the watch on its list.
    VTSheet* openTaskSheet() {
        NSInitCommonControls();
        writeFile("conf/cro.vtr", kSmallConfiguration);
        _workspace = build(key("Ada Lovelace/Demo/Acme", "u1"));
        VTSheet* sheet = _workspace ? _workspace->sheetNamed_("task"_ns) : nullptr;
        if (!sheet) return nullptr;
        _window.adopt(NSWindow::alloc()->initWithContentRect_styleMask_backing_defer_(
                NSMakeRect(0, 0, 400, 300), 0, 0, false));
        NSTableView* table = sheet->sheetTableView();
        _window->contentView()->addSubview_(table);
        Ref<NSTableColumn> title = adoptRef(static_cast<NSTableColumn*>(
                NSTableColumn::alloc()->initWithIdentifier_("title"_ns)));
        table->addTableColumn_(title);
        if (!table->currentHWnd()) return nullptr;
        sheet->setValue_forKey_(NSNumber::numberWithInt_(1), "fullyInitialized"_ns);
        watch.matrix = sheet->matrix();
        probeWatchSentMessages(table->currentHWnd(), &LockWatch::seen, &watch);
        return sheet;
    }
    static Ref<IncomingChanges> changesFor(VTSheet* sheet) {
        Ref<IncomingChanges> incoming =
                adoptRef(static_cast<IncomingChanges*>(IncomingChanges::alloc()->init()));
        incoming->sheet = sheet;
        return incoming;
    }

    LockWatch watch;

private:
    VTWorkspace* _workspace = nullptr;
    Ref<NSWindow> _window;
};

TEST_F(TableThreadsTest, SavesAndIncomingReloadsNeitherHangNorLoseAChange) {
    VTSheet* sheet = openTaskSheet();
    ASSERT_NE(sheet, nullptr);
    VTMatrix* matrix = sheet->matrix();
    NSTableView* table = sheet->sheetTableView();
    uint32_t before = matrix->numberOfRows();

    Ref<IncomingChanges> incoming = changesFor(sheet);
    incoming->count = 40;
    NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("run:"), incoming, nullptr);

    // Saves until the other thread is through, and a few more.
    int saves = 0;
    for (int after = 0; after < 5; saves++) {
        if (incoming->done) after++;
        NSAutoreleasePoolScope pool;
        matrix->beginTransaction();
        uint32_t row = matrix->numberOfRows();
        matrix->setValue_inRow_column_(NSString::stringWithFormat_("saved %d", saves), row,
                                       "title"_ns);
        ASSERT_TRUE(matrix->commitTransaction());
        probePump();
    }

    EXPECT_EQ(incoming->applied, 40);
    EXPECT_GT(watch.served, 0);
    EXPECT_EQ(watch.heldLocks, 0);
    // Every change is in the matrix, and the list shows them all.
    ASSERT_EQ(matrix->numberOfRows(), before + 40 + static_cast<uint32_t>(saves));
    for (int k = 0; k < 40; k++)
        EXPECT_NE(matrix->objectWithRecordId_(NSString::stringWithFormat_("in-%d", k)), nullptr)
                << k;
    NSSend<void>(table->dataSource(), NS_SEL("filter"));
    table->reloadData();
    EXPECT_EQ(probeListCount(table->currentHWnd()), static_cast<int>(matrix->numberOfRows()));
}

// The watch itself: a reload that holds a lock while it waits is seen.
// (The main thread only serves messages here; were it to save, both
// threads would stop.)
TEST_F(TableThreadsTest, TheWatchSeesALockHeldWhileTheMessageWaits) {
    VTSheet* sheet = openTaskSheet();
    ASSERT_NE(sheet, nullptr);
    Ref<IncomingChanges> incoming = changesFor(sheet);
    NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("reloadHoldingALock:"), incoming,
                                                           nullptr);
    while (!incoming->done) probePumpWaiting(10);
    EXPECT_GT(watch.served, 0);
    EXPECT_GT(watch.heldLocks, 0);
}

}  // namespace
