#pragma once

#include <QByteArray>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QMap>
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

// Writes a file, making its folders first.
inline bool putFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    return writeFile(path, bytes);
}

// Every file below root (hidden ones too) with its content, by relative path: equal trees, equal drives.
using FileTree = QMap<QString, QByteArray>;
inline FileTree fileTree(const QString &root)
{
    FileTree tree;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        tree.insert(QDir(root).relativeFilePath(path), readAll(path));
    }
    return tree;
}
