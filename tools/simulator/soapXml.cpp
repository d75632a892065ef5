#include "soapXml.h"

#include <QRegularExpression>
#include <QStringList>

namespace CameraSim {
namespace Soap {

const QLatin1String kEnvelopeNs("http://www.w3.org/2003/05/soap-envelope");
const QLatin1String kEnvelope11Ns("http://schemas.xmlsoap.org/soap/envelope/");

QByteArray envelope(const QString& prefix, const QString& header, const QString& body)
{
    QString text;
    text.reserve(1400 + header.size() + body.size());
    text += QLatin1String("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<");
    text += prefix;
    text += QLatin1String(":Envelope xmlns:");
    text += prefix;
    text += QLatin1String("=\"http://www.w3.org/2003/05/soap-envelope\""
                          " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""
                          " xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\""
                          " xmlns:wsa5=\"http://www.w3.org/2005/08/addressing\""
                          " xmlns:tt=\"http://www.onvif.org/ver10/schema\""
                          " xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\""
                          " xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\""
                          " xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\""
                          " xmlns:timg=\"http://www.onvif.org/ver20/imaging/wsdl\""
                          " xmlns:tev=\"http://www.onvif.org/ver10/events/wsdl\""
                          " xmlns:wsnt=\"http://docs.oasis-open.org/wsn/b-2\""
                          " xmlns:wstop=\"http://docs.oasis-open.org/wsn/t-1\""
                          " xmlns:tns1=\"http://www.onvif.org/ver10/topics\""
                          " xmlns:ter=\"http://www.onvif.org/ver10/error\">");
    text += QLatin1Char('<') + prefix + QLatin1String(":Header>") + header + QLatin1String("</") + prefix
        + QLatin1String(":Header>");
    text += QLatin1Char('<') + prefix + QLatin1String(":Body>") + body + QLatin1String("</") + prefix
        + QLatin1String(":Body></") + prefix + QLatin1String(":Envelope>\r\n");
    return text.toUtf8();
}

QString faultBody(const QString& prefix, const QString& code, const QString& subcode, const QString& reason)
{
    const QString p = prefix + QLatin1Char(':');
    QString text = QLatin1Char('<') + p + QLatin1String("Fault><") + p + QLatin1String("Code><") + p
        + QLatin1String("Value>") + p + esc(code) + QLatin1String("</") + p + QLatin1String("Value>");
    // "a/b" nests b as the subcode of a, as ONVIF faults often do.
    const QStringList subcodes = subcode.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    for (const QString& s : subcodes)
        text += QLatin1Char('<') + p + QLatin1String("Subcode><") + p + QLatin1String("Value>") + esc(s)
            + QLatin1String("</") + p + QLatin1String("Value>");
    for (int i = 0; i < subcodes.size(); ++i)
        text += QLatin1String("</") + p + QLatin1String("Subcode>");
    text += QLatin1String("</") + p + QLatin1String("Code><") + p + QLatin1String("Reason><") + p
        + QLatin1String("Text xml:lang=\"en\">") + esc(reason) + QLatin1String("</") + p
        + QLatin1String("Text></") + p + QLatin1String("Reason></") + p + QLatin1String("Fault>");
    return text;
}

QString esc(const QString& text)
{
    return text.toHtmlEscaped();
}

QString xmlTime(const QDateTime& utc)
{
    return utc.toUTC().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ssZ"));
}

qint64 parseDuration(const QString& text)
{
    static const QRegularExpression re(
        QStringLiteral("^P(?:(\\d+)D)?(?:T(?:(\\d+)H)?(?:(\\d+)M)?(?:(\\d+(?:\\.\\d+)?)S)?)?$"));
    const QString t = text.trimmed();
    if (t.isEmpty() || t == QLatin1String("P") || t.endsWith(QLatin1Char('T')))
        return -1;
    const auto m = re.match(t);
    if (!m.hasMatch())
        return -1;
    const double ms = m.captured(1).toDouble() * 86400000.0 + m.captured(2).toDouble() * 3600000.0
        + m.captured(3).toDouble() * 60000.0 + m.captured(4).toDouble() * 1000.0;
    return static_cast<qint64>(ms);
}

QDateTime parseTerminationTime(const QString& text, const QDateTime& nowUtc)
{
    const qint64 ms = parseDuration(text);
    if (ms >= 0)
        return nowUtc.addMSecs(ms);
    QDateTime absolute = QDateTime::fromString(text.trimmed(), Qt::ISODateWithMs);
    return absolute.isValid() ? absolute.toUTC() : QDateTime();
}

QDomElement firstChildElement(const QDomNode& parent)
{
    return parent.firstChildElement();
}

QDomElement child(const QDomNode& parent, const char* localName)
{
    const QLatin1String name(localName);
    for (QDomElement e = parent.firstChildElement(); !e.isNull(); e = e.nextSiblingElement()) {
        if (e.localName() == name)
            return e;
    }
    return QDomElement();
}

QDomElement descendant(const QDomNode& parent, const char* localName)
{
    const QLatin1String name(localName);
    for (QDomElement e = parent.firstChildElement(); !e.isNull(); e = e.nextSiblingElement()) {
        if (e.localName() == name)
            return e;
        QDomElement inner = descendant(e, localName);
        if (!inner.isNull())
            return inner;
    }
    return QDomElement();
}

QString childText(const QDomNode& parent, const char* localName)
{
    return child(parent, localName).text().trimmed();
}

} // namespace Soap
} // namespace CameraSim
