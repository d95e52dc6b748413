#include "transmitter/ui/BackupPages.h"

#include "database/DatabaseManager.h"
#include "database/ModelTableModel.h"
#include "transmitter/BackupRules.h"
#include "transmitter/BackupsModel.h"
#include "transmitter/ui/CheckableFileSystemModel.h"
#include "transmitter/ui/TransmitterWizard.h"
#include "widgets/layout/Prompter.h"

#include <QComboBox>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QStandardPaths>
#include <QTreeView>
#include <QVBoxLayout>

// --- intro ---

BackupIntroPage::BackupIntroPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("HC/HS Transmitter Backup"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(TransmitterWizard::wrappedLabel(
        tr("This wizard will guide you through a backup process of your Vexo HC/HS transmitter.")));
    layout->addStretch();
}

// --- selection ---

BackupSelectionPage::BackupSelectionPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("HC/HS Transmitter Backup"));
    m_scope = new QComboBox;
    m_scope->addItems(BackupRules::scopeNames());
    m_model = new CheckableFileSystemModel(this);
    m_tree = new QTreeView;
    m_tree->setModel(m_model);
    m_tree->header()->setSectionResizeMode(QHeaderView::Interactive);
    m_tree->setColumnHidden(2, true); // the kind of file says nothing here
    auto *top = new QHBoxLayout;
    top->addWidget(new QLabel(tr("Select backup type:")));
    top->addWidget(m_scope, 1);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(m_tree, 1);

    connect(m_scope, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &BackupSelectionPage::onBackupTypeChanged);
    connect(m_model, &QAbstractItemModel::dataChanged, this, &BackupSelectionPage::onCheckStateChanged);
    connect(m_model, &QFileSystemModel::directoryLoaded, this, &BackupSelectionPage::onDirectoryLoaded);
    // A mark set by hand leaves the scope's selection behind.
    connect(m_model, &CheckableFileSystemModel::checkedByHand, this, [this] {
        const QSignalBlocker block(m_scope);
        m_scope->setCurrentIndex(BackupRules::Custom);
    });
}

void BackupSelectionPage::initializePage()
{
    TransmitterWizard *w = TransmitterWizard::of(this);
    connect(w, &TransmitterWizard::driveChanged, this, &BackupSelectionPage::reloadDrive,
            Qt::UniqueConnection);
    // Before an update the whole drive is kept, so that the update can be undone completely.
    if (w->backupBeforeUpdate() && m_scope->currentIndex() != BackupRules::Full)
        m_scope->setCurrentIndex(BackupRules::Full);
    if (m_model->driveRoot() != QDir::cleanPath(w->transmitter().rootPath))
        showDrive();
}

void BackupSelectionPage::showDrive()
{
    const QModelIndex root = m_model->setDriveRoot(TransmitterWizard::of(this)->transmitter().rootPath);
    m_tree->setRootIndex(root);
    m_model->applyScope(BackupRules::Scope(m_scope->currentIndex()));
    emit completeChanged();
}

void BackupSelectionPage::reloadDrive()
{
    showDrive();
}

bool BackupSelectionPage::isComplete() const
{
    return !m_model->checkedFiles().isEmpty();
}

void BackupSelectionPage::onBackupTypeChanged(int index)
{
    m_model->applyScope(BackupRules::Scope(index));
}

void BackupSelectionPage::onCheckStateChanged(const QModelIndex &, const QModelIndex &,
                                              const QVector<int> &roles)
{
    if (roles.isEmpty() || roles.contains(Qt::CheckStateRole))
        emit completeChanged();
}

void BackupSelectionPage::onDirectoryLoaded(const QString &)
{
    m_tree->resizeColumnToContents(0);
}

// --- information ---

BackupInformationPage::BackupInformationPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("HC/HS Transmitter Backup"));
    setButtonText(QWizard::NextButton, tr("Back up"));

    m_database = new QRadioButton(tr("Save backup to internal database"));
    m_file = new QRadioButton(tr("Save backup to a file"));
    m_name = new QLineEdit;
    m_description = new QPlainTextEdit;
    m_description->setMaximumHeight(80);
    m_path = new QLineEdit;
    m_browse = new QPushButton(tr("Browse..."));
    m_contents = new QListWidget;

    auto *dbFields = new QFormLayout;
    dbFields->addRow(tr("Backup name"), m_name);
    dbFields->addRow(tr("Description"), m_description);
    auto *fileRow = new QHBoxLayout;
    fileRow->addWidget(m_path, 1);
    fileRow->addWidget(m_browse);
    auto *location = new QGroupBox(tr("Backup location"));
    auto *locationLayout = new QVBoxLayout(location);
    locationLayout->addWidget(m_database);
    locationLayout->addLayout(dbFields);
    locationLayout->addWidget(m_file);
    locationLayout->addLayout(fileRow);
    auto *contents = new QGroupBox(tr("Backup contents"));
    auto *contentsLayout = new QVBoxLayout(contents);
    contentsLayout->addWidget(m_contents);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(location);
    layout->addWidget(contents, 1);

    const auto follow = [this] {
        const bool db = m_database->isChecked();
        m_name->setEnabled(db);
        m_description->setEnabled(db);
        m_path->setEnabled(!db);
        m_browse->setEnabled(!db);
    };
    connect(m_database, &QRadioButton::toggled, this, follow);
    m_database->setChecked(true);
    follow();
    connect(m_browse, &QPushButton::clicked, this, &BackupInformationPage::browse);
}

TransmitterWizard *BackupInformationPage::transmitterWizard() const
{
    return TransmitterWizard::of(this);
}

void BackupInformationPage::initializePage()
{
    TransmitterWizard *w = transmitterWizard();
    connect(w, &QWizard::currentIdChanged, this, &BackupInformationPage::onCurrentIdChanged,
            Qt::UniqueConnection);
    // Proposed once; what the user typed stays when the page is entered again.
    const TransmitterInfo &t = w->transmitter();
    const QString name = BackupRules::backupName(t.modelName, t.versionMajor, t.versionMinor);
    if (m_name->text().isEmpty())
        m_name->setText(name);
    QString folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        folder = QDir::homePath();
    if (m_path->text().isEmpty())
        m_path->setText(
            QDir(folder).filePath(BackupRules::proposedFileName(name, QDateTime::currentDateTime())));
    m_contents->clear();
    m_contents->addItems(files());
    if (w->backupBeforeUpdate())
        proposeUpdateBackup(name);
}

void BackupInformationPage::proposeUpdateBackup(const QString &name)
{
    // The database when the backup fits without asking, else a dated file in the data folder.
    TransmitterWizard *w = transmitterWizard();
    const bool fits = w->database() && BackupRules::dbSizeVerdict(selectedSize()) == BackupRules::DbSize::Ok;
    if (fits) {
        m_database->setChecked(true);
        return;
    }
    const QString folder = QDir(w->dataFolder()).filePath(QStringLiteral("Backups"));
    QDir().mkpath(folder);
    m_file->setChecked(true);
    m_path->setText(QDir::toNativeSeparators(
        QDir(folder).filePath(BackupRules::proposedFileName(name, QDateTime::currentDateTime()))));
}

void BackupInformationPage::onCurrentIdChanged(int)
{
    TransmitterWizard *w = transmitterWizard();
    if (w->currentPage() == this)
        w->takeOverNext(this, &BackupInformationPage::onNextClicked);
}

void BackupInformationPage::cleanupPage()
{
    transmitterWizard()->giveBackNext();
}

void BackupInformationPage::onNextClicked()
{
    if (!validate())
        return;
    TransmitterWizard *w = transmitterWizard();
    w->giveBackNext();
    w->next();
}

QStringList BackupInformationPage::files() const
{
    auto *selection =
        qobject_cast<BackupSelectionPage *>(wizard()->page(TransmitterWizard::BackupSelectionId));
    return selection ? selection->model()->checkedFiles() : QStringList();
}

qint64 BackupInformationPage::selectedSize() const
{
    auto *selection =
        qobject_cast<BackupSelectionPage *>(wizard()->page(TransmitterWizard::BackupSelectionId));
    return selection ? selection->model()->checkedSize() : 0;
}

bool BackupInformationPage::toDatabase() const
{
    return m_database->isChecked();
}

QString BackupInformationPage::backupName() const
{
    return m_name->text().trimmed();
}

QString BackupInformationPage::description() const
{
    return m_description->toPlainText();
}

QString BackupInformationPage::filePath() const
{
    return QDir::fromNativeSeparators(m_path->text().trimmed());
}

bool BackupInformationPage::validate()
{
    Prompter *prompter = transmitterWizard()->prompter();
    if (toDatabase()) {
        if (backupName().isEmpty()) {
            prompter->information(this, tr("Information"), tr("Please enter the backup name."));
            return false;
        }
        const qint64 size = selectedSize();
        if (size > BackupRules::kMaxDbSize) {
            prompter->warning(
                this, tr("Backup too large."),
                tr("Size of selected files is more than %1. Maximum allowed backup size for a "
                   "database storage is %2. Deselect unnecessary files or save backup to a file.")
                    .arg(ModelTableModel::formatSize(BackupRules::kMaxDbSize),
                         ModelTableModel::formatSize(BackupRules::kMaxDbSize)));
            return false;
        }
        if (size > BackupRules::kRecommendedDbSize) {
            const auto answer = prompter->question(
                this, tr("Large backup."),
                tr("It's recommended to keep the backup size in database under %1 but size of selected files "
                   "is actually %2. Do you want to continue?")
                    .arg(ModelTableModel::formatSize(BackupRules::kRecommendedDbSize),
                         ModelTableModel::formatSize(size)),
                QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
            return answer == QMessageBox::Yes;
        }
        return true;
    }
    const QFileInfo target(filePath());
    if (filePath().isEmpty() || !target.isAbsolute() || !target.dir().exists()) {
        prompter->information(this, tr("Information"), tr("Invalid file location entered."));
        return false;
    }
    if (!BackupRules::isValidFileName(target.fileName())) {
        prompter->information(this, tr("Information"), tr("Invalid file name entered."));
        return false;
    }
    return true;
}

void BackupInformationPage::browse()
{
    const TransmitterInfo &t = transmitterWizard()->transmitter();
    QString start = m_path->text();
    if (start.isEmpty())
        start = BackupRules::archiveName(t.modelName, t.versionMajor, t.versionMinor);
    const QString chosen =
        transmitterWizard()->prompter()->saveFile(this, tr("Backup file"), start, tr("*.zip"));
    if (!chosen.isEmpty())
        m_path->setText(QDir::toNativeSeparators(chosen));
}

// --- progress ---

BackupBackupProgressPage::BackupBackupProgressPage(QWidget *parent)
    : WorkerProgressPage(tr("Do you really want to cancel the backup process?"), parent)
{
    setTitle(tr("HC/HS Transmitter Backup"));
}

QObject *BackupBackupProgressPage::createWorker()
{
    TransmitterWizard *w = transmitterWizard();
    auto *info = qobject_cast<BackupInformationPage *>(w->page(TransmitterWizard::BackupInformationId));
    BackupWorker::Request request;
    request.root = w->transmitter().rootPath;
    request.files = info->files();
    request.toDatabase = info->toDatabase();
    request.targetFile = info->filePath();
    request.hwId = w->transmitter().hwId;
    request.name = info->backupName();
    request.description = info->description();
    auto *worker = new BackupWorker(request);
    setCanceller([worker] { worker->cancel(); });
    connect(worker, &BackupWorker::error, this, &BackupBackupProgressPage::onBackupError);
    // The worker waits for the answer: the database is touched on this thread only.
    connect(worker, &BackupWorker::insertBackupDbRequest, this,
            &BackupBackupProgressPage::onInsertBackupDbRequest, Qt::BlockingQueuedConnection);
    return worker;
}

void BackupBackupProgressPage::onBackupError(BackupWorker::ErrorType type, const QString &text)
{
    reportError(type == BackupWorker::Canceled, text);
}

void BackupBackupProgressPage::onInsertBackupDbRequest(int hwId, const QString &name,
                                                       const QString &description, const QStringList &files,
                                                       const QByteArray &zip)
{
    DatabaseManager *db = transmitterWizard()->database();
    const int id = db ? db->insertBackup(quint32(hwId), name, description, zip.size(),
                                         BackupsModel::encodeFileList(files), zip)
                      : -1;
    if (id < 0) {
        if (auto *w = qobject_cast<BackupWorker *>(sender()))
            w->databaseInsertFailed();
    }
}

// --- finish ---

void BackupFinishPage::initializePage()
{
    TransmitterWizard *w = TransmitterWizard::of(this);
    // Made as the first step of an update: the update follows, and its finish page names this backup.
    const bool update = w->backupBeforeUpdate();
    setFinalPage(!update);
    if (!update)
        return;
    auto *info = qobject_cast<BackupInformationPage *>(w->page(TransmitterWizard::BackupInformationId));
    w->setUpdateBackupName(
        info->toDatabase() ? tr("the backup \"%1\" in the database").arg(info->backupName())
                           : tr("the backup file \"%1\"").arg(QDir::toNativeSeparators(info->filePath())));
}

int BackupFinishPage::nextId() const
{
    const TransmitterWizard *w = TransmitterWizard::of(this);
    return w && w->backupBeforeUpdate() ? TransmitterWizard::UpdateOverviewId : -1;
}

BackupFinishPage::BackupFinishPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("HC/HS Transmitter Backup"));
    setFinalPage(true);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(
        TransmitterWizard::wrappedLabel(tr("The transmitter backup has been successfully created.")));
    layout->addStretch();
}
