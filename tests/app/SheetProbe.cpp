#include <windows.h>
// commctrl.h needs the types windows.h defines.
#include <commctrl.h>

#include "tests/app/SheetProbe.h"

namespace {
HWND hwndOf(void* handle) { return static_cast<HWND>(handle); }
}  // namespace

int probeListRows(void* list) {
    return static_cast<int>(SendMessageA(hwndOf(list), LVM_GETITEMCOUNT, 0, 0));
}

int probeListColumns(void* list) {
    HWND header = reinterpret_cast<HWND>(SendMessageA(hwndOf(list), LVM_GETHEADER, 0, 0));
    return header ? static_cast<int>(SendMessageA(header, HDM_GETITEMCOUNT, 0, 0)) : 0;
}

std::string probeListHeader(void* list, int column) {
    char text[256] = {};
    LVCOLUMNA c = {};
    c.mask = LVCF_TEXT;
    c.pszText = text;
    c.cchTextMax = sizeof text;
    SendMessageA(hwndOf(list), LVM_GETCOLUMNA, column, reinterpret_cast<LPARAM>(&c));
    return text;
}

std::string probeListCell(void* list, int row, int column) {
    char text[256] = {};
    LVITEMA item = {};
    item.iSubItem = column;
    item.pszText = text;
    item.cchTextMax = sizeof text;
    SendMessageA(hwndOf(list), LVM_GETITEMTEXTA, row, reinterpret_cast<LPARAM>(&item));
    return text;
}

int probeListSelected(void* list) {
    return static_cast<int>(
            SendMessageA(hwndOf(list), LVM_GETNEXTITEM, static_cast<WPARAM>(-1), LVNI_SELECTED));
}

bool probeListRowSelected(void* list, int row) {
    return SendMessageA(hwndOf(list), LVM_GETITEMSTATE, row, LVIS_SELECTED) != 0;
}

int probeComboSelection(void* combo) {
    return static_cast<int>(SendMessageA(hwndOf(combo), CB_GETCURSEL, 0, 0));
}

void probeComboChoose(void* combo, int index) {
    SendMessageA(hwndOf(combo), CB_SETCURSEL, index, 0);
    SendMessageA(GetParent(hwndOf(combo)), WM_COMMAND,
                 MAKEWPARAM(GetDlgCtrlID(hwndOf(combo)), CBN_SELCHANGE),
                 reinterpret_cast<LPARAM>(combo));
}

void probeResize(void* window, int width, int height) {
    SetWindowPos(hwndOf(window), nullptr, 0, 0, width, height, SWP_NOMOVE | SWP_NOZORDER);
}
