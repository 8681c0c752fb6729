// config check [FILE] [--strict]: a configuration list checked the way the
// client reads it, with what the client passes over in silence said aloud.
//
// Every sheet definition is checked against the clause forms (unknown
// keywords, unknown type words, malformed clauses, a name or field clause
// missing or out of order, required sheets and fields), each finding as
//   FILE:LINE: sheet NAME: clause (TEXT): what is wrong
// ("warning: " after the line for what runs but is likely a mistake); then
// every sheet is interpreted by the client's own code in a scratch
// directory, so that nothing in the installation is touched. Names of
// action classes and their selectors are looked up in the runtime table: a
// class this program lacks is a warning unless it is one of the client's
// own (window code this tool does not contain, whose operation is
// perform::), a class without the action's operation an error.
// The last line sums up. Exit status 1 when there is an error (with
// --strict also a warning).
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Commands.h"
#include "Json.h"
#include "app/VTWorkspace.h"
#include "foundation/NSData.h"
#include "foundation/NSString.h"
#include "foundation/platform/Platform.h"
#include "sheets/LXListParser.h"

namespace admin {

namespace {

// Where each list and atom of the text starts: the parser's grammar again,
// keeping line numbers, which the parser's lists don't carry.
struct Node {
    int line = 0;
    bool list = false;
    std::vector<Node> kids;
};

struct LineScanner {
    const std::string& text;
    size_t pos = 0;
    int line = 1;
    static bool white(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
    void skipWhite() {
        while (pos < text.size() && white(text[pos])) {
            if (text[pos] == '\n') line++;
            pos++;
        }
    }
    // After the opening parenthesis.
    Node list(int startLine) {
        Node node;
        node.line = startLine;
        node.list = true;
        for (;;) {
            skipWhite();
            if (pos >= text.size()) return node;
            char c = text[pos];
            if (c == ')') {
                pos++;
                return node;
            }
            if (c == '(') {
                pos++;
                node.kids.push_back(list(line));
                continue;
            }
            Node atom;
            atom.line = line;
            while (pos < text.size() && text[pos] != ')' && !white(text[pos])) pos++;
            node.kids.push_back(atom);
        }
    }
    Node top() {
        skipWhite();
        if (pos < text.size() && text[pos] == '(') {
            pos++;
            return list(line);
        }
        return Node();
    }
};

const Node* kid(const Node* node, uint32_t i) {
    return node && i < node->kids.size() ? &node->kids[i] : nullptr;
}

bool isAtom(NSObject* o) { return o && o->isKindOfClass_(NSString::classObject()); }
bool isList(NSObject* o) { return o && o->isKindOfClass_(NSArray::classObject()); }

void render(NSObject* o, std::string* out, int depth = 0) {
    if (isAtom(o)) {
        *out += static_cast<NSString*>(o)->UTF8String();
    } else if (isList(o) && depth < 8) {
        auto* l = static_cast<NSArray*>(o);
        *out += '(';
        for (uint32_t i = 0; i < l->count(); i++) {
            if (i) *out += ' ';
            render(l->objectAtIndex_(i), out, depth + 1);
        }
        *out += ')';
    } else {
        *out += "...";
    }
}

std::string word(NSObject* o) { return isAtom(o) ? static_cast<NSString*>(o)->UTF8String() : ""; }

// Where the parser will stop, found before it runs, since it says neither
// where nor why: a character before the first list, and the list left open
// at the end of the text. Of the lists still open there, the likely culprit
// is one whose line is followed by a line that opens a list at its column or
// further left (the indentation says that list should have ended); without
// such a hint, the innermost. Text after the top-level list is not read by
// the client and comes back as `trailing`.
struct Balance {
    struct Position {
        int line = 0;
        int column = 0;
    };
    bool ok = true;
    Position at;          // of the problem when !ok
    std::string problem;  // what is wrong there
    bool trailing = false;
    Position trailingAt;

    explicit Balance(const std::string& text) {
        struct Open {
            Position at;
            bool startsLine;
        };
        std::vector<Open> open;
        bool suspected = false;
        Position suspect;
        Position here{1, 1};
        bool lineStart = true;
        bool started = false;
        for (size_t i = 0; i < text.size(); i++) {
            char c = text[i];
            Position at = here;
            if (c == '\n') {
                here.line++;
                here.column = 1;
                lineStart = true;
                continue;
            }
            here.column++;
            if (c == ' ' || c == '\t' || c == '\r') continue;
            bool first = lineStart;
            lineStart = false;
            if (started && open.empty()) {
                trailing = true;
                trailingAt = at;
                break;
            }
            if (c == '(') {
                if (!started) started = true;
                if (first && !suspected && !open.empty() && open.back().startsLine &&
                    open.back().at.column >= at.column) {
                    suspected = true;
                    suspect = open.back().at;
                }
                open.push_back({at, first});
            } else if (!started) {
                fail(at, "'(' expected: the list must start with an opening parenthesis");
                return;
            } else if (c == ')') {
                open.pop_back();
            } else {
                // An atom: up to white space or ')'; '(' inside it is an
                // ordinary character.
                while (i + 1 < text.size() && !std::strchr(" \t\r\n)", text[i + 1])) {
                    i++;
                    here.column++;
                }
            }
        }
        if (!started) {
            fail(here, "the text holds no list");
            return;
        }
        if (!open.empty()) fail(suspected ? suspect : open.back().at, "this '(' is never closed");
    }
    void fail(Position where, const char* what) {
        ok = false;
        at = where;
        problem = what;
    }
};

struct Checker {
    std::string file;
    bool json = false;
    int errors = 0;
    int warnings = 0;
    // Per sheet as it is checked.
    std::string sheetName;
    std::set<std::string> defined;  // sheets defined so far
    std::map<std::string, std::set<std::string>> fieldsOf;
    struct Reference {
        std::string target, sheet;
        int line;
    };
    std::vector<Reference> referenced;  // sheets named by reference fields

    void report(bool error, int line, NSObject* clause, const std::string& what) {
        (error ? errors : warnings)++;
        std::string text;
        if (clause) render(clause, &text);
        if (json) {
            JsonObject finding;
            finding.add("file", file)
                    .add("line", line)
                    .add("severity", error ? "error" : "warning");
            finding.add("sheet", sheetName.empty() ? nullptr : sheetName.c_str());
            finding.add("clause", clause ? text.c_str() : nullptr).add("message", what);
            std::printf("%s\n", finding.text().c_str());
            return;
        }
        std::printf("%s:%d: %ssheet %s: %s%s%s\n", file.c_str(), line,
                    error ? "" : "warning: ", sheetName.empty() ? "(unnamed)" : sheetName.c_str(),
                    clause ? "clause " : "", text.c_str(), (clause ? ": " + what : what).c_str());
    }

    // The clause's element i is an atom / a list of atoms / a list of word lists.
    bool atomAt(NSArray* c, uint32_t i) { return i < c->count() && isAtom(c->objectAtIndex_(i)); }
    static bool words(NSObject* o) {
        if (!isList(o)) return false;
        auto* l = static_cast<NSArray*>(o);
        for (uint32_t i = 0; i < l->count(); i++)
            if (!isAtom(l->objectAtIndex_(i))) return false;
        return true;
    }
    bool wordsAt(NSArray* c, uint32_t i) { return i < c->count() && words(c->objectAtIndex_(i)); }
    bool wordListsAt(NSArray* c, uint32_t i) {
        if (i >= c->count() || !isList(c->objectAtIndex_(i))) return false;
        auto* l = static_cast<NSArray*>(c->objectAtIndex_(i));
        for (uint32_t k = 0; k < l->count(); k++)
            if (!words(l->objectAtIndex_(k))) return false;
        return true;
    }
    bool restAtoms(NSArray* c, uint32_t from) {
        for (uint32_t i = from; i < c->count(); i++)
            if (!isAtom(c->objectAtIndex_(i))) return false;
        return true;
    }

    void checkSheet(NSArray* def, const Node* node);
    void checkClause(NSArray* c, int line, bool* named, bool* hasField, std::string* source,
                     bool* sourceLate);
    void checkField(NSArray* c, int line, bool named);
};

void Checker::checkField(NSArray* c, int line, bool named) {
    NSObject* nameForm = c->count() > 1 ? c->objectAtIndex_(1) : nullptr;
    bool nameFormOk =
            isAtom(nameForm) || (words(nameForm) && static_cast<NSArray*>(nameForm)->count() >= 2);
    if (!nameFormOk)
        return report(true, line, c, "the field's name must be a word or (key labelled words...)");
    if (c->count() < 4)
        return report(true, line, c, "too few elements: (field <name> as <type> ...)");
    if (!atomAt(c, 3)) return report(true, line, c, "the type must be a word");
    if (!named) return report(true, line, c, "a field before the name clause");
    std::string key = isAtom(nameForm) ? word(nameForm)
                                       : word(static_cast<NSArray*>(nameForm)->objectAtIndex_(0));
    std::string type = word(c->objectAtIndex_(3));
    if (type == "string" || type == "multiline" || type == "datepicker" ||
        type == "datetimepicker") {
    } else if (type == "enum") {
        if (!wordsAt(c, 4))
            return report(true, line, c, "enum needs a list of values: as enum (a b c)");
    } else if (type == "reference" || type == "multireference") {
        if (!atomAt(c, 4) || !wordsAt(c, 5))
            return report(true, line, c,
                          type + " needs a sheet and display fields: as " + type +
                                  " <sheet> (<field>...)");
        referenced.push_back({word(c->objectAtIndex_(4)), sheetName, line});
    } else {
        return report(true, line, c, "unknown type word '" + type + "': the field is left out");
    }
    fieldsOf[sheetName].insert(key);
}

void Checker::checkClause(NSArray* c, int line, bool* named, bool* hasField, std::string* source,
                          bool* sourceLate) {
    if (c->count() == 0) return report(true, line, c, "an empty clause");
    if (!isAtom(c->objectAtIndex_(0))) return report(true, line, c, "the keyword must be a word");
    std::string kw = word(c->objectAtIndex_(0));
    if (kw == "#") return;
    if (kw == "source") {
        if (!atomAt(c, 1)) return report(true, line, c, "(source <sheet>)");
        if (*named) *sourceLate = true;
        *source = word(c->objectAtIndex_(1));
        if (*named) return report(false, line, c, "after the name clause it has no effect");
        if (!defined.count(*source))
            report(false, line, c,
                   "no sheet '" + *source +
                           "' stands before this one: the sheet gets storage of its own");
    } else if (kw == "name") {
        if (!atomAt(c, 1)) return report(true, line, c, "(name <name> [labelled (<word>...)])");
        if (c->count() > 3 && !wordsAt(c, 3))
            return report(true, line, c, "the title must be a list of words");
        if (*named) return report(true, line, c, "the sheet has a name already");
        *named = true;
    } else if (kw == "field" || kw == "formfield" || kw == "hiddenfield") {
        checkField(c, line, *named);
        *hasField = true;
    } else if (kw == "readOwn" || kw == "createdInView" || kw == "modifiedInView" ||
               kw == "creatorInView" || kw == "modifierInView") {
    } else if (kw == "type") {
        if (!atomAt(c, 1)) return report(true, line, c, "(type admin)");
        if (word(c->objectAtIndex_(1)) != "admin")
            report(false, line, c, "only (type admin) has an effect");
    } else if (kw == "validate" || kw == "default" || kw == "access") {
        if (!atomAt(c, 1) || !atomAt(c, 2))
            return report(true, line, c, "(" + kw + " <field> <word>)");
        if (kw == "validate" && word(c->objectAtIndex_(2)) != "notempty")
            report(false, line, c, "only the rule notempty has an effect");
    } else if (kw == "tooltip") {
        if (!atomAt(c, 1) || !restAtoms(c, 2))
            return report(true, line, c, "(tooltip <field> <word>...)");
    } else if (kw == "filterCurrentUser") {
        if (!atomAt(c, 1)) return report(true, line, c, "(filterCurrentUser <field>)");
    } else if (kw == "filter") {
        if (!atomAt(c, 1) || !wordListsAt(c, 2))
            return report(true, line, c, "(filter <field> ((<word>...) ...))");
    } else if (kw == "reffilter") {
        if (!atomAt(c, 1) || !atomAt(c, 2) || !wordListsAt(c, 3))
            return report(true, line, c, "(reffilter <field> <sheet> ((<word>...) ...))");
    } else if (kw == "datefilter") {
        if (!atomAt(c, 1) || !atomAt(c, 2) || !atomAt(c, 3))
            return report(true, line, c, "(datefilter <field> <from> <to>)");
        for (uint32_t i = 2; i <= 3; i++) {
            std::string n = word(c->objectAtIndex_(i));
            char* end = nullptr;
            std::strtod(n.c_str(), &end);
            if (n.empty() || *end) return report(true, line, c, "'" + n + "' is no number of days");
        }
    } else if (kw == "restrict") {
        if (!atomAt(c, 1) || !wordsAt(c, 2))
            return report(true, line, c, "(restrict <action> (<role words>...))");
        static const std::set<std::string> actions = {"see",       "read",   "deposit",  "update",
                                                      "updateown", "remove", "removeown"};
        if (!actions.count(word(c->objectAtIndex_(1))))
            report(false, line, c,
                   "no right asks for the action '" + word(c->objectAtIndex_(1)) + "'");
    } else if (kw == "action") {
        if (!wordsAt(c, 1) || !atomAt(c, 2) || !atomAt(c, 3) || !restAtoms(c, 4))
            return report(true, line, c,
                          "(action (<title words>...) <class> <selector> <word>...)");
        std::string cls = word(c->objectAtIndex_(2));
        std::string selector = word(c->objectAtIndex_(3)) + "::";
        Class found = NSClassFromCString(cls.c_str());
        // The client's own action classes live in its window code, which this
        // tool does not contain; their one operation is perform::.
        static const std::set<std::string> clientActions = {
                "VTActionUserKeyGenerator", "VTActionTestForm", "VTActionCSVExport",
                "VTActionCreatePDF", "VTActionOpenReportDesigner"};
        if (!found && clientActions.count(cls)) {
            if (selector != "perform::")
                report(true, line, c, "action class " + cls + " has no operation " + selector);
            return;
        }
        if (!found)
            return report(false, line, c,
                          "action class " + cls + " is not in this program's runtime table");
        if (!found->instancesRespondToSelector_(NSSelectorFromCString(selector.c_str())))
            report(true, line, c, "action class " + cls + " has no operation " + selector);
    } else {
        report(true, line, c, "unknown keyword '" + kw + "': the clause is skipped");
    }
}

void Checker::checkSheet(NSArray* def, const Node* node) {
    sheetName.clear();
    // The name first, so that every finding names its sheet.
    for (uint32_t i = 0; i < def->count(); i++) {
        NSObject* c = def->objectAtIndex_(i);
        if (isList(c) && static_cast<NSArray*>(c)->count() > 1 &&
            static_cast<NSArray*>(c)->objectAtIndex_(0)->isEqual_("name"_ns) &&
            isAtom(static_cast<NSArray*>(c)->objectAtIndex_(1))) {
            sheetName = word(static_cast<NSArray*>(c)->objectAtIndex_(1));
            break;
        }
    }
    bool named = false, hasField = false, sourceLate = false;
    std::string source;
    for (uint32_t i = 0; i < def->count(); i++) {
        NSObject* c = def->objectAtIndex_(i);
        const Node* n = kid(node, i);
        int line = n ? n->line : 0;
        if (!isList(c)) {
            report(true, line, c, "a clause must be a list");
            continue;
        }
        checkClause(static_cast<NSArray*>(c), line, &named, &hasField, &source, &sourceLate);
    }
    int line = node ? node->line : 0;
    if (!named)
        report(true, line, nullptr, "no name clause: the sheet is rejected");
    else if (!hasField)
        report(true, line, nullptr, "no field clause: the sheet is rejected");
    if (!sheetName.empty()) {
        if (defined.count(sheetName))
            report(true, line, nullptr, "a second sheet of this name replaces the first");
        defined.insert(sheetName);
    }
}

// One finding at a line and column, in the style of report().
void reportAt(bool json, const char* path, Balance::Position at, bool error,
              const std::string& what) {
    if (json) {
        std::printf("%s\n", JsonObject()
                                    .add("file", path)
                                    .add("line", at.line)
                                    .add("column", at.column)
                                    .add("severity", error ? "error" : "warning")
                                    .add("message", what)
                                    .text()
                                    .c_str());
    } else {
        std::printf("%s:%d:%d: %s%s\n", path, at.line, at.column,
                    error ? "" : "warning: ", what.c_str());
    }
}

void summary(bool json, const char* path, int sheets, int errors, int warnings, bool passed) {
    if (json) {
        std::printf("%s\n", JsonObject()
                                    .add("file", path)
                                    .add("sheets", sheets)
                                    .add("errors", errors)
                                    .add("warnings", warnings)
                                    .addBool("ok", passed)
                                    .text()
                                    .c_str());
    } else {
        std::printf("%s: %d sheets, %d errors, %d warnings\n", path, sheets, errors, warnings);
    }
}

int check(const char* path, bool strict, bool json) {
    NSString* nsPath = NSString::stringWithUTF8String_(path);
    if (!vtFileReadable(path)) {
        std::fprintf(stderr, "vantor-admin: config check: cannot read %s\n", path);
        return 1;
    }
    NSData* data = NSData::dataWithContentsOfFile_(nsPath);
    void* raw = data->bytes();
    std::string text(static_cast<const char*>(raw), data->length());
    std::free(raw);
    NSArray* rows;
    {
        LogToStderr redirect;
        rows = LXListParser::listParserWithString_(NSString::stringWithUTF8String_(text.c_str()))
                       ->parse();
    }
    Balance balance(text);
    if (!rows || !balance.ok) {
        if (!balance.ok) {
            reportAt(json, path, balance.at, true, balance.problem);
        } else {
            reportAt(json, path, {1, 1}, true,
                     "the list does not parse (the parser's lines are above)");
        }
        summary(json, path, 0, 1, 0, false);
        return 1;
    }
    LineScanner scanner{text};
    Node top = scanner.top();

    Checker checker;
    checker.file = path;
    checker.json = json;
    if (balance.trailing) {
        checker.warnings++;
        reportAt(json, path, balance.trailingAt, false,
                 "text after the top-level list is not read");
    }
    int sheets = 0;
    for (uint32_t i = 0; i < rows->count(); i++) {
        NSObject* row = rows->objectAtIndex_(i);
        const Node* node = kid(&top, i);
        if (isList(row) && static_cast<NSArray*>(row)->count() > 0 &&
            static_cast<NSArray*>(row)->objectAtIndex_(0)->isEqual_("#"_ns))
            continue;
        sheets++;
        if (!isList(row)) {
            checker.sheetName.clear();
            checker.report(true, node ? node->line : 0, row, "a sheet definition must be a list");
            continue;
        }
        checker.checkSheet(static_cast<NSArray*>(row), node);
    }
    for (auto& ref : checker.referenced) {
        checker.sheetName = ref.sheet;
        if (!checker.defined.count(ref.target))
            checker.report(
                    true, ref.line, nullptr,
                    "a reference names the sheet '" + ref.target + "', which is not defined");
    }
    checker.sheetName.clear();

    // The sheets and fields the program itself reads by name.
    const std::vector<std::pair<const char*, std::vector<const char*>>> required = {
            {"user", {"firstName", "lastName", "orgUnit", "company", "role", "groups"}},
            {"group", {"name", "roles"}},
            {"role", {"name"}},
            {"form", {"name", "label", "source", "status", "readers", "updaters", "removers"}},
            {"formfield",
             {"form", "order", "name", "label", "type", "location", "required", "default",
              "parameters", "tooltip"}},
    };
    for (auto& [sheet, fields] : required) {
        if (!checker.defined.count(sheet)) {
            checker.report(true, 0, nullptr,
                           std::string("the required sheet '") + sheet + "' is missing");
            continue;
        }
        for (const char* field : fields)
            if (!checker.fieldsOf[sheet].count(field)) {
                checker.sheetName = sheet;
                checker.report(true, 0, nullptr,
                               std::string("the required field '") + field + "' is missing");
                checker.sheetName.clear();
            }
    }

    // The client's own interpreter, in a scratch directory: its containers
    // are made there, not in the installation.
    std::string scratch;
    if (vtMakeTemporaryDirectory("vantor-config-check", &scratch)) {
        std::filesystem::path old = std::filesystem::current_path();
        std::error_code ec;
        std::filesystem::current_path(scratch, ec);
        std::filesystem::create_directory("data", ec);
        uint32_t built = 0;
        {
            LogToStderr redirect;
            VTWorkspace* w = VTWorkspace::alloc()->initWithRows_userInfo_(
                    rows, NSMutableDictionary::dictionary());
            built = w->listOfSheets()->count();
            w->release();
        }
        std::filesystem::current_path(old, ec);
        std::filesystem::remove_all(scratch, ec);
        if (built != static_cast<uint32_t>(sheets) && checker.errors == 0)
            checker.report(true, 0, nullptr,
                           "the interpreter rejected " +
                                   std::to_string(sheets - static_cast<int>(built)) + " sheet(s)");
    }
    bool failed = checker.errors > 0 || (strict && checker.warnings > 0);
    summary(json, path, sheets, checker.errors, checker.warnings, !failed);
    return failed ? 1 : 0;
}

}  // namespace

int runConfig(int argc, char** argv) {
    Arguments args;
    if (!parseArguments("config", argc, argv, {{"--strict", false}, {"--json", false}}, &args))
        return 2;
    if (args.words.empty()) return wrongUsage("config", "missing verb (check)", "");
    if (args.words[0] != "check")
        return wrongUsage("config", "unknown verb (check)", args.words[0]);
    if (args.words.size() > 2)
        return wrongUsage("config", "one FILE only, not also", args.words[2]);
    const char* file = args.words.size() == 2 ? args.words[1].c_str() : "conf/cro.vtr";
    return check(file, args.has("--strict"), args.has("--json"));
}

}  // namespace admin
