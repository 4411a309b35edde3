#pragma once

#include "framework/core/Types.h"

namespace Engine {

/// What the "status" cell of the gadget's track table holds as its value (IItemModel::
/// getCellValue), so that a host acts on the state of a row and leaves its words, which a
/// language file may translate, to the screen. A row that holds a file answers the file's upload
/// state, the track table's own numbers 0 to 3; the two negative values stand for the rows that
/// take no upload. The other columns answer texts: "remote_track" the name of the product's
/// track (no value when the row has none), "local_track" the whole path of the file (no value
/// when it has none).
enum TrackRowState : KVX::int32
{
    kRowUnsupportedFormat = -2, ///< a file in a format the service does not take ("Invalid Format")
    kRowOnService = -1,         ///< no file: a track the product already has ("Uploaded")
    kRowWaiting = 0,            ///< a file not uploaded yet ("Add", or "Replace" beside a track)
    kRowUploading = 1,          ///< the file is being sent
    kRowUploaded = 2,           ///< the file arrived ("... - Upload Complete")
    kRowFailed = 3,             ///< the file could not be sent ("... - Upload Failed")
};

} // namespace Engine
