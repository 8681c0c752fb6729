// The PDF report: the selected record of a sheet printed on one page by the
// sheet's layout (layout/layout-<sheet>.xml, see VTActionOpenReportDesigner.h
// for how one begins), written to tmp/report.pdf and opened in the system's
// viewer.
//
// The layout's root element holds `label` and `field` elements in any
// order; other nodes are passed over. Each has posx and posy (layout units,
// 800 to the page's width, y counted down from the top), fontfamily
// ("Arial", "Times New Roman", "Tahoma", "Verdana") and fontsize (points).
// A label prints its text in the regular face; a field prints the record's
// value under its key in the bold face: references as their display text,
// dates as vantorDescription, one line per carriage return, each line 12
// points below the one before whatever the size. An element's base line
// stands at x * s, h - 10 - y * s, with s the page's width / 800.
//
// Every character prints as written: labels and values go to the page as
// UTF-8 through fonts embedded whole from fonts/ (arial.ttf, arialbold.ttf,
// times.ttf, timesbold.ttf, tahoma.ttf, tahomabold.ttf, verdana.ttf,
// verdanabold.ttf), so Czech and Polish names print right. docs/reports.md
// says why this differs from a CP1250 page.
//
// What a layout may leave out, decided here so that a layout the designer
// has only begun (no fontfamily, no fontsize) prints as its plain table:
// - fontfamily missing or none of the four: the family of the element
//   before stays in force, at first Arial; the face is always the
//   element's own (regular for a label, bold for a field), so that a begun
//   layout, whose first element is a field, still prints its labels
//   regular;
// - fontsize missing or no whole number above 0: the size before, at first
//   10 points;
// - posx or posy missing or no whole number: the element is skipped, with
//   the log line "layout: <element> without posx or posy skipped";
// - no text (a label without words, a field without a key): nothing prints.
// And one departure: the line feed of a CR LF pair ends the line with its
// carriage return instead of standing, as a glyph the fonts don't have, at
// the start of the next line.
#pragma once

#include "foundation/NSObject.h"

class NSNumber;

class VTActionCreatePDF : public NSObject {
    NS_DECLARE_CLASS(VTActionCreatePDF, NSObject)

public:
    // `row`: the selected record's matrix row; `matrix`: the sheet's matrix,
    // or an array of it and the clause's further atoms. Writes the report
    // and opens it; failures as writeReportForRow:matrix: says, and a viewer
    // that can't be started gives the alert cannotlaunchpdf.
    void perform__(NSNumber* row, NSObject* matrix);
    // Writes tmp/report.pdf, replacing a former report, and answers whether
    // it did. No layout file: the alert cannotfindlayoutpdf. A layout that
    // isn't XML: the log line "cannot parse XML". Any error of the PDF
    // library (a missing font, no folder tmp): "ERROR: error_no=%04X,
    // detail_no=%u" on standard output and no file. Main thread only: the
    // library's error handler returns through one process-wide jump.
    bool writeReportForRow_matrix_(NSNumber* row, NSObject* matrix);

    VTActionCreatePDF() = default;

protected:
    ~VTActionCreatePDF() override = default;
};
