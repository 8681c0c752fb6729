// The login window, the main window and the key generator as native
// windows under Wine's null driver, driven by the messages a person's
// keyboard sends: text in the password field and Enter. A wrong password
// leaves everything as it was with an empty field; the right one opens the
// main window with one tab per sheet the user may see; a key made by the
// generator logs its user in.
#include "app/VTActionUserKeyGenerator.h"
#include "app/VTAppDelegate.h"
#include "app/VTMainWindow.h"
#include "sync/LXTransceiver.h"
#include "tests/toolkit/NativeProbe.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSStatusBar.h"
#include "toolkit/NSTabView.h"
#include "toolkit/NSTableView.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSWindow.h"
#include "workspace_fixture.h"

namespace {

// Ada is staff: she may see the tasks and write notes, and nothing else.
constexpr const char kConfiguration[] =
        "(((name role) (field name as string) (restrict see (admins)))\n"
        " ((name group) (field name as string) (field roles as string))\n"
        " ((name user) (field firstName as string) (field lastName as string)\n"
        "  (field orgUnit as string) (field company as string) (field groups as string)\n"
        "  (restrict read (admins)))\n"
        " ((name task labelled (Open tasks)) (field title as string) (restrict see (staff)))\n"
        " ((name secret) (field text as string) (restrict read (admins)))\n"
        " ((name note labelled (My notes)) (field text as string) (restrict deposit (staff))))\n";

bool sameRect(NSNativeRect a, NSNativeRect b) {
    return a.left == b.left && a.top == b.top && a.width == b.width && a.height == b.height;
}

}  // namespace

class LoginWindowTest : public Win32WorkspaceTest {
protected:
    void SetUp() override {
        Win32WorkspaceTest::SetUp();
        NSInitCommonControls();
        NSApplication::sharedApplication()->setDelegate_(
                NSAutorelease(VTAppDelegate::alloc()->init()));
        // The transceiver started at login makes one cycle and ends.
        LXTransceiver::defaultTransceiver()->setLifetime_(NSDate::date());
        writeFile("conf/cro.vtr", kConfiguration);
        storeRecords("role", {{{"__recordId", "r-staff"}, {"name", "staff"}}});
        storeRecords("group", {{{"__recordId", "g1"}, {"name", "Staff"}, {"roles", "r-staff"}}});
        storeRecords("user", {{{"__recordId", "u1"},
                               {"firstName", "Ada"},
                               {"lastName", "Lovelace"},
                               {"orgUnit", "Demo"},
                               {"company", "Acme"},
                               {"groups", "g1"}}});
    }
    void TearDown() override {
        NSApplication::sharedApplication()->setDelegate_(nullptr);
        if (_workspace) _workspace->release();
        Win32WorkspaceTest::TearDown();
    }

    // The workspace of the key and the two windows, the login window shown.
    bool assemble(NSDictionary* userKey) {
        if (_workspace) _workspace->release();
        _workspace = build(userKey);
        if (!_workspace) return false;
        VTAssembleWindows(_workspace);
        return VTWindows().passwordField && VTWindows().passwordField->currentHWnd();
    }
    // Types the text into the password field and presses Enter there.
    static void typeAndEnter(NSTextField* field, const char* text) {
        probeSetText(field->currentHWnd(), text);
        probeSend(field->currentHWnd(), kProbeKeyDown, kProbeReturn, 0);
        probePump();
    }

    VTWorkspace* _workspace = nullptr;
};

TEST_F(LoginWindowTest, EveryControlIsAtItsFrameAndTheMainWindowWaits) {
    ASSERT_TRUE(assemble(key("Ada Lovelace/Demo/Acme", "u1")));
    VTClientWindows& w = VTWindows();
    void* login = w.loginWindow->hWnd();
    void* main = w.mainWindow->hWnd();
    EXPECT_TRUE(probeVisible(login));
    EXPECT_FALSE(probeVisible(main));
    EXPECT_EQ(probeText(login), "Vantor 3.0");
    EXPECT_EQ(probeText(main), "Vantor 3.0");
    EXPECT_EQ(NSApplication::sharedApplication()->mainWindow(), w.loginWindow.get());
    EXPECT_EQ(probeFocus(), w.passwordField->currentHWnd());

    // Native frames: y counted down from the top of the content, 195 high
    // in the login window and 655 in the main window.
    EXPECT_TRUE(sameRect(probeRectInParent(w.passwordField->currentHWnd()), {20, 30, 200, 20}));
    EXPECT_TRUE(sameRect(probeRectInParent(w.loginButton->currentHWnd()), {230, 25, 100, 25}));
    EXPECT_EQ(probeText(w.loginButton->currentHWnd()), "Login");
    EXPECT_TRUE(sameRect(probeRectInParent(w.mainTabView->currentHWnd()), {0, 10, 842, 645}));
    EXPECT_TRUE(sameRect(probeRectInParent(w.hintLine->currentHWnd()), {10, 620, 800, 30}));
    EXPECT_EQ(NSApplication::hintLine(), w.hintLine.get());

    // The labels, top to bottom, as the user reads them.
    std::vector<std::string> texts;
    NSArray* controls = NSApplication::sharedApplication()->controls();
    for (uint32_t i = 0, n = controls->count(); i < n; i++) {
        auto* field = NSDynamicCast<NSTextField>(controls->objectAtIndex_(i));
        if (field && field->currentHWnd() && probeParent(field->currentHWnd()) == login &&
            !field->isEditable())
            texts.push_back(probeText(field->currentHWnd()));
    }
    EXPECT_EQ(texts,
              (std::vector<std::string>{"Ada Lovelace/Demo/Acme", "Vantor version 3.0",
                                        "build 080505", "Copyright (c) the Vantor developers",
                                        "Please report every problem to support@vantor.example."}));

    // File > Quit on the main window.
    void* bar = probeWindowMenu(main);
    ASSERT_EQ(probeMenuCount(bar), 1);
    EXPECT_EQ(probeMenuText(bar, 0), "File");
    void* file = probeSubmenu(bar, 0);
    ASSERT_EQ(probeMenuCount(file), 1);
    EXPECT_EQ(probeMenuText(file, 0), "Quit");
}

TEST_F(LoginWindowTest, AWrongPasswordEmptiesTheFieldAndChangesNothing) {
    ASSERT_TRUE(assemble(key("Ada Lovelace/Demo/Acme", "u1", "Secret")));
    VTClientWindows& w = VTWindows();
    uint32_t trayItems = NSStatusBar::systemStatusBar()->items()->count();
    // Case counts, blanks count; any number of tries.
    for (const char* wrong : {"secret", " Secret", "Secret ", "", "SECRET"}) {
        typeAndEnter(w.passwordField, wrong);
        EXPECT_EQ(probeText(w.passwordField->currentHWnd()), "") << wrong;
        EXPECT_EQ(probeFocus(), w.passwordField->currentHWnd()) << wrong;
        EXPECT_TRUE(probeVisible(w.loginWindow->hWnd())) << wrong;
        EXPECT_TRUE(probeVisible(w.loginButton->currentHWnd())) << wrong;
        EXPECT_FALSE(probeVisible(w.mainWindow->hWnd())) << wrong;
        EXPECT_EQ(probeTabCount(w.mainTabView->currentHWnd()), 0) << wrong;
        EXPECT_EQ(NSApplication::sharedApplication()->mainWindow(), w.loginWindow.get());
        EXPECT_EQ(NSStatusBar::systemStatusBar()->items()->count(), trayItems);
    }
}

TEST_F(LoginWindowTest, TheRightPasswordOpensTheMainWindowWithItsTabs) {
    ASSERT_TRUE(assemble(key("Ada Lovelace/Demo/Acme", "u1", "Secret")));
    VTClientWindows& w = VTWindows();
    typeAndEnter(w.passwordField, "Secret");

    EXPECT_FALSE(probeVisible(w.loginWindow->hWnd()));
    EXPECT_TRUE(probeVisible(w.mainWindow->hWnd()));
    EXPECT_FALSE(probeVisible(w.passwordField->currentHWnd()));
    EXPECT_FALSE(probeVisible(w.loginButton->currentHWnd()));
    EXPECT_EQ(NSApplication::sharedApplication()->mainWindow(), w.mainWindow.get());
    // The sheets Ada may see, in the configuration's order.
    void* tabs = w.mainTabView->currentHWnd();
    ASSERT_EQ(probeTabCount(tabs), 2);
    EXPECT_EQ(probeTabText(tabs, 0), "Open tasks");
    EXPECT_EQ(probeTabText(tabs, 1), "My notes");
    // Each tab's page holds its sheet's table.
    for (int i = 0; i < 2; i++) {
        NSView* page = w.mainTabView->tabViewItemAtIndex_(i)->view();
        auto* sheet = static_cast<VTSheet*>(w.visibleSheets->objectAtIndex_(i));
        EXPECT_EQ(sheet->sheetTableView()->superview(), page) << i;
    }
    EXPECT_FALSE(probeVisible(w.mainTabView->tabViewItemAtIndex_(1)->view()->hWnd()));
    probeChooseTab(tabs, 1);
    EXPECT_TRUE(probeVisible(w.mainTabView->tabViewItemAtIndex_(1)->view()->hWnd()));
    EXPECT_FALSE(probeVisible(w.mainTabView->tabViewItemAtIndex_(0)->view()->hWnd()));

    // The tray icon, kept by the application's delegate.
    NSMutableArray* items = NSStatusBar::systemStatusBar()->items();
    ASSERT_GE(items->count(), 1u);
    auto* item = static_cast<NSStatusItem*>(items->objectAtIndex_(items->count() - 1));
    EXPECT_STREQ(item->title()->UTF8String(), "Vantor");
    EXPECT_EQ(item->target(), NSApplication::sharedApplication()->delegate());
    EXPECT_EQ(item->action(), NS_SEL("statusItemClicked:"));
}

TEST_F(LoginWindowTest, AGeneratedKeyLogsItsUserIn) {
    ASSERT_TRUE(assemble(key("Ada Lovelace/Demo/Acme", "u1")));
    VTSheet* users = _workspace->sheetNamed_("user"_ns);
    ASSERT_NE(users, nullptr);

    Ref<VTActionUserKeyGenerator> generator = NSMake<VTActionUserKeyGenerator>();
    generator->perform__(NSNumber::numberWithInt_(0), users->matrix());
    void* window = generator->window()->hWnd();
    void* first = generator->passwordField()->currentHWnd();
    void* second = generator->passwordAgainField()->currentHWnd();
    EXPECT_TRUE(probeVisible(window));
    EXPECT_EQ(probeText(window), "Password for user key");
    EXPECT_TRUE(sameRect(probeRectInParent(first), {110, 10, 170, 20}));
    EXPECT_TRUE(sameRect(probeRectInParent(second), {110, 40, 170, 20}));
    EXPECT_EQ(probeFocus(), first);
    probeSend(first, kProbeKeyDown, kProbeTab, 0);
    EXPECT_EQ(probeFocus(), second);
    probeSend(second, kProbeKeyDown, kProbeTab, 0);
    EXPECT_EQ(probeFocus(), first);

    // Unequal, or only blanks: the alert, and the window stays.
    const char* file = "Ada_Lovelace__Demo__Acme.vuk";
    for (auto [a, b] : {std::pair{"pass word", "pass  word"}, std::pair{"   ", "   "}}) {
        probeSetText(first, a);
        probeSetText(second, b);
        std::string log = logOf([&] { probeSend(second, kProbeKeyDown, kProbeReturn, 0); });
        EXPECT_EQ(log, "alert: Error: The passwords must be non-empty and equal.\n") << a;
        EXPECT_TRUE(probeVisible(window));
        EXPECT_FALSE(std::filesystem::exists(file));
    }
    // Blanks around the password are not part of it.
    probeSetText(first, " pass word ");
    probeSetText(second, "pass word");
    probeSend(first, kProbeKeyDown, kProbeReturn, 0);
    EXPECT_FALSE(probeVisible(window));
    NSMutableDictionary* made = VTUserKey::userKeyWithContentsOfFile_(ns(file));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(str(made->objectForKey_("UserID"_ns)), "Ada Lovelace/Demo/Acme");
    EXPECT_EQ(str(made->objectForKey_("UniqueID"_ns)), "u1");
    EXPECT_EQ(str(made->objectForKey_("Password"_ns)), "pass word");
    EXPECT_EQ(str(made->objectForKey_("Admin"_ns)), "0");

    // Installed, the key is the one start-up finds, and its password opens
    // the main window; typed with the blanks it does not.
    std::filesystem::rename(file, std::string("userkey/") + file);
    NSMutableDictionary* found = VTUserKey::discoverInDirectory_("userkey"_ns);
    ASSERT_NE(found, nullptr);
    ASSERT_TRUE(assemble(found));
    VTClientWindows& w = VTWindows();
    typeAndEnter(w.passwordField, " pass word ");
    EXPECT_FALSE(probeVisible(w.mainWindow->hWnd()));
    typeAndEnter(w.passwordField, "pass word");
    EXPECT_TRUE(probeVisible(w.mainWindow->hWnd()));
    EXPECT_FALSE(probeVisible(w.loginWindow->hWnd()));
}

TEST_F(LoginWindowTest, EscapeClosesTheGeneratorWithoutAKey) {
    ASSERT_TRUE(assemble(key("Ada Lovelace/Demo/Acme", "u1")));
    Ref<VTActionUserKeyGenerator> generator = NSMake<VTActionUserKeyGenerator>();
    generator->perform__(NSNumber::numberWithInt_(0), _workspace->sheetNamed_("user"_ns)->matrix());
    void* window = generator->window()->hWnd();
    probeSetText(generator->passwordField()->currentHWnd(), "pw");
    probeSetText(generator->passwordAgainField()->currentHWnd(), "pw");
    probeSend(generator->passwordAgainField()->currentHWnd(), kProbeKeyDown, kProbeEscape, 0);
    EXPECT_FALSE(probeVisible(window));
    EXPECT_EQ(generator->fileName(), nullptr);
    EXPECT_FALSE(std::filesystem::exists("Ada_Lovelace__Demo__Acme.vuk"));
}
