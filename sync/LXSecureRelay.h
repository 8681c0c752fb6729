// LXSecureRelay: the relay's secure mode (vantor-relay --secure --anchor
// FILE). It holds the organisation's anchor, a public key, and nothing
// secret. Every command of a connection goes through it:
//
//   secure-deposit := C: int 3, C: int N, N x delta   ; 1 <= N <= 100
//   delta          := C: string addressee-id, C: data envelope, R: int 1
//   secure-collect := C: int 4, C: string user-id, C: data certificate,
//                     R: data challenge[32], C: data signature,
//                     R: int N, turn{N'}          ; as a plain collect
//
// `envelope` is the archive of a sealed delta (LXSecure.h), which carries
// its sender's certificate and signature; the client sends a deposit's
// deltas without waiting for their answers. A delta is stored only when
// the certificate carries the anchor's signature, the envelope's sender is
// the certificate's user, and the delta's signature holds for the
// certificate's signing key over deltaText(addressee-id, box): the same
// signature its addressee checks. A collect hands out the queue of user-id
// only when the certificate (the archive of LXUserCertificate::dictionary)
// is that user's, certified by the anchor, and the signature over
// collectText(user-id, challenge) holds for a challenge drawn fresh for
// this connection. The plain commands 1 and 2 are refused. Whatever is
// refused is logged, gets no answer, and the connection closes.
#pragma once

#include <string>

#include "foundation/NSObject.h"
#include "sync/LXSecure.h"
#include "sync/LXSocket.h"

class LXRelay;

class LXSecureRelay : public NSObject {
    NS_DECLARE_CLASS(LXSecureRelay, NSObject)

public:
    // The anchor, binary (LXCrypto::kSignPublicBytes).
    LXSecureRelay* initWithAnchor_(const std::string& anchor);
    // One connection whose command int has been read, under the relay's
    // lock; the relay's queues and store serve the accepted commands.
    void serve_command_relay_(LXSocket* socket, int32_t command, LXRelay* relay);

    LXSecureRelay() = default;

protected:
    ~LXSecureRelay() override = default;

private:
    // The certificate of a collect, checked against the anchor; false with
    // a log line otherwise.
    bool readCertificate(LXSocket* socket, LXUserCertificate* certificate);
    void deposit(LXSocket* socket, LXRelay* relay);
    // One delta of a deposit; true when it was stored and acknowledged.
    bool depositOne(LXSocket* socket, LXRelay* relay);
    void collect(LXSocket* socket, LXRelay* relay);

    std::string _anchor;
};
