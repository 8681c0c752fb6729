// Tab controls and their pages. A page is a plain child window of the tab
// control, of a class of its own, whose procedure (TabPageWndProc) makes the
// page's waiting controls at its timer and takes the notifications and
// commands of the controls inside, which report to their direct parent.
#include <windows.h>
// commctrl.h needs the types windows.h defines.
#include <commctrl.h>

#include <string>

#include "foundation/CMEach.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSView.h"
#include "toolkit/win32/Win32Toolkit.h"

namespace {

const wchar_t kPageClass[] = L"Window -- OpenStep -- Tab Dialog";
const UINT_PTR kPageTimer = 1;
const UINT kPageTimerMilliseconds = 100;

// A native tab item with the text it points to.
struct TabItem {
    TCITEMW item;
    std::u16string text;
};

// The controls queued on the page since the last tick come into being now,
// in the order they were added, each from the hWnd message its
// continuation caught.
void makeAwaitedControls(HWND page) {
    NSNumber* key =
            NSNumber::numberWithDouble_(static_cast<double>(reinterpret_cast<uintptr_t>(page)));
    auto* view = static_cast<NSView*>(NSView::views()->objectForKey_(key));
    NSMutableArray* awaited = view ? view->awaited() : nullptr;
    if (!awaited || awaited->count() == 0) return;
    NSSend(awaited->each(), NS_SEL("call"));
    awaited->removeAllObjects();
}

}  // namespace

LRESULT CALLBACK TabPageWndProc(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_CREATE:
            // Never stopped: the page may get controls at any time.
            SetTimer(handle, kPageTimer, kPageTimerMilliseconds, nullptr);
            break;
        case WM_TIMER:
            makeAwaitedControls(handle);
            break;
        case WM_MOUSEMOVE:
            // Over the bare page, no control: the hint line empties.
            if (NSTextField* hint = NSApplication::hintLine()) hint->setStringValue_(""_ns);
            break;
        case WM_COMMAND:
            vtButtonCommand(wParam);
            break;
        case WM_NOTIFY: {
            auto* header = reinterpret_cast<NMHDR*>(lParam);
            if (header->code == LVN_ITEMCHANGED)
                vtListSelectionChanged(header->hwndFrom);
            else if (header->code == LVN_COLUMNCLICK)
                vtListColumnClicked(header->hwndFrom,
                                    reinterpret_cast<NMLISTVIEW*>(lParam)->iSubItem);
            break;
        }
    }
    return DefWindowProcA(handle, message, wParam, lParam);
}

bool vtRegisterTabPageClass() {
    WNDCLASSW pageClass = {};
    pageClass.style = CS_HREDRAW | CS_VREDRAW;
    pageClass.lpfnWndProc = TabPageWndProc;
    pageClass.hInstance = GetModuleHandleW(nullptr);
    pageClass.hIcon = vtApplicationIcon();
    pageClass.hCursor = LoadCursorA(nullptr, IDC_ARROW);
    pageClass.hbrBackground = GetSysColorBrush(COLOR_BTNFACE);
    pageClass.lpszClassName = kPageClass;
    if (!RegisterClassW(&pageClass)) {
        LOG("Cannot register window: %d", static_cast<int>(GetLastError()));
        return false;
    }
    return true;
}

void* vtCreateTabControl(void* parent, NSNativeRect frame, int id, const char16_t* text) {
    HWND tab = CreateWindowExW(
            0, WC_TABCONTROLW, wideOf(text), WS_CHILD | WS_VISIBLE | WS_BORDER | WS_TABSTOP,
            frame.left, frame.top, frame.width, frame.height, hwndOf(parent),
            reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr), nullptr);
    if (tab) vtSetStockFont(tab);
    return tab;
}

void* vtCreateTabItem(const char16_t* text) {
    auto* tab = new TabItem{};
    tab->text = text;
    tab->item.mask = TCIF_TEXT | TCIF_IMAGE;
    tab->item.iImage = -1;
    tab->item.pszText = reinterpret_cast<LPWSTR>(&tab->text[0]);
    return &tab->item;
}

void vtDestroyTabItem(void* item) {
    // The TCITEMW is the first member: its address is the whole's.
    delete reinterpret_cast<TabItem*>(item);
}

void vtTabInsertItem(void* tabControl, int index, void* item) {
    SendMessageW(hwndOf(tabControl), TCM_INSERTITEMW, index, reinterpret_cast<LPARAM>(item));
}

void* vtCreateTabPage(void* tabControl) {
    HWND tab = hwndOf(tabControl);
    HWND page = CreateWindowExW(0, kPageClass, L"Tab Dialog", WS_CHILD | WS_BORDER, 0, 0, 0, 0, tab,
                                nullptr, GetModuleHandleW(nullptr), nullptr);
    if (!page) {
        char* text = nullptr;
        FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                               FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, GetLastError(), 0, reinterpret_cast<char*>(&text), 0, nullptr);
        LOG("cannot create dialog: %s", text ? text : "");
        LocalFree(text);
        return nullptr;
    }
    // Under the strip of tabs, inside the control's border.
    RECT r = {};
    GetWindowRect(tab, &r);
    SetWindowPos(page, nullptr, 1, 23, r.right - r.left - 4, r.bottom - r.top - 26,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    BringWindowToTop(page);
    return page;
}
