#include "app/UpdateController.h"

#include "app/AppSettings.h"
#include "tools/UpdateChecker.h"
#include "tools/ui/ProgressDlg.h"
#include "widgets/layout/Prompter.h"

#include <QCoreApplication>
#include <QDir>
#include <QProcess>

#include <utility>

UpdateController::UpdateController(QWidget *window, PrompterSource prompter, QObject *parent)
    : QObject(parent), m_window(window), m_prompter(std::move(prompter)),
      m_folder(UpdateEndpoints::updateFolder()), m_dataFolder(AppSettings::dataFolder()),
      m_updater(QStringLiteral("./maintenancetool.exe"))
{
}

UpdateController::~UpdateController()
{
    stop();
}

Prompter *UpdateController::prompter() const
{
    Prompter *p = m_prompter ? m_prompter() : nullptr;
    return p ? p : Prompter::standard();
}

bool UpdateController::isRunning() const
{
    return m_thread && m_thread->isRunning();
}

void UpdateController::check(bool userAsked)
{
    if (m_thread) {
        // One check at a time; a user asking during the check at start gets its answers.
        m_userAsked = m_userAsked || userAsked;
        return;
    }
    m_userAsked = userAsked;
    m_answered = false;
    m_downloadFailed = false;
    auto *checker = new UpdateChecker(m_folder, m_dataFolder);
    m_thread = new UpdateCheckerThread(checker, this);
    // Queued: the checker's thread never touches a widget.
    connect(checker, &UpdateChecker::programChecked, this, &UpdateController::programChecked,
            Qt::QueuedConnection);
    connect(checker, &UpdateChecker::checkFailed, this, &UpdateController::checkFailed, Qt::QueuedConnection);
    connect(checker, &UpdateChecker::deviceUpdateAvailable, this, &UpdateController::deviceUpdateAvailable,
            Qt::QueuedConnection);
    connect(checker, &UpdateChecker::progress, this, &UpdateController::progress, Qt::QueuedConnection);
    connect(checker, &UpdateChecker::done, this, &UpdateController::done, Qt::QueuedConnection);
    m_thread->start();
}

void UpdateController::programChecked(const QString &offered, bool newer)
{
    m_answered = true;
    // An offer of definitions that arrives while this box is open is shown after it.
    m_prompting = true;
    const bool quit = askProgramUpdate(offered, newer);
    m_prompting = false;
    const QDateTime pending = std::exchange(m_pendingOffer, QDateTime());
    if (quit)
        emit quitRequested();
    else if (pending.isValid())
        deviceUpdateAvailable(pending);
}

bool UpdateController::askProgramUpdate(const QString &offered, bool newer)
{
    const QString title = tr("Vexo Studio Update");
    if (!newer) {
        if (m_userAsked)
            prompter()->information(m_window, title,
                                    tr("You are using the latest version of Vexo Studio (%1)")
                                        .arg(QLatin1String(UpdateChecker::kProgramVersion)));
        return false;
    }
    if (prompter()->question(
            m_window, title,
            tr("New version of Vexo Studio is available: <b>%1</b>.<br><br>Close the program "
               "and download the update?")
                .arg(offered.toHtmlEscaped())) != QMessageBox::Yes)
        return false;
    const QString program = QDir(QCoreApplication::applicationDirPath()).filePath(m_updater);
    if (!QProcess::startDetached(program, {QStringLiteral("--updater")})) {
        prompter()->error(m_window, tr("Error"), tr("Unable to start the updater, please update manually."));
        return false;
    }
    return true;
}

void UpdateController::checkFailed(const QString &why)
{
    // Quiet at start; the user who asked hears the first reason only.
    if (!m_userAsked || m_answered)
        return;
    m_answered = true;
    prompter()->information(
        m_window, tr("Vexo Studio Update"),
        why.isEmpty() ? tr("Connection error")
                      : tr("<b>Update not available: </b><ul><li>%1</li></ul>").arg(why.toHtmlEscaped()));
}

void UpdateController::deviceUpdateAvailable(const QDateTime &date)
{
    if (!m_thread)
        return;
    if (m_prompting) {
        m_pendingOffer = date;
        return;
    }
    if (prompter()->question(
            m_window, tr("Vexo Studio Update"),
            tr("New definition of device updates from <b>%1</b> is available.<br><br>Download "
               "the definition?")
                .arg(date.toString(QLatin1String(UpdateChecker::kDateFormat)))) != QMessageBox::Yes) {
        m_thread->stop();
        done();
        return;
    }
    UpdateChecker *checker = m_thread->checker();
    if (!checker)
        return;
    m_progress = new ProgressDlg(tr("Vexo Studio Update"), m_window);
    m_progress->setAttribute(Qt::WA_DeleteOnClose);
    m_progress->setTextFormat(tr("Downloading device updates: %1%"));
    connect(m_progress, &ProgressDlg::canceled, checker, &UpdateChecker::cancel, Qt::QueuedConnection);
    m_progress->show();
    QMetaObject::invokeMethod(checker, &UpdateChecker::downloadDeviceUpdates, Qt::QueuedConnection);
}

void UpdateController::progress(int percent)
{
    if (percent < 0) {
        m_downloadFailed = true;
        if (m_progress)
            m_progress->close();
        prompter()->error(m_window, tr("Vexo Studio Update"), tr("Error getting device updates"));
        return;
    }
    if (m_progress)
        m_progress->progress(percent);
}

void UpdateController::done()
{
    if (m_progress) {
        // Closed by the program, not by the user: no cancel to send.
        m_progress->blockSignals(true);
        m_progress->close();
    }
    if (m_thread) {
        m_thread->stop();
        m_thread->deleteLater();
        m_thread = nullptr;
        emit finished();
    }
}

void UpdateController::stop()
{
    if (m_thread)
        m_thread->stop();
}
