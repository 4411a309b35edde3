#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

/// A fresh directory under the system's temporary directory, removed with its contents at the
/// end of the test.
class TemporaryDirectory
{
public:
    TemporaryDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "kvx-system-test-XXXXXX").string();
        if (mkdtemp(pattern.data()))
            path_ = pattern;
    }
    ~TemporaryDirectory()
    {
        std::error_code ignored;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    /// Empty when the directory could not be made.
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};
