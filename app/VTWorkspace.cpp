#include "app/VTWorkspace.h"

#include <cstdlib>
#include <string>

#include "app/VTLocalization.h"
#include "app/VTUserKey.h"
#include "foundation/NSData.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "foundation/platform/Platform.h"
#include "sheets/LXListParser.h"
#include "sheets/VTActionTestForm.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "storage/LXDataKey.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"
#include "toolkit/NSAlert.h"
#include "toolkit/NSApplication.h"

namespace {

bool isCommentRow(NSObject* row) {
    if (!row || !row->isKindOfClass_(NSArray::classObject())) return false;
    auto* list = static_cast<NSArray*>(row);
    return list->count() > 0 && list->objectAtIndex_(0)->isEqual_("#"_ns);
}

// The file's bytes as UTF-8 text; empty for a missing file.
NSString* textOfFile(NSString* path) {
    NSData* bytes = NSData::dataWithContentsOfFile_(path);
    void* raw = bytes->bytes();
    NSString* text = NSAutorelease(NSString::alloc()->initWithBytes_length_(
            static_cast<const char*>(raw), bytes->length()));
    std::free(raw);
    return text;
}

void showErrorText(NSString* text) {
    NSAlert::
            alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                    VTLocalizedString("error"_ns), "OK"_ns, nullptr, nullptr, text)
                    ->runModal();
}

void showErrorAlert(const char* key) {
    showErrorText(VTLocalizedString(NSString::stringWithUTF8String_(key)));
}

NSString* stringValue(NSDictionary* record, NSString* key) {
    NSObject* value = record ? record->objectForKey_(key) : nullptr;
    return value ? static_cast<NSString*>(value->description()) : nullptr;
}

// Rows of the source list, compiled into conf/conf.vtr. A source that does
// not parse (the parser has logged why) is not compiled: the compiled file
// of an earlier start stays as it was, and the start goes on as one without
// a configuration, so that a broken edit is seen at once and never runs
// silently on an old configuration.
NSArray* compileSource(NSString* path) {
    NSString* text = textOfFile(path);
    NSMutableArray* rows = LXListParser::listParserWithString_(text)->parse();
    if (!rows) {
        LOG("configuration %s does not parse; %s is left as it was", path->UTF8String(),
            VTWorkspace::compiledConfigurationPath()->UTF8String());
        return nullptr;
    }
    NSDictionary* root = NSDictionary::dictionaryWithObjectsAndKeys_(rows, "Workspace"_ns, nullptr);
    NSMutableData* data = static_cast<NSMutableData*>(NSMutableData::alloc()->init());
    NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(data);
    archiver->encodeObject_(root);
    archiver->release();
    data->encryptWithKey_(LXDataKey());
    if (!data->writeToFile_atomically_(VTWorkspace::compiledConfigurationPath(), false))
        LOG("cannot write %s", VTWorkspace::compiledConfigurationPath()->UTF8String());
    data->release();
    return rows;
}

}  // namespace

NSString* VTWorkspace::compiledConfigurationPath() { return "conf/conf.vtr"_ns; }

bool VTWorkspace::hasDataFolder() {
    bool isDirectory = false;
    return vtFileStatus("data", &isDirectory) && isDirectory;
}

NSArray* VTWorkspace::configurationRowsFromFile_(NSString* path) {
    if (path && vtFileExists(path->UTF8String())) {
        NSString* text = textOfFile(path);
        return LXListParser::listParserWithString_(text)->parse();
    }
    NSString* compiled = compiledConfigurationPath();
    if (!vtFileExists(compiled->UTF8String())) return nullptr;
    NSData* data = NSData::dataWithContentsOfFile_(compiled);
    data->decryptWithKey_(LXDataKey());
    NSUnarchiver* unarchiver = NSUnarchiver::alloc()->initForReadingWithData_(data);
    NSObject* root = unarchiver->decodeObject();
    NSObject* rows = nullptr;
    if (root && root->isKindOfClass_(NSDictionary::classObject()))
        rows = static_cast<NSDictionary*>(root)->objectForKey_("Workspace"_ns);
    if (rows && !rows->isKindOfClass_(NSArray::classObject())) rows = nullptr;
    NSAutorelease(NSRetain(rows));
    unarchiver->release();
    return static_cast<NSArray*>(rows);
}

VTWorkspace* VTWorkspace::workspaceWithFile_userInfo_(NSString* path, NSDictionary* userInfo) {
    return NSAutorelease(alloc()->initWithFile_userInfo_(path, userInfo));
}

bool VTWorkspace::setUp(NSDictionary* userInfo) {
    NSObject::init();
    _containerForSeen.adopt(LXContainer::alloc()->initWithName_("_seen_"_ns));
    _sheets.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(16)));
    _listOfSheets.adopt(NSMutableArray::alloc()->initWithCapacity_(16));
    _userInfo.set(userInfo);
    return true;
}

VTWorkspace* VTWorkspace::initWithFile_userInfo_(NSString* path, NSDictionary* userInfo) {
    // Checked before anything is opened: every container would otherwise
    // try to make its files in a folder that isn't there.
    if (!hasDataFolder()) {
        LOG("no data folder: data/ is missing in the working directory; nothing opened or created");
        showErrorAlert("nodatafolder");
        NSObject::init();
        release();
        return nullptr;
    }
    setUp(userInfo);
    NSArray* rows = nullptr;
    if (path && vtFileExists(path->UTF8String())) {
        rows = compileSource(path);
    } else {
        rows = configurationRowsFromFile_(nullptr);
    }
    // Neither a source nor a readable compiled file: nothing to build a
    // client on, and the caller stops the start. The localized table has
    // no text for this operator's mistake, so the message is English like
    // the log.
    if (!rows) {
        LOG("no configuration: neither %s nor a readable %s",
            path ? path->UTF8String() : "(no source)", compiledConfigurationPath()->UTF8String());
        showErrorText(
                "No configuration: conf/cro.vtr is missing and conf/conf.vtr is missing or unreadable."_ns);
        release();
        return nullptr;
    }
    buildSheets(rows);
    renderForms();
    if (!firstUserStep()) {
        release();
        return nullptr;
    }
    return this;
}

VTWorkspace* VTWorkspace::initWithRows_userInfo_(NSArray* rows, NSDictionary* userInfo) {
    setUp(userInfo);
    if (rows) buildSheets(rows);
    return this;
}

void VTWorkspace::dealloc() { super::dealloc(); }

void VTWorkspace::buildSheets(NSArray* rows) {
    for (uint32_t i = 0, n = rows->count(); i < n; i++) {
        NSObject* row = rows->objectAtIndex_(i);
        if (isCommentRow(row)) continue;
        auto* sheet = static_cast<VTSheet*>(
                VTSheet::alloc()->initWithArray_workspace_(reinterpret_cast<NSArray*>(row), this));
        // A rejected definition has been logged by the sheet.
        if (!sheet) continue;
        _sheets->setObject_forKey_(sheet, sheet->name());
        _listOfSheets->addObject_(sheet);
        sheet->release();
    }
}

VTSheet* VTWorkspace::sheetNamed_(NSString* name) {
    return static_cast<VTSheet*>(name ? _sheets->objectForKey_(name) : nullptr);
}

VTMatrix* VTWorkspace::matrixNamed(const char* name) {
    VTSheet* sheet = sheetNamed_(NSString::stringWithUTF8String_(name));
    return sheet ? sheet->matrix() : nullptr;
}

void VTWorkspace::renderForms() {
    VTMatrix* forms = matrixNamed("form");
    if (!forms) {
        LOG("run-time forms not rendered: no sheet named form");
        return;
    }
    Ref<VTActionTestForm> action =
            adoptRef(static_cast<VTActionTestForm*>(VTActionTestForm::alloc()->init()));
    forms->load();
    NSArray* records = forms->allObjectsSorted();
    // render:: may add records elsewhere, never here; still, walk a copy.
    NSArray* walk = NSMutableArray::arrayWithArray_(records);
    for (uint32_t row = 0, n = walk->count(); row < n; row++) {
        NSString* status =
                stringValue(static_cast<NSDictionary*>(walk->objectAtIndex_(row)), "status"_ns);
        if (!status || !status->isEqual_("released"_ns)) continue;
        // The new sheet is ours: the dictionary and the list keep it.
        Ref<VTSheet> sheet =
                adoptRef(action->render__(NSNumber::numberWithInt_(static_cast<int>(row)), forms));
        if (!sheet || !sheet->name()) continue;
        _sheets->setObject_forKey_(sheet, sheet->name());
        _listOfSheets->addObject_(sheet);
    }
}

bool VTWorkspace::firstUserStep() {
    VTMatrix* users = matrixNamed("user");
    VTMatrix* groups = matrixNamed("group");
    if (!users) return true;
    // A damaged store answers no records: it looks empty, but the users are
    // there on disk. Taking the key's owner for the first user would make
    // a new identity (and rewrite the admin key), so the start stops.
    if (users->container() && users->container()->isDamaged()) {
        LOG("the user store data/%s is damaged; the start stops, no user row or key is written",
            users->name()->UTF8String());
        showErrorAlert("userdamaged");
        return false;
    }
    if (users->numberOfRows() > 0) return true;

    // The groups of a first user, in row order.
    NSMutableArray* adminGroups = NSMutableArray::array();
    NSMutableArray* allGroups = NSMutableArray::array();
    NSArray* groupRecords = groups ? groups->allObjectsSorted() : nullptr;
    for (uint32_t i = 0, n = groupRecords ? groupRecords->count() : 0; i < n; i++) {
        auto* record = static_cast<NSDictionary*>(groupRecords->objectAtIndex_(i));
        NSString* name = stringValue(record, "name"_ns);
        NSObject* id = record->objectForKey_("__recordId"_ns);
        if (!name || !id) continue;
        if (name->isEqual_("Admins"_ns) || name->isEqual_("Designers"_ns))
            adminGroups->addObject_(id);
        if (name->isEqual_("All"_ns)) allGroups->addObject_(id);
    }

    // The identity's parts. A user id without three parts or
    // without two words in its name can't make a row that the rights
    // questions would ever find: no row is written, and the first rights
    // question ends the run with the nouserrow alert.
    NSString* userId = currentUserId();
    NSMutableArray* parts = userId ? userId->componentsSeparatedByString_("/"_ns) : nullptr;
    NSMutableArray* words =
            parts ? static_cast<NSString*>(parts->objectAtIndex_(0))->split() : nullptr;
    if (!parts || parts->count() < 3 || words->count() < 2) {
        LOG("first user: user id '%s' is not of the form 'First Last/Unit/Company'; no user row "
            "written",
            userId ? userId->UTF8String() : "");
        return true;
    }
    NSString* unit = static_cast<NSString*>(parts->objectAtIndex_(1));
    NSString* company = static_cast<NSString*>(parts->objectAtIndex_(2));
    bool firstAdmin = company->isEqual_("Admin"_ns) && unit->isEqual_("Demo"_ns);
    LOG("first admin: %d", firstAdmin ? 1 : 0);

    users->beginTransaction();
    users->setValue_inRow_column_(words->objectAtIndex_(0), 0, "firstName"_ns);
    users->setValue_inRow_column_(words->objectAtIndex_(1), 0, "lastName"_ns);
    users->setValue_inRow_column_(company, 0, "company"_ns);
    users->setValue_inRow_column_(unit, 0, "orgUnit"_ns);
    users->setValue_inRow_column_("manager"_ns, 0, "role"_ns);
    Ref<NSString> freshId =
            retainRef(static_cast<NSString*>(users->valueInRow_column_(0, "__recordId"_ns)));
    NSObject* uniqueId = _userInfo ? _userInfo->objectForKey_("UniqueID"_ns) : nullptr;
    if (!firstAdmin && uniqueId) users->setValue_inRow_column_(uniqueId, 0, "__recordId"_ns);
    users->setValue_inRow_column_(
            (firstAdmin ? adminGroups : allGroups)->componentsJoinedByString_(" "_ns), 0,
            "groups"_ns);
    if (!users->commitTransaction_(false)) {
        // The matrix is empty again; with no row stored, the key keeps the
        // identity it had.
        LOG("first user: the user row could not be stored; the start stops");
        showErrorAlert("savefailed");
        return false;
    }
    if (!firstAdmin && uniqueId && freshId) {
        // The matrix indexed the record under the id it made for it; keep
        // the index in step with the id the record now carries, so that
        // references to this user resolve in this run too.
        NSObject* record = users->index()->objectForKey_(freshId);
        if (record) {
            users->index()->setObject_forKey_(record, uniqueId);
            users->index()->removeObjectForKey_(freshId);
        }
    }

    if (firstAdmin) {
        auto* key = static_cast<NSMutableDictionary*>(_userInfo.get());
        NSObject* recordId = users->valueInRow_column_(0, "__recordId"_ns);
        if (key && key->isKindOfClass_(NSMutableDictionary::classObject())) {
            key->setObject_forKey_(recordId, "UniqueID"_ns);
            if (!VTUserKey::writeUserKey_toFile_(key, "userkey/admin.vuk"_ns))
                LOG("cannot write userkey/admin.vuk");
        }
    }
    return true;
}

NSString* VTWorkspace::localizedString_(NSString* key) { return VTLocalizedString(key); }

void VTWorkspace::refreshSheetsExceptThisOne_(NSObject* sheet) {
    NSMutableArray* all = _sheets->allValues();
    for (uint32_t i = 0, n = all->count(); i < n; i++) {
        NSObject* other = all->objectAtIndex_(i);
        if (other == sheet) continue;
        // refresh comes with the sheet's window side; until a sheet answers
        // it there is nothing on a screen to bring up to date.
        if (other->respondsToSelector_(NS_SEL("refresh"))) NSSend<void>(other, NS_SEL("refresh"));
    }
}

NSMutableDictionary* VTWorkspace::setsForSeen() {
    if (_setsForSeen) return _setsForSeen;
    NSMutableArray* stored = _containerForSeen
                                     ? _containerForSeen->query_(NSMutableDictionary::classObject())
                                     : nullptr;
    if (stored && stored->count() > 0) {
        _setsForSeen.set(static_cast<NSMutableDictionary*>(stored->objectAtIndex_(0)));
    } else {
        _setsForSeen.adopt(static_cast<NSMutableDictionary*>(
                NSMutableDictionary::alloc()->initWithCapacity_(16)));
    }
    return _setsForSeen;
}

NSMutableSet* VTWorkspace::setForSeenForKey_(NSString* key) {
    NSMutableDictionary* sets = setsForSeen();
    auto* set = static_cast<NSMutableSet*>(key ? sets->objectForKey_(key) : nullptr);
    if (!set && key) {
        set = NSMutableSet::set();
        sets->setObject_forKey_(set, key);
    }
    return set;
}

void VTWorkspace::saveSetsForSeen() {
    if (_containerForSeen) _containerForSeen->set_(setsForSeen());
}

void VTWorkspace::menuFileQuit_(NSObject*) {
    NSApplication::sharedApplication()->terminate_(nullptr);
}

void VTWorkspace::commitFailedInSheet_(NSObject* sheet) {
    NSObject* name = NSSend<NSObject*>(sheet, NS_SEL("name"));
    LOG("not saved in sheet '%s': the change did not reach the disk",
        name ? static_cast<NSString*>(name->description())->UTF8String() : "");
    showErrorAlert("savefailed");
}

NS_CLASS_BEGIN(VTWorkspace, NSObject)
    NS_CLASS_METHOD(workspaceWithFile_userInfo_)
    NS_METHOD(initWithFile_userInfo_)
    NS_METHOD(initWithRows_userInfo_)
    NS_CLASS_METHOD(configurationRowsFromFile_)
    NS_CLASS_METHOD(compiledConfigurationPath)
    NS_CLASS_METHOD(hasDataFolder)
    NS_METHOD(sheets)
    NS_METHOD(listOfSheets)
    NS_METHOD(userInfo)
    NS_METHOD(refreshSheetsExceptThisOne_)
    NS_METHOD(localizedString_)
    NS_METHOD(setsForSeen)
    NS_METHOD(setForSeenForKey_)
    NS_METHOD(saveSetsForSeen)
    NS_METHOD(menuFileQuit_)
    NS_METHOD(commitFailedInSheet_)
    NS_METHOD(currentUserId)
    NS_METHOD(currentUserUniqueId)
    NS_METHOD(allUsers)
    NS_METHOD(allUsersWithUniqueID)
    NS_METHOD(allOtherUsers)
    NS_METHOD(allOtherUsersWithUniqueID)
    NS_METHOD(currentUserRole)
    NS_METHOD(currentUserGroups)
    NS_METHOD(currentUserRow)
    NS_METHOD(rolesForCurrentUser)
    NS_METHOD(currentUserCanSee_)
    NS_METHOD(currentUserCanRead_)
    NS_METHOD(currentUserCanDeposit_)
    NS_METHOD(currentUserCanUpdate_)
    NS_METHOD(currentUserCanUpdateOwn_)
    NS_METHOD(currentUserCanRemove_)
    NS_METHOD(currentUserCanRemoveOwn_)
    NS_METHOD(currentUserCanDoAction_inSheet_)
    NS_CLASS_METHOD(roleWithString_)
    NS_METHOD(sheetNamed_)
    NS_METHOD(dealloc)
    NS_FIELD(_sheets)
    NS_FIELD(_listOfSheets)
    NS_FIELD(_userInfo)
    NS_FIELD(_pool)
    NS_FIELD(_lastSyncBeep)
    NS_FIELD(_containerForSeen)
    NS_FIELD(_setsForSeen)
NS_CLASS_END(VTWorkspace)
