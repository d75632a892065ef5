#ifndef ONVIFTYPES_SCHEMA_TEV_PULLMESSAGES_H
#define ONVIFTYPES_SCHEMA_TEV_PULLMESSAGES_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace tev {

// Timeout is a duration text ("PT5S"); the camera answers earlier when messages arrive.
class ONVIFTYPES_EXPORT PullMessages : public Serializable
{
public:
    PullMessages();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<universalSimpleType<QString>> Timeout;
    QSharedPointer<universalSimpleType<int>> MessageLimit;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace tev

#endif // ONVIFTYPES_SCHEMA_TEV_PULLMESSAGES_H
