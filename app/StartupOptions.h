#pragma once

#include <QString>
#include <QStringList>

// What the command line asks of start-up, and the few platform switches made before the application
// object exists.
namespace StartupOptions {
enum class OpenGl
{
    Default,
    Es,
    Software,
    Desktop
};

// The first of "-angle", "-swrast", "-nativegl" wins; later ones are ignored.
OpenGl openGlChoice(const QStringList &arguments);
// Sets the framework attribute for the choice; Default picks the platform's usual back end.
void applyOpenGl(OpenGl choice);
// The dial and values windows draw with OpenGL where it works and in software where it does not (no
// driver, a remote session, a machine without a display): a scene that cannot get a context would end the
// program. Call once the application object exists.
void chooseSceneGraph(OpenGl choice);
// Stops the system's fault dialog from appearing for this process (Windows only).
void disableFaultDialog();
// The first argument naming a log (.log, .vml, .nmea, .txt), as an absolute path: relative to the
// current folder when it exists there, else to the program's folder. Empty when there is none.
QString firstLogArgument(const QStringList &arguments, const QString &programFolder);
} // namespace StartupOptions
