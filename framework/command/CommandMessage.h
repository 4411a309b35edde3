#pragma once

#include "framework/interfaces/ICommandHandler.h"
#include "framework/text/CString.h"

namespace KVX {

/// A command as a handler of this module reads it: category, name, and whether it is only to
/// be checked.
class CommandMessage
{
public:
    CommandMessage(std::string_view category, std::string_view name, bool checkOnly = false)
        : category_(category), name_(name), checkOnly_(checkOnly)
    {
    }
    explicit CommandMessage(const CommandRecord& record)
        : CommandMessage(record.category ? record.category : "", record.name ? record.name : "", record.checkOnly != 0)
    {
    }

    const CString& category() const { return category_; }
    const CString& name() const { return name_; }
    bool checkOnly() const { return checkOnly_; }
    bool is(std::string_view category, std::string_view name) const { return category_ == category && name_ == name; }

    CommandRecord toRecord() const { return {category_.c_str(), name_.c_str(), checkOnly_ ? 1 : 0}; }

private:
    CString category_;
    CString name_;
    bool checkOnly_;
};

} // namespace KVX
