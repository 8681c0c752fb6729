// The relay's protocol, shared by its two ends: the relay (LXRelay) and a
// client's transceiver (LXTransceiver). docs/wire-format.md gives the bytes
// of each exchange as a grammar.
#pragma once

#include <cstdint>

namespace LXRelayProtocol {

// The relay's port when none is given.
constexpr uint32_t kDefaultPort = 8888;
// The key of the socket's cipher on data elements (a repeating-key cipher:
// it hides nothing from anyone who has read this line).
constexpr const char* kWireKey = "Mq7Tarn";

// The first element of every connection: what the client wants.
constexpr int32_t kDeposit = 1;  // keep this delta for its addressee
constexpr int32_t kCollect = 2;  // hand out the deltas waiting for a user
// A collect names a group after the user; the relay reads it and ignores it.
constexpr const char* kCollectGroup = "dummy_group";

// The secure protocol's two commands (LXSecureRelay.h): a deposit signed by
// a key the organisation's anchor has signed, and a collect that answers a
// fresh challenge with the collecting user's signature. A relay started
// secure serves these two only.
constexpr int32_t kSecureDeposit = 3;
constexpr int32_t kSecureCollect = 4;
constexpr uint32_t kChallengeBytes = 32;
// A secure deposit carries up to this many deltas, each acknowledged in
// turn: the client sends them without waiting for each answer.
constexpr int32_t kMaximumBatch = 100;

// The one acknowledgement, in both directions: the relay has stored a
// deposited delta, or the client has applied a collected one. Anything else
// (or nothing) leaves the delta where it was.
constexpr int32_t kAcknowledged = 1;

}  // namespace LXRelayProtocol
