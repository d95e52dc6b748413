#pragma once

#include "transmitter/TxCatalogue.h"

#include <QPointer>
#include <QUrl>
#include <QWizardPage>

#include <atomic>

class AppInstaller;
class AppsListModel;
class AppsSortFilterProxyModel;
class FileDownloader;
class QCheckBox;
class QLabel;
class QLineEdit;
class QListView;
class QNetworkAccessManager;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QTextBrowser;
class QThread;
class TransmitterWizard;

// The Lua app manager: one page listing the apps of "apps.json" for the connected transmitter, with a
// search, filters, a details pane and "Install" / "Uninstall" (buttons and context menu). Each install
// or uninstall runs an AppInstaller on a thread of its own; while it runs the list accepts no other
// work, and the drive leaving stops it.
class AppManagerPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit AppManagerPage(QWidget *parent = nullptr);
    ~AppManagerPage() override;

    void initializePage() override;
    void cleanupPage() override;
    bool isComplete() const override;
    int nextId() const override { return -1; }

    AppsListModel *model() const { return m_model; }
    AppsSortFilterProxyModel *proxy() const { return m_proxy; }
    QListView *list() const { return m_list; }
    QLineEdit *searchField() const { return m_search; }
    QCheckBox *onlyInstalled() const { return m_onlyInstalled; }
    QCheckBox *onlyCompatible() const { return m_onlyCompatible; }
    QCheckBox *onlyUpdatable() const { return m_onlyUpdatable; }
    QPushButton *installButton() const { return m_install; }
    QPushButton *uninstallButton() const { return m_uninstall; }
    QTextBrowser *details() const { return m_details; }
    QString statusText() const;
    QString logText() const;
    bool isWorking() const { return m_worker != nullptr; }

    // Asks "Confirmation"; on Yes the running install or uninstall is told to stop.
    bool askCancel();

public slots:
    // Reads the list again from the update service.
    void reload();
    // The app of the current row; false when nothing was started.
    bool installCurrent();
    bool uninstallCurrent();

signals:
    // An install or uninstall ended (ok: it succeeded).
    void workFinished(bool ok);

private:
    void onListDownloaded(bool ok);
    void fetchPreviews();
    void showDetails();
    void updateButtons();
    void showMenu(const QPoint &pos);
    void start(int operation, const TxCatalogue::App &app);
    void onWorkFinished(bool ok);
    void onDriveRemoved();
    void stopWork();
    void setStatus(const QString &text);
    void appendLog(const QString &text);
    // The app of the current row, or null.
    const TxCatalogue::App *currentApp() const;
    TransmitterWizard *transmitterWizard() const;

    AppsListModel *m_model;
    AppsSortFilterProxyModel *m_proxy;
    QLineEdit *m_search;
    QCheckBox *m_onlyInstalled;
    QCheckBox *m_onlyCompatible;
    QCheckBox *m_onlyUpdatable;
    QListView *m_list;
    QTextBrowser *m_details;
    QPushButton *m_install;
    QPushButton *m_uninstall;
    QProgressBar *m_progress;
    QLabel *m_status;
    QPlainTextEdit *m_log;
    QNetworkAccessManager *m_network;
    FileDownloader *m_listDownloader;
    QString m_root;
    bool m_driveGone = false;
    bool m_workFailed = false;
    QThread *m_thread = nullptr;
    AppInstaller *m_worker = nullptr;
    std::atomic_bool m_workerEnded{false};
    QString m_errorTitle;
    QString m_errorText;
};
