// The login's rule without native windows: the objects keep their state in
// fields here, and the beep is a BEL on standard error, so each wrong
// password can be counted as the one beep it makes.
#include "app/VTAppDelegate.h"
#include "app/VTLogin.h"
#include "app/VTMainWindow.h"
#include "sync/LXTransceiver.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSStatusBar.h"
#include "toolkit/NSTabView.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSWindow.h"
#include "workspace_fixture.h"

class LoginTest : public WorkspaceTest {
protected:
    void SetUp() override {
        WorkspaceTest::SetUp();
        NSApplication::sharedApplication()->setDelegate_(
                NSAutorelease(VTAppDelegate::alloc()->init()));
        LXTransceiver::defaultTransceiver()->setLifetime_(NSDate::date());
        writeFile("conf/cro.vtr", kSmallConfiguration);
        storeRecords("role", {{{"__recordId", "r1"}, {"name", "seers"}}});
        storeRecords("group", {{{"__recordId", "g1"}, {"name", "Staff"}, {"roles", "r1"}}});
        storeRecords("user", {{{"__recordId", "u1"},
                               {"firstName", "Ada"},
                               {"lastName", "Lovelace"},
                               {"orgUnit", "Demo"},
                               {"company", "Acme"},
                               {"groups", "g1"}}});
        _workspace = build(key("Ada Lovelace/Demo/Acme", "u1", "Secret"));
        ASSERT_NE(_workspace, nullptr);
        VTAssembleWindows(_workspace);
    }
    void TearDown() override {
        NSApplication::sharedApplication()->setDelegate_(nullptr);
        if (_workspace) _workspace->release();
        WorkspaceTest::TearDown();
    }

    // Types the password and presses the login button; answers the beeps.
    static int login(const char* password) {
        VTClientWindows& w = VTWindows();
        w.passwordField->setStringValue_(ns(password));
        testing::internal::CaptureStderr();
        w.loginButton->fire();
        std::string err = testing::internal::GetCapturedStderr();
        return static_cast<int>(std::count(err.begin(), err.end(), '\a'));
    }

    VTWorkspace* _workspace = nullptr;
};

TEST_F(LoginTest, EachWrongPasswordBeepsOnceAndLeavesAllAsItWas) {
    VTClientWindows& w = VTWindows();
    NSApplication* application = NSApplication::sharedApplication();
    uint32_t trayItems = NSStatusBar::systemStatusBar()->items()->count();
    for (const char* wrong : {"secret", "Secret ", " Secret", "", "Secret\t"}) {
        EXPECT_EQ(login(wrong), 1) << wrong;
        EXPECT_STREQ(w.passwordField->stringValue()->UTF8String(), "") << wrong;
        EXPECT_FALSE(w.passwordField->isHidden());
        EXPECT_FALSE(w.loginButton->isHidden());
        EXPECT_EQ(application->mainWindow(), w.loginWindow.get());
        EXPECT_EQ(w.mainTabView->numberOfTabViewItems(), 0);
        EXPECT_EQ(NSStatusBar::systemStatusBar()->items()->count(), trayItems);
    }
}

TEST_F(LoginTest, TheRightPasswordMakesOneTabPerVisibleSheet) {
    VTClientWindows& w = VTWindows();
    EXPECT_EQ(login("Secret"), 0);
    EXPECT_TRUE(w.passwordField->isHidden());
    EXPECT_TRUE(w.loginButton->isHidden());
    EXPECT_EQ(NSApplication::sharedApplication()->mainWindow(), w.mainWindow.get());
    // Only the task sheet restricts seeing to seers, Ada's role; the others
    // restrict nothing and so grant nothing.
    ASSERT_EQ(w.mainTabView->numberOfTabViewItems(), 1);
    EXPECT_EQ(str(w.mainTabView->tabViewItemAtIndex_(0)->identifier()), "Open tasks");
    EXPECT_EQ(w.visibleSheets->count(), 1u);
    EXPECT_EQ(NSStatusBar::systemStatusBar()->items()->count(), 1u);
}
