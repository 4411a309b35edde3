#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/data/Url.h"
#include "framework/interfaces/IUrl.h"

namespace KVX {

/// A URL as a counted object, for the places where a location travels among objects: the
/// files dropped on a list, handed over by a host's view or by another module. Read one from
/// elsewhere with fromUnknown, which goes through IUrl and never casts.
class UrlObject : public Object, public IUrl
{
    KVX_DECLARE_CLASS(UrlObject, Object)
public:
    explicit UrlObject(const Url& url) : url_(url), text_(url.toDisplayString().toUtf8()) {}

    const Url& url() const { return url_; }

    /// The URL of any object that answers IUrl; false when it does not.
    static bool fromUnknown(IUnknown* object, Url& url);

    const char* getUrlText() override { return text_.c_str(); }
    KVX_FORWARD_UNKNOWN(Object)

private:
    const Url url_;
    const std::string text_;
};

} // namespace KVX
