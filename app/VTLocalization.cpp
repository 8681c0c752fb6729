#include "app/VTLocalization.h"

#include <cstdlib>
#include <string>

#include "foundation/NSData.h"
#include "foundation/NSString.h"
#include "foundation/platform/Platform.h"

namespace {

NSDictionary* installedTable = nullptr;

struct Row {
    const char* key;
    const char* english;
    const char* german;
    const char* czech;
};

// In the order of the English table.
const Row kRows[] = {
        {"error", "Error", "Fehler", "Chyba"},
        {"login", "Login", "Anmelden", "Login"},
        {"alreadyrunning",
         "An instance of this application is already running in the same working directory.",
         "Eine Instanz der Anwendung läuft noch.", "Instance této aplikace již běží."},
        {"stalelock",
         "The lock file vantor.lock was left behind by process %s, which no longer runs. If "
         "nothing else "
         "works in this directory, delete vantor.lock and start again.",
         "Die Sperrdatei vantor.lock stammt vom Prozess %s, der nicht mehr läuft. Wenn in diesem "
         "Verzeichnis nichts anderes arbeitet, löschen Sie vantor.lock und starten Sie erneut.",
         "Zamykací soubor vantor.lock zanechal proces %s, který již neběží. Pokud v tomto adresáři "
         "nic "
         "jiného nepracuje, smažte vantor.lock a spusťte aplikaci znovu."},
        {"novuk", "no user unique ID", "Kein Benützerschlüssel gefunden",
         "Nenalezen uživatelský klíč"},
        {"novukfound", "No user key has been found.", "Kein Benützerschlüssel gefunden.",
         "Nenalezen uživatelský klíč."},
        {"bt_new", "New", "Neu", "Nový"},
        {"bt_save", "Save", "Speichern", "Uložit"},
        {"bt_remove", "Remove", "Entfernen", "Odstranit"},
        {"validation_notempty", "Field '%s' must not be empty.",
         "Das Eingabefeld '%s' darf nicht leer sein.", "Pole '%s' nesmí být prázdné."},
        {"validation_error", "Validation error", "Validierungsfehler", "Chyba při validaci"},
        {"creator", "Creator", "Erstellt von", "Vytvořil"},
        {"created", "Created", "Erstellt am", "Vytvořeno"},
        {"modifier", "Modifier", "Geändert von", "Změnil"},
        {"modified", "Modified", "Geändert am", "Změneno"},
        {"cannotlaunchpdf", "No PDF viewer found.", "Kein PDF-Viewer gefunden.",
         "Nenalezen prohlížeč PDF."},
        {"cannotfindlayoutpdf",
         "No layout scheme found for this form. Please use the report designer to create one.",
         "Kein Layout-Schema gefunden. Erstellen Sie bitte eins mit dem Report-Designer.",
         "Nenalezeno schéma pro layout."},
        {"unknownsheet", "Unknown sheet. Ignore delta?", "Unbekannte Tabelle. Delta ignorieren?",
         "Neznámá tabulka. Ignorovat deltu?"},
        {"nouserrow_error", "No match between user key and database.",
         "Falscher Benützerschlüssel.", "Nesprávný uživatelský klíč."},
        {"savefailed",
         "The change could not be saved: the data of this sheet is damaged or the disk is full.",
         "Die Änderung konnte nicht gespeichert werden: die Daten dieser Tabelle sind beschädigt "
         "oder der "
         "Datenträger ist voll.",
         "Změnu nelze uložit: data této tabulky jsou poškozena nebo je disk plný."},
        {"userdamaged", "The user data (data/user) is damaged. Please restore it from a backup.",
         "Die Benützerdaten (data/user) sind beschädigt. Bitte stellen Sie sie aus einer Sicherung "
         "wieder her.",
         "Uživatelská data (data/user) jsou poškozena. Obnovte je prosím ze zálohy."},
        {"nodatafolder", "The data folder (data/) is missing.", "Der Datenordner (data/) fehlt.",
         "Složka s daty (data/) chybí."},
        {"removing", "Removing", "Entfernen", "Ostranit"},
        {"areyousure", "Are you sure?", "Wirklich durchführen?", "Opravdu provést?"},
        {"notamongchoices", "%s (not among the choices)", "%s (nicht in der Auswahl)",
         "%s (není v nabídce)"},
        {"history", "History", "Verlauf", "Historie"},
        {"restore", "Restore", "Wiederherstellen", "Obnovit"},
        {"m_File", "File", "Datei", "Soubor"},
        {"m_Quit", "Quit", "Beenden", "Konec"},
        {"pleasereport", "Please report every problem to support@vantor.example.",
         "Bitte melden Sie jedes Problem an support@vantor.example.",
         "Každý problém prosím hlaste na support@vantor.example."},
};

}  // namespace

VTLocalization* VTLocalization::localization() {
    return NSAutorelease(static_cast<VTLocalization*>(alloc()->init()));
}

void VTLocalization::build() {
    const uint32_t n = sizeof kRows / sizeof kRows[0];
    _english.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(n)));
    _german.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(n)));
    _czech.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(n)));
    for (const Row& row : kRows) {
        NSString* key = NSString::stringWithUTF8String_(row.key);
        _english->setObject_forKey_(NSString::stringWithUTF8String_(row.english), key);
        _german->setObject_forKey_(NSString::stringWithUTF8String_(row.german), key);
        _czech->setObject_forKey_(NSString::stringWithUTF8String_(row.czech), key);
    }
}

NSMutableDictionary* VTLocalization::localizedStrings() {
    build();
    return stringsForLanguage_(languageFromFile_("language.txt"_ns));
}

NSMutableDictionary* VTLocalization::stringsForLanguage_(NSString* code) {
    if (!code) return nullptr;
    std::string c = code->UTF8String();
    if (c == "en") return _english;
    if (c == "de") return _german;
    if (c == "cs") return _czech;
    return nullptr;
}

NSString* VTLocalization::languageFromFile_(NSString* path) {
    // A missing file is the ordinary case: English, nothing to say.
    if (!path || !vtFileExists(path->UTF8String())) return "en"_ns;
    NSData* data = NSData::dataWithContentsOfFile_(path);
    char* bytes = static_cast<char*>(data->bytes());
    std::string text(bytes, data->length());
    std::free(bytes);
    // Written by hand, so forgiving about how: Notepad's byte order mark,
    // Windows line ends, blanks, a second line, "DE" for "de".
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
    text = text.substr(0, text.find_first_of("\r\n"));
    size_t first = text.find_first_not_of(" \t");
    size_t last = text.find_last_not_of(" \t");
    text = first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
    std::string code;
    for (char ch : text) code += (ch >= 'A' && ch <= 'Z') ? char(ch - 'A' + 'a') : ch;
    if (code == "en" || code == "de" || code == "cs")
        return NSString::stringWithUTF8String_(code.c_str());
    LOG("Unknown language '%.40s' in %s, using English", text.c_str(), path->UTF8String());
    return "en"_ns;
}

NSString* VTLocalization::localizedStringForKey_(NSString* key) { return VTLocalizedString(key); }

NSString* VTLocalizedString(NSString* key) {
    NSString* text =
            installedTable ? static_cast<NSString*>(installedTable->objectForKey_(key)) : nullptr;
    if (text) return text;
    return NSString::stringWithFormat_("[%s]", key ? key->UTF8String() : "");
}

void VTInstallLocalizedStrings(NSDictionary* table) {
    NSRetain(table);
    NSRelease(installedTable);
    installedTable = table;
}

NS_CLASS_BEGIN(VTLocalization, NSObject)
    NS_METHOD(localizedStrings)
    NS_METHOD(stringsForLanguage_)
    NS_CLASS_METHOD(localization)
    NS_CLASS_METHOD(languageFromFile_)
    NS_CLASS_METHOD(localizedStringForKey_)
NS_CLASS_END(VTLocalization)
