// FaultProxy, the tests' stand-in for a bad network: bytes pass both ways
// intact, and each fault really happens, seen by the client and by the
// target as the network failure it stands for, at the byte the plan says.
// The rest of the proxy is proved by the tests that use it.
#include "tests/support/FaultProxy.h"
#include "tests/support/LoopbackSocket.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>

namespace {

using vt_test::connectLoopback;
using vt_test::Direction;
using vt_test::Fate;
using vt_test::FaultPlan;
using vt_test::FaultProxy;
using vt_test::FaultProxyOptions;

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

template <class F>
bool waitUntil(F done, int timeoutMs = 3000) {
    auto start = std::chrono::steady_clock::now();
    while (!done()) {
        if (secondsSince(start) * 1000 > timeoutMs) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// Sends everything, waiting (boundedly) while the socket is full.
bool sendAll(int fd, const std::string& bytes, const std::atomic<bool>* stop = nullptr) {
    size_t done = 0;
    auto start = std::chrono::steady_clock::now();
    while (done < bytes.size()) {
        if ((stop && *stop) || secondsSince(start) > 3) return false;
        pollfd p{fd, POLLOUT, 0};
        if (poll(&p, 1, 50) <= 0) continue;
        ssize_t sent =
                send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) {
            if (errno == EAGAIN || errno == EINTR) continue;
            return false;
        }
        done += static_cast<size_t>(sent);
    }
    return true;
}

// How a read from one end of a connection ended.
struct Received {
    std::string bytes;
    bool eof = false;    // the peer closed cleanly
    int error = 0;       // errno of a failed read
    double seconds = 0;  // until the read ended
};

// Reads until `want` bytes have come, the peer closed, a read failed, or
// silenceMs passed without anything.
Received readFrom(int fd, size_t want, int silenceMs = 2000,
                  const std::atomic<bool>* stop = nullptr) {
    Received r;
    auto start = std::chrono::steady_clock::now();
    auto last = start;
    while (r.bytes.size() < want) {
        if ((stop && *stop) || secondsSince(last) * 1000 > silenceMs) break;
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 20) <= 0) continue;
        char buffer[8192];
        ssize_t got =
                recv(fd, buffer, std::min(sizeof buffer, want - r.bytes.size()), MSG_DONTWAIT);
        if (got == 0) {
            r.eof = true;
            break;
        }
        if (got < 0) {
            if (errno == EAGAIN || errno == EINTR) continue;
            r.error = errno;
            break;
        }
        r.bytes.append(buffer, static_cast<size_t>(got));
        last = std::chrono::steady_clock::now();
    }
    r.seconds = secondsSince(start);
    return r;
}

std::string randomBytes(size_t n, uint32_t sequence) {
    std::mt19937 random(sequence);
    std::string out(n, '\0');
    for (char& c : out) c = static_cast<char>(random());
    return out;
}

// The target: reads a request of requestSize bytes, answers with the same
// bytes, then echoes whatever else comes until the client closes
// (requestSize 0: echoes from the first byte). What each connection
// received and how it ended is kept, by connection number.
class ReplyServer {
public:
    struct Record {
        size_t received = 0;
        int end = -1;  // 0: EOF; an errno: the read failed; -1: still open
    };

    explicit ReplyServer(size_t requestSize) : _requestSize(requestSize) {
        _fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(_fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(_fd, 64), 0);
        getsockname(_fd, reinterpret_cast<sockaddr*>(&address), &size);
        _port = ntohs(address.sin_port);
        _acceptor = std::thread([this] { acceptLoop(); });
    }
    ~ReplyServer() {
        _stop = true;
        _acceptor.join();
        for (std::thread& t : _threads) t.join();
        close(_fd);
    }
    uint16_t port() const { return _port; }
    int accepted() const { return _accepted; }
    // Connection i's record once it has ended (or after 3 s, as it is).
    Record finished(size_t i) {
        waitUntil([&] {
            std::lock_guard<std::mutex> guard(_mutex);
            return i < _records.size() && _records[i].end >= 0;
        });
        std::lock_guard<std::mutex> guard(_mutex);
        return i < _records.size() ? _records[i] : Record();
    }

private:
    void acceptLoop() {
        while (!_stop) {
            pollfd p{_fd, POLLIN, 0};
            if (poll(&p, 1, 20) <= 0) continue;
            int fd = accept4(_fd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) continue;
            size_t index;
            {
                std::lock_guard<std::mutex> guard(_mutex);
                index = _records.size();
                _records.emplace_back();
            }
            _accepted++;
            _threads.emplace_back([this, fd, index] { serve(fd, index); });
        }
    }

    void serve(int fd, size_t index) {
        std::string request;
        bool answered = _requestSize == 0;
        int end = -1;
        while (end < 0 && !_stop) {
            pollfd p{fd, POLLIN, 0};
            if (poll(&p, 1, 20) <= 0) continue;
            char buffer[8192];
            ssize_t got = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
            if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
            if (got <= 0) {
                end = got == 0 ? 0 : errno;
                break;
            }
            {
                std::lock_guard<std::mutex> guard(_mutex);
                _records[index].received += static_cast<size_t>(got);
            }
            std::string chunk(buffer, static_cast<size_t>(got));
            if (answered) {
                sendAll(fd, chunk, &_stop);
            } else {
                request += chunk;
                if (request.size() >= _requestSize) {
                    answered = true;
                    sendAll(fd, request, &_stop);
                }
            }
        }
        std::lock_guard<std::mutex> guard(_mutex);
        _records[index].end = end < 0 ? 0 : end;
        close(fd);
    }

    size_t _requestSize;
    int _fd = -1;
    uint16_t _port = 0;
    std::atomic<bool> _stop{false};
    std::atomic<int> _accepted{0};
    std::thread _acceptor;
    std::vector<std::thread> _threads;  // acceptor only, then the destructor
    std::mutex _mutex;
    std::vector<Record> _records;
};

FaultProxyOptions only(Fate fate, uint32_t sequence) {
    FaultProxyOptions options;
    options.sequence = sequence;
    options.passWeight = fate == Fate::Pass;
    options.cutWeight = fate == Fate::Cut;
    options.resetWeight = fate == Fate::Reset;
    options.stallWeight = fate == Fate::Stall;
    options.refuseWeight = fate == Fate::Refuse;
    return options;
}

// The requests of the fault tests: longer than any fault offset, so every
// drawn fault strikes.
const size_t kRequest = 300;

// One request through the proxy, read until the reply is complete or the
// connection ends.
Received exchange(uint16_t port, const std::string& request, int silenceMs = 2000) {
    int fd = connectLoopback(port);
    EXPECT_GE(fd, 0);
    EXPECT_TRUE(sendAll(fd, request));
    Received r = readFrom(fd, request.size(), silenceMs);
    close(fd);
    return r;
}

bool bothDirections(const std::vector<FaultPlan>& plans) {
    bool up = false, down = false;
    for (const FaultPlan& plan : plans) (plan.direction == Direction::ToTarget ? up : down) = true;
    return up && down;
}

TEST(FaultProxy, PassForwardsBothWaysFaithfullyWithHalfClose) {
    ReplyServer server(0);
    FaultProxy proxy(server.port(), only(Fate::Pass, 1));
    ASSERT_NE(proxy.port(), 0);
    for (uint32_t i = 0; i < 2; i++) {
        // More than the proxy reads at once, and sent while the echo comes
        // back, so that both directions are busy together.
        std::string message = randomBytes(96 * 1024 + i, i);
        int fd = connectLoopback(proxy.port());
        ASSERT_GE(fd, 0);
        std::thread sender([&] {
            EXPECT_TRUE(sendAll(fd, message));
            shutdown(fd, SHUT_WR);
        });
        Received r = readFrom(fd, message.size() + 1);
        sender.join();
        close(fd);
        EXPECT_TRUE(r.eof) << "the client's FIN went through and the server's came back";
        EXPECT_TRUE(r.bytes == message) << r.bytes.size() << " bytes of " << message.size();
        ReplyServer::Record record = server.finished(i);
        EXPECT_EQ(record.received, message.size());
        EXPECT_EQ(record.end, 0);
    }
    EXPECT_TRUE(proxy.waitUntilIdle(2000));
    EXPECT_EQ(proxy.connections(), 2);
    EXPECT_EQ(proxy.count(Fate::Pass), 2);
    EXPECT_EQ(proxy.struck(Fate::Pass), 0);
}

// A fault struck where its plan says: the target has exactly the bytes the
// plan lets through toward it, the client exactly those toward it.
void expectStruckAt(const FaultPlan& plan, const std::string& request,
                    const ReplyServer::Record& record, const Received& r) {
    if (plan.direction == Direction::ToClient) {
        EXPECT_EQ(record.received, kRequest);
        EXPECT_TRUE(r.bytes == request.substr(0, plan.offset)) << r.bytes.size();
    } else {
        EXPECT_EQ(record.received, plan.offset);
        EXPECT_EQ(r.bytes.size(), 0u);
    }
}

// Cut: both ends read EOF, nothing else, at the planned byte.
void checkCuts(size_t maxFaultOffset, uint32_t sequence, size_t n) {
    SCOPED_TRACE("maxFaultOffset " + std::to_string(maxFaultOffset));
    ReplyServer server(kRequest);
    FaultProxyOptions options = only(Fate::Cut, sequence);
    options.maxFaultOffset = maxFaultOffset;
    std::vector<FaultPlan> plans = FaultProxy::plans(options, n);
    ASSERT_TRUE(bothDirections(plans)) << "choose another sequence";
    FaultProxy proxy(server.port(), options);
    std::string request = randomBytes(kRequest, sequence);
    for (size_t i = 0; i < n; i++) {
        SCOPED_TRACE("connection " + std::to_string(i) + ", offset " +
                     std::to_string(plans[i].offset));
        Received r = exchange(proxy.port(), request);
        ReplyServer::Record record = server.finished(i);
        EXPECT_TRUE(r.eof);
        EXPECT_EQ(r.error, 0);
        EXPECT_EQ(record.end, 0);
        expectStruckAt(plans[i], request, record, r);
    }
    EXPECT_EQ(proxy.count(Fate::Cut), static_cast<int>(n));
    EXPECT_EQ(proxy.struck(Fate::Cut), static_cast<int>(n));
}

TEST(FaultProxy, CutGivesBothSidesEofAtTheDrawnByte) {
    checkCuts(200, 3, 8);
    // Offset 0 toward the client: the whole request arrives, no reply byte does.
    checkCuts(0, 5, 6);
}

TEST(FaultProxy, ResetGivesBothSidesConnectionReset) {
    ReplyServer server(kRequest);
    FaultProxyOptions options = only(Fate::Reset, 4);
    const size_t n = 6;
    std::vector<FaultPlan> plans = FaultProxy::plans(options, n);
    ASSERT_TRUE(bothDirections(plans));
    FaultProxy proxy(server.port(), options);
    std::string request = randomBytes(kRequest, 9);
    for (size_t i = 0; i < n; i++) {
        SCOPED_TRACE("connection " + std::to_string(i) + ", offset " +
                     std::to_string(plans[i].offset));
        Received r = exchange(proxy.port(), request);
        ReplyServer::Record record = server.finished(i);
        EXPECT_EQ(r.error, ECONNRESET);
        EXPECT_EQ(record.end, ECONNRESET);
        expectStruckAt(plans[i], request, record, r);
    }
    EXPECT_EQ(proxy.struck(Fate::Reset), static_cast<int>(n));
}

TEST(FaultProxy, StallHoldsBothSidesSilentThenCloses) {
    ReplyServer server(kRequest);
    FaultProxyOptions options = only(Fate::Stall, 2);
    options.stallSeconds = 0.4;
    std::vector<FaultPlan> plans = FaultProxy::plans(options, 2);
    ASSERT_TRUE(bothDirections(plans));
    FaultProxy proxy(server.port(), options);
    std::string request = randomBytes(kRequest, 2);
    // Dialled in order (connection i gets plans[i]), then served at once to
    // keep the test short.
    int fds[2] = {connectLoopback(proxy.port()), connectLoopback(proxy.port())};
    ASSERT_TRUE(fds[0] >= 0 && fds[1] >= 0);
    Received received[2];
    std::thread clients[2];
    for (int i = 0; i < 2; i++) {
        clients[i] = std::thread([&, i] {
            EXPECT_TRUE(sendAll(fds[i], request));
            received[i] = readFrom(fds[i], kRequest, 3000);
            close(fds[i]);
        });
    }
    for (std::thread& t : clients) t.join();
    std::multiset<size_t> expected, seen;
    for (size_t i = 0; i < 2; i++) {
        SCOPED_TRACE("connection " + std::to_string(i) + ", offset " +
                     std::to_string(plans[i].offset));
        const Received& r = received[i];
        EXPECT_TRUE(r.eof);
        EXPECT_GE(r.seconds, 0.35) << "closed before the stall ended";
        bool toClient = plans[i].direction == Direction::ToClient;
        EXPECT_TRUE(r.bytes == request.substr(0, toClient ? plans[i].offset : 0)) << r.bytes.size();
        // The target numbers the two connections in the order the proxy
        // reached it, which may differ.
        expected.insert(toClient ? kRequest : plans[i].offset);
        seen.insert(server.finished(i).received);
    }
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(proxy.struck(Fate::Stall), 2);
}

TEST(FaultProxy, RefuseClosesAtOnceAndNeverReachesTheTarget) {
    ReplyServer server(kRequest);
    FaultProxy proxy(server.port(), only(Fate::Refuse, 1));
    for (int i = 0; i < 3; i++) {
        int fd = connectLoopback(proxy.port());
        ASSERT_GE(fd, 0);
        Received r = readFrom(fd, 1);
        close(fd);
        EXPECT_TRUE(r.eof);
        EXPECT_EQ(r.bytes.size(), 0u);
        EXPECT_LT(r.seconds, 1.0);
    }
    EXPECT_EQ(proxy.count(Fate::Refuse), 3);
    EXPECT_EQ(proxy.struck(Fate::Refuse), 3);
    EXPECT_EQ(server.accepted(), 0);
}

}  // namespace
