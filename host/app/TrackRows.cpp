#include "host/app/TrackRows.h"

#include <cstring>

namespace Host {

using namespace KVX;

const char* TrackRow::stateName() const
{
    switch (state)
    {
    case Engine::kRowUnsupportedFormat:
        return "invalid_format";
    case Engine::kRowWaiting:
        return hasTrack ? "replace" : "add";
    case Engine::kRowUploading:
        return "uploading";
    case Engine::kRowUploaded:
        return "uploaded";
    case Engine::kRowFailed:
        return "failed";
    default:
        return "on_service";
    }
}

int32 TrackRow::columnOf(IItemModel& model, const char* identifier)
{
    for (int32 column = 0; column < model.countColumns(); ++column)
        if (ColumnRecord record{}; model.getColumn(column, record) == kResultOk && record.identifier &&
                                   std::strcmp(record.identifier, identifier) == 0)
            return column;
    return -1;
}

TrackRow TrackRow::read(IItemModel& model, int32 row)
{
    TrackRow result;
    auto textOf = [&](const char* identifier, std::string& text) {
        ValueRecord value;
        if (model.getCellValue(row, columnOf(model, identifier), value) != kResultOk || value.type != ValueRecord::kString)
            return false;
        text.assign(value.text, value.textLength);
        return true;
    };
    if (ValueRecord value; model.getCellValue(row, columnOf(model, "status"), value) == kResultOk &&
                           value.type == ValueRecord::kInt)
        result.state = static_cast<int32>(value.intValue);
    result.hasTrack = textOf("remote_track", result.trackName);
    textOf("local_track", result.file);
    return result;
}

std::vector<TrackRow> TrackRow::readAll(IItemModel& model)
{
    std::vector<TrackRow> rows;
    for (int32 row = 0; row < model.countRows(); ++row)
        rows.push_back(read(model, row));
    return rows;
}

} // namespace Host
