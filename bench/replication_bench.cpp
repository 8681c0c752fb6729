// Replication end to end: one relay and N installations on loopback, each
// with its headless client (vantor-admin), for N = 2, 10 and 50; each
// without record versions (VANTOR_RECORD_VERSIONS=off for every program
// of the network) and with them, as the client runs.
//
// Set-up (not timed): the demo installation of the first admin, N-1 more
// users made there as records, a key for each (key make), an installation
// for each with the configuration and the key, every record pushed to each
// ("Send all records") and collected, so that all N hold the same records.
//
// Timed: a burst of 1,000 new records at the first installation (one Save
// each, through `record set` with an array) and its sync, while every
// other installation syncs over and over until it holds all 1,000:
//
//   seconds        from the start of the burst until the last installation
//                  holds every record of it
//   deltas         1,000 x (N-1): one per record and other user
//   deltas/s       deltas / seconds, through the relay
//   relay_cpu_us   the relay's CPU time (user + system) per delta, for its
//                  deposit and its collect
//   vs_without     with versions: deltas/s over that of the same network
//                  without them (run just before)
//   vs_plain       secure=1: deltas/s over that of the same network with
//                  versions in plain mode (run just before)
//
// secure=1 runs the network with the secure protocol: the first admin's
// key made the anchor (key anchor), every key made secure by key make,
// anchor.txt in every installation and vantor-relay --secure --anchor, so
// that every delta is signed, sealed, checked at the relay and opened,
// checked and rights-checked at its addressee.
//
//   cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DVANTOR_WINELIB=OFF
//   cmake --build build-release -j2 --target replication_bench vantor-relay vantor-admin
//   build-release/bench/replication_bench
//
// The programs are found beside this one (../relay, ../admin) or at
// $VANTOR_RELAY_PATH and $VANTOR_ADMIN_PATH; the demo and its scripts in the
// source tree it was built from.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "BenchProcess.h"

namespace {

using namespace vt_bench;

constexpr int kBurst = 1000;

std::string sourceDir() { return VANTOR_SOURCE_DIR; }

std::string quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

struct Installation {
    std::string dir;
    std::string password;
    bool versions = true;
    // A vantor-admin command in the installation; its standard output.
    std::string admin(const std::string& args, const std::string& input = "") const {
        std::string command = "(cd " + quote(dir) + " && " +
                              (versions ? "" : "VANTOR_RECORD_VERSIONS=off ") +
                              "VANTOR_NONINTERACTIVE=1 VANTOR_PASSWORD=" + quote(password) + " " +
                              quote(builtProgram("VANTOR_ADMIN_PATH", "admin/vantor-admin")) + " " +
                              args + ") 2>/dev/null";
        if (!input.empty()) {
            std::string file = dir + "/.bench-input";
            FILE* f = std::fopen(file.c_str(), "w");
            if (f) {
                std::fwrite(input.data(), 1, input.size(), f);
                std::fclose(f);
            }
            command += " < " + quote(file);
        }
        return run(command);
    }
    // Syncs until a run ends with nothing left to move; a failed run is
    // repeated, as a client's transceiver comes round again, until
    // `seconds` have passed. (It gave up after 20 failed runs, and a sender
    // that gave up left deltas behind for good: the burst never completed.)
    // Answers the deltas received, from the cycle lines.
    int sync(uint16_t port, double seconds = 600) const {
        auto t0 = std::chrono::steady_clock::now();
        int received = 0;
        for (;;) {
            std::string out = admin("sync --port " + std::to_string(port) + "; echo status=$?");
            for (size_t at = out.find(", received "); at != std::string::npos;
                 at = out.find(", received ", at + 1))
                received += std::atoi(out.c_str() + at + 11);
            if (out.find("status=0") != std::string::npos || secondsSince(t0) >= seconds)
                return received;
        }
    }
    int tasksWith(const std::string& tag) const {
        std::string out = admin("record list task");
        int n = 0;
        for (size_t at = out.find("\"" + tag + " "); at != std::string::npos;
             at = out.find("\"" + tag + " ", at + 1))
            n++;
        return n;
    }
};

struct Network {
    std::string root;
    pid_t relay = -1;
    uint16_t port = 0;
    std::vector<Installation> installations;

    bool start(int n, bool versions, bool secure, std::string* why) {
        root = makeTempDir("vt-replication-bench");
        std::string log = root + "/relay.log";
        run("mkdir -p " + quote(root + "/relay"));
        Installation first{root + "/i0", "vantor-demo", versions};
        run(std::string(versions ? "" : "VANTOR_RECORD_VERSIONS=off ") +
            "VANTOR_ADMIN_PATH=" + quote(builtProgram("VANTOR_ADMIN_PATH", "admin/vantor-admin")) +
            " bash " + quote(sourceDir() + "/scripts/new-workdir.sh") + " " + quote(first.dir) +
            " >/dev/null 2>&1");
        run("echo 127.0.0.1 > " + quote(first.dir + "/transceiver.txt"));
        std::string anchor = root + "/anchor.txt";
        if (secure) {
            first.admin("key anchor " + quote(anchor));
            run("cp " + quote(anchor) + " " + quote(first.dir + "/anchor.txt"));
        }
        std::vector<std::string> relayArgs = {
                builtProgram("VANTOR_RELAY_PATH", "relay/vantor-relay"), "--port", "0", "--dir",
                root + "/relay"};
        if (secure) relayArgs.insert(relayArgs.end(), {"--secure", "--anchor", anchor});
        relay = spawn(relayArgs, log);
        auto t0 = std::chrono::steady_clock::now();
        while (readFile(log).find("listening on port ") == std::string::npos) {
            if (secondsSince(t0) > 10) {
                *why = "vantor-relay did not start";
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        std::string text = readFile(log);
        port = static_cast<uint16_t>(
                std::atoi(text.c_str() + text.find("listening on port ") + 18));

        installations.push_back(first);
        std::string users = "[";
        for (int i = 1; i < n; i++) {
            users += std::string(i > 1 ? "," : "") +
                     R"({"firstName": "User", "lastName": "Number)" + std::to_string(i) +
                     R"(", "orgUnit": "Bench", "company": "Demo", "role": "manager",
                        "groups": "demo-group-admins"})";
        }
        std::string ids = n > 1 ? first.admin("record set user", users + "]") : "";
        size_t start = 0;
        for (int i = 1; i < n; i++) {
            size_t end = ids.find('\n', start);
            if (end == std::string::npos) {
                *why = "the users were not made: " + ids.substr(0, 200);
                return false;
            }
            std::string id = ids.substr(start, end - start);
            start = end + 1;
            Installation other{root + "/i" + std::to_string(i), "password-" + std::to_string(i),
                               versions};
            std::string key =
                    first.admin("key make " + id + " --password-stdin", other.password + "\n");
            key = key.substr(0, key.find('\n'));
            run("mkdir -p " + quote(other.dir + "/userkey") + " " + quote(other.dir + "/data") +
                " && cp -r " + quote(sourceDir() + "/demo/conf") + " " + quote(other.dir) +
                " && mv " + quote(first.dir + "/" + key) + " " + quote(other.dir + "/userkey/") +
                " && echo 127.0.0.1 > " + quote(other.dir + "/transceiver.txt") +
                (secure ? " && cp " + quote(anchor) + " " + quote(other.dir + "/anchor.txt") : ""));
            first.admin("record action user " + id + " VTActionPushSpaces");
            installations.push_back(other);
        }
        for (const Installation& i : installations) i.sync(port);
        return true;
    }
    ~Network() {
        stop(relay);
        if (!root.empty()) run("rm -rf " + quote(root));
    }
};

// deltas/s without versions, and with them in plain mode, by network size,
// for the ratios.
std::map<int, double> gWithout, gPlain;

void BM_Burst(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    const bool versions = state.range(1) != 0;
    const bool secure = state.range(2) != 0;
    for (auto _ : state) {
        Network network;
        std::string why;
        if (!network.start(n, versions, secure, &why)) {
            state.SkipWithError(why.c_str());
            return;
        }
        std::string burst = "[";
        for (int i = 0; i < kBurst; i++)
            burst += std::string(i ? "," : "") + R"({"title": "burst )" + std::to_string(i) +
                     R"(", "state": "open"})";
        burst += "]";
        double cpu0 = cpuSecondsOf(network.relay);
        auto t0 = std::chrono::steady_clock::now();
        std::atomic<int> behind{n - 1};
        std::vector<std::thread> receivers;
        for (int i = 1; i < n; i++) {
            receivers.emplace_back([&, i] {
                const Installation& me = network.installations[static_cast<size_t>(i)];
                // A client polls its relay every few seconds (the client's
                // transceiver every 5), and at once again when a cycle
                // brought something. Each poll here is a program started,
                // which a client's thread is not: the records are counted
                // only once the deltas received say they may all be there.
                int received = 0;
                for (;;) {
                    int now = me.sync(network.port);
                    received += now;
                    if ((received >= kBurst && me.tasksWith("burst") >= kBurst) ||
                        secondsSince(t0) > 3600)
                        break;
                    if (now == 0) std::this_thread::sleep_for(std::chrono::seconds(5));
                }
                behind--;
            });
        }
        const Installation& sender = network.installations[0];
        sender.admin("record set task", burst);
        double burstSeconds = secondsSince(t0);
        sender.sync(network.port);
        for (std::thread& t : receivers) t.join();
        double seconds = secondsSince(t0);
        double deltas = static_cast<double>(kBurst) * (n - 1);
        state.SetIterationTime(seconds);
        state.counters["seconds"] = seconds;
        state.counters["burst_saves_s"] = burstSeconds;
        state.counters["deltas"] = deltas;
        state.counters["deltas/s"] = deltas / seconds;
        state.counters["relay_cpu_us"] = (cpuSecondsOf(network.relay) - cpu0) / deltas * 1e6;
        if (!versions) gWithout[n] = deltas / seconds;
        if (versions && !secure && gWithout.count(n))
            state.counters["vs_without"] = deltas / seconds / gWithout[n];
        if (versions && !secure) gPlain[n] = deltas / seconds;
        if (secure && gPlain.count(n)) state.counters["vs_plain"] = deltas / seconds / gPlain[n];
        if (behind != 0) state.SkipWithError("an installation did not receive the whole burst");
    }
}

BENCHMARK(BM_Burst)
        ->Args({2, 0, 0})
        ->Args({2, 1, 0})
        ->Args({2, 1, 1})
        ->Args({10, 0, 0})
        ->Args({10, 1, 0})
        ->Args({10, 1, 1})
        ->Args({50, 0, 0})
        ->Args({50, 1, 0})
        ->ArgNames({"users", "versions", "secure"})
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kSecond);

}  // namespace
