#pragma once

#include <QCoreApplication>
#include <QFile>
#include <QMutex>
#include <QString>
#include <QTextStream>

// The application log: system events (start, database upgrades, exit) appended as text lines
// "dd.MM.yyyy | hh:mm:ss | CATEGORY ... message". A logger that cannot write marks itself failed and
// goes on silently: losing a log line must never stop the program.
class Logger
{
    Q_DECLARE_TR_FUNCTIONS(Logger)
public:
    explicit Logger(const QString &path);
    ~Logger();
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    // Opens for appending and writes the start banner. The first write() opens a logger not yet open.
    bool open();
    // Writes "Application exit" and closes; a logger that was never opened stays untouched.
    void close();
    void write(const QString &category, const QString &message);
    void write(const QString &message) { write(QString(), message); }

    // Warnings and errors of the whole program (qWarning, qCritical, from any thread) are written here
    // too, beside standard error; undone by the destructor or by releaseWarnings().
    void captureWarnings();
    static void releaseWarnings();

    bool isOpen() const { return m_file.isOpen(); }
    bool isFailed() const { return m_failed; }
    QString path() const { return m_file.fileName(); }
    QString lastError() const { return m_lastError; }

private:
    void checkStream();

    QRecursiveMutex m_mutex; // a warning raised while writing comes back here
    QFile m_file;
    QTextStream m_stream;
    bool m_failed = false;
    QString m_lastError;
};
