// Push buttons: a click reaches the parent as WM_COMMAND with the id.
#include <windows.h>

#include "toolkit/win32/Win32Toolkit.h"

void* vtCreateButton(void* parent, NSNativeRect frame, int id, const char16_t* title) {
    HWND button = CreateWindowExW(0, L"BUTTON", wideOf(title), WS_CHILD | WS_VISIBLE | WS_TABSTOP,
                                  frame.left, frame.top, frame.width, frame.height, hwndOf(parent),
                                  reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                                  GetModuleHandleW(nullptr), nullptr);
    if (button) vtSetStockFont(button);
    return button;
}
