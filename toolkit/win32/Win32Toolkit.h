// The native side's own declarations: what each file of toolkit/win32/
// provides for the table of NSNative.h. Nothing outside this folder
// includes it.
#pragma once

#include <windows.h>

#include "toolkit/NSNative.h"

static_assert(sizeof(WCHAR) == sizeof(char16_t), "WCHAR must be 16-bit");
static_assert(sizeof(MSG) <= sizeof(NSNativeMessage), "NSNativeMessage must hold a MSG");

inline HWND hwndOf(void* handle) { return static_cast<HWND>(handle); }
inline LPCWSTR wideOf(const char16_t* text) { return reinterpret_cast<LPCWSTR>(text); }
inline RECT rectOf(NSNativeRect r) {
    return RECT{r.left, r.top, r.left + r.width, r.top + r.height};
}

// The stock font every control is given.
void vtSetStockFont(HWND control);

// Win32Window.cpp
// The icon of all windows: icon group 101 of the program, or the system's
// application icon where the program has none.
HICON vtApplicationIcon();
bool vtRegisterWindowClass(void** icon);
void* vtCreateWindow(NSNativeRect outer);
void vtShowWindow(void* handle, bool show);
void vtSetMenu(void* window, void* menu);
void vtSetText(void* handle, const char16_t* text);
void vtSetTextAnsi(void* handle, const char* text);
std::u16string vtText(void* handle);
std::string vtTextAnsi(void* handle);
NSNativeRect vtWindowRect(void* handle);
void vtEnable(void* handle, bool enabled);
void vtSetFocus(void* handle);
void vtMoveWindow(void* handle, NSNativeRect frame);
void vtRestoreWindow(void* handle);
void vtDestroy(void* handle);
void vtCallOnWindowThread(void* window, void (*call)(void*), void* context);
void* vtSubclass(void* handle, NSNativeProc proc, bool ansi);

// The message that carries a call to the thread of a control (see
// callOnWindowThread): wParam the function, lParam its argument.
constexpr UINT kVtCallMessage = WM_APP + 1;

// Win32WindowProcs.cpp
LRESULT CALLBACK WindowWndProc(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT CALLBACK KeyedControlWndProc(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT CALLBACK ControlWndProc(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);
// The list and button cases, also for the procedure of tab pages, to which
// the lists and buttons of a page report.
void vtListSelectionChanged(HWND source);
void vtListColumnClicked(HWND source, int column);
void vtButtonCommand(WPARAM id);

// Win32Tooltip.cpp
void vtAddTip(void* parent, void* control, const char16_t* text);

// Win32Button.cpp
void* vtCreateButton(void* parent, NSNativeRect frame, int id, const char16_t* title);

// Win32Edit.cpp
void* vtCreateEdit(void* parent, NSNativeRect frame, int id, NSNativeEdit kind, bool bordered,
                   const char16_t* text, const char* ansiText);
void vtSetReadOnly(void* edit, bool readOnly);

// Win32ComboBox.cpp
void* vtCreateComboBox(void* parent, NSNativeRect frame, int id, const char16_t* text);
void vtComboAdd(void* combo, const char16_t* item);
void vtComboDelete(void* combo, int index);
int vtComboCount(void* combo);
int vtComboSelection(void* combo);
void vtComboSelect(void* combo, int index);

// Win32DatePicker.cpp
void* vtCreateDatePicker(void* parent, NSNativeRect frame, bool timePart);
VTSystemTime vtDateOf(void* picker);
void vtSetDate(void* picker, VTSystemTime time);

// Win32MessageBox.cpp
int vtMessageBox(const char16_t* text, const char16_t* title, bool okCancel);

// Win32Menu.cpp
void* vtCreateMenu(bool popup);
void vtInsertMenuItem(void* menu, uint32_t position, const char16_t* title, uint32_t id,
                      void* submenu);
void vtDestroyMenu(void* menu);

// Win32Image.cpp
void* vtLoadIconFile(const char* path);

// Win32ListView.cpp
void* vtCreateListView(void* parent, NSNativeRect frame);
void vtListInsertColumn(void* list, int index, int width, const char16_t* title);
void vtListSetColumnWidth(void* list, int index, int width);
bool vtListDeleteAll(void* list);
int vtListInsertItem(void* list, int row, const char16_t* text);
void vtListSetItemText(void* list, int row, int subItem, const char16_t* text);
void vtListSetItemState(void* list, int row, uint32_t state, uint32_t mask);
uint32_t vtListItemState(void* list, int row, uint32_t mask);
void vtListEnsureVisible(void* list, int row);
void vtListSetRedraw(void* list, bool redraw);

// Win32TabControl.cpp
LRESULT CALLBACK TabPageWndProc(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);
bool vtRegisterTabPageClass();
void* vtCreateTabControl(void* parent, NSNativeRect frame, int id, const char16_t* text);
void* vtCreateTabItem(const char16_t* text);
void vtDestroyTabItem(void* item);
void vtTabInsertItem(void* tabControl, int index, void* item);
void* vtCreateTabPage(void* tabControl);

// Win32TrayIcon.cpp
void vtNotifyIcon(bool add, const NSNativeNotifyIcon* record);
