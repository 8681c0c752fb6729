#include <windows.h>
// commctrl.h needs the types windows.h defines.
#include <commctrl.h>

#include "tests/toolkit/NativeProbe.h"

namespace {
HWND hwndOf(void* handle) { return static_cast<HWND>(handle); }
}  // namespace

intptr_t probeSend(void* handle, unsigned message, uintptr_t wParam, intptr_t lParam) {
    return SendMessageW(hwndOf(handle), message, wParam, lParam);
}

bool probePost(void* handle, unsigned message, uintptr_t wParam, intptr_t lParam) {
    return PostMessageW(hwndOf(handle), message, wParam, lParam);
}

void* probeFindVisibleWindow(const char* title) {
    for (HWND window = FindWindowExA(nullptr, nullptr, nullptr, title); window;
         window = FindWindowExA(nullptr, window, nullptr, title)) {
        if (IsWindowVisible(window)) return window;
    }
    return nullptr;
}

void probePump() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

std::string probeClassName(void* handle) {
    char name[64] = {};
    GetClassNameA(hwndOf(handle), name, sizeof name);
    return name;
}

uint32_t probeStyle(void* handle) {
    return static_cast<uint32_t>(GetWindowLongW(hwndOf(handle), GWL_STYLE));
}

uint32_t probeExStyle(void* handle) {
    return static_cast<uint32_t>(GetWindowLongW(hwndOf(handle), GWL_EXSTYLE));
}

int probeId(void* handle) { return GetDlgCtrlID(hwndOf(handle)); }

std::string probeText(void* handle) {
    char text[256] = {};
    GetWindowTextA(hwndOf(handle), text, sizeof text);
    return text;
}

void probeSetText(void* handle, const char* text) { SetWindowTextA(hwndOf(handle), text); }

NSNativeRect probeRectInParent(void* handle) {
    RECT r = {};
    GetWindowRect(hwndOf(handle), &r);
    MapWindowPoints(nullptr, GetParent(hwndOf(handle)), reinterpret_cast<POINT*>(&r), 2);
    return NSNativeRect{r.left, r.top, r.right - r.left, r.bottom - r.top};
}

void* probeParent(void* handle) { return GetParent(hwndOf(handle)); }

bool probeEnabled(void* handle) { return IsWindowEnabled(hwndOf(handle)); }

bool probeVisible(void* handle) { return IsWindowVisible(hwndOf(handle)); }

bool probeIsWindow(void* handle) { return IsWindow(hwndOf(handle)); }

void* probeFocus() { return GetFocus(); }

void probeActivate(void* window) {
    ShowWindow(hwndOf(window), SW_SHOW);
    SetActiveWindow(hwndOf(window));
    SetFocus(hwndOf(window));
}

int probeComboCount(void* combo) {
    return static_cast<int>(SendMessageA(hwndOf(combo), CB_GETCOUNT, 0, 0));
}

std::string probeComboItem(void* combo, int index) {
    char text[256] = {};
    SendMessageA(hwndOf(combo), CB_GETLBTEXT, index, reinterpret_cast<LPARAM>(text));
    return text;
}

void* probeWindowMenu(void* window) { return GetMenu(hwndOf(window)); }

int probeMenuCount(void* menu) { return GetMenuItemCount(static_cast<HMENU>(menu)); }

std::string probeMenuText(void* menu, int position) {
    char text[128] = {};
    GetMenuStringA(static_cast<HMENU>(menu), position, text, sizeof text, MF_BYPOSITION);
    return text;
}

uint32_t probeMenuId(void* menu, int position) {
    return GetMenuItemID(static_cast<HMENU>(menu), position);
}

void* probeSubmenu(void* menu, int position) {
    return GetSubMenu(static_cast<HMENU>(menu), position);
}

void probeSelectRow(void* list, int row, bool selected) {
    LVITEMA item = {};
    // A click selects and focuses the row in one change.
    item.stateMask = selected ? LVIS_SELECTED | LVIS_FOCUSED : LVIS_SELECTED;
    item.state = selected ? LVIS_SELECTED | LVIS_FOCUSED : 0;
    SendMessageA(hwndOf(list), LVM_SETITEMSTATE, row, reinterpret_cast<LPARAM>(&item));
}

void probeClickColumn(void* window, void* list, int column) {
    NMLISTVIEW note = {};
    note.hdr.hwndFrom = hwndOf(list);
    note.hdr.code = LVN_COLUMNCLICK;
    note.iItem = -1;
    note.iSubItem = column;
    SendMessageA(hwndOf(window), WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&note));
}

void probePumpWaiting(int milliseconds) {
    DWORD end = GetTickCount() + static_cast<DWORD>(milliseconds);
    for (;;) {
        probePump();
        DWORD now = GetTickCount();
        if (static_cast<LONG>(end - now) <= 0) return;
        MsgWaitForMultipleObjects(0, nullptr, FALSE, end - now, QS_ALLINPUT);
    }
}

void probeResize(void* handle, int width, int height) {
    SetWindowPos(hwndOf(handle), nullptr, 0, 0, width, height,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
}

int probeListCount(void* list) {
    return static_cast<int>(SendMessageA(hwndOf(list), LVM_GETITEMCOUNT, 0, 0));
}

std::string probeListText(void* list, int row, int column) {
    char text[256] = {};
    LVITEMA item = {};
    item.iSubItem = column;
    item.pszText = text;
    item.cchTextMax = sizeof text;
    SendMessageA(hwndOf(list), LVM_GETITEMTEXTA, row, reinterpret_cast<LPARAM>(&item));
    return text;
}

int probeListColumnWidth(void* list, int column) {
    return static_cast<int>(SendMessageA(hwndOf(list), LVM_GETCOLUMNWIDTH, column, 0));
}

std::string probeListColumnTitle(void* list, int column) {
    char text[128] = {};
    LVCOLUMNA info = {};
    info.mask = LVCF_TEXT;
    info.pszText = text;
    info.cchTextMax = sizeof text;
    SendMessageA(hwndOf(list), LVM_GETCOLUMNA, column, reinterpret_cast<LPARAM>(&info));
    return text;
}

uint32_t probeListExtendedStyle(void* list) {
    return static_cast<uint32_t>(SendMessageA(hwndOf(list), LVM_GETEXTENDEDLISTVIEWSTYLE, 0, 0));
}

bool probeListSelected(void* list, int row) {
    return SendMessageA(hwndOf(list), LVM_GETITEMSTATE, row, LVIS_SELECTED) & LVIS_SELECTED;
}

namespace {
struct SentWatch {
    WNDPROC previous;
    void (*seen)(void*);
    void* context;
} watch;

LRESULT CALLBACK watchProc(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    if (InSendMessage()) watch.seen(watch.context);
    return CallWindowProcW(watch.previous, handle, message, wParam, lParam);
}
}  // namespace

void probeWatchSentMessages(void* window, void (*seen)(void*), void* context) {
    watch.seen = seen;
    watch.context = context;
    watch.previous = reinterpret_cast<WNDPROC>(
            SetWindowLongPtrW(hwndOf(window), GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(watchProc)));
}

int probeTabCount(void* tab) {
    return static_cast<int>(SendMessageA(hwndOf(tab), TCM_GETITEMCOUNT, 0, 0));
}

std::string probeTabText(void* tab, int index) {
    char text[128] = {};
    TCITEMA item = {};
    item.mask = TCIF_TEXT;
    item.pszText = text;
    item.cchTextMax = sizeof text;
    SendMessageA(hwndOf(tab), TCM_GETITEMA, index, reinterpret_cast<LPARAM>(&item));
    return text;
}

void probeChooseTab(void* tab, int index) {
    HWND parent = GetParent(hwndOf(tab));
    NMHDR note = {};
    note.hwndFrom = hwndOf(tab);
    note.idFrom = GetDlgCtrlID(hwndOf(tab));
    note.code = TCN_SELCHANGING;
    SendMessageA(parent, WM_NOTIFY, note.idFrom, reinterpret_cast<LPARAM>(&note));
    SendMessageA(hwndOf(tab), TCM_SETCURSEL, index, 0);
    note.code = TCN_SELCHANGE;
    SendMessageA(parent, WM_NOTIFY, note.idFrom, reinterpret_cast<LPARAM>(&note));
}
