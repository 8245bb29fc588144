#include "host/core/Service.h"

#include <gtest/gtest.h>

namespace host {

namespace {

std::string identity(const QString& connectTo,
                     const QString& webHost = QStringLiteral("www.quillmark.example")) {
    platform::ServiceConfiguration configuration;
    configuration.webHost = webHost;
    configuration.ftpHost = QStringLiteral("ftp.quillmark.example");
    configuration.transport.connectTo = connectTo;
    return serviceIdentity(configuration).toStdString();
}

} // namespace

TEST(Service, IsIdentifiedByItsHostNames) {
    EXPECT_EQ(identity({}), "www.quillmark.example ftp.quillmark.example");
    EXPECT_EQ(identity({}, QStringLiteral("WWW.Quillmark.example")), identity({}));
    EXPECT_NE(identity({}, QStringLiteral("www.quillmark.test")), identity({}));
}

TEST(Service, IsAnotherOneWhereOtherServersStandInForIt) {
    const QString web = QStringLiteral("www.quillmark.example:443:127.0.0.1:8443");
    const QString ftp = QStringLiteral("FTP.quillmark.example:21:[::1]:2121");
    EXPECT_EQ(identity(web + QLatin1Char(',') + ftp),
              "www.quillmark.example=127.0.0.1:8443 ftp.quillmark.example=[::1]:2121");
    EXPECT_EQ(identity(ftp + QLatin1Char(',') + web), identity(web + QLatin1Char(',') + ftp));
    EXPECT_EQ(identity(web), "www.quillmark.example=127.0.0.1:8443 ftp.quillmark.example");
    EXPECT_NE(identity(web), identity(QStringLiteral("www.quillmark.example:443:127.0.0.1:8444")));
}

TEST(Service, IsTheSameWhereOnlyOtherServersAreReplaced) {
    EXPECT_EQ(identity(QStringLiteral("www.quillmark.example:80:127.0.0.1:8080,"
                                      "more.www.quillmark.example:443:127.0.0.1:8443")),
              identity({}));
}

} // namespace host
