#include "onvifTypes/xmlDocument_p.h"

#include <QDomDocument>
#include <QVarLengthArray>
#include <QVector>
#include <QXmlStreamReader>

#include <string_view>
#include <unordered_map>

namespace Utilites {

namespace {

QString depthError(const Onvif::Limits& limits)
{
    return QStringLiteral("elements nest deeper than %1 (maxXmlDepth)").arg(limits.maxXmlDepth);
}
QString elementsError(const Onvif::Limits& limits)
{
    return QStringLiteral("more than %1 elements (maxXmlElements)").arg(limits.maxXmlElements);
}
QString attributesError(const Onvif::Limits& limits)
{
    return QStringLiteral("more than %1 attributes on one element (maxXmlAttributesPerElement)")
        .arg(limits.maxXmlAttributesPerElement);
}
QString declarationError()
{
    return QStringLiteral(
        "a document type declaration naming a DTD is not accepted (no entities are expanded)");
}
QString referenceError()
{
    return QStringLiteral("a reference other than &lt; &gt; &amp; &quot; &apos; or a character reference "
                          "is not accepted (no entities are expanded)");
}

// Index just past `terminator` at or after `from`, or the end of the text.
int skipPast(const QString& text, int from, QLatin1String terminator)
{
    const int at = text.indexOf(terminator, from);
    return at < 0 ? text.size() : at + terminator.size();
}

// Length of the predefined entity or character reference at `p` (on the '&'), or 0 for
// anything else: a named entity could only be declared in a DTD, and none is accepted.
int acceptedReference(const char16_t* p, const char16_t* end)
{
    static const std::u16string_view predefined[] = { u"&lt;", u"&gt;", u"&amp;", u"&quot;", u"&apos;" };
    const std::u16string_view rest(p, size_t(end - p));
    for (const std::u16string_view& entity : predefined) {
        if (rest.substr(0, entity.size()) == entity)
            return int(entity.size());
    }
    if (rest.size() < 2 || rest[1] != u'#')
        return 0;
    const bool hex = rest.size() > 2 && rest[2] == u'x';
    size_t i = hex ? 3 : 2;
    const size_t first = i;
    for (; i < rest.size(); ++i) {
        const char16_t c = rest[i];
        const bool digit
            = (c >= u'0' && c <= u'9') || (hex && ((c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F')));
        if (!digit)
            break;
    }
    // Whether the number names a character XML allows is left to the parsers.
    return i > first && i < rest.size() && rest[i] == u';' ? int(i + 1) : 0;
}

// Length of a "<!DOCTYPE name>" at `p`, without external identifier or internal subset; else 0.
int bareDoctype(const char16_t* p, const char16_t* end)
{
    const std::u16string_view keyword = u"<!DOCTYPE";
    const std::u16string_view rest(p, size_t(end - p));
    if (rest.substr(0, keyword.size()) != keyword)
        return 0;
    const auto space = [](char16_t c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'; };
    size_t i = keyword.size();
    const size_t nameStart = i < rest.size() && space(rest[i]) ? ++i : 0;
    if (nameStart == 0)
        return 0;
    while (i < rest.size() && space(rest[i]))
        ++i;
    const size_t name = i;
    while (i < rest.size() && !space(rest[i]) && rest[i] != u'>' && rest[i] != u'[' && rest[i] != u'"'
        && rest[i] != u'\'')
        ++i;
    if (i == name)
        return 0;
    while (i < rest.size() && space(rest[i]))
        ++i;
    return i < rest.size() && rest[i] == u'>' ? int(i + 1) : 0;
}

// Checks a text the tree builder did not take before Qt's parsers see it: they would
// expand entities, and some of their steps are quadratic in the attributes of one
// element. The scan reads comments, CDATA, instructions and quoted values as a parser
// does, so a well-formed text can hide nothing from it; one pass, no allocation.
QString limitViolation(const QString& text, const Onvif::Limits& limits)
{
    const char16_t* const data = reinterpret_cast<const char16_t*>(text.constData());
    const int size = text.size();
    int depth = 0;
    int elements = 0;
    int i = 0;
    while (i < size) {
        const char16_t c = data[i];
        if (c == u'&') {
            const int length = acceptedReference(data + i, data + size);
            if (length == 0)
                return referenceError();
            i += length;
            continue;
        }
        if (c != u'<') {
            ++i;
            continue;
        }
        if (text.midRef(i, 4) == QLatin1String("<!--")) {
            i = skipPast(text, i + 4, QLatin1String("-->"));
        } else if (text.midRef(i, 9) == QLatin1String("<![CDATA[")) {
            i = skipPast(text, i + 9, QLatin1String("]]>"));
        } else if (text.midRef(i, 2) == QLatin1String("<!")) {
            // Markup declarations exist only in a DTD. A bare <!DOCTYPE name> (HTML error
            // pages have one) names none and declares nothing.
            const int length = bareDoctype(data + i, data + size);
            if (length == 0)
                return declarationError();
            i += length;
        } else if (text.midRef(i, 2) == QLatin1String("<?")) {
            i = skipPast(text, i + 2, QLatin1String("?>"));
        } else if (text.midRef(i, 2) == QLatin1String("</")) {
            --depth;
            i = skipPast(text, i + 2, QLatin1String(">"));
        } else {
            // A start tag: its end outside quoted values; one quoted value per attribute.
            char16_t quote = 0;
            int attributes = 0;
            int j = i + 1;
            for (; j < size; ++j) {
                const char16_t t = data[j];
                if (quote) {
                    if (t == quote) {
                        quote = 0;
                    } else if (t == u'&') {
                        const int length = acceptedReference(data + j, data + size);
                        if (length == 0)
                            return referenceError();
                        j += length - 1;
                    }
                } else if (t == u'"' || t == u'\'') {
                    quote = t;
                    if (++attributes > limits.maxXmlAttributesPerElement)
                        return attributesError(limits);
                } else if (t == u'>') {
                    break;
                }
            }
            if (++elements > limits.maxXmlElements)
                return elementsError(limits);
            if (depth + 1 > limits.maxXmlDepth)
                return depthError(limits);
            if (j >= size || data[j - 1] != u'/')
                ++depth;
            i = j + 1;
        }
    }
    return QString();
}

} // namespace

namespace {

// Replies are almost always plain namespaced elements, attributes and text. This
// builder reads exactly that subset in one pass and builds the same tree the stream
// reader would; anything outside it (DTDs, CDATA, instructions, unusual names,
// malformed text) it hands back, and the Qt parsers decide.
class TreeBuilder
{
public:
    enum Result { Built, Refused, Declined, UndeclaredPrefix };

    TreeBuilder(QDomDocument& document, const QString& text, const Onvif::Limits& limits)
        : m_document(document)
        , m_limits(limits)
        , m_begin(reinterpret_cast<const char16_t*>(text.constData()))
        , m_p(m_begin)
        , m_end(m_begin + text.size())
    { }

    // Built, Refused (past a limit; error() says which) or Declined.
    Result build();
    const QString& error() const { return m_error; }

private:
    struct Binding
    {
        const char16_t* prefix;
        int prefixSize;
        QString uri;
    };
    struct Open
    {
        QDomElement element;
        const char16_t* name;
        int nameSize;
        int bindings;
    };
    struct Attribute
    {
        const char16_t* name;
        int nameSize;
        int colon; // index of the prefix's colon, or -1
        bool declaration; // xmlns or xmlns:prefix
        QString value;
    };

    static bool isSpace(char16_t c) { return c == u' ' || c == u'\n' || c == u'\t' || c == u'\r'; }
    static bool isNameStart(char16_t c)
    {
        return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || c == u'_';
    }
    static bool isNameChar(char16_t c)
    {
        return isNameStart(c) || (c >= u'0' && c <= u'9') || c == u'-' || c == u'.';
    }
    // "xml" and "xmlns" are bound without a declaration; the stream reader knows them.
    static bool reservedPrefix(const char16_t* prefix, int size)
    {
        return (size == 3 || size == 5) && std::equal(prefix, prefix + size, u"xmlns");
    }
    static QString toQString(const char16_t* from, int size)
    {
        return QString(reinterpret_cast<const QChar*>(from), size);
    }
    // A name split once and shared by every node that bears it: QDom copies the parts of
    // a qualified name it splits itself, and names repeat all through a reply.
    struct Name
    {
        QString local;
        QString prefix; // null without one
    };
    const Name& name(const char16_t* text, int size, int colon)
    {
        const std::u16string_view key(text, size_t(size));
        auto it = m_names.find(key);
        if (it == m_names.end()) {
            Name parts { colon < 0 ? toQString(text, size) : toQString(text + colon + 1, size - colon - 1),
                colon < 0 ? QString() : toQString(text, colon) };
            it = m_names.emplace(key, std::move(parts)).first;
        }
        return it->second;
    }

    // The characters from `run` up to the read position.
    void appendRun(QString& out, const char16_t* run) const
    {
        out.append(reinterpret_cast<const QChar*>(run), int(m_p - run));
    }
    bool startsWith(const char16_t* literal, int size) const
    {
        return m_end - m_p >= size && std::equal(literal, literal + size, m_p);
    }
    bool skipSpace()
    {
        const char16_t* from = m_p;
        while (m_p < m_end && isSpace(*m_p))
            ++m_p;
        return m_p != from;
    }
    int qualifiedName(int* colon);
    bool character(QString& out, bool inAttribute);
    bool reference(QString& out);
    bool text(QString& out);
    bool attributeValue(QString& out);
    bool comment(QDomNode& parent);
    bool xmlDeclaration();
    bool miscellany();
    const QString* lookup(const char16_t* prefix, int size) const;
    // What a prefix without a binding means: Built when it may stay without a namespace.
    Result unbound(const char16_t* prefix, int size) const
    {
        if (reservedPrefix(prefix, size))
            return Declined;
        return m_forgiving ? Built : UndeclaredPrefix;
    }
    Result startTag();
    bool endTag();
    Result parse();
    Result refuse(const QString& error)
    {
        m_error = error;
        return Refused;
    }

    QDomDocument& m_document;
    const Onvif::Limits& m_limits;
    const char16_t* const m_begin;
    const char16_t* m_p;
    const char16_t* const m_end;
    // Building what the SAX-based parser builds: undeclared prefixes have no
    // namespace, and line ends and white space in values stay as sent.
    bool m_forgiving = false;
    QVector<Binding> m_bindings;
    QVector<Open> m_open;
    std::unordered_map<std::u16string_view, Name> m_names; // keys point into the text
    int m_elements = 0;
    QString m_error;
};

// ASCII names only, with at most one colon between two non-empty parts; the
// stream reader's full Unicode name rules stay with it.
int TreeBuilder::qualifiedName(int* colon)
{
    *colon = -1;
    const char16_t* from = m_p;
    if (m_p >= m_end || !isNameStart(*m_p))
        return 0;
    ++m_p;
    while (m_p < m_end) {
        if (isNameChar(*m_p)) {
            ++m_p;
        } else if (*m_p == u':' && *colon < 0 && m_p + 1 < m_end && isNameStart(m_p[1])) {
            *colon = int(m_p - from);
            m_p += 2;
        } else {
            break;
        }
    }
    return int(m_p - from);
}

// One character reference or predefined entity, m_p on the '&'.
bool TreeBuilder::reference(QString& out)
{
    ++m_p;
    if (m_p < m_end && *m_p == u'#') {
        ++m_p;
        const bool hex = m_p < m_end && *m_p == u'x';
        if (hex)
            ++m_p;
        uint value = 0;
        int digits = 0;
        for (; m_p < m_end && *m_p != u';'; ++m_p, ++digits) {
            const char16_t c = *m_p;
            uint digit;
            if (c >= u'0' && c <= u'9')
                digit = c - u'0';
            else if (hex && c >= u'a' && c <= u'f')
                digit = c - u'a' + 10;
            else if (hex && c >= u'A' && c <= u'F')
                digit = c - u'A' + 10;
            else
                return false;
            if (digits >= 8)
                return false;
            value = value * (hex ? 16 : 10) + digit;
        }
        if (m_p >= m_end || digits == 0)
            return false;
        ++m_p;
        const bool valid = value == 0x9 || value == 0xA || value == 0xD || (value >= 0x20 && value <= 0xD7FF)
            || (value >= 0xE000 && value <= 0xFFFD) || (value >= 0x10000 && value <= 0x10FFFF);
        if (!valid)
            return false;
        if (value >= 0x10000) {
            out.append(QChar(QChar::highSurrogate(value)));
            out.append(QChar(QChar::lowSurrogate(value)));
        } else {
            out.append(QChar(char16_t(value)));
        }
        return true;
    }
    static const struct
    {
        char16_t name[5];
        int size;
        char16_t value;
    } entities[] = { { u"lt", 2, u'<' }, { u"gt", 2, u'>' }, { u"amp", 3, u'&' }, { u"quot", 4, u'"' },
        { u"apos", 4, u'\'' } };
    for (const auto& entity : entities) {
        if (startsWith(entity.name, entity.size) && m_p + entity.size < m_end && m_p[entity.size] == u';') {
            m_p += entity.size + 1;
            out.append(QChar(entity.value));
            return true;
        }
    }
    return false;
}

// Checks and copies one character that is not markup; false for what XML forbids.
// Line ends become "\n", and in attribute values any white space a space.
bool TreeBuilder::character(QString& out, bool inAttribute)
{
    const char16_t c = *m_p++;
    if (c == u'\r') {
        if (m_forgiving) {
            out.append(QChar(c));
            return true;
        }
        if (m_p < m_end && *m_p == u'\n')
            ++m_p;
        out.append(QChar(inAttribute ? u' ' : u'\n'));
        return true;
    }
    if (c < 0x20) {
        if (c != u'\n' && c != u'\t')
            return false;
        out.append(QChar(inAttribute && !m_forgiving ? u' ' : c));
        return true;
    }
    if (c >= 0xD800 && c <= 0xDBFF) {
        if (m_p >= m_end || *m_p < 0xDC00 || *m_p > 0xDFFF)
            return false;
        out.append(QChar(c));
        out.append(QChar(*m_p++));
        return true;
    }
    if ((c >= 0xDC00 && c <= 0xDFFF) || c == 0xFFFE || c == 0xFFFF)
        return false;
    out.append(QChar(c));
    return true;
}

// Character data up to the next '<'. Plain runs are copied in one piece.
bool TreeBuilder::text(QString& out)
{
    const char16_t* run = m_p;
    while (m_p < m_end) {
        const char16_t c = *m_p;
        if (c == u'<')
            break;
        if ((c >= 0x20 && c < 0xD800 && c != u'&' && c != u']') || (c >= 0xE000 && c < 0xFFFE)) {
            ++m_p;
            continue;
        }
        if (c == u'\n' || c == u'\t') {
            ++m_p;
            continue;
        }
        appendRun(out, run);
        if (c == u'&') {
            if (!reference(out))
                return false;
        } else if (c == u']') {
            if (m_end - m_p >= 3 && m_p[1] == u']' && m_p[2] == u'>')
                return false;
            out.append(QChar(c));
            ++m_p;
        } else if (!character(out, false)) {
            return false;
        }
        run = m_p;
    }
    if (m_p >= m_end)
        return false;
    appendRun(out, run);
    return true;
}

// A quoted value, m_p on the opening quote.
bool TreeBuilder::attributeValue(QString& out)
{
    const char16_t quote = *m_p++;
    const char16_t* run = m_p;
    while (m_p < m_end && *m_p != quote) {
        const char16_t c = *m_p;
        if ((c >= 0x20 && c < 0xD800 && c != u'&' && c != u'<') || (c >= 0xE000 && c < 0xFFFE)) {
            ++m_p;
            continue;
        }
        appendRun(out, run);
        if (c == u'<')
            return false;
        if (c == u'&' ? !reference(out) : !character(out, true))
            return false;
        run = m_p;
    }
    if (m_p >= m_end)
        return false;
    appendRun(out, run);
    // An empty value is an empty string, not a null one, as in Qt's trees.
    if (out.isNull())
        out = QLatin1String("");
    ++m_p;
    return true;
}

bool TreeBuilder::comment(QDomNode& parent)
{
    m_p += 4;
    const char16_t* from = m_p;
    for (; m_p < m_end; ++m_p) {
        const char16_t c = *m_p;
        if (c == u'-' && m_p + 1 < m_end && m_p[1] == u'-') {
            if (m_p + 2 >= m_end || m_p[2] != u'>')
                return false;
            parent.appendChild(m_document.createComment(toQString(from, int(m_p - from))));
            m_p += 3;
            return true;
        }
        // Line ends would need normalising; such comments go to the Qt parsers.
        if ((c < 0x20 && c != u'\n' && c != u'\t') || c >= 0xD800)
            return false;
    }
    return false;
}

// `<?xml version="1.0" ...?>`, kept as the processing instruction the stream reader makes of it.
bool TreeBuilder::xmlDeclaration()
{
    m_p += 5;
    struct Pseudo
    {
        const char16_t* name;
        int size;
        const char16_t* value = nullptr;
        int valueSize = 0;
    } pseudo[] = { { u"version", 7 }, { u"encoding", 8 }, { u"standalone", 10 } };
    for (Pseudo& item : pseudo) {
        const char16_t* before = m_p;
        if (!skipSpace() || !startsWith(item.name, item.size)) {
            m_p = before;
            continue;
        }
        m_p += item.size;
        skipSpace();
        if (m_p >= m_end || *m_p != u'=')
            return false;
        ++m_p;
        skipSpace();
        if (m_p >= m_end || (*m_p != u'"' && *m_p != u'\''))
            return false;
        const char16_t quote = *m_p++;
        item.value = m_p;
        while (m_p < m_end && *m_p != quote && (isNameChar(*m_p)))
            ++m_p;
        if (m_p >= m_end || *m_p != quote)
            return false;
        item.valueSize = int(m_p++ - item.value);
    }
    skipSpace();
    if (!startsWith(u"?>", 2))
        return false;
    m_p += 2;
    const Pseudo& version = pseudo[0];
    const Pseudo& encoding = pseudo[1];
    const Pseudo& standalone = pseudo[2];
    const QString yes = QStringLiteral("yes");
    if (!version.value || toQString(version.value, version.valueSize) != QLatin1String("1.0"))
        return false;
    // The stream reader refuses encodings Qt has no codec for, even in a decoded text;
    // only UTF-8, what replies name, is taken here.
    if (encoding.value
        && toQString(encoding.value, encoding.valueSize).compare(QLatin1String("UTF-8"), Qt::CaseInsensitive)
            != 0)
        return false;
    QString data = QStringLiteral("version='1.0'");
    if (encoding.value)
        data += QLatin1String(" encoding='") + toQString(encoding.value, encoding.valueSize)
            + QLatin1Char('\'');
    if (standalone.value) {
        const QString value = toQString(standalone.value, standalone.valueSize);
        if (value != yes && value != QLatin1String("no"))
            return false;
        if (value == yes || m_forgiving)
            data += QLatin1String(" standalone='") + value + QLatin1Char('\'');
    }
    m_document.appendChild(m_document.createProcessingInstruction(QStringLiteral("xml"), data));
    return true;
}

// White space and comments around the root element.
bool TreeBuilder::miscellany()
{
    for (;;) {
        skipSpace();
        if (!startsWith(u"<!--", 4))
            return true;
        if (!comment(m_document))
            return false;
    }
}

const QString* TreeBuilder::lookup(const char16_t* prefix, int size) const
{
    for (int i = m_bindings.size() - 1; i >= 0; --i) {
        const Binding& binding = m_bindings.at(i);
        if (binding.prefixSize == size && std::equal(prefix, prefix + size, binding.prefix))
            return &binding.uri;
    }
    return nullptr;
}

// m_p on the '<' of a start tag.
TreeBuilder::Result TreeBuilder::startTag()
{
    ++m_p;
    const char16_t* name = m_p;
    int colon;
    const int nameSize = qualifiedName(&colon);
    if (nameSize == 0)
        return Declined;
    QVarLengthArray<Attribute, 16> attributes;
    bool empty = false;
    for (;;) {
        const bool spaced = skipSpace();
        if (m_p >= m_end)
            return Declined;
        if (*m_p == u'>') {
            ++m_p;
            break;
        }
        if (*m_p == u'/') {
            if (m_p + 1 >= m_end || m_p[1] != u'>')
                return Declined;
            m_p += 2;
            empty = true;
            break;
        }
        Attribute attribute;
        attribute.name = m_p;
        attribute.nameSize = qualifiedName(&attribute.colon);
        if (!spaced || attribute.nameSize == 0)
            return Declined;
        attribute.declaration
            = std::equal(attribute.name, attribute.name + qMin(attribute.nameSize, 5), u"xmlns")
            && (attribute.nameSize == 5 || attribute.colon == 5);
        skipSpace();
        if (m_p >= m_end || *m_p != u'=')
            return Declined;
        ++m_p;
        skipSpace();
        if (m_p >= m_end || (*m_p != u'"' && *m_p != u'\'') || !attributeValue(attribute.value))
            return Declined;
        attributes.append(std::move(attribute));
        if (attributes.size() > m_limits.maxXmlAttributesPerElement)
            return refuse(attributesError(m_limits));
    }
    if (++m_elements > m_limits.maxXmlElements)
        return refuse(elementsError(m_limits));
    if (m_open.size() >= m_limits.maxXmlDepth)
        return refuse(depthError(m_limits));
    // Quadratic checks and linear lookups below; replies have a few dozen of each.
    if (attributes.size() > 64 || m_bindings.size() > 256)
        return Declined;

    const int bindings = m_bindings.size();
    for (int i = 0; i < attributes.size(); ++i) {
        const Attribute& attribute = attributes.at(i);
        for (int j = 0; j < i; ++j) {
            const Attribute& other = attributes.at(j);
            if (other.nameSize == attribute.nameSize
                && std::equal(other.name, other.name + other.nameSize, attribute.name))
                return Declined;
        }
        if (!attribute.declaration)
            continue;
        // The reserved namespaces and empty prefixed bindings are errors or special
        // cases of their own.
        if (attribute.value == QLatin1String("http://www.w3.org/XML/1998/namespace")
            || attribute.value == QLatin1String("http://www.w3.org/2000/xmlns/"))
            return Declined;
        if (attribute.colon == 5) {
            const char16_t* prefix = attribute.name + 6;
            const int prefixSize = attribute.nameSize - 6;
            if (attribute.value.isEmpty()
                || (prefixSize >= 3 && (prefix[0] | 0x20) == u'x' && (prefix[1] | 0x20) == u'm'
                    && (prefix[2] | 0x20) == u'l'))
                return Declined;
            m_bindings.append({ prefix, prefixSize, attribute.value });
        } else {
            // An empty default namespace is not the absent one: elements get "" as their URI.
            m_bindings.append(
                { attribute.name, 0, attribute.value.isEmpty() ? QStringLiteral("") : attribute.value });
        }
    }

    const QString* uri = lookup(name, colon < 0 ? 0 : colon);
    if (colon >= 0 && !uri && unbound(name, colon) != Built)
        return unbound(name, colon);
    QDomElement element;
    if (uri) {
        // Made without its prefix and given it after, as QDom would have split it.
        const Name& parts = this->name(name, nameSize, colon);
        element = m_document.createElementNS(*uri, parts.local);
        if (colon >= 0)
            element.setPrefix(parts.prefix);
    } else {
        element = m_document.createElementNS(QString(), toQString(name, nameSize));
    }
    for (int i = 0; i < attributes.size(); ++i) {
        const Attribute& attribute = attributes.at(i);
        if (attribute.declaration)
            continue;
        if (attribute.colon < 0) {
            element.setAttributeNS(
                QString(), this->name(attribute.name, attribute.nameSize, -1).local, attribute.value);
            continue;
        }
        const QString* attributeUri = lookup(attribute.name, attribute.colon);
        if (!attributeUri && unbound(attribute.name, attribute.colon) != Built)
            return unbound(attribute.name, attribute.colon);
        // Two prefixes bound to one namespace may not name the same attribute twice.
        const char16_t* local = attribute.name + attribute.colon + 1;
        const int localSize = attribute.nameSize - attribute.colon - 1;
        for (int j = 0; j < i; ++j) {
            const Attribute& other = attributes.at(j);
            if (other.colon >= 0 && other.nameSize - other.colon - 1 == localSize
                && std::equal(local, local + localSize, other.name + other.colon + 1))
                return Declined;
        }
        element.setAttributeNS(attributeUri ? *attributeUri : QString(),
            toQString(attribute.name, attribute.nameSize), attribute.value);
    }
    if (m_open.isEmpty())
        m_document.appendChild(element);
    else
        m_open.last().element.appendChild(element);
    if (empty)
        m_bindings.resize(bindings);
    else
        m_open.append({ element, name, nameSize, bindings });
    return Built;
}

// m_p on the "</" of an end tag.
bool TreeBuilder::endTag()
{
    m_p += 2;
    if (m_open.isEmpty())
        return false;
    const Open& open = m_open.last();
    if (m_end - m_p < open.nameSize || !std::equal(open.name, open.name + open.nameSize, m_p))
        return false;
    m_p += open.nameSize;
    if (m_p < m_end && (isNameChar(*m_p) || *m_p == u':'))
        return false;
    skipSpace();
    if (m_p >= m_end || *m_p != u'>')
        return false;
    ++m_p;
    m_bindings.resize(open.bindings);
    m_open.removeLast();
    return true;
}

TreeBuilder::Result TreeBuilder::build()
{
    const Result result = parse();
    if (result != UndeclaredPrefix)
        return result;
    // Only the SAX-based parser accepts this text; build its tree instead.
    m_document.clear();
    m_p = m_begin;
    m_bindings.clear();
    m_open.clear();
    m_elements = 0;
    m_forgiving = true;
    return parse();
}

TreeBuilder::Result TreeBuilder::parse()
{
    if (startsWith(u"<?xml", 5) && m_end - m_p > 5 && isSpace(m_p[5]) && !xmlDeclaration())
        return Declined;
    if (!miscellany() || m_p >= m_end || *m_p != u'<')
        return Declined;
    m_open.reserve(32);
    do {
        if (*m_p == u'<') {
            if (m_p + 1 >= m_end)
                return Declined;
            const char16_t next = m_p[1];
            if (next == u'/') {
                if (!endTag())
                    return Declined;
            } else if (next == u'!') {
                if (!startsWith(u"<!--", 4) || !comment(m_open.last().element))
                    return Declined;
            } else if (next == u'?') {
                return Declined;
            } else {
                const Result result = startTag();
                if (result != Built)
                    return result;
            }
        } else {
            // Indentation, the usual text between elements, is dropped unread.
            const char16_t* from = m_p;
            if (skipSpace() && m_p < m_end && *m_p == u'<')
                continue;
            m_p = from;
            QString data;
            if (!text(data))
                return Declined;
            // As the stream reader's tree: runs of white space, Unicode's included, are dropped.
            const QChar* c = data.constData();
            const QChar* const end = c + data.size();
            while (c < end && c->isSpace())
                ++c;
            if (c != end)
                m_open.last().element.appendChild(m_document.createTextNode(data));
        }
    } while (!m_open.isEmpty() && m_p < m_end);
    if (!m_open.isEmpty() || !miscellany())
        return Declined;
    return m_p == m_end ? Built : Declined;
}

} // namespace

bool parseDocument(QDomDocument& document, const QString& text, const Onvif::Limits& limits, QString* error)
{
    document.clear();
    QString reason;
    if (text.size() > limits.maxReplyBytes)
        reason = QStringLiteral("the answer is longer than %1 characters (maxReplyBytes)")
                     .arg(limits.maxReplyBytes);
    // Only a text with more tags than the element limit can go past it; such a text is
    // checked before a tree is built, so that it costs no tree at all.
    else if (text.count(QLatin1Char('<')) > limits.maxXmlElements)
        reason = limitViolation(text, limits);
    if (reason.isEmpty()) {
        TreeBuilder builder(document, text, limits);
        const TreeBuilder::Result built = builder.build();
        if (built == TreeBuilder::Built) {
            if (error)
                error->clear();
            return true;
        }
        document.clear();
        reason = built == TreeBuilder::Refused ? builder.error() : limitViolation(text, limits);
    }
    if (reason.isEmpty()) {
        // The stream reader refuses what the forgiving SAX-based overload accepts
        // (undeclared prefixes, which some devices send); its message is the clearer one.
        QXmlStreamReader reader(text);
        QString message;
        int line = 0;
        int column = 0;
        if (document.setContent(&reader, true, &message, &line, &column) || document.setContent(text, true)) {
            if (error)
                error->clear();
            return true;
        }
        document.clear();
        reason = text.trimmed().isEmpty() ? QStringLiteral("the answer is empty")
                                          : QStringLiteral("not well-formed XML at line %1, column %2: %3")
                                                .arg(line)
                                                .arg(column)
                                                .arg(message);
    }
    if (error)
        *error = reason;
    return false;
}

bool parseDocument(QDomDocument& document, const QString& text, QString* error)
{
    return parseDocument(document, text, Onvif::Limits::defaults(), error);
}

} // namespace Utilites
