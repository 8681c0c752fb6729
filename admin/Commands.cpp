#include "Commands.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "app/VTWorkspace.h"
#include "foundation/NSString.h"
#include "foundation/platform/Platform.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"

namespace admin {

namespace {

const char kPasswordNote[] =
        "The password of the key in userkey/ comes from VANTOR_PASSWORD or is asked on the "
        "terminal.\n";

const Command kCommands[] = {
        {"init", "DIR [--config FILE]",
         "make a new installation with its first administrator's key",
         "usage: vantor-admin init DIR [--config FILE] [--name \"FIRST LAST\"] [--relay HOST] "
         "[--password-stdin]\n"
         "                        [--json]\n"
         "  DIR               the new installation; must not exist or be empty\n"
         "  --config FILE     its configuration list (default: the demo configuration)\n"
         "  --name NAME       the first administrator's first and last name (default \"First "
         "Admin\")\n"
         "  --relay HOST      the relay's host, written to transceiver.txt\n"
         "  --password-stdin  read the password as one line from standard input\n"
         "                    (otherwise asked twice on the terminal)\n"
         "  --json            print the result as one JSON object\n",
         &runInit},
        {"parse-list", "FILE", "parse a configuration list and print it as JSON",
         "usage: vantor-admin parse-list FILE\n", &runParseList},
        {"archive", "encode|decode [--key KEY]",
         "JSON to archive or archive to JSON, stdin to stdout",
         "usage: vantor-admin archive encode [--key KEY]   JSON on stdin, archive on stdout\n"
         "       vantor-admin archive decode [--key KEY]   archive on stdin, JSON on stdout\n"
         "  --key KEY   encipher after encoding, decipher before decoding\n",
         &runArchive},
        {"container", "dump|check|store|remove|compact STEM ...",
         "look into a container; see ContainerCommand.cpp",
         "usage: vantor-admin container dump STEM              one JSON line per object\n"
         "       vantor-admin container check STEM [--json]    exit 1 when damaged\n"
         "       vantor-admin container store STEM [--id ID]   a JSON object from stdin\n"
         "       vantor-admin container remove STEM ID\n"
         "       vantor-admin container compact STEM           rewrite the live blocks into a "
         "fresh pair\n",
         &runContainer},
        {"config", "check [FILE] [--strict]", "check a configuration list (default conf/cro.vtr)",
         "usage: vantor-admin config check [FILE] [--strict] [--json]\n"
         "  FILE      the configuration list (default conf/cro.vtr)\n"
         "  --strict  warnings count as errors\n"
         "  --json    one JSON object per finding, then one summing up\n",
         &runConfig},
        {"key", "show FILE|make USER|anchor FILE",
         "show a user key, make one for a row of the user sheet, or write the anchor",
         "usage: vantor-admin key show FILE [--show-password] [--json]\n"
         "       vantor-admin key make USER [--password-stdin] [--json]\n"
         "       vantor-admin key anchor FILE\n"
         "  USER  the __recordId or the user id (\"First Last/Unit/Company\") of a row of the user "
         "sheet\n"
         "  anchor  as the administrator logged in: make the key secure (its signing key the\n"
         "          organisation's anchor) and write the anchor to FILE, for vantor-relay\n"
         "          --anchor and, as anchor.txt, for every installation (secure protocol)\n",
         &runKey},
        {"sheet", "list|dump NAME",
         "the sheets of the installation, or one sheet's records as JSON",
         "usage: vantor-admin sheet list [--json]\n"
         "       vantor-admin sheet dump NAME\n",
         &runSheet},
        {"record", "set|remove|select|action|list|history|restore SHEET ...",
         "change records as the installation's user; see RecordCommand.cpp",
         "usage: vantor-admin record set SHEET              a JSON object (or array) on standard "
         "input\n"
         "       vantor-admin record remove SHEET RECORDID\n"
         "       vantor-admin record select SHEET RECORDID\n"
         "       vantor-admin record action SHEET RECORDID CLASS\n"
         "       vantor-admin record list SHEET\n"
         "       vantor-admin record history SHEET RECORDID         values that newer ones "
         "replaced\n"
         "       vantor-admin record restore SHEET RECORDID FIELD N write entry N of FIELD back\n",
         &runRecord},
        {"report", "pdf|csv|layout SHEET ...",
         "a record as PDF, a sheet as CSV, a layout begun; see ReportCommands.cpp",
         "usage: vantor-admin report pdf SHEET RECORDID   write tmp/report.pdf by the sheet's "
         "layout\n"
         "       vantor-admin report csv SHEET NAME       write export/NAME (.csv added without "
         "a dot)\n"
         "       vantor-admin report layout SHEET [--designer]\n"
         "                                  begin layout/layout-SHEET.xml; --designer starts\n"
         "                                  VantorReportDesigner on it\n",
         &runReport},
        {"sync", "[--cycles N] [--port N] [--timeout S]",
         "exchange deltas with the relay as the installation's user",
         "usage: vantor-admin sync [--cycles N] [--port N] [--timeout SECONDS] [--json]\n"
         "  --cycles N   run exactly N cycles (default: until nothing moves)\n"
         "  --port N     the relay's port (default 8888)\n"
         "  --timeout S  how long each element of the exchange may take (default 30)\n"
         "  --json       one JSON object per cycle\n",
         &runSync},
        {"deltas", "[--refused]", "the outgoing deltas waiting in the delta store",
         "usage: vantor-admin deltas [--refused]\n", &runDeltas},
        {"relay", "status DIR", "what a relay's store holds, read without disturbing the relay",
         "usage: vantor-admin relay status DIR [--json]\n"
         "  DIR     the relay's directory (its --dir), holding _relay_.vcd/.vci\n"
         "  --json  print it as one JSON object\n",
         &runRelay},
        {nullptr, nullptr, nullptr, nullptr, nullptr},
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
    std::fprintf(out,
                 "usage: vantor-admin [-C DIR] COMMAND [ARGUMENTS]\n"
                 "       vantor-admin --help | --version\n"
                 "       vantor-admin COMMAND --help\n\n"
                 "  -C DIR  run in the installation DIR instead of the working directory\n\n"
                 "commands:\n");
    for (const Command* c = kCommands; c->name; c++) {
        char head[64];
        std::snprintf(head, sizeof head, "%s %s", c->name, c->synopsis);
        std::fprintf(out, "  %-24s %s\n", head, c->summary);
    }
}

void printCommandHelp(const Command* command, FILE* out) {
    std::fprintf(out, "%s", command->help);
    const char* name = command->name;
    if (!std::strcmp(name, "record") || !std::strcmp(name, "sync") ||
        !std::strcmp(name, "deltas") || !std::strcmp(name, "report")) {
        std::fprintf(out, "%s", kPasswordNote);
    }
}

int wrongUsage(const char* command, const char* what, const std::string& word) {
    std::fprintf(stderr, "vantor-admin: %s: %s: '%s'\n", command, what, word.c_str());
    std::string tableName(command, std::strcspn(command, " "));
    if (const Command* c = findCommand(tableName.c_str())) printCommandHelp(c, stderr);
    return 2;
}

const char* Arguments::value(const char* name) const {
    const char* found = nullptr;
    for (const auto& option : options) {
        if (option.first == name) found = option.second.c_str();
    }
    return found;
}

bool parseArguments(const char* command, int argc, char** argv, std::initializer_list<Option> known,
                    Arguments* out) {
    bool optionsEnded = false;
    for (int i = 1; i < argc; i++) {
        std::string arg = argv[i];
        if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
            out->words.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        size_t equals = arg.find('=');
        std::string name = arg.substr(0, equals);
        const Option* option = nullptr;
        for (const Option& o : known) {
            if (name == o.name) option = &o;
        }
        if (!option) {
            wrongUsage(command, "unknown option", name);
            return false;
        }
        if (!option->takesValue) {
            if (equals != std::string::npos) {
                wrongUsage(command, "this option takes no value", arg);
                return false;
            }
            out->options.emplace_back(name, "");
        } else if (equals != std::string::npos) {
            out->options.emplace_back(name, arg.substr(equals + 1));
        } else if (i + 1 < argc) {
            out->options.emplace_back(name, argv[++i]);
        } else {
            wrongUsage(command, "missing value for", name);
            return false;
        }
    }
    return true;
}

namespace {

// A whole decimal number from min to max.
bool parseWhole(const char* text, long min, long max, long* out) {
    char* end = nullptr;
    errno = 0;
    long value = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != 0 || value < min || value > max) return false;
    *out = value;
    return true;
}

}  // namespace

bool wholeOption(const char* command, const Arguments& args, const char* name, long min, long max,
                 long* out) {
    const char* text = args.value(name);
    if (!text || parseWhole(text, min, max, out)) return true;
    std::string what = std::string("not a whole number from ") + std::to_string(min) + " to " +
                       std::to_string(max) + " for " + name;
    wrongUsage(command, what.c_str(), text);
    return false;
}

std::string readAll(FILE* in) {
    std::string bytes;
    char buffer[65536];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, in)) > 0) {
        bytes.append(buffer, n);
        // A terminal's end of input (Ctrl-D) comes once: another read would
        // wait for more typing.
        if (std::feof(in) || std::ferror(in)) break;
    }
    return bytes;
}

std::string readLine(FILE* in) {
    std::string line;
    int c;
    while ((c = std::fgetc(in)) != EOF && c != '\n') line.push_back(static_cast<char>(c));
    return line;
}

std::string askHidden(FILE* terminal, const char* prompt) {
    // Echo off before the prompt shows, so that nothing typed after it is
    // seen; it comes back also when the process ends at the prompt (Ctrl-C).
    bool restore = vtTerminalEchoOff(fileno(terminal));
    std::fprintf(stderr, "%s", prompt);
    std::string line = readLine(terminal);
    if (restore) vtTerminalEchoRestore();
    std::fprintf(stderr, "\n");
    return line;
}

Progress::Progress(const char* what, uint32_t total)
    : _what(what), _total(total), _terminal(vtIsTerminal(2)) {}

Progress::~Progress() {
    // Erases the line, leaving the cursor where the line began.
    if (_shown) std::fprintf(stderr, "\r\033[K");
}

void Progress::show(uint32_t done) {
    int percent = _total ? static_cast<int>(uint64_t(done) * 100 / _total) : 0;
    if (!_terminal || percent == _percent) return;
    _percent = percent;
    showText(std::to_string(done) +
             (_total ? " of " + std::to_string(_total) + " (" + std::to_string(percent) + "%)"
                     : std::string()));
}

void Progress::showText(const std::string& text) {
    if (!_terminal) return;
    std::fprintf(stderr, "\r\033[K%s %s", _what.c_str(), text.c_str());
    std::fflush(stderr);
    _shown = true;
}

LogToStderr::LogToStderr() {
    std::fflush(stdout);
    _saved = vtDuplicateStream(1);
    if (_saved >= 0) {
        _results = fdopen(vtDuplicateStream(_saved), "w");
        vtReplaceStream(1, 2);
    }
}

LogToStderr::~LogToStderr() {
    if (_results) std::fclose(_results);
    std::fflush(stdout);
    if (_saved >= 0) {
        vtReplaceStream(1, _saved);
        vtCloseStream(_saved);
    }
}

bool checkDataFolder(const char* command) {
    if (VTWorkspace::hasDataFolder()) return true;
    std::fprintf(stderr,
                 "vantor-admin: %s: the data folder data/ is missing here; run it in an "
                 "installation directory\n",
                 command);
    return false;
}

bool checkStore(const char* command, VTSheet* sheet) {
    VTMatrix* matrix = sheet->matrix();
    LXContainer* container = matrix ? matrix->container() : nullptr;
    if (!container || !container->isDamaged()) return true;
    std::fprintf(stderr,
                 "vantor-admin: %s: the store of the sheet '%s' (%s.vcd, %s.vci) is damaged\n",
                 command, sheet->name()->UTF8String(), container->name()->UTF8String(),
                 container->name()->UTF8String());
    return false;
}

}  // namespace admin
