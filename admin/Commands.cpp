#include "Commands.h"

#include <unistd.h>

#include <cstring>

namespace admin {

namespace {
const Command kCommands[] = {
        {"parse-list", "FILE", "parse a configuration list and print it as JSON", &runParseList},
        {"archive", "encode|decode [--key KEY]", "JSON to archive or archive to JSON, stdin to stdout", &runArchive},
        {"container", "dump|check|store|remove STEM ...", "look into a container; see ContainerCommand.cpp", &runContainer},
        {"config", "check [FILE] [--strict]", "check a configuration list (default conf/cro.vtr)", &runConfig},
        {"key", "show FILE|make USER", "show a user key, or make one for a row of the user sheet", &runKey},
        {"sheet", "list|dump NAME", "the sheets of the installation, or one sheet's records as JSON", &runSheet},
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

}  // namespace admin
