// Report list views, the native side of NSTableView. The list holds the
// text of every cell; the object side writes them all at each reload.
#include <windows.h>
// commctrl.h needs the types windows.h defines.
#include <commctrl.h>

#include "toolkit/win32/Win32Toolkit.h"

void* vtCreateListView(void* parent, NSNativeRect frame) {
    // LVS_SHOWSELALWAYS without LVS_SINGLESEL: several rows can be
    // selected, and the selection shows when the list has no focus.
    HWND list = CreateWindowExW(WS_EX_CLIENTEDGE, WC_LISTVIEWW, L"",
                                WS_CHILD | WS_VISIBLE | LVS_REPORT | LVS_SHOWSELALWAYS, frame.left,
                                frame.top, frame.width, frame.height, hwndOf(parent), nullptr,
                                GetModuleHandleW(nullptr), nullptr);
    if (!list) return nullptr;
    SendMessageW(list, LVM_SETEXTENDEDLISTVIEWSTYLE, 0, LVS_EX_GRIDLINES | LVS_EX_FULLROWSELECT);
    return list;
}

void vtListInsertColumn(void* list, int index, int width, const char16_t* title) {
    LVCOLUMNW column = {};
    column.mask = LVCF_FMT | LVCF_WIDTH | LVCF_TEXT | LVCF_SUBITEM;
    column.fmt = LVCFMT_LEFT;
    column.cx = width;
    column.pszText = const_cast<LPWSTR>(wideOf(title));
    column.iSubItem = index;
    SendMessageW(hwndOf(list), LVM_INSERTCOLUMNW, index, reinterpret_cast<LPARAM>(&column));
}

void vtListSetColumnWidth(void* list, int index, int width) {
    SendMessageW(hwndOf(list), LVM_SETCOLUMNWIDTH, index, MAKELPARAM(width, 0));
}

bool vtListDeleteAll(void* list) {
    return SendMessageW(hwndOf(list), LVM_DELETEALLITEMS, 0, 0) != 0;
}

int vtListInsertItem(void* list, int row, const char16_t* text) {
    LVITEMW item = {};
    item.mask = LVIF_TEXT;
    item.iItem = row;
    item.pszText = const_cast<LPWSTR>(wideOf(text));
    return static_cast<int>(
            SendMessageW(hwndOf(list), LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item)));
}

void vtListSetItemText(void* list, int row, int subItem, const char16_t* text) {
    LVITEMW item = {};
    item.iSubItem = subItem;
    item.pszText = const_cast<LPWSTR>(wideOf(text));
    SendMessageW(hwndOf(list), LVM_SETITEMTEXTW, row, reinterpret_cast<LPARAM>(&item));
}

void vtListSetItemState(void* list, int row, uint32_t state, uint32_t mask) {
    LVITEMW item = {};
    item.state = state;
    item.stateMask = mask;
    SendMessageW(hwndOf(list), LVM_SETITEMSTATE, static_cast<WPARAM>(row),
                 reinterpret_cast<LPARAM>(&item));
}

uint32_t vtListItemState(void* list, int row, uint32_t mask) {
    return static_cast<uint32_t>(SendMessageW(hwndOf(list), LVM_GETITEMSTATE, row, mask));
}

// Partial visibility is enough: a row half in view is not scrolled.
void vtListEnsureVisible(void* list, int row) {
    SendMessageW(hwndOf(list), LVM_ENSUREVISIBLE, row, TRUE);
}

void vtListSetRedraw(void* list, bool redraw) {
    SendMessageW(hwndOf(list), WM_SETREDRAW, redraw, 0);
    if (redraw) InvalidateRect(hwndOf(list), nullptr, TRUE);
}
