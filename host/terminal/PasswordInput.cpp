#include "host/terminal/PasswordInput.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <optional>
#include <termios.h>
#include <unistd.h>

namespace Host {

namespace {

/// The controlling terminal, opened for one question and closed after it.
class Terminal
{
public:
    Terminal() : fd_(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)) {}
    ~Terminal()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    bool isOpen() const { return fd_ >= 0; }

    void write(const std::string& text) const
    {
        size_t written = 0;
        while (written < text.size())
        {
            const ssize_t result = ::write(fd_, text.data() + written, text.size() - written);
            if (result < 0 && errno == EINTR)
                continue;
            if (result <= 0)
                return;
            written += static_cast<size_t>(result);
        }
    }

    /// One line, read byte by byte so that nothing after it is taken from the terminal. False
    /// at the end of input or when a signal interrupted the read (Ctrl-C).
    bool readLine(std::string& line) const
    {
        line.clear();
        for (;;)
        {
            char byte = 0;
            const ssize_t result = ::read(fd_, &byte, 1);
            if (result < 0)
                return false; // EINTR included: the user pressed Ctrl-C
            if (result == 0)
                return !line.empty();
            if (byte == '\n')
                return true;
            if (byte != '\r')
                line.push_back(byte);
        }
    }

    int fd() const { return fd_; }

private:
    int fd_;
};

/// Turns echo off on a terminal for as long as it lives.
class EchoOff
{
public:
    explicit EchoOff(int fd) : fd_(fd), saved_(::tcgetattr(fd, &settings_) == 0)
    {
        if (!saved_)
            return;
        termios quiet = settings_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        quiet.c_lflag |= ECHONL;
        ::tcsetattr(fd_, TCSAFLUSH, &quiet);
    }
    ~EchoOff()
    {
        if (saved_)
            ::tcsetattr(fd_, TCSAFLUSH, &settings_);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    int fd_;
    termios settings_{};
    bool saved_;
};

} // namespace

bool readPasswordFromStdin(std::string& password)
{
    password.clear();
    // Given on a terminal (typed, not piped), the password is asked for and not shown as typed;
    // the echo is off before the question, so that nothing typed after it is shown.
    std::optional<EchoOff> quiet;
    if (::isatty(STDIN_FILENO))
    {
        quiet.emplace(STDIN_FILENO);
        std::fputs("Password: ", stderr);
        std::fflush(stderr);
    }
    if (!std::getline(std::cin, password) && password.empty())
        return false;
    if (!password.empty() && password.back() == '\r')
        password.pop_back();
    return !password.empty();
}

bool hasTerminal()
{
    return Terminal().isOpen();
}

bool promptWithoutEcho(const std::string& prompt, std::string& answer)
{
    Terminal terminal;
    if (!terminal.isOpen())
        return false;
    terminal.write(prompt);
    bool read = false;
    {
        EchoOff quiet(terminal.fd());
        read = terminal.readLine(answer);
    }
    if (!read)
        terminal.write("\n");
    return read;
}

void writeToTerminal(const std::string& text)
{
    Terminal terminal;
    if (terminal.isOpen())
        terminal.write(text);
}

bool promptLine(const std::string& prompt, std::string& answer)
{
    Terminal terminal;
    if (!terminal.isOpen())
        return false;
    terminal.write(prompt);
    return terminal.readLine(answer);
}

} // namespace Host
