#include "sync/LXCrypto.h"

#include <cstdint>
#include <cstring>
#include <random>

#ifdef VANTOR_HAVE_SODIUM
#include <sodium.h>
#endif

namespace LXCrypto {

namespace {

// The C++ library's random device: the system's random source on Linux
// (getrandom) and on Windows (rand_s).
[[maybe_unused]] void deviceBytes(void* buffer, size_t length) {
    std::random_device device;
    auto* out = static_cast<unsigned char*>(buffer);
    for (size_t i = 0; i < length; i++) out[i] = static_cast<unsigned char>(device());
}

}  // namespace

std::string toHex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (unsigned char c : bytes) {
        text += digits[c >> 4];
        text += digits[c & 15];
    }
    return text;
}

bool fromHex(const std::string& text, std::string* bytes) {
    if (text.size() % 2 != 0) return false;
    auto digit = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    std::string out;
    out.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2) {
        int high = digit(text[i]), low = digit(text[i + 1]);
        if (high < 0 || low < 0) return false;
        out += static_cast<char>(high * 16 + low);
    }
    *bytes = out;
    return true;
}

#ifdef VANTOR_HAVE_SODIUM

namespace {

// sodium_init is safe to call from several threads and more than once.
bool ready() { return sodium_init() >= 0; }

const unsigned char* bytesOf(const std::string& s) {
    return reinterpret_cast<const unsigned char*>(s.data());
}

unsigned char* bytesOf(std::string* s) { return reinterpret_cast<unsigned char*>(&(*s)[0]); }

// Interactive limits: about a tenth of a second and 64 MiB per hash, the
// price of each login and key made, and of each password guess.
constexpr unsigned long long kOpsLimit = crypto_pwhash_OPSLIMIT_INTERACTIVE;
constexpr size_t kMemLimit = crypto_pwhash_MEMLIMIT_INTERACTIVE;

bool deriveKey(const std::string& password, const unsigned char* salt, std::string* key) {
    key->assign(crypto_secretbox_KEYBYTES, '\0');
    return crypto_pwhash(bytesOf(key), key->size(), password.data(), password.size(), salt,
                         kOpsLimit, kMemLimit, crypto_pwhash_ALG_ARGON2ID13) == 0;
}

}  // namespace

bool available() { return ready(); }

void randomBytes(void* buffer, size_t length) {
    if (ready()) {
        randombytes_buf(buffer, length);
        return;
    }
    deviceBytes(buffer, length);
}

bool makeKeyPairs(KeyPairs* pairs) {
    if (!ready()) return false;
    pairs->signPublic.assign(crypto_sign_PUBLICKEYBYTES, '\0');
    pairs->signSecret.assign(crypto_sign_SECRETKEYBYTES, '\0');
    pairs->sealPublic.assign(crypto_box_PUBLICKEYBYTES, '\0');
    pairs->sealSecret.assign(crypto_box_SECRETKEYBYTES, '\0');
    return crypto_sign_keypair(bytesOf(&pairs->signPublic), bytesOf(&pairs->signSecret)) == 0 &&
           crypto_box_keypair(bytesOf(&pairs->sealPublic), bytesOf(&pairs->sealSecret)) == 0;
}

std::string sign(const std::string& message, const std::string& signSecret) {
    if (!ready() || signSecret.size() != crypto_sign_SECRETKEYBYTES) return "";
    std::string signature(crypto_sign_BYTES, '\0');
    if (crypto_sign_detached(bytesOf(&signature), nullptr, bytesOf(message), message.size(),
                             bytesOf(signSecret)) != 0)
        return "";
    return signature;
}

bool verify(const std::string& message, const std::string& signature,
            const std::string& signPublic) {
    if (!ready() || signature.size() != crypto_sign_BYTES ||
        signPublic.size() != crypto_sign_PUBLICKEYBYTES)
        return false;
    return crypto_sign_verify_detached(bytesOf(signature), bytesOf(message), message.size(),
                                       bytesOf(signPublic)) == 0;
}

std::string digest(const std::string& message) {
    if (!ready()) return "";
    std::string out(crypto_generichash_BYTES, '\0');
    if (crypto_generichash(bytesOf(&out), out.size(), bytesOf(message), message.size(), nullptr,
                           0) != 0)
        return "";
    return out;
}

std::string sharedKey(const std::string& theirPublic, const std::string& mySecret) {
    if (!ready() || theirPublic.size() != crypto_box_PUBLICKEYBYTES ||
        mySecret.size() != crypto_box_SECRETKEYBYTES)
        return "";
    std::string shared(crypto_box_BEFORENMBYTES, '\0');
    if (crypto_box_beforenm(bytesOf(&shared), bytesOf(theirPublic), bytesOf(mySecret)) != 0)
        return "";
    return shared;
}

std::string seal(const std::string& message, const std::string& shared) {
    if (!ready() || shared.size() != crypto_box_BEFORENMBYTES) return "";
    std::string sealed(crypto_box_NONCEBYTES + crypto_box_MACBYTES + message.size(), '\0');
    unsigned char* nonce = bytesOf(&sealed);
    randombytes_buf(nonce, crypto_box_NONCEBYTES);
    if (crypto_box_easy_afternm(nonce + crypto_box_NONCEBYTES, bytesOf(message), message.size(),
                                nonce, bytesOf(shared)) != 0)
        return "";
    return sealed;
}

bool open(const std::string& sealed, const std::string& shared, std::string* message) {
    const size_t head = crypto_box_NONCEBYTES + crypto_box_MACBYTES;
    if (!ready() || sealed.size() < head || shared.size() != crypto_box_BEFORENMBYTES) return false;
    const unsigned char* nonce = bytesOf(sealed);
    std::string out(sealed.size() - head, '\0');
    if (crypto_box_open_easy_afternm(
                out.empty() ? nullptr : bytesOf(&out), nonce + crypto_box_NONCEBYTES,
                sealed.size() - crypto_box_NONCEBYTES, nonce, bytesOf(shared)) != 0)
        return false;
    *message = out;
    return true;
}

std::string hashPassword(const std::string& password) {
    if (!ready()) return "";
    char hash[crypto_pwhash_STRBYTES];
    if (crypto_pwhash_str(hash, password.data(), password.size(), kOpsLimit, kMemLimit) != 0)
        return "";
    return hash;
}

bool checkPassword(const std::string& hash, const std::string& password) {
    if (!ready() || hash.empty() || hash.size() >= crypto_pwhash_STRBYTES) return false;
    return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

std::string lockWithPassword(const std::string& secret, const std::string& password) {
    if (!ready()) return "";
    std::string out(crypto_pwhash_SALTBYTES + crypto_secretbox_NONCEBYTES +
                            crypto_secretbox_MACBYTES + secret.size(),
                    '\0');
    unsigned char* salt = bytesOf(&out);
    unsigned char* nonce = salt + crypto_pwhash_SALTBYTES;
    randombytes_buf(salt, crypto_pwhash_SALTBYTES);
    randombytes_buf(nonce, crypto_secretbox_NONCEBYTES);
    std::string key;
    if (!deriveKey(password, salt, &key)) return "";
    bool locked = crypto_secretbox_easy(nonce + crypto_secretbox_NONCEBYTES, bytesOf(secret),
                                        secret.size(), nonce, bytesOf(key)) == 0;
    sodium_memzero(&key[0], key.size());
    return locked ? out : "";
}

bool unlockWithPassword(const std::string& locked, const std::string& password,
                        std::string* secret) {
    const size_t head = crypto_pwhash_SALTBYTES + crypto_secretbox_NONCEBYTES;
    if (!ready() || locked.size() < head + crypto_secretbox_MACBYTES) return false;
    const unsigned char* salt = bytesOf(locked);
    const unsigned char* nonce = salt + crypto_pwhash_SALTBYTES;
    std::string key;
    if (!deriveKey(password, salt, &key)) return false;
    std::string out(locked.size() - head - crypto_secretbox_MACBYTES, '\0');
    bool opened = crypto_secretbox_open_easy(bytesOf(&out), nonce + crypto_secretbox_NONCEBYTES,
                                             locked.size() - head, nonce, bytesOf(key)) == 0;
    sodium_memzero(&key[0], key.size());
    if (opened) *secret = out;
    return opened;
}

#else  // no libsodium: the secure protocol is not built in

bool available() { return false; }

void randomBytes(void* buffer, size_t length) { deviceBytes(buffer, length); }

bool makeKeyPairs(KeyPairs*) { return false; }
std::string sign(const std::string&, const std::string&) { return ""; }
bool verify(const std::string&, const std::string&, const std::string&) { return false; }
std::string digest(const std::string&) { return ""; }
std::string sharedKey(const std::string&, const std::string&) { return ""; }
std::string seal(const std::string&, const std::string&) { return ""; }
bool open(const std::string&, const std::string&, std::string*) { return false; }
std::string hashPassword(const std::string&) { return ""; }
bool checkPassword(const std::string&, const std::string&) { return false; }
std::string lockWithPassword(const std::string&, const std::string&) { return ""; }
bool unlockWithPassword(const std::string&, const std::string&, std::string*) { return false; }

#endif

}  // namespace LXCrypto
