#include "VTRecordVersions.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <unordered_set>
#include <vector>

#include "foundation/NSArray.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSString.h"
#include "sync/LXVersion.h"

namespace vt_versions {

namespace {

NSString* textAt(NSDictionary* dictionary, NSString* key) {
    NSObject* value = dictionary ? dictionary->objectForKey_(key) : nullptr;
    if (!value || !value->isKindOfClass_(NSString::classObject())) return nullptr;
    auto* text = static_cast<NSString*>(value);
    return text->length() > 0 ? text : nullptr;
}

NSDictionary* dictionaryAt(NSDictionary* dictionary, NSString* key) {
    NSObject* value = dictionary ? dictionary->objectForKey_(key) : nullptr;
    return value && value->isKindOfClass_(NSDictionary::classObject())
                   ? static_cast<NSDictionary*>(value)
                   : nullptr;
}

NSArray* arrayAt(NSDictionary* dictionary, NSString* key) {
    NSObject* value = dictionary ? dictionary->objectForKey_(key) : nullptr;
    return value && value->isKindOfClass_(NSArray::classObject()) ? static_cast<NSArray*>(value)
                                                                  : nullptr;
}

// A mutable copy of the record's versions: the record's own dictionary is
// never changed in place, since a transaction's undo copy shares it.
Ref<NSMutableDictionary> copyOfVersions(NSDictionary* record) {
    NSDictionary* versions = dictionaryAt(record, "__versions"_ns);
    if (versions) return adoptRef(static_cast<NSMutableDictionary*>(versions->mutableCopy()));
    return adoptRef(static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->init()));
}

NSDictionary* historyEntry(NSString* field, NSObject* value, NSString* version) {
    return NSDictionary::dictionaryWithObjectsAndKeys_(
            field, "field"_ns, value, "value"_ns, version ? version : ""_ns, "version"_ns, nullptr);
}

const char* utf8(NSString* text) { return text ? text->UTF8String() : ""; }

// The history in its one form: entries of the same field, version and value
// once, sorted by field and then newest first (equal versions, which only
// unversioned values share, by the value's text), at most kHistoryPerField
// per field. Answers whether the record changed.
bool setHistory(NSMutableDictionary* record, std::vector<NSDictionary*> entries) {
    NSArray* old = arrayAt(record, "__history"_ns);
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [](NSDictionary* e) {
                                     return !e || !e->isKindOfClass_(NSDictionary::classObject()) ||
                                            !textAt(e, "field"_ns) || !e->objectForKey_("value"_ns);
                                 }),
                  entries.end());
    auto before = [](NSDictionary* a, NSDictionary* b) {
        int c = std::strcmp(utf8(textAt(a, "field"_ns)), utf8(textAt(b, "field"_ns)));
        if (c != 0) return c < 0;
        c = lx::compareVersions(textAt(a, "version"_ns), textAt(b, "version"_ns));
        if (c != 0) return c > 0;
        return std::strcmp(utf8(a->objectForKey_("value"_ns)->description()),
                           utf8(b->objectForKey_("value"_ns)->description())) < 0;
    };
    std::stable_sort(entries.begin(), entries.end(), before);
    NSMutableArray* kept =
            NSMutableArray::arrayWithCapacity_(static_cast<uint32_t>(entries.size()) + 1);
    NSString* field = nullptr;
    uint32_t ofField = 0;
    NSDictionary* last = nullptr;
    for (NSDictionary* e : entries) {
        if (last && !before(last, e) && !before(e, last) &&
            last->objectForKey_("value"_ns)->isEqual_(e->objectForKey_("value"_ns)))
            continue;
        NSString* f = textAt(e, "field"_ns);
        if (!field || !f->isEqual_(field)) {
            field = f;
            ofField = 0;
        }
        last = e;
        if (++ofField > kHistoryPerField) continue;
        kept->addObject_(e);
    }
    if (kept->count() == 0) {
        if (!old) return false;
        record->removeObjectForKey_("__history"_ns);
        return true;
    }
    if (old && old->isEqual_(kept)) return false;
    record->setObject_forKey_(kept, "__history"_ns);
    return true;
}

void appendEntries(std::vector<NSDictionary*>& to, NSArray* from) {
    for (uint32_t i = 0, n = from ? from->count() : 0; i < n; i++)
        to.push_back(static_cast<NSDictionary*>(from->objectAtIndex_(i)));
}

}  // namespace

bool isReservedKey(NSObject* key) {
    if (!key || !key->isKindOfClass_(NSString::classObject())) return false;
    const char* text = static_cast<NSString*>(key)->UTF8String();
    return text[0] == '_' && text[1] == '_';
}

NSString* versionOfField(NSDictionary* record, NSString* field) {
    return textAt(dictionaryAt(record, "__versions"_ns), field);
}

NSString* newestFieldVersion(NSDictionary* record) {
    NSDictionary* versions = dictionaryAt(record, "__versions"_ns);
    NSArray* all = versions ? versions->allValues() : nullptr;
    NSString* newest = nullptr;
    for (uint32_t i = 0, n = all ? all->count() : 0; i < n; i++) {
        NSObject* v = all->objectAtIndex_(i);
        if (!v->isKindOfClass_(NSString::classObject())) continue;
        if (lx::compareVersions(static_cast<NSString*>(v), newest) > 0)
            newest = static_cast<NSString*>(v);
    }
    return newest;
}

bool isRemoved(NSDictionary* record) {
    NSString* removed = textAt(record, "__removed"_ns);
    return removed && lx::compareVersions(newestFieldVersion(record), removed) <= 0;
}

void stampChange(NSMutableDictionary* record, NSDictionary* before, NSArray* fields,
                 NSString* writer) {
    Ref<NSMutableDictionary> versions = copyOfVersions(record);
    std::vector<NSDictionary*> lost;
    std::unordered_set<std::string> done;
    for (uint32_t i = 0, n = fields ? fields->count() : 0; i < n; i++) {
        NSObject* name = fields->objectAtIndex_(i);
        if (!name->isKindOfClass_(NSString::classObject()) || isReservedKey(name)) continue;
        auto* field = static_cast<NSString*>(name);
        if (!done.insert(field->UTF8String()).second) continue;
        NSString* replaced = textAt(versions, field);
        uint64_t clock = lx::LXClock::tick(lx::versionClock(replaced));
        if (NSObject* was = before ? before->objectForKey_(field) : nullptr)
            lost.push_back(historyEntry(field, was, replaced));
        versions->setObject_forKey_(lx::versionText(clock, writer), field);
    }
    if (done.empty()) return;
    record->setObject_forKey_(versions.get(), "__versions"_ns);
    if (lost.empty()) return;
    appendEntries(lost, arrayAt(record, "__history"_ns));
    setHistory(record, lost);
}

NSString* stampRemoval(NSMutableDictionary* record, NSString* writer) {
    uint64_t after = std::max(lx::versionClock(newestFieldVersion(record)),
                              lx::versionClock(textAt(record, "__removed"_ns)));
    NSString* version = lx::versionText(lx::LXClock::tick(after), writer);
    record->setObject_forKey_(version, "__removed"_ns);
    return version;
}

bool mergeRemoval(NSMutableDictionary* record, NSString* version) {
    if (version && version->length() == 0) version = nullptr;
    if (!version) {
        // A writer that keeps no versions removes the record as it stands:
        // a later change brings it back, as one from such a writer would.
        version = newestFieldVersion(record);
        if (!version) version = lx::versionText(1, ""_ns);
    }
    lx::LXClock::observe(lx::versionClock(version));
    if (lx::compareVersions(version, textAt(record, "__removed"_ns)) <= 0) return false;
    record->setObject_forKey_(version, "__removed"_ns);
    return true;
}

bool mergeIncoming(NSMutableDictionary* record, NSDictionary* incoming, NSArray* listed) {
    if (!record || !incoming || record == incoming) return false;
    NSDictionary* theirVersions = dictionaryAt(incoming, "__versions"_ns);
    // The fields to look at: those listed, and those the other copy has a
    // version for (its writer's own delta brings the same value; taking it
    // now makes no difference to the end, and a copy that carries more
    // than its list, as a pushed record does, is taken whole).
    std::vector<NSString*> names;
    std::unordered_set<std::string> seen;
    auto consider = [&](NSObject* name) {
        if (!name || !name->isKindOfClass_(NSString::classObject()) || isReservedKey(name)) return;
        if (seen.insert(static_cast<NSString*>(name)->UTF8String()).second)
            names.push_back(static_cast<NSString*>(name));
    };
    for (uint32_t i = 0, n = listed ? listed->count() : 0; i < n; i++)
        consider(listed->objectAtIndex_(i));
    NSArray* versioned = theirVersions ? theirVersions->allKeys() : nullptr;
    for (uint32_t i = 0, n = versioned ? versioned->count() : 0; i < n; i++)
        consider(versioned->objectAtIndex_(i));

    bool changed = false;
    Ref<NSMutableDictionary> versions;
    std::vector<NSDictionary*> lost;
    for (NSString* field : names) {
        NSObject* theirs = incoming->objectForKey_(field);
        if (!theirs) continue;  // a field the other copy doesn't hold is not cleared
        NSString* theirVersion = textAt(theirVersions, field);
        NSString* myVersion = versionOfField(record, field);
        NSObject* mine = record->objectForKey_(field);
        lx::LXClock::observe(lx::versionClock(theirVersion));
        int c = lx::compareVersions(theirVersion, myVersion);
        if (c > 0 || (c == 0 && !theirVersion && !mine)) {
            if (mine) lost.push_back(historyEntry(field, mine, myVersion));
            record->setObject_forKey_(theirs, field);
            if (theirVersion) {
                if (!versions) versions = copyOfVersions(record);
                versions->setObject_forKey_(theirVersion, field);
            }
            changed = true;
        } else if (c < 0 || (!theirVersion && !mine->isEqual_(theirs))) {
            lost.push_back(historyEntry(field, theirs, theirVersion));
        }
    }
    if (versions) record->setObject_forKey_(versions.get(), "__versions"_ns);

    NSArray* theirHistory = arrayAt(incoming, "__history"_ns);
    if (!lost.empty() || theirHistory) {
        appendEntries(lost, arrayAt(record, "__history"_ns));
        appendEntries(lost, theirHistory);
        changed = setHistory(record, lost) || changed;
    }
    if (NSString* removed = textAt(incoming, "__removed"_ns))
        changed = mergeRemoval(record, removed) || changed;
    // Stamps are not replicated, but a record that began here as the
    // tombstone of a removal takes its creation stamps from the first copy.
    for (NSString* stamp : {"__creator"_ns, "__created"_ns}) {
        NSObject* value = incoming->objectForKey_(stamp);
        if (value && !record->objectForKey_(stamp)) {
            record->setObject_forKey_(value, stamp);
            changed = true;
        }
    }
    return changed;
}

}  // namespace vt_versions
