#include "framework/core/Ref.h"
#include "framework/services/SecurityServices.h"
#include "ShellCommand.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

using namespace KVX;
using SecurityTest::ShellCommand;

namespace {

constexpr const char* kSchemaName = "com.belvane.sorvel.Login";

/// One item as `secret-tool search --all` describes it: its attributes by name.
using ItemAttributes = std::map<std::string, std::string>;

/// The items of the Secret Service that carry the given attributes ("target 'x' user 'y'"), read
/// with secret-tool. It prints each item's path in brackets, then "attribute.<name> = <value>"
/// lines (on its error stream, hence the merge); it leaves out the schema attribute.
std::vector<ItemAttributes> itemsInService(const std::string& attributes)
{
    auto command = ShellCommand::run("secret-tool search --all " + attributes + " 2>&1");
    std::vector<ItemAttributes> items;
    std::istringstream lines(command.output);
    std::string line;
    const std::string prefix = "attribute.";
    while (std::getline(lines, line))
    {
        if (line.starts_with("["))
            items.emplace_back();
        else if (line.starts_with(prefix) && !items.empty())
        {
            auto separator = line.find(" = ");
            if (separator != std::string::npos)
            {
                std::string name = line.substr(prefix.size(), separator - prefix.size());
                items.back()[name] = line.substr(separator + 3);
            }
        }
    }
    return items;
}

/// The password that secret-tool finds for the given attributes ("target 'x' user 'y'").
ShellCommand passwordInService(const std::string& attributes)
{
    return ShellCommand::run("secret-tool lookup " + attributes);
}

Ref<ICredential> lookUp(const char* target)
{
    ICredential* credential = nullptr;
    EXPECT_EQ(GetCredentialManager()->lookup(target, &credential), kResultOk) << target;
    return Ref<ICredential>::adopt(credential);
}

/// These tests write to a Secret Service. Only the private one that with-keyring.sh starts in a
/// temporary home may be used, never the keyring of whoever runs the tests.
class CredentialStore : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const char* privateHome = std::getenv("SORVEL_PRIVATE_KEYRING");
        ASSERT_TRUE(privateHome && *privateHome) << "run this test through tests/security/with-keyring.sh";
        const char* home = std::getenv("HOME");
        ASSERT_STREQ(home, privateHome);
    }
};

/// These tests run where no Secret Service can be reached: CTest points the session bus address
/// at a socket that does not exist and the home folders into the build tree.
class CredentialStoreWithoutService : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(std::getenv("SORVEL_NO_SECRET_SERVICE"))
            << "run this test through CTest, which sets up an environment without a Secret Service";
    }
};

/// Every file below `folder` with its size, to show that nothing was written there.
std::map<std::string, std::uintmax_t> filesBelow(const std::filesystem::path& folder)
{
    std::map<std::string, std::uintmax_t> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
        files[entry.path().string()] = entry.is_regular_file() ? entry.file_size() : 0;
    return files;
}

} // namespace

TEST_F(CredentialStore, KeepsTheLoginInTheSecretServiceUnderTargetAndUser)
{
    const char* password = "P\xC3\xA4ssw\xC3\xB6rd\xE2\x82\xAC with spaces";
    ASSERT_EQ(GetCredentialManager()->store("shop.example.com", "alice@example.com", password), kResultOk);

    auto byTarget = passwordInService("target shop.example.com");
    EXPECT_EQ(byTarget.exitStatus, 0);
    EXPECT_EQ(byTarget.output, password);
    auto byTargetAndUser = passwordInService("target shop.example.com user alice@example.com");
    EXPECT_EQ(byTargetAndUser.output, password);

    auto items = itemsInService("target shop.example.com");
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0]["target"], "shop.example.com");
    EXPECT_EQ(items[0]["user"], "alice@example.com");
    auto ofSchema = itemsInService(std::string("xdg:schema ") + kSchemaName + " target shop.example.com");
    EXPECT_EQ(ofSchema.size(), 1u);

    auto credential = lookUp("shop.example.com");
    ASSERT_TRUE(credential);
    EXPECT_STREQ(credential->getUserName(), "alice@example.com");
    EXPECT_STREQ(credential->getPassword(), password);
    void* asked = nullptr;
    ASSERT_EQ(credential->queryInterface(ICredential::kIID, &asked), kResultOk);
    EXPECT_EQ(asked, credential.get());
    credential->release();

    // An empty password is still a password.
    ASSERT_EQ(GetCredentialManager()->store("empty.example.com", "nobody", ""), kResultOk);
    auto empty = lookUp("empty.example.com");
    ASSERT_TRUE(empty);
    EXPECT_STREQ(empty->getUserName(), "nobody");
    EXPECT_STREQ(empty->getPassword(), "");
}

TEST_F(CredentialStore, StoringAgainReplacesTheEarlierLoginOfThatTargetOnly)
{
    ICredentialManager* manager = GetCredentialManager();
    ASSERT_EQ(manager->store("other.example.com", "carol", "carol's secret"), kResultOk);
    ASSERT_EQ(manager->store("music.example.com", "alice", "first secret"), kResultOk);
    auto first = lookUp("music.example.com");
    ASSERT_TRUE(first);

    ASSERT_EQ(manager->store("music.example.com", "bob", "second secret"), kResultOk);
    auto items = itemsInService("target music.example.com");
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0]["user"], "bob");
    EXPECT_EQ(passwordInService("target music.example.com").output, "second secret");
    EXPECT_NE(passwordInService("target music.example.com user alice").exitStatus, 0);
    auto second = lookUp("music.example.com");
    ASSERT_TRUE(second);
    EXPECT_STREQ(second->getUserName(), "bob");
    EXPECT_STREQ(second->getPassword(), "second secret");

    // A credential read earlier keeps its own values.
    EXPECT_STREQ(first->getUserName(), "alice");
    EXPECT_STREQ(first->getPassword(), "first secret");

    // The same user again changes the password in place.
    ASSERT_EQ(manager->store("music.example.com", "bob", "third secret"), kResultOk);
    EXPECT_EQ(itemsInService("target music.example.com").size(), 1u);
    auto third = lookUp("music.example.com");
    ASSERT_TRUE(third);
    EXPECT_STREQ(third->getUserName(), "bob");
    EXPECT_STREQ(third->getPassword(), "third secret");

    // The other target was left alone.
    auto other = itemsInService("target other.example.com");
    ASSERT_EQ(other.size(), 1u);
    EXPECT_EQ(other[0]["user"], "carol");
    EXPECT_EQ(passwordInService("target other.example.com").output, "carol's secret");
}

TEST_F(CredentialStore, FindsNothingForATargetWithoutEntry)
{
    ASSERT_EQ(GetCredentialManager()->store("catalogue.example.com", "dave", "dave's secret"), kResultOk);
    auto stored = lookUp("catalogue.example.com");
    ASSERT_TRUE(stored);
    // Targets match exactly: neither a part of a stored target nor a longer one finds it.
    for (const char* target : {"nothing.example.com", "catalogue.example", "www.catalogue.example.com"})
    {
        ICredential* credential = stored.get(); // a lookup that finds nothing must clear it
        EXPECT_EQ(GetCredentialManager()->lookup(target, &credential), kResultOk) << target;
        EXPECT_EQ(credential, nullptr) << target;
    }
}

TEST_F(CredentialStore, RemovingATargetForgetsEveryLoginOfItAndNothingElse)
{
    ICredentialManager* manager = GetCredentialManager();
    ASSERT_EQ(manager->store("forget.example.com", "erin", "erin's secret"), kResultOk);
    ASSERT_EQ(manager->store("keep.example.com", "frank", "frank's secret"), kResultOk);
    ASSERT_EQ(manager->remove("forget.example.com"), kResultOk);
    EXPECT_TRUE(itemsInService("target forget.example.com").empty());
    EXPECT_FALSE(lookUp("forget.example.com"));
    EXPECT_EQ(passwordInService("target keep.example.com").output, "frank's secret");
    // Nothing stored: still done. No target: refused.
    EXPECT_EQ(manager->remove("forget.example.com"), kResultOk);
    EXPECT_EQ(manager->remove(""), kInvalidArgument);
    EXPECT_EQ(manager->remove(nullptr), kInvalidArgument);
}

TEST_F(CredentialStoreWithoutService, ChecksTheArgumentsBeforeReachingForTheStore)
{
    ICredentialManager* manager = GetCredentialManager();
    const char* invalidUtf8 = "caf\xC3";
    EXPECT_EQ(manager->store("", "user", "secret"), kInvalidArgument);
    EXPECT_EQ(manager->store(nullptr, "user", "secret"), kInvalidArgument);
    EXPECT_EQ(manager->store("example.com", "", "secret"), kInvalidArgument);
    EXPECT_EQ(manager->store("example.com", nullptr, "secret"), kInvalidArgument);
    EXPECT_EQ(manager->store("example.com", "user", nullptr), kInvalidArgument);
    EXPECT_EQ(manager->store(invalidUtf8, "user", "secret"), kInvalidArgument);
    EXPECT_EQ(manager->store("example.com", invalidUtf8, "secret"), kInvalidArgument);
    EXPECT_EQ(manager->store("example.com", "user", invalidUtf8), kInvalidArgument);

    ICredential* credential = nullptr;
    EXPECT_EQ(manager->lookup("", &credential), kInvalidArgument);
    EXPECT_EQ(manager->lookup(nullptr, &credential), kInvalidArgument);
    EXPECT_EQ(manager->lookup(invalidUtf8, &credential), kInvalidArgument);
    EXPECT_EQ(credential, nullptr);
    EXPECT_EQ(manager->lookup("example.com", nullptr), kInvalidArgument);
}

TEST_F(CredentialStoreWithoutService, ReportsTheUnreachableStoreAndWritesNothing)
{
    const char* home = std::getenv("HOME");
    ASSERT_TRUE(home);
    std::filesystem::create_directories(home);
    auto before = filesBelow(home);

    ICredentialManager* manager = GetCredentialManager();
    testing::internal::CaptureStderr();
    tresult stored = manager->store("shop.example.com", "alice", "secret");
    ICredential* credential = nullptr;
    tresult lookedUp = manager->lookup("shop.example.com", &credential);
    std::string errors = testing::internal::GetCapturedStderr();

    EXPECT_EQ(stored, kUnexpected);
    EXPECT_EQ(lookedUp, kUnexpected);
    EXPECT_EQ(credential, nullptr);
    // The failed store is explained by the message of the bus library, and the password is not
    // in it; the failed lookup, which only means that no login is at hand, is not reported.
    const char* action = "kvxsecurity: cannot store the login: ";
    auto position = errors.find(action);
    ASSERT_NE(position, std::string::npos) << errors;
    EXPECT_NE(errors[position + std::strlen(action)], '\n') << errors;
    EXPECT_EQ(errors.find("look up"), std::string::npos) << errors;
    EXPECT_EQ(errors.find("secret"), std::string::npos) << errors;
    EXPECT_EQ(filesBelow(home), before);
}
