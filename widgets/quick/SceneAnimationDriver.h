#pragma once

#include <QAnimationDriver>
#include <QElapsedTimer>
#include <QTimer>

// Advances the program's animations (the dial's springing needle) at a steady rate below the screen's
// 60 frames a second: while live data streams the needle never rests, and each frame of a scene drawn
// in software costs the interface thread; at 30 a second the motion looks the same.
class SceneAnimationDriver : public QAnimationDriver
{
    Q_OBJECT
public:
    explicit SceneAnimationDriver(int framesPerSecond, QObject *parent = nullptr);
    // Installs one driver for the whole program (once; later calls do nothing).
    static void installFor(int framesPerSecond);

    qint64 elapsed() const override;

protected:
    void start() override;
    void stop() override;

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
};
