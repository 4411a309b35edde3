#pragma once

#include "SandboxClient.h"

#include <gtest/gtest.h>

namespace SandboxTesting
{

// Starts a sandbox on a free port of 127.0.0.1 for each test. The client is declared after the
// sandbox, so it closes its connection before the sandbox stops.
class SandboxTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::string error;
        ASSERT_GT(sandbox.start(options(), error), 0) << error;
    }

    virtual SorvelSandbox::Sandbox::Options options() { return {}; }

    std::string api(const std::string& path) const { return sandbox.baseUrl() + path; }

    HttpReply postJson(const std::string& path, const JsonMembers& members)
    {
        return http.post(api(path), jsonObject(members), "application/json");
    }

    static JsonMembers with(JsonMembers members, const JsonMembers& more)
    {
        members.insert(members.end(), more.begin(), more.end());
        return members;
    }

    SorvelSandbox::Sandbox sandbox;
    Http http;
};

} // namespace SandboxTesting
