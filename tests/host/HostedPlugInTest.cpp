#include "host/core/HostedPlugIn.h"
#include "host/core/MemoryStores.h"
#include "tests/host/FakePlugInScript.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>

using namespace host;

TEST(HostedPlugIn, IsNotMadeWhileAnImageOfAnEndedExportMayStillWriteIntoItsFolder) {
    const FakePlugInScript script("slow-images");
    const std::vector<ExportedImage> images{
        {script.file(QStringLiteral("a.tif")), QStringLiteral("a.tif"), {}}};
    QString error;
    const auto make = [&images, &error] {
        Services services;
        services.defaultsStore = std::make_shared<MemoryDefaultsStore>();
        return HostedPlugIn::make(FakePlugInScript::bundlePath(), services, images, {}, error);
    };
    auto first = make();
    ASSERT_TRUE(first) << error.toStdString();
    first->settingsView();
    ASSERT_TRUE(first->activate(error)) << error.toStdString();
    first->beginImages(images);
    const auto isAtIt = [&script] { return !script.log().filter(QStringLiteral("shouldWrite")).isEmpty(); };
    ASSERT_TRUE(test_support::waitUntil(isAtIt));
    first->cancel();
    first->end();
    // As a host does whose patience has ended.
    first.reset();
    EXPECT_FALSE(make());
    EXPECT_EQ(error.toStdString(),
              "A photograph of the export before is still being read. Try again in a moment.");
    EXPECT_TRUE(test_support::waitUntil([&make] { return make() != nullptr; }));
}
