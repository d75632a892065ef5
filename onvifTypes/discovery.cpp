#include "onvifTypes/discovery.h"

#include "onvifTypes/onvifDeviceInfo.h"
#include "onvifTypes/onvifNetworkAccessManager.h"
#include "onvifTypes/onvifResponse.h"
#include "onvifTypes/onvifrequest.h"
#include "onvifTypes/schema/tds/GetDeviceInformation.h"
#include "onvifTypes/schema/tds/GetDeviceInformationResponse.h"
#include "onvifTypes/transport/limits.h"
#include "onvifTypes/transport/replyGuard_p.h"
#include "onvifTypes/xmlDocument_p.h"
#include "onvifTypes/transport/userAgent_p.h"

#include <QDomDocument>
#include <QNetworkAccessManager>
#include <QNetworkInterface>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QQueue>
#include <QRegExp>
#include <QTimer>
#include <QUdpSocket>
#include <QUrl>
#include <QUuid>

namespace {

constexpr quint16 kDiscoveryPort = 3702;
constexpr int kDiscoveryReplyTimeoutMs = 5000;
// Hundreds of cameras answer one probe within milliseconds, each answer taking a
// few kilobytes of buffer; the default (about 200 KiB) holds fewer than a hundred.
// The kernel caps the request at net.core.rmem_max.
constexpr int kReceiveBufferBytes = 4 * 1024 * 1024;

const QString kProbeHead = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                                          "<e:Envelope xmlns:e=\"http://www.w3.org/2003/05/soap-envelope\""
                                          " xmlns:w=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\""
                                          " xmlns:d=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\""
                                          " xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\">"
                                          "<e:Header><w:MessageID>uuid:");
// The "a:" prefix of mustUnderstand is undeclared; cameras in the field accept it as sent.
const QString kProbeTail = QStringLiteral(
    "</w:MessageID>"
    "<w:To e:mustUnderstand=\"true\">urn:schemas-xmlsoap-org:ws:2005:04:discovery</w:To>"
    "<w:Action a:mustUnderstand=\"true\">http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</w:Action>"
    "</e:Header>"
    "<e:Body><d:Probe><d:Types>dn:NetworkVideoTransmitter</d:Types></d:Probe></e:Body>"
    "</e:Envelope>");

QString firstTextByTag(const QDomDocument& document, const QString& tagName)
{
    return document.documentElement().elementsByTagName(tagName).item(0).toElement().text();
}

// The UUID of a message id ("uuid:..." or "urn:uuid:..."), in lower case.
QString uuidOf(QString id)
{
    id = id.trimmed().toLower();
    if (id.startsWith(QLatin1String("urn:")))
        id.remove(0, 4);
    if (id.startsWith(QLatin1String("uuid:")))
        id.remove(0, 5);
    return id;
}

// Answers of an abandoned search must never reach the records of the next one.
void abandonReply(QNetworkReply* reply, QObject* receiver)
{
    reply->disconnect(receiver);
    reply->abort();
    reply->deleteLater();
}

} // namespace

const QString Discovery::m_zyrName = QStringLiteral("ZYR");
const QString Discovery::m_geovisionName = QStringLiteral("GeoVision");
const QString Discovery::m_hunterName = QStringLiteral("Hunter");
const QString Discovery::m_unknownName = QStringLiteral("Unknown");

Discovery::Discovery(QObject* parent)
    : QObject(parent)
    , timer(new QTimer(this))
    , manager(new Onvif::NetworkAccessManager(this))
    , logger(OnvifLog::makeLogger(QStringLiteral("Discovery")))
    , m_maxRecords(Onvif::Limits::defaults().maxDiscoveryRecords)
    , m_maxRequestsInFlight(Onvif::Limits::defaults().maxDiscoveryRequestsInFlight)
{
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& networkInterface : interfaces) {
        const QList<QNetworkAddressEntry> entries = networkInterface.addressEntries();
        for (const QNetworkAddressEntry& entry : entries) {
            auto* socket = new QUdpSocket(this);
            if (socket->bind(entry.ip(), 0))
                socket->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, kReceiveBufferBytes);
            sockets.append(socket);
            connect(socket, &QUdpSocket::readyRead, this, &Discovery::readPendingDatagrams);
        }
    }
    connect(timer, &QTimer::timeout, this, &Discovery::requestTimeout);
}

Discovery::~Discovery()
{
    for (auto it = pending.cbegin(); it != pending.cend(); ++it)
        it.key()->disconnect(this);
}

void Discovery::search(const QString& login, const QString& password)
{
    this->login = login;
    this->password = password;
    devices.clear();
    for (auto it = pending.cbegin(); it != pending.cend(); ++it)
        abandonReply(it.key(), this);
    pending.clear();
    m_waiting.clear();
    m_recordLimitLogged = false;

    const QString uuid = QUuid::createUuid().toString(QUuid::WithoutBraces);
    m_probeId = uuid;
    const QByteArray probe = (kProbeHead + uuid + kProbeTail).toUtf8();
    for (QUdpSocket* socket : qAsConst(sockets)) {
        // An unbound socket would bind itself to the wildcard address on sending and
        // probe through whatever interface the routes pick.
        if (socket->state() == QAbstractSocket::BoundState)
            socket->writeDatagram(probe, QHostAddress(QHostAddress::Broadcast), kDiscoveryPort);
    }
}

QVector<Onvif::DeviceInfo> Discovery::getDeviceInformation() const
{
    return devices;
}

void Discovery::setMaxRecords(int count)
{
    m_maxRecords = qMax(0, count);
}

void Discovery::setMaxRequestsInFlight(int count)
{
    m_maxRequestsInFlight = qMax(1, count);
    sendWaiting();
}

void Discovery::readPendingDatagrams()
{
    auto* socket = qobject_cast<QUdpSocket*>(sender());
    if (!socket)
        return;
    // Handling an answer (parsing, posting the device request) is slow next to the
    // rate at which a burst of answers arrives, so the kernel's queue is emptied
    // before each one: otherwise it overflows and the answers beyond it are lost.
    QQueue<QByteArray> received;
    auto drain = [socket, &received]() {
        while (socket->hasPendingDatagrams()) {
            const qint64 size = socket->pendingDatagramSize();
            if (size < 0)
                break;
            QByteArray datagram(int(size), Qt::Uninitialized);
            const qint64 read = socket->readDatagram(datagram.data(), size);
            if (read < 0)
                break;
            datagram.truncate(int(read));
            received.enqueue(datagram);
        }
    };
    drain();
    while (!received.isEmpty()) {
        readDatagram(received.dequeue());
        drain();
    }
}

void Discovery::readDatagram(const QByteArray& datagram)
{
    if (devices.size() >= m_maxRecords) {
        if (!m_recordLimitLogged)
            ONVIF_LOG_AS(logger, OnvifLog::Error, "readPendingDatagrams",
                QStringLiteral("More than %1 answers (maxDiscoveryRecords); the rest are ignored.")
                    .arg(m_maxRecords));
        m_recordLimitLogged = true;
        return;
    }
    QDomDocument document;
    // Malformed answers count as empty.
    Utilites::parseDocument(document, QString::fromLatin1(datagram));
    if (m_dropUnrelated
        && (m_probeId.isEmpty()
            || uuidOf(firstTextByTag(document, QStringLiteral("RelatesTo"))) != m_probeId)) {
        ONVIF_LOG_AS(logger, OnvifLog::Info, "readPendingDatagrams",
            "Answer relates to no probe of this search; dropped.");
        return;
    }
    const QString xaddrs = firstTextByTag(document, QStringLiteral("XAddrs"));
    if (xaddrs.isEmpty()) {
        ONVIF_LOG_AS(logger, OnvifLog::Info, "readPendingDatagrams", "Addr is empty.");
        return;
    }

    static const QRegExp addressPattern(QStringLiteral("//(\\d+.\\d+.\\d+.\\d+):?(\\d*)(/.*)"));
    QRegExp address(addressPattern);
    if (address.indexIn(xaddrs) < 0)
        return;
    Onvif::DeviceInfo info;
    info.ip = address.cap(1);
    info.port = address.cap(2).isEmpty() ? QStringLiteral("80") : address.cap(2);
    // The capture runs to the end of the text: of several addresses only the first path counts.
    const QStringList paths = address.cap(3).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    info.path = paths.isEmpty() ? QStringLiteral("/onvif/device_service") : paths.first();

    static const QRegExp namePattern(QStringLiteral("onvif://www.onvif.org/name/(\\S*)"));
    QRegExp name(namePattern);
    if (name.indexIn(firstTextByTag(document, QStringLiteral("Scopes"))) >= 0) {
        info.manufacturer = name.cap(1);
        info.type = OnvifDeviceInfo::getDeviceType(info);
    }

    devices.append(info);
    requestDeviceInformation(xaddrs, devices.size() - 1);
}

void Discovery::requestDeviceInformation(const QString& xaddrs, int index)
{
    if (pending.size() >= m_maxRequestsInFlight)
        m_waiting.enqueue({ xaddrs, index });
    else
        postDeviceInformation(xaddrs, index);
}

void Discovery::sendWaiting()
{
    while (!m_waiting.isEmpty() && pending.size() < m_maxRequestsInFlight) {
        const QPair<QString, int> next = m_waiting.dequeue();
        postDeviceInformation(next.first, next.second);
    }
}

void Discovery::postDeviceInformation(const QString& xaddrs, int index)
{
    tds::GetDeviceInformation body;
    QString message;
    if (!login.isEmpty() && !password.isEmpty()) {
        OnvifSecurity header(login, password, 0LL);
        message = OnvifRequest(header, body).getMessage();
    } else {
        EmptyOnvifType header;
        message = OnvifRequest(header, body).getMessage();
    }

    QNetworkRequest request(QUrl(xaddrs, QUrl::TolerantMode));
    Onvif::Internal::setUserAgent(request);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/soap+xml"));
    QNetworkReply* reply = manager->post(request, message.toUtf8());
    Onvif::Internal::guardLentReply(reply);
    pending.insert(reply, index);
    connect(reply, &QNetworkReply::finished, this, &Discovery::getDeviceInformationResponse);
    timer->start(kDiscoveryReplyTimeoutMs);
}

void Discovery::getDeviceInformationResponse()
{
    auto* reply = qobject_cast<QNetworkReply*>(sender());
    if (!reply)
        return;
    reply->deleteLater();
    const auto found = pending.find(reply);
    if (found == pending.end())
        return; // abandoned by a new search or the timeout
    const int index = found.value();
    pending.erase(found);
    sendWaiting();

    const QNetworkReply::NetworkError code = reply->error();
    if (code != QNetworkReply::NoError) {
        ONVIF_LOG(logger, OnvifLog::Error,
            QStringLiteral("Error while sending GetDeviceInformationRequest:") + QString::number(int(code)));
        return;
    }
    const OnvifResponse response(QString::fromLatin1(reply->readAll()));
    if (response.isFault()) {
        ONVIF_LOG(logger, OnvifLog::Error, "getDeviceInformation response has error.");
        return;
    }
    tds::GetDeviceInformationResponse answer;
    QDomNode node = response.getNodeByTag(QStringLiteral("GetDeviceInformationResponse"));
    answer.deserialize(node);
    if (index < 0 || index >= devices.size()) {
        ONVIF_LOG(logger, OnvifLog::Info, "Wrong index");
        return;
    }
    Onvif::DeviceInfo& info = devices[index];
    info.manufacturer = answer.Manufacturer->value();
    info.model = answer.Model->value();
    info.serialNumber = answer.SerialNumber->value();
    info.hardwareId = answer.HardwareId->value();
    info.firmwareVersion = answer.FirmwareVersion->value();
}

void Discovery::requestTimeout()
{
    for (auto it = pending.cbegin(); it != pending.cend(); ++it)
        abandonReply(it.key(), this);
    pending.clear();
    sendWaiting();
}
