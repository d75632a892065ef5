#include "schemaTestUtil.h"

#include <onvifTypes/schema/rawXml.h>
#include <onvifTypes/schema/tds/GetServicesResponse.h>
#include <onvifTypes/schema/tds/StorageConfiguration.h>
#include <onvifTypes/schema/timg/Move.h>
#include <onvifTypes/schema/timg/SetImagingSettings.h>
#include <onvifTypes/schema/tptz/GeoMove.h>
#include <onvifTypes/schema/tptz/Stop.h>
#include <onvifTypes/schema/tr2/GetProfiles.h>
#include <onvifTypes/schema/tr2/GetStreamUri.h>
#include <onvifTypes/schema/trt/GetProfilesResponse.h>
#include <onvifTypes/schema/trt/GetStreamUri.h>
#include <onvifTypes/schema/tt/Certificate.h>
#include <onvifTypes/schema/tt/CertificateUsage.h>
#include <onvifTypes/schema/tt/ClassType.h>
#include <onvifTypes/schema/tt/ConfigDescription.h>
#include <onvifTypes/schema/tt/Dot11SignalStrength.h>
#include <onvifTypes/schema/tt/H264Options2.h>
#include <onvifTypes/schema/tt/ItemList.h>
#include <onvifTypes/schema/tt/Message.h>
#include <onvifTypes/schema/tt/Object.h>
#include <onvifTypes/schema/tt/PTZNode.h>
#include <onvifTypes/schema/tt/Profile.h>
#include <onvifTypes/schema/tt/StreamType.h>
#include <onvifTypes/schema/tt/VideoEncoderConfiguration.h>

#include <QtTest>

#include <type_traits>

// deserialize() takes the node by reference, as applications' overrides do; tests hand it a copy.
template <typename T> void readNode(T& object, QDomNode node)
{
    object.deserialize(node);
}

using SchemaTest::parse;

class SchemaTypesTest : public QObject
{
    Q_OBJECT

private slots:
    void workedExamples_data();
    void workedExamples();
    void derivedClassEmbedsBase();
    void derivedClassReadsBaseMembers();
    void membersWrittenAsOnTheirOwn();
    void childrenMatchedByLocalName();
    void unknownContentKeptButNotWritten();
    void lists();
    void repeatedSingleElementLastWins();
    void copiesShareMemberObjects();
    void enumerations();
    void typesOutsideCatalogueKeptAsRawXml();
    void simpleContentAndNameClashes();
};

void SchemaTypesTest::workedExamples_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    tt::VideoEncoderConfiguration encoder;
    encoder.UseCount->setValue(0);
    QTest::newRow("default VideoEncoderConfiguration")
        << encoder.serialize(QString())
        << QStringLiteral(
               "<tt:VideoEncoderConfiguration  token=\"\" ><tt:Name></tt:Name><tt:UseCount>0</tt:UseCount>"
               "<tt:Encoding>JPEG</tt:Encoding>"
               "<tt:Resolution ><tt:Width>0</tt:Width><tt:Height>0</tt:Height></tt:Resolution>"
               "<tt:Quality>0</tt:Quality>"
               "<tt:Multicast ><tt:Address ><tt:Type>IPv4</tt:Type></tt:Address><tt:Port>0</tt:Port>"
               "<tt:TTL>0</tt:TTL><tt:AutoStart>false</tt:AutoStart></tt:Multicast>"
               "<tt:SessionTimeout></tt:SessionTimeout></tt:VideoEncoderConfiguration>");

    QTest::newRow("default GetStreamUri")
        << trt::GetStreamUri().serialize(QString())
        << QStringLiteral("<trt:GetStreamUri ><trt:StreamSetup ><tt:Stream>RTP-Unicast</tt:Stream>"
                          "<tt:Transport ><tt:Protocol>UDP</tt:Protocol></tt:Transport></trt:StreamSetup>"
                          "<trt:ProfileToken></trt:ProfileToken></trt:GetStreamUri>");

    tptz::Stop stop;
    stop.ProfileToken->setValue(QStringLiteral("profile_1"));
    QTest::newRow("Stop without flags")
        << stop.serialize(QString())
        << QStringLiteral("<tptz:Stop ><tptz:ProfileToken>profile_1</tptz:ProfileToken></tptz:Stop>");

    // Media2 and Imaging messages declare their own prefix (the envelope does not), with the
    // members in the schema's order.
    tr2::GetProfiles profiles;
    profiles.Type.reset(new QVector<universalSimpleType<QString>> { universalSimpleType<QString>("All") });
    QTest::newRow("Media2 GetProfiles")
        << profiles.serialize(QString())
        << QStringLiteral("<tr2:GetProfiles xmlns:tr2=\"http://www.onvif.org/ver20/media/wsdl\" >"
                          "<tr2:Type>All</tr2:Type></tr2:GetProfiles>");
    tr2::GetStreamUri streamUri;
    streamUri.ProfileToken->setValue(QStringLiteral("p"));
    streamUri.Protocol->setValue(QStringLiteral("RtspOverHttp"));
    QTest::newRow("Media2 GetStreamUri")
        << streamUri.serialize(QString())
        << QStringLiteral("<tr2:GetStreamUri xmlns:tr2=\"http://www.onvif.org/ver20/media/wsdl\" >"
                          "<tr2:Protocol>RtspOverHttp</tr2:Protocol><tr2:ProfileToken>p</tr2:ProfileToken>"
                          "</tr2:GetStreamUri>");
    timg::SetImagingSettings settings;
    settings.VideoSourceToken->setValue(QStringLiteral("vs"));
    settings.ImagingSettings->Sharpness.reset(new universalSimpleType<float>(3));
    settings.ImagingSettings->IrCutFilter.reset(new tt::IrCutFilterMode(tt::IrCutFilterMode::AUTO));
    settings.ImagingSettings->Brightness.reset(new universalSimpleType<float>(40.5f));
    settings.ForcePersistence.reset(new universalSimpleType<bool>(true));
    QTest::newRow("Imaging SetImagingSettings")
        << settings.serialize(QString())
        << QStringLiteral("<timg:SetImagingSettings xmlns:timg=\"http://www.onvif.org/ver20/imaging/wsdl\" >"
                          "<timg:VideoSourceToken>vs</timg:VideoSourceToken><timg:ImagingSettings >"
                          "<tt:Brightness>40.5</tt:Brightness><tt:IrCutFilter>AUTO</tt:IrCutFilter>"
                          "<tt:Sharpness>3</tt:Sharpness></timg:ImagingSettings>"
                          "<timg:ForcePersistence>true</timg:ForcePersistence></timg:SetImagingSettings>");
    timg::Move move;
    move.VideoSourceToken->setValue(QStringLiteral("vs"));
    move.Focus->Continuous.reset(new tt::ContinuousFocus);
    move.Focus->Continuous->Speed->setValue(-0.5f);
    QTest::newRow("Imaging Move")
        << move.serialize(QString())
        << QStringLiteral("<timg:Move xmlns:timg=\"http://www.onvif.org/ver20/imaging/wsdl\" >"
                          "<timg:VideoSourceToken>vs</timg:VideoSourceToken><timg:Focus ><tt:Continuous >"
                          "<tt:Speed>-0.5</tt:Speed></tt:Continuous></timg:Focus></timg:Move>");

    // A given name replaces the class's own.
    tt::VideoResolution resolution;
    resolution.Width->setValue(640);
    resolution.Height->setValue(480);
    QTest::newRow("given name") << resolution.serialize(QStringLiteral("trt:Configuration"))
                                << QStringLiteral("<trt:Configuration ><tt:Width>640</tt:Width><tt:Height>480"
                                                  "</tt:Height></trt:Configuration>");
}

void SchemaTypesTest::workedExamples()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(text, expected);
}

void SchemaTypesTest::derivedClassEmbedsBase()
{
    // Base content first, base attributes behind the derived class's own blank.
    tt::PTZNode node;
    node.token->setValue(QStringLiteral("n1"));
    node.FixedHomePosition.reset(new universalSimpleType<bool>(true));
    node.MaximumNumberOfPresets->setValue(8);
    node.HomeSupported->setValue(true);
    QCOMPARE(node.serialize(QString()),
        QStringLiteral("<tt:PTZNode  token=\"n1\" FixedHomePosition=\"true\" ><tt:SupportedPTZSpaces >"
                       "</tt:SupportedPTZSpaces><tt:MaximumNumberOfPresets>8</tt:MaximumNumberOfPresets>"
                       "<tt:HomeSupported>true</tt:HomeSupported></tt:PTZNode>"));

    // A base in another namespace keeps its own prefixes.
    tds::StorageConfiguration storage;
    storage.token->setValue(QStringLiteral("s"));
    QVERIFY(
        storage.serialize(QString()).startsWith(QStringLiteral("<tds:StorageConfiguration  token=\"s\" >")));

    // A base without attributes still hands over the blank after its name.
    tt::H264Options2 options;
    options.BitrateRange->Min->setValue(1);
    const QString text = options.serialize(QString());
    QVERIFY2(text.startsWith(QStringLiteral("<tt:H264Options2  ><tt:GovLengthRange >")), qPrintable(text));
    const int baseEnd = text.indexOf(QStringLiteral("</tt:EncodingIntervalRange>"));
    QVERIFY2(baseEnd > 0 && baseEnd < text.indexOf(QStringLiteral("<tt:BitrateRange >")), qPrintable(text));
}

void SchemaTypesTest::membersWrittenAsOnTheirOwn()
{
    // Members are written through the in-place path; each must read as its own text.
    tt::Profile profile;
    profile.VideoEncoderConfiguration.reset(new tt::VideoEncoderConfiguration);
    profile.VideoEncoderConfiguration->token->setValue(QStringLiteral("enc"));
    profile.VideoEncoderConfiguration->Encoding->setIndex(tt::VideoEncoding::H264);
    QVERIFY(profile.serialize(QString()).contains(
        profile.VideoEncoderConfiguration->serialize(QStringLiteral("tt:VideoEncoderConfiguration"))));
    tt::ItemList items;
    items.SimpleItem.reset(new QVector<RawXml>(2));
    (*items.SimpleItem)[1].attributes.append(qMakePair(QStringLiteral("Name"), QStringLiteral("Level")));
    QVERIFY(items.serialize(QString()).contains(
        (*items.SimpleItem)[1].serialize(QStringLiteral("tt:SimpleItem"))));
}

void SchemaTypesTest::derivedClassReadsBaseMembers()
{
    QDomDocument document;
    const QDomElement element = parse(document,
        QStringLiteral("<tt:VideoEncoderConfiguration token=\"enc\" other=\"1\"><tt:Name>main</tt:Name>"
                       "<tt:UseCount>3</tt:UseCount><tt:Encoding>H264</tt:Encoding><tt:Odd/>"
                       "</tt:VideoEncoderConfiguration>"));
    tt::VideoEncoderConfiguration encoder;
    readNode(encoder, element);
    QCOMPARE(encoder.token->value() + encoder.Name->value(), QStringLiteral("encmain"));
    QCOMPARE(encoder.Encoding->index(), 2u);
    // The unknown ones are reported once, by the derived class; the base's own
    // view of the derived children is dropped.
    QCOMPARE(encoder.tt::ConfigurationEntity::unmatchedElements, QString());
    QCOMPARE(encoder.tt::ConfigurationEntity::unmatchedAttributes, QString());
    QCOMPARE(encoder.unmatchedElements,
        Utilites::nodeToText(SchemaTest::findByLocalName(element, QStringLiteral("Odd")))
            + QLatin1Char('\n'));
    QCOMPARE(encoder.unmatchedAttributes,
        Utilites::nodeToText(element.attributes().namedItem(QStringLiteral("other"))) + QLatin1Char('\n'));

    // Extensions whose base is not one of the derived classes keep only their
    // own members: tt::ConfigDescription's inherited Source is unknown to it.
    tt::ConfigDescription config;
    readNode(config,
        parse(document,
            QStringLiteral(
                "<tt:ConfigDescription Name=\"c\"><tt:Source/><tt:Parameters/></tt:ConfigDescription>")));
    QCOMPARE(config.Name->value(), QStringLiteral("c"));
    QVERIFY(config.unmatchedElements.contains(QStringLiteral("Source")));
    QVERIFY(!config.unmatchedElements.contains(QStringLiteral("Parameters")));
}

void SchemaTypesTest::childrenMatchedByLocalName()
{
    QDomDocument document;
    for (const char* name : { "Resolution", "tt:Resolution", "ns1:Resolution" }) {
        tt::VideoEncoderConfiguration encoder;
        readNode(encoder,
            parse(document,
                QStringLiteral(
                    "<tt:VideoEncoderConfiguration><%1><Width>1920</Width><ns1:Height>1080</ns1:Height>"
                    "</%1></tt:VideoEncoderConfiguration>")
                    .arg(QLatin1String(name))));
        QCOMPARE(encoder.Resolution->Width->value(), 1920);
        QCOMPARE(encoder.Resolution->Height->value(), 1080);
        QCOMPARE(encoder.unmatchedElements, QString());
        // Case matters.
        readNode(
            encoder, parse(document, QStringLiteral("<x><resolution><Width>1</Width></resolution></x>")));
        QCOMPARE(encoder.Resolution->Width->value(), 1920);
        QVERIFY(encoder.unmatchedElements.contains(QStringLiteral("resolution")));
    }
}

void SchemaTypesTest::unknownContentKeptButNotWritten()
{
    QDomDocument document;
    const QDomElement element = parse(document,
        QStringLiteral(
            "<tt:VideoResolution ns1:odd=\"1\"><tt:Width>2</tt:Width><tt:Unknown a=\"b\">x</tt:Unknown>"
            "<tt:Height>3</tt:Height></tt:VideoResolution>"));
    tt::VideoResolution resolution;
    readNode(resolution, element);
    const QDomElement unknown = SchemaTest::findByLocalName(element, QStringLiteral("Unknown"));
    QCOMPARE(resolution.unmatchedElements, Utilites::nodeToText(unknown) + QLatin1Char('\n'));
    QCOMPARE(resolution.unmatchedAttributes,
        Utilites::nodeToText(element.attributes().item(0)) + QLatin1Char('\n'));
    QCOMPARE(resolution.serialize(QString()),
        QStringLiteral("<tt:VideoResolution ><tt:Width>2</tt:Width><tt:Height>3</tt:Height>"
                       "</tt:VideoResolution>"));
}

void SchemaTypesTest::lists()
{
    QDomDocument document;
    trt::GetProfilesResponse none;
    readNode(none, parse(document, QStringLiteral("<trt:GetProfilesResponse/>")));
    QVERIFY(none.Profiles.isNull());

    trt::GetProfilesResponse response;
    readNode(response,
        parse(document,
            QStringLiteral("<trt:GetProfilesResponse><trt:Profiles token=\"a\"/><trt:Other/>"
                           "<trt:Profiles token=\"b\" fixed=\"true\"/></trt:GetProfilesResponse>")));
    QVERIFY(response.Profiles->at(0).fixed.isNull());
    QCOMPARE(response.serialize(QString()),
        QStringLiteral(
            "<trt:GetProfilesResponse ><trt:Profiles token=\"a\" ><tt:Name></tt:Name></trt:Profiles>"
            "<trt:Profiles token=\"b\" fixed=\"true\" ><tt:Name></tt:Name></trt:Profiles>"
            "</trt:GetProfilesResponse>"));

    // A present but empty optional list writes nothing.
    response.Profiles->clear();
    QCOMPARE(response.serialize(QString()),
        QStringLiteral("<trt:GetProfilesResponse ></trt:GetProfilesResponse>"));

    // A required list is a plain vector, appended to in document order.
    tds::GetServicesResponse services;
    readNode(services,
        parse(document,
            QStringLiteral(
                "<tds:GetServicesResponse><tds:Service><tds:XAddr>u1</tds:XAddr></tds:Service>"
                "<tds:Service><tds:XAddr>u2</tds:XAddr></tds:Service></tds:GetServicesResponse>")));
    QCOMPARE(services.Service.size(), 2);
    QCOMPARE(services.Service.at(1).XAddr->value(), QStringLiteral("u2"));
}

void SchemaTypesTest::repeatedSingleElementLastWins()
{
    QDomDocument document;
    tt::VideoResolution resolution;
    readNode(
        resolution, parse(document, QStringLiteral("<r><tt:Width>1</tt:Width><tt:Width>7</tt:Width></r>")));
    QCOMPARE(resolution.Width->value(), 7);
    QCOMPARE(resolution.unmatchedElements, QString());
}

void SchemaTypesTest::copiesShareMemberObjects()
{
    tt::Profile original;
    original.Name->setValue(QStringLiteral("before"));
    tt::Profile copy(original);
    original.Name->setValue(QStringLiteral("after"));
    QCOMPARE(copy.Name->value(), QStringLiteral("after"));

    tt::Profile assigned;
    assigned = original;
    QCOMPARE(assigned.Name.data(), original.Name.data());
    // Entries of a copied optional list are shared through the list pointer.
    trt::GetProfilesResponse response;
    response.Profiles.reset(new QVector<tt::Profile>(1));
    const trt::GetProfilesResponse responseCopy = response;
    (*response.Profiles)[0].token->setValue(QStringLiteral("t"));
    QCOMPARE(responseCopy.Profiles->at(0).token->value(), QStringLiteral("t"));
}

void SchemaTypesTest::enumerations()
{
    QCOMPARE(tt::VideoEncoding().serialize(QString()), QStringLiteral("JPEG"));
    QCOMPARE(tt::VideoEncoding(QStringLiteral("H265")).index(), 3u);
    QCOMPARE(tt::VideoEncoding(QStringLiteral("h265")).index(), 0u); // case matters
    // A text converts to an enumeration implicitly, as application code assigns it.
    tt::VideoEncoderConfiguration configuration;
    *configuration.Encoding = QStringLiteral("H264");
    QCOMPARE(configuration.Encoding->index(), unsigned(tt::VideoEncoding::H264));
    QCOMPARE(tt::StreamType(tt::StreamType::tStreamType(1)).serialize(QStringLiteral("tt:Stream")),
        QStringLiteral("<tt:Stream>RTP-Multicast</tt:Stream>"));
    QCOMPARE(tt::Dot11SignalStrength(QStringLiteral("Very Good")).index(), 4u);
    QCOMPARE(tt::ClassType(QStringLiteral("Vehical")).index(), 3u);

    // Enumerations as attributes: tt::Message reads PropertyOperation from one.
    QDomDocument document;
    tt::Message message;
    readNode(message, parse(document, QStringLiteral("<tt:Message PropertyOperation=\"Changed\"/>")));
    QCOMPARE(message.PropertyOperation->index(), 2u);
}

void SchemaTypesTest::typesOutsideCatalogueKeptAsRawXml()
{
    // tt:GeoLocation has no class: GeoMove's Target keeps what was read, verbatim.
    QVERIFY((std::is_same<decltype(tptz::GeoMove::Target), QSharedPointer<RawXml>>::value));
    QDomDocument document;
    tptz::GeoMove move;
    QVERIFY(move.Target);
    QCOMPARE(move.serialize(QString()).count(QStringLiteral("<tptz:Target ></tptz:Target>")), 1);
    readNode(move,
        parse(document,
            QStringLiteral("<tptz:GeoMove><tptz:ProfileToken>p</tptz:ProfileToken>"
                           "<tptz:Target lon=\"8.5\" lat=\"47.3\"><ns1:Note>n</ns1:Note></tptz:Target>"
                           "<tptz:AreaHeight>2.5</tptz:AreaHeight></tptz:GeoMove>")));
    QCOMPARE(move.unmatchedElements, QString());
    QCOMPARE(move.Target->attribute(QStringLiteral("lon")), QStringLiteral("8.5"));
    QVERIFY(move.Target->content.contains(QStringLiteral(">n</ns1:Note>")));
    QCOMPARE(move.AreaHeight->value(), 2.5f);
    const QString text = move.serialize(QString());
    QVERIFY2(text.contains(QStringLiteral("<tptz:Target lon=\"8.5\" lat=\"47.3\" >"))
            || text.contains(QStringLiteral("<tptz:Target lat=\"47.3\" lon=\"8.5\" >")),
        qPrintable(text));

    // So are anonymous types declared inside an element, with their occurrence.
    tt::ItemList items;
    readNode(items,
        parse(document,
            QStringLiteral("<tt:Data><tt:SimpleItem Name=\"State\" Value=\"true\"/>"
                           "<tt:SimpleItem Name=\"Level\" Value=\"3\"/></tt:Data>")));
    QCOMPARE(items.SimpleItem->size(), 2);
    QCOMPARE(items.SimpleItem->at(1).attribute(QStringLiteral("Value")), QStringLiteral("3"));
}

void SchemaTypesTest::simpleContentAndNameClashes()
{
    QDomDocument document;
    tt::CertificateUsage usage;
    readNode(usage,
        parse(
            document, QStringLiteral("<tt:CertificateUsage Critical=\"true\">1.3.6</tt:CertificateUsage>")));
    QCOMPARE(usage.serialize(QString()),
        QStringLiteral("<tt:CertificateUsage Critical=\"true\" >1.3.6</tt:CertificateUsage>"));

    // Members named as their class (C++ allows it only without a declared constructor).
    QVERIFY(tt::Certificate().Certificate);
    tt::Object object;
    readNode(object, parse(document, QStringLiteral("<tt:Object ObjectId=\"12\"/>")));
    QCOMPARE(object.ObjectId->value(), 12);
    QCOMPARE(object.unmatchedAttributes, QString());
}

QTEST_GUILESS_MAIN(SchemaTypesTest)
#include "tst_schemaTypes.moc"
