#include "reports/VTActionCreatePDF.h"

#include <hpdf.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "foundation/NSDate.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "foundation/platform/Platform.h"
#include "reports/VTActionOpenReportDesigner.h"
#include "sheets/VTMatrix.h"
#include "toolkit/NSAlert.h"

namespace {

const char kReportPath[] = "tmp/report.pdf";

// The four families of a layout and their files, regular and bold.
struct Family {
    const char* name;
    const char* regular;
    const char* bold;
};
const Family kFamilies[] = {
        {"Arial", "fonts/arial.ttf", "fonts/arialbold.ttf"},
        {"Times New Roman", "fonts/times.ttf", "fonts/timesbold.ttf"},
        {"Tahoma", "fonts/tahoma.ttf", "fonts/tahomabold.ttf"},
        {"Verdana", "fonts/verdana.ttf", "fonts/verdanabold.ttf"},
};
const int kFamilyCount = sizeof kFamilies / sizeof kFamilies[0];
const float kLineDistance = 12;
const float kDefaultSize = 10;

// Where the library's error handler returns to. One report runs at a time,
// on the main thread, so one process-wide target is enough.
std::jmp_buf reportJump;

void reportError(HPDF_STATUS error, HPDF_STATUS detail, void*) {
    std::printf("ERROR: error_no=%04X, detail_no=%u\n", static_cast<unsigned>(error),
                static_cast<unsigned>(detail));
    std::longjmp(reportJump, 1);
}

// The localized text of a key. The table lives in the application layer
// above this one, so it is asked by name; "[key]" as an unknown key gives.
NSString* localized(const char* key) {
    NSString* k = NSString::stringWithUTF8String_(key);
    Class localization = NSClassFromCString("VTLocalization");
    SEL sel = NS_SEL("localizedStringForKey:");
    NSString* text = localization && localization->lookupClassMethod(sel)
                             ? NSSendClass<NSString*>(localization, sel, static_cast<NSObject*>(k))
                             : nullptr;
    return text ? text : NSString::stringWithFormat_("[%s]", key);
}

void alert(const char* key) {
    NSAlert::
            alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                    localized("error"), nullptr, nullptr, nullptr, localized(key))
                    ->runModal();
}

// A whole number attribute into *out; false when it is missing or no whole
// number.
bool integerAttribute(xmlNode* node, const char* name, long* out) {
    xmlChar* text = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
    if (!text) return false;
    const char* start = reinterpret_cast<const char*>(text);
    char* end = nullptr;
    long value = std::strtol(start, &end, 10);
    bool ok = end != start && *end == 0;
    xmlFree(text);
    if (ok) *out = value;
    return ok;
}

// The family's index, or -1 for a missing or unknown one.
int familyOf(xmlNode* node) {
    xmlChar* text = xmlGetProp(node, reinterpret_cast<const xmlChar*>("fontfamily"));
    int found = -1;
    for (int i = 0; text && i < kFamilyCount && found < 0; i++) {
        if (std::strcmp(reinterpret_cast<const char*>(text), kFamilies[i].name) == 0) found = i;
    }
    if (text) xmlFree(text);
    return found;
}

// The element's first text node, or null.
const char* textOf(xmlNode* node) {
    for (xmlNode* child = node->children; child; child = child->next) {
        if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE)
            return reinterpret_cast<const char*>(child->content);
    }
    return nullptr;
}

// What a field prints: the value under the key in the row, references
// resolved, a date as vantorDescription; nil when the record has none.
NSString* fieldText(VTMatrix* matrix, uint32_t row, const char* key) {
    NSString* field = NSString::stringWithUTF8String_(key);
    NSObject* value = matrix->resolveValue_forField_(matrix->valueInRow_column_(row, field), field);
    if (!value) return nullptr;
    if (value->respondsToSelector_(NS_SEL("vantorDescription")))
        return NSSend<NSString*>(value, NS_SEL("vantorDescription"));
    return static_cast<NSString*>(value->description());
}

// The page, from the fonts to the saved file. Every failure of the library
// leaves through the error handler's jump, so nothing here may own a
// resource that a jump would leak: the strings are autoreleased, the
// scratch line belongs to the caller.
void renderReport(HPDF_Doc pdf, xmlDoc* layout, VTMatrix* matrix, uint32_t row, std::string* line) {
    HPDF_UseUTFEncodings(pdf);
    HPDF_SetCompressionMode(pdf, HPDF_COMP_ALL);
    HPDF_Page page = HPDF_AddPage(pdf);
    HPDF_REAL width = HPDF_Page_GetWidth(page);
    HPDF_REAL height = HPDF_Page_GetHeight(page);
    HPDF_REAL scale = width / 800.0f;
    HPDF_Font regular[kFamilyCount];
    HPDF_Font bold[kFamilyCount];
    for (int i = 0; i < kFamilyCount; i++) {
        regular[i] = HPDF_GetFont(
                pdf, HPDF_LoadTTFontFromFile(pdf, kFamilies[i].regular, HPDF_TRUE), "UTF-8");
        bold[i] = HPDF_GetFont(pdf, HPDF_LoadTTFontFromFile(pdf, kFamilies[i].bold, HPDF_TRUE),
                               "UTF-8");
    }

    int family = 0;
    HPDF_REAL size = kDefaultSize;
    xmlNode* root = xmlDocGetRootElement(layout);
    for (xmlNode* node = root ? root->children : nullptr; node; node = node->next) {
        if (node->type != XML_ELEMENT_NODE) continue;
        const char* name = reinterpret_cast<const char*>(node->name);
        bool isLabel = std::strcmp(name, "label") == 0;
        if (!isLabel && std::strcmp(name, "field") != 0) continue;
        int named = familyOf(node);
        if (named >= 0) family = named;
        HPDF_Font font = isLabel ? regular[family] : bold[family];
        long fontSize = 0;
        if (integerAttribute(node, "fontsize", &fontSize) && fontSize > 0)
            size = static_cast<HPDF_REAL>(fontSize);
        long x = 0, y = 0;
        if (!integerAttribute(node, "posx", &x) || !integerAttribute(node, "posy", &y)) {
            LOG("layout: %s without posx or posy skipped", name);
            continue;
        }
        const char* text = textOf(node);
        if (!text || !*text) continue;
        HPDF_REAL left = static_cast<HPDF_REAL>(x) * scale;
        HPDF_REAL base = height - 10 - static_cast<HPDF_REAL>(y) * scale;

        HPDF_Page_SetFontAndSize(page, font, size);
        HPDF_Page_BeginText(page);
        if (isLabel) {
            HPDF_Page_TextOut(page, left, base, text);
        } else if (NSString* value = fieldText(matrix, row, text)) {
            // Lines end at carriage returns. The line feed of a CR LF
            // pair belongs to the line end: left in the text, the embedded
            // fonts would draw their box for a missing glyph in front of
            // every further line of a multiline value.
            const char* part = value->UTF8String();
            for (int number = 0;; number++) {
                const char* end = std::strchr(part, '\r');
                line->assign(part, end ? static_cast<size_t>(end - part) : std::strlen(part));
                if (!line->empty())
                    HPDF_Page_TextOut(page, left, base - kLineDistance * number, line->c_str());
                if (!end) break;
                part = end[1] == '\n' ? end + 2 : end + 1;
            }
        }
        HPDF_Page_EndText(page);
    }
    HPDF_SaveToFile(pdf, kReportPath);
}

}  // namespace

bool VTActionCreatePDF::writeReportForRow_matrix_(NSNumber* rowNumber, NSObject* argument) {
    VTMatrix* matrix = VTActionOpenReportDesigner::matrixOfArgument_(argument);
    if (!matrix || !rowNumber) return false;
    int32_t rowValue = rowNumber->intValue();
    uint32_t row = rowValue < 0 ? matrix->numberOfRows() : static_cast<uint32_t>(rowValue);
    NSString* path = VTActionOpenReportDesigner::layoutPathForMatrix_(matrix);
    if (!vtFileExists(path->UTF8String())) {
        alert("cannotfindlayoutpdf");
        return false;
    }
    xmlDoc* layout = xmlReadFile(path->UTF8String(), nullptr, 0);
    if (!layout) {
        LOG("cannot parse XML");
        return false;
    }
    HPDF_Doc pdf = HPDF_New(reportError, nullptr);
    if (!pdf) {
        std::printf("error: cannot create PdfDoc object\n");
        xmlFreeDoc(layout);
        return false;
    }
    std::string line;
    volatile bool written = false;
    if (setjmp(reportJump) == 0) {
        renderReport(pdf, layout, matrix, row, &line);
        written = true;
    }
    HPDF_Free(pdf);
    xmlFreeDoc(layout);
    return written;
}

void VTActionCreatePDF::perform__(NSNumber* row, NSObject* matrix) {
    if (!writeReportForRow_matrix_(row, matrix)) return;
    if (!vtOpenDocument(kReportPath)) alert("cannotlaunchpdf");
}

NS_CLASS_BEGIN(VTActionCreatePDF, NSObject)
    NS_METHOD(perform__)
    NS_METHOD(writeReportForRow_matrix_)
NS_CLASS_END(VTActionCreatePDF)
