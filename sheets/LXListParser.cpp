#include "LXListParser.h"

#include <vector>

#include "foundation/NSCharacterSet.h"

namespace {
// Class-level state made by +initialize and kept for the life of the
// process: the characters that end an atom, and the empty set that every
// scanner gets as its characters to be skipped.
NSCharacterSet* gTerminators = nullptr;
NSCharacterSet* gEmptySkipSet = nullptr;
}  // namespace

void LXListParser::initialize() {
    if (gTerminators) return;
    gTerminators = NSCharacterSet::alloc()->initWithCharactersInString_(") \t\r\n"_ns);
    gEmptySkipSet = NSCharacterSet::alloc()->initWithCharactersInString_(""_ns);
}

LXListParser* LXListParser::listParserWithString_(NSString* text) {
    return NSAutorelease(alloc()->initWithString_(text));
}

LXListParser* LXListParser::initWithString_(NSString* text) {
    _scanner.adopt(NSScanner::alloc()->initWithString_(text));
    if (_scanner) _scanner->setCharactersToBeSkipped_(gEmptySkipSet);
    return this;
}

void LXListParser::dealloc() {
    _scanner = nullptr;
    super::dealloc();
}

NSMutableArray* LXListParser::parse() { return parse_(1); }

// The lists are read with an explicit stack of the lists still open rather
// than by recursion, so that no input can exhaust the machine stack. A list
// joins its parent only when its closing parenthesis is read, as in the
// recursive reading; on failure the open lists are dropped one by one.
//
// Why a depth limit at all: configurations nest a handful of levels, but a
// text of n opening parentheses would otherwise log n lines at its end (ten
// megabytes of them, ten million lines), and everything that walks a result
// recursively (its last release, isEqual:, description, the admin tool's
// printer) would need stack in proportion to the depth. 1000 levels keep
// those walks small even on a 1 MB thread stack and under the sanitizers,
// and leave ample room for generated configurations.
NSMutableArray* LXListParser::parse_(uint8_t openingToRead) {
    if (!_scanner) return nullptr;
    Ref<NSCharacterSet> white = retainRef(NSCharacterSet::whitespaceAndNewlineCharacterSet());
    NSString* text = _scanner->string();
    const uint16_t* units = text ? text->UTF16String() : nullptr;
    uint32_t n = text ? text->length() : 0;

    // The next character; the end of the text reads as 0.
    auto peek = [&]() -> uint16_t {
        uint32_t at = _scanner->scanLocation();
        return at < n ? units[at] : 0;
    };
    auto consume = [&]() { _scanner->setScanLocation_(_scanner->scanLocation() + 1); };
    // Skipping white space takes no string: the scanner would make one that
    // nobody reads.
    auto skipWhite = [&]() {
        uint32_t at = _scanner->scanLocation();
        while (at < n && white->characterIsMember_(units[at])) at++;
        _scanner->setScanLocation_(at);
    };

    std::vector<Ref<NSMutableArray>> open;
    open.push_back(adoptRef(NSMutableArray::alloc()->initWithCapacity_(10)));
    if (openingToRead) {
        skipWhite();
        if (peek() != '(') {
            LOG("'(' expected");
            return nullptr;
        }
        consume();
    }
    for (;;) {
        skipWhite();
        if (peek() == '(') {
            consume();
            if (open.size() >= kMaxDepth) {
                LOG("list nested deeper than %u levels", kMaxDepth);
                return nullptr;
            }
            open.push_back(adoptRef(NSMutableArray::alloc()->initWithCapacity_(10)));
            continue;
        }
        NSString* atom = nullptr;
        if (_scanner->scanUpToCharactersFromSet_intoString_(gTerminators, &atom)) {
            open.back()->addObject_(atom);
            continue;
        }
        skipWhite();
        if (peek() == ')') {
            consume();
            Ref<NSMutableArray> closed = std::move(open.back());
            open.pop_back();
            if (open.empty()) return NSAutorelease(closed.leak());
            open.back()->addObject_(closed.get());
            continue;
        }
        // Only the end of the text gets here: every list still open fails
        // in turn, each with its line.
        for (size_t i = 0; i < open.size(); i++) LOG("identifier(s) or ')'");
        return nullptr;
    }
}

NS_CLASS_BEGIN(LXListParser, NSObject)
    NS_METHOD(dealloc)
    NS_METHOD(parse_)
    NS_METHOD(parse)
    NS_METHOD(initWithString_)
    NS_CLASS_METHOD(listParserWithString_)
    NS_CLASS_METHOD(initialize)
    NS_FIELD(_scanner)
NS_CLASS_END(LXListParser)
