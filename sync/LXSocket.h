// LXSocket: one TCP socket with a typed, blocking interface: fixed-width
// integers, strings, byte blocks and whole objects, framed as written down
// in docs/wire-format.md. With a key, the payloads of data and object
// elements are enciphered (NSData's cipher); nothing else is.
//
// Two guards protect the reader from a dead or hostile peer (the framing
// itself has none): every element must arrive within the receive time-out,
// and a length received ahead of a payload may not exceed the maximum
// length. Either failure logs one line, marks the socket broken (every later
// read or send fails at once: the stream has lost its alignment) and reads
// as a closed connection does.
//
// A socket belongs to one thread at a time and is used for one conversation.
#pragma once

#include <cstdint>

#include "foundation/NSObject.h"
#include "foundation/NSString.h"

class NSData;

class LXSocket : public NSObject {
    NS_DECLARE_CLASS(LXSocket, NSObject)

public:
    // The defaults every new socket takes. 30 s is far beyond any exchange
    // of the relay protocol on a working link (a delta is one record), and
    // 16 MiB far beyond any delta, while still small enough to allocate.
    static constexpr double kDefaultReceiveTimeout = 30.0;
    static constexpr double kDefaultConnectTimeout = 10.0;
    static constexpr uint32_t kDefaultMaximumLength = 16u << 20;
    static constexpr uint32_t kInvalidHandle = 0xFFFFFFFFu;

    // Starts the socket library and makes an IPv4 stream socket. nil only
    // if the library can't start ("The Winsock dll not found!"); a failed
    // socket() logs "Error at socket(): %d" and answers a socket whose
    // calls all fail.
    LXSocket* init() override;
    // init, then retains the key.
    LXSocket* initWithEncryptionKey_(NSString* key);
    // Wraps a handle that accept gave.
    LXSocket* initWithCSocket_(uint32_t handle);
    // The two initialisers above, autoreleased.
    static LXSocket* socket();
    static LXSocket* socketWithEncryptionKey_(NSString* key);

    // The first IPv4 address of the name, dotted, autoreleased; nil if the
    // name doesn't resolve.
    NSString* resolveHostName_(NSString* host);
    // Resolves and connects; false if the host doesn't resolve or the
    // connection can't be made within the connect time-out.
    bool connect_port_(NSString* host, uint32_t port);
    // Binds to all local addresses. On failure logs "bind() failed: %d.",
    // closes the socket and answers false.
    bool bindToPort_(uint32_t port);
    // On failure logs "listen(): Error listening on socket %d." and answers
    // false.
    bool listen_(uint32_t backlog);
    // Blocks for a connection. The result is owned by the caller (not
    // autoreleased) and has this socket's key and guards; nil on failure.
    LXSocket* accept();
    // Closes the handle.
    void dealloc() override;

    // One send; true only if it took all the bytes.
    bool sendBytes_length_(const void* bytes, uint32_t length);
    // A new malloc'd buffer with exactly `length` bytes (the caller frees
    // it), or NULL when the peer closed, the connection broke or the
    // time-out passed first. Never partial data.
    void* readBytesWithLength_(uint32_t length);
    bool sendInt_(int32_t value);
    // The same four bytes as an int.
    bool sendLong_(int32_t value);
    bool sendShort_(int16_t value);
    // 0 when the read fails.
    int32_t readInt();
    int32_t readLong();
    int16_t readShort();
    // Enciphers `data` in place first when the socket has a key: a data
    // object can be sent once only.
    bool sendData_(NSData* data);
    // Autoreleased; nil for a length of 0 and for any failure.
    NSData* readData();
    // The result of the sends is dropped, as the protocol never looks.
    void sendString_(NSString* string);
    // Autoreleased; nil if the read fails.
    NSString* readString();
    // Archives the object (encodeRootObject:) and sends it as data.
    bool sendObject_(NSObject* object);
    // Autoreleased; nil if no data came or it doesn't decode.
    NSObject* readObject();

    // ---- For tools and tests ---------------------------------------------

    NSString* encryptionKey() { return _encryptionKey; }
    uint32_t handle() const { return _m_socket; }
    // Binds to one local address only ("127.0.0.1" for tests and local
    // relays), with the same failure handling as bindToPort:.
    bool bindToAddress_port_(NSString* address, uint32_t port);
    // The local port after binding (port 0 picks a free one), or 0.
    uint32_t localPort();
    // Seconds an element may take to arrive; 0 waits without limit.
    void setReceiveTimeout_(double seconds) { _receiveTimeout = seconds; }
    double receiveTimeout() const { return _receiveTimeout; }
    // Largest length accepted ahead of a payload or a string.
    void setMaximumLength_(uint32_t length) { _maximumLength = length; }
    uint32_t maximumLength() const { return _maximumLength; }
    // True after a guard tripped or the connection broke.
    bool isBroken() const { return _broken; }
    // Process-wide defaults for new sockets (tests shorten the time-out).
    static void setDefaultReceiveTimeout_(double seconds);
    static double defaultReceiveTimeout();
    static void setDefaultMaximumLength_(uint32_t length);
    static uint32_t defaultMaximumLength();
    static void setDefaultConnectTimeout_(double seconds);
    static double defaultConnectTimeout();

    LXSocket() = default;

protected:
    ~LXSocket() override = default;

private:
    bool bind(NSString* address, uint32_t port);
    // A length int ahead of a payload: false (logged, socket broken) when
    // it is negative or above the maximum.
    bool acceptLength(int32_t length, const char* what);
    void takeGuards();
    void closeHandle();

    uint32_t _m_socket = kInvalidHandle;
    Ref<NSString> _encryptionKey;
    double _receiveTimeout = kDefaultReceiveTimeout;
    uint32_t _maximumLength = kDefaultMaximumLength;
    bool _broken = false;
};
