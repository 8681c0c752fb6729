#include "Commands.h"

#include <termios.h>
#include <unistd.h>

#include <cstring>

#include "app/VTWorkspace.h"
#include "foundation/NSString.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"

namespace admin {

namespace {
const Command kCommands[] = {
        {"parse-list", "FILE", "parse a configuration list and print it as JSON", &runParseList},
        {"archive", "encode|decode [--key KEY]", "JSON to archive or archive to JSON, stdin to stdout", &runArchive},
        {"container", "dump|check|store|remove STEM ...", "look into a container; see ContainerCommand.cpp", &runContainer},
        {"config", "check [FILE] [--strict]", "check a configuration list (default conf/cro.vtr)", &runConfig},
        {"key", "show FILE|make USER", "show a user key, or make one for a row of the user sheet", &runKey},
        {"sheet", "list|dump NAME", "the sheets of the installation, or one sheet's records as JSON", &runSheet},
        {"record", "set|remove|select|action|list|history|restore SHEET ...", "change records as the installation's user; see RecordCommand.cpp", &runRecord},
        {"sync", "[--cycles N] [--port N] [--timeout S]", "exchange deltas with the relay as the installation's user", &runSync},
        {"deltas", "[--refused]", "the outgoing deltas waiting in the delta store", &runDeltas},
        {nullptr, nullptr, nullptr, nullptr},
};
}  // namespace

const Command* commands() { return kCommands; }

const Command* findCommand(const char* name) {
    for (const Command* c = kCommands; c->name; c++) {
        if (std::strcmp(c->name, name) == 0) return c;
    }
    return nullptr;
}

void printUsage(FILE* out) {
    std::fprintf(
            out,
            "usage: vantor-admin COMMAND [ARGUMENTS]\n       vantor-admin --help\n\ncommands:\n");
    for (const Command* c = kCommands; c->name; c++) {
        char head[64];
        std::snprintf(head, sizeof head, "%s %s", c->name, c->synopsis);
        std::fprintf(out, "  %-24s %s\n", head, c->summary);
    }
}

std::string readAll(FILE* in) {
    std::string bytes;
    char buffer[65536];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, in)) > 0) bytes.append(buffer, n);
    return bytes;
}

std::string readLine(FILE* in) {
    std::string line;
    int c;
    while ((c = std::fgetc(in)) != EOF && c != '\n') line.push_back(static_cast<char>(c));
    return line;
}

std::string askHidden(FILE* terminal, const char* prompt) {
    std::fprintf(stderr, "%s", prompt);
    termios saved{};
    int fd = fileno(terminal);
    bool restore = tcgetattr(fd, &saved) == 0;
    if (restore) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(fd, TCSANOW, &quiet);
    }
    std::string line = readLine(terminal);
    if (restore) tcsetattr(fd, TCSANOW, &saved);
    std::fprintf(stderr, "\n");
    return line;
}

LogToStderr::LogToStderr() {
    std::fflush(stdout);
    _saved = dup(1);
    if (_saved >= 0) {
        _results = fdopen(dup(_saved), "w");
        dup2(2, 1);
    }
}

LogToStderr::~LogToStderr() {
    if (_results) std::fclose(_results);
    std::fflush(stdout);
    if (_saved >= 0) {
        dup2(_saved, 1);
        close(_saved);
    }
}

bool checkDataFolder(const char* command) {
    if (VTWorkspace::hasDataFolder()) return true;
    std::fprintf(stderr, "vantor-admin: %s: the data folder data/ is missing here; run it in an installation directory\n",
                 command);
    return false;
}

bool checkStore(const char* command, VTSheet* sheet) {
    VTMatrix* matrix = sheet->matrix();
    LXContainer* container = matrix ? matrix->container() : nullptr;
    if (!container || !container->isDamaged()) return true;
    std::fprintf(stderr, "vantor-admin: %s: the store of the sheet '%s' (%s.vcd, %s.vci) is damaged\n", command,
                 sheet->name()->UTF8String(), container->name()->UTF8String(), container->name()->UTF8String());
    return false;
}

}  // namespace admin
