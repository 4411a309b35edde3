#pragma once

#include "Catalogue.h"
#include "JsonText.h"

namespace SorvelSandbox
{

// The members of a track that the API shows and the catalogue file keeps alike, written inside
// an object the caller has started.
template <typename Writer> void writeTrackMembers(Writer& out, const TrackRecord& track)
{
    member(out, "id", track.id);
    member(out, "name", track.name);
    member(out, "isrc", track.isrc);
    member(out, "track_number", track.trackNumber);
    member(out, "year", track.year);
    member(out, "duration", track.duration);
    member(out, "genre", track.genre);
    member(out, "comment", track.comment);
    member(out, "arranger", track.arranger);
    member(out, "composer", track.composer);
    member(out, "songwriter", track.songwriter);
    member(out, "upload_status", track.uploadStatus);
}

} // namespace SorvelSandbox
