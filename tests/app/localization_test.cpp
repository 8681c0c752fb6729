// Localization: the three tables, the look-up with its bracket fallback, and
// the choice of language by the file language.txt in the working directory.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "app/VTLocalization.h"
#include "foundation/Foundation.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSupport.h"

namespace {

std::string str(NSString* s) { return s ? s->UTF8String() : "(nil)"; }

std::string text(const char* key) {
    return str(VTLocalizedString(NSString::stringWithUTF8String_(key)));
}

const char* const kKeys[] = {"error",
                             "login",
                             "alreadyrunning",
                             "stalelock",
                             "novuk",
                             "novukfound",
                             "bt_new",
                             "bt_save",
                             "bt_remove",
                             "validation_notempty",
                             "validation_error",
                             "creator",
                             "created",
                             "modifier",
                             "modified",
                             "cannotlaunchpdf",
                             "cannotfindlayoutpdf",
                             "unknownsheet",
                             "nouserrow_error",
                             "savefailed",
                             "userdamaged",
                             "nodatafolder",
                             "removing",
                             "areyousure",
                             "notamongchoices",
                             "history",
                             "restore",
                             "m_File",
                             "m_Quit",
                             "pleasereport"};

class Localization : public ::testing::Test {
protected:
    void SetUp() override { pool = NSAutoreleasePool::alloc()->init(); }
    void TearDown() override {
        VTInstallLocalizedStrings(nullptr);
        pool->release();
    }
    NSAutoreleasePool* pool = nullptr;
};

// Runs first: nothing has installed a table in this process yet.
TEST_F(Localization, BeforeInstallationEveryKeyShowsInBrackets) {
    for (const char* key : kKeys) EXPECT_EQ(text(key), "[" + std::string(key) + "]");
    EXPECT_EQ(text(""), "[]");
}

TEST_F(Localization, LookUpIsExactAndFallsBackToTheBracketedKey) {
    VTLocalization* localization = VTLocalization::localization();
    localization->localizedStrings();
    VTInstallLocalizedStrings(localization->englishStrings());
    EXPECT_EQ(text("m_File"), "File");
    EXPECT_EQ(text("m_file"), "[m_file]");
    EXPECT_EQ(text("M_FILE"), "[M_FILE]");
    EXPECT_EQ(text("no_such_key"), "[no_such_key]");
    EXPECT_EQ(text("validation_notempty"), "Field '%s' must not be empty.");
    // No fallback from one language to another: a key the German table
    // lacked would show bracketed, not in English.
    VTInstallLocalizedStrings(localization->germanStrings());
    EXPECT_EQ(text("bt_save"), "Speichern");
    EXPECT_EQ(text("Error"), "[Error]");
    // The installed table is retained: it outlives the pool that made it.
    pool->release();
    pool = NSAutoreleasePool::alloc()->init();
    EXPECT_EQ(text("m_Quit"), "Beenden");
}

TEST_F(Localization, TheThreeTablesHoldEveryKeyWithTheirOwnTexts) {
    VTLocalization* localization = VTLocalization::localization();
    localization->localizedStrings();
    NSDictionary* tables[] = {localization->englishStrings(), localization->germanStrings(),
                              localization->czechStrings()};
    for (NSDictionary* table : tables) {
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(table->count(), sizeof kKeys / sizeof kKeys[0]);
        for (const char* key : kKeys) {
            NSObject* value = table->objectForKey_(NSString::stringWithUTF8String_(key));
            ASSERT_NE(value, nullptr) << key;
            EXPECT_TRUE(value->isKindOfClass_(NSString::classObject())) << key;
        }
    }
    // Texts beyond ASCII, byte for byte in UTF-8.
    auto in = [](NSDictionary* table, const char* key) {
        return str(
                static_cast<NSString*>(table->objectForKey_(NSString::stringWithUTF8String_(key))));
    };
    EXPECT_EQ(in(tables[1], "novuk"), "Kein Benützerschlüssel gefunden");
    EXPECT_EQ(in(tables[1], "modifier"), "Geändert von");
    EXPECT_EQ(in(tables[2], "modified"), "Změneno");
    EXPECT_EQ(in(tables[2], "removing"), "Ostranit");
    EXPECT_EQ(in(tables[2], "validation_notempty"), "Pole '%s' nesmí být prázdné.");
    EXPECT_EQ(in(tables[0], "alreadyrunning"),
              "An instance of this application is already running in the same working directory.");
    for (NSDictionary* table : tables)
        EXPECT_NE(in(table, "pleasereport").find("support@vantor.example"), std::string::npos);
}

// Every case in a working directory of its own, as an installation is one.
class LanguageFile : public Localization {
protected:
    void SetUp() override {
        Localization::SetUp();
        dir = vt_test::makeTempDir("vantor-language");
        ASSERT_FALSE(dir.empty());
        ASSERT_NE(getcwd(oldDir, sizeof oldDir), nullptr);
        ASSERT_EQ(chdir(dir.c_str()), 0);
    }
    void TearDown() override {
        EXPECT_EQ(chdir(oldDir), 0);
        vt_test::removeTree(dir);
        Localization::TearDown();
    }
    static void choose(const std::string& bytes) {
        std::ofstream out("language.txt", std::ios::binary);
        out << bytes;
    }
    // The table that localizedStrings answers, named by its language, and
    // what it logged.
    static std::string chosen(std::string* log) {
        VTLocalization* localization = VTLocalization::localization();
        NSMutableDictionary* table = nullptr;
        *log = vt_test::logOf([&] { table = localization->localizedStrings(); });
        if (table == localization->englishStrings()) return "en";
        if (table == localization->germanStrings()) return "de";
        if (table == localization->czechStrings()) return "cs";
        return "?";
    }

    std::string dir;
    char oldDir[4096] = {};
};

TEST_F(LanguageFile, WithoutAFileTheLanguageIsEnglishSilently) {
    std::string log;
    EXPECT_EQ(chosen(&log), "en");
    EXPECT_EQ(log, "");
}

TEST_F(LanguageFile, TheFileChoosesGermanOrCzechAsWrittenByHand) {
    std::string log;
    const std::pair<const char*, const char*> cases[] = {
            {"de", "de"},
            {"cs\n", "cs"},
            {"en\n", "en"},
            {"  DE \r\n", "de"},
            {"\xEF\xBB\xBF"
             "cs\r\n",
             "cs"},
            {"Cs\nsecond line\n", "cs"},
            {"\tde\t", "de"},
    };
    for (const auto& c : cases) {
        choose(c.first);
        EXPECT_EQ(chosen(&log), c.second) << c.first;
        EXPECT_EQ(log, "") << c.first;
    }
    // And what it chose is what the look-up shows once installed.
    choose("cs\n");
    VTLocalization* localization = VTLocalization::localization();
    VTInstallLocalizedStrings(localization->localizedStrings());
    EXPECT_EQ(text("m_Quit"), "Konec");
    EXPECT_EQ(text("nokey"), "[nokey]");
}

TEST_F(LanguageFile, AnUnknownLanguageFallsBackToEnglishWithALogLine) {
    std::string log;
    choose("fr\n");
    EXPECT_EQ(chosen(&log), "en");
    EXPECT_EQ(log, "Unknown language 'fr' in language.txt, using English\n");
    choose("");
    EXPECT_EQ(chosen(&log), "en");
    EXPECT_EQ(log, "Unknown language '' in language.txt, using English\n");
    choose("german");
    EXPECT_EQ(chosen(&log), "en");
    EXPECT_EQ(log, "Unknown language 'german' in language.txt, using English\n");
    // The platform's locale plays no part.
    vt_test::setEnvironment("LANG", "de_DE.UTF-8");
    vt_test::setEnvironment("LC_ALL", "de_DE.UTF-8");
    unlink("language.txt");
    EXPECT_EQ(chosen(&log), "en");
    vt_test::setEnvironment("LC_ALL", nullptr);
    vt_test::setEnvironment("LANG", nullptr);
}

}  // namespace
