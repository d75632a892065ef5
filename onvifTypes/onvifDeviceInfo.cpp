#include "onvifTypes/onvifDeviceInfo.h"

#include "onvifTypes/onvifResponse.h"
#include "onvifTypes/onvifrequest.h"
#include "onvifTypes/schema/tds/GetDeviceInformation.h"
#include "onvifTypes/schema/tds/GetDeviceInformationResponse.h"
#include "onvifTypes/transport/replyGuard_p.h"
#include "onvifTypes/transport/userAgent_p.h"
#include "zyrChecker/zyrChecker.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegExp>
#include <QTimer>
#include <QUrl>

namespace {

constexpr int kDeviceInfoTimeoutMs = 5000;

} // namespace

const QString OnvifDeviceInfo::zyrName = QStringLiteral("ZYR");
const QString OnvifDeviceInfo::geovisionName = QStringLiteral("GeoVision");
const QString OnvifDeviceInfo::hunterName = QStringLiteral("Hunter");
const QString OnvifDeviceInfo::unknownName = QStringLiteral("Unknown");

QString OnvifDeviceInfo::getDeviceType(const Onvif::DeviceInfo& info)
{
    if (checkZYR(info))
        return zyrName;
    return devTypeFromManufacturer(info.manufacturer);
}

QString OnvifDeviceInfo::devTypeFromManufacturer(const QString& manufacturer)
{
    const QString lower = manufacturer.toLower();
    if (lower == QLatin1String("geovision"))
        return geovisionName;
    if (lower == QLatin1String("h264"))
        return hunterName;
    return unknownName;
}

bool OnvifDeviceInfo::checkZYR(const Onvif::DeviceInfo& info)
{
    static const QStringList whiteLabels { QStringLiteral("ONVIF-IPNC"), QStringLiteral("ONVIF_IPNC"),
        QStringLiteral("ONVIF_CAMERA_ANJV"), QStringLiteral("ONVIF_CAMERA"),
        QStringLiteral("Network Digital Video"), QStringLiteral("A_ONVIF_CAMERA") };

    if (whiteLabels.contains(info.manufacturer)) {
        // Empty pieces kept here and dropped for "ZYR-PI" below: the two families name models differently.
        const QStringList pieces = info.model.split(QLatin1Char('-'), Qt::KeepEmptyParts);
        return !pieces.isEmpty() && ZYRChecker::check(pieces.first());
    }
    if (info.manufacturer == QLatin1String("IP CAMERA")
        && info.model.toLower() == QLatin1String("ip camera")) {
        // "<build>_..._YYYYMMDD": the build prefix names the family. Compiled once, kept.
        static const QRegExp firmware(QStringLiteral("^(.*)[_-].*_(\\d{4})-?(\\d{2})-?(\\d{2})$"));
        QRegExp matcher(firmware);
        if (matcher.indexIn(info.firmwareVersion) < 0)
            return false;
        return ZYRChecker::check(matcher.cap(1));
    }
    if (info.manufacturer == QLatin1String("ZYR-PI")) {
        const QStringList pieces = info.model.split(QLatin1Char('-'), Qt::SkipEmptyParts);
        return !pieces.isEmpty() && ZYRChecker::check(pieces.first());
    }
    if (!info.model.isEmpty() || !info.manufacturer.isEmpty() || info.hardwareId.isEmpty())
        return false;
    return ZYRChecker::check(info.hardwareId);
}

OnvifDeviceInfo::OnvifDeviceInfo(QNetworkAccessManager& manager, QObject* parent)
    : QObject(parent)
    , m_manager(&manager)
    , m_timer(new QTimer(this))
    , m_logger(OnvifLog::makeLogger(QStringLiteral("OnvifDeviceInfo")))
{
    m_timer->setSingleShot(true);
    // A coarse timer may fire up to 5 % early; the host is promised 5000 ms.
    m_timer->setTimerType(Qt::PreciseTimer);
    connect(m_timer, &QTimer::timeout, this, &OnvifDeviceInfo::requestTimeout);
}

OnvifDeviceInfo::~OnvifDeviceInfo()
{
    // The reply belongs to the borrowed manager and would otherwise live on with it.
    stop();
}

void OnvifDeviceInfo::getDeviceInfo(const QUrl& url)
{
    EmptyOnvifType header;
    getDeviceInfo(url, header);
}

void OnvifDeviceInfo::getDeviceInfo(const QUrl& url, const QString& login, const QString& password)
{
    OnvifSecurity header(login, password, 0);
    getDeviceInfo(url, header);
}

void OnvifDeviceInfo::getDeviceInfo(const QUrl& url, Serializable& header)
{
    stop();
    tds::GetDeviceInformation body;
    const OnvifRequest envelope(header, body);
    QNetworkRequest request(url);
    Onvif::Internal::setUserAgent(request);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/soap+xml"));
    m_pending = m_manager->post(request, envelope.getMessage().toUtf8());
    Onvif::Internal::guardLentReply(m_pending);
    connect(m_pending.data(), &QNetworkReply::finished, this, &OnvifDeviceInfo::getDeviceInfoResponse);
    m_timer->start(kDeviceInfoTimeoutMs);
}

void OnvifDeviceInfo::stop()
{
    ++m_request;
    m_timer->stop();
    dropPending();
}

void OnvifDeviceInfo::dropPending()
{
    if (!m_pending)
        return;
    m_pending->disconnect();
    // Aborting closes the connection now; the reply itself goes once control is back in the loop.
    m_pending->abort();
    m_pending->deleteLater();
    m_pending.clear();
}

void OnvifDeviceInfo::requestTimeout()
{
    if (!m_pending)
        return;
    dropPending();
    emitLater(nullptr, 3, QStringLiteral("timeout"));
}

void OnvifDeviceInfo::getDeviceInfoResponse()
{
    QNetworkReply* reply = m_pending.data();
    if (!reply || sender() != reply)
        return;
    m_pending.clear();
    m_timer->stop();
    reply->deleteLater();

    const QNetworkReply::NetworkError code = reply->error();
    if (code != QNetworkReply::NoError) {
        ONVIF_LOG(m_logger, OnvifLog::Error,
            QStringLiteral("Error while receiving DeviceInfoResponse:") + QString::number(int(code)));
        emitLater(nullptr, 3, QString::number(int(code)));
        return;
    }
    const OnvifResponse response(QString::fromUtf8(reply->readAll()));
    if (response.isFault()) {
        ONVIF_LOG(m_logger, OnvifLog::Error, "DeviceInfo response has error.");
        emitLater(nullptr, 1, response.getFaultText());
        return;
    }
    tds::GetDeviceInformationResponse answer;
    QDomNode node = response.getNodeByTag(QStringLiteral("GetDeviceInformationResponse"));
    answer.deserialize(node);
    Onvif::DeviceInfo info;
    info.manufacturer = answer.Manufacturer->value();
    info.model = answer.Model->value();
    info.firmwareVersion = answer.FirmwareVersion->value();
    info.serialNumber = answer.SerialNumber->value();
    info.hardwareId = answer.HardwareId->value();
    info.type = getDeviceType(info);
    emitLater(&info, 0, QString());
}

void OnvifDeviceInfo::emitLater(const Onvif::DeviceInfo* info, unsigned int code, const QString& text)
{
    const quint64 request = m_request;
    if (info) {
        QMetaObject::invokeMethod(
            this,
            [this, request, record = *info]() {
                if (request == m_request)
                    emit receiveDevInfo(record);
            },
            Qt::QueuedConnection);
    } else {
        QMetaObject::invokeMethod(
            this,
            [this, request, code, text]() {
                if (request == m_request)
                    emit error(code, text);
            },
            Qt::QueuedConnection);
    }
}
