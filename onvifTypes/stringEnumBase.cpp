#include "onvifTypes/stringEnumBase.h"

#include <QDebug>

StringEnumBase::StringEnumBase(unsigned int index, const QVector<QString>& table)
    : m_index(index)
    , m_table(table)
{ }

StringEnumBase::~StringEnumBase() = default;

void StringEnumBase::setValue(const QString& text)
{
    const int found = m_table.indexOf(text);
    if (found < 0)
        return;
    m_index = unsigned(found);
    m_value = m_table.at(found);
}

QString StringEnumBase::serialize(const QString& tagName) const
{
    if (m_index >= unsigned(m_table.size())) {
        qDebug() << "--- StringEnumBase::toXML out of range.";
        return QStringLiteral("out of range");
    }
    const QString& text = m_table.at(int(m_index));
    if (tagName.isEmpty())
        return text;
    return QStringLiteral("<%0>%1</%0>").arg(tagName, text);
}

void StringEnumBase::deserialize(const QDomNode& node)
{
    setValue(Utilites::nodeText(node));
}
