#pragma once

#include "link/TransmitterInfo.h"

#include <QAbstractButton>
#include <QMetaObject>
#include <QWizard>

class DatabaseManager;
class Prompter;

// The one dialog through which every transmitter tool is used: an intro page listing the tools, then
// the pages of the chosen tool. Pages reach the transmitter, the database and the prompter through it.
class QLabel;

class TransmitterWizard : public QWizard
{
    Q_OBJECT
public:
    // The wizard a page was added to (QWizardPage::wizard() is protected); null before it was.
    static TransmitterWizard *of(const QWidget *page);
    // A page's explanation, wrapped to the page's width.
    static QLabel *wrappedLabel(const QString &text);

    enum PageId
    {
        IntroId,
        BackupIntroId,
        BackupSelectionId,
        BackupInformationId,
        BackupProgressId,
        BackupFinishId,
        ManageBackupsId,
        NotAvailableId,
        RestoreIntroId,
        RestoreSelectionId,
        RestoreProgressId,
        RestoreFinishId,
        SyncIntroId,
        SyncSelectionId,
        SyncProgressId,
        SyncFinishId,
        UpdateIntroId,
        UpdateCheckId,
        UpdateBackupPromptId,
        UpdateOverviewId,
        UpdateProgressId,
        UpdateFinishId,
        AppManagerId,
    };

    // database may be null (no database open): the tools that need it say so.
    TransmitterWizard(const TransmitterInfo &transmitter, DatabaseManager *database, Prompter *prompter,
                      QWidget *parent = nullptr);

    const TransmitterInfo &transmitter() const { return m_transmitter; }
    DatabaseManager *database() const { return m_database; }
    Prompter *prompter() const { return m_prompter; }
    // The title of the tool the "not available" page speaks of.
    void setUnavailableTool(const QString &title) { m_unavailableTool = title; }
    QString unavailableTool() const { return m_unavailableTool; }

    // Where downloads and automatic backups go: the database's folder, else the application's data folder.
    QString dataFolder() const;

    // The backup pages run as the first step of an update: the whole drive is proposed, the storage is
    // chosen by the size rules, and the finish page leads on to the update.
    void setBackupBeforeUpdate(bool on) { m_backupBeforeUpdate = on; }
    bool backupBeforeUpdate() const { return m_backupBeforeUpdate; }
    // The backup made before the update, as the finish page names it (empty: none was made).
    void setUpdateBackupName(const QString &name) { m_updateBackupName = name; }
    QString updateBackupName() const { return m_updateBackupName; }

    // Next runs `handler` instead of next() until giveBackNext(): for pages that start work.
    template <typename Receiver, typename Slot> void takeOverNext(Receiver *receiver, Slot slot)
    {
        giveBackNext();
        disconnectNext();
        m_nextTakeOver = connect(button(NextButton), &QAbstractButton::clicked, receiver, slot);
    }
    void giveBackNext();
    // While a worker runs there is no way back; Exit asks first (see reject()).
    void setBusy(bool busy);
    bool isBusy() const { return m_busy; }

public slots:
    // Exit: a running tool is asked to stop first (it confirms); otherwise the dialog closes.
    void reject() override;
    void onTransmitterRemoved(const QString &rootPath);
    void onTransmitterAdded(const TransmitterInfo &transmitter);

signals:
    // The drive went away or came back: pages showing the drive read it again.
    void driveChanged();
    // The drive went away (announced before driveChanged): work on it must stop.
    void driveRemoved();
    // Logs were stored in the database by a synchronisation: views of the models should read them.
    void logsSynchronized();

private:
    void disconnectNext();

    TransmitterInfo m_transmitter;
    DatabaseManager *m_database;
    Prompter *m_prompter;
    QString m_unavailableTool;
    QMetaObject::Connection m_nextTakeOver;
    QString m_updateBackupName;
    bool m_busy = false;
    bool m_backupBeforeUpdate = false;
};
