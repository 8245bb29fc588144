#include "service/ServiceRequests.h"
#include "tests/support/ScriptedWebServer.h"

#include <gtest/gtest.h>

using namespace test_support;

namespace {

const QString kHost = QStringLiteral("www.quillmark.example");

QString latin1(const char* text) {
    return QString::fromLatin1(text);
}

class Acceptance : public testing::Test {
protected:
    Acceptance()
        : server(certificates.issue({kHost})) {
        transport.connectTo = server.connectTo(kHost);
        transport.caFile = certificates.caFile();
    }

    std::optional<QByteArray> answerTo(const WebAnswer& answer) {
        server.setScript([answer](const WebRequest&) { return answer; });
        platform::URLLoader loader(transport);
        return acceptedAnswer(loader, service_requests::login(kHost, latin1("ann"), latin1("secret")));
    }

    TestCertificates certificates;
    ScriptedWebServer server;
    platform::Transport transport;
};

} // namespace

TEST(ServiceRequests, ValuesFillTheTemplatesInOrder) {
    using namespace service_requests;
    EXPECT_EQ(login(kHost, latin1("u"), latin1("p")),
              latin1("https://www.quillmark.example/instantupload/login.php?user=u&pwd=p"));
    EXPECT_EQ(eventList(kHost, latin1("u"), latin1("p")),
              latin1("https://www.quillmark.example/instantupload/eventlist.php?uid=u&pwd=p&obn=1"));
    EXPECT_EQ(categoryList(kHost, latin1("u"), latin1("p"), latin1("e")),
              latin1("https://www.quillmark.example/instantupload/categorylist.php?uid=u&pwd=p&eid=e"));
    EXPECT_EQ(
        finishing(kHost, latin1("u"), latin1("p"), latin1("e"), latin1("t")),
        latin1("https://www.quillmark.example/instantupload/processimages.php?uid=u&pwd=p&id=e&pptid=t"));
}

TEST(ServiceRequests, AbsentValuesReadAsNull) {
    using namespace service_requests;
    EXPECT_EQ(login(kHost, std::nullopt, std::nullopt),
              latin1("https://www.quillmark.example/instantupload/login.php?user=(null)&pwd=(null)"));
    EXPECT_EQ(eventList(kHost, std::nullopt, latin1("")),
              latin1("https://www.quillmark.example/instantupload/eventlist.php?uid=(null)&pwd=&obn=1"));
    EXPECT_EQ(categoryList(kHost, latin1("u"), latin1("p"), std::nullopt),
              latin1("https://www.quillmark.example/instantupload/categorylist.php?uid=u&pwd=p&eid=(null)"));
    EXPECT_EQ(
        finishing(kHost, latin1("u"), latin1("p"), std::nullopt, latin1("0")),
        latin1(
            "https://www.quillmark.example/instantupload/processimages.php?uid=u&pwd=p&id=(null)&pptid=0"));
}

TEST(ServiceRequests, ValuesAreInsertedVerbatim) {
    EXPECT_EQ(service_requests::login(kHost, latin1("a b&c=d%20%@"), latin1("%@\xe9#")),
              latin1("https://www.quillmark.example/instantupload/login.php?user=a b&c=d%20%@&pwd=%@\xe9#"));
}

TEST_F(Acceptance, Status200WithABodyIsAccepted) {
    EXPECT_EQ(answerTo(WebAnswer::ok("<Login/>")), "<Login/>");
    EXPECT_EQ(answerTo(WebAnswer::chunked({"<Login", "/>"})), "<Login/>");
}

TEST_F(Acceptance, Status200WithAnEmptyBodyIsRejected) {
    EXPECT_EQ(answerTo(WebAnswer::ok({})), std::nullopt);
    EXPECT_EQ(answerTo(WebAnswer::chunked({})), std::nullopt);
}

TEST_F(Acceptance, EveryOtherStatusIsRejected) {
    for (const int status : {201, 202, 203, 204, 206, 300, 304, 400, 401, 403, 404, 407, 500, 503, 599})
        EXPECT_EQ(answerTo(WebAnswer::of(status, status == 204 || status == 304 ? "" : "<Login/>")),
                  std::nullopt)
            << status;
}

TEST_F(Acceptance, RedirectIsJudgedByWhereItLeads) {
    server.setScript([](const WebRequest& request) {
        return request.target() == "/there" ? WebAnswer::ok("there") : WebAnswer::redirect(302, "/there");
    });
    platform::URLLoader loader(transport);
    EXPECT_EQ(acceptedAnswer(loader, latin1("https://www.quillmark.example/here")), "there");
    EXPECT_EQ(answerTo(WebAnswer::redirect(302, "http://www.quillmark.example/there")), std::nullopt);
    EXPECT_EQ(answerTo(WebAnswer::of(302, "no location")), std::nullopt);
}

TEST_F(Acceptance, FailedTransportIsRejected) {
    WebAnswer reset;
    reset.cuts = {Cut::Reset};
    EXPECT_EQ(answerTo(reset), std::nullopt);
}

TEST_F(Acceptance, TextThatIsNoURLIsRejectedWithoutARequest) {
    server.setScript([](const WebRequest&) { return WebAnswer::ok("x"); });
    platform::URLLoader loader(transport);
    EXPECT_EQ(acceptedAnswer(loader, service_requests::login(kHost, latin1("ann smith"), latin1("secret"))),
              std::nullopt);
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(Acceptance, RequestTextIsWipedFromItsMemory) {
    server.setScript([](const WebRequest&) { return WebAnswer::ok("x"); });
    platform::URLLoader loader(transport);
    QString text = service_requests::login(kHost, latin1("ann"), latin1("secret"));
    // A second owner can look at the memory afterwards.
    const QString same = text;
    EXPECT_EQ(acceptedAnswer(loader, std::move(text)), "x");
    EXPECT_EQ(same, QString(same.size(), QChar::Null));
}
