#pragma once

#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>

class Prompter;
class ProgressDlg;
class QWidget;
class UpdateCheckerThread;

// Runs the online update check for the main window and tells the user what it found: a newer program (the
// maintenance tool is offered), newer device definitions (downloaded on request, with progress), and, when
// the user asked, "up to date" or why the check could not run. A check at start stays silent unless it has
// something to offer.
class UpdateController : public QObject
{
    Q_OBJECT
public:
    using PrompterSource = std::function<Prompter *()>;

    UpdateController(QWidget *window, PrompterSource prompter, QObject *parent = nullptr);
    ~UpdateController() override;

    // The service folder and the data folder; the defaults come from the environment and the settings.
    void setServiceFolder(const QUrl &folder) { m_folder = folder; }
    void setDataFolder(const QString &folder) { m_dataFolder = folder; }
    // The maintenance tool started for a program update.
    void setUpdaterProgram(const QString &program) { m_updater = program; }

    // userAsked: the "Check for updates" action; false for the check at start.
    void check(bool userAsked);
    bool isRunning() const;
    // At shut-down: the check is stopped, waited for a short while and ended.
    void stop();

signals:
    // The user chose to close the program for the maintenance tool.
    void quitRequested();
    // The check has ended and every message was shown.
    void finished();

private:
    void programChecked(const QString &offered, bool newer);
    // True when the user chose to close the program for the maintenance tool.
    bool askProgramUpdate(const QString &offered, bool newer);
    void checkFailed(const QString &why);
    void deviceUpdateAvailable(const QDateTime &date);
    void progress(int percent);
    void done();
    Prompter *prompter() const;

    QWidget *m_window;
    PrompterSource m_prompter;
    QUrl m_folder;
    QString m_dataFolder;
    QString m_updater;
    UpdateCheckerThread *m_thread = nullptr;
    QPointer<ProgressDlg> m_progress;
    bool m_userAsked = false;
    bool m_answered = false;
    bool m_downloadFailed = false;
    // One box at a time: an offer that arrives while a box is open waits for it.
    bool m_prompting = false;
    QDateTime m_pendingOffer;
};
