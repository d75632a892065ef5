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

template <typename Tag> void StringEnumBase::write(QString& out, const Tag& tagName) const
{
    if (m_index >= unsigned(m_table.size())) {
        qDebug() << "--- StringEnumBase::toXML out of range.";
        out += QLatin1String("out of range");
        return;
    }
    Utilites::appendElement(out, tagName, m_table.at(int(m_index)));
}

QString StringEnumBase::serialize(QString tagName)
{
    QString out;
    write(out, tagName);
    return out;
}

void StringEnumBase::serializeTo(QString& out, QLatin1String tagName) const
{
    write(out, tagName);
}

void StringEnumBase::deserialize(QDomNode& node)
{
    setValue(Utilites::nodeText(node));
}
