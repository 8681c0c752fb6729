// The report designer link: makes sure a layout file exists for the sheet
// and hands its path to VantorReportDesigner, a program outside this
// system that draws the layout and writes it back in the format that
// VTActionCreatePDF reads.
//
// A layout begun here is a two-column table, one row per field of the sheet
// in `fields` order (hidden fields included), 40 layout units apart:
//
//   <tool name="SHEET">
//   <field posx="220" posy="Y" width="200" height="20">KEY</field>
//   <label posx="20" posy="Y" width="200" height="20">LABEL</label>
//   ...
//   </tool>
//
// each line ended by one line feed, Y 20 for the first field, no XML
// declaration, UTF-8. Keys and labels go in as they are, without XML
// escaping. An existing file is never overwritten, so a designed layout
// survives; a later change to the sheet's fields doesn't reach it.
#pragma once

#include "foundation/NSObject.h"

class NSNumber;
class NSString;
class VTMatrix;

class VTActionOpenReportDesigner : public NSObject {
    NS_DECLARE_CLASS(VTActionOpenReportDesigner, NSObject)

public:
    // `matrix`: the sheet's matrix, or an array of it and the clause's
    // further atoms. Begins the layout if need be, then starts the designer
    // with the layout path as its one argument, whatever happened before.
    void perform__(NSNumber* row, NSObject* matrix);
    // The first half of perform::: logs "XML file exists" when the layout is
    // there, else writes the begun layout ("cannot write XML to file" when
    // it can't be opened). Answers the layout path, nil for no matrix.
    NSString* beginLayoutForMatrix_(NSObject* matrix);

    // "layout/layout-<name>.xml" with the name of the matrix's sheet (the
    // matrix's own name when it has no sheet). Autoreleased. The PDF report
    // reads the same path.
    static NSString* layoutPathForMatrix_(VTMatrix* matrix);
    // The matrix an action is given: the argument itself, or the first
    // element of an array; nil when it is neither.
    static VTMatrix* matrixOfArgument_(NSObject* argument);

    VTActionOpenReportDesigner() = default;

protected:
    ~VTActionOpenReportDesigner() override = default;
};
