// The platform layer: the few operating-system services the portable code
// needs. Two implementations: PlatformPosix.cpp for the native programs and
// tests, PlatformWin32.cpp for the Winelib client and the Windows build (where
// it also switches the standard streams to binary, so that the programs read
// and write the same bytes as on Linux).
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

// The system's default alert sound.
void vtBeep();

// The default sound, for the beep of incoming changes: MessageBeep(MB_OK)
// on Win32, where vtBeep plays the simple beep (0xFFFFFFFF); POSIX has one
// sound only and writes BEL to standard error as vtBeep does.
void vtDefaultSoundBeep();

// The value of environment variable `name`, or nullptr if unset. The result
// stays valid until the environment changes.
const char* vtGetEnv(const char* name);

// The calling thread's identifier, unique among live threads.
uint64_t vtCurrentThreadId();

// ---------------------------------------------------------------------------
// Threads, locks, sleeping. Win32: CreateThread and critical sections, so
// that every thread of the client may touch a window; POSIX: pthreads.

// Starts a detached platform thread that runs entry(argument). On success
// *threadId is the id that vtCurrentThreadId() answers on the new thread,
// known before this returns; the thread may already be running by then.
// False if no thread could be started (entry never runs).
bool vtStartThread(void (*entry)(void* argument), void* argument, uint64_t* threadId);

// Sleeps the calling thread for `milliseconds`; 0 gives up the rest of its
// time slice.
void vtSleepMilliseconds(uint32_t milliseconds);

// Thread priorities in Win32's numbers: -15 idle, -2 lowest, -1 below
// normal, 0 normal, 1 above normal, 2 highest, 15 time critical. POSIX maps
// them onto the calling thread's nice value (see PlatformPosix.cpp).
// vtGetThreadPriority: false when the platform reports an error.
bool vtGetThreadPriority(int* priority);
// False when the platform refused (on POSIX an unprivileged thread may
// lower its priority but not raise it again).
bool vtSetThreadPriority(int priority);

// A lock that its owning thread may enter again; it must leave as often as
// it entered. Opaque: a critical section on Win32, a recursive mutex on
// POSIX.
struct VTLock;
VTLock* vtLockCreate();
void vtLockDestroy(VTLock* lock);
void vtLockEnter(VTLock* lock);
// Enters without waiting; false if another thread holds the lock.
bool vtLockTryEnter(VTLock* lock);
void vtLockLeave(VTLock* lock);

// ---------------------------------------------------------------------------
// Processes and files.

// Starts the program `path` with the command-line text `parameters` in the
// directory `directory`, with no window of its own, and returns at once
// without waiting for it. Win32: ShellExecuteA with the verb "open" and show
// code 5; the result is the value it returned (above 32 on
// success). POSIX: the program runs detached (its own session, reaped by
// init); `parameters` is split into arguments at blanks, double quotes
// grouping, as a Windows program's runtime splits its command line; the
// result is the new process's id, or 0 when no process could be made.
int64_t vtLaunchProgram(const char* path, const char* parameters, const char* directory);

// Opens the document `path` in the program the system has for its kind,
// as a double click does, and returns at once. Win32: ShellExecuteA with the
// verb "open", no parameters, the directory "." and show code 5; true when
// it answered above 32. POSIX: xdg-open, found on PATH, started detached
// with the path as its one argument; false when there is no xdg-open or it
// could not be started (what the viewer then does is not seen).
bool vtOpenDocument(const char* path);

// The runtime library's stat: false if the call failed (no such path).
// Otherwise *isDirectory, when not null, tells whether `path` is a
// directory.
bool vtFileStatus(const char* path, bool* isDirectory);

// Makes a new, empty directory of a unique name starting with `tag` in the
// system's folder for temporary files (/tmp; on Win32 GetTempPathA) and
// puts its path into *path. False if none could be made.
bool vtMakeTemporaryDirectory(const char* tag, std::string* path);

// ---------------------------------------------------------------------------
// Lock files: one process per working directory.

// Results of vtCreateFileExclusive.
enum : int {
    kVTFileCreated = 0,
    kVTFileExists = 1,      // the file was there already; it is untouched
    kVTFileNotCreated = 2,  // any other failure; no file is left behind
};

// Creates `path` holding `content` in one step that fails when the file
// exists already (O_CREAT|O_EXCL; CreateFileA with CREATE_NEW), so that of
// several processes racing for one name exactly one gets it.
int vtCreateFileExclusive(const char* path, const std::string& content);

// Writes `content` to `path`, replacing the file, readable and writable by
// its owner only (mode 0600 on POSIX, also when the file existed with
// another mode; the Win32 layer leaves the file's inherited access alone).
bool vtWritePrivateFile(const char* path, const std::string& content);

// This process's id: getpid(), or GetCurrentProcessId() on Win32 (under
// Wine a Windows id, unrelated to the Linux one).
int64_t vtCurrentProcessId();
// The kind of id vtCurrentProcessId answers, "posix" or "windows": one
// kind can't be looked up with the other's calls.
const char* vtProcessIdKind();
// Whether a process of that id (of this flavour's kind) still runs.
bool vtProcessIsRunning(int64_t processId);

// From now on, removes the file `path` when the process ends: by exit() or
// a return from main, and on Ctrl-C and requests to terminate (POSIX:
// SIGINT, SIGTERM, SIGHUP, after which the signal takes its usual course;
// Win32: the console control events, Ctrl-C, Ctrl-Break, close, log-off
// and shut-down; a Winelib program, being a Linux process as well, also
// on those signals, which then end it even where Wine would ignore them).
// Only while the file still holds `content`: a file that
// someone else has put in its place stays. One file per process; a second
// call replaces the first. A relative path is taken relative to the
// working directory of this call.
void vtRemoveFileAtEnd(const char* path, const std::string& content);
// Removes that file now, on the same condition, and forgets it. False if
// no file was removed.
bool vtRemoveFileAtEndNow();

// ---------------------------------------------------------------------------
// Sockets: blocking IPv4 TCP. POSIX sockets on Linux in both flavours (plain
// POSIX sockets work inside a Winelib program), Winsock in a MinGW build.
// A handle is a plain integer; kVTInvalidSocket stands for none.

using VTSocket = int64_t;
constexpr VTSocket kVTInvalidSocket = -1;

// Results of vtSocketReceive besides a byte count.
enum : int64_t {
    kVTSocketClosed = 0,       // the peer closed the connection in order
    kVTSocketFailed = -1,      // the connection broke or the handle is bad
    kVTSocketTimedOut = -2,    // nothing came within the time-out
    kVTSocketWouldBlock = -3,  // a non-blocking socket can't move a byte just now
};

// Starts the socket library once per process (WSAStartup 2.2 on Winsock);
// true where there is nothing to start.
bool vtSocketStartup();
// A new IPv4 stream socket, or kVTInvalidSocket.
VTSocket vtSocketCreate();
// The last socket error of the calling thread (errno, WSAGetLastError).
int vtSocketLastError();
// The first IPv4 address of `host` in dotted form into *dotted; false if the
// name doesn't resolve. Thread-safe (getaddrinfo, not gethostbyname).
bool vtSocketResolve(const char* host, std::string* dotted);
// Connects to a dotted IPv4 address. A connection not made within
// `timeoutMilliseconds` (0: no limit) fails. The socket stays blocking.
bool vtSocketConnect(VTSocket socket, const char* dottedAddress, uint16_t port,
                     uint32_t timeoutMilliseconds);
// Binds to `dottedAddress` ("0.0.0.0" or nullptr: all local addresses), with
// address reuse so that a restarted server finds its port again.
bool vtSocketBind(VTSocket socket, const char* dottedAddress, uint16_t port);
bool vtSocketListen(VTSocket socket, int backlog);
// Blocks until a connection comes; kVTInvalidSocket on failure.
VTSocket vtSocketAccept(VTSocket socket);
// The local port a socket is bound to (after binding port 0), or 0.
uint16_t vtSocketLocalPort(VTSocket socket);
// One send; the number of bytes taken, or -1. Never raises SIGPIPE. A send
// that can't proceed for `timeoutMilliseconds` (0: no limit) stops early.
int64_t vtSocketSend(VTSocket socket, const void* bytes, uint32_t length,
                     uint32_t timeoutMilliseconds);
// One receive of up to `length` bytes: the count, or kVTSocketClosed,
// kVTSocketFailed, or kVTSocketTimedOut when no byte came within
// `timeoutMilliseconds` (0: wait without limit).
int64_t vtSocketReceive(VTSocket socket, void* buffer, uint32_t length,
                        uint32_t timeoutMilliseconds);
// Ends both directions at once, waking a thread blocked on the socket; the
// handle stays valid until vtSocketClose.
void vtSocketShutdown(VTSocket socket);
void vtSocketClose(VTSocket socket);

// Sockets served by one thread that waits on many (the relay): such a
// socket never blocks, and vtSocketWait tells which ones can go on.
bool vtSocketSetNonBlocking(VTSocket socket);
// One receive or send on a non-blocking socket: the count, or
// kVTSocketWouldBlock, kVTSocketFailed, and for a receive kVTSocketClosed.
int64_t vtSocketReceiveNow(VTSocket socket, void* buffer, uint32_t length);
int64_t vtSocketSendNow(VTSocket socket, const void* bytes, uint32_t length);
// One socket to wait on: for reading, for writing or both. `ready` is set
// when the socket can go on in a wanted direction, or has failed or been
// closed (the next receive or send says which).
struct VTSocketWaiter {
    VTSocket socket;
    bool read;
    bool write;
    bool ready;
};
// Waits until at least one of the sockets is ready or `timeoutMilliseconds`
// have passed (poll; WSAPoll): the number ready, 0 at the time-out, -1 on
// failure.
int vtSocketWait(VTSocketWaiter* sockets, uint32_t count, uint32_t timeoutMilliseconds);

// ---------------------------------------------------------------------------
// Files written in appends: a container's journal. A handle is a plain
// integer (a file descriptor, a HANDLE's value); kVTInvalidFile stands for
// none. The file stays open between appends.

using VTFile = int64_t;
constexpr VTFile kVTInvalidFile = -1;

// Opens `path` for writing at its end, creating it empty when missing;
// kVTInvalidFile on failure.
VTFile vtFileOpenForAppend(const char* path);
// Writes all `length` bytes at the current end of the file. False when not
// all of them could be written (a full disk); part of them may be there.
bool vtFileAppend(VTFile file, const void* bytes, uint32_t length);
// Cuts the file to `length` bytes; later appends go behind that.
bool vtFileTruncate(VTFile file, uint64_t length);
// Forces the file's data to the disk (fdatasync; FlushFileBuffers).
bool vtFileSyncData(VTFile file);
// The same for a file named by its path, whoever wrote it and through
// whichever handle; for a directory, its entries (a file created, renamed
// or removed in it), where the system can (POSIX; true on Win32).
bool vtPathSyncData(const char* path);
void vtFileClose(VTFile file);

// ---------------------------------------------------------------------------
// Command-line programs: terminals, standard streams, the working directory.
// A stream is named by its C runtime descriptor: 0, 1, 2, or fileno() of an
// opened stream.

// Whether the stream is a terminal (a console on Win32).
bool vtIsTerminal(int fd);
// Turns off the echo of what is typed on that terminal, for a password.
// The settings from before come back with vtTerminalEchoRestore, and also
// when the process ends first: at exit() and, on POSIX, on SIGINT, SIGTERM
// and SIGHUP (the same end that removes the file of vtRemoveFileAtEnd), so
// that Ctrl-C at a password prompt leaves a terminal that echoes. False
// when the stream is no terminal; nothing is changed then.
bool vtTerminalEchoOff(int fd);
// Puts back what vtTerminalEchoOff changed; nothing if it changed nothing.
void vtTerminalEchoRestore();
// Another descriptor for the same stream (dup), or -1.
int vtDuplicateStream(int fd);
// Makes `fd` a copy of `from` (dup2); false on failure.
bool vtReplaceStream(int fd, int from);
void vtCloseStream(int fd);
// chdir / SetCurrentDirectoryA; false if the directory can't be entered
// (the reason stays in errno on POSIX).
bool vtChangeDirectory(const char* path);
// A write to a pipe whose reader has gone fails instead of ending the
// process (SIGPIPE ignored; nothing to do on Win32).
void vtIgnoreBrokenPipe();
// Whether the file can be opened for reading.
bool vtFileReadable(const char* path);
// Free and total bytes of the file system that holds `path`; false if it
// can't be asked.
bool vtDiskSpace(const char* path, uint64_t* freeBytes, uint64_t* totalBytes);
