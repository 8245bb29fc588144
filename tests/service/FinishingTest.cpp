// The finishing request, and how an export ends with its answer.

#include "platform/RunLoop.h"
#include "tests/service/ServiceTest.h"

#include <QtCore/QTimer>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QMessageBox>

using namespace service_tests;
using test_support::runLoopFor;
using test_support::waitUntil;
using test_support::WebAnswer;
using test_support::WebRequest;
using namespace std::chrono_literals;

namespace {

const QString kComplete = QStringLiteral("Your Quillmark export is complete.");
const QString kCompleteAlert = QStringLiteral("alert ") + kComplete;

QString latin1(const char* text) {
    return QString::fromLatin1(text);
}

/// Calls back at each event of a type that it filters.
class Told final : public QObject {
public:
    Told(QEvent::Type type, std::function<void()> callback)
        : type_(type)
        , callback_(std::move(callback)) {}
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == type_)
            callback_();
        return false;
    }

private:
    const QEvent::Type type_;
    const std::function<void()> callback_;
};

class Finishing : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        logInAndLoadLists();
        plugIn->setChosenEventId(latin1("77"));
    }

    void finish() { plugIn->_startFinishThread(); }

    void finishAndWait() {
        finish();
        ASSERT_TRUE(waitUntil([this] { return host.count(kFinished) == 1; }));
    }

    std::optional<QString> shownResult(const QByteArray& body) {
        answer(kFinishingPage, body);
        const int finished = host.count(kFinished);
        finish();
        EXPECT_TRUE(waitUntil([&] { return host.count(kFinished) == finished + 1; }));
        return host.alerts().back().alert.informativeText;
    }
};

} // namespace

TEST_F(Finishing, RequestNamesEventAndPricingTemplate) {
    plugIn->setChosenPricingId(latin1("5"));
    finishAndWait();
    EXPECT_EQ(targets(kFinishingPage),
              (QStringList{latin1("/instantupload/processimages.php?uid=4711&pwd=t0ken&id=77&pptid=5")}));
}

TEST_F(Finishing, WithoutAPricingTemplateItSendsZero) {
    finishAndWait();
    EXPECT_EQ(targets(kFinishingPage),
              (QStringList{latin1("/instantupload/processimages.php?uid=4711&pwd=t0ken&id=77&pptid=0")}));
}

TEST_F(Finishing, ClearedPricingTemplateSendsZero) {
    plugIn->pricingChooser->setCurrentIndex(0);
    plugIn->pricingChooser->setCurrentIndex(-1);
    finishAndWait();
    EXPECT_TRUE(targets(kFinishingPage).value(0).endsWith(latin1("&pptid=0")));
}

TEST_F(Finishing, AbsentValuesReadAsNull) {
    plugIn->setChosenEventId(std::nullopt);
    plugIn->loginDetails.set(nullptr);
    finishAndWait();
    EXPECT_EQ(
        targets(kFinishingPage),
        (QStringList{latin1("/instantupload/processimages.php?uid=(null)&pwd=(null)&id=(null)&pptid=0")}));
}

TEST_F(Finishing, ResultIsShownBeforeTheHostIsToldToFinish) {
    finishAndWait();
    const QStringList calls = host.calls();
    EXPECT_EQ(calls, (QStringList{kCompleteAlert, kFinished}));
    const auto shown = host.alerts().at(0);
    EXPECT_FALSE(shown.isSheet);
    EXPECT_EQ(shown.alert.style, hostapi::AlertStyle::Informational);
    EXPECT_EQ(shown.alert.message, kComplete);
    EXPECT_EQ(shown.alert.informativeText, latin1("All done."));
}

TEST_F(Finishing, ResultIsTrimmedAtBothEndsAlone) {
    EXPECT_EQ(shownResult("<Information><Result>  12 images \n were\ttaken.\r\n </Result></Information>"),
              latin1("12 images \n were\ttaken."));
    EXPECT_EQ(shownResult("<Information><Result>&#xA0;&#x2003;x&#x2028;</Result></Information>"),
              latin1("x"));
}

TEST_F(Finishing, ResultIsShownLiterally) {
    EXPECT_EQ(shownResult("<Information><Result>%@ %d %s &lt;b&gt;bold&lt;/b&gt; %1</Result></Information>"),
              latin1("%@ %d %s <b>bold</b> %1"));
    const QByteArray longText = QByteArray("<i>%@</i> ").repeated(1000).trimmed();
    EXPECT_EQ(shownResult("<Information><Result><![CDATA[" + longText + "]]></Result></Information>"),
              latin1(longText.constData()));
}

TEST_F(Finishing, AnyResultCountsAsDone) {
    EXPECT_EQ(shownResult("<Information><Result>Error: nothing was processed</Result></Information>"),
              latin1("Error: nothing was processed"));
    EXPECT_EQ(shownResult("<Information><Result> </Result></Information>"), latin1(""));
}

TEST_F(Finishing, AnswerWithoutAResultShowsNoInformativeText) {
    EXPECT_EQ(shownResult("<Information/>"), std::nullopt);
    EXPECT_EQ(shownResult("thank you"), std::nullopt);
}

TEST_F(Finishing, RejectedAnswerIsToldToTheObserverAlone) {
    WebAnswer reset;
    reset.cuts = {test_support::Cut::Reset};
    int unanswered = 0;
    for (const WebAnswer& failure :
         {WebAnswer::ok({}), WebAnswer::of(500, "<Result>x</Result>"), WebAnswer::of(204, {}), reset}) {
        answer(kFinishingPage, failure);
        finish();
        ++unanswered;
        ASSERT_TRUE(waitUntil([&] { return host.count(kUnanswered) == unanswered; }));
    }
    runLoopFor(50ms);
    EXPECT_EQ(host.calls(), QStringList(unanswered, kUnanswered));
}

TEST_F(Finishing, ProgressWindowIsClosedBeforeTheRequestIsSent) {
    plugIn->showProgressBar();
    ASSERT_TRUE(plugIn->progressWindow && plugIn->progressWindow->isVisible());
    ASSERT_TRUE(plugIn->progressBarTimer);
    const QPointer<QTimer> timer = plugIn->progressBarTimer;
    bool wasVisible = true;
    answer(kFinishingPage, [this, &wasVisible](const WebRequest&) {
        platform::RunLoop::main()->call(
            [&] { wasVisible = plugIn->progressWindow && plugIn->progressWindow->isVisible(); });
        return WebAnswer::ok("<Information><Result>x</Result></Information>");
    });
    finishAndWait();
    EXPECT_FALSE(wasVisible);
    EXPECT_FALSE(timer);
    EXPECT_FALSE(plugIn->progressBarTimer);
}

TEST_F(Finishing, TimerIsStoppedBeforeTheWindowIsClosed) {
    plugIn->showProgressBar();
    QStringList order;
    QObject::connect(plugIn->progressBarTimer, &QObject::destroyed,
                     [&order] { order.append(latin1("timer")); });
    Told closing(QEvent::Close, [&order] { order.append(latin1("window")); });
    plugIn->progressWindow->installEventFilter(&closing);
    finishAndWait();
    EXPECT_EQ(order, (QStringList{latin1("timer"), latin1("window")}));
}

TEST_F(Finishing, EachStartReplacesTheThread) {
    finish();
    const auto first = plugIn->finishThreadRef;
    finish();
    EXPECT_NE(plugIn->finishThreadRef, first);
    EXPECT_TRUE(waitUntil([this] { return host.count(kFinished) == 2; }));
    EXPECT_EQ(targets(kFinishingPage).size(), 2);
}

TEST_F(Finishing, CancelBeforeTheAnswerIsToldAndTheExportStillFinishes) {
    std::promise<void> mayAnswer;
    WebAnswer late = WebAnswer::ok("<Information><Result>x</Result></Information>");
    late.gate = mayAnswer.get_future().share();
    answer(kFinishingPage, late);
    finish();
    ASSERT_TRUE(waitUntil([this] { return !targets(kFinishingPage).isEmpty(); }));
    plugIn->setShouldCancelExport(true);
    mayAnswer.set_value();
    ASSERT_TRUE(waitUntil([this] { return host.count(kFinished) == 1; }));
    EXPECT_EQ(host.calls(), (QStringList{kCancelled, kCompleteAlert, kFinished}));
}

TEST_F(Finishing, CancelThatCleansUpMeanwhileIsHarmless) {
    std::promise<void> mayAnswer;
    WebAnswer late = WebAnswer::ok("<Information><Result>x</Result></Information>");
    late.gate = mayAnswer.get_future().share();
    answer(kFinishingPage, late);
    finish();
    ASSERT_TRUE(waitUntil([this] { return !targets(kFinishingPage).isEmpty(); }));
    plugIn->exportManagerShouldCancelExport();
    mayAnswer.set_value();
    ASSERT_TRUE(waitUntil([this] { return host.count(kFinished) == 1; }));
    EXPECT_EQ(host.calls(), (QStringList{kCancelled, kCancelled, kCompleteAlert, kFinished}));
}

TEST_F(Finishing, HostIsToldOnlyAfterTheModalAlertIsAnswered) {
    host.usesDesktopAlerts = true;
    makePlugIn();
    answer(kFinishingPage, "<Information><Result>\n <b>12</b> &lt;b&gt;%@ images \n</Result></Information>");
    // The alert runs a loop of its own, inside which this answers it.
    bool isAnswered = false;
    QTimer answerer;
    QObject::connect(&answerer, &QTimer::timeout, [&] {
        auto* const box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box || isAnswered)
            return;
        isAnswered = true;
        EXPECT_EQ(box->windowModality(), Qt::ApplicationModal);
        EXPECT_EQ(box->icon(), QMessageBox::Information);
        EXPECT_EQ(box->text(), kComplete);
        EXPECT_EQ(box->informativeText(), latin1("12 <b>%@ images"));
        EXPECT_EQ(box->textFormat(), Qt::PlainText);
        EXPECT_EQ(box->buttons().size(), 1);
        EXPECT_EQ(host.count(kFinished), 0);
        QTest::keyClick(box, Qt::Key_Return);
    });
    answerer.start(10ms);
    finish();
    EXPECT_TRUE(waitUntil([this] { return host.count(kFinished) == 1; }));
    EXPECT_TRUE(isAnswered);
}
