// The sheet window under Wine's null driver, on a demo installation made by
// scripts/new-workdir.sh: the demo's sheets open in windows of their own
// through prepare:, and the test works them with real native messages as a
// user does (select a row, type, choose pop-up items, press the buttons),
// then reads back the screen and the records: matrix, container and the
// deltas queued for the other users.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "app/VTLocalization.h"
#include "app/VTUserKey.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "foundation/platform/Platform.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "sheets/VTTableDataSource.h"
#include "sync/LXTransceiver.h"
#include "tests/app/SheetProbe.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSupport.h"
#include "tests/toolkit/NativeProbe.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSPopUpButton.h"
#include "toolkit/NSTabView.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSWindow.h"

namespace {

using vt_test::logOf;

constexpr const char* kAda = "Ada Lovelace/Demo/Admin";

std::string env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string quote(const std::string& s) {
    std::string out = "'";
    for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// A shell command line run to its end; answers its standard output and
// puts its status in *status. The test's own temporary files would have
// Windows paths here, so this stays with the shell's.
std::string shell(const std::string& line, int* status = nullptr) {
    std::string out;
    FILE* pipe = popen(line.c_str(), "r");
    if (!pipe) {
        if (status) *status = -1;
        return out;
    }
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    int code = pclose(pipe);
    if (status) *status = WIFEXITED(code) ? WEXITSTATUS(code) : -1;
    return out;
}

// vantor-admin in an installation, with the input on standard input.
std::string admin(const std::string& dir, const std::string& args, const std::string& input = "",
                  int* status = nullptr, const std::string& password = "vantor-demo") {
    std::string file = dir + "/.admin-input";
    std::ofstream(file, std::ios::binary) << input;
    return shell("cd " + quote(dir) + " && VANTOR_PASSWORD=" + quote(password) + " " +
                         quote(env("VANTOR_ADMIN_PATH")) + " " + args + " < " + quote(file) +
                         " 2>&1",
                 status);
}

// The first value of the key in the JSON text that vantor-admin printed.
std::string jsonValue(const std::string& text, const std::string& key) {
    size_t at = text.find("\"" + key + "\":");
    if (at == std::string::npos) return "";
    at = text.find('"', at + key.size() + 3);
    size_t end = at == std::string::npos ? at : text.find('"', at + 1);
    return end == std::string::npos ? "" : text.substr(at + 1, end - at - 1);
}

// The last line a command printed: the record id of `record set`.
std::string lastLine(std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    size_t at = text.rfind('\n');
    return at == std::string::npos ? text : text.substr(at + 1);
}

// Ends the program with the tests' result as soon as they have run. The
// sheets outlive their tests (the notification center keeps its
// observers), and under Wine the end of such a program, once it has
// queued deltas, answers status 0 whatever main returned: a failure must
// not pass for a success.
class ExitWithResult : public testing::EmptyTestEventListener {
    void OnTestProgramEnd(const testing::UnitTest& unit) override {
        std::fflush(stdout);
        std::fflush(stderr);
        _exit(unit.Passed() ? 0 : 1);
    }
};

[[maybe_unused]] const bool exitWithResult =
        (testing::UnitTest::GetInstance()->listeners().Append(new ExitWithResult), true);

class SheetWindowTest : public testing::Test {
protected:
    void SetUp() override {
        NSInitCommonControls();
        // The first window of the process is the main window, whose close
        // ends the program: the client makes it before any sheet's.
        if (!NSApplication::sharedApplication()->mainWindow())
            NSWindow::alloc()->initWithContentRect_styleMask_backing_defer_(
                    NSMakeRect(0, 0, 100, 100), 0, 0, false);
        char pattern[] = "/tmp/vantor-sheet-window-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root = pattern;
        old = std::filesystem::current_path();
        ada = root + "/ada";
        int status = -1;
        std::string made =
                shell("bash " + quote(env("VANTOR_SOURCE_DIR") + "/scripts/new-workdir.sh") + " " +
                              quote(ada) + " 2>&1",
                      &status);
        ASSERT_EQ(status, 0) << made;
        // The first admin's row is made by the first start; a listing is one.
        std::string listed = admin(ada, "record list company", "", &status);
        ASSERT_EQ(status, 0) << listed;
        std::ofstream(ada + "/transceiver.txt") << "127.0.0.1\n";
    }
    void TearDown() override {
        if (workspace) workspace->release();
        std::filesystem::current_path(old);
        vtChangeDirectory(("Z:" + old.string()).c_str());
        std::filesystem::remove_all(root);
        VTTableDataSource::resetIdentityForTesting();
    }

    // The installation as the client has it after the login. Everything
    // vantor-admin does to it must be done before: the two would share
    // the stores.
    void openWorkspace() {
        // Both the C library's and Wine's idea of the working directory:
        // the Win32 file calls resolve relative paths by the second, which
        // sees the Linux root as drive Z:.
        std::filesystem::current_path(ada);
        ASSERT_TRUE(vtChangeDirectory(("Z:" + ada).c_str()));
        VTInstallLocalizedStrings(VTLocalization::localization()->localizedStrings());
        VTTableDataSource::resetIdentityForTesting();
        NSMutableDictionary* key = VTUserKey::discoverInDirectory_("userkey"_ns);
        ASSERT_NE(key, nullptr);
        workspace = VTWorkspace::alloc()->initWithFile_userInfo_("conf/cro.vtr"_ns, key);
        ASSERT_NE(workspace, nullptr);
    }
    VTSheet* window(const char* name) {
        VTSheet* sheet = workspace->sheetNamed_(NSString::stringWithUTF8String_(name));
        EXPECT_NE(sheet, nullptr) << name;
        if (sheet) sheet->prepare_(0);
        return sheet;
    }
    static NSObject* control(VTSheet* sheet, const char* key) {
        return sheet->fieldControls()->objectForKey_(NSString::stringWithUTF8String_(key));
    }
    static void* handle(NSObject* view) { return static_cast<NSView*>(view)->currentHWnd(); }
    static void* windowHandle(VTSheet* sheet) {
        return static_cast<NSWindow*>(sheet->window())->hWnd();
    }
    static void* list(VTSheet* sheet) { return handle(sheet->sheetTableView()); }
    static std::string text(VTSheet* sheet, const char* key) {
        return probeText(handle(control(sheet, key)));
    }
    static void type(VTSheet* sheet, const char* key, const char* value) {
        probeSetText(handle(control(sheet, key)), value);
    }
    // A click: the button's command reaches its window.
    static void press(VTSheet* sheet, NSObject* button) {
        probeSend(windowHandle(sheet), kProbeCommand,
                  static_cast<uintptr_t>(static_cast<NSControl*>(button)->uid()), 0);
        probePump();
    }
    static void select(VTSheet* sheet, int row) {
        probeSelectRow(list(sheet), -1, false);
        probeSelectRow(list(sheet), row, true);
        probePump();
    }
    // The table row that shows the record with the cell text in the column.
    static int rowShowing(VTSheet* sheet, int column, const std::string& cell) {
        for (int r = 0; r < probeListCount(list(sheet)); r++)
            if (probeListText(list(sheet), r, column) == cell) return r;
        return -1;
    }
    static NSDictionary* record(VTSheet* sheet, const char* id) {
        return sheet->matrix()->objectWithRecordId_(NSString::stringWithUTF8String_(id));
    }
    static std::string value(NSDictionary* record, const char* key) {
        NSObject* v =
                record ? record->objectForKey_(NSString::stringWithUTF8String_(key)) : nullptr;
        return v ? static_cast<NSString*>(v->description())->UTF8String() : "nil";
    }
    static std::string str(NSObject* o) {
        return o ? static_cast<NSString*>(o->description())->UTF8String() : "nil";
    }
    // Writes values behind the form's back, as an older configuration or
    // another installation may have left them.
    static void store(VTSheet* sheet, const std::string& id, const char* key, NSObject* v) {
        VTMatrix* m = sheet->matrix();
        m->beginTransaction();
        NSMutableDictionary* r =
                m->objectWithRecordId_(NSString::stringWithUTF8String_(id.c_str()));
        ASSERT_NE(r, nullptr) << id;
        m->setValue_inRow_column_onlyChangedFields_(v, m->rowForObject_(r),
                                                    NSString::stringWithUTF8String_(key), false);
        ASSERT_TRUE(m->commitTransaction_(false));
    }
    std::string set(const char* sheet, const std::string& json, const std::string& dir = "",
                    const std::string& password = "vantor-demo") {
        int status = -1;
        std::string out = admin(dir.empty() ? ada : dir, std::string("record set ") + sheet, json,
                                &status, password);
        EXPECT_EQ(status, 0) << out;
        return lastLine(out);
    }
    static uint32_t queued() { return LXTransceiver::defaultTransceiver()->deltaCount(); }

    std::string root;
    std::filesystem::path old;
    std::string ada;
    VTWorkspace* workspace = nullptr;
    NSAutoreleasePoolScope pool;
};

TEST_F(SheetWindowTest, TheScreenIsBuiltFromTheDefinition) {
    openWorkspace();
    VTSheet* company = window("company");
    ASSERT_NE(company, nullptr);
    ASSERT_NE(company->window(), nullptr);
    // prepare: with 0 builds the window and leaves it hidden.
    EXPECT_FALSE(probeVisible(windowHandle(company)));
    EXPECT_EQ(probeText(windowHandle(company)), "Companies");

    // Buttons along the top: y = 645 - 30 in the toolkit, 5 from the top.
    struct Button {
        NSObject* button;
        const char* title;
        int x;
        bool enabled;
    };
    NSObject* csv = company->guiObjects()->objectAtIndex_(3);
    for (const Button& b : {Button{company->newButton(), "New", 10, true},
                            Button{company->saveButton(), "Save", 115, false},
                            Button{company->removeButton(), "Remove", 220, false},
                            Button{csv, "Export as CSV", 330, true}}) {
        NSNativeRect r = probeRectInParent(handle(b.button));
        EXPECT_EQ(probeText(handle(b.button)), b.title);
        EXPECT_EQ(r.left, b.x) << b.title;
        EXPECT_EQ(r.top, 5) << b.title;
        EXPECT_EQ(r.width, 100);
        EXPECT_EQ(probeEnabled(handle(b.button)), b.enabled) << b.title;
    }

    // Labels at rows r = 55, 80, 105 (enum), 130 (date), 155 (multiline):
    // a label's top is r - 20 from the top of the content.
    std::vector<std::pair<std::string, int>> labels;
    for (uint32_t i = 0; i < company->guiObjects()->count(); i++) {
        auto* view = NSDynamicCast<NSTextField>(company->guiObjects()->objectAtIndex_(i));
        if (view) labels.push_back({probeText(handle(view)), probeRectInParent(handle(view)).top});
    }
    std::vector<std::pair<std::string, int>> expected = {
            {"Name", 35},     {"City", 60},     {"Industry", 85},  {"Since", 110},   {"Notes", 135},
            {"Creator", 260}, {"Created", 280}, {"Modifier", 300}, {"Modified", 320}};
    EXPECT_EQ(labels, expected);
    EXPECT_EQ(probeRectInParent(handle(control(company, "notes"))).top, 135);
    EXPECT_EQ(probeRectInParent(handle(control(company, "notes"))).height, 120);
    EXPECT_EQ(probeRectInParent(handle(control(company, "name"))).left, 120);
    EXPECT_EQ(text(company, "__creator"), kAda);
    // The enum offers its values in list order; the form starts empty.
    void* industry = handle(control(company, "industry"));
    ASSERT_EQ(probeComboCount(industry), 4);
    EXPECT_EQ(probeComboItem(industry, 3), "public");
    EXPECT_EQ(probeComboSelection(industry), -1);
    // Tooltips, and the keyboard chain through the text controls only.
    EXPECT_EQ(str(static_cast<NSView*>(control(company, "name"))->toolTip()),
              "The registered name of the company");
    auto* name = static_cast<NSResponder*>(control(company, "name"));
    EXPECT_EQ(name->nextResponder(), control(company, "city"));
    EXPECT_EQ(static_cast<NSResponder*>(control(company, "city"))->nextResponder(),
              control(company, "notes"));
    EXPECT_EQ(static_cast<NSResponder*>(control(company, "notes"))->nextResponder(), name);

    // Columns: the unseen mark, the fields in view, then __modified before
    // __modifier whatever the clause order.
    std::vector<std::string> headers;
    for (int c = 0; c < probeListColumns(list(company)); c++)
        headers.push_back(probeListColumnTitle(list(company), c));
    EXPECT_EQ(headers, (std::vector<std::string>{"", "Name", "City", "Industry", "Since",
                                                 "Modified", "Modifier"}));
    EXPECT_EQ(probeListCount(list(company)), 3);
    EXPECT_EQ(probeListText(list(company), 0, 0), "*");

    // Shown, closed (hidden, kept), shown again: the same window.
    void* native = windowHandle(company);
    company->prepare_(1);
    EXPECT_TRUE(probeVisible(native));
    probeSend(native, kProbeClose, 0, 0);
    EXPECT_FALSE(probeVisible(native));
    company->show();
    EXPECT_EQ(windowHandle(company), native);
    EXPECT_TRUE(probeVisible(native));
    // A minimized window comes back to its normal placement.
    probeMinimize(native);
    ASSERT_TRUE(probeMinimized(native));
    company->prepare_(1);
    EXPECT_FALSE(probeMinimized(native));
    EXPECT_TRUE(probeVisible(native));
    // refresh works on a window that was never in front as on this one.
    VTSheet* contact = window("contact");
    contact->refresh();
    EXPECT_EQ(probeListCount(list(contact)), 3);
}

TEST_F(SheetWindowTest, ResizingMovesTheTableOnly) {
    openWorkspace();
    VTSheet* company = window("company");
    company->show();
    probeResize(windowHandle(company), 950, 780);
    probePump();
    NSNativeRect table = probeRectInParent(list(company));
    EXPECT_EQ(table.left, 330);
    EXPECT_EQ(table.top, 35);
    EXPECT_EQ(table.width, 950 - 350);
    EXPECT_EQ(table.height, 780 - 80);
    EXPECT_EQ(probeRectInParent(handle(control(company, "name"))).top, 35);
}

TEST_F(SheetWindowTest, SelectingTypingSavingNewAndRemove) {
    openWorkspace();
    VTSheet* company = window("company");
    company->show();
    int row = rowShowing(company, 1, "Northwind Software");
    ASSERT_GE(row, 0);
    EXPECT_EQ(probeListText(list(company), row, 0), "*");
    select(company, row);
    EXPECT_EQ(text(company, "name"), "Northwind Software");
    EXPECT_EQ(text(company, "city"), "Prague");
    EXPECT_EQ(probeComboSelection(handle(control(company, "industry"))), 0);
    EXPECT_EQ(text(company, "__creator"), kAda);
    // The mark goes at once, and the record counts as seen.
    EXPECT_EQ(probeListText(list(company), row, 0), "");
    EXPECT_TRUE(company->matrix()->seenRecords()->member_("demo-company-1"_ns));
    EXPECT_TRUE(probeEnabled(handle(company->saveButton())));
    EXPECT_TRUE(probeEnabled(handle(company->removeButton())));

    // Typed text is stored as it stands, blanks and all; the form is new
    // again afterwards.
    type(company, "city", "  Ostrava  ");
    press(company, company->saveButton());
    EXPECT_EQ(value(record(company, "demo-company-1"), "city"), "  Ostrava  ");
    EXPECT_EQ(company->activeRow(), -1);
    EXPECT_EQ(text(company, "name"), "");
    EXPECT_FALSE(probeEnabled(handle(company->removeButton())));
    EXPECT_TRUE(probeEnabled(handle(company->saveButton())));

    // New: a record at the end of the table, chosen from the pop-up,
    // without the mark, since its author has seen it.
    press(company, company->newButton());
    type(company, "name", "Acme");
    probeComboChoose(handle(control(company, "industry")), 1);
    press(company, company->saveButton());
    ASSERT_EQ(company->matrix()->numberOfRows(), 4u);
    auto* acme =
            static_cast<NSDictionary*>(company->matrix()->allObjectsSorted()->objectAtIndex_(3));
    EXPECT_EQ(value(acme, "name"), "Acme");
    EXPECT_EQ(value(acme, "industry"), "trade");
    EXPECT_EQ(value(acme, "__creator"), kAda);
    EXPECT_EQ(probeListCount(list(company)), 4);
    EXPECT_EQ(probeListText(list(company), 3, 1), "Acme");
    EXPECT_EQ(probeListText(list(company), 3, 0), "");

    // Validation: blanks are empty; the first failing field in field order
    // is named by its label; nothing is written and the form stays.
    press(company, company->newButton());
    type(company, "name", "   ");
    std::string log = logOf([&] { press(company, company->saveButton()); });
    EXPECT_EQ(log, "alert: Validation error: Field 'Name' must not be empty.\n");
    EXPECT_EQ(text(company, "name"), "   ");
    type(company, "name", "Beta");
    log = logOf([&] { press(company, company->saveButton()); });
    EXPECT_EQ(log, "alert: Validation error: Field 'Industry' must not be empty.\n");
    EXPECT_EQ(company->matrix()->numberOfRows(), 4u);

    // Remove asks first; on a new record it does nothing at all.
    log = logOf([&] { company->remove(); });
    EXPECT_EQ(log, "");
    select(company, 3);
    EXPECT_EQ(text(company, "name"), "Acme");
    log = logOf([&] { press(company, company->removeButton()); });
    EXPECT_EQ(log, "alert: Removing: Are you sure?\n");
    EXPECT_EQ(company->matrix()->numberOfRows(), 3u);
    EXPECT_EQ(probeListCount(list(company)), 3);
    EXPECT_EQ(company->activeRow(), -1);
}

TEST_F(SheetWindowTest, UntouchedFieldsSurviveASaveOfAnotherField) {
    // Two companies with one display text, a contact of the second; a
    // contact of a company that is then removed.
    std::string twin =
            set("company", R"({"name": "Blue Byte Labs", "city": "Brno", "industry": "software"})");
    std::string gone =
            set("company", R"({"name": "Gone Inc", "city": "Nowhere", "industry": "trade"})");
    set("contact", R"({"lastName": "Twin", "company": ")" + twin + R"("})");
    set("contact", R"({"lastName": "Orphan", "company": ")" + gone + R"("})");
    int status = -1;
    admin(ada, "record remove company " + gone, "", &status);
    ASSERT_EQ(status, 0);
    openWorkspace();
    VTSheet* company = workspace->sheetNamed_("company"_ns);
    store(company, "demo-company-3", "industry", "mining"_ns);

    VTSheet* contact = window("contact");
    void* combo = handle(control(contact, "company"));
    select(contact, rowShowing(contact, 1, "Twin"));
    // The pop-up stands on the twin's own entry, not the first equal text.
    int chosen = probeComboSelection(combo);
    ASSERT_GE(chosen, 0);
    EXPECT_EQ(probeComboItem(combo, chosen), "Blue Byte Labs Brno");
    EXPECT_EQ(value(static_cast<NSDictionary*>(contact->referenceObjects()->objectForKey_(
                            NSString::stringWithFormat_("company-%d", chosen))),
                    "__recordId"),
              twin);
    type(contact, "phone", "+420 1");
    press(contact, contact->saveButton());
    NSDictionary* saved =
            contact->matrix()
                            ->objectsWithValue_inColumn_("Twin"_ns, "lastName"_ns)
                            ->objectAtIndex_(0)
                    ? static_cast<NSDictionary*>(
                              contact->matrix()
                                      ->objectsWithValue_inColumn_("Twin"_ns, "lastName"_ns)
                                      ->objectAtIndex_(0))
                    : nullptr;
    EXPECT_EQ(value(saved, "phone"), "+420 1");
    EXPECT_EQ(value(saved, "company"), twin);

    // A reference to a removed record: a marked entry, kept by the Save.
    select(contact, rowShowing(contact, 1, "Orphan"));
    int count = probeComboCount(combo);
    EXPECT_EQ(probeComboSelection(combo), count - 1);
    EXPECT_EQ(probeComboItem(combo, count - 1), gone + " (not among the choices)");
    type(contact, "phone", "+420 2");
    press(contact, contact->saveButton());
    saved = static_cast<NSDictionary*>(
            contact->matrix()
                    ->objectsWithValue_inColumn_("Orphan"_ns, "lastName"_ns)
                    ->objectAtIndex_(0));
    EXPECT_EQ(value(saved, "phone"), "+420 2");
    EXPECT_EQ(value(saved, "company"), gone);

    // An enum value outside the list: shown marked, kept by a Save of
    // another field, replaced only by the user's choice.
    VTSheet* companies = window("company");
    void* industry = handle(control(companies, "industry"));
    select(companies, rowShowing(companies, 1, "Kettle & Co"));
    ASSERT_EQ(probeComboCount(industry), 5);
    EXPECT_EQ(probeComboItem(industry, 4), "mining (not among the choices)");
    EXPECT_EQ(probeComboSelection(industry), 4);
    type(companies, "city", "Graz");
    press(companies, companies->saveButton());
    EXPECT_EQ(value(record(companies, "demo-company-3"), "industry"), "mining");
    EXPECT_EQ(value(record(companies, "demo-company-3"), "city"), "Graz");
    select(companies, rowShowing(companies, 1, "Kettle & Co"));
    probeComboChoose(industry, 1);
    press(companies, companies->saveButton());
    EXPECT_EQ(value(record(companies, "demo-company-3"), "industry"), "trade");
    // The marked entry went with the record that needed it.
    EXPECT_EQ(probeComboCount(industry), 4);
}

TEST_F(SheetWindowTest, RightsHiddenFieldsAndMessageStates) {
    std::string adaId = jsonValue(admin(ada, "record list user"), "__recordId");
    ASSERT_FALSE(adaId.empty());
    std::string toAda = set("message", R"({"subject": "Hello", "whom": ")" + adaId + R"("})");
    std::string toBob = set("message", R"({"subject": "For Bob", "whom": ")" + adaId + R"("})");
    // Ada keeps staff and designer, and gives up administrator.
    set("user", R"({"__recordId": ")" + adaId + R"(", "groups": "demo-group-designers"})");
    openWorkspace();
    VTSheet* inbox = workspace->sheetNamed_("message"_ns);
    store(inbox, toAda, "status", "delivered"_ns);
    store(inbox, toAda, "__creator", "Bob Peer/Sales/Demo"_ns);
    // Addressed to a user of another installation: no user row here, so
    // that nothing is queued for anyone.
    store(inbox, toBob, "whom", "bob-elsewhere"_ns);
    store(inbox, toBob, "status", "delivered"_ns);
    inbox = window("message");

    // The hidden status has neither control nor label.
    EXPECT_EQ(control(inbox, "status"), nullptr);
    for (uint32_t i = 0; i < inbox->guiObjects()->count(); i++) {
        auto* label = NSDynamicCast<NSTextField>(inbox->guiObjects()->objectAtIndex_(i));
        if (label) {
            EXPECT_NE(probeText(handle(label)), "Status");
        }
    }
    // The addressee's first look turns "delivered" into "read"; someone
    // else's message can't be changed or removed by her.
    ASSERT_EQ(probeListCount(list(inbox)), 1);
    select(inbox, 0);
    EXPECT_EQ(text(inbox, "subject"), "Hello");
    EXPECT_EQ(value(record(inbox, toAda.c_str()), "status"), "read");
    EXPECT_FALSE(probeEnabled(handle(inbox->saveButton())));
    EXPECT_FALSE(probeEnabled(handle(inbox->removeButton())));
    // A new message is stored as "sent", the hidden field written by the
    // sheet's hook inside the Save.
    press(inbox, inbox->newButton());
    type(inbox, "subject", "Note to self");
    probeComboChoose(handle(control(inbox, "whom")), 0);
    press(inbox, inbox->saveButton());
    NSArray* notes = inbox->matrix()->objectsWithValue_inColumn_("Note to self"_ns, "subject"_ns);
    ASSERT_EQ(notes->count(), 1u);
    EXPECT_EQ(value(static_cast<NSDictionary*>(notes->objectAtIndex_(0)), "status"), "sent");
    EXPECT_EQ(value(static_cast<NSDictionary*>(notes->objectAtIndex_(0)), "whom"), adaId);
    // The sender looking at what she sent changes nothing, and may remove
    // her own message (removeown).
    VTSheet* outbox = window("outbox");
    int row = rowShowing(outbox, 1, "For Bob");
    ASSERT_GE(row, 0);
    select(outbox, row);
    EXPECT_EQ(value(record(inbox, toBob.c_str()), "status"), "delivered");
    EXPECT_TRUE(probeEnabled(handle(outbox->removeButton())));

    // updateown: her own companies, not Bob's; the industry, reserved to
    // administrators, shows its value in a disabled control.
    VTSheet* company = workspace->sheetNamed_("company"_ns);
    store(company, "demo-company-2", "__creator", "Bob Peer/Sales/Demo"_ns);
    company = window("company");
    void* industry = handle(control(company, "industry"));
    EXPECT_FALSE(probeEnabled(industry));
    select(company, rowShowing(company, 1, "Northwind Software"));
    EXPECT_TRUE(probeEnabled(handle(company->saveButton())));
    EXPECT_TRUE(probeEnabled(handle(company->removeButton())));
    EXPECT_EQ(probeComboSelection(industry), 0);
    select(company, rowShowing(company, 1, "Blue Byte Labs"));
    EXPECT_FALSE(probeEnabled(handle(company->saveButton())));
    EXPECT_FALSE(probeEnabled(handle(company->removeButton())));
}

TEST_F(SheetWindowTest, ActionButtonsStartTheirClassesByName) {
    openWorkspace();
    VTSheet* released = workspace->sheetNamed_("visit"_ns);
    ASSERT_NE(released, nullptr);
    VTSheet* forms = window("form");
    NSObject* test = forms->guiObjects()->objectAtIndex_(3);
    EXPECT_EQ(probeText(handle(test)), "Test form");
    // Every action works on a selected record: without one, nothing.
    press(forms, test);
    EXPECT_EQ(workspace->sheetNamed_("visit"_ns), released);
    select(forms, rowShowing(forms, 1, "visit"));
    press(forms, test);
    VTSheet* visit = workspace->sheetNamed_("visit"_ns);
    ASSERT_NE(visit, released);
    ASSERT_NE(visit->window(), nullptr);
    EXPECT_TRUE(probeVisible(windowHandle(visit)));
    EXPECT_EQ(probeText(windowHandle(visit)), "Visit reports");
    for (const char* key : {"subject", "company", "when", "outcome", "people", "notes"})
        EXPECT_NE(control(visit, key), nullptr) << key;
    // The reference lists come from the companies' and contacts' tables.
    EXPECT_EQ(probeComboCount(handle(control(visit, "company"))), 3);
    EXPECT_EQ(probeListCount(handle(control(visit, "people"))), 3);
    EXPECT_EQ(probeComboItem(handle(control(visit, "outcome")), 1), "agreed");
    EXPECT_EQ(text(visit, "outcome"), "open");
}

TEST_F(SheetWindowTest, AnIncomingChangeReloadsTheTableAndSparesTheForm) {
    // Bob's installation beside Ada's: his user record and key, the
    // demo's configuration, and every record pushed to him.
    std::string bobDir = root + "/bob";
    std::string bob = set("user", R"({"firstName": "Bob", "lastName": "Peer", "orgUnit": "Sales",
                                      "company": "Demo", "role": "manager",
                                      "groups": "demo-group-admins"})");
    int status = -1;
    std::string keyFile =
            lastLine(admin(ada, "key make " + bob + " --password-stdin", "bobpw\n", &status));
    ASSERT_EQ(status, 0) << keyFile;
    shell("mkdir -p " + quote(bobDir + "/userkey") + " " + quote(bobDir + "/data") + " && cp -r " +
                  quote(env("VANTOR_SOURCE_DIR") + "/demo/conf") + " " + quote(bobDir) + " && mv " +
                  quote(ada + "/" + keyFile) + " " + quote(bobDir + "/userkey/") +
                  " && echo 127.0.0.1 > " + quote(bobDir + "/transceiver.txt"),
          &status);
    ASSERT_EQ(status, 0);
    admin(ada, "record action user " + bob + " VTActionPushSpaces", "", &status);
    ASSERT_EQ(status, 0);

    // The relay on loopback, on a free port.
    std::string relayLog = root + "/relay.log";
    shell("mkdir -p " + quote(root + "/relay"));
    std::string pid = lastLine(shell(
            quote(env("VANTOR_RELAY_PATH")) + " --bind 127.0.0.1 --port 0 --timeout 2 --dir " +
            quote(root + "/relay") + " > " + quote(relayLog) + " 2>&1 & echo $!"));
    int port = 0;
    ASSERT_TRUE(vt_test::waitUntil([&] {
        std::ifstream in(relayLog);
        std::string line;
        while (std::getline(in, line))
            if (line.rfind("listening on port ", 0) == 0) port = std::atoi(line.c_str() + 18);
        return port > 0;
    }));
    std::string sync = "sync --timeout 2 --port " + std::to_string(port);
    std::string out = admin(ada, sync, "", &status);
    ASSERT_EQ(status, 0) << out;
    out = admin(bobDir, sync, "", &status, "bobpw");
    ASSERT_EQ(status, 0) << out;
    // Bob moves Blue Byte Labs to Olomouc while Ada's client is closed.
    set("company", R"({"__recordId": "demo-company-2", "city": "Olomouc"})", bobDir, "bobpw");
    out = admin(bobDir, sync, "", &status, "bobpw");
    ASSERT_EQ(status, 0) << out;

    // Ada edits Northwind in the form when the change arrives.
    openWorkspace();
    VTSheet* company = window("company");
    company->show();
    select(company, rowShowing(company, 1, "Northwind Software"));
    int32_t active = company->activeRow();
    type(company, "city", "Typed, not saved");
    // One check cycle on a thread of its own, as the transceiver's runs,
    // while this thread serves the windows.
    struct Check {
        uint32_t port;
        NSString* host;
    } check{static_cast<uint32_t>(port), workspace->joinTransceiver()};
    void* thread = probeStartThread(
            [](void* arg) {
                auto* c = static_cast<Check*>(arg);
                NSAutoreleasePoolScope threadPool;
                LXTransceiver::defaultTransceiver()->checkWithPort_host_(c->port, c->host);
            },
            &check);
    ASSERT_NE(thread, nullptr);
    while (!probeThreadDone(thread)) {
        probePump();
        vtSleepMilliseconds(1);
    }
    probePump();
    shell("kill " + pid);

    EXPECT_EQ(value(record(company, "demo-company-2"), "city"), "Olomouc");
    int row = rowShowing(company, 1, "Blue Byte Labs");
    ASSERT_GE(row, 0);
    EXPECT_EQ(probeListText(list(company), row, 2), "Olomouc");
    EXPECT_EQ(probeListText(list(company), row, 0), "*");
    // The form is as the user left it.
    EXPECT_EQ(company->activeRow(), active);
    EXPECT_EQ(text(company, "name"), "Northwind Software");
    EXPECT_EQ(text(company, "city"), "Typed, not saved");

    // Her Save goes out to Bob as one delta and leaves Bob's change be.
    uint32_t before = queued();
    press(company, company->saveButton());
    EXPECT_EQ(value(record(company, "demo-company-1"), "city"), "Typed, not saved");
    EXPECT_EQ(value(record(company, "demo-company-2"), "city"), "Olomouc");
    EXPECT_EQ(queued(), before + 1);
}

TEST_F(SheetWindowTest, TheHistoryOfARecordAndARestore) {
    openWorkspace();
    VTSheet* company = window("company");
    company->show();
    EXPECT_EQ(probeText(handle(company->historyButton())), "History");
    EXPECT_FALSE(probeEnabled(handle(company->historyButton())));
    select(company, rowShowing(company, 1, "Northwind Software"));
    type(company, "city", "Ostrava");
    press(company, company->saveButton());
    select(company, rowShowing(company, 1, "Northwind Software"));
    ASSERT_TRUE(probeEnabled(handle(company->historyButton())));
    press(company, company->historyButton());

    auto* window = static_cast<NSWindow*>(company->historyWindow());
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(probeVisible(window->hWnd()));
    EXPECT_EQ(probeText(window->hWnd()), "History: Companies");
    void* entries = handle(company->historyTable());
    ASSERT_EQ(probeListCount(entries), 1);
    EXPECT_EQ(probeListText(entries, 0, 0), "city");
    EXPECT_EQ(probeListText(entries, 0, 1), "1");
    EXPECT_EQ(probeListText(entries, 0, 2), "Prague");
    ASSERT_EQ(probeListColumns(entries), 4);
    NSArray* history = company->historyOfRecordWithId_("demo-company-1"_ns);
    EXPECT_EQ(probeListText(entries, 0, 3),
              str(static_cast<NSDictionary*>(history->objectAtIndex_(0))
                          ->objectForKey_("writer"_ns)));

    // Restore writes the old value back as a new change; the value it
    // replaces joins the history.
    probeSelectRow(entries, 0, true);
    probePump();
    probeSend(window->hWnd(), kProbeCommand,
              static_cast<uintptr_t>(static_cast<NSControl*>(company->restoreButton())->uid()), 0);
    probePump();
    EXPECT_EQ(value(record(company, "demo-company-1"), "city"), "Prague");
    ASSERT_EQ(probeListCount(entries), 2);
    EXPECT_EQ(probeListText(entries, 0, 2), "Ostrava");
    EXPECT_EQ(company->activeRow(), -1);
}

TEST_F(SheetWindowTest, EnterAndEscapeAnswerTheRealDialogs) {
    openWorkspace();
    VTSheet* company = window("company");
    company->show();
    // Real message boxes for this test, answered from the keyboard.
    probeSetEnvironment("VANTOR_NONINTERACTIVE", nullptr);
    select(company, rowShowing(company, 1, "Kettle & Co"));
    probeAnswerNextDialog(kProbeEscape);
    press(company, company->removeButton());
    EXPECT_EQ(probeDialogSeen(), "Removing: Are you sure?");
    EXPECT_EQ(company->matrix()->numberOfRows(), 3u);
    EXPECT_EQ(text(company, "name"), "Kettle & Co");

    probeAnswerNextDialog(kProbeReturn);
    press(company, company->removeButton());
    EXPECT_EQ(probeDialogSeen(), "Removing: Are you sure?");
    EXPECT_EQ(company->matrix()->numberOfRows(), 2u);
    EXPECT_EQ(probeListCount(list(company)), 2);

    press(company, company->newButton());
    type(company, "city", "Linz");
    probeAnswerNextDialog(kProbeReturn);
    press(company, company->saveButton());
    EXPECT_EQ(probeDialogSeen(), "Validation error: Field 'Name' must not be empty.");
    EXPECT_EQ(company->matrix()->numberOfRows(), 2u);
    EXPECT_EQ(text(company, "city"), "Linz");
    probeSetEnvironment("VANTOR_NONINTERACTIVE", "1");
}

TEST_F(SheetWindowTest, RowsColumnsAndButtonsOfAnyDefinition) {
    // One more sheet for this installation: two texts around a hidden
    // field, a multi-line text, an enum without values, two stamp columns
    // in the reverse of their order, two actions.
    std::string conf;
    {
        std::ifstream in(ada + "/conf/cro.vtr");
        conf.assign(std::istreambuf_iterator<char>(in), {});
    }
    conf.insert(conf.rfind(')'),
                " ((name layout labelled (Layout)) (field a as string) (hiddenfield h as string)"
                " (field b as string) (formfield m as multiline) (field e as enum ())"
                " (modifierInView) (createdInView)"
                " (action (One) VTActionCSVExport perform) (action (Two) VTActionCreatePDF "
                "perform))\n");
    std::ofstream(ada + "/conf/cro.vtr") << conf;
    openWorkspace();
    VTSheet* layout = window("layout");
    ASSERT_NE(layout, nullptr);
    // Rows r = 55, 80, 105 and 230, the hidden field leaving no gap; the
    // information lines at 255 to 315. A label's top is r - 20.
    std::vector<std::pair<std::string, int>> labels;
    for (uint32_t i = 0; i < layout->guiObjects()->count(); i++) {
        auto* view = NSDynamicCast<NSTextField>(layout->guiObjects()->objectAtIndex_(i));
        if (view) labels.push_back({probeText(handle(view)), probeRectInParent(handle(view)).top});
    }
    std::vector<std::pair<std::string, int>> expected = {
            {"A", 35},        {"B", 60},        {"M", 85},         {"E", 210},
            {"Creator", 235}, {"Created", 255}, {"Modifier", 275}, {"Modified", 295}};
    EXPECT_EQ(labels, expected);
    EXPECT_EQ(control(layout, "h"), nullptr);
    EXPECT_EQ(probeComboCount(handle(control(layout, "e"))), 0);
    std::vector<std::string> headers;
    for (int c = 0; c < probeListColumns(list(layout)); c++)
        headers.push_back(probeListColumnTitle(list(layout), c));
    EXPECT_EQ(headers, (std::vector<std::string>{"", "A", "B", "E", "Created", "Modifier"}));
    EXPECT_EQ(probeRectInParent(handle(layout->guiObjects()->objectAtIndex_(3))).left, 330);
    EXPECT_EQ(probeRectInParent(handle(layout->guiObjects()->objectAtIndex_(4))).left, 435);
    EXPECT_EQ(static_cast<NSResponder*>(control(layout, "a"))->nextResponder(),
              control(layout, "b"));
    EXPECT_EQ(static_cast<NSResponder*>(control(layout, "b"))->nextResponder(),
              control(layout, "m"));
    EXPECT_EQ(static_cast<NSResponder*>(control(layout, "m"))->nextResponder(),
              control(layout, "a"));
}

TEST_F(SheetWindowTest, InATabPageAsInAWindow) {
    openWorkspace();
    // A window with a tab view, as the main window has one: the sheet's
    // screen is built in the tab's page, whose controls come up from the
    // page's timer.
    Ref<NSWindow> main = adoptRef(NSWindow::alloc()->initWithContentRect_styleMask_backing_defer_(
            NSMakeRect(10, 10, 850, 690), 1, 2, true));
    Ref<NSTabView> tabs = adoptRef(static_cast<NSTabView*>(
            NSTabView::alloc()->initWithFrame_(NSMakeRect(0, 0, 843, 611))));
    main->contentView()->addSubview_(tabs);
    Ref<NSTabViewItem> item = adoptRef(NSTabViewItem::alloc()->initWithIdentifier_("Companies"_ns));
    tabs->addTabViewItem_(item);
    VTSheet* company = workspace->sheetNamed_("company"_ns);
    company->show_(item->view());
    EXPECT_EQ(company->window(), nullptr);
    probePumpWaiting(300);
    void* name = handle(control(company, "name"));
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(probeParent(name), item->view()->currentHWnd());
    // Rows count from the top of the page as in a window.
    EXPECT_EQ(probeRectInParent(name).top, 35);
    EXPECT_EQ(probeRectInParent(handle(company->newButton())).top, 5);
    EXPECT_EQ(probeListCount(list(company)), 3);
    select(company, rowShowing(company, 1, "Northwind Software"));
    EXPECT_EQ(text(company, "name"), "Northwind Software");
}

}  // namespace
