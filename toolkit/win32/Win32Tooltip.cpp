// Native balloon tips, one tool-tip window per control that has a tip.
#include <windows.h>
// commctrl.h needs the types windows.h defines.
#include <commctrl.h>

#include "toolkit/win32/Win32Toolkit.h"

void vtAddTip(void* parent, void* control, const char16_t* text) {
    HWND tip = CreateWindowExW(0, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_ALWAYSTIP, CW_USEDEFAULT,
                               CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, hwndOf(parent), nullptr,
                               GetModuleHandleW(nullptr), nullptr);
    if (!tip) return;
    TOOLINFOW info = {};
    // The size of the structure as the version-5 controls know it, which
    // every version of comctl32 accepts.
    info.cbSize = TTTOOLINFOW_V2_SIZE;
    info.uFlags = TTF_IDISHWND | TTF_SUBCLASS;
    info.hwnd = hwndOf(parent);
    info.uId = reinterpret_cast<UINT_PTR>(control);
    info.lpszText = const_cast<LPWSTR>(wideOf(text));
    SendMessageW(tip, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&info));
}
