// A column of a table view: the identifier that data sources key their
// cells by (a field name in the application), the header cell whose target
// and action fire when the header is clicked, and a width (0: the column
// shares the free width with the other flexible columns).
#pragma once

#include "foundation/NSObject.h"
#include "toolkit/NSControl.h"

class NSString;
class NSTableView;

// The header of a column: its stringValue is the column's title, and its
// target (retained) and action fire when the header is clicked.
class NSTableHeaderCell : public NSActionCell {
    NS_DECLARE_CLASS(NSTableHeaderCell, NSActionCell)

protected:
    ~NSTableHeaderCell() override = default;
};

class NSTableColumn : public NSObject {
    NS_DECLARE_CLASS(NSTableColumn, NSObject)

public:
    // Retains the identifier and makes the header cell.
    NSTableColumn* initWithIdentifier_(NSObject* identifier);
    NSObject* identifier() { return _identifier; }
    NSTableHeaderCell* headerCell() { return _headerCell; }
    NSTableView* tableView() { return _tableView; }
    // Not retained: the table holds its columns.
    void setTableView_(NSTableView* tableView) { _tableView = tableView; }
    float width() { return _width; }
    void setWidth_(float width) { _width = width; }

protected:
    ~NSTableColumn() override = default;

private:
    Ref<NSObject> _identifier;
    Ref<NSTableHeaderCell> _headerCell;
    NSTableView* _tableView = nullptr;  // not retained
    float _width = 0;
};
