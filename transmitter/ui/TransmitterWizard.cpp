#include "transmitter/ui/TransmitterWizard.h"

#include "database/DatabaseManager.h"
#include "transmitter/BackupWorker.h"
#include "transmitter/RestoreWorker.h"
#include "transmitter/ui/AppManagerPages.h"
#include "transmitter/ui/BackupPages.h"
#include "transmitter/ui/IntroPage.h"
#include "transmitter/ui/ManageBackupsPages.h"
#include "transmitter/ui/NotAvailablePage.h"
#include "transmitter/ui/RestorePages.h"
#include "transmitter/ui/SyncLogsPages.h"
#include "transmitter/ui/UpdaterPages.h"
#include "transmitter/ui/WorkerProgressPage.h"
#include "widgets/layout/Prompter.h"

#include <QAbstractButton>
#include <QDebug>
#include <QFileInfo>
#include <QIcon>
#include <QLabel>
#include <QStandardPaths>

namespace {
void registerTypes()
{
    qRegisterMetaType<BackupWorker::ErrorType>("BackupWorker::ErrorType");
    qRegisterMetaType<RestoreWorker::ErrorType>("RestoreWorker::ErrorType");
    qRegisterMetaType<SyncWorker::ErrorType>("SyncWorker::ErrorType");
    qRegisterMetaType<SyncReport>("SyncReport");
    qRegisterMetaType<UpdateWorker::ErrorType>("UpdateWorker::ErrorType");
}
} // namespace

TransmitterWizard::TransmitterWizard(const TransmitterInfo &transmitter, DatabaseManager *database,
                                     Prompter *prompter, QWidget *parent)
    : QWizard(parent), m_transmitter(transmitter), m_database(database),
      m_prompter(prompter ? prompter : Prompter::standard())
{
    Q_INIT_RESOURCE(transmitter_ui);
    registerTypes();
    setWindowTitle(tr("Vexo Transmitter Wizard"));
    setWindowIcon(QIcon(QStringLiteral(":/Icons/Transmitter/transmitter32x32.png")));
    setButtonText(CancelButton, tr("Exit"));
    setWizardStyle(ModernStyle);
    setOption(NoBackButtonOnStartPage);
    setModal(true);

    setPage(IntroId, new IntroPage);
    setPage(BackupIntroId, new BackupIntroPage);
    setPage(BackupSelectionId, new BackupSelectionPage);
    setPage(BackupInformationId, new BackupInformationPage);
    setPage(BackupProgressId, new BackupBackupProgressPage);
    setPage(BackupFinishId, new BackupFinishPage);
    setPage(ManageBackupsId, new ManageBackupsPage);
    setPage(NotAvailableId, new NotAvailablePage);
    setPage(RestoreIntroId, new RestoreIntroPage);
    setPage(RestoreSelectionId, new RestoreSelectionPage);
    setPage(RestoreProgressId, new RestoreProgressPage);
    setPage(RestoreFinishId, new RestoreFinishPage);
    setPage(SyncIntroId, new SyncLogsIntroPage);
    setPage(SyncSelectionId, new SyncLogsSelectionPage);
    setPage(SyncProgressId, new SyncLogsProgressPage);
    setPage(SyncFinishId, new SyncLogsFinishPage);
    setPage(UpdateIntroId, new UpdateIntroPage);
    setPage(UpdateCheckId, new UpdateCheckPage);
    setPage(UpdateBackupPromptId, new UpdateBackupPromptPage);
    setPage(UpdateOverviewId, new UpdateOverviewPage);
    setPage(UpdateProgressId, new UpdateProgressPage);
    setPage(UpdateFinishId, new UpdateFinishPage);
    setPage(AppManagerId, new AppManagerPage);
    setStartId(IntroId);
    // A page that took Next over holds it only while it is shown.
    connect(this, &QWizard::currentIdChanged, this, &TransmitterWizard::giveBackNext);
    resize(720, 540);
}

void TransmitterWizard::disconnectNext()
{
    // QWizard wires its buttons by signature.
    disconnect(button(NextButton), SIGNAL(clicked()), this, SLOT(next()));
}

void TransmitterWizard::giveBackNext()
{
    if (!m_nextTakeOver)
        return;
    disconnect(m_nextTakeOver);
    m_nextTakeOver = {};
    connect(button(NextButton), SIGNAL(clicked()), this, SLOT(next()));
}

void TransmitterWizard::setBusy(bool busy)
{
    m_busy = busy;
    // Without Back in the layout no page change can pull the page from under a running worker.
    if (busy)
        setButtonLayout({Stretch, NextButton, FinishButton, CancelButton});
    else
        setButtonLayout({Stretch, BackButton, NextButton, CommitButton, FinishButton, CancelButton});
}

void TransmitterWizard::reject()
{
    if (auto *progress = qobject_cast<WorkerProgressPage *>(currentPage())) {
        if (progress->isRunning()) {
            progress->askCancel();
            return;
        }
    }
    if (auto *apps = qobject_cast<AppManagerPage *>(currentPage())) {
        if (apps->isWorking()) {
            apps->askCancel();
            return;
        }
    }
    QWizard::reject();
}

void TransmitterWizard::onTransmitterRemoved(const QString &rootPath)
{
    if (rootPath != m_transmitter.rootPath)
        return;
    qDebug() << "Transmitter removed!";
    emit driveRemoved();
    emit driveChanged();
}

void TransmitterWizard::onTransmitterAdded(const TransmitterInfo &transmitter)
{
    if (transmitter.rootPath != m_transmitter.rootPath)
        return;
    m_transmitter = transmitter;
    emit driveChanged();
}

QString TransmitterWizard::dataFolder() const
{
    if (m_database && !m_database->databasePath().isEmpty())
        return QFileInfo(m_database->databasePath()).absolutePath();
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
}

TransmitterWizard *TransmitterWizard::of(const QWidget *page)
{
    for (QObject *p = page->parent(); p; p = p->parent()) {
        if (auto *w = qobject_cast<TransmitterWizard *>(p))
            return w;
    }
    return nullptr;
}

QLabel *TransmitterWizard::wrappedLabel(const QString &text)
{
    auto *label = new QLabel(text);
    label->setWordWrap(true);
    return label;
}
