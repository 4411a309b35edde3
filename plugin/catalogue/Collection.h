#pragma once

#include "plugin/catalogue/Title.h"

namespace Sorvel {

/// The account's products, in the order of the titles reply.
class Collection : public KVX::TypedObjectArray<Title>
{
public:
    Collection() : TypedObjectArray<Title>(true, 10) {}
};

} // namespace Sorvel
