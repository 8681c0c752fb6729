#include "sync/LXSocket.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>

#include "foundation/NSData.h"
#include "foundation/platform/Platform.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"

namespace {

std::atomic<double> gReceiveTimeout{LXSocket::kDefaultReceiveTimeout};
std::atomic<double> gConnectTimeout{LXSocket::kDefaultConnectTimeout};
std::atomic<uint32_t> gMaximumLength{LXSocket::kDefaultMaximumLength};

uint32_t milliseconds(double seconds) {
    if (!(seconds > 0)) return 0;
    double ms = seconds * 1000.0;
    return ms >= 4e9 ? 4000000000u : (ms < 1 ? 1u : static_cast<uint32_t>(ms));
}

VTSocket platformHandle(uint32_t handle) {
    return handle == LXSocket::kInvalidHandle ? kVTInvalidSocket : static_cast<VTSocket>(handle);
}

// Integers travel little-endian whatever the machine.
void putLittle(unsigned char* out, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; i++) out[i] = static_cast<unsigned char>(value >> (8 * i));
}

uint32_t getLittle(const unsigned char* in, int bytes) {
    uint32_t value = 0;
    for (int i = 0; i < bytes; i++) value |= uint32_t(in[i]) << (8 * i);
    return value;
}

}  // namespace

void LXSocket::setDefaultReceiveTimeout_(double seconds) { gReceiveTimeout = seconds; }
double LXSocket::defaultReceiveTimeout() { return gReceiveTimeout; }
void LXSocket::setDefaultMaximumLength_(uint32_t length) { gMaximumLength = length; }
uint32_t LXSocket::defaultMaximumLength() { return gMaximumLength; }
void LXSocket::setDefaultConnectTimeout_(double seconds) { gConnectTimeout = seconds; }
double LXSocket::defaultConnectTimeout() { return gConnectTimeout; }

void LXSocket::takeGuards() {
    _receiveTimeout = gReceiveTimeout;
    _maximumLength = gMaximumLength;
}

// ---------------------------------------------------------------------------
// Creation.

LXSocket* LXSocket::init() {
    NSObject::init();
    takeGuards();
    if (!vtSocketStartup()) {
        LOG("The Winsock dll not found!");
        release();
        return nullptr;
    }
    VTSocket handle = vtSocketCreate();
    if (handle == kVTInvalidSocket) {
        LOG("Error at socket(): %d", vtSocketLastError());
        return this;
    }
    _m_socket = static_cast<uint32_t>(handle);
    return this;
}

LXSocket* LXSocket::initWithEncryptionKey_(NSString* key) {
    if (!init()) return nullptr;
    _encryptionKey.set(key);
    return this;
}

LXSocket* LXSocket::initWithCSocket_(uint32_t handle) {
    NSObject::init();
    takeGuards();
    _m_socket = handle;
    return this;
}

LXSocket* LXSocket::socket() { return NSAutorelease(LXSocket::alloc()->init()); }

LXSocket* LXSocket::socketWithEncryptionKey_(NSString* key) {
    return NSAutorelease(LXSocket::alloc()->initWithEncryptionKey_(key));
}

void LXSocket::closeHandle() {
    if (_m_socket != kInvalidHandle) vtSocketClose(platformHandle(_m_socket));
    _m_socket = kInvalidHandle;
}

void LXSocket::dealloc() {
    closeHandle();
    NSObject::dealloc();
}

// ---------------------------------------------------------------------------
// Connection.

NSString* LXSocket::resolveHostName_(NSString* host) {
    std::string dotted;
    if (!host || !vtSocketResolve(host->UTF8String(), &dotted)) return nullptr;
    return NSString::stringWithUTF8String_(dotted.c_str());
}

bool LXSocket::connect_port_(NSString* host, uint32_t port) {
    NSString* address = resolveHostName_(host);
    if (!address) return false;
    return vtSocketConnect(platformHandle(_m_socket), address->UTF8String(),
                           static_cast<uint16_t>(port), milliseconds(gConnectTimeout));
}

bool LXSocket::bind(NSString* address, uint32_t port) {
    if (vtSocketBind(platformHandle(_m_socket), address ? address->UTF8String() : nullptr,
                     static_cast<uint16_t>(port))) {
        return true;
    }
    LOG("bind() failed: %d.", vtSocketLastError());
    closeHandle();
    return false;
}

bool LXSocket::bindToPort_(uint32_t port) { return bind(nullptr, port); }

bool LXSocket::bindToAddress_port_(NSString* address, uint32_t port) { return bind(address, port); }

uint32_t LXSocket::localPort() { return vtSocketLocalPort(platformHandle(_m_socket)); }

bool LXSocket::listen_(uint32_t backlog) {
    if (vtSocketListen(platformHandle(_m_socket), static_cast<int>(backlog))) return true;
    LOG("listen(): Error listening on socket %d.", vtSocketLastError());
    return false;
}

LXSocket* LXSocket::accept() {
    VTSocket client = vtSocketAccept(platformHandle(_m_socket));
    if (client == kVTInvalidSocket) return nullptr;
    LXSocket* socket = LXSocket::alloc()->initWithCSocket_(static_cast<uint32_t>(client));
    socket->_encryptionKey.set(_encryptionKey);
    socket->_receiveTimeout = _receiveTimeout;
    socket->_maximumLength = _maximumLength;
    return socket;
}

// ---------------------------------------------------------------------------
// Elements.

bool LXSocket::sendBytes_length_(const void* bytes, uint32_t length) {
    if (_broken) return false;
    int64_t sent =
            vtSocketSend(platformHandle(_m_socket), bytes, length, milliseconds(_receiveTimeout));
    return sent == static_cast<int64_t>(length);
}

// The whole element must arrive within the receive time-out, counted from
// the start of the read: an idle limit per recv alone would let a peer that
// drips one byte at a time hold the reader for hours.
void* LXSocket::readBytesWithLength_(uint32_t length) {
    if (_broken) return nullptr;
    auto* buffer = static_cast<unsigned char*>(std::malloc(length ? length : 1));
    if (!buffer) {
        _broken = true;
        return nullptr;
    }
    using Clock = std::chrono::steady_clock;
    const bool limited = _receiveTimeout > 0;
    const Clock::time_point deadline =
            Clock::now() +
            std::chrono::microseconds(static_cast<int64_t>(limited ? _receiveTimeout * 1e6 : 0));
    uint32_t have = 0;
    while (have < length) {
        uint32_t wait = 0;
        if (limited) {
            auto left =
                    std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now())
                            .count();
            wait = left < 1 ? 1 : static_cast<uint32_t>(left);
        }
        int64_t got =
                vtSocketReceive(platformHandle(_m_socket), buffer + have, length - have, wait);
        if (got == kVTSocketTimedOut ||
            (got > 0 && limited && have + got < length && Clock::now() >= deadline)) {
            LOG("socket: read of %u bytes timed out after %.1f s with %u received; connection "
                "dropped",
                length, _receiveTimeout, have + static_cast<uint32_t>(got > 0 ? got : 0));
            got = kVTSocketFailed;
        }
        if (got <= 0) {
            _broken = true;
            std::free(buffer);
            return nullptr;
        }
        have += static_cast<uint32_t>(got);
    }
    return buffer;
}

bool LXSocket::sendInt_(int32_t value) {
    unsigned char bytes[4];
    putLittle(bytes, static_cast<uint32_t>(value), 4);
    return sendBytes_length_(bytes, 4);
}

bool LXSocket::sendLong_(int32_t value) { return sendInt_(value); }

bool LXSocket::sendShort_(int16_t value) {
    unsigned char bytes[2];
    putLittle(bytes, static_cast<uint16_t>(value), 2);
    return sendBytes_length_(bytes, 2);
}

int32_t LXSocket::readInt() {
    auto* bytes = static_cast<unsigned char*>(readBytesWithLength_(4));
    if (!bytes) return 0;
    int32_t value = static_cast<int32_t>(getLittle(bytes, 4));
    std::free(bytes);
    return value;
}

int32_t LXSocket::readLong() { return readInt(); }

int16_t LXSocket::readShort() {
    auto* bytes = static_cast<unsigned char*>(readBytesWithLength_(2));
    if (!bytes) return 0;
    int16_t value = static_cast<int16_t>(getLittle(bytes, 2));
    std::free(bytes);
    return value;
}

bool LXSocket::acceptLength(int32_t length, const char* what) {
    if (length >= 0 && static_cast<uint32_t>(length) <= _maximumLength) return true;
    LOG("socket: %s of %d bytes refused (limit %u); connection dropped", what, length,
        _maximumLength);
    _broken = true;
    return false;
}

// The length and the payload go out in one send. In two, an exchange of
// turns (write, write, read) meets Nagle's algorithm: the payload waits for
// the peer's delayed acknowledgement of the length, 40 ms per element on
// Linux. The bytes on the wire are the same.
bool LXSocket::sendData_(NSData* data) {
    if (!data) return false;
    if (_encryptionKey) data->encryptWithKey_(_encryptionKey);
    uint32_t length = data->length();
    std::string element(4, '\0');
    putLittle(reinterpret_cast<unsigned char*>(&element[0]), length, 4);
    if (length > 0) {
        void* bytes = data->bytes();
        element.append(static_cast<const char*>(bytes), length);
        std::free(bytes);
    }
    return sendBytes_length_(element.data(), static_cast<uint32_t>(element.size()));
}

NSData* LXSocket::readData() {
    if (_broken) return nullptr;
    int32_t length = readInt();
    if (length == 0 || !acceptLength(length, "data")) return nullptr;
    void* bytes = readBytesWithLength_(static_cast<uint32_t>(length));
    if (!bytes) return nullptr;
    NSData* data = NSData::dataWithBytes_length_(bytes, static_cast<uint32_t>(length));
    std::free(bytes);
    if (_encryptionKey) data->decryptWithKey_(_encryptionKey);
    return data;
}

// nil goes out as the empty string: the peer reads a string either way.
void LXSocket::sendString_(NSString* string) {
    uint32_t length = string ? string->byteLength() : 0;
    const char* text = string ? string->UTF8String() : "";
    sendInt_(static_cast<int32_t>(length));
    sendBytes_length_(text, length + 1);
}

NSString* LXSocket::readString() {
    if (_broken) return nullptr;
    int32_t length = readInt();
    if (_broken) return nullptr;
    // The NUL is one byte more than the maximum may allow for.
    if (!acceptLength(length, "string")) return nullptr;
    uint32_t total = static_cast<uint32_t>(length) + 1;
    auto* bytes = static_cast<char*>(readBytesWithLength_(total));
    if (!bytes) return nullptr;
    NSString* string = NSString::alloc()->initWithBytes_length_(
            bytes, static_cast<uint32_t>(strnlen(bytes, total)));
    std::free(bytes);
    return NSAutorelease(string);
}

bool LXSocket::sendObject_(NSObject* object) {
    NSMutableData* data = static_cast<NSMutableData*>(NSMutableData::alloc()->init());
    NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(data);
    archiver->encodeRootObject_(object);
    archiver->release();
    bool sent = sendData_(data);
    data->release();
    return sent;
}

NSObject* LXSocket::readObject() {
    NSData* data = readData();
    if (!data) return nullptr;
    NSUnarchiver* unarchiver = NSUnarchiver::alloc()->initForReadingWithData_(data);
    NSObject* object = NSRetain(unarchiver->decodeObject());
    unarchiver->release();
    return NSAutorelease(object);
}

NS_CLASS_BEGIN(LXSocket, NSObject)
    NS_METHOD(init)
    NS_METHOD(initWithEncryptionKey_)
    NS_METHOD(initWithCSocket_)
    NS_CLASS_METHOD(socket)
    NS_CLASS_METHOD(socketWithEncryptionKey_)
    NS_METHOD(resolveHostName_)
    NS_METHOD(connect_port_)
    NS_METHOD(bindToPort_)
    NS_METHOD(listen_)
    NS_METHOD(accept)
    NS_METHOD(dealloc)
    NS_METHOD(sendBytes_length_)
    NS_METHOD(readBytesWithLength_)
    NS_METHOD(sendInt_)
    NS_METHOD(sendLong_)
    NS_METHOD(sendShort_)
    NS_METHOD(readInt)
    NS_METHOD(readLong)
    NS_METHOD(readShort)
    NS_METHOD(sendData_)
    NS_METHOD(readData)
    NS_METHOD(sendString_)
    NS_METHOD(readString)
    NS_METHOD(sendObject_)
    NS_METHOD(readObject)
    NS_METHOD(bindToAddress_port_)
    NS_METHOD(localPort)
    NS_FIELD(_m_socket)
    NS_FIELD(_encryptionKey)
NS_CLASS_END(LXSocket)
