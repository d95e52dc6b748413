#include "transmitter/ui/SyncLogsPages.h"

#include "database/DatabaseManager.h"
#include "database/ModelLibrary.h"
#include "transmitter/LogSyncStore.h"
#include "transmitter/TransmitterLogsModel.h"
#include "transmitter/ui/CheckBoxHeader.h"
#include "transmitter/ui/TransmitterWizard.h"
#include "widgets/layout/Prompter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTreeView>
#include <QVBoxLayout>

namespace {

bool removeFromDrive(const QString &path, bool folder)
{
    // A folder already gone counts as a failure: the drive itself has most likely gone with it.
    if (folder)
        return QFileInfo(path).isDir() && QDir(path).removeRecursively();
    return QFile::remove(path);
}
} // namespace

// --- intro ---

SyncLogsIntroPage::SyncLogsIntroPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("HC/HS Log Sync"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(TransmitterWizard::wrappedLabel(
        tr("This wizard will guide you through copying the flight logs of your Vexo HC/HS transmitter "
           "into Vexo Studio.")));
    layout->addWidget(TransmitterWizard::wrappedLabel(
        tr("Each log is filed under the model it was recorded with, in a folder of its flight date. A "
           "model that is not in the database yet is created. Logs that are already there are left "
           "alone, so you can synchronize as often as you like.")));
    layout->addStretch();
}

// --- selection ---

SyncLogsSelectionPage::SyncLogsSelectionPage(QWidget *parent) : QWizardPage(parent), m_remove(removeFromDrive)
{
    setTitle(tr("HC/HS Log Sync"));
    setSubTitle(tr("Check the log files to synchronize. Right-click a log or a day to delete it on the "
                   "transmitter."));
    setButtonText(QWizard::NextButton, tr("Synchronize"));
    setButtonText(QWizard::CancelButton, tr("Close"));
    m_model = new TransmitterLogsModel(this);
    m_tree = new QTreeView;
    m_header = new CheckBoxHeader(m_tree);
    m_tree->setHeader(m_header);
    m_tree->setModel(m_model);
    m_header->setStretchLastSection(true);
    // Room for the box, the icon and a date; sizing to contents would look at the collapsed days only.
    m_header->resizeSection(TransmitterLogsModel::DateColumn,
                            m_tree->indentation() * 2 +
                                fontMetrics().horizontalAdvance(QStringLiteral("2024-12-31")) + 80);
    m_tree->setSelectionMode(QAbstractItemView::SingleSelection);
    m_tree->setContextMenuPolicy(Qt::CustomContextMenu);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_tree, 1);

    connect(m_header, &CheckBoxHeader::toggled, m_model, &TransmitterLogsModel::setAllChecked);
    // A log's mark also changes its day's: following the days is enough, and stays cheap when all
    // of two years of logs are checked at once.
    connect(m_model, &QAbstractItemModel::dataChanged, this, [this](const QModelIndex &topLeft) {
        if (!topLeft.parent().isValid())
            followChecks();
    });
    connect(m_model, &QAbstractItemModel::modelReset, this, &SyncLogsSelectionPage::followChecks);
    connect(m_model, &QAbstractItemModel::rowsInserted, this, &SyncLogsSelectionPage::followChecks);
    connect(m_model, &QAbstractItemModel::rowsRemoved, this, &SyncLogsSelectionPage::followChecks);
    connect(m_tree, &QWidget::customContextMenuRequested, this, &SyncLogsSelectionPage::showMenu);
}

TransmitterWizard *SyncLogsSelectionPage::transmitterWizard() const
{
    return TransmitterWizard::of(this);
}

void SyncLogsSelectionPage::initializePage()
{
    TransmitterWizard *w = transmitterWizard();
    connect(w, &QWizard::currentIdChanged, this, &SyncLogsSelectionPage::onCurrentIdChanged,
            Qt::UniqueConnection);
    connect(w, &TransmitterWizard::driveChanged, this, &SyncLogsSelectionPage::reloadDrive,
            Qt::UniqueConnection);
    // Read afresh on every visit: a run or the user may have changed the drive since.
    if (m_model->driveRoot() != QDir::cleanPath(w->transmitter().rootPath))
        m_model->setDriveRoot(QDir::cleanPath(w->transmitter().rootPath));
    else
        m_model->reload();
    followChecks();
}

void SyncLogsSelectionPage::cleanupPage()
{
    transmitterWizard()->giveBackNext();
}

void SyncLogsSelectionPage::onCurrentIdChanged(int)
{
    TransmitterWizard *w = transmitterWizard();
    if (w->currentPage() == this)
        w->takeOverNext(this, &SyncLogsSelectionPage::onNextClicked);
}

void SyncLogsSelectionPage::reloadDrive()
{
    // A run works on the model's rows; the page reads the drive again when it is shown next.
    if (transmitterWizard()->isBusy())
        return;
    m_model->reload();
    followChecks();
}

void SyncLogsSelectionPage::followChecks()
{
    bool some = false, all = true;
    for (int row = 0; row < m_model->rowCount(); ++row) {
        const QModelIndex day = m_model->index(row, 0);
        if (m_model->rowCount(day) == 0)
            continue; // a day without logs has nothing to check
        const auto state = Qt::CheckState(day.data(Qt::CheckStateRole).toInt());
        some = some || state != Qt::Unchecked;
        all = all && state == Qt::Checked;
    }
    m_header->setCheckState(!some ? Qt::Unchecked : all ? Qt::Checked : Qt::PartiallyChecked);
}

bool SyncLogsSelectionPage::validate()
{
    TransmitterWizard *w = transmitterWizard();
    if (m_model->checkedLogs().isEmpty()) {
        w->prompter()->information(this, tr("No log file selected."), tr("Select at least one log file."));
        return false;
    }
    if (!w->database()) {
        w->prompter()->error(this, tr("Error"),
                             tr("<b>Unable to synchronize the log files:</b><ul><li>No database is "
                                "open.</li></ul>"));
        return false;
    }
    return true;
}

void SyncLogsSelectionPage::onNextClicked()
{
    if (!validate())
        return;
    TransmitterWizard *w = transmitterWizard();
    w->giveBackNext();
    w->next();
}

void SyncLogsSelectionPage::showMenu(const QPoint &pos)
{
    const QModelIndex at = m_tree->indexAt(pos);
    if (!at.isValid())
        return;
    m_tree->setCurrentIndex(at);
    QMenu menu(this);
    QAction *remove = menu.addAction(tr("Delete"));
    if (menu.exec(m_tree->viewport()->mapToGlobal(pos)) == remove)
        deleteEntry(at);
}

bool SyncLogsSelectionPage::deleteEntry(const QModelIndex &index)
{
    const QModelIndex row = index.sibling(index.row(), 0);
    if (!row.isValid())
        return false;
    const bool folder = !m_model->isLog(row);
    const QString path = row.data(TransmitterLogsModel::FilePathRole).toString();
    TransmitterWizard *w = transmitterWizard();
    Prompter *prompter = w ? w->prompter() : Prompter::standard();
    const QString title = folder ? tr("Delete folder") : tr("Delete log file");
    const QString question = folder ? tr("Do you really want to remove the folder permanently?")
                                    : tr("Do you really want to remove the log file permanently?");
    if (path.isEmpty() || prompter->question(this, title, question, QMessageBox::Yes | QMessageBox::No,
                                             QMessageBox::No) != QMessageBox::Yes)
        return false;
    const bool removed = m_remove(path, folder);
    if (!removed) {
        prompter->error(this, tr("Error"),
                        folder ? tr("There was an error during removing the folder.")
                               : tr("There was an error during removing the log file."));
    }
    // Whatever happened, the tree shows what is on the drive now.
    m_model->reload();
    followChecks();
    return removed;
}

// --- progress ---

SyncLogsProgressPage::SyncLogsProgressPage(QWidget *parent)
    : WorkerProgressPage(tr("Do you want to abort the synchronization?"), parent)
{
    setTitle(tr("HC/HS Log Sync"));
    m_cancel = new QPushButton(tr("Cancel"));
    m_cancel->setEnabled(false);
    addButton(m_cancel);
    connect(m_cancel, &QPushButton::clicked, this, &SyncLogsProgressPage::abortLogsSync);
}

SyncLogsProgressPage::~SyncLogsProgressPage()
{
    // The store answering the worker uses the library: both must outlive the worker.
    shutDown();
}

QObject *SyncLogsProgressPage::createWorker()
{
    TransmitterWizard *w = transmitterWizard();
    auto *selection = qobject_cast<SyncLogsSelectionPage *>(w->page(TransmitterWizard::SyncSelectionId));
    connect(w, &TransmitterWizard::driveRemoved, this, &SyncLogsProgressPage::onDriveRemoved,
            Qt::UniqueConnection);
    m_report = SyncReport();
    m_driveLost = false;
    delete m_store;
    m_library = std::make_unique<ModelLibrary>(w->database());
    m_store = new LogSyncStore(selection->model(), m_library.get(), this);
    auto *worker = new SyncWorker(selection->model()->checkedLogs(), w->transmitter().rootPath);
    // The worker waits for each answer: the logs model and the database stay on this thread.
    m_store->attach(worker, Qt::BlockingQueuedConnection);
    setAnswerer(m_store);
    setCanceller([worker] { worker->cancel(); });
    connect(worker, &SyncWorker::error, this, &SyncLogsProgressPage::onSyncError);
    connect(worker, &SyncWorker::completed, this, &SyncLogsProgressPage::onSyncComplete);
    m_cancel->setEnabled(true);
    return worker;
}

void SyncLogsProgressPage::onSyncError(SyncWorker::ErrorType type, const QString &text)
{
    // A pulled drive is told once, whoever noticed it first.
    if (m_driveLost)
        return;
    if (type == SyncWorker::DisconnectedError)
        m_driveLost = true;
    reportError(type == SyncWorker::Canceled, text);
}

void SyncLogsProgressPage::onSyncComplete(const SyncReport &report)
{
    m_report = report;
    if (m_driveLost && m_report.abortedBy.isEmpty()) {
        // Stopped because the drive went, not by the user.
        m_report.canceled = false;
        m_report.abortedBy = tr("Transmitter disconnected. Aborting synchronization.");
    }
    m_cancel->setEnabled(false);
    if (!report.stored.isEmpty() || !report.modelsCreated.isEmpty()) {
        if (TransmitterWizard *w = transmitterWizard())
            emit w->logsSynchronized();
    }
    if (m_report.canceled || !m_report.abortedBy.isEmpty()) {
        // Stays on this page: what was stored before the end is said here.
        appendDetails(m_report.summary());
        return;
    }
    onSyncSuccessful();
}

void SyncLogsProgressPage::onSyncSuccessful()
{
    appendDetails(m_report.summary());
}

void SyncLogsProgressPage::abortLogsSync()
{
    askCancel();
}

void SyncLogsProgressPage::onDriveRemoved()
{
    if (!isRunning() || m_driveLost)
        return;
    m_driveLost = true;
    if (auto *sync = qobject_cast<SyncWorker *>(worker()))
        sync->cancel();
    reportError(false, tr("Transmitter disconnected. Aborting synchronization."));
}

// --- finish ---

SyncLogsFinishPage::SyncLogsFinishPage(QWidget *parent) : QWizardPage(parent)
{
    setObjectName(QStringLiteral("sync-successful"));
    setTitle(tr("HC/HS Log Sync"));
    setFinalPage(true);
    m_summary = new QPlainTextEdit;
    m_summary->setReadOnly(true);
    auto *layout = new QVBoxLayout(this);
    m_headline = TransmitterWizard::wrappedLabel(QString());
    layout->addWidget(m_headline);
    layout->addWidget(m_summary, 1);
}

void SyncLogsFinishPage::initializePage()
{
    TransmitterWizard *w = TransmitterWizard::of(this);
    auto *progress = qobject_cast<SyncLogsProgressPage *>(w->page(TransmitterWizard::SyncProgressId));
    const SyncReport &report = progress->report();
    // "Successfully" would hide the logs that could not be read: those are named below.
    m_headline->setText(report.failed.isEmpty()
                            ? tr("Your log files have been successfully synchronized with Vexo Studio.")
                            : tr("Your log files have been synchronized with Vexo Studio, but some of them "
                                 "could not be stored."));
    QString text = report.summary();
    text += QStringLiteral("\n\n");
    text += tr("A log already in the database (same model, folder, name and contents) is skipped, so "
               "synchronizing again stores nothing twice. A log whose folder or file name is not a valid "
               "date is filed under the date the file was last written.");
    m_summary->setPlainText(text);
}

QString SyncLogsFinishPage::headline() const
{
    return m_headline->text();
}

QString SyncLogsFinishPage::summaryText() const
{
    return m_summary->toPlainText();
}
