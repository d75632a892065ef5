#include "bareSoap.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QDateTime>
#include <QRegularExpression>

namespace Bench {

QString getProfilesBody()
{
    return QStringLiteral("<trt:GetProfiles ></trt:GetProfiles>");
}

QString getStreamUriBody(const QString& profileToken)
{
    return QStringLiteral("<trt:GetStreamUri ><trt:StreamSetup ><tt:Stream>RTP-Unicast</tt:Stream>"
                          "<tt:Transport ><tt:Protocol>RTSP</tt:Protocol></tt:Transport></trt:StreamSetup>"
                          "<trt:ProfileToken>")
        + profileToken + QStringLiteral("</trt:ProfileToken></trt:GetStreamUri>");
}

QString getDeviceInformationBody()
{
    return QStringLiteral("<tds:GetDeviceInformation ></tds:GetDeviceInformation>");
}

QString getPtzCapabilitiesBody()
{
    return QStringLiteral("<tds:GetCapabilities ><tds:Category>PTZ</tds:Category></tds:GetCapabilities>");
}

QString getPresetsBody(const QString& profileToken)
{
    return QStringLiteral("<tptz:GetPresets ><tptz:ProfileToken>") + profileToken
        + QStringLiteral("</tptz:ProfileToken></tptz:GetPresets>");
}

QString bareEnvelope(const QString& user, const QString& password, const QString& body)
{
    static const QString request = QStringLiteral(
        "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
        "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\""
        " xmlns:tt=\"http://www.onvif.org/ver10/schema\" xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\""
        " xmlns:tev=\"http://www.onvif.org/ver10/events/wsdl\" "
        "xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\""
        " xmlns:wsnt=\"http://docs.oasis-open.org/wsn/b-2\" xmlns:a=\"http://www.w3.org/2005/08/addressing\""
        " xmlns:wsa5=\"http://www.w3.org/2005/08/addressing\" "
        "xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\""
        " xmlns:tan=\"http://www.onvif.org/ver20/analytics/wsdl\" >"
        "<s:Header><Security s:mustUnderstand=\"1\""
        " xmlns=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd\">"
        "<UsernameToken><Username>%1</Username><Password Type=\"http://docs.oasis-open.org/wss/2004/01/"
        "oasis-200401-wss-username-token-profile-1.0#PasswordDigest\">%2</Password>"
        "<Nonce EncodingType=\"http://docs.oasis-open.org/wss/2004/01/"
        "oasis-200401-wss-soap-message-security-1.0#Base64Binary\">%3</Nonce>"
        "<Created "
        "xmlns=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd\">"
        "%4</Created></UsernameToken></Security></s:Header>"
        "<s:Body xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\""
        " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">%5</s:Body></s:Envelope>");
    QByteArray nonce(32, Qt::Uninitialized);
    for (char& byte : nonce) {
        QT_WARNING_PUSH
        QT_WARNING_DISABLE_DEPRECATED
        byte = char(qrand() & 0xff);
        QT_WARNING_POP
    }
    const QString created
        = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy-MM-ddThh:mm:ss.zzzZ"));
    QCryptographicHash sha1(QCryptographicHash::Sha1);
    sha1.addData(nonce);
    sha1.addData(created.toLatin1());
    sha1.addData(password.toLatin1());
    return request.arg(user, QString::fromLatin1(sha1.result().toBase64()),
        QString::fromLatin1(nonce.toBase64()), created, body);
}

QString withoutSecrets(QString text)
{
    static const QRegularExpression secrets(QStringLiteral("(<(?:Password|Nonce|Created)\\b[^>]*>)[^<]*"));
    return text.replace(secrets, QStringLiteral("\\1*"));
}

} // namespace Bench
