// vantor-admin: the operators' command-line tool.
//
//   vantor-admin [-C DIR] COMMAND [ARGUMENTS]
//
// -C DIR runs the command in the installation DIR, as if started there.
// "--help" or "-h" anywhere among a command's arguments shows that
// command's help on standard output (exit 0) instead of running it.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Commands.h"
#include "foundation/NSAutoreleasePool.h"
#include "foundation/platform/Platform.h"

#ifndef VANTOR_VERSION
#error "the build passes the version as VANTOR_VERSION"
#endif

namespace {

bool isHelp(const char* arg) { return !std::strcmp(arg, "--help") || !std::strcmp(arg, "-h"); }

}  // namespace

int main(int argc, char** argv) {
    int first = 1;
    while (first < argc) {
        const char* arg = argv[first];
        const char* dir = nullptr;
        if (!std::strcmp(arg, "-C")) {
            if (first + 1 >= argc) {
                std::fprintf(stderr, "vantor-admin: missing directory for -C\n");
                return 2;
            }
            dir = argv[++first];
        } else if (!std::strncmp(arg, "-C", 2)) {
            dir = arg + 2;
        } else {
            break;
        }
        if (!vtChangeDirectory(dir)) {
            std::fprintf(stderr, "vantor-admin: can't enter %s: %s\n", dir, std::strerror(errno));
            return 1;
        }
        first++;
    }
    if (first >= argc) {
        admin::printUsage(stderr);
        return 2;
    }
    if (isHelp(argv[first])) {
        admin::printUsage(stdout);
        return 0;
    }
    if (!std::strcmp(argv[first], "--version")) {
        std::printf("vantor-admin %s\n", VANTOR_VERSION);
        return 0;
    }
    const admin::Command* command = admin::findCommand(argv[first]);
    if (!command) {
        std::fprintf(stderr, "vantor-admin: unknown command '%s'\n\n", argv[first]);
        admin::printUsage(stderr);
        return 2;
    }
    for (int i = first + 1; i < argc && std::strcmp(argv[i], "--"); i++) {
        if (isHelp(argv[i])) {
            admin::printCommandHelp(command, stdout);
            return 0;
        }
    }
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    int status = command->run(argc - first, argv + first);
    pool->release();
    std::fflush(stdout);
    return status;
}
