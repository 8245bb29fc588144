// What a person meets who fills in the panel with mouse and keyboard and presses the host's export button:
// the sheets, in their order, on the window that holds the panel.

#include "tests/service/ServiceTest.h"

#include <QtTest/QTest>
#include <QtWidgets/QAbstractItemView>
#include <QtWidgets/QLayout>
#include <QtWidgets/QMessageBox>

#include <future>

namespace panel = hostapi::panel;
using test_support::waitUntil;

namespace {

class PanelValidation : public service_tests::ServiceTest {
protected:
    void SetUp() override {
        host.usesDesktopAlerts = true;
        answer(service_tests::kLoginPage, service_tests::loginAnswer("1", "1"));
        ServiceTest::SetUp();
        dialog->activateWindow();
        ASSERT_TRUE(waitUntil([this] { return dialog->isActiveWindow(); }));
    }
    void TearDown() override {
        if (plugIn->progressWindow)
            plugIn->progressWindow->close();
        ServiceTest::TearDown();
    }

    void typeInto(QWidget* field, const char* text) {
        QTest::mouseClick(field, Qt::LeftButton);
        QTest::keyClick(field, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(field, Qt::Key_Delete);
        QTest::keyClicks(field, QString::fromUtf8(text));
    }

    void logInWithKeys() {
        typeInto(plugIn->usernameField, "ann");
        typeInto(plugIn->passwordField, "secret");
        QTest::keyClick(plugIn->passwordField, Qt::Key_Return);
        ASSERT_TRUE(waitUntil([this] { return plugIn->isLoggedIn; }));
        ASSERT_TRUE(waitForLists());
    }

    void chooseFromList(QComboBox* chooser, int index) {
        QTest::mouseClick(chooser, Qt::LeftButton);
        ASSERT_TRUE(waitUntil([&] { return chooser->view()->isVisible(); }));
        QTest::keyClick(chooser->view(), Qt::Key_Home);
        for (int i = 0; i < index; ++i)
            QTest::keyClick(chooser->view(), Qt::Key_Down);
        QTest::keyClick(chooser->view(), Qt::Key_Return);
        ASSERT_EQ(chooser->currentIndex(), index);
    }

    void chooseAll() {
        logInWithKeys();
        chooseFromList(plugIn->eventChooser, 0);
        typeInto(plugIn->categoryChooser->lineEdit(), "Ceremony");
    }

    void click(QAbstractButton* box) {
        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
    }

    void resizeInto(const char* width, const char* height) {
        if (!plugIn->doResizeButton->isChecked())
            click(plugIn->doResizeButton);
        ASSERT_TRUE(plugIn->doResizeButton->isChecked());
        typeInto(plugIn->resizeWidth, width);
        typeInto(plugIn->resizeHeight, height);
    }

    /// A button of the host's, after the panel.
    QPushButton* addButton() {
        auto* const button = new QPushButton(dialog.get());
        dialog->layout()->addWidget(button);
        button->show();
        return button;
    }

    QCheckBox* automaticCategories() const {
        return plugIn->settingsView_->findChild<QCheckBox*>(panel::kAutoCreateCategoriesButton);
    }

    /// The host's export button leads to exactly this one sheet, and to no export.
    testing::AssertionResult refuses(const char* message, const char* infoText) {
        plugIn->exportManagerShouldBeginExport();
        const auto sheets = dialog->findChildren<QMessageBox*>();
        if (sheets.size() != 1)
            return testing::AssertionFailure() << sheets.size() << " sheets";
        QMessageBox& sheet = *sheets.first();
        const auto texts = sheet.text() + QStringLiteral(" / ") + sheet.informativeText();
        if (sheet.text() != QLatin1String(message) || sheet.informativeText() != QLatin1String(infoText))
            return testing::AssertionFailure() << texts.toStdString();
        if (!sheet.isVisible() || sheet.windowModality() != Qt::WindowModal ||
            sheet.parentWidget() != dialog.get() || sheet.icon() != QMessageBox::Warning)
            return testing::AssertionFailure() << "no warning sheet of the dialog";
        if (sheet.buttons().size() != 1 ||
            sheet.buttons().first()->text().remove(QLatin1Char('&')) != QLatin1String("OK"))
            return testing::AssertionFailure() << "not the single button OK";
        QTest::mouseClick(sheet.buttons().first(), Qt::LeftButton);
        if (!waitUntil([this] { return dialog->findChildren<QMessageBox*>().isEmpty(); }))
            return testing::AssertionFailure() << "the sheet stays";
        if (host.count(QStringLiteral("shouldBeginExport")) != 0 || plugIn->progressWindow ||
            host.defaults().contains(QStringLiteral("imageQuality")))
            return testing::AssertionFailure() << "the export began";
        return testing::AssertionSuccess();
    }

    testing::AssertionResult passes() {
        plugIn->exportManagerShouldBeginExport();
        if (!dialog->findChildren<QMessageBox*>().isEmpty())
            return testing::AssertionFailure() << "a sheet was shown";
        if (host.count(QStringLiteral("shouldBeginExport")) != 1)
            return testing::AssertionFailure() << "the export did not begin";
        return testing::AssertionSuccess();
    }
};

constexpr char kWidth[] = "Resize width is not valid";
constexpr char kHeight[] = "Resize height is not valid";
constexpr char kWidthNoInteger[] = "Please enter a valid integer for the maximum width.";
constexpr char kHeightNoInteger[] = "Please enter a valid integer for the maximum height.";
constexpr char kWidthTooSmall[] = "Please enter a maximum width of at least 1280 pixels";
constexpr char kHeightTooSmall[] = "Please enter a maximum height of at least 1280 pixels.";

} // namespace

TEST_F(PanelValidation, LoggedOutWithNothingChosenOnlyTheLoginIsAskedFor) {
    EXPECT_TRUE(refuses("Please log in first", "You must be logged in before attempting to export."));
}

TEST_F(PanelValidation, ReturnInThePasswordFieldLogsIn) {
    logInWithKeys();
    EXPECT_EQ(plugIn->loggedInStatusLabel->text(), QStringLiteral("Logged in as Ann Smith"));
    for (const QGroupBox* const box :
         {plugIn->settingsBox.data(), plugIn->eventBox.data(), plugIn->pricingBox.data()})
        EXPECT_TRUE(box->isVisible());
}

TEST_F(PanelValidation, AfterAFailedLoginTheFocusIsBackInThePassword) {
    QPushButton* const exportButton = addButton();
    answer(service_tests::kLoginPage, service_tests::loginAnswer("0"));
    typeInto(plugIn->usernameField, "ann");
    typeInto(plugIn->passwordField, "wrong");
    QTest::keyClick(plugIn->passwordField, Qt::Key_Return);
    EXPECT_TRUE(exportButton->hasFocus()) << "meanwhile";
    ASSERT_TRUE(waitForStatus(service_tests::kLoginFailed));
    EXPECT_TRUE(plugIn->passwordField->hasFocus());
}

TEST_F(PanelValidation, AfterAGoodLoginTheFocusIsOnTheEvents) {
    addButton();
    logInWithKeys();
    EXPECT_TRUE(plugIn->eventChooser->hasFocus());
}

TEST_F(PanelValidation, AFocusThatTheUserMovedDuringTheLoginStays) {
    addButton();
    QPushButton* const other = addButton();
    std::promise<void> gate;
    test_support::WebAnswer later = test_support::WebAnswer::ok(service_tests::loginAnswer("0"));
    later.gate = gate.get_future().share();
    answer(service_tests::kLoginPage, later);
    typeInto(plugIn->usernameField, "ann");
    typeInto(plugIn->passwordField, "wrong");
    QTest::keyClick(plugIn->passwordField, Qt::Key_Return);
    EXPECT_TRUE(waitForRequests(1));
    other->setFocus();
    gate.set_value();
    ASSERT_TRUE(waitForStatus(service_tests::kLoginFailed));
    EXPECT_TRUE(other->hasFocus());
}

TEST_F(PanelValidation, EveryRuleIsAskedForInItsOrder) {
    // Everything is wrong at first; each step mends what its sheet asked for.
    logInWithKeys();
    resizeInto("wide", "");
    EXPECT_TRUE(refuses(kWidth, kWidthNoInteger)) << "width before height";
    typeInto(plugIn->resizeWidth, "900");
    EXPECT_TRUE(refuses(kHeight, kHeightNoInteger)) << "numbers before bounds";
    typeInto(plugIn->resizeHeight, "900");
    EXPECT_TRUE(refuses(kWidth, kWidthTooSmall));
    typeInto(plugIn->resizeWidth, "1280");
    EXPECT_TRUE(refuses(kHeight, kHeightTooSmall));
    typeInto(plugIn->resizeHeight, "1280");
    EXPECT_TRUE(refuses("Please select an event", "You must choose an event before attempting to export."));
    EXPECT_EQ(plugIn->maxWidthValue, 1280) << "stored before the event is asked for";
    chooseFromList(plugIn->eventChooser, 1);
    EXPECT_TRUE(refuses("Please select a category",
                        "You must either select a category or choose to generate categories automatically, "
                        "before attempting to export."));
    typeInto(plugIn->categoryChooser->lineEdit(), "Brand New");
    EXPECT_TRUE(passes()) << "a typed category that is not in the list";
    EXPECT_EQ(plugIn->chosenEventId(), QStringLiteral("2"));
    EXPECT_EQ(plugIn->chosenCategory(), QStringLiteral("Brand New"));
}

TEST_F(PanelValidation, AWidthOf1279IsTooSmall) {
    chooseAll();
    resizeInto("1279", "1280");
    EXPECT_TRUE(refuses(kWidth, kWidthTooSmall));
}

TEST_F(PanelValidation, AWidthWithAFractionIsNoInteger) {
    chooseAll();
    resizeInto("1280.5", "1280");
    EXPECT_TRUE(refuses(kWidth, kWidthNoInteger));
}

TEST_F(PanelValidation, AWidthAndHeightOf1280Pass) {
    chooseAll();
    resizeInto("1280", "1280");
    EXPECT_TRUE(passes());
    EXPECT_EQ(plugIn->maxWidthValue, 1280);
    EXPECT_EQ(plugIn->maxHeightValue, 1280);
}

TEST_F(PanelValidation, WithResizingOffTheSizesAreNotRead) {
    chooseAll();
    resizeInto("4000", "3000");
    click(plugIn->doResizeButton);
    EXPECT_FALSE(plugIn->resizeWidth->isEnabled());
    EXPECT_EQ(plugIn->resizeWidth->text(), QStringLiteral("1280"));
    plugIn->resizeWidth->setText(QStringLiteral("wide"));
    EXPECT_TRUE(passes());
    EXPECT_EQ(plugIn->maxWidthValue, 1280);
    EXPECT_EQ(plugIn->maxHeightValue, 1280);
}

TEST_F(PanelValidation, AutomaticCategoriesNeedNoCategory) {
    logInWithKeys();
    chooseFromList(plugIn->eventChooser, 0);
    click(automaticCategories());
    EXPECT_FALSE(plugIn->categoryChooser->isEnabled());
    EXPECT_TRUE(passes());
}

TEST_F(PanelValidation, AnAccountWithoutHighResolutionFitsItsImagesInto1280) {
    answer(service_tests::kLoginPage, service_tests::loginAnswer("1", "0"));
    chooseAll();
    EXPECT_FALSE(plugIn->doResizeButton->isEnabled());
    EXPECT_TRUE(plugIn->doResizeButton->isChecked());
    click(plugIn->doResizeButton);
    EXPECT_TRUE(plugIn->doResizeButton->isChecked());
    EXPECT_FALSE(plugIn->resizeWidth->isEnabled());
    EXPECT_FALSE(plugIn->resizeHeight->isEnabled());
    EXPECT_TRUE(passes());
    EXPECT_TRUE(plugIn->doResizeImages());
    EXPECT_EQ(plugIn->maxWidthValue, 1280);
    EXPECT_EQ(plugIn->maxHeightValue, 1280);
}

TEST_F(PanelValidation, AnAccountWithHighResolutionDoesNotResizeUntilItIsAsked) {
    chooseAll();
    EXPECT_TRUE(plugIn->doResizeButton->isEnabled());
    EXPECT_FALSE(plugIn->doResizeButton->isChecked());
    EXPECT_FALSE(plugIn->resizeWidth->isEnabled());
    click(plugIn->doResizeButton);
    EXPECT_TRUE(plugIn->resizeWidth->isEnabled());
    EXPECT_TRUE(plugIn->resizeHeight->isEnabled());
    resizeInto("4000", "3000");
    EXPECT_TRUE(passes());
    EXPECT_EQ(plugIn->maxWidthValue, 4000);
    EXPECT_EQ(plugIn->maxHeightValue, 3000);
}

TEST_F(PanelValidation, TheQualityIsSavedOnlyByAnExportThatBegins) {
    chooseAll();
    plugIn->qualitySlider->setFocus();
    QTest::keyClick(plugIn->qualitySlider, Qt::Key_Left);
    plugIn->setChosenCategory(std::nullopt);
    plugIn->exportManagerShouldBeginExport();
    EXPECT_FALSE(host.defaults().contains(QStringLiteral("imageQuality")));
    delete dialog->findChild<QMessageBox*>();
    typeInto(plugIn->categoryChooser->lineEdit(), "C");
    EXPECT_TRUE(passes());
    EXPECT_EQ(host.defaults().value(QStringLiteral("imageQuality")), QVariant(11.0));
    EXPECT_EQ(host.defaults().value(QStringLiteral("imageQualityPresent")), QVariant(true));
}
