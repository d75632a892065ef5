// A whole SOAP reply: fault inspection, then the response element read into the
// response class of the operation the reply names (or the one the selector picks).
#include "fuzzCommon.h"

#include <onvifTypes/onvifResponse.h>
#include <onvifTypes/schema/schemaRegistry.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscriptionResponse.h>
#include <onvifTypes/schema/tev/GetServiceCapabilitiesResponse.h>
#include <onvifTypes/schema/tev/PullMessagesFaultResponse.h>
#include <onvifTypes/schema/tev/PullMessagesResponse.h>
#include <onvifTypes/schema/wsnt/Notify.h>
#include <onvifTypes/schema/wsnt/RenewResponse.h>
#include <onvifTypes/schema/wsnt/SubscribeResponse.h>
#include <onvifTypes/schema/wsnt/UnsubscribeResponse.h>

#include <functional>

namespace {

struct ResponseClass
{
    QString localName;
    std::function<QSharedPointer<Serializable>()> make;
};

template <typename T> ResponseClass handWritten(const char* localName)
{
    return { QString::fromLatin1(localName), [] { return QSharedPointer<Serializable>(new T); } };
}

QVector<ResponseClass> responseClasses()
{
    QVector<ResponseClass> classes = {
        handWritten<tev::CreatePullPointSubscriptionResponse>("CreatePullPointSubscriptionResponse"),
        handWritten<tev::GetServiceCapabilitiesResponse>("GetServiceCapabilitiesResponse"),
        handWritten<tev::PullMessagesFaultResponse>("PullMessagesFaultResponse"),
        handWritten<tev::PullMessagesResponse>("PullMessagesResponse"),
        handWritten<wsnt::Notify>("Notify"),
        handWritten<wsnt::RenewResponse>("RenewResponse"),
        handWritten<wsnt::SubscribeResponse>("SubscribeResponse"),
        handWritten<wsnt::UnsubscribeResponse>("UnsubscribeResponse"),
    };
    const QStringList names = SchemaRegistry::classNames();
    for (const QString& name : names) {
        if (!name.endsWith(QLatin1String("Response")))
            continue;
        classes.append({ name.mid(name.indexOf(QLatin1String("::")) + 2),
            [name] { return SchemaRegistry::create(name); } });
    }
    return classes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const QVector<ResponseClass> classes = responseClasses();
    const unsigned selector = FuzzCommon::takeSelector(data, size);

    const OnvifResponse response(FuzzCommon::replyText(data, size));
    if (response.isFault()) {
        response.isAuthFault();
        response.getFaultText();
        return 0;
    }
    // A seed taken from a real reply finds its own class; anything else tries the picked one.
    for (const ResponseClass& candidate : classes) {
        QDomElement element = response.getNodeByTag(candidate.localName);
        if (!element.isNull()) {
            candidate.make()->deserialize(element);
            return 0;
        }
    }
    const ResponseClass& picked = classes.at(int(selector % unsigned(classes.size())));
    QDomElement element = response.document().documentElement();
    picked.make()->deserialize(element);
    return 0;
}
