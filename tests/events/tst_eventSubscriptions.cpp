#include "simCamera.h"
#include <camera.h>

#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/onvifrequest.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscription.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscriptionHeader.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscriptionResponse.h>
#include <onvifTypes/schema/tev/PullMessages.h>
#include <onvifTypes/schema/tev/PullMessagesHeader.h>
#include <onvifTypes/schema/tev/PullMessagesResponse.h>
#include <onvifTypes/schema/wsnt/Renew.h>
#include <onvifTypes/schema/wsnt/RenewHeader.h>
#include <onvifTypes/schema/wsnt/RenewResponse.h>
#include <onvifTypes/schema/wsnt/Subscribe.h>
#include <onvifTypes/schema/wsnt/SubscribeHeader.h>
#include <onvifTypes/schema/wsnt/SubscribeResponse.h>
#include <onvifTypes/schema/wsnt/Unsubscribe.h>
#include <onvifTypes/schema/wsnt/UnsubscribeHeader.h>
#include <onvifTypes/schema/wsnt/UnsubscribeResponse.h>

#include <QDomDocument>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>
#include <QtTest>

#include <memory>

using CameraSim::Camera;
using CameraSim::CameraConfig;

namespace {

// The way a host composes event requests: security and addressing blocks joined in
// one header, posted with the library's SOAP call, the answer read into the
// response class.
class EventClient
{
public:
    EventClient(const QString& user, const QString& password)
        : m_security(user, password, 0LL)
    { }

    template <typename Header, typename Body, typename Resp>
    bool call(Header&& addressing, Body&& body, const QString& url, const QString& operation, Resp& response,
        int timeoutMs = 5000)
    {
        SerializableContainer header;
        header.append(m_security);
        header.append(addressing);
        QNetworkReply* reply = Onvif::Internal::postSoap(header, body, url, &m_manager, false);
        QEventLoop loop;
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
        if (!reply->isFinished())
            loop.exec();
        if (!reply->isFinished()) {
            reply->abort();
            reply->deleteLater();
            return false;
        }
        return !Onvif::Internal::readReply(reply, operation, response, false).failed;
    }

private:
    QNetworkAccessManager m_manager;
    OnvifSecurity m_security;
};

qint64 secondsBetween(const QString& from, const QString& to)
{
    const QDateTime a = QDateTime::fromString(from, Qt::ISODateWithMs);
    const QDateTime b = QDateTime::fromString(to, Qt::ISODateWithMs);
    if (!a.isValid() || !b.isValid())
        return -1;
    return a.secsTo(b);
}

// The WS-Addressing header of a request as the camera received it.
QString receivedHeaderText(const CameraSim::RequestRecord& record, const char* localName)
{
    QDomDocument doc;
    if (!doc.setContent(record.body, true))
        return QStringLiteral("<unparsable>");
    const QDomNodeList nodes = doc.elementsByTagNameNS(
        QStringLiteral("http://www.w3.org/2005/08/addressing"), QLatin1String(localName));
    return nodes.isEmpty() ? QString() : nodes.at(0).toElement().text();
}

int sequenceOf(const tt::Message& message)
{
    if (!message.Key || !message.Key->SimpleItem || message.Key->SimpleItem->isEmpty())
        return -1;
    return message.Key->SimpleItem->first().attribute(QStringLiteral("Value")).toInt();
}

} // namespace

class TestEventSubscriptions : public QObject
{
    Q_OBJECT

private slots:
    void pullPointRound();
    void baseNotificationRound();
};

void TestEventSubscriptions::pullPointRound()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.eventIntervalMs = 50;
    const auto camera = startCamera(config);
    const QString eventUrl = camera->serviceUrl(CameraSim::Service::Events);
    EventClient client(config.user, config.password);

    tev::CreatePullPointSubscription create;
    create.InitialTerminationTime.reset(new universalSimpleType<QString>(QStringLiteral("PT60S")));
    tev::CreatePullPointSubscriptionResponse created;
    QVERIFY(client.call(tev::CreatePullPointSubscriptionHeader(eventUrl), create, eventUrl,
        QStringLiteral("CreatePullPointSubscription"), created));
    const QString pullPoint = created.SubscriptionReference->Address->value();
    QVERIFY2(pullPoint.startsWith(camera->baseUrl() + QStringLiteral("/onvif/subscription/")),
        qPrintable(pullPoint));
    QCOMPARE(secondsBetween(created.CurrentTime->value(), created.TerminationTime->value()), 60);
    QCOMPARE(camera->subscriptionCount(), 1);

    const auto createRecords = camera->requestsFor(QStringLiteral("CreatePullPointSubscription"));
    QCOMPARE(createRecords.first().authResult, QStringLiteral("ok"));
    QCOMPARE(receivedHeaderText(createRecords.first(), "To"), eventUrl);

    // Two pulls: the second continues where the first stopped.
    int lastSequence = -1;
    int pulled = 0;
    for (int round = 0; round < 2; ++round) {
        tev::PullMessages pull;
        pull.Timeout->setValue(QStringLiteral("PT5S"));
        pull.MessageLimit->setValue(3);
        tev::PullMessagesResponse messages;
        QVERIFY(client.call(
            tev::PullMessagesHeader(pullPoint), pull, pullPoint, QStringLiteral("PullMessages"), messages));
        QVERIFY(messages.Message && !messages.Message->isEmpty() && messages.Message->size() <= 3);
        for (const tt::Message& m : *messages.Message) {
            QVERIFY(QDateTime::fromString(m.UtcTime->value(), Qt::ISODateWithMs).isValid());
            QCOMPARE(m.PropertyOperation->value(), QStringLiteral("Changed"));
            const QString source = m.Source->SimpleItem->first().attribute(QStringLiteral("Value"));
            QVERIFY2(
                source == QLatin1String("vsrc_0") || source == QLatin1String("DI_0"), qPrintable(source));
            const int sequence = sequenceOf(m);
            if (lastSequence >= 0)
                QCOMPARE(sequence, lastSequence + 1);
            lastSequence = sequence;
            // The state alternates with the sequence number.
            QCOMPARE(m.Data->SimpleItem->first().attribute(QStringLiteral("Value")),
                sequence % 2 ? QStringLiteral("true") : QStringLiteral("false"));
            ++pulled;
        }
    }
    QVERIFY(pulled >= 2);
    const auto pullRecords = camera->requestsFor(QStringLiteral("PullMessages"));
    QCOMPARE(pullRecords.size(), 2);
    QCOMPARE(pullRecords.first().path, QUrl(pullPoint).path());
    QCOMPARE(receivedHeaderText(pullRecords.first(), "To"), pullPoint);

    wsnt::Renew renew;
    renew.TerminationTime->setValue(QStringLiteral("PT120S"));
    wsnt::RenewResponse renewed;
    QVERIFY(client.call(wsnt::RenewHeader(pullPoint), renew, pullPoint, QStringLiteral("Renew"), renewed));
    QCOMPARE(secondsBetween(renewed.CurrentTime->value(), renewed.TerminationTime->value()), 120);

    wsnt::UnsubscribeResponse cancelled;
    QVERIFY(client.call(wsnt::UnsubscribeHeader(pullPoint), wsnt::Unsubscribe(), pullPoint,
        QStringLiteral("Unsubscribe"), cancelled));
    QCOMPARE(camera->subscriptionCount(), 0);

    // The pull point is gone: pulling again is refused.
    tev::PullMessages pull;
    pull.Timeout->setValue(QStringLiteral("PT1S"));
    pull.MessageLimit->setValue(1);
    tev::PullMessagesResponse none;
    QVERIFY(!client.call(
        tev::PullMessagesHeader(pullPoint), pull, pullPoint, QStringLiteral("PullMessages"), none));
    QVERIFY(!none.Message);
}

void TestEventSubscriptions::baseNotificationRound()
{
    const auto camera = startCamera(CameraConfig::defaultCamera());
    const QString eventUrl = camera->serviceUrl(CameraSim::Service::Events);
    EventClient client(QStringLiteral("admin"), QStringLiteral("admin"));

    // No initial termination time: the empty element lets the camera choose.
    wsnt::Subscribe subscribe;
    subscribe.ConsumerReference->Address->setValue(QStringLiteral("http://127.0.0.1:9/consumer"));
    wsnt::SubscribeResponse subscribed;
    QVERIFY(client.call(
        wsnt::SubscribeHeader(eventUrl), subscribe, eventUrl, QStringLiteral("Subscribe"), subscribed));
    const QString manager = subscribed.SubscriptionReference->Address->value();
    QVERIFY2(
        manager.startsWith(camera->baseUrl() + QStringLiteral("/onvif/subscription/")), qPrintable(manager));
    QVERIFY(subscribed.CurrentTime && subscribed.TerminationTime);
    QVERIFY(secondsBetween(subscribed.CurrentTime->value(), subscribed.TerminationTime->value()) > 0);
    QCOMPARE(camera->subscriptionCount(), 1);

    wsnt::UnsubscribeResponse cancelled;
    QVERIFY(client.call(wsnt::UnsubscribeHeader(manager), wsnt::Unsubscribe(), manager,
        QStringLiteral("Unsubscribe"), cancelled));
    QCOMPARE(camera->subscriptionCount(), 0);
}

QTEST_GUILESS_MAIN(TestEventSubscriptions)
#include "tst_eventSubscriptions.moc"
