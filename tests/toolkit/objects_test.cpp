// The toolkit's object side without a native side: what vantor-admin and
// every native program see.
#include <gtest/gtest.h>

#include <cstdlib>

#include "foundation/Foundation.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"
#include "toolkit/NSAlert.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSDatePicker.h"
#include "toolkit/NSMenu.h"
#include "toolkit/NSPopUpButton.h"
#include "toolkit/NSStatusBar.h"
#include "toolkit/NSTabView.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSWindow.h"

// Records what a target-action message brings.
class ToolkitRecorder : public NSObject {
    NS_DECLARE_CLASS(ToolkitRecorder, NSObject)

public:
    void fired_(NSObject* sender) {
        count++;
        last = sender;
    }
    int count = 0;
    NSObject* last = nullptr;

protected:
    ~ToolkitRecorder() override = default;
};

NS_CLASS_BEGIN(ToolkitRecorder, NSObject)
    NS_METHOD(fired_)
NS_CLASS_END(ToolkitRecorder)

namespace {

TEST(ToolkitObjects, NoNativeSideKeepsEverythingInFields) {
    NSAutoreleasePoolScope pool;
    EXPECT_EQ(NSNative(), nullptr);
    EXPECT_EQ(NSInstanceHandle(), nullptr);
    Ref<NSWindow> window = adoptRef(NSWindow::alloc()->initWithContentRect_styleMask_backing_defer_(
            NSMakeRect(10, 20, 300, 230), 0, 0, false));
    EXPECT_EQ(window->hWnd(), nullptr);
    // The content view is lower by the fixed caption allowance.
    EXPECT_FLOAT_EQ(window->contentView()->bounds().size.height, 195);
    EXPECT_EQ(window->contentView()->window(), window.get());

    Ref<NSTextField> field =
            adoptRef(NSTextField::alloc()->initWithFrame_(NSMakeRect(5, 0, 100, 20)));
    field->setStringValue_("typed"_ns);
    field->setEnabled_(false);
    window->contentView()->addSubview_(field);
    EXPECT_EQ(field->hWnd(), nullptr);
    EXPECT_EQ(field->window(), window.get());
    EXPECT_TRUE(field->stringValue()->isEqual_("typed"_ns));
    // In a text field enabled and editable are one flag.
    EXPECT_FALSE(field->isEditable());
    field->setEditable_(true);
    EXPECT_TRUE(field->isEnabled());

    // The flip: a child at y 0, 20 high, in a parent 100 high starts at 80.
    Ref<NSView> parent = adoptRef(NSView::alloc()->initWithFrame_(NSMakeRect(0, 0, 200, 100)));
    NSNativeRect rect = parent->nativeRectOf(NSMakeRect(7.9f, 0, 50.5f, 20));
    EXPECT_EQ(rect.left, 7);
    EXPECT_EQ(rect.top, 80);
    EXPECT_EQ(rect.width, 50);
    EXPECT_EQ(rect.height, 20);

    Ref<NSPopUpButton> popup =
            adoptRef(NSPopUpButton::alloc()->initWithFrame_(NSMakeRect(0, 0, 100, 20)));
    popup->addItemWithTitle_("one"_ns);
    popup->addItemWithTitle_("two"_ns);
    EXPECT_EQ(popup->items()->count(), 2u);
    EXPECT_EQ(popup->indexOfSelectedItem(), -1);
    EXPECT_EQ(popup->titleOfSelectedItem(), nullptr);
    popup->removeAllItems();
    EXPECT_EQ(popup->items()->count(), 0u);

    Ref<NSDatePicker> picker =
            adoptRef(NSDatePicker::alloc()->initWithFrame_(NSMakeRect(0, 0, 100, 20)));
    EXPECT_EQ(picker->dateValue(), nullptr);
}

TEST(ToolkitObjects, TablesTabsAndTrayItemsWithoutNativeSide) {
    NSAutoreleasePoolScope pool;
    Ref<NSWindow> window = adoptRef(NSWindow::alloc()->initWithContentRect_styleMask_backing_defer_(
            NSMakeRect(0, 0, 300, 230), 0, 0, false));
    // A table keeps its columns; with no list nothing is written and the
    // selection is only stored.
    Ref<NSTableView> table = adoptRef(static_cast<NSTableView*>(
            NSTableView::alloc()->initWithFrame_(NSMakeRect(0, 0, 200, 100))));
    window->contentView()->addSubview_(table);
    EXPECT_EQ(table->hWnd(), nullptr);
    Ref<NSTableColumn> column = adoptRef(
            static_cast<NSTableColumn*>(NSTableColumn::alloc()->initWithIdentifier_("name"_ns)));
    table->addTableColumn_(column);
    EXPECT_EQ(column->tableView(), table.get());
    EXPECT_TRUE(column->headerCell()->isKindOfClass_(NSActionCell::classObject()));
    table->relayoutColumns();
    NSArray* row = NSArray::arrayWithObjects_("a"_ns, nullptr);
    EXPECT_FALSE(table->insertTableRow_atIndex_(row, 0));
    EXPECT_FALSE(table->deleteAllItems());
    table->setSelectedRow_(4);
    EXPECT_EQ(table->selectedRow(), 4);
    EXPECT_EQ(table->selectedRowIndexes()->count(), 0u);

    // Tabs are appended, with no page and no native item.
    Ref<NSTabView> tabs = adoptRef(static_cast<NSTabView*>(
            NSTabView::alloc()->initWithFrame_(NSMakeRect(0, 0, 300, 200))));
    window->contentView()->addSubview_(tabs);
    Ref<NSTabViewItem> item = adoptRef(
            static_cast<NSTabViewItem*>(NSTabViewItem::alloc()->initWithIdentifier_("Tasks"_ns)));
    EXPECT_EQ(item->nativeItem(), nullptr);
    tabs->addTabViewItem_(item);
    EXPECT_EQ(tabs->numberOfTabViewItems(), 1);
    EXPECT_EQ(tabs->tabViewItemAtIndex_(0), item.get());
    EXPECT_EQ(tabs->tabViewItemAtIndex_(-1), nullptr);
    EXPECT_EQ(item->view(), nullptr);

    // The tray item's record is filled in all the same; the shell is not
    // asked.
    Ref<NSStatusItem> tray = retainRef(NSStatusBar::systemStatusBar()->statusItemWithLength_(0));
    tray->setTitle_("Vantor"_ns);
    tray->setImage_(nullptr);
    NSNativeNotifyIcon record = tray->notifyIconData();
    EXPECT_EQ(record.cbSize, 152u);
    EXPECT_EQ(record.uID, NSStatusItem::trayMessage());
    EXPECT_EQ(record.uFlags, 3u);
    EXPECT_EQ(std::u16string(record.szTip), u"Vantor");
}

TEST(ToolkitObjects, ControlIdsCountUpAndEveryControlIsKept) {
    NSAutoreleasePoolScope pool;
    NSApplication* app = NSApplication::sharedApplication();
    uint32_t before = app->controls()->count();
    Ref<NSButton> first = adoptRef(
            static_cast<NSButton*>(NSButton::alloc()->initWithFrame_(NSMakeRect(0, 0, 1, 1))));
    Ref<NSButton> second = adoptRef(
            static_cast<NSButton*>(NSButton::alloc()->initWithFrame_(NSMakeRect(0, 0, 1, 1))));
    EXPECT_EQ(second->uid(), first->uid() + 1);
    EXPECT_EQ(app->controls()->count(), before + 2);
    // A title is only stored.
    first->setTitle_("Save"_ns);
    EXPECT_TRUE(first->title()->isEqual_("Save"_ns));
    // The key-equivalent registry gathers the buttons under their key.
    first->setKeyEquivalent_("\r"_ns);
    second->setKeyEquivalent_("\r"_ns);
    NSMutableArray* enter = app->buttonsForKeyEquiv("\r"_ns);
    EXPECT_EQ(enter->count(), 2u);
    EXPECT_EQ(app->buttonsForKeyEquiv("\x1b"_ns)->count(), 0u);
}

TEST(ToolkitObjects, ResponderLinksBothWays) {
    NSAutoreleasePoolScope pool;
    Ref<NSTextField> a = adoptRef(NSTextField::alloc()->initWithFrame_(NSMakeRect(0, 0, 1, 1)));
    Ref<NSTextField> b = adoptRef(NSTextField::alloc()->initWithFrame_(NSMakeRect(0, 0, 1, 1)));
    a->setNextResponder_(b);
    EXPECT_EQ(a->nextResponder(), b.get());
    EXPECT_EQ(b->previousResponder(), a.get());
    EXPECT_EQ(a->previousResponder(), nullptr);
}

TEST(ToolkitObjects, MenuTriggerWalksTheTree) {
    NSAutoreleasePoolScope pool;
    Ref<ToolkitRecorder> recorder =
            adoptRef(static_cast<ToolkitRecorder*>(ToolkitRecorder::alloc()->init()));
    Ref<NSMenu> bar = adoptRef(NSMenu::alloc()->initWithTitle_("bar"_ns));
    Ref<NSMenu> file = adoptRef(NSMenu::alloc()->initPopupMenuWithTitle_("File"_ns));
    Ref<NSMenuItem> open = adoptRef(NSMenuItem::alloc()->initWithTitle_action_keyEquivalent_(
            "Open"_ns, NS_SEL("fired:"), ""_ns));
    Ref<NSMenuItem> quiet = adoptRef(NSMenuItem::alloc()->initWithTitle_action_keyEquivalent_(
            "Quiet"_ns, NS_SEL("fired:"), ""_ns));
    Ref<NSMenuItem> fileItem = adoptRef(
            NSMenuItem::alloc()->initWithTitle_action_keyEquivalent_("File"_ns, nullptr, ""_ns));
    EXPECT_EQ(quiet->itemId(), open->itemId() + 1);
    EXPECT_GT(open->itemId(), 15000u);
    open->setTarget_(recorder);
    file->addItem_(open);
    file->addItem_(quiet);
    fileItem->setSubmenu_(file);
    bar->addItem_(fileItem);
    EXPECT_TRUE(fileItem->hasSubmenu());

    bar->trigger_(open->itemId());
    EXPECT_EQ(recorder->count, 1);
    EXPECT_EQ(recorder->last, open.get());
    // An item without a target sends nothing; an unknown id finds nothing.
    bar->trigger_(quiet->itemId());
    bar->trigger_(1);
    EXPECT_EQ(recorder->count, 1);
}

TEST(ToolkitObjects, AlertWithoutNativeSidePrintsAndAnswersOk) {
    NSAutoreleasePoolScope pool;
    // Even without the non-interactive switch there is no box to show.
    const char* saved = std::getenv("VANTOR_NONINTERACTIVE");
    std::string keep = saved ? saved : "";
    vt_test::setEnvironment("VANTOR_NONINTERACTIVE", nullptr);
    int answer = 0;
    std::string log = vt_test::logOf([&] {
        answer =
                NSAlert::
                        alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                                "Title"_ns, "OK"_ns, "Cancel"_ns, nullptr, "100% sure %s"_ns)
                                ->runModal();
    });
    if (saved) vt_test::setEnvironment("VANTOR_NONINTERACTIVE", keep.c_str());
    EXPECT_EQ(answer, 1);
    // The informative text stands as it is: no format is applied.
    EXPECT_EQ(log, "alert: Title: 100% sure %s\n");
}

}  // namespace
