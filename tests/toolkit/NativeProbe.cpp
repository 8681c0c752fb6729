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

void* probeCreateList(void* parent, int rows) {
    HWND list =
            CreateWindowExA(0, WC_LISTVIEWA, nullptr, WS_CHILD | WS_VISIBLE | LVS_REPORT, 0, 0, 200,
                            100, hwndOf(parent), nullptr, GetModuleHandleW(nullptr), nullptr);
    LVCOLUMNA column = {};
    column.mask = LVCF_TEXT | LVCF_WIDTH;
    column.cx = 100;
    column.pszText = const_cast<char*>("Name");
    SendMessageA(list, LVM_INSERTCOLUMNA, 0, reinterpret_cast<LPARAM>(&column));
    for (int row = 0; row < rows; row++) {
        LVITEMA item = {};
        item.mask = LVIF_TEXT;
        item.iItem = row;
        item.pszText = const_cast<char*>("row");
        SendMessageA(list, LVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&item));
    }
    return list;
}

void probeSelectRow(void* list, int row, bool selected) {
    LVITEMA item = {};
    item.stateMask = LVIS_SELECTED;
    item.state = selected ? LVIS_SELECTED : 0;
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
