// Attribute-value matrices and variables: persistence and shadowing, key
// order, unification with and without a context, variable chains,
// renaming, and failures that leave the context as it was.
#include <gtest/gtest.h>

#include <string>

#include "foundation/Foundation.h"
#include "structures/KBAVM.h"
#include "structures/KBVariable.h"

namespace {

NSString* ns(const char* text) { return NSString::stringWithUTF8String_(text); }
KBVariable* var(const char* name) { return KBVariable::variableWithName_(ns(name)); }
std::string text(NSObject* object) { return object ? object->description()->UTF8String() : "nil"; }

class UnificationTest : public ::testing::Test {
protected:
    void SetUp() override { pool = NSAutoreleasePool::alloc()->init(); }
    void TearDown() override { pool->release(); }
    NSAutoreleasePool* pool = nullptr;
};

TEST_F(UnificationTest, PersistentUpdatesAndShadowing) {
    KBAVM* empty = KBAVM::avm();
    KBAVM* one = empty->setObject_forKey_("sg"_ns, "num"_ns);
    KBAVM* two = one->setObject_forKey_("pl"_ns, "num"_ns);
    EXPECT_EQ(empty->objectForKey_("num"_ns), nullptr);
    EXPECT_EQ(text(one->objectForKey_("num"_ns)), "sg") << "the old matrix keeps its value";
    EXPECT_EQ(text(two->objectForKey_("num"_ns)), "pl") << "the newest binding shadows";
    EXPECT_EQ(two->pred1(), one);
    EXPECT_EQ(two->allKeys()->count(), 1u);

    // pred1 before pred2; pred2 only when pred1's side has nothing.
    KBAVM* left = KBAVM::avm()->setObject_forKey_("L"_ns, "a"_ns);
    KBAVM* right =
            KBAVM::avm()->setObject_forKey_("R"_ns, "a"_ns)->setObject_forKey_("R"_ns, "b"_ns);
    KBAVM* joined = KBAVM::avmWithPredecessor_and_(left, right);
    EXPECT_EQ(text(joined->objectForKey_("a"_ns)), "L");
    EXPECT_EQ(text(joined->objectForKey_("b"_ns)), "R");
    EXPECT_EQ(KBAVM::avmWithPredecessor_and_(nullptr, right)->objectForKey_("b"_ns), nullptr)
            << "with no pred1 the answer is nil";
    // A key bound to nil on the pred1 side lets pred2 answer.
    KBAVM* cleared = left->setObject_forKey_(nullptr, "a"_ns);
    EXPECT_EQ(cleared->objectForKey_("a"_ns), nullptr);
    EXPECT_EQ(text(KBAVM::avmWithPredecessor_and_(cleared, right)->objectForKey_("a"_ns)), "R");
}

TEST_F(UnificationTest, AllKeysAreDistinctAndInSetOrder) {
    KBAVM* m = KBAVM::avm();
    for (const char* k : {"x", "num", "case", "x", "per", "num", "gen"})
        m = m->setObject_forKey_("v"_ns, ns(k));
    // Entered from the newest link back, so that within a bucket of the
    // set the keys stand newest first.
    NSMutableSet* expected = NSMutableSet::set();
    for (const char* k : {"gen", "num", "per", "x", "case"}) expected->addObject_(ns(k));
    EXPECT_TRUE(m->allKeys()->isEqual_(expected->allObjects()));
    EXPECT_EQ(m->allKeys()->count(), 5u);
}

TEST_F(UnificationTest, UnifyWithoutContext) {
    KBAVM* a = KBAVM::avm()->setObject_forKey_("sg"_ns, "num"_ns);
    KBAVM* b = KBAVM::avm()->setObject_forKey_("3"_ns, "per"_ns);
    KBAVM* both = a->unifyWith_(b);
    ASSERT_NE(both, nullptr) << "disjoint keys unify";
    EXPECT_EQ(both->allKeys()->count(), 2u);
    EXPECT_EQ(text(both->objectForKey_("per"_ns)), "3");

    KBAVM* same = KBAVM::avm()->setObject_forKey_("sg"_ns, "num"_ns);
    EXPECT_NE(a->unifyWith_(same), nullptr) << "equal atoms";
    KBAVM* other = KBAVM::avm()->setObject_forKey_("pl"_ns, "num"_ns);
    EXPECT_EQ(a->unifyWith_(other), nullptr) << "different atoms";
    KBAVM* nested = KBAVM::avm()->setObject_forKey_(KBAVM::avm(), "num"_ns);
    EXPECT_EQ(a->unifyWith_(nested), nullptr) << "atom against matrix";
    EXPECT_EQ(nested->unifyWith_(a), nullptr);

    // Nested matrices unify into the result under their key.
    KBAVM* agr1 = KBAVM::avm()->setObject_forKey_("sg"_ns, "num"_ns);
    KBAVM* agr2 = KBAVM::avm()->setObject_forKey_("3"_ns, "per"_ns);
    KBAVM* s1 = KBAVM::avm()->setObject_forKey_(agr1, "agr"_ns);
    KBAVM* s2 =
            KBAVM::avm()->setObject_forKey_(agr2, "agr"_ns)->setObject_forKey_("np"_ns, "cat"_ns);
    KBAVM* s = s1->unifyWith_(s2);
    ASSERT_NE(s, nullptr);
    KBAVM* agr = static_cast<KBAVM*>(s->objectForKey_("agr"_ns));
    EXPECT_EQ(text(agr->objectForKey_("num"_ns)), "sg");
    EXPECT_EQ(text(agr->objectForKey_("per"_ns)), "3");
    EXPECT_EQ(text(s->objectForKey_("cat"_ns)), "np");
    // A clash one level down fails the whole.
    KBAVM* s3 = KBAVM::avm()->setObject_forKey_(KBAVM::avm()->setObject_forKey_("pl"_ns, "num"_ns),
                                                "agr"_ns);
    EXPECT_EQ(s1->unifyWith_(s3), nullptr);
    // Without a context variables are plain values.
    KBAVM* v1 = KBAVM::avm()->setObject_forKey_(var("X"), "num"_ns);
    EXPECT_EQ(v1->unifyWith_(a), nullptr);
    EXPECT_NE(v1->unifyWith_(KBAVM::avm()->setObject_forKey_(var("X"), "num"_ns)), nullptr);
}

TEST_F(UnificationTest, ContextBindsFreeVariables) {
    KBAVM* pattern = KBAVM::avm()
                             ->setObject_forKey_(var("X"), "num"_ns)
                             ->setObject_forKey_(var("X"), "det"_ns);
    KBAVM* word = KBAVM::avm()->setObject_forKey_("sg"_ns, "num"_ns);
    KBAVM* context = KBAVM::avm();
    KBAVM* result = pattern->unifyWith_context_(word, &context);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(text(var("X")->valueInContext_(context)), "sg");
    // The atom on the left, the variable on the right.
    KBAVM* context2 = KBAVM::avm();
    ASSERT_NE(word->unifyWith_context_(pattern, &context2), nullptr);
    EXPECT_EQ(text(var("X")->valueInContext_(context2)), "sg");
    // A bound variable must match.
    KBAVM* plural = KBAVM::avm()->setObject_forKey_("pl"_ns, "num"_ns);
    KBAVM* before = context;
    EXPECT_EQ(pattern->unifyWith_context_(plural, &context), nullptr);
    EXPECT_EQ(context, before);
    EXPECT_NE(pattern->unifyWith_context_(word, &context), nullptr);
}

TEST_F(UnificationTest, FailureLeavesTheContextAsItWas) {
    // X binds for one key, then another key clashes: no binding survives.
    KBAVM* a =
            KBAVM::avm()->setObject_forKey_(var("X"), "k1"_ns)->setObject_forKey_("p"_ns, "k2"_ns);
    KBAVM* b = KBAVM::avm()->setObject_forKey_("v"_ns, "k1"_ns)->setObject_forKey_("q"_ns, "k2"_ns);
    KBAVM* context = KBAVM::avm();
    KBAVM* empty = context;
    EXPECT_EQ(a->unifyWith_context_(b, &context), nullptr);
    EXPECT_EQ(context, empty);
    EXPECT_EQ(var("X")->valueInContext_(context), nullptr);
}

TEST_F(UnificationTest, VariableChainsAndSharedValues) {
    KBAVM* context = nullptr;  // nil counts as the empty matrix
    KBVariable* x = var("X");
    KBVariable* y = var("Y");
    KBVariable* z = var("Z");
    EXPECT_TRUE(x->unifyWithObject_context_(y, &context)) << "two free variables link";
    ASSERT_NE(context, nullptr);
    EXPECT_TRUE(y->unifyWithObject_context_(z, &context));
    EXPECT_EQ(x->valueInContext_(context), nullptr);
    EXPECT_TRUE(z->unifyWithObject_context_("sg"_ns, &context));
    EXPECT_EQ(text(x->valueInContext_(context)), "sg") << "the end of the chain";
    EXPECT_EQ(text(y->valueInContext_(context)), "sg");
    EXPECT_TRUE(x->unifyWithObject_context_("sg"_ns, &context));
    EXPECT_FALSE(x->unifyWithObject_context_("pl"_ns, &context));

    // Unifying a chain with itself, either way round, binds nothing new and
    // keeps reading finite.
    KBAVM* c2 = nullptr;
    EXPECT_TRUE(x->unifyWithObject_context_(x, &c2));
    EXPECT_EQ(c2, nullptr);
    EXPECT_TRUE(x->unifyWithObject_context_(y, &c2));
    EXPECT_TRUE(y->unifyWithObject_context_(x, &c2));
    EXPECT_EQ(x->valueInContext_(c2), nullptr);
    EXPECT_TRUE(y->unifyWithObject_context_("pl"_ns, &c2));
    EXPECT_EQ(text(x->valueInContext_(c2)), "pl");

    // One free, one bound: the free one takes the value, either way round.
    KBAVM* c3 = KBAVM::avm();
    c3 = y->setValue_inContext_("3"_ns, c3);
    EXPECT_TRUE(x->unifyWithObject_context_(y, &c3));
    EXPECT_EQ(text(x->valueInContext_(c3)), "3");
    EXPECT_TRUE(z->unifyWithObject_context_(var("W"), &c3));
    c3 = var("W")->setValue_inContext_("4"_ns, c3);
    EXPECT_EQ(text(z->valueInContext_(c3)), "4") << "setValue passes along the chain";
    EXPECT_FALSE(x->unifyWithObject_context_(z, &c3));

    // Two variables bound to matrices unify those and share the result.
    KBAVM* c4 = KBAVM::avm();
    c4 = x->setValue_inContext_(KBAVM::avm()->setObject_forKey_("sg"_ns, "num"_ns), c4);
    c4 = y->setValue_inContext_(KBAVM::avm()->setObject_forKey_("3"_ns, "per"_ns), c4);
    EXPECT_TRUE(x->unifyWithObject_context_(y, &c4));
    KBAVM* shared = static_cast<KBAVM*>(x->valueInContext_(c4));
    EXPECT_EQ(shared, y->valueInContext_(c4));
    EXPECT_EQ(text(shared->objectForKey_("per"_ns)), "3");
    EXPECT_FALSE(x->unifyWithObject_context_("sg"_ns, &c4)) << "matrix against atom";
    c4 = z->setValue_inContext_(KBAVM::avm()->setObject_forKey_("pl"_ns, "num"_ns), c4);
    EXPECT_FALSE(x->unifyWithObject_context_(z, &c4));
}

TEST_F(UnificationTest, VariablesAndRenaming) {
    KBVariable* x = var("X");
    EXPECT_EQ(text(x), "var:X");
    EXPECT_TRUE(x->isEqual_(var("X")));
    EXPECT_EQ(x->hash(), var("X")->hash());
    EXPECT_FALSE(x->isEqual_(var("Y")));

    KBAVM* inner = KBAVM::avm()->setObject_forKey_(var("X"), "num"_ns);
    KBAVM* m = KBAVM::avm()
                       ->setObject_forKey_(var("X"), "a"_ns)
                       ->setObject_forKey_(var("Y"), "b"_ns)
                       ->setObject_forKey_(inner, "c"_ns)
                       ->setObject_forKey_(var("X"), "d"_ns);
    NSMutableArray* variables = m->allVariables();
    EXPECT_EQ(variables->count(), 4u) << "X twice, Y, and X of the nested matrix";

    // Shared by both sides of a unification: renamed once, not twice.
    KBAVM* u = m->unifyWith_(m);
    ASSERT_NE(u, nullptr);
    NSMutableDictionary* names = NSMutableDictionary::dictionary();
    u->renameVariables_names_(2, names);
    NSObject* a = m->objectForKey_("a"_ns);
    EXPECT_EQ(text(a), "var:X-2");
    EXPECT_EQ(m->objectForKey_("d"_ns), a) << "the same new object at each place";
    EXPECT_EQ(names->objectForKey_("X"_ns), a);
    EXPECT_EQ(text(m->objectForKey_("b"_ns)), "var:Y-2");
    EXPECT_EQ(text(inner->objectForKey_("num"_ns)), "var:X") << "nested matrices are left alone";
}

TEST_F(UnificationTest, DescriptionIsThatOfADictionary) {
    KBAVM* m =
            KBAVM::avm()->setObject_forKey_("sg"_ns, "num"_ns)->setObject_forKey_("3"_ns, "per"_ns);
    NSMutableDictionary* d = NSMutableDictionary::dictionary();
    NSMutableArray* keys = m->allKeys();
    for (uint32_t i = 0; i < keys->count(); i++)
        d->setObject_forKey_(m->objectForKey_(keys->objectAtIndex_(i)), keys->objectAtIndex_(i));
    EXPECT_EQ(d->count(), 2u);
    EXPECT_EQ(text(m), text(d));
}

}  // namespace
