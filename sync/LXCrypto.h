// LXCrypto: the few cryptographic operations of the secure protocol, each a
// thin call into libsodium; nothing here is a cipher or a hash of our own.
// Keys, signatures and sealed bytes are binary std::strings.
//
//   signing     Ed25519 (crypto_sign_detached): 32-byte public key,
//               64-byte secret key, 64-byte signatures
//   sealing     X25519 + XSalsa20-Poly1305 boxes (crypto_box): 32-byte
//               keys; the key a pair of users shares is computed once
//               (crypto_box_beforenm), each message then costs only the
//               symmetric cipher; a sealed message is 40 bytes longer
//   passwords   Argon2id (crypto_pwhash_str) for the stored hash; a key
//               derived by crypto_pwhash from the password and a random
//               salt locks secret keys with crypto_secretbox
//
// A build without libsodium (the Windows flavour) has available() false:
// every operation then fails (answers false or an empty string), and only
// randomBytes works, from the C++ library's random device.
#pragma once

#include <cstddef>
#include <string>

namespace LXCrypto {

constexpr size_t kSignPublicBytes = 32;
constexpr size_t kSignSecretBytes = 64;
constexpr size_t kSignatureBytes = 64;
constexpr size_t kSealPublicBytes = 32;
constexpr size_t kSealSecretBytes = 32;

// Whether the build has the secure protocol at all.
bool available();

// Fills the buffer from the system's cryptographic random source.
void randomBytes(void* buffer, size_t length);

struct KeyPairs {
    std::string signPublic, signSecret, sealPublic, sealSecret;
};
// A fresh signing pair and sealing pair; false without libsodium.
bool makeKeyPairs(KeyPairs* pairs);

// The detached signature of the message; empty on failure.
std::string sign(const std::string& message, const std::string& signSecret);
bool verify(const std::string& message, const std::string& signature,
            const std::string& signPublic);
// The 32-byte BLAKE2b digest of the message (crypto_generichash): what a
// long message's signature covers, hashed once at a few cycles a byte
// instead of Ed25519's SHA-512 over the whole message at each signing and
// check. Empty without libsodium.
std::string digest(const std::string& message);

// The key two sealing pairs share (crypto_box_beforenm): the same from my
// secret and your public half as from yours and mine. Empty on failure.
std::string sharedKey(const std::string& theirPublic, const std::string& mySecret);
// The message sealed under a shared key: a random nonce, then the
// authenticated ciphertext (crypto_box_easy_afternm), 40 bytes longer.
// Only the two holders of the pairs can open it. Empty on failure.
std::string seal(const std::string& message, const std::string& shared);
// False when the bytes were sealed under another key or were changed.
bool open(const std::string& sealed, const std::string& shared, std::string* message);

// The salted slow hash of a password, as a printable string; empty on
// failure (out of memory).
std::string hashPassword(const std::string& password);
bool checkPassword(const std::string& hash, const std::string& password);
// The secret locked under the password: salt, nonce, then the secretbox.
std::string lockWithPassword(const std::string& secret, const std::string& password);
// False for a wrong password or changed bytes.
bool unlockWithPassword(const std::string& locked, const std::string& password,
                        std::string* secret);

// Lower-case hexadecimal, two digits a byte, and back (false for anything
// but an even number of hexadecimal digits).
std::string toHex(const std::string& bytes);
bool fromHex(const std::string& text, std::string* bytes);

}  // namespace LXCrypto
