#include "zyrChecker/zyrChecker.h"

#include <QFile>
#include <QReadWriteLock>
#include <QRegularExpression>
#include <QSet>

namespace {

QStringList parseList(const QString& text)
{
    QStringList result;
    for (QString entry : text.split(QRegularExpression(QStringLiteral("[,\\n]")))) {
        const int comment = entry.indexOf(QLatin1Char('#'));
        if (comment >= 0)
            entry.truncate(comment);
        entry = entry.trimmed();
        if (!entry.isEmpty())
            result.append(entry);
    }
    return result;
}

QSet<QString> configuredTexts()
{
    QStringList texts = parseList(qEnvironmentVariable("ZYRCHECKER_KNOWN_TEXTS"));
    const QString path = qEnvironmentVariable("ZYRCHECKER_KNOWN_FILE");
    if (!path.isEmpty()) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            texts += parseList(QString::fromUtf8(file.readAll()));
    }
    return QSet<QString>(texts.cbegin(), texts.cend());
}

// Classification may be asked from any thread of the host.
struct Known
{
    QReadWriteLock lock;
    QSet<QString> texts = configuredTexts();
};

Known& known()
{
    static Known instance;
    return instance;
}

} // namespace

bool ZYRChecker::check(const QString& text)
{
    Known& k = known();
    QReadLocker locker(&k.lock);
    return k.texts.contains(text);
}

void ZYRChecker::setKnownTexts(const QStringList& texts)
{
    Known& k = known();
    QWriteLocker locker(&k.lock);
    k.texts = QSet<QString>(texts.cbegin(), texts.cend());
}

QStringList ZYRChecker::knownTexts()
{
    Known& k = known();
    QReadLocker locker(&k.lock);
    QStringList list(k.texts.cbegin(), k.texts.cend());
    list.sort();
    return list;
}
