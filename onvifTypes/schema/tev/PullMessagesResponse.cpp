#include <onvifTypes/schema/tev/PullMessagesResponse.h>
#include <onvifTypes/schema/wsnt/addressing_p.h>

#include <QDomElement>
#include <QDomNamedNodeMap>

namespace tev {

PullMessagesResponse::PullMessagesResponse()
    : CurrentTime(new universalSimpleType<QString>)
    , TerminationTime(new universalSimpleType<QString>)
{ }

QString PullMessagesResponse::serialize(QString tagName)
{
    const QString tag = tagName.isEmpty() ? QStringLiteral("tev:PullMessagesResponse") : tagName;
    QString text = QLatin1Char('<') + tag + QLatin1String(" >");
    if (CurrentTime)
        text += CurrentTime->serialize(QStringLiteral("tev:CurrentTime"));
    if (TerminationTime)
        text += TerminationTime->serialize(QStringLiteral("tev:TerminationTime"));
    // Each event in its own notification wrapper, so that the text reads back alike.
    if (Message) {
        for (const tt::Message& message : *Message)
            text += QLatin1String("<wsnt:NotificationMessage>") + Addressing::messageWrapper(message)
                + QLatin1String("</wsnt:NotificationMessage>");
    }
    return text + QLatin1String("</") + tag + QLatin1Char('>');
}

void PullMessagesResponse::deserialize(QDomNode& node)
{
    for (QDomElement child = node.firstChildElement(); !child.isNull(); child = child.nextSiblingElement()) {
        const QString name = Utilites::delNameSpacePrefix(child.nodeName());
        if (name == QLatin1String("CurrentTime")) {
            if (!CurrentTime)
                CurrentTime.reset(new universalSimpleType<QString>);
            CurrentTime->deserialize(child);
        } else if (name == QLatin1String("TerminationTime")) {
            if (!TerminationTime)
                TerminationTime.reset(new universalSimpleType<QString>);
            TerminationTime->deserialize(child);
        } else if (Addressing::readEventMessages(child, Message) == 0) {
            unmatchedElements += Utilites::nodeToText(child) + QLatin1Char('\n');
        }
    }
    const QDomNamedNodeMap attributes = node.attributes();
    for (int i = 0, count = attributes.size(); i < count; ++i)
        unmatchedAttributes += Utilites::nodeToText(attributes.item(i)) + QLatin1Char('\n');
}

} // namespace tev
