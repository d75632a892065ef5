#include "onvifTypes/schema/complexType_p.h"

#include <QDomNamedNodeMap>
#include <QVarLengthArray>

#include <cstring>

namespace ComplexType {

namespace {

using Addresses = QVarLengthArray<void*, 32>;

// Addresses of the object's members; index 0 and 1 are the unmatched texts.
Addresses bindAll(const ClassInfo& info, Serializable* object)
{
    Addresses addresses(info.memberCount + 2);
    info.bind(object, addresses.data());
    return addresses;
}

bool isElement(Shape shape)
{
    return shape <= OptionalList || shape == BaseElement;
}

bool isAttribute(Shape shape)
{
    return shape == Attribute || shape == OptionalAttribute || shape == BaseAttribute;
}

// Elements are compared by local name: the sender's prefix is not checked.
const char* localName(const char* qualified)
{
    const char* colon = std::strchr(qualified, ':');
    return colon ? colon + 1 : qualified;
}

// First table entry of the right kind whose name matches; -1 when none does.
// The base's names sit after the class's own, so own members win.
int find(const ClassInfo& info, const QString& name, bool element)
{
    for (int i = 0; i < info.memberCount; ++i) {
        const Member& member = info.members[i];
        if (element ? isElement(member.shape) && name == QLatin1String(localName(member.name))
                    : isAttribute(member.shape) && name == QLatin1String(member.name))
            return i;
    }
    return -1;
}

// One pass over the table writes either the attributes or the content (text and
// elements), each in table order.
void writeMembers(const ClassInfo& info, const Addresses& addresses, bool attributes, QString& out)
{
    for (int i = 0; i < info.memberCount; ++i) {
        const Member& member = info.members[i];
        if (isAttribute(member.shape) != attributes)
            continue;
        void* address = addresses[i + 2];
        switch (member.shape) {
        case Text:
            if (Serializable* value = member.ops->single(address, false))
                member.ops->write(value, out, QLatin1String());
            break;
        case Required:
        case Optional:
            if (Serializable* value = member.ops->single(address, false))
                member.ops->write(value, out, QLatin1String(member.name));
            break;
        case OptionalList:
            address = member.ops->vector(address, false);
            if (!address)
                break;
            Q_FALLTHROUGH();
        case List:
            for (int j = 0, n = member.ops->count(address); j < n; ++j)
                member.ops->write(member.ops->item(address, j), out, QLatin1String(member.name));
            break;
        case Attribute:
        case OptionalAttribute:
            if (Serializable* value = member.ops->single(address, false)) {
                out += QLatin1String(member.name);
                out += QLatin1String("=\"");
                member.ops->write(value, out, QLatin1String());
                out += QLatin1String("\" ");
            }
            break;
        case BaseElement:
        case BaseAttribute:
            break;
        }
    }
}

// The envelope declares the prefixes of the first services; a message of a later one
// (Media2, Imaging) declares its own on its root element, so it reads the same anywhere.
QLatin1String ownDeclaration(const char* name)
{
    if (std::strncmp(name, "tr2:", 4) == 0)
        return QLatin1String("xmlns:tr2=\"http://www.onvif.org/ver20/media/wsdl\" ");
    if (std::strncmp(name, "timg:", 5) == 0)
        return QLatin1String("xmlns:timg=\"http://www.onvif.org/ver20/imaging/wsdl\" ");
    return QLatin1String();
}

// A derived class passes its base's (content, attribute text); they come before its own.
template <typename Tag>
void writeElement(const ClassInfo& info, const Serializable* object, const Tag& tagName, QString& out,
    const QPair<QString, QString>* base, QLatin1String declaration = QLatin1String())
{
    if (tagName.isEmpty()) {
        writeElement(info, object, QLatin1String(info.ownName), out, base, ownDeclaration(info.ownName));
        return;
    }
    // Serialising only reads the members; the table's accessors are shared with input.
    const Addresses addresses = bindAll(info, const_cast<Serializable*>(object));
    out += QLatin1Char('<');
    out += tagName;
    out += QLatin1Char(' ');
    out += declaration;
    if (base)
        out += base->second;
    writeMembers(info, addresses, true, out);
    out += QLatin1Char('>');
    if (base)
        out += base->first;
    writeMembers(info, addresses, false, out);
    out += QLatin1String("</");
    out += tagName;
    out += QLatin1Char('>');
}

// Room for a small message at once: growing a string step by step costs more than the
// text itself.
constexpr int kFirstCapacity = 512;

QString written(const ClassInfo& info, const Serializable* object, const QString& tagName,
    const QPair<QString, QString>* base)
{
    QString out;
    out.reserve(kFirstCapacity);
    writeElement(info, object, tagName, out, base);
    return out;
}

thread_local const QDomNode* basePassNode = nullptr;

} // namespace

BasePass::BasePass(const QDomNode& node)
    : m_previous(basePassNode)
{
    basePassNode = &node;
}

BasePass::~BasePass()
{
    basePassNode = m_previous;
}

void construct(const ClassInfo& info, Serializable* object)
{
    const Addresses addresses = bindAll(info, object);
    for (int i = 0; i < info.memberCount; ++i) {
        const Member& member = info.members[i];
        if (member.shape == Required || member.shape == Attribute || member.shape == Text)
            member.ops->single(addresses[i + 2], true);
    }
}

QString serialize(const ClassInfo& info, const Serializable* object, const QString& tagName)
{
    return written(info, object, tagName, nullptr);
}

QString serialize(
    const ClassInfo& info, const Serializable* object, const QString& tagName, const QString& baseText)
{
    // The base's attribute text keeps the blank that followed its element name.
    const QPair<QString, QString> base = Utilites::serializeParent(baseText);
    return written(info, object, tagName, &base);
}

void serializeTo(const ClassInfo& info, const Serializable* object, QString& out, QLatin1String tagName)
{
    writeElement(info, object, tagName, out, nullptr);
}

void serializeTo(const ClassInfo& info, const Serializable* object, QString& out, QLatin1String tagName,
    const QString& baseText)
{
    const QPair<QString, QString> base = Utilites::serializeParent(baseText);
    writeElement(info, object, tagName, out, &base);
}

void deserialize(const ClassInfo& info, Serializable* object, const QDomNode& node)
{
    const Addresses addresses = bindAll(info, object);
    QString& unmatchedElements = *static_cast<QString*>(addresses[0]);
    QString& unmatchedAttributes = *static_cast<QString*>(addresses[1]);
    const bool keepUnmatched = basePassNode != &node;

    for (int i = 0; i < info.memberCount; ++i) {
        if (info.members[i].shape == Text) {
            QDomNode text = node;
            info.members[i].ops->single(addresses[i + 2], true)->deserialize(text);
        }
    }

    for (QDomElement child = node.firstChildElement(); !child.isNull(); child = child.nextSiblingElement()) {
        // Parsed with namespaces the local name is at hand; a tree built without them has
        // only the written name.
        const QString local = child.localName();
        const int i
            = find(info, local.isEmpty() ? Utilites::delNameSpacePrefix(child.nodeName()) : local, true);
        if (i < 0) {
            if (keepUnmatched)
                unmatchedElements += Utilites::nodeToText(child) + QLatin1Char('\n');
            continue;
        }
        const Member& member = info.members[i];
        void* address = addresses[i + 2];
        switch (member.shape) {
        case Required:
        case Optional:
            // A repeated single element is read into the same object: the last one wins.
            member.ops->single(address, true)->deserialize(child);
            break;
        case List:
            member.ops->append(address)->deserialize(child);
            break;
        case OptionalList:
            member.ops->append(member.ops->vector(address, true))->deserialize(child);
            break;
        default: // the base's element: the base has read it
            break;
        }
    }

    const QDomNamedNodeMap attributes = node.attributes();
    for (int a = 0, n = attributes.size(); a < n; ++a) {
        QDomNode attribute = attributes.item(a);
        const int i = find(info, attribute.nodeName(), false);
        if (i < 0) {
            if (keepUnmatched)
                unmatchedAttributes += Utilites::nodeToText(attribute) + QLatin1Char('\n');
        } else if (info.members[i].shape != BaseAttribute)
            info.members[i].ops->single(addresses[i + 2], true)->deserialize(attribute);
    }
}

} // namespace ComplexType
