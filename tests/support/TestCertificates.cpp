#include "tests/support/TestCertificates.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <QtCore/QFile>

#include <array>
#include <ctime>
#include <stdexcept>

namespace test_support {

namespace {

constexpr long kDay = 24 * 60 * 60;

template <auto release>
struct Releaser {
    template <typename Object>
    void operator()(Object* object) const {
        release(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Releaser<X509_free>>;
using File = std::unique_ptr<BIO, Releaser<BIO_free_all>>;

template <typename Result>
Result demand(Result result) {
    if (!result) {
        std::array<char, 256> text{};
        ERR_error_string_n(ERR_get_error(), text.data(), text.size());
        throw std::runtime_error(text.data());
    }
    return result;
}

Certificate newCertificate(EVP_PKEY* key, const QString& commonName, int serial) {
    Certificate certificate(demand(X509_new()));
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
    demand(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                                      reinterpret_cast<const unsigned char*>(commonName.toUtf8().constData()),
                                      -1, -1, 0));
    demand(X509_set_pubkey(certificate.get(), key));
    return certificate;
}

/// Times from now, in seconds.
void setValidity(X509* certificate, long from, long until) {
    demand(X509_gmtime_adj(X509_getm_notBefore(certificate), from));
    demand(X509_gmtime_adj(X509_getm_notAfter(certificate), until));
}

void addExtension(X509* certificate, X509* issuer, int kind, const QByteArray& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, Releaser<X509_EXTENSION_free>> extension(
        demand(X509V3_EXT_conf_nid(nullptr, &context, kind, value.constData())));
    demand(X509_add_ext(certificate, extension.get(), -1));
}

/// The hosts as OpenSSL's configuration writes them: "DNS:www.example,IP:127.0.0.1".
QByteArray alternativeNames(const QStringList& hosts) {
    QStringList names;
    for (const QString& host : hosts) {
        const bool isAddress = host.contains(QLatin1Char(':')) || host.back().isDigit();
        names << (isAddress ? QStringLiteral("IP:") : QStringLiteral("DNS:")) + host;
    }
    return names.join(QLatin1Char(',')).toUtf8();
}

File openForWriting(const QString& path) {
    return File(demand(BIO_new_file(QFile::encodeName(path).constData(), "w")));
}

} // namespace

struct TestCertificates::Authority {
    Key key;
    Certificate certificate;
};

TestCertificates::TestCertificates()
    : authority_(std::make_unique<Authority>()) {
    authority_->key.reset(demand(EVP_EC_gen("P-256")));
    authority_->certificate = newCertificate(authority_->key.get(), QStringLiteral("Test authority"), 1);
    X509* const own = authority_->certificate.get();
    demand(X509_set_issuer_name(own, X509_get_subject_name(own)));
    setValidity(own, -3650 * kDay, 3650 * kDay);
    addExtension(own, own, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(own, own, NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(own, own, NID_subject_key_identifier, "hash");
    demand(X509_sign(own, authority_->key.get(), EVP_sha256()));
    const File file = openForWriting(caFile());
    demand(PEM_write_bio_X509(file.get(), own));
}

TestCertificates::~TestCertificates() = default;

QString TestCertificates::caFile() const {
    return folder_.filePath(QStringLiteral("ca.pem"));
}

ServerCertificate TestCertificates::issue(const QStringList& hosts, Validity validity) {
    ++issued_;
    const Key key(demand(EVP_EC_gen("P-256")));
    const Certificate certificate = newCertificate(key.get(), hosts.value(0), issued_ + 1);
    X509* const issuer = authority_->certificate.get();
    demand(X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuer)));
    switch (validity) {
    case Validity::Current:
        setValidity(certificate.get(), -kDay, kDay);
        break;
    case Validity::Expired:
        setValidity(certificate.get(), -2 * kDay, -kDay);
        break;
    case Validity::NotYetValid:
        setValidity(certificate.get(), kDay, 2 * kDay);
        break;
    }
    addExtension(certificate.get(), issuer, NID_basic_constraints, "CA:FALSE");
    addExtension(certificate.get(), issuer, NID_authority_key_identifier, "keyid");
    addExtension(certificate.get(), issuer, NID_ext_key_usage, "serverAuth");
    addExtension(certificate.get(), issuer, NID_subject_alt_name, alternativeNames(hosts));
    demand(X509_sign(certificate.get(), authority_->key.get(), EVP_sha256()));

    const ServerCertificate made{folder_.filePath(QStringLiteral("server%1.pem").arg(issued_)),
                                 folder_.filePath(QStringLiteral("server%1.key").arg(issued_))};
    const File certificateFile = openForWriting(made.certificateFile);
    demand(PEM_write_bio_X509(certificateFile.get(), certificate.get()));
    const File keyFile = openForWriting(made.keyFile);
    demand(PEM_write_bio_PrivateKey(keyFile.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr));
    return made;
}

} // namespace test_support
