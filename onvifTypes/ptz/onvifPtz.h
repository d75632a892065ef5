#ifndef ONVIFTYPES_PTZ_ONVIFPTZ_H
#define ONVIFTYPES_PTZ_ONVIFPTZ_H

#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/ptz/onvifPtzController.h>
#include <onvifTypes/ptz/onvifPtzReq.h>

#include <QObject>
#include <QVector>

class QNetworkAccessManager;

namespace PtzSys {

// A camera's PTZ as a host program sees it.
class ONVIFTYPES_EXPORT IPtz
{
public:
    virtual ~IPtz();

    virtual bool support() = 0;
    virtual QVector<Token> tokens() = 0;
    // The caller owns the controller and deletes it before the camera's request object.
    virtual IController* createController(const Token& token) = 0;
};

// Facade over a camera's request object, which the host creates, checks
// (checkCapability) and keeps alive; this object never deletes it.
class ONVIFTYPES_EXPORT OnvifPtz : public QObject, public IPtz
{
    Q_OBJECT

public:
    OnvifPtz(const OnvifSecurity& security, QNetworkAccessManager* manager, OnvifPtzReq* req, int id,
        QObject* parent = nullptr);
    ~OnvifPtz() override;

    // The result of the request object's last capability check; false before one.
    bool support() override;
    // The cached tokens; the first call returns none and fetches them in the background.
    QVector<Token> tokens() override;
    // A new controller each call, each fetching its own node description.
    IController* createController(const Token& token) override;

private:
    OnvifLog::Logger m_logger;
    OnvifSecurity m_security;
    QNetworkAccessManager* m_manager;
    OnvifPtzReq* m_req;
};

} // namespace PtzSys

#endif // ONVIFTYPES_PTZ_ONVIFPTZ_H
