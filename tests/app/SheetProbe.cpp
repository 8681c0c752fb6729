#include <windows.h>
// commctrl.h needs the types windows.h defines.
#include <commctrl.h>
#include <stdlib.h>

#include "tests/app/SheetProbe.h"

namespace {
HWND hwndOf(void* handle) { return static_cast<HWND>(handle); }
}  // namespace

int probeListColumns(void* list) {
    HWND header = reinterpret_cast<HWND>(SendMessageA(hwndOf(list), LVM_GETHEADER, 0, 0));
    return header ? static_cast<int>(SendMessageA(header, HDM_GETITEMCOUNT, 0, 0)) : 0;
}

int probeComboSelection(void* combo) {
    return static_cast<int>(SendMessageA(hwndOf(combo), CB_GETCURSEL, 0, 0));
}

void probeComboChoose(void* combo, int index) {
    SendMessageA(hwndOf(combo), CB_SETCURSEL, index, 0);
    SendMessageA(GetParent(hwndOf(combo)), WM_COMMAND,
                 MAKEWPARAM(GetDlgCtrlID(hwndOf(combo)), CBN_SELCHANGE),
                 reinterpret_cast<LPARAM>(combo));
}

void probeMinimize(void* window) { ShowWindow(hwndOf(window), SW_MINIMIZE); }

bool probeMinimized(void* window) { return IsIconic(hwndOf(window)) != 0; }

void probeSetEnvironment(const char* name, const char* value) {
    SetEnvironmentVariableA(name, value);
    // The platform layer's getenv reads the C library's copy.
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
}

namespace {

unsigned gAnswerKey = 0;
HANDLE gAnswerThread = nullptr;
std::string gDialogSeen;

// Message boxes are dialogs of the class "#32770".
DWORD WINAPI answerDialog(void*) {
    HWND box = nullptr;
    for (int i = 0; i < 500 && !box; i++) {
        box = FindWindowA("#32770", nullptr);
        if (!box) Sleep(10);
    }
    if (!box) return 0;
    char title[256] = {};
    char text[256] = {};
    GetWindowTextA(box, title, sizeof title);
    // The message is the box's static control.
    for (HWND child = GetWindow(box, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
        char name[32] = {};
        GetClassNameA(child, name, sizeof name);
        if (lstrcmpiA(name, "Static") == 0 && GetWindowTextA(child, text, sizeof text) > 0) break;
    }
    PostMessageA(box, WM_KEYDOWN, gAnswerKey, 0);
    for (int i = 0; i < 300 && IsWindow(box); i++) Sleep(10);
    if (IsWindow(box)) {
        PostMessageA(box, WM_CLOSE, 0, 0);
        return 0;
    }
    gDialogSeen = std::string(title) + ": " + text;
    return 0;
}

}  // namespace

void probeAnswerNextDialog(unsigned key) {
    gAnswerKey = key;
    gDialogSeen.clear();
    gAnswerThread = CreateThread(nullptr, 0, answerDialog, nullptr, 0, nullptr);
}

std::string probeDialogSeen() {
    if (gAnswerThread) {
        WaitForSingleObject(gAnswerThread, 10000);
        CloseHandle(gAnswerThread);
        gAnswerThread = nullptr;
    }
    return gDialogSeen;
}

namespace {

struct ThreadCall {
    void (*fn)(void*);
    void* arg;
};

DWORD WINAPI runCall(void* call) {
    auto* c = static_cast<ThreadCall*>(call);
    c->fn(c->arg);
    delete c;
    return 0;
}

}  // namespace

void* probeStartThread(void (*fn)(void*), void* arg) {
    return CreateThread(nullptr, 0, runCall, new ThreadCall{fn, arg}, 0, nullptr);
}

bool probeThreadDone(void* thread) {
    if (WaitForSingleObject(static_cast<HANDLE>(thread), 0) != WAIT_OBJECT_0) return false;
    CloseHandle(static_cast<HANDLE>(thread));
    return true;
}
