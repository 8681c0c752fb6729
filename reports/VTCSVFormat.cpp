#include "reports/VTCSVFormat.h"

#include <cctype>
#include <cstring>

#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSDate.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"

namespace {

// The value's description. Strings and dates, nearly every cell, write
// their text straight into the line: no description object is made and
// autoreleased per cell.
void appendDescription(std::string* out, NSObject* value) {
    static const Class string = NSString::classObject();
    static const Class mutableString = NSMutableString::classObject();
    static const Class constantString = NSConstantString::classObject();
    static const Class date = NSDate::classObject();
    Class cls = value->class_();
    if (cls == string || cls == mutableString || cls == constantString) {
        out->append(static_cast<NSString*>(value)->UTF8String());
    } else if (cls == date) {
        char text[NSDate::kDescriptionSize];
        out->append(text, static_cast<NSDate*>(value)->getDescription(text));
    } else {
        out->append(static_cast<NSString*>(value->description())->UTF8String());
    }
}

// The matrix of the sheet of that name in the workspace's sheets map (a
// sheet, or anything answering matrix), or nil.
VTMatrix* matrixOfSheetNamed(VTMatrix* matrix, NSObject* name) {
    auto* sheets = NSSend<NSDictionary*>(matrix->workspace(), NS_SEL("sheets"));
    NSObject* holder = sheets && name ? sheets->objectForKey_(name) : nullptr;
    NSObject* target = holder ? NSSend<NSObject*>(holder, NS_SEL("matrix")) : nullptr;
    return target && target->isKindOfClass_(VTMatrix::classObject())
                   ? static_cast<VTMatrix*>(target)
                   : nullptr;
}

// The display text of a reference value: every display field of every
// referenced record, "NULL" for what is missing, joined by "; ".
void appendReference(std::string* out, NSObject* value, VTMatrix* target, NSArray* displayFields) {
    const char* text = static_cast<NSString*>(value->description())->UTF8String();
    uint32_t fieldCount = displayFields ? displayFields->count() : 0;
    bool first = true;
    for (const char* p = text; *p;) {
        while (*p && std::isspace(static_cast<unsigned char>(*p))) p++;
        const char* start = p;
        while (*p && !std::isspace(static_cast<unsigned char>(*p))) p++;
        if (p == start) break;
        NSString* id = NSString::stringWithUTF8String_(std::string(start, p).c_str());
        NSDictionary* record = target ? target->objectWithRecordId_(id) : nullptr;
        for (uint32_t f = 0; f < fieldCount; f++) {
            if (!first) out->append("; ");
            first = false;
            NSObject* part =
                    record ? record->objectForKey_(displayFields->objectAtIndex_(f)) : nullptr;
            if (part)
                appendDescription(out, part);
            else
                out->append("NULL");
        }
    }
}

}  // namespace

VTCSVFormat::VTCSVFormat(VTMatrix* matrix) : _matrix(matrix) {
    VTSheet* sheet = matrix ? matrix->sheet() : nullptr;
    NSArray* fields = sheet ? sheet->fields() : nullptr;
    for (uint32_t i = 0, n = fields ? fields->count() : 0; i < n; i++) {
        auto* descriptor = static_cast<NSArray*>(fields->objectAtIndex_(i));
        Column column{static_cast<NSString*>(descriptor->objectAtIndex_(0)), nullptr, nullptr,
                      false, std::make_shared<std::unordered_map<std::string, std::string>>()};
        NSObject* type = descriptor->count() > 1 ? descriptor->objectAtIndex_(1) : nullptr;
        if (type && (type->isEqual_("reference"_ns) || type->isEqual_("multireference"_ns))) {
            column.reference = true;
            if (descriptor->count() > 2)
                column.target = matrixOfSheetNamed(matrix, descriptor->objectAtIndex_(2));
            NSObject* display = descriptor->count() > 3 ? descriptor->objectAtIndex_(3) : nullptr;
            if (display && display->isKindOfClass_(NSArray::classObject()))
                column.displayFields = static_cast<NSArray*>(display);
        }
        _columns.push_back(column);
    }
}

void VTCSVFormat::appendReferenceOnce(std::string* out, NSObject* value,
                                      const Column& column) const {
    // Many records point to the same few: each distinct value is resolved
    // once per writer. The matrices don't change while a file is written
    // (the export runs on the main thread, which also makes every change).
    // The key is put together in a buffer kept for the purpose: most
    // values are found, and a found one then costs no allocation.
    _referenceKey.assign(static_cast<NSString*>(value->description())->UTF8String());
    auto found = column.resolved->find(_referenceKey);
    if (found == column.resolved->end()) {
        std::string text;
        appendReference(&text, value, column.target, column.displayFields);
        found = column.resolved->emplace(_referenceKey, std::move(text)).first;
    }
    out->append(found->second);
}

void VTCSVFormat::appendLine(std::string* out, NSDictionary* record) const {
    for (const Column& column : _columns) {
        NSObject* value = record->objectForKey_(column.key);
        if (!value) {
            out->append("???,");
            continue;
        }
        out->push_back('"');
        if (column.reference)
            appendReferenceOnce(out, value, column);
        else
            appendDescription(out, value);
        out->push_back('"');
        out->push_back(',');
    }
    // The two columns of who made the record and when; a record that was
    // never committed has neither, and writes the same "(null)" the
    // description of nil would give.
    NSString* const stamps[] = {"__created"_ns, "__creator"_ns};
    for (NSString* key : stamps) {
        NSObject* value = record->objectForKey_(key);
        out->push_back('"');
        if (value)
            appendDescription(out, value);
        else
            out->append("(null)");
        out->push_back('"');
        out->push_back(key == stamps[0] ? ',' : '\n');
    }
}

bool VTCSVFormat::writeFile(const char* path) const {
    std::FILE* file = std::fopen(path, "wb");
    if (!file) return false;
    NSArray* records = _matrix ? _matrix->allObjectsSorted() : nullptr;
    std::string buffer;
    buffer.reserve(1 << 16);
    // The lines go out in blocks, each record's temporary objects in a pool
    // of its own block.
    const uint32_t kBlock = 256;
    for (uint32_t r = 0, n = records ? records->count() : 0; r < n;) {
        NSAutoreleasePoolScope pool;
        for (uint32_t end = r + kBlock < n ? r + kBlock : n; r < end; r++)
            appendLine(&buffer, static_cast<NSDictionary*>(records->objectAtIndex_(r)));
        std::fwrite(buffer.data(), 1, buffer.size(), file);
        buffer.clear();
    }
    std::fclose(file);
    return true;
}

NSString* VTCSVFormat::exportPath(NSString* name) {
    const char* text = name ? name->UTF8String() : "";
    return NSString::stringWithFormat_(std::strchr(text, '.') ? "export/%s" : "export/%s.csv",
                                       text);
}
