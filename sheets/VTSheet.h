// A sheet: one record table of the application as its configuration
// defines it. initWithArray:workspace: interprets one sheet definition (a
// list of clauses, see VTSheetClauses.cpp for the vocabulary), creates and
// loads the sheet's matrix, and builds its table view with a filtered data
// source, all without a window: a sheet serves other sheets' references
// from then on, shown or not.
//
// The sheet asks its workspace by message only (sheets,
// refreshSheetsExceptThisOne:, currentUserRole, userInfo and the class
// operation roleWithString:).
#pragma once

#include <cstdint>

#include "foundation/NSArray.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSSet.h"
#include "structures/VTKeyedArrays.h"

class NSNotification;
class NSNumber;
class NSTableColumn;
class NSTableView;
class NSView;
class VTMatrix;

class VTSheet : public NSObject {
    NS_DECLARE_CLASS(VTSheet, NSObject)

public:
    void dealloc() override;
    // The name of the store: its own name if primary, else the name of the
    // sheet that owns the source matrix.
    NSString* primarySourceName();
    bool isPrimary();
    NSObject* workspace() { return _workspace; }
    bool isAdminType() { return _adminType != 0; }
    VTMatrix* matrix() { return _matrix; }
    // roleWithString: of the workspace's class on its currentUserRole.
    int32_t currentUserRole();
    // The table view; logs "sheet table view is nil!" when there is none.
    NSTableView* sheetTableView();
    bool isFullyInitialized() { return _fullyInitialized != 0; }
    NSMutableDictionary* fieldControls() { return _fieldControls; }
    // A click on a column header: sorts by the column (again: reversed),
    // refilters and reloads the column's table, and has the other sheets
    // refresh.
    void columnAction_(NSTableColumn* column);
    NSString* title() { return _title; }
    NSString* name() { return _name; }
    NSMutableDictionary* fieldLabels() { return _fieldLabels; }
    NSMutableArray* fields() { return _fields; }
    VTKeyedArrays* filters() { return _filters; }
    // Autoreleased set of the roles that `restrict` clauses give the action.
    NSMutableSet* rolesForAction_(NSString* action);
    bool isRestrictedForAction_(NSString* action);
    // Interprets the definition. A definition that can't make a sheet (no
    // name, no field) is rejected: the receiver is released and the answer
    // is nil, with a log line naming the sheet and the cause.
    VTSheet* initWithArray_workspace_(NSArray* definition, NSObject* workspace);

    // Read access to what the clauses stored.
    NSMutableSet* inView() { return _inView; }
    NSMutableDictionary* hiddenFields() { return _hiddenFields; }
    VTKeyedArrays* validation() { return _validation; }
    VTKeyedArrays* accessRights() { return _accessRights; }
    VTKeyedArrays* referenceFilters() { return _referenceFilters; }
    VTKeyedArrays* dateFilters() { return _dateFilters; }
    VTKeyedArrays* access() { return _access; }
    NSMutableArray* actions() { return _actions; }
    NSString* filterCurrentUser() { return _filterCurrentUser; }
    NSMutableDictionary* defaultValues() { return _defaultValues; }
    NSMutableDictionary* toolTips() { return _toolTips; }
    bool readOwn() { return _readOwn != 0; }
    bool createdInView() { return _createdInView != 0; }
    bool creatorInView() { return _creatorInView != 0; }
    bool modifiedInView() { return _modifiedInView != 0; }
    bool modifierInView() { return _modifierInView != 0; }
    int32_t activeRow() { return _activeRow; }
    VTMatrix* source() { return _source; }

    // The sheet on a screen (VTSheetWindow.cpp): the buttons, the form of
    // labelled controls, the record table and the information lines.

    // Builds the whole screen inside the parent; once per parent.
    void show_(NSView* parent);
    // Makes the sheet's own window if there is none (hidden with 0); with
    // 1 brings it to the front.
    void prepare_(uint8_t front);
    void show();
    // After show: refilters and reloads the record table.
    void refresh();
    NSObject* window() { return _window; }
    NSMutableArray* guiObjects() { return _guiObjects; }
    NSMutableDictionary* referenceObjects() { return _referenceObjects; }
    NSObject* newButton() { return _newButton; }
    NSObject* saveButton() { return _saveButton; }
    NSObject* removeButton() { return _removeButton; }

    // Record editing (VTSheetEditing.cpp), on the main thread.

    // The record table's selection changed: the record fills the form.
    void rowSelected_(NSNotification* note);
    void newAction();
    // The form holds a new record; with 1 the reference lists are filled
    // anew.
    void newAction_(uint8_t rebuildReferences);
    // Validates the form and writes it (VTSaveRules.h), or shows why not.
    void save();
    // Removes the selected record after the user's yes.
    void remove();
    // Starts the action of the button on the selected record.
    void customAction_(NSObject* button);
    // Whether the current user created the record (the "own" of updateown
    // and removeown).
    bool isOwnRecord(NSDictionary* record);
    // Whether the current user may change the record: update, or updateown
    // on a record of their own. The Save button's state.
    bool mayUpdate(NSDictionary* record);

    // The history of the selected record (VTSheetHistoryWindow.cpp): the
    // History button opens a window listing the values that newer ones
    // replaced; Restore writes the chosen one back through the rules of a
    // Save, as a new change.
    void showHistory_(NSObject* sender);
    void restoreHistoryEntry_(NSObject* sender);
    NSObject* historyButton() { return _historyButton; }
    NSObject* historyWindow() { return _historyWindow; }
    NSTableView* historyTable() { return _historyTable; }
    NSObject* restoreButton() { return _restoreButton; }

    // Replication (VTSheetReplication.cpp). Incoming changes arrive on the
    // transceiver's thread; the hooks of record editing on the main thread.

    // updateFields:ofObject:remote: with false.
    bool updateFields_ofObject_(NSArray* fields, NSMutableDictionary* object);
    // Applies a set delta: `object` is merged by version into the record of
    // its id, live or removed (VTMatrix::takeIncomingRecord), or enters
    // whole when the id is new here; committed without stamps or deltas.
    // A record that changed turns unseen and the tables are refreshed; a
    // repeated or older copy changes nothing. `remote` changes nothing.
    // False when the commit failed: the matrix is as it was, and the delta
    // must come again.
    bool updateFields_ofObject_remote_(NSArray* fields, NSMutableDictionary* object, bool remote);
    // Applies a delete delta without a version: see the next.
    bool updateDeletionOfObjectWithId_(NSString* recordId);
    // Applies a delete delta: the record is removed unless a field was
    // changed after the removal's version; an unknown id leaves a
    // tombstone. False when the commit failed.
    bool updateDeletionOfObjectWithId_version_(NSString* recordId, NSString* version);

    // The history of a record's overwritten values (VTSheetHistory.cpp),
    // for the sheet's history view and for vantor-admin: entries
    // { field, value, version, writer, n }, by field, newest first, where n
    // counts from 1 within the field. Empty for an unknown record.
    NSMutableArray* historyOfRecordWithId_(NSString* recordId);
    // The value of entry n (from 1) of the field's history, to be written
    // back by a Save; nil when there is no such entry.
    NSObject* valueOfField_ofRecordWithId_fromHistoryEntry_(NSString* field, NSString* recordId,
                                                            uint32_t n);
    // Delivery of message records. Each hook is given an object retained for
    // it and releases it.
    // Before the fields are applied: a "sent" record addressed to this user
    // becomes "delivered" in `object`.
    void didReceiveDelta_(NSMutableDictionary* object);
    // After: the addressee's client sends "delivered" out again.
    void didProcessDelta_(NSMutableDictionary* object);
    // On selection: the addressee's first look turns "delivered" into
    // "read".
    void didSelectRow_(NSNumber* row);
    // In save's transaction: "sent", always part of the delta.
    void willStoreRow_(NSNumber* row);
    bool ignoresRowSelection() { return _ignoreRowSelection != 0; }

protected:
    ~VTSheet() override = default;

private:
    friend struct VTSheetClauses;
    // The end of every incoming change (VTSheetReplication.cpp).
    void refreshAfterIncomingChange();
    // An incoming change with versions off: the listed fields written over.
    bool applyListedFields(NSArray* fields, NSMutableDictionary* object);
    // The table's data source by the sheet's filters (VTSheetClauses.cpp).
    void makeDataSource();
    // The screen's parts (VTSheetWindow.cpp, VTSheetEditing.cpp).
    void addFieldControl(NSView* parent, NSArray* descriptor, float height, float* r,
                         NSMutableSet* roles, NSObject** firstText, NSObject** lastText);
    void addInformationLines(NSView* parent, float height, float r);
    // Fills a reference control from its target's filtered records; answers
    // the record ids by their position, for selecting.
    NSMutableDictionary* fillReferenceControl(NSArray* descriptor);
    void showRecordInControl(NSArray* descriptor, NSDictionary* record);
    // The form values of a Save, read from the controls.
    NSMutableDictionary* formValues();
    void setInformationLines(NSDictionary* record);
    void addHistoryButton(NSView* parent, float height, float r);
    void fillHistory();
    // Refilters and reloads the record table; the selection the reload
    // restores is no user's choice and doesn't reach rowSelected:.
    void reloadTable();
    void updateButtonsForRecord(NSDictionary* record);
    NSString* localized(const char* key);

    Ref<NSString> _name;
    Ref<NSString> _title;
    Ref<NSMutableArray> _fields;
    NSObject* _window = nullptr;  // not released by the sheet
    Ref<NSTableView> _tableView;
    Ref<NSMutableArray> _guiObjects;
    Ref<NSMutableDictionary> _fieldControls;
    Ref<NSMutableDictionary> _referenceObjects;
    Ref<NSMutableDictionary> _fieldLabels;
    Ref<NSMutableDictionary> _hiddenFields;
    Ref<NSMutableDictionary> _actionInfos;
    Ref<NSMutableSet> _inView;
    Ref<VTMatrix> _matrix;
    int32_t _activeRow = 0;
    NSObject* _workspace = nullptr;  // the owner, not retained
    Ref<VTKeyedArrays> _validation;
    Ref<VTKeyedArrays> _accessRights;
    Ref<VTKeyedArrays> _filters;
    Ref<VTKeyedArrays> _referenceFilters;
    Ref<VTKeyedArrays> _dateFilters;
    Ref<VTKeyedArrays> _access;
    Ref<NSMutableArray> _actions;
    uint8_t _adminType = 0;
    Ref<NSObject> _newButton;
    Ref<NSObject> _saveButton;
    Ref<NSObject> _removeButton;
    uint8_t _ignoreRowSelection = 0;
    uint8_t _createdInView = 0;
    uint8_t _creatorInView = 0;
    uint8_t _modifiedInView = 0;
    uint8_t _modifierInView = 0;
    Ref<NSString> _filterCurrentUser;
    Ref<NSMutableDictionary> _defaultValues;
    uint8_t _readOwn = 0;
    uint8_t _fullyInitialized = 0;
    Ref<NSMutableDictionary> _toolTips;
    Ref<VTMatrix> _source;
    // Per field key, what a control shows of a stored value that is not
    // among its choices (VTSheetEditing.cpp): for an enum the position of
    // the marked entry and the value; for a date without a value the date
    // the control was given. A Save keeps the stored value while the
    // control still shows exactly that.
    Ref<NSMutableDictionary> _keptValues;
    // The history window of the selected record (VTSheetHistoryWindow.cpp).
    Ref<NSObject> _historyButton;
    NSObject* _historyWindow = nullptr;  // not released: windows are kept
    Ref<NSTableView> _historyTable;
    Ref<NSObject> _restoreButton;
    Ref<NSString> _historyRecordId;
};
