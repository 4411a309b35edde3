#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/interfaces/IGraphicsPort.h"
#include "framework/interfaces/IItemModel.h"
#include "framework/interfaces/IViewStyle.h"

#include <string>

namespace Host {

/// Reads one cell of a list model by letting the model draw it: the texts it draws and how much
/// of the cell its widest filled bar covers (the upload progress of a status cell), in which colour. Texts are
/// measured with the graphics module's real metrics, so the model shortens what does not fit as
/// it would on screen.
class CellReader : public KVX::Object, public KVX::IGraphicsPort
{
public:
    struct Cell
    {
        std::string text;
        double fill = 0;       ///< 0 to 1
        uint32_t fillColor = 0; ///< 0xRRGGBBAA of that widest bar
        bool bold = false;
    };

    /// Draws cell (`row`, `column`) of `model`, `width` pixels wide, in `style`.
    static Cell read(KVX::IItemModel& model, KVX::int32 row, KVX::int32 column, KVX::int32 width,
                     KVX::IViewStyle* style);
    /// The plug-in theme's style of the track table ("TrackList"), in which its cells are read;
    /// nothing when the graphics module has none.
    static KVX::Ref<KVX::IViewStyle> trackListStyle();

    KVX::tresult fillRect(const KVX::RectRecord& rect, KVX::uint32 rgba) override;
    KVX::tresult drawText(const KVX::RectRecord& rect, const char* text, const KVX::FontRecord& font,
                          KVX::uint32 rgba, KVX::int32 alignment) override;
    KVX::tresult measureText(const char* text, const KVX::FontRecord& font, double& width) override;
    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override;
    KVX::uint32 retain() override { return Object::retain(); }
    KVX::uint32 release() override { return Object::release(); }

private:
    KVX::RectRecord cell_{};
    Cell read_;
};

} // namespace Host
