#include "NSRuntime.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <unordered_map>

namespace {

// The object layer's one global lock: it guards the class and selector
// tables and makes +initialize run once per class even when two threads
// send to the class at the same time. Recursive, because +initialize of one
// class may use others.
std::recursive_mutex& runtimeLock() {
    static std::recursive_mutex* lock = new std::recursive_mutex;
    return *lock;
}

struct Registry {
    std::unordered_map<std::string, Class> classes;
    std::vector<Class> order;
    std::unordered_map<std::string, SEL> selectors;
    // Raised whenever a method is added anywhere, so that flattened tables
    // made during static initialisation are rebuilt once registration ends.
    std::atomic<uint64_t> generation{1};
    // Method tables replaced by newer ones, kept for readers in flight.
    std::vector<const void*> retired;
};

Registry& registry() {
    // Never destroyed: classes and selectors live as long as the process,
    // and static destructors of other objects may still send messages.
    static Registry* r = new Registry;
    return *r;
}

}  // namespace

NSSelector::NSSelector(const char* name) : _name(name), _argumentCount(0) {
    for (const char* p = name; *p; p++) {
        if (*p == ':') _argumentCount++;
    }
}

SEL NSSelectorFromCString(const char* name) {
    std::lock_guard<std::recursive_mutex> guard(runtimeLock());
    auto& table = registry().selectors;
    auto it = table.find(name);
    if (it != table.end()) return it->second;
    SEL sel = new NSSelector(name);
    table.emplace(name, sel);
    return sel;
}

Class NSClassFromCString(const char* name) {
    std::lock_guard<std::recursive_mutex> guard(runtimeLock());
    auto& table = registry().classes;
    auto it = table.find(name);
    return it == table.end() ? nullptr : it->second;
}

std::vector<Class> NSAllClasses() {
    std::lock_guard<std::recursive_mutex> guard(runtimeLock());
    return registry().order;
}

std::string NSSelectorNameFromCxx(const char* cxxName) {
    std::string s(cxxName);
    for (char& c : s) {
        if (c == '_') c = ':';
    }
    return s;
}

void NSFatalProgramError(const char* className, bool onClass, const char* text) {
    std::fflush(stdout);
    std::fprintf(stderr, "error: %s (%s)\n%s\n", className, onClass ? "class" : "instance", text);
    std::exit(1);
}

// ---------------------------------------------------------------------------

struct NSClass::Table {
    std::unordered_map<SEL, Entry> entries;
};

NSClass::NSClass(const char* name, Class base, NSObject* (*create)(), void (*initialize)())
    : _name(name), _base(base), _create(create), _initialize(initialize) {
    std::lock_guard<std::recursive_mutex> guard(runtimeLock());
    Registry& r = registry();
    if (r.classes.count(_name)) {
        std::fprintf(stderr, "class %s registered twice\n", name);
        std::abort();
    }
    r.classes.emplace(_name, this);
    r.order.push_back(this);
}

void NSClass::addMethod(const char* selector, IMP imp, int arity) {
    SEL sel = NSSelectorFromCString(selector);
    if (static_cast<int>(sel->argumentCount()) != arity) {
        // A registration whose C++ parameters don't match the selector's
        // colons is a mistake in the source, found at start.
        std::fprintf(stderr, "%s: selector %s takes %u arguments, its function %d\n", _name.c_str(),
                     selector, sel->argumentCount(), arity);
        std::abort();
    }
    std::lock_guard<std::recursive_mutex> guard(runtimeLock());
    _methods.push_back({sel, reinterpret_cast<NSWord>(imp), arity});
    registry().generation++;
}

void NSClass::addClassMethod(const char* selector, ClassIMP imp, int arity) {
    SEL sel = NSSelectorFromCString(selector);
    if (static_cast<int>(sel->argumentCount()) != arity) {
        std::fprintf(stderr, "%s: class selector %s takes %u arguments, its function %d\n",
                     _name.c_str(), selector, sel->argumentCount(), arity);
        std::abort();
    }
    std::lock_guard<std::recursive_mutex> guard(runtimeLock());
    _classMethods.push_back({sel, reinterpret_cast<NSWord>(imp), arity});
    registry().generation++;
}

void NSClass::addField(const char* name, const char* type, void* (*address)(NSObject*)) {
    std::lock_guard<std::recursive_mutex> guard(runtimeLock());
    _fields.push_back({name, type, address});
}

const NSFieldInfo* NSClass::ownField(const char* name) const {
    for (const NSFieldInfo& f : _fields) {
        if (f.name == name) return &f;
    }
    return nullptr;
}

const NSClass::Table* NSClass::flatTable(bool classSide) {
    const int side = classSide ? 1 : 0;
    Registry& r = registry();
    uint64_t generation = r.generation.load(std::memory_order_acquire);
    const Table* table = __atomic_load_n(&_flat[side], __ATOMIC_ACQUIRE);
    if (table && __atomic_load_n(&_flatGeneration[side], __ATOMIC_ACQUIRE) == generation)
        return table;

    std::lock_guard<std::recursive_mutex> guard(runtimeLock());
    // Another thread may have built it while this one waited.
    generation = r.generation.load(std::memory_order_acquire);
    table = _flat[side];
    if (table && _flatGeneration[side] == generation) return table;
    auto* flat = new Table;
    // Nearest class wins: walk from the root down so that later (more
    // derived) registrations replace earlier ones.
    std::vector<Class> chain;
    for (Class c = this; c; c = c->_base) chain.push_back(c);
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        for (const Entry& e : classSide ? (*it)->_classMethods : (*it)->_methods) {
            flat->entries[e.sel] = e;
        }
    }
    // A replaced table is kept: another thread may still be reading it.
    // Tables are only replaced while registration is still going on.
    if (table) r.retired.push_back(table);
    __atomic_store_n(&_flatGeneration[side], generation, __ATOMIC_RELEASE);
    __atomic_store_n(&_flat[side], flat, __ATOMIC_RELEASE);
    return flat;
}

const NSClass::Entry* NSClass::find(SEL sel, bool classSide) {
    const Table* table = flatTable(classSide);
    auto it = table->entries.find(sel);
    return it == table->entries.end() ? nullptr : &it->second;
}

IMP NSClass::lookupMethod(SEL sel) {
    const Entry* e = find(sel, false);
    return e ? reinterpret_cast<IMP>(static_cast<uintptr_t>(e->imp)) : nullptr;
}

ClassIMP NSClass::lookupClassMethod(SEL sel) {
    const Entry* e = find(sel, true);
    return e ? reinterpret_cast<ClassIMP>(static_cast<uintptr_t>(e->imp)) : nullptr;
}

int NSClass::argumentCountOfMethod(SEL sel) {
    const Entry* e = find(sel, false);
    return e ? e->arity : -1;
}

bool NSClass::isSubclassOf(Class other) const {
    for (const NSClass* c = this; c; c = c->_base) {
        if (c == other) return true;
    }
    return false;
}

bool NSClass::conformsToProtocol(const char* protocol) const {
    for (const NSClass* c = this; c; c = c->_base) {
        for (const std::string& p : c->_protocols) {
            if (p == protocol) return true;
        }
    }
    return false;
}

void NSClass::poseAsClass_(Class other) {
    if (!other) return;
    std::lock_guard<std::recursive_mutex> guard(runtimeLock());
    registry().classes[other->_name] = this;
}

void NSClass::ensureInitialized() {
    if (__atomic_load_n(&_initialized, __ATOMIC_ACQUIRE)) return;
    std::lock_guard<std::recursive_mutex> guard(runtimeLock());
    // A second thread waits on the lock above until the first is done; the
    // thread that runs +initialize may use its own class meanwhile.
    if (_initialized || _initializing) return;
    _initializing = true;
    if (_base) _base->ensureInitialized();
    if (_initialize) _initialize();
    __atomic_store_n(&_initialized, true, __ATOMIC_RELEASE);
}

NSObject* NSClass::alloc() {
    ensureInitialized();
    NSObject* object = _create ? _create() : nullptr;
    if (!object) {
        std::fprintf(stderr, "Cannot allocate instance of class %s\n", _name.c_str());
        return nullptr;
    }
    return object;
}
