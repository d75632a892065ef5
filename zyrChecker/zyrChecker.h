#ifndef ZYRCHECKER_ZYRCHECKER_H
#define ZYRCHECKER_ZYRCHECKER_H

#include <QStringList>
#include <QtCore/qglobal.h>

#if defined(ZYRCHECKER_LIBRARY)
#define ZYRCHECKER_EXPORT Q_DECL_EXPORT
#else
#define ZYRCHECKER_EXPORT Q_DECL_IMPORT
#endif

// Tells whether a text (a model prefix, a firmware build prefix or a hardware id)
// names a device of the own family sold under white-label ONVIF names.
//
// The answer is an exact match against a set of known texts. The set starts as
// what the host configures before the first check:
//   ZYRCHECKER_KNOWN_TEXTS  texts separated by commas or newlines, or
//   ZYRCHECKER_KNOWN_FILE   a UTF-8 file with one text per line ('#' starts a comment),
// both read together when both are set; with neither the set is empty.
// setKnownTexts() replaces the set at any time.
class ZYRCHECKER_EXPORT ZYRChecker
{
public:
    static bool check(const QString& text);
    static void setKnownTexts(const QStringList& texts);
    static QStringList knownTexts();
};

#endif // ZYRCHECKER_ZYRCHECKER_H
