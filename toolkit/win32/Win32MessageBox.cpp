// The system's message box, with no owner window.
#include <windows.h>

#include "toolkit/win32/Win32Toolkit.h"

int vtMessageBox(const char16_t* text, const char16_t* title, bool okCancel) {
    return MessageBoxW(nullptr, wideOf(text), wideOf(title), okCancel ? MB_OKCANCEL : MB_OK);
}
