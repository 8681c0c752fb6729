#include "NSArray.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "NSString.h"
#include "NSValue.h"

NSArray::~NSArray() {
    for (uint32_t i = 0; i < _count; i++) NSRelease(_elements[i]);
    std::free(_elements);
}

void NSArray::initStorage(uint32_t capacity) {
    _capacity = capacity;
    _elements =
            capacity ? static_cast<NSObject**>(std::calloc(capacity, sizeof(NSObject*))) : nullptr;
}

void NSArray::increaseCapacity() {
    uint32_t capacity = _capacity ? _capacity * 2 : 1;
    auto** block = static_cast<NSObject**>(std::calloc(capacity, sizeof(NSObject*)));
    if (_count) std::memcpy(block, _elements, _count * sizeof(NSObject*));
    std::free(_elements);
    _elements = block;
    _capacity = capacity;
}

void NSArray::appendRetained(NSObject* object) {
    if (_count == _capacity) increaseCapacity();
    _elements[_count++] = NSRetain(object);
}

NSArray* NSArray::init() {
    initStorage(10);
    return this;
}

NSArray* NSArray::initWithObject_(NSObject* object) {
    initStorage(1);
    appendRetained(object);
    return this;
}

NSArray* NSArray::initWithObjects_(NSObject* first, ...) {
    initStorage(16);
    va_list ap;
    va_start(ap, first);
    for (NSObject* o = first; o; o = va_arg(ap, NSObject*)) appendRetained(o);
    va_end(ap);
    return this;
}

NSArray* NSArray::initWithArray_(NSArray* array) {
    // Anything but an array gives an empty one, as nil does.
    NSArray* other = NSDynamicCast<NSArray>(array);
    initStorage(other ? other->_count : 0);
    for (uint32_t i = 0; other && i < other->_count; i++) appendRetained(other->_elements[i]);
    return this;
}

NSMutableArray* NSArray::arrayWithObjects_(NSObject* first, ...) {
    NSMutableArray* a = NSMutableArray::arrayWithCapacity_(10);
    va_list ap;
    va_start(ap, first);
    for (NSObject* o = first; o; o = va_arg(ap, NSObject*)) a->addObject_(o);
    va_end(ap);
    return a;
}

NSMutableArray* NSArray::arrayWithArray_(NSArray* other) {
    return static_cast<NSMutableArray*>(
            NSAutorelease(NSMutableArray::alloc()->initWithArray_(other)));
}

int NSArray::indexOfObject_(NSObject* object) {
    if (!_sortedBy) {
        for (uint32_t i = 0; i < _count; i++) {
            if (NSNil(_elements[i], &NSObject::isEqual_, object)) return static_cast<int>(i);
        }
        return -1;
    }
    // Binary search: the argument is sent sortedBy with the element; 0 is a
    // hit, -1 goes lower, anything else higher. A nil argument answers 0 to
    // every message, so it "finds" the middle element: the nil
    // rule, kept as it is.
    int64_t low = 0, high = static_cast<int64_t>(_count) - 1;
    while (low <= high) {
        int64_t mid = (low + high) / 2;
        int c = NSSend<int>(object, _sortedBy, _elements[mid]);
        if (c == 0) return static_cast<int>(mid);
        if (c == -1) {
            high = mid - 1;
        } else {
            low = mid + 1;
        }
    }
    return -1;
}

NSEnumerator* NSArray::objectEnumerator() {
    return NSAutorelease(static_cast<NSEnumerator*>(NSEnumerator::alloc())->initWithArray_(this));
}

namespace {

// The comparisons whose answers the sort may trust: compare: of strings and
// of numbers, the foundation's own, which answer exactly -1, 0 or 1 and
// consistently (a total preorder). NaN breaks that for numbers: it compares
// equal to everything.
enum class TrustedOrder { None, Strings, Numbers };

TrustedOrder trustedOrder(SEL comparator, NSObject** elements, uint32_t count) {
    if (comparator != NS_SEL("compare:")) return TrustedOrder::None;
    static const IMP stringCompare = NSString::classObject()->lookupMethod(NS_SEL("compare:"));
    static const IMP numberCompare = NSNumber::classObject()->lookupMethod(NS_SEL("compare:"));
    TrustedOrder kind = TrustedOrder::None;
    Class known = nullptr;  // the last class found trustworthy
    for (uint32_t i = 0; i < count; i++) {
        NSObject* e = elements[i];
        if (!e) return TrustedOrder::None;
        Class cls = e->class_();
        if (cls != known) {
            // The implementation, not the class name, is what is vouched
            // for: a subclass that brings its own compare: is not trusted.
            IMP imp = cls->lookupMethod(comparator);
            TrustedOrder k = imp == stringCompare   ? TrustedOrder::Strings
                             : imp == numberCompare ? TrustedOrder::Numbers
                                                    : TrustedOrder::None;
            // One kind per array: the fast sorts read every element as that
            // kind. Mixed kinds (ordered by NSCompareKinds) take the
            // exchange sort.
            if (k == TrustedOrder::None || (kind != TrustedOrder::None && k != kind))
                return TrustedOrder::None;
            kind = k;
            known = cls;
        }
        if (kind == TrustedOrder::Numbers && std::isnan(static_cast<NSNumber*>(e)->doubleValue())) {
            return TrustedOrder::None;
        }
    }
    return kind;
}

}  // namespace

// The sort is an exchange sort that walks back after each
// exchange, in which only an answer of exactly 1 exchanges two neighbours:
// stable, and quadratic. For a comparison that answers -1, 0 or 1
// consistently, its result is the one stable sorted order, which a merge
// sort reaches in n log n with "b before a" exactly when a compared to b
// answers 1. That is only done where the answers can be trusted (see
// trustedOrder); every other comparator, the records' compareWithWrapper:
// included, gets the exchange sort itself, whose result is defined for any
// answers at all.
NSMutableArray* NSArray::sortedArrayUsingSelector_(SEL comparator) {
    NSMutableArray* result = NSMutableArray::arrayWithCapacity_(_count);
    if (_count == 0) return result;
    for (uint32_t i = 0; i < _count; i++) result->addObject_(_elements[i]);
    NSObject** work = result->_elements;
    switch (trustedOrder(comparator, work, _count)) {
        case TrustedOrder::Strings:
            std::stable_sort(work, work + _count, [](NSObject* a, NSObject* b) {
                return static_cast<NSString*>(b)->compare_(static_cast<NSString*>(a)) == 1;
            });
            break;
        case TrustedOrder::Numbers:
            std::stable_sort(work, work + _count, [](NSObject* a, NSObject* b) {
                return static_cast<NSNumber*>(b)->doubleValue() >
                       static_cast<NSNumber*>(a)->doubleValue();
            });
            break;
        case TrustedOrder::None: {
            uint32_t i = 0;
            while (i + 1 < _count) {
                if (NSSend<int>(work[i], comparator, work[i + 1]) == 1) {
                    NSObject* t = work[i];
                    work[i] = work[i + 1];
                    work[i + 1] = t;
                    i = i == 0 ? 1 : i - 1;
                } else {
                    i++;
                }
            }
            break;
        }
    }
    result->setSortedBy_(comparator);
    return result;
}

NSMutableString* NSArray::componentsJoinedByString_(NSString* separator) {
    NSMutableString* s = NSMutableString::string();
    for (uint32_t i = 0; i < _count; i++) {
        if (i) s->appendString_(separator);
        s->appendString_(NSNil(_elements[i], &NSObject::description));
    }
    return s;
}

NSMutableArray* NSArray::subarrayWithRange_(_NSRange range) {
    NSMutableArray* a = NSMutableArray::arrayWithCapacity_(range.length);
    for (uint32_t i = 0; i < range.length; i++) a->addObject_(_elements[range.location + i]);
    return a;
}

bool NSArray::isEqual_(NSObject* other) {
    if (other == this) return true;
    NSArray* a = NSDynamicCast<NSArray>(other);
    if (!a || a->_count != _count) return false;
    for (uint32_t i = 0; i < _count; i++) {
        if (!NSNil(_elements[i], &NSObject::isEqual_, a->_elements[i])) return false;
    }
    return true;
}

uint32_t NSArray::hash() {
    uint32_t h = 17;
    for (uint32_t i = 0; i < _count; i++) h = 37 * h + NSNil(_elements[i], &NSObject::hash);
    return h;
}

NSObject* NSArray::mutableCopyWithZone_(NSZone*) {
    NSMutableArray* a = NSMutableArray::alloc()->initWithCapacity_(_count);
    for (uint32_t i = 0; i < _count; i++) a->addObject_(_elements[i]);
    return a;
}

NSString* NSArray::description() {
    NSMutableString* s = NSMutableString::stringWithUTF8String_("[");
    s->appendString_(componentsJoinedByString_(", "_ns));
    s->appendString_("]"_ns);
    return s;
}

// ---------------------------------------------------------------------------

NSMutableArray* NSMutableArray::init() { return initWithCapacity_(10); }

NSMutableArray* NSMutableArray::initWithCapacity_(uint32_t capacity) {
    initStorage(capacity);
    return this;
}

NSMutableArray* NSMutableArray::array() { return arrayWithCapacity_(10); }

NSMutableArray* NSMutableArray::arrayWithCapacity_(uint32_t capacity) {
    return NSAutorelease(alloc()->initWithCapacity_(capacity));
}

void NSMutableArray::addObject_(NSObject* object) {
    appendRetained(object);
    _sortedBy = nullptr;
}

void NSMutableArray::replaceObjectAtIndex_withObject_(uint32_t index, NSObject* object) {
    NSRetain(object);
    NSObject* old = _elements[index];
    _elements[index] = object;
    NSRelease(old);
    _sortedBy = nullptr;
}

void NSMutableArray::removeObjectAtIndex_(uint32_t index) {
    if (index >= _count) return;
    NSObject* old = _elements[index];
    std::memmove(_elements + index, _elements + index + 1,
                 (_count - index - 1) * sizeof(NSObject*));
    _count--;
    _elements[_count] = nullptr;
    NSRelease(old);
}

void NSMutableArray::addObjectsFromArray_(NSArray* array) {
    NSArray* other = NSDynamicCast<NSArray>(array);
    if (!other) return;
    // Through the other's enumeration, which ends at a nil element. The
    // enumerator is a live cursor, so adding an array to itself would chase
    // its own growing end for ever; the elements it had when the call began
    // are added instead, once.
    uint32_t end = other == this ? _count : UINT32_MAX;
    for (uint32_t i = 0; i < end && i < other->count() && other->objectAtIndex_(i); i++) {
        addObject_(other->objectAtIndex_(i));
    }
    _sortedBy = nullptr;
}

void NSMutableArray::removeObject_(NSObject* object) {
    int index = indexOfObject_(object);
    if (index >= 0) removeObjectAtIndex_(static_cast<uint32_t>(index));
}

void NSMutableArray::removeAllObjects() {
    // The releases of removing element 0 again and again, first to last,
    // without shifting the rest each time.
    uint32_t n = _count;
    NSObject** old = _elements;
    _elements = static_cast<NSObject**>(std::calloc(_capacity ? _capacity : 1, sizeof(NSObject*)));
    _count = 0;
    for (uint32_t i = 0; i < n; i++) NSRelease(old[i]);
    std::free(old);
}

NSObject* NSMutableArray::copyWithZone_(NSZone* zone) { return mutableCopyWithZone_(zone); }

// ---------------------------------------------------------------------------

NSEnumerator* NSEnumerator::initWithArray_(NSArray* array) {
    // Enumerating anything but an array ends at once.
    _array = NSDynamicCast<NSArray>(array);
    _index = 0;
    return this;
}

NSObject* NSEnumerator::nextObject() {
    if (!_array || _index >= _array->count()) return nullptr;
    return _array->objectAtIndex_(_index++);
}

// ---------------------------------------------------------------------------

NS_CLASS_BEGIN(NSArray, NSObject)
    NS_METHOD(init)
    NS_METHOD(initWithObject_)
    NS_METHOD(initWithArray_)
    NS_CLASS_METHOD(arrayWithArray_)
    NS_METHOD(count)
    NS_METHOD(objectAtIndex_)
    NS_METHOD(indexOfObject_)
    NS_METHOD(objectEnumerator)
    NS_METHOD(increaseCapacity)
    NS_METHOD(sortedArrayUsingSelector_)
    NS_METHOD(setSortedBy_)
    NS_METHOD(componentsJoinedByString_)
    NS_METHOD(subarrayWithRange_)
    NS_METHOD(isEqual_)
    NS_METHOD(hash)
    NS_METHOD(mutableCopyWithZone_)
    NS_METHOD(description)
    // elements is a raw block of slots, not an object: key access can't
    // reach it.
    NS_FIELD(_count)
    NS_FIELD(_capacity)
    NS_FIELD(_sortedBy)
NS_CLASS_END(NSArray)

NS_CLASS_BEGIN(NSMutableArray, NSArray)
    NS_METHOD(init)
    NS_METHOD(initWithCapacity_)
    NS_CLASS_METHOD(arrayWithCapacity_)
    NS_CLASS_METHOD(array)
    NS_METHOD(addObject_)
    NS_METHOD(replaceObjectAtIndex_withObject_)
    NS_METHOD(removeObjectAtIndex_)
    NS_METHOD(addObjectsFromArray_)
    NS_METHOD(removeObject_)
    NS_METHOD(removeAllObjects)
    NS_METHOD(copyWithZone_)
NS_CLASS_END(NSMutableArray)

NS_CLASS_BEGIN(NSEnumerator, NSObject)
    NS_METHOD(initWithArray_)
    NS_METHOD(nextObject)
NS_CLASS_END(NSEnumerator)
