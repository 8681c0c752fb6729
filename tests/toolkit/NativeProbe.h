// What the GUI tests read back from native windows and send to them, in
// plain types: the tests are compiled by g++ and may not see windows.h (it
// and GoogleTest's headers don't mix), so this small probe, compiled by
// wineg++, stands between them.
#pragma once

#include <cstdint>
#include <string>

#include "toolkit/NSNative.h"

// Win32 message and key numbers the tests send.
enum : unsigned {
    kProbeClose = 0x0010,       // WM_CLOSE
    kProbeSize = 0x0005,        // WM_SIZE
    kProbeActivate = 0x0006,    // WM_ACTIVATE
    kProbeCommand = 0x0111,     // WM_COMMAND
    kProbeKeyDown = 0x0100,     // WM_KEYDOWN
    kProbeKeyUp = 0x0101,       // WM_KEYUP
    kProbeGetDlgCode = 0x0087,  // WM_GETDLGCODE
    kProbeTab = 0x09,
    kProbeShift = 0x10,
    kProbeReturn = 0x0D,
    kProbeEscape = 0x1B,
};

intptr_t probeSend(void* handle, unsigned message, uintptr_t wParam, intptr_t lParam);
bool probePost(void* handle, unsigned message, uintptr_t wParam, intptr_t lParam);
// A visible top-level window with this title, of any process of the Wine
// session; nil if there is none.
void* probeFindVisibleWindow(const char* title);
// Delivers what has been posted to this thread's windows, without waiting.
void probePump();
std::string probeClassName(void* handle);
uint32_t probeStyle(void* handle);
uint32_t probeExStyle(void* handle);
int probeId(void* handle);
std::string probeText(void* handle);
// Sets the text as a user would leave it (ANSI).
void probeSetText(void* handle, const char* text);
// The window's rectangle in its parent's client coordinates.
NSNativeRect probeRectInParent(void* handle);
void* probeParent(void* handle);
bool probeEnabled(void* handle);
bool probeVisible(void* handle);
bool probeIsWindow(void* handle);
void* probeFocus();
// Makes the top-level window the active, focused one of this thread.
void probeActivate(void* window);
int probeComboCount(void* combo);
std::string probeComboItem(void* combo, int index);
void* probeWindowMenu(void* window);
int probeMenuCount(void* menu);
std::string probeMenuText(void* menu, int position);
uint32_t probeMenuId(void* menu, int position);
void* probeSubmenu(void* menu, int position);

// Selects and focuses a row as a click does, or deselects it; the list
// tells its parent (LVN_ITEMCHANGED).
void probeSelectRow(void* list, int row, bool selected);
// Tells `window` that the header of `column` of `list` was clicked.
void probeClickColumn(void* window, void* list, int column);
// Delivers what comes to this thread's windows (timers too) for the given
// time, waiting for it.
void probePumpWaiting(int milliseconds);
// Gives the window a new outer size, keeping its place.
void probeResize(void* handle, int width, int height);

int probeListCount(void* list);
std::string probeListText(void* list, int row, int column);
int probeListColumnWidth(void* list, int column);
std::string probeListColumnTitle(void* list, int column);
uint32_t probeListExtendedStyle(void* list);
bool probeListSelected(void* list, int row);
// Calls seen(context) for each message that another thread sends to the
// window, while that thread waits for the answer; one window at a time.
void probeWatchSentMessages(void* window, void (*seen)(void*), void* context);

int probeTabCount(void* tab);
std::string probeTabText(void* tab, int index);
// Chooses the tab as a click would: the tab control's parent hears
// TCN_SELCHANGING, the choice is made, then TCN_SELCHANGE.
void probeChooseTab(void* tab, int index);
