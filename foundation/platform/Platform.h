// The platform layer: the few operating-system services the portable code
// needs. Two implementations: PlatformPosix.cpp for the native programs and
// tests, PlatformWin32.cpp for the Winelib/Windows client.
//
// Only plain C++ types cross this header. The Win32 side is compiled by
// wineg++ with -fshort-wchar, the rest by g++ with a 32-bit wchar_t, so
// 16-bit text is passed as char16_t, never as wchar_t, and no Windows or
// POSIX type appears here.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// True if `path` names an existing file or directory.
bool vtFileExists(const char* path);

// Copies `from` to `to` unless `to` already exists. False if `to` exists or
// the copy fails; a failed copy leaves no partial `to` behind.
bool vtCopyFileNoOverwrite(const char* from, const char* to);

// Removes the file `path`. False if it did not exist or could not be removed.
bool vtRemoveFile(const char* path);

// Appends the names of the entries of directory `path` to `*names`, without
// "." and "..", in no particular order. False if `path` cannot be listed.
bool vtListDirectory(const char* path, std::vector<std::string>* names);

// Native answers of vtMessageBox and the styles it takes (Win32 values).
enum : int {
    kVTMessageBoxOk = 0x0,
    kVTMessageBoxOkCancel = 0x1,
    kVTMessageBoxYesNo = 0x4,
    kVTAnswerOk = 1,
    kVTAnswerCancel = 2,
    kVTAnswerYes = 6,
    kVTAnswerNo = 7,
};

// Shows a modal message box and returns the button pressed (kVTAnswer*).
// Without a window system (POSIX) it shows nothing and returns kVTAnswerOk.
// Whether to ask at all (non-interactive runs) is the caller's decision.
int vtMessageBox(const char16_t* text, const char16_t* title, int style);

// The system's default alert sound.
void vtBeep();

// Registers the common control classes; the client calls it once at start.
void vtInitCommonControls();

// The value of environment variable `name`, or nullptr if unset. The result
// stays valid until the environment changes.
const char* vtGetEnv(const char* name);

// The calling thread's identifier, unique among live threads.
uint64_t vtCurrentThreadId();

// The program's module handle (HINSTANCE on Win32); nullptr on POSIX.
void* vtInstanceHandle();
