#include "onvifTypes/schema/soapenv/faultcodeEnum.h"

namespace soapenv {

faultcodeEnum::faultcodeEnum(tfaultcodeEnum value)
    : StringEnumBase(value,
        { QStringLiteral("DataEncodingUnknown"), QStringLiteral("MustUnderstand"), QStringLiteral("Receiver"),
            QStringLiteral("Sender"), QStringLiteral("VersionMismatch") })
{
}

faultcodeEnum::faultcodeEnum(const QString& value)
    : faultcodeEnum(DataEncodingUnknown)
{
    setValue(value);
}

} // namespace soapenv
