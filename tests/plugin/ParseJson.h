#pragma once

#include "framework/data/Json.h"

#include <gtest/gtest.h>

namespace Sorvel::Testing {

/// The attribute list of a JSON object written in a test; a typo in it fails the test.
inline KVX::Attributes parse(std::string_view json)
{
    KVX::Attributes attributes;
    EXPECT_TRUE(KVX::Json::load(attributes, json)) << json;
    return attributes;
}

} // namespace Sorvel::Testing
