#include "onvifTypes/events/event.h"

#include <QHash>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

namespace Onvif {

namespace {

// The text of an element item, children and all, as XML.
QString innerXml(QXmlStreamReader& reader)
{
    QString out;
    QXmlStreamWriter writer(&out);
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            ++depth;
            writer.writeStartElement(reader.qualifiedName().toString());
            writer.writeAttributes(reader.attributes());
            break;
        case QXmlStreamReader::EndElement:
            if (depth-- == 0)
                return out;
            writer.writeEndElement();
            break;
        case QXmlStreamReader::Characters:
            if (!reader.isWhitespace())
                writer.writeCharacters(reader.text().toString());
            break;
        default:
            break;
        }
    }
    return out;
}

} // namespace

QVector<Event> readNotifications(
    const QString& text, QString* error, QDateTime* currentTime, QDateTime* terminationTime)
{
    QVector<Event> events;
    QXmlStreamReader reader(text);
    // Prefixes in scope, innermost last: a topic's prefix is text, not a name the reader resolves.
    QVector<QXmlStreamNamespaceDeclarations> scopes;
    Event* current = nullptr;
    Event::Items* items = nullptr;
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::EndElement) {
            scopes.removeLast();
            const QStringRef name = reader.name();
            if (name == QLatin1String("Source") || name == QLatin1String("Key")
                || name == QLatin1String("Data"))
                items = nullptr;
            continue;
        }
        if (token != QXmlStreamReader::StartElement)
            continue;
        scopes.append(reader.namespaceDeclarations());
        const QStringRef name = reader.name();
        if ((name == QLatin1String("CurrentTime") && currentTime)
            || (name == QLatin1String("TerminationTime") && terminationTime)) {
            QDateTime* time = name == QLatin1String("CurrentTime") ? currentTime : terminationTime;
            *time = QDateTime::fromString(reader.readElementText().trimmed(), Qt::ISODateWithMs);
            time->setTimeSpec(Qt::UTC);
            scopes.removeLast();
        } else if (name == QLatin1String("NotificationMessage")) {
            events.append(Event());
            current = &events.last();
        } else if (!current) {
            continue;
        } else if (name == QLatin1String("Topic")) {
            current->topic = reader.readElementText(QXmlStreamReader::SkipChildElements).trimmed();
            const int colon = current->topic.indexOf(QLatin1Char(':'));
            const QString prefix = colon > 0 ? current->topic.left(colon) : QString();
            current->topicPath = current->topic.mid(colon + 1);
            for (int i = scopes.size() - 1; i >= 0 && current->topicNamespace.isEmpty(); --i) {
                for (const QXmlStreamNamespaceDeclaration& d : scopes[i]) {
                    if (d.prefix() == prefix)
                        current->topicNamespace = d.namespaceUri().toString();
                }
            }
            scopes.removeLast(); // readElementText consumed its end
        } else if (name == QLatin1String("Message")
            && reader.attributes().hasAttribute(QLatin1String("UtcTime"))) {
            const QXmlStreamAttributes a = reader.attributes();
            current->utcTime
                = QDateTime::fromString(a.value(QLatin1String("UtcTime")).toString(), Qt::ISODateWithMs);
            current->utcTime.setTimeSpec(Qt::UTC);
            current->operation = a.value(QLatin1String("PropertyOperation")).toString();
        } else if (name == QLatin1String("Source")) {
            items = &current->source;
        } else if (name == QLatin1String("Key")) {
            items = &current->key;
        } else if (name == QLatin1String("Data")) {
            items = &current->data;
        } else if (items && name == QLatin1String("SimpleItem")) {
            items->append({ reader.attributes().value(QLatin1String("Name")).toString(),
                reader.attributes().value(QLatin1String("Value")).toString() });
        } else if (items && name == QLatin1String("ElementItem")) {
            const QString itemName = reader.attributes().value(QLatin1String("Name")).toString();
            items->append({ itemName, innerXml(reader) });
            scopes.removeLast();
        }
    }
    if (reader.hasError()) {
        if (error)
            *error = reader.errorString();
        return {};
    }
    return events;
}

bool topicMatches(const Event& event, const QString& expression)
{
    for (QString alternative : expression.split(QLatin1Char('|'), Qt::SkipEmptyParts)) {
        alternative = alternative.trimmed();
        alternative = alternative.mid(alternative.indexOf(QLatin1Char(':')) + 1);
        const bool below = alternative.endsWith(QLatin1String("//."));
        if (below)
            alternative.chop(3);
        if (event.topicPath == alternative
            || (below && event.topicPath.startsWith(alternative + QLatin1Char('/'))))
            return true;
    }
    return false;
}

} // namespace Onvif
