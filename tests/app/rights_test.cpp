// Users, groups and rights on a small set: the implications between rights,
// pooled group names, missing ids, and the end of a run whose user row has
// changed (in a child process, since the alert ends the process).
#include <sys/wait.h>

#include "workspace_fixture.h"

namespace {

class RightsTest : public WorkspaceTest {
protected:
    void SetUp() override {
        WorkspaceTest::SetUp();
        writeFile("conf/cro.vtr", std::string(kSmallConfiguration, sizeof kSmallConfiguration - 3) +
                                          " ((name seeonly) (field title as string) (restrict see "
                                          "(seers)) (restrict update (editors)))\n"
                                          " ((name removable) (field title as string) (restrict "
                                          "removeown (owners)))\n"
                                          " ((name plain) (field title as string))\n"
                                          ")\n");
        storeRecords("role", {{{"__recordId", "r-owner"}, {"name", "owners"}},
                              {{"__recordId", "r-seer"}, {"name", "seers"}},
                              {{"__recordId", "r-editor"}, {"name", "editors"}}});
        // Two records named Staff pool their roles; the user belongs to the
        // first only. "r-gone" names no role.
        storeRecords("group",
                     {{{"__recordId", "g-staff1"}, {"name", "Staff"}, {"roles", "r-owner"}},
                      {{"__recordId", "g-staff2"}, {"name", "Staff"}, {"roles", "r-gone  r-seer"}},
                      {{"__recordId", "g-empty"}, {"name", "Empty"}},
                      {{"__recordId", "g-editors"}, {"name", "Editors"}, {"roles", "r-editor"}}});
        storeRecords("user", {{{"__recordId", "u-ada"},
                               {"firstName", "Ada"},
                               {"lastName", "Lovelace"},
                               {"orgUnit", "Demo"},
                               {"company", "Acme"},
                               {"role", "editor"},
                               {"groups", "g-staff1 g-removed g-empty"}},
                              {{"__recordId", "u-bob"},
                               {"firstName", "Bob"},
                               {"lastName", "Builder"},
                               {"orgUnit", "Sales"},
                               {"company", "Acme"},
                               {"role", "author"},
                               {"groups", "g-editors"}}});
        // The key's UniqueID differs from the row's id on purpose.
        w = build(key("Ada Lovelace/Demo/Acme", "u-other"));
        ASSERT_NE(w, nullptr);
    }
    void TearDown() override {
        NSRelease(w);
        WorkspaceTest::TearDown();
    }
    VTSheet* sheet(const char* name) { return w->sheetNamed_(ns(name)); }
    // The seven answers for a sheet, as letters: see read deposit update
    // updateown remove removeown.
    std::string rights(const char* name) {
        VTSheet* s = sheet(name);
        std::string out;
        out += w->currentUserCanSee_(s) ? 'S' : '-';
        out += w->currentUserCanRead_(s) ? 'R' : '-';
        out += w->currentUserCanDeposit_(s) ? 'D' : '-';
        out += w->currentUserCanUpdate_(s) ? 'U' : '-';
        out += w->currentUserCanUpdateOwn_(s) ? 'u' : '-';
        out += w->currentUserCanRemove_(s) ? 'X' : '-';
        out += w->currentUserCanRemoveOwn_(s) ? 'x' : '-';
        return out;
    }
    static std::string joined(NSArray* a) {
        std::string out;
        for (uint32_t i = 0; i < a->count(); i++) out += (i ? "," : "") + str(a->objectAtIndex_(i));
        return out;
    }
    // The row of the user of that first name.
    uint32_t rowOf(const char* first) {
        VTMatrix* m = sheet("user")->matrix();
        for (uint32_t i = 0; i < m->numberOfRows(); i++)
            if (str(m->valueInRow_column_(i, "firstName"_ns)) == first) return i;
        return UINT32_MAX;
    }
    VTWorkspace* w = nullptr;
};

TEST_F(RightsTest, GroupsAndRolesOfTheCurrentUser) {
    EXPECT_EQ(w->currentUserRow(), static_cast<int32_t>(rowOf("Ada")));
    EXPECT_EQ(str(w->currentUserRole()), "editor");
    EXPECT_EQ(sheet("task")->currentUserRole(), 3);
    // The removed group is passed over; the empty one still counts as a
    // group.
    EXPECT_EQ(joined(w->currentUserGroups()), "Staff,Empty");
    NSMutableSet* roles = w->rolesForCurrentUser();
    EXPECT_EQ(roles->count(), 2u);
    EXPECT_TRUE(roles->member_("owners"_ns));
    EXPECT_TRUE(roles->member_("seers"_ns));  // from the other Staff record
}

TEST_F(RightsTest, RightsImplyOneAnotherUpward) {
    // updateown alone: see, read and deposit follow.
    EXPECT_EQ(rights("task"), "SRD-u--");
    // see alone: a tab, nothing more.
    EXPECT_EQ(rights("seeonly"), "S------");
    // removeown alone: read and see, no deposit.
    EXPECT_EQ(rights("removable"), "SR----x");
    // No restrict clause: invisible to everybody.
    EXPECT_EQ(rights("plain"), "-------");
    EXPECT_TRUE(w->currentUserCanDoAction_inSheet_("updateown"_ns, sheet("task")));
    EXPECT_FALSE(w->currentUserCanDoAction_inSheet_("read"_ns, sheet("task")));
}

TEST_F(RightsTest, EveryQuestionReadsTheSheetsAfresh) {
    VTMatrix* users = sheet("user")->matrix();
    // Only the group without roles: no rights at all.
    users->setValue_inRow_column_("g-empty"_ns, rowOf("Ada"), "groups"_ns);
    EXPECT_EQ(rights("task"), "-------");
    EXPECT_EQ(rights("seeonly"), "-------");
    // The editors' group brings update, and with it deposit.
    users->setValue_inRow_column_("g-editors"_ns, rowOf("Ada"), "groups"_ns);
    EXPECT_EQ(rights("task"), "SRDU---");
    EXPECT_EQ(rights("seeonly"), "SRDU---");
}

TEST_F(RightsTest, UsersByIdentityAndByUniqueString) {
    std::string all = joined(w->allUsers());
    EXPECT_NE(all.find("Ada Lovelace/Demo/Acme"), std::string::npos);
    EXPECT_NE(all.find("Bob Builder/Sales/Acme"), std::string::npos);
    EXPECT_EQ(joined(w->allOtherUsers()), "Bob Builder/Sales/Acme");
    EXPECT_EQ(str(w->currentUserUniqueId()), "Ada Lovelace/Demo/Acme-u-other");
    // The key's UniqueID is not the row's id, so the current user stays in
    // the list of others by unique string.
    std::string others = joined(w->allOtherUsersWithUniqueID());
    EXPECT_NE(others.find("Ada Lovelace/Demo/Acme-u-ada"), std::string::npos) << others;
    EXPECT_NE(others.find("Bob Builder/Sales/Acme-u-bob"), std::string::npos) << others;
    EXPECT_EQ(VTWorkspace::roleWithString_("manager"_ns), 4);
    EXPECT_EQ(VTWorkspace::roleWithString_("editor"_ns), 3);
    EXPECT_EQ(VTWorkspace::roleWithString_("author"_ns), 2);
    EXPECT_EQ(VTWorkspace::roleWithString_("depositor"_ns), 1);
    EXPECT_EQ(VTWorkspace::roleWithString_("Manager"_ns), 0);
    EXPECT_EQ(VTWorkspace::roleWithString_(nullptr), 0);
}

// Runs the question in a child whose standard output goes to a file;
// answers the child's exit status (99 if the question returned) and output.
template <class F>
std::pair<int, std::string> inChild(F&& question) {
    std::fflush(stdout);
    std::string out = testing::TempDir() + "vantor-rights-child-" + std::to_string(getpid());
    pid_t pid = fork();
    if (pid == 0) {
        if (!std::freopen(out.c_str(), "w", stdout)) _exit(98);
        // ctest sets it for every test; a direct run of the program needs it here.
        setenv("VANTOR_NONINTERACTIVE", "1", 1);
        question();
        std::fflush(stdout);
        _exit(99);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    std::string text = WorkspaceTest::readFile(out);
    std::remove(out.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

TEST_F(RightsTest, AChangedIdentityRowEndsTheRunAtTheNextQuestion) {
    EXPECT_TRUE(w->currentUserCanSee_(sheet("task")));
    sheet("user")->matrix()->setValue_inRow_column_("Byron"_ns, rowOf("Ada"), "lastName"_ns);
    auto [status, out] = inChild([&] { w->currentUserCanSee_(sheet("task")); });
    // The alert, then terminate: with no delegate set: exit(0).
    EXPECT_EQ(status, 0);
    EXPECT_EQ(out, "alert: Error: No match between user key and database.\n");
}

TEST_F(RightsTest, AnUnknownKeyMeetsTheEndAlsoOnASheetThatRestrictsNothing) {
    VTWorkspace* stranger = build(key("Eve Other/Demo/Acme", "u-eve"));
    ASSERT_NE(stranger, nullptr);
    VTSheet* plain = stranger->sheetNamed_("plain"_ns);
    auto [status, out] =
            inChild([&] { stranger->currentUserCanDoAction_inSheet_("read"_ns, plain); });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(out, "alert: Error: No match between user key and database.\n");
    stranger->release();
}

TEST_F(RightsTest, ARemovedUserRowEndsTheRunToo) {
    VTMatrix* users = sheet("user")->matrix();
    users->removeRow_(rowOf("Ada"));
    auto [status, out] = inChild([&] { w->currentUserGroups(); });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(out, "alert: Error: No match between user key and database.\n");
}

}  // namespace
