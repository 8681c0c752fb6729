// The platform layer for the client: Win32, compiled by wineg++ on Linux
// (Winelib) or by MinGW-w64 on Windows. Nothing else in the tree includes
// windows.h.
#include <windows.h>
// commctrl.h needs the types windows.h defines.
#include <commctrl.h>

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
