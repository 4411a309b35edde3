#pragma once

#include "framework/core/ObjectArray.h"
#include "plugin/catalogue/Track.h"

namespace Sorvel {

/// A product (a release) of the signed-in account, with its tracks in the reply's order.
class Title : public KVX::Object
{
    KVX_DECLARE_CLASS(Title, KVX::Object)
public:
    Title() : tracks(true, 10) {}
    /// A clone: the same fields and the same track objects.
    Title(const Title& other) = default;

    KVX::String id;         ///< "id": empty for a product still to be created
    KVX::String name;       ///< "name"
    KVX::String artistName; ///< "artist_name"
    KVX::String upc;        ///< "upc": the barcode, kept as text
    KVX::TypedObjectArray<Track> tracks;

    /// Fills the fields from one object of a reply and appends a Track for each element of
    /// "tracks" when it is an array (to what the list already holds). Always succeeds.
    bool load(const KVX::Attributes& attributes);
    /// The name without surrounding white space, or the translated "[no title]" when that leaves
    /// nothing.
    KVX::String& getDisplayTitle(KVX::String& result) const;
    /// Adds "name", "artist_name" and "upc", in that order, as text (empty values included).
    void writeCreateParams(KVX::Attributes& parameters) const;
};

} // namespace Sorvel
