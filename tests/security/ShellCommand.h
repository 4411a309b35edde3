#pragma once

#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace SecurityTest {

/// What a shell command printed on its standard output, and how it ended.
struct ShellCommand
{
    int exitStatus = -1;
    std::string output;

    /// Runs `command` with /bin/sh and waits for it.
    static ShellCommand run(const std::string& command)
    {
        ShellCommand result;
        FILE* pipe = popen(command.c_str(), "r");
        if (!pipe)
            return result;
        char buffer[4096];
        size_t count = 0;
        while ((count = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
            result.output.append(buffer, count);
        int status = pclose(pipe);
        result.exitStatus = status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return result;
    }
};

} // namespace SecurityTest
