// Top-level windows and what every native window shares: text, geometry,
// enabling, focus, subclassing.
#include <windows.h>

#include "foundation/NSObject.h"
#include "toolkit/win32/Win32Toolkit.h"

namespace {
const char kWindowClass[] = "Window -- OpenStep";
// Icon group 101 of the program. A Winelib build has no resources of its
// own, so there the system's stock application icon stands in.
const int kApplicationIconId = 101;
}  // namespace

void vtSetStockFont(HWND control) {
    SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(GetStockObject(DEFAULT_GUI_FONT)),
                 TRUE);
}

HICON vtApplicationIcon() {
    HICON loaded = LoadIconA(GetModuleHandleW(nullptr), MAKEINTRESOURCEA(kApplicationIconId));
    return loaded ? loaded : LoadIconA(nullptr, IDI_APPLICATION);
}

bool vtRegisterWindowClass(void** icon) {
    HINSTANCE instance = GetModuleHandleW(nullptr);
    HICON loaded = vtApplicationIcon();
    WNDCLASSA windowClass = {};
    windowClass.style = CS_HREDRAW | CS_VREDRAW;
    windowClass.lpfnWndProc = WindowWndProc;
    windowClass.hInstance = instance;
    windowClass.hIcon = loaded;
    windowClass.hCursor = LoadCursorA(nullptr, IDC_ARROW);
    windowClass.hbrBackground = GetSysColorBrush(COLOR_BTNFACE);
    windowClass.lpszClassName = kWindowClass;
    if (!RegisterClassA(&windowClass)) {
        LOG("Cannot register window: %d", static_cast<int>(GetLastError()));
        return false;
    }
    *icon = loaded;
    return true;
}

void* vtCreateWindow(NSNativeRect outer) {
    return CreateWindowExA(0, kWindowClass, "Window title", WS_OVERLAPPEDWINDOW, outer.left,
                           outer.top, outer.width, outer.height, nullptr, nullptr,
                           GetModuleHandleW(nullptr), nullptr);
}

void vtShowWindow(void* handle, bool show) { ShowWindow(hwndOf(handle), show ? SW_SHOW : SW_HIDE); }

void vtSetMenu(void* window, void* menu) { SetMenu(hwndOf(window), static_cast<HMENU>(menu)); }

void vtSetText(void* handle, const char16_t* text) { SetWindowTextW(hwndOf(handle), wideOf(text)); }

void vtSetTextAnsi(void* handle, const char* text) { SetWindowTextA(hwndOf(handle), text); }

std::u16string vtText(void* handle) {
    int length = GetWindowTextLengthW(hwndOf(handle));
    std::u16string text(length + 1, u'\0');
    int got = GetWindowTextW(hwndOf(handle), reinterpret_cast<LPWSTR>(&text[0]), length + 1);
    text.resize(got > 0 ? got : 0);
    return text;
}

std::string vtTextAnsi(void* handle) {
    int length = GetWindowTextLengthA(hwndOf(handle));
    std::string text(length + 1, '\0');
    int got = GetWindowTextA(hwndOf(handle), &text[0], length + 1);
    text.resize(got > 0 ? got : 0);
    return text;
}

NSNativeRect vtWindowRect(void* handle) {
    RECT r = {};
    GetWindowRect(hwndOf(handle), &r);
    return NSNativeRect{r.left, r.top, r.right - r.left, r.bottom - r.top};
}

void vtEnable(void* handle, bool enabled) { EnableWindow(hwndOf(handle), enabled); }

void vtSetFocus(void* handle) { SetFocus(hwndOf(handle)); }

void vtRestoreWindow(void* handle) {
    WINDOWPLACEMENT placement = {};
    placement.length = sizeof placement;
    GetWindowPlacement(hwndOf(handle), &placement);
    placement.showCmd = SW_RESTORE;
    SetWindowPlacement(hwndOf(handle), &placement);
    ShowWindow(hwndOf(handle), SW_SHOW);
    SetFocus(hwndOf(handle));
}

void vtMoveWindow(void* handle, NSNativeRect frame) {
    MoveWindow(hwndOf(handle), frame.left, frame.top, frame.width, frame.height, TRUE);
}

void vtDestroy(void* handle) { DestroyWindow(hwndOf(handle)); }

void vtCallOnWindowThread(void* window, void (*call)(void*), void* context) {
    if (GetWindowThreadProcessId(hwndOf(window), nullptr) == GetCurrentThreadId()) {
        call(context);
        return;
    }
    SendMessageW(hwndOf(window), kVtCallMessage, reinterpret_cast<WPARAM>(call),
                 reinterpret_cast<LPARAM>(context));
}

// SetWindowLongPtr is SetWindowLong on 32-bit Windows; a 64-bit Winelib
// build needs the pointer-wide form to keep the whole procedure address.
void* vtSubclass(void* handle, NSNativeProc proc, bool ansi) {
    WNDPROC procedure = proc == NSNativeProc::Keyed ? KeyedControlWndProc : ControlWndProc;
    LONG_PTR value = reinterpret_cast<LONG_PTR>(procedure);
    LONG_PTR former = ansi ? SetWindowLongPtrA(hwndOf(handle), GWLP_WNDPROC, value)
                           : SetWindowLongPtrW(hwndOf(handle), GWLP_WNDPROC, value);
    return reinterpret_cast<void*>(former);
}
