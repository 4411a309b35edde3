#pragma once

#include "framework/core/Object.h"
#include "framework/data/Attributes.h"

namespace Sorvel {

/// One track of a product on the service, as a reply lists it.
class Track : public KVX::Object
{
    KVX_DECLARE_CLASS(Track, KVX::Object)
public:
    KVX::String id;   ///< "id": empty until the track exists on the service
    KVX::String name; ///< "name"
    KVX::String isrc; ///< "isrc"
    KVX::int32 trackNumber = 0; ///< "track_number": 0 when unknown
    KVX::int32 year = 0;        ///< "year": 0 when unknown
    double duration = 0.0;      ///< "duration" in seconds
    KVX::String genre;
    KVX::String comment;
    KVX::String arranger;
    KVX::String composer;
    KVX::String songwriter;

    /// Fills the fields from one object of a reply: text by the variant-to-string rule, integers
    /// from integers or truncated doubles (else 0), the duration from any number (else 0.0).
    /// Always succeeds.
    bool load(const KVX::Attributes& attributes);
    /// Adds what creating the track on the service sends, in order: "name", "isrc", "year" (an
    /// integer, only when not 0), "genre", "comment", "arranger", "composer", "songwriter". The
    /// service numbers and measures the track itself, so track number and duration are not sent.
    void writeCreateParams(KVX::Attributes& parameters) const;

    /// The whole-number value of a reply member: an integer as it stands, a double truncated,
    /// anything else 0.
    static KVX::int32 readInteger(const KVX::Attributes& attributes, std::string_view name);
};

} // namespace Sorvel
