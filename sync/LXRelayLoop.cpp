// The relay's event loop: many connections at once on one thread.
//
// Why one thread and poll, and not a pool of threads: the store is one
// serialized container, and an operation on it takes microseconds (plain)
// or one forced write (--fsync), while a connection spends nearly all of
// its life waiting for its client. Threads would only wait side by side
// for the one lock, each holding a stack, and a pool of a few could still
// be filled by as many idle clients. Here an idle connection costs a
// socket and a few bytes of state, and waiting clients can't hold anyone:
// the loop reads and writes only what a socket takes at once and never
// waits for one client while another is ready. Deposits that complete in
// the same round are stored in one batch of the container, so with --fsync
// they share the forced writes (a group commit).
//
// Bounds, so that no client can hold the relay or make it keep much:
// - every turn of an exchange has a deadline as a whole, not per read: the
//   request (from the accept to its last element; for a secure collect,
//   up to the signed challenge), each delivered delta (from its first byte
//   sent to the acknowledgement read) and each further delta of a secure
//   deposit (from the acknowledgement of the one before to its last
//   byte). The turn's time is LXSocket's receive time-out (vantor-relay
//   --timeout);
// - a length ahead of a string or data may not pass LXSocket's maximum
//   length, an id not LXRelay::kMaximumIdLength, and a connection reads no
//   further than the element it is in needs;
// - all connections together buffer at most kMaximumBuffered bytes of
//   requests, as allocated (and one small element each beyond it); beyond
//   that large
//   elements wait until deadlines or stores have freed room;
// - at most kMaximumConnections at once: one more evicts the oldest that is
//   still sending its request (a waiting client, never one being served).
//
// A relay started secure serves commands 3 and 4 only, through the same
// stages: LXSecureRelay judges each element once it is whole (a delta's
// seal and signature, the collector's certificate, the signed challenge),
// and the loop does the reading, the writing and the turns.
//
// The bytes on the wire are those of LXSocket's framing and the protocol at
// the top of LXRelay.cpp; nothing changes for a client.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSData.h"
#include "foundation/NSString.h"
#include "foundation/NSThread.h"
#include "foundation/platform/Platform.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"
#include "sync/LXRelay.h"
#include "sync/LXRelayProtocol.h"
#include "sync/LXSecure.h"
#include "sync/LXSecureRelay.h"
#include "sync/LXSocket.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kMaximumConnections = 512;
constexpr size_t kMaximumBuffered = 64u << 20;
// The most bytes taken from one socket in one go, so that one fast client
// doesn't starve the others of the loop's time.
constexpr uint32_t kReadChunk = 64u << 10;
// An element this small is read also when the budget is spent, so that the
// clients with large elements can't keep the ordinary ones waiting.
constexpr size_t kSmallElement = 64u << 10;
// New connections taken per round, for the same reason.
constexpr int kAcceptsPerRound = 64;

NSString* wireKey() { return NSString::stringWithUTF8String_(LXRelayProtocol::kWireKey); }

std::string intBytes(int32_t value) {
    std::string bytes(4, '\0');
    for (int i = 0; i < 4; i++)
        bytes[i] = static_cast<char>(static_cast<uint32_t>(value) >> (8 * i));
    return bytes;
}

int32_t intAt(const std::string& bytes, size_t at) {
    uint32_t value = 0;
    for (int i = 0; i < 4; i++)
        value |= uint32_t(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
    return static_cast<int32_t>(value);
}

// A data element's bytes as the socket's peer sent them, deciphered; nil
// for an empty element, as LXSocket reads it.
NSData* wireData(const std::string& payload) {
    if (payload.empty()) return nullptr;
    NSData* data =
            NSData::dataWithBytes_length_(payload.data(), static_cast<uint32_t>(payload.size()));
    data->decryptWithKey_(wireKey());
    return data;
}

// The object a data element's archive holds (autoreleased), or nil.
NSObject* decoded(const std::string& payload) {
    NSData* data = wireData(payload);
    if (!data) return nullptr;
    Ref<NSUnarchiver> unarchiver =
            NSMake<NSUnarchiver>(&NSUnarchiver::initForReadingWithData_, data);
    return NSAutorelease(NSRetain(unarchiver->decodeObject()));
}

enum class Stage {
    Command,            // waiting for the command int
    DepositId,          // command 1: the addressee's uniqueId
    DepositDelta,       // command 1: the delta's data element
    Depositing,         // command 1 complete, to be stored this round
    CollectUser,        // command 2: the collecting user's uniqueId
    CollectGroup,       // command 2: the group string
    SecureCount,        // command 3: how many deltas follow
    SecureId,           // command 3: a delta's addressee
    SecureDelta,        // command 3: the sealed delta's data element
    SecureUser,         // command 4: the collecting user's uniqueId
    SecureCertificate,  // command 4: the user's certificate
    SecureSignature,    // command 4: the signed challenge
    Delivering,         // commands 2, 4: a delta sent, its acknowledgement awaited
    Closing,            // sending what is left, then closed
    Closed,
};

struct Connection {
    VTSocket socket = kVTInvalidSocket;
    Stage stage = Stage::Command;
    std::string in;      // received and not yet taken
    size_t counted = 0;  // in's capacity as counted in Loop::_buffered
    std::string out;     // to send
    size_t sent = 0;     // of `out`
    Clock::time_point accepted;
    Clock::time_point deadline;
    // Command 1: the announced id and the decoded delta.
    Ref<NSString> announced;
    Ref<NSObject> object;
    // Command 2: the user, the deltas still to send, the one in flight.
    Ref<NSString> user;
    int32_t left = 0;
    int identifier = 0;
    Ref<LXDelta> delta;
    bool collecting = false;  // this connection's user is in Loop::_collecting
    // Command 3: the deltas still to come after the one in hand.
    int32_t batch = 0;
    bool secure = false;
    // Command 4: the certificate read, the challenge sent.
    LXUserCertificate collector;
    std::string challenge;

    bool requesting() const {
        switch (stage) {
            case Stage::Command:
            case Stage::DepositId:
            case Stage::DepositDelta:
            case Stage::CollectUser:
            case Stage::CollectGroup:
            case Stage::SecureCount:
            case Stage::SecureId:
            case Stage::SecureDelta:
            case Stage::SecureUser:
            case Stage::SecureCertificate:
            case Stage::SecureSignature:
                return true;
            default:
                return false;
        }
    }
    bool reading() const { return requesting() || stage == Stage::Delivering; }
};

class Loop {
public:
    Loop(LXRelay* relay, VTSocket listener) : _relay(relay), _listener(listener) {
        _turn = LXSocket::defaultReceiveTimeout();
        _maximumLength = LXSocket::defaultMaximumLength();
    }
    ~Loop() {
        for (auto& c : _connections) close(*c);
    }
    void run();

private:
    void acceptSome();
    void evictOldestRequest();
    void receive(Connection& c);
    void parse(Connection& c);
    bool takeInt(Connection& c, int32_t* value);
    // A string or data element: false while incomplete; *bad when its
    // length is refused (the connection is then dropped).
    bool takeElement(Connection& c, bool string, std::string* payload, bool* present);
    void depositAll();
    // One whole data element of command 3 or 4, judged by the relay's
    // LXSecureRelay; false when the connection has ended.
    bool secureElement(Connection& c, const std::string& payload);
    void startCollect(Connection& c);
    void deliverNext(Connection& c);
    void acknowledged(Connection& c, int32_t answer);
    void send(Connection& c);
    void finish(Connection& c, const std::string& last);
    void drop(Connection& c, const char* why);
    void close(Connection& c);
    void expire(Clock::time_point now);
    void startTurn(Connection& c);
    void appendData(Connection& c, NSData* data);
    // Brings _buffered up to date with the connection's buffer.
    void account(Connection& c);
    uint32_t waitMilliseconds(Clock::time_point now) const;

    LXRelay* _relay;
    VTSocket _listener;
    double _turn;
    uint32_t _maximumLength;
    size_t _buffered = 0;
    size_t _open = 0;  // connections not yet closed
    std::vector<std::unique_ptr<Connection>> _connections;
    std::set<std::string> _collecting;
};

void Loop::startTurn(Connection& c) {
    c.deadline =
            _turn > 0 ? Clock::now() + std::chrono::microseconds(static_cast<int64_t>(_turn * 1e6))
                      : Clock::time_point::max();
}

void Loop::account(Connection& c) {
    _buffered = _buffered - c.counted + c.in.capacity();
    c.counted = c.in.capacity();
}

void Loop::close(Connection& c) {
    if (c.stage == Stage::Closed) return;
    if (c.collecting) {
        NSAutoreleasePoolScope pool;
        _collecting.erase(c.user->UTF8String());
        _relay->forgetIfEmpty_(c.user);
        c.collecting = false;
    }
    _buffered -= c.counted;
    c.counted = 0;
    c.in.clear();
    c.out.clear();
    c.delta.set(nullptr);
    c.object.set(nullptr);
    vtSocketClose(c.socket);
    c.socket = kVTInvalidSocket;
    c.stage = Stage::Closed;
    _open--;
}

void Loop::drop(Connection& c, const char* why) {
    switch (c.stage) {
        case Stage::Command:
            if (why) LOG("connection dropped: %s", why);
            LOG("connection closed before its command");
            break;
        case Stage::DepositId:
        case Stage::DepositDelta:
        case Stage::SecureCount:
        case Stage::SecureId:
        case Stage::SecureDelta:
            if (why) LOG("connection dropped: %s", why);
            LOG("deposit refused: no delta received");
            break;
        case Stage::CollectUser:
        case Stage::CollectGroup:
        case Stage::SecureUser:
        case Stage::SecureCertificate:
        case Stage::SecureSignature:
            if (why) LOG("connection dropped: %s", why);
            LOG("collect refused: no user received");
            break;
        case Stage::Delivering:
            if (why) LOG("connection dropped: %s", why);
            LOG("reception not committed");
            break;
        default:
            if (why) LOG("connection dropped: %s", why);
            break;
    }
    close(c);
}

// The last bytes of the exchange go out, then the connection closes.
void Loop::finish(Connection& c, const std::string& last) {
    c.out += last;
    c.stage = Stage::Closing;
    send(c);
    if (c.stage == Stage::Closing && c.sent >= c.out.size()) close(c);
}

void Loop::send(Connection& c) {
    while (c.sent < c.out.size()) {
        int64_t n = vtSocketSendNow(c.socket, c.out.data() + c.sent,
                                    static_cast<uint32_t>(c.out.size() - c.sent));
        if (n == kVTSocketWouldBlock) return;
        if (n <= 0) {
            drop(c, nullptr);
            return;
        }
        c.sent += static_cast<size_t>(n);
    }
    c.out.clear();
    c.sent = 0;
    if (c.stage == Stage::Closing) close(c);
}

bool Loop::takeInt(Connection& c, int32_t* value) {
    if (c.in.size() < 4) return false;
    *value = intAt(c.in, 0);
    c.in.erase(0, 4);
    return true;
}

bool Loop::takeElement(Connection& c, bool string, std::string* payload, bool* bad) {
    *bad = false;
    if (c.in.size() < 4) return false;
    int32_t length = intAt(c.in, 0);
    if (length < 0 || static_cast<uint32_t>(length) > _maximumLength) {
        LOG("socket: %s of %d bytes refused (limit %u); connection dropped",
            string ? "string" : "data", length, _maximumLength);
        *bad = true;
        return false;
    }
    size_t whole = 4 + static_cast<size_t>(length) + (string ? 1 : 0);
    if (c.in.size() < whole) return false;
    payload->assign(c.in, 4, static_cast<size_t>(length));
    c.in.erase(0, whole);
    if (c.in.empty() && c.in.capacity() > kReadChunk) {
        std::string().swap(c.in);
        account(c);
    }
    return true;
}

// What the stage needs before it can go on, so that a connection never
// reads (and buffers) beyond its element.
size_t wanted(const Connection& c) {
    if (c.in.size() < 4) return 4 - c.in.size();
    if (c.stage == Stage::Command || c.stage == Stage::Delivering || c.stage == Stage::SecureCount)
        return 0;
    int32_t length = intAt(c.in, 0);
    bool string = c.stage == Stage::DepositId || c.stage == Stage::CollectUser ||
                  c.stage == Stage::CollectGroup || c.stage == Stage::SecureId ||
                  c.stage == Stage::SecureUser;
    size_t whole = 4 + static_cast<size_t>(length < 0 ? 0 : length) + (string ? 1 : 0);
    return whole > c.in.size() ? whole - c.in.size() : 0;
}

void Loop::receive(Connection& c) {
    size_t want = std::min<size_t>(std::max<size_t>(wanted(c), 1), kReadChunk);
    // Doubling as the bytes come, but never beyond the element: the budget
    // counts what is allocated, not only what has come.
    size_t needed = c.in.size() + want;
    if (c.in.capacity() < needed) {
        c.in.reserve(std::max(needed, std::min(c.in.size() + wanted(c), 2 * c.in.capacity())));
        account(c);
    }
    // Straight into the buffer: no chunk allocated and freed per read.
    size_t at = c.in.size();
    c.in.resize(at + want);
    int64_t n = vtSocketReceiveNow(c.socket, &c.in[at], static_cast<uint32_t>(want));
    c.in.resize(at + static_cast<size_t>(n > 0 ? n : 0));
    if (n == kVTSocketWouldBlock) return;
    if (n <= 0) {
        drop(c, nullptr);
        return;
    }
    parse(c);
}

void Loop::parse(Connection& c) {
    for (;;) {
        std::string payload;
        bool bad = false;
        int32_t value = 0;
        switch (c.stage) {
            case Stage::Command:
                if (!takeInt(c, &value)) return;
                LOG("new connection accepted - %d", value);
                if (_relay->secureRelay()) {
                    if (!LXSecureRelay::acceptsCommand(value)) {
                        close(c);
                        return;
                    }
                    c.secure = true;
                    c.stage = value == LXRelayProtocol::kSecureDeposit ? Stage::SecureCount
                                                                       : Stage::SecureUser;
                } else if (value == LXRelayProtocol::kDeposit) {
                    c.stage = Stage::DepositId;
                } else if (value == LXRelayProtocol::kCollect) {
                    c.stage = Stage::CollectUser;
                } else {
                    LOG("unknown command %d - connection closed", value);
                    close(c);
                    return;
                }
                break;
            case Stage::SecureCount:
                if (!takeInt(c, &value)) return;
                if (!LXSecureRelay::acceptsBatch(value)) {
                    close(c);
                    return;
                }
                c.batch = value;
                c.stage = Stage::SecureId;
                break;
            case Stage::SecureId:
            case Stage::SecureUser:
            case Stage::DepositId:
            case Stage::CollectUser: {
                // An id beyond the bound is refused before it is read.
                bool deposit = c.stage == Stage::DepositId || c.stage == Stage::SecureId;
                if (c.in.size() >= 4 && intAt(c.in, 0) >= 0 &&
                    LXRelay::idTooLong(static_cast<uint32_t>(intAt(c.in, 0)),
                                       deposit ? "deposit" : "collect")) {
                    finish(c, std::string());
                    return;
                }
                if (!takeElement(c, true, &payload, &bad)) {
                    if (bad) drop(c, nullptr);
                    return;
                }
                NSString* id = NSString::stringWithUTF8String_(payload.c_str());
                if (c.stage == Stage::DepositId || c.stage == Stage::SecureId) {
                    c.announced.set(id);
                    c.stage = c.secure ? Stage::SecureDelta : Stage::DepositDelta;
                } else if (c.secure) {
                    c.user.set(id);
                    c.stage = Stage::SecureCertificate;
                } else {
                    c.user.set(id);
                    c.stage = Stage::CollectGroup;
                }
                break;
            }
            case Stage::DepositDelta: {
                if (!takeElement(c, false, &payload, &bad)) {
                    if (bad) drop(c, nullptr);
                    return;
                }
                c.object.set(decoded(payload));
                c.stage = Stage::Depositing;
                return;
            }
            case Stage::SecureDelta:
            case Stage::SecureCertificate:
            case Stage::SecureSignature:
                if (!takeElement(c, false, &payload, &bad)) {
                    if (bad) drop(c, nullptr);
                    return;
                }
                if (!secureElement(c, payload)) return;
                if (c.stage == Stage::Depositing || c.stage == Stage::Delivering) return;
                break;
            case Stage::CollectGroup:
                if (!takeElement(c, true, &payload, &bad)) {
                    if (bad) drop(c, nullptr);
                    return;
                }
                startCollect(c);
                return;
            case Stage::Delivering:
                if (!takeInt(c, &value)) return;
                acknowledged(c, value);
                if (c.stage != Stage::Delivering) return;
                break;
            default:
                return;
        }
    }
}

void Loop::depositAll() {
    std::vector<Connection*> round;
    for (auto& c : _connections)
        if (c->stage == Stage::Depositing) round.push_back(c.get());
    if (round.empty()) return;
    LXContainer* container = _relay->container();
    container->beginBatch();
    std::vector<bool> stored;
    for (Connection* c : round) {
        NSAutoreleasePoolScope pool;
        stored.push_back(_relay->depositObject_announced_(c->object, c->announced));
        c->object.set(nullptr);
    }
    // With --fsync the batch's end forces all of its deltas at once; none is
    // acknowledged before.
    bool durable = container->endBatch();
    if (!durable) LOG("deposits could not be forced to the disk - no acknowledgement");
    for (size_t i = 0; i < round.size(); i++) {
        Connection& c = *round[i];
        if (!stored[i] || !durable) {
            // A secure deposit's earlier acknowledgements still go out: the
            // client learns which of its deltas were stored.
            finish(c, std::string());
        } else if (c.secure && c.batch > 0) {
            // The next delta of the batch is a turn of its own, and may be
            // here already: the client sends them without waiting.
            c.out += intBytes(LXRelayProtocol::kAcknowledged);
            c.stage = Stage::SecureId;
            startTurn(c);
            send(c);
            if (c.stage == Stage::SecureId) parse(c);
        } else {
            finish(c, intBytes(LXRelayProtocol::kAcknowledged));
        }
    }
}

bool Loop::secureElement(Connection& c, const std::string& payload) {
    LXSecureRelay* secure = _relay->secureRelay();
    if (c.stage == Stage::SecureDelta) {
        LXDelta* delta = secure->checkedDelta_addressee_(decoded(payload), c.announced);
        if (!delta) {
            finish(c, std::string());
            return false;
        }
        c.batch--;
        c.object.set(delta);
        c.stage = Stage::Depositing;
    } else if (c.stage == Stage::SecureCertificate) {
        if (!secure->checkCollector_user_certificate_(decoded(payload), c.user, &c.collector)) {
            close(c);
            return false;
        }
        // Drawn for this connection only: a signature seen on another
        // connection answers none of this one's.
        c.challenge = LXSecureRelay::challenge();
        appendData(c, LXSecure::dataOf(c.challenge));
        c.stage = Stage::SecureSignature;
        send(c);
        if (c.stage != Stage::SecureSignature) return false;
    } else {
        if (!secure->checkSignature(LXSecure::bytesOf(wireData(payload)), c.challenge,
                                    c.collector)) {
            close(c);
            return false;
        }
        startCollect(c);
        if (c.stage != Stage::Delivering) return false;
    }
    return true;
}

void Loop::appendData(Connection& c, NSData* data) {
    data->encryptWithKey_(wireKey());
    c.out += intBytes(static_cast<int32_t>(data->length()));
    if (data->length() == 0) return;
    void* bytes = data->bytes();
    c.out.append(static_cast<const char*>(bytes), data->length());
    std::free(bytes);
}

void Loop::startCollect(Connection& c) {
    std::string key = c.user->UTF8String();
    if (_collecting.count(key)) {
        LOG("collect for %s while another is under way - 0 sent", key.c_str());
        finish(c, intBytes(0));
        return;
    }
    _collecting.insert(key);
    c.collecting = true;
    c.left = static_cast<int32_t>(_relay->index()->objectsForKey_(c.user)->count());
    c.out += intBytes(c.left);
    c.stage = Stage::Delivering;
    deliverNext(c);
}

void Loop::deliverNext(Connection& c) {
    NSAutoreleasePoolScope pool;
    LXDelta* delta = c.left > 0 ? _relay->headOfQueue_identifier_(c.user, &c.identifier) : nullptr;
    if (!delta) {
        // All sent; or fewer waiting than announced (a record that could
        // not be read), which the client takes as a closed connection.
        finish(c, std::string());
        return;
    }
    c.left--;
    c.delta.set(delta);
    appendData(c, NSArchiver::archivedDataWithRootObject_(delta));
    startTurn(c);
    send(c);
}

void Loop::acknowledged(Connection& c, int32_t answer) {
    if (answer != LXRelayProtocol::kAcknowledged) {
        LOG("reception not committed");
        close(c);
        return;
    }
    {
        NSAutoreleasePoolScope pool;
        _relay->delivered_identifier_user_(c.delta, c.identifier, c.user);
        c.delta.set(nullptr);
    }
    deliverNext(c);
}

void Loop::evictOldestRequest() {
    Connection* oldest = nullptr;
    for (auto& c : _connections) {
        if (c->requesting() && (!oldest || c->accepted < oldest->accepted)) oldest = c.get();
    }
    if (oldest) drop(*oldest, "too many connections; the longest waiting goes");
}

void Loop::acceptSome() {
    for (int i = 0; i < kAcceptsPerRound; i++) {
        VTSocket socket = vtSocketAccept(_listener);
        if (socket == kVTInvalidSocket) return;
        if (!vtSocketSetNonBlocking(socket)) {
            vtSocketClose(socket);
            continue;
        }
        if (_open >= kMaximumConnections) evictOldestRequest();
        if (_open >= kMaximumConnections) {
            // Every connection is being served: the new one waits no turn.
            LOG("connection refused: %u connections being served", kMaximumConnections);
            vtSocketClose(socket);
            continue;
        }
        auto c = std::make_unique<Connection>();
        c->socket = socket;
        c->accepted = Clock::now();
        startTurn(*c);
        _connections.push_back(std::move(c));
        _open++;
    }
}

void Loop::expire(Clock::time_point now) {
    for (auto& c : _connections) {
        if (c->stage == Stage::Closed || c->deadline > now) continue;
        char why[80];
        std::snprintf(why, sizeof why, "turn not done within %.1f s", _turn);
        drop(*c, c->stage == Stage::Command ? nullptr : why);
    }
}

uint32_t Loop::waitMilliseconds(Clock::time_point now) const {
    // At least once a second, for the lifetime.
    auto next = now + std::chrono::seconds(1);
    for (const auto& c : _connections) {
        // A secure deposit's next delta, read with the last one, is stored
        // in the next round without waiting.
        if (c->stage == Stage::Depositing) return 0;
        next = std::min(next, c->deadline);
    }
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(next - now).count();
    return ms < 1 ? 1u : static_cast<uint32_t>(ms);
}

void Loop::run() {
    std::vector<VTSocketWaiter> waiters;
    for (;;) {
        NSAutoreleasePoolScope round;
        waiters.clear();
        waiters.push_back(VTSocketWaiter{_listener, true, false, false});
        bool roomToRead = _buffered < kMaximumBuffered;
        for (auto& c : _connections) {
            bool read = c->reading() && (roomToRead || c->in.size() + wanted(*c) <= kSmallElement);
            waiters.push_back(VTSocketWaiter{c->socket, read, c->sent < c->out.size(), false});
        }
        int ready = vtSocketWait(waiters.data(), static_cast<uint32_t>(waiters.size()),
                                 waitMilliseconds(Clock::now()));
        if (ready < 0) NSThread::sleepForTimeInterval_(0.01);
        size_t known = _connections.size();
        for (size_t i = 0; ready > 0 && i < known; i++) {
            Connection& c = *_connections[i];
            if (!waiters[i + 1].ready || c.stage == Stage::Closed) continue;
            if (c.sent < c.out.size()) send(c);
            if (c.stage != Stage::Closed && c.reading()) receive(c);
        }
        depositAll();
        if (ready > 0 && waiters[0].ready) acceptSome();
        expire(Clock::now());
        _connections.erase(std::remove_if(_connections.begin(), _connections.end(),
                                          [](const std::unique_ptr<Connection>& c) {
                                              return c->stage == Stage::Closed;
                                          }),
                           _connections.end());
        if (_relay->lifetimeHasPassed()) break;
    }
}

}  // namespace

void LXRelay::runWithPort_(uint32_t port) {
    _boundPort = 0;
    _bindFailed = false;
    Ref<LXSocket> listener = adoptRef(LXSocket::alloc()->initWithEncryptionKey_(wireKey()));
    // A socket that binds but can't listen is as useless as one that
    // doesn't bind: both end the run the same way. The backlog holds the
    // connections that arrive together (a burst of clients) until the next
    // round takes them: a full one drops a client's handshake, which its
    // system sends again only a second later (the system may cap it lower).
    if (!listener || !listener->bindToAddress_port_(_bindAddress.get(), port) ||
        !listener->listen_(1024) ||
        !vtSocketSetNonBlocking(static_cast<VTSocket>(listener->handle()))) {
        LOG("socket not bound");
        _bindFailed = true;
        return;
    }
    // With port 0 the system picks the port: the log names the one bound,
    // so that whoever started the relay can find it.
    _boundPort = listener->localPort();
    LOG("listening on port %d", static_cast<int>(_boundPort));
    Loop loop(this, static_cast<VTSocket>(listener->handle()));
    loop.run();
}
