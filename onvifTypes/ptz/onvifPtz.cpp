#include "onvifTypes/ptz/onvifPtz.h"

namespace PtzSys {

IPtz::~IPtz() = default;

OnvifPtz::OnvifPtz(
    const OnvifSecurity& security, QNetworkAccessManager* manager, OnvifPtzReq* req, int id, QObject* parent)
    : QObject(parent)
    , m_logger(OnvifLog::makeLogger(QStringLiteral("PTZ:") + QString::number(id)))
    , m_security(security)
    , m_manager(manager)
    , m_req(req)
{ }

OnvifPtz::~OnvifPtz() = default;

bool OnvifPtz::support()
{
    return m_req && m_req->support();
}

QVector<Token> OnvifPtz::tokens()
{
    return m_req ? m_req->tokens() : QVector<Token>();
}

IController* OnvifPtz::createController(const Token& token)
{
    return m_req ? new OnvifPtzController(token, m_req) : nullptr;
}

} // namespace PtzSys
