// The platform layer for native Linux programs and the tests.
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include "foundation/platform/Platform.h"
#include "foundation/platform/PlatformEndFilePosix.inc"

namespace {

// write() until done; false on any error other than an interrupted call.
bool writeAll(int fd, const char* bytes, size_t size) {
    while (size > 0) {
        ssize_t n = write(fd, bytes, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        bytes += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool vtFileExists(const char* path) {
    struct stat info;
    return path && stat(path, &info) == 0;
}

bool vtCopyFileNoOverwrite(const char* from, const char* to) {
    int in = open(from, O_RDONLY | O_CLOEXEC);
    if (in < 0) return false;
    struct stat info;
    if (fstat(in, &info) != 0 || S_ISDIR(info.st_mode)) {
        close(in);
        return false;
    }
    // O_EXCL makes "does not exist yet" and "create" one step, so two
    // clients seeding the same directory never overwrite each other.
    int out = open(to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, info.st_mode & 0777);
    if (out < 0) {
        close(in);
        return false;
    }
    bool ok = true;
    char buffer[64 * 1024];
    for (;;) {
        ssize_t n = read(in, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ok = n == 0;
            break;
        }
        if (!writeAll(out, buffer, static_cast<size_t>(n))) {
            ok = false;
            break;
        }
    }
    close(in);
    if (close(out) != 0) ok = false;
    if (!ok) unlink(to);
    return ok;
}

bool vtRemoveFile(const char* path) { return unlink(path) == 0; }

bool vtListDirectory(const char* path, std::vector<std::string>* names) {
    DIR* dir = opendir(path);
    if (!dir) return false;
    while (struct dirent* entry = readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
        names->push_back(entry->d_name);
    }
    closedir(dir);
    return true;
}

void vtBeep() { writeAll(STDERR_FILENO, "\a", 1); }

void vtDefaultSoundBeep() { writeAll(STDERR_FILENO, "\a", 1); }

const char* vtGetEnv(const char* name) { return std::getenv(name); }

uint64_t vtCurrentThreadId() { return static_cast<uint64_t>(syscall(SYS_gettid)); }

// ---------------------------------------------------------------------------
// Threads.

namespace {

// Lives on the starting thread's stack until the new thread has reported
// its id; the new thread copies what it needs before it reports.
struct ThreadStart {
    void (*entry)(void*);
    void* argument;
    uint64_t id = 0;
    bool reported = false;
    std::mutex mutex;
    std::condition_variable cv;
};

void* threadMain(void* data) {
    auto* start = static_cast<ThreadStart*>(data);
    void (*entry)(void*) = start->entry;
    void* argument = start->argument;
    {
        std::lock_guard<std::mutex> guard(start->mutex);
        start->id = vtCurrentThreadId();
        start->reported = true;
        start->cv.notify_one();
    }
    // `start` may be gone from here on.
    entry(argument);
    return nullptr;
}

}  // namespace

bool vtStartThread(void (*entry)(void*), void* argument, uint64_t* threadId) {
    ThreadStart start;
    start.entry = entry;
    start.argument = argument;
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) return false;
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    int rc = pthread_create(&thread, &attr, threadMain, &start);
    pthread_attr_destroy(&attr);
    if (rc != 0) return false;
    // gettid() of the new thread is only known on that thread: wait for it.
    std::unique_lock<std::mutex> lock(start.mutex);
    start.cv.wait(lock, [&] { return start.reported; });
    *threadId = start.id;
    return true;
}

void vtSleepMilliseconds(uint32_t milliseconds) {
    if (milliseconds == 0) {
        sched_yield();
        return;
    }
    struct timespec rest;
    rest.tv_sec = static_cast<time_t>(milliseconds / 1000);
    rest.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

// Linux keeps a nice value per thread (setpriority on a thread id). The
// Win32 levels map onto nice values evenly spread over 19 (idle) to -20
// (time critical); reading maps each band of nice values back to the level
// it belongs to, so a value set here reads back as the same level.
namespace {

int niceOfLevel(int level) {
    switch (level) {
        case -15:
            return 19;
        case -2:
            return 10;
        case -1:
            return 5;
        case 0:
            return 0;
        case 1:
            return -5;
        case 2:
            return -10;
        case 15:
            return -20;
        default:
            return 0;
    }
}

int levelOfNice(int nice) {
    if (nice >= 19) return -15;
    if (nice >= 10) return -2;
    if (nice >= 1) return -1;
    if (nice == 0) return 0;
    if (nice >= -9) return 1;
    if (nice >= -19) return 2;
    return 15;
}

}  // namespace

bool vtGetThreadPriority(int* priority) {
    errno = 0;
    int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(vtCurrentThreadId()));
    if (nice == -1 && errno != 0) return false;
    *priority = levelOfNice(nice);
    return true;
}

bool vtSetThreadPriority(int priority) {
    return setpriority(PRIO_PROCESS, static_cast<id_t>(vtCurrentThreadId()),
                       niceOfLevel(priority)) == 0;
}

struct VTLock {
    pthread_mutex_t mutex;
};

VTLock* vtLockCreate() {
    auto* lock = new VTLock;
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&lock->mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    return lock;
}

void vtLockDestroy(VTLock* lock) {
    if (!lock) return;
    pthread_mutex_destroy(&lock->mutex);
    delete lock;
}

void vtLockEnter(VTLock* lock) { pthread_mutex_lock(&lock->mutex); }

bool vtLockTryEnter(VTLock* lock) { return pthread_mutex_trylock(&lock->mutex) == 0; }

void vtLockLeave(VTLock* lock) { pthread_mutex_unlock(&lock->mutex); }

// ---------------------------------------------------------------------------
// Processes and files.

namespace {

// Blanks separate arguments; a double quote starts or ends a stretch in
// which blanks belong to the argument. The quotes themselves are dropped.
std::vector<std::string> splitParameters(const char* text) {
    std::vector<std::string> args;
    std::string current;
    bool inArgument = false;
    bool quoted = false;
    for (const char* p = text ? text : ""; *p; p++) {
        if (*p == '"') {
            quoted = !quoted;
            inArgument = true;
        } else if ((*p == ' ' || *p == '\t') && !quoted) {
            if (inArgument) args.push_back(current);
            current.clear();
            inArgument = false;
        } else {
            current.push_back(*p);
            inArgument = true;
        }
    }
    if (inArgument) args.push_back(current);
    return args;
}

}  // namespace

int64_t vtLaunchProgram(const char* path, const char* parameters, const char* directory) {
    // Everything the children need is made before fork(): between fork()
    // and exec only async-signal-safe calls are allowed in a process with
    // threads.
    std::vector<std::string> args = splitParameters(parameters);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(path));
    for (std::string& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) return 0;
    pid_t child = fork();
    if (child < 0) {
        close(pipeFds[0]);
        close(pipeFds[1]);
        return 0;
    }
    if (child == 0) {
        // The middle process: a new session, one more fork, and gone, so
        // that the program is adopted by init and never becomes our zombie.
        close(pipeFds[0]);
        setsid();
        pid_t grandchild = fork();
        if (grandchild != 0) {
            ssize_t ignored = write(pipeFds[1], &grandchild, sizeof grandchild);
            (void)ignored;
            _exit(0);
        }
        if (directory && chdir(directory) != 0) _exit(127);
        execv(path, argv.data());
        _exit(127);
    }
    close(pipeFds[1]);
    pid_t program = 0;
    ssize_t n;
    do {
        n = read(pipeFds[0], &program, sizeof program);
    } while (n < 0 && errno == EINTR);
    close(pipeFds[0]);
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    return n == static_cast<ssize_t>(sizeof program) && program > 0 ? program : 0;
}

bool vtOpenDocument(const char* path) {
    // vtLaunchProgram takes a path, not a name to look up: find xdg-open
    // first, so that a system without one answers false as Win32 does
    // without a viewer.
    const char* search = std::getenv("PATH");
    std::string folders = search ? search : "";
    for (size_t start = 0; start <= folders.size();) {
        size_t end = folders.find(':', start);
        if (end == std::string::npos) end = folders.size();
        std::string folder = folders.substr(start, end - start);
        start = end + 1;
        if (folder.empty()) continue;
        std::string opener = folder + "/xdg-open";
        if (access(opener.c_str(), X_OK) != 0) continue;
        // One argument: quoted, so that a path with blanks stays whole.
        std::string argument = std::string("\"") + (path ? path : "") + "\"";
        return vtLaunchProgram(opener.c_str(), argument.c_str(), ".") != 0;
    }
    return false;
}

bool vtFileStatus(const char* path, bool* isDirectory) {
    struct stat info;
    if (!path || stat(path, &info) != 0) return false;
    if (isDirectory) *isDirectory = S_ISDIR(info.st_mode);
    return true;
}

bool vtMakeTemporaryDirectory(const char* tag, std::string* path) {
    std::string pattern = std::string("/tmp/") + tag + "-XXXXXX";
    if (!mkdtemp(&pattern[0])) return false;
    *path = pattern;
    return true;
}

// ---------------------------------------------------------------------------
// Lock files.

int vtCreateFileExclusive(const char* path, const std::string& content) {
    int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) return errno == EEXIST ? kVTFileExists : kVTFileNotCreated;
    bool ok = writeAll(fd, content.data(), content.size());
    if (close(fd) != 0) ok = false;
    if (ok) return kVTFileCreated;
    unlink(path);
    return kVTFileNotCreated;
}

bool vtWritePrivateFile(const char* path, const std::string& content) {
    int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    // O_CREAT's mode holds for a new file only.
    bool ok = fchmod(fd, 0600) == 0 && writeAll(fd, content.data(), content.size());
    if (close(fd) != 0) ok = false;
    return ok;
}

int64_t vtCurrentProcessId() { return getpid(); }

const char* vtProcessIdKind() { return "posix"; }

bool vtProcessIsRunning(int64_t processId) {
    if (processId <= 0 || processId > INT32_MAX) return false;
    // EPERM: it runs, under another user.
    return kill(static_cast<pid_t>(processId), 0) == 0 || errno == EPERM;
}

void vtRemoveFileAtEnd(const char* path, const std::string& content) {
    std::string full = path;
    char cwd[4096];
    if (!full.empty() && full[0] != '/' && getcwd(cwd, sizeof cwd))
        full = std::string(cwd) + "/" + full;
    watchUnixEndFile(full.c_str(), content);
}

bool vtRemoveFileAtEndNow() { return removeUnixEndFile(); }

// ---------------------------------------------------------------------------
// Sockets.

#include "foundation/platform/PlatformSocketsPosix.inc"

// ---------------------------------------------------------------------------
// Files written in appends. O_APPEND puts every write at the end, also after
// ftruncate.

VTFile vtFileOpenForAppend(const char* path) {
    int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    return fd < 0 ? kVTInvalidFile : fd;
}

bool vtFileAppend(VTFile file, const void* bytes, uint32_t length) {
    return writeAll(static_cast<int>(file), static_cast<const char*>(bytes), length);
}

bool vtFileTruncate(VTFile file, uint64_t length) {
    return ftruncate(static_cast<int>(file), static_cast<off_t>(length)) == 0;
}

bool vtFileSyncData(VTFile file) { return fdatasync(static_cast<int>(file)) == 0; }

// fsync, not fdatasync, for a directory: its entries are what matters.
bool vtPathSyncData(const char* path) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat about;
    bool directory = fstat(fd, &about) == 0 && S_ISDIR(about.st_mode);
    bool ok = (directory ? fsync(fd) : fdatasync(fd)) == 0;
    close(fd);
    return ok;
}

void vtFileClose(VTFile file) { close(static_cast<int>(file)); }

// Command-line programs.

#include <sys/statvfs.h>

bool vtIsTerminal(int fd) { return isatty(fd) == 1; }

bool vtTerminalEchoOff(int fd) { return quietUnixEndTerminal(fd); }

void vtTerminalEchoRestore() { restoreUnixEndTerminal(); }

int vtDuplicateStream(int fd) { return dup(fd); }

bool vtReplaceStream(int fd, int from) { return dup2(from, fd) >= 0; }

void vtCloseStream(int fd) { close(fd); }

bool vtChangeDirectory(const char* path) { return path && chdir(path) == 0; }

void vtIgnoreBrokenPipe() { signal(SIGPIPE, SIG_IGN); }

bool vtFileReadable(const char* path) { return path && access(path, R_OK) == 0; }

bool vtDiskSpace(const char* path, uint64_t* freeBytes, uint64_t* totalBytes) {
    struct statvfs info;
    if (!path || statvfs(path, &info) != 0) return false;
    *freeBytes = static_cast<uint64_t>(info.f_bavail) * info.f_frsize;
    *totalBytes = static_cast<uint64_t>(info.f_blocks) * info.f_frsize;
    return true;
}
