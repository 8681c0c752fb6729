// The runtime under the object model: classes found by name, interned
// selectors, argument frames and the typed thunks that bind a selector to a
// C++ member function.
//
// Naming rule: an operation's C++ name is its selector with every colon
// replaced by an underscore (`setValue:forKey:` is `setValue_forKey_`). The
// registration macros derive the selector from the C++ name, so the two can
// never drift apart. The one exception is a selector that is a C++ keyword:
// `class` is spelled `class_()` and registered under its real name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// printf-style checks of the formats that the foundation hands to
// vsnprintf. On MinGW that is MinGW's own C99 printf (libstdc++ switches
// __USE_MINGW_ANSI_STDIO on), not the Microsoft runtime's, so the GNU rules
// (%zu, %lld) hold there too.
#if defined(__MINGW32__)
#define NS_FORMAT(string, first) __attribute__((format(gnu_printf, string, first)))
#else
#define NS_FORMAT(string, first) __attribute__((format(printf, string, first)))
#endif

class NSObject;
class NSString;
class NSClass;
class NSSelector;

// A class value, found by name at run time.
using Class = NSClass*;
// An interned selector: two selectors of equal text are the same pointer.
using SEL = const NSSelector*;
// One word: what a message answers and what a frame holds per slot. It is
// 64 bits on every platform, not a pointer's width: a double has to travel
// in one word (a result is one word), and on 32-bit Windows a pointer is
// only half of that. Pointers pass through uintptr_t on their way in and out.
using NSWord = uint64_t;

// The arguments of one message as it was sent, without type information.
// Valid only while the send that produced it is running.
struct NSArgFrame {
    static constexpr unsigned kMaxWords = 12;
    unsigned count = 0;  // words in use
    NSWord words[kMaxWords] = {};
};

using IMP = NSWord (*)(NSObject* self, SEL sel, const NSArgFrame* frame);
using ClassIMP = NSWord (*)(Class cls, SEL sel, const NSArgFrame* frame);

class NSSelector {
public:
    const char* name() const { return _name.c_str(); }
    // Number of arguments: one per colon-terminated part.
    unsigned argumentCount() const { return _argumentCount; }

private:
    friend SEL NSSelectorFromCString(const char* name);
    explicit NSSelector(const char* name);
    std::string _name;
    unsigned _argumentCount;
};

// Field row of key access: name, type code and the way to the field.
struct NSFieldInfo {
    std::string name;
    std::string type;
    void* (*address)(NSObject* object);
};

class NSClass {
public:
    const char* name() const { return _name.c_str(); }
    Class base() const { return _base; }

    // A zero-filled instance with a count of 1, or nil with
    // "Cannot allocate instance of class %s" on standard error.
    NSObject* alloc();
    // Runs +initialize once for this class and its bases, base first.
    void ensureInitialized();

    // Instance operation of `sel` in this class or the nearest base, or null.
    // Constant time after the first lookup.
    IMP lookupMethod(SEL sel);
    ClassIMP lookupClassMethod(SEL sel);
    bool instancesRespondToSelector_(SEL sel) { return lookupMethod(sel) != nullptr; }
    // Number of arguments of the operation as the C++ function declares them;
    // -1 when the class has no such operation.
    int argumentCountOfMethod(SEL sel);
    bool isSubclassOf(Class other) const;
    bool conformsToProtocol(const char* protocol) const;
    void poseAsClass_(Class other);

    // The class's own field table, in registration order.
    const std::vector<NSFieldInfo>& fields() const { return _fields; }
    const NSFieldInfo* ownField(const char* name) const;

    // Registration, used by NS_CLASS_BEGIN at static-initialisation time.
    NSClass(const char* name, Class base, NSObject* (*create)(), void (*initialize)());
    void addMethod(const char* selector, IMP imp, int arity);
    void addClassMethod(const char* selector, ClassIMP imp, int arity);
    void addField(const char* name, const char* type, void* (*address)(NSObject*));
    void addProtocol(const char* protocol) { _protocols.push_back(protocol); }

private:
    struct Entry {
        SEL sel;
        NSWord imp;
        int arity;
    };
    struct Table;
    const Table* flatTable(bool classSide);
    const Entry* find(SEL sel, bool classSide);

    std::string _name;
    Class _base;
    NSObject* (*_create)();
    void (*_initialize)();
    bool _initialized = false;
    bool _initializing = false;
    std::vector<Entry> _methods;
    std::vector<Entry> _classMethods;
    std::vector<NSFieldInfo> _fields;
    std::vector<std::string> _protocols;
    const Table* _flat[2] = {nullptr, nullptr};
    uint64_t _flatGeneration[2] = {0, 0};
};

// Classes and selectors by name.
Class NSClassFromCString(const char* name);
SEL NSSelectorFromCString(const char* name);
// Every registered class, in registration order.
std::vector<Class> NSAllClasses();

// The selector of a literal, interned once per call site.
#define NS_SEL(literal)                                                  \
    ([]() -> SEL {                                                       \
        static const SEL ns_cached_sel = NSSelectorFromCString(literal); \
        return ns_cached_sel;                                            \
    }())

// The two faults of the program itself that no input can cause: they write
// "error: <class> (<instance|class>)", a newline, the text and a newline to
// standard error and end the process with status 1.
[[noreturn]] void NSFatalProgramError(const char* className, bool onClass, const char* text);

// ---------------------------------------------------------------------------
// Words: how C++ values travel in frames and results.

template <class T, class Enable = void>
struct NSWordCodec;

template <class T>
struct NSWordCodec<T, std::enable_if_t<std::is_pointer_v<T>>> {
    static constexpr unsigned words = 1;
    static void encode(T v, NSWord* w) {
        w[0] = static_cast<NSWord>(reinterpret_cast<uintptr_t>(v));
    }
    static T decode(const NSWord* w) { return reinterpret_cast<T>(static_cast<uintptr_t>(w[0])); }
};

template <class T>
struct NSWordCodec<T, std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T>>> {
    static constexpr unsigned words = 1;
    static void encode(T v, NSWord* w) {
        if constexpr (std::is_same_v<T, bool>) {
            w[0] = v ? 1 : 0;
        } else if constexpr (std::is_enum_v<T>) {
            w[0] = static_cast<NSWord>(static_cast<int64_t>(v));
        } else if constexpr (std::is_signed_v<T>) {
            w[0] = static_cast<NSWord>(static_cast<int64_t>(v));
        } else {
            w[0] = static_cast<NSWord>(v);
        }
    }
    static T decode(const NSWord* w) {
        if constexpr (std::is_same_v<T, bool>) {
            return (w[0] & 0xFF) != 0;
        } else {
            return static_cast<T>(w[0]);
        }
    }
};

template <class T>
struct NSWordCodec<T, std::enable_if_t<std::is_floating_point_v<T>>> {
    static constexpr unsigned words = 1;
    static void encode(T v, NSWord* w) {
        double d = static_cast<double>(v);
        static_assert(sizeof(double) <= sizeof(NSWord), "a double must fit a word");
        w[0] = 0;
        std::memcpy(w, &d, sizeof d);
    }
    static T decode(const NSWord* w) {
        double d;
        std::memcpy(&d, w, sizeof d);
        return static_cast<T>(d);
    }
};

// Small plain structures (ranges, rectangles) travel by value over as many
// words as they need.
template <class T>
struct NSWordCodec<T, std::enable_if_t<std::is_class_v<T> && std::is_trivially_copyable_v<T>>> {
    static constexpr unsigned words = (sizeof(T) + sizeof(NSWord) - 1) / sizeof(NSWord);
    static void encode(const T& v, NSWord* w) {
        for (unsigned i = 0; i < words; i++) w[i] = 0;
        std::memcpy(w, &v, sizeof(T));
    }
    static T decode(const NSWord* w) {
        T v;
        std::memcpy(&v, w, sizeof(T));
        return v;
    }
};

template <class... A>
struct NSFrameLayout {
    static constexpr unsigned sizes[] = {NSWordCodec<std::decay_t<A>>::words..., 0};
    static constexpr unsigned offset(unsigned index) {
        unsigned o = 0;
        for (unsigned k = 0; k < index; k++) o += sizes[k];
        return o;
    }
    static constexpr unsigned total = (0u + ... + NSWordCodec<std::decay_t<A>>::words);
    static_assert(total <= NSArgFrame::kMaxWords, "too many argument words for a frame");
};

template <class... A>
inline void NSPackFrame(NSArgFrame* frame, A... args) {
    using L = NSFrameLayout<A...>;
    frame->count = L::total;
    unsigned index = 0;
    ((NSWordCodec<std::decay_t<A>>::encode(args, frame->words + L::offset(index++))), ...);
    (void)index;
}

template <class R>
inline NSWord NSEncodeResult(R value) {
    static_assert(NSWordCodec<R>::words == 1, "a result must fit one word");
    NSWord w = 0;
    NSWordCodec<R>::encode(value, &w);
    return w;
}

template <class R>
inline R NSDecodeResult(NSWord w) {
    if constexpr (std::is_void_v<R>) {
        (void)w;
    } else {
        return NSWordCodec<R>::decode(&w);
    }
}

// ---------------------------------------------------------------------------
// Thunks: a selector bound to a member function, converting frame words to
// the C++ argument types and the result back to a word.

template <auto M>
struct NSMethodThunk;

template <class C, class R, class... A, R (C::*M)(A...)>
struct NSMethodThunk<M> {
    static constexpr int arity = sizeof...(A);
    static NSWord call(NSObject* self, SEL, const NSArgFrame* f) {
        return invoke(static_cast<C*>(self), f, std::index_sequence_for<A...>());
    }
    template <size_t... I>
    static NSWord invoke(C* obj, const NSArgFrame* f, std::index_sequence<I...>) {
        using L = NSFrameLayout<A...>;
        (void)f;
        if constexpr (std::is_void_v<R>) {
            (obj->*M)(NSWordCodec<std::decay_t<A>>::decode(f->words + L::offset(I))...);
            return 0;
        } else {
            return NSEncodeResult<R>(
                    (obj->*M)(NSWordCodec<std::decay_t<A>>::decode(f->words + L::offset(I))...));
        }
    }
};

template <class C, class R, class... A, R (C::*M)(A...) const>
struct NSMethodThunk<M> {
    static constexpr int arity = sizeof...(A);
    static NSWord call(NSObject* self, SEL, const NSArgFrame* f) {
        return invoke(static_cast<const C*>(self), f, std::index_sequence_for<A...>());
    }
    template <size_t... I>
    static NSWord invoke(const C* obj, const NSArgFrame* f, std::index_sequence<I...>) {
        using L = NSFrameLayout<A...>;
        (void)f;
        if constexpr (std::is_void_v<R>) {
            (obj->*M)(NSWordCodec<std::decay_t<A>>::decode(f->words + L::offset(I))...);
            return 0;
        } else {
            return NSEncodeResult<R>(
                    (obj->*M)(NSWordCodec<std::decay_t<A>>::decode(f->words + L::offset(I))...));
        }
    }
};

// Class operations are static member functions. One whose first parameter
// is a Class receives the class that got the message, so that a subclass
// answers with instances of itself.
template <auto F>
struct NSClassMethodThunk;

template <class R, class... A, R (*F)(A...)>
struct NSClassMethodThunk<F> {
    template <class... P>
    struct Args {
        static constexpr bool takesClass = false;
    };
    template <class... P>
    struct Args<Class, P...> {
        static constexpr bool takesClass = true;
    };
    static constexpr bool takesClass = Args<A...>::takesClass;
    static constexpr int arity = sizeof...(A) - (takesClass ? 1 : 0);

    static NSWord call(Class cls, SEL, const NSArgFrame* f) {
        if constexpr (takesClass) {
            return invokeWithClass<A...>(cls, f);
        } else {
            return invoke(f, std::index_sequence_for<A...>());
        }
    }
    template <size_t... I>
    static NSWord invoke(const NSArgFrame* f, std::index_sequence<I...>) {
        using L = NSFrameLayout<A...>;
        (void)f;
        if constexpr (std::is_void_v<R>) {
            F(NSWordCodec<std::decay_t<A>>::decode(f->words + L::offset(I))...);
            return 0;
        } else {
            return NSEncodeResult<R>(
                    F(NSWordCodec<std::decay_t<A>>::decode(f->words + L::offset(I))...));
        }
    }
    template <class First, class... Rest>
    static NSWord invokeWithClass(Class cls, const NSArgFrame* f) {
        return invokeRest<Rest...>(cls, f, std::index_sequence_for<Rest...>());
    }
    template <class... Rest, size_t... I>
    static NSWord invokeRest(Class cls, const NSArgFrame* f, std::index_sequence<I...>) {
        using L = NSFrameLayout<Rest...>;
        (void)f;
        if constexpr (std::is_void_v<R>) {
            F(cls, NSWordCodec<std::decay_t<Rest>>::decode(f->words + L::offset(I))...);
            return 0;
        } else {
            return NSEncodeResult<R>(
                    F(cls, NSWordCodec<std::decay_t<Rest>>::decode(f->words + L::offset(I))...));
        }
    }
};

// Type codes of key access, from the C++ type of the field.
template <class T>
constexpr const char* NSTypeCode() {
    if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, uint8_t> ||
                  std::is_same_v<T, unsigned char>) {
        return "C";
    } else if constexpr (std::is_same_v<T, int8_t> || std::is_same_v<T, signed char> ||
                         std::is_same_v<T, char>) {
        return "c";
    } else if constexpr (std::is_same_v<T, int16_t>) {
        return "s";
    } else if constexpr (std::is_same_v<T, uint16_t>) {
        return "S";
    } else if constexpr (std::is_same_v<T, int32_t>) {
        return "i";
    } else if constexpr (std::is_same_v<T, uint32_t>) {
        return "I";
    } else if constexpr (std::is_same_v<T, int64_t>) {
        return "q";
    } else if constexpr (std::is_same_v<T, uint64_t>) {
        return "Q";
    } else if constexpr (std::is_same_v<T, float>) {
        return "f";
    } else if constexpr (std::is_same_v<T, double>) {
        return "d";
    } else if constexpr (std::is_same_v<T, SEL>) {
        return ":";
    } else {
        // Object references: raw pointers and Ref<T> handles, which are one
        // pointer wide.
        static_assert(sizeof(T) == sizeof(void*), "key access reaches numbers and objects only");
        return "@";
    }
}

template <auto P>
struct NSFieldThunk;

template <class C, class T, T C::*P>
struct NSFieldThunk<P> {
    static void* address(NSObject* object) { return &(static_cast<C*>(object)->*P); }
    static constexpr const char* type = NSTypeCode<T>();
};

// `length` from `length`, `setValue:forKey:` from `setValue_forKey_`.
std::string NSSelectorNameFromCxx(const char* cxxName);

// ---------------------------------------------------------------------------
// Registration. In a class's header:
//
//   class NSString : public NSObject {
//       NS_DECLARE_CLASS(NSString, NSObject)
//   public: ...
//
// and next to its definition in the .cpp:
//
//   NS_CLASS_BEGIN(NSString, NSObject)
//       NS_METHOD(length)
//       NS_CLASS_METHOD(stringWithUTF8String_)
//       NS_FIELD(_unistring)
//   NS_CLASS_END(NSString)

template <class T>
struct NSClassFactory {
    static NSObject* create() { return new (std::nothrow) T(); }
};

template <class T, class = void>
struct NSHasOwnInitialize : std::false_type {};
template <class T>
struct NSHasOwnInitialize<T, std::void_t<decltype(&T::initialize)>> : std::true_type {};

template <class T>
inline void (*NSInitializeOf())() {
    if constexpr (NSHasOwnInitialize<T>::value) {
        // Only a class's own +initialize runs for it; an inherited one has
        // already run for the base.
        if constexpr (!std::is_same_v<typename T::super, T>) {
            if (&T::initialize == &T::super::initialize) return nullptr;
        }
        return &T::initialize;
    } else {
        return nullptr;
    }
}

class NSClassBuilder {
public:
    explicit NSClassBuilder(Class cls) : _cls(cls) {}
    template <auto M>
    NSClassBuilder& method(const char* cxxName) {
        _cls->addMethod(NSSelectorNameFromCxx(cxxName).c_str(), &NSMethodThunk<M>::call,
                        NSMethodThunk<M>::arity);
        return *this;
    }
    template <auto M>
    NSClassBuilder& methodNamed(const char* selector) {
        _cls->addMethod(selector, &NSMethodThunk<M>::call, NSMethodThunk<M>::arity);
        return *this;
    }
    template <auto F>
    NSClassBuilder& classMethod(const char* cxxName) {
        _cls->addClassMethod(NSSelectorNameFromCxx(cxxName).c_str(), &NSClassMethodThunk<F>::call,
                             NSClassMethodThunk<F>::arity);
        return *this;
    }
    template <auto F>
    NSClassBuilder& classMethodNamed(const char* selector) {
        _cls->addClassMethod(selector, &NSClassMethodThunk<F>::call, NSClassMethodThunk<F>::arity);
        return *this;
    }
    template <auto P>
    NSClassBuilder& field(const char* cxxName, const char* type = nullptr) {
        // Fields are spelled with a leading underscore in C++ and by their
        // plain name in key access.
        const char* name = cxxName[0] == '_' ? cxxName + 1 : cxxName;
        _cls->addField(name, type ? type : NSFieldThunk<P>::type, &NSFieldThunk<P>::address);
        return *this;
    }
    NSClassBuilder& protocol(const char* name) {
        _cls->addProtocol(name);
        return *this;
    }
    Class done() { return _cls; }

private:
    Class _cls;
};

#define NS_DECLARE_CLASS(Name, Base)                                            \
public:                                                                         \
    using super = Base;                                                         \
    static Class classObject();                                                 \
    Class class_() override { return classObject(); }                           \
    static Name* alloc() { return static_cast<Name*>(classObject()->alloc()); } \
                                                                                \
private:                                                                        \
    friend struct NSClassFactory<Name>;

#define NS_CLASS_BEGIN(Name, Base)                                     \
    Class Name::classObject() {                                        \
        using Self [[maybe_unused]] = Name;                            \
        static const Class ns_class =                                  \
                NSClassBuilder(new NSClass(#Name, Base::classObject(), \
                                           &NSClassFactory<Name>::create, NSInitializeOf<Name>()))

#define NS_METHOD(cxxName) .method<&Self::cxxName>(#cxxName)
#define NS_METHOD_NAMED(selector, cxxName) .methodNamed<&Self::cxxName>(selector)
#define NS_CLASS_METHOD(cxxName) .classMethod<&Self::cxxName>(#cxxName)
#define NS_CLASS_METHOD_NAMED(selector, cxxName) .classMethodNamed<&Self::cxxName>(selector)
#define NS_FIELD(cxxName) .field<&Self::cxxName>(#cxxName)
#define NS_FIELD_TYPED(cxxName, type) .field<&Self::cxxName>(#cxxName, type)
#define NS_PROTOCOL(name) .protocol(name)

// Operations of a class that live with another subsystem (the combinators
// of NSArray, say) register from that subsystem's file:
//
//   NS_EXTEND_CLASS(NSArray, Combinators)
//       NS_METHOD(each)
//   NS_EXTEND_END
#define NS_EXTEND_CLASS(Name, Tag) \
    namespace {                    \
    const Class ns_extension_##Name##_##Tag = []() {                 \
        using Self [[maybe_unused]] = Name;                          \
        return NSClassBuilder(Name::classObject())
#define NS_EXTEND_END \
    .done();          \
    }                 \
    ();               \
    }

#define NS_CLASS_END(Name)                                  \
    .done();                                                \
    return ns_class;                                        \
    }                                                       \
    namespace {                                             \
    const Class ns_registered_##Name = Name::classObject(); \
    }
