// Date and time pickers of the common controls.
#include <windows.h>
// commctrl.h needs the types windows.h defines.
#include <commctrl.h>

#include <cstring>

#include "toolkit/win32/Win32Toolkit.h"

static_assert(sizeof(SYSTEMTIME) == sizeof(VTSystemTime), "VTSystemTime mirrors SYSTEMTIME");

void* vtCreateDatePicker(void* parent, NSNativeRect frame, bool timePart) {
    DWORD style = WS_CHILD | WS_VISIBLE | (timePart ? DTS_TIMEFORMAT : 0);
    return CreateWindowExA(WS_EX_CLIENTEDGE, DATETIMEPICK_CLASSA, nullptr, style, frame.left,
                           frame.top, frame.width, frame.height, hwndOf(parent), nullptr,
                           GetModuleHandleW(nullptr), nullptr);
}

VTSystemTime vtDateOf(void* picker) {
    SYSTEMTIME time = {};
    SendMessageA(hwndOf(picker), DTM_GETSYSTEMTIME, 0, reinterpret_cast<LPARAM>(&time));
    VTSystemTime result;
    static_assert(sizeof result == sizeof time, "same layout");
    std::memcpy(&result, &time, sizeof time);
    return result;
}

void vtSetDate(void* picker, VTSystemTime time) {
    SYSTEMTIME native;
    std::memcpy(&native, &time, sizeof native);
    SendMessageA(hwndOf(picker), DTM_SETSYSTEMTIME, GDT_VALID, reinterpret_cast<LPARAM>(&native));
}
