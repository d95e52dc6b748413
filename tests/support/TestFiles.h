#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

// Whole files in and out, for tests that build fixtures on disk or compare what was written.
inline QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

inline bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}
