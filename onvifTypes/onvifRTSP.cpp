#include "onvifTypes/onvifRTSP.h"

#include "onvifTypes/onvifResponse.h"
#include "onvifTypes/onvifSecurity.h"
#include "onvifTypes/onvifrequest.h"
#include "onvifTypes/profileInfo_p.h"
#include "onvifTypes/schema/trt/GetProfiles.h"
#include "onvifTypes/schema/trt/GetProfilesResponse.h"
#include "onvifTypes/schema/trt/GetStreamUri.h"
#include "onvifTypes/schema/trt/GetStreamUriResponse.h"
#include "onvifTypes/transport/replyGuard_p.h"
#include "onvifTypes/transport/userAgent_p.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

const QString OnvifRTSP::RTSPErrorToString[4] = {
    QCoreApplication::translate("OnvifRTSP", "Нет ошибки"),
    QCoreApplication::translate("OnvifRTSP", "Неизвестная ошибка"),
    QCoreApplication::translate("OnvifRTSP", "Неизвестное устройство"),
    QCoreApplication::translate("OnvifRTSP", "Ошибка сети"),
};

OnvifRTSP::OnvifRTSP(int channel, QObject* parent)
    : QObject(parent)
    , m_logger(OnvifLog::makeLogger(QStringLiteral("OnvifRTSP: CH") + QString::number(channel)))
{ }

OnvifRTSP::~OnvifRTSP()
{
    stop();
}

void OnvifRTSP::setNetworkManager(QNetworkAccessManager& manager)
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "setNetworkManager");
    m_manager = &manager;
}

void OnvifRTSP::getRTSPList(QString login, QString password, QString url)
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "getRTSPList");
    // Answers and results of an earlier request must not mix into this one.
    ++m_request;
    if (!m_replies.isEmpty())
        halt();
    m_url = url;
    m_security = std::make_unique<OnvifSecurity>(login, password, 0);
    getProfiles();
}

void OnvifRTSP::stop()
{
    ++m_request;
    halt();
}

void OnvifRTSP::halt()
{
    ONVIF_LOG_AS(m_logger, OnvifLog::Trace, "stop", "stop");
    for (const QPointer<QNetworkReply>& reply : qAsConst(m_replies)) {
        if (!reply)
            continue;
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
    m_replies.clear();
    m_replyProfile.clear();
    m_profiles.clear();
}

QNetworkReply* OnvifRTSP::send(Serializable& body, void (OnvifRTSP::*handler)())
{
    const OnvifRequest envelope(*m_security, body);
    QNetworkRequest request(QUrl(m_url, QUrl::TolerantMode));
    Onvif::Internal::setUserAgent(request);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/soap+xml"));
    QNetworkReply* reply = m_manager->post(request, envelope.getMessage().toUtf8());
    Onvif::Internal::guardLentReply(reply);
    m_replies.append(reply);
    connect(reply, &QNetworkReply::finished, this, handler);
    return reply;
}

QNetworkReply* OnvifRTSP::takeReply()
{
    auto* reply = qobject_cast<QNetworkReply*>(sender());
    if (!reply)
        return nullptr;
    reply->deleteLater();
    const int index = m_replies.indexOf(reply);
    if (index < 0)
        return nullptr; // from a request that has ended
    m_replies.remove(index);
    return reply;
}

void OnvifRTSP::finish(unsigned int code, const QString& text)
{
    halt();
    // Queued like every result of the library; stop(), a new request or the object's death drops it.
    QMetaObject::invokeMethod(
        this,
        [this, code, text, request = m_request]() {
            if (request == m_request)
                emit error(code, text);
        },
        Qt::QueuedConnection);
}

void OnvifRTSP::getProfiles()
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "getProfiles");
    if (!m_manager) {
        ONVIF_LOG(m_logger, OnvifLog::Error, "No network manager set.");
        finish(3, QString::number(int(QNetworkReply::UnknownNetworkError)));
        return;
    }
    trt::GetProfiles body;
    send(body, &OnvifRTSP::getProfilesResponse);
}

bool OnvifRTSP::readAnswer(const char* function, QNetworkReply* reply, const QString& requestName,
    const QString& faultMessage, Serializable& answer, const QString& tag)
{
    const QNetworkReply::NetworkError code = reply->error();
    if (code != QNetworkReply::NoError) {
        ONVIF_LOG_AS(m_logger, OnvifLog::Error, function,
            QStringLiteral("Error while sending ") + requestName + QLatin1Char(':')
                + QString::number(int(code)));
        finish(3, QString::number(int(code)));
        return false;
    }
    const OnvifResponse response(QString::fromUtf8(reply->readAll()));
    if (response.isFault()) {
        ONVIF_LOG_AS(m_logger, OnvifLog::Error, function, faultMessage);
        finish(1, response.getFaultText());
        return false;
    }
    QDomNode node = response.getNodeByTag(tag);
    answer.deserialize(node);
    return true;
}

void OnvifRTSP::getProfilesResponse()
{
    QNetworkReply* reply = takeReply();
    if (!reply)
        return;
    trt::GetProfilesResponse answer;
    if (!readAnswer(__func__, reply, QStringLiteral("ProfilesRequest"),
            QStringLiteral("Profile response has error."), answer, QStringLiteral("GetProfilesResponse")))
        return;
    if (!answer.Profiles || answer.Profiles->isEmpty()) {
        finish(2, QStringLiteral("Profiles are empty."));
        return;
    }
    m_profiles = Onvif::Internal::profileInfos(*answer.Profiles);
    getRTSPStrings();
}

void OnvifRTSP::getRTSPStrings()
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "getRTSPStrings");
    m_answered = 0;
    // Profiles without a video encoder give no records, and no answer would ever come.
    if (m_profiles.isEmpty()) {
        finish(2, QStringLiteral("Profile list is empty."));
        return;
    }
    for (Onvif::OnvifProfileInfo& profile : m_profiles) {
        trt::GetStreamUri request;
        request.ProfileToken->setValue(profile.token);
        request.StreamSetup->Stream->setIndex(tt::StreamType::RTP_Unicast);
        request.StreamSetup->Transport->Protocol->setIndex(tt::TransportProtocol::UDP);
        m_replyProfile.insert(send(request, &OnvifRTSP::getRTSPStringsResponse), &profile);
    }
}

void OnvifRTSP::getRTSPStringsResponse()
{
    QNetworkReply* reply = takeReply();
    if (!reply)
        return;
    trt::GetStreamUriResponse answer;
    if (!readAnswer(__func__, reply, QStringLiteral("GetStreamUriRequest"),
            QStringLiteral("GetStreamUri response has error."), answer,
            QStringLiteral("GetStreamUriResponse")))
        return;
    if (Onvif::OnvifProfileInfo* profile = m_replyProfile.take(reply))
        profile->uri = answer.MediaUri->Uri->value();

    if (++m_answered < m_profiles.size())
        return;
    QVector<Onvif::OnvifProfileInfo> list;
    for (const Onvif::OnvifProfileInfo& profile : qAsConst(m_profiles)) {
        if (!profile.uri.isEmpty())
            list.append(profile);
    }
    if (list.isEmpty()) {
        finish(2, QStringLiteral("Profile list is empty."));
        return;
    }
    halt();
    QMetaObject::invokeMethod(
        this,
        [this, list, request = m_request]() {
            if (request == m_request)
                emit receiveRTSPList(list);
        },
        Qt::QueuedConnection);
}
