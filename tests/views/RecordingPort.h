#pragma once

// A graphics port for tests: it records every fill and every text with its rectangle, colour
// and font, and measures with the graphics module's real font metrics.

#include "Implements.h"

#include "framework/interfaces/IGraphicsPort.h"
#include "framework/services/GuiServices.h"

#include <string>
#include <vector>

namespace ViewTests {

class RecordingPort : public Implements<KVX::IGraphicsPort>
{
public:
    struct Fill
    {
        KVX::RectRecord rect;
        KVX::uint32 rgba;
    };
    struct Text
    {
        KVX::RectRecord rect;
        std::string text;
        KVX::FontRecord font;
        KVX::uint32 rgba;
        KVX::int32 alignment;
    };

    std::vector<Fill> fills;
    std::vector<Text> texts;

    void clear()
    {
        fills.clear();
        texts.clear();
    }

    KVX::tresult fillRect(const KVX::RectRecord& rect, KVX::uint32 rgba) override
    {
        fills.push_back({rect, rgba});
        return KVX::kResultOk;
    }
    KVX::tresult drawText(const KVX::RectRecord& rect, const char* text, const KVX::FontRecord& font, KVX::uint32 rgba,
                          KVX::int32 alignment) override
    {
        if (!text)
            return KVX::kInvalidArgument;
        texts.push_back({rect, text, font, rgba, alignment});
        return KVX::kResultOk;
    }
    KVX::tresult measureText(const char* text, const KVX::FontRecord& font, double& width) override
    {
        return GetGraphicsHelper()->measureText(text, font, width);
    }
};

} // namespace ViewTests
