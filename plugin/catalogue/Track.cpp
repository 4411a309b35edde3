#include "plugin/catalogue/Track.h"

#include <algorithm>
#include <limits>

using namespace KVX;

namespace Sorvel {

KVX_DEFINE_CLASS(Track, Object, "Track")

int32 Track::readInteger(const Attributes& attributes, std::string_view name)
{
    const Variant* value = attributes.find(name);
    if (!value || !value->isNumeric())
        return 0;
    return static_cast<int32>(std::clamp<int64>(value->asInt(), std::numeric_limits<int32>::min(),
                                                 std::numeric_limits<int32>::max()));
}

bool Track::load(const Attributes& attributes)
{
    id = attributes.getString("id");
    name = attributes.getString("name");
    isrc = attributes.getString("isrc");
    trackNumber = readInteger(attributes, "track_number");
    year = readInteger(attributes, "year");
    duration = attributes.getDouble("duration");
    genre = attributes.getString("genre");
    comment = attributes.getString("comment");
    arranger = attributes.getString("arranger");
    composer = attributes.getString("composer");
    songwriter = attributes.getString("songwriter");
    return true;
}

void Track::writeCreateParams(Attributes& parameters) const
{
    parameters.set("name", name);
    parameters.set("isrc", isrc);
    if (year != 0)
        parameters.set("year", year);
    parameters.set("genre", genre);
    parameters.set("comment", comment);
    parameters.set("arranger", arranger);
    parameters.set("composer", composer);
    parameters.set("songwriter", songwriter);
}

} // namespace Sorvel
