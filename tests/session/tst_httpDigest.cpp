// HTTP Digest answers against the worked examples of RFC 2617 and RFC 7616.
#include <onvifTypes/session/httpDigest_p.h>

#include <QtTest>

using Onvif::Internal::HttpChallenge;

class TestHttpDigest : public QObject
{
    Q_OBJECT

private slots:
    void challenges_data()
    {
        QTest::addColumn<QByteArray>("header");
        QTest::addColumn<int>("scheme");
        QTest::addColumn<QByteArray>("nonce");
        QTest::addColumn<bool>("stale");
        QTest::newRow("digest") << QByteArray("Digest realm=\"cam\", nonce=\"abc\", qop=\"auth\"")
                                << int(HttpChallenge::Digest) << QByteArray("abc") << false;
        // Repeated headers arrive joined; Digest wins wherever it stands.
        QTest::newRow("basic first") << QByteArray(
            "Basic realm=\"a, b\", Digest realm=\"x\", nonce=\"n1\", stale=TRUE")
                                     << int(HttpChallenge::Digest) << QByteArray("n1") << true;
        QTest::newRow("basic only") << QByteArray("Basic realm=\"cam\"") << int(HttpChallenge::Basic)
                                    << QByteArray() << false;
        QTest::newRow("unknown") << QByteArray("Negotiate") << int(HttpChallenge::None) << QByteArray()
                                 << false;
        QTest::newRow("escaped quote") << QByteArray("Digest nonce=\"a\\\"b\", realm=x")
                                       << int(HttpChallenge::Digest) << QByteArray("a\"b") << false;
    }
    void challenges()
    {
        QFETCH(QByteArray, header);
        QFETCH(int, scheme);
        QFETCH(QByteArray, nonce);
        QFETCH(bool, stale);
        const HttpChallenge c = Onvif::Internal::parseChallenge(header);
        QCOMPARE(int(c.scheme), scheme);
        QCOMPARE(c.nonce, nonce);
        QCOMPARE(c.stale, stale);
    }

    void knownAnswers_data()
    {
        QTest::addColumn<QByteArray>("challenge");
        QTest::addColumn<QString>("password");
        QTest::addColumn<QByteArray>("cnonce");
        QTest::addColumn<QByteArray>("response");
        QTest::newRow("RFC 2617") << QByteArray("Digest realm=\"testrealm@host.com\", qop=\"auth,auth-int\", "
                                                "nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\", "
                                                "opaque=\"5ccc069c403ebaf9f0171e9517f40e41\"")
                                  << "Circle Of Life" << QByteArray("0a4f113b")
                                  << QByteArray("6629fae49393a05397450978507c4ef1");
        const QByteArray rfc7616 = "realm=\"http-auth@example.org\", qop=\"auth, auth-int\", "
                                   "nonce=\"7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v\", "
                                   "opaque=\"FQhe/qaU925kfnzjCev0ciny7QMkPqMAFRtzCUYo5tdS\"";
        const QByteArray cnonce = "f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ";
        QTest::newRow("RFC 7616 MD5") << QByteArray("Digest algorithm=MD5, " + rfc7616) << "Circle of Life"
                                      << cnonce << QByteArray("8ca523f5e9506fed4657c9700eebdbec");
        QTest::newRow("RFC 7616 SHA-256")
            << QByteArray("Digest algorithm=SHA-256, " + rfc7616) << "Circle of Life" << cnonce
            << QByteArray("753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1");
    }
    void knownAnswers()
    {
        QFETCH(QByteArray, challenge);
        QFETCH(QString, password);
        QFETCH(QByteArray, cnonce);
        QFETCH(QByteArray, response);
        Onvif::Internal::HttpAuthorizer authorizer;
        authorizer.setChallenge(Onvif::Internal::parseChallenge(challenge));
        const QByteArray uri = "/dir/index.html";
        const QByteArray answer
            = authorizer.authorization("GET", uri, QStringLiteral("Mufasa"), password, cnonce);
        QVERIFY2(answer.contains("response=\"" + response + '"'), answer.constData());
        QVERIFY2(answer.contains("nc=00000001") && answer.contains("qop=auth,"), answer.constData());
        // The count goes up with every answer to the same nonce.
        QVERIFY(authorizer.authorization("GET", uri, QStringLiteral("Mufasa"), password, cnonce)
                    .contains("nc=00000002"));
    }
};

QTEST_GUILESS_MAIN(TestHttpDigest)
#include "tst_httpDigest.moc"
