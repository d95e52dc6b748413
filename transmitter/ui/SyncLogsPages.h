#pragma once

#include "transmitter/SyncWorker.h"
#include "transmitter/ui/WorkerProgressPage.h"

#include <QWizardPage>

#include <functional>
#include <memory>

class CheckBoxHeader;
class LogSyncStore;
class ModelLibrary;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QTreeView;
class TransmitterLogsModel;
class TransmitterWizard;

// The log synchronisation tool's pages, in the order the wizard shows them.

class SyncLogsIntroPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit SyncLogsIntroPage(QWidget *parent = nullptr);
};

// The transmitter's logs with check marks; Next ("Synchronize") hands the checked ones to the worker.
// Logs and day folders can be deleted on the transmitter from the context menu.
class SyncLogsSelectionPage : public QWizardPage
{
    Q_OBJECT
public:
    // Test seam: removes a log file (folder false) or a day folder on the drive; true when it is gone.
    using Remover = std::function<bool(const QString &path, bool folder)>;

    explicit SyncLogsSelectionPage(QWidget *parent = nullptr);

    void initializePage() override;
    void cleanupPage() override;

    TransmitterLogsModel *model() const { return m_model; }
    QTreeView *tree() const { return m_tree; }
    CheckBoxHeader *checkHeader() const { return m_header; }
    void setRemover(Remover remover) { m_remove = std::move(remover); }
    // Asks, then deletes the log file or day folder of the row on the transmitter; false when it was
    // not deleted (No, or after the error box).
    bool deleteEntry(const QModelIndex &index);
    // Leaving the page: something checked and a database to store into; false (after telling) to stay.
    bool validate();

public slots:
    void onNextClicked();
    // The drive went or came: the tree is read again, keeping the marks of what is still there.
    void reloadDrive();

private:
    void onCurrentIdChanged(int id);
    void showMenu(const QPoint &pos);
    void followChecks();
    TransmitterWizard *transmitterWizard() const;

    QTreeView *m_tree;
    CheckBoxHeader *m_header;
    TransmitterLogsModel *m_model;
    Remover m_remove;
};

class SyncLogsProgressPage : public WorkerProgressPage
{
    Q_OBJECT
public:
    explicit SyncLogsProgressPage(QWidget *parent = nullptr);
    ~SyncLogsProgressPage() override;

    // What the last run did; complete once it has ended.
    const SyncReport &report() const { return m_report; }
    QPushButton *cancelButton() const { return m_cancel; }
    // What answers the worker of the current run (null before the first).
    LogSyncStore *store() const { return m_store; }

public slots:
    void onSyncError(SyncWorker::ErrorType type, const QString &text);
    // The worker's report of a run that has ended, however it ended.
    void onSyncComplete(const SyncReport &report);
    // The run went to its end: the finish page sums it up.
    void onSyncSuccessful();
    // "Cancel": asks, and on Yes the worker stops after the log in hand.
    void abortLogsSync();
    void onDriveRemoved();

protected:
    QObject *createWorker() override;

private:
    std::unique_ptr<ModelLibrary> m_library;
    LogSyncStore *m_store = nullptr;
    QPushButton *m_cancel;
    SyncReport m_report;
    bool m_driveLost = false;
};

class SyncLogsFinishPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit SyncLogsFinishPage(QWidget *parent = nullptr);

    void initializePage() override;
    int nextId() const override { return -1; }
    QString headline() const;
    QString summaryText() const;

private:
    QLabel *m_headline;
    QPlainTextEdit *m_summary;
};
