// The toolkit with its native side, under Wine's null driver: objects make
// real native windows; the test sends them real native messages and reads
// the native state back through the probe.
#include <gtest/gtest.h>

#include "foundation/Foundation.h"
#include "tests/support/LogCapture.h"
#include "tests/toolkit/NativeProbe.h"
#include "tests/toolkit/ToolkitFixture.h"
#include "toolkit/NSAlert.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSDatePicker.h"
#include "toolkit/NSImage.h"
#include "toolkit/NSMenu.h"
#include "toolkit/NSPopUpButton.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSTextView.h"
#include "toolkit/NSWindow.h"

namespace {

TEST_F(ToolkitNative, WindowsAndControlsComeUpFromTheirFields) {
    Ref<NSWindow> window = makeWindow(135);
    ASSERT_NE(window->hWnd(), nullptr);
    EXPECT_EQ(probeClassName(window->hWnd()), "Window -- OpenStep");
    EXPECT_EQ(probeText(window->hWnd()), "Window title");
    EXPECT_EQ(probeStyle(window->hWnd()) & 0x00CF0000u, 0x00CF0000u);
    EXPECT_FALSE(probeVisible(window->hWnd()));
    window->setTitle_("Sheets"_ns);
    EXPECT_EQ(probeText(window->hWnd()), "Sheets");
    _NSRect frame = window->frame();
    EXPECT_EQ(frame.size.width, 320);
    EXPECT_EQ(frame.size.height, 135);
    EXPECT_EQ(NSApplication::sharedApplication()->windowForHandle(window->hWnd()), window.get());

    // Text, state and items set before the native window exists.
    Ref<NSTextField> field = make<NSTextField>(5, 0, 100, 20);
    field->setStringValue_("before"_ns);
    field->setToolTip_("A tip"_ns);
    Ref<NSSecureTextField> secret = make<NSSecureTextField>(110, 0, 80, 20);
    secret->setStringValue_("pw"_ns);
    Ref<NSButton> button = make<NSButton>(200, 70, 90, 25);
    button->setTitle_("Save"_ns);
    button->setEnabled_(false);
    Ref<NSTextView> text = make<NSTextView>(5, 30, 150, 40);
    Ref<NSPopUpButton> popup = make<NSPopUpButton>(200, 30, 90, 100);
    popup->addItemWithTitle_("one"_ns);
    popup->addItemWithTitle_("two"_ns);
    NSView* content = window->contentView();
    for (NSView* view : {static_cast<NSView*>(field.get()), static_cast<NSView*>(secret.get()),
                         static_cast<NSView*>(button.get()), static_cast<NSView*>(text.get()),
                         static_cast<NSView*>(popup.get())})
        content->addSubview_(view);

    // Edit: one line, tab stop, auto-scroll; id 0; flipped to the top. An
    // edit control draws its border itself and drops WS_BORDER from its
    // style, so the style is read without it.
    const uint32_t noBorder = ~0x00800000u;
    ASSERT_NE(field->currentHWnd(), nullptr);
    EXPECT_EQ(probeParent(field->currentHWnd()), window->hWnd());
    EXPECT_EQ(probeClassName(field->currentHWnd()), "Edit");
    EXPECT_EQ(probeStyle(field->currentHWnd()) & 0xFFFF00FFu & noBorder, 0x50010080u);
    EXPECT_EQ(probeId(field->currentHWnd()), 0);
    NSNativeRect r = probeRectInParent(field->currentHWnd());
    EXPECT_EQ(r.left, 5);
    EXPECT_EQ(r.top, 80);
    EXPECT_EQ(r.width, 100);
    EXPECT_EQ(r.height, 20);
    EXPECT_EQ(probeText(field->currentHWnd()), "before");
    // From now on the native text is the value.
    probeSetText(field->currentHWnd(), "typed");
    EXPECT_TRUE(field->stringValue()->isEqual_("typed"_ns));
    EXPECT_EQ(probeSend(field->currentHWnd(), kProbeGetDlgCode, 0, 0), 4);

    // The password edit is ANSI and has the control id.
    EXPECT_EQ(probeStyle(secret->currentHWnd()) & 0xFFFF00FFu & noBorder, 0x50010020u);
    EXPECT_EQ(probeId(secret->currentHWnd()), secret->uid());
    EXPECT_TRUE(secret->stringValue()->isEqual_("pw"_ns));

    // Button: caption from the title, disabled after creation as asked; a
    // later title is only stored.
    EXPECT_EQ(probeClassName(button->currentHWnd()), "Button");
    EXPECT_EQ(probeStyle(button->currentHWnd()) & 0xFFFF0000u,
              0x50010000u | 0x08000000u /* WS_DISABLED */);
    EXPECT_EQ(probeId(button->currentHWnd()), button->uid());
    EXPECT_EQ(probeText(button->currentHWnd()), "Save");
    EXPECT_FALSE(probeEnabled(button->currentHWnd()));
    button->setTitle_("Later"_ns);
    EXPECT_EQ(probeText(button->currentHWnd()), "Save");
    NSNativeRect b = probeRectInParent(button->currentHWnd());
    EXPECT_EQ(b.top, 100 - 70 - 25);

    // Multi-line edit with a vertical scroll bar.
    EXPECT_EQ(probeStyle(text->currentHWnd()) & 0xFFFF000Fu & noBorder, 0x50210004u);
    EXPECT_EQ(probeId(text->currentHWnd()), text->uid());

    // Combo box: the waiting items are added, nothing is selected.
    EXPECT_EQ(probeClassName(popup->currentHWnd()), "ComboBox");
    // The combo box hands WS_VSCROLL on to its drop-down list.
    EXPECT_EQ(probeStyle(popup->currentHWnd()) & 0xFFDF000Fu, 0x50010003u);
    EXPECT_EQ(probeComboCount(popup->currentHWnd()), 2);
    EXPECT_EQ(probeComboItem(popup->currentHWnd(), 1), "two");
    EXPECT_EQ(popup->titleOfSelectedItem(), nullptr);
    popup->selectItemWithTitle_("two"_ns);
    EXPECT_EQ(popup->indexOfSelectedItem(), 1);
    EXPECT_EQ(probeSend(popup->currentHWnd(), 0x0147 /* CB_GETCURSEL */, 0, 0), 1);
    EXPECT_TRUE(popup->titleOfSelectedItem()->isEqual_("two"_ns));
    popup->addItemWithTitle_("three"_ns);
    EXPECT_EQ(probeComboCount(popup->currentHWnd()), 3);
    popup->removeAllItems();
    EXPECT_EQ(probeComboCount(popup->currentHWnd()), 0);
    EXPECT_EQ(popup->items()->count(), 0u);

    // The controls that run in a toolkit procedure are in the handle map.
    NSApplication* app = NSApplication::sharedApplication();
    EXPECT_EQ(app->controlForHandle(field->currentHWnd()), field.get());
    EXPECT_EQ(app->controlForHandle(popup->currentHWnd()), popup.get());
    EXPECT_EQ(app->controlForHandle(button->currentHWnd()), nullptr);
}

TEST_F(ToolkitNative, DisablingBeforeCreationGivesReadOnlyAfterGivesGrey) {
    Ref<NSWindow> window = makeWindow(135);
    Ref<NSTextField> early = make<NSTextField>(0, 0, 100, 20);
    early->setEnabled_(false);
    Ref<NSTextField> late = make<NSTextField>(0, 30, 100, 20);
    window->contentView()->addSubview_(early);
    window->contentView()->addSubview_(late);
    const uint32_t readOnly = 0x0800;  // ES_READONLY
    EXPECT_TRUE(probeEnabled(early->currentHWnd()));
    EXPECT_EQ(probeStyle(early->currentHWnd()) & readOnly, readOnly);
    late->setEnabled_(false);
    EXPECT_FALSE(probeEnabled(late->currentHWnd()));
    EXPECT_EQ(probeStyle(late->currentHWnd()) & readOnly, 0u);
    late->setEditable_(false);
    EXPECT_EQ(probeStyle(late->currentHWnd()) & readOnly, readOnly);
}

TEST_F(ToolkitNative, SetBorderedReplacesTheFieldWithAPlainLabel) {
    Ref<NSWindow> window = makeWindow(135);
    Ref<NSTextField> label = make<NSTextField>(10, 10, 100, 20);
    label->setStringValue_("Name"_ns);
    window->contentView()->addSubview_(label);
    void* before = label->currentHWnd();
    label->setEditable_(false);
    label->setBordered_(false);
    void* after = label->currentHWnd();
    ASSERT_NE(after, nullptr);
    EXPECT_NE(after, before);
    EXPECT_FALSE(probeIsWindow(before));
    EXPECT_EQ(probeStyle(after) & 0xFFFF0000u, 0x50000000u);
    EXPECT_EQ(probeId(after), label->uid());
    EXPECT_EQ(probeText(after), "Name");
    EXPECT_EQ(probeStyle(after) & 0x0800u, 0x0800u);
    NSNativeRect r = probeRectInParent(after);
    EXPECT_EQ(r.top, 100 - 10 - 20);
    // Not registered and not subclassed: no Tab, no Enter of the toolkit.
    EXPECT_EQ(NSApplication::sharedApplication()->controlForHandle(after), nullptr);
    EXPECT_NE(probeSend(after, kProbeGetDlgCode, 0, 0), 4);
}

TEST_F(ToolkitNative, TabShiftTabEnterAndEscape) {
    Ref<NSWindow> window = makeWindow(200);
    Ref<NSWindow> other = makeWindow(200);
    Ref<NSTextField> first = make<NSTextField>(0, 100, 100, 20);
    Ref<NSTextField> second = make<NSTextField>(0, 70, 100, 20);
    Ref<NSTextField> last = make<NSTextField>(0, 40, 100, 20);
    Ref<NSButton> ok = make<NSButton>(150, 10, 80, 25);
    Ref<NSButton> elsewhere = make<NSButton>(150, 10, 80, 25);
    Ref<GuiRecorder> here = recorder();
    Ref<GuiRecorder> there = recorder();
    ok->setTarget_(here);
    ok->setAction_(NS_SEL("fired:"));
    elsewhere->setTarget_(there);
    elsewhere->setAction_(NS_SEL("fired:"));
    for (NSView* view : {static_cast<NSView*>(first.get()), static_cast<NSView*>(second.get()),
                         static_cast<NSView*>(last.get()), static_cast<NSView*>(ok.get())})
        window->contentView()->addSubview_(view);
    other->contentView()->addSubview_(elsewhere);
    ok->setKeyEquivalent_("\r"_ns);
    elsewhere->setKeyEquivalent_("\r"_ns);
    first->setNextResponder_(second);
    probeActivate(window->hWnd());
    EXPECT_TRUE(window->makeFirstResponder_(first));
    ASSERT_EQ(probeFocus(), first->currentHWnd());

    probeSend(first->currentHWnd(), kProbeKeyDown, kProbeTab, 0);
    EXPECT_EQ(probeFocus(), second->currentHWnd());
    // Shift+Tab goes back to the previous responder set by the link.
    probeSend(second->currentHWnd(), kProbeKeyDown, kProbeShift, 0);
    EXPECT_TRUE(NSApplication::shiftFlag());
    probeSend(second->currentHWnd(), kProbeKeyDown, kProbeTab, 0);
    EXPECT_EQ(probeFocus(), first->currentHWnd());
    probeSend(first->currentHWnd(), kProbeKeyUp, kProbeShift, 0);
    EXPECT_FALSE(NSApplication::shiftFlag());
    // Without a next responder the Tab reaches the edit, and focus stays.
    window->makeFirstResponder_(last);
    probeSend(last->currentHWnd(), kProbeKeyDown, kProbeTab, 0);
    EXPECT_EQ(probeFocus(), last->currentHWnd());

    // Enter fires the "\r" button of this window only, with the field.
    probeSend(second->currentHWnd(), kProbeKeyDown, kProbeReturn, 0);
    EXPECT_EQ(here->fired, 1);
    EXPECT_EQ(here->last, second.get());
    EXPECT_EQ(there->fired, 0);
    // Escape with no such button in the window does nothing.
    probeSend(second->currentHWnd(), kProbeKeyDown, kProbeEscape, 0);
    EXPECT_EQ(here->fired, 1);
}

TEST_F(ToolkitNative, CommandsReachButtonsAndMenuItems) {
    Ref<NSWindow> window = makeWindow(135);
    Ref<NSButton> button = make<NSButton>(10, 10, 80, 25);
    Ref<GuiRecorder> clicks = recorder();
    button->setTarget_(clicks);
    button->setAction_(NS_SEL("fired:"));
    window->contentView()->addSubview_(button);
    probeSend(window->hWnd(), kProbeCommand, static_cast<uintptr_t>(button->uid()), 0);
    EXPECT_EQ(clicks->fired, 1);
    EXPECT_EQ(clicks->last, button.get());

    Ref<NSMenu> bar = adoptRef(NSMenu::alloc()->initWithTitle_("bar"_ns));
    Ref<NSMenu> file = adoptRef(NSMenu::alloc()->initPopupMenuWithTitle_("File"_ns));
    Ref<NSMenuItem> open = adoptRef(NSMenuItem::alloc()->initWithTitle_action_keyEquivalent_(
            "Open"_ns, NS_SEL("fired:"), ""_ns));
    Ref<NSMenuItem> fileItem = adoptRef(
            NSMenuItem::alloc()->initWithTitle_action_keyEquivalent_("File"_ns, nullptr, ""_ns));
    Ref<NSMenuItem> late = adoptRef(
            NSMenuItem::alloc()->initWithTitle_action_keyEquivalent_("Late"_ns, nullptr, ""_ns));
    Ref<GuiRecorder> menus = recorder();
    open->setTarget_(menus);
    file->addItem_(open);
    fileItem->setSubmenu_(file);
    bar->addItem_(fileItem);
    bar->addItem_(late);
    // A submenu set after addItem: has no native effect.
    late->setSubmenu_(file);
    window->setMenu_(bar);
    ASSERT_EQ(probeWindowMenu(window->hWnd()), bar->hMenu());
    EXPECT_EQ(probeMenuCount(bar->hMenu()), 2);
    EXPECT_EQ(probeMenuText(bar->hMenu(), 0), "File");
    EXPECT_EQ(probeSubmenu(bar->hMenu(), 0), file->hMenu());
    EXPECT_EQ(probeSubmenu(bar->hMenu(), 1), nullptr);
    EXPECT_EQ(probeMenuText(file->hMenu(), 0), "Open");
    EXPECT_EQ(probeMenuId(file->hMenu(), 0), open->itemId());

    probeSend(window->hWnd(), kProbeCommand, open->itemId(), 0);
    // Found through the File submenu and, since "Late" now has the same
    // submenu in the objects, once more through it.
    EXPECT_EQ(menus->fired, 2);
    EXPECT_EQ(menus->last, open.get());
    // A command from a control (lParam not 0) is no menu choice.
    probeSend(window->hWnd(), kProbeCommand, open->itemId(), 1);
    EXPECT_EQ(menus->fired, 2);
}

TEST_F(ToolkitNative, ClosingHidesOrAsksOrEndsTheLoop) {
    NSApplication* app = NSApplication::sharedApplication();
    Ref<NSWindow> main = makeWindow(135);
    Ref<NSWindow> sheet = makeWindow(135);
    app->setMainWindow_(main);
    // A secondary window is only hidden.
    sheet->orderFront_(nullptr);
    ASSERT_TRUE(probeVisible(sheet->hWnd()));
    probeSend(sheet->hWnd(), kProbeClose, 0, 0);
    EXPECT_FALSE(probeVisible(sheet->hWnd()));
    EXPECT_TRUE(probeIsWindow(sheet->hWnd()));
    // A delegate answering 0 keeps it open.
    Ref<GuiRecorder> keep = recorder();
    keep->answer = 0;
    sheet->setDelegate_(keep);
    sheet->orderFront_(nullptr);
    probeSend(sheet->hWnd(), kProbeClose, 0, 0);
    EXPECT_EQ(keep->asked, 1);
    EXPECT_TRUE(probeVisible(sheet->hWnd()));

    // The main window asks the application's delegate first.
    Ref<GuiRecorder> appDelegate = recorder();
    appDelegate->answer = 0;
    app->setDelegate_(appDelegate);
    probeSend(main->hWnd(), kProbeClose, 0, 0);
    EXPECT_EQ(appDelegate->asked, 1);
    EXPECT_TRUE(probeIsWindow(main->hWnd()));
    // Then agreeing: the window goes and the loop ends.
    appDelegate->answer = 1;
    probeSend(main->hWnd(), kProbeClose, 0, 0);
    EXPECT_FALSE(probeIsWindow(main->hWnd()));
    app->run();
    app->setDelegate_(nullptr);
    app->setMainWindow_(nullptr);
}

TEST_F(ToolkitNative, SizeAndActivationReachTheDelegate) {
    Ref<NSWindow> window = makeWindow(135);
    Ref<GuiRecorder> delegate = recorder();
    window->setDelegate_(delegate);
    probeSend(window->hWnd(), kProbeSize, 0, 0);
    probeSend(window->hWnd(), kProbeActivate, 0 /* WA_INACTIVE */, 0);
    ASSERT_EQ(delegate->notes.size(), 1u);
    EXPECT_EQ(delegate->notes[0], "NSWindowDidResizeNotification NSWindowDidResizeNotification");
    // The default handling activates the window for real, which may
    // report it once more.
    probeSend(window->hWnd(), kProbeActivate, 1 /* WA_ACTIVE */, 0);
    ASSERT_GE(delegate->notes.size(), 2u);
    EXPECT_EQ(delegate->notes[1],
              "NSWindowDidBecomeKeyNotification NSWindowDidBecomeKeyNotification");
}

TEST_F(ToolkitNative, AsyncViewsWaitHiddenViewsHideTipsReachTheHintLine) {
    Ref<NSWindow> window = makeWindow(135);
    // A view that defers: the control's hWnd is caught, not sent.
    Ref<NSView> page = make<NSView>(0, 0, 300, 100);
    page->setAsync_(true);
    window->contentView()->addSubview_(page);
    Ref<NSTextField> waiting = make<NSTextField>(0, 0, 100, 20);
    page->addSubview_(waiting);
    EXPECT_EQ(waiting->currentHWnd(), nullptr);
    ASSERT_EQ(page->awaited()->count(), 1u);
    NSSend(page->awaited()->objectAtIndex_(0), NS_SEL("call"));
    ASSERT_NE(waiting->currentHWnd(), nullptr);
    // A page without a native window of its own puts its controls in the
    // window.
    EXPECT_EQ(probeParent(waiting->currentHWnd()), window->hWnd());

    window->orderFront_(nullptr);
    EXPECT_TRUE(probeVisible(waiting->currentHWnd()));
    waiting->setHidden_(true);
    EXPECT_FALSE(probeVisible(waiting->currentHWnd()));
    EXPECT_TRUE(waiting->isHidden());

    Ref<NSTextField> hint = make<NSTextField>(0, 50, 300, 20);
    window->contentView()->addSubview_(hint);
    NSApplication::setHintLine(hint);
    waiting->setToolTip_("The tip"_ns);
    probeSend(waiting->currentHWnd(), 0x0200 /* WM_MOUSEMOVE */, 0, 0);
    EXPECT_EQ(probeText(hint->currentHWnd()), "The tip");
    NSApplication::setHintLine(nullptr);
}

TEST_F(ToolkitNative, DatePickerOneOrTwoParts) {
    Ref<NSWindow> window = makeWindow(135);
    Ref<NSDatePicker> day = make<NSDatePicker>(0, 0, 120, 22);
    day->setDateOnly_(true);
    Ref<NSDatePicker> moment = make<NSDatePicker>(0, 40, 200, 22);
    window->contentView()->addSubview_(day);
    window->contentView()->addSubview_(moment);
    EXPECT_EQ(probeClassName(day->currentHWnd()), "SysDateTimePick32");
    EXPECT_EQ(probeExStyle(day->currentHWnd()) & 0x200u, 0x200u);
    EXPECT_EQ(probeRectInParent(day->currentHWnd()).width, 120);
    EXPECT_EQ(probeRectInParent(moment->currentHWnd()).width, 100);

    VTSystemTime when = {2008, 5, 6, 3, 9, 30, 7, 0};
    Ref<NSDate> date = adoptRef(static_cast<NSDate*>(NSDate::alloc()->initWithSystemTime_(when)));
    day->setDateValue_(date);
    moment->setDateValue_(date);
    VTSystemTime read = day->dateValue()->systemTime();
    EXPECT_EQ(read.year, 2008);
    EXPECT_EQ(read.month, 5);
    EXPECT_EQ(read.day, 3);
    EXPECT_EQ(read.hour, 0);
    EXPECT_EQ(read.minute, 0);
    EXPECT_EQ(read.second, 0);
    read = moment->dateValue()->systemTime();
    EXPECT_EQ(read.day, 3);
    EXPECT_EQ(read.hour, 9);
    EXPECT_EQ(read.minute, 30);
    EXPECT_EQ(read.second, 7);
    // Disabling touches both parts, not the field.
    moment->setEnabled_(false);
    EXPECT_FALSE(probeEnabled(moment->currentHWnd()));
    EXPECT_TRUE(moment->isEnabled());
}

TEST_F(ToolkitNative, AlertsStayNonInteractiveAndTheIconIsLoaded) {
    // The module handle moved here from the platform layer with the
    // other window-system calls.
    EXPECT_NE(NSInstanceHandle(), nullptr);
    Ref<NSWindow> window = makeWindow(135);
    EXPECT_NE(NSImage::applicationIcon()->icon(), nullptr);
    EXPECT_EQ(NSImage::imageNamed_("no/such/icon.ico"_ns)->icon(), nullptr);
    // The tests run with VANTOR_NONINTERACTIVE=1: the alert prints.
    int answer = 0;
    std::string log = vt_test::logOf([&] {
        answer =
                NSAlert::
                        alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                                "Error"_ns, "OK"_ns, "Cancel"_ns, nullptr, "No key found."_ns)
                                ->runModal();
    });
    EXPECT_EQ(answer, 1);
    EXPECT_EQ(log, "alert: Error: No key found.\n");
}

}  // namespace
