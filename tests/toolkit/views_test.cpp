// The table view, the tab view and the status item with their native side,
// under Wine's null driver: column widths, reloads and the selection rules
// of the list; tabs, their pages and the deferred creation at the page's
// timer; the tray icon's record and clicks.
#include <gtest/gtest.h>

#include <functional>

#include "foundation/Foundation.h"
#include "tests/toolkit/NativeProbe.h"
#include "tests/toolkit/ToolkitFixture.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSImage.h"
#include "toolkit/NSMenu.h"
#include "toolkit/NSStatusBar.h"
#include "toolkit/NSTabView.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSTextField.h"

// Rows of cells "<column> <row>"; the column "n" answers the row as a
// number, so that the table shows its description.
class RowSource : public NSObject {
    NS_DECLARE_CLASS(RowSource, NSObject)

public:
    int32_t numberOfRowsInTableView_(NSObject*) {
        asked++;
        return rows;
    }
    NSObject* tableView_objectValueForTableColumn_row_(NSObject*, NSTableColumn* column,
                                                       int32_t row) {
        NSObject* identifier = column->identifier();
        if (identifier->isEqual_("n"_ns)) return NSNumber::numberWithInt_(row);
        return NSString::stringWithFormat_("%s %d",
                                           static_cast<NSString*>(identifier)->UTF8String(), row);
    }
    int32_t rows = 0;
    int asked = 0;

protected:
    ~RowSource() override = default;
};

NS_CLASS_BEGIN(RowSource, NSObject)
    NS_METHOD(numberOfRowsInTableView_)
    NS_METHOD(tableView_objectValueForTableColumn_row_)
NS_CLASS_END(RowSource)

namespace {

class ToolkitViews : public ToolkitNative {
protected:
    static Ref<NSTableColumn> column(const char* identifier, float width = 0) {
        Ref<NSTableColumn> c =
                adoptRef(static_cast<NSTableColumn*>(NSTableColumn::alloc()->initWithIdentifier_(
                        NSString::stringWithUTF8String_(identifier))));
        c->setWidth_(width);
        return c;
    }
    // A table of the given width in the window, with the columns.
    Ref<NSTableView> table(NSWindow* window, float width,
                           std::initializer_list<Ref<NSTableColumn>> columns) {
        Ref<NSTableView> t = make<NSTableView>(0, 0, width, 80);
        window->contentView()->addSubview_(t);
        for (const Ref<NSTableColumn>& c : columns) t->addTableColumn_(c);
        return t;
    }
    static Ref<RowSource> rows(int32_t n) {
        Ref<RowSource> source = adoptRef(static_cast<RowSource*>(RowSource::alloc()->init()));
        source->rows = n;
        return source;
    }
    // Pumps this thread's messages until the condition holds; false if it
    // still doesn't after a generous wait.
    static bool pumpUntil(const std::function<bool()>& done) {
        for (int i = 0; i < 200 && !done(); i++) probePumpWaiting(25);
        return done();
    }
    // The center keeps its observers; each test observes tables of its own.
    static void observeSelection(NSTableView* t, GuiRecorder* r) {
        NSNotificationCenter::defaultCenter()->addObserver_selector_name_object_(
                r, NS_SEL("fired:"), "NSTableViewSelectionDidChangeNotification"_ns, t);
    }
};

TEST_F(ToolkitViews, ListComesUpAsAReportWithColumnsSharingTheWidth) {
    Ref<NSWindow> window = makeWindow(200);
    Ref<NSTableView> t = make<NSTableView>(0, 0, 300, 80);
    // Without a place on screen there is no list yet, and nothing stored
    // natively.
    Ref<NSTableColumn> first = column("first");
    t->addTableColumn_(first);
    EXPECT_EQ(t->currentHWnd(), nullptr);
    EXPECT_EQ(t->selectedRow(), 0);
    window->contentView()->addSubview_(t);
    void* list = t->currentHWnd();
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(probeClassName(list), "SysListView32");
    // The list adds its scroll bars to the style.
    EXPECT_EQ(probeStyle(list) & 0xFFCF000Fu, 0x50000009u);
    EXPECT_EQ(probeExStyle(list) & 0x200u, 0x200u);
    EXPECT_EQ(probeListExtendedStyle(list), 0x21u);
    EXPECT_EQ(probeId(list), 0);
    EXPECT_EQ(t->selectedRow(), -1);
    NSApplication* app = NSApplication::sharedApplication();
    EXPECT_EQ(app->tableViewForHandle(list), t.get());
    EXPECT_EQ(app->controlForHandle(list), t.get());
    EXPECT_EQ(probeSend(list, kProbeGetDlgCode, 0, 0), 4);

    // The column added before the list is there, with the whole width
    // less 1.
    EXPECT_EQ(probeListColumnWidth(list, 0), 299);
    EXPECT_EQ(probeListColumnTitle(list, 0), "first");
    // A fixed column counts as flexible in the share of its own addition.
    Ref<NSTableColumn> seen = column("_seen_", 20);
    seen->headerCell()->setStringValue_("*"_ns);
    t->addTableColumn_(seen);
    EXPECT_EQ(probeListColumnWidth(list, 0), (300 - 1) / 2);
    EXPECT_EQ(probeListColumnWidth(list, 1), 20);
    EXPECT_EQ(probeListColumnTitle(list, 1), "*");
    Ref<NSTableColumn> last = column("last");
    t->addTableColumn_(last);
    EXPECT_EQ(probeListColumnWidth(list, 0), (300 - 20 - 1) / 2);
    EXPECT_EQ(probeListColumnWidth(list, 2), (300 - 20 - 1) / 2);
    EXPECT_EQ(last->tableView(), t.get());
    EXPECT_EQ(t->tableColumns()->count(), 3u);

    // The native width rules the relayout; the fixed column stays.
    t->relayoutColumns();
    EXPECT_EQ(probeListColumnWidth(list, 0), (300 - 20 - 3) / 2);
    EXPECT_EQ(probeListColumnWidth(list, 1), 20);
    probeResize(list, 500, 80);
    t->relayoutColumns();
    EXPECT_EQ(probeListColumnWidth(list, 0), (500 - 20 - 3) / 2);
    EXPECT_EQ(probeListColumnWidth(list, 1), 20);
    EXPECT_EQ(probeListColumnWidth(list, 2), (500 - 20 - 3) / 2);
}

TEST_F(ToolkitViews, OnlyFlexibleColumnsDivideTheWidthLessThree) {
    Ref<NSWindow> window = makeWindow(200);
    Ref<NSTableView> t = table(window, 303, {column("a"), column("b"), column("c")});
    t->relayoutColumns();
    for (int c = 0; c < 3; c++) EXPECT_EQ(probeListColumnWidth(t->currentHWnd(), c), 100);
}

TEST_F(ToolkitViews, ReloadWritesEveryCellAndKeepsOrMovesTheSelection) {
    Ref<NSWindow> window = makeWindow(200);
    Ref<NSTableView> t = table(window, 300, {column("name"), column("n")});
    void* list = t->currentHWnd();
    Ref<RowSource> source = rows(5);
    t->setDataSource_(source);
    EXPECT_EQ(source->asked, 0);  // the setter does not reload
    Ref<GuiRecorder> changes = recorder();
    observeSelection(t, changes);

    t->reloadData();
    ASSERT_EQ(probeListCount(list), 5);
    EXPECT_EQ(probeListText(list, 0, 0), "name 0");
    EXPECT_EQ(probeListText(list, 4, 0), "name 4");
    EXPECT_EQ(probeListText(list, 3, 1), "3");
    // Asked anew before each row, and once more at the end.
    EXPECT_EQ(source->asked, 6);
    EXPECT_EQ(t->selectedRow(), -1);
    EXPECT_EQ(changes->fired, 0);

    t->setSelectedRow_(2);
    EXPECT_EQ(t->selectedRow(), 2);
    EXPECT_TRUE(probeListSelected(list, 2));
    EXPECT_EQ(changes->fired, 1);
    EXPECT_EQ(NSDynamicCast<NSNotification>(changes->last)->object(), t.get());
    // A reload keeps the row and tells once more.
    t->reloadData();
    EXPECT_EQ(t->selectedRow(), 2);
    EXPECT_TRUE(probeListSelected(list, 2));
    EXPECT_EQ(changes->fired, 2);
    // The list telling again about the row already selected tells nobody.
    probeSelectRow(list, 2, true);
    EXPECT_EQ(changes->fired, 2);

    // Shorter: the last row that is left.
    source->rows = 2;
    t->reloadData();
    EXPECT_EQ(probeListCount(list), 2);
    EXPECT_EQ(t->selectedRow(), 1);
    EXPECT_TRUE(probeListSelected(list, 1));
    EXPECT_EQ(changes->fired, 3);
    // Empty: none, and nobody is told.
    source->rows = 0;
    t->reloadData();
    EXPECT_EQ(probeListCount(list), 0);
    EXPECT_EQ(t->selectedRow(), -1);
    EXPECT_EQ(changes->fired, 3);

    // Rows outside the source and -1 are only stored (or clear).
    source->rows = 3;
    t->reloadData();
    t->setSelectedRow_(7);
    EXPECT_EQ(t->selectedRow(), 7);
    EXPECT_EQ(t->selectedRowIndexes()->count(), 0u);
    t->setSelectedRow_(1);
    t->setSelectedRow_(-1);
    EXPECT_FALSE(probeListSelected(list, 1));
    EXPECT_EQ(t->selectedRow(), -1);
}

TEST_F(ToolkitViews, SelectionNotificationsAndHeaderClicks) {
    Ref<NSWindow> window = makeWindow(200);
    Ref<NSTableColumn> name = column("name");
    Ref<NSTableColumn> bare = column("bare");
    Ref<NSTableView> t = table(window, 200, {name, bare});
    void* list = t->currentHWnd();
    Ref<RowSource> source = rows(3);
    t->setDataSource_(source);
    t->reloadData();
    Ref<GuiRecorder> changes = recorder();
    observeSelection(t, changes);

    // A user's click: the table learns the row and tells the center.
    probeSelectRow(list, 2, true);
    EXPECT_EQ(t->selectedRow(), 2);
    ASSERT_EQ(changes->fired, 1);
    EXPECT_EQ(NSDynamicCast<NSNotification>(changes->last)->object(), t.get());
    // A repeat and a bare deselection tell nobody.
    probeSelectRow(list, 2, true);
    probeSelectRow(list, 2, false);
    EXPECT_EQ(changes->fired, 1);
    EXPECT_EQ(t->selectedRow(), 2);
    probeSelectRow(list, 0, true);
    EXPECT_EQ(t->selectedRow(), 0);
    EXPECT_EQ(changes->fired, 2);

    // Several rows: extending never removes a selection.
    NSMutableIndexSet* set = NSMutableIndexSet::indexSet();
    set->addIndex_(1);
    t->selectRowIndexes_byExtendingSelection_(set, true);
    NSMutableIndexSet* selected = t->selectedRowIndexes();
    EXPECT_EQ(selected->count(), 2u);
    EXPECT_TRUE(selected->containsIndex_(0));
    EXPECT_TRUE(selected->containsIndex_(1));
    set->addIndex_(2);
    t->selectRowIndexes_byExtendingSelection_(set, false);
    selected = t->selectedRowIndexes();
    EXPECT_EQ(selected->count(), 2u);
    EXPECT_FALSE(selected->containsIndex_(0));
    EXPECT_TRUE(selected->containsIndex_(2));

    // A header click reaches the header cell's target with the column; a
    // header with no target does nothing.
    Ref<GuiRecorder> headers = recorder();
    name->headerCell()->setTarget_(headers);
    name->headerCell()->setAction_(NS_SEL("fired:"));
    probeClickColumn(window->hWnd(), list, 0);
    EXPECT_EQ(headers->fired, 1);
    EXPECT_EQ(headers->last, name.get());
    probeClickColumn(window->hWnd(), list, 1);
    EXPECT_EQ(headers->fired, 1);
}

TEST_F(ToolkitViews, TabsHavePagesTheFirstShownTheOthersWhenChosen) {
    Ref<NSWindow> window = makeWindow(300);
    window->orderFront_(nullptr);
    Ref<NSTabView> tabs = make<NSTabView>(0, 0, 300, 200);
    window->contentView()->addSubview_(tabs);
    void* strip = tabs->currentHWnd();
    ASSERT_NE(strip, nullptr);
    EXPECT_EQ(probeClassName(strip), "SysTabControl32");
    // The tab control adds WS_CLIPSIBLINGS.
    EXPECT_EQ(probeStyle(strip) & 0xFBFF0000u, 0x50810000u);
    EXPECT_EQ(probeId(strip), tabs->uid());
    EXPECT_EQ(NSApplication::sharedApplication()->tabViewForHandle(strip), tabs.get());

    Ref<NSTabViewItem> tasks = adoptRef(
            static_cast<NSTabViewItem*>(NSTabViewItem::alloc()->initWithIdentifier_("Tasks"_ns)));
    Ref<NSTabViewItem> people = adoptRef(
            static_cast<NSTabViewItem*>(NSTabViewItem::alloc()->initWithIdentifier_("People"_ns)));
    EXPECT_NE(tasks->nativeItem(), nullptr);
    tabs->addTabViewItem_(tasks);
    tabs->addTabViewItem_(people);
    EXPECT_EQ(tabs->numberOfTabViewItems(), 2);
    EXPECT_EQ(tabs->tabViewItemAtIndex_(1), people.get());
    EXPECT_EQ(tabs->tabViewItemAtIndex_(2), nullptr);
    EXPECT_EQ(probeTabCount(strip), 2);
    EXPECT_EQ(probeTabText(strip, 0), "Tasks");
    EXPECT_EQ(probeTabText(strip, 1), "People");

    void* first = tasks->view()->hWnd();
    void* second = people->view()->hWnd();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(probeClassName(first), "Window -- OpenStep -- Tab Dialog");
    EXPECT_EQ(probeParent(first), strip);
    EXPECT_TRUE(tasks->view()->isAsync());
    NSNativeRect r = probeRectInParent(first);
    EXPECT_EQ(r.left, 1);
    EXPECT_EQ(r.top, 23);
    EXPECT_EQ(r.width, 300 - 4);
    EXPECT_EQ(r.height, 200 - 26);
    EXPECT_EQ(tasks->view()->bounds().size.width, 300 - 4);
    EXPECT_EQ(tasks->view()->bounds().size.height, 200 - 26);
    // The first page at once, the second only when chosen.
    EXPECT_TRUE(probeVisible(first));
    EXPECT_FALSE(probeVisible(second));
    probeChooseTab(strip, 1);
    EXPECT_FALSE(probeVisible(first));
    EXPECT_TRUE(probeVisible(second));
    probeChooseTab(strip, 0);
    EXPECT_TRUE(probeVisible(first));
    EXPECT_FALSE(probeVisible(second));
}

TEST_F(ToolkitViews, PageControlsComeIntoBeingAtTheTimer) {
    Ref<NSWindow> window = makeWindow(300);
    Ref<NSTabView> tabs = make<NSTabView>(0, 0, 300, 200);
    window->contentView()->addSubview_(tabs);
    Ref<NSTabViewItem> item = adoptRef(
            static_cast<NSTabViewItem*>(NSTabViewItem::alloc()->initWithIdentifier_("Tasks"_ns)));
    tabs->addTabViewItem_(item);
    NSView* page = item->view();

    Ref<NSTextField> field = make<NSTextField>(10, 140, 120, 20);
    Ref<NSButton> button = make<NSButton>(140, 140, 80, 25);
    page->addSubview_(field);
    page->addSubview_(button);
    // Queued, not made; text set in between waits in the field.
    EXPECT_EQ(field->currentHWnd(), nullptr);
    EXPECT_EQ(page->awaited()->count(), 2u);
    field->setStringValue_("typed later"_ns);
    // A table is made at once all the same: its columns need the list.
    Ref<NSTableView> t = make<NSTableView>(10, 10, 270, 100);
    page->addSubview_(t);
    Ref<NSTableColumn> name = column("name");
    t->addTableColumn_(name);
    EXPECT_NE(t->currentHWnd(), nullptr);
    EXPECT_EQ(probeParent(t->currentHWnd()), page->hWnd());

    ASSERT_TRUE(pumpUntil([&] { return field->currentHWnd() != nullptr; }));
    EXPECT_EQ(probeParent(field->currentHWnd()), page->hWnd());
    EXPECT_EQ(probeText(field->currentHWnd()), "typed later");
    EXPECT_NE(button->currentHWnd(), nullptr);
    // Emptied at the tick: nothing is made twice.
    EXPECT_EQ(page->awaited()->count(), 0u);
    NSNativeRect r = probeRectInParent(field->currentHWnd());
    EXPECT_EQ(r.top, (200 - 26) - 140 - 20);

    // The page takes the reports of its controls: a button's command and
    // the list's selection.
    Ref<GuiRecorder> clicks = recorder();
    button->setTarget_(clicks);
    button->setAction_(NS_SEL("fired:"));
    probeSend(page->hWnd(), kProbeCommand, static_cast<uintptr_t>(button->uid()), 0);
    EXPECT_EQ(clicks->fired, 1);
    Ref<RowSource> source = rows(2);
    t->setDataSource_(source);
    t->reloadData();
    Ref<GuiRecorder> changes = recorder();
    observeSelection(t, changes);
    probeSelectRow(t->currentHWnd(), 1, true);
    EXPECT_EQ(t->selectedRow(), 1);
    EXPECT_EQ(changes->fired, 1);

    // Over the bare page the hint line empties.
    Ref<NSTextField> hint = make<NSTextField>(0, 250, 300, 20);
    window->contentView()->addSubview_(hint);
    hint->setStringValue_("a tip"_ns);
    NSApplication::setHintLine(hint);
    probeSend(page->hWnd(), 0x0200 /* WM_MOUSEMOVE */, 0, 0);
    EXPECT_EQ(probeText(hint->currentHWnd()), "");
    NSApplication::setHintLine(nullptr);
}

TEST_F(ToolkitViews, TheTrayItemsRecordAndItsClick) {
    NSApplication* app = NSApplication::sharedApplication();
    Ref<NSWindow> main = makeWindow(135);
    app->setMainWindow_(main);
    NSStatusBar* bar = NSStatusBar::systemStatusBar();
    EXPECT_EQ(bar, NSStatusBar::systemStatusBar());
    Ref<NSStatusItem> item;
    {
        NSAutoreleasePoolScope inner;
        item = retainRef(bar->statusItemWithLength_(-1));
    }
    {
        // The answered list holds the item until its pool ends.
        NSAutoreleasePoolScope inner;
        EXPECT_EQ(bar->items()->count(), 1u);
    }
    EXPECT_EQ(item->uid(), 0x84D2u);
    EXPECT_EQ(NSStatusItem::trayMessage(), 0x84D2u);
    Ref<GuiRecorder> clicks = recorder();
    item->setTarget_(clicks);
    item->setAction_(NS_SEL("fired:"));
    // The tip is cut to what the record holds.
    item->setTitle_(
            "Vantor: a title longer than the sixty-three units the tip of the shell holds"_ns);
    Ref<NSImage> image = retainRef(NSImage::applicationIcon());
    item->setImage_(image);

    NSNativeNotifyIcon record = item->notifyIconData();
    EXPECT_EQ(record.cbSize, 152u);
    EXPECT_EQ(record.hWnd, main->hWnd());
    EXPECT_EQ(record.uID, 0x84D2u);
    EXPECT_EQ(record.uFlags, 3u);
    EXPECT_EQ(record.uCallbackMessage, 0x84D2u);
    EXPECT_EQ(record.hIcon, image->icon());
    EXPECT_NE(record.hIcon, nullptr);
    std::u16string tip(record.szTip);
    EXPECT_EQ(tip.size(), 63u);
    EXPECT_EQ(tip.substr(0, 7), u"Vantor:");

    // A click reaches the main window as the tray message: the action with
    // the item. Other mouse messages do nothing. The pool holds the lists
    // of items the clicks asked for.
    {
        NSAutoreleasePoolScope inner;
        probeSend(main->hWnd(), 0x84D2, 0, 0x0201 /* WM_LBUTTONDOWN */);
        EXPECT_EQ(clicks->fired, 1);
        EXPECT_EQ(clicks->last, item.get());
        probeSend(main->hWnd(), 0x84D2, 0, 0x0202 /* WM_LBUTTONUP */);
        EXPECT_EQ(clicks->fired, 1);
        // With no target nothing happens.
        item->setTarget_(nullptr);
        probeSend(main->hWnd(), 0x84D2, 0, 0x0201);
        EXPECT_EQ(clicks->fired, 1);
    }

    // The maker's release ends the item, and the bar forgets it.
    item = nullptr;
    {
        NSAutoreleasePoolScope inner;
        EXPECT_EQ(bar->items()->count(), 0u);
    }
    app->setMainWindow_(nullptr);
}

}  // namespace
