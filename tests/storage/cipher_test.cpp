// The data cipher: the key stream is the complement of the key's low bytes,
// repeated from position 0 at every call.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSData.h"
#include "foundation/NSString.h"

namespace {

class Cipher : public testing::Test {
protected:
    void SetUp() override { _pool = NSAutoreleasePool::alloc()->init(); }
    void TearDown() override { _pool->release(); }
    NSAutoreleasePool* _pool;
};

std::string bytesOf(NSData* data) {
    void* block = data->bytes();
    std::string out(static_cast<char*>(block), data->length());
    std::free(block);
    return out;
}

NSMutableData* dataOf(const std::string& bytes) {
    return NSMutableData::dataWithBytes_length_(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

TEST_F(Cipher, KeyStreamIsTheComplementOfTheKeyRepeated) {
    NSString* key = "Rk2pWn"_ns;
    // Zero bytes show the key stream itself; byte 6 starts the key again.
    NSMutableData* zeros = dataOf(std::string(14, '\0'));
    zeros->encryptWithKey_(key);
    std::string expected;
    for (int i = 0; i < 14; i++) expected.push_back(static_cast<char>(~"Rk2pWn"[i % 6]));
    EXPECT_EQ(bytesOf(zeros), expected);
    EXPECT_EQ(static_cast<unsigned char>(bytesOf(zeros)[6]), 0xFF ^ 'R');

    // A byte equal to its key byte comes out as FF.
    NSMutableData* same = dataOf("Mq7Tarn");
    same->encryptWithKey_("Mq7Tarn"_ns);
    EXPECT_EQ(bytesOf(same), std::string(7, '\xFF'));
}

TEST_F(Cipher, SelfInverseAndRestartingAtEveryCall) {
    std::string clear;
    for (int i = 0; i < 1000; i++) clear.push_back(static_cast<char>(i * 7 + 3));
    NSMutableData* data = dataOf(clear);
    data->encryptWithKey_("Mq7Tarn"_ns);
    EXPECT_NE(bytesOf(data), clear);
    EXPECT_EQ(data->length(), clear.size());
    data->decryptWithKey_("Mq7Tarn"_ns);
    EXPECT_EQ(bytesOf(data), clear);

    // Two pieces enciphered separately differ from the joined buffer when
    // the first piece's length is not a multiple of the key's.
    NSMutableData* joined = dataOf(clear.substr(0, 20));
    joined->encryptWithKey_("Rk2pWn"_ns);
    NSMutableData* first = dataOf(clear.substr(0, 10));
    NSMutableData* second = dataOf(clear.substr(10, 10));
    first->encryptWithKey_("Rk2pWn"_ns);
    second->encryptWithKey_("Rk2pWn"_ns);
    EXPECT_EQ(bytesOf(first), bytesOf(joined).substr(0, 10));
    EXPECT_NE(bytesOf(second), bytesOf(joined).substr(10));

    // Immutable data is changed in place just the same.
    NSData* fixed = NSData::dataWithBytes_length_("ab", 2);
    fixed->encryptWithKey_("Rk2pWn"_ns);
    EXPECT_EQ(bytesOf(fixed), (std::string{char('a' ^ ~'R'), char('b' ^ ~'k')}));
}

TEST_F(Cipher, KeysCountSixteenBitCharacters) {
    // "é" is two UTF-8 bytes but one character (0x00E9): the key has length
    // 2, and the stream uses the character's low byte.
    NSString* key = NSString::stringWithUTF8String_("\xC3\xA9x");
    NSMutableData* zeros = dataOf(std::string(4, '\0'));
    zeros->encryptWithKey_(key);
    EXPECT_EQ(bytesOf(zeros), (std::string{char(~0xE9), char(~'x'), char(~0xE9), char(~'x')}));
}

TEST_F(Cipher, EmptyDataAndEmptyKey) {
    NSMutableData* empty = NSMutableData::data();
    empty->encryptWithKey_(nullptr);  // the key is not looked at
    EXPECT_EQ(empty->length(), 0u);
    // An empty key has no key stream: the bytes stay as they are.
    NSMutableData* data = dataOf("abc");
    data->encryptWithKey_(""_ns);
    EXPECT_EQ(bytesOf(data), "abc");
}

}  // namespace
