#include "VTSheet.h"

#include "foundation/NSString.h"
#include "sheets/VTMatrix.h"
#include "toolkit/NSTableColumn.h"
#include "toolkit/NSTableView.h"

void VTSheet::dealloc() { super::dealloc(); }

NSString* VTSheet::primarySourceName() {
    VTMatrix* source = _matrix ? _matrix->source() : nullptr;
    if (!source) return _name;
    VTSheet* owner = source->sheet();
    return owner ? owner->name() : source->name();
}

bool VTSheet::isPrimary() { return !_matrix || !_matrix->source(); }

int32_t VTSheet::currentUserRole() {
    if (!_workspace) return 0;
    NSObject* role = NSSend<NSObject*>(_workspace, NS_SEL("currentUserRole"));
    Class cls = _workspace->class_();
    // roleWithString: is a class operation of the workspace; a class without
    // it would be a fatal send, so ask first.
    if (!cls->lookupClassMethod(NS_SEL("roleWithString:"))) return 0;
    return NSSendClass<int32_t>(cls, NS_SEL("roleWithString:"), role);
}

NSTableView* VTSheet::sheetTableView() {
    if (!_tableView) LOG("sheet table view is nil!");
    return _tableView;
}

void VTSheet::columnAction_(NSTableColumn* column) {
    if (!column || !_matrix) return;
    _matrix->sortByField_(static_cast<NSString*>(column->identifier()));
    NSTableView* table = column->tableView();
    if (table) {
        NSSend<void>(table->dataSource(), NS_SEL("filter"));
        table->reloadData();
    }
    NSSend<void>(_workspace, NS_SEL("refreshSheetsExceptThisOne:"), static_cast<NSObject*>(this));
}

NSMutableSet* VTSheet::rolesForAction_(NSString* action) {
    return NSMutableSet::setWithArray_(_accessRights->objectsForKey_(action));
}

bool VTSheet::isRestrictedForAction_(NSString* action) {
    return _accessRights->objectsForKey_(action)->count() > 0;
}

NS_CLASS_BEGIN(VTSheet, NSObject)
    NS_METHOD(dealloc)
    NS_METHOD(primarySourceName)
    NS_METHOD(isPrimary)
    NS_METHOD(workspace)
    NS_METHOD(isAdminType)
    NS_METHOD(matrix)
    NS_METHOD(currentUserRole)
    NS_METHOD(sheetTableView)
    NS_METHOD(isFullyInitialized)
    NS_METHOD(fieldControls)
    NS_METHOD(columnAction_)
    NS_METHOD(title)
    NS_METHOD(name)
    NS_METHOD(fieldLabels)
    NS_METHOD(fields)
    NS_METHOD(filters)
    NS_METHOD(isRestrictedForAction_)
    NS_METHOD(rolesForAction_)
    NS_METHOD(initWithArray_workspace_)
    NS_FIELD(_name)
    NS_FIELD(_title)
    NS_FIELD(_fields)
    NS_FIELD(_window)
    NS_FIELD(_tableView)
    NS_FIELD(_guiObjects)
    NS_FIELD(_fieldControls)
    NS_FIELD(_referenceObjects)
    NS_FIELD(_fieldLabels)
    NS_FIELD(_hiddenFields)
    NS_FIELD(_actionInfos)
    NS_FIELD(_inView)
    NS_FIELD(_matrix)
    NS_FIELD(_activeRow)
    NS_FIELD(_workspace)
    NS_FIELD(_validation)
    NS_FIELD(_accessRights)
    NS_FIELD(_filters)
    NS_FIELD(_referenceFilters)
    NS_FIELD(_dateFilters)
    NS_FIELD(_access)
    NS_FIELD(_actions)
    NS_FIELD(_adminType)
    NS_FIELD(_newButton)
    NS_FIELD(_saveButton)
    NS_FIELD(_removeButton)
    NS_FIELD(_ignoreRowSelection)
    NS_FIELD(_createdInView)
    NS_FIELD(_creatorInView)
    NS_FIELD(_modifiedInView)
    NS_FIELD(_modifierInView)
    NS_FIELD(_filterCurrentUser)
    NS_FIELD(_defaultValues)
    NS_FIELD(_readOwn)
    NS_FIELD(_fullyInitialized)
    NS_FIELD(_toolTips)
    NS_FIELD(_source)
NS_CLASS_END(VTSheet)
