// Fuzz target: arbitrary bytes into the server side of TlsEngine, three ways
// chosen by the first byte: as the first bytes a client sends (whole and
// split at a point the input picks, which must end alike), as edits to a
// genuine ClientHello, and as records after a completed handshake. The
// engine must fail with a reason, never crash, hang or hand out plaintext
// or keys it has no session for.
#include <cstddef>
#include <cstdint>

#include <QByteArray>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

#include "transport/TlsEngine.h"

namespace {

struct Credentials {
    QByteArray keyPem;
    QByteArray certPem;
};

QByteArray drain(BIO* bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return QByteArray(data, int(size));
}

// A P-256 key and a self-signed certificate, made once per process.
Credentials makeCredentials() {
    Credentials c;
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* cert = X509_new();
    X509_set_version(cert, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), 1);
    X509_gmtime_adj(X509_getm_notBefore(cert), 0);
    X509_gmtime_adj(X509_getm_notAfter(cert), 3600L * 24 * 365);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(cert), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("fuzz"), -1, -1, 0);
    X509_set_issuer_name(cert, X509_get_subject_name(cert));
    X509_set_pubkey(cert, key);
    X509_sign(cert, key, EVP_sha256());
    BIO* keyBio = BIO_new(BIO_s_mem());
    BIO* certBio = BIO_new(BIO_s_mem());
    PEM_write_bio_PrivateKey(keyBio, key, nullptr, nullptr, 0, nullptr, nullptr);
    PEM_write_bio_X509(certBio, cert);
    c.keyPem = drain(keyBio);
    c.certPem = drain(certBio);
    BIO_free(keyBio);
    BIO_free(certBio);
    X509_free(cert);
    EVP_PKEY_free(key);
    return c;
}

const Credentials& credentials() {
    static const Credentials c = makeCredentials();
    return c;
}

std::unique_ptr<zv::TlsEngine> engine(zv::TlsEngine::Mode mode) {
    return std::make_unique<zv::TlsEngine>(mode, credentials().keyPem, credentials().certPem);
}

void check(const zv::TlsEngine& e, bool mayBeEstablished) {
    using State = zv::TlsEngine::State;
    if (e.state() == State::Failed && e.errorString().isEmpty()) __builtin_trap();  // a failure always says why
    if (e.state() == State::Established && !mayBeEstablished) __builtin_trap();
    const bool keys = !e.exportKeyingMaterial("EXPORTER-fuzz", {}, 16).isEmpty();
    // Keys only from a session that completed with a peer key, and never after a failure.
    if (keys && (e.peerKeyId().isEmpty() || e.state() == State::Failed)) __builtin_trap();
    if (!mayBeEstablished && (keys || e.hasPlaintext())) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char*>(data + 1), int(size - 1));
    using Mode = zv::TlsEngine::Mode;

    switch (data[0] % 3) {
    case 0: {
        auto whole = engine(Mode::Server);
        whole->feedCiphertext(input);
        (void)whole->takeCiphertext();
        check(*whole, false);
        const int cut = input.isEmpty() ? 0 : data[0] % input.size();
        auto split = engine(Mode::Server);
        split->feedCiphertext(input.left(cut));
        split->feedCiphertext(input.mid(cut));
        check(*split, false);
        if ((split->state() == zv::TlsEngine::State::Failed) != (whole->state() == zv::TlsEngine::State::Failed))
            __builtin_trap();
        break;
    }
    case 1: {
        auto client = engine(Mode::Client);
        QByteArray hello = client->takeCiphertext();
        for (int i = 0; i + 1 < input.size() && !hello.isEmpty(); i += 2) {
            const int pos = int(uchar(input[i])) * 7 % hello.size();
            hello[pos] = char(hello[pos] ^ input[i + 1]);
        }
        if (input.size() % 2) hello.truncate(int(uchar(input.back())) % (hello.size() + 1));
        auto server = engine(Mode::Server);
        server->feedCiphertext(hello);
        check(*server, false);
        break;
    }
    default: {
        auto client = engine(Mode::Client);
        auto server = engine(Mode::Server);
        for (int i = 0; i < 4; ++i) {
            server->feedCiphertext(client->takeCiphertext());
            client->feedCiphertext(server->takeCiphertext());
        }
        if (!server->isEstablished()) __builtin_trap();
        server->feedCiphertext(input);
        check(*server, true);
        if (server->hasPlaintext()) __builtin_trap();  // forged records never decrypt
        client->feedCiphertext(server->takeCiphertext());
        check(*client, true);
        break;
    }
    }
    return 0;
}

#ifdef ZV_FUZZ_STANDALONE
#include "StandaloneDriver.h"

int main(int argc, char** argv) {
    std::vector<QByteArray> samples = {
        QByteArray::fromHex("00160301002a010000260303") + QByteArray(32, 'r'),  // a truncated ClientHello
        QByteArray::fromHex("0016030100050100000100"),
        QByteArray::fromHex("0017030300200102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f20"),
        QByteArray::fromHex("0115030300020228"),       // an alert
        QByteArray::fromHex("01000102030405060708"),   // edits to a real ClientHello
        QByteArray::fromHex("0217030300110102030405060708090a0b0c0d0e0f1011"),  // a forged record
        QByteArray::fromHex("02150303000201000200"),
        QByteArray("\x00GET / HTTP/1.1\r\n\r\n", 19),
    };
    // Every input runs real handshakes: fewer rounds than the pure parsers get.
    return zv_fuzz::runStandalone("fuzz_tls_engine", argc, argv, samples, 1500, 300, 400);
}
#endif
