// LXSocket: the bytes of every element kind on the wire, with and without a
// key, read back from the other end; payloads in pieces and peers that
// close, stall, drip or announce absurd lengths.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "sync/LXSocket.h"
#include "sync_test_support.h"

using namespace synctest;

namespace {

std::string hex(const std::string& bytes) {
    static const char* digits = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : bytes) {
        if (!out.empty()) out += ' ';
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

class SocketTest : public ::testing::Test {
protected:
    void SetUp() override { pool = NSAutoreleasePool::alloc()->init(); }
    void TearDown() override { pool->release(); }

    // A connected client socket (with the key, if given) and the raw peer.
    LXSocket* connectClient(NSString* key) {
        LXSocket* socket = key ? LXSocket::socketWithEncryptionKey_(key) : LXSocket::socket();
        EXPECT_TRUE(socket->connect_port_("127.0.0.1"_ns, listener.port()));
        int fd = listener.accept();
        EXPECT_GE(fd, 0);
        peer.reset(new RawPeer(fd));
        return socket;
    }

    // What the peer receives from `send` run on a new client socket that
    // is closed right after.
    template <class F>
    std::string wire(NSString* key, F send) {
        LXSocket* socket = LXSocket::alloc()->initWithEncryptionKey_(key);
        EXPECT_TRUE(socket->connect_port_("127.0.0.1"_ns, listener.port()));
        RawPeer raw(listener.accept());
        send(socket);
        socket->release();
        return hex(raw.readAll());
    }

    NSAutoreleasePool* pool = nullptr;
    RawListener listener;
    std::unique_ptr<RawPeer> peer;
};

TEST_F(SocketTest, ElementsOnTheWireWithoutKey) {
    EXPECT_EQ(wire(nullptr, [](LXSocket* s) { EXPECT_TRUE(s->sendInt_(1)); }), "01 00 00 00");
    EXPECT_EQ(wire(nullptr, [](LXSocket* s) { s->sendInt_(-2); }), "FE FF FF FF");
    EXPECT_EQ(wire(nullptr, [](LXSocket* s) { EXPECT_TRUE(s->sendLong_(258)); }), "02 01 00 00");
    EXPECT_EQ(wire(nullptr, [](LXSocket* s) { EXPECT_TRUE(s->sendShort_(258)); }), "02 01");
    EXPECT_EQ(wire(nullptr, [](LXSocket* s) { s->sendShort_(-1); }), "FF FF");
    // The length doesn't count the NUL; the NUL goes out all the same.
    EXPECT_EQ(wire(nullptr, [](LXSocket* s) { s->sendString_("abc"_ns); }),
              "03 00 00 00 61 62 63 00");
    EXPECT_EQ(wire(nullptr, [](LXSocket* s) { s->sendString_(""_ns); }), "00 00 00 00 00");
    EXPECT_EQ(wire(nullptr, [](LXSocket* s) { s->sendString_(nullptr); }), "00 00 00 00 00");
    // UTF-8 length, not characters: "é" is two bytes.
    EXPECT_EQ(wire(nullptr, [](LXSocket* s) { s->sendString_(ns("\xC3\xA9")); }),
              "02 00 00 00 C3 A9 00");
    EXPECT_EQ(wire(nullptr,
                   [](LXSocket* s) {
                       EXPECT_TRUE(s->sendData_(NSData::dataWithBytes_length_("abc", 3)));
                   }),
              "03 00 00 00 61 62 63");
    // Empty data is the length alone.
    EXPECT_EQ(wire(nullptr, [](LXSocket* s) { EXPECT_TRUE(s->sendData_(NSData::data())); }),
              "00 00 00 00");
    // An object is one data element holding its archive (21 bytes here).
    EXPECT_EQ(wire(nullptr, [](LXSocket* s) { EXPECT_TRUE(s->sendObject_(ns("abc"))); }),
              "15 00 00 00 09 00 00 00 4E 53 53 74 72 69 6E 67 00 04 00 00 00 61 62 63 00");
}

TEST_F(SocketTest, KeyCoversPayloadsOnly) {
    NSString* key = "Mq7Tarn"_ns;
    EXPECT_EQ(wire(key, [](LXSocket* s) { s->sendInt_(1); }), "01 00 00 00");
    EXPECT_EQ(wire(key, [](LXSocket* s) { s->sendShort_(258); }), "02 01");
    // Strings stay readable on a keyed socket.
    EXPECT_EQ(wire(key, [](LXSocket* s) { s->sendString_("abc"_ns); }), "03 00 00 00 61 62 63 00");
    // Data: the length in the clear, the payload enciphered from key
    // position 0: 'a' ^ ~'M', 'b' ^ ~'q', 'c' ^ ~'7'.
    EXPECT_EQ(wire(key, [](LXSocket* s) { s->sendData_(NSData::dataWithBytes_length_("abc", 3)); }),
              "03 00 00 00 D3 EC AB");
    // Each payload starts again at key position 0.
    EXPECT_EQ(wire(key,
                   [](LXSocket* s) {
                       s->sendData_(NSData::dataWithBytes_length_("abc", 3));
                       s->sendData_(NSData::dataWithBytes_length_("a", 1));
                   }),
              "03 00 00 00 D3 EC AB 01 00 00 00 D3");
    std::string archive = archiveOf(ns("abc"));
    EXPECT_EQ(wire(key, [](LXSocket* s) { s->sendObject_(ns("abc")); }),
              hex(std::string("\x15\0\0\0", 4) + cipher(archive, true)));
}

TEST_F(SocketTest, SendDataLeavesTheDataEnciphered) {
    LXSocket* socket = connectClient("Mq7Tarn"_ns);
    NSData* data = NSData::dataWithBytes_length_("abc", 3);
    EXPECT_TRUE(socket->sendData_(data));
    EXPECT_EQ(hex(bytesOf(data)), "D3 EC AB");
}

TEST_F(SocketTest, ReadsEveryElementKind) {
    LXSocket* socket = connectClient("Mq7Tarn"_ns);
    std::string bytes = std::string(
                                "\x01\0\0\0"
                                "\xFE\xFF"
                                "\x07\0\0\0",
                                10) +
                        std::string("\x03\0\0\0abc\0", 8) + std::string("\0\0\0\0", 4) +
                        std::string("\x03\0\0\0", 4) + cipher("xyz", true);
    std::string archive = cipher(archiveOf(ns("hello")), true);
    bytes += std::string("\0\0\0", 3).insert(0, 1, static_cast<char>(archive.size())) + archive;
    ASSERT_TRUE(peer->write(bytes));
    EXPECT_EQ(socket->readInt(), 1);
    EXPECT_EQ(socket->readShort(), -2);
    EXPECT_EQ(socket->readLong(), 7);
    EXPECT_STREQ(socket->readString()->UTF8String(), "abc");
    // A length of 0 is nil, and only the int was read: the stream stays
    // aligned for the next element.
    EXPECT_EQ(socket->readData(), nullptr);
    EXPECT_EQ(bytesOf(socket->readData()), "xyz");
    NSObject* object = socket->readObject();
    ASSERT_NE(object, nullptr);
    EXPECT_STREQ(object->description()->UTF8String(), "hello");
}

TEST_F(SocketTest, PayloadInPiecesIsPutTogether) {
    LXSocket* socket = connectClient(nullptr);
    std::thread writer([this] {
        peer->write(std::string("\x06\0\0\0ab", 6));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        peer->write("cd");
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        peer->write("ef");
    });
    NSData* data = socket->readData();
    writer.join();
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(bytesOf(data), "abcdef");
}

TEST_F(SocketTest, PeerClosingHalfwayGivesNothing) {
    LXSocket* socket = connectClient(nullptr);
    peer->write(std::string("\x05\0\0\0ab", 6));
    peer.reset();
    EXPECT_EQ(vt_test::logOf([&] {
                  EXPECT_EQ(socket->readData(), nullptr);
                  // Nothing further either, and a closed peer is no log line.
                  EXPECT_EQ(socket->readInt(), 0);
                  EXPECT_EQ(socket->readBytesWithLength_(1), nullptr);
              }),
              "");
}

TEST_F(SocketTest, SilentPeerTimesOut) {
    LXSocket* socket = connectClient(nullptr);
    socket->setReceiveTimeout_(0.2);
    auto start = std::chrono::steady_clock::now();
    double first = 0;
    EXPECT_EQ(
            vt_test::logOf([&] {
                EXPECT_EQ(socket->readInt(), 0);
                first = secondsSince(start);
                // Broken from now on: the next read fails at once, even with data.
                peer->write(std::string("\x01\0\0\0", 4));
                EXPECT_EQ(socket->readInt(), 0);
                EXPECT_EQ(socket->readString(), nullptr);
            }),
            "socket: read of 4 bytes timed out after 0.2 s with 0 received; connection dropped\n");
    EXPECT_GE(first, 0.19);
    EXPECT_LT(secondsSince(start), 5.0);
    EXPECT_TRUE(socket->isBroken());
}

TEST_F(SocketTest, DrippingPeerTimesOutForTheWholeElement) {
    LXSocket* socket = connectClient(nullptr);
    socket->setReceiveTimeout_(0.3);
    std::atomic<bool> stop{false};
    std::thread dripper([&] {
        peer->write(std::string("\x64\0\0\0", 4));
        for (int i = 0; i < 40 && !stop; i++) {
            peer->write("x");
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    });
    auto start = std::chrono::steady_clock::now();
    double took = 0;
    std::string out = vt_test::logOf([&] {
        EXPECT_EQ(socket->readData(), nullptr);
        took = secondsSince(start);
        stop = true;
        dripper.join();
    });
    EXPECT_EQ(out.rfind("socket: read of 100 bytes timed out after 0.3 s with ", 0), 0u) << out;
    EXPECT_LT(took, 1.5);
}

TEST_F(SocketTest, AbsurdLengthsAreRefusedBeforeAllocating) {
    LXSocket* socket = connectClient(nullptr);
    socket->setMaximumLength_(1024);
    peer->write(std::string("\xFF\xFF\xFF\x7F", 4));
    EXPECT_EQ(vt_test::logOf([&] { EXPECT_EQ(socket->readData(), nullptr); }),
              "socket: data of 2147483647 bytes refused (limit 1024); connection dropped\n");
    EXPECT_TRUE(socket->isBroken());

    LXSocket* second = connectClient(nullptr);
    second->setMaximumLength_(1024);
    // A negative string length (-1 would make the read of N + 1 bytes empty).
    peer->write(std::string("\xFF\xFF\xFF\xFF", 4));
    EXPECT_EQ(vt_test::logOf([&] { EXPECT_EQ(second->readString(), nullptr); }),
              "socket: string of -1 bytes refused (limit 1024); connection dropped\n");

    // At the limit itself the payload is read.
    LXSocket* third = connectClient(nullptr);
    third->setMaximumLength_(4);
    peer->write(std::string("\x04\0\0\0wxyz", 8));
    EXPECT_EQ(bytesOf(third->readData()), "wxyz");
}

TEST_F(SocketTest, NewSocketsTakeTheProcessDefaults) {
    EXPECT_EQ(LXSocket::defaultReceiveTimeout(), LXSocket::kDefaultReceiveTimeout);
    LXSocket::setDefaultReceiveTimeout_(1.5);
    LXSocket::setDefaultMaximumLength_(99);
    LXSocket* socket = LXSocket::socket();
    LXSocket::setDefaultReceiveTimeout_(LXSocket::kDefaultReceiveTimeout);
    LXSocket::setDefaultMaximumLength_(LXSocket::kDefaultMaximumLength);
    EXPECT_EQ(socket->receiveTimeout(), 1.5);
    EXPECT_EQ(socket->maximumLength(), 99u);
}

TEST_F(SocketTest, AcceptedSocketDeciphersWithTheListenersKey) {
    LXSocket* server = LXSocket::socketWithEncryptionKey_("Mq7Tarn"_ns);
    ASSERT_TRUE(server->bindToAddress_port_("127.0.0.1"_ns, 0));
    ASSERT_TRUE(server->listen_(10));
    uint32_t port = server->localPort();
    ASSERT_NE(port, 0u);
    RawPeer client(vt_test::connectLoopback(static_cast<uint16_t>(port)));
    client.write(std::string("\x03\0\0\0", 4) + cipher("abc", true));
    LXSocket* accepted = server->accept();
    ASSERT_NE(accepted, nullptr);
    EXPECT_EQ(accepted->encryptionKey(), server->encryptionKey());
    EXPECT_EQ(bytesOf(accepted->readData()), "abc");
    // Owned by the caller, not autoreleased.
    EXPECT_EQ(accepted->retainCount(), 1u);
    accepted->release();
}

TEST_F(SocketTest, ConnectionFailures) {
    LXSocket* socket = LXSocket::socket();
    EXPECT_STREQ(NSNil(socket->resolveHostName_("localhost"_ns), &NSString::UTF8String),
                 "127.0.0.1");
    EXPECT_EQ(socket->resolveHostName_("no-such-host.invalid"_ns), nullptr);
    EXPECT_EQ(socket->resolveHostName_(""_ns), nullptr);
    EXPECT_FALSE(socket->connect_port_("no-such-host.invalid"_ns, 1));
    // A port nobody listens on: the listener's port once it is gone.
    uint16_t closed;
    {
        RawListener gone;
        closed = gone.port();
    }
    EXPECT_FALSE(LXSocket::socket()->connect_port_("127.0.0.1"_ns, closed));

    // Binding a port in use logs the error and closes the socket.
    LXSocket* second = LXSocket::socket();
    EXPECT_EQ(vt_test::logOf([&] {
                  EXPECT_FALSE(second->bindToAddress_port_("127.0.0.1"_ns, listener.port()));
              }),
              "bind() failed: 98.\n");
    EXPECT_EQ(second->handle(), LXSocket::kInvalidHandle);
    EXPECT_EQ(vt_test::logOf([&] { EXPECT_FALSE(second->listen_(10)); }),
              "listen(): Error listening on socket 9.\n");
}

TEST_F(SocketTest, SendToAVanishedPeerFailsWithoutEndingTheProcess) {
    LXSocket* socket = connectClient(nullptr);
    peer.reset();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::string big(1 << 20, 'x');
    bool allSent = true;
    for (int i = 0; i < 8 && allSent; i++)
        allSent = socket->sendBytes_length_(big.data(), static_cast<uint32_t>(big.size()));
    EXPECT_FALSE(allSent);
}

}  // namespace
