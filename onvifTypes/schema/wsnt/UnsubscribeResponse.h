#ifndef ONVIFTYPES_SCHEMA_WSNT_UNSUBSCRIBERESPONSE_H
#define ONVIFTYPES_SCHEMA_WSNT_UNSUBSCRIBERESPONSE_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace wsnt {

// Written under the name "UnsubscribeRespose" (sic), which peers of this library
// expect; any spelling is read.
class ONVIFTYPES_EXPORT UnsubscribeResponse : public Serializable
{
public:
    UnsubscribeResponse();

    QString unmatchedElements;
    QString unmatchedAttributes;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace wsnt

#endif // ONVIFTYPES_SCHEMA_WSNT_UNSUBSCRIBERESPONSE_H
