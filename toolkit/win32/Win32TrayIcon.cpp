// The tray icon: the shell keeps a record per icon and sends clicks on it
// to the record's window as its callback message.
#include <windows.h>
// shellapi.h needs the types windows.h defines.
#include <shellapi.h>

#include "toolkit/win32/Win32Toolkit.h"

void vtNotifyIcon(bool add, const NSNativeNotifyIcon* record) {
    NOTIFYICONDATAW data = {};
    // The first form of the record, which every shell knows (152 bytes in
    // the 32-bit client, as the object side says).
    data.cbSize = NOTIFYICONDATAW_V1_SIZE;
    data.hWnd = hwndOf(record->hWnd);
    data.uID = record->uID;
    data.uFlags = record->uFlags;
    data.uCallbackMessage = record->uCallbackMessage;
    data.hIcon = static_cast<HICON>(record->hIcon);
    static_assert(sizeof data.szTip >= sizeof record->szTip, "the tip must fit");
    for (size_t i = 0; i < sizeof record->szTip / sizeof record->szTip[0]; i++)
        data.szTip[i] = record->szTip[i];
    // A failure (no notification area) is not looked at.
    Shell_NotifyIconW(add ? NIM_ADD : NIM_DELETE, &data);
}
