// The workspace: the central object of the client. It turns the
// configuration into sheets and holds them by name and in order, holds the
// user key dictionary, owns the seen sets and answers the menu actions.
// Its questions about the current user and their rights are in
// VTWorkspaceRights.cpp, its part in replication in VTWorkspaceSync.cpp.
//
// Compiled configuration, conf/conf.vtr:
//   file    := encipher(archive, "Rk2pWn")
//   archive := encodeObject: of { "Workspace": rows }
//   rows    := the list LXListParser answers for conf/cro.vtr
// A source file present wins and is compiled anew at every start.
#pragma once

#include <cstdint>

#include "foundation/NSArray.h"
#include "foundation/NSDate.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSSet.h"
#include "storage/LXContainer.h"

class LXDelta;
class LXPool;
class LXUser;
struct LXUserCertificate;
class VTMatrix;
class VTSheet;

class VTWorkspace : public NSObject {
    NS_DECLARE_CLASS(VTWorkspace, NSObject)

public:
    // alloc, initWithFile:userInfo:, autorelease; nil without a
    // configuration.
    static VTWorkspace* workspaceWithFile_userInfo_(NSString* path, NSDictionary* userInfo);
    // Builds the workspace from the source list at `path` (normally
    // conf/cro.vtr) or, without it, from conf/conf.vtr; renders the
    // released forms and runs the first-user step. Without a configuration,
    // without data/, with a damaged user store or a first user's row that
    // could not be stored it logs and alerts why, releases the receiver and
    // answers nil.
    VTWorkspace* initWithFile_userInfo_(NSString* path, NSDictionary* userInfo);
    // The sheets of rows already read, and nothing else of
    // initWithFile:userInfo:: no
    // compiled file, no forms, no first-user step. For tools that look at a
    // configuration without changing an installation.
    VTWorkspace* initWithRows_userInfo_(NSArray* rows, NSDictionary* userInfo);

    // The configuration rows of a source list file, or of conf/conf.vtr when
    // the source doesn't exist; nothing is written. nil (with a log line)
    // when neither gives a list. Autoreleased.
    static NSArray* configurationRowsFromFile_(NSString* path);
    // The path of the compiled configuration.
    static NSString* compiledConfigurationPath();
    // Whether the working directory has its data folder, data/. Without it
    // no installation is here: nothing is opened and nothing created.
    static bool hasDataFolder();

    NSMutableDictionary* sheets() { return _sheets; }
    NSMutableArray* listOfSheets() { return _listOfSheets; }
    NSDictionary* userInfo() { return _userInfo; }
    // Sends refresh to every other sheet that answers it.
    void refreshSheetsExceptThisOne_(NSObject* sheet);
    // Read from the _seen_ container on first use.
    NSMutableDictionary* setsForSeen();
    // The set of the matrix name; an empty one is entered if there is none.
    NSMutableSet* setForSeenForKey_(NSString* key);
    // Stores the whole dictionary in the _seen_ container.
    void saveSetsForSeen();
    // VTLocalizedString, for the layers below the application, which ask
    // their workspace by message.
    NSString* localizedString_(NSString* key);
    // Sends terminate: with nil to the application object.
    void menuFileQuit_(NSObject* sender);
    // A user's change that did not reach the disk (the matrix is back as
    // it was): logged, and the savefailed alert shown.
    void commitFailedInSheet_(NSObject* sheet);

    // Rights (VTWorkspaceRights.cpp).
    NSString* currentUserId();
    NSString* currentUserUniqueId();
    NSMutableArray* allUsers();
    NSMutableArray* allUsersWithUniqueID();
    NSMutableArray* allOtherUsers();
    NSMutableArray* allOtherUsersWithUniqueID();
    // The row of the current user in the user matrix; -1 after the
    // nouserrow alert if terminate: returns.
    int32_t currentUserRow();
    NSString* currentUserRole();
    NSMutableArray* currentUserGroups();
    NSMutableSet* rolesForCurrentUser();
    bool currentUserCanDoAction_inSheet_(NSString* action, VTSheet* sheet);
    bool currentUserCanSee_(VTSheet* sheet);
    bool currentUserCanRead_(VTSheet* sheet);
    bool currentUserCanDeposit_(VTSheet* sheet);
    bool currentUserCanUpdate_(VTSheet* sheet);
    bool currentUserCanUpdateOwn_(VTSheet* sheet);
    bool currentUserCanRemove_(VTSheet* sheet);
    bool currentUserCanRemoveOwn_(VTSheet* sheet);
    // Whether the user of that `user` record holds, by this installation's
    // group and role sheets, a role the sheet gives the action word: the
    // question behind currentUserCanDoAction:inSheet:, for another user
    // (rights on receipt of a sealed delta). False for an unknown record.
    bool userWithRecordId_mayDoAction_inSheet_(NSString* recordId, NSString* action,
                                               VTSheet* sheet);
    // manager 4, editor 3, author 2, depositor 1, anything else 0.
    static int32_t roleWithString_(NSString* role);

    // Replication (VTWorkspaceSync.cpp).

    // At login: joinTransceiver, then the transceiver's thread on the host
    // it answers.
    void startTransceiver();
    // For a headless tool that runs the
    // check cycles itself on its own thread: the replication pool (made if
    // need be) with the workspace as its delegate, registered with the
    // default transceiver; the current user given to the transceiver; and
    // the relay host of transceiver.txt, trimmed, autoreleased (empty
    // without the file). No thread is started.
    NSString* joinTransceiver();
    // Applies an incoming delta on the transceiver's thread. True: taken in
    // (or dropped on purpose), acknowledge it; false: leave it at the relay.
    bool processDelta_(LXDelta* delta);
    // One set delta for each other user.
    void synchronizeFields_ofObject_inSheet_(NSArray* fields, NSObject* record, NSObject* sheet);
    // One set delta for each unique user string of `users`.
    void synchronizeFields_ofObject_inSheet_toUsers_(NSArray* fields, NSObject* record,
                                                     NSObject* sheet, NSArray* users);
    // One delete delta for each other user, with the removal's version
    // when the sheet's matrix keeps the record's tombstone.
    void synchronizeDeletionOfObjectWithId_inSheet_(NSString* recordId, NSObject* sheet);
    // Whether records carry versions (VTMatrix.h): true unless the
    // environment variable VANTOR_RECORD_VERSIONS is "off", which only the
    // replication bench sets, to measure what versions cost.
    bool keepsRecordVersions();

    // Secure mode (the transceiver has the user's unlocked keys): the
    // public keys in the user record of that id, as a certificate, or nil
    // when the record has none; not yet checked against the anchor.
    LXUserCertificate* certificateOfUser(NSString* recordId, LXUserCertificate* certificate);
    // Why a sealed delta can't be taken in (not sealed to this user, a
    // signature that doesn't hold, keys the anchor didn't sign), or nil with
    // *opened the plain delta inside (autoreleased) and *fromAnchor whether
    // the anchor's own key signed it.
    NSString* reasonToRefuseSealed(LXDelta* envelope, LXDelta** opened, bool* fromAnchor);
    // Why the sender may not make this change here, by this installation's
    // user, group and role sheets, or nil.
    NSString* reasonToRefuseChange(LXDelta* delta);
    // The data server (VTWorkspaceDataServer.cpp). At login: a detached
    // thread that runs runDataServer, which serves port 8765 until the
    // process ends (see reports/VTDataServer.h); a port in use ends the
    // thread after its log line and the client works on without it.
    void startDataServer();
    void runDataServer();

    // Lookups for tools and tests.
    VTSheet* sheetNamed_(NSString* name);
    NSObject* pool() { return _pool; }
    NSDate* lastSyncBeep() { return _lastSyncBeep; }
    LXContainer* containerForSeen() { return _containerForSeen; }

    void dealloc() override;

protected:
    ~VTWorkspace() override = default;

private:
    bool setUp(NSDictionary* userInfo);
    // Posts the delta to the addressee: as it is in plain mode, sealed in
    // secure mode.
    void post(LXDelta* delta, LXUser* addressee);
    // The pool of outgoing deltas, made on first use (VTWorkspaceSync.cpp).
    LXPool* replicationPool();
    void buildSheets(NSArray* rows);
    void renderForms();
    // False when the start must stop: the user store is damaged, or the
    // first user's row could not be stored.
    bool firstUserStep();
    VTMatrix* matrixNamed(const char* name);

    Ref<NSMutableDictionary> _sheets;
    Ref<NSMutableArray> _listOfSheets;
    Ref<NSDictionary> _userInfo;
    Ref<NSObject> _pool;
    Ref<NSDate> _lastSyncBeep;
    Ref<LXContainer> _containerForSeen;
    Ref<NSMutableDictionary> _setsForSeen;
};
