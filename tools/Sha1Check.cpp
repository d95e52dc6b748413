#include "tools/Sha1Check.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>

bool Sha1Check::isValidHex(const QString &hex)
{
    const QString trimmed = hex.trimmed();
    if (trimmed.size() != 40)
        return false;
    for (const QChar c : trimmed) {
        if (!(c.isDigit() || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')))
            return false;
    }
    return true;
}

QString Sha1Check::fileHex(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = file.errorString();
        return QString();
    }
    QCryptographicHash hash(QCryptographicHash::Sha1);
    // Pieces, not readAll(): a large file must not need its size in memory.
    char buffer[65536];
    for (;;) {
        const qint64 n = file.read(buffer, sizeof buffer);
        if (n < 0) {
            if (error)
                *error = file.errorString();
            return QString();
        }
        if (n == 0)
            break;
        hash.addData(buffer, int(n));
    }
    return QString::fromLatin1(hash.result().toHex());
}

bool Sha1Check::matches(const QString &actualHex, const QString &expectedHex)
{
    return isValidHex(expectedHex) && isValidHex(actualHex) &&
           actualHex.trimmed().compare(expectedHex.trimmed(), Qt::CaseInsensitive) == 0;
}

bool Sha1Check::fileMatches(const QString &path, const QString &expectedHex, QString *error)
{
    const QString actual = fileHex(path, error);
    return !actual.isEmpty() && matches(actual, expectedHex);
}
