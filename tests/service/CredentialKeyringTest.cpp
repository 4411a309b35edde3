#include "framework/security/CredentialComponent.h"
#include "framework/security/CredentialUIPrompt.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

using namespace KVX;

namespace {

/// What `secret-tool lookup target <target>` prints: the stored password.
std::string storedPassword(const std::string& target)
{
    std::string command = "secret-tool lookup target '" + target + "' 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    std::string out;
    char buffer[256];
    while (pipe && fgets(buffer, sizeof buffer, pipe))
        out += buffer;
    if (pipe)
        pclose(pipe);
    return out;
}

} // namespace

// Runs inside with-keyring.sh only: it writes to the Secret Service it finds.
TEST(CredentialComponentKeyring, StoresAndLoadsThroughThePlatformStore)
{
    ASSERT_NE(std::getenv("SORVEL_PRIVATE_KEYRING"), nullptr) << "run through tests/security/with-keyring.sh";
    const std::string target = "sandbox.sorvel.test";

    auto editor = makeRef<Security::CredentialComponent>();
    EXPECT_FALSE(editor->loadCredentials(target)); // nothing stored yet: parameters unchanged
    editor->findParameter("username")->setValue(String("ann@example.test"));
    editor->findParameter("password")->setValue(String("Pässwort€1"));
    ASSERT_TRUE(editor->storeCredentials(target));
    EXPECT_EQ(storedPassword(target), "Pässwort€1");

    auto reader = makeRef<Security::CredentialComponent>();
    ASSERT_TRUE(reader->loadCredentials(target));
    String user, password;
    ASSERT_TRUE(reader->getCredentials(user, password));
    EXPECT_EQ(user, "ann@example.test");
    EXPECT_EQ(password, "Pässwort€1");

    // Clearing the parameters deletes nothing from the store.
    reader->clearCredentials();
    EXPECT_EQ(storedPassword(target), "Pässwort€1");

    // A prompt that need not be shown returns the stored login at once.
    Security::CredentialPromptRequest request;
    request.target = CString(target);
    auto prompt = makeRef<Security::CredentialUIPrompt>();
    ASSERT_TRUE(prompt->prompt(request));
    EXPECT_EQ(request.userName, "ann@example.test");
    request.flags = Security::CredentialPromptRequest::kAlwaysShow; // must show, has no view
    EXPECT_FALSE(prompt->prompt(request));
}
