#pragma once

#include "transmitter/TxCatalogue.h"
#include "transmitter/UpdateWorker.h"
#include "transmitter/ui/WorkerProgressPage.h"

#include <QPointer>
#include <QUrl>
#include <QWizardPage>

class FileDownloader;
class QComboBox;
class QLabel;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

// The transmitter update's pages, in the order the wizard shows them. The backup pages run between the
// backup prompt and the overview unless the pilot skips them.

class UpdateIntroPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit UpdateIntroPage(QWidget *parent = nullptr);
    int nextId() const override;
};

// Shows the transmitter found and fetches "update.json" for it.
class UpdateCheckPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit UpdateCheckPage(QWidget *parent = nullptr);

    void initializePage() override;
    void cleanupPage() override;
    bool isComplete() const override;
    int nextId() const override;

    // The updates of the connected transmitter, in list order.
    QVector<TxCatalogue::Update> updates() const { return m_updates; }
    QString statusText() const;
    QString deviceText() const;
    QListWidget *list() const { return m_list; }
    // The update list's address: "update.json" in the configured service folder (empty: none configured).
    static QUrl listUrl();

signals:
    void dataReady();
    void error(const QString &text);

private:
    void onDownloadFinished(bool ok);
    void onDriveRemoved();
    void showError(const QString &detail);

    QLabel *m_device;
    QLabel *m_status;
    QListWidget *m_list;
    FileDownloader *m_downloader;
    QVector<TxCatalogue::Update> m_updates;
    bool m_leaving = false;
};

class UpdateBackupPromptPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit UpdateBackupPromptPage(QWidget *parent = nullptr);

    void initializePage() override;
    void cleanupPage() override;
    bool validatePage() override;
    int nextId() const override;
    QPushButton *skipButton() const { return m_skip; }

private:
    QPushButton *m_skip;
    bool m_skipped = false;
};

// Which update, and which of its optional files; "Update" starts it.
class UpdateOverviewPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit UpdateOverviewPage(QWidget *parent = nullptr);

    void initializePage() override;
    bool validatePage() override;
    int nextId() const override;

    TxCatalogue::Update currentUpdate() const;
    // The files to install, in list order: every file but the optional ones left unchecked.
    QVector<TxCatalogue::FileEntry> selectedFiles() const;
    QComboBox *typeBox() const { return m_type; }
    QTreeWidget *tree() const { return m_tree; }
    QPlainTextEdit *descriptionBox() const { return m_description; }
    // The tree item of a file of the current update (by its index in the update's list).
    QTreeWidgetItem *fileItem(int index) const;

    // A file type's icon from the system's icon provider, kept per suffix ("<suffix>_small"/"_large").
    static QIcon typeIcon(const QString &path, bool large = false);

private:
    void showUpdate(int index);
    void showDescription();

    QComboBox *m_type;
    QTreeWidget *m_tree;
    QPlainTextEdit *m_description;
    QVector<TxCatalogue::Update> m_updates;
    QVector<QTreeWidgetItem *> m_fileItems;
};

class UpdateProgressPage : public WorkerProgressPage
{
    Q_OBJECT
public:
    explicit UpdateProgressPage(QWidget *parent = nullptr);
    ~UpdateProgressPage() override;
    int nextId() const override;

public slots:
    void onUpdateError(UpdateWorker::ErrorType type, const QString &text);

protected:
    QObject *createWorker() override;

private:
    void onDriveRemoved();
    QPointer<UpdateWorker> m_worker;
};

class UpdateFinishPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit UpdateFinishPage(QWidget *parent = nullptr);
    void initializePage() override;
    int nextId() const override { return -1; }
    QString backupText() const;

private:
    QLabel *m_backup;
};
