// The platform layer for native Linux programs and the tests.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "foundation/platform/Platform.h"

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

int vtMessageBox(const char16_t*, const char16_t*, int) { return kVTAnswerOk; }

void vtBeep() { writeAll(STDERR_FILENO, "\a", 1); }

void vtInitCommonControls() {}

const char* vtGetEnv(const char* name) { return std::getenv(name); }

uint64_t vtCurrentThreadId() { return static_cast<uint64_t>(syscall(SYS_gettid)); }

void* vtInstanceHandle() { return nullptr; }
