// The commands of vantor-admin. Each command is one row of the table in
// Commands.cpp and one function, usually in a file of its own; main() only
// looks the name up and hands over the remaining arguments.
#pragma once

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

class LXContainer;
class NSString;
class VTSheet;

namespace admin {

struct Command {
    const char* name;      // as typed: "parse-list"
    const char* synopsis;  // the arguments, for the usage text: "FILE"
    const char* summary;   // one line for --help
    // The command's own help: its usage lines and options, shown by
    // "vantor-admin NAME --help" and after a wrong use of it.
    const char* help;
    // argv[0] is the command's name. Answers the process's exit status:
    // 0 done, 1 failed (bad input, unreadable file), 2 wrong usage.
    int (*run)(int argc, char** argv);
};

// The table, ended by a row with a null name.
const Command* commands();
const Command* findCommand(const char* name);
void printUsage(FILE* out);
void printCommandHelp(const Command* command, FILE* out);

// A wrong use of a command, said on standard error with the word that is
// wrong: "vantor-admin: COMMAND: WHAT: 'WORD'", then the command's help
// (COMMAND is a table name, or its first word: "record set" finds
// "record"). Answers 2, the status of a wrong use.
int wrongUsage(const char* command, const char* what, const std::string& word);

// An option a command takes: a flag ("--strict") or one with a value
// ("--port"), given as "--port N" or "--port=N".
struct Option {
    const char* name;
    bool takesValue;
};

// A command's arguments sorted out: the options given (a flag with an
// empty value; a later one of the same name wins) and the other words in
// their order. "--" ends the options; "-" alone is a word.
struct Arguments {
    std::vector<std::pair<std::string, std::string>> options;
    std::vector<std::string> words;
    bool has(const char* name) const { return value(name) != nullptr; }
    // The option's value, or null when it was not given.
    const char* value(const char* name) const;
};

// Sorts out argv[1..argc-1] of `command` (argv[0] is its name). False after
// wrongUsage for an unknown option, a value missing or given to a flag.
bool parseArguments(const char* command, int argc, char** argv, std::initializer_list<Option> known,
                    Arguments* out);
// The number of a numeric option into *out (left as it is when the option
// is absent); false after wrongUsage names a value that is no such number.
bool wholeOption(const char* command, const Arguments& args, const char* name, long min, long max,
                 long* out);

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
int runInit(int argc, char** argv);       // InitCommand.cpp
int runRelay(int argc, char** argv);      // RelayCommand.cpp
int runReport(int argc, char** argv);     // ReportCommands.cpp

// Everything a stream holds, read to its end.
std::string readAll(FILE* in);
// One line without its newline.
std::string readLine(FILE* in);
// Prompts on standard error and reads one line from the terminal with echo
// off (echo stays if the stream is no terminal).
std::string askHidden(FILE* terminal, const char* prompt);

// The password for a new key: one line of standard input (fromStdin, or
// whenever standard input is no terminal), else asked twice without echo.
// Trimmed; nil, said on standard error for the command, when it is empty or
// the two differ. Autoreleased.
NSString* newPassword(const char* command, bool fromStdin);

// One stored object's block as a container's index places it in the data
// file.
struct Block {
    int id;
    long offset;
    long length;
};
// The blocks the index of an opened container lists, by ascending id
// (ContainerCommand.cpp).
std::vector<Block> indexedBlocks(LXContainer* box);

// Whether the working directory has its data/ folder; if not, says so on
// standard error for the command. A missing folder is not a damaged store:
// nothing is opened or created.
bool checkDataFolder(const char* command);
// Whether the sheet's store opened whole; if it is damaged, names it on
// standard error for the command. A damaged store answers no records, so
// what it holds can't be listed, and every change to it fails.
bool checkStore(const char* command, VTSheet* sheet);

// A progress line on standard error, rewritten in place, while standard
// error is a terminal; nothing at all otherwise, so that logs and pipes
// stay clean. The line is cleared when the object goes.
class Progress {
public:
    // `what` leads the line; `total` is the count it goes up to (0: unknown).
    Progress(const char* what, uint32_t total);
    ~Progress();
    // Shows `done` (of total); redrawn only when the whole percent changes.
    void show(uint32_t done);
    // Shows a line of its own making, e.g. a cycle's counts.
    void showText(const std::string& text);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    std::string _what;
    uint32_t _total;
    int _percent = -1;
    bool _shown = false;
    bool _terminal;
};

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
