// Text conversions of the simple members and the string enumerations.
#include "fuzzCommon.h"

#include <onvifTypes/serializable.h>
#include <onvifTypes/stringEnumBase.h>

#include <QDomDocument>
#include <QStringList>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Out-of-range values are reported with qDebug; printing them took most of the time.
    static const QtMessageHandler quiet
        = qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    Q_UNUSED(quiet);
    const unsigned selector = FuzzCommon::takeSelector(data, size);
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));

    // Round trips must be stable once a value has gone through its text form once.
    const int i = TypeConvertor::convertFromString<int>(text);
    if (TypeConvertor::convertFromString<int>(TypeConvertor::convertToString(i)) != i)
        __builtin_trap();
    const bool b = TypeConvertor::convertFromString<bool>(text);
    if (TypeConvertor::convertFromString<bool>(TypeConvertor::convertToString(b)) != b)
        __builtin_trap();
    const float f = TypeConvertor::convertFromString<float>(text);
    TypeConvertor::convertToString(f);
    TypeConvertor::convertToString(TypeConvertor::convertFromString<QString>(text));

    // The text splits into a table and a value to look up; the selector is the starting index.
    QVector<QString> table;
    const QStringList parts = text.split(QLatin1Char('|'));
    for (int k = 0; k + 1 < parts.size(); ++k)
        table.append(parts.at(k));
    StringEnumBase value(selector, table);
    value.serialize(QString());
    value.serialize(QStringLiteral("tt:Value"));
    value.setValue(parts.last());
    if (!value.value().isEmpty() && value.table().at(int(value.index())) != value.value())
        __builtin_trap();
    value.serialize(QStringLiteral("tt:Value"));

    QDomDocument document;
    const bool parsed = document.setContent(QStringLiteral("<v>%1</v>").arg(parts.last().toHtmlEscaped()));
    QDomNode root = document.documentElement();
    if (parsed)
        value.deserialize(root);
    universalSimpleType<int> number;
    number.deserialize(root);
    number.serialize(QStringLiteral("n"));
    return 0;
}
