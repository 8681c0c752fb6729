// Shared by the sync tests: a working directory of its own, threads the
// object system knows (each with its own pools), raw loopback sockets that
// check LXSocket from the outside, and a scripted relay on 127.0.0.1.
// Included by one test file per program.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <memory>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/Foundation.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"
#include "sync/LXDelta.h"
#include "tests/support/LogCapture.h"
#include "tests/support/LoopbackSocket.h"
#include "tests/support/TempDir.h"

namespace synctest {

inline NSString* ns(const std::string& text) {
    return NSString::stringWithUTF8String_(text.c_str());
}

// A fresh temporary directory as the working directory while it lives.
class ScopedWorkDir : public vt_test::TempDir {
public:
    ScopedWorkDir() : TempDir("vt-sync", kEnter) {}
};

inline double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace synctest

// A body run on a thread of the object system (an NSThread, so that it has
// pools of its own: a bare std::thread would share the main thread's).
class SyncTestThread : public NSObject {
    NS_DECLARE_CLASS(SyncTestThread, NSObject)

public:
    static SyncTestThread* start(std::function<void()> body) {
        SyncTestThread* thread = SyncTestThread::alloc();
        thread->init();
        thread->_body = std::move(body);
        NSThread::detachNewThread(NS_SEL("main:"), thread, nullptr);
        return thread;
    }
    void main_(NSObject*) {
        _body();
        _done = true;
    }
    // Waits up to `seconds` for the body to end; then releases the object
    // only if it ended (a stuck thread keeps it).
    bool join(double seconds) {
        auto start = std::chrono::steady_clock::now();
        while (!_done && synctest::secondsSince(start) < seconds)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return _done;
    }
    bool done() const { return _done; }

    SyncTestThread() = default;

protected:
    ~SyncTestThread() override = default;

private:
    std::function<void()> _body;
    std::atomic<bool> _done{false};
};

NS_CLASS_BEGIN(SyncTestThread, NSObject)
    NS_METHOD(main_)
NS_CLASS_END(SyncTestThread)

namespace synctest {

// Waits until no thread started by the tests is left in the thread table.
inline void waitForThreads(uint32_t baseline) {
    auto start = std::chrono::steady_clock::now();
    while (NSThread::registeredThreadCount() > baseline && secondsSince(start) < 10)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

// One end of a raw TCP connection, with a read limit so that a test never
// hangs on a broken peer.
class RawPeer {
public:
    explicit RawPeer(int fd) : _fd(fd) {}
    ~RawPeer() {
        if (_fd >= 0) close(_fd);
    }
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    int fd() const { return _fd; }
    // Exactly n bytes, or fewer when the peer closed or 2 s passed.
    std::string read(size_t n, int timeoutMs = 2000) {
        std::string out;
        while (out.size() < n) {
            struct pollfd p {
                _fd, POLLIN, 0
            };
            if (poll(&p, 1, timeoutMs) <= 0) break;
            char buffer[4096];
            ssize_t got = recv(_fd, buffer, std::min(sizeof buffer, n - out.size()), 0);
            if (got <= 0) break;
            out.append(buffer, static_cast<size_t>(got));
        }
        return out;
    }
    // Everything until the peer closes (or 2 s of silence).
    std::string readAll(int timeoutMs = 2000) { return read(1 << 24, timeoutMs); }
    bool write(const std::string& bytes) {
        return send(_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }
    int32_t readInt() {
        std::string b = read(4);
        if (b.size() != 4) return -999;
        return static_cast<int32_t>(uint32_t(uint8_t(b[0])) | uint32_t(uint8_t(b[1])) << 8 |
                                    uint32_t(uint8_t(b[2])) << 16 | uint32_t(uint8_t(b[3])) << 24);
    }
    std::string readString() {
        int32_t n = readInt();
        if (n < 0) return "<none>";
        std::string b = read(static_cast<size_t>(n) + 1);
        return b.size() == static_cast<size_t>(n) + 1 ? b.substr(0, static_cast<size_t>(n))
                                                      : "<short>";
    }
    // The payload of a data element, still enciphered.
    std::string readPayload() {
        int32_t n = readInt();
        if (n <= 0) return "";
        return read(static_cast<size_t>(n));
    }
    bool writeInt(int32_t value) {
        std::string b(4, '\0');
        for (int i = 0; i < 4; i++)
            b[i] = static_cast<char>(static_cast<uint32_t>(value) >> (8 * i));
        return write(b);
    }
    void shutdownBoth() { shutdown(_fd, SHUT_RDWR); }

private:
    int _fd;
};

// A listening socket on 127.0.0.1 with a port picked by the system.
class RawListener {
public:
    RawListener() {
        _fd = socket(AF_INET, SOCK_STREAM, 0);
        struct sockaddr_in address {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = 0;
        EXPECT_EQ(bind(_fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(_fd, 16), 0);
        socklen_t size = sizeof address;
        getsockname(_fd, reinterpret_cast<sockaddr*>(&address), &size);
        _port = ntohs(address.sin_port);
    }
    ~RawListener() { close(_fd); }
    uint16_t port() const { return _port; }
    // -1 when nobody connected within the time or the listener was shut.
    int accept(int timeoutMs = 3000) {
        struct pollfd p {
            _fd, POLLIN, 0
        };
        if (poll(&p, 1, timeoutMs) <= 0) return -1;
        return ::accept(_fd, nullptr, nullptr);
    }

private:
    int _fd = -1;
    uint16_t _port = 0;
};

inline std::string bytesOf(NSData* data) {
    void* bytes = data->bytes();
    std::string out(static_cast<char*>(bytes), data->length());
    std::free(bytes);
    return out;
}

inline std::string archiveOf(NSObject* object) {
    NSMutableData* data = static_cast<NSMutableData*>(NSMutableData::alloc()->init());
    NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(data);
    archiver->encodeObject_(object);
    archiver->release();
    std::string out = bytesOf(data);
    data->release();
    return out;
}

inline std::string cipher(const std::string& bytes, bool encrypt) {
    NSData* data = NSData::dataWithBytes_length_(bytes.data(), static_cast<uint32_t>(bytes.size()));
    if (encrypt) {
        data->encryptWithKey_("Mq7Tarn"_ns);
    } else {
        data->decryptWithKey_("Mq7Tarn"_ns);
    }
    return bytesOf(data);
}

// An autoreleased object decoded from an archive, or nil.
inline NSObject* decode(const std::string& bytes) {
    NSData* data = NSData::dataWithBytes_length_(bytes.data(), static_cast<uint32_t>(bytes.size()));
    NSUnarchiver* unarchiver = NSUnarchiver::alloc()->initForReadingWithData_(data);
    NSObject* object = NSAutorelease(NSRetain(unarchiver->decodeObject()));
    unarchiver->release();
    return object;
}

// The relay's side of the protocol, scripted, on 127.0.0.1. One connection
// at a time, as the real relay. What it saw goes to events() as text.
class FakeRelay {
public:
    enum class Mode { Normal, Drop, Stall };

    FakeRelay() {
        _thread = SyncTestThread::start([this] { loop(); });
    }
    ~FakeRelay() {
        _stop = true;
        // Wakes the poll in accept.
        int fd = vt_test::connectLoopback(_listener.port());
        if (fd >= 0) close(fd);
        EXPECT_TRUE(_thread->join(10));
        _thread->release();
    }

    uint16_t port() const { return _listener.port(); }

    // Deltas waiting for the collect, as archives (enciphered on sending).
    void enqueue(NSObject* delta) {
        std::lock_guard<std::mutex> guard(_mutex);
        _outbox.push_back(archiveOf(delta));
    }
    size_t waiting() {
        settle();
        std::lock_guard<std::mutex> guard(_mutex);
        return _outbox.size();
    }
    void setDepositReply(int32_t reply) { _depositReply = reply; }
    // Decides, by connection number (from 0), how the relay treats it.
    void setModes(std::function<Mode(int)> modes) {
        std::lock_guard<std::mutex> guard(_mutex);
        _modes = std::move(modes);
    }
    void setStallMilliseconds(int ms) { _stallMs = ms; }
    std::vector<std::string> events() {
        settle();
        std::lock_guard<std::mutex> guard(_mutex);
        return _events;
    }
    int connections() const { return _connections; }
    // Waits until the relay is done with every connection it accepted (the
    // client may finish its side of the last one before the relay does).
    void settle() {
        auto start = std::chrono::steady_clock::now();
        while (_served < _connections && secondsSince(start) < 3)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }

private:
    void record(const std::string& event) {
        std::lock_guard<std::mutex> guard(_mutex);
        _events.push_back(event);
    }

    void loop() {
        while (!_stop) {
            int fd = _listener.accept(200);
            if (fd < 0) continue;
            if (_stop) {
                close(fd);
                break;
            }
            NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
            serve(fd);
            pool->release();
            _served++;
        }
    }

    void serve(int fd) {
        RawPeer peer(fd);
        int index = _connections++;
        Mode mode = Mode::Normal;
        {
            std::lock_guard<std::mutex> guard(_mutex);
            if (_modes) mode = _modes(index);
        }
        if (mode == Mode::Drop) return;
        if (mode == Mode::Stall) {
            // Reads nothing and answers nothing, then goes away.
            std::this_thread::sleep_for(std::chrono::milliseconds(_stallMs.load()));
            return;
        }
        int32_t command = peer.readInt();
        if (command == 1) {
            std::string uid = peer.readString();
            NSObject* delta = decode(cipher(peer.readPayload(), false));
            record("deposit " + uid + " " + (delta ? delta->description()->UTF8String() : "<nil>"));
            peer.writeInt(_depositReply);
        } else if (command == 2) {
            std::string uid = peer.readString();
            std::string group = peer.readString();
            record("collect " + uid + " " + group);
            std::deque<std::string> queue;
            {
                std::lock_guard<std::mutex> guard(_mutex);
                queue = _outbox;
            }
            peer.writeInt(static_cast<int32_t>(queue.size()));
            for (const std::string& archive : queue) {
                std::string payload = cipher(archive, true);
                peer.writeInt(static_cast<int32_t>(payload.size()));
                peer.write(payload);
                int32_t ack = peer.readInt();
                if (ack != 1) {
                    record("no ack");
                    break;
                }
                record("ack");
                std::lock_guard<std::mutex> guard(_mutex);
                _outbox.pop_front();
            }
        } else {
            record("command " + std::to_string(command));
        }
    }

    RawListener _listener;
    SyncTestThread* _thread = nullptr;
    std::atomic<bool> _stop{false};
    std::atomic<int> _connections{0};
    std::atomic<int> _served{0};
    std::atomic<int32_t> _depositReply{1};
    std::atomic<int> _stallMs{1000};
    std::mutex _mutex;
    std::deque<std::string> _outbox;
    std::function<Mode(int)> _modes;
    std::vector<std::string> _events;
};

}  // namespace synctest

namespace synctest {

// The default transceiver opens "_deltas_" in the working directory when it
// is first used: every program that includes this file gets a directory of
// its own for its whole run.
class WorkDirEnvironment : public ::testing::Environment {
public:
    void SetUp() override { dir.reset(new ScopedWorkDir()); }
    void TearDown() override { dir.reset(); }
    std::unique_ptr<ScopedWorkDir> dir;
};
inline const auto* const kWorkDirEnvironment =
        ::testing::AddGlobalTestEnvironment(new WorkDirEnvironment);

}  // namespace synctest
