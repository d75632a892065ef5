#ifndef ONVIFTYPES_SCHEMA_WSNT_NOTIFICATIONMESSAGE_P_H
#define ONVIFTYPES_SCHEMA_WSNT_NOTIFICATIONMESSAGE_P_H

#include <onvifTypes/schema/wsnt/addressing_p.h>

#include <QDomElement>
#include <QDomNamedNodeMap>

// wsnt::NotificationMessage and wsnt::NotificationMessageHolderType have the same
// members; their Message is the event inside the wsnt:Message wrapper.
namespace NotificationMessageIo {

template <typename T> QString serialize(const T& n, const QString& tagName, const char* ownName)
{
    const QString tag = tagName.isEmpty() ? QLatin1String(ownName) : tagName;
    QString text = QLatin1Char('<') + tag + QLatin1String(" >");
    if (n.SubscriptionReference)
        text += n.SubscriptionReference->serialize(QStringLiteral("wsnt:SubscriptionReference"));
    if (n.Topic)
        text += n.Topic->serialize(QStringLiteral("wsnt:Topic"));
    if (n.ProducerReference)
        text += n.ProducerReference->serialize(QStringLiteral("wsnt:ProducerReference"));
    if (n.Message)
        text += Addressing::messageWrapper(*n.Message);
    return text + QLatin1String("</") + tag + QLatin1Char('>');
}

template <typename Ptr> void readInto(Ptr& member, QDomNode& child)
{
    if (!member)
        member.reset(new typename Ptr::value_type);
    member->deserialize(child);
}

template <typename T> void deserialize(T& n, const QDomNode& node)
{
    for (QDomElement child = node.firstChildElement(); !child.isNull(); child = child.nextSiblingElement()) {
        const QString name = Utilites::delNameSpacePrefix(child.nodeName());
        if (name == QLatin1String("SubscriptionReference")) {
            readInto(n.SubscriptionReference, child);
        } else if (name == QLatin1String("Topic")) {
            readInto(n.Topic, child);
        } else if (name == QLatin1String("ProducerReference")) {
            readInto(n.ProducerReference, child);
        } else if (name == QLatin1String("Message")) {
            QSharedPointer<QVector<tt::Message>> found;
            Addressing::readEventMessages(child, found);
            if (found) {
                // A repeated wrapper overwrites, as any single element does.
                n.Message.reset(new tt::Message(found->last()));
            } else {
                // Not an ONVIF event message: keep it rather than lose it.
                n.unmatchedElements += Utilites::nodeToText(child) + QLatin1Char('\n');
            }
        } else {
            n.unmatchedElements += Utilites::nodeToText(child) + QLatin1Char('\n');
        }
    }
    const QDomNamedNodeMap attributes = node.attributes();
    for (int i = 0, count = attributes.size(); i < count; ++i)
        n.unmatchedAttributes += Utilites::nodeToText(attributes.item(i)) + QLatin1Char('\n');
}

} // namespace NotificationMessageIo

#endif // ONVIFTYPES_SCHEMA_WSNT_NOTIFICATIONMESSAGE_P_H
