// A TCP proxy on 127.0.0.1 that breaks connections the ways a network does,
// for end-to-end tests of the relay path. Clients connect to the proxy
// instead of the relay; the proxy connects to the relay and forwards bytes
// both ways. Each accepted connection gets one fate, drawn from a seeded
// generator so that a failing run can be replayed:
//
//   Pass    forwarded faithfully (half-closes and resets passed on);
//   Cut     after a number of bytes in one direction, both sides get FIN;
//   Reset   the same, but both sides get RST;
//   Stall   after a number of bytes, nothing moves either way for
//           stallSeconds, then both sides get FIN;
//   Refuse  closed as soon as accepted; the target never sees it.
//
// One thread accepts; one thread serves each connection. Every wait also
// watches a wake pipe, so stop() (and the destructor) end everything at
// once. Sockets are close-on-exec: programs the tests start must not keep a
// connection alive after the proxy has closed it.
#pragma once

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace vt_test {

enum class Fate { Pass, Cut, Reset, Stall, Refuse };
constexpr int kFateCount = 5;

inline const char* fateName(Fate fate) {
    switch (fate) {
        case Fate::Pass:
            return "pass";
        case Fate::Cut:
            return "cut";
        case Fate::Reset:
            return "reset";
        case Fate::Stall:
            return "stall";
        case Fate::Refuse:
            return "refuse";
    }
    return "?";
}

enum class Direction { ToTarget, ToClient };

// What happens to one connection. The fault strikes once `offset` bytes
// have been forwarded in `direction`: right after the offset-th byte has
// gone out, or, for an offset of 0, when the first byte in that direction
// arrives (nothing of it forwarded). So ToTarget 0 is "the request never
// arrives", ToTarget <request length> and ToClient 0 are "the request
// arrived, the reply is lost", and larger ToClient offsets cut replies
// short. A connection that ends before its offset is reached simply passes.
struct FaultPlan {
    Fate fate = Fate::Pass;
    Direction direction = Direction::ToTarget;
    size_t offset = 0;
};

struct FaultProxyOptions {
    // Picks the random sequence: the same number gives the same fates.
    uint32_t sequence = 1;
    // Relative weights of the fates; all zero means every connection passes.
    unsigned passWeight = 1;
    unsigned cutWeight = 1;
    unsigned resetWeight = 1;
    unsigned stallWeight = 1;
    unsigned refuseWeight = 1;
    // Fault offsets are uniform over 0..maxFaultOffset, so that they land
    // inside exchanges of a few hundred bytes.
    size_t maxFaultOffset = 200;
    double stallSeconds = 1.0;
    // Every chunk read is held this long before it is forwarded.
    int chunkDelayMs = 0;
};

// The plans of one random sequence. Three numbers are drawn per connection
// whatever its fate, so connection n's plan depends only on the sequence and n;
// the numbers are mapped by hand rather than through the standard
// distributions, whose output differs between library implementations
// (std::mt19937's own output is fixed by the language).
class FaultPlanner {
public:
    explicit FaultPlanner(const FaultProxyOptions& options)
        : _options(options), _random(options.sequence) {}

    FaultPlan next() {
        uint32_t fateDraw = static_cast<uint32_t>(_random());
        uint32_t directionDraw = static_cast<uint32_t>(_random());
        uint32_t offsetDraw = static_cast<uint32_t>(_random());
        const uint64_t weights[kFateCount] = {_options.passWeight, _options.cutWeight,
                                              _options.resetWeight, _options.stallWeight,
                                              _options.refuseWeight};
        uint64_t total = 0;
        for (uint64_t weight : weights) total += weight;
        FaultPlan plan;
        if (total > 0) {
            uint64_t pick = fateDraw % total;
            int fate = 0;
            while (pick >= weights[fate]) pick -= weights[fate++];
            plan.fate = static_cast<Fate>(fate);
        }
        plan.direction = (directionDraw & 1) ? Direction::ToClient : Direction::ToTarget;
        plan.offset = static_cast<size_t>(offsetDraw %
                                          (static_cast<uint64_t>(_options.maxFaultOffset) + 1));
        return plan;
    }

private:
    FaultProxyOptions _options;
    std::mt19937 _random;
};

class FaultProxy {
public:
    explicit FaultProxy(uint16_t targetPort, FaultProxyOptions options = FaultProxyOptions())
        : _targetPort(targetPort), _options(options), _planner(options) {
        if (pipe2(_wake, O_CLOEXEC | O_NONBLOCK) != 0) {
            _wake[0] = _wake[1] = -1;
            return;
        }
        _listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        if (_listener < 0 ||
            bind(_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            listen(_listener, SOMAXCONN) != 0 ||
            getsockname(_listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            closeQuietly(_listener);
            return;
        }
        _port = ntohs(address.sin_port);
        _acceptThread = std::thread([this] { acceptLoop(); });
    }

    ~FaultProxy() { stop(); }
    FaultProxy(const FaultProxy&) = delete;
    FaultProxy& operator=(const FaultProxy&) = delete;

    // The port clients connect to; 0 when the proxy could not listen.
    uint16_t port() const { return _port; }

    // Off: connections accepted from now on pass, whatever their plan (the
    // plans are still drawn, so turning faults back on resumes the same
    // sequence by connection number). Connections already open keep theirs.
    void setFaultsEnabled(bool enabled) { _faultsEnabled = enabled; }

    // Connections accepted so far, and how many were given each fate.
    int connections() const { return _accepted.load(); }
    int count(Fate fate) const { return _given[static_cast<int>(fate)].load(); }
    // How many of those the fault actually struck (a connection that ends
    // before its offset is reached escapes; a refusal always strikes).
    int struck(Fate fate) const { return _struck[static_cast<int>(fate)].load(); }
    // Connections whose target refused or did not answer (the client is reset).
    int unreachable() const { return _unreachable.load(); }
    // Connections being served right now.
    int open() const { return _open.load(); }
    // The fates given, in the order the connections were accepted.
    std::vector<Fate> fates() const {
        std::lock_guard<std::mutex> guard(_fatesMutex);
        return _fates;
    }

    // The plans a proxy with these options gives its first n connections.
    static std::vector<FaultPlan> plans(const FaultProxyOptions& options, size_t n) {
        FaultPlanner planner(options);
        std::vector<FaultPlan> out;
        for (size_t i = 0; i < n; i++) out.push_back(planner.next());
        return out;
    }

    // Waits up to timeoutMs for every open connection to end.
    bool waitUntilIdle(int timeoutMs) const {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (_open.load() > 0) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

    // Closes the listener and every connection (peers see FIN, or RST where
    // bytes were still unread) and joins all threads. Idempotent.
    void stop() {
        std::lock_guard<std::mutex> guard(_stopMutex);
        if (_stopped) return;
        _stopped = true;
        if (_wake[1] >= 0) {
            char byte = 1;
            ssize_t ignored = write(_wake[1], &byte, 1);
            (void)ignored;
        }
        if (_acceptThread.joinable()) _acceptThread.join();
        closeQuietly(_listener);
        for (Worker& worker : _workers) worker.thread.join();
        _workers.clear();
        closeQuietly(_wake[0]);
        closeQuietly(_wake[1]);
    }

private:
    // One direction of a connection.
    struct Flow {
        int from = -1;
        int to = -1;
        std::string pending;  // read, not yet all written
        size_t written = 0;   // of pending
        size_t forwarded = 0;
        bool ended = false;  // `from` sent its FIN, and it was passed on
        bool faulty = false;
        size_t offset = 0;
    };
    enum class Step { Go, Strike, Reset, Stopped };

    struct Worker {
        std::thread thread;
        std::atomic<bool> done{false};
    };

    static sockaddr_in loopback(uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        return address;
    }

    static void closeQuietly(int& fd) {
        if (fd >= 0) close(fd);
        fd = -1;
    }

    // Closing with a zero linger time sends RST instead of FIN.
    static void abortSocket(int& fd) {
        if (fd < 0) return;
        linger option{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &option, sizeof option);
        closeQuietly(fd);
    }

    // Waits up to ms on the wake pipe; true when stop() was called.
    bool pause(int ms) const {
        pollfd p{_wake[0], POLLIN, 0};
        int result;
        do {
            result = poll(&p, 1, ms);
        } while (result < 0 && errno == EINTR);
        return result > 0;
    }

    void acceptLoop() {
        for (;;) {
            pollfd p[2] = {{_listener, POLLIN, 0}, {_wake[0], POLLIN, 0}};
            if (poll(p, 2, -1) < 0) {
                if (errno == EINTR) continue;
                return;
            }
            if (p[1].revents) return;
            int client = accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (client < 0) {
                // Out of descriptors keeps the listener readable: back off
                // instead of spinning.
                if ((errno == EMFILE || errno == ENFILE) && pause(10)) return;
                continue;
            }
            FaultPlan plan = _planner.next();
            if (!_faultsEnabled) plan.fate = Fate::Pass;
            {
                std::lock_guard<std::mutex> guard(_fatesMutex);
                _fates.push_back(plan.fate);
            }
            _given[static_cast<int>(plan.fate)]++;
            _accepted++;
            if (plan.fate == Fate::Refuse) {
                // A plain close: the client reads EOF, or gets RST if its
                // first bytes had already arrived, as from a server that
                // dies on accepting.
                _struck[static_cast<int>(Fate::Refuse)]++;
                close(client);
                continue;
            }
            reapWorkers();
            _open++;
            Worker& worker = _workers.emplace_back();
            worker.thread = std::thread([this, client, plan, &worker] {
                serve(client, plan);
                _open--;
                worker.done = true;
            });
        }
    }

    // Only the accept thread and stop() (after the accept thread ended)
    // touch the worker list.
    void reapWorkers() {
        for (auto it = _workers.begin(); it != _workers.end();) {
            if (it->done) {
                it->thread.join();
                it = _workers.erase(it);
            } else {
                ++it;
            }
        }
    }

    // A non-blocking connection to the target, or -1.
    int connectTarget() const {
        int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (fd < 0) return -1;
        sockaddr_in address = loopback(_targetPort);
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return fd;
        if (errno == EINPROGRESS) {
            pollfd p[2] = {{fd, POLLOUT, 0}, {_wake[0], POLLIN, 0}};
            int error = 0;
            socklen_t size = sizeof error;
            if (poll(p, 2, 3000) > 0 && !p[1].revents && p[0].revents &&
                getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0)
                return fd;
        }
        close(fd);
        return -1;
    }

    void serve(int client, FaultPlan plan) {
        int target = connectTarget();
        if (target < 0) {
            // What the client would have met connecting to the target itself.
            _unreachable++;
            abortSocket(client);
            return;
        }
        Flow up, down;
        up.from = down.to = client;
        up.to = down.from = target;
        if (plan.fate != Fate::Pass) {
            Flow& faulty = plan.direction == Direction::ToTarget ? up : down;
            faulty.faulty = true;
            faulty.offset = plan.offset;
        }
        Step step = forward(up, down);
        if (step == Step::Go) {  // both sides finished
            close(client);
            close(target);
        } else if (step == Step::Reset) {  // one side reset: so does the other
            abortSocket(client);
            abortSocket(target);
        } else if (step == Step::Stopped) {
            close(client);
            close(target);
        } else {
            _struck[static_cast<int>(plan.fate)]++;
            if (plan.fate == Fate::Reset) {
                abortSocket(client);
                abortSocket(target);
                return;
            }
            if (plan.fate == Fate::Stall &&
                pause(std::max(0, static_cast<int>(_options.stallSeconds * 1000)))) {
                close(client);
                close(target);
                return;
            }
            closeCleanly(client, target);
        }
    }

    // Forwards until both directions have ended (Go) or something else
    // happens.
    Step forward(Flow& up, Flow& down) {
        Flow* flows[2] = {&up, &down};
        for (;;) {
            if (up.ended && down.ended) return Step::Go;
            // Each socket is watched only for what some flow needs of it;
            // an fd of -1 makes poll skip a socket nobody waits on (it
            // would otherwise report a hang-up over and over).
            pollfd p[3] = {{_wake[0], POLLIN, 0}, {up.from, 0, 0}, {up.to, 0, 0}};
            auto slot = [&](int fd) -> pollfd& { return fd == up.from ? p[1] : p[2]; };
            for (Flow* f : flows) {
                if (!f->pending.empty()) {
                    slot(f->to).events |= POLLOUT;
                } else if (!f->ended) {
                    slot(f->from).events |= POLLIN;
                }
            }
            int watched[2] = {p[1].fd, p[2].fd};
            for (int i = 1; i < 3; i++)
                if (p[i].events == 0) p[i].fd = -1;
            if (poll(p, 3, -1) < 0) {
                if (errno == EINTR) continue;
                return Step::Stopped;
            }
            if (p[0].revents) return Step::Stopped;
            for (Flow* f : flows) {
                bool pendingBefore = !f->pending.empty();
                int fd = pendingBefore ? f->to : f->from;
                short revents = (fd == watched[0] ? p[1] : p[2]).revents;
                if (!revents) continue;
                Step step = pendingBefore ? flush(*f) : (f->ended ? Step::Go : receive(*f));
                if (step != Step::Go) return step;
            }
        }
    }

    Step receive(Flow& f) {
        char buffer[16384];
        ssize_t got = recv(f.from, buffer, sizeof buffer, 0);
        if (got < 0)
            return (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) ? Step::Go
                                                                               : Step::Reset;
        if (got == 0) {
            f.ended = true;
            shutdown(f.to, SHUT_WR);
            return Step::Go;
        }
        size_t length = static_cast<size_t>(got);
        if (f.faulty) {
            size_t room = f.offset - f.forwarded;
            if (room == 0) return Step::Strike;  // offset 0: the first byte arrived
            length = std::min(length, room);
        }
        if (_options.chunkDelayMs > 0 && pause(_options.chunkDelayMs)) return Step::Stopped;
        f.pending.assign(buffer, length);
        f.written = 0;
        return flush(f);
    }

    Step flush(Flow& f) {
        while (f.written < f.pending.size()) {
            ssize_t sent = send(f.to, f.pending.data() + f.written, f.pending.size() - f.written,
                                MSG_NOSIGNAL);
            if (sent < 0) {
                if (errno == EINTR) continue;
                return (errno == EAGAIN || errno == EWOULDBLOCK) ? Step::Go : Step::Reset;
            }
            f.written += static_cast<size_t>(sent);
            f.forwarded += static_cast<size_t>(sent);
        }
        f.pending.clear();
        f.written = 0;
        if (f.faulty && f.offset > 0 && f.forwarded == f.offset) return Step::Strike;
        return Step::Go;
    }

    // FIN to both sides, then whatever they still send is read and dropped
    // until they close too (at most a second): closing a socket with
    // unread bytes would send RST instead.
    void closeCleanly(int client, int target) {
        shutdown(client, SHUT_WR);
        shutdown(target, SHUT_WR);
        pollfd p[3] = {{_wake[0], POLLIN, 0}, {client, POLLIN, 0}, {target, POLLIN, 0}};
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        while (p[1].fd >= 0 || p[2].fd >= 0) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                    deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) break;
            int result = poll(p, 3, static_cast<int>(left.count()));
            if (result < 0 && errno == EINTR) continue;
            if (result <= 0 || p[0].revents) break;
            for (int i = 1; i < 3; i++) {
                if (p[i].fd < 0 || !p[i].revents) continue;
                char buffer[4096];
                ssize_t got = recv(p[i].fd, buffer, sizeof buffer, 0);
                if (got == 0 ||
                    (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR))
                    p[i].fd = -1;
            }
        }
        close(client);
        close(target);
    }

    uint16_t _targetPort;
    FaultProxyOptions _options;
    FaultPlanner _planner;  // accept thread only
    int _wake[2] = {-1, -1};
    int _listener = -1;
    uint16_t _port = 0;
    std::thread _acceptThread;
    std::list<Worker> _workers;
    std::mutex _stopMutex;
    bool _stopped = false;
    std::atomic<bool> _faultsEnabled{true};
    std::atomic<int> _accepted{0};
    std::atomic<int> _given[kFateCount] = {};
    std::atomic<int> _struck[kFateCount] = {};
    std::atomic<int> _unreachable{0};
    std::atomic<int> _open{0};
    mutable std::mutex _fatesMutex;
    std::vector<Fate> _fates;
};

}  // namespace vt_test
