#include "widgets/news/WidgetRSS.h"

#include "tools/NewsFeed.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/WindowTypes.h"

#include <QDebug>
#include <QDesktopServices>
#include <QLoggingCategory>
#include <QTextBrowser>
#include <QTimer>
#include <QVBoxLayout>

WidgetRSS::WidgetRSS(const QString &feedUrl, QWidget *parent)
    : QWidget(parent), m_feedUrl(feedUrl.trimmed()), m_view(new QTextBrowser(this)),
      m_feed(new NewsFeed(this)), m_fetchTimer(new QTimer(this)), m_refreshTimer(new QTimer(this)),
      m_opener([](const QUrl &url) { return QDesktopServices::openUrl(url); })
{
    setWindowTitle(WindowTypes::title(WindowTypes::RSS));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_view);
    // Links go to itemActivated only: the view itself never follows one.
    m_view->setOpenLinks(false);
    m_view->setOpenExternalLinks(false);
    connect(m_view, &QTextBrowser::anchorClicked, this, &WidgetRSS::itemActivated);
    connect(m_feed, &NewsFeed::feedReady, this, &WidgetRSS::showPage);
    connect(m_feed, &NewsFeed::imageReady, this, &WidgetRSS::addImage);
    // One re-layout for the pictures that arrive together, not one per picture (bench_news).
    m_refreshTimer->setSingleShot(true);
    m_refreshTimer->setInterval(kRefreshDelayMs);
    connect(m_refreshTimer, &QTimer::timeout, this, &WidgetRSS::refresh);

    const QString title = QStringLiteral("Vexo RSS");
    if (m_feedUrl.isEmpty() || !NewsFeed::mayOpen(QUrl(m_feedUrl))) {
        const QString why =
            m_feedUrl.isEmpty()
                ? tr("No news feed is configured. Set the environment variable %1 to the feed's http or "
                     "https address and start the program again.")
                      .arg(QString::fromLatin1(NewsFeed::kUrlVariable))
                : tr("The news feed address %1 is not an http or https address; correct the environment "
                     "variable %2.")
                      .arg(m_feedUrl.toHtmlEscaped(), QString::fromLatin1(NewsFeed::kUrlVariable));
        showPage(QStringLiteral("<html><head><link rel='stylesheet' type='text/css' href='format.css'></head>"
                                "<body><h1 align=\"center\">%1</h1><p align=\"center\">%2</p></body></html>")
                     .arg(title, why));
        return;
    }
    showPage(NewsFeed::placeholderPage(title));
    m_fetchTimer->setSingleShot(true);
    connect(m_fetchTimer, &QTimer::timeout, this, &WidgetRSS::fetch);
    m_fetchTimer->start(kFetchDelayMs);
}

void WidgetRSS::wire(WidgetRSS *, WindowHub *, TelemetryData *) {}

int WidgetRSS::load(const LayoutJsonValue &)
{
    return 0;
}

int WidgetRSS::save(LayoutJsonWriter &writer, quint8)
{
    writer.writeString(QStringLiteral("Type"), WindowTypes::key(WindowTypes::RSS));
    return 0;
}

bool WidgetRSS::isLoading() const
{
    return m_fetchTimer->isActive() || m_feed->isLoading() || m_refreshTimer->isActive();
}

QTextDocument *WidgetRSS::document() const
{
    return m_view->document();
}

void WidgetRSS::fetch()
{
    m_fetchTimer->stop();
    QLoggingCategory::setFilterRules(QStringLiteral("qt.network.ssl.warning=false"));
    m_feed->fetch(QUrl(m_feedUrl));
}

void WidgetRSS::itemActivated(const QUrl &url)
{
    if (!NewsFeed::mayOpen(url)) {
        qWarning().noquote() << "Not opening the news link" << url.toString(QUrl::RemoveUserInfo)
                             << "(only http and https links are opened)";
        return;
    }
    if (m_opener)
        m_opener(url);
}

void WidgetRSS::showPage(const QString &html)
{
    QTextDocument *doc = m_view->document();
    doc->addResource(QTextDocument::StyleSheetResource, QUrl(QStringLiteral("format.css")),
                     NewsFeed::styleSheet());
    doc->setHtml(html);
}

void WidgetRSS::addImage(const QUrl &url, const QImage &image)
{
    m_view->document()->addResource(QTextDocument::ImageResource, url, image);
    if (!m_refreshTimer->isActive())
        m_refreshTimer->start();
}

void WidgetRSS::refresh()
{
    // The img elements were laid out without their pictures.
    QTextDocument *doc = m_view->document();
    doc->markContentsDirty(0, doc->characterCount());
    m_view->viewport()->update();
}
