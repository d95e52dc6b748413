#pragma once

#include <QCoreApplication>
#include <QIODevice>
#include <QString>
#include <QStringList>

class QFile;

// Opening a file to read a log from, with the errors every reader gives; each starts with the path.
class InputFile
{
    Q_DECLARE_TR_FUNCTIONS(InputFile)
public:
    // Opens the file (named by its path) read-only, with the extra mode flags. False, with *error set
    // (when given), for a path that is missing ("<path>: no such file"), a folder ("<path>: is a folder,
    // not a log file"), of a format not among the lower-case extensions in formats (when given), or that
    // does not open ("<path>: cannot open: <reason>"), in that order.
    static bool open(QFile *file, QString *error, QIODevice::OpenMode extra = QIODevice::NotOpen,
                     const QStringList &formats = {});
    // "<path>: unknown log format "<extension>"", followed by the readable ones when there are any.
    static QString unknownFormat(const QString &path, const QStringList &formats = {});
};
