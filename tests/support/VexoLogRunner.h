#pragma once

#include <QProcess>
#include <QStringList>

// Runs the vexo-log program for the command-line tests. The test's build defines VEXO_LOG_BINARY.
namespace VexoLogRunner {
struct Result
{
    int code; // -1 when the program crashed or was stopped for taking too long
    QByteArray out;
    QByteArray err;
};

inline Result run(const QStringList &args, int timeoutMs = 120000,
                  const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(QStringLiteral(VEXO_LOG_BINARY), args);
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished();
        return {-1, p.readAllStandardOutput(), "timed out"};
    }
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
            p.readAllStandardError()};
}
} // namespace VexoLogRunner
