// The window procedures through which native events enter the object
// world: WindowWndProc for every top-level window, KeyedControlWndProc for
// text fields and ControlWndProc for pop-up buttons and table views. Each
// finds its object in the application's handle maps and hands it the event
// as a target-action message or a delegate call.
#include <windows.h>
// commctrl.h needs the types windows.h defines.
#include <commctrl.h>

#include <cstdlib>

#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSNotification.h"
#include "foundation/NSNotificationCenter.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSMenu.h"
#include "toolkit/NSStatusBar.h"
#include "toolkit/NSTabView.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSWindow.h"
#include "toolkit/win32/Win32Toolkit.h"

namespace {

NSControl* registeredControl(HWND handle) {
    NSControl* control = NSApplication::sharedApplication()->controlForHandle(handle);
    if (!control) {
        // A subclassed control is always registered before it is
        // subclassed: this is the toolkit's own fault.
        LOG("oops");
        std::exit(1);
    }
    return control;
}

LRESULT callPrevious(NSControl* control, HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    WNDPROC previous = reinterpret_cast<WNDPROC>(control->prevWndProc());
    if (IsWindowUnicode(handle)) return CallWindowProcW(previous, handle, message, wParam, lParam);
    return CallWindowProcA(previous, handle, message, wParam, lParam);
}

// Moving over a control shows its tip in the hint line.
void showTip(NSControl* control) {
    NSTextField* hint = NSApplication::hintLine();
    if (hint && control->toolTip()) hint->setStringValue_(control->toolTip());
}

// Enter and Escape fire the buttons that bear the key, but only those of
// the field's own window: two windows may each have a default button.
void fireKeyEquivalent(NSControl* field, NSString* key) {
    NSMutableArray* buttons = NSApplication::sharedApplication()->buttonsForKeyEquiv(key);
    for (uint32_t i = 0, n = buttons->count(); i < n; i++) {
        auto* button = static_cast<NSButton*>(buttons->objectAtIndex_(i));
        if (button->window() == field->window()) NSSend(button->target(), button->action(), field);
    }
}

void sendDelegate(NSWindow* window, const char* selector, Class notificationClass,
                  const char* name) {
    NSObject* delegate = window->delegate();
    SEL sel = NSSelectorFromString(NSString::stringWithUTF8String_(selector));
    if (!delegate || !delegate->respondsToSelector_(sel)) return;
    NSNotification* note = NSNotification::notificationWithName_object_(
            notificationClass, NSString::stringWithUTF8String_(name), window);
    NSSend(delegate, sel, note);
}

// Closing the main window ends the loop unless the application's delegate
// says no; any other window is only hidden, unless its delegate says no.
LRESULT closeWindow(NSWindow* window, HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    NSApplication* app = NSApplication::sharedApplication();
    if (window == app->mainWindow()) {
        NSObject* delegate = app->delegate();
        SEL ask = NS_SEL("applicationShouldTerminate:");
        if (delegate && delegate->respondsToSelector_(ask) && NSSend<int>(delegate, ask, app) == 0)
            return 0;
        PostQuitMessage(0);
        return DefWindowProcA(handle, message, wParam, lParam);
    }
    NSObject* delegate = window->delegate();
    SEL should = NS_SEL("windowShouldClose:");
    if (delegate && delegate->respondsToSelector_(should) &&
        NSSend<int>(delegate, should, window) == 0)
        return 0;
    ShowWindow(handle, SW_HIDE);
    return 0;
}

// A click on the tray icon: each item of this message sends its action
// and shows its menu at the cursor.
void trayClick(HWND handle) {
    NSArray* items = NSStatusBar::systemStatusBar()->items();
    for (uint32_t i = 0, n = items->count(); i < n; i++) {
        auto* item = static_cast<NSStatusItem*>(items->objectAtIndex_(i));
        if (item->uid() != NSStatusItem::trayMessage()) continue;
        NSObject* target = item->target();
        SEL action = item->action();
        if (target && action && target->respondsToSelector_(action)) NSSend(target, action, item);
        if (NSMenu* menu = item->menu()) {
            POINT at;
            GetCursorPos(&at);
            TrackPopupMenu(static_cast<HMENU>(menu->hMenu()), 8, at.x, at.y, 0, handle, nullptr);
        }
    }
}

void tabChange(HWND source, bool show) {
    auto* tabView =
            NSDynamicCast<NSTabView>(NSApplication::sharedApplication()->tabViewForHandle(source));
    if (!tabView) return;
    int index = static_cast<int>(SendMessageA(source, TCM_GETCURSEL, 0, 0));
    NSTabViewItem* item = tabView->tabViewItemAtIndex_(index);
    void* page = item && item->view() ? item->view()->hWnd() : nullptr;
    if (page) ShowWindow(hwndOf(page), show ? SW_SHOW : SW_HIDE);
}

}  // namespace

// The list and button cases, shared with the tab page procedure: list
// views and buttons inside a tab report to their direct parent.
void vtListSelectionChanged(HWND source) {
    // setSelectedRow: below changes the list's states itself, and the list
    // reports each change at once, before the table has stored the row:
    // those reports belong to the change being handled and tell nobody.
    static NSTableView* handling = nullptr;
    auto* table = NSDynamicCast<NSTableView>(
            NSApplication::sharedApplication()->tableViewForHandle(source));
    if (!table || table == handling) return;
    int row = static_cast<int>(
            SendMessageA(source, LVM_GETNEXTITEM, static_cast<WPARAM>(-1), LVNI_SELECTED));
    // A repeat for the row already selected, and a bare deselection, tell
    // nobody.
    if (row == -1 || row == table->selectedRow()) return;
    NSTableView* outer = handling;
    handling = table;
    table->setSelectedRow_(row);
    handling = outer;
    NSNotificationCenter::defaultCenter()->postNotificationName_object_(
            "NSTableViewSelectionDidChangeNotification"_ns, table);
}

void vtListColumnClicked(HWND source, int column) {
    auto* table = NSDynamicCast<NSTableView>(
            NSApplication::sharedApplication()->tableViewForHandle(source));
    if (!table || column < 0 || static_cast<uint32_t>(column) >= table->tableColumns()->count())
        return;
    auto* tableColumn = static_cast<NSTableColumn*>(table->tableColumns()->objectAtIndex_(column));
    NSTableHeaderCell* cell = tableColumn->headerCell();
    if (cell && cell->target()) NSSend(cell->target(), cell->action(), tableColumn);
}

void vtButtonCommand(WPARAM id) {
    NSMutableArray* controls = NSApplication::sharedApplication()->controls();
    for (uint32_t i = 0, n = controls->count(); i < n; i++) {
        auto* button = NSDynamicCast<NSButton>(controls->objectAtIndex_(i));
        if (button && static_cast<WPARAM>(button->uid()) == id) button->fire();
    }
}

LRESULT CALLBACK WindowWndProc(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    // Nothing is found while the window is being made, before it is
    // registered; a message to a nil window does nothing.
    NSWindow* window = NSApplication::sharedApplication()->windowForHandle(handle);
    if (!window) return DefWindowProcA(handle, message, wParam, lParam);
    // The tray message is no constant of a case label: it is the status
    // item's.
    if (message == NSStatusItem::trayMessage()) {
        if (lParam == WM_LBUTTONDOWN) trayClick(handle);
        return DefWindowProcA(handle, message, wParam, lParam);
    }
    switch (message) {
        case WM_CLOSE:
            return closeWindow(window, handle, message, wParam, lParam);
        case WM_SIZE:
            sendDelegate(window, "windowDidResize:", NSWindowDidResizeNotification::classObject(),
                         "NSWindowDidResizeNotification");
            break;
        case WM_ACTIVATE:
            if (wParam & 3)
                sendDelegate(window,
                             "windowDidBecomeKey:", NSWindowDidBecomeKeyNotification::classObject(),
                             "NSWindowDidBecomeKeyNotification");
            break;
        case WM_COMMAND: {
            auto* menu = NSDynamicCast<NSMenu>(window->menu());
            if (menu && lParam == 0) menu->trigger_(static_cast<uint32_t>(wParam));
            vtButtonCommand(wParam);
            break;
        }
        case WM_NOTIFY: {
            auto* header = reinterpret_cast<NMHDR*>(lParam);
            switch (header->code) {
                case TCN_SELCHANGING:
                    tabChange(header->hwndFrom, false);
                    break;
                case TCN_SELCHANGE:
                    tabChange(header->hwndFrom, true);
                    break;
                case LVN_ITEMCHANGED:
                    vtListSelectionChanged(header->hwndFrom);
                    break;
                case LVN_COLUMNCLICK:
                    vtListColumnClicked(header->hwndFrom,
                                        reinterpret_cast<NMLISTVIEW*>(lParam)->iSubItem);
                    break;
            }
            break;
        }
        default:
            return DefWindowProcA(handle, message, wParam, lParam);
    }
    return DefWindowProcA(handle, message, wParam, lParam);
}

LRESULT CALLBACK KeyedControlWndProc(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    NSControl* control = registeredControl(handle);
    switch (message) {
        case WM_GETDLGCODE:
            return DLGC_WANTALLKEYS;
        case WM_MOUSEMOVE:
            showTip(control);
            break;
        case WM_KEYUP:
            if (wParam == VK_SHIFT) NSApplication::setShiftFlag(false);
            break;
        case WM_KEYDOWN:
            if (wParam == VK_SHIFT) {
                NSApplication::setShiftFlag(true);
            } else if (wParam == VK_TAB) {
                NSResponder* next = NSApplication::shiftFlag() ? control->previousResponder()
                                                               : control->nextResponder();
                // The Tab stops here: the native control never sees it.
                if (next) {
                    SetFocus(hwndOf(NSSend<void*>(next, NS_SEL("hWnd"))));
                    return 0;
                }
            } else if (wParam == VK_RETURN) {
                fireKeyEquivalent(control, "\r"_ns);
            } else if (wParam == VK_ESCAPE) {
                fireKeyEquivalent(control, "\x1b"_ns);
            }
            break;
    }
    return callPrevious(control, handle, message, wParam, lParam);
}

LRESULT CALLBACK ControlWndProc(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    NSControl* control = registeredControl(handle);
    if (message == kVtCallMessage) {
        // Served on this thread for another one, outside any message of
        // the loop: its own pool.
        NSAutoreleasePoolScope pool;
        reinterpret_cast<void (*)(void*)>(wParam)(reinterpret_cast<void*>(lParam));
        return 0;
    }
    if (message == WM_GETDLGCODE) return DLGC_WANTALLKEYS;
    if (message == WM_MOUSEMOVE) showTip(control);
    return callPrevious(control, handle, message, wParam, lParam);
}
