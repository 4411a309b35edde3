#include "framework/data/UrlObject.h"

namespace KVX {

KVX_DEFINE_CLASS(UrlObject, Object, "UrlObject")

tresult UrlObject::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IUrl)
    return Object::queryInterface(iid, object);
}

bool UrlObject::fromUnknown(IUnknown* object, Url& url)
{
    void* found = nullptr;
    if (!object || object->queryInterface(IUrl::kIID, &found) != kResultOk || !found)
        return false;
    Ref<IUrl> location = Ref<IUrl>::adopt(static_cast<IUrl*>(found));
    const char* text = location->getUrlText();
    return text && url.setFromDisplayString(text);
}

} // namespace KVX
