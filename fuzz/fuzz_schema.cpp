// Any generated class read from arbitrary XML, then written out again.
#include "fuzzCommon.h"

#include <onvifTypes/schema/schemaRegistry.h>

#include <QDomDocument>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const QStringList names = SchemaRegistry::classNames();
    const unsigned selector = FuzzCommon::takeSelector(data, size);
    const QString& name = names.at(int(selector % unsigned(names.size())));

    QDomDocument document;
    if (!document.setContent(FuzzCommon::replyText(data, size), true))
        return 0;
    QDomElement element = document.documentElement();
    QSharedPointer<Serializable> object = SchemaRegistry::create(name);
    object->deserialize(element);
    object->serialize(QString());
    // Attributes take the other path of the simple members.
    const QDomNamedNodeMap attributes = element.attributes();
    for (int i = 0; i < attributes.count(); ++i) {
        QDomNode attribute = attributes.item(i);
        SchemaRegistry::create(name)->deserialize(attribute);
    }
    return 0;
}
