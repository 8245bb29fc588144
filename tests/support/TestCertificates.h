#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

#include <memory>

namespace test_support {

/// A server's certificate and private key, PEM files both.
struct ServerCertificate {
    QString certificateFile;
    QString keyFile;
};

/// A certificate authority of a test's own, and servers' certificates that it signs. The files live in a
/// temporary folder, as long as the object. For an authority that nobody knows, make a second one.
class TestCertificates {
public:
    enum class Validity { Current, Expired, NotYetValid };

    TestCertificates();
    ~TestCertificates();
    TestCertificates(const TestCertificates&) = delete;
    TestCertificates& operator=(const TestCertificates&) = delete;

    /// The authority's own certificate, for `Transport::caFile`.
    QString caFile() const;

    /// A new key and its certificate for the host names and IP addresses given.
    ServerCertificate issue(const QStringList& hosts, Validity validity = Validity::Current);

private:
    struct Authority;
    QTemporaryDir folder_;
    std::unique_ptr<Authority> authority_;
    int issued_ = 0;
};

} // namespace test_support
