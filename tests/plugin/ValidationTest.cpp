// The check of the settings before an export, and the sheet that tells what is missing.

#include "tests/support/RecordingHost.h"

#include <QtCore/QLocale>
#include <QtWidgets/QDialog>
#include <QtWidgets/QVBoxLayout>

#include <gtest/gtest.h>

#include <limits>

using test_support::RecordingHost;

namespace {

class Validation : public testing::Test {
protected:
    Validation() {
        plugIn = host.makePlugIn();
        plugIn->settingsView();
        plugIn->isLoggedIn = true;
        plugIn->hiResUploads = true;
        plugIn->setChosenEventId(QStringLiteral("77"));
        plugIn->setChosenCategory(QStringLiteral("Ceremony"));
    }

    void resizeInto(const QString& width, const QString& height) {
        plugIn->updateResizeGUI(true);
        plugIn->resizeWidth->setText(width);
        plugIn->resizeHeight->setText(height);
    }

    /// Whether validation refuses with exactly this one sheet.
    testing::AssertionResult refuses(const char* message, const char* infoText) {
        const std::size_t before = host.alerts().size();
        if (plugIn->validateSettings())
            return testing::AssertionFailure() << "all rules passed";
        if (host.alerts().size() != before + 1)
            return testing::AssertionFailure() << host.alerts().size() - before << " alerts";
        const auto shown = host.alerts().back();
        if (!shown.isSheet || shown.alert.style != hostapi::AlertStyle::Warning)
            return testing::AssertionFailure() << "not a sheet in warning style";
        if (shown.alert.message != QLatin1String(message) ||
            shown.alert.informativeText != QLatin1String(infoText))
            return testing::AssertionFailure()
                   << shown.alert.message.toStdString() << ": "
                   << shown.alert.informativeText.value_or(QString()).toStdString();
        return testing::AssertionSuccess();
    }

    testing::AssertionResult refusesWidth(const QString& width) {
        resizeInto(width, QStringLiteral("1280"));
        return refuses("Resize width is not valid", "Please enter a valid integer for the maximum width.");
    }

    testing::AssertionResult passes() {
        const std::size_t before = host.alerts().size();
        if (!plugIn->validateSettings() || host.alerts().size() != before)
            return testing::AssertionFailure() << host.alerts().back().alert.message.toStdString();
        return testing::AssertionSuccess();
    }

    RecordingHost host;
    std::shared_ptr<Quillmark> plugIn;
};

} // namespace

TEST_F(Validation, AsksToLogInFirst) {
    plugIn->isLoggedIn = false;
    EXPECT_TRUE(refuses("Please log in first", "You must be logged in before attempting to export."));
}

TEST_F(Validation, LoggedOutWithNothingChosenShowsTheFirstAlertAlone) {
    plugIn->isLoggedIn = false;
    plugIn->setChosenEventId(std::nullopt);
    plugIn->setChosenCategory(std::nullopt);
    resizeInto(QStringLiteral("x"), QStringLiteral("y"));
    EXPECT_TRUE(refuses("Please log in first", "You must be logged in before attempting to export."));
}

TEST_F(Validation, WidthMustBeAnInteger) {
    for (const char* const text : {"", " ", "wide", "1280.5", "1280.0", "1,280", " 1280 ", "1e4", "+1280"})
        EXPECT_TRUE(refusesWidth(QString::fromUtf8(text))) << '"' << text << '"';
}

TEST_F(Validation, OfANumberBeyond32BitsTheLow32BitsCount) {
    resizeInto(QStringLiteral("4294968576"), QStringLiteral("2147483647"));
    EXPECT_TRUE(passes());
    EXPECT_EQ(plugIn->maxWidthValue, 1280);
    EXPECT_EQ(plugIn->maxHeightValue, std::numeric_limits<std::int32_t>::max());
    for (const char* const text : {"2147483648", "4294967296", "99999999999999999999999999"}) {
        resizeInto(QString::fromLatin1(text), QStringLiteral("1280"));
        EXPECT_TRUE(
            refuses("Resize width is not valid", "Please enter a maximum width of at least 1280 pixels"))
            << text;
    }
}

TEST_F(Validation, TheUsersOwnDigitsAreTaken) {
    const QLocale before;
    QLocale::setDefault(QLocale(QLocale::Hindi));
    resizeInto(QStringLiteral("१६००"), QStringLiteral("१२८०"));
    EXPECT_TRUE(passes());
    QLocale::setDefault(before);
    EXPECT_EQ(plugIn->maxWidthValue, 1600);
    EXPECT_EQ(plugIn->maxHeightValue, 1280);
}

TEST_F(Validation, HeightMustBeAnInteger) {
    for (const char* const text : {"", "high", "1280.5"}) {
        resizeInto(QStringLiteral("1280"), QString::fromLatin1(text));
        EXPECT_TRUE(
            refuses("Resize height is not valid", "Please enter a valid integer for the maximum height."))
            << text;
    }
}

TEST_F(Validation, WidthMustBeAtLeast1280) {
    for (const char* const text : {"1279", "0", "-1280", "-2147483648"}) {
        resizeInto(QString::fromLatin1(text), QStringLiteral("1280"));
        EXPECT_TRUE(
            refuses("Resize width is not valid", "Please enter a maximum width of at least 1280 pixels"))
            << text;
    }
}

TEST_F(Validation, HeightMustBeAtLeast1280) {
    for (const char* const text : {"1279", "0", "-1280"}) {
        resizeInto(QStringLiteral("1280"), QString::fromLatin1(text));
        EXPECT_TRUE(
            refuses("Resize height is not valid", "Please enter a maximum height of at least 1280 pixels."))
            << text;
    }
}

TEST_F(Validation, ASizeOf1280By1280Passes) {
    resizeInto(QStringLiteral("1280"), QStringLiteral("1280"));
    EXPECT_TRUE(passes());
    EXPECT_EQ(plugIn->maxWidthValue, 1280);
    EXPECT_EQ(plugIn->maxHeightValue, 1280);
}

TEST_F(Validation, TheEnteredSizesBecomeTheBox) {
    resizeInto(QStringLiteral("4000"), QStringLiteral("3000"));
    EXPECT_TRUE(passes());
    EXPECT_EQ(plugIn->maxWidthValue, 4000);
    EXPECT_EQ(plugIn->maxHeightValue, 3000);
}

TEST_F(Validation, AWidthThatIsNoNumberComesBeforeAnEmptyHeight) {
    resizeInto(QStringLiteral("wide"), QString());
    EXPECT_TRUE(refuses("Resize width is not valid", "Please enter a valid integer for the maximum width."));
}

TEST_F(Validation, AHeightThatIsNoNumberComesBeforeASmallWidth) {
    resizeInto(QStringLiteral("900"), QStringLiteral("high"));
    EXPECT_TRUE(
        refuses("Resize height is not valid", "Please enter a valid integer for the maximum height."));
}

TEST_F(Validation, ASmallWidthComesBeforeASmallHeight) {
    resizeInto(QStringLiteral("900"), QStringLiteral("900"));
    EXPECT_TRUE(refuses("Resize width is not valid", "Please enter a maximum width of at least 1280 pixels"));
}

TEST_F(Validation, ARefusedSizeLeavesTheBoxAsItWas) {
    resizeInto(QStringLiteral("4000"), QStringLiteral("3000"));
    ASSERT_TRUE(passes());
    resizeInto(QStringLiteral("5000"), QStringLiteral("900"));
    EXPECT_FALSE(plugIn->validateSettings());
    EXPECT_EQ(plugIn->maxWidthValue, 4000);
    EXPECT_EQ(plugIn->maxHeightValue, 3000);
}

TEST_F(Validation, WithoutResizingTheSizesAreNotReadAndTheBoxIs1280) {
    plugIn->updateResizeGUI(false);
    plugIn->resizeWidth->setText(QStringLiteral("wide"));
    plugIn->resizeHeight->setText(QString());
    plugIn->maxWidthValue = 4000;
    plugIn->maxHeightValue = 3000;
    EXPECT_TRUE(passes());
    EXPECT_EQ(plugIn->maxWidthValue, 1280);
    EXPECT_EQ(plugIn->maxHeightValue, 1280);
}

TEST_F(Validation, AsksForAnEvent) {
    plugIn->setChosenEventId(std::nullopt);
    plugIn->setChosenCategory(std::nullopt);
    EXPECT_TRUE(refuses("Please select an event", "You must choose an event before attempting to export."));
}

TEST_F(Validation, AsksForACategory) {
    plugIn->setChosenCategory(std::nullopt);
    EXPECT_TRUE(
        refuses("Please select a category",
                "You must either select a category or choose to generate categories automatically, before "
                "attempting to export."));
}

TEST_F(Validation, TheBoxIsStoredEvenWhereTheEventIsMissing) {
    plugIn->setChosenEventId(std::nullopt);
    resizeInto(QStringLiteral("4000"), QStringLiteral("3000"));
    EXPECT_FALSE(plugIn->validateSettings());
    EXPECT_EQ(plugIn->maxWidthValue, 4000);
    EXPECT_EQ(plugIn->maxHeightValue, 3000);
}

TEST_F(Validation, TheBoxIsStoredEvenWhereTheCategoryIsMissing) {
    plugIn->setChosenCategory(std::nullopt);
    plugIn->updateResizeGUI(false);
    EXPECT_FALSE(plugIn->validateSettings());
    EXPECT_EQ(plugIn->maxWidthValue, 1280);
    EXPECT_EQ(plugIn->maxHeightValue, 1280);
}

TEST_F(Validation, AutomaticCategoriesNeedNoCategory) {
    plugIn->setChosenCategory(std::nullopt);
    plugIn->setAutoCreateCategories(true);
    EXPECT_TRUE(passes());
}

TEST_F(Validation, ATypedCategoryThatIsNotInTheListPasses) {
    plugIn->setChosenCategory(std::nullopt);
    plugIn->categoryChooser->setEditText(QStringLiteral("Brand New"));
    EXPECT_TRUE(passes());
}

TEST_F(Validation, NoPricingTemplateIsNeeded) {
    ASSERT_FALSE(plugIn->chosenPricingId().has_value());
    EXPECT_TRUE(passes());
}

TEST_F(Validation, TheSheetIsAttachedToTheWindowThatHoldsTheView) {
    QDialog dialog;
    auto* const layout = new QVBoxLayout(&dialog);
    layout->addWidget(plugIn->settingsView());
    plugIn->isLoggedIn = false;
    EXPECT_FALSE(plugIn->validateSettings());
    ASSERT_EQ(host.alerts().size(), 1U);
    EXPECT_EQ(host.alerts().front().window, &dialog);
}
