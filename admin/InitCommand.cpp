// init DIR [--config FILE] [--name "FIRST LAST"] [--relay HOST]
//      [--password-stdin] [--json]
//
// A new installation for an organisation of its own, ready for its first
// start:
//   conf/cro.vtr      FILE, or the demo configuration built into this tool
//   data/init/        the roles administrator, designer, staff and reader
//                     and the groups Admins, Designers and All, copied into
//                     data/ at the first start as the demo's are
//   userkey/admin.vuk the first administrator's key: the user id
//                     "FIRST LAST/Demo/Admin", which is what marks the first
//                     user as the administrator, the password, and no
//                     UniqueID yet. The first start makes the user row (a
//                     manager in Admins and Designers) and writes its id
//                     into the key.
//   transceiver.txt   the relay's host, when --relay is given
//   tmp/ export/ layout/ fonts/   the folders the client writes to
// DIR must not exist or be empty: nothing of an existing installation is
// overwritten. The password is asked twice, or read from standard input as
// key make reads it.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "Commands.h"
#include "Json.h"
#include "app/VTUserKey.h"
#include "foundation/Foundation.h"
#include "storage/LXContainer.h"

namespace admin {

// The demo configuration, built into the tool (DemoConfiguration.cpp is
// generated from demo/conf/cro.vtr).
extern const char kDemoConfiguration[];

namespace {

// Roles and groups the first-user step and the demo configuration's
// restrict clauses name.
const char* const kRoles[][3] = {
        {"init-role-administrator", "administrator",
         "Changes users, groups, roles and every record"},
        {"init-role-designer", "designer", "Designs forms and runs the report designer"},
        {"init-role-staff", "staff", "Works on the shared sheets"},
        {"init-role-reader", "reader", "Sees the shared sheets"},
};
const char* const kGroups[][3] = {
        {"init-group-admins", "Admins", "init-role-administrator init-role-staff"},
        {"init-group-designers", "Designers", "init-role-designer init-role-staff"},
        {"init-group-all", "All", "init-role-reader"},
};

// Stores one record, stamped as made by the first administrator now.
bool storeRecord(const std::string& stem,
                 const std::vector<std::pair<const char*, const char*>>& fields,
                 NSString* creator) {
    NSMutableDictionary* record = NSMutableDictionary::dictionary();
    for (const auto& field : fields) {
        record->setObject_forKey_(NSString::stringWithUTF8String_(field.second),
                                  NSString::stringWithUTF8String_(field.first));
    }
    record->setObject_forKey_(creator, "__creator"_ns);
    record->setObject_forKey_(NSDate::date(), "__created"_ns);
    LXContainer* box =
            LXContainer::containerWithName_(NSString::stringWithUTF8String_(stem.c_str()));
    return box && !box->isDamaged() && box->set_(record) >= 0;
}

bool writeText(const std::string& path, const std::string& text) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    return std::fclose(f) == 0 && ok;
}

int fail(const std::string& what) {
    std::fprintf(stderr, "vantor-admin: init: %s\n", what.c_str());
    return 1;
}

}  // namespace

int runInit(int argc, char** argv) {
    Arguments args;
    if (!parseArguments("init", argc, argv,
                        {{"--config", true},
                         {"--name", true},
                         {"--relay", true},
                         {"--password-stdin", false},
                         {"--json", false}},
                        &args)) {
        return 2;
    }
    if (args.words.empty()) return wrongUsage("init", "missing DIR", "");
    if (args.words.size() > 1) return wrongUsage("init", "unexpected argument", args.words[1]);
    std::string dir = args.words[0];
    std::string name = args.has("--name") ? args.value("--name") : "First Admin";
    // The first and last name: two words, as the first-user step splits them.
    std::vector<std::string> words;
    for (size_t at = 0; (at = name.find_first_not_of(" \t", at)) != std::string::npos;) {
        size_t end = name.find_first_of(" \t", at);
        words.push_back(name.substr(at, end == std::string::npos ? std::string::npos : end - at));
        at = end;
    }
    if (words.size() != 2)
        return wrongUsage("init", "the name must be two words, first and last", name);

    std::string configuration = kDemoConfiguration;
    if (const char* file = args.value("--config")) {
        FILE* in = std::fopen(file, "rb");
        if (!in) return fail(std::string("cannot read the configuration ") + file);
        configuration = readAll(in);
        std::fclose(in);
    }

    std::error_code ec;
    namespace fs = std::filesystem;
    if (fs::exists(dir, ec) && !(fs::is_directory(dir, ec) && fs::is_empty(dir, ec))) {
        return fail(dir + " exists and is not an empty directory; nothing was changed");
    }
    NSString* password = newPassword("init", args.has("--password-stdin"));
    if (!password) return 1;

    for (const char* sub : {"conf", "data/init", "userkey", "tmp", "export", "layout", "fonts"}) {
        if (!fs::create_directories(fs::path(dir) / sub, ec) && ec) {
            return fail("cannot make " + (fs::path(dir) / sub).string() + ": " + ec.message());
        }
    }
    if (!writeText(dir + "/conf/cro.vtr", configuration))
        return fail("cannot write " + dir + "/conf/cro.vtr");
    if (const char* relay = args.value("--relay")) {
        if (!writeText(dir + "/transceiver.txt", std::string(relay) + "\n")) {
            return fail("cannot write " + dir + "/transceiver.txt");
        }
    }

    NSString* userId =
            NSString::stringWithFormat_("%s %s/Demo/Admin", words[0].c_str(), words[1].c_str());
    {
        // The container code logs what it makes: not a result.
        LogToStderr redirect;
        for (const auto& role : kRoles) {
            if (!storeRecord(dir + "/data/init/role",
                             {{"__recordId", role[0]}, {"name", role[1]}, {"description", role[2]}},
                             userId)) {
                return fail("cannot store the roles in " + dir + "/data/init");
            }
        }
        for (const auto& group : kGroups) {
            if (!storeRecord(dir + "/data/init/group",
                             {{"__recordId", group[0]}, {"name", group[1]}, {"roles", group[2]}},
                             userId)) {
                return fail("cannot store the groups in " + dir + "/data/init");
            }
        }
    }

    NSMutableDictionary* key = NSMutableDictionary::dictionary();
    key->setObject_forKey_(userId, "UserID"_ns);
    key->setObject_forKey_(password, "Password"_ns);
    key->setObject_forKey_(NSNumber::numberWithBool_(false), "Admin"_ns);
    std::string keyPath = dir + "/userkey/admin.vuk";
    if (!VTUserKey::writeUserKey_toFile_(key, NSString::stringWithUTF8String_(keyPath.c_str()))) {
        return fail("cannot write " + keyPath);
    }
    if (args.has("--json")) {
        std::printf("%s\n", JsonObject()
                                    .add("installation", dir)
                                    .add("userId", userId->UTF8String())
                                    .add("key", keyPath)
                                    .add("configuration",
                                         args.has("--config") ? args.value("--config") : "demo")
                                    .text()
                                    .c_str());
    } else {
        std::printf("installation %s made; first administrator %s, key %s\n", dir.c_str(),
                    userId->UTF8String(), keyPath.c_str());
    }
    return 0;
}

}  // namespace admin
