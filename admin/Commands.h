// The commands of vantor-admin. Each command is one row of the table in
// Commands.cpp and one function, usually in a file of its own; main() only
// looks the name up and hands over the remaining arguments.
#pragma once

#include <cstdio>
#include <string>

class VTSheet;

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
int runParseList(int argc, char** argv);  // ParseListCommand.cpp
int runArchive(int argc, char** argv);    // ArchiveCommand.cpp
int runContainer(int argc, char** argv);  // ContainerCommand.cpp
int runConfig(int argc, char** argv);     // ConfigCommand.cpp
int runKey(int argc, char** argv);        // KeyCommand.cpp
int runSheet(int argc, char** argv);      // SheetCommand.cpp
int runRecord(int argc, char** argv);     // RecordCommand.cpp
int runSync(int argc, char** argv);       // SyncCommand.cpp
int runDeltas(int argc, char** argv);     // SyncCommand.cpp

// Everything a stream holds, read to its end.
std::string readAll(FILE* in);
// One line without its newline.
std::string readLine(FILE* in);
// Prompts on standard error and reads one line from the terminal with echo
// off (echo stays if the stream is no terminal).
std::string askHidden(FILE* terminal, const char* prompt);

// Whether the working directory has its data/ folder; if not, says so on
// standard error for the command. A missing folder is not a damaged store:
// nothing is opened or created.
bool checkDataFolder(const char* command);
// Whether the sheet's store opened whole; if it is damaged, names it on
// standard error for the command. A damaged store answers no records, so
// what it holds can't be listed, and every change to it fails.
bool checkStore(const char* command, VTSheet* sheet);

// Sends what LOG writes to standard error while it lives, so that standard
// output carries only a command's results; write those to results(), a
// stream on the real standard output.
class LogToStderr {
public:
    LogToStderr();
    ~LogToStderr();
    FILE* results() { return _results ? _results : stdout; }
    LogToStderr(const LogToStderr&) = delete;
    LogToStderr& operator=(const LogToStderr&) = delete;

private:
    int _saved;
    FILE* _results = nullptr;
};

}  // namespace admin
