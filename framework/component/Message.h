#pragma once

#include "framework/data/Variant.h"

#include <initializer_list>
#include <vector>

namespace KVX {

/// A signal or message: a name plus optional arguments. Objects among the arguments are held
/// by counted references, so a message posted for later delivery keeps them alive.
class Message : public Object
{
    KVX_DECLARE_CLASS(Message, Object)
public:
    explicit Message(std::string_view id, std::initializer_list<Variant> arguments = {})
        : id_(id), arguments_(arguments)
    {
    }

    const CString& id() const { return id_; }
    bool is(std::string_view id) const { return id_ == id; }

    size_t argumentCount() const { return arguments_.size(); }
    /// The argument at `index`, or an empty Variant when there is none.
    const Variant& argument(size_t index) const;
    void addArgument(const Variant& value) { arguments_.push_back(value); }

private:
    CString id_;
    std::vector<Variant> arguments_;
};

} // namespace KVX
