#include "database/Logger.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

namespace {
constexpr int kBannerWidth = 60;

Logger *g_warningLog = nullptr;
QtMessageHandler g_previousHandler = nullptr;

void forwardMessage(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (g_previousHandler)
        g_previousHandler(type, context, text);
    if (g_warningLog && type != QtDebugMsg && type != QtInfoMsg)
        g_warningLog->write(type == QtWarningMsg ? QStringLiteral("WARNING") : QStringLiteral("ERROR"), text);
}

QString framed(const QString &text)
{
    return QStringLiteral("# ") + text.leftJustified(kBannerWidth - 4) + QStringLiteral(" #\n");
}
} // namespace

Logger::Logger(const QString &path) : m_file(path) {}

Logger::~Logger()
{
    if (g_warningLog == this)
        releaseWarnings();
    close();
}

void Logger::captureWarnings()
{
    g_warningLog = this;
    QtMessageHandler previous = qInstallMessageHandler(forwardMessage);
    if (previous != forwardMessage)
        g_previousHandler = previous;
}

void Logger::releaseWarnings()
{
    if (!g_warningLog)
        return;
    g_warningLog = nullptr;
    qInstallMessageHandler(g_previousHandler);
    g_previousHandler = nullptr;
}

bool Logger::open()
{
    if (m_file.isOpen())
        return true;
    QDir().mkpath(QFileInfo(m_file.fileName()).absolutePath());
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text)) {
        m_failed = true;
        m_lastError =
            tr("%1: cannot open the application log: %2").arg(m_file.fileName(), m_file.errorString());
        return false;
    }
    m_stream.setDevice(&m_file);
    m_stream.setCodec("UTF-8");
    const QString rule(kBannerWidth, QLatin1Char('#'));
    m_stream << rule << '\n'
             << framed(QCoreApplication::applicationName() + QLatin1Char(' ') +
                       QCoreApplication::applicationVersion())
             << framed(QStringLiteral("Started %1")
                           .arg(QDateTime::currentDateTime().toString(QStringLiteral("dd.MM.yyyy hh:mm:ss"))))
             << rule << '\n';
    m_stream.flush();
    checkStream();
    return !m_failed;
}

void Logger::close()
{
    const QMutexLocker lock(&m_mutex);
    if (!m_file.isOpen())
        return;
    write(QStringLiteral("Application exit"));
    m_stream.setDevice(nullptr);
    m_file.close();
}

void Logger::write(const QString &category, const QString &message)
{
    const QMutexLocker lock(&m_mutex);
    if (!m_file.isOpen() && (m_failed || !open()))
        return;
    m_stream << QDateTime::currentDateTime().toString(QStringLiteral("dd.MM.yyyy | hh:mm:ss"));
    if (!category.isEmpty())
        m_stream << " | " << category;
    m_stream << " ... " << message << '\n';
    // Flushed per line: the log matters most when the program is about to die.
    m_stream.flush();
    checkStream();
}

void Logger::checkStream()
{
    if (m_stream.status() != QTextStream::Ok || m_file.error() != QFileDevice::NoError) {
        if (!m_failed)
            m_lastError =
                tr("%1: cannot write the application log: %2").arg(m_file.fileName(), m_file.errorString());
        m_failed = true;
    }
}
