#include "Commands.h"

#include <cstring>

namespace admin {

namespace {
const Command kCommands[] = {
        {"parse-list", "FILE", "parse a configuration list and print it as JSON", &runParseList},
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

}  // namespace admin
