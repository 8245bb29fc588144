#include "host/cli/Options.h"

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

using namespace host::cli;

namespace {

std::variant<Options, UsageError> parsed(std::vector<QByteArray> arguments) {
    return parseOptions(arguments);
}

Options options(std::vector<QByteArray> arguments) {
    auto result = parseOptions(arguments);
    if (const auto* error = std::get_if<UsageError>(&result)) {
        ADD_FAILURE() << error->message.toStdString();
        return {};
    }
    return std::get<Options>(result);
}

std::string refusal(std::vector<QByteArray> arguments) {
    const auto result = parseOptions(arguments);
    const auto* error = std::get_if<UsageError>(&result);
    return error ? error->message.toStdString() : std::string();
}

} // namespace

TEST(Options, TakeAValueAsTheNextArgumentOrBehindAnEqualsSign) {
    EXPECT_EQ(options({"--user", "ann", "a.tif"}).user, QStringLiteral("ann"));
    EXPECT_EQ(options({"--user=a=b", "a.tif"}).user, QStringLiteral("a=b"));
}

TEST(Options, StandBeforeBetweenAndBehindImages) {
    const Options o = options({"a.tif", "--json", "b.tif", "--quality", "9"});
    EXPECT_EQ(o.images, (std::vector<QByteArray>{"a.tif", "b.tif"}));
    EXPECT_TRUE(o.json);
    EXPECT_EQ(o.quality, 9);
}

TEST(Options, TakeFurtherImagesFromAFile) {
    const QTemporaryDir folder;
    QFile list(folder.filePath(QStringLiteral("list")));
    ASSERT_TRUE(list.open(QIODevice::WriteOnly));
    list.write("--b.tif\0c\n.tif\0", 15);
    list.close();
    const QByteArray option = "--files0-from=" + QFile::encodeName(list.fileName());
    EXPECT_EQ(options({"a.tif", option, "d.tif"}).images,
              (std::vector<QByteArray>{"a.tif", "--b.tif", "c\n.tif", "d.tif"}));
    EXPECT_EQ(refusal({"--resume", option}), "--resume takes no images: it exports those that are left");
    EXPECT_EQ(refusal({"--files0-from", "/no/such", "--json"}),
              "the images of /no/such can't be read: No such file or directory");
}

TEST(Options, EndAtTwoHyphens) {
    const Options o = options({"--quiet", "--", "--json", "--"});
    EXPECT_EQ(o.images, (std::vector<QByteArray>{"--json", "--"}));
    EXPECT_FALSE(o.json);
}

TEST(Options, AreAllUnderstood) {
    const Options o = options({"--user",
                               "ann",
                               "--password-file",
                               "-",
                               "--remember",
                               "--ephemeral",
                               "--event",
                               "77",
                               "--category",
                               "Ceremony",
                               "--auto-categories",
                               "--project",
                               "Shoot",
                               "--pricing",
                               "5",
                               "--resize",
                               "2560x1440",
                               "--quality",
                               "0",
                               "--colorspace",
                               "prophoto",
                               "--json",
                               "--quiet",
                               "--plugin",
                               "/p",
                               "x.jpg"});
    EXPECT_EQ(o.passwordFile, QByteArray("-"));
    EXPECT_TRUE(o.remember && o.ephemeral && o.autoCategories && o.json && o.quiet);
    EXPECT_EQ(o.event, QStringLiteral("77"));
    EXPECT_EQ(o.category, QStringLiteral("Ceremony"));
    EXPECT_EQ(o.project, QStringLiteral("Shoot"));
    EXPECT_EQ(o.pricing, QStringLiteral("5"));
    ASSERT_TRUE(o.resize);
    EXPECT_EQ(o.resize->width, QStringLiteral("2560"));
    EXPECT_EQ(o.resize->height, QStringLiteral("1440"));
    EXPECT_EQ(o.quality, 0);
    EXPECT_EQ(o.colorspace, ColorSpaceChoice::ProPhotoRGB);
    EXPECT_EQ(o.plugin, QByteArray("/p"));
}

TEST(Options, ReadTheColourSpacesByName) {
    EXPECT_EQ(options({"--colorspace=srgb", "x"}).colorspace, ColorSpaceChoice::SRGB);
    EXPECT_EQ(options({"--colorspace=adobe-rgb", "x"}).colorspace, ColorSpaceChoice::AdobeRGB);
    EXPECT_EQ(refusal({"--colorspace=cmyk", "x"}),
              "--colorspace takes srgb, adobe-rgb or prophoto, not \"cmyk\"");
}

TEST(Options, RefuseUnknownOptions) {
    EXPECT_EQ(refusal({"--colour", "x"}), "there is no option \"--colour\"");
    EXPECT_EQ(refusal({"-q", "x"}), "there is no option \"-q\"");
}

TEST(Options, RefuseMissingEmptyAndUnwantedValues) {
    EXPECT_EQ(refusal({"x", "--user"}), "--user needs a value");
    EXPECT_EQ(refusal({"x", "--user="}), "--user needs a value");
    EXPECT_EQ(refusal({"x", "--json=yes"}), "--json takes no value");
}

TEST(Options, RefuseQualitiesOffTheScale) {
    for (const char* quality : {"13", "-1", "best", "9.5", ""})
        EXPECT_NE(refusal({QByteArray("--quality=") + quality, "x"}), "") << quality;
}

TEST(Options, RefuseAResizeBoxThatIsNoBox) {
    for (const char* box : {"1280", "1280x", "x1280", "1280*1280", "-5x1280", "1280x1280x3", "12.5x1280"})
        EXPECT_NE(refusal({QByteArray("--resize=") + box, "x"}), "") << box;
}

TEST(Options, LeaveTheSmallestBoxToThePlugIn) {
    EXPECT_TRUE(options({"--resize=10x10", "x"}).resize);
}

TEST(Options, RefuseTextsThatAreNotUTF8ButTakeSuchFileNames) {
    EXPECT_NE(refusal({"--event", "\xff\xfe", "x"}), "");
    EXPECT_EQ(options({"\xff.jpg"}).images, (std::vector<QByteArray>{"\xff.jpg"}));
}

TEST(Options, EphemeralNeedsUser) {
    EXPECT_EQ(refusal({"--ephemeral", "x"}), "--ephemeral needs --user");
}

TEST(Options, WantImagesUnlessTheyList) {
    EXPECT_NE(refusal({}), "");
    EXPECT_NE(refusal({"--list", "x.jpg"}), "");
    EXPECT_TRUE(options({"--list"}).list);
    EXPECT_TRUE(options({"--help"}).help);
    EXPECT_TRUE(options({"--version"}).version);
}

TEST(Options, ResumeNeedsNoImagesAndTakesNoChoices) {
    EXPECT_TRUE(options({"--resume"}).resume);
    EXPECT_EQ(options({"--resume", "--user=ann", "--event=77"}).event, QStringLiteral("77"));
    for (const char* other : {"x.jpg", "--list", "--category=c", "--auto-categories", "--project=p",
                              "--pricing=5", "--resize=1280x1280", "--quality=12", "--colorspace=srgb"})
        EXPECT_NE(refusal({"--resume", other}), "") << other;
    EXPECT_NE(refusal({"--resume", "--ephemeral", "--user=ann"}), "");
}

TEST(Options, LastOneCounts) {
    EXPECT_EQ(options({"--event=1", "--event=2", "x"}).event, QStringLiteral("2"));
}

TEST(Options, AFaultIsToldAsJSONWhereverJSONIsAskedFor) {
    const auto isJSON = [](std::vector<QByteArray> arguments) {
        const auto result = parsed(std::move(arguments));
        return std::get<UsageError>(result).json;
    };
    EXPECT_TRUE(isJSON({"--json", "--bogus"}));
    EXPECT_TRUE(isJSON({"--bogus", "--json"}));
    EXPECT_FALSE(isJSON({"--bogus", "--", "--json"}));
}
