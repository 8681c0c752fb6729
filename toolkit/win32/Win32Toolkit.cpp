// Fills in the table of NSNative.h. The table is installed by a static
// initialiser, so any program that links toolkit/win32/ (the client, the
// GUI tests, the gallery) has the native side before main, and one that
// doesn't (vantor-admin) keeps the object side's window-less behaviour.
#include <windows.h>
// commctrl.h needs the types windows.h defines.
#include <commctrl.h>

#include "toolkit/win32/Win32Toolkit.h"

namespace {

void initCommonControls() { InitCommonControls(); }

void* instanceHandle() { return GetModuleHandleW(nullptr); }

bool getMessage(NSNativeMessage* message) {
    return GetMessageA(reinterpret_cast<MSG*>(message->bytes), nullptr, 0, 0) > 0;
}

// No IsDialogMessage and no accelerators: the keyboard is the toolkit's.
void dispatchMessage(NSNativeMessage* message) {
    MSG* msg = reinterpret_cast<MSG*>(message->bytes);
    TranslateMessage(msg);
    DispatchMessageA(msg);
}

void postQuitMessage(int code) { PostQuitMessage(code); }

const NSNativeToolkit table = {
        initCommonControls, instanceHandle,
        getMessage,         dispatchMessage,
        postQuitMessage,    vtRegisterWindowClass,
        vtCreateWindow,     vtShowWindow,
        vtSetMenu,          vtSetText,
        vtSetTextAnsi,      vtText,
        vtTextAnsi,         vtWindowRect,
        vtEnable,           vtSetFocus,
        vtDestroy,          vtCallOnWindowThread,
        vtSubclass,         vtAddTip,
        vtCreateButton,     vtCreateEdit,
        vtSetReadOnly,      vtCreateComboBox,
        vtComboAdd,         vtComboDelete,
        vtComboCount,       vtComboSelection,
        vtComboSelect,      vtCreateDatePicker,
        vtDateOf,           vtSetDate,
        vtMessageBox,       vtCreateMenu,
        vtInsertMenuItem,   vtDestroyMenu,
        vtLoadIconFile,     vtCreateListView,
        vtListInsertColumn, vtListSetColumnWidth,
        vtListDeleteAll,    vtListInsertItem,
        vtListSetItemText,  vtListSetItemState,
        vtListItemState,    vtListEnsureVisible,
        vtListSetRedraw,    vtRegisterTabPageClass,
        vtCreateTabControl, vtCreateTabItem,
        vtDestroyTabItem,   vtTabInsertItem,
        vtCreateTabPage,    vtNotifyIcon,
        vtMoveWindow,       vtRestoreWindow,
};

[[maybe_unused]] const bool installed = (NSSetNativeToolkit(&table), true);

}  // namespace
