// The settings panel: its loading, its outlets, and the actions of its controls.

#include "hostapi/SettingsPanel.h"
#include "tests/plugin/TestBundle.h"
#include "tests/support/RecordingHost.h"
#include "tests/support/Waiting.h"

#include <QtTest/QSignalSpy>
#include <QtTest/QTest>
#include <QtWidgets/QDialog>

#include <gtest/gtest.h>

#include <limits>

namespace panel = hostapi::panel;
using test_support::RecordingHost;

namespace {

class SettingsView : public testing::Test {
protected:
    SettingsView() {
        plugIn = host.makePlugIn();
        view = plugIn->settingsView();
    }

    void saveQuality(const QVariant& quality) {
        host.setValue(QLatin1String("imageQualityPresent"), true);
        host.setValue(QLatin1String("imageQuality"), quality);
    }

    RecordingHost host;
    std::shared_ptr<Quillmark> plugIn;
    QPointer<QWidget> view;
};

/// The outlet is the view's control of that name; a control of another class would leave it empty.
template <typename Control>
testing::AssertionResult isOutlet(const QPointer<Control>& outlet, const QWidget* view, const char* name) {
    if (!outlet)
        return testing::AssertionFailure() << name << " is not connected";
    if (outlet->objectName() != QLatin1String(name))
        return testing::AssertionFailure() << name << " is " << outlet->objectName().toStdString();
    if (outlet->metaObject()->className() != Control::staticMetaObject.className())
        return testing::AssertionFailure() << name << " is a " << outlet->metaObject()->className();
    if (!view->isAncestorOf(outlet))
        return testing::AssertionFailure() << name << " is not in the view";
    return testing::AssertionSuccess();
}

} // namespace

TEST_F(SettingsView, EveryOutletIsConnected) {
    ASSERT_NE(view, nullptr);
    EXPECT_TRUE(isOutlet(plugIn->usernameField, view, "usernameField"));
    EXPECT_TRUE(isOutlet(plugIn->loggedInStatusLabel, view, "loggedInStatusLabel"));
    EXPECT_TRUE(isOutlet(plugIn->passwordField, view, "passwordField"));
    EXPECT_TRUE(isOutlet(plugIn->loginProgress, view, "loginProgress"));
    EXPECT_TRUE(isOutlet(plugIn->loginButton, view, "loginButton"));
    EXPECT_TRUE(isOutlet(plugIn->rememberCheckBox, view, "rememberCheckBox"));
    EXPECT_TRUE(isOutlet(plugIn->eventBox, view, "eventBox"));
    EXPECT_TRUE(isOutlet(plugIn->settingsBox, view, "settingsBox"));
    EXPECT_TRUE(isOutlet(plugIn->pricingBox, view, "pricingBox"));
    EXPECT_TRUE(isOutlet(plugIn->eventChooser, view, "eventChooser"));
    EXPECT_TRUE(isOutlet(plugIn->pricingChooser, view, "pricingChooser"));
    EXPECT_TRUE(isOutlet(plugIn->categoryChooser, view, "categoryChooser"));
    EXPECT_TRUE(isOutlet(plugIn->colorspaceChooser, view, "colorspaceChooser"));
    EXPECT_TRUE(isOutlet(plugIn->doResizeButton, view, "doResizeButton"));
    EXPECT_TRUE(isOutlet(plugIn->resizeWidth, view, "resizeWidth"));
    EXPECT_TRUE(isOutlet(plugIn->resizeHeight, view, "resizeHeight"));
    EXPECT_TRUE(isOutlet(plugIn->validationMessage, view, "validationMessage"));
    EXPECT_TRUE(isOutlet(plugIn->qualitySlider, view, "qualitySlider"));
    EXPECT_TRUE(isOutlet(plugIn->qualityValueField, view, "qualityValueField"));
    EXPECT_TRUE(isOutlet(plugIn->eventLoadingProgress, view, "eventLoadingProgress"));
    EXPECT_TRUE(isOutlet(plugIn->pricingLoadingProgress, view, "pricingLoadingProgress"));
}

TEST_F(SettingsView, TheControlsWithoutAnOutletAreThere) {
    ASSERT_NE(view, nullptr);
    EXPECT_NE(view->findChild<QCheckBox*>(panel::kAutoCreateCategoriesButton), nullptr);
    for (const char* const name :
         {"eventControls", "eventLoadingLabel", "pricingControls", "pricingLoadingLabel"})
        EXPECT_NE(view->findChild<QWidget*>(QLatin1String(name)), nullptr) << name;
    EXPECT_NE(view->findChild<QPushButton*>(QStringLiteral("clearPricingButton")), nullptr);
}

TEST_F(SettingsView, IsLoadedOnce) {
    ASSERT_NE(view, nullptr);
    ASSERT_EQ(plugIn->_topLevelNibObjects.size(), 1U);
    EXPECT_EQ(plugIn->_topLevelNibObjects.front(), view);
    EXPECT_EQ(plugIn->settingsView(), view);
    EXPECT_EQ(plugIn->_topLevelNibObjects.size(), 1U);
}

TEST_F(SettingsView, ShowsTheLoginAloneWhileLoggedOut) {
    view->show();
    EXPECT_TRUE(plugIn->usernameField->isVisible());
    EXPECT_TRUE(plugIn->passwordField->isVisible());
    EXPECT_EQ(plugIn->passwordField->echoMode(), QLineEdit::Password);
    EXPECT_EQ(plugIn->loginButton->text(), QStringLiteral("Login"));
    EXPECT_TRUE(plugIn->loggedInStatusLabel->text().isEmpty());
    EXPECT_TRUE(plugIn->validationMessage->text().isEmpty());
    for (QGroupBox* const box :
         {plugIn->settingsBox.data(), plugIn->eventBox.data(), plugIn->pricingBox.data()})
        EXPECT_TRUE(box->isHidden()) << box->objectName().toStdString();
    for (QProgressBar* const bar : {plugIn->loginProgress.data(), plugIn->eventLoadingProgress.data(),
                                    plugIn->pricingLoadingProgress.data()}) {
        EXPECT_TRUE(bar->isHidden()) << bar->objectName().toStdString();
        EXPECT_EQ(bar->maximum(), 0) << "busy, not counting";
    }
}

TEST_F(SettingsView, TextsOfTheServiceAreNeverTakenForMarkup) {
    EXPECT_EQ(plugIn->loggedInStatusLabel->textFormat(), Qt::PlainText);
    EXPECT_EQ(plugIn->validationMessage->textFormat(), Qt::PlainText);
}

TEST_F(SettingsView, ALongStatusIsShownWhole) {
    QString status = QStringLiteral("Logged in as");
    for (int i = 0; i < 30; ++i)
        status += QStringLiteral(" Archer");
    view->show();
    plugIn->loggedInStatusLabel->setText(status);
    view->adjustSize();
    const QLabel& label = *plugIn->loggedInStatusLabel;
    EXPECT_TRUE(
        test_support::waitUntil([&] { return label.height() >= label.heightForWidth(label.width()); }));
    EXPECT_GT(label.height(), label.fontMetrics().height()) << "on more lines than one";
}

TEST_F(SettingsView, TheTabKeyGoesFromTheFirstViewToTheLast) {
    EXPECT_EQ(plugIn->firstView(), plugIn->usernameField);
    EXPECT_EQ(plugIn->lastView(), plugIn->qualitySlider);
    const QList<QWidget*> expected{
        plugIn->usernameField,
        plugIn->passwordField,
        plugIn->rememberCheckBox,
        plugIn->loginButton,
        plugIn->eventChooser,
        plugIn->categoryChooser,
        view->findChild<QWidget*>(panel::kAutoCreateCategoriesButton),
        plugIn->pricingChooser,
        view->findChild<QWidget*>(QStringLiteral("clearPricingButton")),
        plugIn->doResizeButton,
        plugIn->resizeWidth,
        plugIn->resizeHeight,
        plugIn->colorspaceChooser,
        plugIn->qualitySlider,
    };
    QList<QWidget*> order;
    QWidget* widget = plugIn->firstView();
    do {
        if (expected.contains(widget))
            order.append(widget);
        widget = widget->nextInFocusChain();
    } while (widget != plugIn->firstView());
    EXPECT_EQ(order, expected);
}

TEST_F(SettingsView, EveryFieldHasALabelThatLeadsToIt) {
    QSet<QWidget*> labelled;
    for (const QLabel* const label : view->findChildren<QLabel*>())
        labelled.insert(label->buddy());
    for (QWidget* const control : std::initializer_list<QWidget*>{
             plugIn->usernameField, plugIn->passwordField, plugIn->eventChooser, plugIn->categoryChooser,
             plugIn->pricingChooser, plugIn->resizeWidth, plugIn->resizeHeight, plugIn->colorspaceChooser,
             plugIn->qualitySlider})
        EXPECT_TRUE(labelled.contains(control)) << control->objectName().toStdString();
}

TEST_F(SettingsView, WithoutASavedQualityItIsTheBest) {
    EXPECT_EQ(plugIn->imageQuality, 12.0);
    EXPECT_EQ(plugIn->qualitySlider->value(), 12 * panel::kQualityScale);
    EXPECT_EQ(plugIn->qualityValueField->text(), QStringLiteral("12"));
    EXPECT_EQ(plugIn->qualitySlider->minimum(), 0);
    EXPECT_EQ(plugIn->qualitySlider->maximum(), 12 * panel::kQualityScale);
}

TEST_F(SettingsView, ASavedQualityCountsOnlyWhereItSaysThatItIsThere) {
    host.setValue(QLatin1String("imageQuality"), 3.0);
    plugIn->settingsView();
    EXPECT_EQ(plugIn->imageQuality, 12.0);
    host.setValue(QLatin1String("imageQualityPresent"), false);
    plugIn->settingsView();
    EXPECT_EQ(plugIn->imageQuality, 12.0);
    host.setValue(QLatin1String("imageQualityPresent"), true);
    plugIn->settingsView();
    EXPECT_EQ(plugIn->imageQuality, 3.0);
    EXPECT_EQ(plugIn->qualitySlider->value(), 3 * panel::kQualityScale);
    EXPECT_EQ(plugIn->qualityValueField->text(), QStringLiteral("3"));
}

TEST_F(SettingsView, ASavedQualityKeepsItsFractionUntilTheSliderMoves) {
    saveQuality(7.9);
    plugIn->settingsView();
    EXPECT_EQ(plugIn->imageQuality, 7.9);
    EXPECT_EQ(plugIn->qualitySlider->value(), 790);
    EXPECT_EQ(plugIn->qualityValueField->text(), QStringLiteral("7"));
    plugIn->qualitySlider->setValue(791);
    EXPECT_EQ(plugIn->imageQuality, 8.0);
    EXPECT_EQ(plugIn->qualityValueField->text(), QStringLiteral("8"));
}

TEST_F(SettingsView, ASliderMoveIsRoundedToTheNearestWhole) {
    const QList<std::pair<int, double>> positions{{850, 9}, {849, 8},   {0, 0},    {49, 0},
                                                  {50, 1},  {1150, 12}, {1149, 11}};
    for (const auto& [position, quality] : positions) {
        plugIn->qualitySlider->setValue(position);
        EXPECT_EQ(plugIn->imageQuality, quality) << position;
        EXPECT_EQ(plugIn->qualityValueField->text().toDouble(), quality) << position;
    }
}

TEST_F(SettingsView, AnUnsavedSliderMoveIsForgottenWhenTheViewIsAskedForAgain) {
    plugIn->qualitySlider->setValue(300);
    EXPECT_EQ(plugIn->imageQuality, 3.0);
    EXPECT_TRUE(host.defaults().isEmpty());
    plugIn->settingsView();
    EXPECT_EQ(plugIn->imageQuality, 12.0);
    EXPECT_EQ(plugIn->qualitySlider->value(), 1200);
    EXPECT_EQ(plugIn->qualityValueField->text(), QStringLiteral("12"));
}

TEST_F(SettingsView, ASavedQualityThatIsNoNumberOrOutOfRangeDoesNoHarm) {
    saveQuality(std::numeric_limits<double>::quiet_NaN());
    plugIn->settingsView();
    EXPECT_EQ(plugIn->imageQuality, 12.0);
    saveQuality(std::numeric_limits<double>::infinity());
    plugIn->settingsView();
    EXPECT_EQ(plugIn->imageQuality, 12.0);
    saveQuality(1e300);
    plugIn->settingsView();
    EXPECT_EQ(plugIn->qualitySlider->value(), 1200);
    EXPECT_LE(plugIn->qualityValueField->text().size(), 11);
    saveQuality(-1e300);
    plugIn->settingsView();
    EXPECT_EQ(plugIn->qualitySlider->value(), 0);
    saveQuality(QStringLiteral("best"));
    plugIn->settingsView();
    EXPECT_EQ(plugIn->imageQuality, 12.0);
    EXPECT_EQ(plugIn->qualitySlider->value(), 1200);
}

TEST_F(SettingsView, WithoutHighResolutionResizingIsForcedInto1280) {
    plugIn->hiResUploads = false;
    plugIn->resizeWidth->setText(QStringLiteral("4000"));
    plugIn->updateResizeGUI(true);
    EXPECT_TRUE(plugIn->doResizeImages());
    EXPECT_TRUE(plugIn->doResizeButton->isChecked());
    EXPECT_EQ(plugIn->resizeWidth->text(), QStringLiteral("1280"));
    EXPECT_EQ(plugIn->resizeHeight->text(), QStringLiteral("1280"));
    EXPECT_FALSE(plugIn->resizeWidth->isEnabled());
    EXPECT_FALSE(plugIn->resizeHeight->isEnabled());
}

TEST_F(SettingsView, WithResizingOffTheSizesRead1280AndAreDisabled) {
    plugIn->hiResUploads = true;
    plugIn->updateResizeGUI(true);
    plugIn->resizeWidth->setText(QStringLiteral("4000"));
    plugIn->updateResizeGUI(false);
    EXPECT_FALSE(plugIn->doResizeImages());
    EXPECT_FALSE(plugIn->doResizeButton->isChecked());
    EXPECT_EQ(plugIn->resizeWidth->text(), QStringLiteral("1280"));
    EXPECT_EQ(plugIn->resizeHeight->text(), QStringLiteral("1280"));
    EXPECT_FALSE(plugIn->resizeWidth->isEnabled());
    EXPECT_FALSE(plugIn->resizeHeight->isEnabled());
}

TEST_F(SettingsView, WithHighResolutionAndResizingOnTheSizesAreTheUsers) {
    plugIn->hiResUploads = true;
    plugIn->resizeWidth->setText(QStringLiteral("4000"));
    plugIn->resizeHeight->setText(QStringLiteral("wide"));
    plugIn->updateResizeGUI(true);
    EXPECT_TRUE(plugIn->doResizeImages());
    EXPECT_EQ(plugIn->resizeWidth->text(), QStringLiteral("4000"));
    EXPECT_EQ(plugIn->resizeHeight->text(), QStringLiteral("wide"));
    EXPECT_TRUE(plugIn->resizeWidth->isEnabled());
    EXPECT_TRUE(plugIn->resizeHeight->isEnabled());
}

TEST_F(SettingsView, TheResizeBoxFollowsClicksAndProgramsAlike) {
    plugIn->hiResUploads = true;
    plugIn->doResizeButton->click();
    EXPECT_TRUE(plugIn->doResizeImages());
    EXPECT_TRUE(plugIn->resizeWidth->isEnabled());
    plugIn->doResizeButton->setChecked(false);
    EXPECT_FALSE(plugIn->doResizeImages());
    EXPECT_FALSE(plugIn->resizeWidth->isEnabled());
}

TEST_F(SettingsView, AMixedResizeBoxCountsAsOff) {
    plugIn->hiResUploads = true;
    plugIn->updateResizeGUI(true);
    plugIn->doResizeButton->setTristate(true);
    plugIn->doResizeButton->setCheckState(Qt::PartiallyChecked);
    EXPECT_FALSE(plugIn->doResizeImages());
    EXPECT_EQ(plugIn->doResizeButton->checkState(), Qt::Unchecked);
}

TEST_F(SettingsView, TheRememberBoxStoresWhatIsClickedAndProgrammed) {
    plugIn->rememberCheckBox->click();
    EXPECT_EQ(host.defaults().value(QStringLiteral("rememberDetails")), QVariant(true));
    plugIn->rememberCheckBox->setChecked(false);
    EXPECT_EQ(host.defaults().value(QStringLiteral("rememberDetails")), QVariant(false));
}

TEST_F(SettingsView, ActivationShowsWhatIsRememberedAndStoresNothing) {
    plugIn->willBeActivated();
    EXPECT_FALSE(plugIn->rememberCheckBox->isChecked());
    EXPECT_TRUE(host.defaults().isEmpty());
    // As a file holds it: stored again it would be a bool.
    host.setValue(QLatin1String("rememberDetails"), QStringLiteral("true"));
    plugIn->willBeActivated();
    EXPECT_TRUE(plugIn->rememberCheckBox->isChecked());
    EXPECT_EQ(host.defaults().value(QStringLiteral("rememberDetails")).typeId(), QMetaType::QString);
    host.setValue(QLatin1String("rememberDetails"), false);
    plugIn->willBeActivated();
    EXPECT_FALSE(plugIn->rememberCheckBox->isChecked());
}

TEST_F(SettingsView, ActivationFillsInTheSavedUserName) {
    host.setValue(QLatin1String("quillmarkUsername"), QStringLiteral("ann"));
    plugIn->willBeActivated();
    EXPECT_EQ(plugIn->usernameField->text(), QStringLiteral("ann"));
    EXPECT_FALSE(plugIn->threadLaunched()) << "without a saved password nobody logs in";
}

TEST_F(SettingsView, TheLoginButtonDoesNothingWithoutCredentials) {
    plugIn->loginButton->click();
    plugIn->usernameField->setText(QStringLiteral("ann"));
    plugIn->loginButton->click();
    EXPECT_FALSE(plugIn->threadLaunched());
    EXPECT_EQ(plugIn->loginThreadRef, nullptr);
}

TEST_F(SettingsView, TheLoginButtonLogsOutWhileLoggedIn) {
    plugIn->isLoggedIn = true;
    plugIn->loginButton->setText(QStringLiteral("Logout"));
    plugIn->eventBox->show();
    plugIn->loginButton->click();
    EXPECT_FALSE(plugIn->isLoggedIn);
    EXPECT_TRUE(plugIn->eventBox->isHidden());
    EXPECT_EQ(plugIn->loginButton->text(), QStringLiteral("Login"));
}

TEST_F(SettingsView, ReturnInTheLoginFieldsPressesTheLoginButtonAndNothingElse) {
    QDialog dialog;
    QPushButton exportButton(&dialog);
    exportButton.setDefault(true);
    view->setParent(&dialog);
    dialog.show();
    QSignalSpy login(plugIn->loginButton.data(), &QPushButton::clicked);
    QSignalSpy exports(&exportButton, &QPushButton::clicked);
    QTest::keyClick(plugIn->usernameField, Qt::Key_Return);
    EXPECT_EQ(login.size(), 1);
    QTest::keyClick(plugIn->passwordField, Qt::Key_Enter);
    EXPECT_EQ(login.size(), 2);
    EXPECT_EQ(exports.size(), 0);
    EXPECT_TRUE(dialog.isVisible());
    plugIn->loginButton->setEnabled(false);
    QTest::keyClick(plugIn->passwordField, Qt::Key_Return);
    EXPECT_EQ(login.size(), 2) << "a login is under way";
}

TEST_F(SettingsView, TypingInTheLoginFieldsIsLeftToThem) {
    QTest::keyClicks(plugIn->usernameField, QStringLiteral("ann"));
    QTest::keyClick(plugIn->usernameField, Qt::Key_Backspace);
    EXPECT_EQ(plugIn->usernameField->text(), QStringLiteral("an"));
}

TEST_F(SettingsView, WithoutAnInterfaceFileThereIsNoViewAndEveryControlMessageIsLost) {
    TestBundle bundle;
    bundle.remove(QStringLiteral("Quillmark.ui"));
    plugIn = host.makePlugIn(bundle.path());
    ASSERT_NE(plugIn, nullptr);
    EXPECT_EQ(plugIn->settingsView(), nullptr);
    EXPECT_TRUE(plugIn->_topLevelNibObjects.empty());
    EXPECT_EQ(plugIn->imageQuality, 12.0) << "the saved quality is read all the same";
    plugIn->willBeActivated();
    plugIn->pressButton(nullptr);
    plugIn->authenticate();
    plugIn->resizeButtonClicked(nullptr);
    plugIn->updateResizeGUI(true);
    plugIn->sliderChanged(nullptr);
    plugIn->changeEvent(nullptr);
    plugIn->changePricing(nullptr);
    plugIn->changeColorspace(nullptr);
    plugIn->changeRememberState(nullptr);
    plugIn->doneEventLoad();
    plugIn->doneLogin(nullptr);
    plugIn->logOut();
    EXPECT_EQ(plugIn->imageQuality, 12.0);
    EXPECT_FALSE(plugIn->validateSettings());
    ASSERT_EQ(host.alerts().size(), 1U);
    EXPECT_EQ(host.alerts().front().window, nullptr);
}

TEST_F(SettingsView, AnInterfaceFileThatCannotBeReadIsLikeNone) {
    TestBundle bundle;
    bundle.write(QStringLiteral("Quillmark.ui"), "<ui version=\"4.0\"><widget class=");
    plugIn = host.makePlugIn(bundle.path());
    ASSERT_NE(plugIn, nullptr);
    EXPECT_EQ(plugIn->settingsView(), nullptr);
}

TEST_F(SettingsView, IsLoadedAnewAfterAFailedLoad) {
    TestBundle bundle;
    bundle.remove(QStringLiteral("Quillmark.ui"));
    plugIn = host.makePlugIn(bundle.path());
    ASSERT_EQ(plugIn->settingsView(), nullptr);
    bundle.restore(QStringLiteral("Quillmark.ui"));
    ASSERT_NE(plugIn->settingsView(), nullptr);
    EXPECT_EQ(plugIn->qualitySlider->value(), 1200);
}

TEST_F(SettingsView, AnInterfaceFileWithoutSomeControlsLeavesThoseOutletsEmpty) {
    TestBundle bundle;
    bundle.write(QStringLiteral("Quillmark.ui"),
                 "<ui version=\"4.0\"><widget class=\"QWidget\" name=\"settingsView\">"
                 "<widget class=\"QLineEdit\" name=\"usernameField\"/>"
                 "<widget class=\"QLabel\" name=\"qualitySlider\"/></widget></ui>");
    plugIn = host.makePlugIn(bundle.path());
    ASSERT_NE(plugIn->settingsView(), nullptr);
    EXPECT_NE(plugIn->usernameField, nullptr);
    EXPECT_EQ(plugIn->qualitySlider, nullptr);
    EXPECT_EQ(plugIn->loginButton, nullptr);
    plugIn->updateResizeGUI(true);
    EXPECT_FALSE(plugIn->validateSettings());
}

TEST_F(SettingsView, AfterItsWindowHasEndedEveryOperationIsSafe) {
    auto window = std::make_unique<QWidget>();
    view->setParent(window.get());
    window.reset();
    ASSERT_TRUE(view.isNull());
    plugIn->isLoggedIn = true;
    plugIn->setEventList(std::make_shared<RecordList>(1, std::make_shared<Record>()));
    plugIn->setHideEventControls(false);
    plugIn->setChosenCategory(QStringLiteral("C"));
    plugIn->updateResizeGUI(true);
    EXPECT_FALSE(plugIn->validateSettings());
    ASSERT_EQ(host.alerts().size(), 1U);
    EXPECT_EQ(host.alerts().front().window, nullptr);
    plugIn->doneEventLoad();
    plugIn->logOut();
}

TEST_F(SettingsView, AViewMadeAnewShowsWhatIsChosen) {
    plugIn->colorspaceChooser->setCurrentIndex(2);
    plugIn->setEventList(std::make_shared<RecordList>(3, std::make_shared<Record>()));
    plugIn->setChosenCategory(QStringLiteral("Ceremony"));
    plugIn->setAutoCreateCategories(true);
    plugIn->setHideEventControls(false);
    delete view;
    ASSERT_NE(plugIn->settingsView(), nullptr);
    EXPECT_EQ(plugIn->colorspaceChooser->currentIndex(), 2);
    EXPECT_EQ(plugIn->eventChooser->count(), 3);
    EXPECT_EQ(plugIn->categoryChooser->currentText(), QStringLiteral("Ceremony"));
    const auto* const automatic =
        plugIn->settingsView_->findChild<QCheckBox*>(panel::kAutoCreateCategoriesButton);
    EXPECT_TRUE(automatic->isChecked());
    EXPECT_FALSE(plugIn->settingsView_->findChild<QWidget*>(QStringLiteral("eventControls"))->isHidden());
    EXPECT_EQ(plugIn->chosenCategory(), QStringLiteral("Ceremony"));
}
