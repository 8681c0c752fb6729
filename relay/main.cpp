// vantor-relay: the relay server. Its entry makes a pool, sends +[LXRelay
// relay] and run, and takes the few options an operator needs:
//
//   vantor-relay [--bind ADDRESS] [--port N] [--dir DIR] [--timeout SECONDS]
//                [--fsync] [--secure --anchor FILE]
//   vantor-relay --help | --version
//
// Exit status: 2 for bad options (usage on standard error), 1 when the
// working directory can't be entered or the port can't be bound ("socket
// not bound"), so that a service manager or script sees the failure; 0 only
// if the loop ended by itself.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "foundation/Foundation.h"
#include "foundation/platform/Platform.h"
#include "sync/LXCrypto.h"
#include "sync/LXRelay.h"
#include "sync/LXSecure.h"
#include "sync/LXSecureRelay.h"
#include "sync/LXSocket.h"

namespace {

void usage(FILE* out) {
    std::fprintf(out,
                 "usage: vantor-relay [--bind ADDRESS] [--port N] [--dir DIR] [--timeout SECONDS]\n"
                 "                    [--fsync] [--secure --anchor FILE]\n"
                 "       vantor-relay --help | --version\n"
                 "  --bind ADDRESS     the local IPv4 address to listen on, e.g. 127.0.0.1\n"
                 "                     (default: all local addresses)\n"
                 "  --port N           TCP port (default %u; 0: any free port, named by the\n"
                 "                     line \"listening on port N\")\n"
                 "  --dir DIR          working directory holding the store _relay_.vcd/.vci\n"
                 "                     (default: the current directory; must exist)\n"
                 "  --timeout SECONDS  how long each turn of a client's exchange (its request,\n"
                 "                     or one delta and its acknowledgement) may take before\n"
                 "                     the connection is dropped (default %g; 0: no limit)\n"
                 "  --fsync            acknowledge a delta only once its block and its entry in\n"
                 "                     the store's journal are on stable storage (fdatasync),\n"
                 "                     so that it survives a power loss, not only a killed relay\n"
                 "  --secure           serve only signed deposits and collects by users who\n"
                 "                     sign a fresh challenge; the plain commands are refused\n"
                 "  --anchor FILE      the organisation's anchor, as vantor-admin key anchor\n"
                 "                     writes it (needed by --secure, and only by it)\n"
                 "  --help             this text\n"
                 "  --version          the version\n"
                 "Options take their value as \"--port N\" or \"--port=N\".\n",
                 LXRelay::defaultPort(), LXSocket::kDefaultReceiveTimeout);
}

bool parsePort(const char* text, uint32_t* port) {
    char* end = nullptr;
    errno = 0;
    long value = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < 0 || value > 65535) return false;
    *port = static_cast<uint32_t>(value);
    return true;
}

bool parseSeconds(const char* text, double* seconds) {
    char* end = nullptr;
    errno = 0;
    double value = std::strtod(text, &end);
    // A day is far beyond any exchange; the bound keeps the conversion to
    // milliseconds in range.
    if (errno != 0 || end == text || *end != '\0' || !(value >= 0) || value > 86400) return false;
    *seconds = value;
    return true;
}

int badUsage(const char* what, const char* argument) {
    std::fprintf(stderr, "vantor-relay: %s: '%s'\n", what, argument);
    usage(stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    // Operators and tests follow the log through a pipe or a file: each line
    // must get there when it is written, not when a buffer fills.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    // Sockets already send with MSG_NOSIGNAL; this covers standard output
    // piped to a reader that has gone away, which must not end the relay.
    vtIgnoreBrokenPipe();

    uint32_t port = LXRelay::defaultPort();
    const char* dir = nullptr;
    std::string bind;
    double timeout = -1;
    bool fsync = false;
    bool secure = false;
    const char* anchorFile = nullptr;
    for (int i = 1; i < argc; i++) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            usage(stdout);
            return 0;
        }
        if (arg == "--version") {
            std::printf("vantor-relay %s\n", VANTOR_VERSION);
            return 0;
        }
        if (arg == "--fsync") {
            fsync = true;
            continue;
        }
        if (arg == "--secure") {
            secure = true;
            continue;
        }
        std::string name = arg;
        const char* value = nullptr;
        size_t equals = arg.find('=');
        if (arg.compare(0, 2, "--") == 0 && equals != std::string::npos) {
            name = arg.substr(0, equals);
            value = argv[i] + equals + 1;
        }
        if (name != "--port" && name != "--dir" && name != "--timeout" && name != "--bind" &&
            name != "--anchor") {
            return badUsage(arg.compare(0, 1, "-") == 0 ? "unknown option" : "unexpected argument",
                            name.c_str());
        }
        if (!value) {
            if (i + 1 >= argc) return badUsage("missing value for", argv[i]);
            value = argv[++i];
        }
        if (name == "--port") {
            if (!parsePort(value, &port)) return badUsage("not a port (0-65535)", value);
        } else if (name == "--bind") {
            // A name (localhost) is taken too, as the address it resolves to.
            if (!vtSocketStartup() || !vtSocketResolve(value, &bind)) {
                return badUsage("not an IPv4 address or a name of one", value);
            }
        } else if (name == "--anchor") {
            anchorFile = value;
        } else if (name == "--dir") {
            if (!*value) return badUsage("empty directory for", name.c_str());
            dir = value;
        } else if (!parseSeconds(value, &timeout)) {
            return badUsage("not a number of seconds (0-86400)", value);
        }
    }

    if (secure != (anchorFile != nullptr))
        return badUsage("--secure and --anchor go together", secure ? "--secure" : anchorFile);
    // Read before --dir is entered: the path is the operator's, relative to
    // where the relay was started.
    std::string anchor;
    if (secure && !LXCrypto::available()) {
        std::fprintf(stderr, "vantor-relay: --secure: this build has no secure protocol\n");
        return 1;
    }
    bool anchored = false;
    if (secure) {
        NSAutoreleasePoolScope reading;
        anchored = LXSecure::readAnchorFile(anchorFile, &anchor);
    }
    if (secure && !anchored) {
        std::fprintf(stderr, "vantor-relay: --anchor: %s holds no anchor\n", anchorFile);
        return 1;
    }

    // The directory is not created: a mistyped path would otherwise start
    // an empty relay beside the real store, and the deltas queued there
    // would wait unseen for clients that never collect from it.
    if (dir && !vtChangeDirectory(dir)) {
        std::fprintf(stderr, "vantor-relay: can't enter %s: %s\n", dir, std::strerror(errno));
        return 1;
    }
    // Before any socket exists: the listening socket takes the default, and
    // each accepted one takes the listener's.
    if (timeout >= 0) LXSocket::setDefaultReceiveTimeout_(timeout);

    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    LXRelay* relay = LXRelay::relay();
    // Without it a delta survives a killed relay (its journal entry is
    // written before the acknowledgement) but may be lost with the
    // system's cache at a power loss.
    if (fsync) relay->container()->setSynchronous_(true);
    if (secure) {
        relay->setSecureRelay_(NSAutorelease(LXSecureRelay::alloc()->initWithAnchor_(anchor)));
        LOG("secure mode: signed commands only");
    }
    if (!bind.empty()) relay->setBindAddress_(NSString::stringWithUTF8String_(bind.c_str()));
    if (port == LXRelay::defaultPort()) {
        relay->run();
    } else {
        relay->runWithPort_(port);
    }
    bool failed = relay->bindFailed();
    pool->release();
    return failed ? 1 : 0;
}
