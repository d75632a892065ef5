#ifndef ONVIFTYPES_SCHEMA_COMPLEXTYPE_P_H
#define ONVIFTYPES_SCHEMA_COMPLEXTYPE_P_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>
#include <QVector>

#include <typeinfo>

// The one serialisation engine of the generated schema classes. Each class
// describes its members in a constant table; the functions here walk that table,
// so the per-class code is a table, an address list and three one-line calls.
namespace ComplexType {

// How a member is stored and written.
enum Shape : unsigned char {
    Required, // QSharedPointer<T>, made by the constructor
    Optional, // QSharedPointer<T>, null until read or set
    List, // QVector<T>
    OptionalList, // QSharedPointer<QVector<T>>, null until its first entry
    Attribute, // QSharedPointer<T>, made by the constructor
    OptionalAttribute, // QSharedPointer<T>, null until read or set
    Text, // QSharedPointer<T> holding the element's own text (simple content)
    BaseElement, // an element of a base class: recognised and skipped, no storage
    BaseAttribute // an attribute of a base class: recognised and skipped, no storage
};

// Type-erased access to the three containers of one member type T.
struct TypeOps
{
    // QSharedPointer<T>*: the object, made first when make is set and it is null.
    Serializable* (*single)(void* pointer, bool make);
    // QVector<T>*
    int (*count)(const void* vector);
    Serializable* (*item)(void* vector, int index);
    Serializable* (*append)(void* vector);
    // QSharedPointer<QVector<T>>*: the vector, made first when make is set.
    void* (*vector)(void* pointer, bool make);
    // Appends the text of a T (or of an application's class derived from T) to out.
    void (*write)(Serializable* value, QString& out, QLatin1String tagName);
};

template <typename T> struct OpsOf
{
    static Serializable* single(void* pointer, bool make)
    {
        auto& p = *static_cast<QSharedPointer<T>*>(pointer);
        if (!p && make)
            p.reset(new T);
        return p.data();
    }
    static int count(const void* vector) { return static_cast<const QVector<T>*>(vector)->size(); }
    static Serializable* item(void* vector, int index) { return &(*static_cast<QVector<T>*>(vector))[index]; }
    static Serializable* append(void* vector)
    {
        auto& v = *static_cast<QVector<T>*>(vector);
        v.append(T());
        return &v.last();
    }
    static void* vector(void* pointer, bool make)
    {
        auto& p = *static_cast<QSharedPointer<QVector<T>>*>(pointer);
        if (!p && make)
            p.reset(new QVector<T>);
        return p.data();
    }
    static void write(Serializable* value, QString& out, QLatin1String tagName)
    {
        T* object = static_cast<T*>(value);
        // The library's own classes append in place; a class derived from one by an
        // application is asked through serialize(), which it may have overridden.
        if (typeid(*object) == typeid(T))
            object->T::serializeTo(out, tagName);
        else
            out += object->serialize(QString(tagName));
    }
};

// Members held singly need only the first operation; keeping the vector ones out
// spares a QVector<T> instantiation for every type that never stands in a list.
template <typename T>
inline constexpr TypeOps typeOps = { &OpsOf<T>::single, nullptr, nullptr, nullptr, nullptr, &OpsOf<T>::write };

template <typename T>
inline constexpr TypeOps listOps = { &OpsOf<T>::single, &OpsOf<T>::count, &OpsOf<T>::item, &OpsOf<T>::append,
    &OpsOf<T>::vector, &OpsOf<T>::write };

struct Member
{
    const char* name; // qualified element name ("tt:Encoding") or attribute name as written
    Shape shape;
    const TypeOps* ops; // null for BaseElement and BaseAttribute
};

// Fills addresses[0] and [1] with the two unmatched texts, then one address per
// stored member in table order.
using BindFunction = void (*)(Serializable* object, void** addresses);

struct ClassInfo
{
    const char* ownName; // "tt:VideoEncoderConfiguration"
    const Member* members; // stored members first, then the base's names
    int memberCount;
    BindFunction bind;
};

void construct(const ClassInfo& info, Serializable* object);
QString serialize(const ClassInfo& info, const Serializable* object, const QString& tagName);
// For a derived class: baseText is the base's serialisation under "_MagicString_".
QString serialize(
    const ClassInfo& info, const Serializable* object, const QString& tagName, const QString& baseText);
// The same text appended to out, for serializeTo().
void serializeTo(const ClassInfo& info, const Serializable* object, QString& out, QLatin1String tagName);
void serializeTo(const ClassInfo& info, const Serializable* object, QString& out, QLatin1String tagName,
    const QString& baseText);
void deserialize(const ClassInfo& info, Serializable* object, const QDomNode& node);

// Held by a derived class while its base reads the same node: the base's unmatched
// texts are cleared right after, so the base does not write them (writing a node back
// as text is the dearest part of reading).
class BasePass
{
public:
    explicit BasePass(const QDomNode& node);
    ~BasePass();
    BasePass(const BasePass&) = delete;
    BasePass& operator=(const BasePass&) = delete;

private:
    const QDomNode* m_previous;
};

} // namespace ComplexType

#endif // ONVIFTYPES_SCHEMA_COMPLEXTYPE_P_H
