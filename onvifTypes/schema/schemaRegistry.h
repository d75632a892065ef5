#ifndef ONVIFTYPES_SCHEMA_SCHEMAREGISTRY_H
#define ONVIFTYPES_SCHEMA_SCHEMAREGISTRY_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>
#include <QStringList>

// Every generated schema class by its qualified C++ name ("tt::Profile",
// "trt::GetProfilesResponse"), for callers that pick a type at run time.
namespace SchemaRegistry {

// All names, sorted.
ONVIFTYPES_EXPORT QStringList classNames();
// A default-constructed object of the named class, or null for an unknown name.
ONVIFTYPES_EXPORT QSharedPointer<Serializable> create(const QString& className);

} // namespace SchemaRegistry

#endif // ONVIFTYPES_SCHEMA_SCHEMAREGISTRY_H
