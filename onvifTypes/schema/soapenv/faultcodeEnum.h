#ifndef ONVIFTYPES_SOAPENV_FAULTCODEENUM_H
#define ONVIFTYPES_SOAPENV_FAULTCODEENUM_H

#include <onvifTypes/stringEnumBase.h>

namespace soapenv {

class ONVIFTYPES_EXPORT faultcodeEnum : public StringEnumBase
{
public:
    enum tfaultcodeEnum { DataEncodingUnknown, MustUnderstand, Receiver, Sender, VersionMismatch };

    faultcodeEnum(tfaultcodeEnum value = DataEncodingUnknown);
    faultcodeEnum(const QString& value);
};

} // namespace soapenv

#endif
