// The principal class's fields: which there are, and in which order they are declared.

#include "tests/support/RecordingHost.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

// What is counted or encoded in a width of its own.
static_assert(sizeof(Quillmark::totalBytes) == 8);
static_assert(sizeof(Quillmark::maxWidthValue) == 4);
static_assert(sizeof(Quillmark::maxHeightValue) == 4);
static_assert(sizeof(Quillmark::numUploaded) == 4);
static_assert(sizeof(Quillmark::imageQuality) == 8);

namespace {

struct Field {
    const char* name;
    const void* address;
};

#define FIELD(name)                                                                                          \
    Field {                                                                                                  \
#name, std::addressof(plugIn.name)                                                                   \
    }

std::vector<Field> fieldsOf(const Quillmark& plugIn) {
    return {
        FIELD(_apiManager),
        FIELD(_exportManager),
        FIELD(_progressLock),
        FIELD(_topLevelNibObjects),
        FIELD(exportProgress),
        FIELD(settingsView_),
        FIELD(progressView),
        FIELD(firstView_),
        FIELD(lastView_),
        FIELD(progressWindow),
        FIELD(mainBundle),
        FIELD(progressBarTimer),
        FIELD(_username),
        FIELD(_password),
        FIELD(exportedImagePaths),
        FIELD(tempDirectoryPath),
        FIELD(remoteDirectoryContents),
        FIELD(loginDetails),
        FIELD(eventList_),
        FIELD(categoryList_),
        FIELD(pricingList_),
        FIELD(colorspaceList),
        FIELD(selectedColorspace),
        FIELD(chosenEvent_),
        FIELD(chosenCategory_),
        FIELD(currentCategoryFolder),
        FIELD(exportFTPFolders),
        FIELD(progressBar),
        FIELD(progressMessage),
        FIELD(ftpPaths),
        FIELD(chosenEventId_),
        FIELD(chosenPricingId_),
        FIELD(usernameField),
        FIELD(loggedInStatusLabel),
        FIELD(passwordField),
        FIELD(loginProgress),
        FIELD(loginButton),
        FIELD(rememberCheckBox),
        FIELD(eventBox),
        FIELD(settingsBox),
        FIELD(pricingBox),
        FIELD(eventChooser),
        FIELD(pricingChooser),
        FIELD(categoryChooser),
        FIELD(colorspaceChooser),
        FIELD(doResizeButton),
        FIELD(resizeWidth),
        FIELD(resizeHeight),
        FIELD(validationMessage),
        FIELD(qualitySlider),
        FIELD(qualityValueField),
        FIELD(imageQuality),
        FIELD(hideEventControls_),
        FIELD(hidePricingControls_),
        FIELD(autoCreateCategories_),
        FIELD(isLoggedIn),
        FIELD(doResizeImages_),
        FIELD(hiResUploads),
        FIELD(shouldCancelExport_),
        FIELD(eventLoadingProgress),
        FIELD(pricingLoadingProgress),
        FIELD(totalBytes),
        FIELD(_exportPath),
        FIELD(uploadStartTime),
        FIELD(maxWidthValue),
        FIELD(maxHeightValue),
        FIELD(numUploaded),
        FIELD(threadLaunched_),
        FIELD(finishThreadRef),
        FIELD(loginThreadRef),
        FIELD(eventThreadRef),
    };
}

#undef FIELD

} // namespace

TEST(Fields, StandInTheirOrder) {
    test_support::RecordingHost host;
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    const auto fields = fieldsOf(*plugIn);
    ASSERT_EQ(fields.size(), 71U);
    for (std::size_t i = 1; i < fields.size(); ++i)
        EXPECT_LT(fields[i - 1].address, fields[i].address)
            << fields[i - 1].name << " before " << fields[i].name;
}
