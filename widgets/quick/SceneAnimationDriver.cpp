#include "widgets/quick/SceneAnimationDriver.h"

#include <QCoreApplication>

SceneAnimationDriver::SceneAnimationDriver(int framesPerSecond, QObject *parent) : QAnimationDriver(parent)
{
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(1000 / std::max(1, framesPerSecond));
    connect(&m_timer, &QTimer::timeout, this, [this] { advance(); });
    m_clock.start();
}

void SceneAnimationDriver::installFor(int framesPerSecond)
{
    static SceneAnimationDriver *installed = nullptr;
    if (installed || !QCoreApplication::instance())
        return;
    installed = new SceneAnimationDriver(framesPerSecond, QCoreApplication::instance());
    installed->install();
    // Handed back while the animation timers still exist; at the application's end it would be too late.
    QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, installed,
                     [] { installed->uninstall(); });
}

qint64 SceneAnimationDriver::elapsed() const
{
    return m_clock.elapsed();
}

void SceneAnimationDriver::start()
{
    m_timer.start();
    QAnimationDriver::start();
}

void SceneAnimationDriver::stop()
{
    m_timer.stop();
    QAnimationDriver::stop();
}
