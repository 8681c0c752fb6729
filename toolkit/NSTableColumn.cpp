#include "NSTableColumn.h"

#include "foundation/NSString.h"

NS_CLASS_BEGIN(NSTableHeaderCell, NSActionCell)
NS_CLASS_END(NSTableHeaderCell)

NSTableColumn* NSTableColumn::initWithIdentifier_(NSObject* identifier) {
    NSObject::init();
    _identifier.set(identifier);
    _headerCell.adopt(static_cast<NSTableHeaderCell*>(NSTableHeaderCell::alloc()->init()));
    return this;
}

NS_CLASS_BEGIN(NSTableColumn, NSObject)
    NS_METHOD(initWithIdentifier_)
    NS_METHOD(identifier)
    NS_METHOD(headerCell)
    NS_METHOD(tableView)
    NS_METHOD(setTableView_)
    NS_METHOD(width)
    NS_METHOD(setWidth_)
    NS_FIELD(_identifier)
    NS_FIELD(_headerCell)
    NS_FIELD(_tableView)
    NS_FIELD(_width)
NS_CLASS_END(NSTableColumn)
