#pragma once

#include <QPointer>
#include <QWizardPage>

#include <functional>

class QHBoxLayout;
class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QThread;
class TransmitterWizard;

// The progress page every drive tool shares: it runs the tool's worker on a thread of its own, shows
// its progress and the files it handled (details hidden until asked for), reports its errors, asks
// before cancelling, and moves on to the finish page when the worker is done.
class WorkerProgressPage : public QWizardPage
{
    Q_OBJECT
public:
    // cancelQuestion: the text of the "Confirmation" question asked before cancelling.
    WorkerProgressPage(const QString &cancelQuestion, QWidget *parent = nullptr);
    ~WorkerProgressPage() override;

    bool isRunning() const { return m_worker != nullptr && !m_workerDone; }
    // Asks "Confirmation"; on Yes the worker is told to stop. True when it was told.
    bool askCancel();
    bool isComplete() const override;
    void initializePage() override;
    void cleanupPage() override;

    QString statusText() const;
    QString detailsText() const;
    bool detailsShown() const;

public slots:
    void deleteWorker();

protected:
    // The worker, made and connected to its own error slot and special signals by the tool's page, which
    // also says how to tell it to stop (setCanceller); the common signals are connected here.
    virtual QObject *createWorker() = 0;
    void setCanceller(std::function<void()> cancel) { m_cancelWorker = std::move(cancel); }
    // Another object on this thread that answers the worker's blocking requests: it is served while the
    // page waits for the worker to end, as the page itself is.
    void setAnswerer(QObject *answerer) { m_answerer = answerer; }
    TransmitterWizard *transmitterWizard() const;
    QObject *worker() const { return m_worker; }
    // For the tool's error slot: a canceled run only says so, anything else is shown in a box.
    void reportError(bool canceled, const QString &text);
    // For what a tool tells beside the worker's own lines (a summary of the run).
    void appendDetails(const QString &text);
    // For a tool whose end of run reads other than "Finished." or "Canceled.".
    void setStatusText(const QString &text);
    // A tool's own button, shown beside "Show details".
    void addButton(QWidget *button);
    // Stops a running worker and waits for it, as destruction does; for a tool page whose own members
    // answer the worker and go before this base does.
    void shutDown();

private:
    void start();
    void setDetailsShown(bool shown);
    void cancelWorker();

    QProgressBar *m_bar;
    QLabel *m_status;
    QPushButton *m_toggle;
    QHBoxLayout *m_buttons;
    QPlainTextEdit *m_details;
    QString m_cancelQuestion;
    QObject *m_worker = nullptr;
    std::function<void()> m_cancelWorker;
    QPointer<QObject> m_answerer;
    QThread *m_thread = nullptr;
    bool m_workerDone = false;
    bool m_failed = false;
    bool m_canceled = false;
    bool m_succeeded = false;
    bool m_destroying = false;
};
