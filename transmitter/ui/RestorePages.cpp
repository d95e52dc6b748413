#include "transmitter/ui/RestorePages.h"

#include "database/DatabaseManager.h"
#include "transmitter/ArchiveCheck.h"
#include "transmitter/BackupsModel.h"
#include "transmitter/TransmitterConfig.h"
#include "transmitter/TransmitterModels.h"
#include "transmitter/ui/TransmitterWizard.h"
#include "widgets/layout/Prompter.h"

#include <QBuffer>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTreeView>
#include <QVBoxLayout>

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>

// --- intro ---

RestoreIntroPage::RestoreIntroPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("HC/HS Transmitter Recovery"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(TransmitterWizard::wrappedLabel(
        tr("This wizard will guide you through restoring your Vexo HC/HS transmitter from backup.")));
    layout->addStretch();
}

// --- selection ---

RestoreSelectionPage::RestoreSelectionPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("HC/HS Transmitter Recovery"));
    setButtonText(QWizard::NextButton, tr("Recover"));

    m_database = new QRadioButton(tr("Database"));
    m_file = new QRadioButton(tr("File"));
    m_tree = new QTreeView;
    m_tree->setStyleSheet(QStringLiteral("QTreeView::item { padding: 0px 6px; }"));
    m_tree->setRootIsDecorated(false);
    m_tree->setSelectionMode(QAbstractItemView::SingleSelection);
    m_tree->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_description = new QPlainTextEdit;
    m_description->setReadOnly(true);
    m_description->setMaximumHeight(70);
    m_contents = new QListWidget;
    m_path = new QLineEdit;
    m_browse = new QPushButton(tr("Browse..."));
    m_firmware = new QLabel;
    m_firmware->setWordWrap(true);

    auto *details = new QGroupBox(tr("Backup details"));
    auto *detailsLayout = new QVBoxLayout(details);
    detailsLayout->addWidget(new QLabel(tr("Description")));
    detailsLayout->addWidget(m_description);
    detailsLayout->addWidget(new QLabel(tr("Contents")));
    detailsLayout->addWidget(m_contents, 1);
    auto *dbRow = new QHBoxLayout;
    dbRow->addWidget(m_tree, 3);
    dbRow->addWidget(details, 2);
    auto *fileRow = new QHBoxLayout;
    fileRow->addWidget(m_path, 1);
    fileRow->addWidget(m_browse);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("Select backup source:")));
    layout->addWidget(m_database);
    layout->addLayout(dbRow, 1);
    layout->addWidget(m_file);
    layout->addWidget(new QLabel(tr("Select your backup file:")));
    layout->addLayout(fileRow);
    layout->addWidget(m_firmware);

    const auto follow = [this, details] {
        const bool db = m_database->isChecked();
        m_tree->setEnabled(db);
        details->setEnabled(db);
        m_path->setEnabled(!db);
        m_browse->setEnabled(!db);
    };
    connect(m_database, &QRadioButton::toggled, this, follow);
    m_database->setChecked(true);
    follow();
    connect(m_browse, &QPushButton::clicked, this, &RestoreSelectionPage::browse);
}

TransmitterWizard *RestoreSelectionPage::transmitterWizard() const
{
    return qobject_cast<TransmitterWizard *>(wizard());
}

void RestoreSelectionPage::initializePage()
{
    TransmitterWizard *w = transmitterWizard();
    connect(w, &QWizard::currentIdChanged, this, &RestoreSelectionPage::onCurrentIdChanged,
            Qt::UniqueConnection);
    connect(w, &TransmitterWizard::driveChanged, this, &RestoreSelectionPage::reloadBackups,
            Qt::UniqueConnection);
    if (!m_model) {
        m_model = new BackupsModel(w->database(), this);
        m_tree->setModel(m_model);
        connect(m_tree->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
                &RestoreSelectionPage::showDetails);
    }
    reloadBackups();
    m_firmware->clear();
}

void RestoreSelectionPage::reloadBackups()
{
    if (m_model && !m_model->reload())
        qWarning() << "The backups could not be read from the database.";
    for (int c = 0; m_model && c < BackupsModel::ColumnCount; ++c)
        m_tree->resizeColumnToContents(c);
    showDetails();
}

void RestoreSelectionPage::onCurrentIdChanged(int)
{
    TransmitterWizard *w = transmitterWizard();
    if (w->currentPage() == this)
        w->takeOverNext(this, &RestoreSelectionPage::onNextClicked);
}

void RestoreSelectionPage::cleanupPage()
{
    transmitterWizard()->giveBackNext();
}

bool RestoreSelectionPage::fromDatabase() const
{
    return m_database->isChecked();
}

int RestoreSelectionPage::backupId() const
{
    const QModelIndex current =
        m_tree->selectionModel() ? m_tree->selectionModel()->currentIndex() : QModelIndex();
    return current.isValid() ? current.sibling(current.row(), 0).data(BackupsModel::IdRole).toInt() : -1;
}

QString RestoreSelectionPage::filePath() const
{
    return QDir::fromNativeSeparators(m_path->text().trimmed());
}

void RestoreSelectionPage::showDetails()
{
    m_description->clear();
    m_contents->clear();
    const int id = backupId();
    DatabaseManager *db = transmitterWizard() ? transmitterWizard()->database() : nullptr;
    if (id < 0 || !db)
        return;
    const QModelIndex current = m_tree->selectionModel()->currentIndex();
    m_description->setPlainText(m_model->backupAt(current.row()).description);
    QByteArray list;
    if (db->backupFileList(id, &list))
        m_contents->addItems(BackupsModel::decodeFileList(list));
}

void RestoreSelectionPage::browse()
{
    const QString chosen =
        transmitterWizard()->prompter()->openFile(this, tr("Backup file"), m_path->text(), tr("*.zip"));
    if (!chosen.isEmpty())
        m_path->setText(QDir::toNativeSeparators(chosen));
}

bool RestoreSelectionPage::validate()
{
    TransmitterWizard *w = transmitterWizard();
    Prompter *prompter = w->prompter();
    QByteArray dbBytes;
    QFile file;
    QBuffer buffer(&dbBytes);
    QIODevice *archive = nullptr;
    if (!fromDatabase()) {
        const QFileInfo fi(filePath());
        file.setFileName(fi.filePath());
        if (filePath().isEmpty() || !fi.isFile() || !file.open(QIODevice::ReadOnly)) {
            prompter->warning(this, tr("No file selected"), tr("Please select a valid file."));
            return false;
        }
        archive = &file;
    } else {
        const int id = backupId();
        if (id < 0) {
            prompter->warning(this, tr("No backup selected"), tr("Please select backup."));
            return false;
        }
        if (!w->database() || !w->database()->backupData(id, &dbBytes)) {
            prompter->error(this, tr("Error"), tr("There was an error during reading backup from database."));
            return false;
        }
        buffer.open(QIODevice::ReadOnly);
        archive = &buffer;
    }
    ArchiveCheck::Listing listing;
    QString reason;
    const bool accepted = ArchiveCheck::check(archive, -1, &listing, &reason);
    if (!accepted || !listing.hasConfig) {
        QString text = tr("Selected file is not a valid backup. Please select a valid backup.");
        if (!accepted && !reason.isEmpty())
            text += QStringLiteral("<ul><li>%1</li></ul>").arg(reason.toHtmlEscaped());
        prompter->warning(this, tr("Invalid file"), text);
        return false;
    }
    // Which transmitter the backup was made on, so a recovery onto another model is not made unasked.
    m_backupOf = TransmitterInfo();
    if (archive->seek(0)) {
        QuaZip zip(archive);
        zip.setAutoClose(false);
        if (zip.open(QuaZip::mdUnzip) && zip.setCurrentFile(QStringLiteral("config/config.jsn"))) {
            QuaZipFile config(&zip);
            if (config.open(QIODevice::ReadOnly))
                TransmitterConfig::parse(config.read(TransmitterConfig::kMaxConfigSize), &m_backupOf);
        }
    }
    // What becomes of the image is the update tool's business; here it is only pointed out.
    const QString image = TransmitterModels::firmwareImage(w->transmitter().hwId);
    m_hasFirmware = false;
    for (const ArchiveCheck::Entry &e : listing.entries) {
        if (!image.isEmpty() && e.name == QStringLiteral("update/") + image)
            m_hasFirmware = true;
    }
    m_firmware->setText(m_hasFirmware ? tr("The backup holds the firmware image %1.").arg(image) : QString());
    return true;
}

void RestoreSelectionPage::onNextClicked()
{
    if (!validate())
        return;
    TransmitterWizard *w = transmitterWizard();
    // Writing to the transmitter cannot be undone from here: asked first.
    QString text = tr("<b>Recover the transmitter from this backup?</b><p>Files on the transmitter that "
                      "the backup holds are replaced by the backup's copies; other files stay.</p>");
    const TransmitterInfo &now = w->transmitter();
    if (m_backupOf.hwId != 0 && m_backupOf.hwId != now.hwId) {
        text += tr("<p><b>The backup was made on a %1 (firmware %2.%3), the connected transmitter is a %4 "
                   "(firmware %5.%6).</b></p>")
                    .arg(m_backupOf.modelName.toHtmlEscaped())
                    .arg(m_backupOf.versionMajor)
                    .arg(m_backupOf.versionMinor)
                    .arg(now.modelName.toHtmlEscaped())
                    .arg(now.versionMajor)
                    .arg(now.versionMinor);
    }
    if (w->prompter()->question(this, tr("Confirmation"), text) != QMessageBox::Yes)
        return;
    w->giveBackNext();
    w->next();
}

// --- progress ---

RestoreProgressPage::RestoreProgressPage(QWidget *parent)
    : WorkerProgressPage(tr("Do you really want to cancel the recovery process?"), parent)
{
    setTitle(tr("HC/HS Transmitter Recovery"));
}

QObject *RestoreProgressPage::createWorker()
{
    TransmitterWizard *w = transmitterWizard();
    auto *selection = qobject_cast<RestoreSelectionPage *>(w->page(TransmitterWizard::RestoreSelectionId));
    RestoreWorker::Request request;
    request.root = w->transmitter().rootPath;
    if (selection->fromDatabase())
        request.backupId = selection->backupId();
    else
        request.archivePath = selection->filePath();
    auto *worker = new RestoreWorker(request);
    setCanceller([worker] { worker->cancel(); });
    connect(worker, &RestoreWorker::error, this, &RestoreProgressPage::onRestoreError);
    // The worker waits for the bytes: the database is touched on this thread only.
    connect(worker, &RestoreWorker::requestBackupFromDb, this, &RestoreProgressPage::onRequestBackupFromDb,
            Qt::BlockingQueuedConnection);
    return worker;
}

void RestoreProgressPage::onRestoreError(RestoreWorker::ErrorType type, const QString &text)
{
    reportError(type == RestoreWorker::Canceled, text);
}

void RestoreProgressPage::onRequestBackupFromDb(int backupId)
{
    auto *w = qobject_cast<RestoreWorker *>(sender());
    if (!w)
        return;
    DatabaseManager *db = transmitterWizard()->database();
    QByteArray data;
    const bool ok = db && db->backupData(backupId, &data);
    w->setBackupData(data, ok);
}

// --- finish ---

RestoreFinishPage::RestoreFinishPage(QWidget *parent) : QWizardPage(parent)
{
    setObjectName(QStringLiteral("restore-successful"));
    setTitle(tr("HC/HS Transmitter Recovery"));
    setFinalPage(true);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(
        TransmitterWizard::wrappedLabel(tr("Your transmitter has been successfully recovered.")));
    layout->addStretch();
}
