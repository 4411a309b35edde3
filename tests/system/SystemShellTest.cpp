#include "ScopedEnvironment.h"
#include "TemporaryDirectory.h"

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/GuiServices.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

using namespace KVX;

namespace {

class RecordingOpener : public Object, public IUrlOpener
{
    KVX_DECLARE_CLASS(RecordingOpener, Object)
public:
    tresult openUrl(const char* url) override
    {
        opened.push_back(url);
        return result;
    }
    KVX_FORWARD_UNKNOWN(Object)

    std::vector<std::string> opened;
    tresult result = kResultOk;
};
KVX_DEFINE_CLASS(RecordingOpener, Object, "RecordingOpener")

tresult RecordingOpener::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IUrlOpener)
    return Object::queryInterface(iid, object);
}

// Reads from `fd` until `done` holds for what was read, or until the time-out has passed (an
// empty result), waiting with poll() rather than sleeping.
std::optional<std::string> readUntil(int fd, const std::function<bool(const std::string&)>& done, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string data;
    while (!done(data))
    {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd ready{fd, POLLIN, 0};
        const int events = left.count() > 0 ? ::poll(&ready, 1, static_cast<int>(left.count())) : 0;
        if (events < 0 && errno == EINTR)
            continue;
        char buffer[4096];
        const ssize_t got = events > 0 ? ::read(fd, buffer, sizeof(buffer)) : 0;
        if (got > 0)
            data.append(buffer, static_cast<size_t>(got));
        else if (got == 0 || (errno != EAGAIN && errno != EINTR))
            return std::nullopt; // the time ran out, the other end closed, or the read failed
    }
    return data;
}

using Result = std::pair<tresult, std::string>;
const std::string kPrompt = "Open this address in a web browser: ";
const Result kRefused{kInvalidArgument, ""};
const Result kHandedOn{kResultOk, ""};

// The result of opening `url` when the address is shown to the user.
Result shown(const std::string& url)
{
    return {kResultOk, kPrompt + url + "\n"};
}

class SystemShellTest : public testing::Test
{
protected:
    void SetUp() override { ASSERT_FALSE(directory.path().empty()); }
    void TearDown() override { GetSystemShell()->setUrlOpener(nullptr); }

    // What opening `url` prints on standard output, and its result.
    Result open(const char* url)
    {
        testing::internal::CaptureStdout();
        const tresult result = GetSystemShell()->openUrl(url);
        return {result, testing::internal::GetCapturedStdout()};
    }

    // An xdg-open that reports its arguments and its standard input through a named pipe, and
    // ends its report with the line "end".
    std::string installFakeOpener()
    {
        const auto bin = directory.path() / "bin";
        std::filesystem::create_directory(bin);
        const auto pipe = directory.path() / "report";
        EXPECT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
        const auto script = bin / "xdg-open";
        std::ofstream(script) << "#!/bin/sh\n"
                                 "{\n"
                                 "  printf 'count=%s\\n' \"$#\"\n"
                                 "  for argument in \"$@\"; do printf 'argument=%s\\n' \"$argument\"; done\n"
                                 "  printf 'stdin=%s\\n' \"$(readlink /proc/self/fd/0)\"\n"
                                 "  printf 'end\\n'\n"
                                 "} > '"
                              << pipe.string() << "'\n";
        std::filesystem::permissions(script, std::filesystem::perms::owner_all);
        return pipe.string();
    }

    TemporaryDirectory directory;
    ScopedEnvironment display{"DISPLAY", nullptr};
    ScopedEnvironment wayland{"WAYLAND_DISPLAY", nullptr};
    ScopedEnvironment path{"PATH", std::getenv("PATH")};
};

} // namespace

TEST_F(SystemShellTest, WithoutADesktopTheAddressIsPrintedForTheUser)
{
    for (const char* url : {"https://example.com/dashboard", "HTTP://EXAMPLE.COM/", "mailto:someone@example.com"})
        EXPECT_EQ(open(url), shown(url));

    // Sign-in values in the query never reach a pipe or a file.
    const auto [result, printed] = open("https://example.com/login?username=me&password=0a1b2c#top");
    EXPECT_EQ(result, kResultOk);
    EXPECT_EQ(printed, kPrompt +
                           "https://example.com/login (its parameters are left out: the output is not a "
                           "terminal)\n");

    // A display without xdg-open is no desktop either.
    display.set(":99");
    const auto empty = directory.path() / "empty";
    std::filesystem::create_directory(empty);
    path.set(empty.c_str());
    EXPECT_EQ(open("https://example.com/"), shown("https://example.com/"));
}

TEST_F(SystemShellTest, AtATerminalTheWholeAddressIsPrinted)
{
    int terminal = -1, follower = -1;
    ASSERT_EQ(::openpty(&terminal, &follower, nullptr, nullptr, nullptr), 0);
    std::fflush(stdout);
    const int savedOutput = ::dup(STDOUT_FILENO);
    ::dup2(follower, STDOUT_FILENO);
    const tresult result = GetSystemShell()->openUrl("https://example.com/login?username=me&password=0a1b2c");
    std::fflush(stdout);
    ::dup2(savedOutput, STDOUT_FILENO);
    ::close(savedOutput);
    ::close(follower);

    EXPECT_EQ(result, kResultOk);
    auto printed = readUntil(
        terminal, [](const std::string& text) { return text.find('\n') != std::string::npos; }, 5000);
    ::close(terminal);
    ASSERT_TRUE(printed);
    EXPECT_EQ(printed->substr(0, printed->find_first_of("\r\n")),
              kPrompt + "https://example.com/login?username=me&password=0a1b2c");
}

TEST_F(SystemShellTest, InADesktopSessionTheUrlIsXdgOpensOnlyArgumentAndNoShellEverSeesIt)
{
    const std::string pipe = installFakeOpener();
    path.set(((directory.path() / "bin").string() + ":/usr/bin:/bin").c_str());
    const std::string dir = directory.path().string();
    const std::string hostile = "https://example.com/search?q=a;touch$IFS" + dir +
                                "/injected;&x=$(touch$IFS" + dir + "/injected2)&y='quoted'&z=%22";
    struct Session
    {
        const char* display;
        const char* wayland;
        std::string url;
    };
    for (const Session& session :
         {Session{":99", nullptr, hostile}, Session{nullptr, "wayland-0", "http://example.com/"}})
    {
        display.set(session.display);
        wayland.set(session.wayland);
        // A write end of our own keeps the pipe from reporting its end before the fake opens it.
        const int report = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(report, 0);
        const int keepOpen = ::open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(keepOpen, 0);
        EXPECT_EQ(open(session.url.c_str()), kHandedOn);
        const auto received = readUntil(
            report, [](const std::string& text) { return text.ends_with("end\n"); }, 10000);
        ::close(keepOpen);
        ::close(report);
        ASSERT_TRUE(received) << "the fake xdg-open did not report";
        EXPECT_EQ(*received, "count=1\nargument=" + session.url + "\nstdin=/dev/null\nend\n");
    }
    EXPECT_FALSE(std::filesystem::exists(directory.path() / "injected"));
    EXPECT_FALSE(std::filesystem::exists(directory.path() / "injected2"));
}

TEST_F(SystemShellTest, MalformedUrlsAndUnsafeSchemesAreRefusedWithoutAnything)
{
    static const char* const kMalformed[] = {
        "", "example.com", "https:", ":https//x", "1http://x", "-https://x", "https://exa mple.com",
        "https://example.com/; rm -rf ~", "https://x/%zz", "https://x/%4", "https://x/\x7f",
        "https://x/\u00fc", "https://x/\"a\"", "https://x/<b>", "https://x/`id`", "https://x/{a}",
        "https://x/a|b", "https://x/a\\b", "https://x/\n"};
    for (const char* url : kMalformed)
        EXPECT_EQ(open(url), kRefused) << url;
    EXPECT_EQ(open(("https://example.com/" + std::string(33000, 'a')).c_str()), kRefused) << "overlong";
    EXPECT_EQ(open(nullptr), kRefused);

    // Only web pages and mail are opened without the host: these could start programs.
    for (const char* url : {"file:///etc/passwd", "javascript:alert(1)", "x-scheme:run", "ftp://example.com/",
                            "http://", "https://", "mailto:"})
        EXPECT_EQ(open(url), kRefused) << url;
}

TEST_F(SystemShellTest, ARegisteredOpenerGetsEveryWellFormedUrlUntilItIsRemoved)
{
    auto opener = makeRef<RecordingOpener>();
    GetSystemShell()->setUrlOpener(opener);
    EXPECT_EQ(opener->referenceCount(), 2u);

    EXPECT_EQ(open("https://example.com/a?b=c"), kHandedOn);
    EXPECT_EQ(open("file:///home/me/report.pdf"), kHandedOn) << "the host judges";
    opener->result = kUnexpected;
    EXPECT_EQ(open("https://example.com/busy").first, kUnexpected);
    EXPECT_EQ(open("https://exa mple.com").first, kInvalidArgument) << "checked before the host sees it";
    EXPECT_EQ(opener->opened,
              (std::vector<std::string>{"https://example.com/a?b=c", "file:///home/me/report.pdf",
                                        "https://example.com/busy"}));

    GetSystemShell()->setUrlOpener(nullptr);
    EXPECT_EQ(opener->referenceCount(), 1u);
    EXPECT_EQ(open("https://example.com/"), shown("https://example.com/"));
    EXPECT_EQ(opener->opened.size(), 3u);
}
