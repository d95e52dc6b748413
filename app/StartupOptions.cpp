#include "app/StartupOptions.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QOpenGLContext>
#include <QQuickWindow>
#include <QSGRendererInterface>

#ifdef Q_OS_WIN
#include <QOperatingSystemVersion>
#include <windows.h>
#endif

StartupOptions::OpenGl StartupOptions::openGlChoice(const QStringList &arguments)
{
    for (const QString &a : arguments) {
        if (a == QLatin1String("-angle"))
            return OpenGl::Es;
        if (a == QLatin1String("-swrast"))
            return OpenGl::Software;
        if (a == QLatin1String("-nativegl"))
            return OpenGl::Desktop;
    }
    return OpenGl::Default;
}

void StartupOptions::applyOpenGl(OpenGl choice)
{
    if (choice == OpenGl::Default) {
#ifdef Q_OS_WIN
        choice = QOperatingSystemVersion::current() <=
                         QOperatingSystemVersion(QOperatingSystemVersion::Windows, 6, 0)
                     ? OpenGl::Software
                     : OpenGl::Es;
#else
        choice = OpenGl::Desktop; // Linux drivers speak desktop OpenGL
#endif
    }
    switch (choice) {
    case OpenGl::Es:
        QCoreApplication::setAttribute(Qt::AA_UseOpenGLES);
        break;
    case OpenGl::Software:
        QCoreApplication::setAttribute(Qt::AA_UseSoftwareOpenGL);
        break;
    default:
        QCoreApplication::setAttribute(Qt::AA_UseDesktopOpenGL);
        break;
    }
}

void StartupOptions::chooseSceneGraph(OpenGl choice)
{
    if (!qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND") || !qEnvironmentVariableIsEmpty("QMLSCENE_DEVICE"))
        return; // the user chose
    QOpenGLContext probe;
    if (choice == OpenGl::Software || !probe.create())
        QQuickWindow::setSceneGraphBackend(QSGRendererInterface::Software);
}

void StartupOptions::disableFaultDialog()
{
#ifdef Q_OS_WIN
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
#endif
}

QString StartupOptions::firstLogArgument(const QStringList &arguments, const QString &programFolder)
{
    static const QStringList kSuffixes = {QStringLiteral(".log"), QStringLiteral(".vml"),
                                          QStringLiteral(".nmea"), QStringLiteral(".txt")};
    for (const QString &a : arguments) {
        bool isLog = false;
        for (const QString &s : kSuffixes)
            isLog = isLog || a.endsWith(s, Qt::CaseInsensitive);
        if (!isLog)
            continue;
        const QFileInfo here(a);
        if (here.isAbsolute() || here.exists())
            return here.absoluteFilePath();
        return QDir(programFolder).absoluteFilePath(a);
    }
    return QString();
}
