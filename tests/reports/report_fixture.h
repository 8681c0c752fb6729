// The reports' tests: each in a fresh working directory with data/, sheets
// defined from configuration text, records set by hand, and the report
// fonts copied in from Debian's packages (scripts/setup.sh installs them;
// scripts/new-workdir.sh installs the same for the demo). Included by one
// test file per program.
#pragma once

#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>

#include "sheets/LXListParser.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "tests/sheets/test_workspace.h"
#include "tests/support/RunProgram.h"

class ReportsTest : public SheetsTest {
protected:
    // Creates a sheet from its definition and enters it under its name.
    VTSheet* define(const std::string& text) {
        NSArray* list =
                LXListParser::listParserWithString_(NSString::stringWithUTF8String_(text.c_str()))
                        ->parse();
        auto* sheet =
                static_cast<VTSheet*>(VTSheet::alloc()->initWithArray_workspace_(list, workspace));
        if (!sheet) return nullptr;
        workspace->sheets()->setObject_forKey_(sheet, sheet->name());
        sheet->release();
        return sheet;
    }
    // A new record of text values; answers its row.
    static uint32_t add(VTSheet* sheet,
                        std::initializer_list<std::pair<const char*, const char*>> values) {
        VTMatrix* m = sheet->matrix();
        uint32_t row = m->numberOfRows();
        for (const auto& v : values)
            m->setValue_inRow_column_(NSString::stringWithUTF8String_(v.second), row,
                                      NSString::stringWithUTF8String_(v.first));
        return row;
    }
    static void set(VTSheet* sheet, uint32_t row, const char* key, NSObject* value) {
        sheet->matrix()->setValue_inRow_column_(value, row, NSString::stringWithUTF8String_(key));
    }
    static NSString* idOf(VTSheet* sheet, uint32_t row) {
        return static_cast<NSString*>(sheet->matrix()->valueInRow_column_(row, "__recordId"_ns));
    }

    // The eight report fonts under the names the report loads.
    static void installFonts() {
        const std::string liberation = "/usr/share/fonts/truetype/liberation/";
        const std::string dejavu = "/usr/share/fonts/truetype/dejavu/";
        const std::pair<const char*, std::string> fonts[] = {
                {"arial.ttf", liberation + "LiberationSans-Regular.ttf"},
                {"arialbold.ttf", liberation + "LiberationSans-Bold.ttf"},
                {"times.ttf", liberation + "LiberationSerif-Regular.ttf"},
                {"timesbold.ttf", liberation + "LiberationSerif-Bold.ttf"},
                {"tahoma.ttf", dejavu + "DejaVuSansCondensed.ttf"},
                {"tahomabold.ttf", dejavu + "DejaVuSansCondensed-Bold.ttf"},
                {"verdana.ttf", dejavu + "DejaVuSans.ttf"},
                {"verdanabold.ttf", dejavu + "DejaVuSans-Bold.ttf"},
        };
        std::filesystem::create_directory("fonts");
        for (const auto& font : fonts)
            std::filesystem::copy_file(font.second, std::string("fonts/") + font.first,
                                       std::filesystem::copy_options::overwrite_existing);
    }
};
