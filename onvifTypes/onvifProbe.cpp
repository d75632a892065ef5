#include "onvifTypes/onvifProbe.h"

#include "onvifTypes/onvifDeviceInfo.h"
#include "onvifTypes/onvifrequest.h"
#include "onvifTypes/schema/tds/GetDeviceInformation.h"
#include "onvifTypes/schema/tds/GetDeviceInformationResponse.h"

#include <QFutureWatcher>
#include <QTimer>

#include <memory>

namespace Onvif {

OnvifProbe::OnvifProbe(const QString& ip, int port, const QString& path, const QString& login,
    const QString& password, QNetworkAccessManager* manager, std::chrono::milliseconds timeout,
    QObject* parent)
    : QObject(parent)
    , m_ip(ip)
    , m_port(QString::number(port))
    , m_path(path)
    , m_url(QStringLiteral("http://%1:%3/%4").arg(ip).arg(port).arg(path))
    , m_login(login)
    , m_password(password)
    , m_manager(manager)
    , m_timeout(timeout)
{ }

void OnvifProbe::start()
{
    tds::GetDeviceInformation request;
    OnvifSecurity security(m_login, m_password, QDateTime::currentDateTime());
    QFuture<DeviceInfo> future
        = RequestHelper<tds::GetDeviceInformation, tds::GetDeviceInformationResponse, DeviceInfo>(
            request, QStringLiteral("GetDeviceInformation"), m_url, security, m_manager,
            [](tds::GetDeviceInformationResponse& response, bool, AsyncFuture::Deferred<DeviceInfo>& result) {
                if (result.future().isCanceled())
                    return;
                DeviceInfo info;
                info.manufacturer = response.Manufacturer->value();
                info.model = response.Model->value();
                info.serialNumber = response.SerialNumber->value();
                info.hardwareId = response.HardwareId->value();
                info.firmwareVersion = response.FirmwareVersion->value();
                info.type = OnvifDeviceInfo::getDeviceType(info);
                result.complete(info);
            },
            false);

    m_cancel = [future]() mutable { future.cancel(); };
    // Not stopped on success: cancelling a finished future changes nothing.
    QTimer::singleShot(m_timeout, this, [future]() mutable { future.cancel(); });

    // A cancel shows as canceled() at once and as finished() later; the first decides.
    auto* watcher = new QFutureWatcher<DeviceInfo>(this);
    auto settle = [this, watcher, settled = std::make_shared<bool>(false)]() {
        if (!*settled) {
            *settled = true;
            const QFuture<DeviceInfo> result = watcher->future();
            if (result.isCanceled() || result.resultCount() == 0)
                QMetaObject::invokeMethod(this, "finished", Qt::QueuedConnection);
            else
                QMetaObject::invokeMethod(
                    this, "connected", Qt::QueuedConnection, Q_ARG(Onvif::DeviceInfo, result.result()));
        }
        if (watcher->isFinished())
            watcher->deleteLater();
    };
    connect(watcher, &QFutureWatcher<DeviceInfo>::canceled, this, settle);
    connect(watcher, &QFutureWatcher<DeviceInfo>::finished, this, settle);
    watcher->setFuture(future);
}

void OnvifProbe::stop()
{
    if (m_cancel)
        m_cancel();
}

} // namespace Onvif
