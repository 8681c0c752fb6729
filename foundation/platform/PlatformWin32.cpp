// The platform layer for the client: Win32, compiled by wineg++ on Linux
// (Winelib) or by MinGW-w64 on Windows. Nothing else in the tree includes
// windows.h.
#include <windows.h>
// commctrl.h and shellapi.h need the types windows.h defines.
#include <commctrl.h>
#include <shellapi.h>

#include <cstdlib>
#include <cstring>

#include "foundation/platform/Platform.h"

// char16_t and WCHAR are both 16-bit here (wineg++ and MinGW compile with a
// 16-bit wchar_t), which is what lets Platform.h avoid wchar_t altogether.
static_assert(sizeof(WCHAR) == sizeof(char16_t), "WCHAR must be 16-bit");

namespace {

LPCWSTR wide(const char16_t* text) { return reinterpret_cast<LPCWSTR>(text); }

}  // namespace

bool vtFileExists(const char* path) {
    return path && GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
}

bool vtCopyFileNoOverwrite(const char* from, const char* to) {
    return CopyFileA(from, to, TRUE) != 0;
}

bool vtRemoveFile(const char* path) { return DeleteFileA(path) != 0; }

bool vtListDirectory(const char* path, std::vector<std::string>* names) {
    std::string pattern(path);
    if (!pattern.empty() && pattern.back() != '/' && pattern.back() != '\\') pattern += '\\';
    pattern += '*';
    WIN32_FIND_DATAA found;
    HANDLE search = FindFirstFileA(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        // An empty directory still has "." and ".."; no match at all means
        // the directory is missing or unreadable.
        return false;
    }
    do {
        if (std::strcmp(found.cFileName, ".") == 0 || std::strcmp(found.cFileName, "..") == 0)
            continue;
        names->push_back(found.cFileName);
    } while (FindNextFileA(search, &found));
    FindClose(search);
    return true;
}

int vtMessageBox(const char16_t* text, const char16_t* title, int style) {
    return MessageBoxW(nullptr, wide(text), wide(title), static_cast<UINT>(style));
}

void vtBeep() { MessageBeep(0xFFFFFFFF); }

void vtInitCommonControls() { InitCommonControls(); }

const char* vtGetEnv(const char* name) { return std::getenv(name); }

uint64_t vtCurrentThreadId() { return GetCurrentThreadId(); }

void* vtInstanceHandle() { return GetModuleHandleW(nullptr); }

// ---------------------------------------------------------------------------
// Threads. CreateThread, never a C++ or POSIX thread: in a Winelib program a
// thread that calls into USER32 must be a Win32 thread.

namespace {

struct ThreadStart {
    void (*entry)(void*);
    void* argument;
};

DWORD WINAPI threadMain(LPVOID data) {
    ThreadStart start = *static_cast<ThreadStart*>(data);
    delete static_cast<ThreadStart*>(data);
    start.entry(start.argument);
    return 0;
}

}  // namespace

bool vtStartThread(void (*entry)(void*), void* argument, uint64_t* threadId) {
    auto* start = new ThreadStart{entry, argument};
    DWORD id = 0;
    HANDLE thread = CreateThread(nullptr, 0, threadMain, start, 0, &id);
    if (!thread) {
        delete start;
        return false;
    }
    // Nobody joins: the thread runs to its end on its own.
    CloseHandle(thread);
    *threadId = id;
    return true;
}

void vtSleepMilliseconds(uint32_t milliseconds) { Sleep(milliseconds); }

bool vtGetThreadPriority(int* priority) {
    int value = GetThreadPriority(GetCurrentThread());
    if (value == THREAD_PRIORITY_ERROR_RETURN) return false;
    *priority = value;
    return true;
}

bool vtSetThreadPriority(int priority) {
    return SetThreadPriority(GetCurrentThread(), priority) != 0;
}

struct VTLock {
    CRITICAL_SECTION cs;
};

VTLock* vtLockCreate() {
    auto* lock = new VTLock;
    InitializeCriticalSection(&lock->cs);
    return lock;
}

void vtLockDestroy(VTLock* lock) {
    if (!lock) return;
    DeleteCriticalSection(&lock->cs);
    delete lock;
}

void vtLockEnter(VTLock* lock) { EnterCriticalSection(&lock->cs); }

bool vtLockTryEnter(VTLock* lock) { return TryEnterCriticalSection(&lock->cs) != 0; }

void vtLockLeave(VTLock* lock) { LeaveCriticalSection(&lock->cs); }

// ---------------------------------------------------------------------------
// Processes and files.

int64_t vtLaunchProgram(const char* path, const char* parameters, const char* directory) {
    // Show code 5 (SW_SHOW): the program's window appears in its normal state.
    HINSTANCE result = ShellExecuteA(nullptr, "open", path, parameters, directory, SW_SHOW);
    return static_cast<int64_t>(reinterpret_cast<INT_PTR>(result));
}

bool vtFileStatus(const char* path, bool* isDirectory) {
    DWORD attributes = path ? GetFileAttributesA(path) : INVALID_FILE_ATTRIBUTES;
    if (attributes == INVALID_FILE_ATTRIBUTES) return false;
    if (isDirectory) *isDirectory = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return true;
}
