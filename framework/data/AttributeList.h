#pragma once

#include "framework/data/Attributes.h"
#include "framework/interfaces/IAttributeList.h"

namespace KVX {

/// An attribute list that other modules can read and fill: the framework's Attributes behind
/// the IAttributeList interface. What a module receives as an IAttributeList from elsewhere it
/// reads with copyFrom, never by casting, since the object may belong to another module.
class AttributeList : public Object, public IAttributeList
{
    KVX_DECLARE_CLASS(AttributeList, Object)
public:
    AttributeList() = default;
    explicit AttributeList(const Attributes& attributes) : attributes_(attributes) {}

    Attributes& attributes() { return attributes_; }
    const Attributes& attributes() const { return attributes_; }

    /// A copy of any module's list: texts copied, objects retained; a nested list (an object that
    /// answers IAttributeList) becomes nested Attributes, to the depth of `depthLimit`.
    static Attributes copyFrom(IAttributeList& list, int depthLimit = 32);

    // IAttributeList
    int32 countAttributes() override { return static_cast<int32>(attributes_.count()); }
    const char* getAttributeName(int32 index) override;
    tresult getAttributeValue(int32 index, ValueRecord& value) override;
    tresult findAttribute(const char* name, ValueRecord& value) override;
    tresult setAttribute(const char* name, const ValueRecord& value) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    Attributes attributes_;
};

} // namespace KVX
