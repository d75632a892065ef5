#ifndef CAMERASIM_SOAPXML_H
#define CAMERASIM_SOAPXML_H

#include <QByteArray>
#include <QDateTime>
#include <QDomElement>
#include <QString>

namespace CameraSim {
namespace Soap {

extern const QLatin1String kEnvelopeNs;
extern const QLatin1String kEnvelope11Ns;

// A complete reply envelope in the camera's own style, with the standard prefixes declared.
QByteArray envelope(const QString& prefix, const QString& header, const QString& body);

// A SOAP 1.2 fault body; code is Sender/Receiver/..., subcode a qualified name or empty.
QString faultBody(const QString& prefix, const QString& code, const QString& subcode, const QString& reason);

QString esc(const QString& text);
QString xmlTime(const QDateTime& utc); // 2024-01-31T13:05:09Z

// ISO 8601 duration ("PT10S", "PT1M30S", "P1D") in milliseconds, or -1 if unreadable.
qint64 parseDuration(const QString& text);
// Either a duration counted from now or an absolute time; invalid if neither.
QDateTime parseTerminationTime(const QString& text, const QDateTime& nowUtc);

QDomElement firstChildElement(const QDomNode& parent);
QDomElement child(const QDomNode& parent, const char* localName); // direct child by local name
QDomElement descendant(const QDomNode& parent, const char* localName); // first at any depth
QString childText(const QDomNode& parent, const char* localName);

} // namespace Soap
} // namespace CameraSim

#endif // CAMERASIM_SOAPXML_H
