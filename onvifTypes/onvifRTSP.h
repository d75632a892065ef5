#ifndef ONVIFTYPES_ONVIFRTSP_H
#define ONVIFTYPES_ONVIFRTSP_H

#include <onvifTypes/onvifLog.h>
#include <onvifTypes/onvifRequests.h>

#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVector>

#include <memory>

class QNetworkAccessManager;
class QNetworkReply;
class OnvifSecurity;
class Serializable;

// The media profiles of one camera, one per video encoder and largest first, each
// with its RTSP stream URI: GetProfiles, then every GetStreamUri at once.
//
// A request ends with exactly one receiveRTSPList() or one error(); the first
// failing answer ends it and the answers still due are dropped. Error codes
// (general texts in RTSPErrorToString): 1 SOAP fault (detail: fault text),
// 2 no usable profiles ("Profiles are empty." / "Profile list is empty."),
// 3 network error (detail: the QNetworkReply::NetworkError number).
class ONVIFTYPES_EXPORT OnvifRTSP : public QObject
{
    Q_OBJECT

public:
    static const QString RTSPErrorToString[4];

    // The channel only names the object in the log ("OnvifRTSP: CH<channel>").
    OnvifRTSP(int channel, QObject* parent);
    ~OnvifRTSP() override;

    // Borrowed; must be set before getRTSPList() and outlive the requests.
    void setNetworkManager(QNetworkAccessManager& manager);

signals:
    void receiveRTSPList(const QVector<Onvif::OnvifProfileInfo>& list);
    void error(unsigned int code, QString text);

public slots:
    // Starts a new request to the device-service URL; one in flight is dropped.
    void getRTSPList(QString login, QString password, QString url);
    // Drops the request in flight; no signal follows for it.
    void stop();

private slots:
    void getProfiles();
    void getProfilesResponse();
    void getRTSPStrings();
    void getRTSPStringsResponse();

private:
    QNetworkReply* send(Serializable& body, void (OnvifRTSP::*handler)());
    QNetworkReply* takeReply();
    // Ends the list with the network error or fault of `reply`, or fills `answer`
    // from the element named `tag`; true when the answer may be used. Records are
    // logged under `function`, the handler's name.
    bool readAnswer(const char* function, QNetworkReply* reply, const QString& requestName,
        const QString& faultMessage, Serializable& answer, const QString& tag);
    // Drops the replies in flight and the profiles of the current request.
    void halt();
    void finish(unsigned int code, const QString& text);

    OnvifLog::Logger m_logger;
    QNetworkAccessManager* m_manager = nullptr;
    QString m_url;
    std::unique_ptr<OnvifSecurity> m_security;
    QVector<Onvif::OnvifProfileInfo> m_profiles;
    QMap<QNetworkReply*, Onvif::OnvifProfileInfo*> m_replyProfile;
    QVector<QPointer<QNetworkReply>> m_replies;
    qint32 m_answered = 0;
    quint64 m_request = 0; // queued results of older requests are dropped
};

#endif // ONVIFTYPES_ONVIFRTSP_H
