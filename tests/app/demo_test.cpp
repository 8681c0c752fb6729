// The demo installation as the client's start-up meets it: a fresh working
// directory from scripts/new-workdir.sh, seeding, the first-admin key, the
// workspace with every sheet, the first admin's row and what they may see.
#include "app/VTClient.h"
#include "tests/support/RunProgram.h"
#include "workspace_fixture.h"

namespace {

TEST_F(WorkspaceTest, TheDemoStartsWithItsFirstAdmin) {
    std::filesystem::current_path(old);
    std::string work = dir + "/demo";
    ASSERT_EQ(vt_test::runProgram("bash " +
                                  vt_test::quoteShell(std::string(VANTOR_SOURCE_DIR) +
                                                      "/scripts/new-workdir.sh") +
                                  " " + vt_test::quoteShell(work))
                      .status,
              0);
    std::filesystem::current_path(work);
    for (const char* font : {"arial", "arialbold", "times", "timesbold", "tahoma", "tahomabold",
                             "verdana", "verdanabold"})
        EXPECT_GT(std::filesystem::file_size(std::string("fonts/") + font + ".ttf"), 10000u)
                << font;

    VTSeedDataDirectory();
    NSMutableDictionary* k = nullptr;
    EXPECT_EQ(logOf([&] { k = VTUserKey::discoverInDirectory_("userkey"_ns); }),
              "no user unique ID\n");
    ASSERT_NE(k, nullptr);
    EXPECT_EQ(str(k->objectForKey_("UserID"_ns)), "Ada Lovelace/Demo/Admin");
    EXPECT_EQ(str(k->objectForKey_("Password"_ns)), "vantor-demo");

    std::string log;
    VTWorkspace* w = build(k, &log);
    ASSERT_NE(w, nullptr);
    // The interpreter rejects nothing; the only lines are ours.
    EXPECT_EQ(log.find("rejected"), std::string::npos) << log;
    EXPECT_NE(log.find("first admin: 1\n"), std::string::npos) << log;
    // The configuration's 14 sheets, then the released designed form.
    EXPECT_EQ(w->listOfSheets()->count(), 15u);
    for (const char* required : {"user", "group", "role", "form", "formfield", "message"})
        EXPECT_NE(w->sheetNamed_(ns(required)), nullptr) << required;
    EXPECT_EQ(str(w->currentUserGroups()->componentsJoinedByString_(","_ns)), "Admins,Designers");
    NSMutableSet* roles = w->rolesForCurrentUser();
    EXPECT_EQ(roles->count(), 3u);
    for (const char* role : {"administrator", "designer", "staff"})
        EXPECT_TRUE(roles->member_(ns(role))) << role;

    // What the admin gets a tab for; the reader-only view stays hidden.
    std::string visible;
    NSArray* sheets = w->listOfSheets();
    for (uint32_t i = 0; i < sheets->count(); i++) {
        auto* sheet = static_cast<VTSheet*>(sheets->objectAtIndex_(i));
        if (w->currentUserCanSee_(sheet))
            visible += std::string(visible.empty() ? "" : " ") + sheet->name()->UTF8String();
    }
    EXPECT_EQ(visible,
              "role group user form formfield message outbox company contact softwarecontact "
              "project task mytask visit");
    // The designed form shows every kind of form field.
    VTSheet* visit = w->sheetNamed_("visit"_ns);
    ASSERT_NE(visit, nullptr);
    EXPECT_EQ(str(visit->title()), "Visit reports");
    std::string types;
    for (uint32_t i = 0; i < visit->fields()->count(); i++) {
        auto* field = static_cast<NSArray*>(visit->fields()->objectAtIndex_(i));
        types += str(field->objectAtIndex_(0)) + ":" + str(field->objectAtIndex_(1)) + " ";
    }
    EXPECT_EQ(types,
              "subject:string company:reference when:datetimepicker outcome:enum "
              "people:multireference notes:multiline ");
    EXPECT_TRUE(w->currentUserCanUpdate_(visit));
    EXPECT_TRUE(w->currentUserCanUpdate_(w->sheetNamed_("user"_ns)));
    EXPECT_FALSE(w->currentUserCanUpdate_(w->sheetNamed_("message"_ns)));
    EXPECT_TRUE(w->currentUserCanDeposit_(w->sheetNamed_("message"_ns)));

    // Every prepared record was saved by Ada, so that a record pushed to a
    // new user doesn't take the receiver for its creator.
    for (const char* name : {"role", "group", "company", "contact", "project", "task"}) {
        NSArray* records = w->sheetNamed_(ns(name))->matrix()->allObjectsSorted();
        EXPECT_GT(records->count(), 0u) << name;
        for (uint32_t i = 0; i < records->count(); i++) {
            auto* record = static_cast<NSDictionary*>(records->objectAtIndex_(i));
            EXPECT_EQ(str(record->objectForKey_("__creator"_ns)), "Ada Lovelace/Demo/Admin")
                    << name;
            EXPECT_TRUE(
                    record->objectForKey_("__created"_ns) &&
                    record->objectForKey_("__created"_ns)->isKindOfClass_(NSDate::classObject()))
                    << name;
        }
    }
    w->release();
}

}  // namespace
