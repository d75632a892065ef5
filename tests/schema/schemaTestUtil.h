#ifndef TESTS_SCHEMA_SCHEMATESTUTIL_H
#define TESTS_SCHEMA_SCHEMATESTUTIL_H

#include <QDomDocument>
#include <QDomElement>
#include <QString>

namespace SchemaTest {

// The prefixes that generated classes write, declared on a wrapper element so
// that their output can be parsed back.
inline QString wrap(const QString& body)
{
    return QStringLiteral("<root xmlns:tt=\"http://www.onvif.org/ver10/schema\""
                          " xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\""
                          " xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\""
                          " xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\""
                          " xmlns:wsnt=\"http://docs.oasis-open.org/wsn/b-2\""
                          " xmlns:xop=\"http://www.w3.org/2004/08/xop/include\""
                          " xmlns:xmime=\"http://www.w3.org/2005/05/xmlmime\""
                          " xmlns:ns1=\"urn:other\">")
        + body + QStringLiteral("</root>");
}

// The first element inside the wrapper; parsed with namespace processing, as replies are.
inline QDomElement parse(QDomDocument& document, const QString& body)
{
    QString error;
    if (!document.setContent(wrap(body), true, &error))
        qWarning("unparsable test input: %s", qPrintable(error));
    return document.documentElement().firstChildElement();
}

// First descendant element with the given local name, as the reply layer looks it up.
inline QDomElement findByLocalName(const QDomElement& root, const QString& localName)
{
    for (QDomElement child = root.firstChildElement(); !child.isNull(); child = child.nextSiblingElement()) {
        if (child.localName() == localName)
            return child;
        const QDomElement found = findByLocalName(child, localName);
        if (!found.isNull())
            return found;
    }
    return QDomElement();
}

} // namespace SchemaTest

#endif
