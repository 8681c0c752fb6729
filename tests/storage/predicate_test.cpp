// Predicates and expressions, LXProxy and LXDynamicProxy, and the queries
// by predicate of a container checked against a filter made here.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "foundation/Foundation.h"
#include "storage/LXContainer.h"
#include "storage/LXDynamicProxy.h"
#include "storage/LXPredicate.h"
#include "storage/LXProxy.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace {

NSString* ns(const std::string& text) { return NSString::stringWithUTF8String_(text.c_str()); }
NSNumber* num(int n) { return NSNumber::numberWithInt_(n); }
std::string text(NSObject* object) { return object ? object->description()->UTF8String() : "nil"; }

NSComparisonPredicate* compare(NSExpression* lhs, int type, NSExpression* rhs) {
    return NSComparisonPredicate::
            predicateWithLeftExpression_rightExpression_modifier_type_options_(lhs, rhs, 0, type,
                                                                               0);
}

std::set<std::string> sorted_keys(NSObject* object) {
    std::set<std::string> keys;
    NSArray* array = object->attributeKeys();
    for (uint32_t i = 0; i < array->count(); i++) keys.insert(text(array->objectAtIndex_(i)));
    return keys;
}

class PredicateTest : public ::testing::Test {
protected:
    void SetUp() override { pool = NSAutoreleasePool::alloc()->init(); }
    void TearDown() override { pool->release(); }
    NSAutoreleasePool* pool = nullptr;
};

TEST_F(PredicateTest, ClassesAndOperationsAreFoundByName) {
    for (const char* name :
         {"NSPredicate", "NSComparisonPredicate", "NSExpression", "LXProxy", "LXDynamicProxy"}) {
        EXPECT_NE(NSClassFromString(ns(name)), nullptr) << name;
    }
    EXPECT_TRUE(
            LXContainer::classObject()->instancesRespondToSelector_(NS_SEL("query:predicate:")));
    EXPECT_TRUE(LXContainer::classObject()->instancesRespondToSelector_(NS_SEL("select:type:")));
    EXPECT_TRUE(NSObject::classObject()->instancesRespondToSelector_(NS_SEL("proxy")));
}

TEST_F(PredicateTest, ComparisonTypes) {
    // type -> expected result for left 1, 2, 3 against right 2.
    const bool table[7][3] = {
            {true, false, false}, {true, true, false}, {false, false, true},  {false, true, true},
            {false, true, false}, {true, false, true}, {false, false, false},
    };
    for (int type = 0; type < 7; type++) {
        for (int left = 1; left <= 3; left++) {
            NSComparisonPredicate* p =
                    compare(NSExpression::expressionForConstantValue_(num(left)), type,
                            NSExpression::expressionForConstantValue_(num(2)));
            EXPECT_EQ(p->evaluateWithObject_(nullptr), table[type][left - 1])
                    << "type " << type << " left " << left;
        }
    }
    // Strings compare bytewise; the evaluated object is the left side.
    NSComparisonPredicate* before = compare(NSExpression::expressionForEvaluatedObject(), 0,
                                            NSExpression::expressionForConstantValue_("m"_ns));
    EXPECT_TRUE(before->evaluateWithObject_("apple"_ns));
    EXPECT_FALSE(before->evaluateWithObject_("pear"_ns));
    // A nil left value answers 0 to compare:, as any message to nil.
    NSComparisonPredicate* equal = compare(NSExpression::expressionForKeyPath_("missing"_ns), 4,
                                           NSExpression::expressionForConstantValue_(num(7)));
    EXPECT_TRUE(equal->evaluateWithObject_(LXManagedObject::managedObject()));
    EXPECT_EQ(equal->comparisonPredicateModifier(), 0);
    EXPECT_EQ(equal->predicateOperatorType(), 4);
}

TEST_F(PredicateTest, AbstractPredicateAndExpressions) {
    NSPredicate* abstract = static_cast<NSPredicate*>(NSAutorelease(NSPredicate::alloc()->init()));
    EXPECT_EQ(vt_test::logOf([&] { EXPECT_FALSE(abstract->evaluateWithObject_("x"_ns)); }),
              "abstract predicate\n");

    LXManagedObject* record = LXManagedObject::managedObject();
    record->setObject_forKeyPath_(num(12), "__meta.id"_ns);
    NSExpression* constant = NSExpression::expressionForConstantValue_(num(5));
    NSExpression* self = NSExpression::expressionForEvaluatedObject();
    NSExpression* path = NSExpression::expressionForKeyPath_("__meta.id"_ns);
    NSExpression* other = static_cast<NSExpression*>(
            NSAutorelease(NSExpression::alloc()->initWithExpressionType_(2)));
    EXPECT_EQ(text(constant), "<const> 5");
    EXPECT_EQ(text(self), "<object>");
    EXPECT_EQ(text(path), "<key path> __meta.id");
    EXPECT_EQ(other->description(), nullptr);
    EXPECT_EQ(constant->expressionValueWithObject_context_(record, nullptr),
              constant->constantValue());
    EXPECT_EQ(self->expressionValueWithObject_context_(record, nullptr), record);
    EXPECT_EQ(text(path->expressionValueWithObject_context_(record, nullptr)), "12");
    EXPECT_EQ(other->expressionValueWithObject_context_(record, nullptr), nullptr);
    EXPECT_EQ(path->expressionValueWithObject_context_("plain"_ns, nullptr), nullptr)
            << "an object without valueForKeyPath: gives nil";
}

// Counts its instances; made by a proxy of its class.
int gWidgets = 0;

class Widget : public NSObject {
    NS_DECLARE_CLASS(Widget, NSObject)

public:
    Widget* init() override {
        NSObject::init();
        gWidgets++;
        return this;
    }
    void dealloc() override {
        gWidgets--;
        NSObject::dealloc();
    }
    int add_to_(int a, int b) { return a + b + _base; }
    void setBase_(int base) { _base = base; }
    double half_(double x) { return x / 2; }
    int _base = 0;
};

NS_CLASS_BEGIN(Widget, NSObject)
    NS_METHOD(init)
    NS_METHOD(dealloc)
    NS_METHOD(add_to_)
    NS_METHOD(setBase_)
    NS_METHOD(half_)
NS_CLASS_END(Widget)

TEST_F(PredicateTest, ProxyInstantiatesAtTheFirstForwardedMessage) {
    gWidgets = 0;
    LXProxy* proxy = LXProxy::proxyWithClass_(Widget::classObject());
    // These pass to the object without making it.
    EXPECT_EQ(NSSend<Class>(proxy, NS_SEL("class")), nullptr);
    EXPECT_FALSE(NSSend<bool>(proxy, NS_SEL("isKindOfClass:"), NSObject::classObject()));
    EXPECT_FALSE(proxy->isMemberOfClass_(Widget::classObject()));
    EXPECT_FALSE(proxy->respondsToSelector_(NS_SEL("add:to:")));
    EXPECT_FALSE(proxy->conformsToProtocol_("Any"_ns));
    EXPECT_EQ(gWidgets, 0);
    EXPECT_EQ(proxy->class_(), LXProxy::classObject()) << "the runtime still sees the proxy";

    NSSend<void>(proxy, NS_SEL("setBase:"), 10);
    EXPECT_EQ(gWidgets, 1);
    EXPECT_EQ(NSSend<int>(proxy, NS_SEL("add:to:"), 2, 3), 15)
            << "same arguments, the object's result";
    EXPECT_EQ(NSSend<double>(proxy, NS_SEL("half:"), 5.0), 2.5);
    EXPECT_EQ(gWidgets, 1) << "made once";
    EXPECT_EQ(NSSend<Class>(proxy, NS_SEL("class")), Widget::classObject());
    EXPECT_TRUE(proxy->isKindOfClass_(NSObject::classObject()));
    EXPECT_TRUE(proxy->isMemberOfClass_(Widget::classObject()));
    EXPECT_TRUE(proxy->respondsToSelector_(NS_SEL("half:")));
    NSObject* made = proxy->object();
    proxy->instantiate();
    EXPECT_EQ(proxy->object(), made) << "an object already there stays";
    pool->release();
    pool = NSAutoreleasePool::alloc()->init();
    EXPECT_EQ(gWidgets, 0) << "the proxy releases its object";

    // A proxy of an existing object, from NSObject's proxy.
    NSMutableArray* array = NSMutableArray::array();
    LXProxy* wrapper = array->proxy();
    EXPECT_EQ(array->retainCount(), 2u);
    NSSend<void>(wrapper, NS_SEL("addObject:"), "x"_ns);
    EXPECT_EQ(array->count(), 1u);
    EXPECT_EQ(NSSend<uint32_t>(wrapper, NS_SEL("count")), 1u);
    // Without a class or an object, messages fall on nil.
    LXProxy* empty = LXProxy::proxyWithClass_(nullptr);
    EXPECT_EQ(NSSend<int>(empty, NS_SEL("count")), 0);
    EXPECT_EQ(empty->object(), nullptr);
}

TEST_F(PredicateTest, DynamicProxyFieldsByName) {
    NSArray* names = NSArray::arrayWithObjects_("title"_ns, "pages"_ns, "year"_ns, nullptr);
    LXDynamicProxy* p = LXDynamicProxy::dynamicProxyWithInstanceVariables_(names);
    EXPECT_EQ(p->ivars()->bucketCount(), 3u) << "a bucket per name";
    EXPECT_EQ(p->ivars()->objectForKey_("title"_ns), NSNull::null());
    EXPECT_EQ(p->valueForKey_("title"_ns), nullptr) << "the null reads as nil";
    EXPECT_EQ(sorted_keys(p), std::set<std::string>({"title", "pages", "year"}));

    NSSend<void>(p, NS_SEL("setValue:forKey:"), "Dune"_ns, "title"_ns);
    EXPECT_EQ(NSSend<NSObject*>(p, NS_SEL("valueForKey:"), "title"_ns), "Dune"_ns);
    EXPECT_EQ(NSSend<NSObject*>(p, NS_SEL("title")), "Dune"_ns) << "a getter by the field's name";
    NSSend<void>(p, NS_SEL("setYear:"), num(1965));
    EXPECT_EQ(text(p->valueForKey_("year"_ns)), "1965");
    EXPECT_EQ(text(p->tempKey()), "year");
    NSSend<void>(p, NS_SEL("setAuthorName:"), "Herbert"_ns);
    EXPECT_EQ(p->valueForKey_("authorName"_ns), "Herbert"_ns) << "a setter adds an undeclared key";
    NSSend<void>(p, NS_SEL("setTitle:"), static_cast<NSObject*>(nullptr));
    EXPECT_EQ(p->ivars()->objectForKey_("title"_ns), NSNull::null()) << "nil is stored as the null";
    EXPECT_EQ(text(p), text(p->ivars()));

    EXPECT_EQ(vt_test::logOf([&] {
                  EXPECT_EQ(NSSend<NSObject*>(p, NS_SEL("frobnicate")), nullptr);
                  NSSend<void>(p, NS_SEL("set"));  // no field name in it
              }),
              "unsupported selector: frobnicate\nunsupported selector: set\n");
    // The rule is mechanical: "set:with:" names the field ":with".
    NSSend<void>(p, NS_SEL("set:with:"), "a"_ns, "b"_ns);
    EXPECT_EQ(p->valueForKey_(":with"_ns), "a"_ns);

    LXDynamicProxy* plain =
            static_cast<LXDynamicProxy*>(NSAutorelease(LXDynamicProxy::alloc()->init()));
    plain->setValue_forKey_("v"_ns, "k"_ns);
    EXPECT_EQ(plain->valueForKey_("k"_ns), "v"_ns) << "init makes an empty table";
}

// ---------------------------------------------------------------------------
// Queries by predicate on a container.

class Book : public NSObject {
    NS_DECLARE_CLASS(Book, NSObject)

public:
    NSArray* attributeKeys() override {
        return NSArray::arrayWithObjects_("title"_ns, "pages"_ns, nullptr);
    }
    Ref<NSString> _title;
    Ref<NSNumber> _pages;
};

NS_CLASS_BEGIN(Book, NSObject)
    NS_FIELD(_title)
    NS_FIELD(_pages)
NS_CLASS_END(Book)

class ContainerPredicateTest : public PredicateTest {
protected:
    void SetUp() override {
        PredicateTest::SetUp();
        dir = vt_test::makeTempDir("vt-predicate");
        box = LXContainer::containerWithName_(ns(dir + "/box"));
    }
    void TearDown() override {
        PredicateTest::TearDown();
        vt_test::removeTree(dir);
    }
    std::string dir;
    LXContainer* box = nullptr;
};

TEST_F(ContainerPredicateTest, QueryMatchesAFilterMadeHere) {
    struct Row {
        std::string title;
        int pages;
    };
    std::mt19937 random(5);
    std::vector<Row> rows;
    for (int i = 0; i < 60; i++) {
        Row row{"t" + std::to_string(random() % 1000), static_cast<int>(random() % 20)};
        rows.push_back(row);
        Book* book = static_cast<Book*>(NSAutorelease(Book::alloc()->init()));
        book->_title.set(ns(row.title));
        book->_pages.set(num(row.pages));
        ASSERT_GT(box->set_(book), 0);
    }
    // Another type in the same container is never looked at.
    LXManagedObject* stray = LXManagedObject::managedObject();
    stray->setObject_forKeyPath_(num(3), "pages"_ns);
    box->store_type_(stray, "Leaflet"_ns);

    for (int type = 0; type <= 6; type++) {
        int limit = static_cast<int>(random() % 20);
        NSComparisonPredicate* p = compare(NSExpression::expressionForKeyPath_("pages"_ns), type,
                                           NSExpression::expressionForConstantValue_(num(limit)));
        std::multiset<std::string> expected;
        for (const Row& row : rows) {
            int order = row.pages < limit ? -1 : row.pages > limit ? 1 : 0;
            bool keep = type == 0   ? order < 0
                        : type == 1 ? order <= 0
                        : type == 2 ? order > 0
                        : type == 3 ? order >= 0
                        : type == 4 ? order == 0
                        : type == 5 ? order != 0
                                    : false;
            if (keep) expected.insert(row.title + "/" + std::to_string(row.pages));
        }
        NSMutableArray* books = box->query_predicate_(Book::classObject(), p);
        std::multiset<std::string> got;
        for (uint32_t i = 0; i < books->count(); i++) {
            Book* b = static_cast<Book*>(books->objectAtIndex_(i));
            ASSERT_EQ(b->class_(), Book::classObject());
            got.insert(text(b->_title) + "/" + text(b->_pages));
        }
        EXPECT_EQ(got, expected) << "type " << type << " limit " << limit;
        EXPECT_EQ(box->select_type_(p, "Book"_ns)->count(), expected.size());
    }
}

TEST_F(ContainerPredicateTest, AStringAttributeAgainstANumberOrdersByKind) {
    // Titles are strings, the constant a number: compare: never reads one as
    // the other, and every string ranks before every number, whichever side
    // asks.
    for (const char* title : {"", "5", "zebra"}) {
        Book* book = static_cast<Book*>(NSAutorelease(Book::alloc()->init()));
        book->_title.set(ns(title));
        ASSERT_GT(box->set_(book), 0);
    }
    NSExpression* title = NSExpression::expressionForKeyPath_("title"_ns);
    NSExpression* five = NSExpression::expressionForConstantValue_(num(5));
    const size_t expectedLeft[6] = {3, 3, 0, 0, 0, 3};   // title <op> 5
    const size_t expectedRight[6] = {0, 0, 3, 3, 0, 3};  // 5 <op> title
    for (int type = 0; type < 6; type++) {
        EXPECT_EQ(box->select_type_(compare(title, type, five), "Book"_ns)->count(),
                  expectedLeft[type])
                << "type " << type;
        EXPECT_EQ(box->select_type_(compare(five, type, title), "Book"_ns)->count(),
                  expectedRight[type])
                << "type " << type;
    }
    // A key path that is no string reaches nothing, and its text is empty.
    NSExpression* odd = NSSendClass<NSExpression*>(NSExpression::classObject(),
                                                   NS_SEL("expressionForKeyPath:"), num(3));
    EXPECT_EQ(text(odd), "<key path> ");
    LXManagedObject* record = LXManagedObject::managedObject();
    record->setObject_forKeyPath_("x"_ns, "3"_ns);
    EXPECT_EQ(odd->expressionValueWithObject_context_(record, nullptr), nullptr);
}

TEST_F(ContainerPredicateTest, SelectSeesTheManagedObjectAndQueryMapsObjects) {
    for (int i = 0; i < 5; i++) {
        Book* book = static_cast<Book*>(NSAutorelease(Book::alloc()->init()));
        book->_title.set(ns("b" + std::to_string(i)));
        box->set_(book);
    }
    NSComparisonPredicate* byId = compare(NSExpression::expressionForKeyPath_("__meta.id"_ns), 4,
                                          NSExpression::expressionForConstantValue_(num(3)));
    NSMutableArray* picked = box->select_type_(byId, "Book"_ns);
    ASSERT_EQ(picked->count(), 1u);
    EXPECT_TRUE(picked->objectAtIndex_(0)->isKindOfClass_(LXManagedObject::classObject()));
    EXPECT_EQ(text(static_cast<LXManagedObject*>(picked->objectAtIndex_(0))
                           ->objectForKeyPath_("title"_ns)),
              "b2");

    uint32_t mapped = box->mappingSize();
    {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        NSMutableArray* books = box->query_predicate_(Book::classObject(), byId);
        ASSERT_EQ(books->count(), 1u);
        EXPECT_EQ(books->objectAtIndex_(0)->retainCount(), 1u)
                << "the array holds the only reference";
        EXPECT_EQ(box->mappingSize(), mapped + 1) << "built as query: builds, mapping included";
        Book* found = static_cast<Book*>(books->objectAtIndex_(0));
        found->_title.set("renamed"_ns);
        EXPECT_EQ(box->set_(found), 3) << "a set: of a queried object updates its record";
        inner->release();
    }
    EXPECT_EQ(box->mappingSize(), mapped);
    EXPECT_EQ(box->query_predicate_(Book::classObject(), nullptr)->count(), 0u)
            << "nil predicate accepts nothing";
    EXPECT_EQ(box->query_predicate_(nullptr, byId)->count(), 0u);
}

TEST_F(ContainerPredicateTest, DynamicProxyIsStoredByItsKeys) {
    LXDynamicProxy* p = LXDynamicProxy::dynamicProxyWithInstanceVariables_(
            NSArray::arrayWithObjects_("name"_ns, "size"_ns, nullptr));
    p->setValue_forKey_("alpha"_ns, "name"_ns);
    p->setValue_forKey_(num(4), "size"_ns);
    int identifier = box->set_(p);
    ASSERT_GT(identifier, 0);
    LXManagedObject* stored = box->objectWithId_(identifier);
    EXPECT_EQ(text(stored->objectForKeyPath_("name"_ns)), "alpha");
    EXPECT_EQ(text(stored->objectForKeyPath_("__meta.type"_ns)), "LXDynamicProxy");
    NSComparisonPredicate* big = compare(NSExpression::expressionForKeyPath_("size"_ns), 2,
                                         NSExpression::expressionForConstantValue_(num(3)));
    EXPECT_EQ(box->select_type_(big, "LXDynamicProxy"_ns)->count(), 1u);
}

}  // namespace
