#include <onvifTypes/onvifResponse.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscription.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscriptionHeader.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscriptionResponse.h>
#include <onvifTypes/schema/tev/PullMessages.h>
#include <onvifTypes/schema/tev/PullMessagesHeader.h>
#include <onvifTypes/schema/tev/PullMessagesResponse.h>
#include <onvifTypes/schema/wsnt/Notify.h>
#include <onvifTypes/schema/wsnt/Renew.h>
#include <onvifTypes/schema/wsnt/RenewHeader.h>
#include <onvifTypes/schema/wsnt/Subscribe.h>
#include <onvifTypes/schema/wsnt/SubscribeHeader.h>
#include <onvifTypes/schema/wsnt/UnsubscribeHeader.h>
#include <onvifTypes/schema/wsnt/UnsubscribeResponse.h>

#include <QDomDocument>
#include <QFile>
#include <QRegularExpression>
#include <QtTest>

#include <memory>

// deserialize() takes the node by reference, as applications' overrides do; tests hand it a copy.
template <typename T> void readNode(T& object, QDomNode node)
{
    object.deserialize(node);
}

Q_DECLARE_METATYPE(QSharedPointer<Serializable>)

namespace {

const char kAnonymous[] = "http://www.w3.org/2005/08/addressing/anonymous";
const char kCreatePullPointAction[]
    = "http://www.onvif.org/ver10/events/wsdl/EventPortType/CreatePullPointSubscriptionRequest";
const char kPullMessagesAction[]
    = "http://www.onvif.org/ver10/events/wsdl/PullPointSubscription/PullMessagesRequest";
const char kSubscribeAction[] = "http://docs.oasis-open.org/wsn/bw-2/NotificationProducer/SubscribeRequest";
const char kRenewAction[] = "http://docs.oasis-open.org/wsn/bw-2/SubscriptionManager/RenewRequest";

const QRegularExpression& messageIdPattern()
{
    static const QRegularExpression re(QStringLiteral("<a:MessageID>urn:uuid:([0-9a-f]{8}-[0-9a-f]{4}-[0-9a-"
                                                      "f]{4}-[0-9a-f]{4}-[0-9a-f]{12})</a:MessageID>"));
    return re;
}

QString withoutMessageId(QString text)
{
    return text.replace(messageIdPattern(), QStringLiteral("<a:MessageID>ID</a:MessageID>"));
}

// The answer element of a body given with the usual prefixes declared.
QDomElement parseBody(QDomDocument& doc, const QString& body)
{
    const QString text = QStringLiteral(
        "<r xmlns:tev=\"http://www.onvif.org/ver10/events/wsdl\" "
        "xmlns:wsnt=\"http://docs.oasis-open.org/wsn/b-2\" "
        "xmlns:tt=\"http://www.onvif.org/ver10/schema\" xmlns:wsa=\"http://www.w3.org/2005/08/addressing\" "
        "xmlns:x=\"urn:vendor\">%1</r>")
                             .arg(body);
    if (!doc.setContent(text, true))
        qFatal("test body is not well-formed");
    return doc.documentElement().firstChildElement();
}

QString readFixture(const QString& relative)
{
    QFile file(QStringLiteral(ONVIFTYPES_SHARED_DIR "/fixtures/real/") + relative);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}

QString simpleItem(const QSharedPointer<tt::ItemList>& list, int index, const char* attribute)
{
    if (!list || !list->SimpleItem || list->SimpleItem->size() <= index)
        return QStringLiteral("<none>");
    return list->SimpleItem->at(index).attribute(QLatin1String(attribute));
}

} // namespace

class TestEventMessages : public QObject
{
    Q_OBJECT

private slots:
    void headerText_data();
    void headerText();
    void bodies_data();
    void bodies();
    void pullResponseKeepsOnlyEventMessages();
    void notifyReadsTopicAndEvent();
    void realPullReplies();
    void realSubscriptionReplies();
};

void TestEventMessages::headerText_data()
{
    QTest::addColumn<QSharedPointer<Serializable>>("header");
    QTest::addColumn<QString>("action");
    const QString to = QStringLiteral("http://192.0.2.7/onvif/event_service");
    QTest::newRow("CreatePullPointSubscription")
        << QSharedPointer<Serializable>(new tev::CreatePullPointSubscriptionHeader(to))
        << QString::fromLatin1(kCreatePullPointAction);
    QTest::newRow("PullMessages") << QSharedPointer<Serializable>(new tev::PullMessagesHeader(to))
                                  << QString::fromLatin1(kPullMessagesAction);
    QTest::newRow("Subscribe") << QSharedPointer<Serializable>(new wsnt::SubscribeHeader(to))
                               << QString::fromLatin1(kSubscribeAction);
    QTest::newRow("Renew") << QSharedPointer<Serializable>(new wsnt::RenewHeader(to))
                           << QString::fromLatin1(kRenewAction);
    QTest::newRow("Unsubscribe") << QSharedPointer<Serializable>(new wsnt::UnsubscribeHeader(to))
                                 << QString::fromLatin1(kSubscribeAction);
}

void TestEventMessages::headerText()
{
    QFETCH(QSharedPointer<Serializable>, header);
    QFETCH(QString, action);

    const QString first = header->serialize(QString());
    const QString second = header->serialize(QStringLiteral("ignored:Name"));
    const QRegularExpressionMatch id1 = messageIdPattern().match(first);
    const QRegularExpressionMatch id2 = messageIdPattern().match(second);
    QVERIFY2(id1.hasMatch(), qPrintable(first));
    QVERIFY2(id2.hasMatch(), qPrintable(second));
    QVERIFY(id1.captured(1) != id2.captured(1)); // a fresh id every time

    const QString expected = QStringLiteral("<a:Action s:mustUnderstand=\"1\">") + action
        + QStringLiteral("</a:Action><a:MessageID>urn:uuid:") + id1.captured(1)
        + QStringLiteral("</a:MessageID><a:ReplyTo><a:Address>") + QLatin1String(kAnonymous)
        + QStringLiteral("</a:Address></a:ReplyTo><a:To s:mustUnderstand=\"1\">"
                         "http://192.0.2.7/onvif/event_service</a:To>");
    QCOMPARE(first, expected);
    QCOMPARE(withoutMessageId(second), withoutMessageId(first));
}

void TestEventMessages::bodies_data()
{
    QTest::addColumn<QSharedPointer<Serializable>>("body");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("text");
    auto subscribe = QSharedPointer<wsnt::Subscribe>::create();
    subscribe->ConsumerReference->Address->setValue(QStringLiteral("http://192.0.2.1:8080/%1/%0"));
    QTest::newRow("Subscribe without termination")
        << subscribe.staticCast<Serializable>() << QString()
        << QStringLiteral("<wsnt:Subscribe ><wsnt:ConsumerReference><a:Address>http://192.0.2.1:8080/%1/%0"
                          "</a:Address></wsnt:ConsumerReference><wsnt:InitialTerminationTime>"
                          "</wsnt:InitialTerminationTime></wsnt:Subscribe>");
    auto renew = QSharedPointer<wsnt::Renew>::create();
    renew->TerminationTime->setValue(QStringLiteral("2030-01-01T00:00:00Z"));
    QTest::newRow("Renew") << renew.staticCast<Serializable>() << QString()
                           << QStringLiteral("<wsnt:Renew ><wsnt:TerminationTime>2030-01-01T00:00:00Z"
                                             "</wsnt:TerminationTime></wsnt:Renew>");
    auto pull = QSharedPointer<tev::PullMessages>::create();
    pull->Timeout->setValue(QStringLiteral("PT5S"));
    pull->MessageLimit->setValue(10);
    QTest::newRow("PullMessages") << pull.staticCast<Serializable>() << QString()
                                  << QStringLiteral(
                                         "<tev:PullMessages ><tev:Timeout>PT5S</tev:Timeout>"
                                         "<tev:MessageLimit>10</tev:MessageLimit></tev:PullMessages>");
    QTest::newRow("CreatePullPointSubscription, empty")
        << QSharedPointer<Serializable>(new tev::CreatePullPointSubscription) << QString()
        << QStringLiteral("<tev:CreatePullPointSubscription ></tev:CreatePullPointSubscription>");
    auto create = QSharedPointer<tev::CreatePullPointSubscription>::create();
    create->SubscriptionPolicy.reset(new universalSimpleType<QString>(QStringLiteral("<x:Changed/>")));
    create->InitialTerminationTime.reset(new universalSimpleType<QString>(QStringLiteral("PT60S")));
    QTest::newRow("CreatePullPointSubscription")
        << create.staticCast<Serializable>() << QString()
        << QStringLiteral(
               "<tev:CreatePullPointSubscription ><tev:InitialTerminationTime>PT60S"
               "</tev:InitialTerminationTime><tev:SubscriptionPolicy><x:Changed/></tev:SubscriptionPolicy>"
               "</tev:CreatePullPointSubscription>");
    // The default name keeps its historical misspelling; callers pass the right one.
    QTest::newRow("UnsubscribeResponse")
        << QSharedPointer<Serializable>(new wsnt::UnsubscribeResponse) << QString()
        << QStringLiteral("<wsnt:UnsubscribeRespose ></wsnt:UnsubscribeRespose>");
}

void TestEventMessages::bodies()
{
    QFETCH(QSharedPointer<Serializable>, body);
    QFETCH(QString, name);
    QFETCH(QString, text);
    QCOMPARE(body->serialize(name), text);
}

void TestEventMessages::pullResponseKeepsOnlyEventMessages()
{
    QDomDocument doc;
    tev::PullMessagesResponse response;
    QVERIFY(!response.Message);
    readNode(response,
        parseBody(doc,
            QStringLiteral(
                "<tev:PullMessagesResponse x:extra=\"1\">"
                "<tev:CurrentTime>2024-05-01T10:00:00Z</tev:CurrentTime>"
                "<tev:TerminationTime>2024-05-01T10:01:00Z</tev:TerminationTime>"
                "<wsnt:NotificationMessage><wsnt:Topic>tns1:A</wsnt:Topic><wsnt:Message>"
                "<tt:Message UtcTime=\"2024-05-01T09:59:58Z\" PropertyOperation=\"Changed\">"
                "<tt:Source><tt:SimpleItem Name=\"Source\" Value=\"vs1\"/></tt:Source></tt:Message>"
                "</wsnt:Message></wsnt:NotificationMessage>"
                "<x:Unrelated><x:Message>no time here</x:Message></x:Unrelated>"
                "<wsnt:NotificationMessage><wsnt:Message><x:Deep><Message UtcTime=\"2024-05-01T09:59:59Z\">"
                "<tt:Data><tt:SimpleItem Name=\"State\" Value=\"true\"/></tt:Data></Message></x:Deep>"
                "</wsnt:Message></wsnt:NotificationMessage>"
                "</tev:PullMessagesResponse>")));

    QCOMPARE(response.TerminationTime->value(), QStringLiteral("2024-05-01T10:01:00Z"));
    // The wrappers named Message carry no UtcTime: two events, not four.
    QVERIFY(response.Message);
    QCOMPARE(response.Message->size(), 2);
    const tt::Message& first = response.Message->at(0);
    QCOMPARE(first.UtcTime->value(), QStringLiteral("2024-05-01T09:59:58Z"));
    QCOMPARE(simpleItem(first.Source, 0, "Value"), QStringLiteral("vs1"));
    QVERIFY(!first.Data);
    const tt::Message& second = response.Message->at(1);
    QCOMPARE(second.UtcTime->value(), QStringLiteral("2024-05-01T09:59:59Z"));
    QCOMPARE(simpleItem(second.Data, 0, "Value"), QStringLiteral("true"));
    // What holds no event is kept, not dropped.
    QVERIFY(response.unmatchedElements.startsWith(QStringLiteral("<x:Unrelated")));
    QVERIFY(response.unmatchedElements.trimmed().endsWith(QStringLiteral("</x:Unrelated>")));
    QCOMPARE(response.unmatchedAttributes.count(QLatin1Char('\n')), 1);

    // Without notifications the list stays absent.
    tev::PullMessagesResponse empty;
    readNode(empty,
        parseBody(doc,
            QStringLiteral("<tev:PullMessagesResponse><tev:CurrentTime>t</tev:CurrentTime>"
                           "<wsnt:NotificationMessage><wsnt:Message><tt:Message/></wsnt:Message>"
                           "</wsnt:NotificationMessage></tev:PullMessagesResponse>")));
    QVERIFY(!empty.Message);
    QCOMPARE(empty.CurrentTime->value(), QStringLiteral("t"));
    QVERIFY(empty.unmatchedElements.contains(QStringLiteral("NotificationMessage")));
}

void TestEventMessages::notifyReadsTopicAndEvent()
{
    QDomDocument doc;
    wsnt::Notify notify;
    readNode(notify,
        parseBody(doc,
            QStringLiteral(
                "<wsnt:Notify><wsnt:NotificationMessage>"
                "<wsnt:SubscriptionReference><wsa:Address>http://cam/sub/1</wsa:Address></"
                "wsnt:SubscriptionReference>"
                "<wsnt:Topic Dialect=\"http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet\">"
                "tns1:VideoSource/MotionAlarm</wsnt:Topic>"
                "<wsnt:ProducerReference><wsa:Address>http://cam/</wsa:Address></wsnt:ProducerReference>"
                "<wsnt:Message><tt:Message UtcTime=\"2024-02-02T02:02:02Z\"><tt:Key>"
                "<tt:SimpleItem Name=\"Id\" Value=\"7\"/></tt:Key></tt:Message></wsnt:Message>"
                "</wsnt:NotificationMessage><wsnt:NotificationMessage><wsnt:Message><x:Vendor/></"
                "wsnt:Message>"
                "</wsnt:NotificationMessage></wsnt:Notify>")));
    QCOMPARE(notify.NotificationMessage.size(), 2);
    wsnt::NotificationMessage& n = notify.NotificationMessage[0];
    QVERIFY(n.SubscriptionReference && n.ProducerReference && n.Topic);
    QCOMPARE(n.ProducerReference->Address->value(), QStringLiteral("http://cam/"));
    QCOMPARE(n.Topic->content, QStringLiteral("tns1:VideoSource/MotionAlarm"));
    QCOMPARE(n.Topic->attribute(QStringLiteral("Dialect")),
        QStringLiteral("http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet"));
    QVERIFY(n.unmatchedElements.isEmpty());
    // A vendor payload that is no ONVIF event is kept as text.
    const wsnt::NotificationMessage& vendor = notify.NotificationMessage.at(1);
    QVERIFY(vendor.unmatchedElements.contains(QStringLiteral("Vendor")));
    QVERIFY(vendor.Message->UtcTime->value().isEmpty());

    // Written back and read again, the event is the same.
    wsnt::NotificationMessage again;
    readNode(again, parseBody(doc, n.serialize(QString())));
    QVERIFY(again.unmatchedElements.isEmpty());
    QCOMPARE(again.Topic->content, n.Topic->content);
    QCOMPARE(
        again.Topic->attribute(QStringLiteral("Dialect")), n.Topic->attribute(QStringLiteral("Dialect")));
    QCOMPARE(again.SubscriptionReference->Address->value(), QStringLiteral("http://cam/sub/1"));
    QCOMPARE(again.Message->UtcTime->value(), QStringLiteral("2024-02-02T02:02:02Z"));
    QCOMPARE(simpleItem(again.Message->Key, 0, "Value"), QStringLiteral("7"));
}

void TestEventMessages::realPullReplies()
{
    const QString pelcoText = readFixture(QStringLiteral("onvif-nvt/pelco/events/PullMessages.Response.xml"));
    const QString hikText = readFixture(QStringLiteral("ex_onvif/pull_messages.xml"));
    const QString hikEmptyText
        = readFixture(QStringLiteral("onvif-nvt/hikvision/events/PullMessages.Response.xml"));
    if (pelcoText.isEmpty() || hikText.isEmpty() || hikEmptyText.isEmpty())
        QSKIP("captured camera replies not found under " ONVIFTYPES_SHARED_DIR "/fixtures/real");

    // Pelco D6230L: every notification wraps one tt:Message.
    tev::PullMessagesResponse pelco;
    const OnvifResponse pelcoReply(pelcoText);
    readNode(pelco, pelcoReply.getNodeByTag(QStringLiteral("PullMessagesResponse")));
    QCOMPARE(pelco.TerminationTime->value(), QStringLiteral("2018-02-27T18:29:26.135423Z"));
    QVERIFY(pelco.Message);
    QCOMPARE(pelco.Message->size(), pelcoText.count(QStringLiteral("<wsnt:NotificationMessage>")));
    QCOMPARE(pelco.Message->first().UtcTime->value(), QStringLiteral("2018-02-27T18:27:56.070891Z"));
    QCOMPARE(simpleItem(pelco.Message->first().Source, 0, "Value"), QStringLiteral("cpu"));
    QCOMPARE(simpleItem(pelco.Message->first().Data, 0, "Value"), QStringLiteral("0.44"));
    const tt::Message& link = pelco.Message->at(1);
    QCOMPARE(simpleItem(link.Source, 0, "Value"), QStringLiteral("eth0"));
    QVERIFY(link.Data && link.Data->ElementItem && link.Data->ElementItem->size() == 1);
    QVERIFY(link.Data->ElementItem->first().content.contains(QStringLiteral("Full")));
    QVERIFY(pelco.unmatchedElements.isEmpty());

    // Hikvision-family device: eight notifications, one with a Key.
    tev::PullMessagesResponse hik;
    readNode(hik, OnvifResponse(hikText).getNodeByTag(QStringLiteral("PullMessagesResponse")));
    QVERIFY(hik.Message);
    QCOMPARE(hik.Message->size(), 8);
    QCOMPARE(simpleItem(hik.Message->at(1).Source, 2, "Value"), QStringLiteral("MyMotionDetectorRule"));
    QCOMPARE(simpleItem(hik.Message->at(4).Key, 0, "Name"), QStringLiteral("ObjectId"));
    QCOMPARE(simpleItem(hik.Message->at(7).Data, 0, "Value"), QStringLiteral("2025-04-17T15:31:49Z"));
    for (const tt::Message& m : *hik.Message)
        QCOMPARE(m.UtcTime->value(), QStringLiteral("2025-04-18T20:34:05Z"));

    // Hikvision DS-2DF7276-AEL with nothing to report.
    tev::PullMessagesResponse quiet;
    readNode(quiet, OnvifResponse(hikEmptyText).getNodeByTag(QStringLiteral("PullMessagesResponse")));
    QCOMPARE(quiet.TerminationTime->value(), QStringLiteral("2018-02-27T15:03:23Z"));
    QVERIFY(!quiet.Message);
}

void TestEventMessages::realSubscriptionReplies()
{
    const QString hikText
        = readFixture(QStringLiteral("onvif-nvt/hikvision/events/CreatePullPointSubscription.Response.xml"));
    const QString axisText
        = readFixture(QStringLiteral("onvif-nvt/axis/events/CreatePullPointSubscription.Response.xml"));
    if (hikText.isEmpty() || axisText.isEmpty())
        QSKIP("captured camera replies not found under " ONVIFTYPES_SHARED_DIR "/fixtures/real");

    tev::CreatePullPointSubscriptionResponse hik;
    readNode(hik, OnvifResponse(hikText).getNodeByTag(QStringLiteral("CreatePullPointSubscriptionResponse")));
    QCOMPARE(hik.SubscriptionReference->Address->value(),
        QStringLiteral("http://10.10.1.60/onvif/Events/PullSubManager_2018-02-27T18:28:52Z_5"));
    QCOMPARE(hik.TerminationTime->value(), QStringLiteral("2018-02-27T18:29:52Z"));
    QVERIFY(hik.unmatchedElements.isEmpty());

    // Axis tells its subscriptions apart by a reference parameter, which must survive.
    tev::CreatePullPointSubscriptionResponse axis;
    readNode(
        axis, OnvifResponse(axisText).getNodeByTag(QStringLiteral("CreatePullPointSubscriptionResponse")));
    QCOMPARE(
        axis.SubscriptionReference->Address->value(), QStringLiteral("http://192.168.0.19/onvif/services"));
    QCOMPARE(axis.TerminationTime->value(), QStringLiteral("2018-03-27T23:10:30Z"));
    const QString parameters = axis.SubscriptionReference->unmatchedElements;
    QVERIFY2(parameters.contains(QStringLiteral("ReferenceParameters"))
            && parameters.contains(QStringLiteral("SubscriptionId")),
        qPrintable(parameters));
    QVERIFY(parameters.contains(QStringLiteral("http://www.axis.com/2009/event")));
}

QTEST_GUILESS_MAIN(TestEventMessages)
#include "tst_eventMessages.moc"
