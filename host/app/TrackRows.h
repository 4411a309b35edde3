#pragma once

#include "framework/interfaces/IItemModel.h"
#include "framework/interfaces/TrackRowState.h"

#include <string>
#include <vector>

namespace Host {

/// One row of the gadget's track table as the values behind its cells: what the host acts on.
/// The words the row shows are read apart (CellReader), for showing only.
struct TrackRow
{
    KVX::int32 state = Engine::kRowOnService; ///< Engine::TrackRowState
    bool hasTrack = false;                    ///< pairs a track the product has
    std::string trackName;                    ///< that track's name
    std::string file;                         ///< the whole path of the row's file; empty for none

    bool hasFile() const { return !file.empty(); }
    /// The state as a word for the JSON documents: "on_service", "invalid_format", "add",
    /// "replace", "uploading", "uploaded" or "failed".
    const char* stateName() const;

    /// Row `row` of `model`, whose columns are found by their identifiers.
    static TrackRow read(KVX::IItemModel& model, KVX::int32 row);
    /// Every row, in order.
    static std::vector<TrackRow> readAll(KVX::IItemModel& model);
    /// The index of the column called `identifier`, or -1.
    static KVX::int32 columnOf(KVX::IItemModel& model, const char* identifier);
};

} // namespace Host
