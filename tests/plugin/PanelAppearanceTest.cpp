// How the settings panel looks and is reached: one column of fields, nothing clipped, light and dark colours,
// the keyboard, and what a screen reader is told.

#include "hostapi/SettingsPanel.h"
#include "tests/plugin/TestBundle.h"
#include "tests/support/RecordingHost.h"
#include "tests/support/Waiting.h"

#include <QtCore/QRegularExpression>
#include <QtGui/QAccessible>
#include <QtGui/QHelpEvent>
#include <QtGui/QTextDocumentFragment>
#include <QtGui/QWheelEvent>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QDialog>
#include <QtWidgets/QToolTip>
#include <QtWidgets/QVBoxLayout>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace panel = hostapi::panel;
using test_support::RecordingHost;
using test_support::waitUntil;

namespace {

QString nameOf(const QWidget* widget) {
    return widget ? widget->objectName() : QStringLiteral("nothing");
}

/// The lightness of a colour as people see it, 0 to 1.
double luminance(const QColor& color) {
    const auto linear = [](double part) {
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

double contrast(const QColor& a, const QColor& b) {
    const auto [darker, lighter] = std::minmax({luminance(a), luminance(b)});
    return (lighter + 0.05) / (darker + 0.05);
}

/// The interface file in a language whose words are about a third longer.
QByteArray lengthened(const QByteArray& interface) {
    static const QRegularExpression text(QStringLiteral("<string>([^<]+)</string>"));
    const QString original = QString::fromUtf8(interface);
    QString longer;
    qsizetype end = 0;
    for (auto matches = text.globalMatch(original); matches.hasNext();) {
        const auto match = matches.next();
        const auto extra = std::max<qsizetype>(1, (match.capturedLength(1) * 3 + 9) / 10);
        longer += original.mid(end, match.capturedEnd(1) - end) + QString(extra, QLatin1Char('m'));
        end = match.capturedEnd(1);
    }
    return (longer + original.mid(end)).toUtf8();
}

/// False where the control leaves the wheel to what is around it.
bool turnWheel(QWidget* over) {
    const QPointF middle = over->rect().center();
    QWheelEvent turn(middle, over->mapToGlobal(middle), {}, {0, -120}, Qt::NoButton, Qt::NoModifier,
                     Qt::NoScrollPhase, false);
    QApplication::sendEvent(over, &turn);
    return turn.isAccepted();
}

class PanelAppearance : public testing::Test {
protected:
    PanelAppearance() { openPanel(RecordingHost::defaultBundlePath()); }
    ~PanelAppearance() override {
        QApplication::setPalette(palette_);
        QApplication::setFont(font_);
    }

    /// The panel with every control shown and enabled, in a dialog.
    void openPanel(const QString& bundle) {
        dialog = std::make_unique<QDialog>();
        plugIn = host.makePlugIn(bundle);
        view = plugIn->settingsView();
        auto* const layout = new QVBoxLayout(dialog.get());
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(view);
        plugIn->setEventList(std::make_shared<RecordList>(3, std::make_shared<Record>()));
        plugIn->setPricingList(std::make_shared<RecordList>(3, std::make_shared<Record>()));
        plugIn->doneEventLoad();
        for (QGroupBox* const box : view->findChildren<QGroupBox*>())
            box->show();
        plugIn->hiResUploads = true;
        plugIn->updateResizeGUI(true);
        dialog->show();
        dialog->activateWindow();
        EXPECT_TRUE(waitUntil([this] { return dialog->isActiveWindow(); }));
    }

    QWidget* control(const char* name) const { return view->findChild<QWidget*>(QLatin1String(name)); }

    /// All controls, in the order of reading.
    QList<QWidget*> controls() const {
        QList<QWidget*> all;
        for (const char* const name :
             {"usernameField", "passwordField", "rememberCheckBox", "loginButton", "eventChooser",
              "categoryChooser", "autoCreateCategoriesButton", "pricingChooser", "clearPricingButton",
              "doResizeButton", "resizeWidth", "resizeHeight", "colorspaceChooser", "qualitySlider"})
            all.append(control(name));
        return all;
    }

    /// The text that carries a control's mnemonic: its own, or that of the label that leads to it.
    QString mnemonicText(const QWidget* of) const {
        for (const QLabel* const label : view->findChildren<QLabel*>()) {
            if (label->buddy() == of)
                return label->text();
        }
        const auto* const button = qobject_cast<const QAbstractButton*>(of);
        return button ? button->text() : QString();
    }

    QChar mnemonicOf(const QWidget* of) const {
        const QString text = mnemonicText(of);
        const auto mark = text.indexOf(QLatin1Char('&'));
        return mark < 0 ? QChar() : text.at(mark + 1).toLower();
    }

    QRect placeOf(const QWidget* widget) const { return {widget->mapTo(view, QPoint()), widget->size()}; }

    /// Everything is at least as large as it needs to be, inside the panel, and covers nothing else.
    testing::AssertionResult isWhole() {
        QApplication::sendPostedEvents();
        dialog->resize(dialog->sizeHint());
        QApplication::processEvents();
        QList<const QWidget*> leaves;
        for (const QWidget* const widget : view->findChildren<QWidget*>()) {
            if (!widget->isVisible() || widget->objectName().isEmpty() ||
                widget->objectName().startsWith(QLatin1String("qt_")))
                continue;
            QSize needed = widget->minimumSizeHint();
            if (qobject_cast<const QAbstractButton*>(widget) ||
                (qobject_cast<const QLabel*>(widget) && widget != plugIn->loggedInStatusLabel))
                needed = widget->sizeHint();
            if (const auto* const chooser = qobject_cast<const QComboBox*>(widget)) {
                const int text = chooser->fontMetrics().horizontalAdvance(chooser->placeholderText());
                needed.rwidth() = std::max(needed.width(), text);
            }
            if (widget->width() < needed.width() || widget->height() < needed.height())
                return testing::AssertionFailure()
                       << nameOf(widget).toStdString() << " is " << widget->width() << " x "
                       << widget->height() << " and needs " << needed.width() << " x " << needed.height();
            if (!view->rect().contains(placeOf(widget)))
                return testing::AssertionFailure() << nameOf(widget).toStdString() << " leaves the panel";
            if (widget->findChildren<QWidget*>().isEmpty() || qobject_cast<const QComboBox*>(widget))
                leaves.append(widget);
        }
        for (const QWidget* const one : leaves) {
            for (const QWidget* const other : leaves) {
                if (one < other && !one->isAncestorOf(other) && !other->isAncestorOf(one) &&
                    placeOf(one).intersects(placeOf(other)))
                    return testing::AssertionFailure()
                           << nameOf(one).toStdString() << " covers " << nameOf(other).toStdString();
            }
        }
        return leaves.size() > 20 ? testing::AssertionSuccess()
                                  : testing::AssertionFailure() << "little is shown";
    }

    /// Where the fields of the four boxes begin.
    QSet<int> fieldColumns() const {
        QSet<int> columns;
        for (const char* const name :
             {"usernameField", "passwordField", "rememberCheckBox", "loginButton", "eventChooser",
              "categoryChooser", "autoCreateCategoriesButton", "pricingChooser", "doResizeButton",
              "resizeWidth", "colorspaceChooser", "qualitySlider"})
            columns.insert(placeOf(control(name)).left());
        return columns;
    }

    void setFontScale(double scale) {
        QFont font = font_;
        font.setPointSizeF(font_.pointSizeF() * scale);
        QApplication::setFont(font);
    }

    RecordingHost host;
    std::shared_ptr<Quillmark> plugIn;
    std::unique_ptr<QDialog> dialog;
    QWidget* view = nullptr;

private:
    const QPalette palette_ = QApplication::palette();
    const QFont font_ = QApplication::font();
};

} // namespace

TEST_F(PanelAppearance, TheFieldsOfAllBoxesStandInOneColumn) {
    QApplication::processEvents();
    ASSERT_EQ(fieldColumns().size(), 1);
    const int column = *fieldColumns().begin();
    setFontScale(1.6);
    ASSERT_TRUE(waitUntil([&] { return !fieldColumns().contains(column); }));
    EXPECT_TRUE(waitUntil([this] { return fieldColumns().size() == 1; }));
}

TEST_F(PanelAppearance, KeepsADistanceFromTheEdgesOfItsHost) {
    const QMargins margins = view->layout()->contentsMargins();
    EXPECT_GE(std::min({margins.left(), margins.top(), margins.right(), margins.bottom()}), 9);
}

TEST_F(PanelAppearance, NothingIsClipped) {
    EXPECT_TRUE(isWhole());
}

TEST_F(PanelAppearance, NothingIsClippedInLargerFonts) {
    for (const double scale : {1.5, 2.0}) {
        setFontScale(scale);
        EXPECT_TRUE(isWhole()) << scale;
    }
}

TEST_F(PanelAppearance, NothingIsClippedWhereWordsAreLonger) {
    TestBundle bundle;
    QFile built(RecordingHost::defaultBundlePath() + QStringLiteral("/Resources/Quillmark.ui"));
    ASSERT_TRUE(built.open(QIODevice::ReadOnly));
    bundle.write(QStringLiteral("Quillmark.ui"), lengthened(built.readAll()));
    openPanel(bundle.path());
    ASSERT_EQ(plugIn->doResizeButton->text(), QStringLiteral("Resize images to &fitmmmmmmmm"));
    EXPECT_TRUE(isWhole());
    EXPECT_EQ(fieldColumns().size(), 1);
}

TEST_F(PanelAppearance, NothingIsClippedWhileListsLoad) {
    plugIn->setHideEventControls(true);
    plugIn->setHidePricingControls(true);
    for (QProgressBar* const bar : view->findChildren<QProgressBar*>())
        bar->show();
    dialog->adjustSize();
    QApplication::processEvents();
    for (const char* const name : {"eventLoadingLabel", "pricingLoadingLabel"})
        EXPECT_GE(control(name)->width(), control(name)->sizeHint().width()) << name;
    for (const QProgressBar* const bar : view->findChildren<QProgressBar*>())
        EXPECT_GE(bar->width(), 60) << nameOf(bar).toStdString();
}

TEST_F(PanelAppearance, LoggingInDoesNotWidenIt) {
    QApplication::processEvents();
    const int width = view->sizeHint().width();
    for (QGroupBox* const box :
         {plugIn->settingsBox.data(), plugIn->eventBox.data(), plugIn->pricingBox.data()})
        box->hide();
    QApplication::processEvents();
    EXPECT_EQ(view->sizeHint().width(), width);
}

TEST_F(PanelAppearance, EveryControlHasAMnemonicOfItsOwn) {
    QSet<QChar> taken;
    for (const QWidget* const widget : controls()) {
        const QChar mnemonic = mnemonicOf(widget);
        EXPECT_TRUE(mnemonic.isLetter()) << nameOf(widget).toStdString();
        EXPECT_FALSE(taken.contains(mnemonic)) << nameOf(widget).toStdString();
        taken.insert(mnemonic);
    }
}

TEST_F(PanelAppearance, EveryMnemonicLeadsToItsControl) {
    QSet<QObject*> clicked;
    for (auto* const button : view->findChildren<QAbstractButton*>())
        QObject::connect(button, &QAbstractButton::clicked, button,
                         [&clicked, button] { clicked.insert(button); });
    for (QWidget* const widget : controls()) {
        const QChar mnemonic = mnemonicOf(widget);
        view->setFocus();
        QTest::keyClick(dialog.get(), static_cast<Qt::Key>(mnemonic.toUpper().unicode()), Qt::AltModifier);
        // A button's label presses it, which takes a moment that can be seen.
        const auto isReached = [&] {
            return qobject_cast<QAbstractButton*>(widget) ? clicked.contains(widget) : widget->hasFocus();
        };
        EXPECT_TRUE(waitUntil(isReached, std::chrono::seconds(5))) << nameOf(widget).toStdString();
        // The resize box and the automatic categories disable others.
        plugIn->updateResizeGUI(true);
        plugIn->categoryChooser->setEnabled(true);
    }
}

TEST_F(PanelAppearance, EveryControlHasAnAccessibleNameOfItsOwn) {
    QSet<QString> taken;
    QList<QWidget*> all = controls();
    for (QProgressBar* const bar : view->findChildren<QProgressBar*>())
        all.append(bar);
    for (QWidget* const widget : all) {
        QAccessibleInterface* const accessible = QAccessible::queryAccessibleInterface(widget);
        ASSERT_NE(accessible, nullptr);
        const QString name = accessible->text(QAccessible::Name);
        EXPECT_FALSE(name.trimmed().isEmpty()) << nameOf(widget).toStdString();
        EXPECT_FALSE(taken.contains(name)) << nameOf(widget).toStdString();
        taken.insert(name);
    }
}

TEST_F(PanelAppearance, TheTabKeyPassesEveryControlInTheOrderOfReading) {
    const QList<QWidget*> expected = controls();
    ASSERT_EQ(expected.first(), plugIn->firstView());
    ASSERT_EQ(expected.last(), plugIn->lastView());
    QList<QWidget*> visited{plugIn->firstView()};
    plugIn->firstView()->setFocus();
    while (visited.size() < expected.size()) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        visited.append(QApplication::focusWidget());
    }
    EXPECT_EQ(visited, expected);
    while (visited.size() > 1) {
        visited.removeLast();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Backtab);
        EXPECT_EQ(QApplication::focusWidget(), visited.last());
    }
    for (qsizetype i = 1; i < expected.size(); ++i) {
        const QRect before = placeOf(expected[i - 1]);
        const QRect after = placeOf(expected[i]);
        EXPECT_TRUE(after.top() > before.bottom() || after.left() > before.right())
            << nameOf(expected[i]).toStdString();
    }
}

TEST_F(PanelAppearance, InADarkPaletteTheChoosersStayLightAsOne) {
    const QList<QComboBox*> choosers = view->findChildren<QComboBox*>();
    ASSERT_EQ(choosers.size(), 4);
    QPalette dark(QColor(50, 52, 56));
    QApplication::setPalette(dark);
    QApplication::processEvents();
    for (const QComboBox* const chooser : choosers) {
        const QPalette& colors = chooser->palette();
        for (const auto background : {QPalette::Base, QPalette::Button}) {
            EXPECT_GT(contrast(colors.color(background), Qt::black), 10) << nameOf(chooser).toStdString();
            EXPECT_EQ(colors.color(background), choosers.first()->palette().color(background));
        }
        EXPECT_EQ(colors.color(QPalette::Text), QColor(Qt::black));
        EXPECT_EQ(colors.color(QPalette::ButtonText), QColor(Qt::black));
        EXPECT_NE(colors.color(QPalette::Disabled, QPalette::Text), colors.color(QPalette::Text));
        EXPECT_NE(colors.color(QPalette::Disabled, QPalette::Base), colors.color(QPalette::Base));
    }
    EXPECT_LT(plugIn->usernameField->palette().color(QPalette::Base).lightness(), 128);

    // What is drawn, too.
    const QImage picture = plugIn->categoryChooser->lineEdit()->grab().toImage();
    EXPECT_GT(picture.pixelColor(picture.width() - 2, picture.height() / 2).lightness(), 200);
}

TEST_F(PanelAppearance, TheChoosersFollowThePaletteBackToLight) {
    const QColor text = plugIn->eventChooser->palette().color(QPalette::Text);
    const QColor base = plugIn->eventChooser->palette().color(QPalette::Base);
    const QPalette light = QApplication::palette();
    QApplication::setPalette(QPalette(QColor(50, 52, 56)));
    QApplication::processEvents();
    ASSERT_NE(plugIn->eventChooser->palette().color(QPalette::Base), base);
    QApplication::setPalette(light);
    QApplication::processEvents();
    EXPECT_EQ(plugIn->eventChooser->palette().color(QPalette::Base), base);
    EXPECT_EQ(plugIn->eventChooser->palette().color(QPalette::Text), text);
    EXPECT_EQ(plugIn->eventChooser->palette().color(QPalette::PlaceholderText), QColor(Qt::black));
}

TEST_F(PanelAppearance, TheWheelChangesOnlyTheControlThatHasTheFocus) {
    plugIn->usernameField->setFocus();
    plugIn->pricingChooser->setCurrentIndex(0);
    EXPECT_FALSE(turnWheel(plugIn->pricingChooser));
    EXPECT_FALSE(turnWheel(plugIn->colorspaceChooser));
    EXPECT_FALSE(turnWheel(plugIn->qualitySlider));
    EXPECT_EQ(plugIn->pricingChooser->currentIndex(), 0);
    EXPECT_EQ(plugIn->colorspaceChooser->currentIndex(), 0);
    EXPECT_EQ(plugIn->imageQuality, 12.0);
    EXPECT_TRUE(plugIn->usernameField->hasFocus());

    plugIn->pricingChooser->setFocus();
    EXPECT_TRUE(turnWheel(plugIn->pricingChooser));
    EXPECT_EQ(plugIn->pricingChooser->currentIndex(), 1);
    plugIn->qualitySlider->setFocus();
    EXPECT_TRUE(turnWheel(plugIn->qualitySlider));
    EXPECT_LT(plugIn->imageQuality, 12.0);
}

TEST_F(PanelAppearance, AChoosersToolTipShowsItsTextWholeAndLiterally) {
    auto record = std::make_shared<Record>();
    record->setText(kNameKey, QStringLiteral("<b>&Smith</b> ") + QString(200, QLatin1Char('W')));
    plugIn->setEventList(std::make_shared<RecordList>(1, record));
    plugIn->eventChooser->setCurrentIndex(0);
    const QPoint middle = plugIn->eventChooser->rect().center();
    QHelpEvent asks(QEvent::ToolTip, middle, plugIn->eventChooser->mapToGlobal(middle));
    QApplication::sendEvent(plugIn->eventChooser, &asks);
    EXPECT_TRUE(QToolTip::isVisible());
    EXPECT_EQ(QTextDocumentFragment::fromHtml(QToolTip::text()).toPlainText(),
              plugIn->eventChooser->currentText());
    QToolTip::hideText();
}

TEST_F(PanelAppearance, ArrowKeysMoveTheQualityByOne) {
    plugIn->qualitySlider->setFocus();
    QTest::keyClick(plugIn->qualitySlider, Qt::Key_Left);
    EXPECT_EQ(plugIn->imageQuality, 11.0);
    EXPECT_EQ(plugIn->qualityValueField->text(), QStringLiteral("11"));
    QTest::keyClick(plugIn->qualitySlider, Qt::Key_PageDown);
    EXPECT_EQ(plugIn->imageQuality, 8.0);
    QTest::keyClick(plugIn->qualitySlider, Qt::Key_Home);
    EXPECT_EQ(plugIn->imageQuality, 0.0);
    QTest::keyClick(plugIn->qualitySlider, Qt::Key_End);
    EXPECT_EQ(plugIn->imageQuality, 12.0);
    EXPECT_EQ(plugIn->qualitySlider->tickInterval(), panel::kQualityScale);
    EXPECT_NE(plugIn->qualitySlider->tickPosition(), QSlider::NoTicks);
}
