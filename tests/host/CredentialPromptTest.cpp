// The login prompt run as the theme's dialog on a terminal, with the answers scripted.
#include "framework/services/GuiServices.h"
#include "host/terminal/TerminalCredentialPrompt.h"
#include "tests/support/BuildPaths.h"

#include <gtest/gtest.h>

#include <deque>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using namespace KVX;
using Host::TerminalCredentialPrompt;
using Request = KVX::Security::CredentialPromptRequest;

namespace {

/// Answers from a list; the end of the list is the end of input. Records what was shown and asked.
class ScriptedIO : public Host::PromptIO
{
public:
    explicit ScriptedIO(std::deque<std::string> answers) : answers_(std::move(answers)) {}

    void show(const std::string& text) override { shown.push_back(text); }
    bool ask(const std::string& question, bool echo, std::string& answer) override
    {
        asked.push_back((echo ? "" : "(hidden) ") + question);
        if (answers_.empty())
            return false;
        answer = answers_.front();
        answers_.pop_front();
        return true;
    }

    std::vector<std::string> shown;
    std::vector<std::string> asked;

private:
    std::deque<std::string> answers_;
};

class CredentialPrompt : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        std::ifstream file(BuildPaths::themePackage(), std::ios::binary);
        const std::string package((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        ASSERT_EQ(GetThemeManager()->loadTheme("sorvel", package.data(), package.size()), kResultOk);
    }

    static bool run(ScriptedIO& io, Request& request, const char* theme = "sorvel", const char* suggested = "")
    {
        auto prompt = makeRef<TerminalCredentialPrompt>(io, theme);
        prompt->setSuggestedUserName(suggested);
        return prompt->prompt(request);
    }
};

} // namespace

TEST_F(CredentialPrompt, AsksForEveryFieldOfTheViewInItsOrder)
{
    ScriptedIO io({"alice", "s3cret", "y"});
    Request request;
    request.description = String("Sign in to your Sorvel account.");
    request.flags = Request::kAlwaysShow;
    ASSERT_TRUE(run(io, request));
    EXPECT_EQ(request.userName, "alice");
    EXPECT_EQ(request.password, "s3cret");
    EXPECT_TRUE(request.flags & Request::kSave) << "ticked at OK";
    EXPECT_EQ(io.asked, (std::vector<std::string>{"User name: ", "(hidden) Password: ", "Remember my credentials [y/N]: "}));
    EXPECT_EQ(io.shown, (std::vector<std::string>{"Sign in", "Sign in to your Sorvel account."}));
}

TEST_F(CredentialPrompt, OkWithoutAUserNameKeepsTheDialogOpen)
{
    ScriptedIO io({"", "first", "", "bob", "second", "n"});
    Request request;
    request.flags = Request::kAlwaysShow;
    ASSERT_TRUE(run(io, request));
    EXPECT_EQ(request.userName, "bob");
    EXPECT_EQ(request.password, "second");
    EXPECT_FALSE(request.flags & Request::kSave);
    EXPECT_EQ(io.asked.size(), 6u);
    EXPECT_NE(std::find(io.shown.begin(), io.shown.end(), "A user name is needed."), io.shown.end());
}

TEST_F(CredentialPrompt, TheSaveFlagComesBackOnlyWhenStillTickedAtOk)
{
    // Starts ticked; an empty answer keeps it, "n" clears it; a suggested user name is the default.
    ScriptedIO keep({"", "pw", ""});
    Request kept;
    kept.flags = Request::kAlwaysShow | Request::kSave;
    ASSERT_TRUE(run(keep, kept, "sorvel", "carol"));
    EXPECT_EQ(kept.userName, "carol");
    EXPECT_TRUE(kept.flags & Request::kSave);
    EXPECT_EQ(keep.asked.front(), "User name [carol]: ");
    EXPECT_EQ(keep.asked.back(), "Remember my credentials [Y/n]: ");

    ScriptedIO untick({"carol", "pw", "maybe", "n"});
    Request cleared;
    cleared.flags = Request::kAlwaysShow | Request::kSave;
    ASSERT_TRUE(run(untick, cleared));
    EXPECT_FALSE(cleared.flags & Request::kSave);
    EXPECT_NE(std::find(untick.shown.begin(), untick.shown.end(), "Please answer y or n."), untick.shown.end());
}

TEST_F(CredentialPrompt, EndOfInputCancelsAndAThemeWithoutTheViewCannotPrompt)
{
    ScriptedIO io({"dave"});
    Request request;
    request.flags = Request::kAlwaysShow | Request::kSave;
    EXPECT_FALSE(run(io, request));
    EXPECT_TRUE(request.password.isEmpty());
    EXPECT_FALSE(request.flags & Request::kSave) << "nothing to save after Cancel";

    ScriptedIO unused({"erin", "pw", "y"});
    Request other;
    other.flags = Request::kAlwaysShow;
    EXPECT_FALSE(run(unused, other, "no such theme"));
    EXPECT_TRUE(unused.asked.empty());
}
