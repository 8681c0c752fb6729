// vantor-admin: the operators' command-line tool.
#include <cstdio>
#include <cstring>

#include "Commands.h"
#include "foundation/NSAutoreleasePool.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        admin::printUsage(stderr);
        return 2;
    }
    if (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
        admin::printUsage(stdout);
        return 0;
    }
    const admin::Command* command = admin::findCommand(argv[1]);
    if (!command) {
        std::fprintf(stderr, "vantor-admin: unknown command '%s'\n\n", argv[1]);
        admin::printUsage(stderr);
        return 2;
    }
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    int status = command->run(argc - 1, argv + 1);
    pool->release();
    std::fflush(stdout);
    return status;
}
