// Who the current user is, which other users exist, and what the current
// user may do in a sheet: questions over the user, group and role sheets.
// Nothing is cached; every question reads the matrices afresh, so a change
// that arrives by replication is in force at the next question.
#include "app/VTLocalization.h"
#include "app/VTWorkspace.h"
#include "foundation/NSString.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "toolkit/NSAlert.h"
#include "toolkit/NSApplication.h"

namespace {

NSString* stringValue(NSDictionary* record, const char* key) {
    NSObject* value =
            record ? record->objectForKey_(NSString::stringWithUTF8String_(key)) : nullptr;
    return value ? static_cast<NSString*>(value->description()) : nullptr;
}

const char* text(NSString* s) { return s ? s->UTF8String() : ""; }

// "First Last/Unit/Company" of a user record; a missing column counts as
// empty text.
NSString* userIdOf(NSDictionary* record) {
    return NSString::stringWithFormat_("%s %s/%s/%s", text(stringValue(record, "firstName")),
                                       text(stringValue(record, "lastName")),
                                       text(stringValue(record, "orgUnit")),
                                       text(stringValue(record, "company")));
}

bool equalText(NSString* value, NSString* wanted) {
    return value && wanted && value->isEqual_(wanted);
}

NSMutableArray* withoutEntriesEqualTo(NSArray* all, NSString* excluded) {
    NSMutableArray* result = NSMutableArray::arrayWithCapacity_(all->count() ? all->count() : 1);
    for (uint32_t i = 0, n = all->count(); i < n; i++) {
        NSObject* entry = all->objectAtIndex_(i);
        if (!(excluded && entry->isEqual_(excluded))) result->addObject_(entry);
    }
    return result;
}

// The names of the groups whose ids a user's `groups` value lists; an id
// whose group has been removed is passed over.
NSMutableArray* groupNamesOf(NSObject* value, VTMatrix* groups) {
    NSMutableArray* names = NSMutableArray::array();
    if (!groups) return names;
    NSMutableArray* ids = value ? static_cast<NSString*>(value->description())->split() : nullptr;
    for (uint32_t i = 0, n = ids ? ids->count() : 0; i < n; i++) {
        NSMutableDictionary* group =
                groups->objectWithRecordId_(static_cast<NSString*>(ids->objectAtIndex_(i)));
        NSObject* name = group ? group->objectForKey_("name"_ns) : nullptr;
        if (name) names->addObject_(name);
    }
    return names;
}

// The names of the roles of those groups; records of one group name pool
// their roles.
NSMutableSet* rolesOfGroups(NSArray* groupNames, VTMatrix* groups, VTMatrix* roleMatrix) {
    NSMutableSet* roles = NSMutableSet::set();
    if (!groups || !roleMatrix) return roles;
    for (uint32_t g = 0, gn = groupNames->count(); g < gn; g++) {
        NSMutableArray* records =
                groups->objectsWithValue_inColumn_(groupNames->objectAtIndex_(g), "name"_ns);
        for (uint32_t r = 0, rn = records->count(); r < rn; r++) {
            NSString* roleIds =
                    stringValue(static_cast<NSDictionary*>(records->objectAtIndex_(r)), "roles");
            NSMutableArray* ids = roleIds ? roleIds->split() : nullptr;
            for (uint32_t i = 0, n = ids ? ids->count() : 0; i < n; i++) {
                NSMutableDictionary* role = roleMatrix->objectWithRecordId_(
                        static_cast<NSString*>(ids->objectAtIndex_(i)));
                NSObject* name = role ? role->objectForKey_("name"_ns) : nullptr;
                if (name) roles->addObject_(name);
            }
        }
    }
    return roles;
}

}  // namespace

NSString* VTWorkspace::currentUserId() {
    NSObject* id = _userInfo ? _userInfo->objectForKey_("UserID"_ns) : nullptr;
    return static_cast<NSString*>(id);
}

NSString* VTWorkspace::currentUserUniqueId() {
    NSObject* unique = _userInfo ? _userInfo->objectForKey_("UniqueID"_ns) : nullptr;
    return NSString::stringWithFormat_(
            "%s-%s", text(currentUserId()),
            unique ? static_cast<NSString*>(unique->description())->UTF8String() : "");
}

NSMutableArray* VTWorkspace::allUsers() {
    VTMatrix* users = matrixNamed("user");
    NSArray* rows = users ? users->allObjectsSorted() : nullptr;
    NSMutableArray* result = NSMutableArray::array();
    for (uint32_t i = 0, n = rows ? rows->count() : 0; i < n; i++)
        result->addObject_(userIdOf(static_cast<NSDictionary*>(rows->objectAtIndex_(i))));
    return result;
}

NSMutableArray* VTWorkspace::allUsersWithUniqueID() {
    VTMatrix* users = matrixNamed("user");
    NSArray* rows = users ? users->allObjectsSorted() : nullptr;
    NSMutableArray* result = NSMutableArray::array();
    for (uint32_t i = 0, n = rows ? rows->count() : 0; i < n; i++) {
        auto* record = static_cast<NSDictionary*>(rows->objectAtIndex_(i));
        result->addObject_(NSString::stringWithFormat_("%s-%s", userIdOf(record)->UTF8String(),
                                                       text(stringValue(record, "__recordId"))));
    }
    return result;
}

NSMutableArray* VTWorkspace::allOtherUsers() {
    return withoutEntriesEqualTo(allUsers(), currentUserId());
}

NSMutableArray* VTWorkspace::allOtherUsersWithUniqueID() {
    return withoutEntriesEqualTo(allUsersWithUniqueID(), currentUserUniqueId());
}

int32_t VTWorkspace::currentUserRow() {
    NSString* userId = currentUserId();
    NSMutableArray* parts = userId ? userId->componentsSeparatedByString_("/"_ns) : nullptr;
    if (parts && parts->count() >= 3) {
        NSMutableArray* words = static_cast<NSString*>(parts->objectAtIndex_(0))->split();
        NSString* first = static_cast<NSString*>(words->objectAtIndex_(0));
        NSString* last =
                words->count() > 1 ? static_cast<NSString*>(words->objectAtIndex_(1)) : nullptr;
        NSString* unit = static_cast<NSString*>(parts->objectAtIndex_(1));
        NSString* company = static_cast<NSString*>(parts->objectAtIndex_(2));
        VTMatrix* users = matrixNamed("user");
        NSArray* rows = users ? users->allObjectsSorted() : nullptr;
        for (uint32_t i = 0, n = rows ? rows->count() : 0; i < n; i++) {
            auto* record = static_cast<NSDictionary*>(rows->objectAtIndex_(i));
            if (equalText(stringValue(record, "firstName"), first) &&
                equalText(stringValue(record, "lastName"), last) &&
                equalText(stringValue(record, "orgUnit"), unit) &&
                equalText(stringValue(record, "company"), company))
                return static_cast<int32_t>(i);
        }
    }
    // No row carries the identity of the key: the user is unknown here, or
    // their row has gone or changed since the last question.
    NSAlert::
            alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                    VTLocalizedString("error"_ns), "OK"_ns, nullptr, nullptr,
                    VTLocalizedString("nouserrow_error"_ns))
                    ->runModal();
    NSApplication::sharedApplication()->terminate_(nullptr);
    return -1;
}

NSString* VTWorkspace::currentUserRole() {
    int32_t row = currentUserRow();
    VTMatrix* users = matrixNamed("user");
    if (row < 0 || !users) return nullptr;
    NSObject* role = users->valueInRow_column_(static_cast<uint32_t>(row), "role"_ns);
    return role ? static_cast<NSString*>(role->description()) : nullptr;
}

NSMutableArray* VTWorkspace::currentUserGroups() {
    int32_t row = currentUserRow();
    VTMatrix* users = matrixNamed("user");
    if (row < 0 || !users) return NSMutableArray::array();
    return groupNamesOf(users->valueInRow_column_(static_cast<uint32_t>(row), "groups"_ns),
                        matrixNamed("group"));
}

NSMutableSet* VTWorkspace::rolesForCurrentUser() {
    return rolesOfGroups(currentUserGroups(), matrixNamed("group"), matrixNamed("role"));
}

bool VTWorkspace::userWithRecordId_mayDoAction_inSheet_(NSString* recordId, NSString* action,
                                                        VTSheet* sheet) {
    VTMatrix* users = matrixNamed("user");
    NSMutableDictionary* record =
            users && recordId ? users->objectWithRecordId_(recordId) : nullptr;
    if (!record || !sheet) return false;
    NSMutableSet* roles =
            rolesOfGroups(groupNamesOf(record->objectForKey_("groups"_ns), matrixNamed("group")),
                          matrixNamed("group"), matrixNamed("role"));
    NSMutableSet* allowed = sheet->rolesForAction_(action);
    return allowed->count() > 0 && allowed->intersectsSet_(roles);
}

bool VTWorkspace::currentUserCanDoAction_inSheet_(NSString* action, VTSheet* sheet) {
    // The user's roles first, whatever the sheet: a key that matches no
    // user row meets the nouserrow alert and the end here too, also on a
    // sheet that restricts nothing.
    NSMutableSet* roles = rolesForCurrentUser();
    if (!sheet) return false;
    // A sheet without a restrict clause for the action grants it to nobody.
    NSMutableSet* allowed = sheet->rolesForAction_(action);
    if (allowed->count() == 0) return false;
    return allowed->intersectsSet_(roles);
}

bool VTWorkspace::currentUserCanUpdate_(VTSheet* sheet) {
    return currentUserCanDoAction_inSheet_("update"_ns, sheet);
}

bool VTWorkspace::currentUserCanUpdateOwn_(VTSheet* sheet) {
    return currentUserCanDoAction_inSheet_("updateown"_ns, sheet);
}

bool VTWorkspace::currentUserCanRemove_(VTSheet* sheet) {
    return currentUserCanDoAction_inSheet_("remove"_ns, sheet);
}

bool VTWorkspace::currentUserCanRemoveOwn_(VTSheet* sheet) {
    return currentUserCanDoAction_inSheet_("removeown"_ns, sheet);
}

// The rights imply one another upward, each asked in this order, stopping
// at the first true.
bool VTWorkspace::currentUserCanDeposit_(VTSheet* sheet) {
    return currentUserCanUpdate_(sheet) || currentUserCanUpdateOwn_(sheet) ||
           currentUserCanDoAction_inSheet_("deposit"_ns, sheet);
}

bool VTWorkspace::currentUserCanRead_(VTSheet* sheet) {
    return currentUserCanDeposit_(sheet) || currentUserCanRemove_(sheet) ||
           currentUserCanRemoveOwn_(sheet) || currentUserCanDoAction_inSheet_("read"_ns, sheet);
}

bool VTWorkspace::currentUserCanSee_(VTSheet* sheet) {
    return currentUserCanRead_(sheet) || currentUserCanDoAction_inSheet_("see"_ns, sheet);
}

int32_t VTWorkspace::roleWithString_(NSString* role) {
    if (!role) return 0;
    if (role->isEqual_("manager"_ns)) return 4;
    if (role->isEqual_("editor"_ns)) return 3;
    if (role->isEqual_("author"_ns)) return 2;
    if (role->isEqual_("depositor"_ns)) return 1;
    return 0;
}
