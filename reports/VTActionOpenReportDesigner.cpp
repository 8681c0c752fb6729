#include "reports/VTActionOpenReportDesigner.h"

#include <cstdio>
#include <string>

#include "foundation/NSArray.h"
#include "foundation/NSString.h"
#include "foundation/NSTask.h"
#include "foundation/platform/Platform.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"

namespace {

// The sheet of the matrix's name in the workspace's sheets map, so that a
// matrix given without its sheet still finds the fields; else its own.
VTSheet* sheetOf(VTMatrix* matrix) {
    if (matrix->sheet()) return matrix->sheet();
    auto* sheets = NSSend<NSDictionary*>(matrix->workspace(), NS_SEL("sheets"));
    NSObject* sheet = sheets ? sheets->objectForKey_(matrix->name()) : nullptr;
    return sheet && sheet->isKindOfClass_(VTSheet::classObject()) ? static_cast<VTSheet*>(sheet)
                                                                  : nullptr;
}

std::string beginLayoutText(VTSheet* sheet, NSString* name) {
    char line[64];
    std::string text = std::string("<tool name=\"") + name->UTF8String() + "\">\n";
    NSArray* fields = sheet ? sheet->fields() : nullptr;
    NSDictionary* labels = sheet ? sheet->fieldLabels() : nullptr;
    for (uint32_t i = 0, n = fields ? fields->count() : 0; i < n; i++) {
        auto* key = static_cast<NSString*>(
                static_cast<NSArray*>(fields->objectAtIndex_(i))->objectAtIndex_(0));
        // A field without a label of its own is shown under its key, as the
        // sheet's form shows it.
        NSObject* label = labels ? labels->objectForKey_(key) : nullptr;
        const char* labelText = label ? static_cast<NSString*>(label->description())->UTF8String()
                                      : key->UTF8String();
        int y = 20 + 40 * static_cast<int>(i);
        std::snprintf(line, sizeof line,
                      "<field posx=\"%d\" posy=\"%d\" width=\"%d\" height=\"%d\">", 220, y, 200,
                      20);
        text += line + std::string(key->UTF8String()) + "</field>\n";
        std::snprintf(line, sizeof line,
                      "<label posx=\"%d\" posy=\"%d\" width=\"%d\" height=\"%d\">", 20, y, 200, 20);
        text += line + std::string(labelText) + "</label>\n";
    }
    return text + "</tool>\n";
}

}  // namespace

VTMatrix* VTActionOpenReportDesigner::matrixOfArgument_(NSObject* argument) {
    if (argument && argument->isKindOfClass_(NSArray::classObject())) {
        auto* list = static_cast<NSArray*>(argument);
        argument = list->count() > 0 ? list->objectAtIndex_(0) : nullptr;
    }
    return argument && argument->isKindOfClass_(VTMatrix::classObject())
                   ? static_cast<VTMatrix*>(argument)
                   : nullptr;
}

NSString* VTActionOpenReportDesigner::layoutPathForMatrix_(VTMatrix* matrix) {
    if (!matrix) return nullptr;
    NSString* name = matrix->sheet() ? matrix->sheet()->name() : matrix->name();
    return NSString::stringWithFormat_("layout/layout-%s.xml", name ? name->UTF8String() : "");
}

NSString* VTActionOpenReportDesigner::beginLayoutForMatrix_(NSObject* argument) {
    VTMatrix* matrix = matrixOfArgument_(argument);
    NSString* path = layoutPathForMatrix_(matrix);
    if (!path) return nullptr;
    if (vtFileExists(path->UTF8String())) {
        LOG("XML file exists");
        return path;
    }
    VTSheet* sheet = sheetOf(matrix);
    std::string text = beginLayoutText(sheet, sheet ? sheet->name() : matrix->name());
    std::FILE* file = std::fopen(path->UTF8String(), "wb");
    if (!file) {
        LOG("cannot write XML to file");
        return path;
    }
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
    return path;
}

void VTActionOpenReportDesigner::perform__(NSNumber*, NSObject* argument) {
    NSString* path = beginLayoutForMatrix_(argument);
    if (!path) return;
    // A plain name: the designer is looked for beside the client and runs
    // in its working directory, where the relative path leads to the file.
    NSTask::launchedTaskWithLaunchPath_arguments_("VantorReportDesigner"_ns,
                                                  NSArray::arrayWithObjects_(path, nullptr));
}

NS_CLASS_BEGIN(VTActionOpenReportDesigner, NSObject)
    NS_METHOD(perform__)
    NS_METHOD(beginLayoutForMatrix_)
    NS_CLASS_METHOD(layoutPathForMatrix_)
    NS_CLASS_METHOD(matrixOfArgument_)
NS_CLASS_END(VTActionOpenReportDesigner)
