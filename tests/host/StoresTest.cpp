#include "host/core/AccountDefaults.h"
#include "host/core/MemoryStores.h"

#include "platform/Secret.h"
#include "platform/UserDefaults.h"

#include <gtest/gtest.h>

using host::AccountDefaults;
using host::MemoryCredentialStore;
using host::MemoryDefaultsStore;
using platform::UserDefaults;

namespace {

constexpr QLatin1String kName{"quillmarkUsername"};
constexpr QLatin1String kSaved{"savedKeyChain"};
constexpr QLatin1String kRemember{"rememberDetails"};

hostapi::InternetPassword attributesOf(const char* account) {
    hostapi::InternetPassword attributes;
    attributes.server = "www.quillmark.example";
    attributes.account = account;
    attributes.path = "instantupload";
    return attributes;
}

class RememberedLogin : public testing::Test {
protected:
    void SetUp() override {
        UserDefaults::setValue(kName, QStringLiteral("ann"));
        UserDefaults::setValue(kSaved, true);
        UserDefaults::setValue(kRemember, true);
    }
    void TearDown() override {
        for (const auto& key : {kName, kSaved, kRemember})
            UserDefaults::remove(key);
    }
};

} // namespace

TEST(MemoryCredentials, StartEmptyAndFindWhatWasAdded) {
    MemoryCredentialStore store;
    QByteArray password;
    EXPECT_EQ(store.findInternetPassword(attributesOf("ann"), &password, nullptr),
              hostapi::kCredentialItemNotFound);
    EXPECT_EQ(store.addInternetPassword(attributesOf("ann"), "secret", nullptr), hostapi::kCredentialSuccess);
    EXPECT_EQ(store.findInternetPassword(attributesOf("ann"), &password, nullptr),
              hostapi::kCredentialSuccess);
    EXPECT_EQ(password, "secret");
    EXPECT_EQ(store.findInternetPassword(attributesOf("ben"), &password, nullptr),
              hostapi::kCredentialItemNotFound);
}

TEST(MemoryCredentials, TakeAllAttributesIntoAccount) {
    MemoryCredentialStore store;
    ASSERT_EQ(store.addInternetPassword(attributesOf("ann"), "secret", nullptr), hostapi::kCredentialSuccess);
    auto otherPort = attributesOf("ann");
    otherPort.port = 443;
    EXPECT_EQ(store.findInternetPassword(otherPort, nullptr, nullptr), hostapi::kCredentialItemNotFound);
    EXPECT_EQ(store.addInternetPassword(otherPort, "another", nullptr), hostapi::kCredentialSuccess);
}

TEST(MemoryCredentials, RefuseASecondItemOfTheSameAttributes) {
    MemoryCredentialStore store;
    ASSERT_EQ(store.addInternetPassword(attributesOf("ann"), "secret", nullptr), hostapi::kCredentialSuccess);
    EXPECT_EQ(store.addInternetPassword(attributesOf("ann"), "another", nullptr),
              hostapi::kCredentialDuplicateItem);
}

TEST(MemoryCredentials, ChangeAnItemInPlace) {
    MemoryCredentialStore store;
    std::shared_ptr<hostapi::CredentialItem> item;
    ASSERT_EQ(store.addInternetPassword(attributesOf("ann"), "secret", &item), hostapi::kCredentialSuccess);
    EXPECT_EQ(store.modifyItem(*item, "ann", "changed"), hostapi::kCredentialSuccess);
    QByteArray password;
    EXPECT_EQ(store.findInternetPassword(attributesOf("ann"), &password, nullptr),
              hostapi::kCredentialSuccess);
    EXPECT_EQ(password, "changed");
}

TEST(MemoryCredentials, KeepThePasswordWhenTheOneWhoBroughtOrFetchedItWipesIt) {
    MemoryCredentialStore store;
    QByteArray brought("secret");
    ASSERT_EQ(store.addInternetPassword(attributesOf("ann"), brought, nullptr), hostapi::kCredentialSuccess);
    platform::wipe(brought);
    for (int i = 0; i < 2; ++i) {
        QByteArray fetched;
        ASSERT_EQ(store.findInternetPassword(attributesOf("ann"), &fetched, nullptr),
                  hostapi::kCredentialSuccess);
        EXPECT_EQ(fetched, "secret");
        platform::wipe(fetched);
    }
}

TEST(MemoryCredentials, DoNotKnowItemsOfAnotherStore) {
    MemoryCredentialStore store;
    MemoryCredentialStore other;
    std::shared_ptr<hostapi::CredentialItem> item;
    ASSERT_EQ(other.addInternetPassword(attributesOf("ann"), "secret", &item), hostapi::kCredentialSuccess);
    EXPECT_EQ(store.modifyItem(*item, "ann", "changed"), hostapi::kCredentialItemNotFound);
}

TEST(MemoryDefaults, StartEmptyAndForgetWhatIsRemoved) {
    MemoryDefaultsStore store;
    EXPECT_FALSE(store.value(kName).isValid());
    store.setValue(kName, QStringLiteral("ann"));
    EXPECT_EQ(store.value(kName).toString(), QStringLiteral("ann"));
    store.remove(kName);
    EXPECT_FALSE(store.value(kName).isValid());
    EXPECT_FALSE(UserDefaults::value(kName).isValid());
}

TEST_F(RememberedLogin, IsSeenWithoutANamedAccount) {
    AccountDefaults defaults(std::nullopt, false);
    EXPECT_EQ(defaults.value(kName).toString(), QStringLiteral("ann"));
    EXPECT_TRUE(defaults.value(kSaved).toBool());
}

TEST_F(RememberedLogin, IsSeenByItsOwnAccount) {
    AccountDefaults defaults(QStringLiteral("ann"), false);
    EXPECT_EQ(defaults.value(kName).toString(), QStringLiteral("ann"));
    EXPECT_TRUE(defaults.value(kSaved).toBool());
}

TEST_F(RememberedLogin, IsHiddenFromAnotherAccount) {
    AccountDefaults defaults(QStringLiteral("Ann"), false);
    EXPECT_FALSE(defaults.value(kName).isValid());
    EXPECT_FALSE(defaults.value(kSaved).isValid());
    EXPECT_TRUE(defaults.value(kRemember).toBool());
    EXPECT_EQ(UserDefaults::value(kName).toString(), QStringLiteral("ann"));
}

TEST_F(RememberedLogin, GivesWayToAPasswordThatTheRunBrings) {
    AccountDefaults defaults(std::nullopt, true);
    EXPECT_EQ(defaults.value(kName).toString(), QStringLiteral("ann"));
    EXPECT_FALSE(defaults.value(kSaved).isValid());
}

TEST_F(RememberedLogin, IsReplacedByTheOneThatThePlugInStores) {
    AccountDefaults defaults(QStringLiteral("ben"), true);
    defaults.setValue(kName, QStringLiteral("ben"));
    EXPECT_EQ(defaults.value(kName).toString(), QStringLiteral("ben"));
    EXPECT_EQ(UserDefaults::value(kName).toString(), QStringLiteral("ben"));
}
