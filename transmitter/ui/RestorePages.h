#pragma once

#include "link/TransmitterInfo.h"

#include "transmitter/RestoreWorker.h"
#include "transmitter/ui/WorkerProgressPage.h"

#include <QWizardPage>

class BackupsModel;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QRadioButton;
class QTreeView;
class TransmitterWizard;

// The recovery tool's pages, in the order the wizard shows them.

class RestoreIntroPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit RestoreIntroPage(QWidget *parent = nullptr);
};

// Which backup to write back: one from the database or a file. Next ("Recover") checks it first.
class RestoreSelectionPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit RestoreSelectionPage(QWidget *parent = nullptr);

    void initializePage() override;
    void cleanupPage() override;

    bool fromDatabase() const;
    int backupId() const; // -1: none selected
    QString filePath() const;
    // Whether the chosen backup carries the firmware image of the connected transmitter.
    bool hasFirmwareImage() const { return m_hasFirmware; }
    // The checks of leaving the page, in their order; false (after telling the user) to stay.
    bool validate();

    QRadioButton *databaseChoice() const { return m_database; }
    QRadioButton *fileChoice() const { return m_file; }
    QLineEdit *pathField() const { return m_path; }
    QTreeView *backups() const { return m_tree; }
    QPlainTextEdit *descriptionBox() const { return m_description; }
    QListWidget *contentsList() const { return m_contents; }

public slots:
    void onNextClicked();
    void reloadBackups();

private:
    void onCurrentIdChanged(int id);
    void showDetails();
    void browse();
    TransmitterWizard *transmitterWizard() const;

    QRadioButton *m_database;
    QRadioButton *m_file;
    QTreeView *m_tree;
    BackupsModel *m_model = nullptr;
    QPlainTextEdit *m_description;
    QListWidget *m_contents;
    QLineEdit *m_path;
    // The transmitter the chosen backup was made on, from its configuration; hwId 0 when unreadable.
    TransmitterInfo m_backupOf;
    QPushButton *m_browse;
    QLabel *m_firmware;
    bool m_hasFirmware = false;
};

class RestoreProgressPage : public WorkerProgressPage
{
    Q_OBJECT
public:
    explicit RestoreProgressPage(QWidget *parent = nullptr);

public slots:
    void onRestoreError(RestoreWorker::ErrorType type, const QString &text);
    void onRequestBackupFromDb(int backupId);

protected:
    QObject *createWorker() override;
};

class RestoreFinishPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit RestoreFinishPage(QWidget *parent = nullptr);
    int nextId() const override { return -1; }
};
