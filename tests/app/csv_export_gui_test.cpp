// The CSV export dialog under Wine's null driver, started as a person
// starts it: a row selected in the contact sheet's window and a click on
// its "Export as CSV" button. The name is typed into the dialog's field and
// Enter or Escape pressed there. The file it writes must be byte for byte
// what vantor-admin writes for the same sheet.
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>

#include "app/VTLocalization.h"
#include "app/VTUserKey.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "foundation/platform/Platform.h"
#include "sheets/VTSheet.h"
#include "sheets/VTTableDataSource.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TestSupport.h"
#include "tests/toolkit/NativeProbe.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSWindow.h"

namespace {

using vt_test::quoteShell;

class CSVExportDialogTest : public testing::Test {
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        NSInitCommonControls();
        // The first window of the process is the main window, whose close
        // ends the program: the client makes it before any sheet's.
        if (!NSApplication::sharedApplication()->mainWindow())
            NSWindow::alloc()->initWithContentRect_styleMask_backing_defer_(
                    NSMakeRect(0, 0, 100, 100), 0, 0, false);
        old = std::filesystem::current_path();
        // Linux paths and a Linux shell: the Win32 side of this program
        // would see them on drive Z:.
        char pattern[] = "/tmp/vantor-csv-export-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        const std::string script = std::string(VANTOR_SOURCE_DIR) + "/scripts/new-workdir.sh";
        ASSERT_EQ(std::system(("bash " + quoteShell(script) + " " + quoteShell(dir) +
                               " >/dev/null 2>&1")
                                      .c_str()),
                  0);
        // The reference file, written before the client opens the stores.
        ASSERT_EQ(std::system(("cd " + quoteShell(dir) + " && VANTOR_PASSWORD=vantor-demo " +
                               quoteShell(VANTOR_ADMIN_PATH) +
                               " report csv contact admin >/dev/null 2>&1")
                                      .c_str()),
                  0);

        std::filesystem::current_path(dir);
        ASSERT_TRUE(vtChangeDirectory(("Z:" + dir).c_str()));
        VTInstallLocalizedStrings(VTLocalization::localization()->localizedStrings());
        VTTableDataSource::resetIdentityForTesting();
        NSMutableDictionary* key = VTUserKey::discoverInDirectory_("userkey"_ns);
        ASSERT_NE(key, nullptr);
        workspace = VTWorkspace::alloc()->initWithFile_userInfo_("conf/cro.vtr"_ns, key);
        ASSERT_NE(workspace, nullptr);
        contacts = workspace->sheetNamed_("contact"_ns);
        ASSERT_NE(contacts, nullptr);
        contacts->prepare_(0);
        for (uint32_t i = 0; i < contacts->guiObjects()->count(); i++) {
            auto* button = NSDynamicCast<NSButton>(contacts->guiObjects()->objectAtIndex_(i));
            if (button && probeText(button->currentHWnd()) == "Export as CSV")
                exportButton = button;
        }
        ASSERT_NE(exportButton, nullptr);
    }
    void TearDown() override {
        if (workspace) workspace->release();
        std::filesystem::current_path(old);
        vtChangeDirectory(("Z:" + old.string()).c_str());
        std::filesystem::remove_all(dir);
        VTTableDataSource::resetIdentityForTesting();
        pool->release();
    }

    // A row selected and the action button clicked: the dialog's window.
    void* openDialog() {
        void* list = contacts->sheetTableView()->currentHWnd();
        probeSelectRow(list, -1, false);
        probeSelectRow(list, 0, true);
        probePump();
        probeSend(static_cast<NSWindow*>(contacts->window())->hWnd(), kProbeCommand,
                  static_cast<uintptr_t>(exportButton->uid()), 0);
        probePump();
        return probeFindVisibleWindow("Enter the file name");
    }
    static void press(unsigned key) {
        probeSend(probeFocus(), kProbeKeyDown, key, 0);
        probePump();
    }
    static bool exists(const char* path) { return std::filesystem::exists(path); }

    NSAutoreleasePool* pool = nullptr;
    std::filesystem::path old;
    std::string dir;
    VTWorkspace* workspace = nullptr;
    VTSheet* contacts = nullptr;
    NSButton* exportButton = nullptr;
};

TEST_F(CSVExportDialogTest, TheDialogWritesWhatTheAdminToolWrites) {
    void* window = openDialog();
    ASSERT_NE(window, nullptr);
    // The name field has the focus; the controls at their frames, y
    // counted down from the top of the content.
    void* field = probeFocus();
    EXPECT_EQ(probeParent(field), window);
    NSNativeRect r = probeRectInParent(field);
    EXPECT_EQ((std::vector<int>{r.left, r.top, r.width, r.height}),
              (std::vector<int>{110, 10, 170, 20}));
    std::vector<std::string> buttons;
    NSArray* controls = NSApplication::sharedApplication()->controls();
    for (uint32_t i = 0, n = controls->count(); i < n; i++) {
        auto* b = NSDynamicCast<NSButton>(controls->objectAtIndex_(i));
        if (b && b->currentHWnd() && probeParent(b->currentHWnd()) == window) {
            NSNativeRect f = probeRectInParent(b->currentHWnd());
            buttons.push_back(probeText(b->currentHWnd()) + "@" + std::to_string(f.left) + "," +
                              std::to_string(f.top) + "," + std::to_string(f.width) + "," +
                              std::to_string(f.height));
        }
    }
    EXPECT_EQ(buttons, (std::vector<std::string>{"Export@10,75,90,25", "Close@110,75,90,25"}));

    probeSetText(field, "gui");
    std::string log = vt_test::logOf([&] { press(kProbeReturn); });
    EXPECT_NE(log.find("'export/gui.csv'"), std::string::npos) << log;
    EXPECT_FALSE(probeIsWindow(window) && probeVisible(window));
    std::string expected = vt_test::readFile("export/admin.csv");
    EXPECT_FALSE(expected.empty());
    EXPECT_EQ(vt_test::readFile("export/gui.csv"), expected);

    // A dot keeps the name as typed.
    ASSERT_NE(openDialog(), nullptr);
    probeSetText(probeFocus(), "contacts.txt");
    press(kProbeReturn);
    EXPECT_EQ(vt_test::readFile("export/contacts.txt"), expected);
}

TEST_F(CSVExportDialogTest, AnInvalidNameAlertsAndTheDialogStaysForAnotherTry) {
    void* window = openDialog();
    ASSERT_NE(window, nullptr);
    void* field = probeFocus();
    probeSetText(field, "missing/x");
    std::string log = vt_test::logOf([&] { press(kProbeReturn); });
    EXPECT_NE(log.find("alert: Error: Invalid file name.\n"), std::string::npos) << log;
    EXPECT_TRUE(probeVisible(window));
    EXPECT_FALSE(exists("export/missing"));
    EXPECT_FALSE(exists("export/missing/x.csv"));

    probeSetText(field, "second");
    press(kProbeReturn);
    EXPECT_FALSE(probeIsWindow(window) && probeVisible(window));
    EXPECT_EQ(vt_test::readFile("export/second.csv"), vt_test::readFile("export/admin.csv"));
}

TEST_F(CSVExportDialogTest, EscapeClosesWithoutAFile) {
    void* window = openDialog();
    ASSERT_NE(window, nullptr);
    probeSetText(probeFocus(), "never");
    press(kProbeEscape);
    EXPECT_FALSE(probeIsWindow(window) && probeVisible(window));
    EXPECT_FALSE(exists("export/never.csv"));
}

}  // namespace
