#include <onvifTypes/schema/wsnt/addressing_p.h>

#include <QDomElement>
#include <QUuid>

namespace Addressing {

QString headerText(const char* action, const QString& to)
{
    return QLatin1String("<a:Action s:mustUnderstand=\"1\">") + QLatin1String(action)
        + QLatin1String("</a:Action><a:MessageID>urn:uuid:")
        + QUuid::createUuid().toString(QUuid::WithoutBraces).toLower()
        + QLatin1String("</a:MessageID><a:ReplyTo><a:Address>http://www.w3.org/2005/08/addressing/anonymous"
                        "</a:Address></a:ReplyTo><a:To s:mustUnderstand=\"1\">")
        + to + QLatin1String("</a:To>");
}

int readEventMessages(const QDomNode& node, QSharedPointer<QVector<tt::Message>>& list)
{
    int found = 0;
    for (QDomElement child = node.firstChildElement(); !child.isNull(); child = child.nextSiblingElement()) {
        if (Utilites::delNameSpacePrefix(child.nodeName()) == QLatin1String("Message")
            && child.hasAttribute(QStringLiteral("UtcTime"))) {
            if (!list)
                list.reset(new QVector<tt::Message>);
            tt::Message message;
            message.deserialize(child);
            list->append(message);
            ++found;
        }
        found += readEventMessages(child, list);
    }
    return found;
}

QString messageWrapper(const tt::Message& message)
{
    QString text = QLatin1String("<wsnt:Message>");
    message.serializeTo(text, QLatin1String("tt:Message"));
    return text + QLatin1String("</wsnt:Message>");
}

} // namespace Addressing
