#include "transmitter/ui/WorkerProgressPage.h"

#include "transmitter/ui/TransmitterWizard.h"
#include "widgets/layout/Prompter.h"

#include <QCoreApplication>
#include <QDebug>
#include <QElapsedTimer>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTextDocument>
#include <QTextDocumentFragment>
#include <QThread>
#include <QVBoxLayout>

namespace {
constexpr int kWorkerWaitMs = 10000;

// Worker texts are plain with line breaks; the boxes show rich text.
QString asRichText(const QString &text)
{
    if (Qt::mightBeRichText(text))
        return text;
    return text.toHtmlEscaped().replace(QLatin1Char('\n'), QStringLiteral("<br>"));
}
} // namespace

WorkerProgressPage::WorkerProgressPage(const QString &cancelQuestion, QWidget *parent)
    : QWizardPage(parent), m_cancelQuestion(cancelQuestion)
{
    m_bar = new QProgressBar;
    m_bar->setRange(0, 100);
    m_status = new QLabel;
    m_toggle = new QPushButton;
    m_details = new QPlainTextEdit;
    m_details->setReadOnly(true);
    m_buttons = new QHBoxLayout;
    m_buttons->addWidget(m_status, 1);
    m_buttons->addWidget(m_toggle);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_bar);
    layout->addLayout(m_buttons);
    layout->addWidget(m_details, 1);
    connect(m_toggle, &QPushButton::clicked, this, [this] { setDetailsShown(m_details->isHidden()); });
    setDetailsShown(false);
    // What the worker wrote is done: the finish page leads nowhere back.
    setCommitPage(true);
}

WorkerProgressPage::~WorkerProgressPage()
{
    shutDown();
}

void WorkerProgressPage::shutDown()
{
    if (m_destroying)
        return;
    // The dialog went away while the worker ran: stop it, then wait as for any worker.
    m_destroying = true;
    if (isRunning())
        cancelWorker();
    deleteWorker();
}

TransmitterWizard *WorkerProgressPage::transmitterWizard() const
{
    return qobject_cast<TransmitterWizard *>(wizard());
}

void WorkerProgressPage::setDetailsShown(bool shown)
{
    m_details->setVisible(shown);
    m_toggle->setText(shown ? tr("Hide details") : tr("Show details"));
}

bool WorkerProgressPage::detailsShown() const
{
    return !m_details->isHidden();
}

QString WorkerProgressPage::statusText() const
{
    return m_status->text();
}

QString WorkerProgressPage::detailsText() const
{
    return m_details->toPlainText();
}

bool WorkerProgressPage::isComplete() const
{
    return m_succeeded;
}

void WorkerProgressPage::initializePage()
{
    setButtonText(QWizard::CommitButton, wizard()->buttonText(QWizard::NextButton));
    m_bar->setValue(0);
    m_details->clear();
    m_status->clear();
    setDetailsShown(false);
    start();
}

void WorkerProgressPage::cleanupPage()
{
    if (isRunning())
        cancelWorker();
    deleteWorker();
    if (TransmitterWizard *w = transmitterWizard())
        w->setBusy(false);
}

void WorkerProgressPage::start()
{
    deleteWorker();
    m_failed = m_canceled = m_succeeded = m_workerDone = false;
    m_worker = createWorker();
    if (!m_worker)
        return;
    m_thread = new QThread;
    m_worker->moveToThread(m_thread);
    connect(m_thread, SIGNAL(started()), m_worker, SLOT(doWork()));
    connect(m_worker, SIGNAL(progressChanged(int)), m_bar, SLOT(setValue(int)));
    connect(m_worker, SIGNAL(processedFile(QString)), m_details, SLOT(appendPlainText(QString)));
    connect(m_worker, SIGNAL(finished()), this, SLOT(deleteWorker()));
    connect(m_worker, SIGNAL(finished()), m_thread, SLOT(quit()));
    if (TransmitterWizard *w = transmitterWizard()) {
        connect(m_worker, SIGNAL(rejectRequest()), w, SLOT(reject()));
        w->setBusy(true);
    }
    emit completeChanged();
    m_thread->start();
}

void WorkerProgressPage::cancelWorker()
{
    if (m_worker && m_cancelWorker)
        m_cancelWorker();
}

bool WorkerProgressPage::askCancel()
{
    if (!isRunning())
        return false;
    const auto answer = transmitterWizard()->prompter()->question(
        this, tr("Confirmation"), m_cancelQuestion, QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
    // The worker may have ended while the question was open.
    if (answer != QMessageBox::Yes || !isRunning())
        return false;
    m_canceled = true;
    cancelWorker();
    m_status->setText(tr("Canceled."));
    return true;
}

void WorkerProgressPage::reportError(bool canceled, const QString &text)
{
    if (canceled || m_canceled) {
        m_canceled = true;
        m_status->setText(tr("Canceled."));
        return;
    }
    m_failed = true;
    setDetailsShown(true);
    if (!text.isEmpty())
        m_details->appendPlainText(QTextDocumentFragment::fromHtml(asRichText(text)).toPlainText());
    transmitterWizard()->prompter()->error(this, tr("Error"), asRichText(text));
}

void WorkerProgressPage::addButton(QWidget *button)
{
    m_buttons->addWidget(button);
}

void WorkerProgressPage::setStatusText(const QString &text)
{
    m_status->setText(text);
}

void WorkerProgressPage::appendDetails(const QString &text)
{
    m_details->appendPlainText(text);
}

void WorkerProgressPage::deleteWorker()
{
    if (!m_worker)
        return;
    // Only the worker's own finished() means it got to its end.
    const bool endedNormally = sender() == m_worker && !m_destroying;
    m_workerDone = true;
    m_thread->quit();
    // A worker blocked in a request to this page is answered while we wait, or it would never end.
    QElapsedTimer waited;
    waited.start();
    bool ended = false;
    while (!(ended = m_thread->wait(20)) && waited.elapsed() < kWorkerWaitMs) {
        QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
        if (m_answerer)
            QCoreApplication::sendPostedEvents(m_answerer, QEvent::MetaCall);
    }
    if (ended) {
        delete m_worker;
        delete m_thread;
    } else {
        qDebug() << "Worker thread is not responding.";
        // Left to end on its own: a running thread must not be destroyed.
        QObject::connect(m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
        QObject::connect(m_thread, &QThread::finished, m_thread, &QObject::deleteLater);
    }
    m_worker = nullptr;
    m_thread = nullptr;
    m_cancelWorker = nullptr;
    if (m_destroying)
        return;
    if (TransmitterWizard *w = transmitterWizard())
        w->setBusy(false);
    if (!endedNormally || m_failed || m_canceled)
        return;
    m_succeeded = true;
    m_bar->setValue(100);
    m_status->setText(tr("Finished."));
    emit completeChanged();
    if (TransmitterWizard *w = transmitterWizard()) {
        if (w->currentPage() == this)
            w->next();
    }
}
