// Ref<T>: an owning reference to an object of the system. It retains on copy
// and releases when it goes, so that ownership shows in types. It never
// takes a raw pointer implicitly: say adoptRef for a reference that the
// caller already owns (alloc, copy, mutableCopy), retainRef for one that it
// doesn't.
#pragma once

#include <utility>

template <class T>
class Ref {
public:
    Ref() = default;
    Ref(std::nullptr_t) {}
    Ref(const Ref& other) : _ptr(other._ptr) { retainPtr(_ptr); }
    Ref(Ref&& other) noexcept : _ptr(other._ptr) { other._ptr = nullptr; }
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    Ref(const Ref<U>& other) : _ptr(other.get()) {
        retainPtr(_ptr);
    }
    ~Ref() { releasePtr(_ptr); }

    Ref& operator=(const Ref& other) {
        set(other._ptr);
        return *this;
    }
    Ref& operator=(Ref&& other) noexcept {
        if (this != &other) {
            T* old = _ptr;
            _ptr = other._ptr;
            other._ptr = nullptr;
            releasePtr(old);
        }
        return *this;
    }
    Ref& operator=(std::nullptr_t) {
        set(nullptr);
        return *this;
    }

    // Retains the new object, then releases the old one: safe when both are
    // the same object.
    void set(T* object) {
        retainPtr(object);
        T* old = _ptr;
        _ptr = object;
        releasePtr(old);
    }
    // Takes over a reference that the caller owns.
    void adopt(T* object) {
        T* old = _ptr;
        _ptr = object;
        releasePtr(old);
    }
    // Gives up ownership without releasing.
    T* leak() {
        T* p = _ptr;
        _ptr = nullptr;
        return p;
    }

    T* get() const { return _ptr; }
    T* operator->() const { return _ptr; }
    T& operator*() const { return *_ptr; }
    // A Ref converts to its pointer only while it lives: from a temporary
    // (`NSString* s = adoptRef(...)`) the object would be released at the
    // end of the statement and the pointer left dangling.
    operator T*() const& { return _ptr; }
    operator T*() const&& = delete;
    explicit operator bool() const { return _ptr != nullptr; }

private:
    static void retainPtr(T* p) {
        if (p) p->retain();
    }
    static void releasePtr(T* p) {
        if (p) p->release();
    }
    T* _ptr = nullptr;
};

template <class T>
Ref<T> adoptRef(T* object) {
    Ref<T> r;
    r.adopt(object);
    return r;
}

template <class T>
Ref<T> retainRef(T* object) {
    Ref<T> r;
    r.set(object);
    return r;
}
