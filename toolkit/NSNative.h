// The seam between the toolkit's object side and its native side.
//
// The object side (this folder) never sees a native type. What it needs of
// the window system it reaches through one table of plain function
// pointers, which the native side (toolkit/win32/) fills in when its object
// file is linked in: a static initialiser there calls NSSetNativeToolkit
// before main. vantor-admin and the native test programs link the object
// side without toolkit/win32/, so for them NSNative() answers nil and every
// control keeps its state in fields only: hWnd stays nil, an alert prints
// instead of asking (see NSAlert), the message loop ends at once.
//
// Only plain types cross: handles as opaque pointers, text as UTF-8 or
// null-terminated char16_t (the native side is compiled with a 16-bit
// wchar_t, the object side with a 32-bit one, so wchar_t never crosses).
#pragma once

#include <cstdint>
#include <string>

#include "foundation/NSDate.h"

// A native rectangle: integers, top-left origin.
struct NSNativeRect {
    int left;
    int top;
    int width;
    int height;
};

// Room for one native message (MSG) between fetching and dispatching it.
struct NSNativeMessage {
    alignas(8) unsigned char bytes[64];
};

// The window procedure a subclassed control runs in.
enum class NSNativeProc {
    Keyed,    // text fields: Tab, Shift+Tab, Enter and Escape
    Control,  // pop-up buttons and table views: registration and tips only
};

// The kinds of edit control.
enum class NSNativeEdit {
    Field,      // one line, auto-scroll, tab stop
    Label,      // the replacement made by setBordered: (no tab stop)
    Password,   // one line, hidden characters, ANSI
    Multiline,  // several lines with a vertical scroll bar
};

// The record the shell keeps of a tray icon, in plain types; the native
// side copies it into its own structure for each call.
struct NSNativeNotifyIcon {
    uint32_t cbSize;
    void* hWnd;
    uint32_t uID;
    uint32_t uFlags;
    uint32_t uCallbackMessage;
    void* hIcon;
    char16_t szTip[64];
};

// The answers of the native message box.
enum : int {
    kNSNativeAnswerOk = 1,
    kNSNativeAnswerCancel = 2,
};

struct NSNativeToolkit {
    // Process.
    void (*initCommonControls)();
    void* (*instanceHandle)();

    // The message loop: false when the loop must end.
    bool (*getMessage)(NSNativeMessage* message);
    void (*dispatchMessage)(NSNativeMessage* message);
    void (*postQuitMessage)(int code);

    // Top-level windows. registerWindowClass answers false after logging
    // why; on success *icon is the application icon it loaded.
    bool (*registerWindowClass)(void** icon);
    void* (*createWindow)(NSNativeRect outer);
    void (*showWindow)(void* handle, bool show);
    void (*setMenu)(void* window, void* menu);

    // Any native window.
    void (*setText)(void* handle, const char16_t* text);
    void (*setTextAnsi)(void* handle, const char* text);
    std::u16string (*text)(void* handle);
    std::string (*textAnsi)(void* handle);
    NSNativeRect (*windowRect)(void* handle);
    void (*enable)(void* handle, bool enabled);
    void (*setFocus)(void* handle);
    void (*destroy)(void* handle);
    // Runs call(context) on the thread that made the window: at once on
    // that thread, from any other through one native message, which waits
    // until that thread serves it. The window must run in a toolkit
    // procedure (see subclass).
    void (*callOnWindowThread)(void* window, void (*call)(void*), void* context);
    // Replaces the control's window procedure with the toolkit's; answers
    // the former one. ansi: set it with the A call.
    void* (*subclass)(void* handle, NSNativeProc proc, bool ansi);
    // A native balloon tip for the control, owned by its parent.
    void (*addTip)(void* parent, void* control, const char16_t* text);

    // Controls, one kind each.
    void* (*createButton)(void* parent, NSNativeRect frame, int id, const char16_t* title);
    void* (*createEdit)(void* parent, NSNativeRect frame, int id, NSNativeEdit kind, bool bordered,
                        const char16_t* text, const char* ansiText);
    void (*setReadOnly)(void* edit, bool readOnly);
    void* (*createComboBox)(void* parent, NSNativeRect frame, int id, const char16_t* text);
    void (*comboAdd)(void* combo, const char16_t* item);
    void (*comboDelete)(void* combo, int index);
    int (*comboCount)(void* combo);
    int (*comboSelection)(void* combo);
    void (*comboSelect)(void* combo, int index);
    void* (*createDatePicker)(void* parent, NSNativeRect frame, bool timePart);
    VTSystemTime (*dateOf)(void* picker);
    void (*setDate)(void* picker, VTSystemTime time);

    // Alerts, menus, images.
    int (*messageBox)(const char16_t* text, const char16_t* title, bool okCancel);
    void* (*createMenu)(bool popup);
    void (*insertMenuItem)(void* menu, uint32_t position, const char16_t* title, uint32_t id,
                           void* submenu);
    void (*destroyMenu)(void* menu);
    void* (*loadIconFile)(const char* path);

    // Report list views (table views). The list is made with full-row
    // selection and grid lines; answers nil on failure.
    void* (*createListView)(void* parent, NSNativeRect frame);
    void (*listInsertColumn)(void* list, int index, int width, const char16_t* title);
    void (*listSetColumnWidth)(void* list, int index, int width);
    bool (*listDeleteAll)(void* list);
    // Answers the row the list gave the item, below 0 if refused.
    int (*listInsertItem)(void* list, int row, const char16_t* text);
    void (*listSetItemText)(void* list, int row, int subItem, const char16_t* text);
    // Row -1 sets the state of every row.
    void (*listSetItemState)(void* list, int row, uint32_t state, uint32_t mask);
    uint32_t (*listItemState)(void* list, int row, uint32_t mask);
    void (*listEnsureVisible)(void* list, int row);
    // Stops (false) and resumes (true) the list's painting; resuming
    // paints the list anew.
    void (*listSetRedraw)(void* list, bool redraw);

    // Tab controls and their pages. registerTabPageClass logs and answers
    // false when the page class cannot be registered.
    bool (*registerTabPageClass)();
    void* (*createTabControl)(void* parent, NSNativeRect frame, int id, const char16_t* text);
    // A native tab item with the text (owned by the caller until
    // destroyTabItem).
    void* (*createTabItem)(const char16_t* text);
    void (*destroyTabItem)(void* item);
    void (*tabInsertItem)(void* tabControl, int index, void* item);
    // A hidden page, a child of the tab control placed under its strip,
    // or nil after logging why.
    void* (*createTabPage)(void* tabControl);

    // The tray icon.
    void (*notifyIcon)(bool add, const NSNativeNotifyIcon* record);

    // Moves and sizes a child window (parent pixels, top left) and
    // repaints it at once.
    void (*moveWindow)(void* handle, NSNativeRect frame);
    // Puts a top-level window back to its normal placement (from
    // minimized or maximized), shows it and gives it the focus.
    void (*restoreWindow)(void* handle);
};

// The native side, or nil where none is linked in.
const NSNativeToolkit* NSNative();
// Installed once by the native side before main.
void NSSetNativeToolkit(const NSNativeToolkit* toolkit);

class NSString;
// The UTF-16 form of a text for the native side, empty for nil; valid as
// long as the string.
const char16_t* NSNativeText(NSString* text);

// The entry point's calls: both do nothing without a native side.
void NSInitCommonControls();
void* NSInstanceHandle();
