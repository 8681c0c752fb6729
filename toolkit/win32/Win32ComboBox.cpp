// Drop-down lists over the combo box.
#include <windows.h>

#include "toolkit/win32/Win32Toolkit.h"

void* vtCreateComboBox(void* parent, NSNativeRect frame, int id, const char16_t* text) {
    HWND combo = CreateWindowExW(0, L"COMBOBOX", wideOf(text),
                                 WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_VSCROLL | CBS_DROPDOWNLIST,
                                 frame.left, frame.top, frame.width, frame.height, hwndOf(parent),
                                 reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                                 GetModuleHandleW(nullptr), nullptr);
    if (combo) vtSetStockFont(combo);
    return combo;
}

void vtComboAdd(void* combo, const char16_t* item) {
    SendMessageW(hwndOf(combo), CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(wideOf(item)));
}

void vtComboDelete(void* combo, int index) {
    SendMessageW(hwndOf(combo), CB_DELETESTRING, index, 0);
}

int vtComboCount(void* combo) {
    return static_cast<int>(SendMessageW(hwndOf(combo), CB_GETCOUNT, 0, 0));
}

int vtComboSelection(void* combo) {
    return static_cast<int>(SendMessageW(hwndOf(combo), CB_GETCURSEL, 0, 0));
}

void vtComboSelect(void* combo, int index) { SendMessageW(hwndOf(combo), CB_SETCURSEL, index, 0); }
