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
//
// The relay's event loop (LXRelayLoop.cpp) reads and writes the elements
// and keeps each exchange's turns, deadlines and buffers, as for the plain
// commands; this class only judges the elements it hands over. It never
// touches a socket and never waits.
#pragma once

#include <string>

#include "foundation/NSObject.h"
#include "foundation/NSString.h"
#include "sync/LXDelta.h"
#include "sync/LXSecure.h"

class LXSecureRelay : public NSObject {
    NS_DECLARE_CLASS(LXSecureRelay, NSObject)

public:
    // The anchor, binary (LXCrypto::kSignPublicBytes).
    LXSecureRelay* initWithAnchor_(const std::string& anchor);

    // Whether a connection's command is one this relay serves (3 or 4);
    // logs why not.
    static bool acceptsCommand(int32_t command);
    // Whether a deposit may announce this many deltas; logs why not.
    static bool acceptsBatch(int32_t count);
    // The delta of one element of a deposit (the decoded envelope, nil when
    // none came) once its sealed parts hold for the addressee; nil with a
    // log line otherwise.
    LXDelta* checkedDelta_addressee_(NSObject* object, NSString* addressee);
    // The collector's certificate (the decoded element) when it is the
    // user's and certified by the anchor; false with a log line otherwise.
    bool checkCollector_user_certificate_(NSObject* object, NSString* user,
                                          LXUserCertificate* collector);
    // A fresh challenge for one collect.
    static std::string challenge();
    // Whether the collector signed this challenge; logs why not.
    bool checkSignature(const std::string& signature, const std::string& challenge,
                        const LXUserCertificate& collector);

    LXSecureRelay() = default;

protected:
    ~LXSecureRelay() override = default;

private:
    std::string _anchor;
};
