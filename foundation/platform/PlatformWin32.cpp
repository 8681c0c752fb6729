// The platform layer for the client: Win32, compiled by wineg++ on Linux
// (Winelib) or by MinGW-w64 on Windows. Nothing else in the tree includes
// windows.h.
#if defined(__WINE__)
// Winelib on Linux uses plain POSIX sockets (Winsock only in a MinGW build).
// Their headers must come before windows.h, and Wine's winsock.h, which
// windows.h pulls in, is told to prefix its names so that the two sets of
// declarations don't collide.
#include "foundation/platform/PlatformEndFilePosix.inc"
#include "foundation/platform/PlatformSocketsPosix.inc"
#define USE_WS_PREFIX
#else
// winsock2.h must precede windows.h, which would otherwise bring winsock.h.
#include <winsock2.h>
#include <ws2tcpip.h>
// _setmode for the standard streams.
#include <fcntl.h>
#include <io.h>
#endif
#include <windows.h>
// shellapi.h needs the types windows.h defines.
#include <shellapi.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/platform/Platform.h"

// char16_t and WCHAR are both 16-bit here (wineg++ and MinGW compile with a
// 16-bit wchar_t), which is what lets Platform.h avoid wchar_t altogether.
static_assert(sizeof(WCHAR) == sizeof(char16_t), "WCHAR must be 16-bit");

namespace {

#if !defined(__WINE__)
// What the programs write on standard output (archives, JSON, log lines)
// must be the same bytes on every platform, and what they read on standard
// input must arrive as sent. The Windows runtime opens the standard streams
// in text mode, which writes "\r\n" for "\n" and stops reading at a 0x1A
// byte, so they are switched to binary before main runs. (A Winelib
// program's streams are those of the Linux C library, which translates
// nothing.)
const bool gBinaryStandardStreams = [] {
    _setmode(0, _O_BINARY);
    _setmode(1, _O_BINARY);
    _setmode(2, _O_BINARY);
    return true;
}();
#endif

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

void vtBeep() { MessageBeep(0xFFFFFFFF); }

void vtDefaultSoundBeep() { MessageBeep(MB_OK); }

const char* vtGetEnv(const char* name) { return std::getenv(name); }

uint64_t vtCurrentThreadId() { return GetCurrentThreadId(); }

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

bool vtOpenDocument(const char* path) {
    HINSTANCE result = ShellExecuteA(nullptr, "open", path, nullptr, ".", SW_SHOW);
    return reinterpret_cast<INT_PTR>(result) > 32;
}

bool vtFileStatus(const char* path, bool* isDirectory) {
    DWORD attributes = path ? GetFileAttributesA(path) : INVALID_FILE_ATTRIBUTES;
    if (attributes == INVALID_FILE_ATTRIBUTES) return false;
    if (isDirectory) *isDirectory = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return true;
}

bool vtMakeTemporaryDirectory(const char* tag, std::string* path) {
    char base[MAX_PATH + 1];
    DWORD length = GetTempPathA(sizeof base, base);
    if (length == 0 || length > MAX_PATH) return false;
    // The process id and the tick count keep concurrent processes apart;
    // CreateDirectoryA refuses a name that is taken, and the next is tried.
    DWORD start = GetTickCount();
    for (DWORD attempt = 0; attempt < 1000; attempt++) {
        char name[64];
        std::snprintf(name, sizeof name, "-%lx-%lx",
                      static_cast<unsigned long>(GetCurrentProcessId()),
                      static_cast<unsigned long>(start + attempt));
        std::string candidate = std::string(base) + tag + name;
        if (CreateDirectoryA(candidate.c_str(), nullptr)) {
            *path = candidate;
            return true;
        }
        if (GetLastError() != ERROR_ALREADY_EXISTS) return false;
    }
    return false;
}

// ---------------------------------------------------------------------------
// Lock files.

int vtCreateFileExclusive(const char* path, const std::string& content) {
    HANDLE file = CreateFileA(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                              CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        DWORD error = GetLastError();
        return error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS ? kVTFileExists
                                                                           : kVTFileNotCreated;
    }
    DWORD written = 0;
    bool ok = WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written,
                        nullptr) &&
              written == content.size();
    if (!CloseHandle(file)) ok = false;
    if (ok) return kVTFileCreated;
    DeleteFileA(path);
    return kVTFileNotCreated;
}

bool vtWritePrivateFile(const char* path, const std::string& content) {
    HANDLE file = CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                              nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    bool ok = WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written,
                        nullptr) &&
              written == content.size();
    if (!CloseHandle(file)) ok = false;
    return ok;
}

int64_t vtCurrentProcessId() { return GetCurrentProcessId(); }

const char* vtProcessIdKind() { return "windows"; }

bool vtProcessIsRunning(int64_t processId) {
    if (processId <= 0 || processId > 0xFFFFFFFFll) return false;
    HANDLE process =
            OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(processId));
    // Denied: it exists, under another user.
    if (!process) return GetLastError() == ERROR_ACCESS_DENIED;
    DWORD code = 0;
    bool running = GetExitCodeProcess(process, &code) && code == STILL_ACTIVE;
    CloseHandle(process);
    return running;
}

namespace {

// What vtRemoveFileAtEnd watches. The console control handler runs on a
// thread of its own, so the buffers are fixed and guarded by a flag that
// only one caller can take.
struct EndFile {
    char path[MAX_PATH * 4];
    char content[256];
    DWORD length;
};
EndFile gEndFile;
volatile LONG gEndFileArmed = 0;

bool removeEndFile() {
    if (InterlockedExchange(&gEndFileArmed, 0) == 0) return false;
    HANDLE file = CreateFileA(gEndFile.path, GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    char found[sizeof gEndFile.content + 1];
    DWORD got = 0;
    bool read = ReadFile(file, found, sizeof found, &got, nullptr) != 0;
    CloseHandle(file);
    if (!read || got != gEndFile.length || std::memcmp(found, gEndFile.content, got) != 0)
        return false;
    return DeleteFileA(gEndFile.path) != 0;
}

void removeEndFileAtExit() { removeEndFile(); }

// Every event ends the process after the handlers: this one removes the
// file and lets the next handler (in the end the default one, which calls
// ExitProcess) have it.
BOOL WINAPI removeEndFileOnControl(DWORD) {
    removeEndFile();
    return FALSE;
}

}  // namespace

void vtRemoveFileAtEnd(const char* path, const std::string& content) {
    static bool installed = false;
    InterlockedExchange(&gEndFileArmed, 0);
    char full[sizeof gEndFile.path];
    DWORD length = GetFullPathNameA(path, sizeof full, full, nullptr);
    if (length == 0 || length >= sizeof full || content.size() > sizeof gEndFile.content) return;
    std::memcpy(gEndFile.path, full, length + 1);
    std::memcpy(gEndFile.content, content.data(), content.size());
    gEndFile.length = static_cast<DWORD>(content.size());
    if (!installed) {
        installed = true;
        std::atexit(removeEndFileAtExit);
        SetConsoleCtrlHandler(removeEndFileOnControl, TRUE);
    }
    InterlockedExchange(&gEndFileArmed, 1);
#if defined(__WINE__)
    // Under Wine the process is a Linux process as well: SIGTERM ends it
    // without a Win32 notice, and SIGINT reaches no console handler of a
    // windowed program. The Unix side watches the same file by its Unix
    // name, and so does exit() of the Linux runtime.
    std::vector<WCHAR> wide(length + 1);
    MultiByteToWideChar(CP_ACP, 0, full, -1, wide.data(), static_cast<int>(wide.size()));
    if (char* unixName = wine_get_unix_file_name(wide.data())) {
        watchUnixEndFile(unixName, content);
        HeapFree(GetProcessHeap(), 0, unixName);
    }
#endif
}

bool vtRemoveFileAtEndNow() {
#if defined(__WINE__)
    // Whichever side finds the file removes it; both forget it.
    bool removedByUnixName = removeUnixEndFile();
    return removeEndFile() || removedByUnixName;
#else
    return removeEndFile();
#endif
}

// ---------------------------------------------------------------------------
// Sockets on Winsock (MinGW builds; the Winelib flavour took the POSIX ones
// at the top of this file). Link with ws2_32.

#if !defined(__WINE__)

namespace {

SOCKET handleOf(VTSocket socket) {
    return socket < 0 ? INVALID_SOCKET : static_cast<SOCKET>(socket);
}

// select() for one event: 1 ready, 0 time-out, -1 failure; 0 ms waits
// without limit.
int waitFor(SOCKET s, bool forWriting, uint32_t timeoutMilliseconds) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(s, &set);
    timeval limit;
    limit.tv_sec = static_cast<long>(timeoutMilliseconds / 1000);
    limit.tv_usec = static_cast<long>((timeoutMilliseconds % 1000) * 1000);
    timeval* wait = timeoutMilliseconds ? &limit : nullptr;
    int rc = forWriting ? select(0, nullptr, &set, nullptr, wait)
                        : select(0, &set, nullptr, nullptr, wait);
    return rc == SOCKET_ERROR ? -1 : rc;
}

}  // namespace

bool vtSocketStartup() {
    static const bool started = [] {
        WSADATA data;
        return WSAStartup(0x202, &data) == 0;
    }();
    return started;
}

VTSocket vtSocketCreate() {
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    return s == INVALID_SOCKET ? kVTInvalidSocket : static_cast<VTSocket>(s);
}

int vtSocketLastError() { return WSAGetLastError(); }

bool vtSocketResolve(const char* host, std::string* dotted) {
    if (!host || !*host) return false;
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &found) != 0 || !found) return false;
    const auto* address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
    *dotted = inet_ntoa(address->sin_addr);
    freeaddrinfo(found);
    return true;
}

bool vtSocketConnect(VTSocket socket, const char* dottedAddress, uint16_t port,
                     uint32_t timeoutMilliseconds) {
    SOCKET s = handleOf(socket);
    sockaddr_in address;
    std::memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = dottedAddress ? inet_addr(dottedAddress) : INADDR_NONE;
    if (s == INVALID_SOCKET || address.sin_addr.s_addr == INADDR_NONE) return false;
    // As on POSIX: no Nagle delay for the protocol's small turns.
    BOOL yes = TRUE;
    setsockopt(s, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&yes), sizeof yes);
    u_long nonBlocking = timeoutMilliseconds ? 1 : 0;
    ioctlsocket(s, FIONBIO, &nonBlocking);
    bool ok = connect(s, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    if (!ok && timeoutMilliseconds && WSAGetLastError() == WSAEWOULDBLOCK &&
        waitFor(s, true, timeoutMilliseconds) == 1) {
        int error = 0;
        int size = sizeof error;
        ok = getsockopt(s, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) == 0 &&
             error == 0;
    }
    u_long blocking = 0;
    ioctlsocket(s, FIONBIO, &blocking);
    return ok;
}

bool vtSocketBind(VTSocket socket, const char* dottedAddress, uint16_t port) {
    sockaddr_in address;
    std::memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr =
            dottedAddress && *dottedAddress ? inet_addr(dottedAddress) : htonl(INADDR_ANY);
    return bind(handleOf(socket), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

bool vtSocketListen(VTSocket socket, int backlog) { return listen(handleOf(socket), backlog) == 0; }

VTSocket vtSocketAccept(VTSocket socket) {
    SOCKET client = accept(handleOf(socket), nullptr, nullptr);
    if (client == INVALID_SOCKET) return kVTInvalidSocket;
    BOOL yes = TRUE;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&yes), sizeof yes);
    return static_cast<VTSocket>(client);
}

uint16_t vtSocketLocalPort(VTSocket socket) {
    sockaddr_in address;
    int size = sizeof address;
    if (getsockname(handleOf(socket), reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
    return ntohs(address.sin_port);
}

int64_t vtSocketSend(VTSocket socket, const void* bytes, uint32_t length,
                     uint32_t timeoutMilliseconds) {
    SOCKET s = handleOf(socket);
    DWORD limit = timeoutMilliseconds;
    setsockopt(s, SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&limit), sizeof limit);
    int n = send(s, static_cast<const char*>(bytes), static_cast<int>(length), 0);
    return n == SOCKET_ERROR ? -1 : n;
}

int64_t vtSocketReceive(VTSocket socket, void* buffer, uint32_t length,
                        uint32_t timeoutMilliseconds) {
    SOCKET s = handleOf(socket);
    if (timeoutMilliseconds) {
        int ready = waitFor(s, false, timeoutMilliseconds);
        if (ready == 0) return kVTSocketTimedOut;
        if (ready < 0) return kVTSocketFailed;
    }
    int n = recv(s, static_cast<char*>(buffer), static_cast<int>(length), 0);
    return n == SOCKET_ERROR ? static_cast<int64_t>(kVTSocketFailed) : n;
}

void vtSocketShutdown(VTSocket socket) { shutdown(handleOf(socket), SD_BOTH); }

void vtSocketClose(VTSocket socket) { closesocket(handleOf(socket)); }

bool vtSocketSetNonBlocking(VTSocket socket) {
    u_long yes = 1;
    return ioctlsocket(handleOf(socket), FIONBIO, &yes) == 0;
}

int64_t vtSocketReceiveNow(VTSocket socket, void* buffer, uint32_t length) {
    int n = recv(handleOf(socket), static_cast<char*>(buffer), static_cast<int>(length), 0);
    if (n != SOCKET_ERROR) return n;
    return WSAGetLastError() == WSAEWOULDBLOCK ? kVTSocketWouldBlock : kVTSocketFailed;
}

int64_t vtSocketSendNow(VTSocket socket, const void* bytes, uint32_t length) {
    int n = send(handleOf(socket), static_cast<const char*>(bytes), static_cast<int>(length), 0);
    if (n != SOCKET_ERROR) return n;
    return WSAGetLastError() == WSAEWOULDBLOCK ? kVTSocketWouldBlock : kVTSocketFailed;
}

int vtSocketWait(VTSocketWaiter* sockets, uint32_t count, uint32_t timeoutMilliseconds) {
    std::vector<WSAPOLLFD> polled(count);
    for (uint32_t i = 0; i < count; i++) {
        polled[i].fd = handleOf(sockets[i].socket);
        polled[i].events = static_cast<SHORT>((sockets[i].read ? POLLRDNORM : 0) |
                                              (sockets[i].write ? POLLWRNORM : 0));
        polled[i].revents = 0;
    }
    int rc = WSAPoll(polled.data(), count, static_cast<INT>(timeoutMilliseconds));
    if (rc == SOCKET_ERROR) return -1;
    for (uint32_t i = 0; i < count; i++) sockets[i].ready = polled[i].revents != 0;
    return rc;
}

#endif  // !__WINE__

// ---------------------------------------------------------------------------
// Files written in appends. Each append moves to the end first, so that a
// truncation is followed as with O_APPEND on POSIX. Shared for reading and
// deleting: a reader may open the file, and a checkpoint removes it.

VTFile vtFileOpenForAppend(const char* path) {
    HANDLE h =
            CreateFileA(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                        nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    return h == INVALID_HANDLE_VALUE ? kVTInvalidFile
                                     : static_cast<VTFile>(reinterpret_cast<intptr_t>(h));
}

static HANDLE appendHandleOf(VTFile file) {
    return reinterpret_cast<HANDLE>(static_cast<intptr_t>(file));
}

bool vtFileAppend(VTFile file, const void* bytes, uint32_t length) {
    HANDLE h = appendHandleOf(file);
    LARGE_INTEGER zero;
    zero.QuadPart = 0;
    if (!SetFilePointerEx(h, zero, nullptr, FILE_END)) return false;
    const char* p = static_cast<const char*>(bytes);
    while (length > 0) {
        DWORD written = 0;
        if (!WriteFile(h, p, length, &written, nullptr) || written == 0) return false;
        p += written;
        length -= written;
    }
    return true;
}

bool vtFileTruncate(VTFile file, uint64_t length) {
    HANDLE h = appendHandleOf(file);
    LARGE_INTEGER at;
    at.QuadPart = static_cast<LONGLONG>(length);
    return SetFilePointerEx(h, at, nullptr, FILE_BEGIN) && SetEndOfFile(h);
}

bool vtFileSyncData(VTFile file) { return FlushFileBuffers(appendHandleOf(file)) != 0; }

// A directory's entries can't be flushed on Win32 (NTFS journals them).
bool vtPathSyncData(const char* path) {
    DWORD attributes = GetFileAttributesA(path);
    if (attributes == INVALID_FILE_ATTRIBUTES) return false;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return true;
    HANDLE h =
            CreateFileA(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return false;
    bool ok = FlushFileBuffers(h) != 0;
    CloseHandle(h);
    return ok;
}

void vtFileClose(VTFile file) { CloseHandle(appendHandleOf(file)); }

// Command-line programs. Descriptors 0, 1 and 2 are the standard handles;
// duplicating descriptors is the C runtime's business (the Linux one under
// Winelib, the Microsoft one with MinGW).

#if !defined(__WINE__)
#include <io.h>
#endif

namespace {

HANDLE standardHandle(int fd) {
    DWORD which = fd == 0 ? STD_INPUT_HANDLE : fd == 1 ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE;
    return fd < 0 || fd > 2 ? INVALID_HANDLE_VALUE : GetStdHandle(which);
}

HANDLE gEchoConsole = INVALID_HANDLE_VALUE;
DWORD gEchoSavedMode = 0;

}  // namespace

bool vtIsTerminal(int fd) {
    HANDLE handle = standardHandle(fd);
    return handle != INVALID_HANDLE_VALUE && handle && GetFileType(handle) == FILE_TYPE_CHAR;
}

bool vtTerminalEchoOff(int fd) {
    HANDLE console = standardHandle(fd);
    DWORD mode = 0;
    if (console == INVALID_HANDLE_VALUE || !GetConsoleMode(console, &mode)) return false;
    gEchoConsole = console;
    gEchoSavedMode = mode;
    return SetConsoleMode(console, mode & ~static_cast<DWORD>(ENABLE_ECHO_INPUT)) != 0;
}

void vtTerminalEchoRestore() {
    if (gEchoConsole == INVALID_HANDLE_VALUE) return;
    SetConsoleMode(gEchoConsole, gEchoSavedMode);
    gEchoConsole = INVALID_HANDLE_VALUE;
}

#if defined(__WINE__)
int vtDuplicateStream(int fd) { return dup(fd); }
bool vtReplaceStream(int fd, int from) { return dup2(from, fd) >= 0; }
void vtCloseStream(int fd) { close(fd); }
#else
int vtDuplicateStream(int fd) { return _dup(fd); }
bool vtReplaceStream(int fd, int from) { return _dup2(from, fd) == 0; }
void vtCloseStream(int fd) { _close(fd); }
#endif

bool vtChangeDirectory(const char* path) { return path && SetCurrentDirectoryA(path) != 0; }

void vtIgnoreBrokenPipe() {}

bool vtFileReadable(const char* path) {
    HANDLE file =
            CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    CloseHandle(file);
    return true;
}

bool vtDiskSpace(const char* path, uint64_t* freeBytes, uint64_t* totalBytes) {
    ULARGE_INTEGER available, total;
    if (!path || !GetDiskFreeSpaceExA(path, &available, &total, nullptr)) return false;
    *freeBytes = available.QuadPart;
    *totalBytes = total.QuadPart;
    return true;
}
