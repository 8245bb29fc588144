#include "tests/service/ServiceTest.h"

#include <QtTest/QTest>
#include <QtWidgets/QVBoxLayout>

namespace service_tests {

using test_support::waitUntil;
using test_support::WebAnswer;
using test_support::WebRequest;

namespace {

test_support::TestCertificates& certificates() {
    static test_support::TestCertificates authority;
    return authority;
}

/// "login.php" of "/instantupload/login.php?user=ann".
QByteArray pageOf(const WebRequest& request) {
    const QByteArray path = request.target().split('?').first();
    return path.mid(path.lastIndexOf('/') + 1);
}

} // namespace

QByteArray loginAnswer(const QByteArray& success, const QByteArray& highRes) {
    return "<?xml version=\"1.0\"?>\n<Login>\n  <Success>" + success +
           "</Success>\n  <UserId>4711</UserId>\n  <Password>t0ken</Password>\n"
           "  <LoggedInName>Ann Smith</LoggedInName>\n  <AllowHighResUploads>" +
           highRes + "</AllowHighResUploads>\n</Login>\n";
}

QByteArray eventListAnswer(int count) {
    QByteArray text = "<List>";
    for (int i = 1; i <= count; ++i)
        text += "<Event id=\"" + QByteArray::number(i) + "\"><Name>Event " + QByteArray::number(i) +
                "</Name></Event>";
    return text + "<PricingTemplate id=\"5\"><Name>Standard</Name></PricingTemplate>"
                  "<PricingTemplate id=\"6\"><Name>Deluxe</Name></PricingTemplate></List>";
}

ServiceTest::ServiceTest()
    : server(certificates().issue({kWebHost})) {
    host.useService(server.connectTo(kWebHost), certificates().caFile());
    server.setScript([this](const WebRequest& request) {
        Script script;
        {
            const std::lock_guard lock(mutex_);
            script = scripts_[pageOf(request)];
        }
        return script ? script(request) : WebAnswer::of(404, "no such page");
    });
    answer(kLoginPage, loginAnswer());
    answer(kEventListPage, eventListAnswer(2));
    answer(kCategoryListPage, "<List><Category id='1'><Name>Ceremony</Name></Category></List>");
    answer(kFinishingPage, "<Information><Result>All done.</Result></Information>");
}

void ServiceTest::SetUp() {
    makePlugIn();
}

void ServiceTest::TearDown() {
    closeDialog();
    EXPECT_TRUE(waitUntil([this] { return lastPlugIn_.expired(); }))
        << "something still refers to the plug-in";
}

void ServiceTest::answer(const QByteArray& page, Script script) {
    const std::lock_guard lock(mutex_);
    scripts_[page] = std::move(script);
}

void ServiceTest::answer(const QByteArray& page, const WebAnswer& always) {
    answer(page, [always](const WebRequest&) { return always; });
}

void ServiceTest::answer(const QByteArray& page, const QByteArray& body) {
    answer(page, WebAnswer::ok(body));
}

void ServiceTest::makePlugIn() {
    closeDialog();
    plugIn = host.makePlugIn();
    ASSERT_TRUE(plugIn);
    lastPlugIn_ = plugIn;
    dialog = std::make_unique<QWidget>();
    auto* const layout = new QVBoxLayout(dialog.get());
    ASSERT_TRUE(plugIn->settingsView());
    layout->addWidget(plugIn->settingsView());
    dialog->show();
}

void ServiceTest::makePlugInThatReaches(const QString& connectTo) {
    host.useService(server.connectTo(kWebHost) + QStringLiteral(", ") + connectTo, certificates().caFile());
    makePlugIn();
}

void ServiceTest::closeDialog() {
    plugIn.reset();
    dialog.reset();
}

void ServiceTest::type(const QString& userName, const QString& password) {
    plugIn->usernameField->setText(userName);
    plugIn->passwordField->setText(password);
}

void ServiceTest::pressLoginButton() {
    QTest::mouseClick(plugIn->loginButton, Qt::LeftButton);
}

void ServiceTest::logIn(const QString& userName, const QString& password) {
    type(userName, password);
    plugIn->loggedInStatusLabel->clear();
    pressLoginButton();
    ASSERT_TRUE(waitUntil([this] { return !plugIn->loggedInStatusLabel->text().isEmpty(); }));
}

bool ServiceTest::waitForLists() {
    return waitUntil([this] { return !plugIn->threadLaunched() && plugIn->loginButton->isEnabled(); });
}

void ServiceTest::logInAndLoadLists() {
    logIn();
    ASSERT_EQ(plugIn->loggedInStatusLabel->text(), kLoggedIn);
    ASSERT_TRUE(waitForLists());
}

bool ServiceTest::waitForStatus(const QString& text) {
    return waitUntil([&] { return plugIn->loggedInStatusLabel->text() == text; });
}

bool ServiceTest::waitForRequests(int count) {
    return waitUntil([&] { return server.requestLines().size() >= count; });
}

QStringList ServiceTest::targets(const QByteArray& page) const {
    QStringList found;
    for (const WebRequest& request : server.requests()) {
        if (pageOf(request) == page)
            found.append(QString::fromLatin1(request.target()));
    }
    return found;
}

std::optional<QString> ServiceTest::detail(const QString& key) const {
    return textOf(plugIn->loginDetails.get(), key);
}

} // namespace service_tests
