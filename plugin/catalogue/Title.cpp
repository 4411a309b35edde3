#include "plugin/catalogue/Title.h"

#include "framework/data/AttributeArray.h"
#include "plugin/shell/Texts.h"

using namespace KVX;

namespace Sorvel {

KVX_DEFINE_CLASS(Title, Object, "Title")

bool Title::load(const Attributes& attributes)
{
    id = attributes.getString("id");
    name = attributes.getString("name");
    artistName = attributes.getString("artist_name");
    upc = attributes.getString("upc");
    if (AttributeArray* list = attributes.getArray("tracks"))
        for (size_t i = 0; i < list->count(); ++i)
        {
            auto track = makeRef<Track>();
            if (Attributes* element = list->getAttributes(i))
                track->load(*element);
            tracks.add(track);
        }
    return true;
}

String& Title::getDisplayTitle(String& result) const
{
    result = name.trimmed();
    if (result.isEmpty())
        result = Texts::translate(Engine::TextKeys::kNoTitle);
    return result;
}

void Title::writeCreateParams(Attributes& parameters) const
{
    parameters.set("name", name);
    parameters.set("artist_name", artistName);
    parameters.set("upc", upc);
}

} // namespace Sorvel
