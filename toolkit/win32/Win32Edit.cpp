// Edit controls: one-line fields, password fields, multi-line text, and the
// plain label edit that replaces a field whose border changes.
#include <windows.h>

#include "toolkit/win32/Win32Toolkit.h"

namespace {

DWORD styleOf(NSNativeEdit kind, bool bordered) {
    DWORD border = bordered ? WS_BORDER : 0;
    switch (kind) {
        case NSNativeEdit::Field:
            return WS_CHILD | WS_VISIBLE | WS_TABSTOP | border | ES_AUTOHSCROLL;
        case NSNativeEdit::Label:
            // No tab stop and no auto-scroll: a read-only label.
            return WS_CHILD | WS_VISIBLE | border;
        case NSNativeEdit::Password:
            return WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_BORDER | ES_PASSWORD;
        case NSNativeEdit::Multiline:
            return WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_BORDER | WS_VSCROLL | ES_MULTILINE;
    }
    return 0;
}

}  // namespace

void* vtCreateEdit(void* parent, NSNativeRect frame, int id, NSNativeEdit kind, bool bordered,
                   const char16_t* text, const char* ansiText) {
    HMENU menuId = reinterpret_cast<HMENU>(static_cast<INT_PTR>(id));
    HINSTANCE instance = GetModuleHandleW(nullptr);
    HWND edit;
    // The password field is an ANSI window: its text goes as bytes of the
    // system's code page.
    if (kind == NSNativeEdit::Password) {
        edit = CreateWindowExA(0, "EDIT", ansiText, styleOf(kind, bordered), frame.left, frame.top,
                               frame.width, frame.height, hwndOf(parent), menuId, instance,
                               nullptr);
    } else {
        edit = CreateWindowExW(0, L"EDIT", wideOf(text), styleOf(kind, bordered), frame.left,
                               frame.top, frame.width, frame.height, hwndOf(parent), menuId,
                               instance, nullptr);
    }
    if (edit) vtSetStockFont(edit);
    return edit;
}

void vtSetReadOnly(void* edit, bool readOnly) {
    SendMessageW(hwndOf(edit), EM_SETREADONLY, readOnly, 0);
}
