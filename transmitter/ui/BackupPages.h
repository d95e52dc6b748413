#pragma once

#include "transmitter/BackupWorker.h"
#include "transmitter/ui/WorkerProgressPage.h"

#include <QModelIndex>
#include <QVector>
#include <QWizardPage>

class CheckableFileSystemModel;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QRadioButton;
class QTreeView;
class TransmitterWizard;

// The backup tool's pages, in the order the wizard shows them.

class BackupIntroPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit BackupIntroPage(QWidget *parent = nullptr);
};

// What to back up: a scope, or check marks set by hand in the tree of the drive.
class BackupSelectionPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit BackupSelectionPage(QWidget *parent = nullptr);

    void initializePage() override;
    bool isComplete() const override;
    CheckableFileSystemModel *model() const { return m_model; }
    QComboBox *scopeBox() const { return m_scope; }
    QTreeView *tree() const { return m_tree; }

public slots:
    void onBackupTypeChanged(int index);
    void onCheckStateChanged(const QModelIndex &topLeft, const QModelIndex &bottomRight,
                             const QVector<int> &roles);
    void onDirectoryLoaded(const QString &path);
    // The drive went or came: the tree is cleared and read again, with the chosen scope.
    void reloadDrive();

private:
    void showDrive();

    QComboBox *m_scope;
    QTreeView *m_tree;
    CheckableFileSystemModel *m_model;
};

// Where the backup goes and under what name; Next ("Back up") checks the choice first.
class BackupInformationPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit BackupInformationPage(QWidget *parent = nullptr);

    void initializePage() override;
    void cleanupPage() override;

    bool toDatabase() const;
    QString backupName() const;
    QString description() const;
    QString filePath() const;
    QStringList files() const;
    // The checks of leaving the page, in their order; false (after telling the user) to stay.
    bool validate();

    QRadioButton *databaseChoice() const { return m_database; }
    QRadioButton *fileChoice() const { return m_file; }
    QLineEdit *nameField() const { return m_name; }
    QLineEdit *pathField() const { return m_path; }
    QListWidget *contents() const { return m_contents; }

public slots:
    void onNextClicked();

private:
    void onCurrentIdChanged(int id);
    void browse();
    TransmitterWizard *transmitterWizard() const;
    qint64 selectedSize() const;
    void proposeUpdateBackup(const QString &name);

    QRadioButton *m_database;
    QRadioButton *m_file;
    QLineEdit *m_name;
    QPlainTextEdit *m_description;
    QLineEdit *m_path;
    QPushButton *m_browse;
    QListWidget *m_contents;
};

class BackupBackupProgressPage : public WorkerProgressPage
{
    Q_OBJECT
public:
    explicit BackupBackupProgressPage(QWidget *parent = nullptr);

public slots:
    void onBackupError(BackupWorker::ErrorType type, const QString &text);
    void onInsertBackupDbRequest(int hwId, const QString &name, const QString &description,
                                 const QStringList &files, const QByteArray &zip);

protected:
    QObject *createWorker() override;
};

class BackupFinishPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit BackupFinishPage(QWidget *parent = nullptr);
    void initializePage() override;
    int nextId() const override;
};
