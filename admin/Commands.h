// The commands of vantor-admin. Each command is one row of the table in
// Commands.cpp and one function, usually in a file of its own; main() only
// looks the name up and hands over the remaining arguments.
#pragma once

#include <cstdio>

namespace admin {

struct Command {
    const char* name;      // as typed: "parse-list"
    const char* synopsis;  // the arguments, for the usage text: "FILE"
    const char* summary;   // one line for --help
    // argv[0] is the command's name. Answers the process's exit status:
    // 0 done, 1 failed (bad input, unreadable file), 2 wrong usage.
    int (*run)(int argc, char** argv);
};

// The table, ended by a row with a null name.
const Command* commands();
const Command* findCommand(const char* name);
void printUsage(FILE* out);

// The commands.
int runParseList(int argc, char** argv);

}  // namespace admin
