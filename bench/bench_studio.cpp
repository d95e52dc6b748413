// The studio's responsiveness: start-up to the first shown main window with the sample flight loaded,
// and opening a large log as the file dialog does, with the longest interface-thread stall meanwhile.
// Usage: bench_studio SAMPLE.log LARGE.log   (runs offscreen, with a private data folder)
#include "BenchUtil.h"

#include "app/AppSettings.h"
#include "app/MainWindow.h"
#include "database/Logger.h"
#include "telemetry/TelemetryData.h"
#include "telemetry/TelemetryMetaTypes.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>

namespace {
// Longest gap between the beats of a 5 ms timer on the interface thread.
class StallMeter : public QObject
{
public:
    StallMeter()
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        connect(&m_timer, &QTimer::timeout, this, [this] {
            const qint64 now = m_clock.nsecsElapsed();
            if (m_last >= 0)
                m_worst = std::max(m_worst, now - m_last);
            m_last = now;
        });
    }
    void start()
    {
        m_worst = 0;
        m_last = -1;
        m_clock.start();
        m_timer.start(5);
    }
    double worstMs() const { return m_worst / 1e6; }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_last = -1;
    qint64 m_worst = 0;
};
} // namespace

int main(int argc, char *argv[])
{
    QElapsedTimer sinceStart;
    sinceStart.start();
    if (argc < 3) {
        std::fprintf(stderr, "usage: bench_studio SAMPLE.log LARGE.log\n");
        return 2;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir data;
    qputenv("XDG_DATA_HOME", data.path().toLocal8Bit());
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Vexo"));
    QApplication::setApplicationName(QStringLiteral("Vexo Studio"));
    Q_INIT_RESOURCE(resources);
    registerTelemetryMetaTypes();
    const QString sample = QString::fromLocal8Bit(argv[1]);
    const QString large = QString::fromLocal8Bit(argv[2]);

    Logger logger(data.filePath(QStringLiteral("Application.log")));
    AppSettings settings;
    MainWindow window(&settings, &logger);
    window.applyDefaultLayout();
    bool loaded = false;
    QObject::connect(&window, &MainWindow::logLoaded, [&](bool ok) { loaded = ok; });
    window.openLog(sample);
    window.show();
    while (!loaded && sinceStart.elapsed() < 60000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
    QCoreApplication::processEvents();
    const double startupMs = sinceStart.nsecsElapsed() / 1e6;
    std::printf("start-up to the shown main window with the sample flight loaded: %.0f ms (%lld samples)\n",
                startupMs, static_cast<long long>(window.store()->package().sampleCount()));

    StallMeter meter;
    meter.start();
    loaded = false;
    QElapsedTimer open;
    open.start();
    window.openLog(large);
    while (!loaded && open.elapsed() < 120000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
    // The sensors are shown once the store's change has reached the windows.
    QCoreApplication::processEvents();
    const double openMs = open.nsecsElapsed() / 1e6;
    std::printf(
        "open %.1f MB log until its sensors show: %.0f ms (%lld samples); longest interface stall: %.1f ms\n",
        QFileInfo(large).size() / 1e6, openMs,
        static_cast<long long>(window.store()->package().sampleCount()), meter.worstMs());
    window.close();
    return 0;
}
