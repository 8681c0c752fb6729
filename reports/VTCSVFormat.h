// The CSV file of a sheet's records: the one writer of the format, shared
// by the export dialog and vantor-admin's "report csv".
//
// No header line, no byte-order mark. One line per record, in the matrix's
// present row order and without any filter, ended by one line feed. A line
// has a column for each field of the sheet in `fields` order, hidden fields
// included, then the record's __created and __creator; columns are
// separated by commas:
//
//   line      := column ("," column)* "\n"
//   column    := "???"                  a field the record holds no value for
//              | '"' text '"'           the value's description, UTF-8
//
// A reference or multireference field with a value writes, instead of the
// ids, the display fields of each referenced record: its value's
// description, or "NULL" when the record lacks the field or the id finds no
// record; all parts, over all ids, joined by "; ". The format has no
// escape: quotes and line breaks inside a value are written as they are.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/NSArray.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSString.h"

class VTMatrix;

class VTCSVFormat {
public:
    // The fields of the matrix's sheet, and for each reference the matrix
    // it points into, looked up once; the sheets must outlive the writer.
    explicit VTCSVFormat(VTMatrix* matrix);

    // Appends the line of one record, with its line feed.
    void appendLine(std::string* out, NSDictionary* record) const;
    // Writes every record of the matrix to `path` (binary, replacing a file
    // there). False only when the file can't be opened; write errors are
    // not looked at.
    bool writeFile(const char* path) const;

    // "export/<name>", with ".csv" appended when the name holds no dot
    // anywhere: "report" gives export/report.csv, "my.report" stays.
    // Autoreleased.
    static NSString* exportPath(NSString* name);

private:
    struct Column {
        NSString* key;
        VTMatrix* target;        // for a reference: the matrix of its sheet
        NSArray* displayFields;  // for a reference; nil otherwise
        bool reference;
        // Reference value to its column text, filled as the lines are made.
        std::shared_ptr<std::unordered_map<std::string, std::string>> resolved;
    };
    void appendReferenceOnce(std::string* out, NSObject* value, const Column& column) const;
    VTMatrix* _matrix;
    std::vector<Column> _columns;
    mutable std::string _referenceKey;  // scratch of appendReferenceOnce
};
